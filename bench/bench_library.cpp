// The library listing over a generated tree of 20,000 audio files in 2,000
// folders: the walk velmora-cli library uses (text and JSON), and the built
// velmora-cli itself run as a process.
#include "core/FileSystemItem.h"
#include "core/FileSystemItemListing.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>

namespace {

constexpr int kArtists = 50;
constexpr int kAlbumsPerArtist = 39;   // 50 + 50 × 39 = 2,000 folders
constexpr int kTracksPerAlbum = 10;
constexpr int kTracksPerArtist = 10;   // 50 × 39 × 10 + 50 × 10 = 20,000 files

QTemporaryDir* tree = nullptr;

void makeFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        std::fprintf(stderr, "cannot create %s\n", qPrintable(path));
}

void generateTree()
{
    tree = new QTemporaryDir(QDir::tempPath() + "/velmora-bench-library-XXXXXX");
    const QString root = tree->path();
    for (int artist = 0; artist < kArtists; ++artist) {
        const QString artistDir = QStringLiteral("%1/Artist %2").arg(root).arg(artist);
        QDir().mkpath(artistDir);
        for (int track = 0; track < kTracksPerArtist; ++track)
            makeFile(QStringLiteral("%1/Single %2.mp3").arg(artistDir).arg(track));
        makeFile(artistDir + "/folder.jpg");  // filtered out
        for (int album = 0; album < kAlbumsPerArtist; ++album) {
            const QString albumDir = QStringLiteral("%1/Album %2").arg(artistDir).arg(album);
            QDir().mkpath(albumDir);
            for (int track = 0; track < kTracksPerAlbum; ++track)
                makeFile(QStringLiteral("%1/%2 Track.%3").arg(albumDir).arg(track, 2, 10, QLatin1Char('0'))
                             .arg(track % 2 ? "flac" : "mp3"));
            makeFile(albumDir + "/cover.png");
        }
    }
}

void BM_ListingText(benchmark::State& state)
{
    qint64 bytes = 0;
    for (auto _ : state) {
        const QByteArray out = FileSystemItemListing::toText({{tree->path(), -1}});
        bytes = out.size();
        benchmark::DoNotOptimize(out.constData());
    }
    state.counters["output_bytes"] = double(bytes);
}
BENCHMARK(BM_ListingText)->Unit(benchmark::kMillisecond);

void BM_ListingJson(benchmark::State& state)
{
    for (auto _ : state) {
        const QByteArray out = FileSystemItemListing::toJson({{tree->path(), -1}});
        benchmark::DoNotOptimize(out.constData());
    }
}
BENCHMARK(BM_ListingJson)->Unit(benchmark::kMillisecond);

void runCli(benchmark::State& state, const QStringList& extra)
{
    const QString cli = QCoreApplication::applicationDirPath() + "/velmora-cli";
    if (!QFileInfo::exists(cli)) {
        state.SkipWithError("velmora-cli is not built beside the benchmark");
        return;
    }
    for (auto _ : state) {
        QProcess process;
        process.setStandardOutputFile(QProcess::nullDevice());
        process.start(cli, QStringList{"library"} + extra + QStringList{tree->path()});
        if (!process.waitForFinished(60000) || process.exitCode() != 0) {
            state.SkipWithError("velmora-cli library failed");
            return;
        }
    }
}

void BM_CliProcessText(benchmark::State& state)
{
    runCli(state, {});
}
BENCHMARK(BM_CliProcessText)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_CliProcessJson(benchmark::State& state)
{
    runCli(state, {"--json"});
}
BENCHMARK(BM_CliProcessJson)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    generateTree();
    // One untimed walk so every run sees a warm cache.
    FileSystemItemListing::toText({{tree->path(), -1}});
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    delete tree;
    return 0;
}

// Reading tags of 5,000 generated MP3 and Ogg files: the dispatcher against
// TagLib's plain FileRef, and the in-process ID3 frame lister against running
// id3info once per file. Files are read once before timing (warm cache).
#include "tags/Id3FrameLister.h"
#include "tags/OggTags.h"
#include "tags/TagFacade.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>
#include <taglib/fileref.h>
#include <taglib/tag.h>

#include <cstdio>

namespace {
constexpr int kFilesPerFormat = 2500;

bool runTool(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(program, arguments);
    return process.waitForFinished(60000) && process.exitCode() == 0;
}

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// An ID3v2.3 tag with the six text frames the system reads.
QByteArray id3v23Tag(int n)
{
    const QList<std::pair<QByteArray, QByteArray>> frames = {
        {"TIT2", "Title number " + QByteArray::number(n)}, {"TPE1", "Artist " + QByteArray::number(n % 50)},
        {"TALB", "Album " + QByteArray::number(n % 200)}, {"TRCK", QByteArray::number(n % 20 + 1) + "/20"},
        {"TYER", QByteArray::number(1960 + n % 60)}, {"TCON", "Rock"}};
    QByteArray body;
    for (const auto& [id, text] : frames) {
        const QByteArray data = '\0' + text;
        const quint32 size = quint32(data.size());
        body += id;
        body += char(size >> 24);
        body += char(size >> 16);
        body += char(size >> 8);
        body += char(size);
        body += QByteArray(2, '\0');
        body += data;
    }
    body += QByteArray(64, '\0');
    const quint32 size = quint32(body.size());
    QByteArray tag("ID3\x03\x00\x00", 6);
    for (int shift : {21, 14, 7, 0})
        tag += char((size >> shift) & 0x7F);
    return tag + body;
}

struct Corpus {
    QTemporaryDir dir {QDir::tempPath() + "/velmora-bench-XXXXXX"};
    QStringList mp3s;
    QStringList oggs;
    bool ok = false;

    Corpus()
    {
        const QString wav = dir.filePath("sine.wav");
        const QString plain = dir.filePath("plain.mp3");
        const QString ogg = dir.filePath("seed.ogg");
        ok = runTool("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16", wav, "synth", "2", "sine", "440"})
            && runTool("lame", {"--quiet", wav, plain}) && runTool("oggenc", {"-Q", "-o", ogg, wav});
        if (!ok)
            return;
        const QByteArray audio = readAll(plain);
        for (int n = 0; n < kFilesPerFormat; ++n) {
            const QString mp3 = dir.filePath(QStringLiteral("Artist %1 - Album - %2 - Song.mp3").arg(n).arg(n % 20 + 1));
            QFile file(mp3);
            file.open(QIODevice::WriteOnly);
            file.write(id3v23Tag(n) + audio);
            mp3s << mp3;
            const QString copy = dir.filePath(QStringLiteral("track%1.ogg").arg(n));
            QFile::copy(ogg, copy);
            updateOGGTags(copy, {{"title", QStringLiteral("Ogg %1").arg(n)}, {"artist", "Someone"}, {"album", "LP"},
                                 {"year", "2001"}, {"track", QString::number(n % 20 + 1)}, {"genre", "Jazz"}}, {});
            oggs << copy;
        }
        for (const QString& path : mp3s + oggs)
            getComments(path);  // warm the page cache
    }
};

Corpus& corpus()
{
    static Corpus instance;
    return instance;
}

void BM_GetComments(benchmark::State& state)
{
    Corpus& files = corpus();
    if (!files.ok) {
        state.SkipWithError("could not make the fixture files (sox, lame, oggenc)");
        return;
    }
    const QStringList all = files.mp3s + files.oggs;
    for (auto _ : state) {
        for (const QString& path : all)
            benchmark::DoNotOptimize(getComments(path));
    }
    state.SetItemsProcessed(state.iterations() * all.size());
}
BENCHMARK(BM_GetComments)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void BM_TagLibFileRef(benchmark::State& state)
{
    Corpus& files = corpus();
    if (!files.ok) {
        state.SkipWithError("could not make the fixture files (sox, lame, oggenc)");
        return;
    }
    const QStringList all = files.mp3s + files.oggs;
    for (auto _ : state) {
        for (const QString& path : all) {
            TagLib::FileRef file(QFile::encodeName(path).constData(), true, TagLib::AudioProperties::Average);
            if (!file.isNull() && file.tag()) {
                benchmark::DoNotOptimize(file.tag()->title());
                benchmark::DoNotOptimize(file.audioProperties()->lengthInSeconds());
            }
        }
    }
    state.SetItemsProcessed(state.iterations() * all.size());
}
BENCHMARK(BM_TagLibFileRef)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void BM_GetCommentsMp3Only(benchmark::State& state)
{
    Corpus& files = corpus();
    for (auto _ : state) {
        for (const QString& path : files.mp3s)
            benchmark::DoNotOptimize(getComments(path));
    }
    state.SetItemsProcessed(state.iterations() * files.mp3s.size());
}
BENCHMARK(BM_GetCommentsMp3Only)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void BM_GetCommentsOggOnly(benchmark::State& state)
{
    Corpus& files = corpus();
    for (auto _ : state) {
        for (const QString& path : files.oggs)
            benchmark::DoNotOptimize(getComments(path));
    }
    state.SetItemsProcessed(state.iterations() * files.oggs.size());
}
BENCHMARK(BM_GetCommentsOggOnly)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void BM_FrameListerInProcess(benchmark::State& state)
{
    Corpus& files = corpus();
    for (auto _ : state) {
        for (const QString& path : files.mp3s)
            benchmark::DoNotOptimize(id3infoOutput(path));
    }
    state.SetItemsProcessed(state.iterations() * files.mp3s.size());
}
BENCHMARK(BM_FrameListerInProcess)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

// id3info as a child process, on the first 200 files (a full pass takes minutes).
void BM_Id3infoProcess(benchmark::State& state)
{
    Corpus& files = corpus();
    const QString id3info = QStandardPaths::findExecutable("id3info");
    if (id3info.isEmpty()) {
        state.SkipWithError("id3info is not installed");
        return;
    }
    const QStringList some = files.mp3s.mid(0, 200);
    for (auto _ : state) {
        for (const QString& path : some) {
            QProcess process;
            process.start(id3info, {path});
            process.waitForFinished();
            benchmark::DoNotOptimize(process.readAllStandardOutput());
        }
    }
    state.SetItemsProcessed(state.iterations() * some.size());
}
BENCHMARK(BM_Id3infoProcess)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

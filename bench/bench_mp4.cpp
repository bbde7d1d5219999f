// Reading the tags of 2,000 M4A files: getAACComments against TagLib's FileRef.
#include "tags/Mp4Tags.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>
#include <taglib/fileref.h>
#include <taglib/tag.h>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr int kFileCount = 2000;

bool runTool(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(program, arguments);
    return process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

// A few tagged originals made with ffmpeg (one with its movie header ahead of
// the media, one with a cover added by AtomicParsley), copied to 2,000 files.
struct Library {
    QTemporaryDir dir;
    QStringList files;

    Library()
    {
        QStringList originals;
        for (int variant = 0; variant < 4; ++variant) {
            const QString original = dir.filePath(QStringLiteral("original-%1.m4a").arg(variant));
            QStringList arguments{"-v", "error", "-y", "-f", "lavfi", "-i",
                                  QStringLiteral("sine=frequency=%1:duration=%2").arg(300 + 50 * variant).arg(3 + variant),
                                  "-c:a", "aac", "-b:a", "96k", "-metadata", QStringLiteral("title=Song %1").arg(variant),
                                  "-metadata", "artist=Bench Band", "-metadata", "album=Timing", "-metadata",
                                  QStringLiteral("track=%1/4").arg(variant + 1), "-metadata", "date=2010", "-metadata",
                                  "genre=Rock"};
            if (variant % 2)
                arguments << "-movflags" << "+faststart";
            arguments << original;
            if (!runTool("ffmpeg", arguments)) {
                std::fprintf(stderr, "ffmpeg could not make the test files\n");
                std::exit(1);
            }
            originals << original;
        }
        const QString cover = dir.filePath("cover.png");
        runTool("ffmpeg", {"-v", "error", "-y", "-f", "lavfi", "-i", "color=c=red:s=300x300", "-frames:v", "1", cover});
        runTool("AtomicParsley", {originals[2], "--overWrite", "--artwork", cover});
        QDir().mkpath(dir.filePath("library"));
        for (int i = 0; i < kFileCount; ++i) {
            const QString file = dir.filePath(QStringLiteral("library/%1 - track.m4a").arg(i, 4, 10, QLatin1Char('0')));
            QFile::copy(originals[i % originals.size()], file);
            files << file;
        }
    }
};

Library& library()
{
    static Library instance;
    return instance;
}

void BM_GetAACComments(benchmark::State& state)
{
    const QStringList& files = library().files;
    for (auto _ : state) {
        int titles = 0;
        for (const QString& file : files)
            titles += getAACComments(file)->contains(QStringLiteral("title"));
        if (titles != kFileCount)
            state.SkipWithError("a file lost its title");
        benchmark::DoNotOptimize(titles);
    }
    state.SetItemsProcessed(state.iterations() * files.size());
}
BENCHMARK(BM_GetAACComments)->Unit(benchmark::kMillisecond);

// The same fields and the length through TagLib.
void BM_TagLibFileRef(benchmark::State& state)
{
    const QStringList& files = library().files;
    for (auto _ : state) {
        int titles = 0;
        for (const QString& file : files) {
            TagLib::FileRef ref(QFile::encodeName(file).constData());
            if (ref.isNull() || !ref.tag())
                continue;
            const TagLib::Tag* tag = ref.tag();
            titles += !tag->title().isEmpty();
            benchmark::DoNotOptimize(tag->artist());
            benchmark::DoNotOptimize(tag->album());
            benchmark::DoNotOptimize(tag->genre());
            benchmark::DoNotOptimize(tag->year());
            benchmark::DoNotOptimize(tag->track());
            benchmark::DoNotOptimize(ref.audioProperties()->lengthInSeconds());
        }
        if (titles != kFileCount)
            state.SkipWithError("TagLib lost a title");
    }
    state.SetItemsProcessed(state.iterations() * files.size());
}
BENCHMARK(BM_TagLibFileRef)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();

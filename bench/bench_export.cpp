// Converting a batch of WAV files to MP3: one after another in the foreground
// against all at once in background mode under the task slots.
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "encode/ExportJobs.h"
#include "encode/LameWrapper.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>

namespace {

constexpr int kFiles = 16;
constexpr int kSeconds = 60;

QTemporaryDir* workDir()
{
    static QTemporaryDir dir(QDir::tempPath() + "/velmora-bench-XXXXXX");
    return &dir;
}

QString sourcePath(int i)
{
    return workDir()->filePath(QStringLiteral("source%1.wav").arg(i));
}

QString outputPath(int i)
{
    return workDir()->filePath(QStringLiteral("out/song%1.mp3").arg(i));
}

void makeSources()
{
    for (int i = 0; i < kFiles; ++i) {
        // A chord that changes per file, so the encoder has real work to do.
        QProcess::execute("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16", sourcePath(i), "synth",
                                  QString::number(kSeconds), "pluck", QString::number(220 + 20 * i), "sine",
                                  QString::number(330 + 15 * i), "remix", "1,2", "1,2"});
    }
}

void convertAll(ExportJobs& jobs, bool background)
{
    QDir(workDir()->filePath("out")).removeRecursively();
    for (int i = 0; i < kFiles; ++i) {
        NotificationCenter::defaultCenter().post(
            VLMP3ExportNotification, QVariantMap {{"sourcepath", sourcePath(i)},
                                                  {"destinationpath", outputPath(i)},
                                                  {"ripinbackground", background}});
    }
    jobs.waitForBackgroundWork();
}

void checkOutputs(benchmark::State& state)
{
    for (int i = 0; i < kFiles; ++i) {
        if (!QFile::exists(outputPath(i))) {
            state.SkipWithError("an MP3 file is missing");
            return;
        }
    }
}

void BM_Mp3OneAfterAnother(benchmark::State& state)
{
    ExportJobs jobs;
    LameWrapper lame;
    lame.lookForLame();
    for (auto _ : state)
        convertAll(jobs, false);
    checkOutputs(state);
    state.counters["files"] = kFiles;
}

void BM_Mp3Background(benchmark::State& state)
{
    ExportJobs jobs;
    LameWrapper lame;
    lame.lookForLame();
    for (auto _ : state)
        convertAll(jobs, true);
    checkOutputs(state);
    state.counters["files"] = kFiles;
}

BENCHMARK(BM_Mp3OneAfterAnother)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_Mp3Background)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

} // namespace

int main(int argc, char** argv)
{
    // A private home, so the user's own settings and caches are never touched.
    const QString home = workDir()->path();
    for (const char* sub : {".config", ".local/share", ".cache", "run"})
        QDir().mkpath(home + '/' + sub);
    QFile::setPermissions(home + "/run", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    setenv("HOME", qPrintable(home), 1);
    setenv("XDG_CONFIG_HOME", qPrintable(home + "/.config"), 1);
    setenv("XDG_DATA_HOME", qPrintable(home + "/.local/share"), 1);
    setenv("XDG_CACHE_HOME", qPrintable(home + "/.cache"), 1);
    setenv("XDG_RUNTIME_DIR", qPrintable(home + "/run"), 1);
    QCoreApplication app(argc, argv);
    makeSources();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

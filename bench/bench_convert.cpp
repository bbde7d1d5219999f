// velmora-cli convert --to MP3 of 16 one-minute WAV files against the floor:
// the same lame command lines run straight from a pool of one lame per core.
// What velmora adds on top (collecting, reserved names, jobs, task slots,
// private work folders, renames) shows as the difference.
//
// Each run is one repetition; on a shared machine run them interleaved and
// compare the medians:
//   scripts/bench.sh bench_convert -- --benchmark_enable_random_interleaving=true
#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace {

constexpr int kFiles = 16;
constexpr int kSeconds = 60;

QTemporaryDir* workDir()
{
    static QTemporaryDir dir(QDir::tempPath() + "/velmora-bench-XXXXXX");
    return &dir;
}

QString cli()
{
    return QCoreApplication::applicationDirPath() + "/velmora-cli";
}

QString sourceFolder()
{
    return workDir()->filePath("wav");
}

QString sourcePath(int i)
{
    return sourceFolder() + QStringLiteral("/track%1.wav").arg(i, 2, 10, QChar('0'));
}

void makeSources()
{
    QDir().mkpath(sourceFolder());
    for (int i = 0; i < kFiles; ++i) {
        // A chord that changes per file, so the encoder has real work to do.
        QProcess::execute("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16", sourcePath(i), "synth",
                                  QString::number(kSeconds), "pluck", QString::number(220 + 20 * i), "sine",
                                  QString::number(330 + 15 * i), "remix", "1,2", "1,2"});
    }
}

// Processor seconds of every child process waited for so far (lame included,
// through velmora-cli): what the work cost, whatever else the machine runs.
double childCpuSeconds()
{
    rusage usage {};
    ::getrusage(RUSAGE_CHILDREN, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

bool allMade(const QString& folder, int expected)
{
    const QStringList made = QDir(folder).entryList({"*.MP3", "*.mp3"}, QDir::Files);
    if (made.size() != expected)
        return false;
    for (const QString& name : made) {
        if (QFileInfo(folder + '/' + name).size() < 100000)
            return false;
    }
    return true;
}

void BM_VelmoraConvert(benchmark::State& state)
{
    qint64 firstDispatchMs = 0;
    const double cpuBefore = childCpuSeconds();
    for (auto _ : state) {
        QTemporaryDir out(workDir()->filePath("out-XXXXXX"));
        QProcess process;
        process.setReadChannel(QProcess::StandardError);  // the progress lines
        QElapsedTimer clock;
        clock.start();
        process.start(cli(), {"convert", "--to", "MP3", "--flat", "--out", out.path(), sourceFolder()});
        QByteArray err;
        while (!err.contains("->") && process.waitForReadyRead(60000))
            err += process.readAllStandardError();
        firstDispatchMs = clock.elapsed();
        process.waitForFinished(-1);
        if (process.exitCode() != 0 || !allMade(out.path(), kFiles)) {
            state.SkipWithError("velmora-cli convert did not make every file");
            std::fprintf(stderr, "%s\n", (err + process.readAllStandardError()).constData());
            return;
        }
    }
    state.counters["first_dispatch_ms"] = double(firstDispatchMs);
    state.counters["files"] = kFiles;
    state.counters["cpu_s"] = benchmark::Counter(childCpuSeconds() - cpuBefore, benchmark::Counter::kAvgIterations);
}

// What the MP3 job runs for each of these files: default settings ("-b 128"),
// no tags to add.
void BM_LamePoolOnEveryCore(benchmark::State& state)
{
    const int cores = int(std::max(1u, std::thread::hardware_concurrency()));
    const double cpuBefore = childCpuSeconds();
    for (auto _ : state) {
        QTemporaryDir out(workDir()->filePath("out-XXXXXX"));
        std::vector<std::unique_ptr<QProcess>> running;
        int next = 0;
        int failed = 0;
        while (next < kFiles || !running.empty()) {
            while (next < kFiles && int(running.size()) < cores) {
                auto lame = std::make_unique<QProcess>();
                lame->setStandardOutputFile(QProcess::nullDevice());
                lame->setStandardErrorFile(QProcess::nullDevice());
                lame->start("lame", {"-b", "128", sourcePath(next),
                                     out.path() + QStringLiteral("/track%1.MP3").arg(next, 2, 10, QChar('0'))});
                ++next;
                running.push_back(std::move(lame));
            }
            // The first to end makes room for the next file.
            for (bool ended = false; !ended;) {
                for (auto it = running.begin(); it != running.end(); ++it) {
                    if ((*it)->waitForFinished(5)) {
                        failed += (*it)->exitCode() != 0;
                        running.erase(it);
                        ended = true;
                        break;
                    }
                }
            }
        }
        if (failed || !allMade(out.path(), kFiles)) {
            state.SkipWithError("a lame run failed");
            return;
        }
    }
    state.counters["files"] = kFiles;
    state.counters["processes"] = cores;
    state.counters["cpu_s"] = benchmark::Counter(childCpuSeconds() - cpuBefore, benchmark::Counter::kAvgIterations);
}

BENCHMARK(BM_LamePoolOnEveryCore)->Unit(benchmark::kSecond)->UseRealTime()->Iterations(1)->Repetitions(6);
BENCHMARK(BM_VelmoraConvert)->Unit(benchmark::kSecond)->UseRealTime()->Iterations(1)->Repetitions(6);

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

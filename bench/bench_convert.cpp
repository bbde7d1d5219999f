// velmora-cli convert --to MP3 of 32 one-minute WAV files: the whole batch in
// background slots against the same files converted one at a time, and the time
// from launch until the first file is handed to its encoder.
//
// Build and run: scripts/bench.sh bench_convert
#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>

namespace {

constexpr int kFiles = 32;

QString cli()
{
    return QCoreApplication::applicationDirPath() + "/velmora-cli";
}

const QString& sourceFolder()
{
    static QTemporaryDir dir;
    static bool made = false;
    if (!made) {
        QDir().mkpath(dir.path() + "/wav");
        const QString first = dir.path() + "/wav/track00.wav";
        QProcess::execute("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16", first, "synth", "60", "pinknoise", "vol", "0.5"});
        for (int i = 1; i < kFiles; ++i)
            QFile::copy(first, dir.path() + QStringLiteral("/wav/track%1.wav").arg(i, 2, 10, QChar('0')));
        made = true;
    }
    static const QString folder = dir.path() + "/wav";
    return folder;
}

void runConvert(const QStringList& sources, const QString& out, qint64* firstDispatchMs = nullptr)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::SeparateChannels);
    process.setReadChannel(QProcess::StandardError);  // the progress lines
    QElapsedTimer clock;
    clock.start();
    process.start(cli(), QStringList{"convert", "--to", "MP3", "--out", out} + sources);
    process.waitForStarted();
    if (firstDispatchMs) {
        QByteArray err;
        while (!err.contains("->") && process.waitForReadyRead(60000))
            err += process.readAllStandardError();
        *firstDispatchMs = clock.elapsed();
    }
    process.waitForFinished(-1);
    if (process.exitCode() != 0)
        std::fprintf(stderr, "%s\n", process.readAllStandardError().constData());
}

void BM_ConvertBatchInBackground(benchmark::State& state)
{
    const QString source = sourceFolder();
    qint64 firstMs = 0;
    for (auto _ : state) {
        QTemporaryDir out;
        runConvert({source}, out.path(), &firstMs);
    }
    state.counters["first_dispatch_ms"] = double(firstMs);
    state.counters["files"] = kFiles;
}

void BM_ConvertOneAtATime(benchmark::State& state)
{
    const QString source = sourceFolder();
    QStringList files;
    for (int i = 0; i < kFiles; ++i)
        files << source + QStringLiteral("/track%1.wav").arg(i, 2, 10, QChar('0'));
    for (auto _ : state) {
        QTemporaryDir out;
        for (const QString& file : files)
            runConvert({file}, out.path());
    }
    state.counters["files"] = kFiles;
}

BENCHMARK(BM_ConvertBatchInBackground)->Unit(benchmark::kSecond)->UseRealTime()->Iterations(1);
BENCHMARK(BM_ConvertOneAtATime)->Unit(benchmark::kSecond)->UseRealTime()->Iterations(1);

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

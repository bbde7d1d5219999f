// The Clip tab's waveform of a 10-minute song at 1,200 pixel columns: a WAV
// read directly, an MP3 sketched from its frames and then decoded by libmpg123.
// The goal is 300 ms until a picture shows: "first_ms" is when the first
// picture came (the MP3's sketch, the WAV's first columns), "final_ms" (and the
// time of an iteration) when the last column of the decoded picture was done.
//   scripts/bench.sh bench_clip
#include "tabs/Waveform.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>

namespace {

constexpr int kColumns = 1200;

QTemporaryDir* workDir()
{
    static QTemporaryDir dir(QDir::tempPath() + "/velmora-bench-XXXXXX");
    return &dir;
}

// Ten minutes of a changing chord, as WAV and as a 192 kbit/s MP3.
QString song(const char* extension)
{
    const QString wav = workDir()->filePath("song.wav");
    const QString mp3 = workDir()->filePath("song.mp3");
    if (!QFileInfo::exists(wav)) {
        QProcess::execute("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16", wav, "synth", "600", "pluck", "220",
                                  "sine", "330", "tremolo", "3", "60"});
        QProcess::execute("lame", {"--quiet", "-b", "192", wav, mp3});
    }
    return QLatin1String(extension) == QLatin1String("wav") ? wav : mp3;
}

void waveform(benchmark::State& state, const char* extension)
{
    const QString path = song(extension);
    const std::atomic<bool> cancel{false};
    double firstMs = 0, finalMs = 0;
    for (auto _ : state) {
        QElapsedTimer clock;
        clock.start();
        double first = -1;
        const WaveformPeaks peaks = Waveform::compute(path, kColumns, cancel, [&](const WaveformPeaks&) {
            if (first < 0)
                first = double(clock.nsecsElapsed()) / 1e6;
        });
        if (!peaks.complete() || peaks.columns() != kColumns) {
            state.SkipWithError("no waveform");
            break;
        }
        const double last = double(clock.nsecsElapsed()) / 1e6;
        firstMs += first < 0 ? last : first;
        finalMs += last;
    }
    state.counters["first_ms"] = benchmark::Counter(firstMs, benchmark::Counter::kAvgIterations);
    state.counters["final_ms"] = benchmark::Counter(finalMs, benchmark::Counter::kAvgIterations);
}

}  // namespace

BENCHMARK_CAPTURE(waveform, wav_10min, "wav")->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);
BENCHMARK_CAPTURE(waveform, mp3_10min, "mp3")->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

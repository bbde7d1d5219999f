// The player engine: the time from the Play tab's play action to the first
// audio buffer at the sink (MP3 through mqp; Ogg through mplayer as the
// engine chooses, and through mqp as when mplayer cannot start), and what
// polling the position costs.
//
// mqp tells when its sink took the first buffer after "play"
// (MQP_FIRST_BUFFER_FILE with the fake sink); mplayer writes its audio into a
// pipe whose first bytes after the WAV header are the first buffer.
//
// Build and run: scripts/bench.sh bench_player
#include "player/MqpWrapper.h"
#include "tabs/PlaySourcesWrapper.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <atomic>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

qint64 monotonicMicroseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return qint64(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

qint64 cpuMicroseconds(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return qint64(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

// A child's user and system time, from /proc.
qint64 childCpuMicroseconds(pid_t pid)
{
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray line = stat.readAll();
    const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
    const qint64 ticks = fields.value(11).toLongLong() + fields.value(12).toLongLong();
    return ticks * 1000000 / sysconf(_SC_CLK_TCK);
}

pid_t onlyChild()
{
    QFile children(QStringLiteral("/proc/self/task/%1/children").arg(getpid()));
    if (!children.open(QIODevice::ReadOnly))
        return -1;
    return pid_t(children.readAll().trimmed().split(' ').value(0).toInt());
}

const QTemporaryDir& folder()
{
    static QTemporaryDir dir;
    static bool made = false;
    if (!made) {
        const QString wav = dir.filePath("song.wav");
        QProcess::execute("sox",
                          {"-n", "-r", "44100", "-c", "2", "-b", "16", wav, "synth", "120", "pinknoise", "vol", "0.5"});
        QProcess::execute("lame", {"--quiet", "-b", "192", wav, dir.filePath("song.mp3")});
        QProcess::execute("oggenc", {"-Q", "-q", "5", "-o", dir.filePath("song.ogg"), wav});
        made = true;
    }
    return dir;
}

// Waits for the line mqp appends when its sink took the first buffer.
qint64 firstBufferFromMqp(const QString& file)
{
    for (int i = 0; i < 2000; ++i) {
        QFile report(file);
        if (report.open(QIODevice::ReadOnly)) {
            const QByteArray line = report.readLine().trimmed();
            if (!line.isEmpty())
                return line.toLongLong();
        }
        QThread::usleep(500);
    }
    return -1;
}

void PlayToFirstBufferThroughMqp(benchmark::State& state, const char* name, bool force)
{
    const QString song = folder().filePath(QString::fromLatin1(name));
    const QString report = folder().filePath("first-buffer");
    qputenv("MQP_AUDIO_SINK", "fakesink sync=true");
    qputenv("MQP_FIRST_BUFFER_FILE", report.toLocal8Bit());
    PlaySourcesWrapper play;
    for (auto _ : state) {
        QFile::remove(report);
        const qint64 started = monotonicMicroseconds();
        if (force) {
            mqp_wrapper player(song, true);  // the second try of the play action
            player.play();
            state.SetIterationTime(double(firstBufferFromMqp(report) - started) / 1e6);
        } else {
            play.playThisSong(song);
            state.SetIterationTime(double(firstBufferFromMqp(report) - started) / 1e6);
            play.stopPlayingSong();
        }
    }
    qunsetenv("MQP_FIRST_BUFFER_FILE");
}

void PlayToFirstBufferThroughMplayer(benchmark::State& state)
{
    const QString song = folder().filePath("song.ogg");
    const QString pipe = folder().filePath("mplayer-out.wav");
    ::mkfifo(QFile::encodeName(pipe).constData(), 0600);
    qputenv("VELMORA_MPLAYER_AO", ("pcm:file=" + pipe).toLocal8Bit());
    PlaySourcesWrapper play;
    for (auto _ : state) {
        std::atomic<qint64> firstAudio{-1};
        std::thread reader([&] {
            const int fd = ::open(QFile::encodeName(pipe).constData(), O_RDONLY);
            qint64 total = 0;
            char buffer[65536];
            for (ssize_t got; (got = ::read(fd, buffer, sizeof buffer)) > 0;) {
                total += got;
                if (total > 44 && firstAudio < 0)
                    firstAudio = monotonicMicroseconds();  // past the WAV header
            }
            ::close(fd);
        });
        const qint64 started = monotonicMicroseconds();
        play.playThisSong(song);
        while (firstAudio < 0 && monotonicMicroseconds() - started < 5000000)
            QThread::usleep(200);
        state.SetIterationTime(double(firstAudio - started) / 1e6);
        play.stopPlayingSong();
        reader.join();
    }
    qunsetenv("VELMORA_MPLAYER_AO");
}

// One position question, as the tab's timer asks it once a second. Counters:
// the engine's own CPU per poll, the player's extra CPU answering it, and the
// share of one core both take at one poll a second.
void PositionPolling(benchmark::State& state, const char* name)
{
    qputenv("MQP_AUDIO_SINK", "fakesink sync=true");
    qputenv("VELMORA_MPLAYER_AO", "null");
    mqp_wrapper player(folder().filePath(QString::fromLatin1(name)), false);
    player.play();
    const pid_t child = onlyChild();
    QThread::msleep(500);
    // The player's own rate while it plays, asked nothing.
    const qint64 idleFrom = childCpuMicroseconds(child), idleStart = monotonicMicroseconds();
    QThread::msleep(2000);
    const double idleRate =
        double(childCpuMicroseconds(child) - idleFrom) / double(monotonicMicroseconds() - idleStart);

    const qint64 ownFrom = cpuMicroseconds(CLOCK_PROCESS_CPUTIME_ID);
    const qint64 childFrom = childCpuMicroseconds(child), wallFrom = monotonicMicroseconds();
    for (auto _ : state)
        benchmark::DoNotOptimize(player.updateProgress());
    const double polls = double(state.iterations());
    const double own = double(cpuMicroseconds(CLOCK_PROCESS_CPUTIME_ID) - ownFrom) / polls;
    const double answering = std::max(
        0.0, (double(childCpuMicroseconds(child) - childFrom) - idleRate * double(monotonicMicroseconds() - wallFrom)) /
                 polls);
    state.counters["engine_cpu_us"] = own;
    state.counters["player_cpu_us"] = answering;
    state.counters["core_percent_at_1Hz"] = (own + answering) / 1e6 * 100;
    qunsetenv("VELMORA_MPLAYER_AO");
}

}  // namespace

BENCHMARK_CAPTURE(PlayToFirstBufferThroughMqp, mp3, "song.mp3", false)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(10);
BENCHMARK_CAPTURE(PlayToFirstBufferThroughMqp, ogg_forced, "song.ogg", true)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(10);
BENCHMARK(PlayToFirstBufferThroughMplayer)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);
BENCHMARK_CAPTURE(PositionPolling, mqp_mp3, "song.mp3")->Unit(benchmark::kMicrosecond)->MinTime(2.0);
BENCHMARK_CAPTURE(PositionPolling, mplayer_ogg, "song.ogg")->Unit(benchmark::kMicrosecond)->MinTime(2.0);

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

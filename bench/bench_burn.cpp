// What the burners' producers deliver on one core: WAV samples through the
// header-reading producer (a 52x CD burner takes 9.2 MB/s), MP3 decoded on the
// fly, and an MP3 file through the data-disc producer (ID3v2 left out, ID3v1
// appended) against reading the same file plainly with the same buffer size.
#include "disc/AIFFTrackProducer.h"
#include "disc/DecodedTrackProducer.h"
#include "disc/QuenlorFileProducer.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <functional>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int kSeconds = 120;
constexpr qint64 kRequest = 2352 * 32;  // what a burner asks for at a time
constexpr qint64 kFileChunk = 1 << 20;  // as the image writer asks the producer

QTemporaryDir* workDir()
{
    static QTemporaryDir dir(QDir::tempPath() + "/velmora-bench-XXXXXX");
    return &dir;
}

QString path(const QString& name)
{
    return workDir()->filePath(name);
}

void run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(600000) || process.exitCode() != 0)
        std::abort();
}

void makeFiles()
{
    run("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16", path("song.wav"), "synth", QString::number(kSeconds),
                "pinknoise", "vol", "0.3"});
    run("lame", {"--quiet", "--id3v2-only", "--tt", "Title", "--ta", "Artist", path("song.wav"), path("song.mp3")});
    // A large MP3-like file with a real ID3v2 tag in front, for the data-disc producer.
    QFile mp3(path("song.mp3"));
    if (!mp3.open(QIODevice::ReadOnly))
        std::abort();
    const QByteArray big = mp3.readAll();
    QFile out(path("big.mp3"));
    if (!out.open(QIODevice::WriteOnly))
        std::abort();
    out.write(big);
    while (out.size() < 64 << 20)
        out.write(big.mid(big.indexOf("\xFF\xFB")));
}

template <typename Producer>
void produceAll(benchmark::State& state, const std::function<std::unique_ptr<Producer>()>& make)
{
    QByteArray buffer(kRequest, '\0');
    qint64 bytes = 0;
    for (auto _ : state) {
        std::unique_ptr<Producer> producer = make();
        QString error;
        if (!producer->prepareTrack(&error))
            std::abort();
        for (qint64 got; (got = producer->produceData(buffer.data(), kRequest)) > 0;)
            bytes += got;
        producer->cleanupTrackAfterBurn();
    }
    state.SetBytesProcessed(bytes);
}

void BM_WavProducer(benchmark::State& state)
{
    produceAll<AIFFTrackProducer>(state, [] { return std::make_unique<AIFFTrackProducer>(path("song.wav")); });
}

void BM_DecodedMp3Producer(benchmark::State& state)
{
    // The length is measured once, as the layout does before the burn.
    DecodedTrackProducer measured(path("song.mp3"));
    if (measured.length() == 0)
        std::abort();
    produceAll<DecodedTrackProducer>(state, [] { return std::make_unique<DecodedTrackProducer>(path("song.mp3")); });
}

void BM_DataDiscProducer(benchmark::State& state)
{
    QByteArray buffer(kFileChunk + QuenlorFileProducer::kTagSize, '\0');
    qint64 bytes = 0;
    for (auto _ : state) {
        QuenlorFileProducer producer(path("big.mp3"));
        producer.setPreferences(true, true);
        if (!producer.prepareFileForBurn())
            std::abort();
        const qint64 size = producer.calculateSizeOfFile();
        for (qint64 at = 0; at < size;) {
            const qint64 left = size - at;
            const qint64 wanted = left <= kFileChunk + QuenlorFileProducer::kTagSize ? left : kFileChunk;
            const qint64 got = producer.produceFile(buffer.data(), wanted, at);
            if (got <= 0)
                std::abort();
            at += got;
        }
        bytes += size;
    }
    state.SetBytesProcessed(bytes);
}

void BM_PlainFileRead(benchmark::State& state)
{
    QByteArray buffer(kFileChunk, '\0');
    qint64 bytes = 0;
    for (auto _ : state) {
        const int fd = ::open(QFile::encodeName(path("big.mp3")).constData(), O_RDONLY);
        for (ssize_t got; (got = ::read(fd, buffer.data(), size_t(kFileChunk))) > 0;)
            bytes += got;
        ::close(fd);
    }
    state.SetBytesProcessed(bytes);
}

}  // namespace

BENCHMARK(BM_WavProducer)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_DecodedMp3Producer)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_DataDiscProducer)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PlainFileRead)->Unit(benchmark::kMillisecond)->UseRealTime();

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    makeFiles();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

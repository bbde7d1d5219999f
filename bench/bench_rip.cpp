// Ripping a 10-track disc image to MP3: the Rip tab's rip, which reads the next
// track while encoders run under the task slots, against reading every track
// and then encoding the WAVs one after another; and what the rip log's
// checksums (CRC32, AccurateRip v1 and v2) cost over the same tracks.
#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "disc/CdDrives.h"
#include "disc/FreeDBWrapper.h"
#include "disc/MountedCDWrapper.h"
#include "encode/ExportJobs.h"
#include "encode/LameWrapper.h"
#include "encode/RipChecksums.h"
#include "tabs/RipSourcesWrapper.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>
#include <QtEndian>

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdlib>
#include <functional>
#include <memory>

namespace {

constexpr int kTracks = 10;
constexpr int kTrackSeconds = 20;
constexpr int kSectorsPerTrack = kTrackSeconds * 75;
constexpr int kSectorBytes = 2352;

QTemporaryDir* workDir()
{
    static QTemporaryDir dir(QDir::tempPath() + "/velmora-bench-XXXXXX");
    return &dir;
}

QString path(const QString& name)
{
    return workDir()->filePath(name);
}

// A BIN of ten tracks of changing chords over a little noise, so that the
// encoder has real work, and its cue sheet.
void makeImage()
{
    QFile bin(path("disc.bin"));
    if (!bin.open(QIODevice::WriteOnly))
        std::abort();
    quint32 noise = 12345;
    QByteArray sector(kSectorBytes, '\0');
    for (int track = 0; track < kTracks; ++track) {
        const double low = 110.0 + 23.0 * track, high = 330.0 + 41.0 * track;
        for (int s = 0; s < kSectorsPerTrack; ++s) {
            auto* samples = reinterpret_cast<qint16*>(sector.data());
            for (int i = 0; i < kSectorBytes / 4; ++i) {
                const double t = double(s * (kSectorBytes / 4) + i) / 44100.0;
                noise = noise * 1664525u + 1013904223u;
                const double jitter = double(qint32(noise >> 16) - 32768) / 32768.0;
                const double left = 9000 * std::sin(2 * M_PI * low * t) + 5000 * std::sin(2 * M_PI * high * t);
                const double right = 9000 * std::sin(2 * M_PI * high * 1.5 * t) + 5000 * std::sin(2 * M_PI * low * t);
                samples[2 * i] = qToLittleEndian(qint16(left + 1500 * jitter));
                samples[2 * i + 1] = qToLittleEndian(qint16(right - 1500 * jitter));
            }
            bin.write(sector);
        }
    }
    QByteArray cue = "FILE \"disc.bin\" BINARY\n";
    for (int track = 0; track < kTracks; ++track) {
        const int seconds = track * kTrackSeconds;
        cue += QStringLiteral("  TRACK %1 AUDIO\n    INDEX 01 %2:%3:00\n")
                   .arg(track + 1, 2, 10, QLatin1Char('0'))
                   .arg(seconds / 60, 2, 10, QLatin1Char('0'))
                   .arg(seconds % 60, 2, 10, QLatin1Char('0'))
                   .toUtf8();
    }
    QFile sheet(path("disc.cue"));
    if (!sheet.open(QIODevice::WriteOnly) || sheet.write(cue) != cue.size())
        std::abort();
}

class NoDrives : public CdDriveAdapter {
public:
    QStringList drives() override { return {}; }
    std::optional<DiscTable> readDisc(const QString&) override { return std::nullopt; }
    bool eject(const QString&) override { return false; }
    void startMonitoring() override {}
};

void waitUntil(const std::function<bool()>& done)
{
    QEventLoop loop;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &loop, [&] {
        if (done())
            loop.quit();
    });
    timer.start(10);
    if (!done())
        loop.exec();
}

// The image opened as the Rip tab sees it, without a FreeDB lookup.
struct Disc {
    ExportJobs jobs;
    LameWrapper lame;
    mounted_cd_wrapper watcher{std::make_unique<NoDrives>(), CdWatcherOptions{path("discs"), false, {}}};
    RipSourcesWrapper rip{watcher};
    QString cdpath;

    Disc()
    {
        lame.lookForLame();
        QObject::connect(&watcher, &mounted_cd_wrapper::opened,
                         [this](const QString&, const QString& folder) { cdpath = folder; });
        watcher.openImage(path("disc.cue"));
        waitUntil([this] { return !cdpath.isEmpty(); });
        rip.selectDisc(cdpath);
    }

    RipSettings settings(bool inBackground, bool log = false) const
    {
        RipSettings settings = RipSettings::stored();
        settings.cacheFolder = path("cache");
        settings.inBackground = inBackground;
        settings.writeLog = log;
        return settings;
    }

    // A rip of every track into a fresh folder; false when a file is missing.
    bool ripAll(const QString& type, const QString& folder, const RipSettings& settings)
    {
        QDir(folder).removeRecursively();
        const auto request = rip.ripRequest(type, folder);
        if (!request)
            return false;
        const JobResult result = rip.makeRipJob(*request, settings)->run();
        jobs.waitForBackgroundWork();
        return result.ok() && result.files.size() == kTracks + (settings.writeLog ? 1 : 0);
    }
};

// Made on first use and gone before the application object.
std::unique_ptr<Disc> opened;

Disc* disc()
{
    if (!opened)
        opened = std::make_unique<Disc>();
    return opened.get();
}

void BM_RipToMp3Overlapped(benchmark::State& state)
{
    for (auto _ : state) {
        if (!disc()->ripAll("MP3", path("mp3"), disc()->settings(true)))
            state.SkipWithError("the rip did not make every file");
    }
    state.counters["tracks"] = kTracks;
}

// Every track read to a WAV first, then each WAV encoded in turn.
void BM_ReadAllThenEncodeInTurn(benchmark::State& state)
{
    for (auto _ : state) {
        if (!disc()->ripAll("WAV", path("wav"), disc()->settings(false))) {
            state.SkipWithError("a track was not read");
            break;
        }
        QDir(path("encoded")).removeRecursively();
        QDir().mkpath(path("encoded"));
        const QStringList wavs = QDir(path("wav")).entryList({"*.wav"}, QDir::Files, QDir::Name);
        for (const QString& wav : wavs) {
            NotificationCenter::defaultCenter().post(VLMP3ExportNotification,
                                                     QVariantMap{{"sourcepath", path("wav/" + wav)},
                                                                 {"destinationpath", path("encoded/" + wav + ".mp3")},
                                                                 {"ripinbackground", false}});
        }
        if (QDir(path("encoded")).entryList(QDir::Files).size() != kTracks)
            state.SkipWithError("an MP3 file is missing");
    }
    state.counters["tracks"] = kTracks;
}

// The same rip with the rip log on: its checksums are the difference.
void BM_RipToMp3OverlappedWithLog(benchmark::State& state)
{
    for (auto _ : state) {
        if (!disc()->ripAll("MP3", path("mp3log"), disc()->settings(true, true)))
            state.SkipWithError("the rip did not make every file");
    }
    state.counters["tracks"] = kTracks;
}

// The rip log's checksums alone, over WAVs of the ten tracks.
void BM_ChecksumsOfTenTracks(benchmark::State& state)
{
    if (!QDir(path("wav")).exists() && !disc()->ripAll("WAV", path("wav"), disc()->settings(false))) {
        state.SkipWithError("a track was not read");
        return;
    }
    const QStringList wavs = QDir(path("wav")).entryList({"*.wav"}, QDir::Files, QDir::Name);
    for (auto _ : state) {
        for (qsizetype i = 0; i < wavs.size(); ++i)
            benchmark::DoNotOptimize(RipChecksums::forWav(path("wav/" + wavs[i]), i == 0, i == wavs.size() - 1));
    }
    state.counters["tracks"] = double(wavs.size());
}

BENCHMARK(BM_RipToMp3Overlapped)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_ReadAllThenEncodeInTurn)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_RipToMp3OverlappedWithLog)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_ChecksumsOfTenTracks)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);

}  // namespace

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
    makeImage();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    opened.reset();
    return 0;
}

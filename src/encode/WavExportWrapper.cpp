#include "encode/ExportJobs.h"

#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "core/StringUtils.h"
#include "encode/RipChecksums.h"
#include "platform/AppPaths.h"
#include "platform/ChildProcess.h"
#include "platform/FileNames.h"
#include "platform/ResourceLocator.h"
#include "platform/SafeFile.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QRegularExpression>

#include <chrono>
#include <climits>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

using namespace ExportArguments;

namespace {

thread_local ExportRequestScope* currentScope = nullptr;
thread_local ExportJobWatch* currentWatch = nullptr;

std::mutex registryMutex;
QHash<QString, std::weak_ptr<Job>> registry;
qsizetype pruneAt = 64;

QString registryKey(const QString& destination)
{
    return QDir::cleanPath(QFileInfo(destination).absoluteFilePath());
}

bool hasContent(const QString& path)
{
    const QFileInfo info(path);
    return info.exists() && info.size() > 0;
}

// What a track file of the audio-CD watcher stands for: the drive or image to
// read ("device="; empty leaves cd-paranoia its own choice of drive), the track
// and where it lies ("firstsector=", "length=" in sectors; -1 and 0 when unknown).
struct CdTrack {
    QString device;
    int number = 0;
    qint64 firstSector = -1;
    qint64 length = 0;
};

CdTrack readCdTrack(const QString& trackFile)
{
    CdTrack track;
    QFile file(trackFile);
    if (!file.open(QIODevice::ReadOnly))
        return track;
    for (const QByteArray& line : file.read(4096).split('\n')) {
        if (line.startsWith("device="))
            track.device = QFile::decodeName(line.mid(7)).trimmed();
        else if (line.startsWith("track="))
            track.number = line.mid(6).trimmed().toInt();
        else if (line.startsWith("firstsector="))
            track.firstSector = line.mid(12).trimmed().toLongLong();
        else if (line.startsWith("length="))
            track.length = line.mid(7).trimmed().toLongLong();
    }
    return track;
}

// The first sector of the disc's audio, where libcdio's stream of the whole
// disc begins: the earliest track beside this one.
qint64 firstAudioSector(const QString& trackFile)
{
    qint64 first = -1;
    const QFileInfoList siblings =
        QDir(QFileInfo(trackFile).path()).entryInfoList({QStringLiteral("*.cdda")}, QDir::Files);
    for (const QFileInfo& sibling : siblings) {
        const qint64 start = readCdTrack(sibling.filePath()).firstSector;
        if (start >= 0 && (first < 0 || start < first))
            first = start;
    }
    return first;
}

// Why a WAV read from a disc is not the whole track; "" when it is (or when the
// track's length is not known).
QString shortRead(const QString& wav, const CdTrack& track)
{
    if (track.length <= 0)
        return {};
    const auto span = RipChecksums::wavData(wav);
    const qint64 expected = track.length * 2352;
    if (span && span->size == expected)
        return {};
    return QStringLiteral("Only %1 of the %2 sectors of track %3 could be read.")
        .arg(span ? span->size / 2352 : 0)
        .arg(track.length)
        .arg(track.number);
}

// cd-paranoia's summary without what it says of itself: the command line, its
// versions and the output file, which is only a private name.
QString paranoiaReport(const QByteArray& summary)
{
    static const QRegularExpression version(QStringLiteral("^\\d+(\\.\\d+)+\\S*$"));
    QStringList kept;
    const QStringList lines = QString::fromLocal8Bit(summary).split(QLatin1Char('\n'));
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const QString line = lines[i].trimmed();
        if (!line.isEmpty() && !version.match(line).hasMatch() && !line.startsWith(QLatin1String("Using ")) &&
            !line.startsWith(QLatin1String("outputting to ")))
            kept << line;
    }
    return kept.join(QLatin1Char('\n'));
}

// What a read really reads: the drive, or for an image the BIN its cue sheet
// names (every disc folder, of any process, has its own cue sheet and link).
QString readSource(const QString& device)
{
    const QFileInfo info(device);
    QFile cue(device);
    if (info.isFile() && info.suffix().compare(QLatin1String("cue"), Qt::CaseInsensitive) == 0 &&
        cue.open(QIODevice::ReadOnly)) {
        static const QRegularExpression fileLine(QStringLiteral("^\\s*FILE\\s+\"([^\"]+)\""),
                                                 QRegularExpression::MultilineOption);
        const QRegularExpressionMatch match = fileLine.match(QString::fromUtf8(cue.read(64 * 1024)));
        const QString bin = match.hasMatch() ? QFileInfo(info.dir(), match.captured(1)).canonicalFilePath() : QString();
        if (!bin.isEmpty())
            return bin;
    }
    const QString canonical = info.canonicalFilePath();
    return canonical.isEmpty() ? device : canonical;
}

// Reading one drive (or image) is never done twice at once, by this process or
// another Velmora: an flock on a file named after the drive in the working folder.
class DriveLock {
public:
    DriveLock(Job& job, const QString& device)
    {
        AppPaths::makePrivateFolder(AppPaths::workingFolder());
        const QByteArray key =
            QCryptographicHash::hash(QFile::encodeName(readSource(device)), QCryptographicHash::Sha1).toHex().left(16);
        const QByteArray path = QFile::encodeName(AppPaths::workingFolder()) + "/drive-" + key + ".lock";
        fd_ = ::open(path.constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
        if (fd_ < 0)
            return;
        bool told = false;
        while (::flock(fd_, LOCK_EX | LOCK_NB) != 0) {
            if (errno != EWOULDBLOCK || job.isCancelled()) {
                ::close(fd_);
                fd_ = -1;
                return;
            }
            if (!told)
                job.setStatus(QStringLiteral("Waiting for the drive %1").arg(device));
            told = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }
    ~DriveLock()
    {
        if (fd_ >= 0)
            ::close(fd_);  // closing lets go of the lock
    }
    DriveLock(const DriveLock&) = delete;
    DriveLock& operator=(const DriveLock&) = delete;

private:
    int fd_ = -1;
};

}  // namespace

ExportRequestScope::ExportRequestScope(Job& job) : job_(job), outer_(currentScope)
{
    currentScope = this;
}

ExportRequestScope::~ExportRequestScope()
{
    currentScope = outer_;
}

ExportRequestScope* ExportRequestScope::current()
{
    return currentScope;
}

ExportJobWatch::ExportJobWatch() : outer_(currentWatch)
{
    currentWatch = this;
}

ExportJobWatch::~ExportJobWatch()
{
    currentWatch = outer_;
}

ExportJobWatch* ExportJobWatch::current()
{
    return currentWatch;
}

std::shared_ptr<Job> ExportJobWatch::jobFor(const QString& destination) const
{
    std::lock_guard lock(mutex_);
    return jobs_.value(registryKey(destination));
}

JobResult runExportRequest(const QString& title, const QString& destination,
                           const std::function<JobResult(Job& job)>& body)
{
    if (ExportRequestScope* scope = ExportRequestScope::current()) {
        JobResult result = body(scope->job());
        if (result.outcome == JobResult::Outcome::Failed)
            scope->noteFailure(result.error);
        return result;
    }
    auto job = Job::create(title, [&body](Job& job) {
        ExportRequestScope scope(job);
        return body(job);
    });
    rememberExportJob(destination, job);
    return job->run();
}

QString exportJobTitle(const QString& source, const QString& type)
{
    return QStringLiteral("Converting %1 to %2").arg(QFileInfo(source).fileName(), type);
}

std::shared_ptr<Job> exportJobFor(const QString& destination)
{
    std::lock_guard lock(registryMutex);
    return registry.value(registryKey(destination)).lock();
}

void rememberExportJob(const QString& destination, const std::shared_ptr<Job>& job)
{
    if (ExportJobWatch* watch = ExportJobWatch::current()) {
        std::lock_guard lock(watch->mutex_);
        watch->jobs_.insert(registryKey(destination), job);
    }
    std::lock_guard lock(registryMutex);
    registry.insert(registryKey(destination), job);
    // Jobs that nobody holds any more are forgotten now and then, not one by one.
    if (registry.size() >= pruneAt) {
        registry.removeIf([](const auto& entry) { return entry.value().expired(); });
        pruneAt = std::max<qsizetype>(64, 2 * registry.size());
    }
}

QString outputCutOff(const QString& made, const QString& target)
{
    struct stat info {};
    if (::stat(QFile::encodeName(made).constData(), &info) != 0)
        return {};
    // A file that ends exactly at the size limit, or on a disk with no room left,
    // was stopped by a failed write (some tools go on to report success).
    rlimit limit{};
    if (::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
        rlim_t(info.st_size) >= limit.rlim_cur)
        return QStringLiteral("Cannot write \"%1\": it reached the largest file size this process may write.")
            .arg(target);
    // (File systems that report no size at all, some FUSE ones, say nothing.)
    struct statvfs disk {};
    if (::statvfs(QFile::encodeName(made).constData(), &disk) == 0 && disk.f_blocks > 0 &&
        (::geteuid() == 0 ? disk.f_bfree : disk.f_bavail) == 0)
        return QStringLiteral("Cannot write \"%1\": the disk is full.").arg(target);
    return {};
}

QString incompleteOutput(const QString& made, const QString& target)
{
    if (QFileInfo(made).size() == 0)
        return QStringLiteral("No audio was written for \"%1\".").arg(target);
    return outputCutOff(made, target);
}

int runCancellable(Job& job, ChildProcess& child)
{
    // The lock makes "not cancelled yet, so start" and "cancelled, so stop it" one step each.
    std::mutex startMutex;
    auto hook = job.onCancel([&] {
        std::lock_guard lock(startMutex);
        child.terminate();
    });
    {
        std::lock_guard lock(startMutex);
        if (job.isCancelled() || !child.start())
            return -1;
    }
    const int code = child.waitForExit();
    return child.wasTerminated() ? -1 : code;
}

bool makeFolderFor(const QString& file)
{
    const QString folder = QFileInfo(file).absolutePath();
    const QString cache = QDir::cleanPath(AppPaths::cacheDir());
    if ((folder == cache || folder.startsWith(cache + QLatin1Char('/'))) && !AppPaths::makePrivateFolder(cache))
        return false;
    return createDirectoriesAtPath(folder);
}

PlayingMediaWatch::PlayingMediaWatch()
{
    NotificationCenter::defaultCenter().addObserver(
        this, VLEjectableMediaPlayingNotification, [this](const Notification& note) {
            std::lock_guard lock(mutex_);
            playingCdFolder_ = note.object.toMap().value(QStringLiteral("mThisCDIsPlaying")).toString();
        });
}

PlayingMediaWatch::~PlayingMediaWatch()
{
    NotificationCenter::defaultCenter().removeObserver(this);
}

bool PlayingMediaWatch::isOnPlayingDisc(const QString& sourcePath) const
{
    std::lock_guard lock(mutex_);
    if (playingCdFolder_.isEmpty())
        return false;
    return QDir::cleanPath(QFileInfo(sourcePath).absolutePath()) == QDir::cleanPath(playingCdFolder_);
}

wavexportwrapper::wavexportwrapper()
{
    auto& center = NotificationCenter::defaultCenter();
    center.addObserver(this, VLWAVExportNotification,
                       [this](const Notification& note) { exportWav(note.object.toMap()); });
    center.addObserver(this, VLCLPWAVExportNotification,
                       [this](const Notification& note) { exportClipWav(note.object.toMap()); });
    center.addObserver(this, VLWAVExportCancelNotification, [this](const Notification&) { cancel(); });
    center.addObserver(this, VLCLPWAVExportCancelNotification, [this](const Notification&) { cancel(); });
}

wavexportwrapper::~wavexportwrapper()
{
    NotificationCenter::defaultCenter().removeObserver(this);
}

void wavexportwrapper::cancel()
{
    std::lock_guard lock(jobMutex_);
    if (stageJob_)
        stageJob_->cancel();
}

int wavexportwrapper::runThroughLink(Job& job, const QString& program, const QString& destination,
                                     const std::function<QStringList(const QString&)>& arguments, int timeLimitMs)
{
    // Decoders write through a link of a plain name so that no file name ever has
    // to survive a tool's own option syntax (mplayer's "pcm:file="). Each run has
    // a link of its own in the private working folder.
    AppPaths::makePrivateFolder(AppPaths::workingFolder());
    const QString link = AppPaths::wavLinkPath();
    QString output = destination;
    if (!QFileInfo::exists(destination) && QFile::link(QFileInfo(destination).absoluteFilePath(), link))
        output = link;
    ChildProcess child(program, arguments(output));
    child.setTimeLimit(timeLimitMs);
    const int code = runCancellable(job, child);
    QFile::remove(link);
    return code;
}

bool wavexportwrapper::ripTrack(Job& job, const QString& source, int track, bool maxSpeed, const QString& destination,
                                QString* why)
{
    const QString paranoia = ResourceLocator::pathForTool(QStringLiteral("cdparanoia"));
    if (paranoia.isEmpty()) {
        cdparanoiaFailed_ = true;
        return false;
    }
    const CdTrack disc = readCdTrack(source);
    // Its summary of the read goes beside the WAV being made, in the private folder.
    const QString summary = QFileInfo(destination).path() + QStringLiteral("/cd-paranoia.log");
    {
        DriveLock drive(job, disc.device);
        ChildProcess child(paranoia, cdparanoiaArguments(disc.device, track, maxSpeed, destination, summary));
        runCancellable(job, child);
    }
    QFile log(summary);
    if (ExportRequestScope* scope = ExportRequestScope::current(); scope && log.open(QIODevice::ReadOnly))
        scope->noteRipReport(paranoiaReport(log.read(64 * 1024)));
    log.remove();
    // A full disk or a size limit stopped the WAV, not the drive: the caller says so.
    if (!outputCutOff(destination, destination).isEmpty())
        return false;
    QString problem = shortRead(destination, disc);
    if (QFileInfo(destination).size() < 1024 && problem.isEmpty())
        problem = QStringLiteral("cd-paranoia could not read track %1.").arg(track);
    if (!problem.isEmpty()) {
        QFile::remove(destination);
        // Once the drive has failed us, later tracks go straight to the decoders.
        if (!job.isCancelled())
            cdparanoiaFailed_ = true;
        *why = problem;
        return false;
    }
    return true;
}

bool wavexportwrapper::readTrackWithFfmpeg(Job& job, const QString& source, const QString& rate,
                                           const QString& destination, QString* why)
{
    const CdTrack disc = readCdTrack(source);
    const qint64 origin = firstAudioSector(source);
    const QString ffmpeg = ResourceLocator::pathForTool(QStringLiteral("ffmpeg"));
    if (ffmpeg.isEmpty()) {
        *why = QStringLiteral("cd-paranoia has failed before and ffmpeg, which could read instead, is not installed.");
        return false;
    }
    {
        // Sectors that cannot be read keep libcdio trying for ever: a minute and
        // twice the track's length (a drive at single speed) are enough.
        DriveLock drive(job, disc.device);
        runThroughLink(
            job, ffmpeg, destination,
            [&](const QString& output) {
                return ffmpegTrackArguments(disc.device, disc.firstSector - origin, disc.length, rate, output);
            },
            int(std::min<qint64>(60000 + disc.length * 2000 / 75, INT_MAX)));
    }
    if (ExportRequestScope* scope = ExportRequestScope::current())
        scope->noteRipReport(QStringLiteral("Read by ffmpeg through libcdio, without error correction."));
    if (!outputCutOff(destination, destination).isEmpty())
        return false;
    // At another rate the length differs from the disc's by design.
    QString problem = rate == QLatin1String("44100") ? shortRead(destination, disc) : QString();
    if (problem.isEmpty() && QFileInfo(destination).size() == 0)
        problem = QStringLiteral("ffmpeg could not read track %1.").arg(disc.number);
    if (problem.isEmpty())
        return true;
    QFile::remove(destination);
    *why = problem;
    return false;
}

void wavexportwrapper::exportWav(const QVariantMap& request)
{
    std::lock_guard stage(stageMutex_);
    const QString source = request.value(QStringLiteral("sourcepath")).toString();
    const QString destination = request.value(QStringLiteral("destinationpath")).toString();
    runExportRequest(exportJobTitle(source, QStringLiteral("WAV")), destination, [&](Job& job) {
        {
            std::lock_guard lock(jobMutex_);
            stageJob_ = &job;
        }
        const JobResult result = decode(job, request);
        {
            std::lock_guard lock(jobMutex_);
            stageJob_ = nullptr;
        }
        FileNames::release(destination);
        return result;
    });
}

JobResult wavexportwrapper::decode(Job& job, const QVariantMap& request)
{
    QString source = request.value(QStringLiteral("sourcepath")).toString();
    const QString destination = request.value(QStringLiteral("destinationpath")).toString();
    const QString rate = resampleRate(request.value(QStringLiteral("resamplerate")).toString(),
                                      TspSettings::fromDefaults());
    const bool maxSpeed =
        request.value(QStringLiteral("rippanelsettings")).toMap().value(QStringLiteral("maxspeed")).toBool();
    if (source.isEmpty() || destination.isEmpty())
        return JobResult::failed(QStringLiteral("The WAV stage needs a source and a destination."));
    if (playing_.isOnPlayingDisc(source))
        return JobResult::failed(QStringLiteral("%1 is on the disc being played.").arg(source));
    if (!makeFolderFor(destination))
        return JobResult::failed(QStringLiteral("Cannot create the folder of \"%1\".").arg(destination));
    SafeFile::WorkFolder work(destination);
    if (!work.isValid())
        return JobResult::failed(work.errorString());
    const QString made = work.fileFor();
    job.setStatus(QStringLiteral("Decoding %1").arg(QFileInfo(source).fileName()));

    const QString extension = QFileInfo(source).suffix().toLower();
    if (extension == QLatin1String("mid") || extension == QLatin1String("midi") ||
        extension == QLatin1String("kar")) {
        // The AIFF copy is made in the private folder and goes with it.
        const QString aiff = work.folder() + QLatin1Char('/') +
                             FileNames::fitName(QFileInfo(destination).completeBaseName(), QStringLiteral(".AIFF"));
        NotificationCenter::defaultCenter().post(VLAIFExportNotification,
                                                 QVariantMap{{QStringLiteral("sourcepath"), source},
                                                             {QStringLiteral("destinationpath"), aiff},
                                                             {QStringLiteral("resamplerate"), rate}});
        if (!QFileInfo::exists(aiff))
            return job.isCancelled()
                       ? JobResult::cancelled()
                       : JobResult::failed(QStringLiteral("No AIFF could be made of the MIDI file %1.").arg(source));
        source = aiff;
    }

    QStringList tried;
    QString cutOff;  // why a decoder's output stopped short, when the disk or a limit stopped it
    const auto notCutOff = [&] {
        if (cutOff.isEmpty())
            cutOff = outputCutOff(made, destination);
        return cutOff.isEmpty();
    };
    bool ripped = false;
    if (request.contains(QStringLiteral("riptrack"))) {
        // A track file of a disc folder holds no audio: it says where to read it.
        const CdTrack disc = readCdTrack(source);
        const bool onDisc = !disc.device.isEmpty() && disc.length > 0 && firstAudioSector(source) >= 0;
        const int track = request.value(QStringLiteral("riptrack")).toInt();
        QString problem;
        if (!cdparanoiaFailed_) {
            const bool read = ripTrack(job, source, track, maxSpeed, made, &problem);
            ripped = notCutOff() && read;
        }
        // ffmpeg reads through the same library: once cd-paranoia has read this
        // track short, with all its retries, ffmpeg would not get further.
        if (!ripped && onDisc && problem.isEmpty() && !job.isCancelled() && cutOff.isEmpty()) {
            const bool read = readTrackWithFfmpeg(job, source, rate, made, &problem);
            ripped = notCutOff() && read;
        }
        if (!ripped)
            QFile::remove(made);
        if (onDisc && !ripped) {
            if (job.isCancelled())
                return JobResult::cancelled();
            return JobResult::failed(!cutOff.isEmpty()  ? cutOff
                                     : problem.isEmpty() ? QStringLiteral("Track %1 could not be read.").arg(track)
                                                         : problem);
        }
    }
    const QString ffmpeg = ResourceLocator::pathForTool(QStringLiteral("ffmpeg"));
    if (!ripped && !ffmpeg.isEmpty() && !job.isCancelled()) {
        tried << QStringLiteral("ffmpeg");
        // A decoder that reports a failure may have written part of the audio.
        if (runThroughLink(job, ffmpeg, made,
                           [&](const QString& output) { return ffmpegDecodeArguments(source, rate, output); }) != 0 ||
            !notCutOff())
            QFile::remove(made);
    }
    if (!ripped && !hasContent(made) && !job.isCancelled()) {
        const QString mqp = ResourceLocator::pathForTool(QStringLiteral("mqp"));
        const QString settings = ResourceLocator::pathForResource(
            TspSettings::fromDefaults().resample == 1 ? QStringLiteral("Audio48k") : QStringLiteral("Audio44.1k"));
        if (!mqp.isEmpty() && !settings.isEmpty()) {
            tried << QStringLiteral("mqp");
            ChildProcess child(mqp, mqpConvertArguments(source, settings, made));
            if (runCancellable(job, child) != 0 || !notCutOff())
                QFile::remove(made);
        }
    }
    if (!ripped && !hasContent(made) && !job.isCancelled()) {
        const QString mplayer = ResourceLocator::pathForTool(QStringLiteral("mplayer"));
        if (!mplayer.isEmpty()) {
            tried << QStringLiteral("mplayer");
            runThroughLink(job, mplayer, made,
                           [&](const QString& output) { return mplayerDecodeArguments(source, rate, output); });
            if (!notCutOff())
                QFile::remove(made);
        }
    }
    if (job.isCancelled())
        return JobResult::cancelled();
    if (!cutOff.isEmpty())
        return JobResult::failed(cutOff);
    if (!hasContent(made))
        return JobResult::failed(
            tried.isEmpty() ? QStringLiteral("No decoder (ffmpeg, mqp or mplayer) is installed to read %1.").arg(source)
                            : QStringLiteral("No decoder could read %1 (tried %2).").arg(source, tried.join(", ")));
    if (!work.place(made, [&](const QString& file) { return incompleteOutput(file, destination); }))
        return JobResult::failed(work.errorString());
    return JobResult::succeeded({destination});
}

void wavexportwrapper::exportClipWav(const QVariantMap& request)
{
    std::lock_guard stage(stageMutex_);
    const QString input = request.value(QStringLiteral("wavpath")).toString();
    const QString output = request.value(QStringLiteral("clpwavpath")).toString();
    runExportRequest(QStringLiteral("Cutting a clip of %1").arg(QFileInfo(input).fileName()), output, [&](Job& job) {
        {
            std::lock_guard lock(jobMutex_);
            stageJob_ = &job;
        }
        const JobResult result = cutClip(job, request);
        {
            std::lock_guard lock(jobMutex_);
            stageJob_ = nullptr;
        }
        FileNames::release(output);
        return result;
    });
}

JobResult wavexportwrapper::cutClip(Job& job, const QVariantMap& request)
{
    const QString input = request.value(QStringLiteral("wavpath")).toString();
    const QString output = request.value(QStringLiteral("clpwavpath")).toString();
    if (!input.endsWith(QLatin1String("wav"), Qt::CaseInsensitive) || output.isEmpty())
        return JobResult::failed(QStringLiteral("A clip is cut only from a WAV file."));
    const QString sox = ResourceLocator::pathForTool(QStringLiteral("sox"));
    if (sox.isEmpty())
        return JobResult::failed(QStringLiteral("sox is not installed; no clip was made."));
    if (!makeFolderFor(output))
        return JobResult::failed(QStringLiteral("Cannot create the folder of \"%1\".").arg(output));
    SafeFile::WorkFolder work(output);
    if (!work.isValid())
        return JobResult::failed(work.errorString());
    const QString made = work.fileFor();
    job.setStatus(QStringLiteral("Cutting the clip"));
    const ClipSettings clip = ClipSettings::fromRequest(request);
    const int code =
        runThroughLink(job, sox, made, [&](const QString& target) { return soxClipArguments(input, target, clip); });
    if (job.isCancelled())
        return JobResult::cancelled();
    if (const QString full = outputCutOff(made, output); !full.isEmpty())
        return JobResult::failed(full);
    if (code != 0 || !hasContent(made))
        return JobResult::failed(QStringLiteral("sox could not cut a clip of %1.").arg(input));
    if (!work.place(made, [&](const QString& file) { return incompleteOutput(file, output); }))
        return JobResult::failed(work.errorString());
    return JobResult::succeeded({output});
}

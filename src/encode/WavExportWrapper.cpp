#include "encode/ExportJobs.h"

#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "core/StringUtils.h"
#include "platform/AppPaths.h"
#include "platform/ChildProcess.h"
#include "platform/FileNames.h"
#include "platform/ResourceLocator.h"
#include "platform/SafeFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

using namespace ExportArguments;

namespace {

thread_local ExportRequestScope* currentScope = nullptr;

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

// The drive or image a track file of the audio-CD watcher stands for: its
// "device=" line; empty (cd-paranoia's own choice of drive) when there is none.
QString cdTrackDevice(const QString& trackFile)
{
    QFile file(trackFile);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray head = file.read(4096);
    for (const QByteArray& line : head.split('\n')) {
        if (line.startsWith("device="))
            return QString::fromUtf8(line.mid(7)).trimmed();
    }
    return {};
}

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
                                     const std::function<QStringList(const QString&)>& arguments)
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
    const int code = runCancellable(job, child);
    QFile::remove(link);
    return code;
}

bool wavexportwrapper::ripTrack(Job& job, const QString& source, int track, bool maxSpeed, const QString& destination)
{
    const QString paranoia = ResourceLocator::pathForTool(QStringLiteral("cdparanoia"));
    if (paranoia.isEmpty()) {
        cdparanoiaFailed_ = true;
        return false;
    }
    ChildProcess child(paranoia, cdparanoiaArguments(cdTrackDevice(source), track, maxSpeed, destination));
    runCancellable(job, child);
    if (QFileInfo(destination).size() < 1024) {
        QFile::remove(destination);
        // Once the drive has failed us, later tracks go straight to the decoders.
        if (!job.isCancelled())
            cdparanoiaFailed_ = true;
        return false;
    }
    return true;
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
    if (request.contains(QStringLiteral("riptrack")) && !cdparanoiaFailed_) {
        ripped =
            ripTrack(job, source, request.value(QStringLiteral("riptrack")).toInt(), maxSpeed, made) && notCutOff();
        if (!ripped)
            QFile::remove(made);
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

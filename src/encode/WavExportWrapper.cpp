#include "encode/ExportJobs.h"

#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "platform/AppPaths.h"
#include "platform/ChildProcess.h"
#include "platform/ResourceLocator.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>


using namespace ExportArguments;

void FailureNote::clear()
{
    std::lock_guard lock(mutex_);
    text_.clear();
}

void FailureNote::set(const QString& text)
{
    std::lock_guard lock(mutex_);
    text_ = text;
}

QString FailureNote::text() const
{
    std::lock_guard lock(mutex_);
    return text_;
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

namespace {

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

} // namespace

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
    cancelled_ = true;
    std::lock_guard lock(childMutex_);
    if (child_)
        child_->terminate();
}

int wavexportwrapper::runChild(const QString& program, const QStringList& arguments)
{
    ChildProcess child(program, arguments);
    {
        std::lock_guard lock(childMutex_);
        if (cancelled_ || !child.start())
            return -1;
        child_ = &child;
    }
    const int code = child.waitForExit();
    std::lock_guard lock(childMutex_);
    child_ = nullptr;
    return code;
}

int wavexportwrapper::runThroughLink(const QString& program, const QString& destination,
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
    const int code = runChild(program, arguments(output));
    QFile::remove(link);
    return code;
}

bool wavexportwrapper::ripTrack(const QString& source, int track, bool maxSpeed, const QString& destination)
{
    const QString paranoia = ResourceLocator::pathForTool(QStringLiteral("cdparanoia"));
    if (paranoia.isEmpty()) {
        cdparanoiaFailed_ = true;
        return false;
    }
    runChild(paranoia, cdparanoiaArguments(cdTrackDevice(source), track, maxSpeed, destination));
    if (QFileInfo(destination).size() < 1024) {
        QFile::remove(destination);
        // Once the drive has failed us, later tracks go straight to the decoders.
        cdparanoiaFailed_ = true;
        return false;
    }
    return true;
}

void wavexportwrapper::exportWav(const QVariantMap& request)
{
    std::lock_guard stage(stageMutex_);
    cancelled_ = false;
    failure_.clear();
    QString source = request.value(QStringLiteral("sourcepath")).toString();
    const QString destination = request.value(QStringLiteral("destinationpath")).toString();
    const QString rate = resampleRate(request.value(QStringLiteral("resamplerate")).toString(),
                                      TspSettings::fromDefaults());
    const bool maxSpeed =
        request.value(QStringLiteral("rippanelsettings")).toMap().value(QStringLiteral("maxspeed")).toBool();
    if (source.isEmpty() || destination.isEmpty()) {
        failure_.set(QStringLiteral("The WAV stage needs a source and a destination."));
        return;
    }
    if (playing_.isOnPlayingDisc(source)) {
        failure_.set(QStringLiteral("%1 is on the disc being played.").arg(source));
        return;
    }
    QDir().mkpath(QFileInfo(destination).absolutePath());

    QString midiIntermediate;
    const QString extension = QFileInfo(source).suffix().toLower();
    if (extension == QLatin1String("mid") || extension == QLatin1String("midi") ||
        extension == QLatin1String("kar")) {
        midiIntermediate = QFileInfo(destination).path() + '/' + QFileInfo(destination).completeBaseName() +
                           QStringLiteral(".AIFF");
        NotificationCenter::defaultCenter().post(
            VLAIFExportNotification,
            QVariantMap {{QStringLiteral("sourcepath"), source}, {QStringLiteral("destinationpath"), midiIntermediate},
                         {QStringLiteral("resamplerate"), rate}});
        if (!QFileInfo::exists(midiIntermediate)) {
            failure_.set(QStringLiteral("No AIFF could be made of the MIDI file %1.").arg(source));
            return;
        }
        source = midiIntermediate;
    }

    auto finish = [&] {
        if (!midiIntermediate.isEmpty())
            QFile::remove(midiIntermediate);
        if (cancelled_) {
            // A stopped decoder leaves a cut-short file that must not pass for a result.
            QFile::remove(destination);
            failure_.set(QStringLiteral("Cancelled."));
        }
    };

    if (request.contains(QStringLiteral("riptrack")) && !cdparanoiaFailed_) {
        if (ripTrack(source, request.value(QStringLiteral("riptrack")).toInt(), maxSpeed, destination)) {
            finish();
            return;
        }
    }

    QStringList tried;
    const QString ffmpeg = ResourceLocator::pathForTool(QStringLiteral("ffmpeg"));
    if (!ffmpeg.isEmpty() && !cancelled_) {
        tried << QStringLiteral("ffmpeg");
        runThroughLink(ffmpeg, destination,
                       [&](const QString& output) { return ffmpegDecodeArguments(source, rate, output); });
    }
    if (!hasContent(destination) && !cancelled_) {
        const QString mqp = ResourceLocator::pathForTool(QStringLiteral("mqp"));
        const QString settings = ResourceLocator::pathForResource(
            TspSettings::fromDefaults().resample == 1 ? QStringLiteral("Audio48k") : QStringLiteral("Audio44.1k"));
        if (!mqp.isEmpty() && !settings.isEmpty()) {
            tried << QStringLiteral("mqp");
            runChild(mqp, mqpConvertArguments(source, settings, destination));
        }
    }
    if (!hasContent(destination) && !cancelled_) {
        const QString mplayer = ResourceLocator::pathForTool(QStringLiteral("mplayer"));
        if (!mplayer.isEmpty()) {
            tried << QStringLiteral("mplayer");
            runThroughLink(mplayer, destination,
                           [&](const QString& output) { return mplayerDecodeArguments(source, rate, output); });
        }
        if (!hasContent(destination)) {
            QFile::remove(destination);
            failure_.set(tried.isEmpty()
                             ? QStringLiteral("No decoder (ffmpeg, mqp or mplayer) is installed to read %1.").arg(source)
                             : QStringLiteral("No decoder could read %1 (tried %2).").arg(source, tried.join(", ")));
        }
    }
    finish();
}

void wavexportwrapper::exportClipWav(const QVariantMap& request)
{
    std::lock_guard stage(stageMutex_);
    cancelled_ = false;
    failure_.clear();
    const QString input = request.value(QStringLiteral("wavpath")).toString();
    const QString output = request.value(QStringLiteral("clpwavpath")).toString();
    if (!input.endsWith(QLatin1String("wav"), Qt::CaseInsensitive) || output.isEmpty()) {
        failure_.set(QStringLiteral("A clip is cut only from a WAV file."));
        return;
    }
    const QString sox = ResourceLocator::pathForTool(QStringLiteral("sox"));
    if (sox.isEmpty()) {
        failure_.set(QStringLiteral("sox is not installed; no clip was made."));
        return;
    }
    QDir().mkpath(QFileInfo(output).absolutePath());
    const ClipSettings clip = ClipSettings::fromRequest(request);
    runThroughLink(sox, output, [&](const QString& target) { return soxClipArguments(input, target, clip); });
    if (cancelled_)
        QFile::remove(output);
    if (!QFileInfo::exists(output))
        failure_.set(QStringLiteral("sox could not cut a clip of %1.").arg(input));
}

#include "encode/ExportJobs.h"

#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "encode/OggEnc.h"
#include "platform/ChildProcess.h"
#include "platform/ResourceLocator.h"
#include "tags/TagFacade.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryFile>

using namespace ExportArguments;

namespace {

QString missingTool(const QString& tool, const QString& format)
{
    return QStringLiteral("%1 export needs %2, which is not installed.").arg(format, tool);
}

bool finishedCleanly(int code, const ChildProcess& child)
{
    return code == 0 && !child.wasTerminated();
}

QString failedTool(const QString& tool, const QString& input, int code)
{
    return code < 0 ? QStringLiteral("%1 was stopped or could not run on %2.").arg(tool, input)
                    : QStringLiteral("%1 failed on %2 (exit code %3).").arg(tool, input).arg(code);
}

// The rate value and mono flag a member takes from the flash, rip or stored settings.
QStringList rateAndMono(const QVariant& rate, const QVariant& mono)
{
    return {QString::number(rate.toLongLong()), mono.toLongLong() == 1 ? QStringLiteral("1") : QStringLiteral("0")};
}

QString uniqueNameBeside(const QString& path)
{
    const QFileInfo info(path);
    QTemporaryFile file(info.absolutePath() + QStringLiteral("/.") + info.completeBaseName() +
                        QStringLiteral(".XXXXXX.") + info.suffix());
    if (!file.open())
        return {};
    return file.fileName();
}

} // namespace

// --- MP3 ------------------------------------------------------------------

mp3exportwrapper::mp3exportwrapper()
    : EncoderExportWrapper(QStringLiteral("MP3"), QStringLiteral("mp3"), {VLMP3ExportNotification},
                           VLMP3ExportCancelNotification)
{
    subscribe();
    NotificationCenter::defaultCenter().addObserver(this, VLLameFoundNewNotification, [this](const Notification& note) {
        std::lock_guard lock(lameMutex_);
        lamePath_ = note.object.toMap().value(QStringLiteral("lamepath")).toString();
    });
}

mp3exportwrapper::~mp3exportwrapper()
{
    stopListening();
}

QString mp3exportwrapper::lamePath() const
{
    std::lock_guard lock(lameMutex_);
    return lamePath_;
}

QStringList mp3exportwrapper::exportParams(const TspSettings& settings, int sampleBits) const
{
    return mp3ExportParams(settings, sampleBits);
}

QStringList mp3exportwrapper::ripParams(const QVariantMap& ripSettings) const
{
    return mp3RipParams(ripSettings);
}

QStringList mp3exportwrapper::flashParams(const QVariantMap& flashSettings) const
{
    return mp3FlashParams(flashSettings);
}

bool mp3exportwrapper::encode(const EncodeRequest& job, const QString& output)
{
    const QString lame = lamePath();
    if (lame.isEmpty()) {
        failure_.set(QStringLiteral("MP3 export needs LAME, which was not found (see the LAME page of the Preferences)."));
        return false;
    }
    ChildProcess child(lame, job.params + lameParamsFromComments(job.comments) + QStringList {job.wavPath, output});
    const int code = runEncoderChild(child, !job.inBackground);
    if (!finishedCleanly(code, child)) {
        failure_.set(failedTool(QStringLiteral("lame"), job.wavPath, code));
        return false;
    }
    return true;
}

// --- MP2 ------------------------------------------------------------------

mp2exportwrapper::mp2exportwrapper()
    : EncoderExportWrapper(QStringLiteral("MP2"), QStringLiteral("mp2"), {VLMP2ExportNotification},
                           VLMP2ExportCancelNotification)
{
    subscribe();
}

mp2exportwrapper::~mp2exportwrapper()
{
    stopListening();
}

QStringList mp2exportwrapper::exportParams(const TspSettings& settings, int sampleBits) const
{
    return mp2ExportParams(settings, sampleBits);
}

QStringList mp2exportwrapper::ripParams(const QVariantMap& ripSettings) const
{
    return mp2RipParams(ripSettings);
}

QStringList mp2exportwrapper::flashParams(const QVariantMap& flashSettings) const
{
    return mp2FlashParams(flashSettings);
}

bool mp2exportwrapper::encode(const EncodeRequest& job, const QString& output)
{
    const QString twolame = ResourceLocator::pathForTool(QStringLiteral("twolame"));
    if (twolame.isEmpty()) {
        failure_.set(missingTool(QStringLiteral("twolame"), QStringLiteral("MP2")));
        return false;
    }
    // MP2 files get no tags: twolame is not given the track record.
    ChildProcess child(twolame, job.params + QStringList {job.wavPath, output});
    const int code = runEncoderChild(child, !job.inBackground);
    if (!finishedCleanly(code, child)) {
        failure_.set(failedTool(QStringLiteral("twolame"), job.wavPath, code));
        return false;
    }
    return true;
}

// --- AAC, M4A, M4B, M4R -----------------------------------------------------

aacexportwrapper::aacexportwrapper()
    : EncoderExportWrapper(QStringLiteral("AAC"), QStringLiteral("aac"),
                           {VLAACExportNotification, VLM4AExportNotification, VLM4BExportNotification,
                            VLM4RExportNotification},
                           VLAACExportCancelNotification)
{
    subscribe();
}

aacexportwrapper::~aacexportwrapper()
{
    stopListening();
}

QStringList aacexportwrapper::exportParams(const TspSettings& settings, int) const
{
    return {aacSettingsName(settings.bitrate, settings.mono == 1)};
}

QStringList aacexportwrapper::ripParams(const QVariantMap& ripSettings) const
{
    return {aacSettingsName(ripSettings.value(QStringLiteral("bitrate")).toLongLong(),
                            ripSettings.value(QStringLiteral("mono")).toLongLong() == 1)};
}

QStringList aacexportwrapper::flashParams(const QVariantMap& flashSettings) const
{
    if (!flashSettings.value(QStringLiteral("whenpossible")).toBool())
        return {};
    return {aacSettingsName(flashSettings.value(QStringLiteral("quality")).toLongLong(),
                            flashSettings.value(QStringLiteral("mono")).toLongLong() == 1)};
}

QString aacexportwrapper::typeForSave(const QString& savePath) const
{
    return QFileInfo(savePath).suffix().toUpper();
}

QString aacexportwrapper::refusal(const QString& sourcePath) const
{
    if (QFileInfo(sourcePath).suffix().toLower() == QLatin1String("m4p"))
        return QStringLiteral("%1 is a protected file and cannot be converted.").arg(sourcePath);
    return {};
}

bool aacexportwrapper::encode(const EncodeRequest& job, const QString& output)
{
    const QString mqp = ResourceLocator::pathForTool(QStringLiteral("mqp"));
    if (mqp.isEmpty()) {
        failure_.set(missingTool(QStringLiteral("mqp"), typeForSave(job.savePath)));
        return false;
    }
    const QString name = job.params.value(0, aacSettingsName(0, false));
    const QString settings = ResourceLocator::pathForResource(QStringLiteral("AACSettings/") + name);
    if (settings.isEmpty()) {
        failure_.set(QStringLiteral("The AAC settings file %1 is missing.").arg(name));
        return false;
    }
    ChildProcess child(mqp, mqpConvertArguments(job.wavPath, settings, output));
    // mqp's result file decides, as for every converter run: an empty one is deleted.
    const int code = runEncoderChild(child, !job.inBackground);
    if (child.wasTerminated() || QFileInfo(output).size() == 0) {
        QFile::remove(output);
        failure_.set(failedTool(QStringLiteral("mqp"), job.wavPath, code));
        return false;
    }
    if (!job.comments.isEmpty())
        updateTags(output, job.comments, {});
    return true;
}

// --- WMA ------------------------------------------------------------------

wmaexportwrapper::wmaexportwrapper()
    : EncoderExportWrapper(QStringLiteral("WMA"), QStringLiteral("wma"), {VLWMAExportNotification},
                           VLWMAExportCancelNotification)
{
    subscribe();
}

wmaexportwrapper::~wmaexportwrapper()
{
    stopListening();
}

QStringList wmaexportwrapper::exportParams(const TspSettings& settings, int) const
{
    return rateAndMono(settings.bitrate, settings.mono);
}

QStringList wmaexportwrapper::ripParams(const QVariantMap& ripSettings) const
{
    return rateAndMono(ripSettings.value(QStringLiteral("bitrate")), ripSettings.value(QStringLiteral("mono")));
}

QStringList wmaexportwrapper::flashParams(const QVariantMap& flashSettings) const
{
    if (!flashSettings.value(QStringLiteral("whenpossible")).toBool())
        return {};
    return rateAndMono(flashSettings.value(QStringLiteral("quality")), flashSettings.value(QStringLiteral("mono")));
}

bool wmaexportwrapper::encode(const EncodeRequest& job, const QString& output)
{
    const QString ffmpeg = ResourceLocator::pathForTool(QStringLiteral("ffmpeg"));
    if (ffmpeg.isEmpty()) {
        failure_.set(missingTool(QStringLiteral("ffmpeg"), QStringLiteral("WMA")));
        return false;
    }
    ChildProcess child(ffmpeg, wmaArguments(job.wavPath, output, job.params.value(0).toLongLong(),
                                            job.params.value(1) == QLatin1String("1")));
    const int code = runEncoderChild(child, !job.inBackground);
    if (!finishedCleanly(code, child)) {
        failure_.set(failedTool(QStringLiteral("ffmpeg"), job.wavPath, code));
        return false;
    }
    if (!job.comments.isEmpty())
        updateTags(output, job.comments, {});
    return true;
}

// --- Ogg Vorbis -------------------------------------------------------------

oggexportwrapper::oggexportwrapper()
    : EncoderExportWrapper(QStringLiteral("OGG"), QStringLiteral("ogg"), {VLOGGExportNotification},
                           VLOGGExportCancelNotification)
{
    subscribe();
}

oggexportwrapper::~oggexportwrapper()
{
    stopListening();
}

QStringList oggexportwrapper::exportParams(const TspSettings& settings, int) const
{
    return oggParams(settings.bitrate, settings.mono == 1);
}

QStringList oggexportwrapper::ripParams(const QVariantMap& ripSettings) const
{
    return oggParams(ripSettings.value(QStringLiteral("bitrate")).toLongLong(),
                     ripSettings.value(QStringLiteral("mono")).toLongLong() == 1);
}

QStringList oggexportwrapper::flashParams(const QVariantMap& flashSettings) const
{
    if (!flashSettings.value(QStringLiteral("whenpossible")).toBool())
        return {};
    return oggParams(flashSettings.value(QStringLiteral("quality")).toLongLong(),
                     flashSettings.value(QStringLiteral("mono")).toLongLong() == 1);
}

bool oggexportwrapper::encode(const EncodeRequest& job, const QString& output)
{
    const QStringList params = job.params.isEmpty() ? oggParams(0, false) : job.params;
    const QStringList arguments = oggEncoderArguments(params, job.comments, job.wavPath, output);
    std::vector<QByteArray> storage;
    for (const QString& argument : arguments)
        storage.push_back(argument.toLocal8Bit());
    std::vector<char*> argv;
    for (QByteArray& bytes : storage)
        argv.push_back(bytes.data());
    argv.push_back(nullptr);
    // In-process: a cancel cannot stop a file once it is being encoded.
    if (oggenc_main(int(storage.size()), argv.data()) != 0) {
        failure_.set(QStringLiteral("The Ogg Vorbis encoder failed on %1.").arg(job.wavPath));
        return false;
    }
    return true;
}

// --- AIFF -----------------------------------------------------------------

aifexportwrapper::aifexportwrapper()
{
    NotificationCenter::defaultCenter().addObserver(this, VLAIFExportNotification,
                                                    [this](const Notification& note) { exportFile(note.object.toMap()); });
}

aifexportwrapper::~aifexportwrapper()
{
    NotificationCenter::defaultCenter().removeObserver(this);
}

void aifexportwrapper::exportFile(const QVariantMap& request)
{
    failure_.clear();
    const QString source = request.value(QStringLiteral("sourcepath")).toString();
    const QString destination = request.value(QStringLiteral("destinationpath")).toString();
    static const QStringList readable {"wav", "m4a", "m4b", "m4r", "aac", "mid", "midi", "kar"};
    if (source.isEmpty() || destination.isEmpty())
        return failure_.set(QStringLiteral("An export request needs a source and a destination."));
    if (!readable.contains(QFileInfo(source).suffix().toLower()))
        return failure_.set(QStringLiteral("AIFF copies are made of WAV, AAC and MIDI files only, not of %1.").arg(source));
    if (playing_.isOnPlayingDisc(source))
        return failure_.set(QStringLiteral("%1 is on the disc being played.").arg(source));
    const QString ffmpeg = ResourceLocator::pathForTool(QStringLiteral("ffmpeg"));
    if (ffmpeg.isEmpty())
        return failure_.set(missingTool(QStringLiteral("ffmpeg"), QStringLiteral("AIFF")));
    const QString rate = resampleRate(request.value(QStringLiteral("resamplerate")).toString(),
                                      TspSettings::fromDefaults());
    QDir().mkpath(QFileInfo(destination).absolutePath());
    const QString output = uniqueNameBeside(destination);
    if (output.isEmpty())
        return failure_.set(QStringLiteral("Cannot write into the folder of %1.").arg(destination));
    const int code = ChildProcess::execute(ffmpeg, aiffArguments(source, rate, output));
    if (code == 0 && QFileInfo(output).size() > 0) {
        QFile::remove(destination);
        QFile::rename(output, destination);
    } else {
        failure_.set(failedTool(QStringLiteral("ffmpeg"), source, code));
    }
    QFile::remove(output);
}

// --- Copy -----------------------------------------------------------------

copyexportwrapper::copyexportwrapper()
{
    NotificationCenter::defaultCenter().addObserver(this, VLCOPYExportNotification,
                                                    [this](const Notification& note) { exportFile(note.object.toMap()); });
}

copyexportwrapper::~copyexportwrapper()
{
    NotificationCenter::defaultCenter().removeObserver(this);
}

void copyexportwrapper::exportFile(const QVariantMap& request)
{
    failure_.clear();
    const QString source = request.value(QStringLiteral("sourcepath")).toString();
    const QString destination = request.value(QStringLiteral("destinationpath")).toString();
    if (source.isEmpty() || destination.isEmpty())
        return failure_.set(QStringLiteral("An export request needs a source and a destination."));
    if (QFileInfo(source).fileName().startsWith(QLatin1String("._")))
        return;  // resource-fork companions of another system are of no use to a player
    if (!QFileInfo(source).isFile())
        return failure_.set(QStringLiteral("%1 does not exist.").arg(source));
    const bool replace =
        request.value(QStringLiteral("flashpanelsettings")).toMap().value(QStringLiteral("replace")).toBool();
    if (QFileInfo::exists(destination) && !replace)
        return failure_.set(QStringLiteral("%1 exists already.").arg(destination));
    QDir().mkpath(QFileInfo(destination).absolutePath());
    const QString output = uniqueNameBeside(destination);
    QFile::remove(output);
    if (output.isEmpty() || !QFile::copy(source, output)) {
        QFile::remove(output);
        return failure_.set(QStringLiteral("Cannot copy %1 to %2.").arg(source, destination));
    }
    QFile::remove(destination);
    if (!QFile::rename(output, destination)) {
        QFile::remove(output);
        failure_.set(QStringLiteral("Cannot write %1.").arg(destination));
    }
}

// --- The family -------------------------------------------------------------

ExportJobs::ExportJobs()
    : wav_(std::make_unique<wavexportwrapper>()), aif_(std::make_unique<aifexportwrapper>()),
      copy_(std::make_unique<copyexportwrapper>()), mp3_(std::make_unique<mp3exportwrapper>()),
      mp2_(std::make_unique<mp2exportwrapper>()), aac_(std::make_unique<aacexportwrapper>()),
      wma_(std::make_unique<wmaexportwrapper>()), ogg_(std::make_unique<oggexportwrapper>())
{
}

ExportJobs::~ExportJobs() = default;

QString ExportJobs::lastFailure(const QString& formatKey) const
{
    const QString key = formatKey.toUpper();
    QString own;
    if (key == QLatin1String("MP3"))
        own = mp3_->lastFailure();
    else if (key == QLatin1String("MP2"))
        own = mp2_->lastFailure();
    else if (key == QLatin1String("AAC") || key == QLatin1String("M4A") || key == QLatin1String("M4B") ||
             key == QLatin1String("M4R"))
        own = aac_->lastFailure();
    else if (key == QLatin1String("WMA"))
        own = wma_->lastFailure();
    else if (key == QLatin1String("OGG"))
        own = ogg_->lastFailure();
    else if (key == QLatin1String("AIFF") || key == QLatin1String("AIF"))
        own = aif_->lastFailure();
    else if (key == QLatin1String("COPY"))
        own = copy_->lastFailure();
    // The WAV stage knows best why a decode failed.
    const QString wav = wav_->lastFailure();
    if (key == QLatin1String("WAV") || (!wav.isEmpty() && own.contains(QLatin1String("decoded"))))
        return wav.isEmpty() ? own : wav;
    return own;
}

void ExportJobs::waitForBackgroundWork()
{
    for (EncoderExportWrapper* job : std::initializer_list<EncoderExportWrapper*> {mp3_.get(), mp2_.get(), aac_.get(), wma_.get(), ogg_.get()})
        job->waitForBackgroundWork();
}

#include "encode/ExportJobs.h"

#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "encode/OggEnc.h"
#include "platform/ChildProcess.h"
#include "platform/FileNames.h"
#include "platform/ResourceLocator.h"
#include "platform/SafeFile.h"
#include "tags/TagFacade.h"

#include <QFile>
#include <QFileInfo>

using namespace ExportArguments;

namespace {

QString missingTool(const QString& tool, const QString& format)
{
    return QStringLiteral("%1 export needs %2, which is not installed.").arg(format, tool);
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

QString mp3exportwrapper::encode(Job& job, const EncodeRequest& request, const QString& output)
{
    const QString lame = lamePath();
    if (lame.isEmpty())
        return QStringLiteral("MP3 export needs LAME, which was not found (see the LAME page of the Preferences).");
    ChildProcess child(lame, request.params + lameParamsFromComments(request.comments) +
                                 QStringList{request.wavPath, output});
    const int code = runCancellable(job, child);
    return code == 0 ? QString() : failedTool(QStringLiteral("lame"), request.wavPath, code);
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

QString mp2exportwrapper::encode(Job& job, const EncodeRequest& request, const QString& output)
{
    const QString twolame = ResourceLocator::pathForTool(QStringLiteral("twolame"));
    if (twolame.isEmpty())
        return missingTool(QStringLiteral("twolame"), QStringLiteral("MP2"));
    // MP2 files get no tags: twolame is not given the track record.
    ChildProcess child(twolame, request.params + QStringList{request.wavPath, output});
    const int code = runCancellable(job, child);
    return code == 0 ? QString() : failedTool(QStringLiteral("twolame"), request.wavPath, code);
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

QString aacexportwrapper::encode(Job& job, const EncodeRequest& request, const QString& output)
{
    const QString mqp = ResourceLocator::pathForTool(QStringLiteral("mqp"));
    if (mqp.isEmpty())
        return missingTool(QStringLiteral("mqp"), typeForSave(request.savePath));
    const QString name = request.params.value(0, aacSettingsName(0, false));
    const QString settings = ResourceLocator::pathForResource(QStringLiteral("AACSettings/") + name);
    if (settings.isEmpty())
        return QStringLiteral("The AAC settings file %1 is missing.").arg(name);
    ChildProcess child(mqp, mqpConvertArguments(request.wavPath, settings, output));
    const int code = runCancellable(job, child);
    if (code != 0 || QFileInfo(output).size() == 0)
        return failedTool(QStringLiteral("mqp"), request.wavPath, code);
    if (!request.comments.isEmpty())
        updateTags(output, request.comments, {});
    return {};
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

QString wmaexportwrapper::encode(Job& job, const EncodeRequest& request, const QString& output)
{
    const QString ffmpeg = ResourceLocator::pathForTool(QStringLiteral("ffmpeg"));
    if (ffmpeg.isEmpty())
        return missingTool(QStringLiteral("ffmpeg"), QStringLiteral("WMA"));
    ChildProcess child(ffmpeg, wmaArguments(request.wavPath, output, request.params.value(0).toLongLong(),
                                            request.params.value(1) == QLatin1String("1")));
    const int code = runCancellable(job, child);
    if (code != 0)
        return failedTool(QStringLiteral("ffmpeg"), request.wavPath, code);
    if (!request.comments.isEmpty())
        updateTags(output, request.comments, {});
    return {};
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

QString oggexportwrapper::makeOutput(Job& job, const EncodeRequest& request)
{
    if (!makeFolderFor(request.savePath))
        return QStringLiteral("Cannot create the folder of \"%1\".").arg(request.savePath);
    SafeFile::Replacement file(request.savePath);
    if (!file.create())
        return file.errorString();
    job.setStatus(QStringLiteral("Encoding %1").arg(QFileInfo(request.savePath).fileName()));
    if (const QString why = encode(job, request, file.path()); !why.isEmpty()) {
        const QString full = outputCutOff(file.path(), request.savePath);
        return full.isEmpty() ? why : full;
    }
    if (!file.commit([&](const QString& made) { return incompleteOutput(made, request.savePath); }))
        return file.errorString();
    return {};
}

QString oggexportwrapper::encode(Job&, const EncodeRequest& request, const QString& output)
{
    const QStringList params = request.params.isEmpty() ? oggParams(0, false) : request.params;
    const QStringList arguments = oggEncoderArguments(params, request.comments, request.wavPath, output);
    std::vector<QByteArray> storage;
    for (const QString& argument : arguments)
        storage.push_back(argument.toLocal8Bit());
    std::vector<char*> argv;
    for (QByteArray& bytes : storage)
        argv.push_back(bytes.data());
    argv.push_back(nullptr);
    // In-process: a cancel cannot stop a file once it is being encoded.
    if (oggenc_main(int(storage.size()), argv.data()) != 0)
        return QStringLiteral("The Ogg Vorbis encoder failed on %1.").arg(request.wavPath);
    return {};
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
    const QString source = request.value(QStringLiteral("sourcepath")).toString();
    const QString destination = request.value(QStringLiteral("destinationpath")).toString();
    runExportRequest(exportJobTitle(source, QStringLiteral("AIFF")), destination, [&](Job& job) {
        const JobResult result = convert(job, request);
        FileNames::release(destination);
        return result;
    });
}

JobResult aifexportwrapper::convert(Job& job, const QVariantMap& request)
{
    const QString source = request.value(QStringLiteral("sourcepath")).toString();
    const QString destination = request.value(QStringLiteral("destinationpath")).toString();
    static const QStringList readable {"wav", "m4a", "m4b", "m4r", "aac", "mid", "midi", "kar"};
    if (source.isEmpty() || destination.isEmpty())
        return JobResult::failed(QStringLiteral("An export request needs a source and a destination."));
    if (!readable.contains(QFileInfo(source).suffix().toLower()))
        return JobResult::failed(
            QStringLiteral("AIFF copies are made of WAV, AAC and MIDI files only, not of %1.").arg(source));
    if (playing_.isOnPlayingDisc(source))
        return JobResult::failed(QStringLiteral("%1 is on the disc being played.").arg(source));
    const QString ffmpeg = ResourceLocator::pathForTool(QStringLiteral("ffmpeg"));
    if (ffmpeg.isEmpty())
        return JobResult::failed(missingTool(QStringLiteral("ffmpeg"), QStringLiteral("AIFF")));
    const QString rate = resampleRate(request.value(QStringLiteral("resamplerate")).toString(),
                                      TspSettings::fromDefaults());
    if (!makeFolderFor(destination))
        return JobResult::failed(QStringLiteral("Cannot create the folder of \"%1\".").arg(destination));
    SafeFile::WorkFolder work(destination);
    if (!work.isValid())
        return JobResult::failed(work.errorString());
    const QString made = work.fileFor();
    job.setStatus(QStringLiteral("Converting %1 to AIFF").arg(QFileInfo(source).fileName()));
    ChildProcess child(ffmpeg, aiffArguments(source, rate, made));
    const int code = runCancellable(job, child);
    if (job.isCancelled())
        return JobResult::cancelled();
    if (const QString full = outputCutOff(made, destination); !full.isEmpty())
        return JobResult::failed(full);
    if (code != 0 || QFileInfo(made).size() == 0)
        return JobResult::failed(failedTool(QStringLiteral("ffmpeg"), source, code));
    if (!work.place(made, [&](const QString& file) { return incompleteOutput(file, destination); }))
        return JobResult::failed(work.errorString());
    return JobResult::succeeded({destination});
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
    const QString source = request.value(QStringLiteral("sourcepath")).toString();
    const QString destination = request.value(QStringLiteral("destinationpath")).toString();
    runExportRequest(QStringLiteral("Copying %1").arg(QFileInfo(source).fileName()), destination, [&](Job& job) {
        const JobResult result = copy(job, request);
        FileNames::release(destination);
        return result;
    });
}

JobResult copyexportwrapper::copy(Job& job, const QVariantMap& request)
{
    const QString source = request.value(QStringLiteral("sourcepath")).toString();
    const QString destination = request.value(QStringLiteral("destinationpath")).toString();
    if (source.isEmpty() || destination.isEmpty())
        return JobResult::failed(QStringLiteral("An export request needs a source and a destination."));
    if (QFileInfo(source).fileName().startsWith(QLatin1String("._")))
        return JobResult::succeeded();  // resource-fork companions of another system are of no use to a player
    if (!QFileInfo(source).isFile())
        return JobResult::failed(QStringLiteral("%1 does not exist.").arg(source));
    const bool replace =
        request.value(QStringLiteral("flashpanelsettings")).toMap().value(QStringLiteral("replace")).toBool();
    // The empty file that reserved the name for this copy is no file of the user's.
    if (QFileInfo::exists(destination) && !replace && !FileNames::isReserved(destination))
        return JobResult::failed(QStringLiteral("%1 exists already.").arg(destination));
    if (!makeFolderFor(destination))
        return JobResult::failed(QStringLiteral("Cannot create the folder of \"%1\".").arg(destination));
    job.setStatus(QStringLiteral("Copying %1").arg(QFileInfo(source).fileName()));
    SafeFile::Replacement file(destination);
    QString error;
    if (!file.create() || !SafeFile::copyInto(source, file.fd(), &error) ||
        !file.commit([&](const QString& made) { return incompleteOutput(made, destination); }))
        return JobResult::failed(error.isEmpty() ? file.errorString() : error);
    return JobResult::succeeded({destination});
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

void ExportJobs::waitForBackgroundWork()
{
    for (EncoderExportWrapper* job : std::initializer_list<EncoderExportWrapper*> {mp3_.get(), mp2_.get(), aac_.get(), wma_.get(), ogg_.get()})
        job->waitForBackgroundWork();
}

#include "encode/ExportJobs.h"

#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "core/TaskManager.h"
#include "core/StringUtils.h"
#include "platform/ChildProcess.h"
#include "tags/TagFacade.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryFile>

#include <algorithm>
#include <chrono>
#include <thread>

using namespace ExportArguments;

namespace {

// A name beside the save path for the encoder to write to; renamed over the
// save path only when the encoder has finished, so a stopped or failed run
// never leaves a cut-short file where the user expects the result.
QString temporaryOutputFor(const QString& savePath)
{
    const QFileInfo info(savePath);
    QTemporaryFile file(info.absolutePath() + QStringLiteral("/.") + info.completeBaseName() +
                        QStringLiteral(".XXXXXX.") + info.suffix());
    if (!file.open())
        return {};
    // Only the unique name is kept: some encoders refuse to overwrite a file.
    return file.fileName();
}

// Every encoder of the family that gives its task slot back says so here.
std::mutex releaseMutex;
std::condition_variable slotReleased;
quint64 releaseCount = 0;

quint64 slotReleases()
{
    std::lock_guard lock(releaseMutex);
    return releaseCount;
}

void announceSlotRelease()
{
    {
        std::lock_guard lock(releaseMutex);
        ++releaseCount;
    }
    slotReleased.notify_all();
}

template <typename Cancelled>
void waitForSlotRelease(quint64 seen, Cancelled cancelled)
{
    std::unique_lock lock(releaseMutex);
    slotReleased.wait_for(lock, std::chrono::milliseconds(20),
                          [&] { return releaseCount != seen || cancelled(); });
}

} // namespace

EncoderExportWrapper::EncoderExportWrapper(QString cleanupKey, QString ripKey, QStringList requestNames,
                                           QString cancelName)
    : cleanupKey_(std::move(cleanupKey)), ripKey_(std::move(ripKey)), requestNames_(std::move(requestNames)),
      cancelName_(std::move(cancelName))
{
}

EncoderExportWrapper::~EncoderExportWrapper() = default;

void EncoderExportWrapper::stopListening()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    // Waiting workers give up; running encoders are allowed to finish.
    {
        std::lock_guard lock(workersMutex_);
        ++cancelGeneration_;
        queueMoved_.notify_all();
    }
    slotReleased.notify_all();
    waitForBackgroundWork();
}

void EncoderExportWrapper::subscribe()
{
    auto& center = NotificationCenter::defaultCenter();
    for (const QString& name : requestNames_)
        center.addObserver(this, name, [this](const Notification& note) { exportFile(note.object.toMap()); });
    center.addObserver(this, cancelName_, [this](const Notification&) { cancel(); });
}

QString EncoderExportWrapper::typeForSave(const QString&) const
{
    return cleanupKey_;
}

QString EncoderExportWrapper::refusal(const QString&) const
{
    return {};
}

void EncoderExportWrapper::cancel()
{
    cancelled_ = true;
    {
        std::lock_guard lock(workersMutex_);
        ++cancelGeneration_;
        queueMoved_.notify_all();
    }
    slotReleased.notify_all();
    {
        std::lock_guard lock(foregroundMutex_);
        if (foregroundChild_) {
            foregroundChild_->terminate();
            return;
        }
    }
    auto& center = NotificationCenter::defaultCenter();
    center.post(VLWAVExportCancelNotification);
    center.post(VLCLPWAVExportCancelNotification);
}

void EncoderExportWrapper::waitForBackgroundWork()
{
    std::unique_lock lock(workersMutex_);
    workersDone_.wait(lock, [this] { return workers_ == 0; });
}

QString EncoderExportWrapper::clipFileName(const QVariantMap& request) const
{
    const QString destination = request.value(QStringLiteral("destinationpath")).toString();
    const QString lower = cleanupKey_.toLower();
    const bool lowerCase = QFileInfo(destination).suffix() == lower;
    const QString folderPath = request.value(QStringLiteral("clpfolderpath")).toString();
    const QString base = folderPath.isEmpty() ? destination : folderPath;
    const QFileInfo info(base);
    const QString stem = info.suffix().isEmpty() ? base : info.path() + '/' + info.completeBaseName();
    if (folderPath.isEmpty())
        return stem + (lowerCase ? QStringLiteral(".clp.") + lower : QStringLiteral(".CLP.") + cleanupKey_);
    return stem + '.' + (lowerCase ? lower : cleanupKey_);
}

void EncoderExportWrapper::exportFile(const QVariantMap& request)
{
    cancelled_ = false;
    failure_.clear();
    const QString source = request.value(QStringLiteral("sourcepath")).toString();
    const QString destination = request.value(QStringLiteral("destinationpath")).toString();
    const QString wavPath = request.value(QStringLiteral("wavpath")).toString();
    const bool cleanup = !request.contains(QStringLiteral("wavcleanup")) ||
                         request.value(QStringLiteral("wavcleanup")).toString() == cleanupKey_;
    const bool background = request.value(QStringLiteral("ripinbackground")).toBool();
    if (source.isEmpty() || destination.isEmpty()) {
        failure_.set(QStringLiteral("An export request needs a source and a destination."));
        return;
    }
    if (const QString refused = refusal(source); !refused.isEmpty()) {
        failure_.set(refused);
        return;
    }

    int sampleBits = 0;
    const bool isWav = getWAVInfo(source, &sampleBits);

    const QVariantMap flash = request.value(QStringLiteral("flashpanelsettings")).toMap();
    const QVariantMap rip = request.value(QStringLiteral("rippanelsettings")).toMap();
    const QVariantMap ripFormat = rip.value(ripKey_).toMap();
    const QVariantMap ripClip = rip.value(QStringLiteral("clp") + ripKey_).toMap();
    QStringList params;
    if (request.contains(QStringLiteral("flashpanelsettings")))
        params = flashParams(flash);
    else if (!ripFormat.isEmpty())
        params = ripParams(ripFormat);
    else
        params = exportParams(TspSettings::fromDefaults(), sampleBits);
    const QStringList clipParams = ripClip.isEmpty() ? QStringList() : ripParams(ripClip);

    QVariantMap comments;
    if (request.contains(QStringLiteral("riptags")))
        comments = request.value(QStringLiteral("riptags")).toMap();
    else
        comments = getComments(source).value_or(QVariantMap());

    EncodeRequest encode {source, wavPath, destination, params, comments, background, false};

    // A WAV the sender prepared (the Clip tab's cut) wins over a WAV source.
    const bool preparedWav = !wavPath.isEmpty() && QFileInfo::exists(wavPath);
    if (QFileInfo(source).suffix().toLower() == QLatin1String("wav") && isWav && !preparedWav && !cancelled_) {
        // Already uncompressed: encode the source itself, with no intermediate.
        encode.wavPath = source;
        makeFile(encode);
        return;
    }

    if (wavPath.isEmpty()) {
        failure_.set(QStringLiteral("%1 is not a WAV file and no intermediate WAV path was given.").arg(source));
        return;
    }
    QVariantMap wavRequest {{QStringLiteral("sourcepath"), source}, {QStringLiteral("destinationpath"), wavPath}};
    if (request.contains(QStringLiteral("riptrack"))) {
        wavRequest.insert(QStringLiteral("riptrack"), request.value(QStringLiteral("riptrack")));
        QVariantMap wavRip = ripFormat;
        if (rip.contains(QStringLiteral("maxspeed")))
            wavRip.insert(QStringLiteral("maxspeed"), rip.value(QStringLiteral("maxspeed")));
        wavRequest.insert(QStringLiteral("rippanelsettings"), wavRip);
    }
    if (request.contains(QStringLiteral("resamplerate")))
        wavRequest.insert(QStringLiteral("resamplerate"), request.value(QStringLiteral("resamplerate")));
    if (!cancelled_ && !QFileInfo::exists(wavPath))
        NotificationCenter::defaultCenter().post(VLWAVExportNotification, wavRequest);

    // The clip is cut before the track's encoder may delete the WAV it is cut from.
    const QVariantMap clipSettings = request.value(QStringLiteral("clipsettings")).toMap();
    const bool wantClip = clipSettings.value(QStringLiteral("mRipClipStored")).toInt() == 1;
    const QString clipWav = request.value(QStringLiteral("clpwavpath")).toString();
    if (wantClip && !cancelled_ && QFileInfo::exists(wavPath))
        NotificationCenter::defaultCenter().post(VLCLPWAVExportNotification, request);

    if (!cancelled_) {
        if (!QFileInfo::exists(wavPath)) {
            failure_.set(QStringLiteral("The source %1 could not be decoded to WAV.").arg(source));
        } else {
            encode.deleteWav = cleanup;
            makeFile(encode);
        }
    } else if (cleanup) {
        QFile::remove(wavPath);
    }

    if (wantClip) {
        if (!cancelled_ && QFileInfo::exists(clipWav))
            makeFile({source, clipWav, clipFileName(request), clipParams, comments, background, true});
        else
            QFile::remove(clipWav);
        if (!background)
            QFile::remove(clipWav);
    }

    if (cleanup && !background)
        QFile::remove(wavPath);
}

void EncoderExportWrapper::makeFile(const EncodeRequest& encode)
{
    if (!encode.inBackground) {
        workerBody(encode, cancelGeneration_, 0);
        return;
    }
    quint64 ticket;
    {
        std::lock_guard lock(workersMutex_);
        ++workers_;
        ticket = nextTicket_++;
        waiting_.push_back(ticket);
    }
    std::thread([this, encode, ticket, generation = quint64(cancelGeneration_)] {
        workerBody(encode, generation, ticket);
        std::lock_guard lock(workersMutex_);
        if (--workers_ == 0)
            workersDone_.notify_all();
    }).detach();
}

bool EncoderExportWrapper::takeTaskSlot(const EncodeRequest& job, quint64 generation, quint64 ticket)
{
    auto leaveQueue = [&] {
        std::lock_guard lock(workersMutex_);
        waiting_.erase(std::find(waiting_.begin(), waiting_.end(), ticket));
        queueMoved_.notify_all();
    };
    {
        // The later requests sleep until they are next, so that a long batch does
        // not keep every waiting thread polling the task manager.
        std::unique_lock lock(workersMutex_);
        queueMoved_.wait(lock, [&] { return waiting_.front() == ticket || cancelGeneration_ != generation; });
    }
    auto& tasks = taskManager::sharedInstance();
    for (int attempt = 1;; ++attempt) {
        if (cancelGeneration_ != generation) {
            leaveQueue();
            return false;
        }
        const quint64 seen = slotReleases();
        if (tasks.addTask(&job, job.sourcePath, typeForSave(job.savePath)))
            break;
        // Retry every 100 microseconds, but after each burst of ten sleep until an
        // encoder gives its slot back (or a while has passed, for slots freed
        // elsewhere): on this machine a 100-microsecond sleep costs a sixth of a
        // core in wake-ups, taken from the encoders that are running.
        if (attempt % 10 != 0)
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        else
            waitForSlotRelease(seen, [&] { return cancelGeneration_ != generation; });
    }
    leaveQueue();
    return true;
}

void EncoderExportWrapper::workerBody(const EncodeRequest& job, quint64 generation, quint64 ticket)
{
    if (job.inBackground && !takeTaskSlot(job, generation, ticket)) {
        // Cancelled before this encoder got a slot: it never starts.
        if (job.deleteWav)
            QFile::remove(job.wavPath);
        return;
    }

    QDir().mkpath(QFileInfo(job.savePath).absolutePath());
    const QString output = temporaryOutputFor(job.savePath);
    if (output.isEmpty()) {
        failure_.set(QStringLiteral("Cannot write into the folder of %1.").arg(job.savePath));
    } else if (encode(job, output) && QFileInfo(output).size() > 0) {
        QFile::remove(job.savePath);
        if (!QFile::rename(output, job.savePath))
            failure_.set(QStringLiteral("Cannot write %1.").arg(job.savePath));
    }
    QFile::remove(output);

    if (job.deleteWav)
        QFile::remove(job.wavPath);
    if (job.inBackground) {
        taskManager::sharedInstance().removeTask(&job);
        announceSlotRelease();
    }
}

int EncoderExportWrapper::runEncoderChild(ChildProcess& child, bool foreground)
{
    if (foreground) {
        std::lock_guard lock(foregroundMutex_);
        if (cancelled_ || !child.start())
            return -1;
        foregroundChild_ = &child;
    } else if (!child.start()) {
        return -1;
    }
    const int code = child.waitForExit();
    if (foreground) {
        std::lock_guard lock(foregroundMutex_);
        foregroundChild_ = nullptr;
    }
    return code;
}

#include "encode/ExportJobs.h"

#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "core/StringUtils.h"
#include "core/TaskManager.h"
#include "platform/FileNames.h"
#include "platform/SafeFile.h"
#include "tags/TagFacade.h"

#include <QFile>
#include <QFileInfo>

#include <optional>

#include <algorithm>
#include <chrono>
#include <thread>

using namespace ExportArguments;

namespace {

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

void wakeSlotWaiters()
{
    {
        std::lock_guard lock(releaseMutex);
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

// One request between its post and the end of its job. What it leaves behind
// (intermediate WAVs, the reserved name, its place in the queue for a slot) goes
// with the last of its holders, whether or not the job's body ever ran.
struct EncoderExportWrapper::Pending {
    EncoderExportWrapper* owner = nullptr;
    QString destination;
    bool background = false;
    bool prepared = false;
    std::optional<JobResult> outcome;  // set when the request ended before encoding
    QList<EncodeRequest> encodes;      // the file, then its clip
    quint64 generation = 0;
    quint64 ticket = 0;
    bool counted = false;  // a background worker waitForBackgroundWork() waits for
    bool queued = false;   // still in line for a task slot

    ~Pending()
    {
        for (const EncodeRequest& encode : encodes) {
            if (encode.deleteWav)
                QFile::remove(encode.wavPath);
        }
        FileNames::release(destination);
        if (!counted)
            return;
        std::lock_guard lock(owner->workersMutex_);
        if (queued) {
            owner->waiting_.erase(std::find(owner->waiting_.begin(), owner->waiting_.end(), ticket));
            owner->queueMoved_.notify_all();
        }
        if (--owner->workers_ == 0)
            owner->workersDone_.notify_all();
    }
};

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
    wakeSlotWaiters();
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
    {
        std::lock_guard lock(workersMutex_);
        ++cancelGeneration_;
        queueMoved_.notify_all();
    }
    wakeSlotWaiters();
    // The requests in hand stop whatever they run: the decoder of their WAV stage
    // or their foreground encoder.
    QList<std::shared_ptr<Job>> jobs;
    {
        std::lock_guard lock(activeMutex_);
        for (const auto& weak : std::as_const(active_)) {
            if (auto job = weak.lock())
                jobs << job;
        }
    }
    for (const auto& job : jobs)
        job->cancel();
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
    const QString folder = info.path() + QLatin1Char('/');
    const QString stem = info.suffix().isEmpty() ? info.fileName() : info.completeBaseName();
    if (folderPath.isEmpty())
        return folder + FileNames::fitName(stem, lowerCase ? QStringLiteral(".clp.") + lower
                                                           : QStringLiteral(".CLP.") + cleanupKey_);
    return folder + FileNames::fitName(stem, QLatin1Char('.') + (lowerCase ? lower : cleanupKey_));
}

void EncoderExportWrapper::exportFile(const QVariantMap& request)
{
    const QString source = request.value(QStringLiteral("sourcepath")).toString();
    auto pending = std::make_shared<Pending>();
    pending->owner = this;
    pending->destination = request.value(QStringLiteral("destinationpath")).toString();
    pending->background = request.value(QStringLiteral("ripinbackground")).toBool();
    pending->generation = cancelGeneration_;
    auto job =
        Job::create(exportJobTitle(source, typeForSave(pending->destination)), [this, pending, request](Job& job) {
            if (!pending->prepared) {
                ExportRequestScope scope(job);
                prepare(job, request, *pending);
            }
            return finish(job, *pending);
        });
    rememberExportJob(pending->destination, job);
    {
        std::lock_guard lock(activeMutex_);
        active_.append(job);
    }
    if (!pending->background) {
        job->run();
    } else {
        // The WAV stage runs here, in the sender's thread; the encoder on the job's own.
        {
            ExportRequestScope scope(*job);
            prepare(*job, request, *pending);
        }
        if (pending->outcome) {
            job->run();
        } else {
            {
                std::lock_guard lock(workersMutex_);
                ++workers_;
                pending->counted = true;
                pending->ticket = nextTicket_++;
                pending->queued = true;
                waiting_.push_back(pending->ticket);
            }
            job->start();
        }
    }
    std::lock_guard lock(activeMutex_);
    active_.removeIf([&](const std::weak_ptr<Job>& weak) {
        const auto held = weak.lock();
        return !held || held == job;
    });
}

void EncoderExportWrapper::prepare(Job& job, const QVariantMap& request, Pending& pending)
{
    pending.prepared = true;
    const auto end = [&](JobResult result) { pending.outcome = std::move(result); };
    const QString source = request.value(QStringLiteral("sourcepath")).toString();
    const QString destination = pending.destination;
    const QString wavPath = request.value(QStringLiteral("wavpath")).toString();
    const bool cleanup = !request.contains(QStringLiteral("wavcleanup")) ||
                         request.value(QStringLiteral("wavcleanup")).toString() == cleanupKey_;
    if (source.isEmpty() || destination.isEmpty())
        return end(JobResult::failed(QStringLiteral("An export request needs a source and a destination.")));
    if (const QString refused = refusal(source); !refused.isEmpty())
        return end(JobResult::failed(refused));

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

    EncodeRequest encode{source, wavPath, destination, params, comments, pending.background, false};

    // A WAV the sender prepared (the Clip tab's cut) wins over a WAV source.
    const bool preparedWav = !wavPath.isEmpty() && QFileInfo::exists(wavPath);
    if (QFileInfo(source).suffix().toLower() == QLatin1String("wav") && isWav && !preparedWav) {
        // Already uncompressed: encode the source itself, with no intermediate.
        encode.wavPath = source;
        pending.encodes << encode;
        return;
    }
    if (wavPath.isEmpty())
        return end(JobResult::failed(
            QStringLiteral("%1 is not a WAV file and no intermediate WAV path was given.").arg(source)));

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
    if (!job.isCancelled() && !QFileInfo::exists(wavPath))
        NotificationCenter::defaultCenter().post(VLWAVExportNotification, wavRequest);

    // The clip is cut before the track's encoder may delete the WAV it is cut from.
    const QVariantMap clipSettings = request.value(QStringLiteral("clipsettings")).toMap();
    const bool wantClip = clipSettings.value(QStringLiteral("mRipClipStored")).toInt() == 1;
    const QString clipWav = request.value(QStringLiteral("clpwavpath")).toString();
    if (wantClip && !job.isCancelled() && QFileInfo::exists(wavPath))
        NotificationCenter::defaultCenter().post(VLCLPWAVExportNotification, request);

    if (job.isCancelled() || !QFileInfo::exists(wavPath)) {
        if (cleanup)
            QFile::remove(wavPath);
        if (wantClip)
            QFile::remove(clipWav);
        if (job.isCancelled())
            return end(JobResult::cancelled());
        const ExportRequestScope* scope = ExportRequestScope::current();
        return end(JobResult::failed(scope && !scope->failure().isEmpty()
                                         ? scope->failure()
                                         : QStringLiteral("The source %1 could not be decoded to WAV.").arg(source)));
    }
    encode.deleteWav = cleanup;
    pending.encodes << encode;
    if (wantClip) {
        if (QFileInfo::exists(clipWav))
            pending.encodes << EncodeRequest{
                source, clipWav, clipFileName(request), clipParams, comments, pending.background, true};
        else
            QFile::remove(clipWav);
    }
}

JobResult EncoderExportWrapper::finish(Job& job, Pending& pending)
{
    if (pending.outcome)
        return *pending.outcome;
    if (pending.background && !takeTaskSlot(job, pending))
        return JobResult::cancelled();  // cancelled before this encoder got a slot: it never starts
    QStringList made;
    QString error;
    for (EncodeRequest& encode : pending.encodes) {
        if (job.isCancelled())
            break;
        if (const QString why = makeOutput(job, encode); why.isEmpty())
            made << encode.savePath;
        else if (error.isEmpty())
            error = why;
        // Long batches keep one intermediate at a time, not all of them.
        if (encode.deleteWav) {
            QFile::remove(encode.wavPath);
            encode.deleteWav = false;
        }
    }
    if (pending.background) {
        taskManager::sharedInstance().removeTask(&pending);
        announceSlotRelease();
    }
    if (job.isCancelled() && !made.contains(pending.destination))
        return JobResult::cancelled(made);
    return error.isEmpty() ? JobResult::succeeded(made) : JobResult::failed(error, made);
}

bool EncoderExportWrapper::takeTaskSlot(Job& job, Pending& pending)
{
    const auto stopped = [&] { return cancelGeneration_ != pending.generation || job.isCancelled(); };
    const auto leaveQueue = [&] {
        std::lock_guard lock(workersMutex_);
        waiting_.erase(std::find(waiting_.begin(), waiting_.end(), pending.ticket));
        pending.queued = false;
        queueMoved_.notify_all();
    };
    auto hook = job.onCancel([this] {
        {
            std::lock_guard lock(workersMutex_);
            queueMoved_.notify_all();
        }
        wakeSlotWaiters();
    });
    job.setStatus(QStringLiteral("Waiting for a free task slot"));
    {
        // The later requests sleep until they are next, so that a long batch does
        // not keep every waiting thread polling the task manager.
        std::unique_lock lock(workersMutex_);
        queueMoved_.wait(lock, [&] { return waiting_.front() == pending.ticket || stopped(); });
    }
    auto& tasks = taskManager::sharedInstance();
    for (int attempt = 1;; ++attempt) {
        if (stopped()) {
            leaveQueue();
            return false;
        }
        const quint64 seen = slotReleases();
        if (tasks.addTask(&pending, pending.encodes.first().sourcePath, typeForSave(pending.destination)))
            break;
        // Retry every 100 microseconds, but after each burst of ten sleep until an
        // encoder gives its slot back (or a while has passed, for slots freed
        // elsewhere): on this machine a 100-microsecond sleep costs a sixth of a
        // core in wake-ups, taken from the encoders that are running.
        if (attempt % 10 != 0)
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        else
            waitForSlotRelease(seen, stopped);
    }
    leaveQueue();
    return true;
}

QString EncoderExportWrapper::makeOutput(Job& job, const EncodeRequest& request)
{
    if (!makeFolderFor(request.savePath))
        return QStringLiteral("Cannot create the folder of \"%1\".").arg(request.savePath);
    // The encoder writes into a private folder beside the save path; the file is
    // renamed over the save path only once it is whole, so a stopped or failed
    // run never leaves a cut-short file where the user expects the result.
    SafeFile::WorkFolder work(request.savePath);
    if (!work.isValid())
        return work.errorString();
    const QString made = work.fileFor();
    job.setStatus(QStringLiteral("Encoding %1").arg(QFileInfo(request.savePath).fileName()));
    if (const QString why = encode(job, request, made); !why.isEmpty()) {
        const QString full = outputCutOff(made, request.savePath);
        return full.isEmpty() ? why : full;
    }
    if (job.isCancelled())
        return QStringLiteral("Cancelled.");
    if (!work.place(made, [&](const QString& file) { return incompleteOutput(file, request.savePath); }))
        return work.errorString();
    return {};
}

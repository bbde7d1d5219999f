#include "tabs/ClipSourcesWrapper.h"

#include "core/Defaults.h"
#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "core/Preferences.h"
#include "core/StringUtils.h"
#include "disc/MountedCDWrapper.h"
#include "encode/ExportJobs.h"
#include "platform/AppPaths.h"
#include "platform/FileNames.h"
#include "tabs/MusicSourcesWrapper.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cmath>

namespace {

const QString kIncludeTagsKey = QStringLiteral("mIncludeTagsStored");
const QString kSavingOperation = QStringLiteral("Saving Files");
constexpr double kMaxGainDb = 60;

double number(const QVariantMap& parameters, const char* key)
{
    return parameters.value(QLatin1String(key)).toString().toDouble();
}

// The WAV stage's clip settings from a song's parameters.
QVariantMap clipSettings(const QVariantMap& parameters)
{
    return {{"mRipClipStartStored", parameters.value(ClipSourcesWrapper::kStart)},
            {"mRipClipDurationStored", parameters.value(ClipSourcesWrapper::kLength)},
            {"mRipClipFadeInStored", parameters.value(ClipSourcesWrapper::kFadeIn)},
            {"mRipClipFadeOutStored", parameters.value(ClipSourcesWrapper::kFadeOut)},
            {"volume", parameters.value(ClipSourcesWrapper::kVolume)}};
}

// One song's clip, cut and saved on the save's thread: the whole song decoded
// to a WAV in the cache, the clip cut from it by sox (straight into the target
// for WAV clips), then the format's export job. The result names the file made.
JobResult saveClip(Job& job, const QString& source, const QVariantMap& parameters, const QVariantMap& request,
                   const QString& subPath)
{
    const QString type = request.value("type").toString();
    const QString folder = request.value("destinationfolder").toString();
    const QVariantMap flash = request.value("flashpanelsettings").toMap();
    const QString destinationFolder = subPath.isEmpty() ? folder : folder + '/' + subPath;
    createDirectoriesAtPath(destinationFolder);
    if (!QFileInfo(destinationFolder).isDir())
        return JobResult::failed(QStringLiteral("The folder %1 cannot be created.").arg(destinationFolder));
    if (!QFileInfo(source).isReadable())
        return JobResult::failed(QStringLiteral("%1 cannot be read.").arg(source));

    const QString target = MusicSourcesWrapper::uniqueFilename(source, destinationFolder, type, flash);
    const QString cache = AppPaths::cacheDir();
    AppPaths::makePrivateFolder(cache);
    const QString wav = AppPaths::uniqueIntermediate(cache, QStringLiteral("musiccache"), QStringLiteral("WAV"));
    const QString clipWav =
        AppPaths::uniqueIntermediate(cache, QStringLiteral("musiccache"), QStringLiteral("CLP.WAV"));
    const auto cleanUp = [&] {
        QFile::remove(wav);
        QFile::remove(clipWav);
        FileNames::release(target);  // a name nothing was written to goes back
    };
    ExportJobWatch watch;
    ExportRequestScope scope(job);
    NotificationCenter& center = NotificationCenter::defaultCenter();

    job.setProgress(-1, QStringLiteral("Decoding %1").arg(QFileInfo(source).fileName()));
    center.post(VLWAVExportNotification, QVariantMap{{"sourcepath", source}, {"destinationpath", wav}});
    const auto decoded = Waveform::wavLayout(wav);
    const double songSeconds = decoded ? decoded->seconds() : 0;
    if (job.isCancelled() || songSeconds <= 0) {
        cleanUp();
        if (job.isCancelled())
            return JobResult::cancelled();
        return JobResult::failed(scope.failure().isEmpty() ? QStringLiteral("%1 could not be decoded.").arg(source)
                                                           : scope.failure());
    }
    // The decoded song is the measure: a clip never reaches past its end.
    const QVariantMap clip = ClipSourcesWrapper::clamped(parameters, songSeconds);
    if (number(clip, ClipSourcesWrapper::kLength) <= 0) {
        cleanUp();
        return JobResult::failed(QStringLiteral("The clip of %1 would be empty: its start is at the song's end or "
                                                "its length is 0.")
                                     .arg(QFileInfo(source).fileName()));
    }
    const bool straight = type == QLatin1String("WAV");
    job.setStatus(QStringLiteral("Cutting the clip"));
    center.post(VLCLPWAVExportNotification, QVariantMap{{"wavpath", wav},
                                                        {"clpwavpath", straight ? target : clipWav},
                                                        {"clipsettings", clipSettings(clip)}});
    QFile::remove(wav);
    if (straight) {
        cleanUp();
        if (job.isCancelled())
            return JobResult::cancelled();
        if (!scope.failure().isEmpty())
            return JobResult::failed(scope.failure());
        return JobResult::succeeded({target});
    }
    if (job.isCancelled() || !QFileInfo::exists(clipWav)) {
        cleanUp();
        if (job.isCancelled())
            return JobResult::cancelled();
        return JobResult::failed(scope.failure().isEmpty() ? QStringLiteral("sox could not cut the clip.")
                                                           : scope.failure());
    }
    // The clip WAV exists, so the export job skips its own WAV stage and removes
    // the clip WAV when it is done.
    QVariantMap exportRequest{{"sourcepath", source}, {"destinationpath", target}, {"wavpath", clipWav}};
    if (!request.value("includetags", true).toBool())
        exportRequest.insert("riptags", QVariantMap());
    if (request.contains("flashpanelsettings"))
        exportRequest.insert("flashpanelsettings", flash);
    job.setStatus(QStringLiteral("Encoding %1").arg(QFileInfo(target).fileName()));
    center.post(exportNotificationName(type), exportRequest);
    const std::shared_ptr<Job> encoder = watch.jobFor(target);
    cleanUp();
    if (!encoder)
        return JobResult::failed(QStringLiteral("No export job makes %1 files.").arg(type));
    encoder->wait();
    const JobResult encoded = encoder->result();
    if (encoded.ok() && encoded.files.contains(target))
        return JobResult::succeeded({target});
    if (job.isCancelled() || encoded.outcome == JobResult::Outcome::Cancelled)
        return JobResult::cancelled();
    return JobResult::failed(encoded.error.isEmpty() ? QStringLiteral("%1 was not made.").arg(target) : encoded.error);
}

}  // namespace

const QStringList& ClipSourcesWrapper::parameterKeys()
{
    static const QStringList keys = {kStart, kLength, kFadeIn, kFadeOut, kVolume};
    return keys;
}

const QStringList& ClipSourcesWrapper::formatKeys()
{
    static const QStringList keys = {"WAV", "OGG", "MP3", "MP2", "M4A", "M4B", "M4R", "AAC", "WMA"};
    return keys;
}

QString ClipSourcesWrapper::secondsText(double seconds)
{
    QString text = QString::number(std::round(seconds * 1000) / 1000, 'f', 3);
    while (text.endsWith('0'))
        text.chop(1);
    if (text.endsWith('.'))
        text.chop(1);
    return text == QLatin1String("-0") ? QStringLiteral("0") : text;
}

QVariantMap ClipSourcesWrapper::defaultParameters(const QVariantMap& record)
{
    const int duration = record.value("duration").toString().toInt();
    return {{kStart, "0"},
            {kLength, duration > 0 ? QString::number(duration) : QStringLiteral("0")},
            {kFadeIn, "0"},
            {kFadeOut, "0"},
            {kVolume, "0"}};
}

QVariantMap ClipSourcesWrapper::clamped(const QVariantMap& parameters, double songSeconds)
{
    double start = std::max(0.0, number(parameters, kStart));
    double length = std::max(0.0, number(parameters, kLength));
    if (songSeconds > 0) {
        start = std::min(start, songSeconds);
        length = std::min(length, songSeconds - start);
    }
    const double fadeIn = std::clamp(number(parameters, kFadeIn), 0.0, length);
    const double fadeOut = std::clamp(number(parameters, kFadeOut), 0.0, length - fadeIn);
    const double volume = std::clamp(number(parameters, kVolume), -kMaxGainDb, kMaxGainDb);
    return {{kStart, secondsText(start)},
            {kLength, secondsText(length)},
            {kFadeIn, secondsText(fadeIn)},
            {kFadeOut, secondsText(fadeOut)},
            {kVolume, secondsText(volume)}};
}

ClipSourcesWrapper::ClipSourcesWrapper(QObject* parent)
    : QObject(parent), browser_(std::make_unique<PlaySourcesWrapper>(PlaySourcesWrapper::clipTabNotices())),
      includeTags_(!Defaults::standard().hasKey(kIncludeTagsKey) ||
                   Defaults::standard().integerForKey(kIncludeTagsKey) != 0)
{
    clipTimer_.setSingleShot(true);
    connect(&clipTimer_, &QTimer::timeout, this, &ClipSourcesWrapper::clipEnded);
    connect(browser_.get(), &PlaySourcesWrapper::songsChanged, this, [this] {
        cancelWaveform();
        waveform_ = {};
        waveformRow_ = -1;
        emit waveformChanged();
        emit songsChanged();
    });
    // The scan lock is held while the browser reads a source's songs, whoever asked.
    connect(browser_.get(), &PlaySourcesWrapper::loadingChanged, this, [this](bool loading) {
        if (loading && !scanning_) {
            scanLock_.lock();
            scanning_ = true;
        } else if (!loading && scanning_) {
            scanning_ = false;
            scanLock_.unlock();
        }
    });
    connect(browser_.get(), &PlaySourcesWrapper::stateChanged, this, [this](PlaySourcesWrapper::State state) {
        if (state == PlaySourcesWrapper::State::Stopped) {
            clipTimer_.stop();
            clipPaused_ = false;
        }
    });
    connect(browser_.get(), &PlaySourcesWrapper::message, this, &ClipSourcesWrapper::message);
    // With the auto-clip preference a disc that comes in is shown at once (after the
    // browser has listed it).
    NotificationCenter::defaultCenter().addObserver(
        this, VLMountedCDWrapperNotification, [this](const Notification& note) {
            const QVariantMap object = note.object.toMap();
            if (object.value("notificationtype").toString() != QLatin1String(VLMountCDType) ||
                Preferences::sharedInstance().prefsIntForKey(PrefKeys::AutoClip) == 0)
                return;
            const QString cdpath = object.value("object").toMap().value("cdpath").toString();
            QMetaObject::invokeMethod(
                this,
                [this, cdpath] {
                    const auto rows = browser_->sources();
                    for (int row = 0; row < rows.size(); ++row) {
                        if (rows[row].kind == PlaySourcesWrapper::SourceKind::Disc && rows[row].path == cdpath)
                            selectSource(row);
                    }
                },
                Qt::QueuedConnection);
        });
}

ClipSourcesWrapper::~ClipSourcesWrapper()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    cancelWaveform();
    terminateSave();
    waitForSaveThread();
    browser_->disconnect(this);
    if (scanning_)
        scanLock_.unlock();
}

void ClipSourcesWrapper::setCdWatcher(mounted_cd_wrapper* watcher)
{
    browser_->setCdWatcher(watcher);
}

void ClipSourcesWrapper::setFlashPlayers(const QStringList& mountPoints)
{
    const QList<PlaySourcesWrapper::SourceRow> before = browser_->sources();
    browser_->setFlashPlayers(mountPoints);
    if (Preferences::sharedInstance().prefsIntForKey(PrefKeys::AutoClip) == 0)
        return;
    const QList<PlaySourcesWrapper::SourceRow> rows = browser_->sources();
    for (int row = 0; row < rows.size(); ++row) {
        if (rows[row].kind == PlaySourcesWrapper::SourceKind::FlashPlayer && rows[row].level == 1 &&
            !before.contains(rows[row])) {
            selectSource(row);
            return;
        }
    }
}

bool ClipSourcesWrapper::selectSource(int row)
{
    {
        const std::unique_lock attempt(scanLock_, std::try_to_lock);
        if (!attempt.owns_lock())
            return false;
    }
    browser_->selectSource(row);
    return true;
}

QString ClipSourcesWrapper::songPath(int row) const
{
    return browser_->songs().value(row);
}

double ClipSourcesWrapper::songSeconds(int row) const
{
    const QString path = songPath(row);
    if (measured_.contains(path))
        return measured_.value(path);
    return browser_->records().value(row).toMap().value("duration").toString().toDouble();
}

QVariantMap ClipSourcesWrapper::clipParameters(int row) const
{
    const QString path = songPath(row);
    if (path.isEmpty())
        return {};
    if (edited_.contains(path))
        return edited_.value(path);
    const QVariantMap record = browser_->records().value(row).toMap();
    QVariantMap parameters = defaultParameters(record);
    // A length measured by the waveform replaces an unknown one.
    if (record.value("duration").toString().toInt() <= 0 && measured_.contains(path))
        parameters.insert(kLength, secondsText(measured_.value(path)));
    return parameters;
}

void ClipSourcesWrapper::setClipValue(int row, const QString& key, double value)
{
    const QString path = songPath(row);
    if (path.isEmpty() || !parameterKeys().contains(key))
        return;
    QVariantMap parameters = clipParameters(row);
    parameters.insert(key, secondsText(value));
    edited_.insert(path, clamped(parameters, songSeconds(row)));
    emit parametersChanged(row);
}

void ClipSourcesWrapper::toggleIncludeTags(bool on)
{
    includeTags_ = on;
    Defaults::standard().setInteger(kIncludeTagsKey, on ? 1 : 0);
    Defaults::standard().synchronize();
}

// ---------------------------------------------------------------- playing

void ClipSourcesWrapper::playThisSong(int row)
{
    clipTimer_.stop();
    clipPaused_ = false;
    if (row < 0 || row >= browser_->songs().size())
        return;
    browser_->selectSong(row);
    browser_->playSelectedSong();
}

void ClipSourcesWrapper::playClip(int row)
{
    const QVariantMap clip = clipParameters(row);
    playThisSong(row);
    if (browser_->state() != PlaySourcesWrapper::State::Playing)
        return;
    // The player seeks by whole seconds; the clip's end is timed from there.
    const double start = number(clip, kStart);
    const int from = int(std::floor(start));
    browser_->setTimeSeconds(from);
    clipRemainingMs_ = int(std::lround((number(clip, kLength) + start - from) * 1000));
    clipTimer_.start(std::max(clipRemainingMs_, 1));
}

void ClipSourcesWrapper::pausePlaying()
{
    if (browser_->state() == PlaySourcesWrapper::State::Paused) {
        browser_->resumePlaying();
        if (clipPaused_) {
            clipPaused_ = false;
            clipTimer_.start(std::max(clipRemainingMs_, 1));
        }
        return;
    }
    browser_->pausePlaying();
    if (browser_->state() == PlaySourcesWrapper::State::Paused && clipTimer_.isActive()) {
        clipRemainingMs_ = clipTimer_.remainingTime();
        clipTimer_.stop();
        clipPaused_ = true;
    }
}

void ClipSourcesWrapper::stopPlayingSong()
{
    clipTimer_.stop();
    clipPaused_ = false;
    browser_->stopPlayingSong();
}

void ClipSourcesWrapper::clipEnded()
{
    browser_->stopPlayingSong();
}

// ---------------------------------------------------------------- waveform

void ClipSourcesWrapper::showWaveform(int row, int columns)
{
    cancelWaveform();
    const QString path = songPath(row);
    waveformRow_ = path.isEmpty() ? -1 : row;
    waveform_ = {};
    emit waveformChanged();
    // A disc's track is read from the drive only when it is played or saved.
    if (path.isEmpty() || columns <= 0 || path.endsWith(QLatin1String(".cdda"), Qt::CaseInsensitive))
        return;
    const quint64 generation = ++waveformGeneration_;
    const auto hand = [this, generation](const WaveformPeaks& peaks) {
        QMetaObject::invokeMethod(
            this, [this, generation, peaks] { takeWaveform(generation, peaks); }, Qt::QueuedConnection);
    };
    waveformJob_ = Job::create(tr("Drawing the waveform of %1").arg(QFileInfo(path).fileName()),
                               [this, path, columns, hand](Job& job) {
                                   std::atomic<bool> cancel{false};
                                   const Job::CancelHook hook = job.onCancel([&cancel] { cancel = true; });
                                   const WaveformPeaks peaks = Waveform::compute(path, columns, cancel, hand);
                                   if (cancel)
                                       return JobResult::cancelled();
                                   if (peaks.columns() == 0) {
                                       const QString why = tr("%1 cannot be decoded.").arg(path);
                                       QMetaObject::invokeMethod(
                                           this, [this, why] { emit message(why); }, Qt::QueuedConnection);
                                       return JobResult::failed(why);
                                   }
                                   hand(peaks);
                                   return JobResult::succeeded();
                               });
    waveformJob_->start();
}

void ClipSourcesWrapper::takeWaveform(quint64 generation, const WaveformPeaks& peaks)
{
    if (generation != waveformGeneration_)
        return;
    waveform_ = peaks;
    if (peaks.complete() && peaks.seconds > 0) {
        const QString path = songPath(waveformRow_);
        const bool known = measured_.contains(path);
        measured_.insert(path, peaks.seconds);
        if (!known)
            emit parametersChanged(waveformRow_);
    }
    emit waveformChanged();
}

void ClipSourcesWrapper::cancelWaveform()
{
    ++waveformGeneration_;
    if (!waveformJob_)
        return;
    waveformJob_->cancel();
    waveformJob_->wait();
    waveformJob_.reset();
}

// ---------------------------------------------------------------- ejecting

ClipSourcesWrapper::Alert ClipSourcesWrapper::cdInUseAlert()
{
    return {QStringLiteral("The selected CD is in use"),
            QStringLiteral("The CD may be being ripped or may be in use by another application.  To eject a CD that "
                           "is being ripped, use the eject button on the Rip tab.")};
}

ClipSourcesWrapper::Alert ClipSourcesWrapper::flashInUseAlert()
{
    return {QStringLiteral("The selected Flash is in use"),
            QStringLiteral("The Flash may be being updated or may be in use by another application.  To eject Flah "
                           "that is being updated, use the eject button on the Flash tab.")};
}

std::optional<ClipSourcesWrapper::Alert> ClipSourcesWrapper::ejectSelectedMedium()
{
    const PlaySourcesWrapper::SourceRow source = browser_->sources().value(browser_->selectedSource());
    if (browser_->selectedSource() < 0 || source.level != 1)
        return std::nullopt;
    const bool inUse = inUse_ && inUse_(source.path);
    if (source.kind == PlaySourcesWrapper::SourceKind::Disc) {
        if (inUse)
            return cdInUseAlert();
        browser_->ejectSelectedCD();
    } else if (source.kind == PlaySourcesWrapper::SourceKind::FlashPlayer) {
        if (inUse)
            return flashInUseAlert();
        // A song of the player that is playing here would keep it from unmounting.
        if (browser_->playingPath().startsWith(QDir::cleanPath(source.path) + '/'))
            stopPlayingSong();
        if (ejectFlash_)
            ejectFlash_(source.path);
    }
    return std::nullopt;
}

// ---------------------------------------------------------------- saving

void ClipSourcesWrapper::convertTo(const QString& type)
{
    if (formatKeys().contains(type))
        emit chooseFolderRequested(type);
}

QVariantMap ClipSourcesWrapper::saveRequest(const QString& type, const QString& folder, const QList<int>& rows) const
{
    QList<int> chosen = rows;
    if (chosen.isEmpty()) {
        for (int row = 0; row < browser_->songs().size(); ++row)
            chosen << row;
    }
    QVariantList files, settings, comments, destinations;
    for (int row : chosen) {
        if (songPath(row).isEmpty())
            continue;
        files << songPath(row);
        settings << clipParameters(row);
        comments << browser_->records().value(row);
        destinations << QString();
    }
    return {{"selectedfiles", files},      {"clipsettings", settings},         {"comments", comments},
            {"destinationfolder", folder}, {"destinationpaths", destinations}, {"type", type},
            {"includetags", includeTags_}};
}

void ClipSourcesWrapper::chooseSaveFolderDidEnd(bool confirmed, const QString& folder, const QString& type,
                                                const QList<int>& rows)
{
    if (!confirmed)
        return;
    Defaults::standard().setObject(QStringLiteral("default%1Folder").arg(type), folder);
    Defaults::standard().synchronize();
    waitForSaveThread();
    auto made = std::make_shared<QStringList>();
    auto failures = std::make_shared<QStringList>();
    auto job = makeSaveJob(
        saveRequest(type, folder, rows), [made](const QString& file) { *made << file; },
        [failures](const QString& failure) { *failures << failure; });
    // The lists are filled on the save's thread and read once it has ended.
    auto finished = std::make_shared<QMetaObject::Connection>();
    *finished = connect(
        &JobList::shared(), &JobList::jobFinished, this,
        [this, id = job->id(), made, failures, finished](quint64 ended) {
            if (ended != id)
                return;
            disconnect(*finished);
            emit saveFinished(*made, *failures);
        },
        Qt::QueuedConnection);
    {
        std::lock_guard lock(saveMutex_);
        saveJob_ = job;
    }
    job->start();
}

std::shared_ptr<Job> ClipSourcesWrapper::makeSaveJob(const QVariantMap& request,
                                                     std::function<void(const QString&)> madeHandler,
                                                     std::function<void(const QString&)> failureHandler)
{
    const QString type = request.value("type").toString();
    return Job::create(QStringLiteral("Saving %1 clips").arg(type), [=](Job& job) {
        const QStringList files = request.value("selectedfiles").toStringList();
        const QVariantList settings = request.value("clipsettings").toList();
        QStringList destinations = request.value("destinationpaths").toStringList();
        if (request.value("flashpanelsettings").toMap().value("dontput").toBool())
            destinations.clear();
        std::mutex currentMutex;
        std::shared_ptr<Job> current;
        // Cancelling the save stops the clip in hand and the encoder working for it.
        const Job::CancelHook hook = job.onCancel([&] {
            std::lock_guard lock(currentMutex);
            if (current)
                current->cancel();
            const QString cancelName = MusicSourcesWrapper::cancelNotificationFor(type);
            if (!cancelName.isEmpty())
                NotificationCenter::defaultCenter().post(cancelName);
        });
        job.setProgress(0, kSavingOperation);
        QStringList made;
        int failed = 0;
        for (int i = 0; i < files.size() && !job.isCancelled(); ++i) {
            const QString source = files.at(i);
            const QVariantMap parameters = settings.value(i).toMap();
            const QString subPath = destinations.value(i);
            auto clip =
                Job::create(QStringLiteral("Clip of %1 as %2").arg(QFileInfo(source).fileName(), type),
                            [&](Job& clipJob) { return saveClip(clipJob, source, parameters, request, subPath); });
            {
                std::lock_guard lock(currentMutex);
                current = clip;
            }
            if (job.isCancelled())
                clip->cancel();
            const JobResult result = clip->run();
            {
                std::lock_guard lock(currentMutex);
                current.reset();
            }
            if (result.ok()) {
                made << result.files;
                for (const QString& file : result.files) {
                    if (madeHandler)
                        madeHandler(file);
                }
            } else if (result.outcome == JobResult::Outcome::Failed) {
                ++failed;
                if (failureHandler)
                    failureHandler(QStringLiteral("%1: %2").arg(source, result.error));
            }
            job.setProgress(100.0 * (i + 1) / files.size(), kSavingOperation);
        }
        if (job.isCancelled())
            return JobResult::cancelled(made);
        if (failed > 0)
            return JobResult::failed(QStringLiteral("%1 of %2 clips could not be made.").arg(failed).arg(files.size()),
                                     made);
        return JobResult::succeeded(made);
    });
}

void ClipSourcesWrapper::terminateSave()
{
    std::lock_guard lock(saveMutex_);
    if (saveJob_)
        saveJob_->cancel();
}

bool ClipSourcesWrapper::isSaving() const
{
    std::lock_guard lock(saveMutex_);
    return saveJob_ && saveJob_->state() != Job::State::Finished;
}

void ClipSourcesWrapper::waitForSaveThread()
{
    std::shared_ptr<Job> job;
    {
        std::lock_guard lock(saveMutex_);
        job = saveJob_;
    }
    if (job)
        job->wait();
}

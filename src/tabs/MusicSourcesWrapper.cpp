#include "tabs/MusicSourcesWrapper.h"

#include "core/Defaults.h"
#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "core/StringUtils.h"
#include "disc/FlashWriter.h"
#include "platform/AppPaths.h"
#include "platform/FileNames.h"
#include "platform/SafeFile.h"
#include "playlists/M3uManager.h"
#include "playlists/PlaylistFiles.h"
#include "tabs/FolderCollector.h"
#include "tabs/UniqueNames.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>

namespace {

const QString kSearchingOperation = QStringLiteral("Searching Folder");
const QString kSearchingStatus = QStringLiteral("For deep folders, this can take a VERY long time. Please wait.");
const QString kSavingOperation = QStringLiteral("Saving Files");
const QString kSavingStatus = QStringLiteral("This can take a bit of time, but not too much.  Please wait.");

QVariantMap searchingProgress()
{
    return {{"operation", kSearchingOperation}, {"status", kSearchingStatus}, {"savefilename", ""}};
}

QVariantMap savingProgress()
{
    return {{"operation", kSavingOperation}, {"status", kSavingStatus}};
}

struct Collection {
    QVariantList files;
    QVariantList destinations;
    QVariantList tags;

    void append(const QVariantMap& contents, const QString& prefix)
    {
        const QVariantList leaves = contents.value("leafarray").toList();
        const QVariantList records = contents.value("commentarray").toList();
        const QVariantList folders = contents.value("destinationarray").toList();
        for (int i = 0; i < leaves.size(); ++i) {
            files << leaves.at(i);
            const QString folder = folders.value(i).toString();
            destinations << (prefix.isEmpty() ? folder : folder.isEmpty() ? prefix : prefix + '/' + folder);
            if (i < records.size())
                tags << records.at(i);
        }
    }
    QVariantMap asContents() const
    {
        return {{"leafarray", files}, {"destinationarray", destinations}, {"commentarray", tags}};
    }
};

void collectGroup(const QVariantMap& group, const QString& prefix, const std::atomic<bool>* cancel,
                  Collection& collection)
{
    for (const QVariant& entry : group.value("Entries").toList()) {
        if (cancel && *cancel)
            return;
        if (entry.typeId() == QMetaType::QVariantMap) {
            const QVariantMap inner = entry.toMap();
            const QString name = inner.value("Group").toString();
            collectGroup(inner, prefix.isEmpty() ? name : prefix + '/' + name, cancel, collection);
        } else if (const auto contents = contentsOfFolder(entry.toString(), cancel, {})) {
            collection.append(*contents, prefix);
        }
    }
}

QString joinedFolder(const QString& folder, const QString& sub)
{
    return sub.isEmpty() ? folder : folder + '/' + sub;
}

QString fileCount(int count)
{
    return count == 1 ? QStringLiteral("1 file") : QStringLiteral("%1 files").arg(count);
}

} // namespace

// One save's export jobs: those the export handlers add to the job list while
// the save thread posts its requests.
struct MusicSourcesWrapper::Batch {
    std::mutex mutex;
    BatchSummary summary;
    std::vector<std::shared_ptr<Job>> jobs;
    QSet<quint64> running;
    bool dispatching = true;
    bool reported = false;

    void addJob(const std::shared_ptr<Job>& job)
    {
        std::lock_guard lock(mutex);
        jobs.push_back(job);
        running.insert(job->id());
    }
    void problem(const QString& line)
    {
        std::lock_guard lock(mutex);
        summary.problems << line;
        ++summary.failed;
    }
    // The summary, once: when the save has handed over everything and every job has ended.
    std::optional<BatchSummary> finished(quint64 endedJob)
    {
        std::lock_guard lock(mutex);
        running.remove(endedJob);
        if (reported || dispatching || !running.isEmpty())
            return std::nullopt;
        reported = true;
        BatchSummary result = summary;
        // Files refused before any job took them count as failed.
        result.files = int(jobs.size()) + summary.failed;
        for (const auto& job : jobs) {
            const JobResult outcome = job->result();
            switch (outcome.outcome) {
            case JobResult::Outcome::Succeeded:
                ++result.made;
                result.madeFiles << outcome.files;
                break;
            case JobResult::Outcome::Failed:
                ++result.failed;
                result.problems << QStringLiteral("%1: %2").arg(job->title(), outcome.error);
                break;
            case JobResult::Outcome::Cancelled:
                ++result.cancelled;
                break;
            }
        }
        return result;
    }
};

struct MusicSourcesWrapper::BatchTracker {
    std::mutex mutex;
    MusicSourcesWrapper* owner = nullptr;  // cleared first when it goes
    QList<std::shared_ptr<Batch>> open;

    void add(const std::shared_ptr<Batch>& batch)
    {
        std::lock_guard lock(mutex);
        open.append(batch);
    }
    // A job ended (0: the save finished handing over): report the batches that are done.
    void ended(quint64 job)
    {
        QList<BatchSummary> done;
        {
            std::lock_guard lock(mutex);
            for (auto it = open.begin(); it != open.end();) {
                if (const auto summary = (*it)->finished(job)) {
                    done << *summary;
                    it = open.erase(it);
                } else {
                    ++it;
                }
            }
        }
        if (done.isEmpty())
            return;
        for (BatchSummary& summary : done) {
            QString error;
            if (summary.withM3U && summary.made > 0 && (summary.m3u = writeBatchM3U(summary, &error)).isEmpty())
                summary.problems << QStringLiteral("The M3U playlist was not written: %1").arg(error);
        }
        // Under the lock, so the owner cannot go meanwhile.
        std::lock_guard lock(mutex);
        for (const BatchSummary& summary : done) {
            if (owner)
                emit owner->batchFinished(summary);
        }
    }
};

MusicSourcesWrapper::Batch*& MusicSourcesWrapper::postingBatch()
{
    thread_local Batch* batch = nullptr;
    return batch;
}

QString MusicSourcesWrapper::BatchSummary::text() const
{
    const bool copying = type == QLatin1String("COPY");
    if (files == 0)
        return stopped ? QStringLiteral("Stopped before any file was handed over.")
                       : QStringLiteral("Nothing to %1: the selection holds no music files.")
                             .arg(copying ? QStringLiteral("copy") : QStringLiteral("convert"));
    const QString verb = copying ? QStringLiteral("Copied") : QStringLiteral("Converted");
    const QString into = copying ? QStringLiteral(" to \u201c%1\u201d").arg(folder)
                                 : QStringLiteral(" to %1 in \u201c%2\u201d").arg(type, folder);
    QString text = made == files ? QStringLiteral("%1 %2%3.").arg(verb, fileCount(made), into)
                                 : QStringLiteral("%1 %2 of %3%4.").arg(verb).arg(made).arg(fileCount(files), into);
    if (failed > 0)
        text += QStringLiteral(" %1 failed.").arg(failed);
    if (cancelled > 0 || stopped)
        text += QStringLiteral(" Stopped before the end.");
    if (!renamed.isEmpty())
        text += renamed.size() == 1 ? QStringLiteral(" 1 name was changed to one the player can hold.")
                                    : QStringLiteral(" %1 names were changed to ones the player can hold.")
                                          .arg(renamed.size());
    if (!m3u.isEmpty())
        text += QStringLiteral(" Their M3U playlist is \u201c%1\u201d.").arg(QFileInfo(m3u).fileName());
    return text;
}

QString MusicSourcesWrapper::writeBatchM3U(const BatchSummary& summary, QString* error)
{
    const QDir folder(summary.folder);
    QString text = QStringLiteral("#EXTM3U\n");
    for (const QString& file : summary.madeFiles) {
        const QString title = m3uManager::getSongName(file).value_or(QFileInfo(file).completeBaseName());
        text += QStringLiteral("#EXTINF:%1,%2\n%3\n")
                    .arg(m3uManager::getSongTime(file), title, folder.relativeFilePath(file));
    }
    const QString name = QFileInfo(summary.folder).fileName();
    const QString target = uniqueFilename(folder.filePath(name + QStringLiteral(".m3u")), summary.folder,
                                          QStringLiteral("m3u"), {});
    const bool written = SafeFile::writeFile(target, text.toUtf8(), error);
    FileNames::release(target);  // a written file stays; a reservation left empty goes
    return written ? target : QString();
}

MusicSourcesWrapper::MusicSourcesWrapper(QObject* parent) : QObject(parent), batches_(std::make_shared<BatchTracker>())
{
    batches_->owner = this;
    // Jobs that export handlers start while a save thread posts its requests
    // belong to that save's batch.
    static const auto collecting = connect(&JobList::shared(), &JobList::jobAdded, [](quint64 id) {
        if (Batch* batch = postingBatch())
            if (auto job = JobList::shared().job(id))
                batch->addJob(job);
    });
    Q_UNUSED(collecting);
    jobsFinishing_ =
        connect(&JobList::shared(), &JobList::jobFinished, [batches = batches_](quint64 id) { batches->ended(id); });

    NotificationCenter& center = NotificationCenter::defaultCenter();
    center.addObserver(this, VLMSWFileDropNotification, [this](const Notification& n) {
        {
            std::lock_guard lock(mutex_);
            dropZone_ = n.object.toMap().value("filearray").toStringList();
        }
        emit sourcesChanged();
        emit dropZoneFilled();
    });
    center.addObserver(this, VLPlaylistInfoNotification, [this](const Notification& n) {
        {
            std::lock_guard lock(mutex_);
            playlists_ = n.object.toMap().value("playlistarray").toList();
        }
        emit sourcesChanged();
    });
    center.addObserver(this, VLPlayListGroupInfoNotification, [this](const Notification& n) {
        {
            std::lock_guard lock(mutex_);
            mediaSets_ = n.object.toMap().value("playlistgrouparray").toList();
        }
        emit sourcesChanged();
    });
    center.addObserver(this, VLAudioCDHaveCDInfoNotification, [this](const Notification& n) {
        {
            std::lock_guard lock(mutex_);
            audioCD_ = n.object.toMap();
        }
        emit sourcesChanged();
    });
    center.addObserver(this, VLReloadLibraryNotification, [this](const Notification&) { emit sourcesChanged(); });
    center.addObserver(this, VLCopyToFlashV20Notification,
                       [this](const Notification& n) { vlCopyToFlashV20Notification(n.object.toMap()); });
}

MusicSourcesWrapper::~MusicSourcesWrapper()
{
    {
        std::lock_guard lock(batches_->mutex);
        batches_->owner = nullptr;
    }
    disconnect(jobsFinishing_);
    NotificationCenter::defaultCenter().removeObserver(this);
    std::shared_ptr<Job> job;
    {
        std::lock_guard lock(mutex_);
        job = saveJob_;
    }
    // A save still running is cancelled like the sheet's button does; one that
    // ended leaves the export jobs it fed alone.
    if (job)
        job->cancel();
    cancel_ = true;
    waitForSaveThread();
}

const QStringList& MusicSourcesWrapper::formatKeys()
{
    static const QStringList keys = {"WAV", "OGG", "MP3", "MP2", "M4A", "M4B", "AAC", "WMA"};
    return keys;
}

const QStringList& MusicSourcesWrapper::burnKinds()
{
    static const QStringList kinds = {"Burn Audio CD", "Burn Music CD/DVD", "Burn MP3 CD/DVD", "Burn DVD-Audio"};
    return kinds;
}

QVariantList MusicSourcesWrapper::playlists() const
{
    std::lock_guard lock(mutex_);
    return playlists_;
}

QVariantList MusicSourcesWrapper::mediaSets() const
{
    std::lock_guard lock(mutex_);
    return mediaSets_;
}

QVariantMap MusicSourcesWrapper::audioCD() const
{
    std::lock_guard lock(mutex_);
    return audioCD_;
}

QStringList MusicSourcesWrapper::dropZone() const
{
    std::lock_guard lock(mutex_);
    return dropZone_;
}

MusicSourcesWrapper::Selection MusicSourcesWrapper::dropZoneSelection() const
{
    Selection selection;
    for (const QString& path : dropZone())
        selection << Source::library(path);
    return selection;
}

QVariantMap MusicSourcesWrapper::contentsOfPlaylist(const QString& playlistPath, const std::atomic<bool>* cancel)
{
    Collection collection;
    if (playlistPath.isEmpty())
        return collection.asContents();
    if (const auto group = PlaylistFiles::readGroup(playlistPath))
        collectGroup(*group, PlaylistFiles::displayName(playlistPath), cancel, collection);
    return collection.asContents();
}

QVariantMap MusicSourcesWrapper::contentsOfPlaylistGroup(const QString& mediaSetPath, const std::atomic<bool>* cancel)
{
    Collection collection;
    if (mediaSetPath.isEmpty())
        return collection.asContents();
    for (const QString& playlist : PlaylistFiles::mediaSetPlaylists(PlaylistFiles::readMediaSet(mediaSetPath))) {
        if (cancel && *cancel)
            break;
        collection.append(contentsOfPlaylist(playlist, cancel), {});
    }
    return collection.asContents();
}

QVariantMap MusicSourcesWrapper::getSelectedFileNames(const Selection& selection, const std::atomic<bool>* cancel,
                                                      const std::function<void(const QString&)>& examining,
                                                      QStringList* unreadable) const
{
    Collection collection;
    for (const Source& source : selection) {
        if (cancel && *cancel)
            break;
        if (source.kind == Source::LibraryItem) {
            if (const auto contents = contentsOfFolder(source.path, cancel, examining, defaultAudioTypes(), unreadable))
                collection.append(*contents, {});
            continue;
        }
        QVariantMap contents = contentsOfPlaylist(source.entry.value("playlistpath").toString(), cancel);
        if (contents.value("leafarray").toList().isEmpty())
            contents = contentsOfPlaylistGroup(source.entry.value("playlistgrouppath").toString(), cancel);
        if (!contents.value("leafarray").toList().isEmpty()) {
            collection.append(contents, {});
            continue;
        }
        // A disc: the chosen album's folder, named by the disc information.
        const QVariantMap disc = source.entry.contains("mFreeDBAlbumList") ? source.entry : audioCD();
        const QVariantList albums = disc.value("mFreeDBAlbumList").toList();
        const int albumIndex = source.entry.value("selectedalbum").toInt();
        if (albumIndex < 0 || albumIndex >= albums.size())
            continue;
        const QString cdpath = albums.at(albumIndex).toMap().value("cdpath").toString();
        QSet<QString> types = defaultAudioTypes();
        types.insert(QStringLiteral("cdda"));
        if (auto discContents = contentsOfFolder(cdpath, cancel, examining, types, unreadable)) {
            const QVariantList trackInfo = disc.value("mFreeDBTrackList").toList();
            if (!trackInfo.isEmpty())
                discContents->insert("commentarray", trackInfo.mid(0, discContents->value("leafarray").toList().size()));
            collection.append(*discContents, {});
        }
    }
    QVariantMap result{{"selectedfiles", collection.files}, {"destinationpaths", collection.destinations}};
    if (!collection.tags.isEmpty())
        result.insert("tags", collection.tags);
    return result;
}

QString MusicSourcesWrapper::startingFolderFor(const QString& formatKey)
{
    const QString stored = Defaults::standard().stringForKey(QStringLiteral("default%1Folder").arg(formatKey));
    if (!stored.isEmpty())
        return stored;
    return AppPaths::homeDir() + '/' + QStringLiteral("%1 Folder").arg(formatKey);
}

MusicSourcesWrapper::FolderChoice MusicSourcesWrapper::folderChoiceFor(const QString& formatKey)
{
    const QString start = startingFolderFor(formatKey);
    if (QFileInfo(start).isDir())
        return {start, {}};
    return {AppPaths::homeDir(), QStringLiteral("%1 Folder").arg(formatKey)};
}

QString MusicSourcesWrapper::chooseFolderMessage(const QString& formatKey)
{
    return QStringLiteral("Please select a folder to export the %1 files.").arg(formatKey);
}

void MusicSourcesWrapper::setProgressHandler(ProgressHandler handler)
{
    progressHandler_ = std::move(handler);
}

void MusicSourcesWrapper::setDispatchHandler(std::function<void(const QString&, const QString&)> handler)
{
    dispatchHandler_ = std::move(handler);
}

void MusicSourcesWrapper::setFailureHandler(std::function<void(const QString&, const QString&)> handler)
{
    failureHandler_ = std::move(handler);
}

void MusicSourcesWrapper::setSkipHandler(std::function<void(const QString&)> handler)
{
    skipHandler_ = std::move(handler);
}

void MusicSourcesWrapper::showProgress(const QVariantMap& progress, Job* job) const
{
    // The job list shows the sheet's title line; the sheet shows the whole record.
    if (job && progress.contains("operation"))
        job->setProgress(-1, progress.value("operation").toString());
    if (progressHandler_)
        progressHandler_(progress);
}

std::shared_ptr<Job> MusicSourcesWrapper::makeCancellableJob(const QString& title, std::function<void(Job&)> body)
{
    return Job::create(title, [this, body = std::move(body)](Job& job) {
        // The flag belongs to the save in hand; a cancel of this job sets it again.
        cancel_ = false;
        auto hook = job.onCancel([this] { stopSaving(); });
        body(job);
        return job.isCancelled() || cancel_ ? JobResult::cancelled() : JobResult::succeeded();
    });
}

void MusicSourcesWrapper::startWorker(const std::shared_ptr<Job>& job)
{
    waitForSaveThread();
    {
        std::lock_guard lock(mutex_);
        saveJob_ = job;
    }
    saving_ = true;
    job->start();
}

bool MusicSourcesWrapper::isSaving() const
{
    return saving_;
}

void MusicSourcesWrapper::waitForSaveThread()
{
    std::shared_ptr<Job> job;
    {
        std::lock_guard lock(mutex_);
        job = saveJob_;
    }
    if (job)
        job->wait();
}

void MusicSourcesWrapper::chooseSaveFolderDidEnd(bool confirmed, const QString& folder, const QString& formatKey,
                                                 const Selection& selection)
{
    if (!confirmed)
        return;
    Defaults::standard().setObject(QStringLiteral("default%1Folder").arg(formatKey), folder);
    Defaults::standard().synchronize();
    createDirectoriesAtPath(folder);
    emit progressSheetShown();
    showProgress(searchingProgress());
    const QVariantMap request{{"type", formatKey}, {"destinationfolder", folder}};
    startWorker(makeSaveJob(request, selection));
}

std::shared_ptr<Job> MusicSourcesWrapper::makeSaveJob(QVariantMap request, const Selection& selection)
{
    const QString title = QStringLiteral("Saving %1 files").arg(request.value("type").toString());
    return makeCancellableJob(title, [this, request = std::move(request), selection](Job& job) {
        saving_ = true;
        HandleSaveThread(job, request, selection);
        saving_ = false;
    });
}

void MusicSourcesWrapper::HandleSaveThread(Job& job, QVariantMap request, const Selection& selection)
{
    showProgress(searchingProgress(), &job);
    QStringList unreadable;
    const QVariantMap gathered = getSelectedFileNames(
        selection, &cancel_,
        [this](const QString& name) {
            showProgress({{"savefilename", name}});
        },
        &unreadable);
    QStringList skipped;
    for (const QString& name : unreadable) {
        const QString message = FileNames::unreadableNameMessage(name);
        skipped << message;
        job.addMessage(message);
        if (skipHandler_)
            skipHandler_(message);
    }
    showProgress(savingProgress(), &job);
    request.insert("selectedfiles", gathered.value("selectedfiles"));
    request.insert("destinationpaths", gathered.value("destinationpaths"));
    saveFiles(request, &job, skipped);
    emit progressSheetEnded(1);
}

void MusicSourcesWrapper::saveFiles(const QVariantMap& request, Job* job)
{
    saveFiles(request, job, {});
}

void MusicSourcesWrapper::saveFiles(const QVariantMap& request, Job* job, const QStringList& skipped)
{
    const QString type = request.value("type").toString();
    {
        std::lock_guard lock(mutex_);
        savingType_ = type;
    }
    const QString folder = request.value("destinationfolder").toString();
    const QStringList files = request.value("selectedfiles").toStringList();
    const bool hasFlashSettings = request.contains("flashpanelsettings");
    const QVariantMap flashSettings = request.value("flashpanelsettings").toMap();
    // The command line's naming options ("replace", "dontput") name files as the
    // flash options do without changing any encoder's settings.
    const QVariantMap naming = hasFlashSettings ? flashSettings : request.value("namingoptions").toMap();
    QStringList destinations = request.value("destinationpaths").toStringList();
    if (naming.value("dontput").toBool())
        destinations.clear();
    // A flash player is a FAT volume: names it cannot hold are cleaned, and names
    // that differ only in case are one name there.
    const bool toPlayer = hasFlashSettings;
    QVariantMap fileNaming = naming;
    if (toPlayer) {
        fileNaming.insert("fatnames", true);
        for (QString& sub : destinations) {
            QStringList parts = sub.split('/', Qt::SkipEmptyParts);
            for (QString& part : parts)
                part = FileNames::fatSafeName(part);
            sub = parts.join('/');
        }
    }
    const QString notification = exportNotificationName(type);
    if (job)
        job->setProgress(0);
    auto batch = std::make_shared<Batch>();
    batch->summary.type = type;
    batch->summary.folder = folder;
    batch->summary.withM3U = Defaults::standard().integerForKey(QStringLiteral("prefsCreateM3UStored")) != 0;
    for (const QString& message : skipped)
        batch->problem(message);
    batches_->add(batch);
    const auto fail = [&](const QString& path, const QString& reason) {
        batch->problem(QStringLiteral("%1: %2").arg(path, reason));
        if (failureHandler_)
            failureHandler_(path, reason);
    };

    // Each request decodes into an intermediate of its own, in a folder only the
    // user may enter.
    const QString cache = AppPaths::cacheDir();
    AppPaths::makePrivateFolder(cache);
    QSet<QString> unwritableFolders;
    int counter = 0;
    for (const QString& source : files) {
        if (cancel_)
            break;
        const int index = counter++;
        const QString fileType = type == QLatin1String("COPY") ? QFileInfo(source).suffix().toUpper() : type;
        const QString destinationFolder =
            destinations.isEmpty() ? folder : joinedFolder(folder, destinations.value(index));
        createDirectoriesAtPath(destinationFolder);
        if (!QFileInfo(destinationFolder).isDir()) {
            // Said once per folder; its files are skipped rather than half-written.
            if (!unwritableFolders.contains(destinationFolder))
                fail(destinationFolder, QStringLiteral("the folder cannot be created"));
            unwritableFolders.insert(destinationFolder);
            continue;
        }
        if (!QFileInfo(source).isReadable()) {
            fail(source, QStringLiteral("the file cannot be read"));
            continue;
        }
        if (toPlayer) {
            if (const auto refusal = FlashWriter::playerRefusal(source, destinationFolder);
                !refusal.message.isEmpty()) {
                fail(source, refusal.message);
                if (refusal.playerFull)
                    break;
                continue;
            }
        }
        const QString destination = uniqueFilename(source, destinationFolder, fileType, fileNaming);
        if (toPlayer) {
            const QString stem = QFileInfo(source).completeBaseName();
            if (FileNames::fatSafeName(stem) != stem) {
                const QString line = QStringLiteral("%1 is called %2 on the player.")
                                         .arg(QFileInfo(source).fileName(), QFileInfo(destination).fileName());
                std::lock_guard lock(batch->mutex);
                batch->summary.renamed << line;
                if (job)
                    job->addMessage(line);
            }
        }
        const QString wav = AppPaths::uniqueIntermediate(cache, QStringLiteral("musiccache"), QStringLiteral("WAV"));
        QVariantMap exportRequest{{"sourcepath", source}, {"destinationpath", destination}, {"wavpath", wav}};
        if (hasFlashSettings)
            exportRequest.insert("flashpanelsettings", flashSettings);
        else if (type == QLatin1String("COPY") && naming.value("replace").toBool())
            exportRequest.insert("flashpanelsettings", QVariantMap{{"replace", true}});  // copies have no settings
        // Copies to a player run one after the other, so the room left is known before each.
        if (background_ && !toPlayer)
            exportRequest.insert("ripinbackground", true);
        if (cancel_ || !isServed(qPrintable(notification))) {
            // Nothing will write the name: give it back.
            FileNames::release(destination);
            if (cancel_)
                break;
            fail(source, QStringLiteral("no export job makes %1 files").arg(fileType));
            continue;
        }
        showProgress({{"savefilename", QFileInfo(destination).fileName()}});
        if (dispatchHandler_)
            dispatchHandler_(source, destination);
        // The export job releases the reserved name when it fails or is cancelled.
        postingBatch() = batch.get();
        NotificationCenter::defaultCenter().post(notification, exportRequest);
        postingBatch() = nullptr;
        if (job)
            job->setProgress(100.0 * (index + 1) / files.size());
    }
    {
        std::lock_guard lock(batch->mutex);
        batch->summary.stopped = cancel_;
        batch->dispatching = false;
    }
    batches_->ended(0);
}

QString MusicSourcesWrapper::uniqueFilename(const QString& source, const QString& folder, const QString& type,
                                            const QVariantMap& params)
{
    createDirectoriesAtPath(folder);
    const QString stem = QFileInfo(source).completeBaseName();
    if (params.value("fatnames").toBool()) {
        const QString playerStem = FileNames::fatSafeName(stem);
        return UniqueNames::claim(folder, FileNames::fitName(playerStem, '.' + type), playerStem, type,
                                  params.value("replace").toBool(), UniqueNames::Mode::Reserve,
                                  UniqueNames::Case::Insensitive);
    }
    return UniqueNames::claim(folder, FileNames::fitName(stem, '.' + type), stem, type,
                              params.value("replace").toBool());
}

void MusicSourcesWrapper::terminateSave()
{
    std::shared_ptr<Job> job;
    {
        std::lock_guard lock(mutex_);
        job = saveJob_;
    }
    // Cancelling the save job stops the save; its cancel handler does the rest.
    if (job)
        job->cancel();
    stopSaving();
}

void MusicSourcesWrapper::stopSaving()
{
    if (cancel_.exchange(true))
        return;
    // Requests already handed over may be waiting for a slot or encoding in the
    // background; their job's cancel stops them and removes what they began.
    const QString type = savingType();
    const QString cancelName = cancelNotificationFor(type);
    if (!cancelName.isEmpty())
        NotificationCenter::defaultCenter().post(cancelName);
}

QString MusicSourcesWrapper::cancelNotificationFor(const QString& formatKey)
{
    static const QHash<QString, QString> names = {
        {"MP3", VLMP3ExportCancelNotification}, {"MP2", VLMP2ExportCancelNotification},
        {"OGG", VLOGGExportCancelNotification}, {"WMA", VLWMAExportCancelNotification},
        {"AAC", VLAACExportCancelNotification}, {"M4A", VLAACExportCancelNotification},
        {"M4B", VLAACExportCancelNotification}, {"M4R", VLAACExportCancelNotification},
        {"WAV", VLWAVExportCancelNotification}};
    return names.value(formatKey);
}

QString MusicSourcesWrapper::savingType() const
{
    std::lock_guard lock(mutex_);
    return savingType_;
}

void MusicSourcesWrapper::burnCDDispatcher(const QString& kindTitle, const Selection& selection)
{
    if (kindTitle == QLatin1String("Burn Audio CD"))
        burnAudioCD(selection);
    else if (kindTitle == QLatin1String("Burn Music CD/DVD"))
        burnOpticalMedia(selection);
    else if (kindTitle == QLatin1String("Burn MP3 CD/DVD"))
        burnMP3OpticalMedia(selection);
    else if (kindTitle == QLatin1String("Burn DVD-Audio"))
        burnAudioDVD(selection);
}

void MusicSourcesWrapper::burnCDSetFormat(const QString& kindTitle)
{
    Defaults::standard().setObject(QStringLiteral("mBurnCDFormatPopup"), kindTitle);
    Defaults::standard().synchronize();
}

void MusicSourcesWrapper::burnAudioCD(const Selection& selection)
{
    const QVariantMap gathered = getSelectedFileNames(selection, &cancel_);
    NotificationCenter::defaultCenter().post(VLBurnAudioCDWithArrayNotification, gathered.value("selectedfiles"));
}

void MusicSourcesWrapper::burnAudioDVD(const Selection& selection)
{
    const QVariantMap gathered = getSelectedFileNames(selection, &cancel_);
    NotificationCenter::defaultCenter().post(VLBurnAudioDVDWithArrayNotification, gathered.value("selectedfiles"));
}

void MusicSourcesWrapper::burnOpticalMedia(const Selection& selection)
{
    const QVariantMap gathered = getSelectedFileNames(selection, &cancel_);
    // The M3U files of the playlists chosen go onto the disc beside their songs.
    QStringList playlists;
    for (const Source& source : selection) {
        const QString playlist = source.entry.value("playlistpath").toString();
        if (source.kind == Source::PlaylistEntry && !playlist.isEmpty() && !playlists.contains(playlist))
            playlists << playlist;
    }
    const QVariantMap request{{"selectedfiles", gathered.value("selectedfiles")},
                              {"destinationpaths", gathered.value("destinationpaths")},
                              {"m3uplaylists", playlists},
                              {"cdtitle", QStringLiteral("Velmora")},
                              {"makemp3ifneeded", bool(mp3Only_)}};
    NotificationCenter::defaultCenter().post(VLConvertMediaIfNeededNotification, request);
    NotificationCenter::defaultCenter().post(VLBurnOpticalMediaWithDictionaryNotification, request);
}

void MusicSourcesWrapper::burnMP3OpticalMedia(const Selection& selection)
{
    mp3Only_ = true;
    burnOpticalMedia(selection);
    mp3Only_ = false;
}

void MusicSourcesWrapper::copyToFlash(const Selection& selection)
{
    emit progressSheetShown();
    showProgress(searchingProgress());
    startWorker(makeCancellableJob(QStringLiteral("Gathering files for the flash player"), [this, selection](Job& job) {
        saving_ = true;
        showProgress(searchingProgress(), &job);
        const QVariantMap gathered = getSelectedFileNames(selection, &cancel_);
        emit progressSheetEnded(1);
        saving_ = false;
        if (!cancel_)
            NotificationCenter::defaultCenter().post(
                VLV20CopyToFlashSetupNotification,
                QVariantMap{{"selectedfiles", gathered.value("selectedfiles")},
                            {"destinationpaths", gathered.value("destinationpaths")}});
    }));
}

void MusicSourcesWrapper::vlCopyToFlashV20Notification(const QVariantMap& request)
{
    emit progressSheetShown();
    makeCancellableJob(QStringLiteral("Copying files to the flash player"), [this, request](Job& job) {
        showProgress(savingProgress(), &job);
        saveFiles(request, &job);
    })->run();
    emit progressSheetEnded(1);
}

bool MusicSourcesWrapper::isServed(const char* notificationName)
{
    return NotificationCenter::defaultCenter().observerCount(notificationName) > 0;
}

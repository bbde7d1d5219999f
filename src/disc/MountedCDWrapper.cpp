#include "disc/MountedCDWrapper.h"

#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "disc/DiscFolder.h"
#include "disc/DiscID.h"
#include "disc/DiscImage.h"
#include "platform/AppPaths.h"

#include <QDir>
#include <QFileInfo>

#include <QtConcurrent>
#include <algorithm>

mounted_cd_wrapper::mounted_cd_wrapper(std::unique_ptr<CdDriveAdapter> drives, Options options, QObject* parent)
    : QObject(parent), drives_(std::move(drives)), options_(std::move(options)),
      folder_(options_.folder.isEmpty() ? AppPaths::workingFolder() : options_.folder)
{
    connect(&scan_, &QFutureWatcher<QList<DriveReading>>::finished, this, &mounted_cd_wrapper::takeScan);
    connect(drives_.get(), &CdDriveAdapter::mediaChanged, this, [this] {
        if (watching_)
            scanDrives();
    });
}

mounted_cd_wrapper::~mounted_cd_wrapper()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    // Workers hand their discs to this object: they must have ended first.
    scan_.waitForFinished();
    for (const std::shared_ptr<Job>& job : jobs_)
        job->wait();
    for (QFuture<void>& eject : ejects_)
        eject.waitForFinished();
    for (Disc& disc : discs_) {
        delete disc.wrapper;
        DiscFolder::remove(disc.prepared.cdpath);
    }
    // Folders of discs read but never taken in.
    std::lock_guard lock(pendingMutex_);
    for (const QString& folder : pending_)
        DiscFolder::remove(folder);
}

void mounted_cd_wrapper::awakeFromNib()
{
    NotificationCenter::defaultCenter().addObserver(this, VLDidLaunchNotification,
                                                    [this](const Notification&) { findMountedAudioCDs(); });
}

void mounted_cd_wrapper::findMountedAudioCDs()
{
    AppPaths::makePrivateFolder(folder_);
    DiscFolder::removeAbandoned(folder_);
    scanQuietly_ = !watching_;
    watching_ = true;
    drives_->startMonitoring();
    scanDrives();
}

void mounted_cd_wrapper::scanDrives()
{
    if (scanning_) {
        rescan_ = true;
        return;
    }
    scanning_ = true;
    CdDriveAdapter* drives = drives_.get();
    scan_.setFuture(QtConcurrent::run([drives] {
        QList<DriveReading> readings;
        for (const QString& device : drives->drives()) {
            DriveReading reading{device, drives->readDisc(device), {}};
            if (reading.table && reading.table->hasAudio())
                reading.toc = reading.table->toc();
            readings << reading;
        }
        return readings;
    }));
}

void mounted_cd_wrapper::takeScan()
{
    const QList<DriveReading> readings = scan_.result();
    const bool notify = !scanQuietly_;
    scanQuietly_ = false;
    // A disc that has gone, been changed for another, or left with its drive is unmounted first.
    for (qsizetype i = 0; i < discs_.size();) {
        const PreparedDisc& known = discs_[i].prepared;
        const auto reading = std::find_if(readings.begin(), readings.end(),
                                          [&](const DriveReading& r) { return r.device == known.source; });
        const bool gone = known.kind == DiscSource::Drive &&
                          (reading == readings.end() ? known.foundByScan : reading->toc != known.toc);
        if (gone)
            unmount(i);
        else
            ++i;
    }
    for (const DriveReading& reading : readings) {
        if (reading.toc.isEmpty() || isOpen(reading.device))
            continue;
        QString error;
        std::optional<PreparedDisc> disc = prepareDisc(reading.device, *reading.table, folder_, &error);
        if (!disc) {
            emit openFailed(reading.device,
                            QStringLiteral("Cannot read the disc in %1: %2").arg(reading.device, error));
            continue;
        }
        disc->foundByScan = true;
        mount(*disc, notify);
    }
    scanning_ = false;
    emit drivesScanned();
    if (rescan_) {
        rescan_ = false;
        scanDrives();
    }
}

std::shared_ptr<Job> mounted_cd_wrapper::openImage(const QString& cuePath)
{
    return open(QFileInfo(cuePath).absoluteFilePath(), DiscSource::Image);
}

std::shared_ptr<Job> mounted_cd_wrapper::openDrive(const QString& device)
{
    return open(device, DiscSource::Drive);
}

std::shared_ptr<Job> mounted_cd_wrapper::open(const QString& source, DiscSource kind)
{
    const bool image = kind == DiscSource::Image;
    const QString title = image ? QStringLiteral("Opening the disc image %1").arg(source)
                                : QStringLiteral("Reading the disc in %1").arg(source);
    const QString prefix = image ? QStringLiteral("Cannot open the disc image %1: ").arg(source)
                                 : QStringLiteral("Cannot read the disc in %1: ").arg(source);
    if (isOpen(source)) {
        const QString message = prefix + QStringLiteral("it is open already");
        auto job = Job::create(title, [message](Job&) { return JobResult::failed(message); });
        job->run();
        emit openFailed(source, message);
        return job;
    }
    AppPaths::makePrivateFolder(folder_);
    opening_.insert(source);
    CdDriveAdapter* drives = drives_.get();
    const QString folder = folder_;
    auto job = Job::create(title, [this, source, kind, drives, folder, prefix](Job& job) {
        QString error;
        std::optional<PreparedDisc> disc;
        job.setProgress(-1, QStringLiteral("Reading the table of contents"));
        if (kind == DiscSource::Image) {
            disc = prepareImage(source, folder, &error);
        } else if (std::optional<DiscTable> table = drives->readDisc(source); !table) {
            error = QStringLiteral("there is no disc in the drive");
        } else if (!table->hasAudio()) {
            error = QStringLiteral("the disc holds no audio track");
        } else {
            disc = prepareDisc(source, *table, folder, &error);
        }
        if (disc)
            keepPending(disc->cdpath);
        QMetaObject::invokeMethod(
            this,
            [this, source, disc, message = prefix + error] {
                opening_.remove(source);
                if (disc && takePending(disc->cdpath)) {
                    mount(*disc, true);
                    emit opened(source, disc->cdpath);
                } else {
                    emit openFailed(source, message);
                }
            },
            Qt::QueuedConnection);
        return disc ? JobResult::succeeded({disc->cdpath}) : JobResult::failed(prefix + error);
    });
    jobs_.removeIf([](const std::shared_ptr<Job>& done) { return done->state() == Job::State::Finished; });
    jobs_ << job;
    job->start();
    return job;
}

std::optional<mounted_cd_wrapper::PreparedDisc> mounted_cd_wrapper::prepareImage(const QString& cuePath,
                                                                                 const QString& folder, QString* error)
{
    const std::optional<DiscImage> image = DiscImage::open(cuePath, error);
    if (!image)
        return std::nullopt;
    const QString cdpath = DiscFolder::create(folder, image->sheet().title, error);
    if (cdpath.isEmpty())
        return std::nullopt;
    // libcdio reads a copy of the cue sheet that names the BIN its way; so does
    // cd-paranoia when the track files send it there.
    const QString readable = image->writeReadableCopy(cdpath, error);
    std::optional<DiscTable> table;
    if (!readable.isEmpty())
        table = readDiscTable(readable, DiscSource::Image, error);
    if (table)
        image->addCdText(*table);
    if (!table || !DiscFolder::writeTracks(cdpath, *table, readable, error)) {
        DiscFolder::remove(cdpath);
        return std::nullopt;
    }
    table->source = cuePath;
    return PreparedDisc{cdpath, cuePath, DiscSource::Image, *table, table->toc()};
}

std::optional<mounted_cd_wrapper::PreparedDisc> mounted_cd_wrapper::prepareDisc(const QString& device, DiscTable table,
                                                                                const QString& folder, QString* error)
{
    const QString cdpath = DiscFolder::create(folder, table.title, error);
    if (cdpath.isEmpty())
        return std::nullopt;
    if (!DiscFolder::writeTracks(cdpath, table, device, error)) {
        DiscFolder::remove(cdpath);
        return std::nullopt;
    }
    const QByteArray toc = table.toc();
    return PreparedDisc{cdpath, device, DiscSource::Drive, std::move(table), toc};
}

void mounted_cd_wrapper::mount(const PreparedDisc& prepared, bool notify)
{
    QByteArray query;
    cd_discid_main(prepared.toc, query);
    Disc disc;
    disc.prepared = prepared;
    disc.description = {
        {"cdpath", prepared.cdpath}, {"freedbtitle", prepared.cdpath}, {"discid", QString::fromLatin1(query)}};
    if (options_.lookUp) {
        disc.wrapper = new FreeDBWrapper(prepared.cdpath, this, options_.freedb, this);
        disc.description.insert("freedbwrapper", QVariant::fromValue<QObject*>(disc.wrapper));
    }
    discs_.append(disc);
    if (notify)
        post(VLMountCDType, disc.description);
    emit discsChanged();
    if (disc.wrapper)
        askFreeDB(disc.wrapper, disc.description.value("discid").toString());
}

void mounted_cd_wrapper::askFreeDB(FreeDBWrapper* wrapper, const QString& query)
{
    if (!wrapper->isBusy()) {
        wrapper->getFreeDBInfo(query);
        return;
    }
    // A new client first fetches the server list when none is stored; the
    // query waits for it rather than be refused.
    auto connection = std::make_shared<QMetaObject::Connection>();
    *connection = connect(wrapper, &FreeDBWrapper::requestEnded, this, [wrapper, query, connection] {
        if (wrapper->isBusy())
            return;
        QObject::disconnect(*connection);
        wrapper->getFreeDBInfo(query);
    });
}

void mounted_cd_wrapper::eject(const QString& cdpath)
{
    const qsizetype index = indexOf(cdpath);
    if (index < 0)
        return;
    const PreparedDisc disc = discs_[index].prepared;
    unmount(index);
    if (disc.kind == DiscSource::Drive) {
        // Ejecting waits for the drive; the next reading of the drives follows it.
        ejects_.removeIf([](const QFuture<void>& done) { return done.isFinished(); });
        ejects_ << QtConcurrent::run([drives = drives_.get(), device = disc.source] { drives->eject(device); });
    }
}

void mounted_cd_wrapper::unmount(qsizetype index)
{
    Disc disc = discs_.takeAt(index);
    post(VLUnmountCDType, {{"cdpath", disc.prepared.cdpath}});
    if (disc.wrapper)
        disc.wrapper->deleteLater();
    DiscFolder::remove(disc.prepared.cdpath);
    emit discsChanged();
}

void mounted_cd_wrapper::reply(const QString& name, const QVariant& object)
{
    if (name == QLatin1String(VLHaveAlbumsInfoNotification))
        vlHaveAlbumsInfoReply(object.toList());
    else if (name == QLatin1String(VLHaveCDInfoNotification))
        vlHaveCDInfoReply(object.toList());
}

void mounted_cd_wrapper::vlHaveAlbumsInfoReply(const QVariantList& albums)
{
    if (albums.isEmpty())
        return;
    const QVariantMap first = albums.first().toMap();
    const qsizetype index = indexOf(first.value("cdpath").toString());
    if (index < 0)
        return;
    QVariantMap& description = discs_[index].description;
    description.insert("freedbtitle", first.value("title"));
    description.insert("mFreeDBAlbumList", albums);
    post(VLHaveAlbumsInfoType, description);
    emit discsChanged();
}

void mounted_cd_wrapper::vlHaveCDInfoReply(const QVariantList& info)
{
    if (info.isEmpty())
        return;
    const qsizetype index = indexOf(info.first().toMap().value("cdpath").toString());
    if (index < 0)
        return;
    QVariantMap& description = discs_[index].description;
    description.insert("mFreeDBTrackList", info);
    post(VLHaveCDInfoType, description);
    emit discsChanged();
}

void mounted_cd_wrapper::post(const char* type, const QVariantMap& object)
{
    NotificationCenter::defaultCenter().post(VLMountedCDWrapperNotification,
                                             QVariantMap{{"notificationtype", type}, {"object", object}});
}

QVariantList mounted_cd_wrapper::descriptions() const
{
    QVariantList list;
    for (const Disc& disc : discs_)
        list << disc.description;
    return list;
}

QVariantMap mounted_cd_wrapper::description(const QString& cdpath) const
{
    const qsizetype index = indexOf(cdpath);
    return index < 0 ? QVariantMap() : discs_[index].description;
}

FreeDBWrapper* mounted_cd_wrapper::freeDBWrapper(const QString& cdpath) const
{
    const qsizetype index = indexOf(cdpath);
    return index < 0 ? nullptr : discs_[index].wrapper;
}

std::optional<DiscTable> mounted_cd_wrapper::table(const QString& cdpath) const
{
    const qsizetype index = indexOf(cdpath);
    if (index < 0)
        return std::nullopt;
    return discs_[index].prepared.table;
}

QString mounted_cd_wrapper::sourceOf(const QString& cdpath) const
{
    const qsizetype index = indexOf(cdpath);
    return index < 0 ? QString() : discs_[index].prepared.source;
}

bool mounted_cd_wrapper::isDiscFolder(const QString& path) const
{
    return indexOf(QDir::cleanPath(QFileInfo(path).absoluteFilePath())) >= 0;
}

qsizetype mounted_cd_wrapper::indexOf(const QString& cdpath) const
{
    for (qsizetype i = 0; i < discs_.size(); ++i) {
        if (discs_[i].prepared.cdpath == cdpath)
            return i;
    }
    return -1;
}

bool mounted_cd_wrapper::isOpen(const QString& source) const
{
    const QString canonical = QFileInfo(source).canonicalFilePath();
    auto same = [&](const QString& other) {
        return other == source || (!canonical.isEmpty() && QFileInfo(other).canonicalFilePath() == canonical);
    };
    for (const QString& other : opening_) {
        if (same(other))
            return true;
    }
    for (const Disc& disc : discs_) {
        if (same(disc.prepared.source))
            return true;
    }
    return false;
}

void mounted_cd_wrapper::keepPending(const QString& folder)
{
    std::lock_guard lock(pendingMutex_);
    pending_.insert(folder);
}

bool mounted_cd_wrapper::takePending(const QString& folder)
{
    std::lock_guard lock(pendingMutex_);
    return pending_.remove(folder);
}

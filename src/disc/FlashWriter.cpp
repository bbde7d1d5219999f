#include "disc/FlashWriter.h"

#include "core/Defaults.h"
#include "core/Job.h"
#include "core/MyController.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "platform/ChildProcess.h"
#include "platform/FileNames.h"
#include "platform/ResourceLocator.h"
#include "platform/SafeFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>

#include <cerrno>
#include <fcntl.h>
#include <cstring>
#include <unistd.h>

namespace {

constexpr qint64 kMegabyte = 1048576;
// Room kept free beyond a file's own size: its directory entries and clusters.
constexpr qint64 kSlackBytes = 256 * 1024;
// FAT stores a file's size in 32 bits.
constexpr qint64 kFatLargestFile = 0xFFFFFFFFLL;

QString megabytes(qint64 bytes)
{
    return QString::number(bytes / kMegabyte);
}

// A FAT volume label: at most 11 bytes, without the characters FAT refuses there.
QString fatLabel(const QString& name)
{
    static const QString refused = QStringLiteral("\"*+,./:;<=>?[\\]|");
    QString label;
    for (const QChar c : name) {
        const QString next = label + (c.unicode() < 0x20 || refused.contains(c) ? QChar(u'_') : c);
        if (next.toUtf8().size() > 11)
            break;
        label = next;
    }
    return label.trimmed().isEmpty() ? QStringLiteral("PLAYER") : label;
}

// Makes an empty file that was not there (never through a link).
bool createExclusive(const QString& path)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd < 0)
        return false;
    ::close(fd);
    return true;
}

// A re-encode of one file by LAME, into a name of its own beside the target,
// renamed over the target only once LAME has finished it.
class LameCopyTask : public FlashCopyTask {
public:
    LameCopyTask(std::unique_ptr<ChildProcess> lame, QString partial, QString target, QString source)
        : lame_(std::move(lame)), partial_(std::move(partial)), target_(std::move(target)), source_(std::move(source))
    {
    }
    ~LameCopyTask() override
    {
        terminate();
        waitForExit();
    }
    bool waitForExit() override
    {
        std::lock_guard lock(waitMutex_);
        if (ended_)
            return succeeded_;
        ended_ = true;
        const int code = lame_->waitForExit();
        const QByteArray partial = QFile::encodeName(partial_);
        if (code != 0 || QFileInfo(partial_).size() == 0) {
            ::unlink(partial.constData());
            error_ = lame_->wasTerminated()
                         ? QStringLiteral("%1 was not copied: the copy was stopped.").arg(QFileInfo(source_).fileName())
                         : QStringLiteral("%1 could not be re-encoded onto the player (lame exit code %2).")
                               .arg(QFileInfo(source_).fileName())
                               .arg(code);
            return false;
        }
        if (::rename(partial.constData(), QFile::encodeName(target_).constData()) != 0) {
            error_ = QStringLiteral("%1 could not be put on the player: %2")
                         .arg(QFileInfo(target_).fileName(), QString::fromLocal8Bit(std::strerror(errno)));
            ::unlink(partial.constData());
            return false;
        }
        succeeded_ = true;
        return true;
    }
    void terminate() override { lame_->terminate(); }
    QString errorString() const override { return error_; }

private:
    std::unique_ptr<ChildProcess> lame_;
    QString partial_, target_, source_, error_;
    std::mutex waitMutex_;
    bool ended_ = false;
    bool succeeded_ = false;
};

} // namespace

const QStringList& FlashWriter::settingKeys()
{
    static const QStringList keys = {"erase", "replace", "dontput", "whenpossible", "quality", "mono", "converttomp3"};
    return keys;
}

FlashWriter::FlashWriter(VolumeMonitor& monitor, QObject* parent) : QObject(parent), monitor_(monitor)
{
    workers_.setMaxThreadCount(2);
}

FlashWriter::~FlashWriter()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    erasingMediaPanelCancel();
    waitForWorkers();
}

void FlashWriter::waitForWorkers()
{
    workers_.waitForDone();
}

void FlashWriter::awakeFromNib()
{
    mAllMountedVolumes.clear();
    mMountedVolumes.clear();
    selected_ = -1;
    for (const RemovableVolume& volume : monitor_.volumes()) {
        mAllMountedVolumes << volume.mountPoint;
        if (volume.kind() == QLatin1String("msdos"))
            mMountedVolumes << volume.mountPoint;
    }
    connect(&monitor_, &VolumeMonitor::volumeMounted, this, &FlashWriter::workspaceMountObserver);
    connect(&monitor_, &VolumeMonitor::volumeUnmounted, this, &FlashWriter::workspaceUnmountObserver);
    auto& center = NotificationCenter::defaultCenter();
    center.addObserver(this, VLV20CopyToFlashSetupNotification, [this](const Notification& n) {
        const QVariantMap selection = n.object.toMap();
        // The Music tab posts from its gathering thread; the sheet belongs to the main thread.
        QMetaObject::invokeMethod(this, [this, selection] { vlV20CopyToFlashSetupNotification(selection); },
                                  Qt::AutoConnection);
    });
    center.addObserver(this, VLLameFoundNewNotification, [this](const Notification& n) {
        std::lock_guard lock(mutex_);
        lamePath_ = n.object.toMap().value(QStringLiteral("lamepath")).toString();
    });
    publishVolumes();
}

bool FlashWriter::isOnMountedPlayer(const QString& path) const
{
    std::lock_guard lock(volumesMutex_);
    return std::any_of(playerPaths_.cbegin(), playerPaths_.cend(),
                       [&](const QString& volume) { return path == volume || path.startsWith(volume + '/'); });
}

void FlashWriter::publishVolumes()
{
    {
        std::lock_guard lock(volumesMutex_);
        playerPaths_ = mMountedVolumes;
    }
    emit volumesChanged();
}

void FlashWriter::workspaceMountObserver(const RemovableVolume& volume)
{
    if (!mAllMountedVolumes.contains(volume.mountPoint))
        mAllMountedVolumes << volume.mountPoint;
    if (volume.kind() == QLatin1String("msdos") && !mMountedVolumes.contains(volume.mountPoint))
        mMountedVolumes << volume.mountPoint;
    publishVolumes();
}

void FlashWriter::workspaceUnmountObserver(const QString& mountPoint)
{
    mAllMountedVolumes.removeAll(mountPoint);
    const qsizetype index = mMountedVolumes.indexOf(mountPoint);
    if (index >= 0) {
        mMountedVolumes.removeAt(index);
        if (selected_ == index || selected_ >= mMountedVolumes.size())
            selected_ = -1;
        else if (selected_ > index)
            --selected_;
    }
    publishVolumes();
}

QStringList FlashWriter::popupTitles() const
{
    QStringList titles;
    for (const QString& volume : mMountedVolumes)
        titles << QFileInfo(volume).fileName();
    return titles;
}

void FlashWriter::selectVolume(int index)
{
    selected_ = index >= 0 && index < mMountedVolumes.size() ? index : -1;
}

QString FlashWriter::selectedVolume() const
{
    if (mMountedVolumes.isEmpty())
        return {};
    return mMountedVolumes.value(selected_ >= 0 ? selected_ : 0);
}

QString FlashWriter::statusTextFor(const VolumeSpace& space)
{
    return QStringLiteral("Space available: %1mb.  Total capacity: %2mb.\nReady to write...")
        .arg(megabytes(space.freeBytes), megabytes(space.totalBytes));
}

QString FlashWriter::driveStatusText() const
{
    if (mMountedVolumes.isEmpty())
        return QString::fromLatin1(kWaitingStatus);
    return statusTextFor(VolumeMonitor::space(selectedVolume()));
}

FlashWriter::Refusal FlashWriter::playerRefusal(const QString& source, const QString& folder, qint64 freed)
{
    const QFileInfo info(source);
    if (info.size() > kFatLargestFile)
        return {QStringLiteral("%1 was not copied: a FAT player cannot hold a file over 4 GB.").arg(info.fileName())};
    const VolumeSpace space = VolumeMonitor::space(folder);
    if (space.freeBytes >= 0 && info.size() + kSlackBytes > space.freeBytes + freed)
        return {QStringLiteral("The player is full: %1 (%2 MB) does not fit in the %3 MB left. The copy stopped "
                               "before the player was full.")
                    .arg(info.fileName(), megabytes(info.size() + kMegabyte - 1), megabytes(space.freeBytes)),
                true};
    return {};
}

QVariantMap FlashWriter::flashPanelSettings()
{
    const QVariantMap stored = Defaults::standard().dictionaryForKey(QString::fromLatin1(kSettingsKey));
    QVariantMap settings;
    for (const QString& key : settingKeys())
        settings.insert(key, stored.value(key).toLongLong());
    return settings;
}

void FlashWriter::storeFlashPanelSettings(const QVariantMap& settings)
{
    QVariantMap stored;
    for (const QString& key : settingKeys())
        stored.insert(key, settings.value(key).toLongLong());
    Defaults::standard().setObject(QString::fromLatin1(kSettingsKey), stored);
    Defaults::standard().synchronize();
}

QStringList FlashWriter::getMP3Params(const QVariantMap& settings)
{
    QStringList params = {"--mp3input", "--abr"};
    switch (settings.value("quality").toInt()) {
    case 0: params << "32"; break;
    case 25: params << "48"; break;
    case 50: params << "64"; break;
    case 100: params << "128"; break;
    default: params << "96"; break;
    }
    if (settings.value("mono").toInt() == 1)
        params << "-a";
    return params;
}

QStringList FlashWriter::getOGGParams(const QVariantMap& settings)
{
    QStringList params;
    switch (settings.value("quality").toInt()) {
    case 0: params << "48"; break;
    case 25: params << "64"; break;
    case 75: params << "128"; break;
    case 100: params << "160"; break;
    default: params << "96"; break;
    }
    params << (settings.value("mono").toInt() != 0 ? "1" : "0");
    return params;
}

// ------------------------------------------------------------------ the sheet

void FlashWriter::setIgnoreInsert(bool ignore)
{
    if (!controller_)
        return;
    QMetaObject::invokeMethod(controller_, [controller = controller_, ignore] { controller->setMIgnoreInsert(ignore); },
                              Qt::AutoConnection);
}

void FlashWriter::beginSheet(Path path)
{
    path_ = path;
    setIgnoreInsert(true);
    mFlashPanelSettings = flashPanelSettings();
    emit setupSheetRequested();
}

void FlashWriter::closeSheet()
{
    path_ = Path::None;
    emit setupSheetClosed();
}

void FlashWriter::setSettings(const QVariantMap& settings)
{
    for (const QString& key : settingKeys())
        mFlashPanelSettings.insert(key, settings.value(key).toLongLong());
}

void FlashWriter::writeToFlashSetupPanelOK(const QVariantMap& settings)
{
    setSettings(settings);
    storeFlashPanelSettings(mFlashPanelSettings);
    if (path_ == Path::V20)
        writeToFlashSetupPanelDidEndV20(1);
    else
        writeToFlashSetupPanelDidEnd(1);
}

void FlashWriter::writeToFlashSetupPanelCancel()
{
    if (path_ == Path::V20)
        writeToFlashSetupPanelDidEndV20(0);
    else
        writeToFlashSetupPanelDidEnd(0);
}

void FlashWriter::writeToFlashSetupPanelEject()
{
    ejectVolume(selectedVolume());
}

void FlashWriter::ejectVolume(const QString& mountPoint)
{
    const auto volume = monitor_.volumeAt(mountPoint);
    if (!volume)
        return;
    const QString name = QFileInfo(volume->mountPoint).fileName();
    QPointer<FlashWriter> self(this);
    workers_.start([this, self, volume = *volume, name] {
        const JobResult result = Job::create(QStringLiteral("Ejecting %1").arg(name), [&](Job& job) {
            job.setProgress(-1, QStringLiteral("Unmounting and powering off %1").arg(name));
            const QString error = monitor_.unmountAndPowerOff(volume);
            return error.isEmpty() ? JobResult::succeeded() : JobResult::failed(error);
        })->run();
        if (!result.ok())
            QMetaObject::invokeMethod(this, [self, name, error = result.error] {
                if (self)
                    emit self->alert(QStringLiteral("%1 was not ejected").arg(name), error);
            }, Qt::QueuedConnection);
    });
}

// ------------------------------------------------------------ the newer path

void FlashWriter::vlV20CopyToFlashSetupNotification(const QVariantMap& selection)
{
    v20Selection_ = selection;
    writeToFlashV20();
}

void FlashWriter::writeToFlashV20()
{
    mUserDidCancelErase = false;
    beginSheet(Path::V20);
}

QVariantMap FlashWriter::copyRequest(const QVariantMap& selection, const QString& volume, const QVariantMap& settings)
{
    return {{"selectedfiles", selection.value("selectedfiles")},
            {"destinationpaths", selection.value("destinationpaths")},
            {"destinationfolder", volume},
            {"erase", settings.value("erase").toLongLong()},
            {"flashpanelsettings", settings},
            {"type", settings.value("converttomp3").toLongLong() != 0 ? QStringLiteral("MP3") : QStringLiteral("COPY")}};
}

void FlashWriter::writeToFlashSetupPanelDidEndV20(int returnCode)
{
    if (returnCode == 0) {
        closeSheet();
        setIgnoreInsert(false);
        NotificationCenter::defaultCenter().post(VLShouldCopyFilesNotification);
        return;
    }
    const QVariantMap request = copyRequest(v20Selection_, selectedVolume(), mFlashPanelSettings);
    closeSheet();
    workers_.start([this, request] { HandleWriteToFlashV20Thread(request); });
}

void FlashWriter::HandleWriteToFlashV20Thread(QVariantMap request)
{
    mUserDidCancelErase = false;
    bool erased = true;
    if (request.value("erase").toLongLong() == 1) {
        QString volume = request.value("destinationfolder").toString();
        erased = formatThisDisk(&volume);
        request.insert("destinationfolder", volume);
    }
    if (erased && !mUserDidCancelErase)
        NotificationCenter::defaultCenter().post(VLCopyToFlashV20Notification, request);
    setIgnoreInsert(false);
}

// -------------------------------------------------- the playlist stores' path

void FlashWriter::writeToFlash()
{
    mUserDidCancelErase = false;
    beginSheet(Path::Playlist);
}

void FlashWriter::writeToFlashSetupPanelDidEnd(int returnCode)
{
    if (returnCode > 1) {
        closeSheet();
        setIgnoreInsert(false);
        return;
    }
    if (returnCode == 0) {
        closeSheet();
        setIgnoreInsert(false);
        NotificationCenter::defaultCenter().post(VLShouldCopyFilesNotification);
        return;
    }
    const QVariantMap request{{"selecteddisk", selectedVolume()},
                              {"formatdisk", mFlashPanelSettings.value("erase").toLongLong()}};
    closeSheet();
    workers_.start([this, request] { HandleWriteToFlashThread(request); });
}

void FlashWriter::HandleWriteToFlashThread(const QVariantMap& request)
{
    mUserDidCancelErase = false;
    QString volume = request.value("selecteddisk").toString();
    bool erased = true;
    if (request.value("formatdisk").toLongLong() != 0)
        erased = formatThisDisk(&volume);
    const QVariant answer = erased && !mUserDidCancelErase ? QVariant(volume) : QVariant();
    // The stores observe on the main thread, where their sheets are; the player's
    // mount notices, sent before the erase ended, reach it first.
    QPointer<FlashWriter> self(this);
    QMetaObject::invokeMethod(this, [self, answer] {
        if (self)
            NotificationCenter::defaultCenter().post(VLShouldCopyFilesNotification, answer);
    }, Qt::QueuedConnection);
    setIgnoreInsert(false);
}

// ------------------------------------------------------------------ erasing

bool FlashWriter::formatThisDisk(QString* volumePath)
{
    const auto volume = monitor_.volumeAt(*volumePath);
    const QString name = QFileInfo(*volumePath).fileName();
    QPointer<FlashWriter> self(this);
    QMetaObject::invokeMethod(this, [self, path = *volumePath] {
        if (self)
            emit self->erasingStarted(path);
    }, Qt::QueuedConnection);
    const JobResult result = Job::create(QStringLiteral("Erasing %1").arg(name), [&](Job& job) {
        const Job::CancelHook hook = job.onCancel([this] { erasingMediaPanelCancel(); });
        if (!volume)
            return JobResult::failed(QStringLiteral("%1 is no longer mounted.").arg(*volumePath));
        job.setProgress(50, QStringLiteral("Erasing %1").arg(*volumePath));
        const QString label = fatLabel(volume->label.isEmpty() ? name : volume->label);
        QString mountedAt;
        const QString error = monitor_.format(*volume, label, &mountedAt, [this](ChildProcess* child) {
            std::lock_guard lock(mutex_);
            mErasingMediaTask = child;
            if (child && mUserDidCancelErase)
                child->terminate();
        });
        if (mUserDidCancelErase)
            return JobResult::cancelled();
        if (!error.isEmpty())
            return JobResult::failed(error);
        if (!mountedAt.isEmpty())
            *volumePath = mountedAt;
        return JobResult::succeeded();
    })->run();
    QMetaObject::invokeMethod(this, [self, result, name] {
        if (!self)
            return;
        emit self->erasingEnded();
        if (result.outcome == JobResult::Outcome::Failed)
            emit self->alert(QStringLiteral("%1 was not erased").arg(name), result.error);
    }, Qt::QueuedConnection);
    return result.ok();
}

void FlashWriter::erasingMediaPanelCancel()
{
    mUserDidCancelErase = true;
    std::lock_guard lock(mutex_);
    if (mErasingMediaTask)
        mErasingMediaTask->terminate();
}

// ----------------------------------------------------------- copying one file

QString FlashWriter::lamePath() const
{
    std::lock_guard lock(mutex_);
    return lamePath_.isEmpty() ? ResourceLocator::pathForTool(QStringLiteral("lame")) : lamePath_;
}

FlashItemCopy FlashWriter::copyOneItemToFlash(const QString& source, const QString& folder)
{
    FlashItemCopy outcome;
    const QString name = QFileInfo(source).fileName();
    if (name.startsWith(QLatin1String("._"))) {
        outcome.didSucceed = outcome.skipped = true;
        return outcome;
    }
    const QString playerName = FileNames::fatSafeName(name);
    const QString target = folder + '/' + playerName;
    const auto removeCompanion = [&] { QFile::remove(folder + QStringLiteral("/._") + playerName); };
    const auto fail = [&](const QString& message, bool stop = false) {
        removeCompanion();
        outcome.didSucceed = false;
        outcome.stopCopying = stop;
        outcome.message = message;
        return outcome;
    };
    const auto playerGone = [&] { return !isOnMountedPlayer(folder); };

    const QFileInfo info(source);
    if (!info.isFile())
        return fail(QStringLiteral("%1 was not copied: the file is gone.").arg(source));
    if (playerGone())
        return fail(QStringLiteral("The player went away: %1 was not copied.").arg(name), true);
    if (!QFileInfo(folder).isDir() && !QDir().mkpath(folder))
        return fail(QStringLiteral("The folder %1 cannot be made on the player.").arg(folder));
    const bool replace = mFlashPanelSettings.value("replace").toLongLong() != 0;
    const bool exists = QFileInfo::exists(target) || FileNames::existsIgnoringCase(folder, playerName);
    if (exists && !replace) {
        removeCompanion();
        outcome.didSucceed = outcome.skipped = true;
        outcome.message = QStringLiteral("%1 is on the player already; it was left as it is.").arg(playerName);
        return outcome;
    }
    if (const Refusal refusal = playerRefusal(source, folder, exists ? QFileInfo(target).size() : 0);
        !refusal.message.isEmpty())
        return fail(refusal.message, refusal.playerFull);
    const QString renamed = playerName == name ? QString()
                                               : QStringLiteral("%1 is called %2 on the player.").arg(name, playerName);

    if (mFlashPanelSettings.value("whenpossible").toLongLong() != 0) {
        const QString extension = info.suffix().toLower();
        if (extension == QLatin1String("ogg")) {
            // Re-encoding Ogg files smaller was never done: they are left off the player.
            removeCompanion();
            outcome.didSucceed = outcome.skipped = true;
            outcome.message = QStringLiteral("%1 was not copied: Ogg files are not re-encoded smaller (untick "
                                             "\u201cCopy smaller\u201d to copy them as they are).")
                                  .arg(name);
            return outcome;
        }
        const QString lame = lamePath();
        if (extension == QLatin1String("mp3") && !lame.isEmpty()) {
            QString partial;
            for (int attempt = 0; attempt < 100 && partial.isEmpty(); ++attempt) {
                const QString candidate =
                    folder + QStringLiteral("/.velmora-%1-%2.part").arg(::getpid()).arg(attempt);
                if (createExclusive(candidate))
                    partial = candidate;
            }
            if (!partial.isEmpty()) {
                auto child = std::make_unique<ChildProcess>(lame, getMP3Params(mFlashPanelSettings)
                                                                      << source << partial);
                if (child->start()) {
                    removeCompanion();
                    outcome.task = std::make_shared<LameCopyTask>(std::move(child), partial, target, source);
                    outcome.message = renamed;
                    return outcome;
                }
                QFile::remove(partial);
            }
        }
    }

    SafeFile::Replacement file(target);
    QString error;
    if (!file.create() || !SafeFile::copyInto(source, file.fd(), &error) || !file.commit()) {
        const bool full = VolumeMonitor::space(folder).freeBytes < info.size() + kSlackBytes;
        const QString why = error.isEmpty() ? file.errorString() : error;
        if (playerGone())
            return fail(QStringLiteral("The player went away: %1 was not copied.").arg(name), true);
        if (full)
            return fail(QStringLiteral("The player is full: %1 was not copied.").arg(name), true);
        return fail(QStringLiteral("%1 was not copied: %2").arg(name, why));
    }
    removeCompanion();
    outcome.didSucceed = true;
    outcome.message = renamed;
    return outcome;
}

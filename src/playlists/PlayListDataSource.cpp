#include "playlists/PlayListDataSource.h"

#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "platform/ResourceLocator.h"
#include "playlists/FlashCopy.h"
#include "playlists/HPlayListDataSource.h"
#include "playlists/MediaDataSource.h"
#include "playlists/PlaylistFiles.h"
#include "playlists/XmlPlistReader.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QtConcurrent>

using namespace PlaylistFiles;

namespace {

// The content of a new playlist: the bundled "InitInfo" group.
QVariantMap initialPlaylist()
{
    const QString resource = ResourceLocator::pathForResource(QStringLiteral("InitInfo"));
    QString error;
    if (!resource.isEmpty()) {
        if (const auto value = XmlPlist::read(resource, &error); value && isGroupRecord(*value))
            return value->toMap();
    }
    qWarning("Velmora: the resource InitInfo is missing or broken (%s); the first playlist starts empty",
             qPrintable(error));
    return makeGroup(QString::fromLatin1(kRootGroupName), {});
}

QStringList listFolder(const QString& folder, const HPlayListDataSource* hidden)
{
    QStringList paths;
    for (const QString& relative : walk(folder)) {
        const QString path = appendingPathComponent(folder, relative);
        if (!hidden || !hidden->hideThisItem(path))
            paths.append(path);
    }
    return paths;
}

} // namespace

PlayListDataSource::PlayListDataSource(QObject* parent) : QObject(parent) {}

PlayListDataSource::~PlayListDataSource()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    if (copier_)
        copier_->cancel();
    workers_.waitForDone();
}

void PlayListDataSource::setFlashWriter(FlashWriting* writer)
{
    flashWriter_ = writer;
    copier_ = writer ? std::make_unique<PlaylistFlashCopier>(writer) : nullptr;
}

void PlayListDataSource::awakeFromNib()
{
    QFile::remove(playlistFolder() + QStringLiteral("/.DS_Store"));
    QDir().mkpath(appFolder());
    QDir().mkpath(playlistFolder());
    if (QDir(playlistFolder()).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot))
        writeGroup(playlistFolder() + QStringLiteral("/Playlist 1.cd3"), initialPlaylist());
    reloadData();

    auto& center = NotificationCenter::defaultCenter();
    center.addObserver(this, VLDidAddPlaylistNotification,
                       [this](const Notification& n) { vlDidAddPlaylistNotification(n.object.toString()); });
    center.addObserver(this, VLDidLaunchNotification, [this](const Notification&) {
        postPlaylistInfo();
        selectionDidChange();
    });
    center.addObserver(this, VLDidSelectMediaNotification, [this](const Notification&) { reloadData(); });
    center.addObserver(this, VLDidPreparseItunesNotification, [this](const Notification&) {
        reloadData();
        postPlaylistInfo();
    });
    if (hidden_)
        connect(hidden_, &HPlayListDataSource::changed, this, &PlayListDataSource::reloadData);
}

QStringList PlayListDataSource::allPlaylistFiles()
{
    return listFolder(playlistFolder(), nullptr) + listFolder(iTunesFolder(), nullptr);
}

void PlayListDataSource::reloadData()
{
    list_ = listFolder(playlistFolder(), hidden_) + listFolder(iTunesFolder(), hidden_);
    if (selectedRow_ >= list_.size())
        selectedRow_ = -1;
    emit reloaded();
}

QString PlayListDataSource::pathAt(int row) const
{
    return row >= 0 && row < list_.size() ? list_.at(row) : QString();
}

QString PlayListDataSource::nameAt(int row) const
{
    return displayName(pathAt(row));
}

bool PlayListDataSource::isCheckedAt(int row) const
{
    return media_ && row >= 0 && row < list_.size() && media_->isOnSelectedMedia(list_.at(row));
}

bool PlayListDataSource::isFromITunesAt(int row) const
{
    return QFileInfo(pathAt(row)).path().endsWith(QLatin1String("iTunes"));
}

void PlayListDataSource::selectRow(int row)
{
    selectedRow_ = row >= 0 && row < list_.size() ? row : -1;
    selectionDidChange();
}

void PlayListDataSource::selectionDidChange()
{
    if (selectedRow_ < 0 || selectedRow_ >= list_.size())
        return;
    const QString path = list_.at(selectedRow_);
    NotificationCenter::defaultCenter().post(VLDidSelectPlaylistNotification, path);
    if (pathExtension(path).toLower() == QLatin1String("xml")) {
        const QString converted = replacingPathExtension(path, QStringLiteral("cd3"));
        if (QFileInfo::exists(converted) && selectedRow_ < list_.size() && list_.at(selectedRow_) == path)
            list_[selectedRow_] = converted;
    }
}

void PlayListDataSource::postPlaylistInfo()
{
    NotificationCenter::defaultCenter().post(VLPlaylistInfoNotification,
                                             QVariantMap{{QStringLiteral("playlistarray"), list_}});
}

void PlayListDataSource::setNameAt(int row, const QString& name)
{
    if (row < 0 || row >= list_.size())
        return;
    const QString oldPath = list_.at(row);
    // Always into the playlist folder: renaming an imported playlist adopts it.
    const QString newPath = playlistFolder() + '/' + name + QStringLiteral(".cd3");
    if (lastPathComponent(newPath) == lastPathComponent(oldPath))
        return;
    // Never over another playlist of that name: the move fails and the old file stays.
    QString error;
    if (moveWithoutReplacing(oldPath, newPath, &error)) {
        if (media_)
            media_->fixupMedia(oldPath, newPath);
    } else {
        reportFailure(QStringLiteral("Renaming the playlist \u201c%1\u201d").arg(displayName(oldPath)), error);
    }
    reloadData();
    postPlaylistInfo();
    NotificationCenter::defaultCenter().post(VLDidSelectPlaylistNotification, newPath);
}

void PlayListDataSource::toggleCheckedAt(int row)
{
    if (row < 0 || row >= list_.size())
        return;
    const QString path = list_.at(row);
    if (media_)
        media_->setIsOnSelectedMedia(replacingPathExtension(path, QStringLiteral("cd3")));
    reloadData();
    auto& center = NotificationCenter::defaultCenter();
    center.post(VLDidSelectPlaylistNotification, path);
    center.post(VLNeedSizeNotification, path);
}

void PlayListDataSource::deletePlaylist()
{
    if (selectedRow_ < 0 || selectedRow_ >= list_.size())
        return;
    const QString path = list_.at(selectedRow_);
    QFile::remove(path);
    if (media_)
        media_->fixupMedia(path, QString());
    reloadData();
    selectionDidChange();
    postPlaylistInfo();
}

void PlayListDataSource::hidePlaylist()
{
    if (selectedRow_ < 0 || selectedRow_ >= list_.size())
        return;
    NotificationCenter::defaultCenter().post(VLDidHidePlaylistNotification, list_.at(selectedRow_));
}

void PlayListDataSource::vlDidAddPlaylistNotification(const QString& path)
{
    reloadData();
    // The lookup is made with the bare file name, so it only finds a row
    // whose entry is exactly that name.
    const int row = int(list_.indexOf(lastPathComponent(path)));
    if (row >= 0) {
        selectedRow_ = row;
        emit reloaded();
        selectionDidChange();
        emit scrollToRowRequested(row);
    }
    postPlaylistInfo();
}

void PlayListDataSource::copyPlayListToFlash()
{
    if (!flashWriter_) {
        emit alert(QString::fromLatin1(kFlashUnavailableTitle), QString::fromLatin1(kFlashUnavailableMessage));
        return;
    }
    NotificationCenter::defaultCenter().addObserver(
        this, VLShouldCopyFilesNotification, [this](const Notification& n) { vlShouldCopyFilesNotification(n.object); });
    copier_->reset();
    flashWriter_->writeToFlash();
}

void PlayListDataSource::vlShouldCopyFilesNotification(const QVariant& destination)
{
    NotificationCenter::defaultCenter().removeObserver(this, VLShouldCopyFilesNotification);
    if (destination.isNull() || destination.toString().isEmpty() || copyThread_.isRunning())
        return;
    if (selectedRow_ < 0 || selectedRow_ >= list_.size())
        return;
    copier_->reset();
    emit copyStarted();
    const QString folder = destination.toString();
    const QString playlist = list_.at(selectedRow_);
    QPointer<PlayListDataSource> self(this);
    copier_->onFile = [self, this](const QString& name) {
        QMetaObject::invokeMethod(this, [self, name] { if (self) emit self->copyingFile(name); }, Qt::QueuedConnection);
    };
    PlaylistFlashCopier* copier = copier_.get();
    copyThread_ = QtConcurrent::run(&workers_, [self, this, copier, folder, playlist] {
        copier->runAsJob(QStringLiteral("Copying %1 to the flash player").arg(displayName(playlist)), [&] {
            if (const auto group = readGroup(playlist))
                copier->copyPlaylistDict(*group, folder, QString());
        });
        QMetaObject::invokeMethod(this, [self] { if (self) emit self->copyFinished(); }, Qt::QueuedConnection);
    });
}

void PlayListDataSource::cancelWriteToFlash()
{
    if (copier_)
        copier_->cancel();
}

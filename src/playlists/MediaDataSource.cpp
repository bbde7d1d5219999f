#include "playlists/MediaDataSource.h"

#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "platform/FileNames.h"
#include "playlists/FlashCopy.h"
#include "playlists/PlaylistFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QtConcurrent>

using namespace PlaylistFiles;

MediaDataSource::MediaDataSource(QObject* parent) : QObject(parent) {}

MediaDataSource::~MediaDataSource()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    if (copier_)
        copier_->cancel();
    workers_.waitForDone();
}

void MediaDataSource::setFlashWriter(FlashWriting* writer)
{
    flashWriter_ = writer;
    copier_ = writer ? std::make_unique<PlaylistFlashCopier>(writer) : nullptr;
}

void MediaDataSource::awakeFromNib()
{
    QDir().mkpath(appFolder());
    QDir().mkpath(mediaFolder());
    if (QDir(mediaFolder()).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)) {
        // Empty files, made only where no file is (O_EXCL): they read as empty sets.
        for (const char* name : {"Flash 1.xml", "CD 1.xml"}) {
            const QString path = mediaFolder() + '/' + QLatin1String(name);
            if (!FileNames::reserve(path))
                reportFailure(QStringLiteral("Making the media set \u201c%1\u201d").arg(displayName(path)),
                              QStringLiteral("\u201c%1\u201d could not be created.").arg(path));
        }
    }
    reloadData();
    const QString firstSet = mediaFolder() + QStringLiteral("/CD 1.xml");
    if (QFileInfo::exists(firstSet)) {
        selectedPath_ = firstSet;
        selectedDictionary_ = readMediaSet(firstSet);
    }

    auto& center = NotificationCenter::defaultCenter();
    center.addObserver(this, VLDidAddMediaNotification,
                       [this](const Notification& n) { vlDidAddMediaNotification(n.object.toString()); });
    center.addObserver(this, VLDidLaunchNotification, [this](const Notification&) {
        runSelectionHandling();
        postGroupInfo();
    });
    center.addObserver(this, VLNeedSizeNotification, [this](const Notification&) { updateSelectedMediaSizeInUI(); });
    // New iTunes intermediates: the selected set may list some that now need converting.
    center.addObserver(this, VLDidCreateFileNotification, [this](const Notification&) { runSelectionHandling(); });
}

void MediaDataSource::reloadData()
{
    entries_ = walk(mediaFolder());
    emit reloaded();
}

QString MediaDataSource::nameAt(int row) const
{
    return row >= 0 && row < entries_.size() ? displayName(entries_.at(row)) : QString();
}

QString MediaDataSource::pathAt(int row) const
{
    return row >= 0 && row < entries_.size() ? appendingPathComponent(mediaFolder(), entries_.at(row)) : QString();
}

int MediaDataSource::selectedRow() const
{
    for (int row = 0; row < entries_.size(); ++row)
        if (pathAt(row) == selectedPath_)
            return row;
    return -1;
}

void MediaDataSource::selectRow(int row)
{
    if (row < 0 || row >= entries_.size()) {
        selectedPath_.clear();
        selectedDictionary_.clear();
        return;
    }
    selectedPath_ = pathAt(row);
    runSelectionHandling();
}

void MediaDataSource::runSelectionHandling()
{
    if (selectedPath_.isEmpty())
        return;
    selectedDictionary_ = readMediaSet(selectedPath_);
    auto& center = NotificationCenter::defaultCenter();
    center.post(VLConvertMediaIfNeededNotification, selectedDictionary_);
    center.post(VLDidSelectMediaNotification, selectedPath_);
    updateSelectedMediaSizeInUI();
}

void MediaDataSource::postGroupInfo()
{
    NotificationCenter::defaultCenter().post(VLPlayListGroupInfoNotification,
                                             QVariantMap{{QStringLiteral("playlistgrouparray"), entries_}});
}

void MediaDataSource::setNameAt(int row, const QString& name)
{
    if (row < 0 || row >= entries_.size())
        return;
    const QString oldPath = pathAt(row);
    const QString newPath = mediaFolder() + '/' + name + QStringLiteral(".xml");
    // Never over another set of that name: the move fails and the old file stays.
    QString error;
    if (!moveWithoutReplacing(oldPath, newPath, &error))
        reportFailure(QStringLiteral("Renaming the media set \u201c%1\u201d").arg(displayName(oldPath)), error);
    else if (selectedPath_ == oldPath)
        selectedPath_ = newPath;
    reloadData();
    postGroupInfo();
    NotificationCenter::defaultCenter().post(VLDidSelectMediaNotification, newPath);
}

bool MediaDataSource::isOnSelectedMedia(const QString& playlistPath) const
{
    return !selectedPath_.isEmpty() && mediaSetPlaylists(selectedDictionary_).contains(playlistPath);
}

void MediaDataSource::setIsOnSelectedMedia(const QString& playlistPath)
{
    if (selectedPath_.isEmpty())
        return;
    QStringList playlists = mediaSetPlaylists(selectedDictionary_);
    if (playlists.contains(playlistPath))
        playlists.removeAll(playlistPath);
    else
        playlists.append(playlistPath);
    QVariantMap updated = selectedDictionary_;
    updated.insert(QStringLiteral("playlists"), QVariantList(playlists.begin(), playlists.end()));
    // The tick boxes show what the file holds: nothing changes when it cannot be written.
    if (writeMediaSet(selectedPath_, updated))
        selectedDictionary_ = updated;
}

void MediaDataSource::fixupMedia(const QString& oldPath, const QString& newPath)
{
    for (const QString& entry : walk(mediaFolder())) {
        if (pathExtension(entry).toUpper() != QLatin1String("XML"))
            continue;
        const QString setPath = appendingPathComponent(mediaFolder(), entry);
        QVariantMap set = readMediaSet(setPath);
        QStringList playlists = mediaSetPlaylists(set);
        const qsizetype index = playlists.indexOf(oldPath);
        if (index < 0)
            continue;
        if (newPath.isNull())
            playlists.removeAt(index);
        else
            playlists[index] = newPath;
        set.insert(QStringLiteral("playlists"), QVariantList(playlists.begin(), playlists.end()));
        writeMediaSet(setPath, set);
    }
    runSelectionHandling();
}

void MediaDataSource::addMedia(const QString& chosenPath)
{
    QString path = chosenPath;
    if (pathExtension(path).toUpper() != QLatin1String("XML"))
        path += QStringLiteral(".xml");
    if (!writeMediaSet(path, QVariantMap{{QStringLiteral("playlists"), QVariantList()}}))
        return;
    auto& center = NotificationCenter::defaultCenter();
    center.post(VLDidChangeMediaNotification, path);
    center.post(VLDidAddMediaNotification, path);
    postGroupInfo();
}

void MediaDataSource::vlDidAddMediaNotification(const QString& path)
{
    reloadData();
    for (int row = 0; row < entries_.size(); ++row) {
        if (pathAt(row) == path) {
            selectRow(row);
            emit scrollToRowRequested(row);
            return;
        }
    }
}

void MediaDataSource::deleteMedia()
{
    removeSelectedMedia(VLDidSelectMediaNotification);
}

void MediaDataSource::deletePlaylist()
{
    // The same removal, announced as a playlist selection of the row then selected.
    removeSelectedMedia(VLDidSelectPlaylistNotification);
}

void MediaDataSource::removeSelectedMedia(const char* selectionNotification)
{
    const int row = selectedRow();
    if (row < 0)
        return;
    QFile::remove(selectedPath_);
    reloadData();
    if (row >= entries_.size()) {
        selectedPath_.clear();
        selectedDictionary_.clear();
        emit reloaded();
        return;
    }
    // The table keeps the row selected, which now shows the next set.
    selectedPath_ = pathAt(row);
    selectedDictionary_ = readMediaSet(selectedPath_);
    NotificationCenter::defaultCenter().post(selectionNotification, selectedPath_);
    postGroupInfo();
    updateSelectedMediaSizeInUI();
}

void MediaDataSource::playMedia()
{
    if (selectedPath_.isEmpty())
        return;
    QStringList leaves;
    for (const QString& playlist : mediaSetPlaylists(selectedDictionary_)) {
        if (const auto group = readGroup(playlist))
            gatherLeaves(*group, leaves);
    }
    NotificationCenter::defaultCenter().post(
        VLPlayPlaylistNotification,
        QVariantMap{{QStringLiteral("leafarray"), leaves}, {QStringLiteral("currentlyopenpath"), selectedPath_}});
}

std::optional<QStringList> MediaDataSource::getBurnArray() const
{
    if (selectedPath_.isEmpty())
        return std::nullopt;
    QStringList burn = mediaSetPlaylists(selectedDictionary_);
    burn.append(deletingPathExtension(selectedPath_));
    return burn;
}

void MediaDataSource::updateSelectedMediaSizeInUI()
{
    const int generation = ++sizeGeneration_;
    emit sizeChanged(QString());
    if (selectedPath_.isEmpty())
        return;
    const QStringList playlists = mediaSetPlaylists(selectedDictionary_);
    QPointer<MediaDataSource> self(this);
    sizeThread_ = QtConcurrent::run(&workers_, [self, playlists, generation, this] {
        qint64 total = 0;
        for (const QString& playlist : playlists) {
            QStringList leaves;
            if (const auto group = readGroup(playlist))
                gatherLeaves(*group, leaves);
            for (const QString& leaf : leaves)
                total += QFileInfo(leaf).size();
        }
        const qint64 megabytes = total >> 20;
        QMetaObject::invokeMethod(this, [self, generation, megabytes] {
            if (!self || generation != self->sizeGeneration_)
                return;
            self->lastSizeMegabytes_ = megabytes;
            emit self->sizeChanged(QStringLiteral("%1 MB").arg(megabytes));
        }, Qt::QueuedConnection);
    });
}

void MediaDataSource::waitForSize()
{
    sizeThread_.waitForFinished();
    QCoreApplication::sendPostedEvents(this);
}

void MediaDataSource::copyMediaToFlash()
{
    if (selectedPath_.isEmpty())
        return;
    if (!flashWriter_) {
        emit alert(QString::fromLatin1(kFlashUnavailableTitle), QString::fromLatin1(kFlashUnavailableMessage));
        return;
    }
    NotificationCenter::defaultCenter().addObserver(
        this, VLShouldCopyFilesNotification, [this](const Notification& n) { vlShouldCopyFilesNotification(n.object); });
    flashWriter_->writeToFlash();
}

void MediaDataSource::vlShouldCopyFilesNotification(const QVariant& destination)
{
    NotificationCenter::defaultCenter().removeObserver(this, VLShouldCopyFilesNotification);
    if (destination.isNull() || destination.toString().isEmpty() || copyThread_.isRunning())
        return;
    copier_->reset();
    emit copyStarted();
    const QString folder = destination.toString();
    const QStringList playlists = mediaSetPlaylists(selectedDictionary_);
    QPointer<MediaDataSource> self(this);
    copier_->onFile = [self, this](const QString& name) {
        QMetaObject::invokeMethod(this, [self, name] { if (self) emit self->copyingFile(name); }, Qt::QueuedConnection);
    };
    PlaylistFlashCopier* copier = copier_.get();
    copyThread_ = QtConcurrent::run(&workers_, [self, this, copier, folder, playlists] {
        copier->runAsJob(QStringLiteral("Copying a media set to the flash player"), [&] {
            for (const QString& playlist : playlists) {
                if (copier->isCancelled() || copier->isStopped())
                    break;
                const auto group = readGroup(playlist);
                if (!group)
                    continue;
                const QString name = FileNames::fatSafeName(displayName(playlist));
                QDir().mkpath(appendingPathComponent(folder, name));
                copier->copyPlaylistDict(*group, folder, name);
            }
        });
        QMetaObject::invokeMethod(this, [self] { if (self) emit self->copyFinished(); }, Qt::QueuedConnection);
    });
}

void MediaDataSource::cancelWriteToFlash()
{
    if (copier_)
        copier_->cancel();
}

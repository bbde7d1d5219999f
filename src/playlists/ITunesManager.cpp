#include "playlists/ITunesManager.h"

#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "core/PropertyList.h"
#include "platform/AppPaths.h"
#include "playlists/PlaylistFiles.h"
#include "playlists/XmlPlistReader.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QThread>
#include <QUrl>


#include <cstdio>

using namespace PlaylistFiles;

namespace {

const QStringList& acceptedExtensions()
{
    static const QStringList extensions{"mp3", "mp2", "wma", "flac", "ogg", "wav", "m4a", "mid",
                                        "midi", "kar", "m4b", "m4r", "aac", "m4p", "aif", "aiff"};
    return extensions;
}

} // namespace

iTunesManager::iTunesManager(QObject* parent) : QObject(parent), libraryPath_(defaultLibraryPath())
{
    serial_.setMaxThreadCount(1);
}

iTunesManager::~iTunesManager()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    serial_.waitForDone();
}

QString iTunesManager::defaultLibraryPath()
{
    return AppPaths::musicFolder() + QStringLiteral("/iTunes/iTunes Music Library.xml");
}

void iTunesManager::prepareFolders() const
{
    QDir().mkpath(appFolder());
    // Every launch starts from a clean iTunes folder.
    QFile::setPermissions(iTunesFolder(), QFileDevice::Permissions(0x7777));
    QDir(iTunesFolder()).removeRecursively();
    QDir().mkpath(iTunesFolder());
}

void iTunesManager::awakeFromNib()
{
    prepareFolders();
    serial_.start([this] {
        readLibrary();
        parsed_ = true;
    });
    auto& center = NotificationCenter::defaultCenter();
    center.addObserver(this, VLDidLaunchNotification, [this](const Notification&) { vlDidLaunchNotification(); });
    center.addObserver(this, VLDidSelectPlaylistNotification,
                       [this](const Notification& n) { vlDidSelectPlaylistNotification(n.object.toString()); });
    center.addObserver(this, VLConvertMediaIfNeededNotification,
                       [this](const Notification& n) { vlConvertMediaIfNeededNotification(n.object.toMap()); });
}

std::shared_ptr<const ITunesLibrary> iTunesManager::library() const
{
    std::lock_guard lock(libraryMutex_);
    return library_;
}

std::shared_ptr<const ITunesLibrary> iTunesManager::readLibrary(QString* error)
{
    std::shared_ptr<const ITunesLibrary> parsed;
    QString message;
    if (QFileInfo::exists(libraryPath_)) {
        if (auto library = ITunesLibrary::read(libraryPath_, &message))
            parsed = std::make_shared<const ITunesLibrary>(std::move(*library));
        else
            std::fprintf(stderr, "Velmora: the iTunes library %s could not be read: %s\n", qPrintable(libraryPath_),
                         qPrintable(message));
    } else {
        message = QStringLiteral("no iTunes library at %1").arg(libraryPath_);
    }
    if (error)
        *error = message;
    std::lock_guard lock(libraryMutex_);
    library_ = parsed;
    return parsed;
}

void iTunesManager::postOnMainThread(const QString& name, const QVariant& object)
{
    ++pendingMainThreadPosts_;
    QMetaObject::invokeMethod(this, [this, name, object] {
        NotificationCenter::defaultCenter().post(name, object);
        --pendingMainThreadPosts_;
    }, Qt::QueuedConnection);
}

void iTunesManager::waitForIdle()
{
    serial_.waitForDone();
    while (pendingMainThreadPosts_ > 0)
        QCoreApplication::sendPostedEvents(this);
}

QString iTunesManager::stringByReplacingSlashes(const QString& name)
{
    // The name's path components: a leading "/" is one of them, as is a trailing one.
    QStringList components;
    if (name.startsWith('/'))
        components.append(QStringLiteral("/"));
    for (const QString& part : name.split('/', Qt::SkipEmptyParts))
        components.append(part);
    if (name.size() > 1 && name.endsWith('/'))
        components.append(QStringLiteral("/"));
    if (components.isEmpty())
        return {};
    const QString last = components.takeLast();
    QString mapped;
    for (const QString& component : components)
        mapped += component + '-';
    return mapped + last;
}

bool iTunesManager::isAcceptedTrackPath(const QString& path)
{
    return acceptedExtensions().contains(pathExtension(path.toLower()));
}

QString iTunesManager::intermediatePathFor(const QString& name) const
{
    return appendingPathComponent(iTunesFolder(), stringByReplacingSlashes(name) + QStringLiteral(".xml"));
}

QStringList iTunesManager::createFiles(const ITunesLibrary& library) const
{
    QStringList written;
    for (const QVariant& item : library.playlists) {
        const QVariantMap playlist = item.toMap();
        const QString name = playlist.value(QStringLiteral("Name")).toString();
        const QString intermediate = intermediatePathFor(name);
        if (!PropertyList::write(intermediate, playlist.value(QStringLiteral("Playlist Items")).toList()))
            continue;
        written.append(intermediate);
        if (QFileInfo::exists(appendingPathComponent(iTunesFolder(), name + QStringLiteral(".cd3"))))
            convertItunesPlaylist(intermediate);
    }
    return written;
}

QStringList iTunesManager::entriesForItems(const QVariantList& items, const ITunesLibrary& library) const
{
    QStringList entries;
    for (const QVariant& item : items) {
        const QVariant trackId = item.toMap().value(QStringLiteral("Track ID"));
        if (!trackId.isValid())
            continue;
        const auto location = library.locations.constFind(trackId.toString());
        if (location == library.locations.constEnd())
            continue;
        const QUrl url(*location);
        // Streams and other non-file locations name no file to burn or copy.
        if (!url.isLocalFile())
            continue;
        const QString path = url.path();
        if (isAcceptedTrackPath(path))
            entries.append(path);
    }
    return entries;
}

bool iTunesManager::convertItunesPlaylist(const QString& xmlPath) const
{
    const auto library = this->library();
    const auto items = XmlPlist::read(xmlPath);
    if (!items)
        return false;
    QStringList entries;
    if (library && items->typeId() == QMetaType::QVariantList)
        entries = entriesForItems(items->toList(), *library);
    QVariantList list;
    list.reserve(entries.size());
    for (const QString& entry : entries)
        list.append(entry);
    if (!writeGroup(replacingPathExtension(xmlPath, QStringLiteral("cd3")),
                    makeGroup(QString::fromLatin1(kRootGroupName), list)))
        return false;
    QFile::remove(xmlPath);
    return true;
}

bool iTunesManager::libraryChangedSince(const QString& path) const
{
    const QFileInfo libraryInfo(libraryPath_);
    const QFileInfo playlistInfo(path);
    return libraryInfo.exists() && playlistInfo.exists() && libraryInfo.lastModified() > playlistInfo.lastModified();
}

QString iTunesManager::convertSelection(const QString& selected)
{
    QString path = selected;
    const QString converted = replacingPathExtension(path, QStringLiteral("cd3"));
    if (libraryChangedSince(path)) {
        const auto library = readLibrary();
        const QString name = displayName(path);
        if (library) {
            for (const QVariant& item : library->playlists) {
                const QVariantMap playlist = item.toMap();
                const QString mapped = stringByReplacingSlashes(playlist.value(QStringLiteral("Name")).toString());
                if (mapped == name)
                    PropertyList::write(appendingPathComponent(iTunesFolder(), mapped + QStringLiteral(".xml")),
                                        playlist.value(QStringLiteral("Playlist Items")).toList());
            }
        }
        QFile::remove(converted);
        path = replacingPathExtension(path, QStringLiteral("xml"));
    }
    if (pathExtension(path).toLower() != QLatin1String("xml"))
        return {};
    if (!QFileInfo::exists(converted) && !convertItunesPlaylist(path))
        return {};
    return converted;
}

void iTunesManager::vlDidLaunchNotification()
{
    serial_.start([this] {
        if (const auto library = this->library())
            createFiles(*library);
        postOnMainThread(VLDidPreparseItunesNotification, QVariant());
        postOnMainThread(VLDidCreateFileNotification, QVariant());
    });
}

void iTunesManager::vlDidSelectPlaylistNotification(const QString& path)
{
    if (QFileInfo(path).dir().dirName() != QLatin1String("iTunes"))
        return;
    // With the library in hand and unchanged, a conversion is quick: do it
    // now, so that listeners already find the ".cd3" when they look.
    if (parsed_ && serial_.activeThreadCount() == 0 && !libraryChangedSince(path)) {
        const QString converted = convertSelection(path);
        if (!converted.isEmpty())
            NotificationCenter::defaultCenter().post(VLDidSelectPlaylistNotification, converted);
        return;
    }
    serial_.start([this, path] {
        const QString converted = convertSelection(path);
        if (!converted.isEmpty())
            postOnMainThread(VLDidSelectPlaylistNotification, converted);
    });
}

void iTunesManager::vlConvertMediaIfNeededNotification(const QVariantMap& mediaSet)
{
    QStringList intermediates;
    for (const QString& playlist : mediaSetPlaylists(mediaSet)) {
        const QString intermediate = replacingPathExtension(playlist, QStringLiteral("xml"));
        if (QFileInfo::exists(intermediate))
            intermediates.append(intermediate);
    }
    if (intermediates.isEmpty())
        return;
    if (parsed_ && serial_.activeThreadCount() == 0) {
        for (const QString& intermediate : intermediates)
            convertItunesPlaylist(intermediate);
        return;
    }
    serial_.start([this, intermediates] {
        for (const QString& intermediate : intermediates)
            convertItunesPlaylist(intermediate);
        // The playlists and the set's size changed behind the tables' backs.
        postOnMainThread(VLDidPreparseItunesNotification, QVariant());
        postOnMainThread(VLNeedSizeNotification, QVariant());
    });
}

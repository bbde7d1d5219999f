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
#include <QUrl>

#include <algorithm>

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
}

iTunesManager::~iTunesManager()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    // The jobs use this object: every one ends before it goes.
    const auto jobs = unfinishedJobs();
    for (const auto& job : jobs)
        job->cancel();
    for (const auto& job : jobs)
        job->wait();
}

QString iTunesManager::defaultLibraryPath()
{
    return AppPaths::musicFolder() + QStringLiteral("/iTunes/iTunes Music Library.xml");
}

bool iTunesManager::prepareFolders(QString* error) const
{
    QDir().mkpath(appFolder());
    // Every launch starts from a clean iTunes folder. A link in its place goes,
    // never the folder it points at.
    const QString folder = iTunesFolder();
    const QFileInfo info(folder);
    bool emptied = true;
    if (info.isSymLink())
        emptied = QFile::remove(folder);
    else if (info.exists())
        emptied = QDir(folder).removeRecursively();
    if (QDir().mkpath(folder) && emptied)
        return true;
    if (error)
        *error = QStringLiteral("The iTunes folder \u201c%1\u201d could not be emptied.").arg(folder);
    return false;
}

void iTunesManager::awakeFromNib()
{
    QString error;
    if (!prepareFolders(&error))
        reportFailure(QStringLiteral("Preparing the iTunes folder"), error);
    parseLibrary();
    auto& center = NotificationCenter::defaultCenter();
    center.addObserver(this, VLDidLaunchNotification, [this](const Notification&) { preparse(); });
    center.addObserver(this, VLDidSelectPlaylistNotification,
                       [this](const Notification& n) { vlDidSelectPlaylistNotification(n.object.toString()); });
    center.addObserver(this, VLConvertMediaIfNeededNotification,
                       [this](const Notification& n) { vlConvertMediaIfNeededNotification(n.object.toMap()); });
}

std::vector<std::shared_ptr<Job>> iTunesManager::unfinishedJobs()
{
    std::lock_guard lock(jobsMutex_);
    std::erase_if(jobs_, [](const std::shared_ptr<Job>& job) { return job->state() == Job::State::Finished; });
    return jobs_;
}

std::shared_ptr<Job> iTunesManager::enqueue(const QString& title, Job::Body body)
{
    std::shared_ptr<Job> job;
    {
        std::lock_guard lock(jobsMutex_);
        std::erase_if(jobs_, [](const std::shared_ptr<Job>& job) { return job->state() == Job::State::Finished; });
        // The parse first, then the rest in the order asked: each waits for every earlier one.
        job = Job::create(title, [before = jobs_, body = std::move(body)](Job& job) {
            for (const auto& earlier : before) {
                if (earlier->state() != Job::State::Finished)
                    job.setStatus(QStringLiteral("Waiting for the iTunes library"));
                earlier->wait();
            }
            return job.isCancelled() ? JobResult::cancelled() : body(job);
        });
        jobs_.push_back(job);
    }
    job->start();
    return job;
}

std::shared_ptr<Job> iTunesManager::parseLibrary()
{
    return enqueue(QStringLiteral("Reading the iTunes library"), [this](Job& job) {
        job.setStatus(libraryPath_);
        QString error;
        const bool present = QFileInfo::exists(libraryPath_);
        const auto library = readLibrary(&error);
        if (job.isCancelled()) {
            // Nothing is imported from a library the user stopped reading.
            std::lock_guard lock(libraryMutex_);
            library_.reset();
        }
        parsed_ = true;
        if (job.isCancelled())
            return JobResult::cancelled();
        return library || !present ? JobResult::succeeded() : JobResult::failed(error);
    });
}

std::shared_ptr<Job> iTunesManager::preparse()
{
    return enqueue(QStringLiteral("Importing the iTunes playlists"), [this](Job& job) {
        QStringList errors;
        if (const auto library = this->library())
            createFiles(*library, job, errors);
        postOnMainThread(VLDidPreparseItunesNotification, QVariant());
        postOnMainThread(VLDidCreateFileNotification, QVariant());
        if (job.isCancelled())
            return JobResult::cancelled();
        return errors.isEmpty() ? JobResult::succeeded() : JobResult::failed(errors.join('\n'));
    });
}

Job::Body iTunesManager::conversionBody(const QStringList& intermediates)
{
    return [this, intermediates](Job& job) {
        QStringList made;
        QStringList errors;
        for (qsizetype i = 0; i < intermediates.size() && !job.isCancelled(); ++i) {
            const QString& intermediate = intermediates.at(i);
            job.setProgress(100.0 * double(i) / double(intermediates.size()), displayName(intermediate));
            QString error;
            if (convertItunesPlaylist(intermediate, &error))
                made.append(replacingPathExtension(intermediate, QStringLiteral("cd3")));
            else
                errors.append(error);
        }
        if (job.isCancelled())
            return JobResult::cancelled(made);
        return errors.isEmpty() ? JobResult::succeeded(made) : JobResult::failed(errors.join('\n'), made);
    };
}

std::shared_ptr<Job> iTunesManager::convertPlaylists(const QStringList& intermediates)
{
    return enqueue(QStringLiteral("Converting iTunes playlists"), conversionBody(intermediates));
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
            message =
                QStringLiteral("The iTunes library \u201c%1\u201d could not be read: %2").arg(libraryPath_, message);
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
    for (;;) {
        for (const auto& job : unfinishedJobs())
            job->wait();
        QCoreApplication::sendPostedEvents(this);
        if (pendingMainThreadPosts_ == 0 && unfinishedJobs().empty())
            return;
    }
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

namespace {
// A playlist without an item list (folders, smart playlists never synced) has
// nothing to write: it gets no intermediate and so no playlist file.
std::optional<QVariantList> playlistItems(const QVariantMap& playlist)
{
    const QVariant items = playlist.value(QStringLiteral("Playlist Items"));
    if (items.typeId() != QMetaType::QVariantList)
        return std::nullopt;
    return items.toList();
}
} // namespace

QString iTunesManager::intermediatePathFor(const QString& name) const
{
    return appendingPathComponent(iTunesFolder(), stringByReplacingSlashes(name) + QStringLiteral(".xml"));
}

void iTunesManager::createFiles(const ITunesLibrary& library, Job& job, QStringList& errors) const
{
    const qsizetype total = library.playlists.size();
    for (qsizetype i = 0; i < total && !job.isCancelled(); ++i) {
        const QVariantMap playlist = library.playlists.at(i).toMap();
        const QString name = playlist.value(QStringLiteral("Name")).toString();
        job.setProgress(100.0 * double(i) / double(total), name);
        const auto items = playlistItems(playlist);
        if (!items)
            continue;
        const QString intermediate = intermediatePathFor(name);
        QString error;
        if (!PropertyList::write(intermediate, *items, &error)) {
            errors.append(error);
            continue;
        }
        if (QFileInfo::exists(appendingPathComponent(iTunesFolder(), name + QStringLiteral(".cd3"))) &&
            !convertItunesPlaylist(intermediate, &error))
            errors.append(error);
    }
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

bool iTunesManager::convertItunesPlaylist(const QString& xmlPath, QString* error) const
{
    QString message;
    const auto items = XmlPlist::read(xmlPath, &message);
    const auto library = this->library();
    if (!items)
        message = QStringLiteral("\u201c%1\u201d could not be read: %2").arg(xmlPath, message);
    else if (!library)
        message = QStringLiteral("The iTunes library is not at hand, so \u201c%1\u201d was not converted.")
                      .arg(displayName(xmlPath));
    if (!items || !library) {
        if (error)
            *error = message;
        return false;
    }
    QVariantList entries;
    if (items->typeId() == QMetaType::QVariantList) {
        for (const QString& entry : entriesForItems(items->toList(), *library))
            entries.append(entry);
    }
    // The intermediate stays until its playlist is written.
    if (!PropertyList::write(replacingPathExtension(xmlPath, QStringLiteral("cd3")),
                             makeGroup(QString::fromLatin1(kRootGroupName), entries), error))
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

QString iTunesManager::convertSelection(const QString& selected, QString* error)
{
    QString path = selected;
    const QString converted = replacingPathExtension(path, QStringLiteral("cd3"));
    if (libraryChangedSince(path)) {
        // The playlist made from the old library stays until the new one is written.
        QString message;
        auto fresh = ITunesLibrary::read(libraryPath_, &message);
        if (!fresh) {
            if (error)
                *error = QStringLiteral("The iTunes library \u201c%1\u201d could not be read: %2")
                             .arg(libraryPath_, message);
            return {};
        }
        const auto library = std::make_shared<const ITunesLibrary>(std::move(*fresh));
        {
            std::lock_guard lock(libraryMutex_);
            library_ = library;
        }
        const QString name = displayName(path);
        for (const QVariant& item : library->playlists) {
            const QVariantMap playlist = item.toMap();
            const QString mapped = stringByReplacingSlashes(playlist.value(QStringLiteral("Name")).toString());
            const auto items = playlistItems(playlist);
            if (mapped == name && items &&
                !PropertyList::write(appendingPathComponent(iTunesFolder(), mapped + QStringLiteral(".xml")), *items,
                                     error))
                return {};
        }
        QFile::remove(converted);
        path = replacingPathExtension(path, QStringLiteral("xml"));
        // A playlist no longer in the library has nothing to convert.
        if (!QFileInfo::exists(path))
            return {};
    }
    if (pathExtension(path).toLower() != QLatin1String("xml"))
        return {};
    if (!QFileInfo::exists(converted) && !convertItunesPlaylist(path, error))
        return {};
    return converted;
}

void iTunesManager::vlDidSelectPlaylistNotification(const QString& path)
{
    if (QFileInfo(path).dir().dirName() != QLatin1String("iTunes"))
        return;
    const bool changed = libraryChangedSince(path);
    // A converted playlist of an unchanged library is taken as it is.
    if (!changed && pathExtension(path).toLower() != QLatin1String("xml"))
        return;
    const QString title = QStringLiteral("Converting the iTunes playlist \u201c%1\u201d").arg(displayName(path));
    auto convert = [this, path](Job& job, QString* converted) {
        QString error;
        *converted = convertSelection(path, &error);
        if (!error.isEmpty())
            return JobResult::failed(error);
        return job.isCancelled() || converted->isEmpty() ? JobResult::succeeded() : JobResult::succeeded({*converted});
    };
    // With the library in hand and unchanged, a conversion is quick: do it
    // now, so that listeners already find the ".cd3" when they look.
    if (parsed_ && !changed && unfinishedJobs().empty()) {
        QString converted;
        Job::create(title, [&](Job& job) { return convert(job, &converted); })->run();
        if (!converted.isEmpty())
            NotificationCenter::defaultCenter().post(VLDidSelectPlaylistNotification, converted);
        return;
    }
    enqueue(title, [this, convert](Job& job) {
        QString converted;
        const JobResult result = convert(job, &converted);
        if (!converted.isEmpty())
            postOnMainThread(VLDidSelectPlaylistNotification, converted);
        return result;
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
    const QString title = QStringLiteral("Converting iTunes playlists");
    if (parsed_ && unfinishedJobs().empty()) {
        Job::create(title, conversionBody(intermediates))->run();
        return;
    }
    enqueue(title, [this, body = conversionBody(intermediates)](Job& job) {
        const JobResult result = body(job);
        // The playlists and the set's size changed behind the tables' backs.
        postOnMainThread(VLDidPreparseItunesNotification, QVariant());
        postOnMainThread(VLNeedSizeNotification, QVariant());
        return result;
    });
}

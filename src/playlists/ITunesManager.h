#pragma once
#include "playlists/ITunesLibrary.h"

#include <QFuture>
#include <QObject>
#include <QStringList>
#include <QThreadPool>

#include <atomic>
#include <memory>
#include <mutex>

// Makes the playlists of the user's iTunes library available to the playlist
// store. Each iTunes playlist is written at launch as an intermediate ".xml"
// file (its item list) into the iTunes folder and turned into a ".cd3"
// playlist when the user selects it or a media set needs it. The library file
// is parsed on a worker thread, so a large library never blocks the window;
// work that needs it waits in line behind the parse.
class iTunesManager : public QObject {
    Q_OBJECT
public:
    explicit iTunesManager(QObject* parent = nullptr);
    ~iTunesManager() override;

    // "iTunes Music Library.xml" in the iTunes folder of the user's Music folder.
    static QString defaultLibraryPath();
    // Set before awakeFromNib() to read another library file.
    void setLibraryPath(const QString& path) { libraryPath_ = path; }
    QString libraryPath() const { return libraryPath_; }

    // Empties the iTunes folder, starts parsing the library in the background
    // and starts observing the bus.
    void awakeFromNib();
    // Creates the application folder and an empty iTunes folder.
    void prepareFolders() const;

    // Waits until the parse and every queued conversion are done and the
    // notifications they left for the main thread have been posted.
    void waitForIdle();

    // The parsed library (none while parsing, or when it could not be read).
    std::shared_ptr<const ITunesLibrary> library() const;
    // Reads the library file now, on the calling thread, and keeps it.
    std::shared_ptr<const ITunesLibrary> readLibrary(QString* error = nullptr);

    // Writes each playlist's intermediate ".xml" and converts those already
    // converted before; returns the intermediates written.
    QStringList createFiles(const ITunesLibrary& library) const;
    // Turns an intermediate into its ".cd3" playlist and deletes it; false
    // when the intermediate cannot be read or the playlist cannot be written.
    bool convertItunesPlaylist(const QString& xmlPath) const;
    // The playlist paths of an intermediate's items, in order, accepted
    // extensions only.
    QStringList entriesForItems(const QVariantList& items, const ITunesLibrary& library) const;
    // Steps of a selection that touch files: re-reads a library that changed,
    // converts on first selection; the ".cd3" path to announce, or "".
    QString convertSelection(const QString& path);

    static QString stringByReplacingSlashes(const QString& name);
    static bool isAcceptedTrackPath(const QString& path);

private:
    void vlDidLaunchNotification();
    void vlDidSelectPlaylistNotification(const QString& path);
    void vlConvertMediaIfNeededNotification(const QVariantMap& mediaSet);
    QString intermediatePathFor(const QString& name) const;
    bool libraryChangedSince(const QString& path) const;
    void postOnMainThread(const QString& name, const QVariant& object);

    QString libraryPath_;
    mutable std::mutex libraryMutex_;
    std::shared_ptr<const ITunesLibrary> library_;
    std::atomic<bool> parsed_{false};
    // One worker: the parse first, then the conversions in the order asked.
    QThreadPool serial_;
    std::atomic<int> pendingMainThreadPosts_{0};
};

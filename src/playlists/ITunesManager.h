#pragma once
#include "core/Job.h"
#include "playlists/ITunesLibrary.h"

#include <QObject>
#include <QStringList>

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

// Makes the playlists of the user's iTunes library available to the playlist
// store. Each iTunes playlist is written at launch as an intermediate ".xml"
// file (its item list) into the iTunes folder and turned into a ".cd3"
// playlist when the user selects it or a media set needs it. The library file
// is parsed in a job of its own, so a large library never blocks the window;
// the jobs that need it run after it, one after another in the order asked.
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

    // Empties the iTunes folder, starts parsing the library and starts observing the bus.
    void awakeFromNib();
    // Creates the application folder and an empty iTunes folder; false (and why
    // in *error) when the folder cannot be emptied or made.
    bool prepareFolders(QString* error = nullptr) const;

    // Waits until every job is done and the notifications they left for the
    // main thread have been posted.
    void waitForIdle();

    // The jobs, each started at once and run after the ones asked for before it.
    // Reads the library file and keeps it (dropped when cancelled).
    std::shared_ptr<Job> parseLibrary();
    // Writes each playlist's intermediate ".xml" (a step of progress per
    // playlist) and converts those converted before, then posts
    // VLDidPreparseItunesNotification and VLDidCreateFileNotification on the main thread.
    std::shared_ptr<Job> preparse();
    // Converts intermediates one after another (convertItunesPlaylist).
    std::shared_ptr<Job> convertPlaylists(const QStringList& intermediates);

    // The parsed library (none while parsing, or when it could not be read).
    std::shared_ptr<const ITunesLibrary> library() const;
    // Reads the library file now, on the calling thread, and keeps it.
    std::shared_ptr<const ITunesLibrary> readLibrary(QString* error = nullptr);

    // Turns an intermediate into its ".cd3" playlist and deletes it; false (and
    // why in *error) when the intermediate cannot be read, the library is not
    // at hand or the playlist cannot be written.
    bool convertItunesPlaylist(const QString& xmlPath, QString* error = nullptr) const;
    // The playlist paths of an intermediate's items, in order, accepted
    // extensions only.
    QStringList entriesForItems(const QVariantList& items, const ITunesLibrary& library) const;
    // Steps of a selection that touch files: re-reads a library that changed,
    // converts on first selection; the ".cd3" path to announce, or "".
    QString convertSelection(const QString& path, QString* error = nullptr);

    static QString stringByReplacingSlashes(const QString& name);
    static bool isAcceptedTrackPath(const QString& path);

private:
    // Starts a job whose body waits for every job asked for before it.
    std::shared_ptr<Job> enqueue(const QString& title, Job::Body body);
    std::vector<std::shared_ptr<Job>> unfinishedJobs();
    Job::Body conversionBody(const QStringList& intermediates);
    void createFiles(const ITunesLibrary& library, Job& job, QStringList& errors) const;
    void vlDidSelectPlaylistNotification(const QString& path);
    void vlConvertMediaIfNeededNotification(const QVariantMap& mediaSet);
    QString intermediatePathFor(const QString& name) const;
    bool libraryChangedSince(const QString& path) const;
    void postOnMainThread(const QString& name, const QVariant& object);

    QString libraryPath_;
    mutable std::mutex libraryMutex_;
    std::shared_ptr<const ITunesLibrary> library_;
    std::atomic<bool> parsed_{false};
    std::mutex jobsMutex_;
    std::vector<std::shared_ptr<Job>> jobs_;  // started and maybe not yet finished, oldest first
    std::atomic<int> pendingMainThreadPosts_{0};
};

#pragma once
#include <QObject>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

class Job;

// The Music tab's logic: the sources it shows (library folders, playlists,
// media sets, a mounted audio CD, the drop zone), gathering a selection into
// parallel lists, and turning it into work by posting one export request per
// file, or one burn or copy-to-flash request for the whole selection.
class MusicSourcesWrapper : public QObject {
    Q_OBJECT
public:
    // One selected row of the sources outline.
    struct Source {
        enum Kind { LibraryItem, PlaylistEntry };
        Kind kind = LibraryItem;
        QString path;          // LibraryItem: a file or folder
        QVariantMap entry;     // PlaylistEntry: "playlistpath", "playlistgrouppath", "selectedalbum"
        static Source library(const QString& path) { return {LibraryItem, path, {}}; }
        static Source playlist(const QVariantMap& entry) { return {PlaylistEntry, {}, entry}; }
    };
    using Selection = QList<Source>;
    using ProgressHandler = std::function<void(const QVariantMap& progress)>;

    explicit MusicSourcesWrapper(QObject* parent = nullptr);
    ~MusicSourcesWrapper() override;

    static const QStringList& formatKeys();  // the convert actions: WAV OGG MP3 MP2 M4A M4B AAC WMA
    static const QStringList& burnKinds();

    // Sources known from the bus.
    QVariantList playlists() const;
    QVariantList mediaSets() const;
    QVariantMap audioCD() const;
    QStringList dropZone() const;
    // The drop zone as a selection (what a convert right after a drop converts).
    Selection dropZoneSelection() const;

    // Gathering: {"selectedfiles", "destinationpaths", "tags" (only when not empty)}.
    // Files whose names are not valid UTF-8 are left out; *unreadable gets them.
    QVariantMap getSelectedFileNames(const Selection& selection, const std::atomic<bool>* cancel,
                                     const std::function<void(const QString&)>& examining = {},
                                     QStringList* unreadable = nullptr) const;
    static QVariantMap contentsOfPlaylist(const QString& playlistPath, const std::atomic<bool>* cancel);
    static QVariantMap contentsOfPlaylistGroup(const QString& mediaSetPath, const std::atomic<bool>* cancel);

    // Saving.
    static QString startingFolderFor(const QString& formatKey);
    // Where the folder chooser opens: the starting folder when it exists, else
    // the home folder, offering the missing "%@ Folder" as a new folder.
    struct FolderChoice {
        QString openIn;
        QString newFolderName;  // empty: nothing to offer
    };
    static FolderChoice folderChoiceFor(const QString& formatKey);
    static QString chooseFolderMessage(const QString& formatKey);
    // The folder chooser ended; on confirmation the save job starts on a thread of its own.
    void chooseSaveFolderDidEnd(bool confirmed, const QString& folder, const QString& formatKey,
                                const Selection& selection);
    // A save as a job ("Saving MP3 files"), for the window to start() and the
    // command line to run(): its status is the progress sheet's title line, its
    // percent the share of files handed to the export jobs; cancelling it is
    // terminateSave(). Besides the save request's keys, "namingoptions"
    // {"replace", "dontput"} changes how files are named and nothing else.
    std::shared_ptr<Job> makeSaveJob(QVariantMap request, const Selection& selection);
    // The body of the save job.
    void HandleSaveThread(Job& job, QVariantMap request, const Selection& selection);
    void saveFiles(const QVariantMap& request, Job* job = nullptr);
    // A destination name for the source in folder that nothing else uses, reserved
    // for the export (an empty file made with O_EXCL, which the export job replaces
    // or gives back); with "replace" the plain name, not reserved.
    static QString uniqueFilename(const QString& source, const QString& folder, const QString& type,
                                  const QVariantMap& params);
    void terminateSave();
    // The cancel notification of a format's export job; "" when it has none.
    static QString cancelNotificationFor(const QString& formatKey);
    bool isCancelled() const { return cancel_; }
    bool isSaving() const;
    void waitForSaveThread();

    // Where progress records go ({"operation", "status", "savefilename"}); the
    // window hands them to its main thread. Called on the save thread.
    void setProgressHandler(ProgressHandler handler);
    // Told of each file handed to an export job, and of each that could not be.
    void setDispatchHandler(std::function<void(const QString& source, const QString& destination)> handler);
    void setFailureHandler(std::function<void(const QString& path, const QString& reason)> handler);
    // Told of each file left out of a save because its name cannot be read as text.
    void setSkipHandler(std::function<void(const QString& message)> handler);
    // Export requests run on worker threads under task slots when set (the default).
    void setSaveInBackground(bool background) { background_ = background; }

    // What one save came to once every export job it handed work to has ended.
    struct BatchSummary {
        QString type;    // the format key; "COPY" for copies
        QString folder;  // the destination folder
        int files = 0;   // every file of the save: made, failed or cancelled
        int made = 0;
        int failed = 0;  // failed export jobs and files that could not be handed over
        int cancelled = 0;
        bool stopped = false;  // the save was cancelled
        bool withM3U = false;  // prefsCreateM3UStored as it was when the save began
        QStringList problems;  // one line per failure, naming the file
        QStringList madeFiles; // in the order they were handed over
        QStringList renamed;   // copies to a player: one line per name changed to fit FAT
        QString m3u;           // the M3U playlist written beside them (prefsCreateM3UStored)
        // One sentence for the status line.
        QString text() const;
    };
    // Writes the M3U playlist of a batch's files into its folder, named after
    // the folder (numbered when the name is taken); "" when it cannot.
    static QString writeBatchM3U(const BatchSummary& summary, QString* error = nullptr);

    // Burning and copying to a flash player.
    void burnCDDispatcher(const QString& kindTitle, const Selection& selection);
    static void burnCDSetFormat(const QString& kindTitle);
    void burnAudioCD(const Selection& selection);
    void burnAudioDVD(const Selection& selection);
    void burnOpticalMedia(const Selection& selection);
    void burnMP3OpticalMedia(const Selection& selection);
    void copyToFlash(const Selection& selection);
    void vlCopyToFlashV20Notification(const QVariantMap& request);
    // Whether anything serves a request name yet (burners and the flash writer come later).
    static bool isServed(const char* notificationName);

signals:
    void sourcesChanged();
    void dropZoneFilled();
    void progressSheetShown();
    void progressSheetEnded(int returnCode);
    // Sent from whichever thread ended the batch's last job.
    void batchFinished(const MusicSourcesWrapper::BatchSummary& summary);

private:
    struct Batch;
    struct BatchTracker;
    // The batch whose requests this thread is posting.
    static Batch*& postingBatch();
    void saveFiles(const QVariantMap& request, Job* job, const QStringList& skipped);
    void showProgress(const QVariantMap& progress, Job* job = nullptr) const;
    QString savingType() const;
    // Runs a job's body with terminateSave() as its cancel.
    std::shared_ptr<Job> makeCancellableJob(const QString& title, std::function<void(Job&)> body);
    void stopSaving();
    void startWorker(const std::shared_ptr<Job>& job);

    mutable std::mutex mutex_;
    QVariantList playlists_;
    QVariantList mediaSets_;
    QVariantMap audioCD_;
    QStringList dropZone_;
    QString savingType_;

    std::atomic<bool> cancel_{false};
    std::atomic<bool> mp3Only_{false};
    bool background_ = true;
    ProgressHandler progressHandler_;
    std::function<void(const QString&, const QString&)> dispatchHandler_;
    std::function<void(const QString&, const QString&)> failureHandler_;
    std::function<void(const QString&)> skipHandler_;
    std::shared_ptr<Job> saveJob_;  // the save or gathering started on its own thread, guarded by mutex_
    std::atomic<bool> saving_{false};
    // Open batches; shared with the job list's signals, which may come after we are gone.
    std::shared_ptr<BatchTracker> batches_;
    QMetaObject::Connection jobsFinishing_;
};

Q_DECLARE_METATYPE(MusicSourcesWrapper::BatchSummary)

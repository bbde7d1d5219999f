#pragma once
#include <QObject>
#include <QStringList>
#include <QVariantMap>

#include <atomic>
#include <chrono>
#include <thread>

// The application shell: start-up in two halves, files handed over by the
// desktop, the library roots, and a quit that waits for running tasks.
// Windows observe its signals; all decisions are made here.
class MyController : public QObject {
    Q_OBJECT
public:
    explicit MyController(QObject* parent = nullptr);
    ~MyController() override;

    // Start-up, first half: settings, observers, the tab to restore (returned).
    int awakeFromNib();
    // Start-up, second half: process set-up, working folder, launch notice, parked files.
    void applicationDidFinishLaunching();
    void openFiles(const QStringList& files);

    // Library roots. removeFromLibrary takes the selected item's path and its
    // outline level (0 for a root); anything else beeps.
    // A folder that is a library root already is refused (libraryFolderRefused).
    void addToLibraryDidEnd(bool confirmed, const QString& folder);
    void removeFromLibrary(const QString& relativePath, int level);
    static QString addToLibraryMessage();
    static QString alreadyInLibraryMessage(const QString& folder);

    // Quitting.
    void reallyQuit(int selectedTab);
    void thankyouQuit();
    // The sheet's quit-at-once button: cancels every job and quits as soon as
    // they have stopped (at most kQuitNowLimitMs later).
    void tasksrunningQuit();
    static constexpr int kQuitNowLimitMs = 10000;
    void applicationWillTerminate();
    // What a quit waits for: the task slots in use or the running jobs,
    // whichever are more (a job that holds a slot counts once).
    static int runningTaskCount();

    static QString escapedColonString(const QString& text);
    QVariantMap convertSongsToPlaylist() const;

    bool launched() const { return mLaunched; }
    bool lameFound() const { return mLameFound; }
    QVariantMap cdInfo() const { return mCDInfo; }
    QStringList pendingOpenFiles() const { return mPendingOpenFiles; }
    uint32_t systemVersion() const { return mSystemVersion; }
    int quickTimeMajor() const { return mQuickTimeMajor; }
    bool ignoreInsert() const { return mIgnoreInsert; }
    void setMIgnoreInsert(bool ignore) { mIgnoreInsert = ignore; }

signals:
    void libraryRootsChanged();
    void libraryFolderRefused(const QString& message);
    void tasksRunningSheetShown(int count);
    void tasksRemainingChanged(int count);
    void tasksRunningSheetEnded();
    // Quit at once was chosen: the sheet now waits for the cancelled jobs.
    void stoppingJobs();
    void terminateRequested();
    void playPlaylistRequested(const QVariant& playlist);

private:
    void endTasksRunningSheet();
    void displayTasksRemainingOnMainThread(int count);
    void waitForTasks();

    uint32_t mSystemVersion = 0;
    int mQuickTimeMajor = 0;
    bool mLaunched = false;
    bool mIgnoreInsert = false;
    bool mLameFound = false;
    QStringList mPendingOpenFiles;
    QVariantMap mCDInfo;
    QVariantList mSongs;
    bool sheetShown_ = false;
    std::atomic<bool> stopWaiting_{false};
    std::atomic<bool> quitNow_{false};
    std::atomic<std::chrono::steady_clock::time_point> quitDeadline_{};
    std::thread waiter_;
};

#include "core/MyController.h"

#include "core/Defaults.h"
#include "core/FileSystemItem.h"
#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "core/Preferences.h"
#include "core/TaskManager.h"
#include "platform/AppPaths.h"
#include "platform/Desktop.h"

#include <QDir>
#include <QFile>

#include <gst/gst.h>

#include <algorithm>
#include <chrono>
#include <csignal>

namespace {
// This desktop counts as newer than every system version the shell compares against.
constexpr uint32_t kSystemVersion = 0x1060;
} // namespace

MyController::MyController(QObject* parent) : QObject(parent) {}

MyController::~MyController()
{
    stopWaiting_ = true;
    if (waiter_.joinable())
        waiter_.join();
    NotificationCenter::defaultCenter().removeObserver(this);
}

int MyController::awakeFromNib()
{
    mSystemVersion = kSystemVersion;
    mIgnoreInsert = false;
    mLameFound = false;
    mLaunched = false;
    guint major = 0, minor = 0, micro = 0, nano = 0;
    gst_version(&major, &minor, &micro, &nano);
    mQuickTimeMajor = int(major);
    mSongs.clear();

    Preferences::sharedInstance().prefsLoad();

    NotificationCenter& center = NotificationCenter::defaultCenter();
    center.addObserver(this, VLPlayPlaylistNotification,
                       [this](const Notification& n) { emit playPlaylistRequested(n.object); });
    center.addObserver(this, VLLameFoundNotification,
                       [this](const Notification& n) { mLameFound = n.object.toBool(); });
    center.addObserver(this, VLHaveCDInfoNotification,
                       [this](const Notification& n) { mCDInfo = n.object.toMap(); });

    return int(Defaults::standard().integerForKey(PrefKeys::SelectedTab));
}

void MyController::applicationDidFinishLaunching()
{
    // A child that has gone away must not kill us when we write to its pipe.
    std::signal(SIGPIPE, SIG_IGN);
    // A file grown past the size limit fails its write (reported like a full disk)
    // instead of ending the program.
    std::signal(SIGXFSZ, SIG_IGN);

    AppPaths::makePrivateFolder(AppPaths::workingFolder());

    mLaunched = true;
    NotificationCenter::defaultCenter().post(VLDidLaunchNotification, QVariant::fromValue<QObject*>(this));

    if (Preferences::sharedInstance().prefsIntForKey(PrefKeys::AutoPlay) != 0 && !mPendingOpenFiles.isEmpty()) {
        const QVariantMap request{{"sender", QVariant::fromValue<QObject*>(this)},
                                  {"filearray", mPendingOpenFiles}};
        NotificationCenter::defaultCenter().post(VLFileOpenNotification, request);
    }
    mPendingOpenFiles.clear();
}

void MyController::openFiles(const QStringList& files)
{
    if (!mLaunched) {
        // Parked whatever the auto-play setting; the end of start-up decides.
        mPendingOpenFiles = files;
        return;
    }
    if (Preferences::sharedInstance().prefsIntForKey(PrefKeys::AutoPlay) == 0)
        return;
    const QVariantMap request{{"sender", QVariant::fromValue<QObject*>(this)}, {"filearray", files}};
    NotificationCenter::defaultCenter().post(VLFileOpenNotification, request);
}

QString MyController::addToLibraryMessage()
{
    return QStringLiteral("Please select a folder to add to your Library");
}

QString MyController::escapedColonString(const QString& text)
{
    QString copy = text;
    return copy.replace(':', '/');
}

QVariantMap MyController::convertSongsToPlaylist() const
{
    return QVariantMap{{"Group", "OVRoot"}, {"Entries", mSongs}};
}

void MyController::reallyQuit(int selectedTab)
{
    Defaults::standard().setInteger(PrefKeys::SelectedTab, selectedTab);
    Defaults::standard().synchronize();
    thankyouQuit();
}

int MyController::runningTaskCount()
{
    return std::max(taskManager::sharedInstance().count(), JobList::shared().runningCount());
}

void MyController::thankyouQuit()
{
    const int count = runningTaskCount();
    if (count == 0) {
        emit terminateRequested();
        return;
    }
    if (sheetShown_)
        return;
    sheetShown_ = true;
    emit tasksRunningSheetShown(count);
    stopWaiting_ = false;
    quitNow_ = false;
    if (waiter_.joinable())
        waiter_.join();
    waiter_ = std::thread([this] { waitForTasks(); });
}

void MyController::waitForTasks()
{
    using namespace std::chrono;
    auto nextCount = steady_clock::now();
    for (;;) {
        // Quitting at once waits only for the cancelled jobs to stop, and not past the limit.
        const bool quitNow = quitNow_;
        const int count = quitNow ? JobList::shared().runningCount() : runningTaskCount();
        if (count == 0 || stopWaiting_)
            break;
        const auto now = steady_clock::now();
        if (quitNow && now >= quitDeadline_.load())
            break;
        if (now >= nextCount) {
            QMetaObject::invokeMethod(
                this, [this, count] { displayTasksRemainingOnMainThread(count); }, Qt::QueuedConnection);
            nextCount = now + 1s;
        }
        std::this_thread::sleep_for(50ms);
    }
    QMetaObject::invokeMethod(this, [this] { endTasksRunningSheet(); }, Qt::QueuedConnection);
}

void MyController::displayTasksRemainingOnMainThread(int count)
{
    if (sheetShown_)
        emit tasksRemainingChanged(count);
}

void MyController::tasksrunningQuit()
{
    // Every job is cancelled: each ends its child process and removes what it
    // had begun, so no half-written file stays. The wait for them is short.
    quitDeadline_ = std::chrono::steady_clock::now() + std::chrono::milliseconds(kQuitNowLimitMs);
    quitNow_ = true;
    JobList::shared().cancelAll();
    if (sheetShown_)
        emit stoppingJobs();
    else
        emit terminateRequested();
}

void MyController::endTasksRunningSheet()
{
    if (!sheetShown_)
        return;
    sheetShown_ = false;
    emit tasksRunningSheetEnded();
    QMetaObject::invokeMethod(this, [this] { emit terminateRequested(); }, Qt::QueuedConnection);
}

void MyController::applicationWillTerminate()
{
    stopWaiting_ = true;
    NotificationCenter::defaultCenter().post(VLPlayerCleanupBeforeTerminationNotification,
                                             QVariant::fromValue<QObject*>(this));
}

QString MyController::alreadyInLibraryMessage(const QString& folder)
{
    return QStringLiteral("\u201c%1\u201d is already in your library.").arg(folder);
}

void MyController::addToLibraryDidEnd(bool confirmed, const QString& folder)
{
    if (confirmed && !folder.isEmpty()) {
        // A folder that is a root already would show twice, with every file in it.
        const QString cleaned = QDir::cleanPath(folder);
        const QStringList roots = FileSystemItem::rootPaths();
        if (std::any_of(roots.begin(), roots.end(),
                        [&](const QString& root) { return QDir::cleanPath(root) == cleaned; })) {
            emit libraryFolderRefused(alreadyInLibraryMessage(cleaned));
        } else {
            FileSystemItem::addToRootItem(folder);
            emit libraryRootsChanged();
        }
    }
    // Every tab reloads, also when the sheet was cancelled.
    NotificationCenter::defaultCenter().post(VLReloadLibraryNotification);
}

void MyController::removeFromLibrary(const QString& relativePath, int level)
{
    if (relativePath.isEmpty() || level != 0) {
        Desktop::beep();
        return;
    }
    FileSystemItem::removeFromRootItem(relativePath);
    emit libraryRootsChanged();
    NotificationCenter::defaultCenter().post(VLReloadLibraryNotification);
}

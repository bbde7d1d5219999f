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

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QSignalSpy>

#include <gtest/gtest.h>

#include <thread>

namespace {
struct Recorder {
    std::vector<QString> names;
    QVariantList fileArrays;
    Recorder()
    {
        for (const char* name : {VLDidLaunchNotification, VLFileOpenNotification,
                                 VLPlayerCleanupBeforeTerminationNotification})
            NotificationCenter::defaultCenter().addObserver(this, name, [this](const Notification& n) {
                names.push_back(n.name);
                if (n.name == VLFileOpenNotification)
                    fileArrays << n.object.toMap().value("filearray");
            });
    }
    ~Recorder() { NotificationCenter::defaultCenter().removeObserver(this); }
};

void setAutoPlay(int value)
{
    Defaults::standard().setInteger(PrefKeys::Inited, 1);
    Defaults::standard().setInteger(PrefKeys::AutoPlay, value);
}
} // namespace

TEST(MyController, StartUpRestoresTheTabAndPostsParkedFilesOnlyWithAutoPlay)
{
    setAutoPlay(1);
    Defaults::standard().setInteger(PrefKeys::SelectedTab, 3);
    Recorder recorder;
    MyController controller;
    EXPECT_EQ(controller.awakeFromNib(), 3);
    EXPECT_GT(controller.systemVersion(), 0x103Fu);

    controller.openFiles({"/x/early.mp3"});
    controller.openFiles({"/x/a.mp3", "/x/b.mp3"});  // replaces the earlier parked array
    EXPECT_TRUE(recorder.names.empty());
    controller.applicationDidFinishLaunching();
    ASSERT_EQ(recorder.names.size(), 2u);
    EXPECT_EQ(recorder.names[0], VLDidLaunchNotification);
    EXPECT_EQ(recorder.names[1], VLFileOpenNotification);
    EXPECT_EQ(recorder.fileArrays.at(0).toStringList(), (QStringList{"/x/a.mp3", "/x/b.mp3"}));
    EXPECT_TRUE(controller.pendingOpenFiles().isEmpty());

    // After launch files are posted at once.
    controller.openFiles({"/x/c.mp3"});
    EXPECT_EQ(recorder.names.size(), 3u);

    const QFileInfo working(AppPaths::workingFolder());
    EXPECT_TRUE(working.isDir());
}

TEST(MyController, ParkedFilesAreDroppedWhenAutoPlayIsOff)
{
    setAutoPlay(0);
    Recorder recorder;
    MyController controller;
    controller.awakeFromNib();
    controller.openFiles({"/x/a.mp3"});
    controller.applicationDidFinishLaunching();
    controller.openFiles({"/x/b.mp3"});
    ASSERT_EQ(recorder.names.size(), 1u);
    EXPECT_EQ(recorder.names[0], VLDidLaunchNotification);
}

TEST(MyController, ObservesLameAndDiscNotices)
{
    setAutoPlay(0);
    MyController controller;
    controller.awakeFromNib();
    QSignalSpy play(&controller, &MyController::playPlaylistRequested);
    NotificationCenter::defaultCenter().post(VLLameFoundNotification, true);
    NotificationCenter::defaultCenter().post(VLHaveCDInfoNotification, QVariantMap{{"discid", "a1b2"}});
    NotificationCenter::defaultCenter().post(VLPlayPlaylistNotification, QVariantMap{{"Group", "OVRoot"}});
    EXPECT_TRUE(controller.lameFound());
    EXPECT_EQ(controller.cdInfo().value("discid").toString(), "a1b2");
    EXPECT_EQ(play.count(), 1);
    EXPECT_EQ(MyController::escapedColonString("a:b:c"), "a/b/c");
}

TEST(MyController, QuitWithoutTasksTerminatesAtOnceAndRemembersTheTab)
{
    MyController controller;
    QSignalSpy terminate(&controller, &MyController::terminateRequested);
    QSignalSpy sheet(&controller, &MyController::tasksRunningSheetShown);
    controller.reallyQuit(5);
    EXPECT_EQ(terminate.count(), 1);
    EXPECT_EQ(sheet.count(), 0);
    Defaults::standard().reload();
    EXPECT_EQ(Defaults::standard().integerForKey(PrefKeys::SelectedTab), 5);

    Recorder recorder;
    controller.applicationWillTerminate();
    ASSERT_EQ(recorder.names.size(), 1u);
    EXPECT_EQ(recorder.names[0], VLPlayerCleanupBeforeTerminationNotification);
}

TEST(MyController, QuitWaitsForRunningTasksCountingOnceASecond)
{
    MyController controller;
    QSignalSpy sheet(&controller, &MyController::tasksRunningSheetShown);
    QSignalSpy remaining(&controller, &MyController::tasksRemainingChanged);
    QSignalSpy ended(&controller, &MyController::tasksRunningSheetEnded);
    QSignalSpy terminate(&controller, &MyController::terminateRequested);
    int job1 = 0, job2 = 0;
    taskManager& tasks = taskManager::sharedInstance();
    ASSERT_TRUE(tasks.addTask(&job1));
    ASSERT_TRUE(tasks.addTask(&job2));

    controller.thankyouQuit();
    ASSERT_EQ(sheet.count(), 1);
    EXPECT_EQ(sheet.at(0).at(0).toInt(), 2);
    EXPECT_TRUE(remaining.wait(3000));
    EXPECT_EQ(remaining.last().at(0).toInt(), 2);
    EXPECT_EQ(terminate.count(), 0);

    tasks.removeTask(&job1);
    ASSERT_TRUE(remaining.wait(3000));
    EXPECT_EQ(remaining.last().at(0).toInt(), 1);
    tasks.removeTask(&job2);
    EXPECT_TRUE(terminate.wait(3000));
    EXPECT_EQ(ended.count(), 1);
}

TEST(MyController, QuitAtOnceCancelsEveryJobAndQuitsWhenTheyStopped)
{
    MyController controller;
    QSignalSpy sheet(&controller, &MyController::tasksRunningSheetShown);
    QSignalSpy stopping(&controller, &MyController::stoppingJobs);
    QSignalSpy terminate(&controller, &MyController::terminateRequested);
    // Two jobs that run until they are cancelled (one of them holds a task slot
    // too), and a slot that no job holds.
    std::atomic<int> stopped{0};
    auto first = Job::create("Converting", [&](Job& job) {
        int slot = 0;
        taskManager::sharedInstance().addTask(&slot);
        std::atomic<bool> released{false};
        const auto hook = job.onCancel([&] { released = true; });
        while (!released)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        // Stopping takes a moment; the quit waits for it.
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        taskManager::sharedInstance().removeTask(&slot);
        ++stopped;
        return JobResult::cancelled();
    });
    auto second = Job::create("Ripping", [&](Job& job) {
        while (!job.isCancelled())
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        ++stopped;
        return JobResult::cancelled();
    });
    first->start();
    second->start();
    while (taskManager::sharedInstance().count() == 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    int outsider = 0;
    ASSERT_TRUE(taskManager::sharedInstance().addTask(&outsider));

    controller.thankyouQuit();
    ASSERT_EQ(sheet.count(), 1);
    EXPECT_EQ(sheet.at(0).at(0).toInt(), 2);  // the job with the slot counts once
    EXPECT_FALSE(terminate.wait(300));
    controller.tasksrunningQuit();
    EXPECT_EQ(stopping.count(), 1);
    EXPECT_TRUE(first->isCancelled() && second->isCancelled());
    EXPECT_TRUE(terminate.wait(3000));
    EXPECT_EQ(stopped, 2);  // both had stopped before the quit
    first->wait();
    second->wait();
    // A slot held outside any job is not the shell's to stop.
    EXPECT_EQ(taskManager::sharedInstance().count(), 1);
    taskManager::sharedInstance().removeTask(&outsider);
}

TEST(MyController, LibraryFoldersAreAddedAndRemovedAndEveryTabReloads)
{
    int beeps = 0;
    Desktop::setBeepHandler([&] { ++beeps; });
    int reloads = 0, owner = 0;
    NotificationCenter::defaultCenter().addObserver(&owner, VLReloadLibraryNotification,
                                                    [&](const Notification&) { ++reloads; });
    Defaults::standard().setObject("rootItem", QVariantList{"/"});
    MyController controller;

    controller.addToLibraryDidEnd(false, QString());  // cancelled: still reloads
    EXPECT_EQ(reloads, 1);
    controller.addToLibraryDidEnd(true, "/srv/music");
    EXPECT_EQ(reloads, 2);
    EXPECT_EQ(FileSystemItem::rootPaths(), (QStringList{"/", "/srv/music"}));
    // The same folder again is refused with a message, and the tabs still reload.
    QSignalSpy refused(&controller, &MyController::libraryFolderRefused);
    controller.addToLibraryDidEnd(true, "/srv/music/");
    ASSERT_EQ(refused.count(), 1);
    EXPECT_TRUE(refused.at(0).at(0).toString().contains("/srv/music"));
    EXPECT_EQ(FileSystemItem::rootPaths(), (QStringList{"/", "/srv/music"}));
    EXPECT_EQ(reloads, 3);

    controller.removeFromLibrary("Jazz", 1);  // inside a root: beep only
    controller.removeFromLibrary(QString(), -1);  // nothing selected
    EXPECT_EQ(beeps, 2);
    EXPECT_EQ(reloads, 3);
    controller.removeFromLibrary("/srv/music", 0);
    EXPECT_EQ(FileSystemItem::rootPaths(), QStringList{"/"});
    EXPECT_EQ(reloads, 4);

    NotificationCenter::defaultCenter().removeObserver(&owner);
    Desktop::setBeepHandler(nullptr);
}

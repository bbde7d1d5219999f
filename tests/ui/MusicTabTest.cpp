#include "ui/MusicTab.h"
#include "core/Defaults.h"
#include "core/Job.h"
#include "core/LibraryModel.h"
#include "core/MyController.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "encode/ExportJobs.h"
#include "encode/LameWrapper.h"
#include "tabs/AppControllers.h"
#include "ui/AwakeApplication.h"
#include "ui/JobListView.h"
#include "ui/MainWindow.h"

#include "common/TestSupport.h"

#include <QAbstractButton>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QMessageBox>
#include <QSignalSpy>
#include <QStatusBar>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>
#include <QTreeView>

#include <gtest/gtest.h>

namespace {
QModelIndex findRoot(QAbstractItemModel* model, const QString& path)
{
    for (int row = 0; row < model->rowCount(); ++row) {
        const QModelIndex index = model->index(row, 0);
        if (static_cast<LibraryModel*>(model)->fullPath(index) == path)
            return index;
    }
    return {};
}
} // namespace

TEST(MusicTab, ConvertsASelectedLibraryFolderToWav)
{
    QTemporaryDir dir;
    const QString music = dir.path() + "/Tunes";
    ASSERT_TRUE(QDir().mkpath(music + "/Album"));
    for (const char* name : {"one", "two"})
        ASSERT_EQ(testsupport::run("sox", {"-n", "-r", "22050", "-c", "1", music + "/Album/" + name + ".wav", "synth",
                                           "0.5", "sine", "330"}),
                  0)
            << name;
    ASSERT_EQ(testsupport::run("lame", {"--quiet", music + "/Album/one.wav", music + "/Album/three.mp3"}), 0);
    Defaults::standard().setObject("rootItem", QVariantList{music});

    AwakeApplication app;
    MainWindow& window = app.window();
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    MusicTab* tab = window.musicTab();
    QTreeView* outline = tab->libraryOutline();
    const QModelIndex root = findRoot(outline->model(), music);
    ASSERT_TRUE(root.isValid());
    outline->selectionModel()->select(root, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);

    QSignalSpy ended(&tab->music(), &MusicSourcesWrapper::progressSheetEnded);
    const QString out = dir.path() + "/out";
    tab->convertInto("WAV", out);
    ASSERT_TRUE(ended.wait(60000));
    app.controllers.exportJobs().waitForBackgroundWork();
    for (const char* name : {"one.WAV", "two.WAV", "three.WAV"}) {
        const QFileInfo made(out + "/Tunes/Album/" + name);
        EXPECT_TRUE(made.isFile()) << name;
        EXPECT_GT(made.size(), 1000) << name;
    }
}

TEST(MusicTab, ADropBecomesTheSelectionOfTheNextConvert)
{
    QTemporaryDir dir;
    testsupport::writeFile(dir.path() + "/a.ogg", "x");
    testsupport::writeFile(dir.path() + "/b.ogg", "y");
    AwakeApplication app;
    MainWindow& window = app.window();
    MusicTab* tab = window.musicTab();
    NotificationCenter::defaultCenter().post(VLMSWFileDropNotification,
                                             QVariantMap{{"filearray", QStringList{dir.path() + "/b.ogg"}}});
    QTest::qWait(50);  // the outline reloads from the event loop
    const auto selection = tab->currentSelection();
    ASSERT_EQ(selection.size(), 1);
    EXPECT_EQ(selection.first().path, dir.path() + "/b.ogg");
}

namespace {

// The lame processes whose command lines name something under folder.
int encodersWorkingIn(const QString& folder)
{
    int count = 0;
    for (const QString& pid : QDir("/proc").entryList(QDir::Dirs)) {
        const QByteArray commandLine = testsupport::readFile("/proc/" + pid + "/cmdline");
        if (commandLine.startsWith("lame") || commandLine.contains("/lame\0"))
            count += commandLine.contains(QFile::encodeName(folder)) ? 1 : 0;
    }
    return count;
}

QStringList filesUnder(const QString& folder)
{
    QStringList files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext())
        files << it.next();
    return files;
}

// A window converting a ten-minute WAV to MP3 with the real lame, caught while lame runs.
class ConversionUnderWay : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(QDir().mkpath(dir.path() + "/Tunes"));
        ASSERT_EQ(testsupport::run("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16", dir.path() + "/Tunes/long.wav",
                                           "synth", "600", "sine", "440"}),
                  0);
        Defaults::standard().setObject("rootItem", QVariantList{dir.path() + "/Tunes"});
        app = std::make_unique<AwakeApplication>();
        app->controllers.lame().lookForLame();
        ASSERT_TRUE(app->controllers.lame().lameFound());
        MainWindow& window = app->window();
        window.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
        QTreeView* outline = window.musicTab()->libraryOutline();
        outline->selectionModel()->select(outline->model()->index(0, 0),
                                          QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
        window.musicTab()->convertInto("MP3", out);
        ASSERT_TRUE(QTest::qWaitFor([&] { return encodersWorkingIn(out) == 1; }, 30000));
        for (const auto& each : JobList::shared().jobs())
            if (each->title() == "Converting long.wav to MP3")
                job = each;
        ASSERT_TRUE(job);
    }
    void TearDown() override
    {
        if (job)
            job->wait();
        if (app)
            app->controllers.exportJobs().waitForBackgroundWork();
    }

    QTemporaryDir dir;
    const QString out = dir.path() + "/out";
    std::unique_ptr<AwakeApplication> app;
    std::shared_ptr<Job> job;
};

}  // namespace

TEST_F(ConversionUnderWay, CancelInTheJobListEndsTheEncoderLeavesNoFileAndSaysSo)
{
    MainWindow& window = app->window();
    QWidget* row = nullptr;
    ASSERT_TRUE(QTest::qWaitFor([&] { return (row = window.jobList()->rowFor(job->id())) != nullptr; }, 5000));
    EXPECT_TRUE(row->isVisible());
    auto* cancel = row->findChild<QToolButton*>("jobCancel");
    ASSERT_TRUE(cancel);
    cancel->click();
    job->wait();
    EXPECT_EQ(job->result().outcome, JobResult::Outcome::Cancelled);
    EXPECT_TRUE(QTest::qWaitFor([&] { return encodersWorkingIn(out) == 0; }, 5000));
    EXPECT_EQ(filesUnder(out), QStringList());
    // The end of the batch is said in the status bar.
    EXPECT_TRUE(QTest::qWaitFor([&] { return window.statusBar()->currentMessage().contains("Stopped"); }, 5000))
        << window.statusBar()->currentMessage().toStdString();
    EXPECT_TRUE(window.statusBar()->currentMessage().contains("Converted 0 of 1 file to MP3"));
}

TEST_F(ConversionUnderWay, QuitNowEndsEveryJobAndItsEncoderAndLeavesNoFile)
{
    MainWindow& window = app->window();
    QSignalSpy terminate(&app->controller, &MyController::terminateRequested);
    window.close();
    auto* sheet = window.findChild<QMessageBox*>();
    ASSERT_TRUE(sheet);
    EXPECT_TRUE(sheet->informativeText().contains("1"));
    QAbstractButton* quitNow = nullptr;
    for (QAbstractButton* button : sheet->buttons())
        if (button->text() == "Quit Now")
            quitNow = button;
    ASSERT_TRUE(quitNow);
    quitNow->click();
    EXPECT_TRUE(job->isCancelled());
    ASSERT_TRUE(terminate.wait(MyController::kQuitNowLimitMs));
    // By the time Velmora quits, the job has ended, its lame with it, and nothing is left.
    EXPECT_EQ(job->state(), Job::State::Finished);
    EXPECT_EQ(encodersWorkingIn(out), 0);
    EXPECT_EQ(filesUnder(out), QStringList());
}

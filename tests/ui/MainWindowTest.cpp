#include "ui/MainWindow.h"
#include "ui/RipTab.h"
#include "core/Defaults.h"
#include "core/Job.h"
#include "core/MyController.h"
#include "core/Preferences.h"
#include "tabs/AppControllers.h"
#include "ui/AwakeApplication.h"
#include "ui/MusicTab.h"
#include "ui/PreferencesDialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTest>
#include <QThread>

#include <gtest/gtest.h>

TEST(MainWindow, ShowsSixTabsInOrderWithHonestNotices)
{
    AwakeApplication app;
    MainWindow& window = app.window();
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    QTabWidget* tabs = window.tabs();
    ASSERT_EQ(tabs->count(), 6);
    const QStringList expected = {"Music", "Play", "Rip", "Tag", "Clip", "Stores"};
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(tabs->tabText(i), expected[i]);
    EXPECT_EQ(tabs->widget(0), static_cast<QWidget*>(window.musicTab()));
    EXPECT_EQ(tabs->widget(2), static_cast<QWidget*>(window.ripTab()));
    // Tabs still to come say so instead of pretending.
    for (int i : {3, 4}) {
        auto* notice = tabs->widget(i)->findChild<QLabel*>("notYetAvailable");
        ASSERT_NE(notice, nullptr) << i;
        EXPECT_TRUE(notice->text().contains("not available yet"));
    }
}

TEST(MainWindow, QuitRemembersTheSelectedTab)
{
    AwakeApplication app;
    MainWindow& window = app.window();
    window.tabs()->setCurrentIndex(MainWindow::StoresTabIndex);
    window.close();  // no task runs: quits at once and stores the tab
    Defaults::standard().reload();
    EXPECT_EQ(Defaults::standard().integerForKey("mSelectedTabStored"), 5);
}

TEST(MainWindow, QuittingWithARunningJobCanCancelItAndQuitsOnceItStopped)
{
    AwakeApplication app;
    MainWindow& window = app.window();
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    ASSERT_TRUE(JobList::shared().waitForAll(5000));  // the start-up jobs are done
    auto job = Job::create("Burning", [](Job& self) {
        while (!self.isCancelled())
            QThread::msleep(2);
        return JobResult::cancelled();
    });
    job->start();
    QSignalSpy terminate(&app.controller, &MyController::terminateRequested);
    window.close();
    auto* sheet = window.findChild<QMessageBox*>();
    ASSERT_TRUE(sheet);
    EXPECT_TRUE(sheet->informativeText().contains("1"));
    QPushButton* cancelJobs = nullptr;
    for (QAbstractButton* button : sheet->buttons())
        if (button->text() == "Cancel Jobs")
            cancelJobs = qobject_cast<QPushButton*>(button);
    ASSERT_TRUE(cancelJobs);
    cancelJobs->click();
    EXPECT_TRUE(job->isCancelled());
    EXPECT_TRUE(sheet->isVisible());  // it stays and counts down while the jobs stop
    EXPECT_TRUE(terminate.wait(5000));
    EXPECT_FALSE(window.findChild<QMessageBox*>() && window.findChild<QMessageBox*>()->isVisible());
    job->wait();
}

TEST(PreferencesDialog, UntickingAWarningDisablesItsComboAndSaveStoresTheControls)
{
    Preferences::sharedInstance().prefsDefaults();
    PreferencesDialog dialog;
    QCheckBox* warnSpace = nullptr;
    for (QCheckBox* box : dialog.findChildren<QCheckBox*>())
        if (box->text().contains("contents exceed") && box->text().startsWith("Warn when"))
            warnSpace = box;
    ASSERT_NE(warnSpace, nullptr);
    const QList<QComboBox*> combos = dialog.findChildren<QComboBox*>();
    ASSERT_EQ(combos.size(), 2);
    EXPECT_EQ(combos[0]->currentText(), "600");
    EXPECT_EQ(combos[1]->currentText(), "649");
    EXPECT_TRUE(combos[0]->isEnabled());
    warnSpace->setChecked(false);
    EXPECT_FALSE(combos[0]->isEnabled());
    combos[1]->setCurrentText("700");

    QPushButton* save = nullptr;
    for (QPushButton* button : dialog.findChildren<QPushButton*>())
        if (button->text() == "Save")
            save = button;
    ASSERT_NE(save, nullptr);
    EXPECT_TRUE(save->isEnabled());
    save->click();
    EXPECT_FALSE(save->isEnabled());
    Defaults::standard().reload();
    EXPECT_EQ(Defaults::standard().integerForKey("prefsWarnSpaceCheckStored"), 0);
    EXPECT_EQ(Defaults::standard().integerForKey("prefsWarnMoreComboStored"), 700);
    EXPECT_EQ(Defaults::standard().integerForKey("prefsWarnSpaceComboStored"), 600);
}

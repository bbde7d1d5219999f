#include "tabs/AppControllers.h"
#include "core/Defaults.h"
#include "core/MyController.h"
#include "core/Preferences.h"
#include "ui/AwakeApplication.h"
#include "ui/MainWindow.h"
#include "ui/MusicTab.h"
#include "ui/PreferencesDialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QPushButton>
#include <QTabWidget>
#include <QTest>

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
    // Tabs still to come say so instead of pretending.
    for (int i : {1, 2, 3, 4}) {
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

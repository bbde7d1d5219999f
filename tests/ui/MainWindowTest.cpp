#include "ui/MainWindow.h"
#include "ui/TagTab.h"
#include "ui/RipTab.h"
#include "core/Defaults.h"
#include "core/Job.h"
#include "core/LibraryModel.h"
#include "core/MyController.h"
#include "core/Preferences.h"
#include "tabs/AppControllers.h"
#include "ui/AboutBox.h"
#include "ui/AwakeApplication.h"
#include "ui/ClipTab.h"
#include "ui/MusicTab.h"
#include "ui/PreferencesDialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QSplitter>
#include <QTabBar>
#include <QTabWidget>
#include <QTest>
#include <QThread>
#include <QTreeView>

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
    EXPECT_EQ(tabs->widget(3), static_cast<QWidget*>(window.tagTab()));
    EXPECT_NE(qobject_cast<ClipTab*>(tabs->widget(4)), nullptr);
}

TEST(MainWindow, TheWindowsShapeTabFormatAndColumnsAreKeptAcrossARestart)
{
    QList<int> splitterSizes;
    {
        AwakeApplication app;
        MainWindow& window = app.window();
        window.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
        window.resize(900, 610);
        auto* splitter = window.findChild<QSplitter*>("musicSplitter");
        splitter->setSizes({300, 560});
        splitterSizes = splitter->sizes();
        window.musicTab()->libraryOutline()->header()->resizeSection(LibraryModel::ArtistColumn, 211);
        window.findChild<QComboBox*>("convertFormat")->setCurrentText("OGG");
        window.tabs()->setCurrentIndex(MainWindow::StoresTabIndex);
        window.close();  // no task runs: quits at once and keeps everything
    }
    Defaults::standard().reload();
    AwakeApplication app;
    MainWindow& window = app.window();
    EXPECT_EQ(app.controller.awakeFromNib(), int(MainWindow::StoresTabIndex));
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    EXPECT_EQ(window.size(), QSize(900, 610));
    EXPECT_EQ(window.findChild<QSplitter*>("musicSplitter")->sizes(), splitterSizes);
    EXPECT_EQ(window.musicTab()->libraryOutline()->header()->sectionSize(LibraryModel::ArtistColumn), 211);
    EXPECT_EQ(window.findChild<QComboBox*>("convertFormat")->currentText(), "OGG");
}

TEST(MainWindow, EveryButtonSaysWhatItDoesAndEveryColumnHasATitle)
{
    AwakeApplication app;
    MainWindow& window = app.window();
    window.showPreferences();
    QList<QWidget*> windows{&window, window.findChild<PreferencesDialog*>()};
    for (QWidget* each : windows) {
        for (QAbstractButton* button : each->findChildren<QAbstractButton*>()) {
            // Tick boxes say what they do in their text; Qt's own parts (the tab
            // bar's arrows, table corners, the menu bar's overflow) are left alone.
            if (qobject_cast<QCheckBox*>(button) || qobject_cast<QTabBar*>(button->parentWidget()) ||
                button->objectName().startsWith("qt_") || button->inherits("QTableCornerButton"))
                continue;
            EXPECT_FALSE(button->toolTip().isEmpty()) << button->text().toStdString();
        }
        for (QHeaderView* header : each->findChildren<QHeaderView*>()) {
            if (header->orientation() != Qt::Horizontal || header->isHidden())
                continue;
            for (int section = 0; section < header->count(); ++section) {
                if (header->isSectionHidden(section))
                    continue;
                const QString title = header->model()->headerData(section, Qt::Horizontal).toString();
                EXPECT_FALSE(title.isEmpty()) << header->parent()->objectName().toStdString() << " " << section;
                for (const char* internal : {"Leaf", "Expandable", "Kind", "Group"})
                    EXPECT_FALSE(title.contains(internal)) << title.toStdString();
            }
        }
    }
    // The About box names every library with the version it reports.
    const auto libraries = AboutBox::libraryVersions();
    EXPECT_EQ(libraries.size(), 8);
    for (const auto& [name, version] : libraries)
        EXPECT_TRUE(version.contains(QRegularExpression("\\d"))) << name.toStdString() << ": " << version.toStdString();
    // The FreeDB server list the Preferences window asked for ends while the application is whole.
    JobList::shared().cancelAll();
    EXPECT_TRUE(JobList::shared().waitForAll(10000));
}

TEST(PreferencesDialog, UntickingAWarningDisablesItsComboAndSaveStoresTheControls)
{
    Preferences::sharedInstance().prefsDefaults();
    PreferencesDialog dialog;
    QCheckBox *warnSpace = nullptr, *autoClip = nullptr;
    for (QCheckBox* box : dialog.findChildren<QCheckBox*>()) {
        if (box->text().contains("contents exceed") && box->text().startsWith("Warn when"))
            warnSpace = box;
        if (box->text().contains("Clip tab"))
            autoClip = box;
    }
    ASSERT_NE(warnSpace, nullptr);
    ASSERT_NE(autoClip, nullptr);
    EXPECT_FALSE(autoClip->isChecked());
    autoClip->setChecked(true);
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
    EXPECT_EQ(Defaults::standard().integerForKey("prefsAutoClipStored"), 1);
    EXPECT_EQ(Preferences::sharedInstance().prefsIntForKey(PrefKeys::AutoClip), 1);
    Preferences::sharedInstance().prefsDefaults();
}

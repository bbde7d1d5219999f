#include "ui/FreeDBPreferencesPage.h"
#include "common/DiscFixtures.h"
#include "common/TestSupport.h"
#include "core/Defaults.h"
#include "core/Preferences.h"
#include "disc/FreeDBWrapper.h"
#include "disc/MountedCDWrapper.h"
#include "ui/AwakeApplication.h"

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QTableWidget>
#include <QTest>

#include <gtest/gtest.h>

using discfixtures::CddbServer;

TEST(FreeDBPreferencesPage, ShowsTheServersAndHandsEveryActionToTheClient)
{
    CddbServer other([](const QString&) { return CddbServer::Answer{"200 nothing here\r\n"}; });
    const QByteArray sites = CddbServer::lines({
        "210 OK, site information follows",
        QString("127.0.0.1 http %1 /~cddb/cddb.cgi N000.00 W000.00 Second").arg(other.port()),
        "gnudb.gnudb.org http 80 /~cddb/cddb.cgi N000.00 W000.00 Random gnudb server",
        ".",
    });
    CddbServer listing([&](const QString&) { return CddbServer::Answer{sites}; });
    Defaults& defaults = Defaults::standard();
    defaults.setObject(PrefKeys::FreeDBServerList, QVariantList{listing.record()});
    defaults.setObject(PrefKeys::DefaultHostName, "127.0.0.1");
    defaults.setObject(PrefKeys::UserName, "tester");
    defaults.setInteger(PrefKeys::DisableFreeDB, 0);
    FreeDBWrapper freedb;
    freedb.awakeFromNibble();
    FreeDBPreferencesPage page(&freedb);

    QTableWidget* table = page.serverTable();
    ASSERT_EQ(table->rowCount(), 1);
    EXPECT_EQ(table->item(0, 1)->text(), QString::number(listing.port()));
    EXPECT_EQ(table->item(0, 3)->text(), "Test server");
    EXPECT_EQ(page.userNameField()->text(), "tester");
    EXPECT_FALSE(page.disableBox()->isChecked());

    // The list from the server replaces the table; nothing is selected then.
    auto* refresh = [&] {
        for (QPushButton* button : page.findChildren<QPushButton*>())
            if (button->text() == "Refresh List")
                return button;
        return static_cast<QPushButton*>(nullptr);
    }();
    ASSERT_NE(refresh, nullptr);
    refresh->click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return table->rowCount() == 2; }, 20000));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !freedb.isBusy(); }, 20000));
    EXPECT_EQ(table->item(1, 0)->text(), "gnudb.gnudb.org");
    EXPECT_EQ(table->item(1, 3)->text(), "Random gnudb server");
    EXPECT_FALSE(page.makeDefaultButton()->isEnabled());
    bool statusShown = false;
    for (QLabel* label : page.findChildren<QLabel*>())
        statusShown = statusShown || label->text() == QString("OK!  Received %1 bytes of data").arg(sites.size());
    EXPECT_TRUE(statusShown);

    table->selectRow(1);
    EXPECT_TRUE(page.makeDefaultButton()->isEnabled());
    page.makeDefaultButton()->click();
    EXPECT_EQ(freedb.currentServer().value("host"), "gnudb.gnudb.org");
    EXPECT_EQ(defaults.stringForKey(PrefKeys::DefaultHostName), "gnudb.gnudb.org");

    page.disableBox()->setChecked(true);
    EXPECT_EQ(defaults.integerForKey(PrefKeys::DisableFreeDB), 1);
    page.disableBox()->setChecked(false);
    EXPECT_EQ(defaults.integerForKey(PrefKeys::DisableFreeDB), 0);

    page.hostNameField()->setText("studio");
    emit page.hostNameField()->editingFinished();
    EXPECT_EQ(defaults.stringForKey(PrefKeys::HostName), "studio");
    EXPECT_EQ(freedb.hostName(), "studio");
}

TEST(MainWindowDiscImages, TheFileMenuOpensImagesAndAFailureSaysWhy)
{
    AwakeApplication app;
    MainWindow& window = app.window();
    QStringList actions;
    for (QAction* action : window.menuBar()->actions()) {
        if (action->menu())
            for (QAction* item : action->menu()->actions())
                actions << action->text() + " > " + item->text();
    }
    EXPECT_TRUE(actions.contains("&File > Open &Disc Image…")) << qPrintable(actions.join(", "));

    const QString missing = testsupport::homeDir() + "/nowhere/album.cue";
    app.controllers.cdWatcher().openImage(missing);
    QMessageBox* alert = nullptr;
    ASSERT_TRUE(QTest::qWaitFor([&] { return (alert = window.findChild<QMessageBox*>()) != nullptr; }, 20000));
    EXPECT_EQ(alert->text(), "Cannot open the disc image " + missing + ": there is no such file");
    EXPECT_EQ(alert->windowModality(), Qt::WindowModal);
    alert->close();
}

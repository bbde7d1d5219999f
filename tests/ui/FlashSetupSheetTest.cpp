// The copy-to-flash sheet as the window opens it, over a UDisks2 service of our own.
#include "ui/FlashSetupSheet.h"

#include "common/FlashFixtures.h"
#include "core/Defaults.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "disc/FlashWriter.h"
#include "ui/AwakeApplication.h"

#include <QComboBox>
#include <QLabel>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using namespace flashfixtures;

TEST(FlashSetupSheet, FollowsThePlayersAndStoresTheOptionsOnCopy)
{
    FakeUDisks2 bus;
    ASSERT_TRUE(bus.isRunning());
    QTemporaryDir dir;
    const QString player = dir.filePath("PLAYER");
    QDir().mkpath(player);
    bus.add(device("sdb1", "vfat", "PLAYER", player));
    Defaults::standard().setObject("flashpanelsettings", QVariantMap{{"replace", 1}, {"quality", 50}});
    AwakeApplication app;
    FlashWriter& writer = app.controllers.flashWriter();
    QVariant answer = QStringLiteral("none yet");
    NotificationCenter::defaultCenter().addObserver(&answer, VLShouldCopyFilesNotification,
                                                    [&](const Notification& n) { answer = n.object; });

    writer.writeToFlash();
    FlashSetupSheet* sheet = nullptr;
    ASSERT_TRUE(QTest::qWaitFor([&] { return (sheet = app.window().findChild<FlashSetupSheet*>()) != nullptr; }));
    EXPECT_EQ(sheet->players()->count(), 1);
    EXPECT_EQ(sheet->players()->itemText(0), "PLAYER");
    EXPECT_TRUE(sheet->status()->text().startsWith("Space available: ")) << qPrintable(sheet->status()->text());
    EXPECT_TRUE(sheet->okButton()->isEnabled());
    EXPECT_EQ(sheet->chosenSettings().value("replace").toInt(), 1);
    EXPECT_EQ(sheet->chosenSettings().value("quality").toInt(), 50);
    EXPECT_TRUE(app.controller.ignoreInsert());

    bus.unmount("sdb1");
    ASSERT_TRUE(QTest::qWaitFor([&] { return sheet->players()->count() == 0; }));
    EXPECT_EQ(sheet->status()->text(), "Waiting for media to be inserted...");
    EXPECT_FALSE(sheet->okButton()->isEnabled());
    EXPECT_FALSE(sheet->ejectButton()->isEnabled());
    bus.mount("sdb1", player);
    ASSERT_TRUE(QTest::qWaitFor([&] { return sheet->okButton()->isEnabled(); }));

    sheet->accept();
    ASSERT_TRUE(QTest::qWaitFor([&] { return answer.toString() == player; }));
    EXPECT_TRUE(QTest::qWaitFor([&] { return !app.controller.ignoreInsert(); }));
    EXPECT_EQ(Defaults::standard().dictionaryForKey("flashpanelsettings").value("quality").toInt(), 50);
    NotificationCenter::defaultCenter().removeObserver(&answer);
}

#include "ui/BurnDialogs.h"
#include "common/BurnFixtures.h"
#include "common/TestSupport.h"
#include "core/Defaults.h"
#include "core/MyController.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "ui/AwakeApplication.h"
#include "ui/MainWindow.h"
#include "ui/MusicTab.h"

#include <QAbstractButton>
#include <QComboBox>
#include <QDir>
#include <QLineEdit>
#include <QMessageBox>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTreeView>

#include <gtest/gtest.h>

using namespace burnfixtures;

namespace {

template <typename T>
T* openSheet(QWidget& window, const char* name)
{
    T* sheet = nullptr;
    const bool shown =
        QTest::qWaitFor([&] { return (sheet = window.findChild<T*>(name)) != nullptr && sheet->isVisible(); }, 10000);
    return shown ? sheet : nullptr;
}

TEST(BurnSheets, AnAudioCDGoesToAnImageFileThroughTheSetupSheetWhichRemembersIt)
{
    QTemporaryDir dir;
    ASSERT_TRUE(makeTone(dir.filePath("song.wav"), 1.5, 440));
    AwakeApplication app;
    MainWindow& window = app.window();
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    QSignalSpy status(window.musicTab(), &MusicTab::statusMessage);

    NotificationCenter::defaultCenter().post(VLBurnAudioCDWithArrayNotification, QStringList{dir.filePath("song.wav")});
    auto* sheet = openSheet<BurnSetupDialog>(window, "burnSetup");
    ASSERT_NE(sheet, nullptr);
    EXPECT_TRUE(app.controller.ignoreInsert());
    sheet->driveCombo()->setCurrentIndex(0);  // an image file
    sheet->imageEdit()->setText(dir.filePath("disc.cue"));
    sheet->accept();
    EXPECT_FALSE(app.controller.ignoreInsert());
    ASSERT_TRUE(QTest::qWaitFor([&] { return status.count() > 0; }, 60000));
    EXPECT_EQ(status.last().first().toString(), QStringLiteral("Burning Audio CD: verified"));
    EXPECT_TRUE(QFileInfo::exists(dir.filePath("disc.bin")));

    NotificationCenter::defaultCenter().post(VLBurnAudioCDWithArrayNotification, QStringList{dir.filePath("song.wav")});
    sheet = openSheet<BurnSetupDialog>(window, "burnSetup");
    ASSERT_NE(sheet, nullptr);
    EXPECT_EQ(sheet->imageEdit()->text(), dir.filePath("disc.cue"));
    sheet->reject();
}

TEST(BurnSheets, ADataDiscOfTooLittleMusicAsksBeforeTheSetupSheet)
{
    QTemporaryDir dir;
    testsupport::writeFile(dir.filePath("small.mp3"), QByteArray(1000, 'm'));
    AwakeApplication app;
    MainWindow& window = app.window();
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    const QVariantMap request{{"selectedfiles", QStringList{dir.filePath("small.mp3")}},
                              {"destinationpaths", QStringList{""}},
                              {"cdtitle", "Small"}};
    for (const auto button : {QMessageBox::No, QMessageBox::Yes}) {
        NotificationCenter::defaultCenter().post(VLBurnOpticalMediaWithDictionaryNotification, request);
        auto* warning = openSheet<QMessageBox>(window, "burnSizeWarning");
        ASSERT_NE(warning, nullptr);
        EXPECT_EQ(warning->text(), QStringLiteral("Not enough audio to fill a CD/DVD"));
        warning->button(button)->click();
        QTest::qWait(50);
        EXPECT_EQ(window.findChild<BurnSetupDialog*>("burnSetup") != nullptr, button == QMessageBox::Yes);
    }
    window.findChild<BurnSetupDialog*>("burnSetup")->reject();
}

TEST(BurnSheets, TheMusicTabsBurnDvdAudioWritesAnImageThroughItsSheet)
{
    if (!QFileInfo::exists(testsupport::builtProgram("dvda-author")))
        GTEST_SKIP() << "dvda-author is not built in this tree";
    QTemporaryDir dir;
    const QString music = dir.filePath("Tunes");
    ASSERT_TRUE(QDir().mkpath(music));
    ASSERT_TRUE(makeTone(music + "/song.wav", 1.0, 440));
    Defaults::standard().setObject("rootItem", QVariantList{music});
    AwakeApplication app;
    MainWindow& window = app.window();
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    MusicTab* tab = window.musicTab();
    QTreeView* outline = tab->libraryOutline();
    outline->selectionModel()->select(outline->model()->index(0, 0),
                                      QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    auto* kind = tab->findChild<QComboBox*>("burnKind");
    ASSERT_NE(kind, nullptr);
    kind->setCurrentText("Burn DVD-Audio");
    QSignalSpy status(tab, &MusicTab::statusMessage);
    tab->findChild<QAbstractButton*>("burn")->click();

    auto* sheet = openSheet<BurnSetupDialog>(window, "burnSetup");
    ASSERT_NE(sheet, nullptr);
    EXPECT_EQ(sheet->windowTitle(), QStringLiteral("Burn DVD-Audio"));
    sheet->driveCombo()->setCurrentIndex(0);
    sheet->imageEdit()->setText(dir.filePath("disc.iso"));
    sheet->accept();
    ASSERT_TRUE(QTest::qWaitFor([&] { return status.count() > 0; }, 60000));
    EXPECT_EQ(status.last().first().toString(), QStringLiteral("Burning DVD-Audio: Written and checked"))
        << qPrintable(status.last().first().toString());
    EXPECT_GT(QFileInfo(dir.filePath("disc.iso")).size(), 0);
}

}  // namespace

#include "ui/RipTab.h"

#include "common/DiscFixtures.h"
#include "core/Defaults.h"
#include "core/Preferences.h"
#include "disc/MountedCDWrapper.h"
#include "tabs/RipSourcesWrapper.h"
#include "ui/AwakeApplication.h"
#include "ui/RipSettingsSheet.h"

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using namespace discfixtures;

TEST(RipTab, ShowsTheDiscsTracksAndThePathTheNamingControlsGive)
{
    // No FreeDB server is asked: the disc keeps its "Missing" names.
    Defaults::standard().setInteger(PrefKeys::DisableFreeDB, 1);
    Defaults::standard().setObject(PrefKeys::FreeDBServerList,
                                   QVariantList{QVariantMap{{"host", "127.0.0.1"}, {"port", "9"}, {"cgi", "/none"}}});
    QTemporaryDir dir;
    Defaults::standard().setObject("defaultOGGFolder", dir.filePath("ogg"));
    const Image image = writeImage(dir.path(), "disc", disc({audio(75 * 61), audio(75)}));
    AwakeApplication app;
    RipTab* tab = app.window().ripTab();
    app.controllers.cdWatcher().openImage(image.cue);
    QTableWidget* table = tab->trackTable();
    ASSERT_TRUE(QTest::qWaitFor([&] { return table->rowCount() == 2; }, 30000));
    EXPECT_EQ(table->item(0, 2)->text(), "Title Missing");
    EXPECT_EQ(table->item(0, 4)->text(), "1:01");

    tab->formatChooser()->setCurrentText("OGG");
    EXPECT_EQ(tab->preview()->text(), "Saved as: " + dir.filePath("ogg/01 Title Missing.ogg"));
    table->item(1, 0)->setCheckState(Qt::Unchecked);
    EXPECT_FALSE(tab->rip().tracks()[1].selected);
    table->setCurrentCell(1, 2);
    EXPECT_TRUE(tab->preview()->text().endsWith("/02 Title Missing.ogg"));

    // The sheet's naming controls: the path follows every edit, in the sheet and the tab.
    tab->showSettings();
    auto* sheet = tab->findChild<RipSettingsSheet*>();
    ASSERT_NE(sheet, nullptr);
    emit sheet->nameFormat()->activated(6);
    sheet->customFormat()->clear();
    QTest::keyClicks(sheet->customFormat(), "[TRACK]_[title].[ext]");
    EXPECT_EQ(sheet->preview()->text(), dir.filePath("ogg/02_title missing.ogg"));
    EXPECT_EQ(tab->preview()->text(), "Saved as: " + dir.filePath("ogg/02_title missing.ogg"));
    sheet->reject();  // Cancel keeps the stored settings
    EXPECT_TRUE(tab->preview()->text().endsWith("/02 Title Missing.ogg"));
}

#include "tabs/AppControllers.h"
#include "core/Defaults.h"
#include "core/LibraryModel.h"
#include "core/MyController.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "encode/ExportJobs.h"
#include "ui/AwakeApplication.h"
#include "ui/MainWindow.h"
#include "ui/MusicTab.h"

#include "common/TestSupport.h"

#include <QDir>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
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

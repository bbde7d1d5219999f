#include "ui/PlaylistPanel.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "playlists/PlaylistFiles.h"
#include "tabs/MP3DataSource.h"
#include "ui/AwakeApplication.h"
#include "ui/MusicTab.h"

#include "common/TestSupport.h"

#include <QAbstractButton>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTableView>
#include <QTest>

#include <gtest/gtest.h>

namespace {

QStringList listed(QTableView* table)
{
    QStringList names;
    for (int row = 0; row < table->model()->rowCount(); ++row)
        names << table->model()->index(row, 1).data().toString();
    return names;
}

// The message box of a given name once it is shown, or null.
QMessageBox* waitForBox(QWidget* window, const char* name)
{
    QMessageBox* box = nullptr;
    const bool shown =
        QTest::qWaitFor([&] { return (box = window->findChild<QMessageBox*>(name)) && box->isVisible(); }, 10000);
    return shown ? box : nullptr;
}

QAbstractButton* buttonOf(QMessageBox* box, const QString& text)
{
    for (QAbstractButton* button : box->buttons())
        if (button->text() == text)
            return button;
    return nullptr;
}

}  // namespace

TEST(PlaylistPanel, NewRenameExportAndDeleteAPlaylistFromTheWindow)
{
    const QString song = testsupport::homeDir() + "/Music/song.mp3";
    ASSERT_EQ(testsupport::run("sox", {"-n", "-r", "22050", "-c", "1", song + ".wav", "synth", "2", "sine", "300"}), 0);
    ASSERT_EQ(testsupport::run("lame", {"--quiet", "--tt", "A Song", song + ".wav", song}), 0);
    AwakeApplication app;
    MainWindow& window = app.window();
    window.show();
    // Active, so the name editor keeps the focus while the test types.
    window.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    MusicTab* tab = window.musicTab();
    PlaylistPanel* panel = tab->playlistPanel();
    QTableView* table = panel->playlistTable();
    MP3DataSource* compilation = tab->compilation();
    const QString folder = PlaylistFiles::playlistFolder();
    QStringList added;
    NotificationCenter::defaultCenter().addObserver(&added, VLDidAddPlaylistNotification,
                                                    [&](const Notification& n) { added << n.object.toString(); });

    // New: a file under the next free name, announced, selected, its name open for typing.
    panel->findChild<QPushButton*>("newPlaylist")->click();
    const QString fresh = folder + "/Playlist 2.cd3";
    EXPECT_TRUE(QFileInfo::exists(fresh));
    EXPECT_EQ(added, QStringList{fresh});
    EXPECT_EQ(compilation->currentPlaylist(), fresh);
    auto* editor = table->findChild<QLineEdit*>();
    ASSERT_TRUE(editor && editor->isVisible());
    EXPECT_EQ(editor->text(), "Playlist 2");
    editor->setText("Road Trip");
    QTest::keyClick(editor, Qt::Key_Return);  // the editor hands its text over from the event loop
    const QString renamed = folder + "/Road Trip.cd3";
    EXPECT_TRUE(QTest::qWaitFor([&] { return QFileInfo::exists(renamed); }, 2000));
    EXPECT_FALSE(QFileInfo::exists(fresh));
    EXPECT_TRUE(listed(table).contains("Road Trip"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return compilation->currentPlaylist() == renamed; }, 2000));

    // Music dropped on the playlist is written to its file; Export writes the M3U and says where.
    compilation->acceptDrop({{}, {song}}, nullptr, 0);
    panel->findChild<QPushButton*>("exportPlaylist")->click();
    QMessageBox* exported = waitForBox(&window, "m3uExported");
    ASSERT_TRUE(exported);
    const QString m3u = PlaylistFiles::m3uFolder() + "/Road Trip.m3u";
    EXPECT_TRUE(exported->text().contains(PlaylistFiles::m3uFolder())) << exported->text().toStdString();
    EXPECT_TRUE(buttonOf(exported, "Open Folder"));
    EXPECT_EQ(testsupport::readFile(m3u), "#EXTM3U\n#EXTINF:2,A Song\nsong.mp3\n");
    exported->close();

    // Delete asks first; No keeps the playlist.
    table->selectRow(int(listed(table).indexOf("Road Trip")));
    panel->findChild<QPushButton*>("deletePlaylist")->click();
    QMessageBox* question = waitForBox(&window, "confirmDeletePlaylist");
    ASSERT_TRUE(question);
    EXPECT_TRUE(question->text().contains("Road Trip"));
    question->button(QMessageBox::Cancel)->click();
    EXPECT_TRUE(QFileInfo::exists(renamed));
    panel->findChild<QPushButton*>("deletePlaylist")->click();
    question = waitForBox(&window, "confirmDeletePlaylist");
    ASSERT_TRUE(question);
    buttonOf(question, "Delete")->click();
    EXPECT_FALSE(QFileInfo::exists(renamed));
    EXPECT_FALSE(listed(table).contains("Road Trip"));

    // No view keeps the deleted playlist, and no later edit brings its file back.
    QTest::qWait(50);
    EXPECT_NE(compilation->currentPlaylist(), renamed);
    EXPECT_FALSE(compilation->root()->leafNames().contains(song));
    compilation->addLeaf();
    EXPECT_FALSE(QFileInfo::exists(renamed));
    NotificationCenter::defaultCenter().removeObserver(&added);
}

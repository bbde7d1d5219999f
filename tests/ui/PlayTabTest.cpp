#include "ui/PlayTab.h"

#include "common/PlayerFixtures.h"
#include "core/Defaults.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "tabs/AppControllers.h"
#include "ui/AwakeApplication.h"
#include "ui/ClipTab.h"
#include "ui/MainWindow.h"

#include <QDropEvent>
#include <QLabel>
#include <QMimeData>
#include <QStandardItemModel>
#include <QTabWidget>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>
#include <QTreeWidget>

#include <gtest/gtest.h>

using namespace playerfixtures;
using State = PlaySourcesWrapper::State;

TEST(PlayTab, FilesOpenedFromTheDesktopPlayAndTheButtonsDriveThePlayer)
{
    useFakeAudio();
    QTemporaryDir dir;
    const QStringList files{makeCorrupt(dir.path(), "broken.ogg"), makeSong(dir.path(), "a.mp3", 20, "Alpha", "Band"),
                            makeSong(dir.path(), "b.wav", 1)};
    AwakeApplication app;
    MainWindow& window = app.window();
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    auto* tab = qobject_cast<PlayTab*>(window.tabs()->widget(MainWindow::PlayTab));
    ASSERT_NE(tab, nullptr);
    EXPECT_EQ(tab->sourcesOutline()->topLevelItemCount(), 6);
    PlaySourcesWrapper& play = app.controllers.play();

    NotificationCenter::defaultCenter().post(VLFileOpenNotification, QVariantMap{{"filearray", files}});
    EXPECT_EQ(window.tabs()->currentIndex(), MainWindow::PlayTab);
    // The broken song is skipped with a word in the window; the next one plays.
    ASSERT_TRUE(QTest::qWaitFor([&] { return play.player() && play.playingRow() == 1; }, 15000));
    const QAbstractItemModel* songs = tab->songTable()->model();
    ASSERT_EQ(songs->rowCount(), 3);
    EXPECT_EQ(songs->index(1, 0).data().toString(), "Alpha");
    EXPECT_EQ(songs->index(1, 1).data().toString(), "Band");
    EXPECT_EQ(songs->index(1, 3).data().toString(), "00:20");
    EXPECT_TRUE(songs->index(1, 0).data(Qt::FontRole).value<QFont>().bold());  // the song playing
    EXPECT_TRUE(tab->messageLabel()->text().contains("broken.ogg"));

    tab->pauseButton()->click();
    EXPECT_EQ(play.state(), State::Paused);
    EXPECT_EQ(tab->pauseButton()->text(), "Resume");
    tab->pauseButton()->click();
    EXPECT_EQ(play.state(), State::Playing);
    EXPECT_EQ(tab->pauseButton()->text(), "Pause");

    tab->modeButton(PlaySourcesWrapper::Repeat)->click();
    tab->modeButton(PlaySourcesWrapper::Shuffle)->click();
    EXPECT_FALSE(tab->modeButton(PlaySourcesWrapper::Repeat)->isChecked());
    EXPECT_TRUE(tab->modeButton(PlaySourcesWrapper::Shuffle)->isChecked());
    EXPECT_EQ(Defaults::standard().integerForKey("mModeShuffleButton"), 1);
    EXPECT_EQ(Defaults::standard().integerForKey("mModeRepeatButton"), 0);
    Defaults::standard().reload();
    EXPECT_EQ(PlaySourcesWrapper().playbackMode(), PlaySourcesWrapper::Shuffle);  // read back from the file
    tab->modeButton(PlaySourcesWrapper::Shuffle)->click();

    // Quitting stops the player and keeps the volume for the next start.
    play.setVolume(40);
    app.controller.applicationWillTerminate();
    EXPECT_EQ(play.state(), State::Stopped);
    Defaults::standard().reload();
    EXPECT_EQ(Defaults::standard().integerForKey("mPlayVolumeStored"), 40);
    EXPECT_TRUE(children().isEmpty());
}

// Local files dragged from the desktop onto either tab's sources are posted under
// that tab's own drop notice, naming the outline as the sender; other URLs are not.
TEST(PlayTab, FilesDroppedOnTheSourcesOfThePlayAndClipTabsAreAnnouncedByTheirOwnNotices)
{
    AwakeApplication app;
    MainWindow& window = app.window();
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    auto* play = qobject_cast<PlayTab*>(window.tabs()->widget(MainWindow::PlayTab));
    auto* clip = qobject_cast<ClipTab*>(window.tabs()->widget(MainWindow::ClipTab));
    ASSERT_TRUE(play && clip);
    const struct {
        QTreeWidget* outline;
        const char* notice;
    } cases[] = {{play->sourcesOutline(), VLPSWFileDropNotification},
                 {clip->sourcesOutline(), VLCSWFileDropNotification}};
    for (const auto& c : cases) {
        QList<QVariantMap> posted;
        int observer = 0;
        NotificationCenter::defaultCenter().addObserver(&observer, c.notice,
                                                        [&](const Notification& n) { posted << n.object.toMap(); });
        QMimeData web;
        web.setUrls({QUrl("https://example.com/song.mp3")});
        QMimeData local;
        local.setUrls({QUrl::fromLocalFile("/music/a.mp3"), QUrl("https://example.com/b.mp3")});
        const QPoint middle = c.outline->viewport()->rect().center();
        QDragEnterEvent refused(middle, Qt::CopyAction, &web, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(c.outline->viewport(), &refused);
        EXPECT_FALSE(refused.isAccepted()) << c.notice;
        QDragEnterEvent enter(middle, Qt::CopyAction, &local, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(c.outline->viewport(), &enter);
        EXPECT_TRUE(enter.isAccepted()) << c.notice;
        QDropEvent drop(QPointF(middle), Qt::CopyAction, &local, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(c.outline->viewport(), &drop);
        NotificationCenter::defaultCenter().removeObserver(&observer);
        ASSERT_EQ(posted.size(), 1) << c.notice;
        EXPECT_EQ(posted[0].value("filearray").toStringList(), QStringList{"/music/a.mp3"});
        EXPECT_EQ(posted[0].value("sender").value<QObject*>(), c.outline);
    }
}

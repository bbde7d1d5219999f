#include "PlaylistTestSupport.h"

#include "common/TestSupport.h"
#include "core/Notifications.h"
#include "playlists/FlashCopy.h"
#include "playlists/HPlayListDataSource.h"
#include "playlists/MediaDataSource.h"
#include "playlists/PlayListDataSource.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

using namespace PlaylistFiles;
using testsupport::readFile;
using testsupport::writeFile;

namespace {

QString playlistPath(const QString& name)
{
    return playlistFolder() + '/' + name;
}

void writePlaylist(const QString& path, const QVariantList& entries = {})
{
    QDir().mkpath(QFileInfo(path).path());
    ASSERT_TRUE(writeGroup(path, makeGroup(kRootGroupName, entries)));
}

// The three collaborating stores, wired as the main window wires them.
struct Stores {
    HPlayListDataSource hidden;
    MediaDataSource media;
    PlayListDataSource playlists;

    Stores()
    {
        hidden.awakeFromNib();
        media.awakeFromNib();
        playlists.setHiddenSource(&hidden);
        playlists.setMediaSource(&media);
        playlists.awakeFromNib();
    }
    int rowOf(const QString& path) const { return int(playlists.playlistList().indexOf(path)); }
};

class PlaylistStore : public ::testing::Test {
protected:
    void SetUp() override { resetPlaylistState(); }
};

TEST_F(PlaylistStore, FirstStartWritesTheInitialPlaylistIntoAnEmptyFolder)
{
    for (bool withFinderFile : {false, true}) {
        resetPlaylistState();
        if (withFinderFile)
            writeFile(playlistPath(".DS_Store"), "Finder");
        PlayListDataSource store;
        store.awakeFromNib();
        EXPECT_FALSE(QFileInfo::exists(playlistPath(".DS_Store")));
        ASSERT_EQ(store.playlistList(), QStringList{playlistPath("Playlist 1.cd3")});
        EXPECT_EQ(store.nameAt(0), "Playlist 1");
        const auto group = readGroup(playlistPath("Playlist 1.cd3"));
        ASSERT_TRUE(group.has_value());
        EXPECT_EQ(*group, makeGroup("OVRoot", {}));
    }

    // A folder that holds anything else is left as it is.
    resetPlaylistState();
    writePlaylist(playlistPath("Mine.cd3"));
    PlayListDataSource store;
    store.awakeFromNib();
    EXPECT_EQ(store.playlistList(), QStringList{playlistPath("Mine.cd3")});
}

TEST_F(PlaylistStore, ListsBothFoldersRecursivelyAndHidesNamesInBoth)
{
    writePlaylist(playlistPath("Rock.cd3"));
    writePlaylist(playlistPath(".Secret.cd3"));
    writePlaylist(playlistPath("Sub/Inner.cd3"));
    writeFile(iTunesFolder() + "/Rock.xml", "<plist/>");
    writeFile(iTunesFolder() + "/Mix.xml", "<plist/>");
    Stores stores;

    QStringList expectedPlaylists{playlistPath("Rock.cd3"), playlistPath("Sub"), playlistPath("Sub/Inner.cd3")};
    QStringList listed = stores.playlists.playlistList();
    ASSERT_EQ(listed.size(), 5);
    // The playlist folder comes first, the iTunes folder behind it.
    QStringList head = listed.mid(0, 3), tail = listed.mid(3);
    head.sort();
    tail.sort();
    EXPECT_EQ(head, expectedPlaylists);
    EXPECT_EQ(tail, (QStringList{iTunesFolder() + "/Mix.xml", iTunesFolder() + "/Rock.xml"}));
    EXPECT_TRUE(stores.playlists.isFromITunesAt(3));
    EXPECT_FALSE(stores.playlists.isFromITunesAt(0));

    NotificationRecorder recorder({VLDidHidePlaylistNotification});
    stores.playlists.selectRow(stores.rowOf(playlistPath("Rock.cd3")));
    stores.playlists.hidePlaylist();
    ASSERT_EQ(recorder.posted.size(), 1u);
    EXPECT_EQ(recorder.posted[0].second.toString(), playlistPath("Rock.cd3"));

    listed = stores.playlists.playlistList();
    EXPECT_FALSE(listed.contains(playlistPath("Rock.cd3")));
    EXPECT_FALSE(listed.contains(iTunesFolder() + "/Rock.xml"));
    EXPECT_TRUE(listed.contains(iTunesFolder() + "/Mix.xml"));
    EXPECT_EQ(Defaults::standard().arrayForKey("mHPlaylistArray"), QVariantList{"Rock"});

    // The hidden list survives a restart, and deleting its row shows Rock again.
    Defaults::standard().reload();
    Stores again;
    EXPECT_FALSE(again.playlists.playlistList().contains(playlistPath("Rock.cd3")));
    ASSERT_EQ(again.hidden.rowCount(), 1);
    again.hidden.selectRow(0);
    again.hidden.deletePlaylist();
    EXPECT_TRUE(again.playlists.playlistList().contains(playlistPath("Rock.cd3")));
    EXPECT_TRUE(Defaults::standard().arrayForKey("mHPlaylistArray").isEmpty());
}

TEST_F(PlaylistStore, HiddenListEditingStoresEveryChange)
{
    HPlayListDataSource hidden;
    hidden.awakeFromNib();
    hidden.addPlaylist();
    EXPECT_EQ(hidden.selectedRow(), 0);
    EXPECT_EQ(hidden.nameAt(0), HPlayListDataSource::kPlaceholderName);
    EXPECT_EQ(Defaults::standard().arrayForKey("mHPlaylistArray"), QVariantList{HPlayListDataSource::kPlaceholderName});
    hidden.setNameAt(0, "/somewhere/Jazz.cd3");
    EXPECT_EQ(hidden.nameAt(0), "Jazz");
    EXPECT_TRUE(hidden.hideThisItem(iTunesFolder() + "/Jazz.xml"));
    EXPECT_FALSE(hidden.hideThisItem(playlistPath("Jazz Live.cd3")));
    EXPECT_EQ(Defaults::standard().arrayForKey("mHPlaylistArray"), QVariantList{"Jazz"});
}

TEST_F(PlaylistStore, RenameMovesIntoThePlaylistFolderAndKeepsSetsRight)
{
    writePlaylist(playlistPath("Old.cd3"));
    writePlaylist(playlistPath("Sub/Same.cd3"));
    writeFile(iTunesFolder() + "/Mix.xml", "<plist/>");
    Stores stores;
    stores.media.setIsOnSelectedMedia(playlistPath("Old.cd3"));

    NotificationRecorder recorder({VLDidSelectPlaylistNotification, VLPlaylistInfoNotification,
                                   VLDidSelectMediaNotification, VLNeedSizeNotification});
    // The same file name: nothing happens, nothing is posted.
    stores.playlists.setNameAt(stores.rowOf(playlistPath("Sub/Same.cd3")), "Same");
    EXPECT_TRUE(recorder.posted.empty());
    EXPECT_TRUE(QFileInfo::exists(playlistPath("Sub/Same.cd3")));

    stores.playlists.setNameAt(stores.rowOf(playlistPath("Old.cd3")), "New");
    EXPECT_FALSE(QFileInfo::exists(playlistPath("Old.cd3")));
    EXPECT_TRUE(QFileInfo::exists(playlistPath("New.cd3")));
    EXPECT_EQ(mediaSetPlaylists(readMediaSet(mediaFolder() + "/CD 1.xml")), QStringList{playlistPath("New.cd3")});
    const QStringList names = recorder.names();
    ASSERT_GE(names.size(), 2);
    EXPECT_EQ(names.mid(names.size() - 2),
              (QStringList{VLPlaylistInfoNotification, VLDidSelectPlaylistNotification}));
    EXPECT_EQ(recorder.posted.back().second.toString(), playlistPath("New.cd3"));
    EXPECT_TRUE(stores.playlists.isCheckedAt(stores.rowOf(playlistPath("New.cd3"))));

    // An imported playlist is adopted into the playlist folder as a ".cd3".
    stores.playlists.setNameAt(stores.rowOf(iTunesFolder() + "/Mix.xml"), "Mix");
    EXPECT_FALSE(QFileInfo::exists(iTunesFolder() + "/Mix.xml"));
    EXPECT_TRUE(QFileInfo::exists(playlistPath("Mix.cd3")));

    // A failed move still announces the new path, and the old file stays.
    recorder.clear();
    stores.playlists.setNameAt(stores.rowOf(playlistPath("New.cd3")), "No/Such/Folder");
    EXPECT_TRUE(QFileInfo::exists(playlistPath("New.cd3")));
    EXPECT_EQ(recorder.names(), (QStringList{VLPlaylistInfoNotification, VLDidSelectPlaylistNotification}));
}

TEST_F(PlaylistStore, SelectingAnImportedPlaylistPostsItThenListsItsConversion)
{
    writeFile(iTunesFolder() + "/Mix.xml", "<plist/>");
    Stores stores;
    // The conversion appears while the selection is being announced.
    NotificationRecorder recorder({VLDidSelectPlaylistNotification});
    NotificationCenter::defaultCenter().addObserver(&stores, VLDidSelectPlaylistNotification, [](const Notification&) {
        writePlaylist(iTunesFolder() + "/Mix.cd3");
    });
    const int row = stores.rowOf(iTunesFolder() + "/Mix.xml");
    stores.playlists.selectRow(row);
    NotificationCenter::defaultCenter().removeObserver(&stores);
    ASSERT_EQ(recorder.posted.size(), 1u);
    EXPECT_EQ(recorder.posted[0].second.toString(), iTunesFolder() + "/Mix.xml");
    EXPECT_EQ(stores.playlists.pathAt(row), iTunesFolder() + "/Mix.cd3");
}

TEST_F(PlaylistStore, TickingTogglesTheSelectedSetAndAnnouncesTheRow)
{
    writePlaylist(playlistPath("A.cd3"));
    writeFile(iTunesFolder() + "/Imported.xml", "<plist/>");
    Stores stores;
    NotificationRecorder recorder({VLDidSelectPlaylistNotification, VLNeedSizeNotification});
    const int row = stores.rowOf(playlistPath("A.cd3"));
    stores.playlists.toggleCheckedAt(row);
    EXPECT_TRUE(stores.playlists.isCheckedAt(row));
    EXPECT_EQ(recorder.names(), (QStringList{VLDidSelectPlaylistNotification, VLNeedSizeNotification}));
    stores.playlists.toggleCheckedAt(row);
    EXPECT_FALSE(stores.playlists.isCheckedAt(row));
    EXPECT_TRUE(mediaSetPlaylists(readMediaSet(mediaFolder() + "/CD 1.xml")).isEmpty());

    // An imported playlist is ticked under the name of its conversion.
    recorder.clear();
    stores.playlists.toggleCheckedAt(stores.rowOf(iTunesFolder() + "/Imported.xml"));
    EXPECT_EQ(mediaSetPlaylists(readMediaSet(mediaFolder() + "/CD 1.xml")),
              QStringList{iTunesFolder() + "/Imported.cd3"});
    EXPECT_EQ(recorder.posted[0].second.toString(), iTunesFolder() + "/Imported.xml");

    // Without a media-set source every box is clear and ticking does nothing.
    PlayListDataSource alone;
    alone.awakeFromNib();
    alone.toggleCheckedAt(0);
    EXPECT_FALSE(alone.isCheckedAt(0));
}

TEST_F(PlaylistStore, DeleteRemovesTheFileFromDiskAndEverySet)
{
    writePlaylist(playlistPath("A.cd3"));
    Stores stores;
    stores.media.setIsOnSelectedMedia(playlistPath("A.cd3"));
    NotificationRecorder recorder({VLDidSelectPlaylistNotification, VLPlaylistInfoNotification});
    stores.playlists.deletePlaylist();  // nothing selected
    EXPECT_TRUE(recorder.posted.empty());

    stores.playlists.selectRow(stores.rowOf(playlistPath("A.cd3")));
    recorder.clear();
    stores.playlists.deletePlaylist();
    EXPECT_FALSE(QFileInfo::exists(playlistPath("A.cd3")));
    EXPECT_TRUE(mediaSetPlaylists(readMediaSet(mediaFolder() + "/CD 1.xml")).isEmpty());
    EXPECT_EQ(recorder.names(), QStringList{VLPlaylistInfoNotification});
    EXPECT_EQ(recorder.posted.back().second.toMap().value("playlistarray").toStringList(), QStringList());
}

TEST_F(PlaylistStore, LaunchAndAddedPlaylistsAnnounceTheList)
{
    writePlaylist(playlistPath("A.cd3"));
    Stores stores;
    NotificationRecorder recorder({VLPlaylistInfoNotification, VLDidSelectPlaylistNotification});
    stores.playlists.selectRow(0);
    recorder.clear();
    NotificationCenter::defaultCenter().post(VLDidLaunchNotification);
    EXPECT_EQ(recorder.names(), (QStringList{VLPlaylistInfoNotification, VLDidSelectPlaylistNotification}));
    EXPECT_EQ(recorder.posted[0].second.toMap().value("playlistarray").toStringList(),
              QStringList{playlistPath("A.cd3")});

    recorder.clear();
    writePlaylist(playlistPath("B.cd3"));
    NotificationCenter::defaultCenter().post(VLDidAddPlaylistNotification, playlistPath("B.cd3"));
    EXPECT_EQ(recorder.names(), QStringList{VLPlaylistInfoNotification});
    EXPECT_EQ(recorder.posted[0].second.toMap().value("playlistarray").toStringList().size(), 2);
}

// Copies synchronously, remembering what went where.
class FakeFlashWriter : public FlashWriting {
public:
    void writeToFlash() override { ++asked; }
    FlashItemCopy copyOneItemToFlash(const QString& source, const QString& folder) override
    {
        std::lock_guard lock(mutex);
        copies.append(source + " -> " + folder);
        return {nullptr, true, false, false, {}};
    }
    int asked = 0;
    std::mutex mutex;
    QStringList copies;
};

TEST_F(PlaylistStore, CopyToFlashMakesAFolderPerGroupAndWaitsForTheWriter)
{
    writePlaylist(playlistPath("Trip.cd3"),
                  {"/music/a.mp3", makeGroup("Disc 1", {"/music/b.mp3", makeGroup("Deeper", {"/music/c.mp3"})})});
    {
        Stores stores;
        QSignalSpy alerts(&stores.playlists, &PlayListDataSource::alert);
        stores.playlists.selectRow(0);
        stores.playlists.copyPlayListToFlash();
        ASSERT_EQ(alerts.size(), 1);
        EXPECT_EQ(alerts[0][0].toString(), kFlashUnavailableTitle);
    }
    const QString player = testsupport::homeDir() + "/player";
    QDir(player).removeRecursively();
    QDir().mkpath(player);
    FakeFlashWriter writer;
    Stores stores;
    stores.playlists.setFlashWriter(&writer);
    stores.playlists.selectRow(0);
    QSignalSpy finished(&stores.playlists, &PlayListDataSource::copyFinished);
    stores.playlists.copyPlayListToFlash();
    EXPECT_EQ(writer.asked, 1);
    NotificationCenter::defaultCenter().post(VLShouldCopyFilesNotification, player);
    ASSERT_TRUE(finished.wait(10000));
    EXPECT_TRUE(QFileInfo(player + "/Disc 1/Deeper").isDir());
    EXPECT_EQ(writer.copies, (QStringList{"/music/a.mp3 -> " + player, "/music/b.mp3 -> " + player + "/Disc 1",
                                          "/music/c.mp3 -> " + player + "/Disc 1/Deeper"}));
    // The observer is gone once the answer came: a second answer copies nothing.
    NotificationCenter::defaultCenter().post(VLShouldCopyFilesNotification, player);
    QCoreApplication::processEvents();
    EXPECT_EQ(writer.copies.size(), 3);
}

class BlockingTask : public FlashCopyTask {
public:
    bool waitForExit() override
    {
        std::unique_lock lock(mutex);
        ended.wait(lock, [this] { return terminated; });
        return false;
    }
    QString errorString() const override { return {}; }
    void terminate() override
    {
        std::lock_guard lock(mutex);
        terminated = true;
        ended.notify_all();
    }
    std::mutex mutex;
    std::condition_variable ended;
    bool terminated = false;
};

TEST_F(PlaylistStore, CancellingEndsTheRunningCopyAndStopsBeforeTheNextFile)
{
    writePlaylist(playlistPath("Trip.cd3"), {"/music/a.mp3", "/music/b.mp3"});
    struct Writer : FakeFlashWriter {
        FlashItemCopy copyOneItemToFlash(const QString& source, const QString& folder) override
        {
            FakeFlashWriter::copyOneItemToFlash(source, folder);
            return {task, false, false, false, {}};
        }
        std::shared_ptr<BlockingTask> task = std::make_shared<BlockingTask>();
    } writer;
    Stores stores;
    stores.playlists.setFlashWriter(&writer);
    stores.playlists.selectRow(0);
    QSignalSpy started(&stores.playlists, &PlayListDataSource::copyingFile);
    QSignalSpy finished(&stores.playlists, &PlayListDataSource::copyFinished);
    stores.playlists.copyPlayListToFlash();
    NotificationCenter::defaultCenter().post(VLShouldCopyFilesNotification, testsupport::homeDir());
    ASSERT_TRUE(started.wait(10000));
    EXPECT_EQ(started[0][0].toString(), "a.mp3");
    stores.playlists.cancelWriteToFlash();
    ASSERT_TRUE(finished.wait(10000));
    EXPECT_TRUE(writer.task->terminated);
    EXPECT_EQ(writer.copies.size(), 1);
}

} // namespace

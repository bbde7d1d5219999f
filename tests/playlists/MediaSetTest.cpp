#include "PlaylistTestSupport.h"

#include "common/TestSupport.h"
#include "core/Notifications.h"
#include "core/PropertyList.h"
#include "playlists/MediaDataSource.h"

#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>

#include <gtest/gtest.h>

using namespace PlaylistFiles;
using testsupport::readFile;
using testsupport::writeFile;

namespace {

class MediaSets : public ::testing::Test {
protected:
    void SetUp() override { resetPlaylistState(); }

    static QString setPath(const QString& name) { return mediaFolder() + '/' + name; }
    static void writeSet(const QString& name, const QStringList& playlists)
    {
        QDir().mkpath(QFileInfo(setPath(name)).path());
        ASSERT_TRUE(PropertyList::write(setPath(name), QVariantMap{{"playlists", playlists}}));
    }
};

TEST_F(MediaSets, AFreshFolderGetsTwoEmptySetsThatReadAsEmpty)
{
    MediaDataSource media;
    media.awakeFromNib();
    QStringList entries = media.entries();
    entries.sort();
    EXPECT_EQ(entries, (QStringList{"CD 1.xml", "Flash 1.xml"}));
    EXPECT_EQ(QFileInfo(setPath("CD 1.xml")).size(), 0);
    EXPECT_EQ(QFileInfo(setPath("Flash 1.xml")).size(), 0);
    EXPECT_EQ(media.selectedPath(), setPath("CD 1.xml"));
    EXPECT_TRUE(media.selectedDictionary().isEmpty());
    EXPECT_FALSE(media.isOnSelectedMedia("/x.cd3"));

    // Ticking twice leaves the set as it was.
    media.setIsOnSelectedMedia("/x.cd3");
    EXPECT_TRUE(media.isOnSelectedMedia("/x.cd3"));
    media.setIsOnSelectedMedia("/y.cd3");
    media.setIsOnSelectedMedia("/x.cd3");
    EXPECT_EQ(mediaSetPlaylists(readMediaSet(setPath("CD 1.xml"))), QStringList{"/y.cd3"});
}

TEST_F(MediaSets, FixupRewritesEverySetThatHoldsThePlaylist)
{
    writeSet("One.xml", {"/p/Rock.cd3", "/p/Jazz.cd3"});
    writeSet("Two.XML", {"/p/Jazz.cd3", "/p/Rock.cd3"});
    writeSet("Sub/Three.xml", {"/p/Rock.cd3"});
    writeSet("Other.xml", {"/p/Jazz.cd3"});
    writeFile(setPath("Broken.xml"), "not a property list");
    const QByteArray otherBefore = readFile(setPath("Other.xml"));
    MediaDataSource media;
    media.awakeFromNib();
    media.selectRow(int(media.entries().indexOf("One.xml")));

    NotificationRecorder recorder({VLConvertMediaIfNeededNotification, VLDidSelectMediaNotification});
    media.fixupMedia("/p/Rock.cd3", "/p/Stone.cd3");
    EXPECT_EQ(mediaSetPlaylists(readMediaSet(setPath("One.xml"))), (QStringList{"/p/Stone.cd3", "/p/Jazz.cd3"}));
    EXPECT_EQ(mediaSetPlaylists(readMediaSet(setPath("Two.XML"))), (QStringList{"/p/Jazz.cd3", "/p/Stone.cd3"}));
    EXPECT_EQ(mediaSetPlaylists(readMediaSet(setPath("Sub/Three.xml"))), QStringList{"/p/Stone.cd3"});
    EXPECT_EQ(readFile(setPath("Other.xml")), otherBefore);
    EXPECT_EQ(readFile(setPath("Broken.xml")), "not a property list");
    // The selection follows: the tick boxes now show the new name.
    EXPECT_EQ(recorder.names(), (QStringList{VLConvertMediaIfNeededNotification, VLDidSelectMediaNotification}));
    EXPECT_TRUE(media.isOnSelectedMedia("/p/Stone.cd3"));

    media.fixupMedia("/p/Stone.cd3", QString());
    EXPECT_EQ(mediaSetPlaylists(readMediaSet(setPath("One.xml"))), QStringList{"/p/Jazz.cd3"});
    EXPECT_EQ(mediaSetPlaylists(readMediaSet(setPath("Two.XML"))), QStringList{"/p/Jazz.cd3"});
    EXPECT_TRUE(mediaSetPlaylists(readMediaSet(setPath("Sub/Three.xml"))).isEmpty());
}

TEST_F(MediaSets, UnreadableOrMistypedSetsReadAsEmptyAndAreLeftAlone)
{
    writeFile(setPath("Garbage.xml"), "\x00\x01garbage");
    writeFile(setPath("Typed.xml"), R"(<?xml version="1.0"?><plist version="1.0"><dict><key>playlists</key><string>/p/a.cd3</string></dict></plist>)");
    writeFile(setPath("Mixed.xml"), R"(<?xml version="1.0"?><plist version="1.0"><dict><key>playlists</key><array><string>/p/a.cd3</string><integer>3</integer></array></dict></plist>)");
    writeFile(setPath("Binary.xml"), QByteArray("bplist00") + QByteArray(40, '\0'));
    for (const char* name : {"Garbage.xml", "Typed.xml", "Mixed.xml", "Binary.xml"}) {
        const QByteArray before = readFile(setPath(name));
        EXPECT_TRUE(readMediaSet(setPath(name)).isEmpty()) << name;
        MediaDataSource media;
        media.awakeFromNib();
        media.selectRow(int(media.entries().indexOf(name)));
        EXPECT_FALSE(media.isOnSelectedMedia("/p/a.cd3"));
        media.fixupMedia("/p/a.cd3", "/p/b.cd3");
        media.playMedia();
        media.waitForSize();
        EXPECT_EQ(readFile(setPath(name)), before) << name;
    }
}

TEST_F(MediaSets, AddRenameDeleteAndTheBurnList)
{
    // Registered first, so it sees the notifications in the order they were posted.
    NotificationRecorder recorder({VLDidChangeMediaNotification, VLDidAddMediaNotification,
                                   VLPlayListGroupInfoNotification, VLDidSelectMediaNotification});
    MediaDataSource media;
    media.awakeFromNib();
    media.addMedia(setPath("Party"));
    EXPECT_EQ(recorder.names(), (QStringList{VLDidChangeMediaNotification, VLDidAddMediaNotification,
                                             VLDidSelectMediaNotification, VLPlayListGroupInfoNotification}));
    EXPECT_EQ(media.selectedPath(), setPath("Party.xml"));
    EXPECT_EQ(readMediaSet(setPath("Party.xml")), (QVariantMap{{"playlists", QVariantList()}}));
    media.addMedia(setPath("Loud.XML"));
    EXPECT_TRUE(QFileInfo::exists(setPath("Loud.XML")));

    media.selectRow(int(media.entries().indexOf("Party.xml")));
    media.setIsOnSelectedMedia("/p/a.cd3");
    EXPECT_EQ(*media.getBurnArray(), (QStringList{"/p/a.cd3", setPath("Party")}));

    recorder.clear();
    media.setNameAt(int(media.entries().indexOf("Party.xml")), "Dance");
    EXPECT_TRUE(QFileInfo::exists(setPath("Dance.xml")));
    EXPECT_EQ(recorder.names(), (QStringList{VLPlayListGroupInfoNotification, VLDidSelectMediaNotification}));
    EXPECT_EQ(recorder.posted.back().second.toString(), setPath("Dance.xml"));
    EXPECT_TRUE(media.isOnSelectedMedia("/p/a.cd3"));

    const int before = media.rowCount();
    media.deleteMedia();
    EXPECT_FALSE(QFileInfo::exists(setPath("Dance.xml")));
    EXPECT_EQ(media.rowCount(), before - 1);

    // Removing through the playlist action announces the row then selected as a playlist.
    NotificationRecorder selections({VLDidSelectPlaylistNotification, VLDidSelectMediaNotification});
    media.selectRow(0);
    selections.clear();
    const QString removed = media.selectedPath();
    media.deletePlaylist();
    EXPECT_FALSE(QFileInfo::exists(removed));
    ASSERT_EQ(selections.names(), QStringList{VLDidSelectPlaylistNotification});
    EXPECT_EQ(selections.posted.back().second.toString(), media.selectedPath());

    MediaDataSource none;
    none.selectRow(-1);
    EXPECT_FALSE(none.getBurnArray().has_value());
}

TEST_F(MediaSets, PlayingAndSizingWalkEveryPlaylistOfTheSet)
{
    const QString music = testsupport::homeDir() + "/sizes";
    writeFile(music + "/a.mp3", QByteArray(3 << 20, 'a'));
    writeFile(music + "/b.mp3", QByteArray((1 << 20) + 5, 'b'));
    QDir().mkpath(playlistFolder());
    writeGroup(playlistFolder() + "/One.cd3", makeGroup("OVRoot", {music + "/a.mp3", makeGroup("G", {music + "/b.mp3"})}));
    writeGroup(playlistFolder() + "/Two.cd3", makeGroup("OVRoot", {music + "/missing.mp3"}));
    writeSet("Set.xml", {playlistFolder() + "/One.cd3", playlistFolder() + "/Two.cd3"});
    MediaDataSource media;
    media.awakeFromNib();
    QSignalSpy sizes(&media, &MediaDataSource::sizeChanged);
    media.selectRow(int(media.entries().indexOf("Set.xml")));
    media.waitForSize();
    EXPECT_EQ(media.lastSizeMegabytes(), 4);
    ASSERT_FALSE(sizes.isEmpty());
    EXPECT_EQ(sizes.back()[0].toString(), "4 MB");

    NotificationRecorder recorder({VLPlayPlaylistNotification});
    media.playMedia();
    ASSERT_EQ(recorder.posted.size(), 1u);
    const QVariantMap played = recorder.posted[0].second.toMap();
    EXPECT_EQ(played.value("leafarray").toStringList(),
              (QStringList{music + "/a.mp3", music + "/b.mp3", music + "/missing.mp3"}));
    EXPECT_EQ(played.value("currentlyopenpath").toString(), setPath("Set.xml"));
}

} // namespace

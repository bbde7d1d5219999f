#include "PlaylistTestSupport.h"

#include "common/TestSupport.h"
#include "core/PropertyList.h"
#include "platform/SafeFile.h"
#include "playlists/ITunesManager.h"
#include "playlists/M3uManager.h"
#include "playlists/MediaDataSource.h"
#include "playlists/PlayListDataSource.h"

#include <QFileInfo>

#include <gtest/gtest.h>

#include <functional>

using namespace PlaylistFiles;
using testsupport::readFile;
using testsupport::writeFile;

namespace {

QStringList entriesOf(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

class SafeWrites : public ::testing::Test {
protected:
    void SetUp() override
    {
        resetPlaylistState();
        dismissFailedJobs();
    }
    void TearDown() override
    {
        SafeFile::setFaultInjector({});
        dismissFailedJobs();
    }
};

// One writer of the store, run over a file that is already there.
struct Writer {
    const char* what;
    QString target;
    QString failureTitle;           // the failed job that says why
    std::function<void()> makeOld;  // puts the old file in place
    std::function<bool()> write;    // true when the writer claims success
};

}  // namespace

TEST_F(SafeWrites, AFailureAtAnyStepKeepsTheOldFileLeavesNothingAndIsReported)
{
    m3uManager m3u;
    std::unique_ptr<MediaDataSource> media;
    const QString m3uRequestPath = testsupport::homeDir() + "/lists/Trip.cd3";
    const std::vector<Writer> writers{
        {"a playlist", playlistFolder() + "/Mix.cd3", QString::fromUtf8("Saving the playlist \u201cMix\u201d"),
         [] {
             QDir().mkpath(playlistFolder());
             ASSERT_TRUE(writeGroup(playlistFolder() + "/Mix.cd3", makeGroup("OVRoot", {"/old.mp3"})));
         },
         [] { return writeGroup(playlistFolder() + "/Mix.cd3", makeGroup("OVRoot", {"/new.mp3"})); }},
        {"a media set ticked", mediaFolder() + "/CD 1.xml", QString::fromUtf8("Saving the media set \u201cCD 1\u201d"),
         [&] {
             media = std::make_unique<MediaDataSource>();
             media->awakeFromNib();  // makes the sets and selects "CD 1"
             media->setIsOnSelectedMedia("/p/Old.cd3");
         },
         [&] {
             media->setIsOnSelectedMedia("/p/New.cd3");
             return failedJobs(QString::fromUtf8("Saving the media set \u201cCD 1\u201d")).isEmpty();
         }},
        {"an M3U file", m3uFolder() + "/Trip.m3u", "Writing Trip.m3u",
         [] { ASSERT_TRUE(writeFile(m3uFolder() + "/Trip.m3u", "#EXTM3U\nold\n")); },
         [&] {
             return !m3u.vlM3UPlaylistNotification(
                            {{"path", m3uRequestPath}, {"dictionary", makeGroup("OVRoot", {"/m/a.mp3"})}})
                         .isEmpty();
         }},
    };
    for (const Writer& writer : writers) {
        for (SafeFile::Step step : {SafeFile::Step::Create, SafeFile::Step::Write, SafeFile::Step::Check,
                                    SafeFile::Step::Sync, SafeFile::Step::Rename}) {
            SCOPED_TRACE(std::string(writer.what) + ", failing step " + std::to_string(int(step)));
            resetPlaylistState();
            writer.makeOld();
            const QByteArray old = readFile(writer.target);
            ASSERT_FALSE(old.isEmpty());
            const QString folder = QFileInfo(writer.target).path();
            const QStringList before = entriesOf(folder);
            const QString target = QFileInfo(writer.target).absoluteFilePath();
            SafeFile::setFaultInjector(
                [&](SafeFile::Step at, const QString& path) { return at == step && path == target; });
            EXPECT_FALSE(writer.write());
            SafeFile::setFaultInjector({});
            EXPECT_EQ(readFile(writer.target), old);
            EXPECT_EQ(entriesOf(folder), before);
            const auto failed = failedJobs(writer.failureTitle);
            ASSERT_EQ(failed.size(), 1);
            EXPECT_TRUE(failed.first()->result().error.contains(writer.target))
                << qPrintable(failed.first()->result().error);
            dismissFailedJobs();
            // Without the fault the same write goes through.
            EXPECT_TRUE(writer.write());
            EXPECT_NE(readFile(writer.target), old);
            media.reset();
        }
    }
}

TEST_F(SafeWrites, ARenameNeverReplacesAnotherPlaylistOrMediaSet)
{
    QDir().mkpath(playlistFolder());
    ASSERT_TRUE(writeGroup(playlistFolder() + "/Rock.cd3", makeGroup("OVRoot", {"/rock.mp3"})));
    ASSERT_TRUE(writeGroup(playlistFolder() + "/Jazz.cd3", makeGroup("OVRoot", {"/jazz.mp3"})));
    const QByteArray rock = readFile(playlistFolder() + "/Rock.cd3");
    const QByteArray jazz = readFile(playlistFolder() + "/Jazz.cd3");
    MediaDataSource media;
    media.awakeFromNib();
    media.setIsOnSelectedMedia(playlistFolder() + "/Rock.cd3");
    PlayListDataSource playlists;
    playlists.setMediaSource(&media);
    playlists.awakeFromNib();

    playlists.setNameAt(int(playlists.playlistList().indexOf(playlistFolder() + "/Rock.cd3")), "Jazz");
    EXPECT_EQ(readFile(playlistFolder() + "/Rock.cd3"), rock);
    EXPECT_EQ(readFile(playlistFolder() + "/Jazz.cd3"), jazz);
    // The set still names the playlist that is still there.
    EXPECT_TRUE(media.isOnSelectedMedia(playlistFolder() + "/Rock.cd3"));
    const auto refused = failedJobs(QString::fromUtf8("Renaming the playlist \u201cRock\u201d"));
    ASSERT_EQ(refused.size(), 1);
    EXPECT_TRUE(refused.first()->result().error.contains("already exists"));

    // Media sets alike: "CD 1" does not become "Flash 1".
    ASSERT_TRUE(PropertyList::write(mediaFolder() + "/Flash 1.xml", QVariantMap{{"playlists", QStringList{"/f.cd3"}}}));
    const QByteArray flash = readFile(mediaFolder() + "/Flash 1.xml");
    const QByteArray cd = readFile(mediaFolder() + "/CD 1.xml");
    media.reloadData();
    media.setNameAt(int(media.entries().indexOf("CD 1.xml")), "Flash 1");
    EXPECT_EQ(readFile(mediaFolder() + "/Flash 1.xml"), flash);
    EXPECT_EQ(readFile(mediaFolder() + "/CD 1.xml"), cd);
    EXPECT_EQ(media.selectedPath(), mediaFolder() + "/CD 1.xml");
    EXPECT_EQ(failedJobs(QString::fromUtf8("Renaming the media set \u201cCD 1\u201d")).size(), 1);

    // A free name still works.
    media.setNameAt(int(media.entries().indexOf("CD 1.xml")), "Car");
    EXPECT_EQ(readFile(mediaFolder() + "/Car.xml"), cd);
    EXPECT_EQ(media.selectedPath(), mediaFolder() + "/Car.xml");
}

TEST_F(SafeWrites, LinksFoundInTheWayAreNeverFollowed)
{
    // The iTunes folder, emptied at every start, replaced by a link to the user's music.
    const QString music = testsupport::homeDir() + "/Precious";
    ASSERT_TRUE(writeFile(music + "/song.mp3", "precious"));
    QDir().mkpath(appFolder());
    ASSERT_TRUE(QFile::link(music, iTunesFolder()));
    iTunesManager importer;
    ASSERT_TRUE(importer.prepareFolders());
    EXPECT_EQ(readFile(music + "/song.mp3"), "precious");
    EXPECT_FALSE(QFileInfo(iTunesFolder()).isSymLink());
    EXPECT_TRUE(QFileInfo(iTunesFolder()).isDir());
    EXPECT_TRUE(entriesOf(iTunesFolder()).isEmpty());

    // An M3U export folder someone else can write to, with a link where the copy goes.
    const QString shared = testsupport::homeDir() + "/shared";
    const QString victim = testsupport::homeDir() + "/victim.txt";
    ASSERT_TRUE(writeFile(victim, "keep me"));
    QDir().mkpath(shared);
    ASSERT_TRUE(QFile::link(victim, shared + "/Trip.m3u"));
    m3uManager m3u;
    const QString written = m3u.vlM3UPlaylistNotification({{"path", "/lists/Trip.cd3"},
                                                           {"dictionary", makeGroup("OVRoot", {"/m/a.mp3"})},
                                                           {"prefsM3UExportFolderStored", shared}});
    EXPECT_EQ(written, m3uFolder() + "/Trip.m3u");  // the file itself is made
    EXPECT_EQ(readFile(victim), "keep me");
    EXPECT_TRUE(QFileInfo(shared + "/Trip.m3u").isSymLink());
    const auto refused = failedJobs("Writing Trip.m3u");
    ASSERT_EQ(refused.size(), 1);
    EXPECT_TRUE(refused.first()->result().error.contains("symbolic link"));
}

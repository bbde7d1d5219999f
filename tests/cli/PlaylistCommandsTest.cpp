#include "common/TestSupport.h"
#include "core/Defaults.h"
#include "core/PropertyList.h"
#include "playlists/M3uManager.h"
#include "playlists/PlaylistFiles.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>

#include <gtest/gtest.h>

using namespace PlaylistFiles;
using testsupport::builtProgram;
using testsupport::readFile;
using testsupport::run;
using testsupport::writeFile;

namespace {

class PlaylistCommands : public ::testing::Test {
protected:
    void SetUp() override
    {
        QDir(appFolder()).removeRecursively();
        Defaults::standard().removeObject("mHPlaylistArray");
        Defaults::standard().removeObject("prefsPreserveOrderStored");
        Defaults::standard().synchronize();
    }
    // Standard output; the progress lines and messages on standard error go to *errors.
    static QByteArray cli(const QStringList& arguments, int expectedExit = 0, QByteArray* errors = nullptr)
    {
        QProcess process;
        process.start(builtProgram("velmora-cli"), arguments);
        process.closeWriteChannel();
        EXPECT_TRUE(process.waitForFinished(120000));
        const QByteArray error = process.readAllStandardError();
        EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(process.exitCode(), expectedExit) << error.constData();
        if (errors)
            *errors = error;
        return process.readAllStandardOutput();
    }
};

TEST_F(PlaylistCommands, PlaylistsListsBothFoldersWithHiddenMarksAndTheMediaSets)
{
    QDir().mkpath(playlistFolder());
    writeGroup(playlistFolder() + "/Rock.cd3", makeGroup("OVRoot", {}));
    writeGroup(playlistFolder() + "/Jazz.cd3", makeGroup("OVRoot", {}));
    writeFile(iTunesFolder() + "/Rock.xml", "<plist/>");
    QDir().mkpath(mediaFolder());
    PropertyList::write(mediaFolder() + "/CD 1.xml", QVariantMap{{"playlists", QStringList{playlistFolder() + "/Jazz.cd3"}}});
    Defaults::standard().setObject("mHPlaylistArray", QStringList{"Rock"});
    Defaults::standard().synchronize();

    const QString output = QString::fromUtf8(cli({"playlists"}));
    EXPECT_TRUE(output.contains("  Rock\t" + playlistFolder() + "/Rock.cd3\thidden\n")) << qPrintable(output);
    EXPECT_TRUE(output.contains("  Rock\t" + iTunesFolder() + "/Rock.xml\thidden\n"));
    EXPECT_TRUE(output.contains("  Jazz\t" + playlistFolder() + "/Jazz.cd3\n"));
    EXPECT_TRUE(output.contains("Media sets:\n  CD 1\t" + mediaFolder() + "/CD 1.xml\n    " + playlistFolder() + "/Jazz.cd3\n"));
}

TEST_F(PlaylistCommands, M3uWritesWhatTheMusicTabWrites)
{
    const QString playlist = testsupport::homeDir() + "/lists/Trip.cd3";
    QDir().mkpath(QFileInfo(playlist).path());
    const QVariantMap group = makeGroup("OVRoot", {"/m/a.flac", makeGroup("Disc 1", {"/m/b.mp3"})});
    writeGroup(playlist, group);
    Defaults::standard().setInteger("prefsPreserveOrderStored", 1);
    Defaults::standard().synchronize();

    const QString exportFolder = testsupport::homeDir() + "/stick";
    QByteArray progress;
    const QByteArray output =
        cli({"m3u", "--mp3", "--prefix", "Music", "--export-folder", exportFolder, playlist}, 0, &progress);
    const QString target = m3uFolder() + "/Trip.m3u";
    EXPECT_EQ(output, (target + "\n").toUtf8());
    // The job's progress, a step per track.
    EXPECT_EQ(progress, "Writing Trip.m3u:  Create .M3U for Trip.cd3 (0%)\n"
                        "Writing Trip.m3u:  Create .M3U for Trip.cd3 (50%)\n"
                        "Writing Trip.m3u:  Create .M3U for Trip.cd3 (100%)\n");
    const QByteArray expected = "#EXTM3U\n#EXTINF:0,a\nMusic/000a.MP3\n#EXTINF:0,b\nMusic/001Disc 1/000b.mp3\n";
    EXPECT_EQ(readFile(target), expected);
    EXPECT_EQ(readFile(exportFolder + "/Trip.m3u"), expected);

    // The same request made in-process gives the same bytes.
    m3uManager manager;
    manager.vlM3UPlaylistNotification({{"path", playlist}, {"dictionary", group},
                                       {"prefsM3UPathPrefixStored", "Music"}, {"makemp3ifneeded", true}});
    EXPECT_EQ(readFile(target), expected);

    // Shuffling a single entry changes nothing.
    writeGroup(playlist, makeGroup("OVRoot", {"/m/a.flac"}));
    cli({"m3u", "--shuffle", playlist});
    EXPECT_EQ(readFile(target), "#EXTM3U\n#EXTINF:0,a\n000a.flac\n");

    writeFile(testsupport::homeDir() + "/lists/Broken.cd3", "nonsense");
    cli({"m3u", testsupport::homeDir() + "/lists/Broken.cd3"}, 1);
    EXPECT_FALSE(QFileInfo::exists(m3uFolder() + "/Broken.m3u"));
    cli({"m3u"}, 2);
}

TEST_F(PlaylistCommands, ItunesImportListsAndConvertsEveryPlaylist)
{
    const QString libraryFile = testsupport::homeDir() + "/elsewhere/Library.xml";
    writeFile(libraryFile,
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
              "<key>Tracks</key><dict>"
              "<key>1</key><dict><key>Location</key><string>file://localhost/M/One%20Two.mp3</string></dict>"
              "<key>2</key><dict><key>Location</key><string>file://localhost/M/Film.mov</string></dict>"
              "</dict><key>Playlists</key><array>"
              "<dict><key>Name</key><string>A/B</string><key>Playlist Items</key><array>"
              "<dict><key>Track ID</key><integer>1</integer></dict><dict><key>Track ID</key><integer>2</integer></dict>"
              "</array></dict>"
              "<dict><key>Name</key><string>Empty</string><key>Playlist Items</key><array/></dict>"
              "</array></dict></plist>\n");
    QByteArray progress;
    const QString output = QString::fromUtf8(cli({"itunes-import", libraryFile}, 0, &progress));
    EXPECT_EQ(output, "A/B\t" + iTunesFolder() + "/A-B.cd3\t1 tracks\nEmpty\t" + iTunesFolder() + "/Empty.cd3\t0 tracks\n");
    // The jobs' progress: a step per playlist written, then per playlist converted.
    EXPECT_EQ(progress, "Reading the iTunes library: " + libraryFile.toUtf8() +
                            "\n"
                            "Importing the iTunes playlists: A/B (0%)\n"
                            "Importing the iTunes playlists: Empty (50%)\n"
                            "Converting iTunes playlists: A-B (0%)\n"
                            "Converting iTunes playlists: Empty (50%)\n");
    const auto group = readGroup(iTunesFolder() + "/A-B.cd3");
    ASSERT_TRUE(group.has_value());
    EXPECT_EQ(*group, makeGroup("OVRoot", {"/M/One Two.mp3"}));
    EXPECT_FALSE(QFileInfo::exists(iTunesFolder() + "/A-B.xml"));

    writeFile(libraryFile, "<?xml version=\"1.0\"?><!DOCTYPE plist [<!ENTITY x \"y\">]><plist><dict/></plist>");
    cli({"itunes-import", libraryFile}, 1);
    cli({"itunes-import", testsupport::homeDir() + "/no/such.xml"}, 1);
}

} // namespace

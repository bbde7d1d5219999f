#include "PlaylistTestSupport.h"

#include "common/TestSupport.h"
#include "core/Notifications.h"
#include "playlists/M3uManager.h"

#include <QFileInfo>
#include <QSignalSpy>

#include <gtest/gtest.h>

#include <deque>

using namespace PlaylistFiles;
using testsupport::readFile;

namespace {

class M3u : public ::testing::Test {
protected:
    void SetUp() override { resetPlaylistState(); }

    static QString makeTone(const QString& name, const QStringList& metadata, const QString& seconds = "3")
    {
        const QString folder = testsupport::homeDir() + "/tones";
        QDir().mkpath(folder);
        const QString path = folder + '/' + name;
        if (QFileInfo::exists(path))
            return path;
        QStringList arguments{"-nostdin", "-loglevel", "error", "-f", "lavfi", "-i", "sine=frequency=440:duration=" + seconds};
        for (const QString& item : metadata)
            arguments << "-metadata" << item;
        arguments << path;
        EXPECT_EQ(testsupport::run("ffmpeg", arguments), 0) << qPrintable(path);
        return path;
    }
};

TEST_F(M3u, OneTrackGivesOneEntryAndShufflingItChangesNothing)
{
    m3uManager manager;
    const QString text = "#EXTM3U\n" + manager.copyPlaylistDict(makeGroup("OVRoot", {"/nowhere/Lonely Song.mp3"}),
                                                                 "", "", 0, false);
    EXPECT_EQ(text, "#EXTM3U\n#EXTINF:0,Lonely Song\nLonely Song.mp3\n");
    manager.setRandomSource([] { return 0L; });
    EXPECT_EQ(manager.shuffleM3UPlaylist(text), text);
}

TEST_F(M3u, NestedGroupsWithPreserveOrderAndTheMp3Flag)
{
    const QVariantMap playlist = makeGroup(
        "OVRoot", {"/m/One.mp3", "/m/Two.flac", "/m/Three.wav",
                   makeGroup("/Volumes/Disc 2", {"/m/Four.mp3", makeGroup("Bonus", {"/m/Five.ogg", "/m/noext"})}),
                   "/m/Six.MP3"});
    m3uManager manager;

    // No prefix and no numbering: bare file names at the top level.
    EXPECT_EQ(manager.copyPlaylistDict(playlist, "", "", 0, false),
              "#EXTINF:0,One\nOne.mp3\n#EXTINF:0,Two\nTwo.flac\n#EXTINF:0,Three\nThree.wav\n"
              "#EXTINF:0,Four\nDisc 2/Four.mp3\n#EXTINF:0,Five\nDisc 2/Bonus/Five.ogg\n"
              "#EXTINF:0,noext\nDisc 2/Bonus/noext\n#EXTINF:0,Six\nSix.MP3\n");

    Defaults::standard().setInteger("prefsPreserveOrderStored", 1);
    EXPECT_EQ(manager.copyPlaylistDict(playlist, "07Trip", "/player/Music", 0, true),
              "#EXTINF:0,One\n07Trip/player/Music/000One.mp3\n"
              "#EXTINF:0,Two\n07Trip/player/Music/001Two.MP3\n"
              "#EXTINF:0,Three\n07Trip/player/Music/002Three.MP3\n"
              "#EXTINF:0,Four\n07Trip/player/Music/003Disc 2/000Four.mp3\n"
              "#EXTINF:0,Five\n07Trip/player/Music/003Disc 2/001Bonus/000Five.MP3\n"
              "#EXTINF:0,noext\n07Trip/player/Music/003Disc 2/001Bonus/001noext.MP3\n"
              "#EXTINF:0,Six\n07Trip/player/Music/004Six.MP3\n");
}

// Titles are ID3 titles only; every other file is listed by its name, and
// lengths are the media framework's play time.
TEST_F(M3u, LengthsAndTitlesComeFromId3AndTheMediaFramework)
{
    const QVariantList tracks{
        makeTone("titled.mp3", {"title=Morning Tune"}),
        makeTone("Artist - Album - 03 - Title.mp3", {}),
        makeTone("tagged.flac", {"title=Not Used"}),
        makeTone("comment.ogg", {"title=O Title"}),
        makeTone("atom.m4a", {"title=M4A T"}),
        makeTone("short.wma", {"title=W"}, "5.6"),
    };
    EXPECT_EQ(m3uManager::getSongTime("/no/such/file.mp3"), "0");
    EXPECT_FALSE(m3uManager::getSongName(tracks.at(2).toString()).has_value());

    m3uManager manager;
    EXPECT_EQ("#EXTM3U\n" + manager.copyPlaylistDict(makeGroup("OVRoot", tracks), "", "", 0, false),
              "#EXTM3U\n"
              "#EXTINF:3,Morning Tune\ntitled.mp3\n"
              "#EXTINF:3,Artist - Album - 03 - Title\nArtist - Album - 03 - Title.mp3\n"
              "#EXTINF:3,tagged\ntagged.flac\n"
              "#EXTINF:3,comment\ncomment.ogg\n"
              "#EXTINF:3,atom\natom.m4a\n"
              "#EXTINF:5,short\nshort.wma\n");
}

TEST_F(M3u, ShuffleExchangesWholeEntriesAndKeepsTheExtraLineFeed)
{
    m3uManager manager;
    std::deque<long> draws{0, 2, 1, 0, 5, 4};
    manager.setRandomSource([&] {
        const long value = draws.front();
        draws.pop_front();
        return value;
    });
    EXPECT_EQ(manager.shuffleM3UPlaylist("#EXTM3U\na1\na2\nb1\nb2\nc1\nc2\n"), "#EXTM3U\nb1\nb2\na1\na2\nc1\nc2\n\n");
    EXPECT_TRUE(draws.empty());

    // With the real random source every entry survives, its two lines together.
    m3uManager real;
    QString text = "#EXTM3U\n";
    for (int i = 0; i < 20; ++i)
        text += QStringLiteral("#EXTINF:%1,t%1\n/p/%1.mp3\n").arg(i);
    const QString shuffled = real.shuffleM3UPlaylist(text);
    EXPECT_TRUE(shuffled.endsWith("\n\n"));
    QStringList lines = shuffled.split('\n');
    ASSERT_EQ(lines.size(), 43);
    QStringList seen;
    for (int pair = 0; pair < 20; ++pair) {
        const QString info = lines[1 + 2 * pair];
        const QString number = info.section(',', 1).mid(1);
        EXPECT_EQ(lines[2 + 2 * pair], "/p/" + number + ".mp3");
        seen.append(number);
    }
    seen.sort();
    EXPECT_EQ(seen.size(), 20);
    EXPECT_EQ(seen.removeDuplicates(), 0);
}

TEST_F(M3u, RequestWritesTheFileCopiesItAndReportsStatus)
{
    m3uManager manager;
    manager.awakeFromNib();
    EXPECT_TRUE(QFileInfo(m3uFolder()).isDir());
    QSignalSpy status(&manager, &m3uManager::statusChanged);
    const QString exportFolder = "~/exported";
    const QString exported = testsupport::homeDir() + "/exported/Road Trip.m3u";
    testsupport::writeFile(exported, "old");
    Defaults::standard().setInteger("prefsPreserveOrderStored", 1);
    NotificationCenter::defaultCenter().post(
        VLM3UPlaylistNotification,
        QVariantMap{{"path", "/p/Road Trip.cd3"},
                    {"dictionary", makeGroup("OVRoot", {"/m/a.mp3"})},
                    {"indexstring", "02"},
                    {"prefsM3UPathPrefixStored", "Music"},
                    {"prefsM3UExportFolderStored", exportFolder}});
    const QByteArray expected = "#EXTM3U\n#EXTINF:0,a\n02Road Trip/Music/000a.mp3\n";
    EXPECT_EQ(readFile(m3uFolder() + "/Road Trip.m3u"), expected);
    EXPECT_EQ(readFile(exported), expected);
    ASSERT_EQ(status.size(), 2);
    EXPECT_EQ(status[0][0].toString(), " Create .M3U for Road Trip.cd3");
    EXPECT_EQ(status[0][1].toInt(), 50);
    EXPECT_EQ(status[1][0].toString(), "");
    EXPECT_EQ(status[1][1].toInt(), 0);

    // Exporting into the M3U folder itself leaves the file in place.
    const QString written = manager.vlM3UPlaylistNotification(
        {{"path", "/p/Road Trip.cd3"}, {"dictionary", makeGroup("OVRoot", {"/m/a.mp3"})},
         {"prefsM3UExportFolderStored", m3uFolder()}});
    EXPECT_EQ(written, m3uFolder() + "/Road Trip.m3u");
    EXPECT_EQ(readFile(written), "#EXTM3U\n#EXTINF:0,a\n000a.mp3\n");
}

TEST_F(M3u, TheRequestIsAJobWithAStepPerTrackAndACancelKeepsTheOldFile)
{
    m3uManager manager;
    const QVariantMap request{
        {"path", "/p/Mix.cd3"},
        {"dictionary", makeGroup("OVRoot", {"/m/a.mp3", makeGroup("Disc 2", {"/m/b.mp3"}), "/m/c.mp3", "/m/d.mp3"})}};
    QList<double> steps;
    std::shared_ptr<Job> seen;
    bool cancelHalfWay = false;
    QObject context;
    QObject::connect(
        &JobList::shared(), &JobList::jobChanged, &context,
        [&](quint64 id) {
            const auto job = JobList::shared().job(id);
            // The cancel itself is a change too; it is no step.
            if (!job || job->title() != "Writing Mix.m3u" || job->status().isEmpty() || job->isCancelled())
                return;
            seen = job;
            EXPECT_EQ(job->status(), " Create .M3U for Mix.cd3");
            steps << job->percent();
            if (cancelHalfWay && job->percent() >= 50)
                job->cancel();
        },
        Qt::DirectConnection);

    EXPECT_EQ(manager.vlM3UPlaylistNotification(request), m3uFolder() + "/Mix.m3u");
    EXPECT_EQ(steps, (QList<double>{0, 25, 50, 75, 100}));
    ASSERT_TRUE(seen);
    EXPECT_EQ(seen->result().files, QStringList{m3uFolder() + "/Mix.m3u"});

    // Cancelled half-way: nothing is written and the last file stays.
    const QByteArray last = readFile(m3uFolder() + "/Mix.m3u");
    steps.clear();
    cancelHalfWay = true;
    EXPECT_EQ(manager.vlM3UPlaylistNotification(request), "");
    EXPECT_EQ(steps, (QList<double>{0, 25, 50}));
    EXPECT_EQ(seen->result().outcome, JobResult::Outcome::Cancelled);
    EXPECT_FALSE(JobList::shared().job(seen->id()));
    EXPECT_EQ(readFile(m3uFolder() + "/Mix.m3u"), last);
}

} // namespace

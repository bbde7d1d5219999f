// velmora-cli play with the real players and the fake audio sink.
#include "common/PlayerFixtures.h"
#include "common/TestSupport.h"
#include "playlists/PlaylistFiles.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace playerfixtures;
using testsupport::builtProgram;

namespace {

class PlayCliTest : public ::testing::Test {
protected:
    void SetUp() override { useFakeAudio(); }
    QTemporaryDir dir;
};

bool waitForOutput(QProcess& process, const QByteArray& text, QByteArray& seen, int ms = 15000)
{
    QElapsedTimer timer;
    timer.start();
    while (!seen.contains(text) && timer.elapsed() < ms && process.state() == QProcess::Running) {
        process.waitForReadyRead(100);
        seen += process.readAllStandardOutput();
    }
    return seen.contains(text);
}

}  // namespace

TEST_F(PlayCliTest, PlaysFilesAndPlaylistsInStopModeOneLineASongAndEnds)
{
    const QString first = makeSong(dir.path(), "first.mp3", 1, "Alpha", "Band");
    const QString playlist = dir.filePath("Evening.cd3");
    PlaylistFiles::writeGroup(playlist, {{"Group", "OVRoot"},
                                         {"Entries", QStringList{makeCorrupt(dir.path(), "broken.wav"),
                                                                 makeSong(dir.path(), "second.ogg", 2, "Beta")}}});
    QProcess play;
    play.start(builtProgram("velmora-cli"), {"play", "--mode", "stop", "--volume", "40", first, playlist});
    ASSERT_TRUE(play.waitForFinished(30000));
    EXPECT_EQ(play.exitCode(), 0);
    EXPECT_EQ(QString::fromUtf8(play.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts),
              (QStringList{"Playing 1/3: Alpha \u2014 Band (00:01)", "Playing 3/3: Beta (00:02)"}));
    EXPECT_TRUE(play.readAllStandardError().contains("\xe2\x80\x9c"
                                                     "broken.wav\xe2\x80\x9d cannot be played"));
}

TEST_F(PlayCliTest, SpacePausesNSkipsAndQQuits)
{
    const QStringList songs{makeSong(dir.path(), "one.wav", 30), makeSong(dir.path(), "two.wav", 30)};
    QProcess play;
    play.start(builtProgram("velmora-cli"), QStringList{"play", "--mode", "repeat"} + songs);
    ASSERT_TRUE(play.waitForStarted());
    QByteArray seen;
    ASSERT_TRUE(waitForOutput(play, "Playing 1/2: one (00:30)\n", seen));
    play.write(" ");
    ASSERT_TRUE(waitForOutput(play, "Paused\n", seen));
    play.write(" n");
    ASSERT_TRUE(waitForOutput(play, "Playing 2/2: two (00:30)\n", seen));
    EXPECT_TRUE(seen.contains("Paused\nPlaying\n"));
    play.write("q");
    ASSERT_TRUE(play.waitForFinished(10000));
    EXPECT_EQ(play.exitCode(), 0);
    EXPECT_TRUE(processesMentioning(dir.path()).isEmpty());  // the player went with it
}

TEST_F(PlayCliTest, BadArgumentsAreRefused)
{
    const QString song = makeSong(dir.path(), "song.wav", 1);
    const struct {
        QStringList arguments;
        int status;
    } cases[] = {
        {{"--mode", "loop", song}, 2},
        {{"--volume", "101", song}, 2},
        {{}, 2},
        {{dir.filePath("missing.mp3")}, 1},
        {{makeCorrupt(dir.path(), "noise.mp3")}, 1},  // nothing could be played
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(qPrintable(c.arguments.join(' ')));
        EXPECT_EQ(testsupport::run(builtProgram("velmora-cli"), QStringList{"play"} + c.arguments), c.status);
    }
}

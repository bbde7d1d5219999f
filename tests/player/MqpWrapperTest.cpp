// The player engine driving the real mqp (fake sink) and the real mplayer (-ao null).
#include "player/MqpWrapper.h"

#include "common/PlayerFixtures.h"
#include "common/TestSupport.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QThread>

#include <csignal>
#include <functional>
#include <sys/stat.h>
#include <thread>

using namespace playerfixtures;

namespace {

class PlayerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        useFakeAudio();
        ASSERT_TRUE(dir.isValid());
    }
    void TearDown() override { EXPECT_TRUE(children().isEmpty()) << "a player process was left behind"; }
    QString song(const QString& name, double seconds) { return makeSong(dir.path(), name, seconds); }
    QTemporaryDir dir;
};

// Polls until the condition holds or the time is up.
bool eventually(const std::function<bool()>& condition, int timeoutMs = 8000)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > timeoutMs)
            return false;
        QThread::msleep(50);
    }
    return true;
}

}  // namespace

TEST(PlayerChoice, ExtensionsPickTheProgramAndItsArguments)
{
    qunsetenv("VELMORA_MPLAYER_AO");
    const struct {
        const char* path;
        bool force;
        bool mplayer;
    } cases[] = {
        {"/m/a.mp3", false, false},  {"/m/a.M4A", false, false},      {"/m/a.mid", false, false},
        {"/m/a.midi", false, false}, {"/m/a.kar", false, false},      {"/m/a.m4b", false, false},
        {"/m/a.aac", false, false},  {"/m/a.m4r", false, false},      {"/m/a.m4p", false, false},
        {"/m/a.WAV", false, false},  {"/m/a.aiff", false, false},     {"/m/a.aif", false, false},
        {"/m/a.ogg", false, true},   {"/m/a.wma", false, true},       {"/m/a.flac", false, true},
        {"/m/a.mp2", false, true},   {"/m/noextension", false, true}, {"/m/a.ogg", true, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(mqp_wrapper::usesMplayerFor(c.path, c.force), c.mplayer);
        const QStringList line = mqp_wrapper::commandLineFor(c.path, c.force);
        if (c.mplayer) {
            EXPECT_EQ(QFileInfo(line.first()).fileName(), "mplayer");
            EXPECT_EQ(line.mid(1), (QStringList{"-slave", "-quiet", c.path}));
        } else {
            EXPECT_EQ(QFileInfo(line.first()).fileName(), "mqp");
            EXPECT_EQ(line.mid(1), QStringList{c.path});
        }
    }
    // The test hook gives mplayer its audio output; the file stays last.
    qputenv("VELMORA_MPLAYER_AO", "null");
    EXPECT_EQ(mqp_wrapper::commandLineFor("rel.ogg", false).mid(1),
              (QStringList{"-slave", "-quiet", "-ao", "null", QFileInfo("rel.ogg").absoluteFilePath()}));
    EXPECT_EQ(mqp_wrapper::timeText(59), "00:59");
    EXPECT_EQ(mqp_wrapper::timeText(3599), "59:59");
    EXPECT_EQ(mqp_wrapper::timeText(3723), "01:02:03");
}

TEST_F(PlayerTest, MqpDialectPlaysPausesSeeksAndEnds)
{
    const QString path = song("tone.wav", 4);
    mqp_wrapper player(path, false);
    QSignalSpy shown(&player, &mqp_wrapper::progressChanged);
    EXPECT_FALSE(player.usesMplayer());
    ASSERT_TRUE(player.isRunning());
    EXPECT_EQ(player.length(), 4);

    // Silent until play.
    QThread::msleep(600);
    EXPECT_EQ(player.updateProgress(), 0);
    player.setVolume(50);
    player.play();
    ASSERT_TRUE(eventually([&] { return player.updateProgress() >= 25; }));
    EXPECT_EQ(shown.last().at(1).toString(), "00:01");

    player.pause();
    EXPECT_TRUE(player.paused());
    const int held = player.updateProgress();
    QThread::msleep(1200);
    EXPECT_EQ(player.updateProgress(), held);

    player.setTimeSeconds(3);
    player.pause();  // toggles back to playing
    EXPECT_FALSE(player.paused());
    const int afterSeek = player.updateProgress();
    EXPECT_GE(afterSeek, 75);
    EXPECT_LE(afterSeek, 99);  // the last second still plays
    player.setTime(25);
    EXPECT_EQ(player.updateProgress(), 25);

    ASSERT_TRUE(eventually([&] { return player.updateProgress() == 100; }));
    EXPECT_TRUE(player.hasEnded());
    EXPECT_EQ(player.position(), 4);
    player.quit();
    EXPECT_FALSE(player.isRunning());
    player.play();  // a player without a process ignores commands
    EXPECT_FALSE(player.paused());

    // Progress in seconds, made from a creation dictionary.
    mqp_wrapper seconds(QVariantMap{{"path", path}, {"progressaspercent", false}});
    QSignalSpy secondsShown(&seconds, &mqp_wrapper::progressChanged);
    seconds.setTimeSeconds(3);
    EXPECT_EQ(seconds.updateProgress(), 3);
    EXPECT_EQ(secondsShown.last().at(1).toString(), "3");
}

TEST_F(PlayerTest, MplayerDialectStartsPausedAfterTheLengthQueryAndPlaysToTheEnd)
{
    const QString path = song("tone.ogg", 8);
    mqp_wrapper player(path, false);
    EXPECT_TRUE(player.usesMplayer());
    ASSERT_TRUE(player.isRunning());
    EXPECT_EQ(player.length(), 8);
    EXPECT_TRUE(player.paused());

    // Paused, mplayer does not move on by itself.
    QThread::msleep(1500);
    player.play();
    EXPECT_FALSE(player.paused());
    EXPECT_LT(player.updateProgress(), 12);

    // mplayer seeks between two of its frames: the next question sees it.
    player.setVolume(30);
    player.setTime(50);
    EXPECT_TRUE(eventually([&] { return player.updateProgress() >= 50; }, 600));
    player.setTimeSeconds(6);
    EXPECT_TRUE(eventually([&] { return player.updateProgress() >= 75; }, 600));

    // mplayer leaves at the end of the song; the player reaps it.
    ASSERT_TRUE(eventually([&] { return player.updateProgress() == 100; }));
    EXPECT_TRUE(player.hasEnded());
    EXPECT_FALSE(player.isRunning());
    EXPECT_TRUE(zombies().isEmpty());

    // Forced to the media framework, the same song goes to mqp.
    mqp_wrapper forced(path, true);
    EXPECT_FALSE(forced.usesMplayer());
    EXPECT_TRUE(forced.isRunning());
    EXPECT_EQ(forced.length(), 8);
}

TEST_F(PlayerTest, FilesThatCannotPlayGiveAPlayerWithoutAProcess)
{
    const struct {
        const char* name;
        bool mplayer;
    } cases[] = {{"missing.mp3", false}, {"corrupt.mp3", false}, {"corrupt.ogg", true}, {"folder.ogg", true}};
    QDir(dir.path()).mkdir("folder.ogg");
    makeCorrupt(dir.path(), "corrupt.mp3");
    makeCorrupt(dir.path(), "corrupt.ogg");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        QElapsedTimer timer;
        timer.start();
        mqp_wrapper player(dir.filePath(c.name), false);
        EXPECT_FALSE(player.isRunning());
        EXPECT_LT(timer.elapsed(), 4000);
        EXPECT_EQ(player.updateProgress(), 100);
        player.setVolume(10);
        player.setTimeSeconds(1);
        const bool paused = player.paused();
        player.pause();
        EXPECT_NE(player.paused(), paused);  // only the flag toggles
    }
    EXPECT_TRUE(children().isEmpty());
}

TEST_F(PlayerTest, ALengthThatNeverComesEndsAfter999EmptyReadsAndQuitDoesNotHang)
{
    // mplayer blocks opening a pipe nobody writes: it never answers.
    const QString path = dir.filePath("stalled.ogg");
    ASSERT_EQ(mkfifo(QFile::encodeName(path).constData(), 0600), 0);
    QElapsedTimer timer;
    timer.start();
    mqp_wrapper player(path, false);
    const qint64 starting = timer.elapsed();
    EXPECT_EQ(player.length(), -1);
    EXPECT_GE(starting, 999 * 5 - 50);
    EXPECT_LT(starting, 15000);
    EXPECT_TRUE(player.isRunning());
    timer.restart();
    player.quit();
    EXPECT_LT(timer.elapsed(), 6000);
    EXPECT_FALSE(player.isRunning());
}

TEST_F(PlayerTest, ABusyPlayerDropsCommandsInsteadOfQueueingThem)
{
    mqp_wrapper player(song("tone.wav", 6), false);
    player.play();
    ASSERT_TRUE(eventually([&] { return player.updateProgress() >= 16; }));
    const pid_t pid = childWith("tone.wav");
    ASSERT_GT(pid, 0);
    // A stopped child keeps a position question waiting, and with it the lock.
    ::kill(pid, SIGSTOP);
    std::thread asking([&] { player.updateProgress(); });
    QThread::msleep(300);
    QElapsedTimer timer;
    timer.start();
    player.pause();
    EXPECT_FALSE(player.paused());
    EXPECT_GE(player.updateProgress(), 16);  // the last value, at once
    player.setTimeSeconds(0);
    EXPECT_LT(timer.elapsed(), 500);
    ::kill(pid, SIGCONT);
    asking.join();
    EXPECT_GE(player.updateProgress(), 16);  // the seek was dropped too
    player.pause();
    EXPECT_TRUE(player.paused());
}

TEST_F(PlayerTest, ASongWhoseFileIsDeletedWhilePlayingPlaysToItsEnd)
{
    const QString path = song("deleted.mp3", 3);
    mqp_wrapper player(path, false);
    player.play();
    ASSERT_TRUE(eventually([&] { return player.updateProgress() >= 33; }));
    QFile::remove(path);
    ASSERT_TRUE(eventually([&] { return player.updateProgress() == 100; }));
    EXPECT_GE(player.position(), 2);
    EXPECT_TRUE(zombies().isEmpty());
}

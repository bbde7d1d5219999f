// The Play tab's logic with the real players: sources, the song table, the
// playback modes at the end of the list, pausing, and songs that cannot play.
#include "tabs/PlaySourcesWrapper.h"

#include "common/DiscFixtures.h"
#include "common/PlayerFixtures.h"
#include "common/TestSupport.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "core/Preferences.h"
#include "disc/MountedCDWrapper.h"
#include "player/MqpWrapper.h"
#include "playlists/PlaylistFiles.h"
#include "tabs/MusicSourcesWrapper.h"

#include <gtest/gtest.h>

#include <QFileInfo>
#include <QImage>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <cstdlib>

using namespace playerfixtures;
using Mode = PlaySourcesWrapper::Mode;
using State = PlaySourcesWrapper::State;

namespace {

// A drive adapter without drives: discs come from the images a test opens.
class NoDrives : public CdDriveAdapter {
public:
    QStringList drives() override { return {}; }
    std::optional<DiscTable> readDisc(const QString&) override { return std::nullopt; }
    bool eject(const QString&) override { return false; }
    void startMonitoring() override {}
};

class PlayTabTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        useFakeAudio();
        Preferences::sharedInstance().setPrefsInt(PrefKeys::AutoEject, 0);
        tab = std::make_unique<PlaySourcesWrapper>();
        QObject::connect(tab.get(), &PlaySourcesWrapper::nowPlaying,
                         [this](int, const QString& path) { played << QFileInfo(path).fileName(); });
        QObject::connect(tab.get(), &PlaySourcesWrapper::message, [this](const QString& text) { messages << text; });
        QObject::connect(tab.get(), &PlaySourcesWrapper::listEnded, [this] { ++ended; });
    }
    void TearDown() override
    {
        tab.reset();
        EXPECT_TRUE(children().isEmpty()) << "a player process was left behind";
    }
    QString song(const QString& name, double seconds = 1) { return makeSong(dir.path(), name, seconds); }
    QString playlist(const QString& name, const QStringList& songs)
    {
        const QString path = dir.filePath(name + ".cd3");
        PlaylistFiles::writeGroup(path, {{"Group", "OVRoot"}, {"Entries", songs}});
        return path;
    }
    int rowOf(PlaySourcesWrapper::SourceKind kind, const QString& path) const
    {
        const auto rows = tab->sources();
        for (int i = 0; i < rows.size(); ++i) {
            if (rows[i].kind == kind && rows[i].path == path)
                return i;
        }
        return -1;
    }
    // Opens files as the desktop hands them over: they load and play.
    void open(const QStringList& files)
    {
        NotificationCenter::defaultCenter().post(VLFileOpenNotification, QVariantMap{{"filearray", files}});
    }
    bool waitFor(const std::function<bool()>& condition, int ms = 15000) { return QTest::qWaitFor(condition, ms); }

    QTemporaryDir dir;
    std::unique_ptr<PlaySourcesWrapper> tab;
    QStringList played;
    QStringList messages;
    int ended = 0;
};

}  // namespace

TEST_F(PlayTabTest, EveryModeDecidesWhatFollowsTheLastSong)
{
    const QString a = song("a.wav"), b = song("b.wav");
    const struct {
        Mode mode;
        QStringList played;  // until the list ended or three songs started
        bool stops;
    } cases[] = {
        {Mode::NoMode, {"a.wav", "b.wav"}, true},
        {Mode::Stop, {"a.wav", "b.wav"}, true},
        {Mode::Repeat, {"a.wav", "b.wav", "a.wav"}, false},
        {Mode::Shuffle, {"a.wav", "b.wav", "a.wav"}, false},  // two songs swap there and back
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(int(c.mode));
        played.clear();
        ended = 0;
        tab->setSessionPlaybackMode(c.mode);
        open({a, b});
        ASSERT_TRUE(waitFor([&] { return ended > 0 || played.size() >= 3; }));
        EXPECT_EQ(played, c.played);
        EXPECT_EQ(ended, c.stops ? 1 : 0);
        EXPECT_EQ(tab->state() == State::Stopped, c.stops);
        EXPECT_EQ(tab->selectedSong(), 0);
        tab->stopPlayingSong();
    }
    EXPECT_TRUE(messages.isEmpty());
}

TEST_F(PlayTabTest, NextModeWalksTheSourcesThenPlaysTheirTopRow)
{
    const QString one = playlist("One", {song("a.wav")}), two = playlist("Two", {song("b.wav")});
    NotificationCenter::defaultCenter().post(VLPlaylistInfoNotification,
                                             QVariantMap{{"playlistarray", QStringList{one, two}}});
    const int first = rowOf(PlaySourcesWrapper::SourceKind::Playlist, one);
    ASSERT_GT(first, 0);
    EXPECT_EQ(tab->sources().at(first - 1).level, 0);  // the "Playlists" row
    EXPECT_EQ(tab->sources().at(first + 1).path, two);
    QList<int> selectedSources;
    QObject::connect(tab.get(), &PlaySourcesWrapper::sourceSelected, [&](int row) { selectedSources << row; });

    tab->setSessionPlaybackMode(Mode::Next);
    tab->selectSource(first);
    ASSERT_TRUE(waitFor([&] { return !tab->isLoading(); }));
    EXPECT_EQ(tab->songs(), QStringList{dir.filePath("a.wav")});
    tab->playSelectedSong();
    ASSERT_TRUE(waitFor([&] { return played.size() >= 4; }, 20000));
    // One, then Two, then back to the top row with every playlist's songs.
    EXPECT_EQ(played, (QStringList{"a.wav", "b.wav", "a.wav", "b.wav"}));
    EXPECT_EQ(selectedSources.mid(0, 3), (QList<int>{first, first + 1, first - 1}));
    EXPECT_EQ(tab->songs().size(), 2);
}

TEST_F(PlayTabTest, PauseIsRefusedInTheLastFourPercent)
{
    QSignalSpy button(tab.get(), &PlaySourcesWrapper::pauseButtonChanged);
    open({song("long.wav", 50)});
    ASSERT_TRUE(waitFor([&] { return tab->state() == State::Playing; }));
    tab->setTimeSeconds(47);  // 94 percent
    tab->pausePlaying();
    EXPECT_EQ(tab->state(), State::Paused);
    EXPECT_TRUE(button.last().at(0).toBool());  // the button now resumes
    EXPECT_TRUE(tab->player()->paused());
    tab->resumePlaying();
    EXPECT_EQ(tab->state(), State::Playing);
    EXPECT_FALSE(tab->player()->paused());

    tab->setTimeSeconds(48);  // 96 percent
    tab->pausePlaying();
    EXPECT_EQ(tab->state(), State::Playing);
    EXPECT_FALSE(button.last().at(0).toBool());
    EXPECT_FALSE(tab->player()->paused());
    tab->restartSong();
    EXPECT_LT(tab->progress(), 10);
}

TEST_F(PlayTabTest, SongsThatCannotPlayAreSkippedAndMplayerFailuresFallBackToMqp)
{
    // mplayer cannot open this audio output, so the Ogg song is handed to mqp.
    qputenv("VELMORA_MPLAYER_AO", "nosuch");
    const QString vanishing = song("vanishing.wav");
    const QStringList list{makeCorrupt(dir.path(), "corrupt.ogg"), vanishing, song("good.ogg", 3), song("last.wav", 4)};
    tab->setSessionPlaybackMode(Mode::Stop);
    open(list);
    ASSERT_TRUE(waitFor([&] { return tab->songs().size() == 4; }));
    QFile::remove(vanishing);
    ASSERT_TRUE(waitFor([&] { return played.contains("good.ogg") && tab->state() == State::Playing; }));
    EXPECT_FALSE(tab->player()->usesMplayer());
    EXPECT_EQ(messages.size(), 2);
    EXPECT_TRUE(messages.value(0).contains("corrupt.ogg"));
    EXPECT_TRUE(messages.value(1).contains("vanishing.wav"));

    // A player that dies mid-song gives way to the next song at the next tick.
    ASSERT_TRUE(waitFor([&] { return tab->progress() >= 33; }));
    ::kill(childWith("good.ogg"), SIGKILL);
    ASSERT_TRUE(waitFor([&] { return played.contains("last.wav"); }, 2500));
    EXPECT_TRUE(zombies().isEmpty());
    tab->nextSong();  // the last song: the list ends
    EXPECT_EQ(ended, 1);
    EXPECT_EQ(tab->state(), State::Stopped);

    // When nothing at all can play, playing stops instead of going round.
    messages.clear();
    tab->setSessionPlaybackMode(Mode::Repeat);
    open({dir.filePath("corrupt.ogg"), makeCorrupt(dir.path(), "corrupt.mp3")});
    ASSERT_TRUE(waitFor([&] { return ended == 2; }));
    EXPECT_EQ(messages.size(), 2);
    EXPECT_EQ(tab->state(), State::Stopped);
    qputenv("VELMORA_MPLAYER_AO", "null");
}

TEST_F(PlayTabTest, DiscTracksPlayThroughCdParanoiaAndTheDiscIsMarkedInUse)
{
    using namespace discfixtures;
    const Image image = writeImage(dir.path(), "disc", disc({audio(2 * kSectorsPerSecond), audio(kSectorsPerSecond)}));
    mounted_cd_wrapper watcher(std::make_unique<NoDrives>(), CdWatcherOptions{dir.filePath("discs"), false, {}});
    tab->setCdWatcher(&watcher);
    QVariantList inUse;
    NotificationCenter::defaultCenter().addObserver(this, VLEjectableMediaPlayingNotification,
                                                    [&](const Notification& n) { inUse << n.object; });
    watcher.openImage(image.cue);
    ASSERT_TRUE(waitFor([&] { return !watcher.descriptions().isEmpty(); }));
    const QString cdpath = watcher.descriptions().first().toMap().value("cdpath").toString();
    const int row = rowOf(PlaySourcesWrapper::SourceKind::Disc, cdpath);
    ASSERT_GE(row, 0);

    Preferences::sharedInstance().setPrefsInt(PrefKeys::AutoEject, 1);
    tab->setSessionPlaybackMode(Mode::Stop);
    tab->selectSource(row);
    ASSERT_TRUE(waitFor([&] { return tab->songs().size() == 2; }));
    EXPECT_EQ(tab->records().first().toMap().value("duration"), "2");
    tab->playSelectedSong();
    EXPECT_EQ(tab->state(), State::Reading);
    EXPECT_EQ(inUse.value(0).toMap(), (QVariantMap{{"mThisCDIsPlaying", cdpath}}));
    ASSERT_TRUE(waitFor([&] { return tab->state() == State::Playing; }));
    EXPECT_EQ(tab->player()->length(), 2);
    // At the end the disc is ejected, its row and songs go, and it is free again.
    ASSERT_TRUE(waitFor([&] { return ended == 1; }));
    EXPECT_EQ(played.size(), 2);
    EXPECT_TRUE(messages.isEmpty());
    EXPECT_TRUE(watcher.descriptions().isEmpty());
    EXPECT_EQ(rowOf(PlaySourcesWrapper::SourceKind::Disc, cdpath), -1);
    EXPECT_TRUE(tab->songs().isEmpty());
    EXPECT_EQ(inUse.last().toMap(), QVariantMap());
    NotificationCenter::defaultCenter().removeObserver(this);
    tab->setCdWatcher(nullptr);
}

TEST_F(PlayTabTest, ShuffleMovesEverySongAndKeepsRecordsAlongside)
{
    QStringList names;
    for (const char* name : {"1.wav", "2.wav", "3.wav", "4.wav", "5.wav"}) {
        testsupport::writeFile(dir.filePath(name), "x");
        names << dir.filePath(name);
    }
    tab->setSessionPlaybackMode(Mode::NoMode);
    NotificationCenter::defaultCenter().post(VLPSWFileDropNotification, QVariantMap{{"filearray", names}});
    ASSERT_TRUE(waitFor([&] { return tab->songs().size() == 5; }));
    EXPECT_EQ(tab->selectedSource(), tab->sources().size() - 1);  // the drop zone
    const QStringList before = tab->songs();
    tab->shuffleIfNeededFromMainRunloop();
    EXPECT_EQ(tab->songs(), before);  // only with Shuffle on

    QHash<QString, QVariant> recordOf;
    for (int i = 0; i < 5; ++i)
        recordOf.insert(tab->songs().at(i), tab->records().at(i));
    tab->setSessionPlaybackMode(Mode::Shuffle);
    for (unsigned seed : {1u, 7u, 42u}) {
        srandom(seed);
        const QStringList order = tab->songs();
        tab->shuffleIfNeededFromMainRunloop();
        QStringList sorted = tab->songs();
        sorted.sort();
        EXPECT_EQ(sorted, before);
        EXPECT_NE(tab->songs(), order);
        for (int i = 0; i < 5; ++i)
            EXPECT_EQ(tab->records().at(i), recordOf.value(tab->songs().at(i)));
    }
}

TEST_F(PlayTabTest, ConvertingAndInformationWorkOnTheSongTable)
{
    const QString a = makeSong(dir.path(), "a.mp3", 1, "Alpha", "Band", "Record"), b = song("b.wav");
    open({a, b});
    ASSERT_TRUE(waitFor([&] { return tab->state() == State::Playing; }));
    tab->stopPlayingSong();

    QSignalSpy information(tab.get(), &PlaySourcesWrapper::informationReady);
    tab->showInformation(0);
    ASSERT_TRUE(information.wait(5000));
    const QVariantMap info = information.first().first().toMap();
    EXPECT_EQ(info.value("title"), "Alpha");
    EXPECT_EQ(info.value("artist"), "Band");
    EXPECT_EQ(info.value("format"), "MP3");
    EXPECT_EQ(info.value("player"), "mqp");
    EXPECT_EQ(info.value("size").toLongLong(), QFileInfo(a).size());

    QList<QVariantMap> requests;
    NotificationCenter::defaultCenter().addObserver(this, VLWAVExportNotification,
                                                    [&](const Notification& n) { requests << n.object.toMap(); });
    tab->converter().setSaveInBackground(false);
    tab->convertSongs("WAV", dir.filePath("out"), {1});
    tab->converter().waitForSaveThread();
    NotificationCenter::defaultCenter().removeObserver(this);
    ASSERT_EQ(requests.size(), 1);
    EXPECT_EQ(requests.first().value("sourcepath"), b);
    EXPECT_EQ(requests.first().value("destinationpath"), dir.filePath("out/b.WAV"));
}

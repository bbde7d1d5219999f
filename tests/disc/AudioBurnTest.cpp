#include "disc/AudioCDWrapper.h"
#include "common/BurnFixtures.h"
#include "common/TestSupport.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "disc/DiscImage.h"
#include "platform/AppPaths.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <unistd.h>

using namespace burnfixtures;

namespace {

constexpr qint64 kBlock = 2352;

class AudioBurn : public ::testing::Test {
protected:
    QTemporaryDir dir {testsupport::homeDir() + "/audio-burn-XXXXXX"};

    QString path(const QString& name) const { return dir.filePath(name); }

    // The sample data cd-paranoia reads back from a track of the image.
    QByteArray readBack(const QString& cue, int track)
    {
        const QString wav = path(QStringLiteral("read%1.wav").arg(track));
        EXPECT_EQ(testsupport::run("cd-paranoia", {"-d", cue, QString::number(track), wav}), 0);
        return testsupport::readFile(wav).mid(44);
    }
    // Runs a step of the burn under a job of its own.
    template <typename Step>
    static void inJob(Step step)
    {
        Job::create(QStringLiteral("test"), [&](Job& job) {
            step(job);
            return JobResult::succeeded();
        })->run();
    }
};

TEST_F(AudioBurn, MixedFilesRoundTripThroughABinCueImage)
{
    ASSERT_TRUE(makeTone(path("a.wav"), 3.3, 440));
    ASSERT_TRUE(makeTone(path("b0.wav"), 2.5, 660));
    ASSERT_TRUE(makeMp3(path("b0.wav"), path("b.mp3"), "Bee Song", "Bee Band"));
    ASSERT_TRUE(makeTone(path("c0.wav"), 2.0, 330));
    ASSERT_TRUE(makeOgg(path("c0.wav"), path("c.ogg"), "Sea Song", "Bee Band"));

    AudioCDWrapper wrapper;
    BurnSetup setup;
    setup.image = path("disc.cue");
    const auto job = wrapper.burnAudioCD({path("a.wav"), path("b.mp3"), path("c.ogg"), path("d.m4p")}, setup);
    ASSERT_TRUE(job);
    job->wait();
    ASSERT_TRUE(job->result().ok()) << qPrintable(job->result().error);
    EXPECT_EQ(job->status(), QStringLiteral("verified"));

    QString error;
    const auto image = DiscImage::open(setup.image, &error);
    ASSERT_TRUE(image) << qPrintable(error);
    ASSERT_EQ(image->sheet().tracks.size(), 3);
    EXPECT_EQ(image->sheet().tracks[1].title, QStringLiteral("Bee Song"));
    EXPECT_EQ(image->sheet().tracks[2].title, QStringLiteral("Sea Song"));
    EXPECT_EQ(image->sheet().tracks[0].title, QStringLiteral("a"));
    EXPECT_EQ(image->sheet().performer, QString());  // the tracks' artists differ

    // WAV: the samples after the first 8 bytes, cut to whole blocks. Others:
    // the decoded samples, the last block filled out with silence.
    const QByteArray wav = testsupport::readFile(path("a.wav")).mid(44 + 8);
    QList<QByteArray> expected {wav.left(wav.size() / kBlock * kBlock)};
    for (const char* name : {"b.mp3", "c.ogg"}) {
        QByteArray decoded = decodedSamples(path(name));
        ASSERT_FALSE(decoded.isEmpty()) << name;
        decoded.append(QByteArray((kBlock - decoded.size() % kBlock) % kBlock, '\0'));
        expected << decoded;
    }
    for (int track = 1; track <= 3; ++track) {
        const QByteArray read = readBack(setup.image, track);
        EXPECT_EQ(read.size(), expected[track - 1].size()) << track;
        EXPECT_TRUE(read == expected[track - 1]) << "track " << track << " differs from its source";
    }

    // A changed image is caught by the comparison.
    QList<QByteArray> digests;
    inJob([&](Job& job) {
        QStringList leftOut;
        AudioDiscLayout layout = AudioCDWrapper::createAudioDiscWithArray(
            job, {path("a.wav"), path("b.mp3")}, {path("a.wav"), path("b.mp3")}, &leftOut);
        ASSERT_TRUE(AudioDiscImage::write(job, layout, path("again.cue"), &digests).isEmpty());
        QFile bin(path("again.bin"));
        ASSERT_TRUE(bin.open(QIODevice::ReadWrite));
        bin.seek(bin.size() - 1000);
        bin.write("changed");
        bin.close();
        bool same = true;
        EXPECT_EQ(AudioDiscImage::verify(job, path("again.cue"), digests, &same),
                  QStringLiteral("track 2 differs from what was written"));
        EXPECT_FALSE(same);
    });
}

TEST_F(AudioBurn, TracksPastSeventyNineMinutesAreLeftOutAndShorterOnesStillFit)
{
    QStringList files;
    for (int i = 1; i <= 20; ++i) {
        files << path(QStringLiteral("long%1.wav").arg(i, 2, 10, QChar('0')));
        ASSERT_TRUE(writeSparseWav(files.last(), 4 * 60 + 30));
    }
    files << path("short.wav");
    ASSERT_TRUE(writeSparseWav(files.last(), 2 * 60));
    inJob([&](Job& job) {
        QStringList leftOut;
        const AudioDiscLayout layout = AudioCDWrapper::createAudioDiscWithArray(job, files, files, &leftOut);
        ASSERT_EQ(layout.tracks.size(), 18u);
        EXPECT_EQ(layout.tracks.back().producer->path(), path("short.wav"));
        EXPECT_EQ(layout.blocks(), (17 * 270 + 120) * 75);  // 78:30
        ASSERT_EQ(leftOut.size(), 3);
        EXPECT_TRUE(leftOut[0].startsWith("long18.wav: it does not fit")) << qPrintable(leftOut[0]);
    });
}

TEST_F(AudioBurn, BadFilesAreLeftOutWithTheirReason)
{
    PcmPlan five;
    five.channels = 5;
    testsupport::writeFile(path("five.wav"), wavFile(five));
    PcmPlan good;
    good.frames = 588 * 30;
    testsupport::writeFile(path("good.wav"), wavFile(good));
    testsupport::writeFile(path("noise.mp3"), QByteArray(3000, 'n'));

    AudioCDWrapper wrapper;
    BurnSetup setup;
    setup.image = path("bad.cue");
    const auto job = wrapper.burnAudioCD({path("five.wav"), path("good.wav"), path("noise.mp3")}, setup);
    job->wait();
    ASSERT_TRUE(job->result().ok()) << qPrintable(job->result().error);
    const QStringList messages = job->messages();
    ASSERT_EQ(messages.size(), 2) << qPrintable(messages.join('\n'));
    EXPECT_TRUE(messages.contains(QStringLiteral("Left out five.wav: invalid number of channels (5)")));
    EXPECT_EQ(messages.filter(QRegularExpression("^Left out noise.mp3: .+")).size(), 1);
    EXPECT_EQ(DiscImage::open(setup.image)->sheet().tracks.size(), 1);

    // Nothing to burn: the job fails and says why; no image is made.
    setup.image = path("none.cue");
    const auto none = wrapper.burnAudioCD({path("five.wav")}, setup);
    none->wait();
    EXPECT_TRUE(none->result().error.contains("invalid number of channels (5)")) << qPrintable(none->result().error);
    EXPECT_FALSE(QFile::exists(setup.image));
}

TEST_F(AudioBurn, AFileRemovedAfterTheLayoutFailsTheBurnAndLeavesNoImage)
{
    PcmPlan good;
    good.frames = 588 * 30;
    testsupport::writeFile(path("gone.wav"), wavFile(good));
    inJob([&](Job& job) {
        QStringList leftOut;
        AudioDiscLayout layout =
            AudioCDWrapper::createAudioDiscWithArray(job, {path("gone.wav")}, {path("gone.wav")}, &leftOut);
        ASSERT_EQ(layout.tracks.size(), 1u);
        QFile::remove(path("gone.wav"));
        QList<QByteArray> digests;
        EXPECT_EQ(AudioDiscImage::write(job, layout, path("gone.cue"), &digests),
                  QStringLiteral("Track 1 (gone.wav) cannot be read: No such file or directory"));
    });
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList());
}

TEST_F(AudioBurn, ARequestOfProtectedFilesOnlyDoesNothing)
{
    AudioCDWrapper wrapper;
    QSignalSpy setup(&wrapper, &AudioCDWrapper::setupRequested);
    NotificationCenter::defaultCenter().post(VLBurnAudioCDWithArrayNotification, QStringList{"/music/a.m4p", "b.M4P"});
    EXPECT_EQ(setup.count(), 0);
    NotificationCenter::defaultCenter().post(VLBurnAudioCDWithArrayNotification, QStringList{"/music/a.m4p", "c.wav"});
    EXPECT_EQ(setup.count(), 1);
    wrapper.handleSetupSheet(false, BurnSetup());
}

TEST_F(AudioBurn, CachesLeftByAProcessThatHasGoneAreClearedAtStart)
{
    const QString cache = AppPaths::cacheDir();
    const QString own = QStringLiteral("%1/WAV-%2-abcdef").arg(cache).arg(::getpid());
    for (const QString& folder : {cache + "/WAV-999999999-abcdef", cache + "/MP3-999999999-ghijkl", own,
                                  cache + "/WAVES-999999999-abcdef"})
        ASSERT_TRUE(testsupport::writeFile(folder + "/left.WAV", "x"));
    AudioCDWrapper wrapper;
    EXPECT_FALSE(QFileInfo::exists(cache + "/WAV-999999999-abcdef"));
    EXPECT_FALSE(QFileInfo::exists(cache + "/MP3-999999999-ghijkl"));
    EXPECT_TRUE(QFileInfo::exists(own + "/left.WAV"));  // this process's own burn
    EXPECT_TRUE(QFileInfo::exists(cache + "/WAVES-999999999-abcdef/left.WAV"));  // not a burn's
}

}  // namespace

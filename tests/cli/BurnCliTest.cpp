#include "common/BurnFixtures.h"
#include "common/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace burnfixtures;

namespace {

class BurnCli : public ::testing::Test {
protected:
    QTemporaryDir dir {testsupport::homeDir() + "/burn-cli-XXXXXX"};

    QString path(const QString& name) const { return dir.filePath(name); }
    int cli(const QStringList& arguments, QByteArray* output, const QStringList& before = {})
    {
        const QStringList command = before + QStringList{testsupport::builtProgram("velmora-cli")} + arguments;
        return testsupport::run(command.first(), command.mid(1), output);
    }
};

TEST_F(BurnCli, BurnsImagesAndSaysHowItWent)
{
    ASSERT_TRUE(makeTone(path("a.wav"), 2.0, 440));
    ASSERT_TRUE(makeTone(path("b0.wav"), 1.0, 550));
    ASSERT_TRUE(makeOgg(path("b0.wav"), path("b.ogg"), "Bee", "Band"));
    QByteArray output;
    EXPECT_EQ(cli({"burn", "audio", "--image", path("disc.cue"), path("a.wav"), path("b.ogg")}, &output), 0)
        << output.constData();
    EXPECT_TRUE(output.contains("\nverified\n")) << output.constData();
    EXPECT_TRUE(output.contains(path("disc.bin").toUtf8()));

    QDir().mkpath(path("music/Rock"));
    ASSERT_TRUE(makeMp3(path("a.wav"), path("music/Rock/song.mp3"), "Song", "Band"));
    EXPECT_EQ(cli({"burn", "data", "--image", path("disc.iso"), "--preserve-order", path("music")}, &output), 0)
        << output.constData();
    QByteArray listing;
    testsupport::run("isoinfo", {"-R", "-f", "-i", path("disc.iso")}, &listing);
    EXPECT_TRUE(listing.contains("/000music/000Rock/000song.mp3")) << listing.constData();

    // libburn's stdio drives stand in for burners: a data disc goes through, an audio CD cannot.
    const QString drive = "stdio:" + path("drive.iso");
    EXPECT_EQ(cli({"burn", "data", "--drive", drive, path("music")}, &output), 0) << output.constData();
    testsupport::run("isoinfo", {"-R", "-f", "-i", path("drive.iso")}, &listing);
    EXPECT_TRUE(listing.contains("/music/Rock/song.mp3")) << listing.constData();
    EXPECT_EQ(cli({"burn", "audio", "--drive", drive, path("a.wav")}, &output), 1);
    EXPECT_TRUE(output.contains("The disc was not written: The burner says:")) << output.constData();
    EXPECT_EQ(cli({"erase", "--drive", drive}, &output), 1);
    EXPECT_TRUE(output.contains("cannot be erased")) << output.constData();
}

TEST_F(BurnCli, AFullImageFolderFailsClearlyAndKeepsTheOldImage)
{
    PcmPlan long_;
    long_.frames = 44100 * 5;
    testsupport::writeFile(path("long.wav"), wavFile(long_));
    testsupport::writeFile(path("disc.bin"), "an older image");
    QByteArray output;
    EXPECT_EQ(cli({"burn", "audio", "--image", path("disc.cue"), path("long.wav")}, &output, {"prlimit", "--fsize=200000"}),
              1)
        << output.constData();
    EXPECT_TRUE(output.contains("the disk is full") || output.contains("largest file size")) << output.constData();
    EXPECT_EQ(testsupport::readFile(path("disc.bin")), QByteArray("an older image"));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), (QStringList{"disc.bin", "long.wav"}));
}

TEST_F(BurnCli, WrongRequestsAreRefusedBeforeAnythingIsWritten)
{
    testsupport::writeFile(path("a.wav"), wavFile(PcmPlan()));
    const struct {
        QStringList arguments;
        int code;
        const char* says;
    } rows[] = {
        {{"burn", "audio", path("a.wav")}, 2, "either --drive DEV or --image"},
        {{"burn", "audio", "--image", path("x.iso"), path("a.wav")}, 2, "must end in .cue"},
        {{"burn", "audio", "--image", path("x.cue"), path("gone.wav")}, 1, "gone.wav: no such file"},
        {{"burn", "data", "--image", path("x.cue"), path("a.wav")}, 2, "must end in .iso"},
        {{"burn", "video", "--image", path("x.cue")}, 2, "Usage: velmora-cli burn audio"},
        {{"burn", "audio", "--image", path("x.cue"), path("a.m4p")}, 1, "no such file"},
        {{"erase", "--full"}, 2, "Usage: velmora-cli erase"},
    };
    for (const auto& row : rows) {
        QByteArray output;
        EXPECT_EQ(cli(row.arguments, &output), row.code) << qPrintable(row.arguments.join(' '));
        EXPECT_TRUE(output.contains(row.says)) << output.constData();
    }
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{"a.wav"});
    QByteArray output;
    EXPECT_EQ(cli({"drives"}, &output), 0) << output.constData();
}

TEST_F(BurnCli, ADvdAudioImageLeavesOutFilesPastTheAuthoringLimitAndSaysWhich)
{
    if (!QFileInfo::exists(testsupport::builtProgram("dvda-author")))
        GTEST_SKIP() << "dvda-author is not built in this tree";
    ASSERT_TRUE(makeTone(path("a.wav"), 0.2, 440));
    // Paths of 4000 bytes, 4003 with quotes and a blank: after 50 of them the
    // list is under the limit, the 51st crosses it and is the last one passed.
    QString deep = path("d");
    for (int level = 0; level < 15; ++level)
        deep += '/' + QString(250, QChar('x'));
    ASSERT_TRUE(QDir().mkpath(deep));
    const int nameLength = 4000 - int(deep.toUtf8().size()) - 1 - 4;
    ASSERT_GT(nameLength, 2);
    QStringList files;
    for (int i = 0; i < 53; ++i) {
        files << QStringLiteral("%1/%2.wav").arg(deep).arg(i, nameLength, 10, QChar('t'));
        ASSERT_TRUE(QFile::link(path("a.wav"), files.last()));
    }
    QByteArray output;
    EXPECT_EQ(cli(QStringList{"burn", "dvd-audio", "--image", path("disc.iso")} + files, &output), 1)
        << output.right(2000).constData();
    EXPECT_TRUE(output.contains("Authoring DVD-Audio (second pass)")) << output.right(2000).constData();
    EXPECT_EQ(output.count("Left out "), 2);
    for (const QString& file : files.mid(51))
        EXPECT_TRUE(output.contains(QFileInfo(file).fileName().toUtf8()));
    EXPECT_TRUE(output.contains("Written and checked"));
    EXPECT_TRUE(QFileInfo(path("disc.iso")).size() > 0);
}

}  // namespace

#include "disc/DiscImage.h"
#include "common/DiscFixtures.h"
#include "common/TestSupport.h"
#include "disc/DiscTable.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace discfixtures;

namespace {

class DiscImages : public ::testing::Test {
protected:
    QTemporaryDir dir{testsupport::homeDir() + "/images-XXXXXX"};

    QString openError(const QString& cue)
    {
        QString error;
        EXPECT_FALSE(DiscImage::open(cue, &error).has_value()) << qPrintable(cue);
        return error;
    }
    QString writeCue(const QString& name, const QByteArray& text)
    {
        const QString path = dir.path() + '/' + name;
        testsupport::writeFile(path, text);
        return path;
    }
    // The table libcdio reads from the image's readable copy.
    std::optional<DiscTable> libcdioTable(const DiscImage& image, const QString& folder)
    {
        QDir().mkpath(folder);
        QString error;
        const QString readable = image.writeReadableCopy(folder, &error);
        EXPECT_FALSE(readable.isEmpty()) << qPrintable(error);
        auto table = readDiscTable(readable, DiscSource::Image, &error);
        EXPECT_TRUE(table) << qPrintable(error);
        return table;
    }
};

TEST_F(DiscImages, LibcdioReadsEveryLayoutAsTheCueSheetLaysItOut)
{
    QList<TrackPlan> ninetyNine;
    for (int i = 0; i < 99; ++i)
        ninetyNine << audio(150 + i, i % 3 == 0 ? 75 : 0);
    const struct {
        const char* name;
        ImagePlan plan;
    } layouts[] = {
        {"one track", disc({audio(75 * 5)})},
        {"pregaps", disc({audio(75 * 3), audio(75 * 2 + 10, 150), audio(75 * 4, 1)})},
        {"data track first", disc({data(75 * 4), audio(75 * 3), audio(75 * 2)})},
        {"data track last", disc({audio(75 * 3), audio(75 * 2), data(75 * 4, "MODE2/2352", 150)})},
        {"99 tracks", sparse(ninetyNine)},
        {"79 minutes", sparse({audio(75 * 60 * 40), audio(75 * 60 * 39 + 74)})},
    };
    int n = 0;
    for (const auto& layout : layouts) {
        const Image written = writeImage(dir.path(), QString("layout%1").arg(n), layout.plan);
        QString error;
        const auto image = DiscImage::open(written.cue, &error);
        ASSERT_TRUE(image) << layout.name << ": " << qPrintable(error);
        EXPECT_EQ(image->binPath(), written.bin);
        EXPECT_EQ(image->sectors(), written.sectors);
        const auto table = libcdioTable(*image, dir.path() + QString("/copy%1").arg(n++));
        ASSERT_TRUE(table) << layout.name;
        ASSERT_EQ(table->tracks.size(), layout.plan.tracks.size()) << layout.name;
        EXPECT_EQ(table->leadout, written.sectors) << layout.name;
        for (qsizetype i = 0; i < table->tracks.size(); ++i) {
            const DiscTrack& track = table->tracks[i];
            EXPECT_EQ(track.number, i + 1);
            EXPECT_EQ(track.firstSector, written.starts[i]) << layout.name << " track " << i + 1;
            EXPECT_EQ(track.audio, layout.plan.tracks[i].mode == "AUDIO") << layout.name << " track " << i + 1;
            const qint64 next = i + 1 < written.starts.size() ? written.starts[i + 1] : written.sectors;
            EXPECT_EQ(track.length, next - written.starts[i]);
        }
    }
}

TEST_F(DiscImages, CdParanoiaRipsTheTrackBytesThroughTheReadableCopy)
{
    // The FILE line names the BIN in a folder of another machine, and the cue
    // sheet has a name of its own: the BIN is found beside it all the same.
    ImagePlan plan = disc({data(75 * 2), audio(75 * 3), audio(75 * 2 + 7, 20)});
    plan.fileLine = "C:\\rips\\rip.bin";
    const Image written = writeImage(dir.path(), "rip", plan);
    const QString renamed = dir.path() + "/Another name.cue";
    ASSERT_TRUE(QFile::rename(written.cue, renamed));
    const auto image = DiscImage::open(renamed);
    ASSERT_TRUE(image);
    const QString copy = dir.path() + "/copy";
    QDir().mkpath(copy);
    const QString readable = image->writeReadableCopy(copy);
    ASSERT_FALSE(readable.isEmpty());

    const QString wav = dir.path() + "/track3.wav";
    ASSERT_EQ(testsupport::run("cd-paranoia", {"-d", readable, "3", wav}), 0);
    const QByteArray ripped = testsupport::readFile(wav);
    QByteArray expected;
    for (qint64 sector = written.starts[2]; sector < written.sectors; ++sector)
        expected += sectorBytes(sector);
    ASSERT_EQ(ripped.size(), 44 + expected.size());
    EXPECT_TRUE(ripped.endsWith(expected));
}

TEST_F(DiscImages, BadPairsGiveAReasonAndNoDisc)
{
    const Image good = writeImage(dir.path(), "good", disc({audio(75 * 2), audio(75 * 2)}));

    // A cue sheet pointing at a missing BIN.
    EXPECT_EQ(openError(writeCue("missing.cue", "FILE \"gone.bin\" BINARY\nTRACK 01 AUDIO\nINDEX 01 00:00:00\n")),
              "the image file “gone.bin” it names is missing");

    // A BIN shorter than its cue sheet says: it ends (but for a part sector) where track 2 should start.
    QFile::resize(good.bin, 75 * 2 * kSectorBytes + 1000);
    const QString shortened = openError(good.cue);
    EXPECT_TRUE(shortened.startsWith("line 4: track 2 starts at 00:02:00, but the image file "))
        << qPrintable(shortened);
    EXPECT_TRUE(shortened.endsWith("good.bin ends at 00:02:00")) << qPrintable(shortened);

    // Binary garbage named .cue, and a cue sheet too large to be one.
    QByteArray garbage(64 * 1024, '\0');
    for (qsizetype i = 0; i < garbage.size(); ++i)
        garbage[i] = char((i * 131 + 7) % 251);
    EXPECT_EQ(openError(writeCue("garbage.cue", garbage)), "this is binary data, not the text of a cue sheet");
    QFile huge(dir.path() + "/huge.cue");
    ASSERT_TRUE(huge.open(QIODevice::WriteOnly));
    huge.resize(DiscImage::kMaxCueBytes + 1);
    huge.close();
    EXPECT_EQ(openError(huge.fileName()),
              QString("at %1 bytes it is too large to be a cue sheet").arg(DiscImage::kMaxCueBytes + 1));

    // What libcdio and cd-paranoia cannot read as a disc.
    const struct {
        const char* name;
        QByteArray text;
        const char* error;
    } refused[] = {
        {"wave.cue", "FILE good.wav WAVE\nTRACK 01 AUDIO\nINDEX 01 00:00:00\n",
         "line 1: its image file is of type WAVE; only BINARY image files hold a disc"},
        {"two.cue",
         "FILE good.bin BINARY\nTRACK 01 AUDIO\nINDEX 01 00:00:00\nFILE good.bin BINARY\nTRACK 02 AUDIO\nINDEX 01 "
         "00:00:00\n",
         "it names 2 image files; a disc image is one BINARY file with every track"},
        {"cooked.cue",
         "FILE good.bin BINARY\nTRACK 01 MODE1/2048\nINDEX 01 00:00:00\nTRACK 02 AUDIO\nINDEX 01 00:01:00\n",
         "line 2: track 1 is a MODE1/2048 track; only tracks of 2352-byte sectors can be read from an image"},
        {"data.cue", "FILE good.bin BINARY\nTRACK 01 MODE1/2352\nINDEX 01 00:00:00\n", "it holds no audio track"},
    };
    for (const auto& c : refused)
        EXPECT_EQ(openError(writeCue(c.name, c.text)), QString::fromUtf8(c.error)) << c.name;

    EXPECT_EQ(openError(dir.path() + "/nothing.cue"), "there is no such file");
    EXPECT_EQ(openError(dir.path()), "it is not a file");
}

TEST_F(DiscImages, HundredThousandLineCueSheets)
{
    Image image = writeImage(dir.path(), "long", disc({audio(75 * 2), audio(75 * 2)}));
    // 100,000 lines of tracks: refused at the hundredth.
    QByteArray tracks = "FILE long.bin BINARY\n";
    for (int line = 0; line < 50000; ++line)
        tracks += QString::asprintf("TRACK %02d AUDIO\nINDEX 01 %02d:%02d:%02d\n", line + 1, line / 4500,
                                    line / 75 % 60, line % 75)
                      .toUtf8();
    EXPECT_EQ(openError(writeCue("tracks.cue", tracks)), "line 200: a disc holds at most 99 tracks");

    // 100,000 comment lines around a good disc: it opens.
    QByteArray comments;
    for (int line = 0; line < 100000; ++line)
        comments += "REM COMMENT \"ripped by a tool that likes to talk\"\n";
    testsupport::writeFile(image.cue, comments + cueText(disc({audio(75 * 2), audio(75 * 2)}), "long.bin"));
    QString error;
    const auto opened = DiscImage::open(image.cue, &error);
    ASSERT_TRUE(opened) << qPrintable(error);
    EXPECT_EQ(opened->sheet().tracks.size(), 2);
}

TEST_F(DiscImages, CdTextOfTheCueSheetIsLaidOverTheTable)
{
    ImagePlan plan = disc({audio(75 * 2, 0, "Première"), audio(75 * 2, 0, "Zweite Ü", "Gäste")}, "Café Album", "Band");
    plan.latin1 = true;
    const Image written = writeImage(dir.path(), "text", plan);
    const auto image = DiscImage::open(written.cue);
    ASSERT_TRUE(image);
    auto table = libcdioTable(*image, dir.path() + "/copy");
    ASSERT_TRUE(table);
    image->addCdText(*table);
    EXPECT_EQ(table->title, "Café Album");
    EXPECT_EQ(table->performer, "Band");
    EXPECT_EQ(table->tracks[0].title, "Première");
    EXPECT_EQ(table->tracks[1].title, "Zweite Ü");
    EXPECT_EQ(table->tracks[1].performer, "Gäste");
}

}  // namespace

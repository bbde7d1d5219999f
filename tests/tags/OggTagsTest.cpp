#include "core/Defaults.h"
#include "tags/Base64.h"
#include "tags/OggTags.h"
#include "tags/TagFacade.h"
#include "tags/vcedit.h"

#include "TagFixtures.h"
#include "common/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QTemporaryDir>
#include <QtEndian>

#include <gtest/gtest.h>

#include <cstdio>

namespace {
QStringList commentEntries(const QString& file)
{
    QByteArray output;
    EXPECT_EQ(testsupport::run("vorbiscomment", {"-l", file}, &output), 0);
    return QString::fromUtf8(output).split('\n', Qt::SkipEmptyParts);
}

QByteArray decodedPcm(const QString& file)
{
    QByteArray pcm;
    EXPECT_EQ(testsupport::run("oggdec", {"-Q", "-R", "-o", "-", file}, &pcm), 0);
    return pcm;
}

QVariantMap artwork(const char* type, const char* description, const char* mime, const QImage& image)
{
    return {{"Picture Type", type}, {"Description", description}, {"Mime Type", mime}, {"Image", image}};
}

QImage filled(int width, int height, Qt::GlobalColor color)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(color);
    return image;
}
} // namespace

class OggTagsTest : public ::testing::Test {
protected:
    void SetUp() override { testsupport::useFreshHome(); }
    QTemporaryDir dir_;
    QString path(const QString& name) const { return dir_.filePath(name); }
    QStringList folderEntries() const { return QDir(dir_.path()).entryList(QDir::Files); }
};

TEST_F(OggTagsTest, ReadsEntriesUnderLowerCaseKeys)
{
    const QString ogg = fixtures::oggVorbis(path("r.ogg"), {"-c", "ARTIST=A", "-c", "artist=B", "-c", "TRACKNUMBER=5",
                                                           "-c", "Date=2003", "-c", "a=b=c", "-c", " Title = Spaced ",
                                                           "-c", "MOOD=calm"});
    const QVariantMap tags = getOGGComments(ogg);
    EXPECT_EQ(tags.value("artist"), "A B");
    EXPECT_EQ(tags.value("track"), "5");
    EXPECT_EQ(tags.value("year"), "2003");
    EXPECT_EQ(tags.value("a"), "b=c");
    EXPECT_EQ(tags.value("title"), "Spaced");
    EXPECT_EQ(tags.value("mood"), "calm");
    EXPECT_EQ(tags.value("duration"), "1");
    EXPECT_EQ(getComments(ogg).value(), tags);

    // The play time is truncated to whole seconds.
    const QString wav = path("long.wav");
    ASSERT_EQ(testsupport::run("sox", {"-n", "-r", "22050", "-c", "1", "-b", "16", wav, "synth", "2.7", "sine", "300"}), 0);
    ASSERT_EQ(testsupport::run("oggenc", {"-Q", "-o", path("long.ogg"), wav}), 0);
    EXPECT_EQ(getOGGComments(path("long.ogg")).value("duration"), "2");

    // The older reader keeps keys as they are and drops entries with two "=".
    const QVariantMap old = vorbiscomment_wrapper::getComments(ogg);
    EXPECT_EQ(old.value("tracknumber"), "5");
    EXPECT_EQ(old.value("artist"), "A B");
    EXPECT_FALSE(old.contains("a"));
    EXPECT_FALSE(old.contains("track"));
}

TEST_F(OggTagsTest, RewriteKeepsTheAudioAndPassesOgginfo)
{
    const QString ogg = fixtures::oggVorbis(path("w.ogg"), {"-c", "TITLE=Old", "-c", "COMMENT=dropped", "-c", "tracknumber=5"});
    const QByteArray pcmBefore = decodedPcm(ogg);
    QVariantList images{artwork("Cover (front)", "Front", "image/jpg", filled(30, 20, Qt::blue)),
                        artwork("Other", "", "image/png", filled(4, 4, Qt::green))};
    const QVariantMap tags{{"title", "New"}, {"artist", "Someone"}, {"album", "LP"}, {"track", "7"}};
    ASSERT_TRUE(updateTags(ogg, tags, images));

    const QStringList entries = commentEntries(ogg);
    ASSERT_EQ(entries.size(), 8);
    EXPECT_EQ(entries.mid(0, 6), (QStringList{"ALBUM=LP", "ARTIST=Someone", "TITLE=New", "GENRE=(null)", "YEAR=(null)",
                                              "TRACKNUMBER=7"}));
    EXPECT_TRUE(entries.at(6).startsWith("METADATA_BLOCK_PICTURE="));
    // The block: type, MIME, description, width, height, depth, colours, data.
    const QByteArray block = Base64::decode(entries.at(6).section('=', 1).toLatin1());
    ASSERT_GE(block.size(), 32);
    EXPECT_EQ(qFromBigEndian<quint32>(block.constData()), 3u);
    EXPECT_EQ(qFromBigEndian<quint32>(block.constData() + 4), 9u);
    EXPECT_EQ(block.mid(8, 9), "image/jpg");
    EXPECT_EQ(block.mid(21, 5), "Front");
    EXPECT_EQ(qFromBigEndian<quint32>(block.constData() + 26), 30u);
    EXPECT_EQ(qFromBigEndian<quint32>(block.constData() + 30), 20u);
    const quint32 dataLength = qFromBigEndian<quint32>(block.constData() + 42);
    EXPECT_EQ(block.size(), qsizetype(32 + 9 + 5 + dataLength));
    EXPECT_TRUE(block.mid(46).startsWith("\xFF\xD8"));

    QByteArray report;
    EXPECT_EQ(testsupport::run("ogginfo", {ogg}, &report), 0) << report.constData();
    EXPECT_FALSE(report.contains("WARNING")) << report.constData();
    EXPECT_EQ(decodedPcm(ogg), pcmBefore);
    EXPECT_EQ(folderEntries(), QStringList{"w.ogg"});

    const QVariantList pictures = getOGGAlbumArt(ogg);
    ASSERT_EQ(pictures.size(), 2);
    EXPECT_EQ(pictures.at(0).toMap().value("Description"), "Front");
    EXPECT_EQ(pictures.at(0).toMap().value("Image").value<QImage>().size(), QSize(30, 20));
    EXPECT_EQ(pictures.at(1).toMap().value("Mime Type"), "image/png");

    // A large comment header spanning many pages still gives a valid stream.
    QImage noise(400, 400, QImage::Format_RGB32);
    for (int y = 0; y < 400; ++y)
        for (int x = 0; x < 400; ++x)
            noise.setPixel(x, y, qRgb((x * 7 + y * 13) % 256, (x * y) % 256, (x ^ y) % 256));
    ASSERT_TRUE(updateTags(ogg, tags, {artwork("Other", "", "image/png", noise)}));
    EXPECT_EQ(testsupport::run("ogginfo", {ogg}, &report), 0);
    EXPECT_FALSE(report.contains("WARNING")) << report.constData();
    EXPECT_EQ(decodedPcm(ogg), pcmBefore);
    EXPECT_EQ(getOGGAlbumArt(ogg).size(), 1);
}

TEST_F(OggTagsTest, CoverArtSettingWritesTheOlderEntries)
{
    Defaults::standard().setInteger("prefsuseCoverartStored", 1);
    const QString ogg = fixtures::oggVorbis(path("c.ogg"), {});
    // The first picture has no known MIME type and goes out as TIFF; the next follows the last encoding.
    ASSERT_TRUE(updateOGGTags(ogg, {{"title", "T"}}, {artwork("Other", "", "image/bmp", filled(3, 3, Qt::red)),
                                                      artwork("Other", "", "image/jpg", filled(5, 5, Qt::red))}));
    const QStringList entries = commentEntries(ogg);
    ASSERT_EQ(entries.size(), 10);
    EXPECT_EQ(entries.at(6), "COVERARTMIME=image/bmp");
    EXPECT_TRUE(Base64::decode(entries.at(7).section('=', 1).toLatin1()).startsWith("II*\0"));
    EXPECT_EQ(entries.at(8), "COVERARTMIME=image/jpg");
    for (const QString& entry : entries)
        EXPECT_FALSE(entry.startsWith("METADATA_BLOCK_PICTURE"));
    const QVariantList pictures = getOGGAlbumArt(ogg);
    ASSERT_EQ(pictures.size(), 2);
    EXPECT_EQ(pictures.at(0).toMap().value("Picture Type"), "Cover (front)");
    EXPECT_EQ(pictures.at(0).toMap().value("Mime Type"), "image/unknown");
    EXPECT_EQ(pictures.at(1).toMap().value("Picture Type"), "Other");
    EXPECT_EQ(pictures.at(1).toMap().value("Mime Type"), "image/jpg");
}

TEST_F(OggTagsTest, BrokenPicturesAreSkipped)
{
    QByteArray block;
    auto number = [&](quint32 value) {
        char bytes[4];
        qToBigEndian(value, bytes);
        block.append(bytes, 4);
    };
    number(3);
    number(0xFFFFFFF0u);  // MIME length past the end
    block += "image/png";
    const QString ogg = fixtures::oggVorbis(
        path("p.ogg"), {"-c", "METADATA_BLOCK_PICTURE=" + QString::fromLatin1(Base64::encode(block)),
                        "-c", "COVERART=bm90IGEgcGljdHVyZQ==", "-c", "METADATA_BLOCK_PICTURE=AAAA"});
    EXPECT_TRUE(getOGGAlbumArt(ogg).isEmpty());
    EXPECT_EQ(getComments(ogg).value().value("duration"), "1");
}

TEST_F(OggTagsTest, FailedRewritesLeaveTheOriginal)
{
    const QString ogg = fixtures::oggVorbis(path("Artist_Song.ogg"), {"-c", "TITLE=Keep"});
    const QByteArray original = testsupport::readFile(ogg);
    // Cut after the first page: the headers never complete.
    const int secondPage = original.indexOf("OggS", 4);
    ASSERT_GT(secondPage, 0);
    struct Case {
        const char* name;
        QByteArray bytes;
        const char* error;
    };
    const Case cases[] = {
        {"cut.ogg", original.left(secondPage), "EOF before end of vorbis headers."},
        {"empty.ogg", QByteArray(), "Input truncated or empty."},
        {"text.ogg", QByteArray(9000, 'x'), "Input is not an Ogg bitstream."},
        {"mp3.ogg", fixtures::untaggedMpegAudio(), "Input is not an Ogg bitstream."},
    };
    for (const Case& c : cases) {
        const QString file = path(c.name);
        testsupport::writeFile(file, c.bytes);
        EXPECT_FALSE(updateTags(file, {{"title", "x"}}, {})) << c.name;
        EXPECT_EQ(testsupport::readFile(file), c.bytes) << c.name;
        EXPECT_FALSE(QFile::exists(file + ".tmp")) << c.name;
        EXPECT_FALSE(getComments(file).value().contains("title")) << c.name;

        FILE* in = std::fopen(QFile::encodeName(file).constData(), "rb");
        ASSERT_NE(in, nullptr);
        vcedit_state* state = vcedit_new_state();
        EXPECT_LT(vcedit_open(state, in), 0) << c.name;
        EXPECT_STREQ(vcedit_error(state), c.error) << c.name;
        vcedit_clear(state);
        std::fclose(in);
    }
    // The reader gives the empty record, the dispatcher then the name's guesses.
    const QString named = path("Band_Tune.ogg");
    testsupport::writeFile(named, original.left(secondPage));
    EXPECT_TRUE(getOGGComments(named).isEmpty());
    EXPECT_EQ(getComments(named).value().value("artist"), "Band");

    // A folder with the name an older rewrite used as its temporary file is no obstacle and stays.
    QDir(dir_.path()).mkdir("Artist_Song.ogg.tmp");
    EXPECT_TRUE(updateTags(ogg, {{"title", "x"}}, {}));
    EXPECT_EQ(getOGGComments(ogg).value("title"), "x");
    EXPECT_TRUE(QFileInfo(path("Artist_Song.ogg.tmp")).isDir());
}

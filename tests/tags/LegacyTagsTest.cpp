#include "tags/Id3FrameLister.h"
#include "tags/LegacyTags.h"
#include "tags/TagFacade.h"

#include "TagFixtures.h"
#include "common/TestSupport.h"

#include <QFile>
#include <QTemporaryDir>

#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>

#include <gtest/gtest.h>

#include <cstring>

class LegacyTagsTest : public ::testing::Test {
protected:
    QTemporaryDir dir_;
    QString path(const QString& name) const { return dir_.filePath(name); }
    QString withTag(const QString& name, const QByteArray& head, const QByteArray& tail = {}) const
    {
        testsupport::writeFile(path(name), head + fixtures::untaggedMpegAudio() + tail);
        return path(name);
    }
    static QStringList realId3info(const QString& file)
    {
        QByteArray output;
        EXPECT_EQ(testsupport::run("id3info", {file}, &output), 0);
        return fixtures::frameLines(output);
    }
};

TEST_F(LegacyTagsTest, FrameLinesMatchTheRealId3info)
{
    QStringList files;
    files << fixtures::lameMp3(path("v23.mp3"), {"--tt", "My Title", "--ta", "The Artist", "--tl", "The Album",
                                                 "--ty", "1999", "--tn", "3/12", "--tg", "Rock", "--add-id3v2",
                                                 "--id3v2-only"});
    files << withTag("v22.mp3", fixtures::id3v2Tag(2, {{"TT2", "Two Title"}, {"TP1", "Two Artist"}, {"TAL", "Alb"},
                                                       {"TRK", "5/9"}, {"TYE", "2001"}, {"TCO", "(17)Rock"}}));
    files << fixtures::lameMp3(path("v1.mp3"), {"--tt", "V1T", "--ta", "V1A", "--tl", "V1L", "--ty", "1987",
                                                "--tn", "7", "--tg", "Jazz", "--id3v1-only"});
    // An ID3v2 tag with only a title and an ID3v1 tag: id3lib merges the missing fields.
    files << withTag("merged.mp3", fixtures::id3v2Tag(3, {{"TIT2", "Only Title"}}),
                     fixtures::id3v1Tag("V1Title", "V1Artist", "", "1990", "note", 4, 13));
    files << withTag("none.mp3", {});
    for (const QString& file : files) {
        const QStringList expected = realId3info(file);
        EXPECT_EQ(fixtures::frameLines(id3infoOutput(file)), expected) << qPrintable(file);
    }
    EXPECT_EQ(realId3info(files.at(1)).size(), 6);  // the v2.2 fixture really has its six frames
    const QByteArray output = id3infoOutput(files.at(0));
    EXPECT_TRUE(output.startsWith("\n*** Tag information for " + files.at(0).toUtf8() + "\n"));
}

TEST_F(LegacyTagsTest, DamagedTagsGiveTheFramesBeforeTheDamage)
{
    const QByteArray tag = fixtures::id3v2Tag(3, {{"TIT2", "Kept"}, {"TPE1", "Lost"}});
    // A frame whose size runs past the tag.
    QByteArray pastEnd = tag;
    const int second = pastEnd.indexOf("TPE1");
    pastEnd[second + 4] = char(0x7F);
    const QString broken = withTag("broken.mp3", pastEnd);
    EXPECT_EQ(fixtures::frameLines(id3infoOutput(broken)),
              QStringList{"=== TIT2 (Title/songname/content description): Kept"});
    // Headers cut short, sizes that are not syncsafe, empty files.
    testsupport::writeFile(path("short.mp3"), QByteArray("ID3\x03\x00", 5));
    testsupport::writeFile(path("huge.mp3"), QByteArray("ID3\x03\x00\x00\x7f\x7f\x7f\x7f", 10) + "TIT2");
    testsupport::writeFile(path("notsafe.mp3"), QByteArray("ID3\x03\x00\x00\xff\xff\xff\xff", 10) + tag);
    testsupport::writeFile(path("empty.mp3"), QByteArray());
    for (const char* name : {"short.mp3", "huge.mp3", "notsafe.mp3", "empty.mp3"}) {
        EXPECT_TRUE(fixtures::frameLines(id3infoOutput(path(name))).isEmpty()) << name;
        // The dispatcher gives the empty record and the name's guesses.
        EXPECT_FALSE(getComments(path(name)).value().contains("title")) << name;
    }
    // A truncated tag on its own, through every reader.
    const QString cut = path("Cut_Off.mp3");
    testsupport::writeFile(cut, tag.left(tag.size() - 20));
    const QVariantMap tags = getComments(cut).value();
    EXPECT_EQ(tags.value("artist"), "Cut");
    EXPECT_EQ(id3tag_wrapper::getComments(cut).value("title"), "Kept");
}

TEST_F(LegacyTagsTest, MakeId3v1FillsTheFieldsAsCopiesAlwaysHad)
{
    const QString source = withTag("src.mp3", fixtures::id3v2Tag(3, {{"TIT2", "A title that is longer than thirty bytes"},
                                                                    {"TPE1", "Artist"}, {"TALB", "Album"},
                                                                    {"TRCK", "261/300"}, {"TYER", "19991"},
                                                                    {"TCON", "Rock & Roll"}}));
    MP3Utils utils;
    utils.makeID3v1(source);
    const auto& tag = utils.id3v1();
    const char* bytes = reinterpret_cast<const char*>(tag.data());
    EXPECT_EQ(QByteArray(bytes, 3), "TAG");
    EXPECT_EQ(QByteArray(bytes + 3, 30), "A title that is longer than th");  // full: no terminator
    EXPECT_EQ(QByteArray(bytes + 33, 30), QByteArray("Artist").leftJustified(30, '\0'));
    EXPECT_EQ(QByteArray(bytes + 93, 4), "1999");
    EXPECT_EQ(QByteArray(bytes + 97, 16), "Velmora Converte");
    EXPECT_EQ(tag[125], 0);
    EXPECT_EQ(tag[126], 261 & 0xFF);
    EXPECT_EQ(tag[127], 78);  // the exact name beats the earlier prefix "Rock"
}

TEST_F(LegacyTagsTest, GenreByteFollowsTheMatchingOrder)
{
    auto genreByte = [&](const QByteArray& genre) {
        const QString source = withTag("genre.mp3", fixtures::id3v2Tag(3, {{"TIT2", "t"}, {"TCON", genre}}));
        MP3Utils utils;
        utils.makeID3v1(source);
        return int(utils.id3v1()[127]);
    };
    EXPECT_EQ(genreByte("(17)"), 17);
    EXPECT_EQ(genreByte("(300)"), 300 & 0xFF);
    EXPECT_EQ(genreByte("Rock & Roll"), 78);
    EXPECT_EQ(genreByte("Rockabilly"), 17);
    EXPECT_EQ(genreByte("Christian Rock"), 255);
    EXPECT_EQ(genreByte("Christian Rock "), 141);
    EXPECT_EQ(genreByte("Polka"), 75);
    EXPECT_EQ(genreByte("Nothing like it"), 255);
}

TEST_F(LegacyTagsTest, WriteId3v1AppendsOnlyWhenTheTargetHasNone)
{
    const QString source = fixtures::lameMp3(path("s.mp3"), {"--tt", "Song", "--ta", "Band", "--tn", "2",
                                                             "--tg", "Jazz", "--add-id3v2", "--id3v2-only"});
    const QByteArray audio = fixtures::untaggedMpegAudio();
    const QString target = path("copy.mp3");
    testsupport::writeFile(target, audio);
    MP3Utils utils;
    ASSERT_EQ(utils.writeID3v1IfNeeded(target, source), 0);
    QByteArray written = testsupport::readFile(target);
    ASSERT_EQ(written.size(), audio.size() + 128);
    const QByteArray tag = written.right(128);
    EXPECT_TRUE(tag.startsWith("TAG"));
    EXPECT_EQ(tag.mid(3, 4), "Song");
    EXPECT_EQ(tag.mid(33, 4), "Band");
    EXPECT_EQ(int(quint8(tag[126])), 2);
    EXPECT_EQ(int(quint8(tag[127])), 8);

    // A second run sees the tag and leaves the file alone.
    ASSERT_EQ(MP3Utils().writeID3v1IfNeeded(target, source), 0);
    EXPECT_EQ(testsupport::readFile(target), written);

    // A WAV source fills nothing, so the target's own last 128 bytes are appended again.
    const QString other = path("fromwav.mp3");
    testsupport::writeFile(other, audio);
    ASSERT_EQ(MP3Utils().writeID3v1IfNeeded(other, fixtures::sineWav()), 0);
    EXPECT_EQ(testsupport::readFile(other), audio + audio.right(128));

    EXPECT_EQ(MP3Utils().writeID3v1IfNeeded(path("missing.mp3"), source), -1);
}

TEST_F(LegacyTagsTest, OlderReadersTakeTheSixFrames)
{
    const QString file = withTag("Band-Record-7-Name-Funk.mp3",
                                 fixtures::id3v2Tag(2, {{"TT2", "Two Title"}, {"TCO", "(8)"}, {"TYE", "2001"}}));
    QVariantMap tags = id3tag_wrapper::getComments(file);
    EXPECT_EQ(tags.value("title"), "Two Title");
    EXPECT_EQ(tags.value("genre"), "Jazz");
    EXPECT_EQ(tags.value("year"), "2001");
    EXPECT_EQ(tags.value("artist"), "Band");  // from the name split at "-"
    EXPECT_EQ(tags.value("album"), "Record");
    EXPECT_EQ(tags.value("track"), "7");
    EXPECT_EQ(getMP3CommentsOld(file), tags);

    const QVariantMap all = MP3Utils::getTags(file);
    EXPECT_EQ(all.value("title"), "Two Title");
    EXPECT_EQ(all.value("artist"), "");  // not found: the listing's first line, which is empty
    EXPECT_EQ(all.value("comment"), "Velmora Converted");
    EXPECT_EQ(all.value("track"), "0");
    EXPECT_EQ(all.value("genre"), "8");
}

TEST_F(LegacyTagsTest, Id3v24TagsWrittenByTagLibListAndConvertToLatin1)
{
    const QString file = withTag("v24.mp3", {});
    {
        TagLib::MPEG::File mpeg(QFile::encodeName(file).constData());
        TagLib::ID3v2::Tag* tag = mpeg.ID3v2Tag(true);
        tag->setTitle(TagLib::String("Caf\xc3\xa9 \xe2\x82\xac", TagLib::String::UTF8));
        tag->setArtist("Plain");
        tag->setTrack(9);
        ASSERT_TRUE(mpeg.save(TagLib::MPEG::File::ID3v2, TagLib::File::StripOthers, TagLib::ID3v2::v4));
    }
    ASSERT_EQ(testsupport::readFile(file).at(3), 4);
    const QStringList lines = fixtures::frameLines(id3infoOutput(file));
    EXPECT_TRUE(lines.contains(QString::fromUtf8("=== TIT2 (Title/songname/content description): Caf\xc3\xa9 \xe2\x82\xac")))
        << qPrintable(lines.join('\n'));
    EXPECT_TRUE(lines.contains("=== TRCK (Track number/Position in set): 9"));
    EXPECT_EQ(getComments(file).value().value("title"), QString::fromUtf8("Caf\xc3\xa9 \xe2\x82\xac"));

    MP3Utils utils;
    utils.makeID3v1(file);
    EXPECT_EQ(QByteArray(reinterpret_cast<const char*>(utils.id3v1().data()) + 3, 7), QByteArray("Caf\xe9 ?\0", 7));
    EXPECT_EQ(utils.id3v1()[126], 9);
}

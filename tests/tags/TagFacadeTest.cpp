#include "tags/ID3Tables.h"
#include "tags/TagAPI.h"
#include "tags/TagFacade.h"

#include "TagFixtures.h"
#include "common/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>

#include <thread>

namespace {
QVariantMap record(std::initializer_list<std::pair<const char*, const char*>> entries)
{
    QVariantMap map;
    for (const auto& [key, value] : entries)
        map.insert(key, QString::fromUtf8(value));
    return map;
}
} // namespace

TEST(TagTables, GenreNamesKeepTheirHistoricalSpellings)
{
    EXPECT_STREQ(ID3_v1_genre_description[0], "Blues");
    EXPECT_STREQ(ID3_v1_genre_description[17], "Rock");
    EXPECT_STREQ(ID3_v1_genre_description[67], "Psychadelic");
    EXPECT_STREQ(ID3_v1_genre_description[78], "Rock & Roll");
    EXPECT_STREQ(ID3_v1_genre_description[141], "Christian Rock ");
    EXPECT_STREQ(ID3_v1_genre_description[144], "Trash Metal");
    EXPECT_STREQ(ID3_v1_genre_description[147], "Synthpop");
}

TEST(TagTables, PictureTypesRoundTripAndUnknownsFallBack)
{
    for (int i = 0; i < kPictureTypeCount; ++i)
        EXPECT_EQ(encodeImageType(decodeImageType(i)), i);
    EXPECT_EQ(encodeImageType("cover (FRONT)"), 3);
    EXPECT_EQ(decodeImageType(17), "A bright coloured fish");
    EXPECT_EQ(decodeImageType(1), "32x32 pixels 'file icon'");
    EXPECT_EQ(encodeImageType("Front cover"), 0);
    EXPECT_EQ(decodeImageType(21), "Unknown");
    EXPECT_EQ(decodeImageType(-1), "Unknown");
}

class TagFacadeTest : public ::testing::Test {
protected:
    QTemporaryDir dir_;
    QString path(const QString& name) const { return dir_.filePath(name); }
    // An MP3 without any tag under the given name.
    QString untagged(const QString& name) const
    {
        testsupport::writeFile(path(name), fixtures::untaggedMpegAudio());
        return path(name);
    }
};

TEST_F(TagFacadeTest, ReadsMp3TagsWhateverTheExtensionCase)
{
    const QString mp3 = fixtures::lameMp3(path("Song.MP3"), {"--tt", "My Title", "--ta", "Singer", "--tl", "Record",
                                                             "--ty", "1999", "--tn", "3/12", "--tg", "Rock", "--add-id3v2"});
    const auto tags = getComments(mp3);
    ASSERT_TRUE(tags);
    EXPECT_EQ(*tags, record({{"title", "My Title"}, {"artist", "Singer"}, {"album", "Record"}, {"year", "1999"},
                             {"track", "3"}, {"genre", "Rock"}, {"duration", "1"}}));
}

TEST_F(TagFacadeTest, MissingPathsAndFoldersGiveNothing)
{
    EXPECT_FALSE(getComments(path("absent.mp3")));
    QDir(dir_.path()).mkdir("folder.mp3");
    EXPECT_FALSE(getComments(path("folder.mp3")));
    EXPECT_FALSE(updateTags(path("folder.mp3"), record({{"title", "x"}}), {}));
    EXPECT_FALSE(updateTags(path("absent.mp3"), record({{"title", "x"}}), {}));
}

TEST_F(TagFacadeTest, FileNameFillsOnlyWhatTagsLeftOpen)
{
    auto read = [&](const QString& name) { return getComments(untagged(name)).value(); };

    QVariantMap tags = read("Artist - Album - 03 - Title.mp3");
    EXPECT_EQ(tags.value("artist"), "Artist");
    EXPECT_EQ(tags.value("album"), "Album");
    EXPECT_EQ(tags.value("track"), "03");
    EXPECT_EQ(tags.value("title"), "Title");
    EXPECT_FALSE(tags.contains("genre"));
    EXPECT_EQ(tags.value("duration"), "1");

    tags = read("03 - Artist - Album - Title.mp3");
    for (const char* key : {"artist", "album", "track", "title", "genre"})
        EXPECT_FALSE(tags.contains(key)) << key;

    tags = read(" Artist - Album - 03 - Title - Rock .mp3");
    EXPECT_EQ(tags.value("artist"), "Artist");
    EXPECT_EQ(tags.value("genre"), "Rock");
    // A leading number keeps the first four pieces out, but not the genre.
    tags = read("01 - Artist - Album - Title - Jazz.mp3");
    EXPECT_EQ(tags.value("genre"), "Jazz");
    EXPECT_FALSE(tags.contains("artist"));

    tags = read("Some_Song.mp3");
    EXPECT_EQ(tags.value("artist"), "Some");
    EXPECT_EQ(tags.value("title"), "Song");
    tags = read("A_B_C.mp3");
    EXPECT_FALSE(tags.contains("artist"));
    EXPECT_FALSE(tags.contains("title"));
    // "Artist - Title" has too few pieces for the long form and no underscore.
    tags = read("Artist - Title.mp3");
    EXPECT_FALSE(tags.contains("artist"));

    // Tags win over the name.
    const QString tagged = fixtures::lameMp3(path("Name - Album - 4 - Other.mp3"), {"--tt", "Real", "--add-id3v2"});
    tags = getComments(tagged).value();
    EXPECT_EQ(tags.value("title"), "Real");
    EXPECT_EQ(tags.value("artist"), "Name");
}

TEST_F(TagFacadeTest, UnknownExtensionsAreReadFromTheNameWithADuration)
{
    ASSERT_EQ(testsupport::run("sox", {fixtures::sineWav(), path("Band_Tune.flac")}), 0);
    const QVariantMap tags = getComments(path("Band_Tune.flac")).value();
    EXPECT_EQ(tags, record({{"artist", "Band"}, {"title", "Tune"}, {"duration", "1"}}));

    testsupport::writeFile(path("notes.txt"), "not audio at all");
    EXPECT_EQ(getComments(path("notes.txt")).value(), QVariantMap());
    EXPECT_FALSE(updateTags(path("notes.txt"), record({{"title", "x"}}), {}));
    EXPECT_EQ(testsupport::readFile(path("notes.txt")), "not audio at all");
}

// Raw AAC has no container TagLib reads: GStreamer times it, from any path.
TEST_F(TagFacadeTest, ARawAacStreamIsTimedAlikeByRelativeAndAbsolutePath)
{
    ASSERT_EQ(testsupport::run("ffmpeg", {"-v", "error", "-f", "lavfi", "-i", "sine=duration=5", "-c:a", "aac", "-f",
                                          "adts", path("raw.aac")}),
              0);
    EXPECT_EQ(getComments(path("raw.aac")).value().value("duration"), "5");
    const QString before = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(QFileInfo(path("raw.aac")).path()));
    const auto relative = getComments("raw.aac");
    QDir::setCurrent(before);
    EXPECT_EQ(relative.value().value("duration"), "5");
}

TEST_F(TagFacadeTest, WmaIsReadOnly)
{
    testsupport::writeFile(path("Artist_Song.wma"), QByteArray(64, 'x'));
    EXPECT_FALSE(canUpdateTags(path("Artist_Song.wma")));
    EXPECT_FALSE(updateTags(path("Artist_Song.wma"), record({{"title", "x"}}), {}));
    EXPECT_EQ(testsupport::readFile(path("Artist_Song.wma")), QByteArray(64, 'x'));
    const QVariantMap tags = getComments(path("Artist_Song.wma")).value();
    EXPECT_EQ(tags.value("artist"), "Artist");
}

TEST_F(TagFacadeTest, Mp3WriteKeepsTheTrackTotalAndStoresAbsentYearAsNone)
{
    const QString mp3 = fixtures::lameMp3(path("w.mp3"), {"--tt", "Old", "--ta", "Keep", "--tn", "3/12",
                                                          "--ty", "1999", "--tg", "Jazz", "--add-id3v2"});
    ASSERT_TRUE(updateTags(mp3, record({{"title", "New Title"}, {"track", "5"}, {"genre", "Rock & Roll"}}), {}));
    TagAPI& api = TagAPI::forThisThread();
    ASSERT_TRUE(api.examineFile(mp3));
    EXPECT_EQ(api.getTitle(), "New Title");
    EXPECT_EQ(api.getArtist(), "Keep");  // absent keys leave the file's value
    EXPECT_EQ(api.getTrack(), 5);
    EXPECT_EQ(api.getTotalNumberTracks(), 12);
    EXPECT_EQ(api.getYear(), 0);
    EXPECT_EQ(api.getGenreNames(), QStringList{"Rock & Roll"});
    const QVariantMap tags = getComments(mp3).value();
    EXPECT_FALSE(tags.contains("year"));
}

TEST_F(TagFacadeTest, Mp3PicturesRoundTripAsArtworkRecords)
{
    const QString mp3 = untagged("art.mp3");
    const QString cached = path("cover.png");
    testsupport::writeFile(cached, fixtures::pictureBytes(12, 7, "PNG"));
    QVariantList artwork;
    artwork.append(QVariantMap{{"Picture Type", "Cover (back)"}, {"Description", "Back side"},
                               {"Mime Type", "image/png"}, {"Image", QImage(cached)}, {"cachepath", cached}});
    // Without a cache file the picture is encoded as its MIME type asks.
    QImage second(5, 9, QImage::Format_RGB32);
    second.fill(Qt::red);
    artwork.append(QVariantMap{{"Picture Type", "Band/artist logotype"}, {"Description", QString()},
                               {"Mime Type", "image/jpg"}, {"Image", second}});
    ASSERT_TRUE(updateTags(mp3, record({{"title", "With Art"}}), artwork));

    const QVariantList read = getMP3AlbumArt(mp3);
    ASSERT_EQ(read.size(), 2);
    const QVariantMap first = read.at(0).toMap();
    EXPECT_EQ(first.value("Picture Type"), "Cover (back)");
    EXPECT_EQ(first.value("Description"), "Back side");
    EXPECT_EQ(first.value("Mime Type"), "image/png");
    EXPECT_EQ(first.value("Image").value<QImage>().size(), QSize(12, 7));
    EXPECT_EQ(read.at(1).toMap().value("Picture Type"), "Band/artist logotype");
    EXPECT_EQ(read.at(1).toMap().value("Image").value<QImage>().size(), QSize(5, 9));

    // A write without an artwork list keeps the pictures; an empty list removes them.
    ASSERT_TRUE(updateTags(mp3, record({{"title", "Again"}})));
    EXPECT_EQ(getAlbumArt(mp3).size(), 2);
    ASSERT_TRUE(updateTags(mp3, record({{"title", "Again"}}), {}));
    EXPECT_TRUE(getAlbumArt(mp3).isEmpty());
}

TEST_F(TagFacadeTest, EachThreadHasItsOwnTagObject)
{
    const QString a = fixtures::lameMp3(path("a.mp3"), {"--tt", "First", "--add-id3v2"});
    const QString b = fixtures::lameMp3(path("b.mp3"), {"--tt", "Second", "--add-id3v2"});
    std::atomic<int> mismatches {0};
    auto reader = [&](const QString& file, const QString& title) {
        for (int i = 0; i < 40; ++i) {
            if (getComments(file).value().value("title") != title)
                ++mismatches;
        }
    };
    std::thread one(reader, a, QStringLiteral("First"));
    std::thread two(reader, b, QStringLiteral("Second"));
    one.join();
    two.join();
    EXPECT_EQ(mismatches.load(), 0);
    EXPECT_NE(&TagAPI::forThisThread(), nullptr);
}

TEST_F(TagFacadeTest, Mp3TagsReadAsTagLibReadsThemWhereverTheyLie)
{
    // The reader takes a file's head and tail a window at a time: tags below,
    // across and beyond the window's size, at the head and the tail of files
    // shorter and longer than it, must read as TagLib's own file reader reads them.
    QByteArray audio;
    while (audio.size() < 200 * 1024)
        audio += fixtures::untaggedMpegAudio();
    const QByteArray id3v1 = fixtures::id3v1Tag("Tail title", "Tail artist", "Tail album", "1999", "", 3, 17);
    struct Case {
        const char* name;
        qsizetype audioBytes;
        int pictureBytes;  // 0: no ID3v2 tag
        bool withId3v1;
    };
    const Case cases[] = {{"small.mp3", 9000, 100, true},
                          {"long-id3v1-only.mp3", audio.size(), 0, true},
                          {"tag-across-window.mp3", 20000, 60 * 1024, true},
                          {"tag-past-window.mp3", audio.size(), 150 * 1024, false},
                          {"both-ends-long.mp3", audio.size(), 2000, true}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const QString mp3 = path(c.name);
        ASSERT_TRUE(testsupport::writeFile(mp3, audio.left(c.audioBytes) + (c.withId3v1 ? id3v1 : QByteArray())));
        if (c.pictureBytes > 0) {
            TagLib::MPEG::File file(QFile::encodeName(mp3).constData());
            TagLib::ID3v2::Tag* tag = file.ID3v2Tag(true);
            tag->setTitle("Head title");
            tag->setArtist("Head artist");
            const QByteArray png = testsupport::readFile(fixtures::noisePng(path("noise.png"), c.pictureBytes));
            auto* picture = new TagLib::ID3v2::AttachedPictureFrame;
            picture->setMimeType("image/png");
            picture->setPicture(TagLib::ByteVector(png.constData(), unsigned(png.size())));
            tag->addFrame(picture);
            ASSERT_TRUE(file.save(TagLib::MPEG::File::ID3v2, TagLib::File::StripNone, TagLib::ID3v2::v3));
        }
        const TagLib::MPEG::File reference(QFile::encodeName(mp3).constData());
        TagAPI reader;
        ASSERT_TRUE(reader.examineFile(mp3));
        EXPECT_EQ(reader.getTitle().toStdString(), reference.tag()->title().to8Bit(true));
        EXPECT_EQ(reader.getArtist().toStdString(), reference.tag()->artist().to8Bit(true));
        EXPECT_EQ(reader.getYear(), int(reference.tag()->year()));
        EXPECT_EQ(reader.getImage().size(), c.pictureBytes > 0 ? 1 : 0);
        EXPECT_EQ(reader.getDuration(), reference.audioProperties()->lengthInSeconds());

        // A write through it keeps the picture and the audio (the write checks the audio itself).
        ASSERT_TRUE(updateTags(mp3, record({{"title", "New title"}})));
        ASSERT_TRUE(reader.examineFile(mp3));
        EXPECT_EQ(reader.getTitle(), "New title");
        EXPECT_EQ(reader.getImage().size(), c.pictureBytes > 0 ? 1 : 0);
    }
}

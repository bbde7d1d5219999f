#include "Mp4Fixtures.h"

#include "common/TestSupport.h"
#include "tags/Mp4Tags.h"

#include <QBuffer>
#include <QFile>
#include <QImage>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace fixtures;

namespace {

QByteArray item(const QByteArray& name, uint32_t dataClass, const QByteArray& payload)
{
    return atom(name, dataAtom(dataClass, payload));
}

QVariantMap readItems(const QByteArray& items)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("items.m4a");
    testsupport::writeFile(path, m4aWithItems(items));
    return getAACComments(path).value_or(QVariantMap{{"failed", true}});
}

QString atomicParsleyListing(const QString& path)
{
    QByteArray out;
    testsupport::run("AtomicParsley", {path, "-t"}, &out);
    return QString::fromUtf8(out);
}

QVariantMap picture(const QString& cachePath, const QString& mimeType)
{
    return {{"Picture Type", "Other"}, {"Description", ""}, {"Mime Type", mimeType},
            {"Image", QImage(cachePath)}, {"cachepath", cachePath}};
}

QByteArray pngBytes()
{
    QImage image(4, 3, QImage::Format_RGB32);
    image.fill(Qt::blue);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

} // namespace

TEST(Mp4Tags, ReadsAnFfmpegM4a)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("tagged.m4a");
    ASSERT_TRUE(makeTaggedM4a(path));
    const std::optional<QVariantMap> record = getAACComments(path);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->value("title").toString(), "Morning Song");
    EXPECT_EQ(record->value("artist").toString(), "The Tester");
    EXPECT_EQ(record->value("album").toString(), "First Light");
    EXPECT_EQ(record->value("year").toString(), "1999");
    EXPECT_EQ(record->value("genre").toString(), "Ambient Drone");
    EXPECT_EQ(record->value("track").toString(), "4/9");
    EXPECT_EQ(record->value("duration").toString(), "2");
    EXPECT_FALSE(record->contains("comment"));
}

TEST(Mp4Tags, MapsItemsToTheTrackRecord)
{
    const QByteArray trackOnly = be16(0) + be16(3) + be16(0) + be16(0);
    QVariantMap record = readItems(item("\xA9" "day", 1, "2004-05-01T07:00:00Z") + item("trkn", 0, trackOnly)
                                   + item("\xA9gen", 1, "Chillwave") + item("gnre", 0, be16(18))
                                   + item("\xA9" "ART", 1, "") + item("\xA9NAM", 1, "Upper")
                                   + item("\xA9" "alb", 13, "binary")
                                   + atom("----", atom("mean", be32(0) + "com.apple.iTunes")
                                                      + atom("name", be32(0) + "\xA9" "alb") + dataAtom(1, "dns")));
    EXPECT_EQ(record.value("year").toString(), "2004-05-01T07:00:00Z");
    EXPECT_EQ(record.value("track").toString(), "3");
    EXPECT_EQ(record.value("genre").toString(), "Rock") << "the later of gnre and \xC2\xA9gen wins";
    EXPECT_FALSE(record.contains("artist")) << "empty texts are not stored";
    EXPECT_EQ(record.value("title").toString(), "Upper");
    EXPECT_FALSE(record.contains("album"));
    EXPECT_EQ(record.value("duration").toString(), "61");

    record = readItems(item("gnre", 0, be16(18)) + item("\xA9gen", 1, "Chillwave"));
    EXPECT_EQ(record.value("genre").toString(), "Chillwave");
    record = readItems(item("gnre", 0, be16(200)));
    EXPECT_EQ(record.value("genre").toString(), "unknown");
}

TEST(Mp4Tags, FilesWithoutItemsOrNotMp4)
{
    QTemporaryDir dir;
    const QString bare = dir.filePath("bare.m4b");
    testsupport::writeFile(bare, ftyp() + atom("moov", mvhd(44100, 44100 * 7 + 5)));
    EXPECT_EQ(getAACComments(bare).value(), (QVariantMap{{"duration", "7"}}));

    const QString text = dir.filePath("text.m4a");
    testsupport::writeFile(text, "just some text, not a movie");
    EXPECT_TRUE(getAACComments(text).value().isEmpty());
    EXPECT_TRUE(getAACAlbumArt(text).isEmpty());
    EXPECT_TRUE(getAACComments(dir.filePath("missing.m4a")).value().isEmpty());
}

TEST(Mp4Tags, MimeTypesAndUndecodablePictures)
{
    EXPECT_EQ(mp4::mimeTypeOfPicture(pngBytes()), "image/png");
    EXPECT_EQ(mp4::mimeTypeOfPicture("\xFF\xD8\xFF\xE0rest"), "image/jpg");
    EXPECT_EQ(mp4::mimeTypeOfPicture("\xFF\xD8\xFF\xE1rest"), "image/jpg");
    EXPECT_EQ(mp4::mimeTypeOfPicture("\xFF\xD8\xFF\xDBrest"), "image/unknown");
    EXPECT_EQ(mp4::mimeTypeOfPicture(""), "image/unknown");

    QTemporaryDir dir;
    const QString path = dir.filePath("covers.m4a");
    const QByteArray covr = atom("covr", dataAtom(13, "\xFF\xD8\xFF\xE0not a picture") + dataAtom(14, pngBytes())
                                             + dataAtom(1, "text is not a picture"));
    testsupport::writeFile(path, m4aWithItems(covr + item("\xA9nam", 1, "Has covers")));
    const QVariantList artwork = getAACAlbumArt(path);
    ASSERT_EQ(artwork.size(), 1);
    const QVariantMap front = artwork.front().toMap();
    EXPECT_EQ(front.value("Picture Type").toString(), "Cover (front)");
    EXPECT_EQ(front.value("Mime Type").toString(), "image/png");
    EXPECT_EQ(front.value("Description").toString(), "");
    EXPECT_EQ(front.value("Image").value<QImage>().size(), QSize(4, 3));
    EXPECT_EQ(getAACComments(path)->value("title").toString(), "Has covers");
}

TEST(Mp4Tags, WriterArguments)
{
    const QVariantMap tags{{"title", "T"}, {"year", "2001"}, {"album", "A"}, {"comment", "ignored"}, {"track", "3/4"},
                           {"genre", ""}, {"artist", "R"}};
    EXPECT_EQ(mp4::atomicParsleyArguments("/m/x.m4a", tags, nullptr),
              (QStringList{"/m/x.m4a", "--overWrite", "--album", "A", "--artist", "R", "--title", "T", "--genre", "",
                           "--year", "2001", "--track", "3/4"}));
    const QStringList none;
    EXPECT_EQ(mp4::atomicParsleyArguments("/m/x.m4a", {{"title", "T"}}, &none),
              (QStringList{"/m/x.m4a", "--overWrite", "--title", "T", "--freefree", "--artwork", "REMOVE_ALL"}));
    const QStringList two{"/c/1.png", "/c/2.jpg"};
    EXPECT_EQ(mp4::atomicParsleyArguments("/m/x.m4a", {}, &two),
              (QStringList{"/m/x.m4a", "--overWrite", "--freefree", "--artwork", "REMOVE_ALL", "--artwork", "/c/1.png",
                           "--artwork", "/c/2.jpg"}));
}

TEST(Mp4Tags, WritesTagsAndPicturesWithAtomicParsley)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("write me.m4a");
    ASSERT_TRUE(makeTaggedM4a(path));
    const QByteArray audioBefore = audioStreamMd5(path);
    ASSERT_FALSE(audioBefore.isEmpty());
    const QString png = dir.filePath("front.png");
    const QString jpg = dir.filePath("back.jpg");
    ASSERT_TRUE(makePicture(png, "PNG", 20, 10));
    ASSERT_TRUE(makePicture(jpg, "JPG", 8, 8));

    const QVariantMap tags{{"title", "New Title"}, {"artist", "New Artist"}, {"album", "New Album"},
                           {"genre", "Rock"}, {"year", "2001"}, {"track", "5/10"}};
    ASSERT_TRUE(updateAACTags(path, tags, {picture(png, "image/png"), picture(jpg, "image/jpg")}));

    QByteArray probe;
    EXPECT_EQ(testsupport::run("ffprobe", {"-v", "error", path}, &probe), 0);
    EXPECT_TRUE(probe.trimmed().isEmpty()) << probe.toStdString();
    EXPECT_EQ(audioStreamMd5(path), audioBefore);
    const QString listing = atomicParsleyListing(path);
    EXPECT_TRUE(listing.contains(QString::fromUtf8("Atom \"\xC2\xA9nam\" contains: New Title"))) << listing.toStdString();
    EXPECT_TRUE(listing.contains("Atom \"gnre\" contains: Rock")) << listing.toStdString();
    EXPECT_FALSE(listing.contains(QString::fromUtf8("\xC2\xA9gen")));
    EXPECT_TRUE(listing.contains("Atom \"trkn\" contains: 5 of 10"));
    EXPECT_TRUE(listing.contains("Atom \"covr\" contains: 2 piece"));
    EXPECT_FALSE(QDir(dir.path()).entryList({"*temp*"}).size()) << "no copy is left beside the file";

    const QVariantMap record = getAACComments(path).value();
    EXPECT_EQ(record.value("title").toString(), "New Title");
    EXPECT_EQ(record.value("artist").toString(), "New Artist");
    EXPECT_EQ(record.value("album").toString(), "New Album");
    EXPECT_EQ(record.value("genre").toString(), "Rock");
    EXPECT_EQ(record.value("year").toString(), "2001");
    EXPECT_EQ(record.value("track").toString(), "5/10");
    EXPECT_EQ(record.value("duration").toString(), "2");
    QVariantList artwork = getAACAlbumArt(path);
    ASSERT_EQ(artwork.size(), 2);
    EXPECT_EQ(artwork[0].toMap().value("Picture Type").toString(), "Cover (front)");
    EXPECT_EQ(artwork[0].toMap().value("Mime Type").toString(), "image/png");
    EXPECT_EQ(artwork[0].toMap().value("Image").value<QImage>().size(), QSize(20, 10));
    EXPECT_EQ(artwork[1].toMap().value("Picture Type").toString(), "Other");
    EXPECT_EQ(artwork[1].toMap().value("Mime Type").toString(), "image/jpg");

    // Pictures read back from the file have no cache file: they are encoded again.
    QVariantMap third = artwork[1].toMap();
    third.remove("cachepath");
    artwork << third;
    ASSERT_TRUE(updateAACTags(path, {{"title", "Third"}}, artwork));
    artwork = getAACAlbumArt(path);
    ASSERT_EQ(artwork.size(), 3);
    QStringList types;
    for (const QVariant& entry : artwork)
        types << entry.toMap().value("Picture Type").toString();
    EXPECT_EQ(types, (QStringList{"Cover (front)", "Other", "Other"}));

    // No artwork list leaves the pictures; an empty one removes them all.
    ASSERT_TRUE(updateAACTags(path, {{"genre", "Chillwave"}}));
    EXPECT_EQ(getAACAlbumArt(path).size(), 3);
    ASSERT_TRUE(updateAACTags(path, {{"genre", "Chillwave"}}, QVariantList()));
    EXPECT_TRUE(getAACAlbumArt(path).isEmpty());
    const QVariantMap after = getAACComments(path).value();
    EXPECT_EQ(after.value("genre").toString(), "Chillwave");
    EXPECT_EQ(after.value("title").toString(), "Third");
    EXPECT_FALSE(atomicParsleyListing(path).contains("gnre"));
    EXPECT_EQ(audioStreamMd5(path), audioBefore);
}

TEST(Mp4Tags, M4bFilesAreWrittenLikeM4a)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("book.m4b");
    ASSERT_TRUE(makeTaggedM4a(path));
    ASSERT_TRUE(updateAACTags(path, {{"album", "Chapter One"}, {"track", "2"}}, {}));
    const QVariantMap record = getAACComments(path).value();
    EXPECT_EQ(record.value("album").toString(), "Chapter One");
    EXPECT_EQ(record.value("track").toString(), "2");
    EXPECT_EQ(record.value("title").toString(), "Morning Song");
}

// Damaged copies of tagged files go through every reader without a crash or a
// sanitizer report; a damaged Ogg file is never half-rewritten.
#include "tags/Id3FrameLister.h"
#include "tags/LegacyTags.h"
#include "tags/OggTags.h"
#include "tags/TagFacade.h"

#include "TagFixtures.h"
#include "common/TestSupport.h"

#include <QFile>
#include <QImage>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <ogg/ogg.h>

namespace {
// Flips a few bytes in the first `span` bytes and sometimes cuts the file.
QByteArray damaged(const QByteArray& original, int span, QRandomGenerator& random)
{
    QByteArray bytes = original;
    const int flips = 1 + int(random.bounded(6));
    for (int i = 0; i < flips; ++i)
        bytes[int(random.bounded(qMin<qsizetype>(span, bytes.size())))] = char(random.bounded(256));
    if (random.bounded(3) == 0)
        bytes.truncate(int(random.bounded(qMin<qsizetype>(span + 64, bytes.size()))));
    return bytes;
}

// Damages the comment packet at the start of the page at `offset` and gives the
// page a valid checksum again, so the damage gets past the Ogg layer.
QByteArray damagedComments(const QByteArray& original, int offset, QRandomGenerator& random)
{
    QByteArray bytes = original;
    auto* page = reinterpret_cast<unsigned char*>(bytes.data()) + offset;
    const int segments = page[26];
    const int headerLength = 27 + segments;
    int bodyLength = 0;
    for (int i = 0; i < segments; ++i)
        bodyLength += page[27 + i];
    const int commentBytes = qMin(bodyLength, 400);
    for (int i = 0, flips = 1 + int(random.bounded(4)); i < flips; ++i)
        page[headerLength + int(random.bounded(commentBytes))] = static_cast<unsigned char>(random.bounded(256));
    ogg_page view {page, headerLength, page + headerLength, bodyLength};
    ogg_page_checksum_set(&view);
    return bytes;
}
} // namespace

TEST(DamagedFiles, Id3TagsWithBrokenBytes)
{
    QTemporaryDir dir;
    const QString seed = dir.filePath("seed.mp3");
    testsupport::writeFile(seed, fixtures::untaggedMpegAudio());
    QVariantList art{QVariantMap{{"Picture Type", "Cover (front)"}, {"Description", "d"}, {"Mime Type", "image/png"},
                                 {"Image", QImage::fromData(fixtures::pictureBytes(8, 8, "PNG"))}}};
    ASSERT_TRUE(updateTags(seed, {{"title", "T"}, {"artist", "A"}, {"album", "L"}, {"year", "1999"},
                                  {"track", "2"}, {"genre", "Rock"}}, art));
    const QByteArray original = testsupport::readFile(seed);
    const int tagSize = original.indexOf(fixtures::untaggedMpegAudio().left(64));
    ASSERT_GT(tagSize, 10);

    QRandomGenerator random(20240611);
    const QString file = dir.filePath("x.mp3");
    for (int round = 0; round < 150; ++round) {
        testsupport::writeFile(file, damaged(original, tagSize, random));
        getMP3Comments(file);
        getMP3AlbumArt(file);
        id3infoOutput(file);
        id3tag_wrapper::getComments(file);
        MP3Utils utils;
        utils.makeID3v1(file);
    }
    // A reader that survived all that still reads the intact file.
    EXPECT_EQ(getMP3Comments(seed).value("title"), "T");
}

TEST(DamagedFiles, OggHeadersWithBrokenBytes)
{
    testsupport::useFreshHome();
    QTemporaryDir dir;
    const QString seed = fixtures::oggVorbis(dir.filePath("seed.ogg"), {"-c", "TITLE=T"});
    QVariantList art{QVariantMap{{"Picture Type", "Cover (front)"}, {"Description", "d"}, {"Mime Type", "image/png"},
                                 {"Image", QImage::fromData(fixtures::pictureBytes(8, 8, "PNG"))}}};
    ASSERT_TRUE(updateOGGTags(seed, {{"title", "T"}}, art));
    const QByteArray original = testsupport::readFile(seed);
    // The headers end where the first audio page begins (the third page).
    const int headers = original.indexOf("OggS", original.indexOf("OggS", 4) + 4);
    ASSERT_GT(headers, 0);

    QRandomGenerator random(7);
    const QString file = dir.filePath("x.ogg");
    for (int round = 0; round < 150; ++round) {
        const int second = original.indexOf("OggS", 4);
        const QByteArray bytes = round % 2 ? damaged(original, headers + 200, random)
                                           : damagedComments(original, second, random);
        testsupport::writeFile(file, bytes);
        getOGGComments(file);
        getOGGAlbumArt(file);
        vorbiscomment_wrapper::getComments(file);
        if (!updateOGGTags(file, {{"title", "New"}}, {})) {
            EXPECT_EQ(testsupport::readFile(file), bytes) << "round " << round;
        }
        EXPECT_FALSE(QFile::exists(file + ".tmp")) << "round " << round;
    }
    EXPECT_EQ(getOGGComments(seed).value("title"), "T");
}

#include "Mp4Fixtures.h"

#include "common/TestSupport.h"
#include "tags/WmaTags.h"

#include <QBuffer>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace fixtures;

namespace {

QVariantMap readBytes(const QByteArray& bytes)
{
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    return getWMAComments(buffer);
}

QString withNul(const char* text)
{
    return QString::fromLatin1(text) + QChar(0);
}

} // namespace

TEST(WmaTags, ReadsFfmpegFileWithAllKeys)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("song.wma");
    ASSERT_TRUE(makeWithFfmpeg(path, {"-c:a", "wmav2", "-b:a", "64k", "-metadata", "title=Song", "-metadata",
                                      "artist=Someone", "-metadata", "album=Disc", "-metadata", "WM/Year=2004",
                                      "-metadata", "genre=Rock", "-metadata", "track=7"},
                               3.0));
    const std::optional<QVariantMap> record = getWMAComments(path);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->value("title").toString(), withNul("Song"));
    EXPECT_EQ(record->value("artist").toString(), withNul("Someone"));
    EXPECT_EQ(record->value("album").toString(), "Disc");
    EXPECT_EQ(record->value("year").toString(), "2004");
    EXPECT_EQ(record->value("genre").toString(), "Rock");
    EXPECT_EQ(record->value("track").toString(), "7");
    // The play duration counts ffmpeg's 3.1-second preroll, and it is taken as it stands.
    EXPECT_EQ(record->value("duration").toString(), "6");
}

TEST(WmaTags, ContentDescriptionKeepsTerminatorAndReadsLengthsOneByteEarly)
{
    const QByteArray title = utf16("Song");  // 10 bytes with its terminator
    QVariantMap record = readBytes(headerObject({contentDescriptionObject(title, utf16("Me"))}));
    EXPECT_EQ(record.value("title").toString().size(), 5);
    EXPECT_EQ(record.value("title").toString(), withNul("Song"));
    EXPECT_EQ(record.value("artist").toString(), withNul("Me"));

    // 300 bytes of title: the early big-endian read sees 300 - 256 = 44 bytes,
    // and the author length picks up the title length's high byte.
    const QByteArray longTitle = utf16(QString(149, QLatin1Char('t')));
    ASSERT_EQ(longTitle.size(), 300);
    record = readBytes(headerObject({contentDescriptionObject(longTitle, utf16("Author"))}));
    EXPECT_EQ(record.value("title").toString(), QString(22, QLatin1Char('t')));
    const QString author = record.value("artist").toString();
    EXPECT_EQ(author.size(), (256 + 14) / 2);
    EXPECT_TRUE(author.startsWith(QString(10, QLatin1Char('t'))));
}

TEST(WmaTags, ExtendedDescriptionMapsAttributesAndLastObjectWins)
{
    const QByteArray first = extendedContentDescriptionObject(
        {textDescriptor("WM/AlbumTitle", "Old Album"), textDescriptor("WM/Genre", "Jazz")});
    const QByteArray second = extendedContentDescriptionObject(
        {textDescriptor("WM/AlbumTitle", "New Album"), dwordDescriptor("WM/TrackNumber", 7),
         {"WM/Picture", 1, QByteArray(40, 'x')}, textDescriptor("WM/Year", "1987")});
    const QVariantMap record = readBytes(headerObject({first, filePropertiesObject(1234567890ULL * 100), second}));
    EXPECT_EQ(record.value("album").toString(), "New Album");
    EXPECT_FALSE(record.contains("genre")) << "only the last extended description is decoded";
    EXPECT_EQ(record.value("track").toString(), "7");
    EXPECT_EQ(record.value("year").toString(), "1987");
    EXPECT_EQ(record.value("duration").toString(), "12345");

    EXPECT_EQ(readBytes(headerObject({extendedContentDescriptionObject({textDescriptor("WM/TrackNumber", "07")})}))
                  .value("track")
                  .toString(),
              "07");
}

TEST(WmaTags, MappedAttributeOfAnotherTypeThrows)
{
    const QByteArray object = extendedContentDescriptionObject({{"WM/Year", 2, le32(1)}});
    EXPECT_THROW(readBytes(headerObject({object})), WmaAttributeError);
    // Unmapped attributes may have any type.
    EXPECT_NO_THROW(readBytes(headerObject({extendedContentDescriptionObject({{"WM/IsVBR", 2, le32(1)}})})));
}

TEST(WmaTags, HeaderCountLimitsTheWalk)
{
    // The header announces one child; the content description after it is not read.
    QByteArray bytes = headerObject({filePropertiesObject(50000000)});
    bytes += contentDescriptionObject(utf16("Outside"), utf16("Nobody"));
    const QVariantMap record = readBytes(bytes);
    EXPECT_EQ(record.value("duration").toString(), "5");
    EXPECT_FALSE(record.contains("title"));
}

TEST(WmaTags, NonAsfAndUnopenableFilesGiveEmptyRecords)
{
    EXPECT_TRUE(readBytes(QByteArray(5000, '\x41')).isEmpty());
    EXPECT_TRUE(readBytes(QByteArray()).isEmpty());
    const std::optional<QVariantMap> missing = getWMAComments("/nonexistent/file.wma");
    ASSERT_TRUE(missing);
    EXPECT_TRUE(missing->isEmpty());
}

TEST(WmaTags, LyingSizesStayInsideTheFile)
{
    // An extended description claiming 2^62 bytes and 65535 descriptors, cut short.
    QByteArray ecd = extendedContentDescriptionObject({textDescriptor("WM/Genre", "Pop")});
    ecd.replace(16, 8, le64(uint64_t(1) << 62));
    ecd[23] = char(0xFF);
    ecd[24] = char(0xFF);
    QVariantMap record = readBytes(headerObject({ecd}));
    EXPECT_EQ(record.value("genre").toString(), "Pop");

    // A descriptor whose value length runs past the object ends the decoding.
    QByteArray bad = extendedContentDescriptionObject({textDescriptor("WM/Genre", "Pop")});
    bad.chop(4);
    EXPECT_FALSE(readBytes(headerObject({bad})).contains("genre"));

    // An object smaller than its own header, and one whose size overflows a skip.
    QByteArray tiny = asfObject(kOtherGuid, QByteArray());
    tiny.replace(16, 8, le64(3));
    EXPECT_TRUE(readBytes(headerObject({tiny, contentDescriptionObject(utf16("A"), utf16("B"))})).isEmpty());
    QByteArray huge = asfObject(kOtherGuid, QByteArray());
    huge.replace(16, 8, le64(~uint64_t(0)));
    EXPECT_TRUE(readBytes(headerObject({huge})).isEmpty());

    // Every truncation of a full header decodes without reading past the end.
    const QByteArray full = headerObject({filePropertiesObject(10), contentDescriptionObject(utf16("T"), utf16("A")),
                                          extendedContentDescriptionObject({dwordDescriptor("WM/TrackNumber", 3)})});
    for (qsizetype length = 0; length < full.size(); ++length)
        readBytes(full.left(length));
}

TEST(WmaTags, HelperFunctions)
{
    char units[6] = {'a', 'b', 'c', 'd', 'e', 'f'};
    swap_bytes(units, 6);
    EXPECT_EQ(QByteArray(units, 6), "badcfe");
    swap_bytes(units, 0);
    EXPECT_EQ(QByteArray(units, 6), "badcfe");

    // Characters ride in the high byte of each machine-order unit.
    const uint16_t text[] = {'H' << 8, 'i' << 8, 0x00FF, 'x' << 8};
    EXPECT_EQ(getWMAValue(text, 4), "Hi");
    const int16_t negative[] = {int16_t(-0x3D00), 0};
    EXPECT_EQ(getWMAValue(negative, 2), QByteArray(1, char(-0x3D)));
    std::vector<uint16_t> longText(300, uint16_t('z' << 8));
    EXPECT_EQ(getWMAValue(longText.data(), longText.size()), QByteArray(128, 'z'));
    EXPECT_EQ(getWMAValue(longText.data(), 3), "zzz");
    EXPECT_EQ(wmatag_wrapper::getValue(text, 2), "Hi");

    const char hay[] = "abcabcd";
    EXPECT_EQ(WMAmemmem(hay, 7, "cd", 2), hay + 5);
    EXPECT_EQ(WMAmemmem(hay, 7, "abc", 3), hay);
    EXPECT_EQ(WMAmemmem(hay, 7, "x", 1), nullptr);
    EXPECT_EQ(WMAmemmem(hay, 2, "abc", 3), nullptr);
    EXPECT_EQ(WMAmemmem(hay, 0, "a", 1), nullptr);
    EXPECT_EQ(WMAmemmem(nullptr, 7, "a", 1), nullptr);
    EXPECT_EQ(WMAmemmem(hay, 7, "a", 0), nullptr);
    EXPECT_EQ(wmatag_wrapper::memmem(hay, 7, "bcd", 3), hay + 4);
}

namespace {
// Text as the older reader decodes it: the character in the high byte of each
// machine-order unit.
QByteArray highByteText(const char* text)
{
    QByteArray bytes;
    for (const char* c = text;; ++c) {
        const uint16_t unit = uint16_t(uint8_t(*c) << 8);
        bytes.append(reinterpret_cast<const char*>(&unit), 2);
        if (!*c)
            return bytes;
    }
}
} // namespace

TEST(WmaTags, OlderReaderSearchesAttributeNames)
{
    const QByteArray title = highByteText("Tune");
    QByteArray head = QByteArray(100, '\x01') + contentDescriptionObject(title, highByteText("Band"));
    head += utf16("WM/AlbumTitle") + le16(0) + le16(10) + highByteText("Disc");
    head += utf16("WM/Genre") + le16(0) + le16(8) + highByteText("Pop");
    head += utf16("WM/AlbumArtist") + le16(0) + le16(8) + highByteText("Crew");
    QVariantMap record = wmatag_wrapper::commentsFromHead(head, "/music/A-B-C-D.wma");
    EXPECT_EQ(record.value("title").toString(), "Tune");
    EXPECT_EQ(record.value("artist").toString(), "Crew");
    EXPECT_EQ(record.value("album").toString(), "Disc");
    EXPECT_EQ(record.value("genre").toString(), "Pop");
    EXPECT_FALSE(record.contains("track")) << "the file name is not used once an attribute was found";

    // No attribute: the name split at bare hyphens fills what is absent.
    record = wmatag_wrapper::commentsFromHead(contentDescriptionObject(title, QByteArray()), "/m/Art-Alb-03-Tit-Gen.wma");
    EXPECT_EQ(record.value("title").toString(), "Tune");
    EXPECT_EQ(record.value("artist").toString(), "Art");
    EXPECT_EQ(record.value("album").toString(), "Alb");
    EXPECT_EQ(record.value("track").toString(), "03");
    EXPECT_EQ(record.value("genre").toString(), "Gen");
    EXPECT_TRUE(wmatag_wrapper::commentsFromHead(QByteArray(), "/m/A-B-C.wma").isEmpty());

    // An attribute name at the very end of the buffer reads nothing past it.
    EXPECT_TRUE(wmatag_wrapper::commentsFromHead(utf16("WM/Year", false), "x.wma").isEmpty());
}

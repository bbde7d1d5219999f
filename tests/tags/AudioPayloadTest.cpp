// The audio of a file apart from its tags: the same audio under other tags or
// other pages is the same, one changed byte or a chunk table that points
// elsewhere is not, and damaged structures are named rather than read past.
#include "tags/AudioPayload.h"

#include "Mp4Fixtures.h"
#include "TagFixtures.h"
#include "common/TestSupport.h"

#include <QTemporaryDir>
#include <QtEndian>

#include <gtest/gtest.h>
#include <ogg/ogg.h>

#include <functional>
#include <vector>

using AudioPayload::Format;

namespace {

QByteArray le32(quint32 value)
{
    char bytes[4];
    qToLittleEndian(value, bytes);
    return QByteArray(bytes, 4);
}

// An APE tag with one item, with or without its header.
QByteArray apeTag(bool withHeader)
{
    const QByteArray item = le32(5) + le32(0) + QByteArray("Title", 6) + "Hello";
    auto frame = [&](quint32 flags) {
        return QByteArray("APETAGEX") + le32(2000) + le32(quint32(item.size() + 32)) + le32(1) + le32(flags) +
               QByteArray(8, '\0');
    };
    return (withHeader ? frame(0xA0000000u) : QByteArray()) + item + frame(withHeader ? 0x80000000u : 0);
}

struct Ogg {
    std::vector<QByteArray> packets;  // every packet, headers first
    std::vector<qint64> granules;     // as the pages gave them (-1 inside a page)
};

Ogg readOgg(const QByteArray& bytes)
{
    Ogg ogg;
    ogg_sync_state sync;
    ogg_sync_init(&sync);
    char* buffer = ogg_sync_buffer(&sync, long(bytes.size()));
    memcpy(buffer, bytes.constData(), size_t(bytes.size()));
    ogg_sync_wrote(&sync, long(bytes.size()));
    ogg_stream_state stream;
    bool started = false;
    ogg_page page;
    while (ogg_sync_pageout(&sync, &page) == 1) {
        if (!started) {
            ogg_stream_init(&stream, ogg_page_serialno(&page));
            started = true;
        }
        ogg_stream_pagein(&stream, &page);
        ogg_packet packet;
        while (ogg_stream_packetout(&stream, &packet) == 1) {
            ogg.packets.emplace_back(reinterpret_cast<const char*>(packet.packet), int(packet.bytes));
            ogg.granules.push_back(packet.granulepos);
        }
    }
    if (started)
        ogg_stream_clear(&stream);
    ogg_sync_clear(&sync);
    return ogg;
}

// The packets laid out on pages of about `fill` bytes; each page's granule
// position is the one its last packet had.
QByteArray writeOgg(const Ogg& ogg, long fill)
{
    QByteArray out;
    ogg_stream_state stream;
    ogg_stream_init(&stream, 4242);
    ogg_page page;
    for (size_t i = 0; i < ogg.packets.size(); ++i) {
        ogg_packet packet{};
        packet.packet = reinterpret_cast<unsigned char*>(const_cast<char*>(ogg.packets[i].constData()));
        packet.bytes = ogg.packets[i].size();
        packet.b_o_s = i == 0;
        packet.e_o_s = i + 1 == ogg.packets.size();
        packet.granulepos = i < 3 ? 0 : ogg.granules[i];
        packet.packetno = ogg_int64_t(i);
        ogg_stream_packetin(&stream, &packet);
        const bool headersDone = i == 2;
        while (headersDone ? ogg_stream_flush(&stream, &page) : ogg_stream_pageout_fill(&stream, &page, int(fill))) {
            out += QByteArray(reinterpret_cast<const char*>(page.header), int(page.header_len));
            out += QByteArray(reinterpret_cast<const char*>(page.body), int(page.body_len));
        }
    }
    while (ogg_stream_flush(&stream, &page)) {
        out += QByteArray(reinterpret_cast<const char*>(page.header), int(page.header_len));
        out += QByteArray(reinterpret_cast<const char*>(page.body), int(page.body_len));
    }
    ogg_stream_clear(&stream);
    return out;
}

class AudioPayloadTest : public ::testing::Test {
protected:
    QString put(const QString& name, const QByteArray& bytes) const
    {
        const QString path = dir_.filePath(name);
        testsupport::writeFile(path, bytes);
        return path;
    }
    QTemporaryDir dir_;
};

} // namespace

TEST_F(AudioPayloadTest, MpegAudioIsWhatLiesBetweenTheTags)
{
    const QByteArray audio = fixtures::untaggedMpegAudio();
    const QString plain = put("plain.mp3", audio);
    const QByteArray v1 = fixtures::id3v1Tag("T", "A", "L", "1999", "c", 1, 17);
    struct Same {
        const char* name;
        QByteArray bytes;
    };
    const Same same[] = {
        {"v2.3 and v1", fixtures::id3v2Tag(3, {{"TIT2", "Title"}}) + audio + v1},
        {"two v2 tags, APE with header, v1",
         fixtures::id3v2Tag(2, {{"TT2", "x"}}) + fixtures::id3v2Tag(4, {{"TIT2", "y"}}) + audio + apeTag(true) + v1},
        {"APE without header", audio + apeTag(false)},
    };
    for (const Same& c : same)
        EXPECT_EQ(AudioPayload::difference(Format::Mpeg, plain, put("same.mp3", c.bytes)), "") << c.name;

    struct Different {
        const char* name;
        QByteArray bytes;
    };
    QByteArray flipped = audio;
    flipped[flipped.size() / 2] = char(flipped[flipped.size() / 2] ^ 0x10);
    const Different different[] = {
        {"one byte changed", flipped},
        {"one byte short", audio.left(audio.size() - 1)},
        {"a frame more", audio + audio.right(417)},
    };
    for (const Different& c : different)
        EXPECT_NE(AudioPayload::difference(Format::Mpeg, plain, put("other.mp3", c.bytes)), "") << c.name;

    // A tag longer than the file, a file of tags only, and no file at all.
    QByteArray runsPast = fixtures::id3v2Tag(3, {{"TIT2", "Title"}});
    runsPast[6] = 0x7F;
    EXPECT_EQ(AudioPayload::unreadable(Format::Mpeg, put("past.mp3", runsPast + audio.left(100))),
              "its ID3v2 tag runs past the end of the file");
    EXPECT_EQ(AudioPayload::unreadable(Format::Mpeg, put("tags.mp3", fixtures::id3v2Tag(3, {{"TIT2", "T"}}) + v1)),
              "it holds no MPEG audio");
    QByteArray apeTooLong = audio.left(64) + apeTag(false);
    apeTooLong[apeTooLong.size() - 20] = char(0x7F);  // size field's high byte
    EXPECT_EQ(AudioPayload::unreadable(Format::Mpeg, put("ape.mp3", apeTooLong)),
              "its APE tag is longer than the file");
    EXPECT_EQ(AudioPayload::unreadable(Format::Mpeg, dir_.filePath("absent.mp3")), "it cannot be read");
    EXPECT_EQ(AudioPayload::unreadable(Format::Mpeg, plain), "");
}

TEST_F(AudioPayloadTest, OggPacketsMayMoveToOtherPagesButNotChange)
{
    const QString made = fixtures::oggVorbis(dir_.filePath("made.ogg"), {"-t", "Title"});
    const Ogg ogg = readOgg(testsupport::readFile(made));
    ASSERT_GT(ogg.packets.size(), 10u);
    const QString original = put("original.ogg", writeOgg(ogg, 512));
    EXPECT_EQ(AudioPayload::unreadable(Format::Ogg, original), "");
    EXPECT_EQ(AudioPayload::difference(Format::Ogg, made, original), "");

    // Small pages (packets split across them) and a longer comment header.
    Ogg longer = ogg;
    longer.packets[1] = readOgg(testsupport::readFile(fixtures::oggVorbis(dir_.filePath("long.ogg"),
                                                                          {"-c", "COMMENT=" + QString(70000, 'x')})))
                            .packets[1];
    EXPECT_EQ(AudioPayload::difference(Format::Ogg, original, put("small.ogg", writeOgg(ogg, 60))), "");
    EXPECT_EQ(AudioPayload::difference(Format::Ogg, original, put("longer.ogg", writeOgg(longer, 512))), "");

    const size_t middle = ogg.packets.size() / 2;
    struct Case {
        const char* name;
        std::function<void(Ogg&)> edit;
    };
    const Case cases[] = {
        {"a byte of a packet", [&](Ogg& o) { o.packets[middle][1] = char(o.packets[middle][1] ^ 0x40); }},
        {"a packet dropped",
         [&](Ogg& o) {
             o.packets.erase(o.packets.begin() + long(middle));
             o.granules.erase(o.granules.begin() + long(middle));
         }},
        {"the last granule position", [](Ogg& o) { o.granules.back() += 1; }},
    };
    for (const Case& c : cases) {
        Ogg edited = ogg;
        c.edit(edited);
        EXPECT_NE(AudioPayload::difference(Format::Ogg, original, put("edited.ogg", writeOgg(edited, 512))), "")
            << c.name;
    }

    // Pages: the identification header, the other two headers, then audio.
    const QByteArray bytes = testsupport::readFile(original);
    std::vector<qsizetype> pages;
    for (qsizetype at = bytes.indexOf("OggS"); at >= 0; at = bytes.indexOf("OggS", at + 4))
        pages.push_back(at);
    ASSERT_GE(pages.size(), 5u);
    // A page missing from the middle is a hole, even when the packets around it survive.
    EXPECT_NE(
        AudioPayload::difference(Format::Ogg, original, put("hole.ogg", bytes.left(pages[3]) + bytes.mid(pages[4]))),
        "");
    EXPECT_EQ(AudioPayload::unreadable(Format::Ogg, put("headers.ogg", bytes.left(pages[2]))),
              "it holds no audio packets");
    EXPECT_EQ(AudioPayload::unreadable(Format::Ogg, put("text.ogg", QByteArray(5000, 't'))),
              "it holds no complete Vorbis headers");
}

TEST_F(AudioPayloadTest, Mp4SamplesAreFoundThroughTheSampleTables)
{
    const QString made = dir_.filePath("made.m4a");
    ASSERT_TRUE(fixtures::makeWithFfmpeg(made, {"-c:a", "aac", "-b:a", "64k", "-f", "mp4"}));
    const QString moved = dir_.filePath("moved.m4a");
    ASSERT_EQ(testsupport::run("ffmpeg", {"-v", "error", "-i", made, "-c", "copy", "-movflags", "+faststart", moved}),
              0);
    const QByteArray bytes = testsupport::readFile(made);
    const QByteArray movedBytes = testsupport::readFile(moved);
    ASSERT_NE(bytes.indexOf("moov"), movedBytes.indexOf("moov"));
    // The movie atom moved ahead of the samples: every chunk offset changed, the samples did not.
    EXPECT_EQ(AudioPayload::difference(Format::Mp4, made, moved), "");

    // Edits to the movie atom of the file with the samples first.
    const qsizetype stco = bytes.indexOf("stco");
    const qsizetype stsc = bytes.indexOf("stsc");
    const qsizetype moov = bytes.indexOf("moov") - 4;
    ASSERT_GT(stco, 0);
    ASSERT_GT(stsc, 0);
    const quint32 firstChunk = qFromBigEndian<quint32>(bytes.constData() + stco + 12);
    auto edited = [&](qsizetype at, const QByteArray& value) {
        QByteArray copy = bytes;
        copy.replace(at, value.size(), value);
        return copy;
    };
    // The first chunk offset shifted by a byte: the media data is untouched, the samples read are not.
    EXPECT_NE(AudioPayload::difference(Format::Mp4, made,
                                       put("shifted.m4a", edited(stco + 12, fixtures::be32(firstChunk + 1)))),
              "");
    struct Broken {
        const char* name;
        QByteArray bytes;
        const char* why;
    };
    const Broken broken[] = {
        {"chunk past the end", edited(stco + 12, fixtures::be32(quint32(bytes.size()))),
         "track 1: chunk 1 lies past the end of the file"},
        {"first chunk of the table not 1", edited(stsc + 12, fixtures::be32(2)),
         "track 1: its sample-to-chunk table is out of order"},
        {"chunk offsets cut short", edited(stco + 8, fixtures::be32(0x10000000)),
         "track 1: its chunk offsets are cut short"},
        {"two movie atoms", bytes + bytes.mid(moov), "it has two movie atoms"},
        {"no movie atom", bytes.left(moov), "it has no movie atom"},
        {"cut inside an atom header", bytes + QByteArray(5, '\0'), "it ends inside an atom header"},
        {"atom longer than the file", edited(moov, fixtures::be32(quint32(bytes.size()))), "an atom at byte"},
        {"not MP4", QByteArray(3000, 'x'), "an atom at byte 0 is longer than the file"},
    };
    for (const Broken& c : broken) {
        const QString why = AudioPayload::unreadable(Format::Mp4, put("broken.m4a", c.bytes));
        EXPECT_FALSE(why.isEmpty()) << c.name;
        EXPECT_TRUE(why.startsWith(QString::fromUtf8(c.why))) << c.name << ": " << why.toStdString();
    }
    // A movie atom of size 0 runs to the end of the file, as the last atom may.
    EXPECT_EQ(AudioPayload::difference(Format::Mp4, made, put("zero.m4a", edited(moov, fixtures::be32(0)))), "");
}

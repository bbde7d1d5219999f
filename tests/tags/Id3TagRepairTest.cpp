// ID3v2 tags with a frame TagLib gives up on: the frames behind it are read,
// and the audio behind the tag is still found where it is.
#include "tags/Id3TagRepair.h"
#include "tags/TagAPI.h"

#include "TagFixtures.h"
#include "common/TestSupport.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

QByteArray bytes(std::initializer_list<int> values)
{
    QByteArray out;
    for (const int value : values)
        out += char(value);
    return out;
}

QByteArray syncsafe(quint32 value)
{
    return bytes({int(value >> 21) & 0x7F, int(value >> 14) & 0x7F, int(value >> 7) & 0x7F, int(value) & 0x7F});
}

QByteArray bigEndian(quint32 value, int bytes)
{
    QByteArray out;
    for (int i = bytes - 1; i >= 0; --i)
        out += char(value >> (8 * i));
    return out;
}

// A frame of a tag of version `major`; `size` overrides the size field.
QByteArray frame(int major, const QByteArray& id, const QByteArray& payload, int size = -1)
{
    const quint32 stored = size < 0 ? quint32(payload.size()) : quint32(size);
    if (major == 2)
        return id + bigEndian(stored, 3) + payload;
    return id + (major == 4 ? syncsafe(stored) : bigEndian(stored, 4)) + QByteArray(2, '\0') + payload;
}

QByteArray text(const QByteArray& latin1)
{
    return QByteArray(1, '\0') + latin1;
}

QByteArray tag(int major, quint8 flags, const QByteArray& body, const QByteArray& footer = {})
{
    return "ID3" + bytes({major, 0, flags}) + syncsafe(quint32(body.size())) + body + footer;
}

QByteArray unsynchronised(const QByteArray& bytes)
{
    QByteArray out;
    for (const char c : bytes) {
        out += c;
        if (quint8(c) == 0xFF)
            out += '\0';
    }
    return out;
}

struct Case {
    const char* name;
    QByteArray tag;
    bool mended;  // TagLib would not read every frame by itself
    int dropped;
    QString title;
};

std::vector<Case> cases()
{
    const QByteArray title = text("Behind");
    const QByteArray v24Body = QByteArray("\0\0\0\x06\x01\0", 6) + frame(4, "TENC", {}) + frame(4, "TIT2", title);
    const QByteArray v24Footer = "3DI" + bytes({4, 0, 0x50}) + syncsafe(quint32(v24Body.size()));
    return {
        {"v2.4, a frame of size 0 first", tag(4, 0, frame(4, "TENC", {}) + frame(4, "TIT2", title)), true, 1, "Behind"},
        {"v2.3, a frame id that is no id",
         tag(3, 0, frame(3, "TPE1", text("Band")) + frame(3, "T\x01T2", "xyz") + frame(3, "TIT2", title)), true, 1,
         "Behind"},
        {"v2.3 unsynchronised, sizes 0 and a byte 0xFF",
         tag(3, 0x80,
             unsynchronised(frame(3, "WOAR", {}) + frame(3, "TCOP", {}) + frame(3, "TIT2", text("Beh\xFFnd")))),
         true, 2, QString::fromLatin1("Beh\xFFnd")},
        {"v2.2", tag(2, 0, frame(2, "TEN", {}) + frame(2, "TT2", title)), true, 1, "Behind"},
        {"v2.4 with an extended header and a footer", tag(4, 0x50, v24Body, v24Footer), true, 1, "Behind"},
        {"v2.3 with an extended header (a CRC)",
         tag(3, 0x40, bytes({0, 0, 0, 10, 0x80, 0, 0, 0, 0, 0, 1, 2, 3, 4}) + frame(3, "TIT2", title)), true, 0,
         "Behind"},
        {"a tag TagLib reads whole", tag(3, 0, frame(3, "TIT2", title) + QByteArray(32, '\0')), false, 0, "Behind"},
        // TagLib stops at a frame running past the tag, as the mending does: nothing behind it is a frame.
        {"a frame past the end of the tag", tag(3, 0, frame(3, "TIT2", title) + frame(3, "TPE1", "x", 4000)), false, 0,
         "Behind"},
    };
}

}  // namespace

TEST(Id3TagRepair, FramesBehindOnesTagLibGivesUpOnAreReadAndTheAudioFound)
{
    QTemporaryDir dir;
    const QByteArray audio = fixtures::untaggedMpegAudio();
    const QString plainPath = dir.filePath("plain.mp3");
    ASSERT_TRUE(testsupport::writeFile(plainPath, audio));
    TagAPI plain;
    ASSERT_TRUE(plain.examineFile(plainPath));
    const int seconds = plain.getDuration();
    ASSERT_GT(seconds, 0);

    for (const Case& row : cases()) {
        SCOPED_TRACE(row.name);
        const QByteArray file = row.tag + audio;
        const auto read = [&](qint64 offset, qint64 length) { return file.mid(offset, length); };
        const auto repaired = Id3TagRepair::repairLeadingTag(read, file.size());
        ASSERT_EQ(repaired.has_value(), row.mended);
        if (repaired) {
            EXPECT_EQ(repaired->dropped, row.dropped);
            EXPECT_EQ(repaired->replaces, row.tag.size());
            // The mended tag has nothing left to mend.
            const QByteArray mended = repaired->tag;
            EXPECT_FALSE(
                Id3TagRepair::repairLeadingTag([&](qint64 o, qint64 l) { return mended.mid(o, l); }, mended.size()));
        }
        const QString path = dir.filePath("tagged.mp3");
        ASSERT_TRUE(testsupport::writeFile(path, file));
        TagAPI tags;
        ASSERT_TRUE(tags.examineFile(path));
        EXPECT_EQ(tags.getTitle(), row.title);
        EXPECT_EQ(tags.getDuration(), seconds);
    }
}

#include "Mp4Fixtures.h"

#include "common/TestSupport.h"
#include "tags/Mp4AtomTree.h"
#include "tags/Mp4Tags.h"

#include <QBuffer>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstring>

using namespace fixtures;
using mp4::AtomTree;

namespace {

struct ScannedBytes {
    QBuffer buffer;
    AtomTree tree;
    bool ok = false;
    explicit ScannedBytes(const QByteArray& bytes, bool deep = false)
    {
        buffer.setData(bytes);
        buffer.open(QIODevice::ReadOnly);
        ok = tree.scan(&buffer, deep);
    }
};

QByteArray item(const QByteArray& name, uint32_t dataClass, const QByteArray& payload)
{
    return atom(name, dataAtom(dataClass, payload));
}

} // namespace

TEST(Mp4AtomTree, KnownAtomTable)
{
    ASSERT_EQ(mp4::kKnownAtoms.size(), 187u);
    int containers = 0;
    for (const mp4::KnownAtom& row : mp4::kKnownAtoms) {
        ASSERT_NE(row.name, nullptr);
        ASSERT_EQ(std::strlen(row.name), 4u);
        ASSERT_NE(row.parents[0], nullptr) << row.name;
        EXPECT_GE(row.presence, 30);
        EXPECT_LE(row.presence, 38);
        if (row.containerState <= mp4::kDualStateAtom)
            ++containers;
    }
    EXPECT_EQ(containers, 53);
    EXPECT_STREQ(mp4::kKnownAtoms.front().name, "<()>");
    EXPECT_STREQ(mp4::kKnownAtoms.back().name, "data");
}

TEST(Mp4AtomTree, BuildsTheTreeOfAnItunesFile)
{
    const QByteArray items = item("\xA9nam", 1, "Title") + atom("----", atom("mean", be32(0) + "com.apple.iTunes")
                                                                             + atom("name", be32(0) + "X")
                                                                             + dataAtom(1, "y"));
    const QByteArray bytes = m4aWithItems(items);
    ScannedBytes scanned(bytes);
    ASSERT_TRUE(scanned.ok) << scanned.tree.errorText().toStdString();
    const AtomTree& tree = scanned.tree;
    EXPECT_EQ(tree.majorBrand(), 0x4D344120u);  // "M4A "
    EXPECT_TRUE(tree.hasCompatibleBrand("mp42"));
    EXPECT_FALSE(tree.hasCompatibleBrand("iso2"));

    const mp4::AtomRecord* ilst = tree.findAtom("moov.udta.meta.ilst");
    ASSERT_NE(ilst, nullptr);
    EXPECT_EQ(ilst->level, 4);
    const mp4::AtomRecord* title = tree.findAtom("moov.udta.meta.ilst.\xA9nam.data");
    ASSERT_NE(title, nullptr);
    EXPECT_EQ(title->dataClass(), 1u);
    EXPECT_EQ(title->classification, mp4::kVersionedAtom);
    EXPECT_EQ(tree.atoms()[size_t(tree.findParentAtom(title->number, title->level))].type(), "\xA9nam");
    EXPECT_EQ(tree.findAtom("moov.mvhd")->classification, mp4::kVersionedAtom);
    EXPECT_EQ(tree.findAtom("moov.udta.meta.ilst.----.name")->classification, mp4::kVersionedAtom);
    EXPECT_EQ(tree.findAtom("moov.udta.meta.hdlr")->level, 4);
    EXPECT_EQ(tree.findAtom("moov.udta.meta.ilst.----")->containerState, mp4::kParentAtom);
    EXPECT_EQ(tree.findAtom("mdat")->level, 1);
    EXPECT_EQ(tree.findAtom("moov.ilst"), nullptr);
    EXPECT_EQ(tree.findAtom("moov.udta.meta.ilst.----.data:[2]"), nullptr);
    EXPECT_NE(tree.findAtom("moov.udta.meta.ilst.----.data:[1]"), nullptr);
    EXPECT_EQ(tree.findParentAtom(tree.findAtom("moov")->number, 1), -1);

    // Everything ahead of the media data, and the movie length.
    EXPECT_EQ(tree.bytesBeforeMdat(), uint64_t(tree.findAtom("mdat")->start));
    EXPECT_TRUE(tree.passedMdat());
    const std::optional<mp4::MovieDetails> movie = tree.movieDetails();
    ASSERT_TRUE(movie);
    EXPECT_EQ(movie->seconds(), 61u);
}

TEST(Mp4AtomTree, MatchesAtomicParsleysTreeOfARealFile)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("tree.m4a");
    ASSERT_TRUE(makeTaggedM4a(path));
    ASSERT_EQ(testsupport::run("AtomicParsley", {path, "--information", "made here", "--overWrite"}), 0);
    QByteArray listing;
    ASSERT_EQ(testsupport::run("AtomicParsley", {path, "-T", "1"}, &listing), 0);

    AtomTree tree;
    ASSERT_TRUE(tree.scan(path, true)) << tree.errorText().toStdString();
    static const QRegularExpression line(R"(^( *)Atom (uuid=\S+|.{4}) @ (\d+) of size: (\d+), ends)");
    size_t index = 0;
    for (QString text : QString::fromUtf8(listing).split('\n')) {
        text.remove(QChar(0xFEFF));
        const QRegularExpressionMatch match = line.match(text);
        if (!match.hasMatch())
            continue;
        ASSERT_LT(index, tree.atoms().size());
        const mp4::AtomRecord& atom = tree.atoms()[index++];
        const int indent = int(match.capturedLength(1));
        EXPECT_EQ(int(atom.level), indent == 0 ? 1 : (indent - 1) / 4 + 1) << text.toStdString();
        EXPECT_EQ(atom.start, match.captured(3).toUInt()) << text.toStdString();
        EXPECT_EQ(atom.length, match.captured(4).toUInt()) << text.toStdString();
        if (!match.captured(2).startsWith("uuid")) {
            EXPECT_EQ(QString::fromLatin1(atom.name, 4), match.captured(2)) << text.toStdString();
        }
    }
    EXPECT_EQ(index, tree.atoms().size());

    // AtomicParsley's own uuid atoms are known by their name.
    const mp4::AtomRecord* information = tree.findAtom("moov.udta.meta.uuid=\xA9inf");
    ASSERT_NE(information, nullptr);
    EXPECT_EQ(information->uuidStyle, mp4::kUuidNamed);
    EXPECT_EQ(tree.findAtom("moov.udta.meta.\xA9inf"), nullptr);

    // Without a deep scan the sample descriptions are stepped over.
    AtomTree shallow;
    ASSERT_TRUE(shallow.scan(path));
    EXPECT_NE(tree.findAtom("moov.trak.mdia.minf.stbl.stsd.mp4a.esds"), nullptr);
    EXPECT_EQ(shallow.findAtom("moov.trak.mdia.minf.stbl.stsd.mp4a"), nullptr);
    EXPECT_NE(shallow.findAtom("moov.trak.mdia.minf.stbl.stco"), nullptr);
}

TEST(Mp4AtomTree, RejectsFilesWithoutFtyp)
{
    const QString badFile =
        "\nAtomicParsley error: bad mpeg4 file (ftyp atom missing or alignment error).\n\n";
    QTemporaryDir dir;
    const QString adts = dir.filePath("raw.aac");
    ASSERT_TRUE(makeWithFfmpeg(adts, {"-c:a", "aac", "-f", "adts"}));
    AtomTree tree;
    EXPECT_FALSE(tree.scan(adts));
    EXPECT_EQ(tree.errorText(), badFile);
    const std::optional<QVariantMap> record = getAACComments(adts);
    ASSERT_TRUE(record);
    EXPECT_TRUE(record->isEmpty());

    EXPECT_FALSE(ScannedBytes(QByteArray("tiny")).ok);
    EXPECT_FALSE(ScannedBytes(atom("moov", QByteArray(16, '\0'))).ok);

    // A JPEG 2000 signature box may come first, but "ftyp" must follow it.
    const QByteArray signature("\x00\x00\x00\x0C\x6A\x50\x20\x20\x0D\x0A\x87\x0A", 12);
    ScannedBytes jp2(signature + ftyp() + atom("moov", mvhd(10, 50)));
    ASSERT_TRUE(jp2.ok);
    EXPECT_EQ(jp2.tree.atoms()[1].type(), "ftyp");
    EXPECT_EQ(jp2.tree.movieDetails()->seconds(), 5u);
    EXPECT_FALSE(ScannedBytes(signature + atom("moov", mvhd(10, 50))).ok);
}

TEST(Mp4AtomTree, SizesAreCutToTheFileAndTrailingZerosEndTheScan)
{
    QByteArray bytes = m4aWithItems(item("\xA9nam", 1, "T"));
    const size_t atomCount = ScannedBytes(bytes).tree.atoms().size();

    ScannedBytes padded(bytes + QByteArray(100, '\0'));
    ASSERT_TRUE(padded.ok);
    EXPECT_EQ(padded.tree.atoms().size(), atomCount);

    // The mdat claims a gigabyte: it ends at the end of the file.
    QByteArray longMdat = bytes;
    const qsizetype mdat = longMdat.lastIndexOf("mdat") - 4;
    longMdat.replace(mdat, 4, be32(1u << 30));
    ScannedBytes cut(longMdat);
    ASSERT_TRUE(cut.ok);
    EXPECT_EQ(cut.tree.findAtom("mdat")->end(), uint64_t(longMdat.size()));

    // A size field of 0 runs to the end of the file; sizes 2..7 cannot be walked.
    longMdat.replace(mdat, 4, be32(0));
    ScannedBytes toEnd(longMdat);
    ASSERT_TRUE(toEnd.ok);
    EXPECT_EQ(toEnd.tree.findAtom("mdat")->end(), uint64_t(longMdat.size()));
    longMdat.replace(mdat, 4, be32(5));
    EXPECT_FALSE(ScannedBytes(longMdat).ok);
}

TEST(Mp4AtomTree, RepairsADataAtomThatOverrunsItsItem)
{
    QByteArray items = item("\xA9nam", 1, "Title") + item("\xA9" "ART", 1, "Artist");
    // The title's data atom claims 200 bytes inside a 29-byte item.
    items.replace(8, 4, be32(200));
    ScannedBytes scanned(m4aWithItems(items));
    ASSERT_TRUE(scanned.ok);
    ASSERT_EQ(scanned.tree.warnings().size(), 1);
    EXPECT_EQ(scanned.tree.warnings().front(),
              QString::fromUtf8("AtomicParsley warning: the 'data' child of the '\xC2\xA9nam' atom seems to be corrupted.\n"));
    const mp4::AtomRecord* title = scanned.tree.findAtom("moov.udta.meta.ilst.\xA9nam");
    const mp4::AtomRecord* data = scanned.tree.findAtom("moov.udta.meta.ilst.\xA9nam.data");
    ASSERT_TRUE(title && data);
    EXPECT_EQ(data->length, title->length - 8);
    const QVariantMap record = mp4::commentsFromTree(scanned.tree);
    EXPECT_EQ(record.value("title").toString(), "Title");
    EXPECT_EQ(record.value("artist").toString(), "Artist");
}

TEST(Mp4AtomTree, SixtyFourBitSizesUpToTheLimit)
{
    const QByteArray head = m4aWithItems(item("\xA9nam", 1, "Big"));
    const QByteArray withoutMdat = head.left(head.lastIndexOf("mdat") - 4);
    auto wideMdat = [&](uint64_t size) { return withoutMdat + be32(1) + "mdat" + be64(size) + QByteArray(32, 'a'); };

    ScannedBytes threeGigabytes(wideMdat(3000000000ULL));
    ASSERT_TRUE(threeGigabytes.ok) << threeGigabytes.tree.errorText().toStdString();
    const mp4::AtomRecord* mdat = threeGigabytes.tree.findAtom("mdat");
    ASSERT_NE(mdat, nullptr);
    EXPECT_EQ(mdat->extendedLength, 3000000000ULL);
    EXPECT_EQ(mdat->end(), uint64_t(withoutMdat.size() + 48));
    EXPECT_EQ(mp4::commentsFromTree(threeGigabytes.tree).value("title").toString(), "Big");

    // The limit is 0xFE363C80 (4,264,967,296); 4,265,032,832 is above it as well.
    for (uint64_t size : {uint64_t(0xFE363C80), uint64_t(4265032832ULL), uint64_t(1) << 32, ~uint64_t(0)}) {
        ScannedBytes tooBig(wideMdat(size));
        EXPECT_FALSE(tooBig.ok);
        EXPECT_TRUE(tooBig.tree.unsupported64BitAtom());
        EXPECT_EQ(tooBig.tree.errorText(),
                  QString("You must be off your block thinking I'm going to tag a file that is at LEAST %1 bytes "
                          "long.\nAtomicParsley doesn't have full 64-bit support")
                      .arg(size));
    }
    ScannedBytes belowLimit(wideMdat(0xFE363C7F));
    EXPECT_TRUE(belowLimit.ok) << belowLimit.tree.errorText().toStdString();
}

TEST(Mp4AtomTree, QuickTimeStyleMetaAndPackedLanguageAssets)
{
    const QByteArray hdlr = atom("hdlr", be32(0) + be32(0) + "mdirappl" + QByteArray(9, '\0'));
    const QByteArray meta = atom("meta", hdlr + atom("ilst", item("\xA9" "alb", 1, "QT")));
    const QByteArray asset = atom("titl", be32(0) + be16(0x15C7) + "Asset");
    ScannedBytes scanned(ftyp() + atom("moov", mvhd(1, 1) + atom("udta", meta + asset)));
    ASSERT_TRUE(scanned.ok);
    EXPECT_EQ(mp4::commentsFromTree(scanned.tree).value("album").toString(), "QT");
    const mp4::AtomRecord* title = scanned.tree.findAtom("moov.udta.titl");
    ASSERT_NE(title, nullptr);
    EXPECT_EQ(title->classification, mp4::kPackedLanguageAtom);
    EXPECT_EQ(title->language, 0x15C7);
}

TEST(Mp4AtomTree, ScansAreIndependentObjects)
{
    ScannedBytes first(m4aWithItems(item("\xA9nam", 1, "One")));
    ScannedBytes second(m4aWithItems(item("\xA9nam", 1, "Two") + item("\xA9" "ART", 1, "Band")));
    ASSERT_TRUE(first.ok && second.ok);
    EXPECT_EQ(mp4::commentsFromTree(first.tree).value("title").toString(), "One");
    EXPECT_EQ(mp4::commentsFromTree(second.tree).value("title").toString(), "Two");
    EXPECT_FALSE(mp4::commentsFromTree(first.tree).contains("artist"));
}

TEST(Mp4AtomTree, TruncatedFilesNeverReadPastTheEnd)
{
    const QByteArray bytes = m4aWithItems(item("\xA9nam", 1, "Title") + item("trkn", 0, be16(0) + be16(3) + be16(12) + be16(0))
                                          + atom("covr", dataAtom(13, "\xFF\xD8\xFF\xE0junk")));
    for (qsizetype length = 0; length <= bytes.size(); ++length) {
        ScannedBytes scanned(bytes.left(length));
        if (scanned.ok) {
            mp4::commentsFromTree(scanned.tree);
            mp4::coverPayloads(scanned.tree);
        }
    }
    // A cover atom whose data claims the whole rest of a truncated file.
    QByteArray cut = bytes;
    cut.chop(80);
    ScannedBytes scanned(cut);
    ASSERT_TRUE(scanned.ok);
    for (const QByteArray& payload : mp4::coverPayloads(scanned.tree))
        EXPECT_LE(payload.size(), cut.size());
}

TEST(Mp4AtomTree, DataAtomText)
{
    using mp4::dataAtomText;
    EXPECT_EQ(dataAtomText("trkn", 0, be16(0) + be16(3) + be16(0) + be16(0)), "3");
    EXPECT_EQ(dataAtomText("trkn", 0, be16(0) + be16(3) + be16(12) + be16(0)), "3/12");
    EXPECT_EQ(dataAtomText("disk", 0, be16(0) + be16(1) + be16(2)), "1/2");
    EXPECT_EQ(dataAtomText("trkn", 0, be16(0)), "");
    EXPECT_EQ(dataAtomText("gnre", 0, be16(18)), "Rock");
    EXPECT_EQ(dataAtomText("gnre", 0, be16(1)), "Blues");
    EXPECT_EQ(dataAtomText("gnre", 0, be16(148)), "Synthpop");
    EXPECT_EQ(dataAtomText("gnre", 0, be16(0)), "unknown");
    EXPECT_EQ(dataAtomText("gnre", 0, be16(149)), "unknown");
    EXPECT_EQ(dataAtomText("\xA9nam", 1, QByteArray("Caf\xC3\xA9")), QString::fromUtf8("Caf\xC3\xA9"));
    EXPECT_EQ(dataAtomText("\xA9nam", 1, QByteArray(3000, 'x')).size(), 2047);
    EXPECT_EQ(dataAtomText("\xA9nam", 1, QByteArray("ab\0cd", 5)), "ab");
    EXPECT_EQ(dataAtomText("cpil", 21, QByteArray(1, '\1')), "true");
    EXPECT_EQ(dataAtomText("pgap", 21, QByteArray(1, '\0')), "false");
    EXPECT_EQ(dataAtomText("rtng", 21, QByteArray(1, '\0')), "Inoffensive");
    EXPECT_EQ(dataAtomText("rtng", 21, QByteArray(1, '\2')), "Clean Content");
    EXPECT_EQ(dataAtomText("rtng", 21, QByteArray(1, '\4')), "Explicit Content");
    EXPECT_EQ(dataAtomText("stik", 21, QByteArray(1, '\x80')), "128");
    EXPECT_EQ(dataAtomText("tmpo", 21, be16(120)), "120");
    EXPECT_EQ(dataAtomText("cnID", 21, be32(4000000000u)), "4000000000");
    EXPECT_EQ(dataAtomText("plID", 21, be64(1ULL << 40)), "1099511627776");
    EXPECT_EQ(dataAtomText("xxxx", 21, QByteArray(3, 'a')), "");
    EXPECT_EQ(dataAtomText("covr", 13, QByteArray(8, 'a')), "");
}

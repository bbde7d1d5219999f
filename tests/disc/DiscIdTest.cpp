#include "disc/DiscID.h"
#include "common/DiscFixtures.h"
#include "disc/DiscTable.h"

#include <QSet>

#include <gtest/gtest.h>

#include <climits>

using discfixtures::publishedQuery;
using discfixtures::routineQuery;

namespace {

// A pressed disc: tracks back to back from sector 0, each `seconds` long (or
// as given in sectors), data tracks where marked.
DiscTable discOf(const QList<qint64>& lengths, const QSet<int>& dataTracks = {})
{
    DiscTable table;
    qint64 sector = 0;
    for (qsizetype i = 0; i < lengths.size(); ++i) {
        DiscTrack track;
        track.number = int(i + 1);
        track.firstSector = sector;
        track.length = lengths[i];
        track.audio = !dataTracks.contains(track.number);
        table.tracks << track;
        sector += lengths[i];
    }
    table.leadout = sector;
    return table;
}

QList<qint64> startsOf(const DiscTable& table)
{
    QList<qint64> starts;
    for (const DiscTrack& track : table.tracks)
        starts << track.firstSector;
    return starts;
}

QString queryOf(const QByteArray& toc)
{
    QByteArray out;
    const int length = cd_discid_main(toc, out);
    EXPECT_EQ(length, out.size());
    return QString::fromLatin1(out);
}

TEST(CddbSum, AddsTheDecimalDigitsOfPositiveNumbersOnly)
{
    const struct {
        long n;
        int sum;
    } cases[] = {{0, 0}, {-1, 0}, {-1234, 0}, {LONG_MIN, 0}, {1, 1},
                 {9, 9}, {10, 1}, {1234, 10}, {99999, 45},   {LONG_MAX, 88}};
    for (const auto& c : cases)
        EXPECT_EQ(cddb_sum(c.n), c.sum) << c.n;
}

TEST(DiscToc, LaysOutTheHeaderThenA0A1A2ThenTheTracks)
{
    DiscTable table = discOf({75 * 200 + 3, 75 * 61, 75 * 30}, {3});
    const QByteArray toc = table.toc();
    ASSERT_EQ(toc.size(), 4 + 11 * 6);
    EXPECT_EQ((quint8(toc[0]) << 8) | quint8(toc[1]), 2 + 11 * 6);
    EXPECT_EQ(toc[2], 1);
    EXPECT_EQ(toc[3], 1);
    auto descriptor = [&](int i) { return toc.mid(4 + 11 * i, 11); };
    EXPECT_EQ(descriptor(0), QByteArray("\x01\x10\x00\xA0\x00\x00\x00\x00\x01\x00\x00", 11));
    EXPECT_EQ(descriptor(1), QByteArray("\x01\x14\x00\xA1\x00\x00\x00\x00\x03\x00\x00", 11));
    // The lead-out after 200 s + 3 frames, 61 s and 30 s, plus the 2 s lead-in: 4:53.03.
    EXPECT_EQ(descriptor(2), QByteArray("\x01\x14\x00\xA2\x00\x00\x00\x00\x04\x35\x03", 11));
    EXPECT_EQ(descriptor(3), QByteArray("\x01\x10\x00\x01\x00\x00\x00\x00\x00\x02\x00", 11));
    EXPECT_EQ(descriptor(4), QByteArray("\x01\x10\x00\x02\x00\x00\x00\x00\x03\x16\x03", 11));  // 3:22.03
    EXPECT_EQ(descriptor(5), QByteArray("\x01\x14\x00\x03\x00\x00\x00\x00\x04\x17\x03", 11));  // 4:23.03
}

TEST(DiscId, QueryStringFollowsThePublishedAlgorithm)
{
    QList<qint64> twelve;
    for (int i = 0; i < 12; ++i)
        twelve << 75 * (180 + 17 * i) + i * 7;
    QList<qint64> ninetyNine(99, 75 * 2 + 11);
    const struct {
        const char* name;
        DiscTable table;
    } discs[] = {
        {"one track", discOf({75 * 60 * 3})},
        {"twelve tracks with frames", discOf(twelve)},
        {"data track first", discOf({75 * 400 + 1, 75 * 100 + 74, 75 * 200}, {1})},
        {"data track last", discOf({75 * 300 + 5, 75 * 100, 75 * 600 + 12}, {3})},
        {"99 tracks", discOf(ninetyNine)},
        {"79 minutes", discOf({75 * 60 * 40, 75 * 60 * 39 + 74})},
        {"a second and a frame", discOf({76})},
    };
    for (const auto& disc : discs) {
        const QList<qint64> starts = startsOf(disc.table);
        EXPECT_EQ(queryOf(disc.table.toc()), routineQuery(starts, disc.table.leadout)) << disc.name;
        // Only the last offset differs from the published query, and only by its frames.
        const QStringList published = publishedQuery(starts, disc.table.leadout).split('+');
        const QStringList made = queryOf(disc.table.toc()).split('+');
        EXPECT_EQ(made.mid(0, made.size() - 2), published.mid(0, published.size() - 2)) << disc.name;
    }
}

TEST(DiscId, AHandWorkedDisc)
{
    // Tracks at 0, 300 and 530 sectors, lead-out at 800: offsets 150, 450 and
    // 680 (9 s 5 f), 12 s long. Digit sums of 2, 6 and 9 s make 17; the length
    // is 12 - 2 = 10 s: 0x11 << 24 | 10 << 8 | 3. The last offset loses its 5 frames.
    DiscTable table = discOf({300, 230, 270});
    EXPECT_EQ(queryOf(table.toc()), "11000a03+3+150+450+675+12");
}

TEST(DiscId, TheLeadOutIsTheDescriptorBeforeTrackOne)
{
    DiscTable table = discOf({75 * 100, 75 * 50, 75 * 25});
    QByteArray toc = table.toc();
    // Move 0xA2 behind the tracks: the descriptor before track 1 is then 0xA1,
    // whose P minute is the last track number (3 minutes = 180 s).
    const QByteArray a2 = toc.mid(4 + 22, 11);
    toc.remove(4 + 22, 11);
    toc.append(a2);
    const QString query = queryOf(toc);
    EXPECT_TRUE(query.endsWith("+180")) << qPrintable(query);
    // Its length field: 180 s - 2 s.
    EXPECT_EQ(query.left(8).mid(2, 4), "00b2");

    // Without a track 1 the first descriptor stands in for the lead-out.
    DiscTable fromTwo = discOf({75 * 100, 75 * 50});
    for (DiscTrack& track : fromTwo.tracks)
        track.number += 1;
    // 0xA0 carries the first track number, 2, in its P minute: 120 s.
    EXPECT_TRUE(queryOf(fromTwo.toc()).endsWith("+120"));
}

TEST(DiscId, ShortAndLyingTablesReadOnlyTheirOwnBytes)
{
    EXPECT_EQ(queryOf({}), "00000000+0+0");
    EXPECT_EQ(queryOf(QByteArray("\x00", 1)), "00000000+0+0");
    EXPECT_EQ(queryOf(QByteArray("\x00\x01\x01\x01", 4)), "00000000+0+0");

    // The length field promises 200 descriptors; 0xA0, 0xA1 and 0xA2 are there.
    // No track: the lead-out is descriptor 0, whose P minute is 1 (60 s).
    QByteArray toc = discOf({75 * 10}).toc().left(4 + 33);
    toc[0] = char(0x08);
    toc[1] = char(0x9A);
    EXPECT_EQ(queryOf(toc), "00000000+0+60");

    // Every truncation of a real table gives some answer without reading past it.
    const QByteArray whole = discOf({75 * 100, 75 * 50, 75 * 25}).toc();
    for (qsizetype size = 0; size <= whole.size(); ++size) {
        QByteArray out;
        EXPECT_GT(cd_discid_main(whole.left(size), out), 0);
    }
}

TEST(IsCDDevice, CutsTheNameAfterDevToFiveCharacters)
{
    const QSet<QString> drives = {"/dev/sr0", "/dev/disk1", "/dev/disk2", "/dev/cdrom"};
    QStringList asked;
    auto isDrive = [&](const QString& device) {
        asked << device;
        return drives.contains(device);
    };
    const struct {
        const char* path;
        bool isCD;
        const char* asked;
    } cases[] = {
        {"/dev/sr0", true, "/dev/sr0"},      {"/dev/disk2s0", true, "/dev/disk2"},
        {"/dev/disk10", true, "/dev/disk1"},  // the cut makes disk10 disk1
        {"/dev/disk3", false, "/dev/disk3"}, {"/dev/cdrom1", true, "/dev/cdrom"},
        {"/dev/sr1", false, "/dev/sr1"},     {"sr0", false, nullptr},
        {"/devices/sr0", false, nullptr},    {"", false, nullptr},
    };
    for (const auto& c : cases) {
        asked.clear();
        EXPECT_EQ(isCDDevice(c.path, isDrive), c.isCD) << c.path;
        EXPECT_EQ(asked, c.asked ? QStringList{c.asked} : QStringList()) << c.path;
    }
}

}  // namespace

#include "disc/CueSheet.h"

#include <gtest/gtest.h>

namespace {

QString errorOf(const QByteArray& text)
{
    QString error;
    EXPECT_FALSE(CueSheet::parse(text, &error).has_value()) << text.constData();
    return error;
}

TEST(CueSheet, ReadsFilesTracksIndexesAndCdText)
{
    const QByteArray text = "\xEF\xBB\xBF"
                            "REM GENRE Rock\r\n"
                            "PERFORMER \"The Band\"\r\n"
                            "TITLE \"Live  at  Home\"\r\n"
                            "FILE \"My Disc.bin\" BINARY\r\n"
                            "  TRACK 01 MODE1/2352\r\n"
                            "    INDEX 01 00:00:00\r\n"
                            "  TRACK 02 audio\r\n"
                            "    TITLE \"Second\"\r\n"
                            "    PERFORMER Solo\r\n"
                            "    FLAGS DCP\r\n"
                            "    PREGAP 00:02:00\r\n"
                            "    INDEX 00 01:00:00\r\n"
                            "    INDEX 01 01:02:10\r\n"
                            "    INDEX 02 01:30:00\r\n"
                            "\r\n"
                            "  TRACK 03 AUDIO\r\n"
                            "    INDEX 01 02:00:74";
    QString error;
    const auto sheet = CueSheet::parse(text, &error);
    ASSERT_TRUE(sheet) << qPrintable(error);
    EXPECT_EQ(sheet->title, "Live  at  Home");
    EXPECT_EQ(sheet->performer, "The Band");
    ASSERT_EQ(sheet->files.size(), 1);
    EXPECT_EQ(sheet->files[0].name, "My Disc.bin");
    EXPECT_EQ(sheet->files[0].type, "BINARY");
    ASSERT_EQ(sheet->tracks.size(), 3);
    EXPECT_FALSE(sheet->tracks[0].audio);
    EXPECT_EQ(sheet->tracks[0].mode, "MODE1/2352");
    EXPECT_EQ(sheet->tracks[0].index1, 0);
    EXPECT_EQ(sheet->tracks[1].mode, "AUDIO");
    EXPECT_TRUE(sheet->tracks[1].audio);
    EXPECT_EQ(sheet->tracks[1].index0, 60 * 75);
    EXPECT_EQ(sheet->tracks[1].index1, 62 * 75 + 10);
    EXPECT_EQ(sheet->tracks[1].title, "Second");
    EXPECT_EQ(sheet->tracks[1].performer, "Solo");
    EXPECT_EQ(sheet->tracks[1].line, 7);
    EXPECT_EQ(sheet->tracks[2].index0, -1);
    EXPECT_EQ(sheet->tracks[2].index1, 120 * 75 + 74);
    EXPECT_EQ(sheet->tracks[2].sectorSize, 2352);
}

TEST(CueSheet, TextIsUtf8WhenItCanBeAndLatin1Otherwise)
{
    const QByteArray utf8 = "TITLE \"Caf\xC3\xA9 \xC3\x9C\"\nFILE a.bin BINARY\nTRACK 01 AUDIO\nINDEX 01 00:00:00\n";
    EXPECT_EQ(CueSheet::parse(utf8)->title, QString::fromUtf8("Café Ü"));
    const QByteArray latin1 = "TITLE \"Caf\xE9 \xDC\"\nFILE a.bin BINARY\nTRACK 01 AUDIO\nINDEX 01 00:00:00\n";
    EXPECT_EQ(CueSheet::parse(latin1)->title, QString::fromUtf8("Café Ü"));
}

TEST(CueSheet, RefusesWhatIsNotACueSheetOfADiscWithTheLine)
{
    const QByteArray track1 = "FILE a.bin BINARY\nTRACK 01 AUDIO\nINDEX 01 00:00:00\n";
    const struct {
        QByteArray text;
        const char* error;
    } cases[] = {
        {"", "there is no track in it"},
        {"\n\n  \n", "there is no track in it"},
        {QByteArray("FILE\0x", 6), "binary data"},
        {"TRACK 01 AUDIO\n", "line 1: TRACK comes before any FILE"},
        {"FILE a.bin BINARY\nINDEX 01 00:00:00\n", "line 2: INDEX comes before any TRACK"},
        {"FILE a.bin\n", "line 1: FILE needs a file name and a type"},
        {"FILE a.bin BINARY\nTRACK 02 AUDIO\n", "line 2: track 1 was expected, not “02”"},
        {track1 + "TRACK 03 AUDIO\n", "line 4: track 2 was expected"},
        {track1 + "TRACK 02 MODE9/9\n", "line 4: “MODE9/9” is not a track mode"},
        {track1 + "TRACK 02 AUDIO\nTRACK 03 AUDIO\n", "line 5: track 2 has no INDEX 01"},
        {track1 + "TRACK 02 AUDIO\n", "track 2 has no INDEX 01"},
        {track1 + "TRACK 02 AUDIO\nINDEX 01 00:00:00\n", "line 5: INDEX 01 of track 2 lies before"},
        {track1 + "TRACK 02 AUDIO\nINDEX 01 00:61:00\n", "line 5: INDEX needs a number and a position"},
        {track1 + "TRACK 02 AUDIO\nINDEX 01 00:01:75\n", "INDEX needs a number and a position"},
        {track1 + "TRACK 02 AUDIO\nINDEX 01 1:2\n", "INDEX needs a number and a position"},
        {track1 + "TRACK 02 AUDIO\nINDEX 01 -1:00:00\n", "INDEX needs a number and a position"},
        {track1 + "INDEX 01 00:00:01\n", "line 4: track 1 has two INDEX 01"},
        {track1 + "INDEX 00 00:00:01\n", "line 4: INDEX 00 of track 1 is out of place"},
        {"FILE a.bin BINARY\nTRACK 01 AUDIO\nINDEX 02 00:00:00\n",
         "line 3: INDEX 2 of track 1 comes before its INDEX 01"},
        {track1 + "FILE b.bin BINARY\nINDEX 01 00:00:00\n",
         "line 5: track 1 starts in one file and goes on in another"},
        {track1 + "FILE b.bin BINARY\n", "line 4: the file “b.bin” holds no track"},
        {track1 + "HELLO there\n", "line 4: “HELLO” is not a cue sheet command"},
        {"<html><body>not a cue</body></html>\n", "line 1: “<html><body>not” is not a cue sheet command"},
    };
    for (const auto& c : cases)
        EXPECT_TRUE(errorOf(c.text).contains(QString::fromUtf8(c.error)))
            << c.text.constData() << " → " << qPrintable(errorOf(c.text));
}

TEST(CueSheet, HoldsAtMost99Tracks)
{
    QByteArray text = "FILE a.bin BINARY\n";
    for (int track = 1; track <= 99; ++track)
        text += QStringLiteral("TRACK %1 AUDIO\nINDEX 01 %2:00:00\n").arg(track, 2, 10, QChar('0')).arg(track).toUtf8();
    const auto sheet = CueSheet::parse(text);
    ASSERT_TRUE(sheet);
    EXPECT_EQ(sheet->tracks.size(), 99);
    EXPECT_EQ(sheet->tracks.last().index1, 99 * 60 * 75);
    EXPECT_EQ(errorOf(text + "TRACK 100 AUDIO\nINDEX 01 100:00:00\n"), "line 200: a disc holds at most 99 tracks");
}

TEST(CueSheet, AnUnclosedQuoteRunsToTheEndOfTheLine)
{
    const auto sheet = CueSheet::parse("FILE \"a b.bin BINARY\nTRACK 01 AUDIO\nINDEX 01 00:00:00\n");
    EXPECT_FALSE(sheet);
    const auto titled = CueSheet::parse("TITLE \"Open\nFILE x.bin BINARY\nTRACK 01 AUDIO\nINDEX 01 00:00:00\n");
    ASSERT_TRUE(titled);
    EXPECT_EQ(titled->title, "Open");
}

}  // namespace

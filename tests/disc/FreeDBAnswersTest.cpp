#include "disc/FreeDBAnswers.h"

#include <gtest/gtest.h>

using namespace FreeDBAnswers;

namespace {

QStringList entry(const QStringList& body)
{
    return QStringList{"210 misc 12345678 CD database entry follows"} + body + QStringList{"."};
}

QStringList titles(const QVariantList& info)
{
    QStringList list;
    for (const QVariant& track : info)
        list << track.toMap().value("title").toString();
    return list;
}

TEST(FreeDBAnswers, LinesEndAtCrLfOrLfAndWordsKeepTheirBlanks)
{
    EXPECT_EQ(lines("a\r\nb\nc\r\n"), QStringList({"a", "b", "c", ""}));
    EXPECT_EQ(lines("a\rb"), QStringList({"a\rb"}));
    EXPECT_EQ(statusCode(lines("210 OK\r\n")), "210");
    EXPECT_EQ(statusCode({}), "");
    EXPECT_EQ(statusCode({" 200 late"}), "");
    // Two blanks in a title survive the match.
    const Matches exact = exactMatches({"200 rock 0a0b0c0d Artist  /  Title "}, "/cd");
    EXPECT_EQ(exact.albums[0].toMap().value("title"), "Artist  /  Title ");
    EXPECT_EQ(exact.readArgument, "rock+0a0b0c0d");
}

TEST(FreeDBAnswers, ExactMatchesAreEveryLineOfFourWords)
{
    const Matches matches = exactMatches({"200 rock 0a0b0c0d A / B", "jazz 11 x y", "too short", "."}, "/cd");
    ASSERT_EQ(matches.albums.size(), 2);
    EXPECT_EQ(matches.albums[1].toMap(),
              (QVariantMap{{"genre", "11"}, {"discid", "x"}, {"title", "y"}, {"cdpath", "/cd"}}));
    EXPECT_EQ(matches.readArgument, "11+x");
    EXPECT_TRUE(exactMatches({"200 rock"}, "/cd").readArgument.isEmpty());
}

TEST(FreeDBAnswers, DecodingFallsBackToLatin1)
{
    EXPECT_EQ(decode("Caf\xC3\xA9"), QString::fromUtf8("Café"));
    EXPECT_EQ(decode("Caf\xE9"), QString::fromUtf8("Café"));
    EXPECT_EQ(decode("\xC3"), QString::fromUtf8("Ã"));
}

TEST(FreeDBAnswers, XmcdEntriesAsTheProgramReadsThem)
{
    const struct {
        const char* name;
        QStringList lines;
        QStringList titles;
        const char* field;
        QStringList values;
    } cases[] = {
        {"continuation lines join",
         entry({"TTITLE5=Long title, pa", "TTITLE5=rt two", "TTITLE6=Next"}),
         {"Long title, part two", "Next"},
         "track",
         {"01", "02"}},
        {"tracks are counted, not read from the key",
         entry({"TTITLE9=A", "TTITLE2=B"}),
         {"A", "B"},
         "track",
         {"01", "02"}},
        {"a title with = is skipped", entry({"TTITLE0=1+1=2", "TTITLE1=Fine"}), {"Fine"}, "track", {"01"}},
        {"artist / title sets the artist from then on",
         entry({"TTITLE0=Solo", "TTITLE1=Guest / Duet", "TTITLE2=After"}),
         {"Solo", "Duet", "After"},
         "artist",
         {"", "Guest", "Guest"}},
        {"more than two parts keep the title before",
         entry({"TTITLE0=First", "TTITLE1=a / b / c"}),
         {"First", "First"},
         "artist",
         {"", ""}},
        {"a blank DGENRE keeps the category", entry({"DGENRE=   ", "TTITLE0=x"}), {"x"}, "genre", {"misc"}},
        {"DGENRE replaces the category", entry({"DGENRE=Post Rock", "TTITLE0=x"}), {"x"}, "genre", {"Post Rock"}},
        {"a later 210 line sets the category",
         entry({"TTITLE0=x", "210 blues 1", "TTITLE1=y"}),
         {"x", "y"},
         "genre",
         {"misc", "blues"}},
        {"DYEAR that does not split is empty",
         entry({"DYEAR=1999", "TTITLE0=x", "DYEAR=19=99", "TTITLE1=y"}),
         {"x", "y"},
         "year",
         {"1999", ""}},
        {"DTITLE as one word leaves artist and album empty",
         entry({"DTITLE=Artist / Album", "TTITLE0=x"}),
         {"x"},
         "album",
         {""}},
        {"a DTITLE word names the album", entry({"DTITLE Solo", "TTITLE0=x"}), {"x"}, "album", {"Solo"}},
        {"comments and DISCID lines count for nothing",
         entry({"# TTITLE0=no", "DISCID=TTITLE", "TTITLE0=yes"}),
         {"yes"},
         "track",
         {"01"}},
        {"an empty answer", {}, {}, "track", {}},
    };
    for (const auto& c : cases) {
        const QVariantList info = cdInfo(c.lines, "/cd");
        EXPECT_EQ(titles(info), c.titles) << c.name;
        QStringList values;
        for (const QVariant& track : info)
            values << track.toMap().value(c.field).toString();
        EXPECT_EQ(values, c.values) << c.name;
        for (const QVariant& track : info)
            EXPECT_EQ(track.toMap().value("cdpath"), "/cd") << c.name;
    }
}

TEST(FreeDBAnswers, ArtistAndAlbumSplitAtTheFirstSlash)
{
    EXPECT_EQ(artistAndAlbum("A / B"), QStringList({"A", "B"}));
    EXPECT_EQ(artistAndAlbum("Solo"), QStringList({"Solo", ""}));
    EXPECT_EQ(artistAndAlbum("A / B / C"), QStringList({"A", "B / C"}));
    EXPECT_EQ(artistAndAlbum("AC/DC"), QStringList({"AC/DC", ""}));
}

}  // namespace

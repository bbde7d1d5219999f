#include "tabs/RipNaming.h"
#include "tabs/RipSettings.h"

#include "common/TestSupport.h"
#include "platform/FileNames.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace RipNaming;

namespace {

const QVariantMap kInfo{{"artist", "Some Artist"}, {"album", "Some Album"}, {"title", "Some Title"}, {"track", "07"}};

QVariantMap settingsWith(const QVariantMap& values)
{
    QVariantMap settings = RipSettings::defaultFormatSettings();
    for (auto it = values.begin(); it != values.end(); ++it)
        settings.insert(it.key(), it.value());
    return settings;
}

}  // namespace

TEST(RipNaming, EveryFileNameFormatWithTheDiscNamesOrTheMissingTexts)
{
    const TrackNames named = TrackNames::from(kInfo, 3);
    const TrackNames missing = TrackNames::from({{"artist", ""}}, 3);  // empty counts as absent
    struct Case {
        int format;
        const char* withNames;
        const char* withoutNames;
    } cases[] = {
        {0, "07 Some Title.mp3", "03 Title Missing.mp3"},
        {1, "Some Artist - 07 - Some Title.mp3", "Artist Missing - 03 - Title Missing.mp3"},
        {2, "Some Album - Some Artist - 07 - Some Title.mp3",
         "Album Missing - Artist Missing - 03 - Title Missing.mp3"},
        {3, "Some Album - 07 - Some Artist - Some Title.mp3",
         "Album Missing - 03 - Artist Missing - Title Missing.mp3"},
        {4, "07-Some Artist - Some Title.mp3", "03-Artist Missing - Title Missing.mp3"},
        {5, "Some Title.mp3", "Title Missing.mp3"},
        {6, "[07] some artist-SOME TITLE.mp3", "[03] artist missing-TITLE MISSING.mp3"},
        {7, "07 Some Title.mp3", "03 Title Missing.mp3"},  // past the list: the first format
    };
    const QString custom = "[[Track]] [artist]-[TITLE].[ext]";
    for (const Case& c : cases) {
        EXPECT_EQ(namedFile(named, c.format, custom, "mp3"), c.withNames) << c.format;
        EXPECT_EQ(namedFile(missing, c.format, custom, "mp3"), c.withoutNames) << c.format;
    }
}

TEST(RipNaming, CustomTokensInTheirOrderAndCase)
{
    const TrackNames names = TrackNames::from({{"artist", "AC/DC"}, {"album", "Mixed Case"}, {"title", "T"}}, 12);
    struct Case {
        const char* format;
        const char* expected;
    } cases[] = {
        {"[Track][track][TRACK]", "121212"},
        {"[Artist]|[artist]|[ARTIST]", "AC:DC|ac:dc|AC:DC"},  // a slash would make a folder
        {"[Album]|[album]|[ALBUM]", "Mixed Case|mixed case|MIXED CASE"},
        {"[Ext]|[ext]|[EXT]", "Ogg|ogg|OGG"},
        {"[Artist] [Unknown]", "AC:DC [Unknown]"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(customName(c.format, names, "Ogg"), c.expected) << c.format;
}

TEST(RipNaming, FoldersFromTheOptions)
{
    const TrackNames names = TrackNames::from(kInfo, 1);
    struct Case {
        QVariantMap options;
        const char* folder;
    } cases[] = {
        {{}, ""},
        {{{"mRipSubfoldersStored", 1}}, "Some Artist/Some Album"},
        {{{"mRipTypeFolderStored", 1}}, "mp3"},
        {{{"mRipSubfoldersStored", 1}, {"mRipTypeFolderStored", 1}, {"mRipFolderCaseStored", 1}},
         "some artist/some album/mp3"},
        {{{"mRipSubfoldersStored", 1},
          {"mRipTypeFolderStored", 1},
          {"mRipFolderCaseStored", 1},
          {"mRipFolderSpacesStored", 1}},
         "someartist/somealbum/mp3"},
    };
    for (const Case& c : cases) {
        const QVariantMap settings = settingsWith(c.options);
        EXPECT_EQ(folderPart(subPath(names, settings), "mp3", settings), c.folder);
    }
    // Names that would climb out of the save folder or vanish stay folders of their own.
    const QVariantMap spaces = settingsWith({{"mRipSubfoldersStored", 1}, {"mRipFolderSpacesStored", 1}});
    EXPECT_EQ(folderPart(subPath(TrackNames::from({{"artist", ".."}, {"album", " "}}, 1), spaces), "mp3", spaces),
              "__/_");
}

TEST(RipNaming, TargetsAreReservedAndCollisionsTakeTheUnchangedSourceName)
{
    QTemporaryDir dir;
    const QString save = dir.path();
    const QString source = "/discs/Audio CD/07 Audio Track.cdda";
    const QVariantMap changes = settingsWith(
        {{"mRipSubfoldersStored", 1},
         {"charchange", QVariantList{QVariantMap{{"replace", " "}, {"with", "_"}}, QVariantMap{{"with", "x"}},
                                     QVariantMap{{"replace", "Title"}, {"with", "T/tle"}}}}});
    const Target target{namedFile(TrackNames::from(kInfo, 7), 0, {}, "mp3"),
                        save,
                        "Some Artist/Some Album",
                        "mp3",
                        source,
                        changes,
                        false};
    // The changes go in order (blanks, then "Title"); their slash becomes a colon.
    const QString folder = save + "/Some Artist/Some Album";
    EXPECT_EQ(uniqueFilename(target, UniqueNames::Mode::Preview), folder + "/07_Some_T:tle.mp3");
    EXPECT_FALSE(QFileInfo::exists(folder));  // a preview makes nothing

    const QString first = uniqueFilename(target);
    EXPECT_EQ(first, folder + "/07_Some_T:tle.mp3");
    EXPECT_TRUE(FileNames::isReserved(first));
    EXPECT_EQ(uniqueFilename(target), folder + "/07 Audio Track 1.mp3");
    EXPECT_EQ(uniqueFilename(target, UniqueNames::Mode::Preview), folder + "/07 Audio Track 2.mp3");
    Target replacing = target;
    replacing.replace = true;
    EXPECT_EQ(uniqueFilename(replacing), first);

    // At 1,024 the name is taken whether or not it is free.
    for (int n = 2; n <= 1024; ++n)
        ASSERT_TRUE(testsupport::writeFile(folder + QStringLiteral("/07 Audio Track %1.mp3").arg(n), "x"));
    EXPECT_EQ(uniqueFilename(target), folder + "/07 Audio Track 1024.mp3");
}

TEST(RipNaming, LongNamesFitIn255BytesKeepingTheirExtension)
{
    QTemporaryDir dir;
    const QString title = QString(200, QChar(0x00E9));  // two bytes each in UTF-8
    const Target target{namedFile(TrackNames::from({{"title", title}}, 1), 0, {}, "m4a"),
                        dir.path(),
                        {},
                        "m4a",
                        dir.filePath(QString(300, 'x') + ".cdda"),
                        RipSettings::defaultFormatSettings(),
                        false};
    const QString first = QFileInfo(uniqueFilename(target)).fileName();
    EXPECT_LE(first.toUtf8().size(), 255);
    EXPECT_TRUE(first.startsWith("01 \u00E9")) << qPrintable(first);
    EXPECT_TRUE(first.endsWith(".m4a"));
    const QString numbered = QFileInfo(uniqueFilename(target)).fileName();
    EXPECT_EQ(numbered.toUtf8().size(), 255);
    EXPECT_TRUE(numbered.endsWith("x 1.m4a"));
}

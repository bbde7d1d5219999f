#include "core/PropertyList.h"
#include "playlists/ITunesLibrary.h"
#include "playlists/XmlPlistReader.h"

#include "common/TestSupport.h"

#include <QDateTime>
#include <QRandomGenerator>
#include <QTimeZone>

#include <gtest/gtest.h>

namespace {

TEST(XmlPlistReader, ReadsBackEveryTypeTheWriterWrites)
{
    const QVariantMap value{
        {"string", QString::fromUtf8("Grüße & <tags> \"quoted\"")},
        {"empty string", QString()},
        {"integer", qint64(-42)},
        {"large", qint64(1) << 40},
        {"real", 2.5},
        {"yes", true},
        {"no", false},
        {"data", QByteArray("\x00\x01\xfe binary", 10)},
        {"date", QDateTime(QDate(2007, 3, 1), QTime(10, 0, 5), QTimeZone::utc())},
        {"empty array", QVariantList()},
        {"empty dict", QVariantMap()},
        {"nested", QVariantList{QVariantMap{{"a", QVariantList{"x", qint64(1)}}}, "y"}},
    };
    const QByteArray xml = PropertyList::toXml(value);
    QString error;
    const auto read = XmlPlist::parse(xml, &error);
    ASSERT_TRUE(read.has_value()) << qPrintable(error);
    const QVariantMap map = read->toMap();
    ASSERT_EQ(map.keys(), value.keys());
    for (auto it = value.begin(); it != value.end(); ++it)
        EXPECT_EQ(map.value(it.key()), it.value()) << qPrintable(it.key());
    // What other writers may use: a BOM, comments, CDATA, character
    // references, attributes and Windows line ends.
    const QByteArray other = "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<!-- made elsewhere -->\r\n"
                             "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"x>y.dtd\">\r\n"
                             "<plist version = '1.0' note=\"a>b\"><dict >\r\n<key>a<!-- c -->b</key>"
                             "<string>x &#x263A;&#65;<![CDATA[<&>]]>\r\ny</string>"
                             "<key>empty</key><string/></dict ></plist>";
    const auto alien = XmlPlist::parse(other, &error);
    ASSERT_TRUE(alien.has_value()) << qPrintable(error);
    EXPECT_EQ(*alien, QVariant(QVariantMap{{"ab", QString::fromUtf8("x \u263A" "A<&>\ny")}, {"empty", QString()}}));
    // A scalar root is a property list too.
    EXPECT_EQ(XmlPlist::parse("<plist version=\"1.0\"><string>only</string></plist>"), QVariant("only"));
}

TEST(XmlPlistReader, RefusesWhatIsNotAPlainPropertyList)
{
    const char* bad[] = {
        "",
        "<plist>",
        "<html><body/></html>",
        "<plist><dict><string>no key</string></dict></plist>",
        "<plist><dict><key>dangling</key></dict></plist>",
        "<plist><integer>twelve</integer></plist>",
        "<plist><array><unknown/></array></plist>",
        "<plist><string>a<b/>c</string></plist>",
        "<!DOCTYPE plist [<!ENTITY e \"x\">]><plist><string>&e;</string></plist>",
        "<plist><string>&undeclared;</string></plist>",
        "<plist><string>&#0;</string></plist>",
        "<plist><string>text</strong></plist>",
        "<plist><array><string>open</array></plist>",
        "<plist><array></array></plist><",
        "text<plist/>",
    };
    for (const char* text : bad) {
        QString error;
        EXPECT_FALSE(XmlPlist::parse(text, &error).has_value()) << text;
        EXPECT_FALSE(error.isEmpty()) << text;
    }
    QByteArray deep = "<plist>";
    for (int i = 0; i < XmlPlist::kMaxPlistDepth + 1; ++i)
        deep += "<array>";
    for (int i = 0; i < XmlPlist::kMaxPlistDepth + 1; ++i)
        deep += "</array>";
    deep += "</plist>";
    EXPECT_FALSE(XmlPlist::parse(deep).has_value());
}

TEST(XmlPlistReader, DamagedLibrariesNeverCrashTheReaders)
{
    const QByteArray sound = PropertyList::toXml(QVariantMap{
        {"Tracks", QVariantMap{{"1", QVariantMap{{"Track ID", 1}, {"Location", "file:///a%20b.mp3"}}},
                               {"2", QVariantMap{{"Track ID", 2}, {"Location", "file:///c.m4a"}}}}},
        {"Playlists", QVariantList{QVariantMap{{"Name", "A/B"},
                                               {"Playlist Items", QVariantList{QVariantMap{{"Track ID", 1}},
                                                                               QVariantMap{{"Track ID", 2}}}}}}}});
    const QString path = testsupport::homeDir() + "/damaged.xml";
    ASSERT_TRUE(testsupport::writeFile(path, sound));
    const auto intact = ITunesLibrary::read(path);
    ASSERT_TRUE(intact.has_value());
    EXPECT_EQ(intact->locations.size(), 2);
    EXPECT_EQ(intact->playlists.size(), 1);

    QRandomGenerator random(20070301);
    const char alphabet[] = "<>/&;\"=![]-? \n\0abkeydictarraystring";
    for (int round = 0; round < 1500; ++round) {
        QByteArray damaged = sound;
        const int edits = 1 + int(random.bounded(4));
        for (int e = 0; e < edits; ++e) {
            const int at = int(random.bounded(damaged.size()));
            switch (random.bounded(3)) {
            case 0:
                damaged[at] = alphabet[random.bounded(int(sizeof alphabet) - 1)];
                break;
            case 1:
                damaged.remove(at, 1 + int(random.bounded(20)));
                break;
            default:
                damaged.truncate(at);
                break;
            }
            if (damaged.isEmpty())
                break;
        }
        XmlPlist::parse(damaged);
        testsupport::writeFile(path, damaged);
        if (const auto library = ITunesLibrary::read(path)) {
            for (const QVariant& playlist : library->playlists)
                EXPECT_EQ(playlist.typeId(), QMetaType::QVariantMap);
        }
    }
}

} // namespace

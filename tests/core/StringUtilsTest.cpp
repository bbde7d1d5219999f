#include "core/StringUtils.h"
#include "core/TimeFormatter.h"

#include "common/TestSupport.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>

TEST(FinderCompare, OrdersLikeTheFinder)
{
    QStringList names{"a10", "A2", "a1"};
    std::sort(names.begin(), names.end(), mySort);
    EXPECT_EQ(names, (QStringList{"a1", "A2", "a10"}));

    names = QStringList{"Track 10.mp3", "track 2.mp3", "Track 1.mp3", "Track 02b.mp3"};
    std::sort(names.begin(), names.end(), mySort);
    EXPECT_EQ(names, (QStringList{"Track 1.mp3", "track 2.mp3", "Track 02b.mp3", "Track 10.mp3"}));

    EXPECT_EQ(finderCompare("ABC", "abc"), 0);
    EXPECT_EQ(finderCompare(QString::fromUtf8("\xef\xbc\xa1"), "a"), 0);  // full-width A
    EXPECT_EQ(finderCompare(QString::fromUtf8("e\xcc\x81"), QString::fromUtf8("\xc3\xa9")), 0);  // decomposed é
    EXPECT_NE(finderCompare(QString::fromUtf8("\xc3\xa9"), "e"), 0);  // accents count
    EXPECT_LT(finderCompare("e", QString::fromUtf8("\xc3\xa9")), 0);
    EXPECT_NE(finderCompare("a-b", "ab"), 0);  // punctuation counts
    EXPECT_GT(finderCompare("b", "A"), 0);
}

TEST(TimeFormatter, FormatsParsesAndRefusesAboveTheLimit)
{
    TimeFormatter formatter;
    EXPECT_EQ(formatter.stringForObjectValue(3725), "01:02:05");
    EXPECT_EQ(formatter.stringForObjectValue(59.9), "00:00:59");
    EXPECT_EQ(formatter.stringForObjectValue(360000), "100:00:00");
    EXPECT_TRUE(formatter.stringForObjectValue(QString("12")).isNull());

    QVariant value;
    QString error;
    auto parse = [&](const QString& text) {
        value = QVariant();
        return formatter.getObjectValue(&value, text, &error);
    };
    ASSERT_TRUE(parse("75"));
    EXPECT_EQ(value.toInt(), 75);
    ASSERT_TRUE(parse("2:05"));
    EXPECT_EQ(value.toInt(), 125);
    ASSERT_TRUE(parse("1:02:03:99"));
    EXPECT_EQ(value.toInt(), 3723);
    ASSERT_TRUE(parse("x:1y"));
    EXPECT_EQ(value.toInt(), 1);
    ASSERT_TRUE(parse(""));
    EXPECT_EQ(value.toInt(), 0);
    ASSERT_TRUE(parse("100:00:00"));
    EXPECT_EQ(value.toInt(), 360000);
    EXPECT_FALSE(parse("100:00:01"));
    EXPECT_EQ(error, "Please enter a time that is less than 100:00:00");

    QObject slider;
    slider.setProperty("maximum", 90.7);
    formatter.setSlider(&slider);
    EXPECT_TRUE(parse("1:30"));
    EXPECT_FALSE(parse("1:31"));
    EXPECT_EQ(error, "Please enter a time that is less than 00:01:30");
}

class FolderTest : public ::testing::Test {
protected:
    QTemporaryDir dir_;
    QString path(const QString& name) const { return dir_.filePath(name); }
};

TEST_F(FolderTest, CreatesEveryMissingLevelWithFullModeUnderTheUmask)
{
    const mode_t old = umask(022);
    const QString deep = path("one/two/three");
    EXPECT_TRUE(createDirectoriesAtPath(deep));
    umask(old);
    for (const char* level : {"one", "one/two", "one/two/three"}) {
        struct stat info;
        ASSERT_EQ(stat(qPrintable(path(level)), &info), 0) << level;
        EXPECT_EQ(info.st_mode & 0777, 0755u) << level;  // never world-writable past the umask
    }
    EXPECT_TRUE(createDirectoriesAtPath(deep));  // nothing missing
    testsupport::writeFile(path("file"), "x");
    EXPECT_FALSE(createDirectoriesAtPath(path("file/below")));
}

TEST_F(FolderTest, ReadsWavHeaders)
{
    int bits = -1;
    ASSERT_EQ(testsupport::run("sox", {"-n", "-r", "8000", "-b", "24", path("a.wav"), "trim", "0", "0.01"}), 0);
    EXPECT_TRUE(getWAVInfo(path("a.wav"), &bits));
    EXPECT_EQ(bits, 24);
    // A chunk before "fmt " is skipped.
    QByteArray wav = testsupport::readFile(path("a.wav"));
    wav.insert(12, QByteArray("LIST\x03\x00\x00\x00xyz\x00", 12));
    testsupport::writeFile(path("b.wav"), wav);
    EXPECT_TRUE(getWAVInfo(path("b.wav"), &bits));
    EXPECT_EQ(bits, 24);
    testsupport::writeFile(path("c.wav"), QByteArray("RIFF\x10\x00\x00\x00WAVEfmt \xff\xff\xff\xff", 20));
    EXPECT_TRUE(getWAVInfo(path("c.wav"), &bits));
    EXPECT_EQ(bits, 0);
    testsupport::writeFile(path("d.wav"), "RIFF");
    EXPECT_FALSE(getWAVInfo(path("d.wav"), &bits));
    EXPECT_FALSE(getWAVInfo(path("none.wav"), &bits));
}

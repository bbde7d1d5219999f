#include "tags/Base64.h"

#include <gtest/gtest.h>

#include <stdexcept>

TEST(Base64, EncodesWithPaddingToWholeGroups)
{
    EXPECT_EQ(Base64::encode(QByteArray("abc")), "YWJj");
    EXPECT_EQ(Base64::encode(QByteArray("a")), "YQ==");
    EXPECT_EQ(Base64::encode(QByteArray("ab")), "YWI=");
    EXPECT_EQ(Base64::base64Encoding(QByteArray()), QString(""));
    QByteArray all;
    for (int i = 0; i < 256; ++i)
        all.append(char(i));
    EXPECT_EQ(Base64::encode(all), all.toBase64());
    EXPECT_EQ(Base64::encode(all).size(), (256 + 2) / 3 * 4);
    EXPECT_EQ(Base64::decode(Base64::encode(all)), all);
}

TEST(Base64, DecodingSkipsBadCharactersAndStopsAtPadding)
{
    EXPECT_EQ(Base64::decode(QByteArray("YW\nJj\r\n YQ")), "abca");
    EXPECT_EQ(Base64::decode(QByteArray("YW*J\xc3\xa9j")), "abc");
    EXPECT_EQ(Base64::decode(QByteArray("YQ==YWJj")), "a");
    EXPECT_EQ(Base64::decode(QByteArray("YWI")), "ab");
    EXPECT_EQ(Base64::decode(QByteArray("Y")), "");  // one character makes no byte
    EXPECT_EQ(Base64::dataWithBase64EncodedString(QString("")), QByteArray());
    EXPECT_EQ(Base64::dataWithBase64EncodedString(QString("YWJj")), "abc");
    EXPECT_THROW(Base64::dataWithBase64EncodedString(std::nullopt), std::invalid_argument);
}

TEST(UU, DecodesGroupsAndStopsInMidGroup)
{
    // "Cat" is "0V%T" in uuencoding.
    EXPECT_EQ(UU::decode(QByteArray("0V%T"), 3), "Cat");
    EXPECT_EQ(UU::decode(QByteArray("0V%T"), 0), QByteArray());
    EXPECT_EQ(UU::decode(QByteArray("0V%T0V%T"), 4), "CatC");
    EXPECT_EQ(UU::decode(QByteArray("0V%T0V%T")), "CatCat");
    // '`' stands for zero like a blank.
    EXPECT_EQ(UU::decode(QByteArray("````"), 3), QByteArray(3, '\0'));
    // Asking for more than the text holds gives what there is.
    EXPECT_EQ(UU::decode(QByteArray("0V%T"), 10), "Cat");
}

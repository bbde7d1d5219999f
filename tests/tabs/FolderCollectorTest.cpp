#include "tabs/FolderCollector.h"

#include "core/StringUtils.h"

#include "common/TestSupport.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

class FolderCollectorTest : public ::testing::Test {
protected:
    QTemporaryDir dir_;
    QString path(const QString& name) const { return dir_.filePath(name); }
};

TEST_F(FolderCollectorTest, CollectsAudioFilesInFinderOrder)
{
    const QString root = path("Music");
    QDir().mkpath(root + "/Sub/Deeper");
    for (const char* name : {"Music/a10.mp3", "Music/A2.MP3", "Music/a1.ogg", "Music/cover.jpg",
                             "Music/Sub/Artist_Song.wav", "Music/Sub/Deeper/x.m4a"})
        testsupport::writeFile(path(name), "not really audio");
    std::atomic<bool> cancel {false};
    QStringList shown;
    const auto result = contentsOfFolder(root, &cancel, [&](const QString& name) { shown << name; });
    ASSERT_TRUE(result);
    const QStringList leaves = result->value("leafarray").toStringList();
    EXPECT_EQ(leaves, (QStringList{root + "/a1.ogg", root + "/A2.MP3", root + "/a10.mp3",
                                   root + "/Sub/Artist_Song.wav", root + "/Sub/Deeper/x.m4a"}));
    EXPECT_EQ(result->value("destinationarray").toStringList(),
              (QStringList{"Music", "Music", "Music", "Music/Sub", "Music/Sub/Deeper"}));
    const QVariantList records = result->value("commentarray").toList();
    ASSERT_EQ(records.size(), 5);
    EXPECT_EQ(records.at(3).toMap().value("artist"), "Artist");
    EXPECT_TRUE(shown.contains("cover.jpg"));

    // A single file: destination "", only when its type is accepted.
    const auto single = contentsOfFolder(root + "/a1.ogg", nullptr, {});
    EXPECT_EQ(single->value("leafarray").toStringList(), QStringList{root + "/a1.ogg"});
    EXPECT_EQ(single->value("destinationarray").toStringList(), QStringList{""});
    EXPECT_TRUE(contentsOfFolder(root + "/cover.jpg", nullptr, {})->value("leafarray").toList().isEmpty());
    EXPECT_FALSE(contentsOfFolder(path("nowhere"), nullptr, {}));

    // Cancelling stops after the entry being looked at.
    cancel = true;
    const auto cancelled = contentsOfFolder(root, &cancel, {});
    EXPECT_LE(cancelled->value("leafarray").toList().size(), 1);
}

TEST_F(FolderCollectorTest, NamesThatAreNotUtf8AreLeftOutAndNamed)
{
    const QString root = path("Music");
    testsupport::writeFile(root + "/Sub/good.mp3", "not really audio");
    const QByteArray native = QFile::encodeName(root);
    ::close(::open((native + "/Sub/caf\xe9.ogg").constData(), O_CREAT | O_WRONLY, 0644));
    ::close(::open((native + "/cover \xe9.jpg").constData(), O_CREAT | O_WRONLY, 0644));  // not collected anyway
    ASSERT_EQ(::mkdir((native + "/Disc \xe9").constData(), 0755), 0);
    ::close(::open((native + "/Disc \xe9/inside.mp3").constData(), O_CREAT | O_WRONLY, 0644));

    QStringList unreadable;
    const auto result = contentsOfFolder(root, nullptr, {}, defaultAudioTypes(), &unreadable);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->value("leafarray").toStringList(), QStringList{root + "/Sub/good.mp3"});
    unreadable.sort();
    EXPECT_EQ(unreadable, (QStringList{root + "/Disc \\xE9", root + "/Sub/caf\\xE9.ogg"}));
}

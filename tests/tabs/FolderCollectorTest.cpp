#include "tabs/FolderCollector.h"

#include "common/TestSupport.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

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

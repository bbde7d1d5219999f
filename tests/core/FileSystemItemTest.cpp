#include "common/TestSupport.h"
#include "core/Defaults.h"
#include "core/FileSystemItem.h"
#include "core/FileSystemItemListing.h"
#include "platform/AppPaths.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using testsupport::writeFile;

namespace {

QStringList childNames(FileSystemItem& item)
{
    QStringList names;
    if (const auto* children = item.children()) {
        for (const auto& child : *children)
            names << child->relativePath();
    }
    names.sort();
    return names;
}

void setRoots(const QStringList& paths)
{
    Defaults::standard().setObject("rootItem", QVariant(paths).toList());
    Defaults::standard().synchronize();
}

} // namespace

TEST(FileSystemItem, FilterKeepsAudioAndVisibleFolders)
{
    struct Case {
        const char* name;
        bool folder;
        bool kept;
    } cases[] = {
        {"song.mp3", false, true},     {"SONG.MP3", false, true},     {"a.m4r", false, true},
        {"b.FLAC", false, true},       {"c.midi", false, true},       {"d.aiff", false, true},
        {"e.m4p", false, true},        {".hidden.ogg", false, true},  {"notes.txt", false, false},
        {"song.mp3.txt", false, false}, {"noextension", false, false}, {"album", true, true},
        {".git", true, false},         {".album.wav", true, true},    {"disc.mp3", true, true},
        {"mp3", false, false},
    };
    for (const Case& c : cases)
        EXPECT_EQ(FileSystemItem::isLibraryEntry(c.name, c.folder), c.kept) << c.name << (c.folder ? " (folder)" : "");
}

TEST(FileSystemItem, ReadsChildrenOnceAndAgainAfterRelease)
{
    QTemporaryDir dir;
    const QString root = dir.path();
    writeFile(root + "/a.mp3", "x");
    writeFile(root + "/.b.ogg", "x");
    writeFile(root + "/c.txt", "x");
    writeFile(root + "/.hidden/d.mp3", "x");
    writeFile(root + "/Album/e.wav", "x");
    QDir().mkpath(root + "/Empty");

    FileSystemItem item(root, nullptr);
    EXPECT_FALSE(item.childrenAreRead());
    EXPECT_EQ(childNames(item), (QStringList{".b.ogg", "Album", "Empty", "a.mp3"}));
    EXPECT_EQ(item.numberOfChildren(), 4);

    // The cache stays until released; then the disk is read again.
    writeFile(root + "/f.m4a", "x");
    EXPECT_EQ(item.numberOfChildren(), 4);
    item.releaseChildren();
    EXPECT_EQ(item.numberOfChildren(), 5);

    FileSystemItem* album = nullptr;
    FileSystemItem* file = nullptr;
    for (const auto& child : *item.children()) {
        if (child->relativePath() == "Album")
            album = child.get();
        if (child->relativePath() == "a.mp3")
            file = child.get();
    }
    ASSERT_TRUE(album && file);
    EXPECT_EQ(album->fullPath(), root + "/Album");
    EXPECT_EQ(album->parent(), &item);
    EXPECT_FALSE(album->childrenAreRead());
    EXPECT_EQ(childNames(*album), QStringList{"e.wav"});
    EXPECT_EQ(file->numberOfChildren(), -1);
    EXPECT_EQ(file->children(), nullptr);

    FileSystemItem systemRoot("/", nullptr);
    FileSystemItem underRoot("tmp", &systemRoot);
    EXPECT_EQ(underRoot.fullPath(), "/tmp");
}

TEST(FileSystemItem, FreshInstallHasSystemRootAndMusicFolder)
{
    Defaults::standard().removeObject("rootItem");
    const QList<FileSystemItem::Ptr> roots = FileSystemItem::rootItem();
    ASSERT_EQ(roots.size(), 2);
    EXPECT_EQ(roots[0]->fullPath(), "/");
    EXPECT_EQ(roots[1]->fullPath(), AppPaths::musicFolder());
    // Written back at once.
    Defaults::standard().reload();
    EXPECT_EQ(Defaults::standard().arrayForKey("rootItem"), (QVariantList{"/", AppPaths::musicFolder()}));
}

TEST(FileSystemItem, AddAndRemoveRoots)
{
    setRoots({"~/Songs", "/data"});
    EXPECT_EQ(FileSystemItem::rootPaths(), (QStringList{AppPaths::homeDir() + "/Songs", "/data"}));

    FileSystemItem::addToRootItem("/data");
    FileSystemItem::addToRootItem("/more");
    const QList<FileSystemItem::Ptr> roots = FileSystemItem::rootItem();
    ASSERT_EQ(roots.size(), 4);  // the same path twice shows twice
    EXPECT_EQ(roots[2]->fullPath(), "/data");
    EXPECT_EQ(roots[3]->fullPath(), "/more");

    FileSystemItem::removeFromRootItem("/data");
    EXPECT_EQ(FileSystemItem::rootPaths(), (QStringList{AppPaths::homeDir() + "/Songs", "/more"}));
    Defaults::standard().reload();
    EXPECT_EQ(Defaults::standard().arrayForKey("rootItem"), (QVariantList{"~/Songs", "/more"}));

    // A root is removed by the path it shows as well.
    FileSystemItem::removeFromRootItem(AppPaths::homeDir() + "/Songs");
    EXPECT_EQ(FileSystemItem::rootPaths(), QStringList{"/more"});

    // A key that holds no array is left alone.
    Defaults::standard().setObject("rootItem", "not a list");
    FileSystemItem::addToRootItem("/x");
    EXPECT_EQ(Defaults::standard().objectForKey("rootItem").toString(), "not a list");
    EXPECT_TRUE(FileSystemItem::rootPaths().isEmpty());
}

TEST(FileSystemItemListing, WalksEveryFolderOnceThroughLinkCycles)
{
    QTemporaryDir dir;
    const QString root = dir.path();
    writeFile(root + "/A/B/deep.mp3", "x");
    writeFile(root + "/A/skip.txt", "x");
    writeFile(root + "/top.ogg", "x");
    ASSERT_TRUE(QFile::link(root + "/A", root + "/A/B/back"));   // a cycle
    ASSERT_TRUE(QFile::link(root, root + "/A/self"));            // another, to the root

    const QString text = QString::fromUtf8(FileSystemItemListing::toText({{root, -1}}));
    EXPECT_TRUE(text.startsWith(root + "\n")) << qPrintable(text);
    EXPECT_TRUE(text.contains("\n    B/\n")) << qPrintable(text);
    EXPECT_TRUE(text.contains("\n      deep.mp3\n")) << qPrintable(text);
    EXPECT_TRUE(text.contains("back/  (already listed)")) << qPrintable(text);
    EXPECT_TRUE(text.contains("self/  (already listed)")) << qPrintable(text);
    EXPECT_TRUE(text.contains("\n  top.ogg\n"));
    EXPECT_FALSE(text.contains("skip.txt"));
    EXPECT_EQ(text.count("deep.mp3"), 1);

    const QString limited = QString::fromUtf8(FileSystemItemListing::toText({{root, 1}}));
    EXPECT_TRUE(limited.contains("\n  A/  (depth limit)\n")) << qPrintable(limited);
    EXPECT_FALSE(limited.contains("deep.mp3"));

    const QJsonObject json = QJsonDocument::fromJson(
        FileSystemItemListing::toJson({{root, -1}, {root + "/missing", -1}})).object();
    const QJsonArray roots = json["roots"].toArray();
    ASSERT_EQ(roots.size(), 2);
    EXPECT_TRUE(roots[0].toObject()["exists"].toBool());
    EXPECT_FALSE(roots[1].toObject()["exists"].toBool());
    int files = 0;
    std::function<void(const QJsonArray&)> count = [&](const QJsonArray& entries) {
        for (const QJsonValue& entry : entries) {
            if (!entry["folder"].toBool())
                ++files;
            count(entry["children"].toArray());
        }
    };
    count(roots[0].toObject()["children"].toArray());
    EXPECT_EQ(files, 2);
}

TEST(FileSystemItemListing, NamesThatAreNotUtf8AreLeftOutAndNamedOnce)
{
    // Latin-1 names: an audio file and a folder the library would show, a text
    // file and a hidden folder it would not.
    QTemporaryDir dir;
    const QByteArray root = QFile::encodeName(dir.path());
    writeFile(dir.path() + "/Album/good.mp3", "x");
    ::close(::open((root + "/Album/caf\xe9.mp3").constData(), O_CREAT | O_WRONLY, 0644));
    ::close(::open((root + "/Album/notes \xe9.txt").constData(), O_CREAT | O_WRONLY, 0644));
    ASSERT_EQ(::mkdir((root + "/Disc \xe9").constData(), 0755), 0);
    ASSERT_EQ(::mkdir((root + "/.cache \xe9").constData(), 0755), 0);
    const QStringList expected{dir.path() + "/Album/caf\\xE9.mp3", dir.path() + "/Disc \\xE9"};

    QStringList unreadable;
    const auto entries = FileSystemItem::readEntries(dir.path() + "/Album", &unreadable);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries.front().name, "good.mp3");
    EXPECT_EQ(unreadable, QStringList{expected.first()});

    for (const bool json : {false, true}) {
        unreadable.clear();
        const QList<FileSystemItemListing::Root> roots{{dir.path(), -1}};
        const QByteArray out = json ? FileSystemItemListing::toJson(roots, &unreadable)
                                    : FileSystemItemListing::toText(roots, &unreadable);
        unreadable.sort();
        EXPECT_EQ(unreadable, expected) << json;
        EXPECT_TRUE(out.contains("good.mp3"));
        EXPECT_FALSE(out.contains("\xef\xbf\xbd")) << out.constData();  // no mangled name is listed
    }
}

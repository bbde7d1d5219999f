#include "common/TestSupport.h"
#include "core/Defaults.h"
#include "core/LibraryModel.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"

#include <QAbstractItemModelTester>
#include <QDir>
#include <QFile>
#include <QMimeData>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QUrl>

#include <mutex>

#include <gtest/gtest.h>

using testsupport::writeFile;

namespace {

class LibraryModelTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        root = dir.path();
        writeFile(root + "/Album/one.mp3", "x");
        writeFile(root + "/Album/Disc 2/two.ogg", "x");
        writeFile(root + "/loose.wav", "x");
        writeFile(root + "/readme.txt", "x");
        Defaults::standard().setObject("rootItem", QVariantList{root});
    }

    QModelIndex child(LibraryModel& model, const QModelIndex& parent, const QString& name)
    {
        for (int row = 0; row < model.rowCount(parent); ++row) {
            const QModelIndex index = model.index(row, 0, parent);
            if (index.data().toString() == name)
                return index;
        }
        return {};
    }

    QStringList names(LibraryModel& model, const QModelIndex& parent, int column = LibraryModel::NameColumn)
    {
        QStringList list;
        for (int row = 0; row < model.rowCount(parent); ++row)
            list << model.index(row, column, parent).data().toString();
        return list;
    }

    QTemporaryDir dir;
    QString root;
};

// A tag reader for the models made while it lives.
struct ScopedTagReader {
    explicit ScopedTagReader(LibraryModel::TagReader reader) { LibraryModel::setTagReader(std::move(reader)); }
    ~ScopedTagReader() { LibraryModel::setTagReader(nullptr); }
};

} // namespace

TEST_F(LibraryModelTest, ReadsFoldersOnlyWhenFetched)
{
    LibraryModel model;
    ASSERT_EQ(model.rowCount(), 1);
    const QModelIndex rootIndex = model.index(0, 0);
    EXPECT_EQ(rootIndex.data().toString(), root);
    EXPECT_EQ(rootIndex.data(Qt::ToolTipRole).toString(), root);
    EXPECT_TRUE(model.isRoot(rootIndex));

    // Asking whether it can be opened does not list it.
    EXPECT_TRUE(model.hasChildren(rootIndex));
    EXPECT_EQ(model.rowCount(rootIndex), 0);
    EXPECT_FALSE(model.itemForIndex(rootIndex)->childrenAreRead());
    ASSERT_TRUE(model.canFetchMore(rootIndex));

    model.fetchMore(rootIndex);
    EXPECT_FALSE(model.canFetchMore(rootIndex));
    EXPECT_EQ(model.rowCount(rootIndex), 2);  // Album and loose.wav; not the text file
    const QModelIndex album = child(model, rootIndex, "Album");
    const QModelIndex loose = child(model, rootIndex, "loose.wav");
    ASSERT_TRUE(album.isValid() && loose.isValid());
    EXPECT_FALSE(model.isRoot(album));
    EXPECT_EQ(album.parent(), rootIndex);
    EXPECT_EQ(loose.data(Qt::ToolTipRole).toString(), root + "/loose.wav");

    // The subfolder is still unread; a file cannot be opened.
    EXPECT_TRUE(model.hasChildren(album));
    EXPECT_FALSE(model.itemForIndex(album)->childrenAreRead());
    EXPECT_FALSE(model.hasChildren(loose));
    EXPECT_FALSE(model.canFetchMore(loose));

    model.fetchMore(album);
    const QModelIndex disc = child(model, album, "Disc 2");
    ASSERT_TRUE(disc.isValid());
    EXPECT_EQ(disc.data(LibraryModel::FullPathRole).toString(), root + "/Album/Disc 2");
    EXPECT_FALSE(model.itemForIndex(disc)->childrenAreRead());

    // An empty folder can be opened and shows nothing.
    QDir().mkpath(root + "/Album/Empty");
    model.refresh(album);
    const QModelIndex empty = child(model, album, "Empty");
    ASSERT_TRUE(empty.isValid());
    EXPECT_TRUE(model.hasChildren(empty));
    model.fetchMore(empty);
    EXPECT_EQ(model.rowCount(empty), 0);
}

TEST_F(LibraryModelTest, RefreshKeepsWhatStaysAndOpenFoldersBelow)
{
    LibraryModel model;
    // The tester opens every folder and checks every signal of the edits below.
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    const QModelIndex rootIndex = model.index(0, 0);
    model.fetchMore(rootIndex);
    QPersistentModelIndex album = child(model, rootIndex, "Album");
    model.fetchMore(album);
    ASSERT_EQ(model.rowCount(album), 2);

    ASSERT_TRUE(QFile::remove(root + "/loose.wav"));
    writeFile(root + "/new.flac", "x");
    writeFile(root + "/ignored.doc", "x");
    model.refresh(rootIndex);

    QStringList names;
    for (int row = 0; row < model.rowCount(rootIndex); ++row)
        names << model.index(row, 0, rootIndex).data().toString();
    names.sort();
    EXPECT_EQ(names, (QStringList{"Album", "new.flac"}));
    ASSERT_TRUE(album.isValid());
    EXPECT_EQ(album.data().toString(), "Album");
    EXPECT_EQ(model.rowCount(album), 2);  // still open, not read again from scratch

    // A folder replaced by a file of the same name is shown as a file.
    ASSERT_TRUE(QDir(root + "/Album").removeRecursively());
    writeFile(root + "/Album", "now a file");
    model.refresh(rootIndex);
    EXPECT_FALSE(album.isValid());
    EXPECT_EQ(model.rowCount(rootIndex), 1);
    EXPECT_EQ(model.index(0, 0, rootIndex).data().toString(), "new.flac");
}

TEST_F(LibraryModelTest, DragsFileUrlsAndFollowsLibraryChanges)
{
    LibraryModel model;
    const QModelIndex rootIndex = model.index(0, 0);
    model.fetchMore(rootIndex);
    const QModelIndex album = child(model, rootIndex, "Album");
    const QModelIndex loose = child(model, rootIndex, "loose.wav");
    std::unique_ptr<QMimeData> data(model.mimeData({loose, album}));
    ASSERT_TRUE(data->hasUrls());
    EXPECT_EQ(data->urls(), (QList<QUrl>{QUrl::fromLocalFile(root + "/loose.wav"), QUrl::fromLocalFile(root + "/Album")}));
    EXPECT_TRUE(model.flags(loose) & Qt::ItemIsDragEnabled);

    Defaults::standard().setObject("rootItem", QVariantList{root, root + "/Album"});
    NotificationCenter::defaultCenter().post(VLReloadLibraryNotification);
    ASSERT_EQ(model.rowCount(), 2);
    EXPECT_EQ(model.index(1, 0).data().toString(), root + "/Album");
}

TEST_F(LibraryModelTest, OrdersNamesTheFinderWayAndFillsTheTagColumnsFromWorkerThreads)
{
    for (const char* name : {"Track 10.mp3", "track 2.ogg", "b.wav", "a long one.m4a"})
        writeFile(root + "/Album/" + name, "x");
    QDir().mkpath(root + "/Album/Zed");
    std::mutex mutex;
    QStringList asked;
    bool onMainThread = false;
    ScopedTagReader reader([&](const QString& path) -> std::optional<QVariantMap> {
        std::lock_guard lock(mutex);
        asked << QFileInfo(path).fileName();
        onMainThread = onMainThread || QThread::currentThread() == QCoreApplication::instance()->thread();
        const QString name = QFileInfo(path).completeBaseName();
        if (name == "b")
            return std::nullopt;  // unreadable: the row stays without tags
        QVariantMap record{{"title", name.toUpper()},
                           {"artist", "Artist " + name},
                           {"album", "Album"},
                           {"duration", name.startsWith("a long") ? "3725" : "65"}};
        return record;
    });
    LibraryModel model;
    const QModelIndex rootIndex = model.index(0, 0);
    model.fetchMore(rootIndex);
    const QModelIndex album = child(model, rootIndex, "Album");
    QSignalSpy read(&model, &LibraryModel::tagsRead);
    model.fetchMore(album);
    // Case and digit runs as people read them; folders among the files by name.
    EXPECT_EQ(names(model, album),
              (QStringList{"a long one.m4a", "b.wav", "Disc 2", "one.mp3", "track 2.ogg", "Track 10.mp3", "Zed"}));
    ASSERT_TRUE(read.wait(5000));
    EXPECT_EQ(model.pendingTagReads(), 0);
    EXPECT_FALSE(onMainThread);
    asked.sort();
    // Files only (of both folders opened), each once.
    EXPECT_EQ(asked, (QStringList{"Track 10.mp3", "a long one.m4a", "b.wav", "loose.wav", "one.mp3", "track 2.ogg"}));
    EXPECT_EQ(names(model, album, LibraryModel::TitleColumn),
              (QStringList{"A LONG ONE", "", "", "ONE", "TRACK 2", "TRACK 10", ""}));
    EXPECT_EQ(names(model, album, LibraryModel::ArtistColumn).at(4), "Artist track 2");
    EXPECT_EQ(names(model, album, LibraryModel::DurationColumn),
              (QStringList{"1:02:05", "", "", "1:05", "1:05", "1:05", ""}));
    EXPECT_EQ(model.headerData(LibraryModel::AlbumColumn, Qt::Horizontal).toString(), "Album");
    // A file that comes in later is read as well.
    writeFile(root + "/Album/new.mp3", "x");
    model.refresh(album);
    ASSERT_TRUE(read.wait(5000));
    EXPECT_EQ(child(model, album, "new.mp3").siblingAtColumn(LibraryModel::TitleColumn).data().toString(), "NEW");
}

TEST_F(LibraryModelTest, ReadFoldersFollowFilesThatAppearOrVanish)
{
    LibraryModel model;
    const QModelIndex rootIndex = model.index(0, 0);
    model.fetchMore(rootIndex);
    const QPersistentModelIndex album = child(model, rootIndex, "Album");
    model.fetchMore(album);
    ASSERT_EQ(names(model, album), (QStringList{"Disc 2", "one.mp3"}));

    writeFile(root + "/Album/another.ogg", "x");
    EXPECT_TRUE(QTest::qWaitFor([&] { return model.rowCount(album) == 3; }, 5000));
    EXPECT_EQ(names(model, album), (QStringList{"another.ogg", "Disc 2", "one.mp3"}));
    ASSERT_TRUE(QFile::remove(root + "/Album/one.mp3"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return model.rowCount(album) == 2; }, 5000));
    EXPECT_EQ(names(model, album), (QStringList{"another.ogg", "Disc 2"}));
    // A folder that was never opened is not watched: it is read when it is.
    EXPECT_FALSE(model.itemForIndex(child(model, album, "Disc 2"))->childrenAreRead());
}

TEST(FileSystemItem, TheSystemRootLeavesOutTheKernelsOwnFileSystems)
{
    QStringList names;
    for (const auto& entry : FileSystemItem::readEntries("/"))
        names << entry.name;
    for (const char* pseudo : {"proc", "sys", "dev", "run"})
        EXPECT_FALSE(names.contains(pseudo)) << pseudo;
    EXPECT_TRUE(names.contains("usr"));
}

#include "tabs/MP3DataSource.h"
#include "common/TestSupport.h"
#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "core/PropertyList.h"
#include "platform/Desktop.h"

#include <QAbstractItemModelTester>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QMimeData>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QUrl>

#include <gtest/gtest.h>

using testsupport::writeFile;

namespace {

QStringList names(const TreeNode& node)
{
    QStringList list;
    for (const TreeNode::Ptr& child : node.children())
        list << static_cast<const SimpleTreeNode&>(*child).data().name();
    return list;
}

SimpleTreeNode* childNamed(const TreeNode& node, const QString& name)
{
    for (const TreeNode::Ptr& child : node.children()) {
        if (static_cast<SimpleTreeNode&>(*child).data().name() == name)
            return static_cast<SimpleTreeNode*>(child.get());
    }
    return nullptr;
}

class MP3DataSourceTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        base = dir.path();
        Desktop::setBeepHandler([this] { ++beeps; });
    }
    void TearDown() override { Desktop::setBeepHandler({}); }

    QMimeData* urls(const QStringList& paths)
    {
        auto* data = new QMimeData;
        QList<QUrl> list;
        for (const QString& path : paths)
            list << QUrl::fromLocalFile(path);
        data->setUrls(list);
        return data;
    }

    QTemporaryDir dir;
    QString base;
    int beeps = 0;
};

} // namespace

TEST_F(MP3DataSourceTest, ScanKeepsOnlyFoldersWithMusic)
{
    writeFile(base + "/Music/a.mp3", "x");
    writeFile(base + "/Music/.hidden.ogg", "x");
    writeFile(base + "/Music/notes.txt", "x");
    writeFile(base + "/Music/cover.jpg", "x");
    writeFile(base + "/Music/OnlyText/readme.txt", "x");
    writeFile(base + "/Music/Ringtones/one.m4r", "x");
    writeFile(base + "/Music/Ringtones/two.M4R", "x");
    writeFile(base + "/Music/Album/CD1/t1.FLAC", "x");
    writeFile(base + "/Music/Album/CD1/junk.nfo", "x");
    writeFile(base + "/Music/Album/Scans/front.png", "x");
    ASSERT_TRUE(QFile::link(base + "/Music", base + "/Music/Album/loop"));  // not followed

    auto group = SimpleTreeNode::group(base + "/Music");
    const auto job = Job::create("scan", [](Job&) { return JobResult::succeeded(); });
    bool cancelled = false;
    EXPECT_EQ(MP3DataSource::addMP3(base + "/Music", *group, *job, &cancelled), 3);
    EXPECT_FALSE(cancelled);
    QStringList top = names(*group);
    top.sort();
    EXPECT_EQ(top, (QStringList{base + "/Music/.hidden.ogg", base + "/Music/Album", base + "/Music/a.mp3"}));
    SimpleTreeNode* album = childNamed(*group, base + "/Music/Album");
    ASSERT_TRUE(album);
    EXPECT_EQ(names(*album), QStringList{base + "/Music/Album/CD1"});
    EXPECT_EQ(names(*album->child(0)), QStringList{base + "/Music/Album/CD1/t1.FLAC"});
    EXPECT_TRUE(album->child(0)->child(0)->data().isLeaf());
}

TEST_F(MP3DataSourceTest, ScanRefusesNetworkPathsAndStopsWhenCancelled)
{
    const auto job = Job::create("scan", [](Job&) { return JobResult::succeeded(); });
    auto group = SimpleTreeNode::group("/Network/Servers/x");
    EXPECT_EQ(MP3DataSource::addMP3("/Network/Servers/x", *group, *job), 0);
    EXPECT_EQ(MP3DataSource::addMP3("/private/var", *group, *job), 0);
    EXPECT_EQ(group->numberOfChildren(), 0);

    writeFile(base + "/Music/a.mp3", "x");
    job->cancel();
    bool cancelled = false;
    EXPECT_EQ(MP3DataSource::addMP3(base + "/Music", *group, *job, &cancelled), 0);
    EXPECT_TRUE(cancelled);
    EXPECT_EQ(group->numberOfChildren(), 0);
}

TEST_F(MP3DataSourceTest, DroppedFilesGoWhereTheyLandAndDuplicatesBeep)
{
    writeFile(base + "/one.mp3", "1");
    writeFile(base + "/two.txt", "22");  // dropped files are not filtered
    MP3DataSource source;
    QAbstractItemModelTester tester(source.model(), QAbstractItemModelTester::FailureReportingMode::Fatal);
    CompilationModel* model = source.model();

    std::unique_ptr<QMimeData> first(urls({base + "/one.mp3", base + "/two.txt", base + "/one.mp3"}));
    ASSERT_TRUE(model->canDropMimeData(first.get(), Qt::CopyAction, -1, -1, {}));
    ASSERT_TRUE(model->dropMimeData(first.get(), Qt::CopyAction, -1, -1, {}));
    EXPECT_EQ(names(*source.root()), (QStringList{base + "/one.mp3", base + "/two.txt"}));
    EXPECT_EQ(beeps, 1);
    EXPECT_EQ(source.totalBytes(), 3);
    EXPECT_EQ(source.selectionModel()->selectedRows().size(), 2);

    // Dropped again on the same group: a beep and nothing added.
    std::unique_ptr<QMimeData> again(urls({base + "/one.mp3"}));
    model->dropMimeData(again.get(), Qt::CopyAction, 1, 0, {});
    EXPECT_EQ(beeps, 2);
    EXPECT_EQ(source.root()->numberOfChildren(), 2);

    // On a leaf: after it, in its parent.
    writeFile(base + "/three.wav", "333");
    const QModelIndex one = model->index(0, 0);
    std::unique_ptr<QMimeData> onLeaf(urls({base + "/three.wav"}));
    model->dropMimeData(onLeaf.get(), Qt::CopyAction, -1, 0, one);
    EXPECT_EQ(names(*source.root()), (QStringList{base + "/one.mp3", base + "/three.wav", base + "/two.txt"}));

    // Into a leaf at a position: the leaf becomes a group holding the drop.
    writeFile(base + "/four.ogg", "4444");
    std::unique_ptr<QMimeData> intoLeaf(urls({base + "/four.ogg"}));
    model->dropMimeData(intoLeaf.get(), Qt::CopyAction, 0, 0, model->index(0, 0));
    SimpleTreeNode* converted = source.root()->child(0);
    EXPECT_TRUE(converted->data().isGroup());
    EXPECT_TRUE(converted->data().isExpandable());
    EXPECT_EQ(model->index(0, CompilationModel::NodeKindColumn).data().toString(), "Group");
    EXPECT_EQ(names(*converted), QStringList{base + "/four.ogg"});
    // A group is not a file: only leaves count.
    EXPECT_EQ(source.totalBytes(), 2 + 3 + 4);

    // A missing file counts nothing and is counted as missing.
    QFile::remove(base + "/three.wav");
    source.updateSizeInUI();
    EXPECT_EQ(source.totalBytes(), 2 + 4);
    EXPECT_EQ(source.missingFiles(), 1);
    EXPECT_EQ(source.missingColor(), MP3DataSource::FigureColor::Red);
}

TEST_F(MP3DataSourceTest, NodesMoveWithinTheTreeButNotIntoThemselves)
{
    MP3DataSource source;
    QAbstractItemModelTester tester(source.model(), QAbstractItemModelTester::FailureReportingMode::Fatal);
    CompilationModel* model = source.model();
    model->setRoot(SimpleTreeNode::treeFromDictionary(
        {{"Group", "OVRoot"},
         {"Entries", QVariantList{"a", "b", QVariantMap{{"Group", "G"}, {"Entries", QVariantList{"c"}}}, "d"}}}));

    // Drag a and b below G (position 3, before d): the position counts the
    // nodes taken out above it.
    std::unique_ptr<QMimeData> drag(model->mimeData({model->index(0, 0), model->index(1, 0)}));
    ASSERT_TRUE(drag->hasFormat(CompilationModel::nodePasteboardType));
    EXPECT_EQ(drag->urls().size(), 2);
    ASSERT_TRUE(model->dropMimeData(drag.get(), Qt::MoveAction, 3, 0, {}));
    EXPECT_EQ(names(*source.root()), (QStringList{"G", "a", "b", "d"}));

    // A group cannot go into itself or below itself.
    const QModelIndex group = model->index(0, 0);
    const QModelIndex inside = model->index(0, 0, group);
    std::unique_ptr<QMimeData> groupDrag(model->mimeData({group}));
    EXPECT_FALSE(model->canDropMimeData(groupDrag.get(), Qt::MoveAction, 0, 0, group));
    EXPECT_FALSE(model->canDropMimeData(groupDrag.get(), Qt::MoveAction, -1, 0, inside));
    EXPECT_TRUE(model->canDropMimeData(groupDrag.get(), Qt::MoveAction, 4, 0, {}));

    // A group and a node inside it move as one.
    std::unique_ptr<QMimeData> both(model->mimeData({group, inside}));
    ASSERT_TRUE(model->dropMimeData(both.get(), Qt::MoveAction, 4, 0, {}));
    EXPECT_EQ(names(*source.root()), (QStringList{"a", "b", "d", "G"}));
    EXPECT_EQ(names(*source.root()->child(3)), QStringList{"c"});

    // Refused before anything changes: a leaf dropped into itself stays a leaf.
    const TreeNode::Ptr leafA = source.root()->childAtIndex(0);
    EXPECT_FALSE(source.acceptDrop({{leafA}, {}}, static_cast<SimpleTreeNode*>(leafA.get()), 0));
    EXPECT_TRUE(static_cast<SimpleTreeNode&>(*leafA).data().isLeaf());

    // Old drag data no longer refers to anything.
    EXPECT_FALSE(model->canDropMimeData(drag.get(), Qt::MoveAction, 0, 0, {}));
}

TEST_F(MP3DataSourceTest, SizeTurnsRedAtSixHundredFiftyMegabytes)
{
    const qint64 cd = qint64(650) * 1024 * 1024;
    for (const auto& [name, size] : {std::pair{"full.wav", cd}, std::pair{"short.wav", cd - 1}}) {
        QFile file(base + '/' + name);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_TRUE(file.resize(size));  // sparse: no disk space used
    }
    MP3DataSource source;
    QSignalSpy sized(&source, &MP3DataSource::sizeChanged);
    source.model()->root()->insertChild(SimpleTreeNode::leaf(base + "/short.wav"), 0);
    source.updateSizeInUI();
    EXPECT_EQ(source.totalBytes(), cd - 1);
    EXPECT_EQ(source.totalMegabytes(), 649);
    EXPECT_EQ(source.sizeColor(), MP3DataSource::FigureColor::Blue);
    EXPECT_EQ(source.missingColor(), MP3DataSource::FigureColor::Blue);

    source.model()->root()->child(0)->data().setName(base + "/full.wav");
    source.updateSizeInUI();
    EXPECT_EQ(source.totalMegabytes(), 650);
    EXPECT_EQ(source.sizeColor(), MP3DataSource::FigureColor::Red);
    EXPECT_EQ(sized.count(), 2);
}

TEST_F(MP3DataSourceTest, DroppedFolderIsSearchedOnAWorkerAndSaved)
{
    writeFile(base + "/In/Album/a.mp3", "aa");
    writeFile(base + "/In/Album/b.m4r", "bb");
    writeFile(base + "/In/Docs/only.txt", "x");
    writeFile(base + "/In/top.ogg", "ooo");
    const QString playlist = base + "/Playlists/Mix.cd3";
    QDir().mkpath(base + "/Playlists");
    PropertyList::write(playlist, QVariantMap{{"Group", "OVRoot"}, {"Entries", QVariantList{"/gone.mp3"}}});

    MP3DataSource source;
    QStringList changed;
    NotificationCenter::defaultCenter().addObserver(this, VLDidChangePlaylistNotification,
                                                    [&](const Notification& n) { changed << n.object.toString(); });
    NotificationCenter::defaultCenter().post(VLDidSelectPlaylistNotification, playlist);
    QCoreApplication::processEvents();
    EXPECT_EQ(source.currentPlaylist(), playlist);
    EXPECT_EQ(names(*source.root()), QStringList{"/gone.mp3"});
    EXPECT_EQ(source.missingFiles(), 1);

    QSignalSpy sheet(&source, &MP3DataSource::searchSheetChanged);
    QSignalSpy finished(&source, &MP3DataSource::searchFinished);
    std::unique_ptr<QMimeData> drop(urls({base + "/In"}));
    ASSERT_TRUE(source.model()->dropMimeData(drop.get(), Qt::CopyAction, -1, -1, {}));
    EXPECT_TRUE(source.searchSheetShown());
    ASSERT_TRUE(finished.wait(10000));
    NotificationCenter::defaultCenter().removeObserver(this);
    EXPECT_FALSE(source.searchSheetShown());
    EXPECT_EQ(sheet.count(), 2);

    SimpleTreeNode* folder = childNamed(*source.root(), base + "/In");
    ASSERT_TRUE(folder);
    QStringList found = names(*folder);
    found.sort();
    EXPECT_EQ(found, (QStringList{base + "/In/Album", base + "/In/top.ogg"}));
    EXPECT_EQ(names(*childNamed(*folder, base + "/In/Album")), QStringList{base + "/In/Album/a.mp3"});
    EXPECT_EQ(source.totalBytes(), 5);

    // Saved after the drop and after the search, as the group record.
    ASSERT_GE(changed.size(), 2);
    EXPECT_EQ(changed.last(), playlist);
    const auto saved = PropertyList::read(playlist);
    ASSERT_TRUE(saved);
    const QVariantMap record = saved->toMap();
    EXPECT_EQ(record["Group"].toString(), "OVRoot");
    const QVariantList entries = record["Entries"].toList();
    ASSERT_EQ(entries.size(), 2);
    EXPECT_EQ(entries[0].toMap()["Group"].toString(), base + "/In");
    EXPECT_EQ(entries[1].toString(), "/gone.mp3");
}

TEST_F(MP3DataSourceTest, TheSearchIsAListedJobThatTheSheetOrTheJobListCancels)
{
    // Deep enough that the search (a pause per folder) still goes when the cancel comes.
    QDir().mkpath(base + "/Deep");
    for (int i = 0; i < 200; ++i) {
        const QString folder = base + QStringLiteral("/Deep/F%1").arg(i);
        QDir().mkdir(folder);
        QFile(folder + "/t.mp3").open(QIODevice::WriteOnly);
    }
    struct Case {
        const char* how;
        std::function<void(MP3DataSource&, Job&)> cancel;
    };
    const std::vector<Case> cases{
        {"the sheet's Cancel button", [](MP3DataSource& source, Job&) { source.cancelSearch(); }},
        {"the job list's Cancel button", [](MP3DataSource&, Job& job) { job.cancel(); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.how);
        MP3DataSource source;
        QSignalSpy finished(&source, &MP3DataSource::searchFinished);
        std::unique_ptr<QMimeData> drop(urls({base + "/Deep"}));
        source.model()->dropMimeData(drop.get(), Qt::CopyAction, -1, -1, {});
        ASSERT_TRUE(source.isSearching());
        std::shared_ptr<Job> search;
        for (const auto& job : JobList::shared().jobs())
            if (job->title() == "Searching for music files" && job->state() != Job::State::Finished)
                search = job;
        ASSERT_TRUE(search);
        c.cancel(source, *search);
        ASSERT_TRUE(finished.wait(10000));
        EXPECT_EQ(search->result().outcome, JobResult::Outcome::Cancelled);
        EXPECT_FALSE(JobList::shared().job(search->id()));  // a cancelled job leaves the list
        EXPECT_FALSE(source.isSearching());
        EXPECT_FALSE(source.searchSheetShown());
        // What was found before the cancel stays (with the folder it stopped in), and says so.
        const int kept = childNamed(*source.root(), base + "/Deep")->numberOfChildren();
        EXPECT_LT(kept, 200);
        // A search cancelled before it began has nothing to say.
        const QString status = search->status();
        if (status.isEmpty()) {
            EXPECT_EQ(kept, 0);
            continue;
        }
        ASSERT_TRUE(status.endsWith(" music files found")) << qPrintable(status);
        const int found = status.section(' ', 0, 0).toInt();
        EXPECT_TRUE(found == kept || found == kept - 1) << found << " " << kept;
    }
}

TEST_F(MP3DataSourceTest, TheSearchJobSaysWhichFolderItSearches)
{
    writeFile(base + "/One/a.mp3", "x");
    writeFile(base + "/Two/b.mp3", "x");
    MP3DataSource source;
    QStringList statuses;
    QObject context;
    QObject::connect(
        &JobList::shared(), &JobList::jobChanged, &context,
        [&](quint64 id) {
            const auto job = JobList::shared().job(id);
            if (job && job->title() == "Searching for music files" && !job->status().isEmpty()) {
                EXPECT_LT(job->percent(), 0);  // how deep a folder goes is not known beforehand
                statuses << job->status();
            }
        },
        Qt::DirectConnection);
    QSignalSpy finished(&source, &MP3DataSource::searchFinished);
    std::unique_ptr<QMimeData> drop(urls({base + "/One", base + "/Two"}));
    source.model()->dropMimeData(drop.get(), Qt::CopyAction, -1, -1, {});
    ASSERT_TRUE(finished.wait(10000));
    statuses.removeDuplicates();
    EXPECT_EQ(statuses, (QStringList{base + "/One", base + "/Two", "2 music files found"}));
}

TEST_F(MP3DataSourceTest, ToolbarActionsEditAndSave)
{
    const QString playlist = base + "/List.cd3";
    MP3DataSource source;
    source.loadPlaylist(playlist);  // not there yet: an empty root
    EXPECT_EQ(source.root()->data().name(), "OVRoot");

    source.addGroup();
    source.addLeaf();  // into the selected new group
    SimpleTreeNode* group = source.root()->child(0);
    ASSERT_TRUE(group);
    EXPECT_EQ(group->data().name(), "New Folder");
    EXPECT_EQ(names(*group), QStringList{"New Leaf"});
    source.addLeaf();  // after the selected leaf
    EXPECT_EQ(group->numberOfChildren(), 2);

    source.model()->setData(source.model()->index(0, 0), "Zed");
    source.addGroup();  // selection is the second leaf: a sibling group after it
    source.selectionModel()->clearSelection();
    source.addLeaf();  // nothing selected: at the end of the root
    EXPECT_EQ(names(*source.root()), (QStringList{"Zed", "New Leaf"}));

    source.selectionModel()->select(source.model()->index(1, 0),
                                    QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    source.sortData();
    EXPECT_EQ(names(*source.root()), (QStringList{"New Leaf", "Zed"}));
    ASSERT_EQ(source.selectionModel()->selectedRows().size(), 1);
    EXPECT_EQ(source.selectionModel()->selectedRows().first().row(), 0);  // follows the node

    // A view that selects single cells works alike.
    source.selectionModel()->select(source.model()->index(0, CompilationModel::NameColumn),
                                    QItemSelectionModel::ClearAndSelect);
    source.deleteSelections();
    EXPECT_EQ(names(*source.root()), QStringList{"Zed"});
    const auto saved = PropertyList::read(playlist);
    ASSERT_TRUE(saved);
    EXPECT_EQ(saved->toMap()["Entries"].toList().first().toMap()["Group"].toString(), "Zed");

    QVariantList burned;
    NotificationCenter::defaultCenter().addObserver(this, VLBurnAudioCDWithArrayNotification,
                                                    [&](const Notification& n) { burned = n.object.toList(); });
    source.burnAudioCD();
    NotificationCenter::defaultCenter().removeObserver(this);
    EXPECT_EQ(burned, (QVariantList{"New Leaf", "New Leaf"}));
}

TEST_F(MP3DataSourceTest, ImportedPlaylistIsEditedAsItsCd3File)
{
    const QString xml = base + "/iTunes/Mix.xml";
    const QString cd3 = base + "/iTunes/Mix.cd3";
    writeFile(xml, "<plist version=\"1.0\"><array/></plist>");
    MP3DataSource source;
    source.loadPlaylist(xml);  // no .cd3 yet, and the .xml is no group record
    EXPECT_EQ(source.currentPlaylist(), cd3);
    EXPECT_EQ(source.root()->numberOfChildren(), 0);

    PropertyList::write(cd3, QVariantMap{{"Group", "OVRoot"}, {"Entries", QVariantList{"/a.mp3", "/b.mp3"}}});
    source.loadPlaylist(xml);
    EXPECT_EQ(names(*source.root()), (QStringList{"/a.mp3", "/b.mp3"}));

    QVariantMap request;
    NotificationCenter::defaultCenter().addObserver(this, VLM3UPlaylistNotification,
                                                    [&](const Notification& n) { request = n.object.toMap(); });
    EXPECT_TRUE(source.exportM3U());
    source.waitForExport();
    NotificationCenter::defaultCenter().removeObserver(this);
    EXPECT_EQ(request["path"].toString(), cd3);
    EXPECT_EQ(request["dictionary"].toMap()["Entries"].toList(), (QVariantList{"/a.mp3", "/b.mp3"}));
    EXPECT_EQ(testsupport::readFile(xml), "<plist version=\"1.0\"><array/></plist>");  // left alone
}

#include "PlaylistTestSupport.h"

#include "common/TestSupport.h"
#include "core/Notifications.h"
#include "playlists/ITunesManager.h"
#include "playlists/PlayListDataSource.h"
#include "playlists/XmlPlistReader.h"

#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <gtest/gtest.h>

using namespace PlaylistFiles;
using testsupport::writeFile;

namespace {

QString track(int id, const QString& location)
{
    return QStringLiteral("<key>%1</key><dict><key>Track ID</key><integer>%1</integer>"
                          "<key>Name</key><string>Song &amp; more</string>%2</dict>\n")
        .arg(id)
        .arg(location.isNull() ? QString() : "<key>Location</key><string>" + location + "</string>");
}

QString playlist(const QString& name, const QList<int>& ids)
{
    QString items;
    for (int id : ids)
        items += id < 0 ? QStringLiteral("<dict><key>Other</key><integer>1</integer></dict>")
                        : QStringLiteral("<dict><key>Track ID</key><integer>%1</integer></dict>").arg(id);
    return QStringLiteral("<dict><key>Name</key><string>%1</string><key>Playlist ID</key><integer>9</integer>"
                          "<key>Playlist Items</key><array>%2</array></dict>\n")
        .arg(name, items);
}

QByteArray library(const QString& tracks, const QString& playlists)
{
    return QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                          "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                          "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                          "<plist version=\"1.0\"><dict><key>Major Version</key><integer>1</integer>"
                          "<key>Tracks</key><dict>%1</dict><key>Playlists</key><array>%2</array>"
                          "<key>Music Folder</key><string>file://localhost/Users/me/Music/</string></dict></plist>\n")
        .arg(tracks, playlists)
        .toUtf8();
}

// The library the tests share: awkward names, locations and items.
QByteArray sampleLibrary()
{
    const QString tracks = track(1, "file://localhost/Users/me/Music/One.mp3")
                           + track(2, "file://localhost/Users/me/Movies/Clip.mov")
                           + track(3, "file://localhost/Users/me/Music/Loud.M4A")
                           + track(4, "file://localhost/Users/me/Music/Caf%C3%A9%20del%20Mar/S%C3%BC%C3%9F%20%231.mp3")
                           + track(5, QString())
                           + track(6, "http://radio.example.com/stream.mp3")
                           + track(7, "file://localhost/Users/me/Music/Direct/Ärger.ogg");
    // A folder of playlists has no items of its own.
    const QString folder = "<dict><key>Name</key><string>Folder</string><key>Folder</key><true/></dict>";
    return library(tracks, playlist("A/B", {1, 2, 3, 4, 5, 6, -1, 99, 7}) + folder + playlist("Plain", {3, 1}));
}

const QStringList kExpectedAB{"/Users/me/Music/One.mp3", "/Users/me/Music/Loud.M4A",
                              QString::fromUtf8("/Users/me/Music/Café del Mar/Süß #1.mp3"),
                              QString::fromUtf8("/Users/me/Music/Direct/Ärger.ogg")};

class ITunesImport : public ::testing::Test {
protected:
    void SetUp() override
    {
        resetPlaylistState();
        QFile::remove(iTunesManager::defaultLibraryPath());
    }
    static void installLibrary(const QByteArray& bytes) { ASSERT_TRUE(writeFile(iTunesManager::defaultLibraryPath(), bytes)); }
    static QStringList entriesOf(const QString& path)
    {
        const auto group = readGroup(path);
        EXPECT_TRUE(group.has_value()) << qPrintable(path);
        QStringList leaves;
        if (group)
            gatherLeaves(*group, leaves);
        return leaves;
    }
};

TEST_F(ITunesImport, NamesMapSlashesToDashes)
{
    EXPECT_EQ(iTunesManager::stringByReplacingSlashes("Rock/Live"), "Rock-Live");
    EXPECT_EQ(iTunesManager::stringByReplacingSlashes("A/B/C"), "A-B-C");
    EXPECT_EQ(iTunesManager::stringByReplacingSlashes("/Lead"), "/-Lead");
    EXPECT_EQ(iTunesManager::stringByReplacingSlashes("Plain"), "Plain");
    EXPECT_TRUE(iTunesManager::isAcceptedTrackPath("/x/Loud.M4A"));
    EXPECT_FALSE(iTunesManager::isAcceptedTrackPath("/x/Clip.mov"));
}

TEST_F(ITunesImport, LaunchWritesIntermediatesAndSelectionConvertsOnce)
{
    installLibrary(sampleLibrary());
    // Leftovers of the last run are swept away at start.
    writeFile(iTunesFolder() + "/Stale.cd3", "old");
    NotificationRecorder recorder({VLDidPreparseItunesNotification, VLDidCreateFileNotification,
                                   VLDidSelectPlaylistNotification, VLPlaylistInfoNotification});
    iTunesManager importer;
    importer.awakeFromNib();
    EXPECT_FALSE(QFileInfo::exists(iTunesFolder() + "/Stale.cd3"));
    PlayListDataSource store;
    store.awakeFromNib();
    NotificationCenter::defaultCenter().post(VLDidLaunchNotification);
    importer.waitForIdle();

    EXPECT_TRUE(QFileInfo::exists(iTunesFolder() + "/A-B.xml"));
    EXPECT_TRUE(QFileInfo::exists(iTunesFolder() + "/Plain.xml"));
    EXPECT_FALSE(QFileInfo::exists(iTunesFolder() + "/Folder.xml"));
    const QStringList names = recorder.names();
    ASSERT_GE(names.size(), 3);
    EXPECT_EQ(names.mid(names.size() - 3), (QStringList{VLDidPreparseItunesNotification, VLPlaylistInfoNotification,
                                                        VLDidCreateFileNotification}));
    // The playlist store has picked the intermediates up.
    EXPECT_TRUE(store.playlistList().contains(iTunesFolder() + "/A-B.xml"));

    recorder.clear();
    store.selectRow(int(store.playlistList().indexOf(iTunesFolder() + "/A-B.xml")));
    importer.waitForIdle();
    EXPECT_EQ(entriesOf(iTunesFolder() + "/A-B.cd3"), kExpectedAB);
    EXPECT_FALSE(QFileInfo::exists(iTunesFolder() + "/A-B.xml"));
    ASSERT_EQ(recorder.posted.size(), 2u);
    EXPECT_EQ(recorder.posted[0].second.toString(), iTunesFolder() + "/A-B.xml");
    EXPECT_EQ(recorder.posted[1].second.toString(), iTunesFolder() + "/A-B.cd3");
    // The store now lists the conversion in that row.
    EXPECT_EQ(store.pathAt(store.selectedRow()), iTunesFolder() + "/A-B.cd3");

    // Selecting it again converts nothing: the ".cd3" is taken as it is.
    QFile::remove(iTunesFolder() + "/A-B.cd3");
    writeGroup(iTunesFolder() + "/A-B.cd3", makeGroup("OVRoot", {"/kept.mp3"}));
    recorder.clear();
    store.selectRow(store.selectedRow());
    importer.waitForIdle();
    EXPECT_EQ(entriesOf(iTunesFolder() + "/A-B.cd3"), QStringList{"/kept.mp3"});
    EXPECT_EQ(recorder.posted.size(), 1u);

    // Playlists elsewhere are not the importer's business.
    QDir().mkpath(playlistFolder());
    NotificationCenter::defaultCenter().post(VLDidSelectPlaylistNotification, playlistFolder() + "/Plain.xml");
    importer.waitForIdle();
    EXPECT_TRUE(QFileInfo::exists(iTunesFolder() + "/Plain.xml"));
}

TEST_F(ITunesImport, ANewerLibrarySendsTheSelectionBackThroughTheIntermediate)
{
    installLibrary(sampleLibrary());
    iTunesManager importer;
    importer.awakeFromNib();
    NotificationCenter::defaultCenter().post(VLDidLaunchNotification);
    importer.waitForIdle();
    NotificationCenter::defaultCenter().post(VLDidSelectPlaylistNotification, iTunesFolder() + "/Plain.xml");
    importer.waitForIdle();
    EXPECT_EQ(entriesOf(iTunesFolder() + "/Plain.cd3"),
              (QStringList{"/Users/me/Music/Loud.M4A", "/Users/me/Music/One.mp3"}));

    const QString tracks = track(1, "file://localhost/Users/me/Music/One.mp3") + track(8, "file:///new/Eight.aiff");
    installLibrary(library(tracks, playlist("Plain", {8, 1})));
    QFile changed(iTunesManager::defaultLibraryPath());
    ASSERT_TRUE(changed.open(QIODevice::ReadWrite));  // the time is set through an open file
    ASSERT_TRUE(changed.setFileTime(QDateTime::currentDateTime().addSecs(60), QFileDevice::FileModificationTime));
    changed.close();
    NotificationRecorder recorder({VLDidSelectPlaylistNotification});
    NotificationCenter::defaultCenter().post(VLDidSelectPlaylistNotification, iTunesFolder() + "/Plain.cd3");
    importer.waitForIdle();
    EXPECT_EQ(entriesOf(iTunesFolder() + "/Plain.cd3"), (QStringList{"/new/Eight.aiff", "/Users/me/Music/One.mp3"}));
    EXPECT_EQ(recorder.posted.back().second.toString(), iTunesFolder() + "/Plain.cd3");
}

TEST_F(ITunesImport, TheImportRunsAsJobsWithAStepPerPlaylistThatStopWhenCancelled)
{
    installLibrary(sampleLibrary());
    // Watches the jobs of one title from their own threads, cancelling at the first step when asked.
    struct Watch {
        QString title;
        bool cancel = false;
        QList<std::pair<double, QString>> steps;
        QObject context;
        Watch(const QString& watched, bool cancelAtOnce) : title(watched), cancel(cancelAtOnce)
        {
            QObject::connect(
                &JobList::shared(), &JobList::jobChanged, &context,
                [this](quint64 id) {
                    const auto job = JobList::shared().job(id);
                    // The cancel itself is a change too, and waiting for the library is no step.
                    if (!job || job->title() != title || job->status().isEmpty() || job->isCancelled() ||
                        (job->percent() < 0 && title != "Reading the iTunes library"))
                        return;
                    steps.append({job->percent(), job->status()});
                    if (cancel)
                        job->cancel();
                },
                Qt::DirectConnection);
        }
    };
    auto launch = [] {
        NotificationRecorder recorder({VLDidPreparseItunesNotification});
        auto importer = std::make_unique<iTunesManager>();
        importer->awakeFromNib();
        NotificationCenter::defaultCenter().post(VLDidLaunchNotification);
        importer->waitForIdle();
        EXPECT_EQ(recorder.posted.size(), 1u);  // the store reloads in every case
        return importer;
    };

    {
        // A library whose reading was cancelled imports nothing.
        Watch reading("Reading the iTunes library", true);
        const auto importer = launch();
        EXPECT_FALSE(importer->library());
        EXPECT_TRUE(QDir(iTunesFolder()).isEmpty());
    }
    {
        // Cancelled at its first playlist, the pre-parse writes that one only.
        Watch importing("Importing the iTunes playlists", true);
        launch();
        EXPECT_EQ(importing.steps, (QList<std::pair<double, QString>>{{0, "A/B"}}));
        EXPECT_TRUE(QFileInfo::exists(iTunesFolder() + "/A-B.xml"));
        EXPECT_FALSE(QFileInfo::exists(iTunesFolder() + "/Plain.xml"));
    }
    {
        Watch importing("Importing the iTunes playlists", false);
        launch();
        EXPECT_EQ(importing.steps, (QList<std::pair<double, QString>>{{0, "A/B"}, {100.0 / 3, "Folder"}, {200.0 / 3, "Plain"}}));
        EXPECT_TRUE(QFileInfo::exists(iTunesFolder() + "/Plain.xml"));
    }
}

TEST_F(ITunesImport, MediaSetsConvertTheirImportedPlaylistsOnRequest)
{
    installLibrary(sampleLibrary());
    iTunesManager importer;
    importer.awakeFromNib();
    NotificationCenter::defaultCenter().post(VLDidLaunchNotification);
    importer.waitForIdle();
    NotificationCenter::defaultCenter().post(
        VLConvertMediaIfNeededNotification,
        QVariantMap{{"playlists", QStringList{iTunesFolder() + "/A-B.cd3", "/gone/Missing.cd3"}}});
    importer.waitForIdle();
    EXPECT_EQ(entriesOf(iTunesFolder() + "/A-B.cd3"), kExpectedAB);
    EXPECT_TRUE(QFileInfo::exists(iTunesFolder() + "/Plain.xml"));
}

TEST_F(ITunesImport, MissingOrHostileLibrariesAreRefusedAndNothingIsWritten)
{
    struct Case {
        const char* what;
        QByteArray bytes;
    };
    QByteArray deep = "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>Playlists</key>";
    for (int i = 0; i < 100000; ++i)
        deep += "<array>";
    for (int i = 0; i < 100000; ++i)
        deep += "</array>";
    deep += "</dict></plist>";
    QByteArray deepTracks = "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>Tracks</key><dict><key>1</key><dict><key>X</key>";
    for (int i = 0; i < 100000; ++i)
        deepTracks += "<array>";
    const std::vector<Case> cases{
        {"entities",
         "<?xml version=\"1.0\"?>\n<!DOCTYPE plist [ <!ENTITY a \"aaaaaaaaaa\"> <!ENTITY b \"&a;&a;&a;&a;\"> ]>\n"
         "<plist version=\"1.0\"><dict><key>Playlists</key><array><dict><key>Name</key><string>&b;</string>"
         "<key>Playlist Items</key><array/></dict></array></dict></plist>"},
        {"deep", deep},
        {"deep and truncated inside a skipped value", deepTracks},
        {"not xml", "\x01\x02 binary junk"},
        {"truncated", sampleLibrary().left(300)},
        {"not a dictionary", "<?xml version=\"1.0\"?><plist version=\"1.0\"><array/></plist>"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        resetPlaylistState();
        installLibrary(c.bytes);
        QString error;
        EXPECT_FALSE(ITunesLibrary::read(iTunesManager::defaultLibraryPath(), &error).has_value());
        EXPECT_FALSE(error.isEmpty());

        NotificationRecorder recorder({VLDidPreparseItunesNotification});
        iTunesManager importer;
        importer.awakeFromNib();
        NotificationCenter::defaultCenter().post(VLDidLaunchNotification);
        importer.waitForIdle();
        EXPECT_EQ(recorder.posted.size(), 1u);
        EXPECT_TRUE(QDir(iTunesFolder()).isEmpty());
    }
    // No library at all: the same, quietly.
    resetPlaylistState();
    QFile::remove(iTunesManager::defaultLibraryPath());
    NotificationRecorder recorder({VLDidPreparseItunesNotification});
    iTunesManager importer;
    importer.awakeFromNib();
    NotificationCenter::defaultCenter().post(VLDidLaunchNotification);
    importer.waitForIdle();
    EXPECT_EQ(recorder.posted.size(), 1u);
}

TEST_F(ITunesImport, PlaylistFilesThatAreNotGroupsReadAsEmpty)
{
    const QString folder = testsupport::homeDir() + "/bad";
    const std::vector<std::pair<const char*, QByteArray>> files{
        {"garbage", "\xff\xfe not at all"},
        {"binary", QByteArray("bplist00") + QByteArray(32, '\0')},
        {"array root", "<?xml version=\"1.0\"?><plist version=\"1.0\"><array><string>/a.mp3</string></array></plist>"},
        {"entries not an array",
         "<plist version=\"1.0\"><dict><key>Group</key><string>OVRoot</string><key>Entries</key><string>/a</string></dict></plist>"},
        {"number among the entries",
         "<plist version=\"1.0\"><dict><key>Group</key><string>OVRoot</string><key>Entries</key><array><string>/a</string><integer>4</integer></array></dict></plist>"},
        {"nested group without a name",
         "<plist version=\"1.0\"><dict><key>Group</key><string>OVRoot</string><key>Entries</key><array><dict><key>Entries</key><array/></dict></array></dict></plist>"},
    };
    for (const auto& [what, bytes] : files) {
        SCOPED_TRACE(what);
        const QString path = folder + '/' + what + ".cd3";
        writeFile(path, bytes);
        QString error;
        EXPECT_FALSE(readGroup(path, &error).has_value());
        EXPECT_FALSE(error.isEmpty());
        EXPECT_EQ(testsupport::readFile(path), bytes);
    }
    // Deep but sound nesting reads back in order.
    QVariantMap group = makeGroup("Leaf group", {"/z.mp3", "/a.mp3"});
    for (int depth = 0; depth < 200; ++depth)
        group = makeGroup(QString::number(depth), {"/before.mp3", group, "/after.mp3"});
    ASSERT_TRUE(writeGroup(folder + "/deep.cd3", group));
    const auto read = readGroup(folder + "/deep.cd3");
    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(*read, group);
}

} // namespace

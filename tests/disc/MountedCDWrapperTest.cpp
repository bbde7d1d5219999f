#include "disc/MountedCDWrapper.h"
#include "common/DiscFixtures.h"
#include "common/TestSupport.h"
#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "disc/DiscFolder.h"
#include "disc/DiscID.h"
#include "disc/DiscImage.h"
#include "encode/ExportJobs.h"

#include <QDir>
#include <QFileInfo>
#include <QMutex>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using namespace discfixtures;

namespace {

// Drives whose discs are tables libcdio read from real images.
class FakeDrives : public CdDriveAdapter {
public:
    QStringList drives() override
    {
        QMutexLocker lock(&mutex_);
        return devices_;
    }
    std::optional<DiscTable> readDisc(const QString& device) override
    {
        QMutexLocker lock(&mutex_);
        return discs_.contains(device) ? std::optional<DiscTable>(discs_.value(device)) : std::nullopt;
    }
    bool eject(const QString& device) override
    {
        QMutexLocker lock(&mutex_);
        ejected_ << device;
        return discs_.remove(device) > 0;
    }
    void startMonitoring() override { monitoring = true; }

    void addDrive(const QString& device)
    {
        QMutexLocker lock(&mutex_);
        devices_ << device;
    }
    void insert(const QString& device, const DiscTable& table)
    {
        QMutexLocker lock(&mutex_);
        discs_.insert(device, table);
    }
    void take(const QString& device)
    {
        QMutexLocker lock(&mutex_);
        discs_.remove(device);
    }

    QStringList ejected()
    {
        QMutexLocker lock(&mutex_);
        return ejected_;
    }

    bool monitoring = false;

private:
    QMutex mutex_;
    QStringList devices_;
    QHash<QString, DiscTable> discs_;
    QStringList ejected_;
};

struct Notice {
    QString type;
    QVariantMap object;
};

class Watcher : public ::testing::Test {
protected:
    void SetUp() override
    {
        NotificationCenter::defaultCenter().addObserver(
            this, VLMountedCDWrapperNotification, [this](const Notification& n) {
                const QVariantMap note = n.object.toMap();
                notices << Notice{note.value("notificationtype").toString(), note.value("object").toMap()};
            });
    }
    void TearDown() override { NotificationCenter::defaultCenter().removeObserver(this); }

    // A disc as a drive would hold it: the table libcdio reads from an image.
    DiscTable discOf(const QString& name, const ImagePlan& plan)
    {
        const Image image = writeImage(dir.path() + "/images", name, plan);
        const auto opened = DiscImage::open(image.cue);
        const QString copy = dir.path() + "/copies/" + name;
        QDir().mkpath(copy);
        auto table = readDiscTable(opened->writeReadableCopy(copy), DiscSource::Image);
        opened->addCdText(*table);
        return *table;
    }
    std::unique_ptr<mounted_cd_wrapper> makeWatcher(FakeDrives*& drives, CdWatcherOptions options = {})
    {
        auto fake = std::make_unique<FakeDrives>();
        drives = fake.get();
        if (options.folder.isEmpty())
            options.folder = discsFolder();
        return std::make_unique<mounted_cd_wrapper>(std::move(fake), options);
    }
    static CdWatcherOptions quiet() { return {QString(), false, {}}; }
    QString discsFolder() const { return dir.path() + "/discs"; }
    static bool scan(mounted_cd_wrapper& watcher, void (mounted_cd_wrapper::*how)() = nullptr)
    {
        QSignalSpy scanned(&watcher, &mounted_cd_wrapper::drivesScanned);
        if (how)
            (watcher.*how)();
        else
            emit watcher.drives().mediaChanged();
        return scanned.wait(20000);
    }
    static QString openImage(mounted_cd_wrapper& watcher, const QString& cue, QString* failure = nullptr)
    {
        QSignalSpy opened(&watcher, &mounted_cd_wrapper::opened);
        QSignalSpy failed(&watcher, &mounted_cd_wrapper::openFailed);
        watcher.openImage(cue);
        if (!QTest::qWaitFor([&] { return opened.size() + failed.size() > 0; }, 20000))
            return {};
        if (failure && !failed.isEmpty())
            *failure = failed.first().at(1).toString();
        return opened.isEmpty() ? QString() : opened.first().at(1).toString();
    }
    static QStringList filesIn(const QString& folder)
    {
        return QDir(folder).entryList(QDir::Files | QDir::NoDotAndDotDot, QDir::Name);
    }

    QTemporaryDir dir{testsupport::homeDir() + "/watcher-XXXXXX"};
    QList<Notice> notices;
};

TEST_F(Watcher, TheStartUpScanAddsDiscsQuietlyAndMediaChangesAreAnnounced)
{
    FakeDrives* drives = nullptr;
    auto watcher = makeWatcher(drives, quiet());
    const DiscTable first = discOf("first", disc({audio(75 * 3), audio(75 * 4)}));
    const DiscTable second = discOf("second", disc({audio(75 * 5)}, "Second Album"));
    const DiscTable dataOnly = [&] {
        DiscTable table = discOf("data", disc({data(75 * 3), audio(75 * 3)}));
        table.tracks.removeLast();
        return table;
    }();
    for (const char* device : {"/dev/sr0", "/dev/sr1", "/dev/sr2"})
        drives->addDrive(device);
    drives->insert("/dev/sr0", first);
    drives->insert("/dev/sr2", dataOnly);

    ASSERT_TRUE(scan(*watcher, &mounted_cd_wrapper::findMountedAudioCDs));
    EXPECT_TRUE(drives->monitoring);
    ASSERT_EQ(watcher->descriptions().size(), 1);
    EXPECT_TRUE(notices.isEmpty());
    const QVariantMap found = watcher->descriptions().first().toMap();
    const QString firstPath = discsFolder() + "/Audio CD";
    EXPECT_EQ(
        found,
        (QVariantMap{{"cdpath", firstPath}, {"freedbtitle", firstPath}, {"discid", routineQuery({0, 225}, 75 * 7)}}));
    EXPECT_EQ(filesIn(firstPath), QStringList({"01 Audio Track.cdda", "02 Audio Track.cdda"}));
    EXPECT_EQ(watcher->sourceOf(firstPath), "/dev/sr0");

    // A second disc comes: one mount notice carrying its description.
    drives->insert("/dev/sr1", second);
    ASSERT_TRUE(scan(*watcher));
    ASSERT_EQ(notices.size(), 1);
    EXPECT_EQ(notices[0].type, VLMountCDType);
    const QString secondPath = discsFolder() + "/Second Album";
    EXPECT_EQ(notices[0].object.value("cdpath"), secondPath);
    EXPECT_EQ(notices[0].object, watcher->description(secondPath));

    // Nothing changed: nothing said.
    ASSERT_TRUE(scan(*watcher));
    EXPECT_EQ(notices.size(), 1);

    // The first disc goes; the second is changed for the first.
    drives->take("/dev/sr0");
    drives->insert("/dev/sr1", first);
    ASSERT_TRUE(scan(*watcher));
    ASSERT_EQ(notices.size(), 4);
    QStringList types;
    for (const Notice& notice : notices.mid(1))
        types << notice.type + ' ' + QFileInfo(notice.object.value("cdpath").toString()).fileName();
    EXPECT_EQ(types,
              QStringList({"VLUnmountCDType Audio CD", "VLUnmountCDType Second Album", "VLMountCDType Audio CD"}));
    EXPECT_EQ(notices[1].object, (QVariantMap{{"cdpath", firstPath}}));
    EXPECT_FALSE(QFileInfo::exists(secondPath));
    ASSERT_EQ(watcher->descriptions().size(), 1);
    EXPECT_EQ(watcher->sourceOf(firstPath), "/dev/sr1");

    // A drive that goes away takes its disc along; ejecting asks the drive.
    watcher->eject(firstPath);
    EXPECT_EQ(notices.last().type, VLUnmountCDType);
    ASSERT_TRUE(QTest::qWaitFor([&] { return drives->ejected() == QStringList{"/dev/sr1"}; }, 10000));
    EXPECT_TRUE(watcher->descriptions().isEmpty());
    EXPECT_FALSE(QFileInfo::exists(firstPath));
}

TEST_F(Watcher, TwoImagesAtOnceGetTwoFoldersAndTheirOwnNotices)
{
    FakeDrives* drives = nullptr;
    auto watcher = makeWatcher(drives, quiet());
    const Image a = writeImage(dir.path() + "/a", "disc", disc({data(75 * 2), audio(75 * 3), audio(75 * 4 + 9, 30)}));
    const Image b = writeImage(dir.path() + "/b", "disc", disc({audio(75 * 6)}));
    const QString pathA = openImage(*watcher, a.cue);
    const QString pathB = openImage(*watcher, b.cue);
    EXPECT_EQ(pathA, discsFolder() + "/Audio CD");
    EXPECT_EQ(pathB, discsFolder() + "/Audio CD 2");
    ASSERT_EQ(notices.size(), 2);
    EXPECT_EQ(notices[0].type, VLMountCDType);
    EXPECT_EQ(notices[0].object.value("cdpath"), pathA);
    EXPECT_EQ(notices[1].object.value("cdpath"), pathB);
    EXPECT_EQ(notices[0].object.value("discid"), routineQuery(a.starts, a.sectors));
    EXPECT_EQ(notices[1].object.value("discid"), routineQuery(b.starts, b.sectors));

    // Only audio tracks get files; each says where cd-paranoia reads it.
    EXPECT_EQ(filesIn(pathA), QStringList({"02 Audio Track.cdda", "03 Audio Track.cdda"}));
    const auto track3 = DiscFolder::readTrackFile(pathA + "/03 Audio Track.cdda");
    ASSERT_TRUE(track3);
    EXPECT_EQ(track3->device, pathA + "/.disc.cue");
    EXPECT_EQ(track3->track, 3);
    EXPECT_EQ(track3->firstSector, a.starts[2]);
    EXPECT_EQ(track3->length, a.sectors - a.starts[2]);
    EXPECT_EQ(watcher->sourceOf(pathA), a.cue);
    EXPECT_TRUE(watcher->isDiscFolder(pathA));
    EXPECT_TRUE(watcher->isDiscFolder(pathB + "/"));
    EXPECT_FALSE(watcher->isDiscFolder(dir.path() + "/a"));

    // The same image again, and images that are not discs: a reason, no folder.
    QString failure;
    EXPECT_EQ(openImage(*watcher, a.cue, &failure), "");
    EXPECT_EQ(failure, QString("Cannot open the disc image %1: it is open already").arg(a.cue));
    testsupport::writeFile(dir.path() + "/bad/noise.cue", QByteArray(300, '\x01') + QByteArray(1, '\0'));
    EXPECT_EQ(openImage(*watcher, dir.path() + "/bad/noise.cue", &failure), "");
    EXPECT_TRUE(failure.endsWith("noise.cue: this is binary data, not the text of a cue sheet")) << qPrintable(failure);
    EXPECT_EQ(QDir(discsFolder()).entryList(QDir::Dirs | QDir::NoDotAndDotDot),
              QStringList({"Audio CD", "Audio CD 2"}));
    auto failedJob = [&]() -> std::shared_ptr<Job> {
        for (const auto& job : JobList::shared().jobs()) {
            if (job->state() == Job::State::Finished && job->result().error == failure)
                return job;
        }
        return nullptr;
    };
    ASSERT_TRUE(QTest::qWaitFor([&] { return failedJob() != nullptr; }, 10000));
    JobList::shared().dismiss(failedJob()->id());
    ASSERT_EQ(notices.size(), 2);

    // Closing one image unmounts it alone.
    watcher->eject(pathA);
    ASSERT_EQ(notices.size(), 3);
    EXPECT_EQ(notices[2].type, VLUnmountCDType);
    EXPECT_EQ(notices[2].object, (QVariantMap{{"cdpath", pathA}}));
    EXPECT_FALSE(QFileInfo::exists(pathA));
    EXPECT_EQ(watcher->descriptions().size(), 1);
    EXPECT_TRUE(drives->ejected().isEmpty());
    watcher->eject(pathA);  // unknown by now
    EXPECT_EQ(notices.size(), 3);

    // The watcher's end takes its folders along.
    watcher.reset();
    EXPECT_FALSE(QFileInfo::exists(pathB));
}

TEST_F(Watcher, CdTextNamesTheFolderAndTheTrackFiles)
{
    FakeDrives* drives = nullptr;
    auto watcher = makeWatcher(drives, quiet());
    const Image image = writeImage(
        dir.path() + "/t", "named",
        disc({audio(75 * 2, 0, "Intro / Outro"), audio(75 * 2), audio(75 * 2, 0, "  Ünïcode\tthird ")}, "AC/DC Live"));
    const QString path = openImage(*watcher, image.cue);
    EXPECT_EQ(path, discsFolder() + "/AC:DC Live");
    EXPECT_EQ(filesIn(path), QStringList({"01 Intro : Outro.cdda", "02 Audio Track.cdda", "03 Ünïcode third.cdda"}));
}

TEST_F(Watcher, TheWavStageRipsATrackFileWithCdParanoia)
{
    FakeDrives* drives = nullptr;
    auto watcher = makeWatcher(drives, quiet());
    const Image image =
        writeImage(dir.path() + "/rip", "disc", disc({audio(75 * 2), audio(75 * 3 + 5, 11), audio(75 * 2)}));
    const QString path = openImage(*watcher, image.cue);
    ASSERT_FALSE(path.isEmpty());
    wavexportwrapper wav;
    const QString out = dir.path() + "/out/track2.wav";
    wav.exportWav({{"sourcepath", path + "/02 Audio Track.cdda"}, {"destinationpath", out}, {"riptrack", 2}});
    EXPECT_FALSE(wav.cdparanoiaFailed());
    QByteArray expected;
    for (qint64 sector = image.starts[1]; sector < image.starts[2]; ++sector)
        expected += sectorBytes(sector);
    const QByteArray ripped = testsupport::readFile(out);
    ASSERT_EQ(ripped.size(), 44 + expected.size());
    EXPECT_TRUE(ripped.endsWith(expected));
}

TEST_F(Watcher, FreeDBAnswersGoToTheDiscTheyAreFor)
{
    const Image a = writeImage(dir.path() + "/a", "disc", disc({audio(75 * 3), audio(75 * 4)}));
    const Image b = writeImage(dir.path() + "/b", "disc", disc({audio(75 * 9)}));
    const QString idA = publishedQuery(a.starts, a.sectors).left(8);
    const QString idB = publishedQuery(b.starts, b.sectors).left(8);
    CddbServer server([&](const QString& target) {
        const QString id = target.contains(idA) ? idA : idB;
        const QString name = id == idA ? "Alpha" : "Beta";
        if (target.contains("cmd=cddb+query"))
            return CddbServer::Answer{QString("200 rock %1 Band / %2\r\n").arg(id, name).toUtf8()};
        return CddbServer::Answer{CddbServer::lines({"210 rock " + id, "TTITLE0=" + name + " one", "."})};
    });
    FakeDrives* drives = nullptr;
    auto watcher = makeWatcher(drives, {QString(), true, {server.record(), 60000}});
    const QString pathA = openImage(*watcher, a.cue);
    const QString pathB = openImage(*watcher, b.cue);
    ASSERT_TRUE(QTest::qWaitFor([&] { return notices.size() == 6; }, 30000)) << notices.size();

    for (const auto& [path, name] : {std::pair{pathA, QString("Alpha")}, std::pair{pathB, QString("Beta")}}) {
        const QVariantMap description = watcher->description(path);
        EXPECT_EQ(description.value("freedbtitle"), "Band / " + name);
        ASSERT_EQ(description.value("mFreeDBAlbumList").toList().size(), 1);
        EXPECT_EQ(description.value("mFreeDBAlbumList").toList()[0].toMap().value("cdpath"), path);
        const QVariantList tracks = description.value("mFreeDBTrackList").toList();
        ASSERT_EQ(tracks.size(), 1);
        EXPECT_EQ(tracks[0].toMap().value("title"), name + " one");
        EXPECT_EQ(tracks[0].toMap().value("cdpath"), path);
        EXPECT_EQ(watcher->freeDBWrapper(path), description.value("freedbwrapper").value<QObject*>());
        QStringList types;
        for (const Notice& notice : notices) {
            if (notice.object.value("cdpath") == path)
                types << notice.type;
        }
        EXPECT_EQ(types, QStringList({VLMountCDType, VLHaveAlbumsInfoType, VLHaveCDInfoType}));
    }
    EXPECT_EQ(notices.last().object, watcher->description(notices.last().object.value("cdpath").toString()));

    // Answers for no disc, or an empty one, change nothing and say nothing.
    watcher->reply(VLHaveAlbumsInfoNotification, QVariantList{QVariantMap{{"cdpath", "/elsewhere"}, {"title", "X"}}});
    watcher->reply(VLHaveCDInfoNotification, QVariantList{});
    watcher->reply(VLHaveReqestedCDInfoNotification, QVariantList{QVariantMap{{"cdpath", pathA}}});
    EXPECT_EQ(notices.size(), 6);
}

TEST_F(Watcher, FoldersLeftByEndedProcessesAreRemovedAtStart)
{
    const QString abandoned = discsFolder() + "/Audio CD";
    const QString alive = discsFolder() + "/Audio CD 2";
    const QString foreign = discsFolder() + "/Someone's";
    for (const QString& folder : {abandoned, alive, foreign})
        QDir().mkpath(folder);
    testsupport::writeFile(abandoned + "/.velmora-disc", "2147483000\n");
    testsupport::writeFile(abandoned + "/01 Audio Track.cdda", "device=/dev/sr0\ntrack=1\n");
    testsupport::writeFile(alive + "/.velmora-disc",
                           QByteArray::number(qint64(QCoreApplication::applicationPid())) + "\n");
    testsupport::writeFile(foreign + "/01 Audio Track.cdda", "keep");
    FakeDrives* drives = nullptr;
    auto watcher = makeWatcher(drives, quiet());
    ASSERT_TRUE(scan(*watcher, &mounted_cd_wrapper::findMountedAudioCDs));
    EXPECT_FALSE(QFileInfo::exists(abandoned));
    EXPECT_TRUE(QFileInfo::exists(alive));
    EXPECT_TRUE(QFileInfo::exists(foreign + "/01 Audio Track.cdda"));
}

TEST_F(Watcher, TheLaunchNoticeStartsTheWatch)
{
    FakeDrives* drives = nullptr;
    auto watcher = makeWatcher(drives, quiet());
    drives->addDrive("/dev/sr0");
    drives->insert("/dev/sr0", discOf("launch", disc({audio(75 * 2)})));
    watcher->awakeFromNib();
    QSignalSpy scanned(watcher.get(), &mounted_cd_wrapper::drivesScanned);
    NotificationCenter::defaultCenter().post(VLDidLaunchNotification);
    ASSERT_TRUE(scanned.wait(20000));
    EXPECT_EQ(watcher->descriptions().size(), 1);
    EXPECT_TRUE(isCDDevice("/dev/sr0", [&](const QString& device) { return drives->isDrive(device); }));
    EXPECT_FALSE(isCDDevice("/dev/sr1", [&](const QString& device) { return drives->isDrive(device); }));
}

}  // namespace

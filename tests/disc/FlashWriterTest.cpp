// Flash players: found through a UDisks2 service of our own (or mountinfo),
// erased, ejected and filled from the Music tab's path and the playlists'.
#include "disc/FlashWriter.h"

#include "common/FlashFixtures.h"
#include "common/TestSupport.h"
#include "core/Defaults.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "platform/FileNames.h"
#include "playlists/FlashCopy.h"
#include "playlists/PlaylistFiles.h"
#include "tabs/AppControllers.h"
#include "tabs/PlaySourcesWrapper.h"
#include "tabs/UniqueNames.h"

#include <QDir>
#include <QSignalSpy>
#include <QStorageInfo>
#include <QTemporaryDir>

#include <cerrno>
#include <cstring>

#include <gtest/gtest.h>

#include <mutex>
#include <sys/mount.h>
#include <unistd.h>

using namespace flashfixtures;
using testsupport::run;

namespace {

QStringList filesUnder(const QString& folder)
{
    QStringList files;
    for (const QString& entry : PlaylistFiles::walk(folder))
        if (QFileInfo(folder + '/' + entry).isFile())
            files << entry;
    files.sort();
    return files;
}

bool makeMp3(const QString& path, int seconds = 1)
{
    QDir().mkpath(QFileInfo(path).path());
    return run("ffmpeg", {"-v", "error", "-y", "-f", "lavfi", "-i", QStringLiteral("sine=duration=%1").arg(seconds),
                          "-ac", "2", "-b:a", "192k", path}) == 0;
}

TEST(FlashNames, FatSafeNamesAndCaseBlindUniqueness)
{
    const QString longStem(300, u'x');
    const struct { QString in, out; } rows[] = {
        {"plain.mp3", "plain.mp3"},          {"a:b?c*.mp3", "a_b_c_.mp3"},  {"\"q\"<>|\\.ogg", "_q_____.ogg"},
        {"dots... ", "dots"},                {"tab\there.mp3", "tab_here.mp3"}, {"...", "_"},
        {longStem + ".mp3", QString(251, u'x') + ".mp3"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(FileNames::fatSafeName(row.in), row.out) << qPrintable(row.in);

    QTemporaryDir dir;
    testsupport::writeFile(dir.filePath("song.mp3"), "x");
    using UniqueNames::Case;
    EXPECT_EQ(UniqueNames::claim(dir.path(), "Song.MP3", "Song", "MP3", false, UniqueNames::Mode::Preview,
                                 Case::Insensitive),
              dir.filePath("Song 1.MP3"));
    EXPECT_EQ(UniqueNames::claim(dir.path(), "Song.MP3", "Song", "MP3", false, UniqueNames::Mode::Preview),
              dir.filePath("Song.MP3"));
}

TEST(FlashNames, ReencodingTablesByQuality)
{
    const struct { int quality; const char* mp3; const char* ogg; } rows[] = {
        {0, "32", "48"}, {25, "48", "64"}, {50, "64", "96"}, {75, "96", "128"}, {100, "128", "160"}, {10, "96", "96"}};
    for (const auto& row : rows) {
        const QVariantMap stereo{{"quality", row.quality}, {"mono", 0}};
        const QVariantMap mono{{"quality", row.quality}, {"mono", 1}};
        EXPECT_EQ(FlashWriter::getMP3Params(stereo), (QStringList{"--mp3input", "--abr", row.mp3}));
        EXPECT_EQ(FlashWriter::getMP3Params(mono), (QStringList{"--mp3input", "--abr", row.mp3, "-a"}));
        EXPECT_EQ(FlashWriter::getOGGParams(stereo), (QStringList{row.ogg, "0"}));
        EXPECT_EQ(FlashWriter::getOGGParams(mono), (QStringList{row.ogg, "1"}));
    }
}

class FlashPlayers : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(bus.isRunning());
        player = dir.filePath("PLAYER");
        QDir().mkpath(player);
    }
    QString cli(const QStringList& arguments, int* code)
    {
        QByteArray output;
        *code = run(testsupport::builtProgram("velmora-cli"), QStringList{"flash"} + arguments, &output);
        return QString::fromUtf8(output);
    }

    FakeUDisks2 bus;
    QTemporaryDir dir;
    QString player;
};

TEST_F(FlashPlayers, OnlyMountedRemovableFatVolumesAreListedAndFollowMountSignals)
{
    const QString other = dir.filePath("DISK");
    bus.add(device("sdb1", "vfat", "PLAYER", player));
    bus.add(device("sdc1", "ext4", "DISK", other));
    bus.add(device("sdd1", "vfat", "FIXED", dir.filePath("FIXED"), {}, false));
    VolumeMonitor monitor;
    ASSERT_TRUE(monitor.usesUDisks2());
    FlashWriter writer(monitor);
    writer.awakeFromNib();
    EXPECT_EQ(writer.mountedVolumes(), QStringList{player});
    EXPECT_EQ(writer.allMountedVolumes(), (QStringList{player, other}));
    EXPECT_EQ(writer.popupTitles(), QStringList{"PLAYER"});
    const QStorageInfo storage(player);
    EXPECT_EQ(writer.driveStatusText(), QStringLiteral("Space available: %1mb.  Total capacity: %2mb.\nReady to write...")
                                            .arg(storage.bytesAvailable() / 1048576)
                                            .arg(storage.bytesTotal() / 1048576));

    const QString second = dir.filePath("WALKMAN");
    bus.add(device("sde1", "msdos", "WALKMAN", {}));
    bus.mount("sde1", second);
    ASSERT_TRUE(waitUntil([&] { return writer.mountedVolumes().size() == 2; }));
    EXPECT_EQ(writer.popupTitles(), (QStringList{"PLAYER", "WALKMAN"}));
    writer.selectVolume(1);
    bus.unmount("sdb1");
    ASSERT_TRUE(waitUntil([&] { return writer.mountedVolumes() == QStringList{second}; }));
    EXPECT_EQ(writer.selectedVolume(), second);
    bus.unmount("sde1");
    ASSERT_TRUE(waitUntil([&] { return writer.mountedVolumes().isEmpty(); }));
    EXPECT_EQ(writer.driveStatusText(), "Waiting for media to be inserted...");
    EXPECT_FALSE(writer.canWrite());

    int code = 0;
    EXPECT_TRUE(cli({"list"}, &code).contains("Waiting for media")) << code;
    bus.mount("sdb1", player);
    const QString listed = cli({"list"}, &code);
    EXPECT_EQ(code, 0);
    EXPECT_TRUE(listed.startsWith(player + "\tfree ")) << qPrintable(listed);
}

TEST_F(FlashPlayers, ThePlayTabListsThePlayersAsTheyComeAndGo)
{
    bus.add(device("sdb1", "vfat", "PLAYER", player));
    AppControllers controllers;
    PlaySourcesWrapper& play = controllers.play();
    controllers.flashWriter();
    ASSERT_TRUE(makeMp3(player + "/song.mp3"));
    const auto row = [&] {
        const auto rows = play.sources();
        return rows.indexOf(PlaySourcesWrapper::SourceRow{PlaySourcesWrapper::SourceKind::FlashPlayer, 1, {}, player});
    };
    ASSERT_GE(row(), 0);
    play.selectSource(int(row()));
    ASSERT_TRUE(waitUntil([&] { return play.songs() == QStringList{player + "/song.mp3"}; }));
    // The songs of a player that went away go with it.
    bus.unmount("sdb1");
    EXPECT_TRUE(waitUntil([&] { return row() < 0 && play.songs().isEmpty(); }));
}

TEST_F(FlashPlayers, EraseKeepsTheLabelAndEjectPowersTheDriveOff)
{
    const QString image = makeFatImage(dir.filePath("player.img"), 8, "OLDNAME");
    ASSERT_FALSE(image.isEmpty());
    bus.add(device("sdb1", "vfat", "PLAYER", player, image));
    VolumeMonitor monitor;
    FlashWriter writer(monitor);
    writer.awakeFromNib();
    QString volume = player;
    EXPECT_TRUE(writer.formatThisDisk(&volume));
    EXPECT_EQ(volume, player);
    EXPECT_EQ(fatLabel(image), "PLAYER");
    const QString block = FakeUDisks2::blockPath("sdb1");
    EXPECT_EQ(bus.calls(), (QStringList{"Unmount " + block, "Format " + block + " vfat label=PLAYER", "Mount " + block}));

    QSignalSpy alerts(&writer, &FlashWriter::alert);
    bus.failMethod("Format", "device is busy");
    EXPECT_FALSE(writer.formatThisDisk(&volume));
    ASSERT_TRUE(alerts.wait(5000));
    EXPECT_TRUE(alerts[0][1].toString().contains("device is busy"));

    ASSERT_TRUE(waitUntil([&] { return writer.canWrite(); }));
    writer.writeToFlashSetupPanelEject();
    writer.waitForWorkers();
    EXPECT_TRUE(bus.calls().endsWith("PowerOff " + FakeUDisks2::drivePath("sdb1"))) << qPrintable(bus.calls().join('\n'));
}

TEST_F(FlashPlayers, TheSheetsAnswersDriveBothPaths)
{
    bus.add(device("sdb1", "vfat", "PLAYER", player));
    VolumeMonitor monitor;
    FlashWriter writer(monitor);
    writer.awakeFromNib();
    std::mutex mutex;
    QVariantList handedOver, shouldCopy;
    auto& center = NotificationCenter::defaultCenter();
    center.addObserver(this, VLCopyToFlashV20Notification, [&](const Notification& n) {
        std::lock_guard lock(mutex);
        handedOver << n.object;
    });
    center.addObserver(this, VLShouldCopyFilesNotification, [&](const Notification& n) {
        std::lock_guard lock(mutex);
        shouldCopy << n.object;
    });
    bool ok = true;
    QVariantMap settings;
    QObject::connect(&writer, &FlashWriter::setupSheetRequested, &writer, [&] {
        ok ? writer.writeToFlashSetupPanelOK(settings) : writer.writeToFlashSetupPanelCancel();
    });
    const auto count = [&](const QVariantList& list) {
        std::lock_guard lock(mutex);
        return list.size();
    };

    // The playlist stores' path answers with the player, or with nothing.
    settings = {{"replace", 1}, {"quality", 75}};
    writer.writeToFlash();
    ASSERT_TRUE(waitUntil([&] { return count(shouldCopy) == 1; }));
    EXPECT_EQ(shouldCopy[0].toString(), player);
    const QVariantMap stored = Defaults::standard().dictionaryForKey("flashpanelsettings");
    EXPECT_EQ(stored.keys().size(), 7);
    EXPECT_EQ(stored.value("replace").toInt(), 1);
    EXPECT_EQ(stored.value("quality").toInt(), 75);
    ok = false;
    writer.writeToFlash();
    ASSERT_TRUE(waitUntil([&] { return count(shouldCopy) == 2; }));
    EXPECT_TRUE(shouldCopy[1].isNull());

    // The Music tab's path erases first when asked, then hands the copy back.
    testsupport::writeFile(player + "/old.mp3", "old");
    ok = true;
    settings = {{"erase", 1}, {"converttomp3", 1}, {"dontput", 1}};
    const QVariantMap selection{{"selectedfiles", QStringList{"/music/a.ogg"}}, {"destinationpaths", QStringList{"A"}}};
    center.post(VLV20CopyToFlashSetupNotification, selection);
    ASSERT_TRUE(waitUntil([&] { return count(handedOver) == 1; }));
    writer.waitForWorkers();
    const QVariantMap request = handedOver[0].toMap();
    EXPECT_EQ(request.value("type").toString(), "MP3");
    EXPECT_EQ(request.value("destinationfolder").toString(), player);
    EXPECT_EQ(request.value("selectedfiles").toStringList(), QStringList{"/music/a.ogg"});
    EXPECT_EQ(request.value("flashpanelsettings").toMap().value("dontput").toInt(), 1);
    EXPECT_FALSE(QFileInfo::exists(player + "/old.mp3"));
    EXPECT_TRUE(bus.calls().contains("Format " + FakeUDisks2::blockPath("sdb1") + " vfat label=PLAYER"));
    ok = false;
    center.post(VLV20CopyToFlashSetupNotification, selection);
    ASSERT_TRUE(waitUntil([&] { return count(shouldCopy) == 3; }));
    EXPECT_EQ(count(handedOver), 1);
    center.removeObserver(this);
}

TEST(FlashWithoutUDisks2, MountinfoListsPlayersAndMkfsErasesTheDevice)
{
    QTemporaryDir dir;
    const QString image = makeFatImage(dir.filePath("stick.img"), 8, "OLDNAME");
    ASSERT_FALSE(image.isEmpty());
    testsupport::writeFile(dir.filePath("old.bin"), "old");
    ASSERT_EQ(run("mcopy", {"-i", image, dir.filePath("old.bin"), "::old.bin"}), 0);
    const QString mountPoint = dir.filePath("MY STICK");
    QDir().mkpath(mountPoint);
    QByteArray escaped = QFile::encodeName(mountPoint).replace(" ", "\\040");
    testsupport::writeFile(dir.filePath("mountinfo"),
                           "22 1 8:1 / / rw - ext4 /dev/vda rw\n"
                           "40 22 8:17 / " + escaped + " rw,nosuid shared:1 - vfat " + QFile::encodeName(image) + " rw\n"
                           "41 22 8:33 / /mnt/fixed rw - vfat /dev/sdz1 rw\n");
    testsupport::writeFile(dir.filePath("block/stick.img/removable"), "1\n");
    testsupport::writeFile(dir.filePath("block/sdz/sdz1/partition"), "1\n");
    testsupport::writeFile(dir.filePath("block/sdz/removable"), "0\n");
    qputenv("VELMORA_MOUNTINFO", dir.filePath("mountinfo").toUtf8());
    qputenv("VELMORA_SYS_BLOCK", dir.filePath("block").toUtf8());
    {
        VolumeMonitor monitor;
        EXPECT_FALSE(monitor.usesUDisks2());
        ASSERT_EQ(monitor.volumes().size(), 1);
        EXPECT_EQ(monitor.volumes()[0].mountPoint, mountPoint);
        EXPECT_EQ(monitor.volumes()[0].kind(), "msdos");
        FlashWriter writer(monitor);
        writer.awakeFromNib();
        QString volume = mountPoint;
        EXPECT_TRUE(writer.formatThisDisk(&volume));
    }
    qunsetenv("VELMORA_MOUNTINFO");
    qunsetenv("VELMORA_SYS_BLOCK");
    EXPECT_EQ(fatLabel(image), "MY STICK");
    QByteArray listing;
    run("mdir", {"-i", image, "-b", "::"}, &listing);
    EXPECT_FALSE(listing.contains("OLD")) << listing.constData();
}

TEST_F(FlashPlayers, MusicTabPathCleansNamesKeepsFoldersAndSkipsCompanions)
{
    bus.add(device("sdb1", "vfat", "PLAYER", player));
    const QString music = dir.filePath("music");
    ASSERT_TRUE(makeMp3(music + "/Live: 2001/Who? What.mp3"));
    QFile::copy(music + "/Live: 2001/Who? What.mp3", music + "/Live: 2001/who_ what.mp3");
    QFile::copy(music + "/Live: 2001/Who? What.mp3", music + "/._hidden.mp3");
    QFile::copy(music + "/Live: 2001/Who? What.mp3", music + "/top.mp3");
    testsupport::writeFile(player + "/music/TOP.MP3", "old");

    int code = 0;
    QString output = cli({"copy", "--volume", player, music}, &code);
    EXPECT_EQ(code, 0) << qPrintable(output);
    // The selected folder is a folder on the player too.
    EXPECT_EQ(filesUnder(player), (QStringList{"music/Live_ 2001/Who_ What 1.MP3", "music/Live_ 2001/who_ what.MP3",
                                                "music/TOP.MP3", "music/top 1.MP3"}));
    EXPECT_TRUE(output.contains("Who? What.mp3 is called Who_ What 1.MP3 on the player.")) << qPrintable(output);

    QDir(player).removeRecursively();
    QDir().mkpath(player);
    testsupport::writeFile(player + "/top.MP3", "old");
    output = cli({"copy", "--volume", player, "--no-folders", "--replace", music}, &code);
    EXPECT_EQ(code, 0) << qPrintable(output);
    // Replacing takes the plain name even where a name of another case is there.
    EXPECT_EQ(filesUnder(player), (QStringList{"Who_ What.MP3", "top.MP3", "who_ what.MP3"}));
    EXPECT_EQ(QFileInfo(player + "/top.MP3").size(), QFileInfo(music + "/top.mp3").size());

    output = cli({"copy", "--volume", dir.filePath("elsewhere"), music}, &code);
    EXPECT_EQ(code, 1);
    EXPECT_TRUE(output.contains("is not a mounted flash player")) << qPrintable(output);
}

TEST_F(FlashPlayers, PlaylistPathMakesGroupFoldersReencodesAndReportsWhatDidNotGo)
{
    bus.add(device("sdb1", "vfat", "PLAYER", player));
    const QString a = dir.filePath("music/a.mp3");
    ASSERT_TRUE(makeMp3(a, 4));
    const QString companion = dir.filePath("music/._a.mp3");
    QFile::copy(a, companion);
    const QString playlist = dir.filePath("Trip.cd3");
    ASSERT_TRUE(PlaylistFiles::writeGroup(
        playlist, PlaylistFiles::makeGroup("OVRoot", {a, companion, dir.filePath("music/gone.mp3"),
                                                      PlaylistFiles::makeGroup("Disc: 1", {a})})));
    int code = 0;
    const QString output = cli({"copy", "--volume", player, "--reencode", "0", "--mono", playlist}, &code);
    EXPECT_EQ(code, 1) << qPrintable(output);
    EXPECT_TRUE(output.contains("gone.mp3 was not copied: the file is gone.")) << qPrintable(output);
    EXPECT_EQ(filesUnder(player), (QStringList{"Disc_ 1/a.mp3", "a.mp3"}));
    // 32 kbit/s mono from 192 kbit/s stereo.
    EXPECT_LT(QFileInfo(player + "/a.mp3").size(), QFileInfo(a).size() / 3);
    QByteArray probe;
    run("ffprobe", {"-v", "error", "-show_entries", "stream=channels", "-of", "default=nw=1:nk=1", player + "/a.mp3"}, &probe);
    EXPECT_EQ(probe.trimmed(), "1");
}

TEST_F(FlashPlayers, AGonePlayerAFullOneAndAReadOnlyOneLeaveNoPartialFile)
{
    bus.add(device("sdb1", "vfat", "PLAYER", player));
    VolumeMonitor monitor;
    FlashWriter writer(monitor);
    writer.awakeFromNib();
    const QString song = dir.filePath("song.mp3");
    ASSERT_TRUE(makeMp3(song));

    bus.unmount("sdb1");
    ASSERT_TRUE(waitUntil([&] { return !writer.canWrite(); }));
    FlashItemCopy copy = writer.copyOneItemToFlash(song, player + "/Disc 1");
    EXPECT_FALSE(copy.didSucceed);
    EXPECT_TRUE(copy.stopCopying);
    EXPECT_EQ(copy.message, "The player went away: song.mp3 was not copied.");
    EXPECT_FALSE(QFileInfo::exists(player + "/Disc 1"));

    // A full and a read-only player need a tmpfs mount, which only a process
    // allowed to mount (root outside a locked-down container) can make.
    if (::geteuid() != 0 || ::mount("tmpfs", QFile::encodeName(player).constData(), "tmpfs", 0, "size=96k") != 0)
        GTEST_SKIP() << "no tmpfs mount here: " << std::strerror(errno);
    struct Unmount {
        QByteArray path;
        ~Unmount() { ::umount(path.constData()); }
    } unmountAtEnd{QFile::encodeName(player)};
    bus.mount("sdb1", player);
    ASSERT_TRUE(waitUntil([&] { return writer.canWrite(); }));
    testsupport::writeFile(dir.filePath("big.mp3"), QByteArray(80 * 1024, 'x'));
    copy = writer.copyOneItemToFlash(dir.filePath("big.mp3"), player);
    EXPECT_TRUE(copy.stopCopying);
    EXPECT_TRUE(copy.message.startsWith("The player is full: big.mp3")) << qPrintable(copy.message);
    EXPECT_TRUE(QDir(player).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));
    int code = 0;
    const QString output = cli({"copy", "--volume", player, dir.filePath("big.mp3")}, &code);
    EXPECT_EQ(code, 1);
    EXPECT_TRUE(output.contains("The player is full: big.mp3")) << qPrintable(output);
    EXPECT_TRUE(QDir(player).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));

    ASSERT_EQ(::mount("tmpfs", QFile::encodeName(player).constData(), "tmpfs", MS_REMOUNT | MS_RDONLY, "size=8m"), 0);
    copy = writer.copyOneItemToFlash(song, player);
    EXPECT_FALSE(copy.didSucceed);
    EXPECT_TRUE(copy.message.startsWith("song.mp3 was not copied:")) << qPrintable(copy.message);
}

} // namespace

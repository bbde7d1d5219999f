#include "common/TestSupport.h"
#include "disc/CdDrives.h"
#include "disc/MountedCDWrapper.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

// The real drives of this machine (it may have none): without UDisks2 on the
// system bus, media changes come from a poll every 2 seconds.
TEST(SystemDrives, WithoutUDisksTheDrivesArePolledEveryTwoSeconds)
{
    SystemCdDrives drives;
    EXPECT_FALSE(drives.readDisc("/dev/null").has_value());
    EXPECT_FALSE(drives.isDrive("/dev/null"));
    QSignalSpy changes(&drives, &CdDriveAdapter::mediaChanged);
    drives.startMonitoring();
    if (drives.usesUDisks())
        GTEST_SKIP() << "UDisks2 reports the media changes here";
    QElapsedTimer clock;
    clock.start();
    ASSERT_TRUE(changes.wait(5000));
    EXPECT_GE(clock.elapsed(), 1500);
}

TEST(SystemDrives, TheWatcherReadsWhateverDrivesThereAre)
{
    QTemporaryDir dir(testsupport::homeDir() + "/drives-XXXXXX");
    auto drives = std::make_unique<SystemCdDrives>();
    const QStringList found = drives->drives();
    mounted_cd_wrapper watcher(std::move(drives), {dir.path(), false, {}});
    QSignalSpy scanned(&watcher, &mounted_cd_wrapper::drivesScanned);
    watcher.findMountedAudioCDs();
    ASSERT_TRUE(scanned.wait(30000));
    // A machine without drives (or with empty ones) has no disc to describe.
    if (found.isEmpty()) {
        EXPECT_TRUE(watcher.descriptions().isEmpty());
    }
    for (const QVariant& description : watcher.descriptions())
        EXPECT_TRUE(found.contains(watcher.sourceOf(description.toMap().value("cdpath").toString())));
}

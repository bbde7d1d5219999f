#include "core/Defaults.h"
#include "core/Job.h"
#include "core/Preferences.h"
#include "core/PropertyList.h"
#include "platform/AppPaths.h"
#include "platform/SafeFile.h"

#include "common/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>

#include <gtest/gtest.h>

namespace {
void freshDatabase()
{
    QFile::remove(AppPaths::defaultsFile());
    QFile::remove(AppPaths::defaultsFile() + ".broken");
    Defaults::standard().reload();
}

// The failed jobs of that title waiting in the job list.
QList<std::shared_ptr<Job>> failedJobs(const QString& title)
{
    QList<std::shared_ptr<Job>> failed;
    for (const auto& job : JobList::shared().jobs())
        if (job->title() == title && job->state() == Job::State::Finished &&
            job->result().outcome == JobResult::Outcome::Failed)
            failed << job;
    return failed;
}

QStringList entriesOf(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}
} // namespace

TEST(Settings, FirstLaunchInstallsExactlyTheDefaultsAndMarksThemInited)
{
    freshDatabase();
    Preferences& prefs = Preferences::sharedInstance();
    prefs.prefsLoad();

    Defaults::standard().reload();  // what was written, not what is in memory
    Defaults& stored = Defaults::standard();
    EXPECT_EQ(stored.integerForKey(PrefKeys::Inited), 1);
    const std::map<QString, int> expected = {
        {"prefsShowWriterStored", 0},      {"prefsShowPlayerStored", 0},       {"prefsAutoEjectStored", 1},
        {"prefsAutoPlayStored", 0},        {"prefsIncludeJolietStored", 1},    {"prefsStripID3v2Stored", 0},
        {"prefsappendID3v1Stored", 1},     {"prefsuseCoverartStored", 0},      {"prefsRipFromFolderStored", 0},
        {"prefsWarnSpaceCheckStored", 1},  {"prefsWarnSpaceComboStored", 600}, {"prefsWarnMoreCheckStored", 1},
        {"prefsWarnMoreComboStored", 649}, {"prefsPreserveOrderStored", 0},    {"prefsCreateM3UStored", 0},
        {"prefsAutoClipStored", 0},        {"mSelectedTabStored", 0}};
    for (const auto& [key, value] : expected) {
        EXPECT_TRUE(stored.hasKey(key)) << qPrintable(key);
        EXPECT_EQ(stored.integerForKey(key), value) << qPrintable(key);
        if (key.startsWith("prefs")) {
            EXPECT_EQ(prefs.prefsIntForKey(key), value) << qPrintable(key);
        }
    }
    EXPECT_EQ(stored.stringForKey(PrefKeys::M3UPathPrefix), "");
    EXPECT_EQ(stored.stringForKey(PrefKeys::M3UExportFolder), Preferences::defaultM3UExportFolder());
    EXPECT_TRUE(Preferences::defaultM3UExportFolder().endsWith("/Velmora/M3U"));
}

TEST(Settings, SavedValuesSurviveALoadAndRevertRestoresTheFields)
{
    freshDatabase();
    Preferences& prefs = Preferences::sharedInstance();
    prefs.prefsLoad();
    prefs.setPrefsInt(PrefKeys::WarnSpaceCombo, 700);
    prefs.setPrefsInt(PrefKeys::AutoPlay, 1);
    prefs.setPrefsString(PrefKeys::M3UPathPrefix, "/media/player/");
    prefs.setPrefsString(PrefKeys::M3UExportFolder, "");  // an empty folder field saves the default
    QSignalSpy saveEnabled(&prefs, &Preferences::saveEnabledChanged);
    prefs.prefsSave();
    ASSERT_EQ(saveEnabled.count(), 1);
    EXPECT_FALSE(saveEnabled.at(0).at(0).toBool());

    // Something else in memory, then load from disk again: not first launch any more.
    prefs.setPrefsInt(PrefKeys::WarnSpaceCombo, 1);
    Defaults::standard().reload();
    QSignalSpy reverted(&prefs, &Preferences::controlsReverted);
    prefs.prefsLoad();
    EXPECT_EQ(reverted.count(), 1);
    EXPECT_EQ(prefs.prefsIntForKey(PrefKeys::WarnSpaceCombo), 700);
    EXPECT_EQ(prefs.prefsIntForKey(PrefKeys::WarnMoreCombo), 649);
    EXPECT_EQ(prefs.prefsIntForKey(PrefKeys::AutoPlay), 1);
    EXPECT_EQ(prefs.prefsStringForKey(PrefKeys::M3UPathPrefix), "/media/player/");
    EXPECT_EQ(prefs.prefsStringForKey(PrefKeys::M3UExportFolder), Preferences::defaultM3UExportFolder());

    prefs.prefsDefaults();
    EXPECT_EQ(prefs.prefsIntForKey(PrefKeys::WarnSpaceCombo), 600);
    Defaults::standard().reload();
    EXPECT_EQ(Defaults::standard().integerForKey(PrefKeys::AutoPlay), 0);
}

TEST(Settings, ACorruptDatabaseIsSetAsideAndTheDefaultsAreUsed)
{
    freshDatabase();
    ASSERT_TRUE(testsupport::writeFile(AppPaths::defaultsFile(), "<?xml version=\"1.0\"?><plist><dict><key>x"));
    Defaults::standard().reload();
    EXPECT_FALSE(QFile::exists(AppPaths::defaultsFile()));
    EXPECT_EQ(testsupport::readFile(AppPaths::defaultsFile() + ".broken"),
              "<?xml version=\"1.0\"?><plist><dict><key>x");
    Preferences::sharedInstance().prefsLoad();
    EXPECT_EQ(Preferences::sharedInstance().prefsIntForKey(PrefKeys::WarnMoreCombo), 649);
    EXPECT_TRUE(QFile::exists(AppPaths::defaultsFile()));

    // A property list whose top level is not a dictionary is set aside too.
    ASSERT_TRUE(PropertyList::write(AppPaths::defaultsFile(), QVariantList{1, 2}));
    Defaults::standard().reload();
    EXPECT_FALSE(Defaults::standard().hasKey(PrefKeys::Inited));
    EXPECT_TRUE(QFile::exists(AppPaths::defaultsFile() + ".broken"));
}

TEST(Settings, PropertyListRoundTripKeepsTypesOrderAndNesting)
{
    const QVariantMap group{{"Group", "OVRoot"},
                            {"Entries", QVariantList{"/a/b.mp3",
                                                     QVariantMap{{"Group", "Inner"},
                                                                 {"Entries", QVariantList{"/c.ogg", "/d.ogg"}}},
                                                     "/e.wav"}}};
    const QVariantMap root{{"group", group},   {"int", 649},       {"negative", -3},
                           {"flag", true},     {"text", "ünïcode"}, {"data", QByteArray("\0\1\2", 3)},
                           {"real", 2.5}};
    const QString path = testsupport::homeDir() + "/roundtrip.plist";
    ASSERT_TRUE(PropertyList::write(path, root));
    const auto back = PropertyList::read(path);
    ASSERT_TRUE(back.has_value());
    const QVariantMap map = back->toMap();
    EXPECT_EQ(map.value("group").toMap().value("Entries").toList().at(1).toMap().value("Entries").toList(),
              (QVariantList{"/c.ogg", "/d.ogg"}));
    EXPECT_EQ(map.value("group").toMap().value("Entries").toList().at(2).toString(), "/e.wav");
    EXPECT_EQ(map.value("int").toLongLong(), 649);
    EXPECT_EQ(map.value("negative").toLongLong(), -3);
    EXPECT_EQ(map.value("flag").typeId(), QMetaType::Bool);
    EXPECT_EQ(map.value("text").toString(), QString("ünïcode"));
    EXPECT_EQ(map.value("data").toByteArray(), QByteArray("\0\1\2", 3));
    EXPECT_DOUBLE_EQ(map.value("real").toDouble(), 2.5);

    EXPECT_FALSE(PropertyList::parse("not a plist").has_value());
    EXPECT_FALSE(PropertyList::parse("").has_value());
}

TEST(Settings, AFailedSaveKeepsTheOldFileAndWaitsInTheJobListOnce)
{
    freshDatabase();
    Defaults& defaults = Defaults::standard();
    defaults.setInteger(PrefKeys::AutoPlay, 1);
    ASSERT_TRUE(defaults.synchronize());
    const QByteArray old = testsupport::readFile(AppPaths::defaultsFile());
    const QStringList before = entriesOf(AppPaths::configDir());
    for (SafeFile::Step step : {SafeFile::Step::Create, SafeFile::Step::Write, SafeFile::Step::Check,
                                SafeFile::Step::Sync, SafeFile::Step::Rename}) {
        SCOPED_TRACE(int(step));
        SafeFile::setFaultInjector([step](SafeFile::Step at, const QString&) { return at == step; });
        defaults.setInteger(PrefKeys::AutoPlay, 0);
        EXPECT_FALSE(defaults.synchronize());
        EXPECT_EQ(testsupport::readFile(AppPaths::defaultsFile()), old);
        EXPECT_EQ(entriesOf(AppPaths::configDir()), before);  // no temporary file left behind
        // The window learns why; saving again with the same fault does not list it twice.
        EXPECT_FALSE(defaults.synchronize());
        const auto failed = failedJobs("Saving the settings");
        ASSERT_EQ(failed.size(), 1);
        EXPECT_TRUE(failed.first()->result().error.contains(AppPaths::defaultsFile()))
            << qPrintable(failed.first()->result().error);
        JobList::shared().dismiss(failed.first()->id());
    }
    SafeFile::setFaultInjector({});
    ASSERT_TRUE(defaults.synchronize());
    defaults.reload();
    EXPECT_EQ(defaults.integerForKey(PrefKeys::AutoPlay), 0);
    EXPECT_TRUE(failedJobs("Saving the settings").isEmpty());
}

TEST(Settings, ASettingsFileKeptElsewhereThroughALinkStaysLinked)
{
    // Settings kept with the user's other configuration files, linked into place.
    freshDatabase();
    const QString kept = testsupport::homeDir() + "/dotfiles/velmora.plist";
    QDir().mkpath(QFileInfo(kept).path());
    ASSERT_TRUE(PropertyList::write(kept, QVariantMap{{"mSelectedTabStored", 2}}));
    QDir().mkpath(AppPaths::configDir());
    ASSERT_TRUE(QFile::link(kept, AppPaths::defaultsFile()));
    Defaults::standard().reload();
    EXPECT_EQ(Defaults::standard().integerForKey(PrefKeys::SelectedTab), 2);

    Defaults::standard().setInteger(PrefKeys::SelectedTab, 4);
    ASSERT_TRUE(Defaults::standard().synchronize());
    EXPECT_TRUE(QFileInfo(AppPaths::defaultsFile()).isSymLink());
    EXPECT_EQ(PropertyList::read(kept)->toMap().value("mSelectedTabStored").toInt(), 4);
    freshDatabase();
}

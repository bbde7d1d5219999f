#include "encode/LameWrapper.h"

#include "common/TestSupport.h"
#include "core/Defaults.h"
#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "encode/ExportJobs.h"
#include "platform/AppPaths.h"
#include "platform/SafeFile.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

#include <gtest/gtest.h>

namespace {

class LameWrapperTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        testsupport::useFreshHome();
        NotificationCenter::defaultCenter().addObserver(this, VLLameFoundNotification, [this](const Notification& n) {
            found_.append(n.object.toBool());
        });
        NotificationCenter::defaultCenter().addObserver(this, VLLameFoundNewNotification,
                                                        [this](const Notification& n) { news_.append(n.object.toMap()); });
        lame_.setSystemLamePath(dir_.filePath("system/lame"));
    }
    void TearDown() override
    {
        NotificationCenter::defaultCenter().removeObserver(this);
        SafeFile::setFaultInjector({});
        for (const auto& job : JobList::shared().jobs())
            if (job->state() == Job::State::Finished)
                JobList::shared().dismiss(job->id());
    }

    // A zip archive of the named files (made in staging/), served from a file address.
    QUrl archive(const QString& name, const QStringList& members)
    {
        QStringList arguments{"-j", dir_.filePath(name)};
        for (const QString& member : members)
            arguments << dir_.filePath("staging/" + member);
        EXPECT_EQ(testsupport::run("zip", arguments), 0);
        return QUrl::fromLocalFile(dir_.filePath(name));
    }

    // A stand-in tool that prints the given text for "--help".
    QString tool(const QString& name, const QByteArray& help)
    {
        const QString path = dir_.filePath(name);
        QDir().mkpath(QFileInfo(path).path());
        testsupport::writeFile(path, "#!/bin/sh\nprintf '%s' '" + help + "'\n");
        QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return path;
    }

    QTemporaryDir dir_;
    LameWrapper lame_;
    QList<bool> found_;
    QList<QVariantMap> news_;
};

TEST_F(LameWrapperTest, NothingAnywhereReportsNotFoundTwiceAtStartUp)
{
    QSignalSpy offers(&lame_, &LameWrapper::downloadOfferRequested);
    NotificationCenter::defaultCenter().post(VLDidLaunchNotification);
    EXPECT_EQ(found_, (QList<bool> {false, false}));
    EXPECT_TRUE(news_.isEmpty());
    EXPECT_EQ(offers.count(), 1);
    EXPECT_EQ(lame_.pathText(), dir_.filePath("system/lame"));
    EXPECT_EQ(lame_.versionText(), "LAME not found at specified location");
    EXPECT_EQ(lame_.statusToolTip(), "LAME not found");
    EXPECT_TRUE(lame_.explanationText().startsWith("At this time, we are not able to bundle the LAME MP3 encoder.  You"));
    EXPECT_FALSE(lame_.dependentControlsEnabled());

    // Ticking "don't show" is stored at once and silences the offer next time.
    lame_.setDontShowDownload(1);
    Defaults::standard().reload();
    EXPECT_EQ(Defaults::standard().integerForKey("mDontShowLameDownload"), 1);
    NotificationCenter::defaultCenter().post(VLDidLaunchNotification);
    EXPECT_EQ(offers.count(), 1);
}

TEST_F(LameWrapperTest, SearchOrderFallsThroughAStaleStoredPath)
{
    const QString system = tool("system/lame", "LAME system copy");
    Defaults::standard().setObject("LamePath", dir_.filePath("gone/lame"));
    lame_.lookForLame();
    EXPECT_EQ(lame_.pathText(), system);

    // The per-user copy comes before the system copy.
    QDir().mkpath(AppPaths::dataDir());
    QFile::copy(system, lame_.userLamePath());
    lame_.lookForLame();
    EXPECT_EQ(lame_.pathText(), lame_.userLamePath());

    // A stored path that exists wins over both.
    const QString stored = tool("mine/lame", "LAME mine");
    Defaults::standard().setObject("LamePath", stored);
    lame_.lookForLame();
    EXPECT_EQ(lame_.pathText(), stored);
    ASSERT_FALSE(news_.isEmpty());
    EXPECT_EQ(news_.last().value("lamepath").toString(), stored);
    EXPECT_EQ(news_.last().value("lameversion").toString(), "LAME mine");
}

TEST_F(LameWrapperTest, VersionCheckHasThreeOutcomes)
{
    ExportJobs jobs;
    lame_.chooseLame(tool("good", "LAME 64bits version 3.100"));
    EXPECT_TRUE(lame_.lameFound());
    EXPECT_EQ(lame_.versionText(), "LAME 64bits version 3.100");
    EXPECT_EQ(lame_.statusToolTip(), "LAME successfully installed");
    EXPECT_TRUE(lame_.explanationText().contains("The lastest supported version of lame, can always be downloaded"));
    EXPECT_EQ(jobs.mp3().lamePath(), dir_.filePath("good"));
    Defaults::standard().reload();
    EXPECT_EQ(Defaults::standard().stringForKey("LamePath"), dir_.filePath("good"));

    // Lower-case "lame" is used all the same, but the MP3 job keeps its old path.
    lame_.chooseLame(tool("other", "lame, a look-alike"));
    EXPECT_TRUE(lame_.lameFound());
    EXPECT_EQ(lame_.versionText(), "This tool does not appear to be LAME");
    EXPECT_EQ(lame_.statusToolTip(), "The selected tool does not appear to be LAME");
    EXPECT_TRUE(lame_.explanationText().startsWith(
        "The tool you have selected does not appear to be a valid version of LAME.  Velmora will try"));
    EXPECT_EQ(jobs.mp3().lamePath(), dir_.filePath("good"));
    EXPECT_EQ(news_.size(), 1);

    // A tool that prints nothing counts as absent.
    lame_.chooseLame(tool("silent", ""));
    EXPECT_FALSE(lame_.lameFound());
    EXPECT_EQ(lame_.versionText(), "LAME not found at specified location");
    EXPECT_EQ(found_, (QList<bool> {true, true, false}));

    // A file that is no program at all, and the real lame.
    lame_.chooseLame(dir_.filePath("LameWrapperTest.cpp"));
    EXPECT_FALSE(lame_.lameFound());
    lame_.chooseLame("/usr/bin/lame");
    EXPECT_TRUE(lame_.versionText().startsWith("LAME"));
}

TEST_F(LameWrapperTest, DownloadUnpacksIntoTheUserFolderWhenTheSystemFolderIsMissing)
{
    // An archive holding a lame, as the download address serves it.
    const QString staging = dir_.filePath("staging");
    tool("staging/lame", "LAME downloaded");
    ASSERT_EQ(testsupport::run("zip", {"-j", dir_.filePath("lame.zip"), staging + "/lame"}), 0);
    lame_.setDownloadUrl(QUrl::fromLocalFile(dir_.filePath("lame.zip")));

    QSignalSpy done(&lame_, &LameWrapper::downloadFinished);
    lame_.downloadLame();
    ASSERT_TRUE(done.wait(30000));
    EXPECT_TRUE(QFileInfo(lame_.userLamePath()).isExecutable());
    EXPECT_FALSE(QFileInfo::exists(AppPaths::dataDir() + "/lame.zip"));
    EXPECT_EQ(Defaults::standard().stringForKey("LamePath"), lame_.systemLamePath());
    EXPECT_EQ(lame_.pathText(), lame_.userLamePath());
    EXPECT_EQ(lame_.versionText(), "LAME downloaded");

    // A failed fetch changes nothing but the stored path, and the search still runs.
    lame_.setDownloadUrl(QUrl::fromLocalFile(dir_.filePath("missing.zip")));
    lame_.downloadLame();
    ASSERT_TRUE(done.wait(30000));
    EXPECT_EQ(lame_.versionText(), "LAME downloaded");
}

TEST_F(LameWrapperTest, DownloadGoesToTheSystemFolderWhenItCanBeWritten)
{
    tool("staging/lame", "LAME system-wide");
    ASSERT_EQ(testsupport::run("zip", {"-j", dir_.filePath("lame.zip"), dir_.filePath("staging/lame")}), 0);
    QDir().mkpath(dir_.filePath("system"));
    lame_.setDownloadUrl(QUrl::fromLocalFile(dir_.filePath("lame.zip")));
    QSignalSpy done(&lame_, &LameWrapper::downloadFinished);
    lame_.downloadLame();
    ASSERT_TRUE(done.wait(30000));
    EXPECT_FALSE(QFileInfo::exists(lame_.userLamePath()));
    EXPECT_FALSE(QFileInfo::exists(dir_.filePath("system/lame.zip")));
    EXPECT_EQ(lame_.pathText(), dir_.filePath("system/lame"));
    EXPECT_EQ(lame_.versionText(), "LAME system-wide");
    ASSERT_FALSE(news_.isEmpty());
    EXPECT_EQ(news_.last().value("lamepath").toString(), dir_.filePath("system/lame"));
}

TEST_F(LameWrapperTest, ADownloadIsAJobThatCancelsWhileTheServerKeepsItWaiting)
{
    // A server that takes the request and never answers.
    QTcpServer silent;
    ASSERT_TRUE(silent.listen(QHostAddress::LocalHost));
    lame_.setDownloadUrl(QUrl(QStringLiteral("http://127.0.0.1:%1/lame/lame.zip").arg(silent.serverPort())));
    QSignalSpy done(&lame_, &LameWrapper::downloadFinished);
    lame_.downloadLame();
    ASSERT_TRUE(lame_.isDownloading());
    const std::shared_ptr<Job> job = lame_.downloadJob();
    ASSERT_TRUE(job);
    EXPECT_EQ(job->title(), "Downloading LAME");
    EXPECT_TRUE(JobList::shared().job(job->id()));
    EXPECT_TRUE(QTest::qWaitFor([&] { return job->status() == QString::fromUtf8("Downloading LAME\u2026"); }, 10000))
        << qPrintable(job->status());
    EXPECT_LT(job->percent(), 0);  // nothing is known of the size yet
    job->cancel();
    ASSERT_TRUE(done.wait(10000));
    EXPECT_EQ(job->result().outcome, JobResult::Outcome::Cancelled);
    EXPECT_FALSE(lame_.isDownloading());
    EXPECT_FALSE(QFileInfo::exists(lame_.userLamePath()));
    EXPECT_TRUE(QDir(AppPaths::dataDir()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot).isEmpty());
    EXPECT_EQ(lame_.progressText(), "");
}

TEST_F(LameWrapperTest, AFailedInstallKeepsTheToolThereWasAndSaysWhy)
{
    QDir().mkpath(AppPaths::dataDir());
    const QString old = tool("old/lame", "LAME old");
    ASSERT_TRUE(QFile::copy(old, lame_.userLamePath()));
    const QByteArray oldBytes = testsupport::readFile(lame_.userLamePath());
    testsupport::writeFile(dir_.filePath("staging/README"), "no tool here");
    tool("staging/lame", "LAME new");
    struct Case {
        const char* what;
        QUrl url;
        SafeFile::Step failingStep;
        bool inject;
        QString reason;
    };
    const std::vector<Case> cases{
        {"an archive without a lame", archive("readme.zip", {"README"}), SafeFile::Step::Create, false,
         "holds no lame program"},
        {"a failed rename", archive("lame.zip", {"lame"}), SafeFile::Step::Rename, true, "Cannot replace"},
        {"a failed flush", archive("lame.zip", {"lame"}), SafeFile::Step::Sync, true, "Cannot write"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const QString target = lame_.userLamePath();
        if (c.inject)
            SafeFile::setFaultInjector(
                [&](SafeFile::Step step, const QString& path) { return step == c.failingStep && path == target; });
        lame_.setDownloadUrl(c.url);
        QSignalSpy done(&lame_, &LameWrapper::downloadFinished);
        lame_.downloadLame();
        ASSERT_TRUE(done.wait(30000));
        SafeFile::setFaultInjector({});
        const std::shared_ptr<Job> job = lame_.downloadJob();
        EXPECT_EQ(job->result().outcome, JobResult::Outcome::Failed);
        EXPECT_TRUE(job->result().error.contains(c.reason)) << qPrintable(job->result().error);
        EXPECT_TRUE(JobList::shared().job(job->id()));  // the window shows why until dismissed
        EXPECT_EQ(testsupport::readFile(target), oldBytes);
        EXPECT_TRUE(QFileInfo(target).isExecutable());
        EXPECT_EQ(QDir(AppPaths::dataDir()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                  QStringList{"lame"});
        EXPECT_EQ(lame_.versionText(), "LAME old");
    }
}

} // namespace

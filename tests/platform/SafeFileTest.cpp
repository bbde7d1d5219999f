#include "platform/FileNames.h"
#include "platform/SafeFile.h"

#include "common/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

class SafeFileTest : public ::testing::Test {
protected:
    void TearDown() override { SafeFile::setFaultInjector({}); }
    QString path(const QString& name) const { return dir_.filePath(name); }
    // Everything in the folder, hidden files included.
    QStringList entries() const
    {
        return QDir(dir_.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot | QDir::System,
                                           QDir::Name);
    }
    static mode_t modeOf(const QString& file)
    {
        struct stat info {};
        ::lstat(QFile::encodeName(file).constData(), &info);
        return info.st_mode & 07777;
    }

    QTemporaryDir dir_;
};

// Runs body in a child process and returns its exit status (or 128 + signal).
template <typename Body>
int inChild(Body body)
{
    const pid_t pid = ::fork();
    if (pid == 0)
        ::_exit(body());
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace

TEST_F(SafeFileTest, AFailureAtAnyStepLeavesTheOldFileAndNothingElse)
{
    const QByteArray old = "old contents";
    const SafeFile::Step steps[] = {SafeFile::Step::Create, SafeFile::Step::Write, SafeFile::Step::Check,
                                    SafeFile::Step::Sync, SafeFile::Step::Rename};
    for (const SafeFile::Step failing : steps) {
        for (const bool copy : {false, true}) {
            testsupport::writeFile(path("song.mp3"), old);
            SafeFile::setFaultInjector([failing](SafeFile::Step step, const QString&) { return step == failing; });
            SafeFile::Replacement file(path("song.mp3"));
            const bool ok = (copy ? file.createCopy() : file.create()) && file.write("new contents") && file.commit();
            EXPECT_FALSE(ok) << int(failing);
            EXPECT_FALSE(file.errorString().isEmpty()) << int(failing);
            EXPECT_TRUE(file.errorString().contains("song.mp3")) << file.errorString().toStdString();
            EXPECT_EQ(testsupport::readFile(path("song.mp3")), old) << int(failing);
            EXPECT_EQ(entries(), QStringList{"song.mp3"}) << int(failing);
        }
    }
    // And the work-folder path a tool writes through.
    for (const SafeFile::Step failing : steps) {
        SafeFile::setFaultInjector([failing](SafeFile::Step step, const QString&) { return step == failing; });
        {
            SafeFile::WorkFolder work(path("song.mp3"));
            bool ok = work.isValid() && work.copyTarget();
            if (ok) {
                testsupport::writeFile(work.fileFor(), "made by a tool");
                ok = work.place(work.fileFor());
            }
            EXPECT_FALSE(ok) << int(failing);
        }
        EXPECT_EQ(testsupport::readFile(path("song.mp3")), old) << int(failing);
        EXPECT_EQ(entries(), QStringList{"song.mp3"}) << int(failing);
    }
}

TEST_F(SafeFileTest, ReplacesInOneStepKeepingTheModeAndTheLink)
{
    testsupport::writeFile(path("a.ogg"), "old");
    ::chmod(QFile::encodeName(path("a.ogg")).constData(), 0640);
    QFile::link(path("a.ogg"), path("link.ogg"));

    // A check that finds fault drops the new version.
    SafeFile::Replacement refused(path("link.ogg"));
    ASSERT_TRUE(refused.createCopy());
    EXPECT_EQ(testsupport::readFile(refused.path()), "old");  // the copy reads through its path
    ASSERT_TRUE(refused.write("garbage"));
    EXPECT_FALSE(refused.commit([](const QString&) { return QStringLiteral("audio changed"); }));
    EXPECT_EQ(refused.errorString(), "audio changed");
    EXPECT_EQ(testsupport::readFile(path("a.ogg")), "old");

    QString seen;
    SafeFile::Replacement file(path("link.ogg"));
    ASSERT_TRUE(file.create());
    ASSERT_TRUE(file.write("new"));
    ASSERT_TRUE(file.commit([&](const QString& made) {
        seen = QString::fromLatin1(testsupport::readFile(made));
        return QString();
    }));
    EXPECT_EQ(seen, "new");
    EXPECT_EQ(testsupport::readFile(path("a.ogg")), "new");
    EXPECT_TRUE(QFileInfo(path("link.ogg")).isSymLink());  // the link still points at the file
    EXPECT_EQ(modeOf(path("a.ogg")), 0640u);
    EXPECT_EQ(entries(), (QStringList{"a.ogg", "link.ogg"}));

    // A new file gets 0666 under the umask.
    const mode_t old = ::umask(027);
    EXPECT_TRUE(SafeFile::writeFile(path("new.m3u"), "#EXTM3U\n"));
    ::umask(old);
    EXPECT_EQ(modeOf(path("new.m3u")), 0640u);
}

TEST_F(SafeFileTest, ReadOnlyFilesAndFoldersAreRefusedByName)
{
    testsupport::writeFile(path("locked.m4a"), "mine");
    ::chmod(QFile::encodeName(path("locked.m4a")).constData(), 0444);
    QString error;
    EXPECT_FALSE(SafeFile::writeFile(path("locked.m4a"), "changed", &error));
    EXPECT_TRUE(error.contains("locked.m4a") && error.contains("read-only")) << error.toStdString();
    EXPECT_EQ(testsupport::readFile(path("locked.m4a")), "mine");
    EXPECT_EQ(modeOf(path("locked.m4a")), 0444u);
    EXPECT_FALSE(SafeFile::refusalToReplace(path(".")).isEmpty());  // not a regular file
    EXPECT_TRUE(SafeFile::refusalToReplace(path("absent.mp3")).isEmpty());
    EXPECT_EQ(entries(), QStringList{"locked.m4a"});
}

TEST_F(SafeFileTest, APlantedLinkAtAnyTemporaryNameIsNeverFollowed)
{
    // Someone expecting a fixed temporary name plants links to a victim.
    testsupport::writeFile(path("victim"), "precious");
    for (const char* name : {"a.mp3.tmp", ".a.mp3.tmp", "a.tmp", "F.tmp"})
        QFile::link(path("victim"), path(name));
    testsupport::writeFile(path("a.mp3"), "old");
    EXPECT_TRUE(SafeFile::writeFile(path("a.mp3"), "new"));
    EXPECT_EQ(testsupport::readFile(path("victim")), "precious");
    EXPECT_EQ(testsupport::readFile(path("a.mp3")), "new");
    // A reserved name is made with O_EXCL and never through a link either.
    EXPECT_FALSE(FileNames::reserve(path("F.tmp")));
    EXPECT_EQ(testsupport::readFile(path("victim")), "precious");
}

TEST_F(SafeFileTest, AFullDiskFailsTheWriteAndKeepsTheOldFile)
{
    const QByteArray old(64 * 1024, 'o');
    testsupport::writeFile(path("big.wav"), old);
    // The file size limit stands in for a full disk: writes past it fail with EFBIG.
    const int status = inChild([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit {32 * 1024, 32 * 1024};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        QString error;
        const bool ok = SafeFile::writeFile(path("big.wav"), QByteArray(100 * 1024, 'n'), &error);
        return ok ? 0 : error.contains("the disk is full") ? 3 : 4;
    });
    EXPECT_EQ(status, 3);
    EXPECT_EQ(testsupport::readFile(path("big.wav")), old);
    EXPECT_EQ(entries(), QStringList{"big.wav"});
}

TEST_F(SafeFileTest, AKillMidWriteLeavesTheOldFileOrTheWholeNewOne)
{
    const QByteArray old(256 * 1024, 'o');
    const QByteArray replacement(4 * 1024 * 1024, 'n');
    for (int delayUs : {0, 200, 2000, 20000}) {
        testsupport::writeFile(path("cover.mp3"), old);
        const pid_t pid = ::fork();
        if (pid == 0) {
            for (;;)
                SafeFile::writeFile(path("cover.mp3"), replacement);
        }
        ::usleep(useconds_t(delayUs));
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
        const QByteArray now = testsupport::readFile(path("cover.mp3"));
        EXPECT_TRUE(now == old || now == replacement) << delayUs << " " << now.size();
        // An unnamed new file goes with the process; at most one named one can
        // be caught between its naming and its rename.
        EXPECT_LE(entries().size(), 2) << entries().join(",").toStdString();
    }
}

TEST_F(SafeFileTest, ABatchReplacesEveryFileAtFinishAndNamesEachOneItCouldNot)
{
    // More files than one early finish takes, written from several threads, one rename failing.
    const int count = int(SafeFile::Batch::kStagedLimit) * 2 + 7;
    QStringList names;
    for (int i = 0; i < count; ++i) {
        names << QStringLiteral("%1 song.mp3").arg(i, 3, 10, QLatin1Char('0'));
        testsupport::writeFile(path(names.last()), "old " + names.last().toUtf8());
    }
    const QString failing = SafeFile::resolvedTarget(path(names.at(count - 3)));
    SafeFile::setFaultInjector(
        [failing](SafeFile::Step step, const QString& target) { return step == SafeFile::Step::Rename && target == failing; });
    SafeFile::Batch batch;
    std::atomic<int> next{0};
    std::atomic<int> handedOver{0};
    auto writer = [&] {
        const SafeFile::Batch::Use inBatch(batch);
        for (int i = next++; i < count; i = next++) {
            SafeFile::Replacement file(path(names.at(i)));
            if (file.create() && file.write("new " + names.at(i).toUtf8()) && file.commit())
                ++handedOver;
        }
    };
    std::thread other(writer);
    writer();
    other.join();
    EXPECT_EQ(handedOver, count);
    const QHash<QString, QString> notReplaced = batch.finish();
    ASSERT_EQ(notReplaced.keys(), QStringList{failing});
    EXPECT_TRUE(notReplaced.value(failing).contains(names.at(count - 3)));
    for (int i = 0; i < count; ++i)
        EXPECT_EQ(testsupport::readFile(path(names.at(i))), (i == count - 3 ? "old " : "new ") + names.at(i).toUtf8());
    EXPECT_EQ(entries().size(), count) << "temporaries left behind";

    // Outside the batch's thread guard a commit is whole again.
    EXPECT_TRUE(SafeFile::writeFile(path(names.first()), "alone"));
    EXPECT_EQ(testsupport::readFile(path(names.first())), "alone");
}

TEST_F(SafeFileTest, ABatchNotFinishedLeavesEveryTargetAsItWasEvenWhenKilled)
{
    for (const bool killed : {false, true}) {
        for (const char* name : {"a.mp3", "b.ogg"})
            testsupport::writeFile(path(name), "old");
        const int status = inChild([&] {
            SafeFile::Batch batch;
            const SafeFile::Batch::Use inBatch(batch);
            for (const char* name : {"a.mp3", "b.ogg"}) {
                SafeFile::Replacement file(path(name));
                if (!file.create() || !file.write("new") || !file.commit())
                    return 1;
            }
            // Handed over but not finished: nothing may show yet.
            if (testsupport::readFile(path("a.mp3")) != "old")
                return 2;
            if (killed)
                ::raise(SIGKILL);
            return 0;
        });
        EXPECT_EQ(status, killed ? 128 + SIGKILL : 0);
        EXPECT_EQ(testsupport::readFile(path("a.mp3")), "old");
        EXPECT_EQ(testsupport::readFile(path("b.ogg")), "old");
        EXPECT_EQ(entries(), (QStringList{"a.mp3", "b.ogg"}));
    }
}

TEST(FileNames, Utf8NamesAreCheckedEscapedAndFitted)
{
    struct Case {
        QByteArray bytes;
        bool valid;
        QString escaped;
    };
    const Case cases[] = {
        {"plain.mp3", true, "plain.mp3"},
        {"caf\xc3\xa9.mp3", true, QString::fromUtf8("caf\xc3\xa9.mp3")},
        {"caf\xe9.mp3", false, "caf\\xE9.mp3"},
        {"\xc0\xaf", false, "\\xC0\\xAF"},              // overlong "/"
        {"\xed\xa0\x80", false, "\\xED\\xA0\\x80"},    // a lone surrogate
        {"\xf0\x9f\x8e\xb5 song", true, QString::fromUtf8("\xf0\x9f\x8e\xb5 song")},
        {"cut\xe2\x82", false, "cut\\xE2\\x82"},
        {"tab\there", true, "tab\\x09here"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(FileNames::isValidUtf8(c.bytes), c.valid) << c.bytes.toStdString();
        EXPECT_EQ(FileNames::escaped(c.bytes), c.escaped) << c.bytes.toStdString();
    }

    // A long stem is cut on a character boundary; the tail stays whole.
    const QString stem = QString(200, QChar(0x00E9));  // 400 bytes of "é"
    const QString fitted = FileNames::fitName(stem, " 12.MP3");
    EXPECT_LE(fitted.toUtf8().size(), 255);
    EXPECT_GE(fitted.toUtf8().size(), 254);
    EXPECT_TRUE(fitted.endsWith(" 12.MP3"));
    EXPECT_TRUE(FileNames::isValidUtf8(fitted.toUtf8()));
    const QString emoji = QString::fromUtf8("\xf0\x9f\x8e\xb5").repeated(80);  // 320 bytes
    EXPECT_TRUE(FileNames::isValidUtf8(FileNames::fitName(emoji, ".ogg").toUtf8()));
    EXPECT_EQ(FileNames::fitName("short", ".mp3"), "short.mp3");
}

TEST(FileNames, UnreadableNamesAreFoundAndReported)
{
    QTemporaryDir dir;
    const QByteArray folder = QFile::encodeName(dir.path());
    for (const QByteArray& name : {QByteArray("good.mp3"), QByteArray("caf\xe9.mp3")}) {
        const int fd = ::open((folder + '/' + name).constData(), O_CREAT | O_WRONLY, 0644);
        ASSERT_GE(fd, 0);
        ::close(fd);
    }
    const QStringList unreadable = FileNames::unreadableNamesIn(dir.path());
    ASSERT_EQ(unreadable.size(), 1);
    EXPECT_EQ(unreadable.first(), dir.path() + "/caf\\xE9.mp3");
    EXPECT_TRUE(FileNames::unreadableNameMessage(unreadable.first()).contains("caf\\xE9.mp3"));
    // As text the bad name no longer reaches its file; the good one does.
    EXPECT_TRUE(FileNames::survivesAsText(dir.path() + "/good.mp3"));
    EXPECT_FALSE(FileNames::survivesAsText(QFile::decodeName(folder + "/caf\xe9.mp3")));
    ::unlink((folder + "/caf\xe9.mp3").constData());  // QDir cannot name it either
}

TEST(FileNames, AReservationIsExclusiveAndGoesBackOnlyWhileUntouched)
{
    QTemporaryDir dir;
    const QString name = dir.filePath("Song.MP3");
    EXPECT_TRUE(FileNames::reserve(name));
    EXPECT_FALSE(FileNames::reserve(name));  // the second batch entry or process must pick another
    EXPECT_TRUE(FileNames::isReserved(name));
    FileNames::release(name);
    EXPECT_FALSE(QFileInfo::exists(name));

    // A finished job renamed its result over the reservation: release keeps it.
    ASSERT_TRUE(FileNames::reserve(name));
    ASSERT_TRUE(SafeFile::writeFile(name, "encoded"));
    FileNames::release(name);
    EXPECT_EQ(testsupport::readFile(name), "encoded");
    EXPECT_FALSE(FileNames::isReserved(name));
    // A file that was never ours is never removed.
    FileNames::release(name);
    EXPECT_TRUE(QFileInfo::exists(name));
}

// Tag writes of every writable kind never lose a file: a failure at any step,
// a planted link, a read-only file, a full disk and a kill in mid-write all
// leave the old file (or, once renamed, the whole new one) and nothing else.
#include "platform/SafeFile.h"
#include "tags/AudioPayload.h"
#include "tags/TagFacade.h"

#include "Mp4Fixtures.h"
#include "TagFixtures.h"
#include "common/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QSet>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

struct Kind {
    const char* name;
    const char* extension;
    AudioPayload::Format payload;
    std::function<bool(const QString& path)> make;  // a small file with title "Old" and artist "Band"
    // Kills in mid-write; fewer for Ogg, whose writes of a 5 MB picture take
    // seconds under the sanitizers (libogg grows its packet a page at a time).
    int kills;
};

const Kind kKinds[] = {
    {"Mp3", "mp3", AudioPayload::Format::Mpeg,
     [](const QString& path) {
         fixtures::lameMp3(path, {"--tt", "Old", "--ta", "Band", "--add-id3v2"});
         return QFileInfo(path).size() > 0;
     },
     40},
    {"Ogg", "ogg", AudioPayload::Format::Ogg,
     [](const QString& path) {
         fixtures::oggVorbis(path, {"-t", "Old", "-a", "Band"});
         return QFileInfo(path).size() > 0;
     },
     12},
    {"M4a", "m4a", AudioPayload::Format::Mp4,
     [](const QString& path) {
         return fixtures::makeWithFfmpeg(
             path, {"-c:a", "aac", "-b:a", "64k", "-metadata", "title=Old", "-metadata", "artist=Band", "-f", "mp4"});
     },
     40},
};

mode_t modeOf(const QString& path)
{
    struct stat info {};
    ::lstat(QFile::encodeName(path).constData(), &info);
    return info.st_mode & 07777;
}

// A file ffmpeg decodes to the end without a complaint.
bool decodes(const QString& path)
{
    QByteArray output;
    return testsupport::run("ffmpeg", {"-v", "error", "-i", path, "-f", "null", "-"}, &output) == 0 &&
           output.trimmed().isEmpty();
}

QVariantList coverFrom(const QString& png)
{
    return {QVariantMap{{"Picture Type", "Cover (front)"},
                        {"Description", ""},
                        {"Mime Type", "image/png"},
                        {"Image", QImage(png)},
                        {"cachepath", png}}};
}

class SafeTagWrite : public ::testing::TestWithParam<Kind> {
protected:
    void SetUp() override
    {
        testsupport::useFreshHome();
        original_ = path(QStringLiteral("pristine.") + GetParam().extension);
        ASSERT_TRUE(GetParam().make(original_));
        before_ = testsupport::readFile(original_);
        file_ = path(QStringLiteral("song.") + GetParam().extension);
    }
    void TearDown() override { SafeFile::setFaultInjector({}); }

    QString path(const QString& name) const { return dir_.filePath(name); }
    // Puts the pristine file in place as song.EXT.
    void freshFile() const
    {
        QFile::remove(file_);
        ASSERT_TRUE(QFile::copy(original_, file_));
        ::chmod(QFile::encodeName(file_).constData(), 0644);
    }
    // Everything in the folder, hidden files included.
    QStringList entries() const
    {
        return QDir(dir_.path())
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot | QDir::System, QDir::Name);
    }
    QString title(const QString& file) const
    {
        return getComments(file).value_or(QVariantMap()).value("title").toString();
    }
    QString audioDifference(const QString& file) const
    {
        return AudioPayload::difference(GetParam().payload, original_, file);
    }

    QTemporaryDir dir_;
    QString original_;
    QString file_;
    QByteArray before_;
};

// Runs body in a child process that ignores SIGXFSZ under a file-size limit;
// its exit status, and what it wrote to its pipe in *said.
int withFileSizeLimit(rlim_t bytes, const std::function<QByteArray()>& body, QByteArray* said)
{
    int fds[2];
    if (::pipe(fds) != 0)
        return -1;
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::close(fds[0]);
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{bytes, bytes};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        const QByteArray text = body();
        const bool ok = ::write(fds[1], text.constData(), size_t(text.size())) == text.size();
        ::_exit(ok ? 0 : 3);
    }
    ::close(fds[1]);
    said->clear();
    char buffer[4096];
    for (ssize_t got; (got = ::read(fds[0], buffer, sizeof buffer)) > 0;)
        said->append(buffer, got);
    ::close(fds[0]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace

TEST_P(SafeTagWrite, AFailureAtAnyStepLeavesTheOldFileAndNothingElse)
{
    const SafeFile::Step steps[] = {SafeFile::Step::Create, SafeFile::Step::Write, SafeFile::Step::Check,
                                    SafeFile::Step::Sync, SafeFile::Step::Rename};
    const QStringList folder = {QFileInfo(original_).fileName(), QFileInfo(file_).fileName()};
    for (const SafeFile::Step failing : steps) {
        freshFile();
        SafeFile::setFaultInjector([failing](SafeFile::Step step, const QString&) { return step == failing; });
        const TagWriteResult result = writeTags(file_, {{"title", "New"}, {"artist", "Band"}}, nullptr);
        EXPECT_FALSE(result.written) << int(failing);
        EXPECT_TRUE(result.error.contains(QFileInfo(file_).fileName())) << result.error.toStdString();
        EXPECT_EQ(testsupport::readFile(file_), before_) << int(failing);
        EXPECT_EQ(entries(), folder) << int(failing);
    }
    // Without a fault the whole new version is in place and nothing else is left.
    SafeFile::setFaultInjector({});
    freshFile();
    const TagWriteResult result = writeTags(file_, {{"title", "New"}, {"artist", "Band"}}, nullptr);
    ASSERT_TRUE(result.written) << result.error.toStdString();
    EXPECT_TRUE(result.error.isEmpty());
    EXPECT_EQ(title(file_), "New");
    EXPECT_EQ(audioDifference(file_), "");
    EXPECT_EQ(entries(), folder);
}

TEST_P(SafeTagWrite, KeepsTheModeAndWritesThroughALinkIntoItsFile)
{
    freshFile();
    ::chmod(QFile::encodeName(file_).constData(), 0640);
    ASSERT_TRUE(QFile::link(file_, path(QStringLiteral("link.") + GetParam().extension)));
    const TagWriteResult result =
        writeTags(path(QStringLiteral("link.") + GetParam().extension), {{"title", "Linked"}}, nullptr);
    ASSERT_TRUE(result.written) << result.error.toStdString();
    EXPECT_TRUE(QFileInfo(path(QStringLiteral("link.") + GetParam().extension)).isSymLink());
    EXPECT_EQ(title(file_), "Linked");
    EXPECT_EQ(modeOf(file_), 0640u);
    EXPECT_EQ(audioDifference(file_), "");
    EXPECT_TRUE(decodes(file_));
    EXPECT_EQ(entries().size(), 3);
}

TEST_P(SafeTagWrite, LinksPlantedAtTemporaryNamesAreNeverFollowed)
{
    freshFile();
    testsupport::writeFile(path("victim"), "precious");
    // The fixed names older rewrites used, and what AtomicParsley names its own.
    const QStringList planted = {"song.tmp", QStringLiteral("song.%1.tmp").arg(GetParam().extension),
                                 QStringLiteral("song-temp-00001.%1").arg(GetParam().extension), "F.tmp"};
    for (const QString& name : planted)
        ASSERT_TRUE(QFile::link(path("victim"), path(name)));
    const TagWriteResult result = writeTags(file_, {{"title", "Planted"}}, nullptr);
    ASSERT_TRUE(result.written) << result.error.toStdString();
    EXPECT_EQ(title(file_), "Planted");
    EXPECT_EQ(testsupport::readFile(path("victim")), "precious");
    for (const QString& name : planted)
        EXPECT_TRUE(QFileInfo(path(name)).isSymLink()) << name.toStdString();
}

TEST_P(SafeTagWrite, AReadOnlyFileIsRefusedByNameAndKeepsItsModeAndBytes)
{
    freshFile();
    ::chmod(QFile::encodeName(file_).constData(), 0444);
    const QStringList folder = entries();
    const TagWriteResult result = writeTags(file_, {{"title", "Locked"}}, nullptr);
    EXPECT_FALSE(result.written);
    EXPECT_TRUE(result.error.contains(file_) && result.error.contains("read-only")) << result.error.toStdString();
    EXPECT_EQ(testsupport::readFile(file_), before_);
    EXPECT_EQ(modeOf(file_), 0444u);
    EXPECT_EQ(entries(), folder);
}

TEST_P(SafeTagWrite, AFullDiskFailsWithAMessageAndLeavesTheFileWhole)
{
    const QString picture = path("picture.png");
    ASSERT_TRUE(fixtures::makePicture(picture, "PNG", 64, 64));
    const QVariantList artwork = coverFrom(picture);
    const QStringList folder = {"picture.png", QFileInfo(original_).fileName(), QFileInfo(file_).fileName()};
    // No room for the copy; then room for the copy but not for the new tags and picture.
    for (const qint64 room : {before_.size() / 2, before_.size() + 64}) {
        freshFile();
        QByteArray said;
        const int status = withFileSizeLimit(
            rlim_t(room),
            [&] {
                const TagWriteResult result = writeTags(file_, {{"title", "Full"}}, &artwork);
                return result.written ? QByteArray("written") : result.error.toUtf8();
            },
            &said);
        EXPECT_EQ(status, 0) << room;
        EXPECT_TRUE(said.contains(QFileInfo(file_).fileName().toUtf8())) << said.toStdString();
        if (room < before_.size()) {
            EXPECT_TRUE(said.contains("the disk is full")) << said.toStdString();
        }
        EXPECT_EQ(testsupport::readFile(file_), before_) << said.toStdString();
        EXPECT_EQ(entries(), folder) << said.toStdString();
    }
}

TEST_P(SafeTagWrite, KillsInMidWriteWithABigCoverLeaveTheOldOrTheNewVersion)
{
    const QString cover = fixtures::noisePng(path("cover.png"), 5 << 20);
    freshFile();
    const QVariantList artwork = coverFrom(cover);
    ASSERT_TRUE(writeTags(file_, {{"title", "Version A"}, {"artist", "Band"}}, &artwork).written);
    const QSize coverSize = QImage(cover).size();
    ASSERT_GT(QFileInfo(file_).size(), 5 << 20);
    EXPECT_TRUE(decodes(file_));
    // A version is whole when its title is one of the two, its picture reads
    // and its audio is the original's (AtomicParsley stamps the time into the
    // file, so the bytes of two writes of the same title may differ).
    auto whole = [&](QString* which) {
        *which = title(file_);
        const QVariantList pictures = getAlbumArt(file_);
        return (*which == "Version A" || *which == "Version B") && pictures.size() == 1 &&
               pictures[0].toMap().value("Image").value<QImage>().size() == coverSize &&
               audioDifference(file_).isEmpty();
    };
    QString current;
    ASSERT_TRUE(whole(&current));
    const auto started = std::chrono::steady_clock::now();
    ASSERT_TRUE(writeTags(file_, {{"title", "Version B"}, {"artist", "Band"}}, nullptr).written);
    const auto oneWrite = std::chrono::steady_clock::now() - started;
    ASSERT_TRUE(whole(&current));
    ASSERT_EQ(current, "Version B");

    const int kills = GetParam().kills;
    // The kills spread from before the first write to the end of the second; on a
    // loaded machine some land outside a write, which proves nothing but is no fault.
    for (int kill = 0; kill < kills; ++kill) {
        const QString other = current == "Version A" ? "Version B" : "Version A";
        const pid_t pid = ::fork();
        if (pid == 0) {
            ::setpgid(0, 0);  // a kill reaches AtomicParsley too
            // Each write turns the version on disk into the other one.
            for (int round = 0;; ++round)
                writeTags(file_, {{"title", round % 2 ? current : other}, {"artist", "Band"}}, nullptr);
        }
        ::setpgid(pid, pid);
        // From the start of the first write to the end of the second.
        std::this_thread::sleep_for(oneWrite * kill * 2 / kills);
        ::kill(-pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
        const bool ok = whole(&current);
        EXPECT_TRUE(ok) << "kill " << kill << ": " << QFileInfo(file_).size() << " bytes, title "
                        << current.toStdString();
        if (!ok)
            break;
        // A kill between naming the new file and renaming it may leave that name; the next write is unaffected.
        for (const QString& left : QDir(dir_.path()).entryList({".velmora-*"}, QDir::AllEntries | QDir::Hidden))
            QFileInfo(path(left)).isDir() ? QDir(path(left)).removeRecursively() : QFile::remove(path(left));
    }
    EXPECT_TRUE(decodes(file_));
}

INSTANTIATE_TEST_SUITE_P(EveryWritableKind, SafeTagWrite, ::testing::ValuesIn(kKinds),
                         [](const ::testing::TestParamInfo<Kind>& info) { return std::string(info.param.name); });

namespace {

// AtomicParsley replaced by a script first on PATH.
class AtomicParsleyStandIn : public ::testing::Test {
protected:
    void SetUp() override
    {
        realTool_ = QStandardPaths::findExecutable("AtomicParsley");
        ASSERT_FALSE(realTool_.isEmpty());
        savedPath_ = qgetenv("PATH");
        file_ = dir_.filePath("song.m4a");
        ASSERT_TRUE(
            fixtures::makeWithFfmpeg(file_, {"-c:a", "aac", "-b:a", "64k", "-metadata", "title=Old", "-f", "mp4"}));
        before_ = testsupport::readFile(file_);
    }
    void TearDown() override { qputenv("PATH", savedPath_); }

    void standIn(const QByteArray& script)
    {
        const QString bin = dir_.filePath("bin");
        QDir().mkpath(bin);
        ASSERT_TRUE(testsupport::writeFile(bin + "/AtomicParsley", "#!/bin/sh\n" + script + "\n"));
        ::chmod(QFile::encodeName(bin + "/AtomicParsley").constData(), 0755);
        qputenv("PATH", QFile::encodeName(bin) + ':' + savedPath_);
    }
    // The file as it was, and nothing but it and the stand-in's folder.
    void expectLeftAsItWas() const
    {
        EXPECT_EQ(testsupport::readFile(file_), before_);
        EXPECT_EQ(QDir(dir_.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name),
                  (QStringList{"bin", "song.m4a"}));
    }

    QTemporaryDir dir_;
    QString realTool_;
    QByteArray savedPath_;
    QString file_;
    QByteArray before_;
};

} // namespace

TEST_F(AtomicParsleyStandIn, AHangingToolIsStoppedAtItsTimeLimit)
{
    standIn("exec sleep 60");
    const auto started = std::chrono::steady_clock::now();
    const TagWriteResult result = writeTags(file_, {{"title", "New"}}, nullptr);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(30));
    EXPECT_FALSE(result.written);
    EXPECT_TRUE(result.error.contains("did not finish") && result.error.contains(file_)) << result.error.toStdString();
    expectLeftAsItWas();
}

TEST_F(AtomicParsleyStandIn, AToolThatFailsIsReported)
{
    // It writes half a file first, as a tool on a full disk does.
    standIn("head -c 100 \"$1\" > \"$1.part\"; mv \"$1.part\" \"$1\"; exit 3");
    const TagWriteResult result = writeTags(file_, {{"title", "New"}}, nullptr);
    EXPECT_FALSE(result.written);
    EXPECT_TRUE(result.error.contains("exit status 3") && result.error.contains(file_)) << result.error.toStdString();
    expectLeftAsItWas();
}

TEST_F(AtomicParsleyStandIn, AToolThatChangesTheSamplesIsCaughtByTheAudioCheck)
{
    // The real tool, then four bytes in the middle of the samples overwritten.
    standIn("\"" + QFile::encodeName(realTool_) +
            "\" \"$@\" || exit $?\n"
            "size=$(stat -c %s \"$1\")\n"
            "printf 'ZZZZ' | dd of=\"$1\" bs=1 seek=$((size / 2)) conv=notrunc 2>/dev/null");
    const TagWriteResult result = writeTags(file_, {{"title", "New"}}, nullptr);
    EXPECT_FALSE(result.written);
    EXPECT_TRUE(result.error.contains("the audio would have changed; the file was left as it was"))
        << result.error.toStdString();
    expectLeftAsItWas();

    // The real tool alone passes the same check.
    qputenv("PATH", savedPath_);
    const TagWriteResult real = writeTags(file_, {{"title", "New"}}, nullptr);
    EXPECT_TRUE(real.written) << real.error.toStdString();
}

TEST(MalformedMp4, IsRefusedByTheAudioCheckAndLeftAsItWas)
{
    QTemporaryDir dir;
    const QString made = dir.filePath("made.m4a");
    ASSERT_TRUE(fixtures::makeWithFfmpeg(made, {"-c:a", "aac", "-b:a", "64k", "-f", "mp4"}));
    const QByteArray good = testsupport::readFile(made);
    const qsizetype moov = good.indexOf("moov") - 4;
    const qsizetype mdat = good.indexOf("mdat");
    ASSERT_GT(moov, mdat);  // ffmpeg puts the movie atom last
    struct Case {
        const char* name;
        qsizetype at;
        QByteArray bytes;
    };
    const Case cases[] = {
        {"moov of size 0", moov, QByteArray(4, '\0')},
        {"unprintable type for the media data", mdat, QByteArray("\x7F\x80\x81\x82", 4)},
    };
    for (const Case& c : cases) {
        const QString file = dir.filePath("broken.m4a");
        QByteArray bytes = good;
        bytes.replace(c.at, c.bytes.size(), c.bytes);
        ASSERT_TRUE(testsupport::writeFile(file, bytes));
        const TagWriteResult result = writeTags(file, {{"title", "New"}}, nullptr);
        EXPECT_FALSE(result.written) << c.name;
        EXPECT_TRUE(result.error.contains("the audio would have changed"))
            << c.name << ": " << result.error.toStdString();
        EXPECT_EQ(testsupport::readFile(file), bytes) << c.name;
        EXPECT_EQ(QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name),
                  (QStringList{"broken.m4a", "made.m4a"}))
            << c.name;
    }
}

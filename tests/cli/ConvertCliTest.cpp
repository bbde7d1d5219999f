#include "../encode/EncodeTestSupport.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

class ConvertCliTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(QDir().mkpath(dir_.filePath("in/Disc 1")));
        for (const char* name : {"in/a.wav", "in/Disc 1/b.wav"})
            ASSERT_EQ(testsupport::run("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16", dir_.filePath(name), "synth",
                                               "1", "sine", "440"}),
                      0);
    }
    int convert(const QStringList& arguments, QByteArray* output)
    {
        return testsupport::run(testsupport::builtProgram("velmora-cli"), QStringList{"convert"} + arguments, output);
    }
    QStringList filesUnder(const QString& folder)
    {
        QStringList files;
        QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (it.hasNext())
            files << it.next().mid(folder.size() + 1);
        files.sort();
        return files;
    }
    // Every entry of a folder, hidden ones (private work folders) included.
    static QStringList entries(const QString& folder)
    {
        return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                                      QDir::Name);
    }
    // The destinations of the "[n] source -> destination" lines.
    static QStringList printedDestinations(const QByteArray& output)
    {
        QStringList destinations;
        const QRegularExpression line(QStringLiteral("^\\[\\d+\\] .* -> (.*)$"), QRegularExpression::MultilineOption);
        for (auto it = line.globalMatch(QString::fromUtf8(output)); it.hasNext();)
            destinations << it.next().captured(1);
        return destinations;
    }
    // Runs a program with arguments as bytes (QProcess would make them text first).
    static int runWithBytes(std::vector<QByteArray> arguments, QByteArray* output)
    {
        std::vector<char*> argv;
        for (QByteArray& argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        int fds[2];
        if (::pipe(fds) != 0)
            return -1;
        const pid_t pid = ::fork();
        if (pid == 0) {
            ::dup2(fds[1], 1);
            ::dup2(fds[1], 2);
            ::execv(argv[0], argv.data());
            ::_exit(127);
        }
        ::close(fds[1]);
        output->clear();
        char buffer[4096];
        for (ssize_t got; (got = ::read(fds[0], buffer, sizeof buffer)) > 0;)
            output->append(buffer, got);
        ::close(fds[0]);
        int status = 0;
        ::waitpid(pid, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    static bool makeTone(const QString& path, double seconds, int frequency = 440)
    {
        QDir().mkpath(QFileInfo(path).path());
        return encodetest::makeTone(path, seconds, 44100, 2, {"-b", "16"}, frequency);
    }
    QTemporaryDir dir_;
};

} // namespace

TEST_F(ConvertCliTest, ConvertsFoldersIntoSubFoldersWithUniqueNamesAndASummary)
{
    const QString out = dir_.filePath("out");
    QByteArray output;
    ASSERT_EQ(convert({"--to", "mp3", "--out", out, dir_.filePath("in")}, &output), 0) << output.constData();
    EXPECT_EQ(filesUnder(out), (QStringList{"in/Disc 1/b.MP3", "in/a.MP3"}));
    EXPECT_TRUE(output.contains("2 written, 0 failed")) << output.constData();
    EXPECT_TRUE(output.contains("-> " + out.toUtf8() + "/in/a.MP3")) << output.constData();

    // Again: unique names; flat: side by side.
    ASSERT_EQ(convert({"--to", "MP3", "--out", out, dir_.filePath("in/a.wav")}, &output), 0) << output.constData();
    EXPECT_TRUE(QFileInfo::exists(out + "/a.MP3") || QFileInfo::exists(out + "/a 1.MP3"));
    ASSERT_EQ(convert({"--to", "COPY", "--flat", "--out", out + "/flat", dir_.filePath("in")}, &output), 0);
    EXPECT_EQ(filesUnder(out + "/flat"), (QStringList{"a.WAV", "b.WAV"}));
}

TEST_F(ConvertCliTest, BadSourcesAreReportedAndTheBatchGoesOn)
{
    testsupport::writeFile(dir_.filePath("in/broken.wav"), QByteArray("RIFF\x10\0\0\0WAVEjunkjunk", 20));
    const QString out = dir_.filePath("out");
    QByteArray output;
    EXPECT_EQ(convert({"--to", "MP2", "--out", out, dir_.filePath("in"), dir_.filePath("missing.mp3")}, &output), 1);
    EXPECT_TRUE(output.contains("missing.mp3: no such file or folder")) << output.constData();
    EXPECT_TRUE(output.contains("failed: " + dir_.filePath("in/broken.wav").toUtf8())) << output.constData();
    EXPECT_TRUE(output.contains("2 written, 2 failed")) << output.constData();
    EXPECT_EQ(filesUnder(out), (QStringList{"in/Disc 1/b.MP2", "in/a.MP2"}));

    // A destination that cannot be made: said once, nothing written.
    testsupport::writeFile(dir_.filePath("blocker"), "a file in the way");
    EXPECT_EQ(convert({"--to", "WAV", "--out", dir_.filePath("blocker/out"), dir_.filePath("in")}, &output), 1);
    EXPECT_EQ(output.count("cannot create"), 1) << output.constData();
}

TEST_F(ConvertCliTest, InterruptCancelsAndLeavesNoPartialOutput)
{
    // Enough long files that the batch is still running when interrupted.
    ASSERT_TRUE(QDir().mkpath(dir_.filePath("long")));
    for (int i = 0; i < 6; ++i)
        ASSERT_EQ(testsupport::run("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16",
                                           dir_.filePath(QStringLiteral("long/%1.wav").arg(i)), "synth", "40", "sine", "440"}),
                  0);
    const QString out = dir_.filePath("out");
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(testsupport::builtProgram("velmora-cli"), {"convert", "--to", "MP3", "--out", out, dir_.filePath("long")});
    ASSERT_TRUE(process.waitForStarted());
    QByteArray output;
    while (!output.contains("->") && process.waitForReadyRead(20000))
        output += process.readAll();
    ASSERT_TRUE(output.contains("->")) << output.constData();
    ::kill(pid_t(process.processId()), SIGINT);
    ASSERT_TRUE(process.waitForFinished(60000));
    output += process.readAll();
    EXPECT_EQ(process.exitCode(), 130) << output.constData();
    EXPECT_TRUE(output.contains("cancelled")) << output.constData();
    // Whatever is there is a whole file: ffprobe reads 40 seconds of it.
    for (const QString& file : filesUnder(out)) {
        QByteArray probe;
        testsupport::run("ffprobe", {"-v", "error", "-show_entries", "format=duration", "-of", "csv=p=0", out + '/' + file},
                         &probe);
        EXPECT_NEAR(probe.trimmed().toDouble(), 40.0, 0.5) << file.toStdString();
    }
    EXPECT_LT(filesUnder(out).size(), 6);
    // No reserved name, private work folder or intermediate is left behind.
    for (const QString& name : entries(out + "/long"))
        EXPECT_FALSE(name.startsWith('.')) << name.toStdString();
    EXPECT_EQ(QDir(testsupport::homeDir() + "/.cache/Velmora").entryList({"musiccache*"}, QDir::Files), QStringList());
}

TEST_F(ConvertCliTest, ConcurrentConvertsIntoOneFolderMakeDistinctWholeFiles)
{
    // Four runs of eight like-named sources each, all flat into one folder: 32
    // files, each holding the audio of its own source.
    QSet<int> frequencies;
    for (int run = 0; run < 4; ++run) {
        for (int i = 0; i < 8; ++i) {
            const int frequency = 300 + 100 * (8 * run + i);
            frequencies << frequency;
            ASSERT_TRUE(makeTone(dir_.filePath(QStringLiteral("run%1/t%2.wav").arg(run).arg(i)), 1, frequency));
        }
    }
    const QString out = dir_.filePath("together");
    std::vector<std::unique_ptr<QProcess>> runs;
    for (int run = 0; run < 4; ++run) {
        auto process = std::make_unique<QProcess>();
        process->setProcessChannelMode(QProcess::MergedChannels);
        process->start(testsupport::builtProgram("velmora-cli"), {"convert", "--to", "MP3", "--flat", "--out", out,
                                                                  dir_.filePath(QStringLiteral("run%1").arg(run))});
        runs.push_back(std::move(process));
    }
    for (auto& process : runs) {
        ASSERT_TRUE(process->waitForFinished(120000));
        const QByteArray output = process->readAll();
        EXPECT_EQ(process->exitCode(), 0) << output.constData();
        EXPECT_TRUE(output.contains("8 written, 0 failed, 0 skipped")) << output.constData();
    }
    const QStringList made = entries(out);
    ASSERT_EQ(made.size(), 32) << made.join(", ").toStdString();
    QSet<int> heard;
    for (const QString& name : made) {
        const encodetest::Tone tone = encodetest::measureTone(out + '/' + name);
        EXPECT_NEAR(tone.seconds, 1.0, 0.1) << name.toStdString();
        heard << int(std::lround(tone.frequency / 100.0) * 100);
    }
    EXPECT_EQ(heard, frequencies);
}

TEST_F(ConvertCliTest, LikeNamedSourcesInOneFolderGetANameEach)
{
    // a.mp3, a.ogg and a.wav all become "a" MP3s: three files, three names.
    const QString in = dir_.filePath("same");
    ASSERT_TRUE(makeTone(in + "/a.wav", 3));
    ASSERT_TRUE(makeTone(dir_.filePath("two.wav"), 2));
    ASSERT_EQ(testsupport::run("oggenc", {"-Q", dir_.filePath("two.wav"), "-o", in + "/a.ogg"}), 0);
    ASSERT_TRUE(makeTone(dir_.filePath("one.wav"), 1));
    ASSERT_EQ(testsupport::run("lame", {"--quiet", dir_.filePath("one.wav"), in + "/a.mp3"}), 0);
    const QString out = dir_.filePath("out");
    QByteArray output;
    ASSERT_EQ(convert({"--to", "MP3", "--out", out, in}, &output), 0) << output.constData();
    const QStringList printed = printedDestinations(output);
    EXPECT_EQ(QSet<QString>(printed.begin(), printed.end()).size(), 3) << output.constData();
    EXPECT_EQ(entries(out + "/same"), (QStringList{"a 1.MP3", "a 2.MP3", "a.MP3"}));
    QList<int> seconds;
    for (const QString& name : entries(out + "/same"))
        seconds << int(std::lround(encodetest::measureTone(out + "/same/" + name).seconds));
    std::sort(seconds.begin(), seconds.end());
    EXPECT_EQ(seconds, (QList<int>{1, 2, 3}));
}

TEST_F(ConvertCliTest, LongNamesAreShortenedToFitTheFileSystem)
{
    // 250 and 255 bytes: the names the file system allows, converted twice.
    const QString in = dir_.filePath("long");
    const QString stem250 = QString(246, QChar(u'x'));
    const QString stem255 = QString(125, QChar(u'\u00e9')) + "y";  // two bytes a letter: 251 bytes
    ASSERT_TRUE(makeTone(in + '/' + stem250 + ".wav", 1));
    ASSERT_TRUE(makeTone(in + '/' + stem255 + ".wav", 1));
    const QString out = dir_.filePath("out");
    QByteArray output;
    for (int pass = 0; pass < 2; ++pass)
        ASSERT_EQ(convert({"--to", "MP3", "--flat", "--out", out, in}, &output), 0) << output.constData();
    // The numbered copy of the 255-byte name loses two letters of its stem, never its number.
    const QString shortened = QString(124, QChar(u'\u00e9')) + " 1.MP3";
    EXPECT_EQ(entries(out), (QStringList{stem250 + " 1.MP3", stem250 + ".MP3", shortened, stem255 + ".MP3"}));
    for (const QString& name : entries(out)) {
        EXPECT_LE(name.toUtf8().size(), 255);
        EXPECT_NEAR(encodetest::measureTone(out + '/' + name).seconds, 1.0, 0.1);
    }
}

TEST_F(ConvertCliTest, AFullDiskFailsEveryFileAndGivesTheNamesBack)
{
    const QString in = dir_.filePath("big");
    for (const char* name : {"one.wav", "two.wav"})
        ASSERT_TRUE(makeTone(in + '/' + name, 10));
    const QString out = dir_.filePath("out");
    QByteArray output;
    EXPECT_EQ(testsupport::run("prlimit",
                               {"--fsize=16000", testsupport::builtProgram("velmora-cli"), "convert", "--to", "MP3",
                                "--flat", "--out", out, in},
                               &output),
              1)
        << output.constData();
    EXPECT_TRUE(output.contains("0 written, 2 failed")) << output.constData();
    for (const char* name : {"one.wav", "two.wav"})
        EXPECT_TRUE(output.contains("failed: " + (in + '/' + name).toUtf8() + ": Cannot write")) << output.constData();
    EXPECT_TRUE(output.contains("it reached the largest file size this process may write")) << output.constData();
    EXPECT_EQ(entries(out), QStringList());
}

TEST_F(ConvertCliTest, OutputFoldersFollowTheUmaskAndTheCacheIsPrivate)
{
    const QString cache = dir_.filePath("cache");
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_CACHE_HOME", cache);
    process.setProcessEnvironment(environment);
    process.setChildProcessModifier([] { ::umask(027); });
    const QString out = dir_.filePath("out");
    process.start(testsupport::builtProgram("velmora-cli"),
                  {"convert", "--to", "OGG", "--out", out + "/new/deeper", dir_.filePath("in")});
    ASSERT_TRUE(process.waitForFinished(60000));
    ASSERT_EQ(process.exitCode(), 0) << process.readAll().constData();
    const auto mode = [](const QString& path) {
        struct stat info {};
        return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 07777 : 0u;
    };
    for (const QString& folder :
         {out, out + "/new", out + "/new/deeper", out + "/new/deeper/in", out + "/new/deeper/in/Disc 1"})
        EXPECT_EQ(mode(folder), 0750u) << folder.toStdString();
    EXPECT_EQ(mode(out + "/new/deeper/in/a.OGG"), 0640u);
    EXPECT_EQ(mode(cache + "/Velmora"), 0700u);
    EXPECT_EQ(entries(cache + "/Velmora"), QStringList());  // the intermediates went
}

TEST_F(ConvertCliTest, NamesThatAreNotUtf8AreReportedAndCountedByEveryWalk)
{
    // A file and a folder whose names are Latin-1, not UTF-8; a text file too,
    // which no walk would have taken anyway.
    const QByteArray in = QFile::encodeName(dir_.filePath("in"));
    ASSERT_TRUE(makeTone(dir_.filePath("latin.wav"), 1));
    ASSERT_EQ(::rename(QFile::encodeName(dir_.filePath("latin.wav")).constData(), (in + "/caf\xe9.wav").constData()),
              0);
    ASSERT_EQ(::mkdir((in + "/Disc \xe9").constData(), 0777), 0);
    ASSERT_TRUE(makeTone(dir_.filePath("in/Disc 1/hidden.wav"), 1));
    ASSERT_EQ(::rename(QFile::encodeName(dir_.filePath("in/Disc 1/hidden.wav")).constData(),
                       (in + "/Disc \xe9/inside.wav").constData()),
              0);
    ::close(::open((in + "/notes \xe9.txt").constData(), O_CREAT | O_WRONLY, 0644));
    const QString file = dir_.filePath("in") + "/caf\\xE9.wav";
    const QString folder = dir_.filePath("in") + "/Disc \\xE9";
    const auto reported = [](const QByteArray& output, const QString& path) {
        return output.contains(("Skipped \"" + path + "\": its name is not valid UTF-8").toUtf8());
    };

    const QString out = dir_.filePath("out");
    QByteArray output;
    EXPECT_EQ(convert({"--to", "MP3", "--out", out, dir_.filePath("in")}, &output), 1) << output.constData();
    EXPECT_TRUE(reported(output, file)) << output.constData();
    EXPECT_TRUE(reported(output, folder)) << output.constData();
    EXPECT_FALSE(output.contains("notes")) << output.constData();
    EXPECT_TRUE(output.contains("2 written, 0 failed, 2 skipped")) << output.constData();

    ASSERT_EQ(testsupport::run(testsupport::builtProgram("velmora-cli"), {"collect", dir_.filePath("in")}, &output), 0);
    EXPECT_TRUE(reported(output, file) && reported(output, folder)) << output.constData();
    EXPECT_TRUE(output.contains("2 collected, 2 skipped")) << output.constData();

    ASSERT_EQ(testsupport::run(testsupport::builtProgram("velmora-cli"), {"library", dir_.filePath("in")}, &output), 0);
    EXPECT_TRUE(reported(output, file) && reported(output, folder)) << output.constData();
    EXPECT_TRUE(output.contains("\n2 skipped\n")) << output.constData();
    EXPECT_FALSE(output.contains("\xef\xbf\xbd")) << output.constData();  // no mangled name is listed

    // A single name given that cannot be handled is refused by name.
    EXPECT_EQ(runWithBytes({QFile::encodeName(testsupport::builtProgram("velmora-cli")), "convert", "--to", "MP3",
                            "--out", QFile::encodeName(out), in + "/caf\xe9.wav"},
                           &output),
              1);
    EXPECT_TRUE(reported(output, file)) << output.constData();
}

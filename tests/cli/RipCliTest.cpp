#include "tabs/RipFixtures.h"

#include "encode/EncodeTestSupport.h"

#include <QProcess>

#include <csignal>

using namespace ripfixtures;

namespace {

struct CliRun {
    int exitCode = -1;
    QStringList printed;  // standard output, one file a line
    QString err;
};

CliRun rip(const QStringList& arguments, const QStringList& before = {})
{
    QProcess process;
    const QStringList command = before + QStringList{testsupport::builtProgram("velmora-cli"), "rip"} + arguments;
    process.start(command.first(), command.mid(1));
    CliRun result;
    if (!process.waitForStarted(10000) || !process.waitForFinished(240000))
        return result;
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.printed = QString::fromUtf8(process.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    result.printed.sort();
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
}

// An environment whose PATH starts with a cd-paranoia that runs `before` (a
// shell line) and then the real one, and `after` with its exit code kept.
QProcessEnvironment wrappedCdParanoia(const QString& folder, const QString& before, const QString& after = {})
{
    QDir().mkpath(folder);
    const QString tool = folder + "/cd-paranoia";
    testsupport::writeFile(tool, QStringLiteral("#!/bin/sh\n%1\n/usr/bin/cd-paranoia \"$@\"\ncode=$?\n%2\nexit $code\n")
                                     .arg(before, after)
                                     .toUtf8());
    QFile::setPermissions(tool, QFile::ReadOwner | QFile::ExeOwner);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("PATH", folder + ':' + environment.value("PATH"));
    return environment;
}

}  // namespace

TEST(RipCli, RipsTheChosenTracksIntoEveryTypeAsNamedAndPrintsEachFile)
{
    QTemporaryDir dir;
    const Image image = writeImage(dir.filePath("image"), "disc", disc({audio(150), audio(150), audio(150)}));
    CddbServer server(cddbAnswer);
    const QString out = dir.filePath("out");
    const CliRun run = rip({"--to", "ogg,MP3", "--out", out, "--tracks", "1,3", "--custom",
                            "[Track]-[artist]-[TITLE].[ext]", "--subfolders", "--type-folder", "--lowercase-folders",
                            "--server", QStringLiteral("127.0.0.1:%1").arg(server.port()), "--log", image.cue});
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.err);
    // Track 3 is by Guest, who took over from track 2 on.
    const QStringList expected{out + "/band/record/mp3/01-band-ALPHA.mp3", out + "/band/record/ogg/01-band-ALPHA.ogg",
                               out + "/band/record/ogg/Band - Record.log", out + "/guest/record/mp3/03-guest-GAMMA.mp3",
                               out + "/guest/record/ogg/03-guest-GAMMA.ogg"};
    EXPECT_EQ(run.printed, expected) << qPrintable(run.err);
    EXPECT_EQ(encodetest::probe(expected[0]).tags.value("title").toString(), "Alpha");
    EXPECT_TRUE(run.err.contains("5 written, 0 failed")) << qPrintable(run.err);

    EXPECT_EQ(rip({"--to", "FLAC", "--out", out, image.cue}).exitCode, 2);
    EXPECT_EQ(rip({"--to", "MP3", "--out", out, "--tracks", "2-1", image.cue}).exitCode, 2);
    const CliRun missing = rip({"--to", "MP3", "--out", out, "--no-cddb", "--tracks", "4", image.cue});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_TRUE(missing.err.contains("the disc has no audio track 4")) << qPrintable(missing.err);
}

TEST(RipCli, AFullOutputFolderFailsTheTrackThatDoesNotFitAndLeavesNoPartOfIt)
{
    QTemporaryDir dir;
    const Image image = writeImage(dir.filePath("image"), "disc", disc({audio(75), audio(300)}));
    const QString out = dir.filePath("out");
    // Room for the one-second track's WAV, not for the four-second one's.
    const CliRun run = rip({"--to", "WAV", "--out", out, "--no-cddb", image.cue}, {"prlimit", "--fsize=400000"});
    EXPECT_EQ(run.exitCode, 1) << qPrintable(run.err);
    EXPECT_EQ(run.printed, QStringList{out + "/01 Title Missing.wav"});
    EXPECT_TRUE(run.err.contains("Track 02 (Title Missing): Cannot write \"" + out +
                                 "/02 Title Missing.wav\": it "
                                 "reached the largest file size this process may write."))
        << qPrintable(run.err);
    EXPECT_EQ(RipFixture::filesUnder(out), QStringList{"01 Title Missing.wav"});
}

TEST(RipCli, InterruptCancelsLeavingOnlyWholeFiles)
{
    QTemporaryDir dir;
    QList<TrackPlan> tracks;
    for (int i = 0; i < 6; ++i)
        tracks << audio(75 * 20);
    const Image image = writeImage(dir.filePath("image"), "disc", disc(tracks));
    const QString out = dir.filePath("out");
    QProcess process;
    // Each read takes a second more, so the interrupt always lands while tracks are
    // still to be read, however loaded the machine.
    QProcessEnvironment environment = wrappedCdParanoia(dir.filePath("bin"), "sleep 1");
    environment.insert("XDG_CACHE_HOME", dir.filePath("cache"));
    process.setProcessEnvironment(environment);
    process.start(testsupport::builtProgram("velmora-cli"),
                  {"rip", "--to", "MP3", "--out", out, "--no-cddb", image.cue});
    ASSERT_TRUE(process.waitForStarted());
    process.setReadChannel(QProcess::StandardError);  // wake on progress lines, not on files made
    QByteArray err;
    while (!err.contains("Converting 02 Audio Track.cdda to MP3") && process.waitForReadyRead(60000))
        err += process.readAllStandardError();
    ASSERT_TRUE(err.contains("Converting 02 Audio Track.cdda to MP3")) << err.constData();
    ::kill(pid_t(process.processId()), SIGINT);
    ASSERT_TRUE(process.waitForFinished(120000));
    err += process.readAllStandardError();
    EXPECT_EQ(process.exitCode(), 130) << err.constData();
    const QStringList made = RipFixture::filesUnder(out);
    EXPECT_LT(made.size(), 6) << err.constData();
    for (const QString& file : made)
        EXPECT_NEAR(encodetest::probe(out + '/' + file).duration, 20.0, 0.1) << qPrintable(file) << err.constData();
    // No reserved name, work folder or intermediate is left.
    EXPECT_EQ(RipFixture::filesUnder(dir.filePath("cache/Velmora")), QStringList()) << err.constData();
}

TEST(RipCli, TwoRipsOfOneDiscNeverReadItAtOnce)
{
    QTemporaryDir dir;
    const Image image = writeImage(dir.filePath("image"), "disc", disc({audio(75), audio(75), audio(75)}));
    // A cd-paranoia first on PATH that notes when each read begins and ends.
    const QString log = dir.filePath("reads");
    const QProcessEnvironment environment = wrappedCdParanoia(
        dir.filePath("bin"), QStringLiteral("echo begin >> '%1'\nsleep 0.3").arg(log), QStringLiteral("echo end >> '%1'").arg(log));
    QProcess first, second;
    for (QProcess* process : {&first, &second}) {
        process->setProcessEnvironment(environment);
        process->start(
            testsupport::builtProgram("velmora-cli"),
            {"rip", "--to", "WAV", "--out", dir.filePath(process == &first ? "a" : "b"), "--no-cddb", image.cue});
    }
    for (QProcess* process : {&first, &second}) {
        ASSERT_TRUE(process->waitForFinished(120000));
        EXPECT_EQ(process->exitCode(), 0) << process->readAllStandardError().constData();
    }
    EXPECT_EQ(testsupport::readFile(log), QByteArray("begin\nend\n").repeated(6));
}

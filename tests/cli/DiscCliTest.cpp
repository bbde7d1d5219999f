#include "common/DiscFixtures.h"
#include "common/TestSupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace discfixtures;

namespace {

using CliRun = testsupport::Outcome;

// velmora-cli with standard output and error apart (the JSON is read from the first).
CliRun cli(const QStringList& arguments)
{
    return testsupport::runApart(testsupport::builtProgram("velmora-cli"), arguments);
}

class DiscCommand : public ::testing::Test {
protected:
    QTemporaryDir dir{testsupport::homeDir() + "/disc-cli-XXXXXX"};
};

TEST_F(DiscCommand, PrintsEachImageInTheOrderGivenAndReportsTheBadOnes)
{
    const Image first = writeImage(dir.path() + "/1", "first", disc({audio(75 * 3 + 20), data(75 * 5)}));
    const Image second = writeImage(dir.path() + "/2", "second", disc({audio(75 * 2), audio(75 * 2 + 1, 40)}, "Named"));
    testsupport::writeFile(dir.path() + "/broken.cue",
                           "FILE \"absent.bin\" BINARY\nTRACK 01 AUDIO\nINDEX 01 00:00:00\n");

    const CliRun text = cli({"disc", "--no-cddb", second.cue, dir.path() + "/broken.cue", first.cue});
    EXPECT_EQ(text.exitCode, 1);
    EXPECT_TRUE(text.err.contains("Cannot open the disc image " + dir.path() +
                                  "/broken.cue: the image file “absent.bin” "
                                  "it names is missing"))
        << qPrintable(text.err);
    const QString out = QString::fromUtf8(text.out);
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR") + "/com.dorvane.velmora/";
    EXPECT_EQ(out.toStdString(), QString("cdpath: " + runtime + "Named\nsource: " + second.cue +
                                         "\ndiscid: " + routineQuery(second.starts, second.sectors) +
                                         "\ntracks:\n  01  audio  first sector 0  length 190\n"
                                         "  02  audio  first sector 190  length 151\n\n"
                                         "cdpath: " +
                                         runtime + "Audio CD\nsource: " + first.cue +
                                         "\ndiscid: " + routineQuery(first.starts, first.sectors) +
                                         "\ntracks:\n  01  audio  first sector 0  length 245\n"
                                         "  02  data   first sector 245  length 375\n")
                                     .toStdString());
    // The folders last while the command runs.
    EXPECT_FALSE(QFileInfo::exists(runtime + "Named"));

    const CliRun json = cli({"disc", "--json", "--no-cddb", first.cue});
    EXPECT_EQ(json.exitCode, 0) << qPrintable(json.err);
    const QJsonArray discs = QJsonDocument::fromJson(json.out).array();
    ASSERT_EQ(discs.size(), 1);
    const QJsonObject disc = discs[0].toObject();
    EXPECT_EQ(disc.value("discid").toString(), routineQuery(first.starts, first.sectors));
    EXPECT_EQ(disc.value("cdpath").toString(), runtime + "Audio CD");
    EXPECT_EQ(disc.value("freedbtitle").toString(), runtime + "Audio CD");
    EXPECT_EQ(disc.value("source").toString(), first.cue);
    EXPECT_FALSE(disc.contains("mFreeDBAlbumList"));
    EXPECT_FALSE(disc.contains("freedbwrapper"));
    const QJsonArray tracks = disc.value("tracks").toArray();
    ASSERT_EQ(tracks.size(), 2);
    EXPECT_EQ(tracks[1].toObject(),
              (QJsonObject{{"number", 2}, {"firstsector", 245}, {"length", 375}, {"audio", false}}));
}

TEST_F(DiscCommand, LooksTheDiscsUpOnTheServerGiven)
{
    const Image image = writeImage(dir.path(), "looked", disc({audio(75 * 4), audio(75 * 5)}));
    const QString query = routineQuery(image.starts, image.sectors);
    const QByteArray entry = CddbServer::lines({"210 folk x", "DYEAR=2001", "TTITLE0=One", "TTITLE1=Two", "."});
    CddbServer server([&](const QString& target) {
        if (target.contains("cmd=cddb+query+" + query + "&"))
            return CddbServer::Answer{CddbServer::lines({"211 close matches", "rock " + query.left(8) + " Band / Album",
                                                         "folk " + query.left(8) + " Band / Album", "."})};
        if (target.contains("cmd=cddb+read+folk+" + query.left(8) + "&"))
            return CddbServer::Answer{
                CddbServer::lines({"210 folk x", "DYEAR=2001", "TTITLE0=One", "TTITLE1=Two", "."})};
        return CddbServer::Answer{"500 unexpected\r\n"};
    });

    const CliRun json =
        cli({"disc", "--json", "--server", QString("127.0.0.1:%1/x/cddb.cgi").arg(server.port()), image.cue});
    ASSERT_EQ(json.exitCode, 0) << qPrintable(json.err);
    EXPECT_EQ(server.requests().size(), 2);
    EXPECT_TRUE(server.requests().value(0).startsWith("/x/cddb.cgi?cmd=cddb+query+" + query + "&hello="));
    const QJsonObject disc = QJsonDocument::fromJson(json.out).array()[0].toObject();
    EXPECT_EQ(disc.value("freedbtitle").toString(), "Band / Album");
    const QJsonArray albums = disc.value("mFreeDBAlbumList").toArray();
    ASSERT_EQ(albums.size(), 1);
    EXPECT_EQ(albums[0].toObject().value("genre").toString(), "rock");
    const QJsonArray info = disc.value("mFreeDBTrackList").toArray();
    ASSERT_EQ(info.size(), 2);
    EXPECT_EQ(info[1].toObject().value("title").toString(), "Two");
    EXPECT_EQ(info[1].toObject().value("year").toString(), "2001");
    EXPECT_EQ(info[1].toObject().value("genre").toString(), "folk");
    EXPECT_EQ(info[1].toObject().value("cdpath").toString(), disc.value("cdpath").toString());

    const CliRun text = cli({"disc", "--server", QString("127.0.0.1:%1/x/cddb.cgi").arg(server.port()), image.cue});
    EXPECT_TRUE(text.out.contains("freedbtitle: Band / Album\nalbums:\n  rock " + query.left(8).toUtf8() +
                                  " Band / Album\ncd info:\n  01  One\t\t\t2001\tfolk\n  02  Two\t\t\t2001\tfolk\n"
                                  "freedb: OK!  Received " +
                                  QByteArray::number(entry.size()) + " bytes of data\n"))
        << text.out.constData();
}

TEST_F(DiscCommand, RefusesWhatIsNotADriveOrAServer)
{
    CliRun run = cli({"disc", "--no-cddb", "/dev/null"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains("/dev/null is not a CD drive")) << qPrintable(run.err);
    for (const char* server : {":80", "host:", "host:99999", "host:port"}) {
        run = cli({"disc", "--server", server, "x.cue"});
        EXPECT_EQ(run.exitCode, 2) << server;
    }
    run = cli({"--help"});
    EXPECT_TRUE(run.out.contains("  disc [--json] [--no-cddb] [--server HOST[:PORT][/CGI]] [IMAGE.cue|DEVICE ...]\n"));
}

}  // namespace

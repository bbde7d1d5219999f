#include "common/DiscFixtures.h"
#include "core/Defaults.h"
#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "core/Preferences.h"
#include "disc/FreeDBWrapper.h"
#include "platform/Desktop.h"

#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

using discfixtures::CddbServer;

namespace {

const QString kQuery = "8a0b9c0c+3+150+450+675+12";
const QString kCgi = "/~cddb/cddb.cgi";

const QByteArray kExact = "200 rock 8a0b9c0c The Band / Live at Home\r\n";
const QByteArray kInexact = CddbServer::lines({
    "211 Found inexact matches, list follows (until terminating `.')",
    "rock 8a0b9c0c The Band / Live at Home",
    "misc 8a0b9c0d The Band / Live at Home",
    "jazz 7a0b9c0c Other / Disc",
    "blues 6a0b9c0c The Band / Live at Home",
    ".",
});
const QByteArray kEntry = CddbServer::lines({
    "210 rock 8a0b9c0c CD database entry follows (until terminating `.')",
    "# xmcd",
    "#",
    "# Track frame offsets:",
    "#\t150",
    "DISCID=8a0b9c0c",
    "DTITLE=The Band / Live at Home",
    "DYEAR=1999",
    "DGENRE=Rock",
    "TTITLE0=Opening",
    "TTITLE1=Guest Star / Duet",
    "TTITLE2=Closing",
    "EXTD=",
    ".",
});

struct Recorder : FreeDBReplyTarget {
    QStringList names;
    QVariantList objects;
    void reply(const QString& name, const QVariant& object) override
    {
        names << name;
        objects << object;
    }
};

// Answers by the command of the request.
CddbServer::Handler answering(QByteArray query, QByteArray read = kEntry, QByteArray sites = {})
{
    return [query, read, sites](const QString& target) {
        if (target.contains("cmd=cddb+query"))
            return CddbServer::Answer{query};
        if (target.contains("cmd=cddb+read"))
            return CddbServer::Answer{read};
        return CddbServer::Answer{sites};
    };
}

QString requestOf(const char* command, const QString& argument)
{
    return QString("%1?cmd=%2%3&hello=tester+box+velmora+1&proto=6").arg(kCgi, command, argument);
}

class FreeDB : public ::testing::Test {
protected:
    void SetUp() override
    {
        Defaults& defaults = Defaults::standard();
        for (const char* key : {PrefKeys::DisableFreeDB, PrefKeys::FreeDBServerList, PrefKeys::DefaultHostName})
            defaults.removeObject(key);
        defaults.setObject(PrefKeys::UserName, "tester");
        defaults.setObject(PrefKeys::HostName, "box");
        Desktop::setBeepHandler([this] { ++beeps; });
    }
    void TearDown() override { Desktop::setBeepHandler({}); }

    static FreeDBOptions at(const CddbServer& server, int timeoutMs = 60000) { return {server.record(), timeoutMs}; }
    static bool settle(FreeDBWrapper& wrapper, int ms = 20000)
    {
        return QTest::qWaitFor([&] { return !wrapper.isBusy(); }, ms);
    }
    static QString okStatus(const QByteArray& body)
    {
        return QString("OK!  Received %1 bytes of data").arg(body.size());
    }

    int beeps = 0;
    Recorder owner;
};

TEST_F(FreeDB, AnExactMatchIsRepliedAndChainsIntoTheReadOfIt)
{
    CddbServer server(answering(kExact));
    FreeDBWrapper wrapper("/discs/Audio CD", &owner, at(server));
    ASSERT_TRUE(wrapper.getFreeDBInfo(kQuery));
    EXPECT_EQ(wrapper.requestInFlight(), FreeDBWrapper::Query);
    ASSERT_TRUE(QTest::qWaitFor([&] { return owner.names.size() == 2; }, 20000));
    ASSERT_TRUE(settle(wrapper));

    EXPECT_EQ(server.requests(),
              QStringList({requestOf("cddb+query+", kQuery), requestOf("cddb+read+", "rock+8a0b9c0c")}));
    EXPECT_EQ(owner.names, QStringList({VLHaveAlbumsInfoNotification, VLHaveCDInfoNotification}));
    const QVariantList albums = owner.objects[0].toList();
    ASSERT_EQ(albums.size(), 1);
    EXPECT_EQ(albums[0].toMap(), (QVariantMap{{"genre", "rock"},
                                              {"discid", "8a0b9c0c"},
                                              {"title", "The Band / Live at Home"},
                                              {"cdpath", "/discs/Audio CD"}}));
    EXPECT_EQ(wrapper.albums(), albums);
    EXPECT_EQ(wrapper.albumMenu(), QStringList{"The Band / Live at Home"});
    EXPECT_FALSE(wrapper.albumMenuEnabled());
    EXPECT_EQ(wrapper.artistField(), "");

    // DTITLE=... is one word: artist and album stay empty; the second track's
    // artist carries on to the next; DGENRE replaces the category of the 210 line.
    const QVariantList info = owner.objects[1].toList();
    ASSERT_EQ(info.size(), 3);
    auto track = [](const char* title, const char* artist, const char* number) {
        return QVariantMap{
            {"title", title},  {"artist", artist},           {"album", ""}, {"year", "1999"}, {"genre", "Rock"},
            {"track", number}, {"cdpath", "/discs/Audio CD"}};
    };
    EXPECT_EQ(info[0].toMap(), track("Opening", "", "01"));
    EXPECT_EQ(info[1].toMap(), track("Duet", "Guest Star", "02"));
    EXPECT_EQ(info[2].toMap(), track("Closing", "Guest Star", "03"));
    EXPECT_EQ(wrapper.cdInfo(), info);
    EXPECT_EQ(wrapper.statusField(), okStatus(kEntry));
    EXPECT_EQ(beeps, 0);
}

TEST_F(FreeDB, InexactMatchesDropRepeatedTitlesYetReadTheLastLine)
{
    for (const QByteArray& status : {QByteArray("211"), QByteArray("210")}) {
        QByteArray answer = kInexact;
        answer.replace(0, 3, status);
        CddbServer server(answering(answer));
        Recorder replies;
        FreeDBWrapper wrapper("/discs/Audio CD", &replies, at(server));
        wrapper.getFreeDBQuery(kQuery);
        ASSERT_TRUE(QTest::qWaitFor([&] { return replies.names.size() == 2; }, 20000)) << status.constData();
        ASSERT_TRUE(settle(wrapper));
        const QVariantList albums = replies.objects[0].toList();
        ASSERT_EQ(albums.size(), 2);
        EXPECT_EQ(albums[0].toMap().value("genre"), "rock");
        EXPECT_EQ(albums[1].toMap().value("title"), "Other / Disc");
        EXPECT_EQ(wrapper.albumMenu(), QStringList({"The Band / Live at Home", "Other / Disc"}));
        EXPECT_TRUE(wrapper.albumMenuEnabled());
        EXPECT_EQ(server.requests().last(), requestOf("cddb+read+", "blues+6a0b9c0c"));

        // The menu's choice fills the fields and reads that match.
        wrapper.selectAlbum(1);
        EXPECT_EQ(wrapper.artistField(), "Other");
        EXPECT_EQ(wrapper.albumField(), "Disc");
        ASSERT_TRUE(settle(wrapper));
        EXPECT_EQ(server.requests().last(), requestOf("cddb+read+", "jazz+7a0b9c0c"));
    }
}

TEST_F(FreeDB, OneInexactMatchLeavesTheMenuOffAndATitleWithoutSlashIsTheArtist)
{
    CddbServer server(answering(CddbServer::lines({"211 close", "misc 01020304   Soundtrack  ", "."})));
    FreeDBWrapper wrapper("/discs/X", &owner, at(server));
    wrapper.getFreeDBQuery(kQuery);
    ASSERT_TRUE(QTest::qWaitFor([&] { return owner.names.size() == 2; }, 20000));
    ASSERT_TRUE(settle(wrapper));
    EXPECT_FALSE(wrapper.albumMenuEnabled());
    EXPECT_EQ(wrapper.albumMenu(), QStringList{"  Soundtrack  "});
    wrapper.selectAlbum(0);
    EXPECT_EQ(wrapper.artistField(), "Soundtrack");
    EXPECT_EQ(wrapper.albumField(), "");
    wrapper.selectAlbum(5);  // no such item
    EXPECT_EQ(wrapper.artistField(), "Soundtrack");
    ASSERT_TRUE(settle(wrapper));
}

TEST_F(FreeDB, OtherStatusesAndGarbageAreReceivedButChangeNothing)
{
    QByteArray garbage(5 << 20, '\0');
    quint32 state = 12345;
    for (char& byte : garbage) {
        state = state * 1103515245 + 12345;
        byte = char(state >> 24);
    }
    const QByteArray answers[] = {
        "202 No match for disc ID 8a0b9c0c.\r\n",
        "403 Database entry is corrupt.\r\n",
        "500 Command syntax error.\r\n",
        "",
        garbage,
    };
    for (const QByteArray& body : answers) {
        CddbServer server(answering(body));
        Recorder replies;
        FreeDBWrapper wrapper("/discs/Audio CD", &replies, at(server));
        ASSERT_TRUE(wrapper.getFreeDBQuery(kQuery));
        ASSERT_TRUE(QTest::qWaitFor([&] { return wrapper.statusField().startsWith("OK!"); }, 30000))
            << body.left(20).constData();
        EXPECT_FALSE(wrapper.isBusy());
        EXPECT_EQ(wrapper.statusField(), okStatus(body));
        EXPECT_TRUE(replies.names.isEmpty());
        EXPECT_EQ(server.requests().size(), 1);
        EXPECT_TRUE(wrapper.albumMenu().isEmpty());
    }
}

TEST_F(FreeDB, AReadIsTakenWhateverItsStatusAndGarbageGivesWhatItHolds)
{
    CddbServer server(answering(kExact, "401 rock 8a0b9c0c No such CD entry in database.\r\n"));
    FreeDBWrapper wrapper("/discs/Audio CD", &owner, at(server));
    wrapper.getFreeDBQuery(kQuery);
    ASSERT_TRUE(QTest::qWaitFor([&] { return owner.names.size() == 2; }, 20000));
    EXPECT_EQ(owner.names[1], VLHaveCDInfoNotification);
    EXPECT_TRUE(owner.objects[1].toList().isEmpty());
    ASSERT_TRUE(settle(wrapper));
}

TEST_F(FreeDB, Latin1AnswersKeepTheirLettersAndUtf8AnswersTheirs)
{
    const QByteArray latin1 = "210 rock 1 entry\r\nTTITLE0=Caf\xE9 \xDC"
                              "ber\r\nDYEAR=1999\r\n.\r\n";
    const QByteArray utf8 = "210 rock 1 entry\r\nTTITLE0=Caf\xC3\xA9 \xC3\x9C"
                            "ber\r\nDYEAR=1999\r\n.\r\n";
    for (const QByteArray& entry : {latin1, utf8}) {
        CddbServer server(answering(kExact, entry));
        Recorder replies;
        FreeDBWrapper wrapper("/discs/Audio CD", &replies, at(server));
        wrapper.getFreeDBQuery(kQuery);
        ASSERT_TRUE(QTest::qWaitFor([&] { return replies.names.size() == 2; }, 20000));
        ASSERT_EQ(replies.objects[1].toList().size(), 1);
        EXPECT_EQ(replies.objects[1].toList()[0].toMap().value("title").toString(), QString::fromUtf8("Café Über"));
        ASSERT_TRUE(settle(wrapper));
    }
}

TEST_F(FreeDB, FailuresShowInTheStatusAndLeaveTheJobFailed)
{
    const struct {
        CddbServer::Answer answer;
        int timeoutMs;
        const char* status;
    } cases[] = {
        {{"boom", 500}, 60000, "Failed! The server answered 500 Refused. http://127.0.0.1:"},
        {{"no", 403}, 60000, "Failed! The server answered 403 Refused. http://127.0.0.1:"},
        {{"", 200, CddbServer::Answer::Kind::Silent}, 400, "Failed! The request timed out. http://127.0.0.1:"},
        {{"210 rock 8a0b9c0c entry\r\nTTITLE0=", 200, CddbServer::Answer::Kind::CutShort},
         60000,
         "Failed! The server closed the connection before the whole answer came. http://127.0.0.1:"},
    };
    for (const auto& c : cases) {
        CddbServer server([&](const QString&) { return c.answer; });
        Recorder replies;
        FreeDBWrapper wrapper("/discs/Audio CD", &replies, at(server, c.timeoutMs));
        ASSERT_TRUE(wrapper.getFreeDBQuery(kQuery));
        ASSERT_TRUE(settle(wrapper)) << c.status;
        EXPECT_TRUE(wrapper.statusField().startsWith(c.status)) << qPrintable(wrapper.statusField());
        EXPECT_TRUE(
            wrapper.statusField().endsWith(kCgi + "?cmd=cddb+query+" + kQuery + "&hello=tester+box+velmora+1&proto=6"))
            << qPrintable(wrapper.statusField());
        EXPECT_TRUE(replies.names.isEmpty());
        EXPECT_EQ(wrapper.requestInFlight(), FreeDBWrapper::None);
        // The job hands the answer over just before it ends.
        auto failedJob = [&]() -> std::shared_ptr<Job> {
            for (const auto& job : JobList::shared().jobs()) {
                if (job->state() == Job::State::Finished && !job->result().ok() &&
                    wrapper.statusField().contains(job->result().error))
                    return job;
            }
            return nullptr;
        };
        ASSERT_TRUE(QTest::qWaitFor([&] { return failedJob() != nullptr; }, 10000)) << c.status;
        JobList::shared().dismiss(failedJob()->id());
    }
}

TEST_F(FreeDB, AnAnswerCutInTheMiddleOfAnEntryGivesTheTracksItHolds)
{
    const QByteArray cut = kEntry.left(kEntry.indexOf("TTITLE2"));
    CddbServer server(answering(kExact, cut));
    FreeDBWrapper wrapper("/discs/Audio CD", &owner, at(server));
    wrapper.getFreeDBQuery(kQuery);
    ASSERT_TRUE(QTest::qWaitFor([&] { return owner.names.size() == 2; }, 20000));
    EXPECT_EQ(owner.objects[1].toList().size(), 2);
    ASSERT_TRUE(settle(wrapper));
}

TEST_F(FreeDB, OneRequestInFlightAndNoQueryWithoutADisc)
{
    CddbServer server([](const QString&) { return CddbServer::Answer{"", 200, CddbServer::Answer::Kind::Silent}; });
    FreeDBWrapper wrapper("/discs/Audio CD", &owner, at(server, 300));
    // The window's thread goes on while a request waits for its answer.
    int ticks = 0;
    QTimer ticker;
    QObject::connect(&ticker, &QTimer::timeout, [&] { ++ticks; });
    ticker.start(10);
    EXPECT_TRUE(wrapper.getFreeDBQuery(kQuery));
    EXPECT_FALSE(wrapper.getFreeDBRead("rock+8a0b9c0c"));
    EXPECT_FALSE(wrapper.getFreeDBServerList());
    EXPECT_EQ(beeps, 2);
    EXPECT_EQ(wrapper.requestInFlight(), FreeDBWrapper::Query);
    ASSERT_TRUE(settle(wrapper));
    EXPECT_GE(ticks, 10);
    EXPECT_EQ(server.requests().size(), 1);

    FreeDBWrapper noDisc(QString(), &owner, at(server));
    EXPECT_FALSE(noDisc.getFreeDBQuery(kQuery));
    EXPECT_EQ(beeps, 3);
    EXPECT_FALSE(noDisc.isBusy());
    for (const auto& job : JobList::shared().jobs())
        JobList::shared().dismiss(job->id());
}

TEST_F(FreeDB, SwitchedOffNothingIsAskedAndLateAnswersAreDropped)
{
    CddbServer server(answering(kExact));
    FreeDBWrapper wrapper("/discs/Audio CD", &owner, at(server));
    Defaults::standard().setInteger(PrefKeys::DisableFreeDB, 1);
    EXPECT_FALSE(wrapper.getFreeDBInfo(kQuery));
    NotificationCenter::defaultCenter().post(VLFreeDBDiscIDNotification, kQuery);
    EXPECT_FALSE(wrapper.isBusy());

    // Switched off while the answer is on its way.
    Defaults::standard().setInteger(PrefKeys::DisableFreeDB, 0);
    ASSERT_TRUE(wrapper.getFreeDBInfo(kQuery));
    wrapper.disable(true);
    ASSERT_TRUE(settle(wrapper));
    EXPECT_EQ(wrapper.statusField(), okStatus(kExact));
    EXPECT_TRUE(owner.names.isEmpty());
    EXPECT_EQ(server.requests().size(), 1);
    EXPECT_EQ(Defaults::standard().integerForKey(PrefKeys::DisableFreeDB), 1);
    wrapper.disable(false);
}

TEST_F(FreeDB, NotificationsAskForQueriesAnswersAndForgetting)
{
    CddbServer server(answering(kInexact));
    FreeDBWrapper wrapper("/discs/Audio CD", &owner, at(server));
    FreeDBWrapper noDisc(QString(), nullptr, at(server));
    NotificationCenter& center = NotificationCenter::defaultCenter();
    center.post(VLFreeDBDiscIDNotification, kQuery);
    EXPECT_TRUE(wrapper.isBusy());
    EXPECT_EQ(beeps, 1);  // the wrapper without a disc refuses
    ASSERT_TRUE(QTest::qWaitFor([&] { return owner.names.size() == 2; }, 20000));
    ASSERT_TRUE(settle(wrapper));

    // Asked again: the owner gets the last matches and CD info under the other names.
    owner.names.clear();
    center.post(VLNeedCDInfoNotification);
    EXPECT_EQ(owner.names, QStringList({VLHaveReqestedAlbumsInfoNotification, VLHaveReqestedCDInfoNotification}));

    // Without an owner they go onto the bus; with nothing known, nothing goes.
    QStringList posted;
    for (const char* name : {VLHaveReqestedAlbumsInfoNotification, VLHaveReqestedCDInfoNotification})
        center.addObserver(this, name, [&](const Notification& n) { posted << n.name; });
    noDisc.needCDInfo();
    EXPECT_TRUE(posted.isEmpty());

    center.post(VLUnmountNotification);
    EXPECT_TRUE(wrapper.albums().isEmpty());
    EXPECT_TRUE(wrapper.albumMenu().isEmpty());
    EXPECT_FALSE(wrapper.albumMenuEnabled());
    EXPECT_EQ(wrapper.artistField(), "");
    owner.names.clear();
    wrapper.needCDInfo();
    EXPECT_EQ(owner.names, QStringList{VLHaveReqestedCDInfoNotification});
    center.removeObserver(this);
}

TEST_F(FreeDB, ServerListComesFromSitesAndPicksTheDefaultHost)
{
    CddbServer server(answering({}, {}, {}));
    const QByteArray sites = CddbServer::lines({
        "210 OK, site information follows (until terminating `.')",
        "gnudb.gnudb.org http 80 /~cddb/cddb.cgi N000.00 W000.00 Random gnudb server",
        QString("127.0.0.1 http %1 /~cddb/cddb.cgi N000.00 W000.00 Local test box").arg(server.port()),
        "freedb.example cddbp 8880 - N000.00 W000.00 Not over HTTP",
        "short http",
        ".",
    });
    CddbServer listing(answering({}, {}, sites));
    Defaults::standard().setObject(PrefKeys::FreeDBServerList, QVariantList{listing.record()});
    Defaults::standard().setObject(PrefKeys::DefaultHostName, "127.0.0.1");
    FreeDBWrapper wrapper;
    wrapper.awakeFromNibble();
    EXPECT_FALSE(wrapper.isBusy());  // a list is stored: none is fetched
    EXPECT_EQ(wrapper.currentServer(), listing.record());

    wrapper.refreshHostList();
    ASSERT_TRUE(settle(wrapper));
    EXPECT_EQ(listing.requests(), QStringList{kCgi + "?cmd=sites&hello=tester+box+velmora+1&proto=6"});
    const QVariantList expected{
        QVariantMap{{"host", "gnudb.gnudb.org"},
                    {"port", "80"},
                    {"cgi", "/~cddb/cddb.cgi"},
                    {"location", "Random gnudb server"}},
        QVariantMap{{"host", "127.0.0.1"},
                    {"port", QString::number(server.port())},
                    {"cgi", "/~cddb/cddb.cgi"},
                    {"location", "Local test box"}},
    };
    EXPECT_EQ(wrapper.serverList(), expected);
    EXPECT_EQ(wrapper.serverTable(), expected);
    EXPECT_EQ(Defaults::standard().arrayForKey(PrefKeys::FreeDBServerList), expected);
    EXPECT_EQ(wrapper.currentServer(), expected[1]);
    EXPECT_EQ(wrapper.getSelectedHost("gnudb.gnudb.org"), expected[0]);
    EXPECT_EQ(wrapper.getSelectedHost("nowhere"), FreeDBWrapper::defaultServer());

    wrapper.makeDefaultHost(0);
    EXPECT_EQ(wrapper.currentServer(), expected[0]);
    EXPECT_EQ(Defaults::standard().stringForKey(PrefKeys::DefaultHostName), "gnudb.gnudb.org");
    wrapper.makeDefaultHost(7);
    EXPECT_EQ(wrapper.currentServer(), expected[0]);
}

TEST_F(FreeDB, AnEmptyOrRefusedServerListKeepsThePreviousOne)
{
    for (const QByteArray& answer :
         {CddbServer::lines({"210 OK", "."}), CddbServer::lines({"401 No site information"})}) {
        CddbServer listing(answering({}, {}, answer));
        Defaults::standard().setObject(PrefKeys::FreeDBServerList, QVariantList{listing.record()});
        Defaults::standard().setObject(PrefKeys::DefaultHostName, "127.0.0.1");
        FreeDBWrapper wrapper;
        wrapper.awakeFromNibble();
        wrapper.refreshHostList();
        ASSERT_TRUE(settle(wrapper));
        EXPECT_EQ(listing.requests().size(), 1);
        EXPECT_EQ(wrapper.serverList(), QVariantList{listing.record()});
    }
}

TEST_F(FreeDB, OnlyTheServerListPutsASlashBeforeAPathWithoutOne)
{
    const QVariantMap slashless{{"host", "h.example"}, {"port", "8080"}, {"cgi", "~cddb/cddb.cgi"}};
    const QVariantMap slashed{{"host", "h.example"}, {"port", "80"}, {"cgi", "/cgi"}};
    EXPECT_EQ(FreeDBWrapper::requestURL(FreeDBWrapper::ServerList, slashless, {}, "u", "h"),
              "http://h.example:8080/~cddb/cddb.cgi?cmd=sites&hello=u+h+velmora+1&proto=6");
    EXPECT_EQ(FreeDBWrapper::requestURL(FreeDBWrapper::Query, slashless, "q+1", "u", "h"),
              "http://h.example:8080~cddb/cddb.cgi?cmd=cddb+query+q+1&hello=u+h+velmora+1&proto=6");
    EXPECT_EQ(FreeDBWrapper::requestURL(FreeDBWrapper::Read, slashed, "rock+1", "u", "h"),
              "http://h.example:80/cgi?cmd=cddb+read+rock+1&hello=u+h+velmora+1&proto=6");
    EXPECT_EQ(FreeDBWrapper::requestURL(FreeDBWrapper::ServerList, slashed, {}, "u", "h"),
              "http://h.example:80/cgi?cmd=sites&hello=u+h+velmora+1&proto=6");

    // Such a record cannot make a query: nothing is sent, nothing is said.
    CddbServer server(answering(kExact));
    QVariantMap record = server.record("~cddb/cddb.cgi");
    FreeDBWrapper wrapper("/discs/Audio CD", &owner, {record, 60000});
    EXPECT_FALSE(wrapper.getFreeDBQuery(kQuery));
    EXPECT_FALSE(wrapper.isBusy());
    EXPECT_EQ(wrapper.statusField(), "");
    EXPECT_EQ(beeps, 0);
    // The server list reaches it.
    EXPECT_TRUE(wrapper.getFreeDBServerList());
    ASSERT_TRUE(settle(wrapper));
    EXPECT_EQ(server.requests(), QStringList{"/~cddb/cddb.cgi?cmd=sites&hello=tester+box+velmora+1&proto=6"});
}

TEST_F(FreeDB, HelloFieldsComeFromTheSettingsWithFallbacksAndEscapes)
{
    const struct {
        const char* in;
        const char* out;
    } escapes[] = {{"a&b<c>d\"e'f/g", "a:b:c:d:e:f:g"}, {"plain name", "plain name"}, {"", ""}};
    for (const auto& e : escapes)
        EXPECT_EQ(FreeDBWrapper::escapedString(e.in), e.out);

    CddbServer server(answering(kExact));
    Defaults::standard().setObject(PrefKeys::UserName, "");
    Defaults::standard().setObject(PrefKeys::HostName, "");
    {
        FreeDBWrapper wrapper("/d", &owner, at(server));
        EXPECT_EQ(wrapper.userName(), "user");
        EXPECT_EQ(wrapper.hostName(), "host");
    }
    Defaults::standard().removeObject(PrefKeys::UserName);
    Defaults::standard().removeObject(PrefKeys::HostName);
    {
        FreeDBWrapper wrapper("/d", &owner, at(server));
        EXPECT_EQ(wrapper.hostName(), QSysInfo::machineHostName().isEmpty() ? "host" : QSysInfo::machineHostName());
        EXPECT_FALSE(wrapper.userName().isEmpty());
        wrapper.setUserName("me&you/us");
        wrapper.setHostName("box");
        EXPECT_EQ(Defaults::standard().stringForKey(PrefKeys::UserName), "me&you/us");
        wrapper.getFreeDBQuery(kQuery);
        ASSERT_TRUE(settle(wrapper));
        EXPECT_TRUE(server.requests().first().endsWith("&hello=me:you:us+box+velmora+1&proto=6"))
            << qPrintable(server.requests().first());
    }
}

}  // namespace

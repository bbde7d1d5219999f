// The Play tab as an MPRIS2 player on a private session bus, driven and read
// the way a desktop's media keys and "now playing" do it.
#include "tabs/MprisService.h"

#include "common/PlayerFixtures.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "tabs/PlaySourcesWrapper.h"

#include <gtest/gtest.h>

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QFileInfo>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

using namespace playerfixtures;

namespace {

// Counts the PropertiesChanged signals of the player interface, by property name.
class ChangeListener : public QObject {
    Q_OBJECT
public:
    QStringList changed;
public slots:
    void propertiesChanged(const QString& interface, const QVariantMap& properties, const QStringList&)
    {
        if (interface == QLatin1String("org.mpris.MediaPlayer2.Player"))
            changed << properties.keys();
    }
};

class MprisTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        useFakeAudio();
        daemon.start("dbus-daemon", {"--session", "--print-address", "--nofork", "--nopidfile"});
        ASSERT_TRUE(daemon.waitForReadyRead(10000));
        const QString address = QString::fromUtf8(daemon.readLine()).trimmed();
        service = std::make_unique<QDBusConnection>(QDBusConnection::connectToBus(address, "velmora-service"));
        client = std::make_unique<QDBusConnection>(QDBusConnection::connectToBus(address, "desktop"));
        ASSERT_TRUE(service->isConnected() && client->isConnected());
    }
    void TearDown() override
    {
        mpris.reset();
        tab.reset();
        service.reset();
        client.reset();
        QDBusConnection::disconnectFromBus("velmora-service");
        QDBusConnection::disconnectFromBus("desktop");
        daemon.terminate();
        daemon.waitForFinished();
    }
    // Calls and property reads let the event loop run, so that the player,
    // which lives on this thread too, can answer.
    QDBusMessage call(const QString& method, const QVariantList& arguments = {},
                      const QString& interface = "org.mpris.MediaPlayer2.Player")
    {
        QDBusMessage message =
            QDBusMessage::createMethodCall(MprisService::kServiceName, MprisService::kObjectPath, interface, method);
        message.setArguments(arguments);
        return client->call(message, QDBus::BlockWithGui);
    }
    QVariant property(const QString& name, const QString& interface = "org.mpris.MediaPlayer2.Player")
    {
        const QDBusMessage reply = call("Get", {interface, name}, "org.freedesktop.DBus.Properties");
        return reply.arguments().isEmpty() ? QVariant() : reply.arguments().first().value<QDBusVariant>().variant();
    }
    QVariantMap metadata()
    {
        QVariantMap map;
        property("Metadata").value<QDBusArgument>() >> map;
        return map;
    }

    QProcess daemon;
    std::unique_ptr<QDBusConnection> service, client;
    std::unique_ptr<PlaySourcesWrapper> tab;
    std::unique_ptr<MprisService> mpris;
    QTemporaryDir dir;
};

}  // namespace

TEST_F(MprisTest, MediaKeysAndNowPlayingFollowThePlayTab)
{
    const QString cover = dir.filePath("cover.png");
    QImage picture(32, 24, QImage::Format_RGB32);
    picture.fill(Qt::darkCyan);
    ASSERT_TRUE(picture.save(cover));
    const QString first = makeSong(dir.path(), "first.mp3", 30, "Opening", "The Band", "Debut", cover);
    const QString second = makeSong(dir.path(), "second.ogg", 30, "Closing", "The Band", "Debut");
    tab = std::make_unique<PlaySourcesWrapper>();
    mpris = std::make_unique<MprisService>(*tab);
    ASSERT_TRUE(mpris->registerOn(*service));
    EXPECT_EQ(mpris->serviceName(), MprisService::kServiceName);
    ChangeListener listener;
    ASSERT_TRUE(client->connect(MprisService::kServiceName, MprisService::kObjectPath,
                                "org.freedesktop.DBus.Properties", "PropertiesChanged", &listener,
                                SLOT(propertiesChanged(QString, QVariantMap, QStringList))));

    EXPECT_EQ(property("Identity", "org.mpris.MediaPlayer2").toString(), "Velmora");
    EXPECT_EQ(property("DesktopEntry", "org.mpris.MediaPlayer2").toString(), "com.dorvane.velmora");
    EXPECT_EQ(property("PlaybackStatus").toString(), "Stopped");

    // The songs are handed over as the desktop opens files; they play at once.
    NotificationCenter::defaultCenter().post(VLFileOpenNotification,
                                             QVariantMap{{"filearray", QStringList{first, second}}});
    ASSERT_TRUE(QTest::qWaitFor([&] { return tab->state() == PlaySourcesWrapper::State::Playing; }, 15000));
    EXPECT_EQ(property("PlaybackStatus").toString(), "Playing");
    ASSERT_TRUE(QTest::qWaitFor([&] { return metadata().contains("mpris:artUrl"); }, 5000));
    QVariantMap now = metadata();
    EXPECT_EQ(now.value("xesam:title").toString(), "Opening");
    EXPECT_EQ(now.value("xesam:artist").toStringList(), QStringList{"The Band"});
    EXPECT_EQ(now.value("xesam:album").toString(), "Debut");
    EXPECT_EQ(now.value("mpris:length").toLongLong(), 30LL * 1000000);
    const QImage art(QUrl(now.value("mpris:artUrl").toString()).toLocalFile());
    EXPECT_EQ(art.size(), picture.size());
    EXPECT_TRUE(listener.changed.contains("Metadata"));
    EXPECT_TRUE(listener.changed.contains("PlaybackStatus"));

    // The media keys.
    call("PlayPause");
    EXPECT_EQ(tab->state(), PlaySourcesWrapper::State::Paused);
    EXPECT_EQ(property("PlaybackStatus").toString(), "Paused");
    call("Play");
    EXPECT_EQ(tab->state(), PlaySourcesWrapper::State::Playing);
    call("SetPosition", {QVariant::fromValue(QDBusObjectPath(mpris->trackId())), 20LL * 1000000});
    EXPECT_GE(property("Position").toLongLong(), 20LL * 1000000);
    call("Seek", {-15LL * 1000000});
    EXPECT_LT(property("Position").toLongLong(), 10LL * 1000000);
    call("Set", {"org.mpris.MediaPlayer2.Player", "Volume", QVariant::fromValue(QDBusVariant(0.25))},
         "org.freedesktop.DBus.Properties");
    EXPECT_EQ(tab->volume(), 25);

    call("Next");
    EXPECT_EQ(QFileInfo(tab->playingPath()).fileName(), "second.ogg");
    ASSERT_TRUE(QTest::qWaitFor([&] { return metadata().value("xesam:title").toString() == "Closing"; }, 5000));
    EXPECT_FALSE(metadata().contains("mpris:artUrl"));  // this song has no picture
    call("Stop");
    EXPECT_EQ(tab->state(), PlaySourcesWrapper::State::Stopped);
    EXPECT_EQ(property("PlaybackStatus").toString(), "Stopped");
    EXPECT_TRUE(metadata().isEmpty());
}

#include "MprisServiceTest.moc"

#include "disc/AudioCDSource.h"
#include "common/DiscFixtures.h"
#include "common/TestSupport.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "disc/FreeDBWrapper.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using discfixtures::CddbServer;

namespace {

class AudioCDSource : public ::testing::Test {
protected:
    void SetUp() override
    {
        // Made in an order of their own; the disc's order is by name.
        for (const char* name : {"03 Audio Track.cdda", "01 Audio Track.cdda", ".disc.cue", "02 Audio Track.cdda"})
            testsupport::writeFile(folder() + '/' + name, "device=x\ntrack=1\n");
        testsupport::writeFile(folder() + "/.hidden/04 Audio Track.cdda", "x");
        NotificationCenter::defaultCenter().addObserver(this, VLAudioCDHaveCDInfoNotification,
                                                        [this](const Notification& n) { forwarded << n.object; });
    }
    void TearDown() override { NotificationCenter::defaultCenter().removeObserver(this); }

    QString folder() const { return dir.path() + "/Audio CD"; }
    static QVariantList info(int count, const QString& prefix)
    {
        QVariantList list;
        for (int i = 1; i <= count; ++i)
            list << QVariantMap{{"title", prefix + QString::number(i)}, {"track", QString::asprintf("%02d", i)}};
        return list;
    }

    QTemporaryDir dir{testsupport::homeDir() + "/audiocd-XXXXXX"};
    QVariantList forwarded;
};

TEST_F(AudioCDSource, ListsTheTrackFilesInDiscOrderWithoutHiddenOnes)
{
    audiocd_wrapper source({{"cdpath", folder()}});
    ASSERT_EQ(source.count(), 3);
    for (int i = 0; i < 3; ++i) {
        const QString title = QString::asprintf("%02d Audio Track", i + 1);
        EXPECT_EQ(
            source.track(i),
            (QVariantMap{{"path", folder() + '/' + title + ".cdda"}, {"title", title}, {"genre", ""}, {"year", ""}}));
    }
    EXPECT_TRUE(source.track(3).isEmpty());
    EXPECT_TRUE(source.track(-1).isEmpty());
    EXPECT_FALSE(source.hasCDInfo());
}

TEST_F(AudioCDSource, TakesOnlyTheFirstCDInfoYetForwardsEveryOne)
{
    audiocd_wrapper source({{"cdpath", folder()}});
    NotificationCenter& center = NotificationCenter::defaultCenter();
    // More infos than files: the extra one keeps no path.
    const QVariantList first = info(4, "First ");
    center.post(VLHaveCDInfoNotification, first);
    ASSERT_TRUE(source.hasCDInfo());
    EXPECT_EQ(source.count(), 3);
    EXPECT_EQ(source.track(0).value("title"), "First 1");
    EXPECT_EQ(source.track(2).value("path"), folder() + "/03 Audio Track.cdda");
    EXPECT_EQ(source.track(3).value("title"), "First 4");
    EXPECT_FALSE(source.track(3).contains("path"));

    const QVariantList second = info(2, "Second ");
    center.post(VLHaveReqestedCDInfoNotification, second);
    EXPECT_EQ(source.track(0).value("title"), "First 1");
    EXPECT_EQ(forwarded, (QVariantList{first, second}));

    // Fewer infos than files: only those get paths; the files stay counted.
    audiocd_wrapper other({{"cdpath", folder()}});
    center.post(VLHaveCDInfoNotification, info(1, "Only "));
    EXPECT_EQ(other.count(), 3);
    EXPECT_EQ(other.track(0).value("path"), folder() + "/01 Audio Track.cdda");
    EXPECT_TRUE(other.track(1).isEmpty());
}

TEST_F(AudioCDSource, ADescriptionWithAGenreAsksItsClientToRead)
{
    CddbServer server([](const QString&) { return CddbServer::Answer{"210 rock 1\r\n.\r\n"}; });
    struct : FreeDBReplyTarget {
        void reply(const QString&, const QVariant&) override {}
    } owner;
    FreeDBWrapper wrapper(folder(), &owner, {server.record(), 60000});
    audiocd_wrapper plain({{"cdpath", folder()}, {"freedbwrapper", QVariant::fromValue<QObject*>(&wrapper)}});
    EXPECT_FALSE(wrapper.isBusy());
    audiocd_wrapper withGenre({{"cdpath", folder()},
                               {"genre", "rock"},
                               {"discid", "8a0b9c0c"},
                               {"freedbwrapper", QVariant::fromValue<QObject*>(&wrapper)}});
    EXPECT_EQ(wrapper.requestInFlight(), FreeDBWrapper::Read);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !wrapper.isBusy(); }, 20000));
    ASSERT_EQ(server.requests().size(), 1);
    EXPECT_TRUE(server.requests()[0].contains("cmd=cddb+read+rock+8a0b9c0c&"));
}

}  // namespace

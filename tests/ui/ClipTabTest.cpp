#include "ui/ClipTab.h"

#include "common/PlayerFixtures.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"

#include <QSlider>
#include <QStandardItemModel>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

TEST(ClipTab, DraggingTheWaveformsEdgesSetsTheClipEverywhere)
{
    QTemporaryDir dir;
    const QString song = playerfixtures::makeSong(dir.path(), "a.wav", 10);
    ClipSourcesWrapper clip;
    ClipTab tab(clip);
    tab.resize(900, 600);
    tab.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&tab));
    NotificationCenter::defaultCenter().post(VLCSWFileDropNotification, QVariantMap{{"filearray", QStringList{song}}});
    ASSERT_TRUE(QTest::qWaitFor([&] { return tab.songTable()->model()->rowCount() == 1; }, 10000));
    tab.songTable()->selectRow(0);
    ASSERT_TRUE(QTest::qWaitFor([&] { return clip.waveform().complete() && clip.songSeconds(0) > 9.9; }, 10000));

    // The end edge sits at the right border while the clip is the whole song;
    // dragged to the middle it halves the length, then the start edge moves in.
    WaveformView* view = tab.waveformView();
    const int width = view->width(), y = view->height() / 2;
    QTest::mousePress(view, Qt::LeftButton, {}, QPoint(width - 2, y));
    QTest::mouseMove(view, QPoint(width / 2, y));
    QTest::mouseRelease(view, Qt::LeftButton, {}, QPoint(width / 2, y));
    QTest::mousePress(view, Qt::LeftButton, {}, QPoint(1, y));
    QTest::mouseMove(view, QPoint(width / 5, y));
    QTest::mouseRelease(view, Qt::LeftButton, {}, QPoint(width / 5, y));
    const QVariantMap parameters = clip.clipParameters(0);
    EXPECT_NEAR(parameters.value("clipstart").toDouble(), 2.0, 0.1);
    EXPECT_NEAR(parameters.value("cliplength").toDouble(), 3.0, 0.1);
    // The table, the sliders and the picture show the same clip.
    const QAbstractItemModel* songs = tab.songTable()->model();
    EXPECT_EQ(songs->index(0, 2).data().toString(), parameters.value("clipstart").toString());
    EXPECT_EQ(songs->index(0, 3).data().toString(), parameters.value("cliplength").toString());
    EXPECT_EQ(tab.slider("cliplength")->value(), qRound(parameters.value("cliplength").toDouble() * 10));
    EXPECT_NEAR(view->start(), 2.0, 0.1);

    // A fade typed into the table is bounded by the clip.
    auto* model = qobject_cast<QStandardItemModel*>(tab.songTable()->model());
    model->item(0, 4)->setText("99");
    EXPECT_EQ(clip.clipParameters(0).value("fadein"), parameters.value("cliplength"));
    EXPECT_EQ(songs->index(0, 4).data().toString(), parameters.value("cliplength").toString());
}

#include "ui/TagTab.h"

#include "common/PlayerFixtures.h"
#include "common/TagReadBack.h"
#include "tabs/TagSourcesWrapper.h"
#include "ui/AwakeApplication.h"
#include "ui/MainWindow.h"

#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <QTreeWidget>

#include <gtest/gtest.h>

using namespace tagreadback;

namespace {

template <typename T>
T* waitForChild(QWidget& window, const char* name)
{
    T* found = nullptr;
    return QTest::qWaitFor([&] { return (found = window.findChild<T*>(name)) && found->isVisible(); }, 5000)
             ? found
             : nullptr;
}

}  // namespace

TEST(TagTab, EditsInTheWindowReachTheFilesAndUnsavedOnesAreSavedOnQuittingWhenAsked)
{
    QTemporaryDir dir;
    const QString music = dir.filePath("music");
    const QStringList files{playerfixtures::makeSong(music, "a.mp3", 1, "Alpha", "Ann", "First"),
                            playerfixtures::makeSong(music, "b.ogg", 1, "Beta", "Bob"),
                            playerfixtures::makeSong(music, "c.m4a", 1, "Gamma", "Cyd", "Third")};
    for (const QString& file : files)
        ASSERT_FALSE(file.isEmpty());
    const QByteArray oggAudio = audioMd5(files[1]);

    AwakeApplication app;
    MainWindow& window = app.window();
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    window.tabs()->setCurrentIndex(MainWindow::TagTab);
    TagTab* tab = window.tagTab();
    TagSourcesWrapper& tags = tab->tags();
    tags.addFolder(music);
    const QList<QTreeWidgetItem*> found = tab->sourcesOutline()->findItems("music", Qt::MatchRecursive);
    ASSERT_EQ(found.size(), 1);
    found.first()->setSelected(true);
    QAbstractItemModel* table = tab->table()->model();
    ASSERT_TRUE(QTest::qWaitFor([&] { return table->rowCount() == 3 && !tags.isBusy(); }, 30000));
    EXPECT_EQ(table->index(1, 3).data().toString(), "--");  // no year
    EXPECT_EQ(table->index(2, 0).data().toString(), "Gamma");

    // Three rows, a new artist typed in the field, saved with the button.
    tab->table()->selectAll();
    EXPECT_EQ(tab->artistField()->text(), "Ann");
    tab->artistField()->selectAll();
    QTest::keyClicks(tab->artistField(), "Trio");
    EXPECT_TRUE(tab->saveButton()->isEnabled());
    tab->saveButton()->click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !tags.isBusy(); }, 30000));
    for (const QString& file : files)
        EXPECT_TRUE(toolShows(file, "artist", "Trio")) << toolTags(file).toStdString();
    EXPECT_EQ(audioMd5(files[1]), oggAudio);

    // A picture pasted, then one dropped: the well shows its size.
    tab->table()->selectRow(1);
    EXPECT_EQ(tab->artworkPosition()->text(), "No artwork");
    QImage picture(30, 20, QImage::Format_RGB32);
    picture.fill(Qt::yellow);
    QApplication::clipboard()->setImage(picture);
    tab->artworkWell()->paste();
    EXPECT_EQ(tab->artworkPosition()->text(), "1 of 1");
    EXPECT_TRUE(tab->artworkSize()->text().startsWith("30 × 20 pixels, ")) << tab->artworkSize()->text().toStdString();
    auto* mime = new QMimeData;
    mime->setImageData(picture.scaled(60, 40));
    QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, mime, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(tab->artworkWell(), &enter);
    EXPECT_TRUE(enter.isAccepted());
    QDropEvent drop(QPointF(5, 5), Qt::CopyAction, mime, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(tab->artworkWell(), &drop);
    EXPECT_TRUE(tab->artworkSize()->text().startsWith("60 × 40 pixels, ")) << tab->artworkSize()->text().toStdString();
    EXPECT_EQ(tab->pictureTypeMenu()->currentText(), "Other");

    // The MP3's information lists its ID3 frames.
    tab->table()->selectRow(0);  // leaving row 1 writes its picture
    ASSERT_TRUE(QTest::qWaitFor([&] { return !tags.isBusy(); }, 30000));
    EXPECT_TRUE(toolShowsPicture(files[1]));
    EXPECT_EQ(audioMd5(files[1]), oggAudio);
    tab->showInformation();
    auto* information = waitForChild<QDialog>(window, "tagInformation");
    ASSERT_NE(information, nullptr);
    EXPECT_TRUE(information->findChild<QPlainTextEdit*>()->toPlainText().contains("=== TPE1 (Lead performer(s)/Soloist(s)): Trio"));
    information->close();
    delete mime;

    // Quitting with an edit asks; Save writes it, then the program quits.
    table->setData(table->index(0, 0), "Changed");
    EXPECT_TRUE(tags.isDirty());
    window.close();
    auto* ask = waitForChild<QMessageBox>(window, "unsavedTags");
    ASSERT_NE(ask, nullptr);
    QSignalSpy terminate(&app.controller, &MyController::terminateRequested);
    ask->button(QMessageBox::Save)->click();
    EXPECT_TRUE(QTest::qWaitFor([&] { return !terminate.isEmpty(); }, 30000));
    EXPECT_TRUE(toolShows(files[0], "title", "Changed")) << toolTags(files[0]).toStdString();
}

// The Tag tab's logic on files made by lame, oggenc, ffmpeg and AtomicParsley,
// read back with ffprobe, vorbiscomment and AtomicParsley.
#include "tabs/TagSourcesWrapper.h"

#include "common/PlayerFixtures.h"
#include "common/TagReadBack.h"
#include "common/TestSupport.h"
#include "core/Job.h"
#include "platform/SafeFile.h"
#include "tags/TagFacade.h"

#include <gtest/gtest.h>

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QImageWriter>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace tagreadback;

namespace {

class TagSourcesTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        QImage cover(16, 12, QImage::Format_RGB32);
        cover.fill(Qt::red);
        const QString coverFile = dir.filePath("cover.png");
        ASSERT_TRUE(cover.save(coverFile));
        music = dir.filePath("music");
        files = {playerfixtures::makeSong(music, "01 a.mp3", 1, "Alpha", "Ann", "First", coverFile),
                 playerfixtures::makeSong(music, "02 b.ogg", 1, {}, "Bob"),
                 playerfixtures::makeSong(music, "03 c.m4a", 1, "Gamma", "Cyd", "Third")};
        for (const QString& file : files) {
            ASSERT_FALSE(file.isEmpty());
            audio << audioMd5(file);
        }
        // Neither listed nor written: WMA tags are read only, WAV has none.
        playerfixtures::makeSong(music, "04 d.wav", 1);
        tags.addFolder(music);
        QSignalSpy progress(&tags, &TagSourcesWrapper::progressChanged);
        tags.selectSource(folderRow());
        EXPECT_TRUE(tags.isBusy());
        ASSERT_FALSE(progress.isEmpty());
        EXPECT_EQ(progress.first().first().toMap().value("operation").toString(), "Searching Folder");
        EXPECT_EQ(progress.first().first().toMap().value("status").toString(),
                  "For deep folders, this can take a VERY long time. Please wait.");
        ASSERT_TRUE(QTest::qWaitFor([this] { return !tags.isBusy(); }, 30000));
        ASSERT_EQ(tags.songs(), files);
    }
    void TearDown() override
    {
        SafeFile::setFaultInjector({});
        tags.removeFolder(music);
    }

    int folderRow() const
    {
        const auto sources = tags.sources();
        for (int row = 0; row < sources.size(); ++row) {
            if (sources[row].kind == TagSourcesWrapper::SourceKind::Folder && sources[row].path == music)
                return row;
        }
        return -1;
    }
    QStringList saveAndWait()
    {
        QSignalSpy finished(&tags, &TagSourcesWrapper::saveFinished);
        const std::shared_ptr<Job> job = tags.setTags();
        EXPECT_NE(job, nullptr);
        EXPECT_EQ(job ? job->title() : QString(), "Saving Files");
        EXPECT_TRUE(finished.wait(30000));
        return finished.isEmpty() ? QStringList{"no end"} : finished.first().first().toStringList();
    }
    void expectAudioUnchanged()
    {
        for (int i = 0; i < files.size(); ++i)
            EXPECT_EQ(audioMd5(files[i]), audio[i]) << files[i].toStdString();
    }

    QTemporaryDir dir;
    QString music;
    QStringList files;
    QList<QByteArray> audio;
    TagSourcesWrapper tags;
};

TEST_F(TagSourcesTest, ThreeRowsSavedTogetherGetTheFieldsAndTheFirstFilesArtwork)
{
    EXPECT_EQ(tags.cellText(0, "title"), "Alpha");
    EXPECT_EQ(tags.cellText(1, "title"), "02 b.ogg");  // no title: the file's name
    EXPECT_EQ(tags.cellText(0, "year"), "--");
    EXPECT_EQ(tags.artworkLabel(), "No track selected");

    tags.selectRows({0});
    EXPECT_EQ(tags.artistField(), "Ann");
    EXPECT_EQ(tags.albumField(), "First");
    EXPECT_EQ(tags.artworkLabel(), "1 of 1");
    EXPECT_TRUE(tags.artworkSizeText().startsWith("16 × 12 pixels, "));

    tags.selectRows({2, 0, 1});
    EXPECT_EQ(tags.artistField(), "Ann");  // the first file's, kept
    tags.setArtistField("Trio");
    EXPECT_TRUE(tags.isDirty());
    EXPECT_EQ(saveAndWait(), QStringList());
    EXPECT_FALSE(tags.isDirty());
    for (const QString& file : files) {
        EXPECT_TRUE(toolShows(file, "artist", "Trio")) << toolTags(file).toStdString();
        EXPECT_TRUE(toolShows(file, "album", "First")) << toolTags(file).toStdString();
        EXPECT_TRUE(toolShowsPicture(file)) << toolTags(file).toStdString();
    }
    EXPECT_TRUE(toolShows(files[2], "title", "Gamma"));

    // A first file without pictures takes none from the others.
    tags.selectRows({1});
    tags.deleteArtwork();
    EXPECT_EQ(saveAndWait(), QStringList());
    tags.selectRows({1, 2});
    tags.setArtistField("Duo");
    EXPECT_EQ(saveAndWait(), QStringList());
    EXPECT_TRUE(toolShows(files[2], "artist", "Duo"));
    EXPECT_FALSE(toolShowsPicture(files[1]));
    EXPECT_TRUE(toolShowsPicture(files[2])) << toolTags(files[2]).toStdString();
    expectAudioUnchanged();
}

TEST_F(TagSourcesTest, CellEditsAreWrittenWhenTheSelectionMovesAndPlaceholdersAreNot)
{
    tags.selectRows({1});
    EXPECT_EQ(tags.albumField(), "Unknown Album");
    tags.setCell(1, "year", "1999");
    tags.setCell(1, "title", "Beta");
    tags.setCell(1, "nonsense", "x");
    EXPECT_EQ(tags.cellText(1, "year"), "1999");
    EXPECT_FALSE(tags.tags().value(1).toMap().contains("nonsense"));
    EXPECT_TRUE(tags.isDirty());
    tags.selectRows({2});  // saves row 1 before the selection moves
    tags.waitForSave();
    EXPECT_FALSE(tags.isDirty());
    EXPECT_TRUE(toolShows(files[1], "title", "Beta")) << toolTags(files[1]).toStdString();
    EXPECT_TRUE(toolShows(files[1], "year", "1999"));
    EXPECT_TRUE(toolShows(files[1], "artist", "Bob"));
    EXPECT_FALSE(toolTags(files[1]).contains("Unknown Album"));
    // Without edits, moving on writes nothing.
    const QByteArray before = testsupport::readFile(files[2]);
    tags.selectRows({0});
    tags.waitForSave();
    EXPECT_EQ(testsupport::readFile(files[2]), before);
    expectAudioUnchanged();
}

TEST_F(TagSourcesTest, ArtworkWrapsAndDroppedPicturesBecomeJpegAtNinetyPercent)
{
    tags.selectRows({0});
    tags.addArtwork();
    EXPECT_EQ(tags.artworkLabel(), "2 of 2");
    EXPECT_EQ(tags.currentArtwork().value("Picture Type").toString(), "Other");
    QImage dropped(40, 30, QImage::Format_RGB32);
    dropped.fill(Qt::blue);
    ASSERT_TRUE(tags.setArtworkImage(dropped));
    EXPECT_EQ(tags.currentArtwork().value("Mime Type").toString(), "image/jpg");
    QByteArray jpeg;
    QBuffer buffer(&jpeg);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "JPEG");
    writer.setQuality(90);
    ASSERT_TRUE(writer.write(dropped));
    EXPECT_EQ(tags.artworkSizeText(), QStringLiteral("40 × 30 pixels, %1 bytes").arg(QLocale().toString(jpeg.size())));
    tags.nextArtwork();
    EXPECT_EQ(tags.artworkLabel(), "1 of 2");  // from the last to the first
    tags.prevArtwork();
    EXPECT_EQ(tags.artworkLabel(), "2 of 2");  // from the first to the last
    tags.setArtworkPictureType("Cover (back)");
    EXPECT_EQ(saveAndWait(), QStringList());
    const QVariantList written = getAlbumArt(files[0]);
    ASSERT_EQ(written.size(), 2);
    EXPECT_EQ(written[1].toMap().value("Picture Type").toString(), "Cover (back)");
    EXPECT_EQ(written[1].toMap().value("Image").value<QImage>().size(), QSize(40, 30));

    tags.deleteArtwork();
    EXPECT_EQ(tags.artworkLabel(), "1 of 1");
    tags.deleteArtwork();
    EXPECT_EQ(tags.artworkLabel(), "No artwork");
    EXPECT_EQ(saveAndWait(), QStringList());
    EXPECT_FALSE(toolShowsPicture(files[0]));
    expectAudioUnchanged();

    tags.selectRows({});
    EXPECT_EQ(tags.artworkLabel(), "No track selected");
    EXPECT_FALSE(tags.setArtworkImage(dropped));
}

TEST(TagArtworkFiles, TheMimeTypePicksTheEncodingAndAnUnknownOneFollowsThePrevious)
{
    QTemporaryDir dir;
    QImage image(8, 8, QImage::Format_RGB32);
    image.fill(Qt::green);
    auto record = [&](const char* mime) { return QVariantMap{{"Mime Type", mime}, {"Image", image}}; };
    QVariantList artwork{record("image/unknown"), record("image/png"), record("image/unknown"),
                         record("image/jpeg"), QVariantMap{{"Mime Type", "image/png"}}};
    ASSERT_TRUE(TagSourcesWrapper::writeArtworkFiles(artwork, dir.path()));
    const QList<QPair<QString, QByteArray>> expected = {{"0.unknown", QByteArray("II*\0", 4)},
                                                        {"1.png", "\x89PNG"},
                                                        {"2.unknown", "\x89PNG"},
                                                        {"3.jpeg", "\xFF\xD8\xFF"}};
    for (int n = 0; n < expected.size(); ++n) {
        const QString path = artwork[n].toMap().value("cachepath").toString();
        EXPECT_EQ(path, dir.filePath(expected[n].first));
        const QByteArray bytes = testsupport::readFile(path);
        EXPECT_TRUE(bytes.startsWith(expected[n].second) || (n == 0 && bytes.startsWith("MM\0*"))) << n;
    }
    EXPECT_FALSE(artwork[4].toMap().contains("cachepath"));  // an added artwork without a picture
}

TEST_F(TagSourcesTest, FailedWritesNameTheFilesAndKeepTheEditsUntilTheyCanBeWritten)
{
    const QByteArray oggBefore = testsupport::readFile(files[1]);
    QFile::setPermissions(files[1], QFile::ReadOwner | QFile::ReadGroup);
    SafeFile::setFaultInjector([&](SafeFile::Step step, const QString& target) {
        if (target.endsWith("a.mp3"))  // written and checked, then the last step of the save fails
            return step == SafeFile::Step::Rename;
        return step != SafeFile::Step::Create && target.endsWith("c.m4a");  // as a full disk would
    });
    tags.selectRows({0, 1, 2});
    tags.setArtistField("Kept");
    const QStringList failures = saveAndWait();
    ASSERT_EQ(failures.size(), 3) << failures.join('\n').toStdString();
    EXPECT_TRUE(failures[0].contains("01 a.mp3"));
    EXPECT_TRUE(failures[1].contains("02 b.ogg"));
    EXPECT_TRUE(failures[2].contains("03 c.m4a"));
    EXPECT_TRUE(tags.isDirty());
    EXPECT_EQ(testsupport::readFile(files[1]), oggBefore);
    EXPECT_TRUE(toolShows(files[0], "artist", "Ann"));
    EXPECT_TRUE(toolShows(files[2], "artist", "Cyd"));

    QFile::setPermissions(files[1], QFile::ReadOwner | QFile::WriteOwner);
    SafeFile::setFaultInjector({});
    EXPECT_EQ(saveAndWait(), QStringList());
    EXPECT_FALSE(tags.isDirty());
    for (const QString& file : files)
        EXPECT_TRUE(toolShows(file, "artist", "Kept")) << toolTags(file).toStdString();
    expectAudioUnchanged();
}

TEST_F(TagSourcesTest, ASourceChangeWithEditsAsksAndSavesOrDiscardsAsAnswered)
{
    QTemporaryDir empty;
    tags.addFolder(empty.path());
    const int folder = folderRow();
    int other = -1;  // another source: an empty folder
    for (int row = 0; row < tags.sources().size(); ++row) {
        if (tags.sources()[row].path == QDir::cleanPath(empty.path()))
            other = row;
    }
    QSignalSpy asked(&tags, &TagSourcesWrapper::unsavedEditsPending);
    tags.selectRows({2});
    tags.setCell(2, "genre", "Polka");

    tags.selectSource(other);
    EXPECT_EQ(asked.size(), 1);
    EXPECT_EQ(tags.selectedSource(), folder);
    tags.resolveUnsavedEdits(TagSourcesWrapper::UnsavedChoice::Cancel);
    EXPECT_EQ(tags.rowCount(), 3);
    EXPECT_TRUE(tags.isDirty());

    tags.selectSource(other);
    tags.resolveUnsavedEdits(TagSourcesWrapper::UnsavedChoice::Save);
    ASSERT_TRUE(QTest::qWaitFor([&] { return tags.selectedSource() == other && !tags.isBusy(); }, 30000));
    EXPECT_TRUE(toolShows(files[2], "genre", "Polka")) << toolTags(files[2]).toStdString();

    // Back to the folder; an edit discarded leaves the file as it was.
    tags.selectSource(folder);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !tags.isBusy(); }, 30000));
    tags.selectRows({0});
    tags.setCell(0, "title", "Lost");
    const QByteArray before = testsupport::readFile(files[0]);
    tags.selectSource(other);
    tags.resolveUnsavedEdits(TagSourcesWrapper::UnsavedChoice::Discard);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !tags.isBusy(); }, 30000));
    EXPECT_EQ(tags.selectedSource(), other);
    EXPECT_EQ(testsupport::readFile(files[0]), before);
    tags.removeFolder(empty.path());
}

TEST_F(TagSourcesTest, InformationListsEveryId3FrameOfAnMp3AndNamesOtherFiles)
{
    const TagSourcesWrapper::Information mp3 = tags.showInformation();  // row 0 when none is selected
    EXPECT_EQ(tags.selectedRows(), QList<int>{0});
    EXPECT_TRUE(mp3.frames.contains("=== TIT2 (Title/songname/content description): Alpha")) << mp3.frames.toStdString();
    EXPECT_TRUE(mp3.frames.contains("=== APIC"));
    tags.selectRows({2});
    const TagSourcesWrapper::Information m4a = tags.showInformation();
    EXPECT_TRUE(m4a.frames.isEmpty());
    EXPECT_EQ(m4a.name, "03 c");
    EXPECT_EQ(m4a.extension, "M4A");
    EXPECT_EQ(m4a.folder, QFileInfo(files[2]).absolutePath());
}

}  // namespace

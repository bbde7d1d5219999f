// Real-world files from the test suites of TagLib and mutagen (tests/data):
// what is read from each, what a write keeps, and that the audio stays.
#include "tags/AudioPayload.h"
#include "tags/TagFacade.h"

#include "Mp4Fixtures.h"
#include "common/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {

QString sample(const char* name)
{
    return QStringLiteral(VELMORA_TEST_DATA_DIR "/") + QLatin1String(name);
}

// A writable copy of a sample file.
QString copyOf(const QTemporaryDir& dir, const char* name)
{
    const QString copy = dir.filePath(QLatin1String(name));
    EXPECT_TRUE(QFile::copy(sample(name), copy)) << name;
    ::chmod(QFile::encodeName(copy).constData(), 0644);
    return copy;
}

// The ID3v2 frames plain TagLib reads: "ID text" in file order.
QStringList plainFrames(const QString& path)
{
    QStringList frames;
    TagLib::MPEG::File file(QFile::encodeName(path).constData(), false);
    if (const TagLib::ID3v2::Tag* tag = file.ID3v2Tag()) {
        for (const TagLib::ID3v2::Frame* frame : tag->frameList())
            frames << QString::fromLatin1(frame->frameID().data(), 4) + QLatin1Char(' ') +
                          QString::fromUtf8(frame->toString().toCString(true));
    }
    return frames;
}

struct Mp3Sample {
    const char* file;
    QVariantMap read;    // what the tags hold, all of it
    QStringList frames;  // frame ids plain TagLib reads after a title write
};

const Mp3Sample kMp3Samples[] = {
    // Two frames of size 0 lead the tag: TagLib alone reads nothing.
    {"bad-POPM-frame.mp3",
     {{"title", "Emit and exude"},
      {"artist", "she"},
      {"album", "emit and exude"},
      {"year", "2004"},
      {"track", "4"},
      {"genre", "Other"}},
     {"TIT2", "TPE1", "TALB", "TDRC", "TRCK", "TCON", "POPM", "TCOM", "WXXX", "COMM"}},
    // The ID3v2.4 tag's year is a TYER frame; ID3v1 says 1337.
    {"id3v1v2-combined.mp3",
     {{"title", "cosmic american"},
      {"artist", "Anais Mitchell"},
      {"album", "Hymns for the Exiled"},
      {"year", "2004"},
      {"track", "3"}},
     {"TIT2", "TPE1", "TRCK", "TYER", "TENC", "COMM"}},
    {"lame_cbr.mp3", {}, {"TXXX", "TIT2"}},
    {"rare_frames.mp3", {{"genre", "Pop"}}, {"COMM", "TXXX", "TCON", "WXXX", "UFID", "TIT2"}},
};

}  // namespace

TEST(SampleFiles, Mp3TagsAreReadWholeAndATitleWriteKeepsEveryOtherFrameAndTheAudio)
{
    for (const Mp3Sample& row : kMp3Samples) {
        SCOPED_TRACE(row.file);
        QTemporaryDir dir;
        const QString file = copyOf(dir, row.file);
        EXPECT_EQ(getFileTags(file), row.read);
        const QStringList framesBefore = plainFrames(file);

        QVariantMap tags = row.read;
        tags.insert("title", "X");
        const TagWriteResult result = writeTags(file, tags, nullptr);
        ASSERT_TRUE(result.written) << result.error.toStdString();
        EXPECT_EQ(getFileTags(file), tags);
        EXPECT_EQ(AudioPayload::difference(AudioPayload::Format::Mpeg, sample(row.file), file), QString());

        const QStringList framesAfter = plainFrames(file);
        for (const QString& before : framesBefore) {
            if (!before.startsWith("TIT2")) {
                EXPECT_TRUE(framesAfter.contains(before)) << before.toStdString();
            }
        }
        QStringList ids;
        for (const QString& frame : framesAfter)
            ids << frame.left(4);
        for (const QString& id : row.frames)
            EXPECT_TRUE(ids.contains(id)) << id.toStdString();
        EXPECT_EQ(ids.count("TYER") + ids.count("TDRC"), row.read.contains("year") ? 1 : 0);
        // Nothing a write did not set changed: a second write of the same record is a no-op for the tags.
        ASSERT_TRUE(writeTags(file, tags, nullptr).written);
        EXPECT_EQ(plainFrames(file), framesAfter);
    }
}

TEST(SampleFiles, TextFramesBehindAFrameOfSizeZeroAreReadInATagLongerThanTheFile)
{
    QTemporaryDir dir;
    const QString file = copyOf(dir, "compressed_id3_frame.mp3");
    const QVariantMap expected{{"title", "Braveheart Theme (Techno remix"},
                               {"artist", "Moby"},
                               {"album", "<Undefined>"},
                               {"genre", "Techno-Dance"}};
    EXPECT_EQ(getFileTags(file), expected);
    const QVariantList artwork = getAlbumArt(file);
    ASSERT_EQ(artwork.size(), 1);
    EXPECT_EQ(artwork.at(0).toMap().value("Mime Type").toString(), "image/bmp");
    // The file holds no audio, so no write can prove it kept it.
    const TagWriteResult result = writeTags(file, {{"title", "X"}}, nullptr);
    EXPECT_FALSE(result.written);
    EXPECT_TRUE(result.error.contains("runs past the end of the file")) << result.error.toStdString();
    EXPECT_EQ(testsupport::readFile(file), testsupport::readFile(sample("compressed_id3_frame.mp3")));
}

TEST(SampleFiles, Mp4FilesAToolWouldDamageOrThatLackTheirAudioAreReadAndLeftAsTheyWere)
{
    struct Row {
        const char* file;
        QVariantMap read;
        const char* refusal;
    };
    const Row rows[] = {
        // AtomicParsley takes the QuickTime-style meta atom for an ISO one and nests the tracks inside it.
        {"nonprintable-atom-type.m4a", {{"duration", "1"}}, "the audio would have changed"},
        // Cut off after the movie atom: the chunks lie past the end of the file.
        {"infloop.m4a",
         {{"title", "Udo"},
          {"artist", "POCKET BISCUITS"},
          {"album", "Complete Singles Collection Vol.1"},
          {"genre", "Pop"},
          {"year", "2004"},
          {"track", "6/16"},
          {"duration", "270"}},
         "its audio cannot be told from its tags"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.file);
        QTemporaryDir dir;
        const QString file = copyOf(dir, row.file);
        QVariantMap read = getComments(file).value_or(QVariantMap());
        for (const char* guess : {"title", "artist"}) {
            if (!row.read.contains(guess))
                read.remove(guess);  // from the file name
        }
        EXPECT_EQ(read, row.read);
        const TagWriteResult result = writeTags(file, {{"title", "X"}}, nullptr);
        EXPECT_FALSE(result.written);
        EXPECT_TRUE(result.error.contains(row.refusal)) << result.error.toStdString();
        EXPECT_EQ(testsupport::readFile(file), testsupport::readFile(sample(row.file)));
        EXPECT_EQ(QDir(dir.path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::Hidden).size(), 1);
    }
}

TEST(SampleFiles, ADataAtomOfSizeZeroNoLongerCostsTheItemsBehindIt)
{
    // infloop.m4a's damage on a whole file: "gnre" data of size 0, then freeform items.
    QTemporaryDir dir;
    const QString file = dir.filePath("corrupt-genre.m4a");
    ASSERT_TRUE(fixtures::makeWithFfmpeg(file, {"-c:a", "aac", "-b:a", "32k", "-movflags", "+faststart"}));
    ASSERT_EQ(testsupport::run("AtomicParsley", {file, "--overWrite", "--genre", "Rock", "--encodingTool", "iTunes 7",
                                                 "--rDNSatom", "-1.0 dB", "name=iTunNORM", "domain=com.apple.iTunes",
                                                 "--rDNSatom", "abc", "name=Other", "domain=org.example"}),
              0);
    QByteArray bytes = testsupport::readFile(file);
    const qsizetype genre = bytes.indexOf("gnre");
    ASSERT_GT(genre, 0);
    bytes.replace(genre + 4, 4, QByteArray(4, '\0'));
    ASSERT_TRUE(testsupport::writeFile(file, bytes));
    const QString original = dir.filePath("original.m4a");
    ASSERT_TRUE(QFile::copy(file, original));

    const TagWriteResult result = writeTags(file, {{"title", "X"}}, nullptr);
    ASSERT_TRUE(result.written) << result.error.toStdString();
    const QByteArray after = testsupport::readFile(file);
    for (const QByteArray& kept :
         {QByteArray("iTunNORM"), QByteArray("-1.0 dB"), QByteArray("org.example"), QByteArray("iTunes 7")})
        EXPECT_TRUE(after.contains(kept)) << kept.constData();
    const QVariantMap read = getFileTags(file).value_or(QVariantMap());
    EXPECT_EQ(read.value("title").toString(), "X");
    EXPECT_EQ(read.value("genre").toString(), "Rock");
    EXPECT_EQ(AudioPayload::difference(AudioPayload::Format::Mp4, original, file), QString());
}

TEST(SampleFiles, RawAacStreamsHaveADurationAndRefuseTags)
{
    QTemporaryDir dir;
    const QString file = dir.filePath("stream.aac");
    ASSERT_TRUE(fixtures::makeWithFfmpeg(file, {"-c:a", "aac", "-b:a", "32k", "-f", "adts"}, 3.0));
    const QByteArray before = testsupport::readFile(file);
    EXPECT_EQ(getComments(file).value_or(QVariantMap()).value("duration").toString(), "3");
    EXPECT_EQ(getFileTags(file), QVariantMap());
    const TagWriteResult result = writeTags(file, {{"title", "X"}}, nullptr);
    EXPECT_FALSE(result.written);
    EXPECT_TRUE(result.error.contains("carry no MP4 tags")) << result.error.toStdString();
    EXPECT_EQ(testsupport::readFile(file), before);
}

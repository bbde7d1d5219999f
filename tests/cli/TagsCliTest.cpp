#include "common/TestSupport.h"

#include <QDir>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {
int cli(const QStringList& arguments, QByteArray* output)
{
    return testsupport::run(testsupport::builtProgram("velmora-cli"), arguments, output);
}

QString makeMp3(const QString& path, const QStringList& lameArguments)
{
    const QString wav = path + ".wav";
    EXPECT_EQ(testsupport::run("sox", {"-n", "-r", "44100", "-c", "2", wav, "synth", "1", "sine", "330"}), 0);
    QStringList arguments{"--quiet"};
    arguments << lameArguments << wav << path;
    EXPECT_EQ(testsupport::run("lame", arguments), 0);
    QFile::remove(wav);
    return path;
}
} // namespace

TEST(TagsCommand, PrintsRecordsAsJsonAndNamesMissingFiles)
{
    QTemporaryDir dir;
    const QString mp3 = makeMp3(dir.filePath("t.mp3"), {"--tt", "Title", "--ta", "Band", "--add-id3v2"});
    QByteArray output;
    const int status = cli({"tags", "--json", mp3, dir.filePath("gone.mp3"), dir.path(), mp3}, &output);
    EXPECT_EQ(status, 1);
    const QList<QByteArray> lines = output.trimmed().split('\n');
    QList<QJsonObject> objects;
    QStringList errors;
    for (const QByteArray& line : lines) {
        const QJsonDocument document = QJsonDocument::fromJson(line);
        if (document.isObject())
            objects << document.object();
        else
            errors << QString::fromUtf8(line);
    }
    ASSERT_EQ(objects.size(), 2);
    EXPECT_EQ(objects.at(0).value("path").toString(), mp3);
    EXPECT_EQ(objects.at(0).value("tags").toObject().value("title").toString(), "Title");
    EXPECT_EQ(objects.at(0).value("tags").toObject().value("duration").toString(), "1");
    EXPECT_TRUE(objects.at(0).value("artwork").toArray().isEmpty());
    ASSERT_EQ(errors.size(), 2);
    EXPECT_TRUE(errors.at(0).contains("gone.mp3"));
    EXPECT_TRUE(errors.at(1).contains(dir.path()));
}

TEST(TagsCommand, WritesKeysAndArtworkAndRefusesWma)
{
    QTemporaryDir dir;
    const QString mp3 = makeMp3(dir.filePath("w.mp3"), {"--tt", "Before", "--ta", "Band", "--add-id3v2"});
    QImage picture(16, 8, QImage::Format_RGB32);
    picture.fill(Qt::yellow);
    ASSERT_TRUE(picture.save(dir.filePath("front.png")));
    QByteArray output;
    ASSERT_EQ(cli({"tags", "--set", "title=After", "--set", "year=2020", "--artwork", dir.filePath("front.png"), mp3},
                  &output), 0) << output.constData();
    ASSERT_EQ(cli({"tags", "--json", mp3}, &output), 0);
    const QJsonObject object = QJsonDocument::fromJson(output).object();
    const QJsonObject tags = object.value("tags").toObject();
    EXPECT_EQ(tags.value("title").toString(), "After");
    EXPECT_EQ(tags.value("artist").toString(), "Band");
    EXPECT_EQ(tags.value("year").toString(), "2020");
    const QJsonArray artwork = object.value("artwork").toArray();
    ASSERT_EQ(artwork.size(), 1);
    EXPECT_EQ(artwork.at(0).toObject().value("Picture Type").toString(), "Cover (front)");
    EXPECT_EQ(artwork.at(0).toObject().value("Mime Type").toString(), "image/png");
    EXPECT_EQ(artwork.at(0).toObject().value("width").toInt(), 16);
    EXPECT_EQ(artwork.at(0).toObject().value("height").toInt(), 8);

    // Plain text names the picture with its size.
    ASSERT_EQ(cli({"tags", mp3}, &output), 0);
    EXPECT_TRUE(output.contains("artwork: Cover (front), \"\", image/png, 16x8")) << output.constData();

    ASSERT_EQ(cli({"tags", "--set", "album=X", "--no-artwork", mp3}, &output), 0);
    ASSERT_EQ(cli({"tags", "--json", mp3}, &output), 0);
    EXPECT_TRUE(QJsonDocument::fromJson(output).object().value("artwork").toArray().isEmpty());

    testsupport::writeFile(dir.filePath("s.wma"), "wma");
    EXPECT_EQ(cli({"tags", "--set", "title=x", dir.filePath("s.wma")}, &output), 1);
    EXPECT_TRUE(output.contains("cannot be written")) << output.constData();
    EXPECT_EQ(testsupport::readFile(dir.filePath("s.wma")), "wma");
    EXPECT_EQ(cli({"tags", "--set", "bogus=1", mp3}, &output), 2);
}

TEST(TagsCommand, NamesEveryFileThatWasNotWrittenAndExitsWithOne)
{
    QTemporaryDir dir;
    const QString writable = makeMp3(dir.filePath("open.mp3"), {"--tt", "Before", "--add-id3v2"});
    const QString locked = makeMp3(dir.filePath("locked.mp3"), {"--tt", "Before", "--add-id3v2"});
    ::chmod(QFile::encodeName(locked).constData(), 0444);
    const QByteArray lockedBytes = testsupport::readFile(locked);
    QByteArray output;
    EXPECT_EQ(cli({"tags", "--set", "title=After", locked, writable}, &output), 1);
    EXPECT_TRUE(output.contains("velmora-cli tags: \"" + locked.toUtf8() + "\" is read-only")) << output.constData();
    EXPECT_FALSE(output.contains("open.mp3")) << output.constData();
    EXPECT_EQ(testsupport::readFile(locked), lockedBytes);
    ASSERT_EQ(cli({"tags", "--json", writable}, &output), 0);
    EXPECT_EQ(QJsonDocument::fromJson(output).object().value("tags").toObject().value("title").toString(), "After");
}

TEST(TagsCommand, AFullDiskIsReportedAndEachFileStaysWhole)
{
    QTemporaryDir dir;
    const QString picture = dir.filePath("picture.png");
    QImage image(32, 32, QImage::Format_RGB32);
    image.fill(Qt::blue);
    ASSERT_TRUE(image.save(picture));
    const QString mp3 = makeMp3(dir.filePath("song.mp3"), {"--tt", "Before", "--add-id3v2"});
    const QString ogg = dir.filePath("song.ogg");
    ASSERT_EQ(testsupport::run("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16", dir.filePath("s.wav"), "synth", "1",
                                       "sine", "330"}),
              0);
    ASSERT_EQ(testsupport::run("oggenc", {"-Q", "-o", ogg, dir.filePath("s.wav")}), 0);
    QFile::remove(dir.filePath("s.wav"));
    const QString m4a = dir.filePath("song.m4a");
    ASSERT_EQ(testsupport::run("ffmpeg", {"-v", "error", "-f", "lavfi", "-i", "sine=duration=1", "-c:a", "aac", m4a}),
              0);
    const QStringList before = QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    for (const QString& file : {mp3, ogg, m4a}) {
        const QByteArray bytes = testsupport::readFile(file);
        // Room for half the file: no new version fits.
        QByteArray output;
        const int status = testsupport::run("prlimit",
                                            {QStringLiteral("--fsize=%1").arg(bytes.size() / 2),
                                             testsupport::builtProgram("velmora-cli"), "tags", "--set", "title=Full",
                                             "--artwork", picture, file},
                                            &output);
        EXPECT_EQ(status, 1) << output.constData();
        EXPECT_TRUE(output.contains(file.toUtf8()) && output.contains("the disk is full")) << output.constData();
        EXPECT_EQ(testsupport::readFile(file), bytes) << file.toStdString();
        EXPECT_EQ(QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), before);
    }
}

TEST(CollectCommand, ListsAFolderInFinderOrder)
{
    QTemporaryDir dir;
    const QString root = dir.filePath("Box");
    QDir().mkpath(root + "/CD 1");
    makeMp3(root + "/track10.mp3", {"--tt", "Ten", "--add-id3v2"});
    makeMp3(root + "/Track9.mp3", {});
    makeMp3(root + "/CD 1/Band_Song.mp3", {});
    QByteArray output;
    ASSERT_EQ(cli({"collect", "--json", root}, &output), 0) << output.constData();
    QStringList sources, destinations;
    QJsonObject last;
    for (const QByteArray& line : output.trimmed().split('\n')) {
        last = QJsonDocument::fromJson(line).object();
        sources << last.value("source").toString();
        destinations << last.value("destination").toString();
    }
    EXPECT_EQ(sources, (QStringList{root + "/CD 1/Band_Song.mp3", root + "/Track9.mp3", root + "/track10.mp3"}));
    EXPECT_EQ(destinations, (QStringList{"Box/CD 1", "Box", "Box"}));
    EXPECT_EQ(last.value("tags").toObject().value("duration").toString(), "1");
    EXPECT_EQ(cli({"collect", dir.filePath("none")}, &output), 1);
}

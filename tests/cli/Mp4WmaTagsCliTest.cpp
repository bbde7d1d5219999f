// velmora-cli tags on WMA (read only) and MP4/AAC files.
#include "common/TestSupport.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {

int cli(const QStringList& arguments, QByteArray* output = nullptr)
{
    return testsupport::run(testsupport::builtProgram("velmora-cli"), arguments, output);
}

bool ffmpeg(const QString& output, const QStringList& options)
{
    QStringList arguments{"-v", "error", "-y", "-f", "lavfi", "-i", "sine=frequency=440:duration=2"};
    arguments << options << output;
    return testsupport::run("ffmpeg", arguments) == 0;
}

QJsonObject readJson(const QString& path)
{
    QByteArray output;
    EXPECT_EQ(cli({"tags", "--json", path}, &output), 0) << output.toStdString();
    for (const QByteArray& line : output.split('\n')) {
        const QJsonDocument document = QJsonDocument::fromJson(line);
        if (document.isObject())
            return document.object();
    }
    ADD_FAILURE() << "no JSON line in " << output.toStdString();
    return {};
}

QByteArray audioMd5(const QString& path)
{
    QByteArray out;
    testsupport::run("ffmpeg", {"-v", "error", "-i", path, "-map", "0:a", "-c", "copy", "-f", "md5", "-"}, &out);
    return out.trimmed();
}

} // namespace

TEST(Mp4WmaTagsCommand, ReadsWmaAndRefusesToWriteIt)
{
    QTemporaryDir dir;
    const QString wma = dir.filePath("song.wma");
    ASSERT_TRUE(ffmpeg(wma, {"-c:a", "wmav2", "-metadata", "title=Song", "-metadata", "artist=Band", "-metadata",
                             "album=Disc", "-metadata", "WM/Year=2004", "-metadata", "genre=Rock", "-metadata",
                             "track=7"}));
    const QJsonObject tags = readJson(wma).value("tags").toObject();
    EXPECT_EQ(tags.value("title").toString(), QString("Song") + QChar(0));
    EXPECT_EQ(tags.value("artist").toString(), QString("Band") + QChar(0));
    EXPECT_EQ(tags.value("album").toString(), "Disc");
    EXPECT_EQ(tags.value("year").toString(), "2004");
    EXPECT_EQ(tags.value("genre").toString(), "Rock");
    EXPECT_EQ(tags.value("track").toString(), "7");

    const QByteArray before = testsupport::readFile(wma);
    QByteArray output;
    EXPECT_EQ(cli({"tags", "--set", "title=Other", wma}, &output), 1);
    EXPECT_TRUE(output.contains("cannot be written")) << output.toStdString();
    EXPECT_EQ(testsupport::readFile(wma), before);
}

TEST(Mp4WmaTagsCommand, WritesM4aTagsAndArtwork)
{
    QTemporaryDir dir;
    const QString m4a = dir.filePath("track.m4a");
    ASSERT_TRUE(ffmpeg(m4a, {"-c:a", "aac", "-metadata", "title=Old", "-metadata", "artist=Band"}));
    const QString cover = dir.filePath("cover.png");
    ASSERT_EQ(testsupport::run("ffmpeg", {"-v", "error", "-y", "-f", "lavfi", "-i", "color=c=green:s=12x10",
                                          "-frames:v", "1", cover}),
              0);
    const QByteArray audio = audioMd5(m4a);

    QByteArray output;
    ASSERT_EQ(cli({"tags", "--set", "title=New", "--set", "genre=Rock", "--set", "track=2/5", "--artwork", cover, m4a},
                  &output),
              0)
        << output.toStdString();
    QJsonObject record = readJson(m4a);
    QJsonObject tags = record.value("tags").toObject();
    EXPECT_EQ(tags.value("title").toString(), "New");
    EXPECT_EQ(tags.value("artist").toString(), "Band");
    EXPECT_EQ(tags.value("genre").toString(), "Rock");
    EXPECT_EQ(tags.value("track").toString(), "2/5");
    QJsonArray artwork = record.value("artwork").toArray();
    ASSERT_EQ(artwork.size(), 1);
    EXPECT_EQ(artwork[0].toObject().value("Picture Type").toString(), "Cover (front)");
    EXPECT_EQ(artwork[0].toObject().value("Mime Type").toString(), "image/png");
    EXPECT_EQ(artwork[0].toObject().value("width").toInt(), 12);
    EXPECT_EQ(audioMd5(m4a), audio);

    // Writing keys alone keeps the picture; --no-artwork removes it.
    ASSERT_EQ(cli({"tags", "--set", "album=Kept", m4a}), 0);
    EXPECT_EQ(readJson(m4a).value("artwork").toArray().size(), 1);
    ASSERT_EQ(cli({"tags", "--no-artwork", m4a}), 0);
    record = readJson(m4a);
    EXPECT_TRUE(record.value("artwork").toArray().isEmpty());
    EXPECT_EQ(record.value("tags").toObject().value("album").toString(), "Kept");
    EXPECT_EQ(audioMd5(m4a), audio);
}

TEST(Mp4WmaTagsCommand, AnAtomicParsleyThatFailsIsReportedAndTheFileKept)
{
    QTemporaryDir dir;
    const QString m4a = dir.filePath("track.m4a");
    ASSERT_TRUE(ffmpeg(m4a, {"-c:a", "aac", "-metadata", "title=Old"}));
    const QByteArray before = testsupport::readFile(m4a);
    // A stand-in first on PATH that fails the way a tool on a full disk does.
    QDir().mkpath(dir.filePath("bin"));
    ASSERT_TRUE(testsupport::writeFile(dir.filePath("bin/AtomicParsley"), "#!/bin/sh\necho 'disk full' >&2\nexit 2\n"));
    ::chmod(QFile::encodeName(dir.filePath("bin/AtomicParsley")).constData(), 0755);
    const QByteArray path = qgetenv("PATH");
    qputenv("PATH", QFile::encodeName(dir.filePath("bin")) + ':' + path);
    QByteArray output;
    const int status = cli({"tags", "--set", "title=New", m4a}, &output);
    qputenv("PATH", path);
    EXPECT_EQ(status, 1);
    EXPECT_TRUE(output.contains("AtomicParsley failed on \"" + m4a.toUtf8() + "\" (exit status 2)"))
        << output.toStdString();
    EXPECT_EQ(testsupport::readFile(m4a), before);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
              (QStringList{"bin", "track.m4a"}));
}

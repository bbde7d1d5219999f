// mkisofs-dvd-audio as the audio-DVD burner runs it: "-V NAME -o IMAGE -dvd-audio DIR".
// The image is read back through isoinfo, udfinfo, 7-Zip and a small UDF reader
// of the test's own, and every file must come back byte for byte from both file systems.
#include "common/TestSupport.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtEndian>

#include <memory>

using testsupport::builtProgram;
using testsupport::readFile;
using testsupport::run;
using testsupport::writeFile;

namespace {

constexpr qint64 kSector = 2048;

struct Outcome {
    int status = -1;
    QByteArray out, err;
};

Outcome runTool(const QStringList& arguments)
{
    QProcess process;
    process.start(builtProgram("mkisofs-dvd-audio"), arguments);
    Outcome outcome;
    if (!process.waitForStarted(10000) || !process.waitForFinished(120000))
        return outcome;
    outcome.status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    outcome.out = process.readAllStandardOutput();
    outcome.err = process.readAllStandardError();
    return outcome;
}

// Bytes no two files share, so a file read from the wrong place shows.
QByteArray patterned(const QString& name, qint64 size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    quint32 state = qHash(name) | 1u;
    for (qint64 i = 0; i < size; ++i) {
        state = state * 1664525u + 1013904223u;
        bytes[i] = char(state >> 24);
    }
    return bytes;
}

struct FixtureFile {
    QString path;  // relative to the folder
    qint64 size;
};

// The AUDIO_TS files in the order players read them; odd sizes on purpose
// (one byte, exactly a sector, one byte over, empty).
const QList<FixtureFile> kAudioTs = {
    {"AUDIO_TS/AUDIO_TS.IFO", 2048}, {"AUDIO_TS/AUDIO_TS.BUP", 2048},   {"AUDIO_TS/AUDIO_PP.IFO", 2049},
    {"AUDIO_TS/ATS_01_0.IFO", 1},    {"AUDIO_TS/ATS_01_1.AOB", 150001}, {"AUDIO_TS/ATS_01_2.AOB", 0},
    {"AUDIO_TS/ATS_01_0.BUP", 4095},
};
// A file outside AUDIO_TS whose name ISO 9660 cannot hold as it is.
const FixtureFile kLinerNotes = {"Liner notes \u266B.txt", 700};

void makeDvdFolder(const QString& folder)
{
    QDir().mkpath(folder + "/VIDEO_TS");
    // Made in reverse, so the image's order cannot come from the order of creation.
    for (auto file = kAudioTs.rbegin(); file != kAudioTs.rend(); ++file)
        ASSERT_TRUE(writeFile(folder + '/' + file->path, patterned(file->path, file->size)));
    ASSERT_TRUE(writeFile(folder + '/' + kLinerNotes.path, patterned(kLinerNotes.path, kLinerNotes.size)));
}

struct Listed {
    qint64 size = -1;
    qint64 sector = -1;
};

// isoinfo -l: "----------   0    0    0    2048 Nov 23 2026 [    281 00]  AUDIO_PP.IFO;1"
QMap<QString, Listed> isoListing(const QString& image)
{
    QByteArray text;
    run("isoinfo", {"-i", image, "-l"}, &text);
    static const QRegularExpression heading("^Directory listing of /(.*)$");
    static const QRegularExpression entry(
        R"(^-\S+\s+\d+\s+\d+\s+\d+\s+(\d+)\s+\w+\s+\d+\s+\d+\s+\[\s*(\d+)\s+\d+\]\s+(.+?)\s*$)");
    QMap<QString, Listed> files;
    QString folder;
    for (const QString& line : QString::fromUtf8(text).split('\n')) {
        if (const auto match = heading.match(line); match.hasMatch())
            folder = match.captured(1);
        else if (const auto match = entry.match(line); match.hasMatch())
            files[folder + match.captured(3)] = {match.captured(1).toLongLong(), match.captured(2).toLongLong()};
    }
    return files;
}

// A UDF reader written from the format's description alone: anchor, volume
// descriptors, file set, then the folders' file identifiers down to the files.
class UdfReader {
public:
    struct File {
        qint64 size = 0;
        QList<QPair<qint64, qint64>> extents;  // image sector, bytes
    };

    explicit UdfReader(QByteArray image) : image_(std::move(image)) {}

    QString read()
    {
        const qint64 sectors = image_.size() / kSector;
        if (!descriptor(256 * kSector, 2, 256) || !descriptor((sectors - 1) * kSector, 2, quint32(sectors - 1)))
            return "no anchor at 256 and at the last sector";
        qint64 sector = u32(256 * kSector + 20);
        const qint64 end = sector + u32(256 * kSector + 16) / kSector;
        qint64 fileSetBlock = -1;
        for (; sector < end && u16(sector * kSector) != 8; ++sector) {
            if (!descriptor(sector * kSector, u16(sector * kSector), quint32(sector)))
                return QString("bad descriptor at sector %1").arg(sector);
            if (u16(sector * kSector) == 5)
                partitionStart_ = u32(sector * kSector + 188);
            if (u16(sector * kSector) == 6 && u32(sector * kSector + 212) == kSector)
                fileSetBlock = u32(sector * kSector + 252);
        }
        if (partitionStart_ < 0 || fileSetBlock < 0)
            return "no partition or logical volume descriptor";
        const qint64 fileSet = (partitionStart_ + fileSetBlock) * kSector;
        if (!descriptor(fileSet, 256, quint32(fileSetBlock)))
            return "no file set descriptor";
        return walk(u32(fileSet + 404), QString(), 0);
    }

    const QMap<QString, File>& files() const { return files_; }
    QByteArray contents(const File& file) const
    {
        QByteArray bytes;
        for (const auto& [sector, length] : file.extents)
            bytes += image_.mid(sector * kSector, length);
        return bytes;
    }

private:
    quint16 u16(qint64 at) const { return qFromLittleEndian<quint16>(image_.constData() + at); }
    quint32 u32(qint64 at) const { return qFromLittleEndian<quint32>(image_.constData() + at); }

    bool descriptor(qint64 at, quint16 id, quint32 location) const
    {
        if (at < 0 || at + 16 > image_.size() || u16(at) != id || u32(at + 12) != location)
            return false;
        quint8 sum = 0;
        for (int i = 0; i < 16; ++i)
            sum = quint8(sum + (i == 4 ? 0 : quint8(image_[at + i])));
        const qint64 crcLength = u16(at + 10);
        if (sum != quint8(image_[at + 4]) || at + 16 + crcLength > image_.size())
            return false;
        quint16 crc = 0;
        for (qint64 i = 0; i < crcLength; ++i) {
            crc ^= quint16(quint8(image_[at + 16 + i]) << 8);
            for (int bit = 0; bit < 8; ++bit)
                crc = quint16(crc & 0x8000 ? (crc << 1) ^ 0x1021 : crc << 1);
        }
        return crc == u16(at + 8);
    }

    QString walk(qint64 entryBlock, const QString& path, int depth)
    {
        const qint64 at = (partitionStart_ + entryBlock) * kSector;
        if (depth > 8 || !descriptor(at, 261, quint32(entryBlock)) || (u16(at + 34) & 7) != 0)
            return "bad file entry for /" + path;
        File file;
        file.size = qint64(qFromLittleEndian<quint64>(image_.constData() + at + 56));
        const qint64 descriptors = at + 176 + u32(at + 168);
        for (qint64 ad = 0; ad < u32(at + 172); ad += 8) {
            const quint32 length = u32(descriptors + ad);
            if (length >> 30)
                return "an extent of /" + path + " is not recorded";
            file.extents.append({partitionStart_ + u32(descriptors + ad + 4), length & 0x3FFFFFFF});
        }
        if (image_[at + 27] == 5) {
            files_[path] = file;
            return {};
        }
        const QByteArray directory = contents(file).left(file.size);
        for (qint64 offset = 0; offset < directory.size();) {
            const qint64 fid = file.extents.value(0).first * kSector + offset;
            if (!descriptor(fid, 257, quint32(fid / kSector - partitionStart_)))
                return "bad file identifier in /" + path;
            const int characteristics = quint8(image_[fid + 18]), nameLength = quint8(image_[fid + 19]);
            const QByteArray name = image_.mid(fid + 38 + u16(fid + 36), nameLength);
            if (!(characteristics & 0x08)) {
                QString text;
                if (name.startsWith('\x08'))
                    text = QString::fromLatin1(name.mid(1));
                for (int i = 1; name.startsWith('\x10') && i + 1 < name.size(); i += 2)
                    text += QChar(quint16(quint8(name[i]) << 8 | quint8(name[i + 1])));
                if (const QString error =
                        walk(u32(fid + 24), path + text + (characteristics & 0x02 ? "/" : ""), depth + 1);
                    !error.isEmpty())
                    return error;
            }
            offset += (38 + u16(fid + 36) + nameLength + 3) / 4 * 4;
        }
        return {};
    }

    QByteArray image_;
    qint64 partitionStart_ = -1;
    QMap<QString, File> files_;
};

class MkisofsDvdAudio : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        dir_ = new QTemporaryDir;
        makeDvdFolder(folder());
        outcome_ = new Outcome(runTool({"-V", "DVD-Audio", "-o", image(), "-dvd-audio", folder()}));
    }
    static void TearDownTestSuite()
    {
        delete outcome_;
        delete dir_;
    }
    static QString folder() { return dir_->filePath("DVD"); }
    static QString image() { return dir_->filePath("DVD.img"); }

    static QTemporaryDir* dir_;
    static Outcome* outcome_;
};
QTemporaryDir* MkisofsDvdAudio::dir_ = nullptr;
Outcome* MkisofsDvdAudio::outcome_ = nullptr;

TEST_F(MkisofsDvdAudio, ReportsProgressAndTheSectorsItWrote)
{
    ASSERT_EQ(outcome_->status, 0) << outcome_->err.constData();
    QList<QByteArray> lines = outcome_->out.trimmed().split('\n');
    const QByteArray wrote = lines.takeLast();
    EXPECT_EQ(wrote,
              "Wrote " + image().toUtf8() + ' ' + QByteArray::number(QFileInfo(image()).size() / kSector) + " sectors");
    EXPECT_EQ(QFileInfo(image()).size() % kSector, 0);
    int previous = -1;
    for (const QByteArray& line : lines) {
        ASSERT_TRUE(line.startsWith("Progress: ") && line.endsWith('%')) << line.constData();
        const int percent = line.mid(10).chopped(1).toInt();
        EXPECT_GT(percent, previous);
        previous = percent;
    }
    EXPECT_EQ(previous, 100);
    EXPECT_TRUE(QDir(dir_->path()).entryList(QDir::Files | QDir::Hidden).filter("DVD.img.").isEmpty());
}

TEST_F(MkisofsDvdAudio, IsoinfoListsAudioTsFirstInPlayerOrderEachFileInOnePiece)
{
    ASSERT_EQ(outcome_->status, 0) << outcome_->err.constData();
    const QMap<QString, Listed> listed = isoListing(image());
    ASSERT_EQ(listed.size(), kAudioTs.size() + 1) << listed.keys().join(' ').toStdString();
    qint64 next = listed.value("AUDIO_TS/AUDIO_TS.IFO;1").sector;
    for (const FixtureFile& file : kAudioTs) {
        const Listed entry = listed.value(file.path + ";1");
        EXPECT_EQ(entry.size, file.size) << file.path.toStdString();
        EXPECT_EQ(entry.sector, next) << file.path.toStdString() << " is not where the file before it ends";
        next = entry.sector + (file.size + kSector - 1) / kSector;
    }
    EXPECT_GE(listed.value("LINER_NOTES__.TXT;1").sector, next);

    QByteArray description;
    run("isoinfo", {"-i", image(), "-d"}, &description);
    EXPECT_TRUE(description.contains("Volume id: DVD-Audio\n")) << description.constData();
}

TEST_F(MkisofsDvdAudio, EveryFileReadsBackWholeFromBothFileSystems)
{
    ASSERT_EQ(outcome_->status, 0) << outcome_->err.constData();
    const QMap<QString, Listed> listed = isoListing(image());
    UdfReader udf(readFile(image()));
    ASSERT_EQ(udf.read(), QString());
    EXPECT_EQ(udf.files().size(), kAudioTs.size() + 1);

    for (const FixtureFile& file : kAudioTs + QList<FixtureFile>{kLinerNotes}) {
        SCOPED_TRACE(file.path.toStdString());
        const QByteArray original = patterned(file.path, file.size);
        const QString isoPath = file.path == kLinerNotes.path ? "LINER_NOTES__.TXT;1" : file.path + ";1";
        QByteArray extracted;
        run("isoinfo", {"-i", image(), "-x", '/' + isoPath}, &extracted);
        EXPECT_EQ(extracted, original);

        ASSERT_TRUE(udf.files().contains(file.path));
        const UdfReader::File& entry = udf.files()[file.path];
        EXPECT_EQ(entry.size, file.size);
        EXPECT_EQ(udf.contents(entry), original);
        if (file.size > 0) {
            ASSERT_EQ(entry.extents.size(), 1);
            EXPECT_EQ(entry.extents[0].first, listed.value(isoPath).sector) << "the two file systems disagree";
        }
    }
}

TEST_F(MkisofsDvdAudio, UdfToolsAnd7ZipReadTheUdfSide)
{
    ASSERT_EQ(outcome_->status, 0) << outcome_->err.constData();
    QByteArray info;
    ASSERT_EQ(run("udfinfo", {image()}, &info), 0) << info.constData();
    for (const char* expected : {"label=DVD-Audio\n", "udfrev=1.02\n", "integrity=closed\n", "numfiles=8\n",
                                 "numdirs=3\n", "start=256, blocks=1, type=ANCHOR\n"})
        EXPECT_TRUE(info.contains(expected)) << expected << " missing from\n" << info.constData();

    const QString unpacked = dir_->filePath("unpacked");
    QByteArray log;
    ASSERT_EQ(run("7zz", {"x", "-tudf", "-o" + unpacked, image()}, &log), 0) << log.constData();
    for (const FixtureFile& file : kAudioTs + QList<FixtureFile>{kLinerNotes})
        EXPECT_EQ(readFile(unpacked + '/' + file.path), patterned(file.path, file.size)) << file.path.toStdString();
    EXPECT_TRUE(QFileInfo(unpacked + "/VIDEO_TS").isDir());
}

// Folders whose records fill several sectors, with identifiers crossing block boundaries.
TEST(MkisofsDvdAudioTree, ManyFilesInOneFolder)
{
    QTemporaryDir dir;
    const int count = 90;
    const auto name = [](int i) { return QString("extras/an extra file numbered %1.txt").arg(i); };
    for (int i = 0; i < count; ++i)
        ASSERT_TRUE(writeFile(dir.filePath("DVD/" + name(i)), patterned(name(i), 100 + i)));
    const QString image = dir.filePath("DVD.img");
    ASSERT_EQ(runTool({"-V", "X", "-o", image, "-dvd-audio", dir.filePath("DVD")}).status, 0);

    const QMap<QString, Listed> listed = isoListing(image);
    UdfReader udf(readFile(image));
    ASSERT_EQ(udf.read(), QString());
    ASSERT_EQ(udf.files().size(), count);
    for (int i = 0; i < count; ++i) {
        const UdfReader::File file = udf.files().value(name(i));
        EXPECT_EQ(udf.contents(file), patterned(name(i), 100 + i)) << i;
        const Listed entry = listed.value(QString("EXTRAS/AN_EXTRA_FILE_NUMBERED_%1.TXT;1").arg(i));
        EXPECT_EQ(entry.size, 100 + i);
        EXPECT_EQ(entry.sector, file.extents.value(0).first);
    }
}

TEST(MkisofsDvdAudioFailures, LeaveNoImageAndKeepAnOldOne)
{
    QTemporaryDir dir;
    const QString folder = dir.filePath("DVD");
    makeDvdFolder(folder);
    ASSERT_TRUE(writeFile(dir.filePath("a file"), "not a folder"));
    ASSERT_TRUE(QDir().mkpath(dir.filePath("out")));
    ASSERT_TRUE(writeFile(dir.filePath("clash/AUDIO_TS/AUDIO_TS.IFO"), "x"));
    ASSERT_TRUE(writeFile(dir.filePath("clash/AUDIO_TS/audio_ts.ifo"), "y"));
    ASSERT_TRUE(QDir().mkpath(dir.filePath("loop/AUDIO_TS")));
    ASSERT_TRUE(QFile::link("..", dir.filePath("loop/AUDIO_TS/again")));
    // A disk that fills up half way (a file-size limit stands in for it).
    QProcess limited;
    limited.start("prlimit", {"--fsize=300000", "--", builtProgram("mkisofs-dvd-audio"), "-V", "DVD-Audio", "-o",
                              dir.filePath("out/full.img"), "-dvd-audio", folder});
    ASSERT_TRUE(limited.waitForFinished(60000));
    EXPECT_EQ(limited.exitCode(), 1);
    EXPECT_TRUE(limited.readAllStandardError().contains("File too large"));
    EXPECT_EQ(QDir(dir.filePath("out")).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
              QStringList());

    struct Case {
        const char* what;
        QString image;
        QString source;
    };
    const QList<Case> cases = {
        {"missing folder", dir.filePath("out/a.img"), dir.filePath("nowhere")},
        {"folder is a file", dir.filePath("out/a.img"), dir.filePath("a file")},
        {"image in a missing folder", dir.filePath("missing/a.img"), folder},
        {"image under a file", dir.filePath("a file/a.img"), folder},
        {"image is a folder", dir.filePath("out"), folder},
        {"names that clash in ISO 9660", dir.filePath("out/a.img"), dir.filePath("clash")},
        {"a folder link that loops", dir.filePath("out/a.img"), dir.filePath("loop")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const bool wasFolder = QFileInfo(c.image).isDir();
        const Outcome outcome = runTool({"-V", "DVD-Audio", "-o", c.image, "-dvd-audio", c.source});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_TRUE(outcome.err.startsWith("mkisofs-dvd-audio: ")) << outcome.err.constData();
        EXPECT_FALSE(outcome.out.contains("Wrote"));
        EXPECT_EQ(QFileInfo(c.image).isDir(), wasFolder);
        EXPECT_EQ(QFileInfo::exists(c.image), wasFolder);
        EXPECT_EQ(QDir(dir.filePath("out")).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                  QStringList());
    }

    const QString old = dir.filePath("out/old.img");
    ASSERT_TRUE(writeFile(old, "an earlier image"));
    EXPECT_EQ(runTool({"-V", "DVD-Audio", "-o", old, "-dvd-audio", dir.filePath("nowhere")}).status, 1);
    EXPECT_EQ(readFile(old), "an earlier image");
    EXPECT_EQ(runTool({"-V", "DVD-Audio", "-dvd-audio", folder}).status, 1);
}

TEST(MkisofsDvdAudioFailures, StoppedWhileWritingLeavesNothingBehind)
{
    QTemporaryDir dir;
    const QString folder = dir.filePath("DVD");
    makeDvdFolder(folder);
    // Big enough that the copy is still running when the signal comes; sparse, so cheap to make.
    QFile aob(folder + "/AUDIO_TS/ATS_01_3.AOB");
    ASSERT_TRUE(aob.open(QIODevice::WriteOnly) && aob.resize(256ll << 20));
    aob.close();

    QProcess process;
    const QString image = dir.filePath("out/DVD.img");
    QDir().mkpath(dir.filePath("out"));
    process.start(builtProgram("mkisofs-dvd-audio"), {"-V", "DVD-Audio", "-o", image, "-dvd-audio", folder});
    while (process.state() != QProcess::NotRunning && !process.readAllStandardOutput().contains("Progress: 1%"))
        process.waitForReadyRead(1000);
    ASSERT_EQ(process.state(), QProcess::Running) << "finished before it could be stopped";
    process.terminate();
    ASSERT_TRUE(process.waitForFinished(30000));
    EXPECT_NE(process.exitCode(), 0);
    EXPECT_EQ(QDir(dir.filePath("out")).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
              QStringList());
}

}  // namespace

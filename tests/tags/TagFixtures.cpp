#include "TagFixtures.h"

#include "common/TestSupport.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace fixtures {

namespace {
QTemporaryDir& workDir()
{
    static QTemporaryDir dir(QDir::tempPath() + "/velmora-fixtures-XXXXXX");
    return dir;
}
} // namespace

QString sineWav()
{
    static const QString path = [] {
        const QString wav = workDir().filePath("sine.wav");
        EXPECT_EQ(testsupport::run("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16", wav, "synth", "1", "sine", "440"}), 0);
        return wav;
    }();
    return path;
}

QString lameMp3(const QString& path, const QStringList& lameArguments)
{
    QStringList arguments{"--quiet"};
    arguments += lameArguments;
    arguments << sineWav() << path;
    EXPECT_EQ(testsupport::run("lame", arguments), 0) << qPrintable(path);
    return path;
}

QString oggVorbis(const QString& path, const QStringList& oggencArguments)
{
    QStringList arguments{"-Q", "-q", "0"};
    arguments += oggencArguments;
    arguments << "-o" << path << sineWav();
    EXPECT_EQ(testsupport::run("oggenc", arguments), 0) << qPrintable(path);
    return path;
}

QByteArray untaggedMpegAudio()
{
    static const QByteArray audio = [] {
        const QString path = lameMp3(workDir().filePath("plain.mp3"), {"-t"});
        return testsupport::readFile(path);
    }();
    return audio;
}

QByteArray id3v2Tag(int major, const std::vector<std::pair<QByteArray, QByteArray>>& textFrames)
{
    QByteArray body;
    for (const auto& [id, text] : textFrames) {
        const QByteArray data = QByteArray(1, '\0') + text;
        const quint32 size = quint32(data.size());
        body += id;
        if (major == 2) {
            body += char(size >> 16);
            body += char(size >> 8);
            body += char(size);
        } else {
            const quint32 encoded = major == 4 ? ((size & 0x7F) | ((size << 1) & 0x7F00) | ((size << 2) & 0x7F0000)) : size;
            body += char(encoded >> 24);
            body += char(encoded >> 16);
            body += char(encoded >> 8);
            body += char(encoded);
            body += QByteArray(2, '\0');
        }
        body += data;
    }
    body += QByteArray(16, '\0');  // padding
    const quint32 size = quint32(body.size());
    QByteArray tag = "ID3";
    tag += char(major);
    tag += QByteArray(2, '\0');
    tag += char((size >> 21) & 0x7F);
    tag += char((size >> 14) & 0x7F);
    tag += char((size >> 7) & 0x7F);
    tag += char(size & 0x7F);
    return tag + body;
}

QByteArray id3v1Tag(const QByteArray& title, const QByteArray& artist, const QByteArray& album,
                    const QByteArray& year, const QByteArray& comment, int track, int genre)
{
    QByteArray tag = "TAG";
    tag += title.leftJustified(30, '\0', true);
    tag += artist.leftJustified(30, '\0', true);
    tag += album.leftJustified(30, '\0', true);
    tag += year.leftJustified(4, '\0', true);
    tag += comment.leftJustified(28, '\0', true);
    tag += '\0';
    tag += char(track);
    tag += char(genre);
    return tag;
}

QStringList frameLines(const QByteArray& output)
{
    static const QStringList read = {"TT2", "TIT2", "TP1", "TPE1", "TAL", "TALB", "TRK", "TRCK", "TYE", "TYER", "TCO", "TCON"};
    QStringList lines;
    for (const QByteArray& line : output.split('\n')) {
        const QString text = QString::fromUtf8(line);
        if (text.startsWith("=== ") && read.contains(text.mid(4).section(' ', 0, 0)))
            lines.append(text);
    }
    return lines;
}

QByteArray pictureBytes(int width, int height, const char* format)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, format);
    return bytes;
}

QString noisePng(const QString& path, int bytes)
{
    const int side = int(std::sqrt(bytes / 3.0)) + 1;
    QImage image(side, side, QImage::Format_RGB888);
    QRandomGenerator random(side);
    for (int y = 0; y < side; ++y) {
        uchar* line = image.scanLine(y);
        for (int x = 0; x < side * 3; x += 4) {
            const quint32 value = random.generate();
            std::memcpy(line + x, &value, size_t(qMin(4, side * 3 - x)));
        }
    }
    EXPECT_TRUE(image.save(path, "PNG", 100)) << qPrintable(path);
    return path;
}

} // namespace fixtures

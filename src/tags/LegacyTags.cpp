#include "tags/LegacyTags.h"

#include "tags/ID3Tables.h"
#include "tags/Id3FrameLister.h"

#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <optional>

namespace {
struct FrameValues {
    std::optional<QByteArray> title, artist, album, track, year, genre;
    QByteArray firstLine;
};

// The value of a frame: the text from two characters after the first ':' behind
// the identifier to the end of its line. The ID3v2.2 identifier is searched first.
std::optional<QByteArray> findValue(const QByteArray& output, const char* shortId, const char* longId)
{
    for (const char* id : {shortId, longId}) {
        const qsizetype at = output.indexOf(id);
        if (at < 0)
            continue;
        const qsizetype colon = output.indexOf(':', at + qsizetype(std::strlen(id)));
        if (colon < 0)
            continue;
        qsizetype lineEnd = output.indexOf('\n', colon);
        if (lineEnd < 0)
            lineEnd = output.size();
        const qsizetype start = qMin(colon + 2, lineEnd);
        return output.mid(start, lineEnd - start);
    }
    return std::nullopt;
}

FrameValues readFrameValues(const QString& path)
{
    const QByteArray output = id3infoOutput(path);
    FrameValues values;
    values.firstLine = output.left(output.indexOf('\n') < 0 ? output.size() : output.indexOf('\n'));
    values.title = findValue(output, "TT2", "TIT2");
    values.artist = findValue(output, "TP1", "TPE1");
    values.album = findValue(output, "TAL", "TALB");
    values.track = findValue(output, "TRK", "TRCK");
    values.year = findValue(output, "TYE", "TYER");
    values.genre = findValue(output, "TCO", "TCON");
    return values;
}

void copyField(unsigned char* field, int length, const QByteArray& utf8)
{
    // ID3v1 fields are Latin-1; characters beyond it become '?'.
    const QByteArray text = QString::fromUtf8(utf8).toLatin1();
    std::memset(field, 0, size_t(length));
    std::memcpy(field, text.constData(), size_t(qMin<qsizetype>(text.size(), length)));
}

int genreNumber(const QByteArray& genre)
{
    int number = 255;
    for (int i = 0; i < ID3_v1_genre_count; ++i) {
        if (genre == ID3_v1_genre_description[i]) {
            number = i;
            break;
        }
    }
    if (number == 255) {
        for (int i = 0; i < ID3_v1_genre_count; ++i) {
            if (genre.startsWith(ID3_v1_genre_description[i])) {
                number = i;
                break;
            }
        }
    }
    if (genre.startsWith('('))
        number = std::atoi(genre.constData() + 1) & 0xFF;
    return number;
}

QString text(const QByteArray& utf8)
{
    return QString::fromUtf8(utf8);
}
} // namespace

void hyphenFilenameTags(const QString& path, QVariantMap& record)
{
    const QStringList pieces = QFileInfo(path).completeBaseName().split(QLatin1Char('-'));
    auto setIfAbsent = [&](const char* key, const QString& value) {
        const QString trimmed = value.trimmed();
        if (!record.contains(QLatin1String(key)) && !trimmed.isEmpty())
            record.insert(QLatin1String(key), trimmed);
    };
    if (pieces.size() > 3) {
        setIfAbsent("artist", pieces.at(0));
        setIfAbsent("album", pieces.at(1));
        setIfAbsent("track", pieces.at(2));
        setIfAbsent("title", pieces.at(3));
    }
    if (pieces.size() == 5)
        setIfAbsent("genre", pieces.at(4));
}

void MP3Utils::makeID3v1(const QString& sourcePath)
{
    static const QStringList skipped = {"WMA", "FLAC", "OGG", "AIFF", "AIF", "WAV"};
    if (skipped.contains(QFileInfo(sourcePath).suffix(), Qt::CaseInsensitive))
        return;
    const FrameValues values = readFrameValues(sourcePath);
    auto valueOr = [&](const std::optional<QByteArray>& value) { return value.value_or(values.firstLine); };
    unsigned char* tag = id3v1_.data();
    std::memcpy(tag, "TAG", 3);
    copyField(tag + 3, 30, valueOr(values.title));
    copyField(tag + 33, 30, valueOr(values.artist));
    copyField(tag + 63, 30, valueOr(values.album));
    copyField(tag + 93, 4, valueOr(values.year));
    // The mark of a converted copy, one letter short and without a terminator;
    // the rest of the comment field keeps what the buffer held.
    static const char mark[] = "Velmora Converted";
    std::memcpy(tag + 97, mark, sizeof(mark) - 2);
    tag[125] = 0;
    tag[126] = static_cast<unsigned char>(std::atoi(valueOr(values.track).constData()) & 0xFF);
    tag[127] = static_cast<unsigned char>(genreNumber(valueOr(values.genre)));
}

int MP3Utils::writeID3v1IfNeeded(const QString& targetPath, const QString& sourcePath)
{
    const QByteArray target = QFile::encodeName(targetPath);
    const int in = ::open(target.constData(), O_RDONLY);
    if (in < 0)
        return -1;
    const off_t size = ::lseek(in, 0, SEEK_END);
    if (size >= kTagSize)
        (void)!::pread(in, id3v1_.data(), kTagSize, size - kTagSize);
    ::close(in);
    if (size >= kTagSize && std::memcmp(id3v1_.data(), "TAG", 3) == 0)
        return 0;
    makeID3v1(sourcePath);
    const int out = ::open(target.constData(), O_WRONLY | O_APPEND);
    if (out < 0)
        return -1;
    const ssize_t written = ::write(out, id3v1_.data(), kTagSize);
    ::close(out);
    return written == kTagSize ? 0 : -1;
}

QVariantMap MP3Utils::getTags(const QString& path)
{
    const FrameValues values = readFrameValues(path);
    auto valueOr = [&](const std::optional<QByteArray>& value) { return value.value_or(values.firstLine); };
    QVariantMap record;
    record.insert(QStringLiteral("title"), text(valueOr(values.title)));
    record.insert(QStringLiteral("artist"), text(valueOr(values.artist)));
    record.insert(QStringLiteral("album"), text(valueOr(values.album)));
    record.insert(QStringLiteral("year"), text(valueOr(values.year)));
    record.insert(QStringLiteral("comment"), QStringLiteral("Velmora Converted"));
    record.insert(QStringLiteral("track"), QString::number(std::atoi(valueOr(values.track).constData())));
    const QByteArray genre = valueOr(values.genre);
    record.insert(QStringLiteral("genre"), QString::number(genre.isEmpty() ? 0 : std::atoi(genre.constData() + 1)));
    return record;
}

QVariantMap id3tag_wrapper::getComments(const QString& path)
{
    const FrameValues values = readFrameValues(path);
    QVariantMap record;
    auto put = [&](const char* key, const std::optional<QByteArray>& value) {
        if (value)
            record.insert(QLatin1String(key), text(*value));
    };
    put("title", values.title);
    put("artist", values.artist);
    put("album", values.album);
    put("track", values.track);
    put("year", values.year);
    if (values.genre) {
        QString genre = text(*values.genre);
        if (values.genre->startsWith('(')) {
            const auto number = static_cast<qint16>(std::atoi(values.genre->constData() + 1));
            if (number >= 0 && number < ID3_v1_genre_count)
                genre = QString::fromLatin1(ID3_v1_genre_description[number]);
        }
        record.insert(QStringLiteral("genre"), genre);
    }
    hyphenFilenameTags(path, record);
    return record;
}

QVariantMap getMP3CommentsOld(const QString& path)
{
    return id3tag_wrapper::getComments(path);
}

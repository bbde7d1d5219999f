#include "disc/FreeDBAnswers.h"

#include "platform/FileNames.h"

#include <QVariantMap>

namespace FreeDBAnswers {

namespace {

const QString kSlash = QStringLiteral(" / ");

// Words as the protocol separates them: at every blank, so two blanks in a row
// make an empty word and joining the words again gives the text back.
QStringList words(const QString& line)
{
    return line.split(' ');
}

QVariantMap match(const QString& genre, const QString& discid, const QString& title, const QString& cdpath)
{
    return {{"genre", genre}, {"discid", discid}, {"title", title}, {"cdpath", cdpath}};
}

}  // namespace

QString decode(const QByteArray& data)
{
    return FileNames::isValidUtf8(data) ? QString::fromUtf8(data) : QString::fromLatin1(data);
}

QStringList lines(const QString& text)
{
    QStringList result = text.split('\n');
    for (QString& line : result) {
        if (line.endsWith('\r'))
            line.chop(1);
    }
    return result;
}

QString statusCode(const QStringList& lines)
{
    return lines.isEmpty() ? QString() : words(lines.first()).first();
}

QVariantList serverList(const QStringList& lines)
{
    QVariantList servers;
    for (const QString& line : lines) {
        const QStringList w = words(line);
        if (w.size() < 4 || w[1] != QLatin1String("http"))
            continue;
        // Words 5 and 6 are the server's latitude and longitude.
        servers << QVariantMap{{"host", w[0]}, {"port", w[2]}, {"cgi", w[3]}, {"location", w.mid(6).join(' ')}};
    }
    return servers;
}

Matches exactMatches(const QStringList& lines, const QString& cdpath)
{
    Matches result;
    for (const QString& line : lines) {
        const QStringList w = words(line);
        if (w.size() < 4)
            continue;
        result.albums << match(w[1], w[2], w.mid(3).join(' '), cdpath);
        result.readArgument = w[1] + '+' + w[2];
    }
    return result;
}

Matches inexactMatches(const QStringList& lines, const QString& cdpath)
{
    Matches result;
    QStringList titles;
    for (const QString& line : lines) {
        const QStringList w = words(line);
        if (w.size() <= 3 || w[0] == QLatin1String("211") || w[0] == QLatin1String("210"))
            continue;
        const QString title = w.mid(2).join(' ');
        result.readArgument = w[0] + '+' + w[1];
        if (titles.contains(title))
            continue;
        titles << title;
        result.albums << match(w[0], w[1], title, cdpath);
    }
    return result;
}

QStringList artistAndAlbum(const QString& title)
{
    const QStringList parts = title.split(kSlash);
    if (parts.size() < 2)
        return {parts.value(0), QString()};
    return {parts[0], parts.mid(1).join(kSlash)};
}

QVariantList cdInfo(const QStringList& lines, const QString& cdpath)
{
    // The disc title: the second word of lines whose first word is exactly
    // "DTITLE". An xmcd line "DTITLE=Artist / Album" is one word, so it
    // normally stays empty and the album comes from the chosen match.
    QString discTitle;
    for (const QString& line : lines) {
        const QStringList w = words(line);
        if (w.size() > 1 && w[0] == QLatin1String("DTITLE"))
            discTitle += w[1];
    }
    const QStringList titleParts = discTitle.split(kSlash);
    QString artist = titleParts.value(0);
    QString album = titleParts.size() == 2 ? titleParts[1] : artist;

    QString genre, year, title, previousKey;
    QVariantList tracks;
    for (const QString& line : lines) {
        const QStringList w = words(line);
        if (w[0] == QLatin1String("210")) {
            genre = w.value(1);
            continue;
        }
        if (w[0] == QLatin1String("#"))
            continue;
        const QStringList parts = line.split('=');
        const QString& key = parts[0];
        if (key == QLatin1String("DISCID") || key == QLatin1String("DTITLE"))
            continue;
        if (key == QLatin1String("DYEAR")) {
            year = parts.size() == 2 ? parts[1] : QString();
        } else if (key == QLatin1String("DGENRE")) {
            if (parts.size() == 2 && !parts[1].trimmed().isEmpty())
                genre = parts[1];
        } else if (key.startsWith(QLatin1String("TTITLE")) && parts.size() == 2) {
            const QStringList value = parts[1].split(kSlash);
            if (value.size() == 1) {
                title = value[0];
            } else if (value.size() == 2) {
                artist = value[0];
                title = value[1];
            }
            // A longer line keeps the title of the line before.
            if (key == previousKey && !tracks.isEmpty()) {
                // A continuation line of the same track.
                QVariantMap last = tracks.last().toMap();
                last.insert("title", last.value("title").toString() + title);
                tracks.last() = last;
            } else {
                tracks << QVariantMap{
                    {"title", title},  {"artist", artist},
                    {"album", album},  {"year", year},
                    {"genre", genre},  {"track", QStringLiteral("%1").arg(tracks.size() + 1, 2, 10, QChar('0'))},
                    {"cdpath", cdpath}};
            }
            previousKey = key;
        }
    }
    return tracks;
}

}  // namespace FreeDBAnswers

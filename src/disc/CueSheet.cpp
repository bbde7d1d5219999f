#include "disc/CueSheet.h"

#include "platform/FileNames.h"

#include <QStringList>

namespace {

constexpr int kMaxTracks = 99;

// The words of a line: blanks separate them, double quotes hold a word with
// blanks (an unclosed quote runs to the end of the line).
QStringList words(QStringView line)
{
    QStringList result;
    qsizetype i = 0;
    while (i < line.size()) {
        while (i < line.size() && (line[i] == ' ' || line[i] == '\t'))
            ++i;
        if (i >= line.size())
            break;
        if (line[i] == '"') {
            const qsizetype close = line.indexOf('"', i + 1);
            const qsizetype end = close < 0 ? line.size() : close;
            result << line.mid(i + 1, end - i - 1).toString();
            i = end + 1;
        } else {
            qsizetype end = i;
            while (end < line.size() && line[end] != ' ' && line[end] != '\t')
                ++end;
            result << line.mid(i, end - i).toString();
            i = end;
        }
    }
    return result;
}

// "mm:ss:ff" in sectors (75 to the second); -1 when it is not one.
qint64 sectorsOf(const QString& text)
{
    const QStringList parts = text.split(':');
    if (parts.size() != 3)
        return -1;
    qint64 values[3];
    for (int i = 0; i < 3; ++i) {
        const QString& part = parts[i];
        if (part.isEmpty() || part.size() > (i == 0 ? 3 : 2))
            return -1;
        for (QChar c : part) {
            if (!c.isDigit() || c.unicode() > '9')
                return -1;
        }
        values[i] = part.toLongLong();
    }
    if (values[1] >= 60 || values[2] >= 75)
        return -1;
    return (values[0] * 60 + values[1]) * 75 + values[2];
}

int sectorSizeOf(const QString& mode)
{
    static const QList<QPair<QString, int>> sizes = {
        {"AUDIO", 2352},      {"MODE1/2352", 2352}, {"MODE2/2352", 2352}, {"CDI/2352", 2352},
        {"MODE1/2048", 2048}, {"MODE2/2336", 2336}, {"CDI/2336", 2336},   {"CDG", 2448},
    };
    for (const auto& [name, size] : sizes) {
        if (name == mode)
            return size;
    }
    return 0;
}

bool isPassedOver(const QString& command)
{
    static const QStringList commands = {"REM",       "CATALOG",  "CDTEXTFILE", "FLAGS",   "ISRC",   "SONGWRITER",
                                         "COMPOSER",  "ARRANGER", "MESSAGE",    "DISC_ID", "GENRE",  "TOC_INFO1",
                                         "TOC_INFO2", "UPC_EAN",  "SIZE_INFO",  "PREGAP",  "POSTGAP"};
    return commands.contains(command);
}

QString decode(QByteArray text)
{
    if (text.startsWith("\xEF\xBB\xBF"))
        text.remove(0, 3);
    return FileNames::isValidUtf8(text) ? QString::fromUtf8(text) : QString::fromLatin1(text);
}

}  // namespace

std::optional<CueSheet> CueSheet::parse(const QByteArray& text, QString* error)
{
    int lineNumber = 0;
    auto fail = [&](const QString& reason) -> std::optional<CueSheet> {
        if (error)
            *error = lineNumber > 0 ? QStringLiteral("line %1: %2").arg(lineNumber).arg(reason) : reason;
        return std::nullopt;
    };
    if (text.contains('\0'))
        return fail(QStringLiteral("this is binary data, not the text of a cue sheet"));

    CueSheet sheet;
    const QString decoded = decode(text);
    qint64 lastPosition = -1;  // the latest index position in the current file
    for (QStringView line : QStringView(decoded).split('\n')) {
        ++lineNumber;
        if (line.endsWith('\r'))
            line.chop(1);
        const QStringList parts = words(line);
        if (parts.isEmpty())
            continue;
        const QString command = parts[0].toUpper();
        Track* track = sheet.tracks.isEmpty() ? nullptr : &sheet.tracks.last();
        if (command == QLatin1String("FILE")) {
            if (parts.size() < 3 || parts[1].isEmpty())
                return fail(QStringLiteral("FILE needs a file name and a type"));
            if (!sheet.tracks.isEmpty() && sheet.tracks.last().file == sheet.files.size() - 1 &&
                sheet.tracks.last().index1 < 0)
                return fail(QStringLiteral("track %1 has no INDEX 01").arg(sheet.tracks.last().number));
            sheet.files.append({parts[1], parts[2].toUpper(), lineNumber});
            lastPosition = -1;
        } else if (command == QLatin1String("TRACK")) {
            if (sheet.files.isEmpty())
                return fail(QStringLiteral("TRACK comes before any FILE"));
            if (parts.size() < 3)
                return fail(QStringLiteral("TRACK needs a number and a mode"));
            if (sheet.tracks.size() >= kMaxTracks)
                return fail(QStringLiteral("a disc holds at most 99 tracks"));
            bool isNumber = false;
            const int number = parts[1].toInt(&isNumber);
            const int expected = sheet.tracks.isEmpty() ? 1 : sheet.tracks.last().number + 1;
            if (!isNumber || number != expected)
                return fail(QStringLiteral("track %1 was expected, not “%2”").arg(expected).arg(parts[1].left(40)));
            if (track && track->index1 < 0)
                return fail(QStringLiteral("track %1 has no INDEX 01").arg(track->number));
            Track next;
            next.number = number;
            next.mode = parts[2].toUpper();
            next.sectorSize = sectorSizeOf(next.mode);
            if (next.sectorSize == 0)
                return fail(QStringLiteral("“%1” is not a track mode").arg(parts[2]));
            next.audio = next.mode == QLatin1String("AUDIO");
            next.file = int(sheet.files.size()) - 1;
            next.line = lineNumber;
            sheet.tracks.append(next);
        } else if (command == QLatin1String("INDEX")) {
            if (!track)
                return fail(QStringLiteral("INDEX comes before any TRACK"));
            bool isNumber = false;
            const int index = parts.size() == 3 ? parts[1].toInt(&isNumber) : -1;
            const qint64 position = parts.size() == 3 ? sectorsOf(parts[2]) : -1;
            if (!isNumber || index < 0 || index > 99 || position < 0)
                return fail(QStringLiteral("INDEX needs a number and a position mm:ss:ff"));
            if (track->file != sheet.files.size() - 1 && index <= 1)
                return fail(QStringLiteral("track %1 starts in one file and goes on in another").arg(track->number));
            // Positions grow through a file; only a track's INDEX 01 may share its INDEX 00's.
            const bool onItsPregap = index == 1 && track->index0 == position;
            if (position < lastPosition || (position == lastPosition && !onItsPregap))
                return fail(QStringLiteral("INDEX %1 of track %2 lies before the index above it")
                                .arg(index, 2, 10, QChar('0'))
                                .arg(track->number));
            if (index == 0) {
                if (track->index0 >= 0 || track->index1 >= 0)
                    return fail(QStringLiteral("INDEX 00 of track %1 is out of place").arg(track->number));
                track->index0 = position;
            } else if (index == 1) {
                if (track->index1 >= 0)
                    return fail(QStringLiteral("track %1 has two INDEX 01").arg(track->number));
                track->index1 = position;
            } else if (track->index1 < 0) {
                return fail(
                    QStringLiteral("INDEX %1 of track %2 comes before its INDEX 01").arg(index).arg(track->number));
            }
            lastPosition = position;
        } else if (command == QLatin1String("TITLE") || command == QLatin1String("PERFORMER")) {
            const QString value = parts.mid(1).join(' ').trimmed();
            const bool isTitle = command == QLatin1String("TITLE");
            if (track)
                (isTitle ? track->title : track->performer) = value;
            else
                (isTitle ? sheet.title : sheet.performer) = value;
        } else if (!isPassedOver(command)) {
            return fail(QStringLiteral("“%1” is not a cue sheet command").arg(parts[0].left(40)));
        }
    }
    lineNumber = 0;
    if (sheet.tracks.isEmpty())
        return fail(QStringLiteral("there is no track in it"));
    if (sheet.tracks.last().index1 < 0)
        return fail(QStringLiteral("track %1 has no INDEX 01").arg(sheet.tracks.last().number));
    for (qsizetype i = 0; i < sheet.files.size(); ++i) {
        bool used = false;
        for (const Track& t : sheet.tracks)
            used = used || t.file == i;
        if (!used)
            return fail(QStringLiteral("line %1: the file “%2” holds no track")
                            .arg(sheet.files[i].line)
                            .arg(sheet.files[i].name));
    }
    return sheet;
}

#include "disc/DiscImage.h"

#include "disc/DiscTable.h"
#include "platform/SafeFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {

constexpr int kRawSectorBytes = 2352;

QString msf(qint64 sectors)
{
    return QStringLiteral("%1:%2:%3")
        .arg(sectors / (60 * 75), 2, 10, QChar('0'))
        .arg(sectors / 75 % 60, 2, 10, QChar('0'))
        .arg(sectors % 75, 2, 10, QChar('0'));
}

// The BIN a FILE line names: beside the cue sheet (relative names), or as
// written; a cue sheet made elsewhere often keeps a folder in the name, so
// the bare file name beside the cue sheet is tried last.
QString findBin(const QString& cuePath, const QString& name)
{
    const QDir folder = QFileInfo(cuePath).absoluteDir();
    const QString asWritten = folder.absoluteFilePath(name);
    if (QFileInfo::exists(asWritten))
        return asWritten;
    const QString beside = folder.absoluteFilePath(QFileInfo(QString(name).replace('\\', '/')).fileName());
    return QFileInfo::exists(beside) ? beside : QString();
}

}  // namespace

std::optional<DiscImage> DiscImage::open(const QString& cuePath, QString* error)
{
    auto fail = [&](const QString& reason) -> std::optional<DiscImage> {
        if (error)
            *error = reason;
        return std::nullopt;
    };
    QFile cue(cuePath);
    const QFileInfo cueInfo(cuePath);
    if (!cueInfo.exists())
        return fail(QStringLiteral("there is no such file"));
    if (!cueInfo.isFile())
        return fail(QStringLiteral("it is not a file"));
    if (cueInfo.size() > kMaxCueBytes)
        return fail(QStringLiteral("at %1 bytes it is too large to be a cue sheet").arg(cueInfo.size()));
    if (!cue.open(QIODevice::ReadOnly))
        return fail(cue.errorString());
    const QByteArray text = cue.read(kMaxCueBytes + 1);
    if (text.size() > kMaxCueBytes)
        return fail(QStringLiteral("it is too large to be a cue sheet"));

    QString reason;
    std::optional<CueSheet> sheet = CueSheet::parse(text, &reason);
    if (!sheet)
        return fail(reason);
    if (sheet->files.size() != 1)
        return fail(QStringLiteral("it names %1 image files; a disc image is one BINARY file with every track")
                        .arg(sheet->files.size()));
    const CueSheet::File& file = sheet->files.first();
    if (file.type != QLatin1String("BINARY"))
        return fail(QStringLiteral("line %1: its image file is of type %2; only BINARY image files hold a disc")
                        .arg(file.line)
                        .arg(file.type.left(40)));
    bool hasAudio = false;
    for (const CueSheet::Track& track : sheet->tracks) {
        if (track.sectorSize != kRawSectorBytes)
            return fail(QStringLiteral("line %1: track %2 is a %3 track; only tracks of 2352-byte sectors can be "
                                       "read from an image")
                            .arg(track.line)
                            .arg(track.number)
                            .arg(track.mode));
        hasAudio = hasAudio || track.audio;
    }
    if (!hasAudio)
        return fail(QStringLiteral("it holds no audio track"));

    DiscImage image;
    image.cuePath_ = cueInfo.absoluteFilePath();
    image.binPath_ = findBin(image.cuePath_, file.name);
    if (image.binPath_.isEmpty())
        return fail(QStringLiteral("the image file “%1” it names is missing").arg(file.name));
    const QFileInfo binInfo(image.binPath_);
    if (!binInfo.isFile() || !binInfo.isReadable())
        return fail(QStringLiteral("the image file %1 cannot be read").arg(image.binPath_));
    image.sectors_ = binInfo.size() / kRawSectorBytes;
    for (const CueSheet::Track& track : sheet->tracks) {
        if (track.index1 >= image.sectors_)
            return fail(QStringLiteral("line %1: track %2 starts at %3, but the image file %4 ends at %5")
                            .arg(track.line)
                            .arg(track.number)
                            .arg(msf(track.index1), image.binPath_, msf(image.sectors_)));
    }
    image.sheet_ = std::move(*sheet);
    return image;
}

QString DiscImage::writeReadableCopy(const QString& folder, QString* error) const
{
    QByteArray cue = "FILE \".disc.bin\" BINARY\n";
    for (const CueSheet::Track& track : sheet_.tracks) {
        cue += QStringLiteral("  TRACK %1 %2\n").arg(track.number, 2, 10, QChar('0')).arg(track.mode).toUtf8();
        if (track.index0 >= 0)
            cue += QStringLiteral("    INDEX 00 %1\n").arg(msf(track.index0)).toUtf8();
        cue += QStringLiteral("    INDEX 01 %1\n").arg(msf(track.index1)).toUtf8();
    }
    const QString link = folder + QStringLiteral("/.disc.bin");
    if (!QFile::link(binPath_, link)) {
        if (error)
            *error = QStringLiteral("cannot make a link to %1 in %2").arg(binPath_, folder);
        return {};
    }
    const QString path = folder + QStringLiteral("/.disc.cue");
    if (!SafeFile::writeFile(path, cue, error))
        return {};
    return path;
}

void DiscImage::addCdText(DiscTable& table) const
{
    table.title = sheet_.title;
    table.performer = sheet_.performer;
    for (DiscTrack& track : table.tracks) {
        for (const CueSheet::Track& written : sheet_.tracks) {
            if (written.number == track.number) {
                track.title = written.title;
                track.performer = written.performer;
            }
        }
    }
}

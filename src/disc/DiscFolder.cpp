#include "disc/DiscFolder.h"

#include "disc/DiscTable.h"
#include "platform/FileNames.h"
#include "platform/SafeFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace DiscFolder {

namespace {

const QString kMarkName = QStringLiteral(".velmora-disc");
const QString kExtension = QStringLiteral(".cdda");
constexpr int kMaxFolderTries = 1000;

// A title as one file name: no slashes (shown as colons, as on the desktop
// where audio CDs used to mount), control characters as blanks, no blank edges.
QString nameFromText(const QString& text)
{
    QString name;
    for (QChar c : text)
        name += c == '/' ? QChar(':') : c.category() == QChar::Other_Control ? QChar(' ') : c;
    name = name.simplified();
    return name == QLatin1String(".") || name == QLatin1String("..") ? QString() : name;
}

bool isOurFile(const QString& name)
{
    return name.endsWith(kExtension) || name == kMarkName || name == QLatin1String(".disc.cue") ||
           name == QLatin1String(".disc.bin");
}

}  // namespace

QString folderName(const QString& cdTextTitle)
{
    const QString name = nameFromText(cdTextTitle);
    return name.isEmpty() ? QStringLiteral("Audio CD") : name;
}

QString trackFileName(const DiscTrack& track)
{
    QString title = nameFromText(track.title);
    if (title.isEmpty())
        title = QStringLiteral("Audio Track");
    return FileNames::fitName(QStringLiteral("%1 %2").arg(track.number, 2, 10, QChar('0')).arg(title), kExtension);
}

QString create(const QString& parent, const QString& cdTextTitle, QString* error)
{
    const QString name = folderName(cdTextTitle);
    for (int n = 1; n <= kMaxFolderTries; ++n) {
        const QString folder =
            parent + '/' +
            (n == 1 ? FileNames::fitName(name, {}) : FileNames::fitName(name, QStringLiteral(" %1").arg(n)));
        if (::mkdir(QFile::encodeName(folder).constData(), 0777) != 0) {
            if (errno == EEXIST)
                continue;
            if (error)
                *error = QStringLiteral("cannot make the folder %1: %2")
                             .arg(folder, QString::fromLocal8Bit(strerror(errno)));
            return {};
        }
        if (!SafeFile::writeFile(folder + '/' + kMarkName, QByteArray::number(qint64(::getpid())) + '\n', error)) {
            QDir().rmdir(folder);
            return {};
        }
        return folder;
    }
    if (error)
        *error = QStringLiteral("every name for the disc's folder in %1 is taken").arg(parent);
    return {};
}

bool writeTracks(const QString& folder, const DiscTable& table, const QString& device, QString* error)
{
    for (const DiscTrack& track : table.tracks) {
        if (!track.audio)
            continue;
        const QByteArray descriptor = "device=" + QFile::encodeName(device) +
                                      "\ntrack=" + QByteArray::number(track.number) +
                                      "\nfirstsector=" + QByteArray::number(track.firstSector) +
                                      "\nlength=" + QByteArray::number(track.length) + '\n';
        if (!SafeFile::writeFile(folder + '/' + trackFileName(track), descriptor, error))
            return false;
    }
    return true;
}

void remove(const QString& folder)
{
    QDir dir(folder);
    for (const QString& name : dir.entryList(QDir::Files | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot)) {
        if (isOurFile(name))
            dir.remove(name);
    }
    // Anything someone else put there keeps the folder.
    QDir().rmdir(folder);
}

void removeAbandoned(const QString& parent)
{
    for (const QFileInfo& entry : QDir(parent).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden)) {
        if (entry.isSymLink() || !isDiscFolder(entry.filePath()))
            continue;
        QFile mark(entry.filePath() + '/' + kMarkName);
        if (!mark.open(QIODevice::ReadOnly))
            continue;
        bool isNumber = false;
        const qint64 pid = mark.read(32).trimmed().toLongLong(&isNumber);
        if (isNumber && pid > 0 && ::kill(pid_t(pid), 0) != 0 && errno == ESRCH)
            remove(entry.filePath());
    }
}

bool isDiscFolder(const QString& path)
{
    const QFileInfo mark(path + '/' + kMarkName);
    return mark.isFile() && !mark.isSymLink();
}

std::optional<TrackFile> readTrackFile(const QString& path)
{
    QFile file(path);
    if (!path.endsWith(kExtension) || !file.open(QIODevice::ReadOnly))
        return std::nullopt;
    TrackFile track;
    bool hasDevice = false, hasTrack = false;
    for (const QByteArray& line : file.read(4096).split('\n')) {
        const qsizetype equals = line.indexOf('=');
        if (equals < 0)
            continue;
        const QByteArray key = line.left(equals);
        const QByteArray value = line.mid(equals + 1);
        if (key == "device") {
            track.device = QFile::decodeName(value);
            hasDevice = true;
        } else if (key == "track") {
            track.track = value.toInt(&hasTrack);
        } else if (key == "firstsector") {
            track.firstSector = value.toLongLong();
        } else if (key == "length") {
            track.length = value.toLongLong();
        }
    }
    if (!hasDevice || !hasTrack)
        return std::nullopt;
    return track;
}

}  // namespace DiscFolder

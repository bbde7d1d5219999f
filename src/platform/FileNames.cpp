#include "platform/FileNames.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

namespace FileNames {

namespace {

// Length of the UTF-8 sequence starting at bytes[i], or 0 when it is not a valid one.
int sequenceLength(const QByteArray& bytes, qsizetype i)
{
    const auto byte = [&](qsizetype at) { return static_cast<unsigned char>(bytes.at(at)); };
    const unsigned char lead = byte(i);
    if (lead < 0x80)
        return 1;
    int length;
    char32_t minimum;
    char32_t code;
    if ((lead & 0xE0) == 0xC0) {
        length = 2, minimum = 0x80, code = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3, minimum = 0x800, code = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4, minimum = 0x10000, code = lead & 0x07;
    } else {
        return 0;
    }
    if (i + length > bytes.size())
        return 0;
    for (int k = 1; k < length; ++k) {
        if ((byte(i + k) & 0xC0) != 0x80)
            return 0;
        code = (code << 6) | (byte(i + k) & 0x3F);
    }
    if (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
        return 0;
    return length;
}

struct Reservation {
    dev_t device;
    ino_t inode;
};
std::mutex reservationsMutex;
QHash<QString, Reservation> reservations;

} // namespace

bool isValidUtf8(const QByteArray& bytes)
{
    for (qsizetype i = 0; i < bytes.size();) {
        const int length = sequenceLength(bytes, i);
        if (length == 0)
            return false;
        i += length;
    }
    return true;
}

QString escaped(const QByteArray& bytes)
{
    QString text;
    for (qsizetype i = 0; i < bytes.size();) {
        const int length = sequenceLength(bytes, i);
        const unsigned char lead = static_cast<unsigned char>(bytes.at(i));
        if (length == 0 || lead < 0x20 || lead == 0x7F) {
            text += QStringLiteral("\\x") + QString::number(lead, 16).toUpper().rightJustified(2, QLatin1Char('0'));
            ++i;
        } else {
            text += QString::fromUtf8(bytes.constData() + i, length);
            i += length;
        }
    }
    return text;
}

bool survivesAsText(const QString& path)
{
    if (!path.contains(QChar::ReplacementCharacter))
        return true;
    struct stat info {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0;
}

QStringList unreadableNamesIn(const QString& folder)
{
    QStringList names;
    DIR* dir = ::opendir(QFile::encodeName(folder).constData());
    if (!dir)
        return names;
    const QByteArray prefix = QFile::encodeName(folder).append('/');
    while (const dirent* entry = ::readdir(dir)) {
        const QByteArray name(entry->d_name);
        if (!isValidUtf8(name))
            names << escaped(prefix + name);
    }
    ::closedir(dir);
    return names;
}

QString unreadableNameMessage(const QString& escapedPath)
{
    return QStringLiteral("Skipped \"%1\": its name is not valid UTF-8, so Velmora cannot open it by name "
                          "(rename it to use it).")
        .arg(escapedPath);
}

QString fitName(const QString& stem, const QString& tail, int maxBytes)
{
    const qsizetype room = maxBytes - tail.toUtf8().size();
    QString kept = stem;
    while (!kept.isEmpty() && kept.toUtf8().size() > room) {
        // Drop whole characters (a surrogate pair counts as one).
        kept.chop(kept.size() >= 2 && kept.at(kept.size() - 1).isLowSurrogate() ? 2 : 1);
    }
    return kept + tail;
}

QString fatSafeName(const QString& name)
{
    static const QString refused = QStringLiteral("\"*/:<>?\\|");
    QString clean;
    clean.reserve(name.size());
    for (const QChar c : name)
        clean += c.unicode() < 0x20 || refused.contains(c) ? QChar(u'_') : c;
    while (clean.endsWith(u'.') || clean.endsWith(u' '))
        clean.chop(1);
    if (clean.size() > kMaxFatNameUnits) {
        const qsizetype dot = clean.lastIndexOf(u'.');
        // An extension longer than a few characters is part of the name.
        const QString extension = dot > 0 && clean.size() - dot <= 16 ? clean.mid(dot) : QString();
        QString stem = clean.left(kMaxFatNameUnits - extension.size());
        if (!stem.isEmpty() && stem.back().isHighSurrogate())
            stem.chop(1);
        while (stem.endsWith(u'.') || stem.endsWith(u' '))
            stem.chop(1);
        clean = stem + extension;
    }
    return clean.isEmpty() ? QStringLiteral("_") : clean;
}

bool existsIgnoringCase(const QString& folder, const QString& name)
{
    const QStringList entries =
        QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    return std::any_of(entries.cbegin(), entries.cend(),
                       [&](const QString& entry) { return entry.compare(name, Qt::CaseInsensitive) == 0; });
}

bool reserve(const QString& path)
{
    const QByteArray name = QFile::encodeName(path);
    const int fd = ::open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd < 0)
        return false;
    struct stat info {};
    ::fstat(fd, &info);
    ::close(fd);
    std::lock_guard lock(reservationsMutex);
    reservations.insert(QFileInfo(path).absoluteFilePath(), {info.st_dev, info.st_ino});
    return true;
}

void release(const QString& path)
{
    const QString key = QFileInfo(path).absoluteFilePath();
    std::lock_guard lock(reservationsMutex);
    const auto it = reservations.constFind(key);
    if (it == reservations.constEnd())
        return;
    struct stat info {};
    const QByteArray name = QFile::encodeName(key);
    if (::lstat(name.constData(), &info) == 0 && info.st_dev == it->device && info.st_ino == it->inode &&
        info.st_size == 0)
        ::unlink(name.constData());
    reservations.erase(it);
}

bool isReserved(const QString& path)
{
    std::lock_guard lock(reservationsMutex);
    return reservations.contains(QFileInfo(path).absoluteFilePath());
}

mode_t currentUmask()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (status.open(QIODevice::ReadOnly)) {
        for (const QByteArray& line : status.readAll().split('\n')) {
            if (line.startsWith("Umask:")) {
                bool ok = false;
                const uint mask = line.mid(6).trimmed().toUInt(&ok, 8);
                if (ok)
                    return mode_t(mask);
            }
        }
    }
    static std::mutex maskMutex;
    std::lock_guard lock(maskMutex);
    const mode_t mask = ::umask(022);
    ::umask(mask);
    return mask;
}

} // namespace FileNames

#include "core/StringUtils.h"

#include "platform/FileNames.h"

#include <QCollator>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QtEndian>

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <climits>

int intValue(const QString& text)
{
    qsizetype i = 0;
    while (i < text.size() && text.at(i).isSpace())
        ++i;
    bool negative = false;
    if (i < text.size() && (text.at(i) == QLatin1Char('-') || text.at(i) == QLatin1Char('+')))
        negative = text.at(i++) == QLatin1Char('-');
    qint64 value = 0;
    while (i < text.size() && text.at(i) >= QLatin1Char('0') && text.at(i) <= QLatin1Char('9')) {
        value = qMin<qint64>(value * 10 + (text.at(i++).unicode() - '0'), INT_MAX);
    }
    return int(negative ? -value : value);
}

namespace {
QCollator& finderCollator()
{
    // QCollator is not safe to share between threads; secondary strength ignores
    // case and width but keeps accents.
    thread_local QCollator collator = [] {
        QCollator c(QLocale(QLocale::English, QLocale::UnitedStates));
        c.setCaseSensitivity(Qt::CaseInsensitive);
        c.setNumericMode(true);
        c.setIgnorePunctuation(false);
        return c;
    }();
    return collator;
}
}  // namespace

int finderCompare(const QString& a, const QString& b)
{
    // Composition is evened out by normalising.
    return finderCollator().compare(a.normalized(QString::NormalizationForm_C),
                                    b.normalized(QString::NormalizationForm_C));
}

QCollatorSortKey finderSortKey(const QString& name)
{
    return finderCollator().sortKey(name.normalized(QString::NormalizationForm_C));
}

bool mySort(const QString& a, const QString& b)
{
    return finderCompare(a, b) < 0;
}

const QSet<QString>& defaultAudioTypes()
{
    static const QSet<QString> types = {"mp3", "mp2", "wma", "m4a", "m4b", "m4r", "m4p", "aac",
                                        "aif", "aiff", "aifc", "wav", "ogg"};
    return types;
}

QStringList unreadableEntries(const QString& folder, const std::function<bool(const QString&, bool)>& wanted)
{
    QStringList names;
    const QByteArray native = QFile::encodeName(folder);
    DIR* dir = ::opendir(native.constData());
    if (!dir)
        return names;
    while (const dirent* entry = ::readdir(dir)) {
        const QByteArray name(entry->d_name);
        if (FileNames::isValidUtf8(name))
            continue;
        struct stat info {};
        const bool isFolder = ::fstatat(::dirfd(dir), entry->d_name, &info, 0) == 0 && S_ISDIR(info.st_mode);
        if (wanted(QFile::decodeName(name), isFolder))
            names << FileNames::escaped(native + '/' + name);
    }
    ::closedir(dir);
    names.sort();
    return names;
}

bool createDirectoriesAtPath(const QString& path)
{
    const QString clean = QDir::cleanPath(path);
    const QStringList components = clean.split(QLatin1Char('/'));
    QString current;
    for (qsizetype n = 0; n < components.size(); ++n) {
        current = n == 0 ? components.at(0) : current + QLatin1Char('/') + components.at(n);
        if (current.isEmpty())
            continue;  // the root of an absolute path
        if (QFileInfo::exists(current))
            continue;
        const QByteArray native = QFile::encodeName(current);
        // 0777 as the user's umask allows: nothing Velmora makes is world-writable
        // unless the user asked for that.
        if (::mkdir(native.constData(), 0777) != 0 && errno != EEXIST)
            return false;
    }
    return true;
}

bool getWAVInfo(const QString& path, int* sampleBits)
{
    if (sampleBits)
        *sampleBits = 0;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray header = file.read(12);
    if (header.size() < 12 || !header.startsWith("RIFF") || header.mid(8, 4) != "WAVE")
        return false;
    // Walk the chunks to the format chunk; every size is checked against the file.
    while (true) {
        const QByteArray chunk = file.read(8);
        if (chunk.size() < 8)
            return true;
        const quint32 size = qFromLittleEndian<quint32>(chunk.constData() + 4);
        if (chunk.startsWith("fmt ")) {
            if (size >= 16) {
                const QByteArray format = file.read(16);
                if (format.size() == 16 && sampleBits)
                    *sampleBits = qFromLittleEndian<quint16>(format.constData() + 14);
            }
            return true;
        }
        const qint64 next = file.pos() + qint64(size) + (size & 1);
        if (next > file.size() || !file.seek(next))
            return true;
    }
}

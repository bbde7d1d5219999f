#include "platform/AppPaths.h"

#include <QDir>
#include <QStandardPaths>

#include <QFile>
#include <QFileInfo>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

namespace {
QString fromEnvOr(const char* variable, const QString& fallback)
{
    const QString value = qEnvironmentVariable(variable);
    return value.isEmpty() ? fallback : value;
}
} // namespace

namespace AppPaths {

QString homeDir()
{
    return QDir::homePath();
}

QString configDir()
{
    return fromEnvOr("XDG_CONFIG_HOME", homeDir() + "/.config") + "/Velmora";
}

QString defaultsFile()
{
    return configDir() + "/defaults.plist";
}

QString dataDir()
{
    return fromEnvOr("XDG_DATA_HOME", homeDir() + "/.local/share") + "/Velmora";
}

QString cacheDir()
{
    return fromEnvOr("XDG_CACHE_HOME", homeDir() + "/.cache") + "/Velmora";
}

QString artworkCacheDir()
{
    return fromEnvOr("XDG_CACHE_HOME", homeDir() + "/.cache") + "/com.dorvane.velmora3/artwork";
}

QString runtimeDir()
{
    return qEnvironmentVariable("XDG_RUNTIME_DIR");
}

bool workingFolderIsShared()
{
    return runtimeDir().isEmpty();
}

QString workingFolder()
{
    if (!workingFolderIsShared())
        return runtimeDir() + "/com.dorvane.velmora";
    // Made once per process: a name in the temporary folder that another user
    // could have guessed (and planted a link at) is never used.
    static const QString folder = [] {
        QByteArray pattern = QFile::encodeName(QDir::tempPath() + "/com.dorvane.velmora-XXXXXX");
        if (!::mkdtemp(pattern.data()))
            return QString();
        struct stat info {};
        if (::lstat(pattern.constData(), &info) != 0 || !S_ISDIR(info.st_mode) || info.st_uid != ::getuid() ||
            (info.st_mode & 0077) != 0)
            return QString();
        return QFile::decodeName(pattern);
    }();
    return folder;
}

QString wavLinkPath()
{
    // The extension stays last: decoders choose their output format by it.
    return uniqueIntermediate(workingFolder(), QStringLiteral("com.dorvane.velmora"), QStringLiteral("wav"));
}

bool makePrivateFolder(const QString& path)
{
    const QString clean = QDir::cleanPath(path);
    struct stat info {};
    if (::lstat(QFile::encodeName(clean).constData(), &info) == 0)
        return S_ISDIR(info.st_mode) && info.st_uid == ::getuid();
    const QString parent = QFileInfo(clean).path();
    if (parent != clean && !QFileInfo(parent).isDir() && !QDir().mkpath(parent))
        return false;
    return ::mkdir(QFile::encodeName(clean).constData(), 0700) == 0 || errno == EEXIST;
}

QString uniqueIntermediate(const QString& folder, const QString& prefix, const QString& extension)
{
    static std::atomic<quint64> counter {0};
    QString name = QStringLiteral("%1/%2-%3-%4").arg(folder, prefix).arg(::getpid()).arg(counter++);
    if (!extension.isEmpty())
        name += QLatin1Char('.') + extension;
    return name;
}

QString musicFolder()
{
    const QString music = QStandardPaths::writableLocation(QStandardPaths::MusicLocation);
    return music.isEmpty() ? homeDir() + "/Music" : music;
}

QString abbreviateHome(const QString& path)
{
    const QString home = homeDir();
    if (path == home)
        return QStringLiteral("~");
    if (path.startsWith(home + '/'))
        return '~' + path.mid(home.size());
    return path;
}

QString expandTilde(const QString& path)
{
    if (path == QLatin1String("~"))
        return homeDir();
    if (path.startsWith(QLatin1String("~/")))
        return homeDir() + path.mid(1);
    return path;
}

} // namespace AppPaths

#include "platform/AppPaths.h"

#include <QDir>
#include <QStandardPaths>

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
    if (workingFolderIsShared())
        return QStringLiteral("/tmp/com.dorvane.velmora-%1").arg(getuid());
    return runtimeDir() + "/com.dorvane.velmora";
}

QString wavLinkPath()
{
    if (workingFolderIsShared())
        return QStringLiteral("/tmp/com.dorvane.velmora-%1.wav").arg(getuid());
    return runtimeDir() + "/com.dorvane.velmora.wav";
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

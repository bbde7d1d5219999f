#include "platform/ResourceLocator.h"

#include <QFileInfo>
#include <QStandardPaths>

namespace {

// A folder given relative to the running program's own folder: an install under
// any prefix and the build tree are laid out alike, so no path of the machine
// that built the program is kept in it.
QString besideProgram(const char* relative)
{
    static const QString programFolder =
        QFileInfo(QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath()).path();
    return programFolder + QLatin1Char('/') + QLatin1String(relative);
}

} // namespace

namespace ResourceLocator {

QString programNameForResource(const QString& name)
{
    if (name == QLatin1String("mplayer10.4"))
        return QStringLiteral("mplayer");
    if (name == QLatin1String("cdparanoia"))
        return QStringLiteral("cd-paranoia");
    if (name == QLatin1String("atomicparsley"))
        return QStringLiteral("AtomicParsley");
    return name;
}

QString ownToolPath(const QString& name)
{
    const QString program = programNameForResource(name);
    const QFileInfo candidate(besideProgram(VELMORA_BIN_TO_LIBEXEC) + '/' + program);
    return candidate.isFile() && candidate.isExecutable() ? candidate.canonicalFilePath() : QString();
}

QString pathForTool(const QString& name)
{
    const QString own = ownToolPath(name);
    return own.isEmpty() ? QStandardPaths::findExecutable(programNameForResource(name)) : own;
}

QString pathForResource(const QString& relativePath)
{
    const QFileInfo candidate(besideProgram(VELMORA_BIN_TO_SHARE) + '/' + relativePath);
    return candidate.exists() ? candidate.canonicalFilePath() : QString();
}

} // namespace ResourceLocator

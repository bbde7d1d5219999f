#include "platform/ResourceLocator.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QStandardPaths>
#include <QStringList>

namespace {

QStringList ownFolders(const char* sub, const char* installed, const char* buildTree)
{
    QStringList folders;
    if (QCoreApplication::instance())
        folders << QCoreApplication::applicationDirPath() + "/../" + sub;
    folders << QString::fromUtf8(installed) << QString::fromUtf8(buildTree);
    return folders;
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
    for (const QString& folder :
         ownFolders("libexec/velmora", VELMORA_INSTALL_LIBEXEC, VELMORA_BUILD_LIBEXEC)) {
        const QFileInfo candidate(folder + '/' + program);
        if (candidate.isFile() && candidate.isExecutable())
            return candidate.canonicalFilePath();
    }
    return {};
}

QString pathForTool(const QString& name)
{
    const QString own = ownToolPath(name);
    return own.isEmpty() ? QStandardPaths::findExecutable(programNameForResource(name)) : own;
}

QString pathForResource(const QString& relativePath)
{
    for (const QString& folder :
         ownFolders("share/velmora", VELMORA_INSTALL_SHARE, VELMORA_BUILD_SHARE)) {
        const QFileInfo candidate(folder + '/' + relativePath);
        if (candidate.exists())
            return candidate.canonicalFilePath();
    }
    return {};
}

} // namespace ResourceLocator

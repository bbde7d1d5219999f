#include "cli/CliChecks.h"

#include "core/StringUtils.h"
#include "encode/LameWrapper.h"

#include <QFileInfo>

#include <cstdio>

QString cliOutputFolder(const char* command, const QString& folder)
{
    const QString absolute = QFileInfo(folder).absoluteFilePath();
    createDirectoriesAtPath(absolute);
    if (QFileInfo(absolute).isDir())
        return absolute;
    std::fprintf(stderr, "velmora-cli %s: cannot create the folder %s\n", command, qPrintable(absolute));
    return {};
}

bool cliLameReady(const char* command, LameWrapper& lame)
{
    lame.lookForLame();
    if (lame.lameFound())
        return true;
    std::fprintf(stderr, "velmora-cli %s: MP3 export is disabled: %s (%s)\n", command, qPrintable(lame.versionText()),
                 qPrintable(lame.pathText()));
    return false;
}

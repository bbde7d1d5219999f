#include "cli/CliCommand.h"

#include "playlists/HPlayListDataSource.h"
#include "playlists/PlayListDataSource.h"
#include "playlists/PlaylistFiles.h"

#include <cstdio>

using namespace PlaylistFiles;

namespace {

int runPlaylists(const QStringList& arguments)
{
    if (!arguments.isEmpty()) {
        std::fprintf(stderr, "Usage: velmora-cli playlists\n");
        return 2;
    }
    HPlayListDataSource hidden;
    hidden.awakeFromNib();
    std::printf("Playlists:\n");
    for (const QString& path : PlayListDataSource::allPlaylistFiles()) {
        std::printf("  %s\t%s%s\n", qPrintable(displayName(path)), qPrintable(path),
                    hidden.hideThisItem(path) ? "\thidden" : "");
    }
    std::printf("Media sets:\n");
    for (const QString& entry : walk(mediaFolder())) {
        const QString path = appendingPathComponent(mediaFolder(), entry);
        std::printf("  %s\t%s\n", qPrintable(displayName(entry)), qPrintable(path));
        for (const QString& playlist : mediaSetPlaylists(readMediaSet(path)))
            std::printf("    %s\n", qPrintable(playlist));
    }
    return 0;
}

CliRegistration reg({"playlists", "",
                     "List the playlists (name, path, \"hidden\" when hidden) and the media sets with their playlists.",
                     runPlaylists});

} // namespace

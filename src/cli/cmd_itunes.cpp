#include "cli/CliCommand.h"

#include "playlists/ITunesManager.h"
#include "playlists/PlaylistFiles.h"

#include <QFileInfo>

#include <cstdio>

using namespace PlaylistFiles;

namespace {

int runItunesImport(const QStringList& arguments)
{
    if (arguments.size() > 1 || (!arguments.isEmpty() && arguments.first().startsWith(QLatin1String("--")))) {
        std::fprintf(stderr, "Usage: velmora-cli itunes-import [LIBRARY.xml]\n");
        return 2;
    }
    iTunesManager importer;
    if (!arguments.isEmpty())
        importer.setLibraryPath(arguments.first());
    importer.prepareFolders();
    QString error;
    const auto library = importer.readLibrary(&error);
    if (!library) {
        std::fprintf(stderr, "velmora-cli: %s\n", qPrintable(error));
        return 1;
    }
    importer.createFiles(*library);
    for (const QVariant& item : library->playlists) {
        const QString name = item.toMap().value(QStringLiteral("Name")).toString();
        const QString intermediate = appendingPathComponent(
            iTunesFolder(), iTunesManager::stringByReplacingSlashes(name) + QStringLiteral(".xml"));
        const QString converted = replacingPathExtension(intermediate, QStringLiteral("cd3"));
        // A playlist whose mapped name came before is converted already.
        if (QFileInfo::exists(intermediate) && !importer.convertItunesPlaylist(intermediate)) {
            std::fprintf(stderr, "velmora-cli: could not convert the playlist \"%s\"\n", qPrintable(name));
            continue;
        }
        QStringList tracks;
        if (const auto group = readGroup(converted))
            gatherLeaves(*group, tracks);
        std::printf("%s\t%s\t%lld tracks\n", qPrintable(name), qPrintable(converted),
                    static_cast<long long>(tracks.size()));
    }
    return 0;
}

CliRegistration reg({"itunes-import", "[LIBRARY.xml]",
                     "List the playlists of an iTunes library (default: iTunes/iTunes Music Library.xml in the "
                     "Music folder) and convert each into a playlist in the iTunes folder.",
                     runItunesImport});

} // namespace

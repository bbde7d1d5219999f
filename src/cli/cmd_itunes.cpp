#include "cli/CliCommand.h"
#include "cli/JobProgress.h"

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
    JobProgress progress;
    iTunesManager importer;
    if (!arguments.isEmpty())
        importer.setLibraryPath(arguments.first());
    QString error;
    if (!importer.prepareFolders(&error)) {
        std::fprintf(stderr, "velmora-cli: %s\n", qPrintable(error));
        return 1;
    }
    const auto parse = importer.parseLibrary();
    parse->wait();
    const auto library = importer.library();
    if (!library) {
        const QString reason = parse->result().error;
        std::fprintf(stderr, "velmora-cli: %s\n",
                     qPrintable(reason.isEmpty() ? QStringLiteral("no iTunes library at %1").arg(importer.libraryPath())
                                                 : reason));
        return 1;
    }
    importer.preparse()->wait();
    // Playlists whose mapped names are the same share one intermediate.
    QStringList intermediates;
    for (const QVariant& item : library->playlists) {
        const QString intermediate = appendingPathComponent(
            iTunesFolder(),
            iTunesManager::stringByReplacingSlashes(item.toMap().value(QStringLiteral("Name")).toString()) + ".xml");
        if (!intermediates.contains(intermediate) && QFileInfo::exists(intermediate))
            intermediates.append(intermediate);
    }
    const auto conversion = importer.convertPlaylists(intermediates);
    conversion->wait();
    int status = conversion->result().ok() ? 0 : 1;
    for (const QVariant& item : library->playlists) {
        const QString name = item.toMap().value(QStringLiteral("Name")).toString();
        const QString converted = appendingPathComponent(iTunesFolder(), iTunesManager::stringByReplacingSlashes(name) +
                                                                             QStringLiteral(".cd3"));
        const auto group = readGroup(converted);
        if (!group) {
            std::fprintf(stderr, "velmora-cli: could not convert the playlist \"%s\"\n", qPrintable(name));
            status = 1;
            continue;
        }
        QStringList tracks;
        gatherLeaves(*group, tracks);
        std::printf("%s\t%s\t%lld tracks\n", qPrintable(name), qPrintable(converted),
                    static_cast<long long>(tracks.size()));
    }
    return status;
}

CliRegistration reg({"itunes-import", "[LIBRARY.xml]",
                     "List the playlists of an iTunes library (default: iTunes/iTunes Music Library.xml in the "
                     "Music folder) and convert each into a playlist in the iTunes folder.",
                     runItunesImport});

} // namespace

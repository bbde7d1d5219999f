#include "cli/CliCommand.h"
#include "cli/JobProgress.h"

#include "core/Defaults.h"
#include "playlists/M3uManager.h"
#include "playlists/PlaylistFiles.h"

#include <cstdio>

namespace {

constexpr char kUsage[] = "[--shuffle] [--prefix PATH] [--mp3] [--export-folder DIR] PLAYLIST.cd3";

int usage()
{
    std::fprintf(stderr, "Usage: velmora-cli m3u %s\n", kUsage);
    return 2;
}

int runM3u(const QStringList& arguments)
{
    // The Music tab's settings, unless an option says otherwise.
    Defaults& defaults = Defaults::standard();
    bool shuffle = defaults.integerForKey(QStringLiteral("mShuffleM3UStored")) != 0;
    bool asMP3 = false;
    QString prefix = defaults.stringForKey(QStringLiteral("prefsM3UPathPrefixStored"));
    QString exportFolder = defaults.stringForKey(QStringLiteral("prefsM3UExportFolderStored"));
    QString playlist;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        if (argument == QLatin1String("--shuffle")) {
            shuffle = true;
        } else if (argument == QLatin1String("--mp3")) {
            asMP3 = true;
        } else if (argument == QLatin1String("--prefix") && i + 1 < arguments.size()) {
            prefix = arguments.at(++i);
        } else if (argument == QLatin1String("--export-folder") && i + 1 < arguments.size()) {
            exportFolder = arguments.at(++i);
        } else if (argument.startsWith(QLatin1String("--")) || !playlist.isEmpty()) {
            return usage();
        } else {
            playlist = argument;
        }
    }
    if (playlist.isEmpty())
        return usage();
    QString error;
    const auto group = PlaylistFiles::readGroup(playlist, &error);
    if (!group) {
        std::fprintf(stderr, "velmora-cli: %s is not a playlist: %s\n", qPrintable(playlist), qPrintable(error));
        return 1;
    }
    JobProgress progress;
    m3uManager manager;
    const QString written = manager.vlM3UPlaylistNotification({
        {QStringLiteral("path"), playlist},
        {QStringLiteral("dictionary"), *group},
        {QStringLiteral("mShuffleM3UStored"), shuffle ? 1 : 0},
        {QStringLiteral("prefsM3UPathPrefixStored"), prefix},
        {QStringLiteral("prefsM3UExportFolderStored"), exportFolder},
        {QStringLiteral("makemp3ifneeded"), asMP3},
    });
    if (written.isEmpty()) {
        std::fprintf(stderr, "velmora-cli: could not write %s\n", qPrintable(m3uManager::targetPathFor(playlist)));
        return 1;
    }
    std::printf("%s\n", qPrintable(written));
    return 0;
}

CliRegistration reg({"m3u", kUsage,
                     "Write the extended M3U file of a playlist into the M3U folder as the Music tab does "
                     "(copied to the export folder when one is set) and print its path.",
                     runM3u});

} // namespace

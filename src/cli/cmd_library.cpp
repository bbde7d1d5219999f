// velmora-cli library: the library roots and the audio files and folders under
// them, as every tab's library column lists them.
#include "cli/CliCommand.h"

#include "core/FileSystemItem.h"
#include "core/FileSystemItemListing.h"
#include "platform/FileNames.h"

#include <QDir>
#include <QFileInfo>

#include <cstdio>

namespace {

int usageError(const char* message)
{
    std::fprintf(stderr, "velmora-cli library: %s (see velmora-cli --help)\n", message);
    return 2;
}

int runLibrary(const QStringList& arguments)
{
    bool json = false;
    int depth = -1;
    QString add;
    QString remove;
    QStringList paths;
    for (int i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments[i];
        if (argument == QLatin1String("--json")) {
            json = true;
        } else if (argument == QLatin1String("--depth")) {
            bool ok = false;
            depth = i + 1 < arguments.size() ? arguments[++i].toInt(&ok) : -1;
            if (!ok || depth < 0)
                return usageError("--depth needs a number of levels, 0 or more");
        } else if (argument == QLatin1String("--add") || argument == QLatin1String("--remove")) {
            if (i + 1 >= arguments.size())
                return usageError("--add and --remove need a folder");
            (argument == QLatin1String("--add") ? add : remove) = arguments[++i];
        } else if (argument.startsWith(QLatin1String("--"))) {
            return usageError("unknown option");
        } else {
            paths << argument;
        }
    }

    if (!add.isEmpty()) {
        const QFileInfo folder(add);
        if (!folder.isDir()) {
            std::fprintf(stderr, "velmora-cli library: \"%s\" is not a folder\n", qPrintable(add));
            return 1;
        }
        FileSystemItem::addToRootItem(folder.absoluteFilePath());
    }
    if (!remove.isEmpty()) {
        const QString path = remove;
        if (!FileSystemItem::rootPaths().contains(path)) {
            std::fprintf(stderr, "velmora-cli library: \"%s\" is not a library root\n", qPrintable(path));
            return 1;
        }
        FileSystemItem::removeFromRootItem(path);
    }

    QList<FileSystemItemListing::Root> roots;
    if (!paths.isEmpty()) {
        for (const QString& path : paths)
            roots.append({QDir::cleanPath(QFileInfo(path).absoluteFilePath()), depth});
    } else {
        for (const QString& path : FileSystemItem::rootPaths()) {
            // The whole file system is rarely what anyone wants to see listed.
            const bool wholeDisk = QDir::cleanPath(path) == QLatin1String("/");
            roots.append({path, depth < 0 && wholeDisk ? 0 : depth});
        }
    }

    QStringList unreadable;
    const QByteArray out =
        json ? FileSystemItemListing::toJson(roots, &unreadable) : FileSystemItemListing::toText(roots, &unreadable);
    std::fwrite(out.constData(), 1, size_t(out.size()), stdout);
    for (const QString& name : unreadable)
        std::fprintf(stderr, "velmora-cli library: %s\n", qPrintable(FileNames::unreadableNameMessage(name)));
    if (!unreadable.isEmpty())
        std::fprintf(stderr, "%lld skipped\n", static_cast<long long>(unreadable.size()));
    return std::fflush(stdout) == 0 ? 0 : 1;
}

CliRegistration reg({"library", "[--json] [--depth N] [--add FOLDER] [--remove FOLDER] [FOLDER...]",
                     "Lists the library roots and, under each, the audio files and folders the library shows, "
                     "recursively (folders end in \"/\"; a folder reached again through a link is marked "
                     "\"(already listed)\" and not entered twice). --depth N lists N levels below each root; "
                     "the root \"/\" is shown without its contents unless --depth is given. FOLDER... lists "
                     "those folders instead of the roots. --add and --remove change the stored library roots "
                     "first. --json prints {\"roots\": [...]} instead of text.",
                     runLibrary});

} // namespace

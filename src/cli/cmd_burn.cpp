// velmora-cli burn: an audio CD, a data disc or a DVD-Audio disc, to a burner or an image file.
// The first word picks the kind of disc, so other kinds can join.
#include "cli/BurnCommand.h"
#include "cli/CliCommand.h"
#include "cli/JobProgress.h"

#include "core/StringUtils.h"
#include "disc/AudioCDWrapper.h"
#include "disc/AudioDVDWrapper.h"
#include "disc/OpticalMediaWrapper.h"
#include "encode/LameWrapper.h"
#include "tabs/AppControllers.h"
#include "tabs/FolderCollector.h"

#include <QFileInfo>

#include <cstdio>
#include <functional>
#include <optional>

namespace {

constexpr char kAudioUsage[] =
    "audio [--drive DEV | --image OUT.cue] [--speed N] [--simulate] [--eject] [--no-verify] FILE...";
constexpr char kDataUsage[] =
    "data [--drive DEV | --image OUT.iso] [--speed N] [--simulate] [--eject] [--title NAME] [--mp3] "
    "[--preserve-order] [--strip-id3v2] [--append-id3v1] [--no-joliet] [--playlist P.cd3 ...] FILE|FOLDER...";

constexpr char kDvdAudioUsage[] = "dvd-audio [--drive DEV | --image OUT.iso] [--speed N] [--simulate] [--eject] FILE...";

int usage()
{
    std::fprintf(stderr, "Usage: velmora-cli burn %s\n   or: velmora-cli burn %s\n   or: velmora-cli burn %s\n",
                 kAudioUsage, kDataUsage, kDvdAudioUsage);
    return 2;
}

// The options both kinds take; the rest is left in *rest. Nothing on a bad option.
std::optional<BurnSetup> parseSetup(const QStringList& arguments, const QString& imageSuffix, QStringList* rest)
{
    BurnSetup setup;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        const bool hasValue = i + 1 < arguments.size();
        if (argument == QLatin1String("--drive") && hasValue) {
            setup.drive = arguments.at(++i);
        } else if (argument == QLatin1String("--image") && hasValue) {
            setup.image = QFileInfo(arguments.at(++i)).absoluteFilePath();
        } else if (argument == QLatin1String("--speed") && hasValue) {
            bool number = false;
            setup.speed = arguments.at(++i).toInt(&number);
            if (!number || setup.speed < 0) {
                std::fprintf(stderr, "velmora-cli burn: --speed takes a whole number of times CD (or DVD) speed\n");
                return std::nullopt;
            }
        } else if (argument == QLatin1String("--simulate")) {
            setup.simulate = true;
        } else if (argument == QLatin1String("--eject")) {
            setup.ejectAfter = true;
        } else if (argument == QLatin1String("--no-verify")) {
            setup.verify = false;
        } else {
            rest->append(argument);
        }
    }
    if (setup.drive.isEmpty() == setup.image.isEmpty()) {
        std::fprintf(stderr, "velmora-cli burn: give either --drive DEV or --image FILE\n");
        return std::nullopt;
    }
    if (!setup.image.isEmpty() && QFileInfo(setup.image).suffix().toLower() != imageSuffix) {
        std::fprintf(stderr, "velmora-cli burn: the image file's name must end in .%s\n", qPrintable(imageSuffix));
        return std::nullopt;
    }
    return setup;
}

bool allExist(const QStringList& paths)
{
    bool all = true;
    for (const QString& path : paths) {
        if (!QFileInfo::exists(path)) {
            std::fprintf(stderr, "velmora-cli burn: %s: no such file or folder\n", qPrintable(path));
            all = false;
        }
    }
    return all;
}

// The files of an audio burn, made absolute; nothing when one is missing or an option is wrong.
std::optional<QStringList> audioFiles(const QStringList& rest, int* code)
{
    QStringList files;
    for (const QString& file : rest) {
        if (file.startsWith(QLatin1String("--"))) {
            *code = usage();
            return std::nullopt;
        }
        files << QFileInfo(file).absoluteFilePath();
    }
    *code = files.isEmpty() ? usage() : 1;
    if (files.isEmpty() || !allExist(rest))
        return std::nullopt;
    return files;
}

// An audio CD (image suffix "cue") or a DVD-Audio disc ("iso") of the files:
// start is the burner's entry for them.
int burnAudioFiles(const QStringList& arguments, const QString& imageSuffix,
                   const std::function<std::shared_ptr<Job>(AppControllers&, const QStringList&, const BurnSetup&)>& start)
{
    QStringList rest;
    const std::optional<BurnSetup> setup = parseSetup(arguments, imageSuffix, &rest);
    if (!setup)
        return 2;
    int code = 0;
    const std::optional<QStringList> files = audioFiles(rest, &code);
    if (!files)
        return code;
    AppControllers controllers;
    JobProgress progress;
    const std::shared_ptr<Job> job = start(controllers, *files, *setup);
    if (!job) {
        std::fprintf(stderr, "velmora-cli burn: none of the files can be burned (protected .m4p files cannot)\n");
        return 1;
    }
    code = burncommand::finish("burn", job);
    // Files left out are named in the messages; the disc holds the others.
    return code == 0 && !job->messages().filter(QStringLiteral("Left out")).isEmpty() ? 1 : code;
}

int burnAudio(const QStringList& arguments)
{
    return burnAudioFiles(arguments, QStringLiteral("cue"),
                          [](AppControllers& controllers, const QStringList& files, const BurnSetup& setup) {
                              return controllers.audioCD().burnAudioCD(files, setup);
                          });
}

int burnDvdAudio(const QStringList& arguments)
{
    return burnAudioFiles(arguments, QStringLiteral("iso"),
                          [](AppControllers& controllers, const QStringList& files, const BurnSetup& setup) {
                              return controllers.audioDVD().burnAudioDVD(files, setup);
                          });
}

int burnData(const QStringList& arguments)
{
    QStringList rest;
    const std::optional<BurnSetup> setup = parseSetup(arguments, QStringLiteral("iso"), &rest);
    if (!setup)
        return 2;
    DataDiscOptions options;
    options.appendID3v1 = false;
    options.joliet = true;
    QString title = QStringLiteral("Velmora");
    bool makeMp3 = false;
    QStringList playlists;
    QStringList sources;
    for (qsizetype i = 0; i < rest.size(); ++i) {
        const QString& argument = rest.at(i);
        if (argument == QLatin1String("--title") && i + 1 < rest.size())
            title = rest.at(++i);
        else if (argument == QLatin1String("--playlist") && i + 1 < rest.size())
            playlists << QFileInfo(rest.at(++i)).absoluteFilePath();
        else if (argument == QLatin1String("--mp3"))
            makeMp3 = true;
        else if (argument == QLatin1String("--preserve-order"))
            options.preserveOrder = true;
        else if (argument == QLatin1String("--strip-id3v2"))
            options.stripID3v2 = true;
        else if (argument == QLatin1String("--append-id3v1"))
            options.appendID3v1 = true;
        else if (argument == QLatin1String("--no-joliet"))
            options.joliet = false;
        else if (argument.startsWith(QLatin1String("--")))
            return usage();
        else
            sources << argument;
    }
    if (sources.isEmpty())
        return usage();
    if (!allExist(sources) || !allExist(playlists))
        return 1;

    // Folders are laid out as the Music tab lays out a selection.
    QStringList files;
    QStringList folders;
    for (const QString& source : std::as_const(sources)) {
        const std::optional<QVariantMap> collection = contentsOfFolder(source, nullptr, {}, defaultAudioTypes());
        if (!collection)
            continue;
        const QStringList leaves = collection->value(QStringLiteral("leafarray")).toStringList();
        const QStringList destinations = collection->value(QStringLiteral("destinationarray")).toStringList();
        for (qsizetype i = 0; i < leaves.size(); ++i) {
            files << QFileInfo(leaves.at(i)).absoluteFilePath();
            folders << destinations.value(i);
        }
    }
    if (files.isEmpty()) {
        std::fprintf(stderr, "velmora-cli burn: there are no music files to burn\n");
        return 1;
    }
    const qint64 megabytes = OpticalMediaWrapper::computeSize(files);
    if (const auto warning = OpticalMediaWrapper::sizeWarning(megabytes);
        warning != OpticalMediaWrapper::SizeWarning::None)
        std::fprintf(stderr, "velmora-cli burn: %s (%lld MB)\n", qPrintable(OpticalMediaWrapper::warningTitle(warning)),
                     megabytes);

    AppControllers controllers;
    // The desktop program looks for lame at launch; converting to MP3 needs it found.
    if (makeMp3)
        controllers.lame().lookForLame();
    JobProgress progress;
    const QVariantMap request{{"selectedfiles", files},
                              {"destinationpaths", folders},
                              {"m3uplaylists", playlists},
                              {"cdtitle", title},
                              {"makemp3ifneeded", makeMp3}};
    const std::shared_ptr<Job> job = controllers.opticalMedia().burnMP3CD(request, *setup, options);
    const int code = burncommand::finish("burn", job);
    return code == 0 && !job->messages().filter(QStringLiteral("Left out")).isEmpty() ? 1 : code;
}

int runBurn(const QStringList& arguments)
{
    if (arguments.isEmpty())
        return usage();
    const QString kind = arguments.first();
    if (kind == QLatin1String("audio"))
        return burnAudio(arguments.mid(1));
    if (kind == QLatin1String("data"))
        return burnData(arguments.mid(1));
    if (kind == QLatin1String("dvd-audio"))
        return burnDvdAudio(arguments.mid(1));
    return usage();
}

CliRegistration reg(
    {"burn",
     "audio|data|dvd-audio [--drive DEV | --image FILE] [--speed N] [--simulate] [--eject] [--no-verify] [--title NAME] "
     "[--mp3] [--preserve-order] [--strip-id3v2] [--append-id3v1] [--no-joliet] [--playlist P.cd3] FILE...",
     "Burn an audio CD (audio: the files as tracks, at most 79 minutes, with CD-Text from their tags; --image "
     "OUT.cue writes a BIN/CUE pair), a data disc (data: files and folders laid out as the Music tab lays out "
     "a selection, with the M3U files of each --playlist; --image OUT.iso writes an ISO file) or a DVD-Audio "
     "disc (dvd-audio: the files as the tracks of one title, 16- or 24-bit WAV as they are, anything else "
     "converted to 44.1 kHz WAV first; --image OUT.iso writes the disc image and checks it). DEV is a burner "
     "as `velmora-cli drives` lists it, or stdio:FILE (libburn's drive on a file, for data and DVD-Audio discs). An audio "
     "image, and an audio CD the burner can read, is read back and compared with what was sent "
     "(--no-verify skips that). --speed N, --simulate and --eject are for burners. Data: "
     "--title NAME, --mp3 (convert files that are not MP3), --preserve-order (000-prefixed names), "
     "--strip-id3v2, --append-id3v1, --no-joliet. Exits 0 when every file went on and was checked.",
     runBurn});

}  // namespace

// velmora-cli rip: the Rip tab's save path without the window.
#include "cli/CliChecks.h"
#include "cli/CliCommand.h"
#include "cli/InterruptWatch.h"
#include "cli/DiscOptions.h"
#include "cli/JobProgress.h"

#include "core/Job.h"
#include "core/StringUtils.h"
#include "disc/CdDrives.h"
#include "disc/DiscID.h"
#include "disc/MountedCDWrapper.h"
#include "encode/ExportJobs.h"
#include "encode/LameWrapper.h"
#include "tabs/RipSourcesWrapper.h"

#include <QFileInfo>
#include <QSet>

#include <chrono>
#include <cstdio>
#include <mutex>

namespace {

constexpr char kUsage[] =
    "--to TYPE[,TYPE...] --out DIR [--tracks 1,3-5] [--format 0-6] [--custom \"[Track] [Title].[ext]\"] "
    "[--subfolders] [--type-folder] [--lowercase-folders] [--no-spaces] [--server HOST[:PORT][/CGI]] [--no-cddb] "
    "[--log] IMAGE.cue|DEVICE";

int usage()
{
    std::fprintf(stderr, "Usage: velmora-cli rip %s\nTYPE: %s\n", kUsage,
                 qPrintable(RipSettings::formatNames().join(", ")));
    return 2;
}

// "1,3-5" as track numbers; empty when the text is not such a list.
std::optional<QSet<int>> trackList(const QString& text)
{
    QSet<int> tracks;
    for (const QString& part : text.split(QLatin1Char(','))) {
        const QStringList ends = part.split(QLatin1Char('-'));
        bool firstOk = false, lastOk = false;
        const int first = ends.value(0).trimmed().toInt(&firstOk);
        const int last = ends.size() == 2 ? ends[1].trimmed().toInt(&lastOk) : first;
        if (!firstOk || (ends.size() == 2 && !lastOk) || ends.size() > 2 || first < 1 || last < first || last > 99)
            return std::nullopt;
        for (int track = first; track <= last; ++track)
            tracks.insert(track);
    }
    return tracks;
}

int runRip(const QStringList& arguments)
{
    QStringList types;
    QString out, source;
    std::optional<QSet<int>> tracks;
    QVariantMap naming;  // laid over every format's stored settings
    bool log = false;
    CdWatcherOptions options;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        const bool hasValue = i + 1 < arguments.size();
        if (argument == QLatin1String("--to") && hasValue) {
            for (const QString& type : arguments.at(++i).split(QLatin1Char(',')))
                types << type.trimmed().toUpper();
        } else if (argument == QLatin1String("--out") && hasValue) {
            out = arguments.at(++i);
        } else if (argument == QLatin1String("--tracks") && hasValue) {
            if (!(tracks = trackList(arguments.at(++i))))
                return usage();
        } else if (argument == QLatin1String("--format") && hasValue) {
            bool isNumber = false;
            const int format = arguments.at(++i).toInt(&isNumber);
            if (!isNumber || format < 0 || format > 6)
                return usage();
            naming.insert(QStringLiteral("mRipFilenameFormatStored"), format);
        } else if (argument == QLatin1String("--custom") && hasValue) {
            naming.insert(QStringLiteral("mRipSettingsFormatStringStored"), arguments.at(++i));
            naming.insert(QStringLiteral("mRipFilenameFormatStored"), 6);
        } else if (argument == QLatin1String("--subfolders")) {
            naming.insert(QStringLiteral("mRipSubfoldersStored"), 1);
        } else if (argument == QLatin1String("--type-folder")) {
            naming.insert(QStringLiteral("mRipTypeFolderStored"), 1);
        } else if (argument == QLatin1String("--lowercase-folders")) {
            naming.insert(QStringLiteral("mRipFolderCaseStored"), 1);
        } else if (argument == QLatin1String("--no-spaces")) {
            naming.insert(QStringLiteral("mRipFolderSpacesStored"), 1);
        } else if (argument == QLatin1String("--server") && hasValue) {
            options.freedb.server = serverRecord(arguments.at(++i));
            if (!options.freedb.server) {
                std::fprintf(stderr, "velmora-cli: \"%s\" is not HOST[:PORT][/CGI]\n", qPrintable(arguments.at(i)));
                return 2;
            }
        } else if (argument == QLatin1String("--no-cddb")) {
            options.lookUp = false;
        } else if (argument == QLatin1String("--log")) {
            log = true;
        } else if (argument.startsWith(QLatin1String("--")) || !source.isEmpty()) {
            return usage();
        } else {
            source = argument;
        }
    }
    if (types.isEmpty() || out.isEmpty() || source.isEmpty())
        return usage();
    for (const QString& type : std::as_const(types)) {
        if (!RipSettings::formatNames().contains(type)) {
            std::fprintf(stderr, "velmora-cli: unknown type \"%s\"\n", qPrintable(type));
            return usage();
        }
    }
    types.removeDuplicates();
    out = cliOutputFolder("rip", out);
    if (out.isEmpty())
        return 1;

    ExportJobs exports;
    LameWrapper lame;
    if (types.contains(QStringLiteral("MP3")) && !cliLameReady("rip", lame))
        return 1;
    JobProgress progress;
    mounted_cd_wrapper watcher(std::make_unique<SystemCdDrives>(), options);
    RipSourcesWrapper rip(watcher);

    // The disc, and its FreeDB names once the lookup has ended.
    QString cdpath;
    bool opened = false;
    QObject::connect(&watcher, &mounted_cd_wrapper::opened, [&](const QString&, const QString& path) {
        cdpath = path;
        opened = true;
    });
    QObject::connect(&watcher, &mounted_cd_wrapper::openFailed, [&] { opened = true; });
    if (source.startsWith(QLatin1String("/dev/"))) {
        if (!isCDDevice(source, [&](const QString& device) { return watcher.drives().isDrive(device); })) {
            std::fprintf(stderr, "velmora-cli: %s is not a CD drive\n", qPrintable(source));
            return 1;
        }
        watcher.openDrive(source);
    } else {
        watcher.openImage(QFileInfo(source).absoluteFilePath());
    }
    waitUntil([&] { return opened; });
    if (cdpath.isEmpty())
        return 1;  // the job's failure is printed with the progress of the jobs
    waitUntil([&] {
        const FreeDBWrapper* freedb = watcher.freeDBWrapper(cdpath);
        return !freedb || !freedb->isBusy();
    });
    rip.selectDisc(cdpath);
    if (tracks) {
        QSet<int> onDisc;
        for (int row = 0; row < rip.tracks().size(); ++row) {
            onDisc.insert(rip.tracks()[row].number);
            rip.setTrackSelected(row, tracks->contains(rip.tracks()[row].number));
        }
        for (int track : std::as_const(*tracks)) {
            if (!onDisc.contains(track)) {
                std::fprintf(stderr, "velmora-cli: the disc has no audio track %d\n", track);
                return 1;
            }
        }
    }

    RipSettings settings = RipSettings::stored();
    for (const QString& type : std::as_const(types)) {
        QVariantMap formatSettings = settings.forFormat(type);
        for (auto it = naming.begin(); it != naming.end(); ++it)
            formatSettings.insert(it.key(), it.value());
        settings.setForFormat(type, formatSettings);
    }
    settings.multiRip = types;
    settings.writeLog = log;
    settings.inBackground = true;  // the next track is read while this one is encoded
    const QString type = types.size() == 1 ? types.first() : QStringLiteral("MULTI-RIP");
    const std::optional<RipSourcesWrapper::RipRequest> request = rip.ripRequest(type, out);
    if (!request) {
        std::fprintf(stderr, "velmora-cli: no track to rip\n");
        return 1;
    }

    std::mutex outputMutex;
    int written = 0, failed = 0;
    rip.setMadeHandler([&](const QString& file) {
        std::lock_guard lock(outputMutex);
        ++written;
        std::printf("%s\n", qPrintable(file));
        std::fflush(stdout);
    });
    rip.setFailureHandler([&](const QString& message) {
        std::lock_guard lock(outputMutex);
        ++failed;
        std::fprintf(stderr, "velmora-cli: %s\n", qPrintable(message));
    });
    const std::shared_ptr<Job> job = rip.makeRipJob(*request, settings);

    // Ctrl-C is the progress sheet's Cancel button: the track being read is
    // dropped, encoders not yet started never start, running ones finish.
    JobResult result;
    {
        const InterruptWatch watch([&] {
            job->cancel();
            return true;
        });
        result = job->run();
        exports.waitForBackgroundWork();
    }

    const bool cancelled = result.outcome == JobResult::Outcome::Cancelled;
    std::fprintf(stderr, "%d written, %d failed%s\n", written, failed, cancelled ? ", cancelled" : "");
    if (cancelled)
        return 130;
    return result.ok() ? 0 : 1;
}

CliRegistration registration(
    {"rip", kUsage,
     "Rip an audio CD (a drive, or a cue sheet with its BIN) as the Rip tab does: files named from the FreeDB "
     "information (from the server of the preferences or --server; --no-cddb for none) with the file name format "
     "0-6 or a custom format, in artist/album sub-folders and a folder per type when asked; several types make a "
     "MULTI-RIP from one read of each track. --log writes a rip log (CRC32 and AccurateRip checksums, the reader's "
     "report) beside the files. Prints each file made; Ctrl-C cancels, leaving only whole files. Exits 0 only "
     "when every file was made.",
     runRip});

}  // namespace

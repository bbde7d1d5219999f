// velmora-cli convert: the Music tab's save path without the window.
#include "cli/CliChecks.h"
#include "cli/CliCommand.h"
#include "cli/InterruptWatch.h"
#include "cli/HeldJobs.h"
#include "cli/JobProgress.h"

#include "core/Job.h"
#include "core/StringUtils.h"
#include "encode/ExportJobs.h"
#include "encode/LameWrapper.h"
#include "tabs/AppControllers.h"
#include "tabs/FolderCollector.h"
#include "tabs/MusicSourcesWrapper.h"

#include <QFileInfo>

#include <chrono>
#include <cstdio>
#include <mutex>

namespace {

int usage()
{
    std::fprintf(stderr, "Usage: velmora-cli convert --to TYPE --out FOLDER [--replace] [--flat] PATH...\n"
                         "TYPE: WAV, OGG, MP3, MP2, M4A, M4B, AAC, WMA or COPY\n");
    return 2;
}

int runConvert(const QStringList& arguments)
{
    QString type, out;
    bool replace = false, flat = false;
    QStringList paths;
    for (int i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        if (argument == QLatin1String("--to") && i + 1 < arguments.size())
            type = arguments.at(++i).toUpper();
        else if (argument == QLatin1String("--out") && i + 1 < arguments.size())
            out = arguments.at(++i);
        else if (argument == QLatin1String("--replace"))
            replace = true;
        else if (argument == QLatin1String("--flat"))
            flat = true;
        else if (argument.startsWith(QLatin1String("--")))
            return usage();
        else
            paths << argument;
    }
    if (type.isEmpty() || out.isEmpty() || paths.isEmpty())
        return usage();
    if (!MusicSourcesWrapper::formatKeys().contains(type) && type != QLatin1String("COPY")) {
        std::fprintf(stderr, "velmora-cli: unknown type \"%s\"\n", qPrintable(type));
        return usage();
    }
    out = cliOutputFolder("convert", out);
    if (out.isEmpty())
        return 1;

    AppControllers controllers;
    if (type == QLatin1String("MP3") && !cliLameReady("convert", controllers.lame()))
        return 1;
    MusicSourcesWrapper& music = controllers.musicSources();
    music.setSaveInBackground(true);
    HeldJobs held;
    JobProgress progress;

    std::mutex outputMutex;
    QList<QPair<QString, QString>> dispatched;
    QStringList failures;
    int skipped = 0;
    music.setDispatchHandler([&](const QString& source, const QString& destination) {
        std::lock_guard lock(outputMutex);
        dispatched << qMakePair(source, destination);
        std::fprintf(stderr, "[%lld] %s -> %s\n", static_cast<long long>(dispatched.size()), qPrintable(source),
                     qPrintable(destination));
    });
    music.setFailureHandler([&](const QString& path, const QString& reason) {
        std::lock_guard lock(outputMutex);
        failures << QStringLiteral("%1: %2").arg(path, reason);
        std::fprintf(stderr, "velmora-cli: %s: %s\n", qPrintable(path), qPrintable(reason));
    });
    music.setSkipHandler([&](const QString& message) {
        std::lock_guard lock(outputMutex);
        ++skipped;
        std::fprintf(stderr, "velmora-cli: %s\n", qPrintable(message));
    });

    MusicSourcesWrapper::Selection selection;
    for (const QString& path : paths) {
        const QFileInfo info(path);
        if (!info.exists()) {
            failures << QStringLiteral("%1: no such file or folder").arg(path);
            std::fprintf(stderr, "velmora-cli: %s: no such file or folder\n", qPrintable(path));
            continue;
        }
        if (info.isFile()) {
            if (const auto reason = leftOutReason(path, defaultAudioTypes())) {
                failures << QStringLiteral("%1: %2").arg(path, *reason);
                std::fprintf(stderr, "velmora-cli: %s: %s\n", qPrintable(path), qPrintable(*reason));
                continue;
            }
        } else {
            for (const QString& line : leftOutSummary(path, defaultAudioTypes()))
                std::fprintf(stderr, "velmora-cli: %s: %s\n", qPrintable(path), qPrintable(line));
        }
        selection << MusicSourcesWrapper::Source::library(info.absoluteFilePath());
    }

    QVariantMap request{{"type", type}, {"destinationfolder", out}};
    if (replace || flat)
        request.insert("namingoptions", QVariantMap{{"replace", replace}, {"dontput", flat}});
    const std::shared_ptr<Job> save = music.makeSaveJob(request, selection);

    // Ctrl-C is the progress sheet's Cancel button, also once every file is handed
    // over: encoders still waiting for a slot never start.
    {
        const InterruptWatch watch([&] {
            music.terminateSave();
            return true;
        });
        save->run();
        controllers.exportJobs().waitForBackgroundWork();
    }

    // A file counts as written only when its job says it was made whole.
    int written = 0;
    for (const auto& [source, destination] : dispatched) {
        const std::shared_ptr<Job> job = exportJobFor(destination);
        if (job)
            job->wait();
        const JobResult result = job ? job->result() : JobResult::failed(QStringLiteral("no export job answered"));
        // A job that succeeds without the file left it out on purpose (AppleDouble companions).
        if (result.ok() && result.files.contains(destination)) {
            ++written;
            std::printf("%s\n", qPrintable(destination));
        } else if (result.outcome == JobResult::Outcome::Failed) {
            failures << QStringLiteral("%1: %2").arg(source, result.error);
        } else if (result.outcome == JobResult::Outcome::Cancelled && !music.isCancelled()) {
            failures << QStringLiteral("%1: cancelled").arg(source);
        }
    }
    for (const QString& failure : failures)
        std::fprintf(stderr, "failed: %s\n", qPrintable(failure));
    std::fprintf(stderr, "%d written, %lld failed, %d skipped%s\n", written, static_cast<long long>(failures.size()),
                 skipped, music.isCancelled() ? ", cancelled" : "");
    if (music.isCancelled())
        return 130;
    // Files left out for their names were not converted either.
    return failures.isEmpty() && skipped == 0 ? 0 : 1;
}

CliRegistration registration({"convert", "--to TYPE --out FOLDER [--replace] [--flat] PATH...",
                              "Convert files and folders as the Music tab does: destination sub-folders, unique "
                              "names, one export per file in background slots; prints each file written. "
                              "--replace overwrites, --flat puts every file directly into FOLDER. Files whose "
                              "names are not valid UTF-8 are reported and skipped, and so are the kinds of file a folder holds "
                              "that the library does not list; a file named that is not a library type is an error. "
                              "Exits 0 only when every file "
                              "was written whole.",
                              runConvert});

} // namespace

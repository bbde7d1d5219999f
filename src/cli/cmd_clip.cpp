// velmora-cli clip: the Clip tab's save path without the window.
#include "cli/CliChecks.h"
#include "cli/CliCommand.h"
#include "cli/InterruptWatch.h"
#include "cli/HeldJobs.h"
#include "cli/JobProgress.h"

#include "core/Job.h"
#include "core/StringUtils.h"
#include "encode/LameWrapper.h"
#include "tabs/AppControllers.h"
#include "tabs/ClipSourcesWrapper.h"

#include <QFileInfo>

#include <QHash>

#include <chrono>
#include <cmath>
#include <cstdio>

namespace {

int usage()
{
    std::fprintf(stderr, "Usage: velmora-cli clip --start S --length L [--fade-in A] [--fade-out B] [--volume DB] "
                         "[--no-tags] --to TYPE --out DIR FILE...\n"
                         "TYPE: WAV, OGG, MP3, MP2, M4A, M4B, M4R, AAC or WMA; times in seconds, volume in dB\n");
    return 2;
}

int runClip(const QStringList& arguments)
{
    const QHash<QString, const char*> numberOptions = {{"--start", ClipSourcesWrapper::kStart},
                                                       {"--length", ClipSourcesWrapper::kLength},
                                                       {"--fade-in", ClipSourcesWrapper::kFadeIn},
                                                       {"--fade-out", ClipSourcesWrapper::kFadeOut},
                                                       {"--volume", ClipSourcesWrapper::kVolume}};
    QVariantMap parameters = ClipSourcesWrapper::defaultParameters({});
    parameters.remove(ClipSourcesWrapper::kStart);
    parameters.remove(ClipSourcesWrapper::kLength);
    QString type, out;
    bool tags = true;
    QStringList files;
    for (int i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        const bool hasValue = i + 1 < arguments.size();
        if (numberOptions.contains(argument) && hasValue) {
            bool ok = false;
            const double value = arguments.at(++i).toDouble(&ok);
            if (!ok || !std::isfinite(value)) {
                std::fprintf(stderr, "velmora-cli clip: %s needs a number, not \"%s\"\n", qPrintable(argument),
                             qPrintable(arguments.at(i)));
                return 2;
            }
            parameters.insert(QLatin1String(numberOptions.value(argument)), ClipSourcesWrapper::secondsText(value));
        } else if (argument == QLatin1String("--to") && hasValue) {
            type = arguments.at(++i).toUpper();
        } else if (argument == QLatin1String("--out") && hasValue) {
            out = arguments.at(++i);
        } else if (argument == QLatin1String("--no-tags")) {
            tags = false;
        } else if (argument.startsWith(QLatin1String("--"))) {
            return usage();
        } else {
            files << argument;
        }
    }
    if (!parameters.contains(ClipSourcesWrapper::kStart) || !parameters.contains(ClipSourcesWrapper::kLength) ||
        type.isEmpty() || out.isEmpty() || files.isEmpty())
        return usage();
    if (!ClipSourcesWrapper::formatKeys().contains(type)) {
        std::fprintf(stderr, "velmora-cli clip: unknown type \"%s\"\n", qPrintable(type));
        return usage();
    }
    out = cliOutputFolder("clip", out);
    if (out.isEmpty())
        return 1;

    AppControllers controllers;
    if (type == QLatin1String("MP3") && !cliLameReady("clip", controllers.lame()))
        return 1;
    int failures = 0;
    QVariantList sources, settings;
    for (const QString& file : files) {
        const QFileInfo info(file);
        if (!info.isFile()) {
            std::fprintf(stderr, "velmora-cli clip: %s: no such file\n", qPrintable(file));
            ++failures;
            continue;
        }
        sources << info.absoluteFilePath();
        settings << parameters;
    }
    const QVariantMap request{{"selectedfiles", sources},
                              {"clipsettings", settings},
                              {"destinationfolder", out},
                              {"type", type},
                              {"includetags", tags}};
    HeldJobs held;
    JobProgress progress;
    const std::shared_ptr<Job> save = ClipSourcesWrapper::makeSaveJob(
        request, [](const QString& made) { std::printf("%s\n", qPrintable(made)); },
        [&failures](const QString& failure) {
            ++failures;
            std::fprintf(stderr, "failed: %s\n", qPrintable(failure));
        });

    // Ctrl-C cancels the save: the clip in hand is stopped and nothing half-made stays.
    JobResult result;
    {
        const InterruptWatch watch([&] {
            save->cancel();
            return true;
        });
        result = save->run();
    }
    std::fflush(stdout);
    if (result.outcome == JobResult::Outcome::Cancelled)
        return 130;
    return failures == 0 && result.ok() ? 0 : 1;
}

CliRegistration registration({"clip",
                              "--start S --length L [--fade-in A] [--fade-out B] [--volume DB] [--no-tags] --to TYPE "
                              "--out DIR FILE...",
                              "Cut a clip of each file as the Clip tab does: decoded, cut by sox from S for L seconds "
                              "with fades in and out and a gain in dB, then encoded (M4R: an AAC ringtone); the "
                              "song's tags are copied unless --no-tags. Prints each file made; exits 0 only when "
                              "every clip was written whole.",
                              runClip});

}  // namespace

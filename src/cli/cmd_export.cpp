// velmora-cli export: one export request, posted exactly as a tab posts it.
#include "cli/CliChecks.h"
#include "cli/CliCommand.h"
#include "cli/InterruptWatch.h"
#include "cli/HeldJobs.h"
#include "cli/JobProgress.h"

#include "core/Defaults.h"
#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "core/StringUtils.h"
#include "encode/ExportJobs.h"
#include "encode/LameWrapper.h"
#include "platform/AppPaths.h"
#include "platform/FileNames.h"
#include "tabs/AppControllers.h"

#include <QFileInfo>

#include <chrono>
#include <cstdio>

namespace {

const QStringList kTypes {"MP3", "MP2", "AAC", "M4A", "M4B", "M4R", "OGG", "WMA", "WAV", "AIFF", "COPY"};

int usageError(const QString& message)
{
    std::fprintf(stderr, "velmora-cli export: %s\n", qPrintable(message));
    return 2;
}

int runExport(const QStringList& arguments)
{
    QString type;
    QStringList paths;
    std::optional<int> bitrateIndex;
    std::optional<QString> resample;
    std::optional<bool> vbr;
    std::optional<bool> mono;
    bool replace = false;
    for (int i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        auto value = [&]() -> std::optional<QString> {
            if (i + 1 >= arguments.size())
                return std::nullopt;
            return arguments.at(++i);
        };
        if (argument == QLatin1String("--to")) {
            const auto given = value();
            if (!given)
                return usageError(QStringLiteral("--to needs a type"));
            type = given->toUpper();
        } else if (argument == QLatin1String("--bitrate-index")) {
            const auto given = value();
            bool ok = false;
            const int index = given ? given->toInt(&ok) : 0;
            if (!ok)
                return usageError(QStringLiteral("--bitrate-index needs a number"));
            bitrateIndex = index;
        } else if (argument == QLatin1String("--resample")) {
            const auto given = value();
            if (!given || (*given != QLatin1String("44100") && *given != QLatin1String("48000")))
                return usageError(QStringLiteral("--resample takes 44100 or 48000"));
            resample = *given;
        } else if (argument == QLatin1String("--vbr") || argument == QLatin1String("--cbr")) {
            vbr = argument == QLatin1String("--vbr");
        } else if (argument == QLatin1String("--mono") || argument == QLatin1String("--stereo")) {
            mono = argument == QLatin1String("--mono");
        } else if (argument == QLatin1String("--replace")) {
            replace = true;
        } else if (argument.startsWith(QLatin1String("--"))) {
            return usageError(QStringLiteral("unknown option %1").arg(argument));
        } else {
            paths << argument;
        }
    }
    if (!kTypes.contains(type))
        return usageError(QStringLiteral("--to takes one of %1").arg(kTypes.join(", ")));
    if (paths.size() != 2)
        return usageError(QStringLiteral("needs a SOURCE and a DESTINATION"));
    const QString source = QFileInfo(paths.at(0)).absoluteFilePath();
    const QString destination = QFileInfo(paths.at(1)).absoluteFilePath();
    if (!QFileInfo(source).isFile()) {
        std::fprintf(stderr, "velmora-cli export: the source %s does not exist\n", qPrintable(source));
        return 1;
    }

    // The stored settings, each flag given overriding one for this run only: kept
    // in memory, never written to the user's defaults.
    Defaults& defaults = Defaults::standard();
    if (bitrateIndex)
        defaults.setInteger(QStringLiteral("mTSPBitrateStored"), *bitrateIndex);
    if (vbr)
        defaults.setInteger(QStringLiteral("mTSPVBRStored"), *vbr ? 1 : 0);
    if (mono)
        defaults.setInteger(QStringLiteral("mTSPMonoStored"), *mono ? 1 : 0);
    if (resample)
        defaults.setInteger(QStringLiteral("mTSPResampleStored"), *resample == QLatin1String("48000") ? 1 : 0);

    AppControllers controllers;
    if (type == QLatin1String("MP3") && !cliLameReady("export", controllers.lame()))
        return 1;

    // The destination is ours once reserved; a file already there is replaced
    // (in one step, when the new one is whole) only when asked to.
    createDirectoriesAtPath(QFileInfo(destination).absolutePath());
    if (!replace && !FileNames::reserve(destination) && QFileInfo::exists(destination)) {
        std::fprintf(stderr, "velmora-cli export: %s exists already (--replace replaces it)\n",
                     qPrintable(destination));
        return 1;
    }

    // The Music tab's intermediate WAV, private to this run.
    AppPaths::makePrivateFolder(AppPaths::cacheDir());
    QVariantMap request{
        {QStringLiteral("sourcepath"), source},
        {QStringLiteral("destinationpath"), destination},
        {QStringLiteral("wavpath"),
         AppPaths::uniqueIntermediate(AppPaths::cacheDir(), QStringLiteral("musiccache"), QStringLiteral("WAV"))}};
    // Copies are the one member told about replacing; the encoders' settings
    // would change with the flash options.
    if (type == QLatin1String("COPY") && replace)
        request.insert(QStringLiteral("flashpanelsettings"), QVariantMap{{QStringLiteral("replace"), true}});
    HeldJobs held;
    JobProgress progress;
    // Ctrl-C cancels the job, which stops its tool and leaves nothing behind.
    {
        // The job exists once the request is taken; until then there is nothing to cancel.
        const InterruptWatch watch([&] {
            const auto job = exportJobFor(destination);
            if (job)
                job->cancel();
            return job != nullptr;
        });
        const QString key = type == QLatin1String("AIFF") ? QStringLiteral("AIF") : type;
        NotificationCenter::defaultCenter().post(exportNotificationName(key), request);
        controllers.exportJobs().waitForBackgroundWork();
    }
    FileNames::release(destination);  // when no job took the request

    const std::shared_ptr<Job> job = exportJobFor(destination);
    if (job)
        job->wait();
    const JobResult result =
        job ? job->result() : JobResult::failed(QStringLiteral("no %1 export job answered").arg(type));
    if (result.ok() && result.files.contains(destination)) {
        std::printf("%s\n", qPrintable(destination));
        return 0;
    }
    if (result.outcome == JobResult::Outcome::Cancelled) {
        std::fprintf(stderr, "velmora-cli export: cancelled; no %s file was made\n", qPrintable(type));
        return 130;
    }
    std::fprintf(stderr, "velmora-cli export: no %s file was made: %s\n", qPrintable(type), qPrintable(result.error));
    return 1;
}

CliRegistration reg({"export",
                     "--to TYPE [--bitrate-index N] [--vbr|--cbr] [--mono|--stereo] [--resample 44100|48000] "
                     "[--replace] SOURCE DESTINATION",
                     "Convert SOURCE into DESTINATION with the export job of TYPE (MP3, MP2, AAC, M4A, M4B, M4R, "
                     "OGG, WMA, WAV, AIFF, COPY); prints DESTINATION once it is written whole, or says which step "
                     "failed and exits 1. The stored export settings apply unless an option overrides one. An "
                     "existing DESTINATION is replaced only with --replace.",
                     runExport});

} // namespace

// velmora-cli convert: the Music tab's save path without the window.
#include "cli/CliCommand.h"

#include "tabs/MusicSourcesWrapper.h"
#include "core/StringUtils.h"
#include "encode/ExportJobs.h"
#include "encode/LameWrapper.h"

#include <QDir>
#include <QFileInfo>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <mutex>
#include <thread>

namespace {

std::atomic<bool> interrupted{false};

void onInterrupt(int)
{
    interrupted = true;
}

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
    out = QFileInfo(out).absoluteFilePath();
    if (!createDirectoriesAtPath(out) && !QFileInfo(out).isDir()) {
        std::fprintf(stderr, "velmora-cli: cannot create the folder %s\n", qPrintable(out));
        return 1;
    }

    ExportJobs jobs;
    LameWrapper lame;
    if (type == QLatin1String("MP3")) {
        lame.lookForLame();
        if (!lame.lameFound()) {
            std::fprintf(stderr, "velmora-cli convert: MP3 export is disabled: %s (%s)\n",
                         qPrintable(lame.versionText()), qPrintable(lame.pathText()));
            return 1;
        }
    }
    MusicSourcesWrapper music;
    music.setSaveInBackground(true);

    std::mutex outputMutex;
    QList<QPair<QString, QString>> dispatched;
    QStringList failures;
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

    MusicSourcesWrapper::Selection selection;
    for (const QString& path : paths) {
        const QFileInfo info(path);
        if (!info.exists()) {
            failures << QStringLiteral("%1: no such file or folder").arg(path);
            std::fprintf(stderr, "velmora-cli: %s: no such file or folder\n", qPrintable(path));
            continue;
        }
        selection << MusicSourcesWrapper::Source::library(info.absoluteFilePath());
    }

    // Ctrl-C cancels like the progress sheet's Cancel button.
    interrupted = false;
    auto previous = std::signal(SIGINT, onInterrupt);
    std::atomic<bool> finished{false};
    std::thread watcher([&] {
        while (!finished) {
            if (interrupted) {
                music.terminateSave();
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });

    QVariantMap request{{"type", type}, {"destinationfolder", out}};
    if (replace || flat)
        request.insert("flashpanelsettings", QVariantMap{{"replace", replace}, {"dontput", flat}});
    music.HandleSaveThread(request, selection);
    jobs.waitForBackgroundWork();
    finished = true;
    watcher.join();
    std::signal(SIGINT, previous);

    int written = 0;
    for (const auto& [source, destination] : dispatched) {
        if (QFileInfo(destination).isFile() && QFileInfo(destination).size() > 0) {
            ++written;
            std::printf("%s\n", qPrintable(destination));
        } else if (!music.isCancelled()) {
            const QString reason = jobs.lastFailure(type);
            failures << QStringLiteral("%1: %2").arg(source, reason.isEmpty() ? QStringLiteral("no file resulted")
                                                                               : reason);
        }
    }
    for (const QString& failure : failures)
        std::fprintf(stderr, "failed: %s\n", qPrintable(failure));
    std::fprintf(stderr, "%d written, %lld failed%s\n", written, static_cast<long long>(failures.size()),
                 music.isCancelled() ? ", cancelled" : "");
    if (music.isCancelled())
        return 130;
    return failures.isEmpty() ? 0 : 1;
}

CliRegistration registration({"convert", "--to TYPE --out FOLDER [--replace] [--flat] PATH...",
                              "Convert files and folders as the Music tab does: destination sub-folders, unique "
                              "names, one export per file in background slots; prints each file written. "
                              "--replace overwrites, --flat puts every file directly into FOLDER.",
                              runConvert});

} // namespace

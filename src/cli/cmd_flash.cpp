// velmora-cli flash: the flash players, and copying onto one as the setup sheet does.
#include "cli/CliCommand.h"
#include "cli/HeldJobs.h"
#include "cli/JobProgress.h"

#include "core/Job.h"
#include "disc/FlashWriter.h"
#include "encode/ExportJobs.h"
#include "playlists/FlashCopy.h"
#include "playlists/PlaylistFiles.h"
#include "tabs/AppControllers.h"
#include "tabs/MusicSourcesWrapper.h"

#include <QFileInfo>

#include <cstdio>
#include <mutex>

namespace {

constexpr char kUsage[] = "list | copy --volume PATH [--erase] [--replace] [--no-folders] [--to-mp3] "
                          "[--reencode QUALITY] [--mono] FILE|FOLDER|PLAYLIST.cd3 ...";

int usage()
{
    std::fprintf(stderr, "Usage: velmora-cli flash %s\nQUALITY: 0, 25, 50, 75 or 100\n", kUsage);
    return 2;
}

int list()
{
    AppControllers controllers;
    const FlashWriter& flash = controllers.flashWriter();
    if (flash.mountedVolumes().isEmpty()) {
        std::fprintf(stderr, "%s\n", FlashWriter::kWaitingStatus);
        return 0;
    }
    for (const QString& volume : flash.mountedVolumes()) {
        const VolumeSpace space = VolumeMonitor::space(volume);
        std::printf("%s\tfree %lld MB\ttotal %lld MB\n", qPrintable(volume),
                    static_cast<long long>(space.freeBytes / 1048576), static_cast<long long>(space.totalBytes / 1048576));
    }
    return 0;
}

// Files and folders go the Music tab's way (a save request of type COPY or MP3);
// playlists the playlist store's way (one file at a time through the writer).
int copy(const QStringList& arguments)
{
    QString volume;
    QVariantMap settings;
    for (const QString& key : FlashWriter::settingKeys())
        settings.insert(key, 0);
    QStringList paths;
    for (int i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        if (argument == QLatin1String("--volume") && i + 1 < arguments.size()) {
            volume = QFileInfo(arguments.at(++i)).absoluteFilePath();
        } else if (argument == QLatin1String("--erase")) {
            settings.insert("erase", 1);
        } else if (argument == QLatin1String("--replace")) {
            settings.insert("replace", 1);
        } else if (argument == QLatin1String("--no-folders")) {
            settings.insert("dontput", 1);
        } else if (argument == QLatin1String("--to-mp3")) {
            settings.insert("converttomp3", 1);
        } else if (argument == QLatin1String("--mono")) {
            settings.insert("mono", 1);
        } else if (argument == QLatin1String("--reencode") && i + 1 < arguments.size()) {
            bool ok = false;
            const int quality = arguments.at(++i).toInt(&ok);
            if (!ok || !QList<int>{0, 25, 50, 75, 100}.contains(quality))
                return usage();
            settings.insert("whenpossible", 1);
            settings.insert("quality", quality);
        } else if (argument.startsWith(QLatin1String("--"))) {
            return usage();
        } else {
            paths << argument;
        }
    }
    if (volume.isEmpty() || paths.isEmpty())
        return usage();

    AppControllers controllers;
    FlashWriter& flash = controllers.flashWriter();
    if (!flash.mountedVolumes().contains(volume)) {
        std::fprintf(stderr, "velmora-cli flash: %s is not a mounted flash player (see velmora-cli flash list)\n",
                     qPrintable(volume));
        return 1;
    }
    flash.selectVolume(int(flash.mountedVolumes().indexOf(volume)));
    flash.setSettings(settings);
    HeldJobs held;
    JobProgress progress;
    QStringList failures;
    std::mutex outputMutex;

    MusicSourcesWrapper::Selection selection;
    QStringList playlists;
    for (const QString& path : paths) {
        const QFileInfo info(path);
        if (!info.exists()) {
            failures << QStringLiteral("%1: no such file or folder").arg(path);
            continue;
        }
        if (info.isFile() && info.suffix().toLower() == QLatin1String("cd3"))
            playlists << info.absoluteFilePath();
        else
            selection << MusicSourcesWrapper::Source::library(info.absoluteFilePath());
    }
    for (const QString& failure : failures)
        std::fprintf(stderr, "velmora-cli flash: %s\n", qPrintable(failure));

    if (settings.value("erase").toInt() == 1) {
        if (!flash.formatThisDisk(&volume)) {
            std::fprintf(stderr, "velmora-cli flash: %s was not erased\n", qPrintable(volume));
            return 1;
        }
    }

    int written = 0;
    if (!selection.isEmpty()) {
        MusicSourcesWrapper& music = controllers.musicSources();
        QList<QPair<QString, QString>> dispatched;
        music.setDispatchHandler([&](const QString& source, const QString& destination) {
            std::lock_guard lock(outputMutex);
            dispatched << qMakePair(source, destination);
        });
        music.setFailureHandler([&](const QString& path, const QString& reason) {
            std::lock_guard lock(outputMutex);
            failures << QStringLiteral("%1: %2").arg(path, reason);
        });
        QStringList renamed;
        QObject::connect(&music, &MusicSourcesWrapper::batchFinished, &music,
                         [&](const MusicSourcesWrapper::BatchSummary& summary) {
                             std::lock_guard lock(outputMutex);
                             renamed = summary.renamed;
                         }, Qt::DirectConnection);
        std::atomic<bool> cancel{false};
        const QVariantMap gathered = music.getSelectedFileNames(selection, &cancel);
        QVariantMap copySettings = settings;
        copySettings.insert("erase", 0);  // done above
        music.vlCopyToFlashV20Notification(FlashWriter::copyRequest(gathered, volume, copySettings));
        controllers.exportJobs().waitForBackgroundWork();
        for (const auto& [source, destination] : dispatched) {
            const std::shared_ptr<Job> job = exportJobFor(destination);
            if (job)
                job->wait();
            const JobResult result = job ? job->result() : JobResult::failed(QStringLiteral("no export job answered"));
            if (result.ok() && result.files.contains(destination)) {
                ++written;
                std::printf("%s\n", qPrintable(destination));
            } else if (!result.ok()) {
                failures << QStringLiteral("%1: %2").arg(source, result.error);
            }
        }
        for (const QString& line : renamed)
            std::fprintf(stderr, "%s\n", qPrintable(line));
    }

    for (const QString& playlist : playlists) {
        PlaylistFlashCopier copier(&flash);
        copier.onMessage = [&](const QString& message) { std::fprintf(stderr, "%s\n", qPrintable(message)); };
        QString error;
        const auto group = PlaylistFiles::readGroup(playlist, &error);
        if (!group) {
            failures << QStringLiteral("%1: %2").arg(playlist, error.isEmpty() ? QStringLiteral("cannot be read") : error);
            continue;
        }
        copier.runAsJob(QStringLiteral("Copying %1 to the flash player").arg(PlaylistFiles::displayName(playlist)),
                        [&] { copier.copyPlaylistDict(*group, volume, QString()); });
        written += copier.copiedCount();
        if (copier.failedCount() > 0)
            failures << QStringLiteral("%1: files not copied: %2").arg(playlist).arg(copier.failedCount());
        if (copier.isStopped())
            break;
    }

    for (const QString& failure : failures)
        std::fprintf(stderr, "failed: %s\n", qPrintable(failure));
    std::fprintf(stderr, "%d copied, %lld failed\n", written, static_cast<long long>(failures.size()));
    return failures.isEmpty() ? 0 : 1;
}

int runFlash(const QStringList& arguments)
{
    if (arguments.value(0) == QLatin1String("list") && arguments.size() == 1)
        return list();
    if (arguments.value(0) == QLatin1String("copy"))
        return copy(arguments.mid(1));
    return usage();
}

CliRegistration registration({"flash", kUsage,
                              "List the flash players (removable FAT volumes) with their free and total space, or "
                              "copy onto one as the copy-to-flash sheet does: files and folders as the Music tab "
                              "copies them (sub-folders kept unless --no-folders; --to-mp3 converts, with "
                              "--reencode's quality and --mono), playlists (.cd3) group by group as the playlist "
                              "store does (--reencode makes MP3 files smaller). Names FAT cannot hold are cleaned "
                              "and reported; a copy that does not fit stops before the player is full. --erase "
                              "erases the player first, keeping its name. Exits 0 only when every file was copied "
                              "whole.",
                              runFlash});

} // namespace

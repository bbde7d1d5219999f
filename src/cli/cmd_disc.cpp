#include "cli/CliCommand.h"
#include "cli/DiscOptions.h"
#include "cli/JobProgress.h"

#include "disc/CdDrives.h"
#include "disc/DiscID.h"
#include "disc/FreeDBWrapper.h"
#include "disc/MountedCDWrapper.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

namespace {

constexpr char kUsage[] = "[--json] [--no-cddb] [--server HOST[:PORT][/CGI]] [IMAGE.cue|DEVICE ...]";

int usage()
{
    std::fprintf(stderr, "Usage: velmora-cli disc %s\n", kUsage);
    return 2;
}

QJsonObject discJson(const mounted_cd_wrapper& watcher, const QVariantMap& description)
{
    const QString cdpath = description.value("cdpath").toString();
    QJsonObject disc;
    for (const char* key : {"cdpath", "discid", "freedbtitle", "mFreeDBAlbumList", "mFreeDBTrackList"}) {
        if (description.contains(key))
            disc.insert(key, QJsonValue::fromVariant(description.value(key)));
    }
    disc.insert("source", watcher.sourceOf(cdpath));
    QJsonArray tracks;
    const std::optional<DiscTable> table = watcher.table(cdpath);
    for (const DiscTrack& track : table->tracks) {
        tracks.append(QJsonObject{{"number", track.number},
                                  {"firstsector", track.firstSector},
                                  {"length", track.length},
                                  {"audio", track.audio}});
    }
    disc.insert("tracks", tracks);
    if (const FreeDBWrapper* wrapper = watcher.freeDBWrapper(cdpath))
        disc.insert("freedbstatus", wrapper->statusField());
    return disc;
}

QString discText(const mounted_cd_wrapper& watcher, const QVariantMap& description)
{
    const QString cdpath = description.value("cdpath").toString();
    QString text = QStringLiteral("cdpath: %1\nsource: %2\ndiscid: %3\ntracks:\n")
                       .arg(cdpath, watcher.sourceOf(cdpath), description.value("discid").toString());
    const std::optional<DiscTable> table = watcher.table(cdpath);
    for (const DiscTrack& track : table->tracks) {
        text += QString::asprintf("  %02d  %s  first sector %lld  length %lld\n", track.number,
                                  track.audio ? "audio" : "data ", qint64(track.firstSector), qint64(track.length));
    }
    const FreeDBWrapper* wrapper = watcher.freeDBWrapper(cdpath);
    if (!wrapper)
        return text;
    text += QStringLiteral("freedbtitle: %1\n").arg(description.value("freedbtitle").toString());
    const QVariantList albums = description.value("mFreeDBAlbumList").toList();
    if (!albums.isEmpty()) {
        text += QStringLiteral("albums:\n");
        for (const QVariant& album : albums) {
            const QVariantMap match = album.toMap();
            text += QStringLiteral("  %1 %2 %3\n")
                        .arg(match.value("genre").toString(), match.value("discid").toString(),
                             match.value("title").toString());
        }
    }
    const QVariantList info = description.value("mFreeDBTrackList").toList();
    if (!info.isEmpty()) {
        text += QStringLiteral("cd info:\n");
        for (const QVariant& entry : info) {
            const QVariantMap track = entry.toMap();
            text += QStringLiteral("  %1  %2\t%3\t%4\t%5\t%6\n")
                        .arg(track.value("track").toString(), track.value("title").toString(),
                             track.value("artist").toString(), track.value("album").toString(),
                             track.value("year").toString(), track.value("genre").toString());
        }
    }
    if (!wrapper->statusField().isEmpty())
        text += QStringLiteral("freedb: %1\n").arg(wrapper->statusField());
    return text;
}

int runDisc(const QStringList& arguments)
{
    bool json = false;
    CdWatcherOptions options;
    QStringList sources;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        if (argument == QLatin1String("--json")) {
            json = true;
        } else if (argument == QLatin1String("--no-cddb")) {
            options.lookUp = false;
        } else if (argument == QLatin1String("--server") && i + 1 < arguments.size()) {
            options.freedb.server = serverRecord(arguments.at(++i));
            if (!options.freedb.server) {
                std::fprintf(stderr, "velmora-cli: \"%s\" is not HOST[:PORT][/CGI]\n", qPrintable(arguments.at(i)));
                return 2;
            }
        } else if (argument.startsWith(QLatin1String("--"))) {
            return usage();
        } else {
            sources << argument;
        }
    }

    JobProgress progress;
    mounted_cd_wrapper watcher(std::make_unique<SystemCdDrives>(), options);
    bool failed = false;
    int opening = 0;
    QHash<QString, QString> cdpathOf;  // by source, to print the discs in the order they were given
    QObject::connect(&watcher, &mounted_cd_wrapper::opened, [&](const QString& source, const QString& cdpath) {
        cdpathOf.insert(source, cdpath);
        --opening;
    });
    QObject::connect(&watcher, &mounted_cd_wrapper::openFailed, [&] {
        // The job's failure is printed with the progress of the jobs.
        --opening;
        failed = true;
    });
    if (sources.isEmpty()) {
        bool scanned = false;
        QObject::connect(&watcher, &mounted_cd_wrapper::drivesScanned, [&] { scanned = true; });
        watcher.findMountedAudioCDs();
        waitUntil([&] { return scanned; });
    }
    for (const QString& source : sources) {
        if (source.startsWith(QLatin1String("/dev/"))) {
            if (!isCDDevice(source, [&](const QString& device) { return watcher.drives().isDrive(device); })) {
                std::fprintf(stderr, "velmora-cli: %s is not a CD drive\n", qPrintable(source));
                failed = true;
                continue;
            }
            ++opening;
            watcher.openDrive(source);
        } else {
            ++opening;
            watcher.openImage(QFileInfo(source).absoluteFilePath());
        }
    }
    waitUntil([&] { return opening <= 0; });
    // The lookups (a query and the read it leads to) end before the answer is printed.
    waitUntil([&] {
        for (const QVariant& description : watcher.descriptions()) {
            const FreeDBWrapper* wrapper = watcher.freeDBWrapper(description.toMap().value("cdpath").toString());
            if (wrapper && wrapper->isBusy())
                return false;
        }
        return true;
    });

    QVariantList descriptions = watcher.descriptions();
    if (!sources.isEmpty()) {
        descriptions.clear();
        for (const QString& source : sources) {
            const QString key =
                source.startsWith(QLatin1String("/dev/")) ? source : QFileInfo(source).absoluteFilePath();
            if (cdpathOf.contains(key))
                descriptions << watcher.description(cdpathOf.value(key));
        }
    }
    if (descriptions.isEmpty() && sources.isEmpty()) {
        std::fprintf(stderr, "velmora-cli: there is no audio CD in the drives\n");
        return 1;
    }
    if (json) {
        QJsonArray discs;
        for (const QVariant& description : descriptions)
            discs.append(discJson(watcher, description.toMap()));
        std::fputs(QJsonDocument(discs).toJson().constData(), stdout);
    } else {
        QStringList texts;
        for (const QVariant& description : descriptions)
            texts << discText(watcher, description.toMap());
        std::fputs(texts.join('\n').toUtf8().constData(), stdout);
    }
    return failed ? 1 : 0;
}

CliRegistration reg({"disc", kUsage,
                     "The audio CDs in the drives, or the given cue sheets (with their BIN files) and drives, as the "
                     "audio-CD watcher sees them: the disc folder (\"cdpath\", there while the command runs), the CDDB "
                     "query string (\"discid\"), the tracks, and, unless --no-cddb, the album matches and the CD info "
                     "of the FreeDB read, from the server of the preferences or --server. --json prints one object "
                     "per disc with those keys.",
                     runDisc});

}  // namespace

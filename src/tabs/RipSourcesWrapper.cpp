#include "tabs/RipSourcesWrapper.h"

#include "core/Defaults.h"
#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "core/StringUtils.h"
#include "disc/DiscFolder.h"
#include "disc/FreeDBAnswers.h"
#include "disc/FreeDBWrapper.h"
#include "disc/MountedCDWrapper.h"
#include "encode/ExportJobs.h"
#include "encode/RipChecksums.h"
#include "platform/AppPaths.h"
#include "platform/FileNames.h"
#include "platform/SafeFile.h"
#include "tabs/MusicSourcesWrapper.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>

#include <future>

namespace {

const QString kRippingOperation = QStringLiteral("Ripping Files");
const QString kRippingStatus = QStringLiteral("This can take a bit of time, but not too much.  Please wait.");

// "Track 03 (Title)", how messages and the log name a track.
QString trackLabel(const RipSourcesWrapper::Track& track)
{
    const RipNaming::TrackNames names = track.names();
    return QStringLiteral("Track %1 (%2)").arg(names.track, 2, 10, QLatin1Char('0')).arg(names.title);
}

// The tags written into the files: what the disc information holds.
QVariantMap ripTags(const RipSourcesWrapper::Track& track)
{
    QVariantMap tags;
    for (const char* key : {"title", "artist", "album", "genre", "year"}) {
        const QString value = track.info.value(QLatin1String(key)).toString();
        if (!value.isEmpty())
            tags.insert(QLatin1String(key), value);
    }
    tags.insert(QStringLiteral("track"), QStringLiteral("%1").arg(track.names().track, 2, 10, QLatin1Char('0')));
    return tags;
}

// The extension the export job gives the clip it makes beside a file of this format.
QString clipExtension(const QString& format)
{
    static const QHash<QString, QString> extensions = {{"MP3", "mp3"}, {"MP2", "mp2"}, {"OGG", "ogg"}, {"WMA", "wma"},
                                                       {"AAC", "aac"}, {"M4A", "AAC"}, {"M4B", "AAC"}};
    return extensions.value(format);
}

QString hex(quint32 value)
{
    return QStringLiteral("%1").arg(value, 8, 16, QLatin1Char('0')).toUpper();
}

QString duration(qint64 sectors)
{
    return QString::asprintf("%lld:%02lld.%02lld", sectors / 75 / 60, sectors / 75 % 60, sectors % 75);
}

}  // namespace

// One rip on its thread: what it handed over and must see to the end.
struct RipSourcesWrapper::Run {
    struct Output {
        QString label;  // "Track 03 (Title), MP3"
        QString path;
        bool madeHere = false;  // written by the WAV stage on the rip's own thread
        QString error;          // why that failed
    };
    struct Entry {
        Track track;
        QString folder;                                                   // where its files go
        std::shared_future<std::optional<RipChecksums::TrackSums>> sums;  // summed beside the next read
        QString report;
        QStringList files;
        QString failure;
    };
    ExportJobWatch watch;  // the export jobs posted from the rip's thread
    QList<Output> outputs;
    QList<Entry> entries;
    QStringList intermediates;  // removed when every export has ended
    QStringList reserved;       // names given back at the end (a no-op for files made)
    QStringList made;
    QStringList failures;
};

RipSourcesWrapper::RipSourcesWrapper(mounted_cd_wrapper& watcher, QObject* parent)
    : QObject(parent), watcher_(watcher), settings_(RipSettings::stored())
{
    NotificationCenter& center = NotificationCenter::defaultCenter();
    // Mounts, unmounts and FreeDB answers all come from the watcher, on its thread.
    center.addObserver(this, VLMountedCDWrapperNotification, [this](const Notification&) { rebuild(); });
    center.addObserver(this, VLEjectableMediaPlayingNotification, [this](const Notification& note) {
        std::lock_guard lock(mutex_);
        playingDisc_ = note.object.toMap().value(QStringLiteral("mThisCDIsPlaying")).toString();
    });
    rebuild();
}

RipSourcesWrapper::~RipSourcesWrapper()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    terminateSave();
    waitForSaveThread();
}

const QStringList& RipSourcesWrapper::actionNames()
{
    static const QStringList names = RipSettings::formatNames() + QStringList{"MP3 and M4A", "MULTI-RIP"};
    return names;
}

// --- Discs and tracks --------------------------------------------------------

QVariantList RipSourcesWrapper::discs() const
{
    return watcher_.descriptions();
}

void RipSourcesWrapper::selectDisc(const QString& cdpath)
{
    currentDisc_ = cdpath;
    currentTrack_ = 0;
    rebuild();
}

void RipSourcesWrapper::rebuild()
{
    const QVariantList discs = watcher_.descriptions();
    bool known = false;
    for (const QVariant& disc : discs)
        known = known || disc.toMap().value(QStringLiteral("cdpath")).toString() == currentDisc_;
    const QString previous = currentDisc_;
    if (!known)
        currentDisc_ = discs.isEmpty() ? QString() : discs.first().toMap().value(QStringLiteral("cdpath")).toString();

    QHash<int, bool> ticks;
    if (currentDisc_ == previous) {
        for (const Track& track : std::as_const(tracks_))
            ticks.insert(track.number, track.selected);
    }
    // The i-th track info of the CD info names the i-th track file, in the disc's
    // order. Entries seldom carry the artist and album where the client finds
    // them; the chosen match's title ("Artist / Album") fills them in.
    const QVariantMap description = watcher_.description(currentDisc_);
    const QVariantList infos = description.value(QStringLiteral("mFreeDBTrackList")).toList();
    const QVariantList albums = description.value(QStringLiteral("mFreeDBAlbumList")).toList();
    const QStringList match =
        FreeDBAnswers::artistAndAlbum(albums.value(chosenAlbums_.value(currentDisc_, int(albums.size()) - 1))
                                          .toMap()
                                          .value("title")
                                          .toString()
                                          .trimmed());
    QList<Track> tracks;
    const QDir folder(currentDisc_);
    const QStringList files =
        currentDisc_.isEmpty() ? QStringList() : folder.entryList({QStringLiteral("*.cdda")}, QDir::Files, QDir::Name);
    for (const QString& name : files) {
        const auto file = DiscFolder::readTrackFile(folder.filePath(name));
        if (!file)
            continue;
        Track track;
        track.number = file->track;
        track.file = folder.filePath(name);
        track.sectors = file->length;
        track.info = infos.value(tracks.size()).toMap();
        for (const auto& [key, value] : {std::pair{"artist", match.value(0)}, std::pair{"album", match.value(1)}}) {
            if (!track.info.isEmpty() && track.info.value(QLatin1String(key)).toString().isEmpty() && !value.isEmpty())
                track.info.insert(QLatin1String(key), value);
        }
        track.selected = ticks.value(track.number, true);
        tracks << track;
    }
    tracks_ = tracks;
    if (currentTrack_ >= tracks_.size())
        currentTrack_ = 0;
    emit discsChanged();
    emit tracksChanged();
}

void RipSourcesWrapper::setTrackSelected(int row, bool selected)
{
    if (row < 0 || row >= tracks_.size())
        return;
    tracks_[row].selected = selected;
    emit tracksChanged();
}

void RipSourcesWrapper::selectAllTracks(bool selected)
{
    for (Track& track : tracks_)
        track.selected = selected;
    emit tracksChanged();
}

void RipSourcesWrapper::setCurrentTrack(int row)
{
    currentTrack_ = row;
    emit settingsChanged();
}

QStringList RipSourcesWrapper::albumMenu() const
{
    QStringList titles;
    for (const QVariant& album : watcher_.description(currentDisc_).value(QStringLiteral("mFreeDBAlbumList")).toList())
        titles << album.toMap().value(QStringLiteral("title")).toString();
    return titles;
}

int RipSourcesWrapper::selectedAlbum() const
{
    // The client reads the last match unless another is chosen.
    return chosenAlbums_.value(currentDisc_, int(albumMenu().size()) - 1);
}

void RipSourcesWrapper::selectAlbum(int index)
{
    FreeDBWrapper* freedb = watcher_.freeDBWrapper(currentDisc_);
    if (!freedb || index < 0 || index >= albumMenu().size())
        return;
    chosenAlbums_.insert(currentDisc_, index);
    freedb->selectAlbum(index);
}

void RipSourcesWrapper::ejectSelectedCD()
{
    const QString disc = currentDisc_;
    if (disc.isEmpty())
        return;
    bool ripping = false;
    {
        std::lock_guard lock(mutex_);
        ripping = saving_ && savingDisc_ == disc;
    }
    if (ripping) {
        terminateSave();
        waitForSaveThread();
    }
    watcher_.eject(disc);
}

QString RipSourcesWrapper::playingDisc() const
{
    std::lock_guard lock(mutex_);
    return playingDisc_;
}

// --- Settings ----------------------------------------------------------------

void RipSourcesWrapper::setRipInBackground(bool on)
{
    settings_.inBackground = on;
    settings_.store();
}

void RipSourcesWrapper::setWriteLog(bool on)
{
    settings_.writeLog = on;
    settings_.store();
}

void RipSourcesWrapper::setClipValue(const QString& key, const QVariant& value)
{
    settings_.clip.insert(key, value);
    settings_.store();
}

void RipSourcesWrapper::chooseCacheFolderDidEnd(bool confirmed, const QString& folder)
{
    if (!confirmed)
        return;
    settings_.cacheFolder = folder;
    settings_.store();
    emit settingsChanged();
}

QString RipSourcesWrapper::cacheFolder() const
{
    return settings_.cacheFolder.isEmpty() ? AppPaths::cacheDir() : settings_.cacheFolder;
}

void RipSourcesWrapper::ripSettingsShow(const QString& format)
{
    shownFormat_ = format;
    shown_ = settings_.forFormat(format);
    emit settingsChanged();
}

void RipSourcesWrapper::setShownValue(const QString& key, const QVariant& value)
{
    shown_.insert(key, value);
    emit settingsChanged();
}

void RipSourcesWrapper::setRipBitrate(int index)
{
    setShownValue(QStringLiteral("bitrate"), index);
}

void RipSourcesWrapper::setCustomFormat(const QString& format)
{
    setShownValue(QStringLiteral("mRipSettingsFormatStringStored"), format);
}

void RipSourcesWrapper::addCharChange(const QString& replace, const QString& with)
{
    QVariantList changes = shown_.value(QStringLiteral("charchange")).toList();
    changes << QVariantMap{{"replace", replace}, {"with", with}};
    setShownValue(QStringLiteral("charchange"), changes);
}

void RipSourcesWrapper::deleteCharChange(int index)
{
    QVariantList changes = shown_.value(QStringLiteral("charchange")).toList();
    if (index < 0 || index >= changes.size())
        return;
    changes.removeAt(index);
    setShownValue(QStringLiteral("charchange"), changes);
}

void RipSourcesWrapper::ripSettingsSave()
{
    if (shownFormat_.isEmpty())
        return;
    settings_.setForFormat(shownFormat_, shown_);
    settings_.store();
    ripSettingsCancel();
}

void RipSourcesWrapper::ripSettingsCancel()
{
    shownFormat_.clear();
    shown_.clear();
    emit settingsChanged();
}

void RipSourcesWrapper::ripSettingsDefault()
{
    shown_ = RipSettings::defaultFormatSettings();
    emit settingsChanged();
}

void RipSourcesWrapper::multiRipSettingsShow()
{
    shownMultiRip_ = settings_.multiRip;
    emit settingsChanged();
}

void RipSourcesWrapper::setMultiRipFormat(const QString& format, bool on)
{
    QStringList chosen;
    for (const QString& name : RipSettings::formatNames()) {
        if (name == format ? on : shownMultiRip_.contains(name))
            chosen << name;
    }
    shownMultiRip_ = chosen;
    emit settingsChanged();
}

void RipSourcesWrapper::multiRipSettingsSave()
{
    settings_.multiRip = shownMultiRip_;
    settings_.store();
    multiRipSettingsCancel();
}

void RipSourcesWrapper::multiRipSettingsCancel()
{
    shownMultiRip_.clear();
    emit settingsChanged();
}

void RipSourcesWrapper::multiRipSettingsDefault()
{
    shownMultiRip_ = RipSettings::defaultMultiRip();
    emit settingsChanged();
}

QString RipSourcesWrapper::previewPath(const QString& format) const
{
    if (currentTrack_ < 0 || currentTrack_ >= tracks_.size() || !RipSettings::formatNames().contains(format))
        return {};
    const Track& track = tracks_[currentTrack_];
    const QVariantMap settings =
        RipSettings::keyFor(format) == RipSettings::keyFor(shownFormat_) && !shownFormat_.isEmpty()
            ? shown_
            : settings_.forFormat(format);
    const RipNaming::TrackNames names = track.names();
    const QString type = format.toLower();
    const QString named =
        RipNaming::namedFile(names, settings.value(QStringLiteral("mRipFilenameFormatStored")).toInt(),
                             settings.value(QStringLiteral("mRipSettingsFormatStringStored")).toString(), type);
    return RipNaming::uniqueFilename(
        {named, startingFolderFor(format), RipNaming::subPath(names, settings), type, track.file, settings, false},
        UniqueNames::Mode::Preview);
}

// --- Ripping -----------------------------------------------------------------

void RipSourcesWrapper::convertTo(const QString& type, bool allTracks)
{
    if (allTracks)
        selectAllTracks(true);
    emit chooseFolderRequested(type);
}

QString RipSourcesWrapper::startingFolderFor(const QString& type)
{
    return MusicSourcesWrapper::startingFolderFor(type);
}

QString RipSourcesWrapper::chooseFolderMessage(const QString& type)
{
    return MusicSourcesWrapper::chooseFolderMessage(type);
}

void RipSourcesWrapper::chooseSaveFolderDidEnd(bool confirmed, const QString& folder, const QString& type)
{
    if (!confirmed)
        return;
    Defaults::standard().setObject(QStringLiteral("default%1Folder").arg(type), folder);
    Defaults::standard().synchronize();
    createDirectoriesAtPath(folder);
    const std::optional<RipRequest> request = ripRequest(type, folder);
    if (!request)
        return;
    waitForSaveThread();
    const std::shared_ptr<Job> job = makeRipJob(*request, settings_);
    {
        std::lock_guard lock(mutex_);
        saveJob_ = job;
        savingDisc_ = request->disc.value(QStringLiteral("cdpath")).toString();
    }
    saving_ = true;
    emit controlsEnabled(false);
    emit progressSheetShown();
    showProgress({{"operation", kRippingOperation}, {"status", kRippingStatus}, {"savefilename", QString()}});
    job->start();
}

std::optional<RipSourcesWrapper::RipRequest> RipSourcesWrapper::ripRequest(const QString& type,
                                                                           const QString& folder) const
{
    RipRequest request;
    request.type = type;
    request.destinationFolder = folder;
    request.disc = watcher_.description(currentDisc_);
    request.discSource = watcher_.sourceOf(currentDisc_);
    for (const Track& track : tracks_) {
        request.firstTrack = request.firstTrack == 0 ? track.number : std::min(request.firstTrack, track.number);
        request.lastTrack = std::max(request.lastTrack, track.number);
        if (track.selected)
            request.tracks << track;
    }
    if (request.tracks.isEmpty())
        return std::nullopt;
    return request;
}

std::shared_ptr<Job> RipSourcesWrapper::makeRipJob(const RipRequest& request, const RipSettings& settings)
{
    const QString title = QStringLiteral("Ripping %1 files").arg(request.type);
    return Job::create(title, [this, request, settings](Job& job) {
        // Cancelling stops this thread's reading (the WAV stage runs under this
        // job) and tells every export job to cancel what it has not begun.
        auto hook = job.onCancel([] {
            NotificationCenter& center = NotificationCenter::defaultCenter();
            for (const char* name :
                 {VLMP3ExportCancelNotification, VLMP2ExportCancelNotification, VLAACExportCancelNotification,
                  VLOGGExportCancelNotification, VLWMAExportCancelNotification})
                center.post(name);
        });
        {
            std::lock_guard lock(mutex_);
            saveJob_ = job.shared_from_this();
            savingDisc_ = request.disc.value(QStringLiteral("cdpath")).toString();
        }
        saving_ = true;
        Run run;
        HandleSaveThread(job, request, settings, run);
        finish(job, request, settings, run);
        saving_ = false;
        emit controlsEnabled(true);
        if (job.isCancelled())
            return JobResult::cancelled(run.made);
        if (!run.failures.isEmpty())
            return JobResult::failed(run.failures.size() == 1
                                         ? run.failures.first()
                                         : QStringLiteral("%1 of the rip's files were not made; the first: %2")
                                               .arg(run.failures.size())
                                               .arg(run.failures.first()),
                                     run.made);
        return JobResult::succeeded(run.made);
    });
}

void RipSourcesWrapper::HandleSaveThread(Job& job, const RipRequest& request, const RipSettings& settings, Run& run)
{
    showProgress({{"operation", kRippingOperation}, {"status", kRippingStatus}, {"savefilename", QString()}}, &job);
    if (request.type == QLatin1String("MULTI-RIP"))
        saveMultiRipFiles(job, request, settings, run);
    else if (request.type == QLatin1String("MP3 and M4A"))
        saveMP3andM4ARipFiles(job, request, settings, run);
    else
        saveFiles(job, request, settings, run);
    emit progressSheetEnded(1);
}

void RipSourcesWrapper::saveFiles(Job& job, const RipRequest& request, const RipSettings& settings, Run& run)
{
    ripTracks(job, request, settings, {request.type}, false, run);
}

void RipSourcesWrapper::saveMP3andM4ARipFiles(Job& job, const RipRequest& request, const RipSettings& settings,
                                              Run& run)
{
    ripTracks(job, request, settings, {QStringLiteral("MP3"), QStringLiteral("M4A")}, true, run);
}

void RipSourcesWrapper::saveMultiRipFiles(Job& job, const RipRequest& request, const RipSettings& settings, Run& run)
{
    if (settings.multiRip.isEmpty()) {
        fail(job, run, QStringLiteral("No format is chosen in the multi-rip settings."));
        return;
    }
    ripTracks(job, request, settings, settings.multiRip, true, run);
}

void RipSourcesWrapper::fail(Job& job, Run& run, const QString& message) const
{
    run.failures << message;
    job.addMessage(message);
    if (failureHandler_)
        failureHandler_(message);
}

void RipSourcesWrapper::ripTracks(Job& job, const RipRequest& request, const RipSettings& settings,
                                  const QStringList& formats, bool sharedWav, Run& run)
{
    // Intermediates are unique to this process and request, in a folder only the
    // user may enter (unless the user chose another).
    const QString cache = settings.cacheFolder.isEmpty() ? AppPaths::cacheDir() : settings.cacheFolder;
    if (settings.cacheFolder.isEmpty() ? !AppPaths::makePrivateFolder(cache) : !createDirectoriesAtPath(cache)) {
        fail(job, run, QStringLiteral("The cache folder %1 cannot be made.").arg(cache));
        return;
    }
    const bool wavOnly = formats == QStringList{QStringLiteral("WAV")};
    const bool background = settings.inBackground;
    const QVariantMap clip = settings.clipSettings();
    NotificationCenter& center = NotificationCenter::defaultCenter();

    for (qsizetype index = 0; index < request.tracks.size(); ++index) {
        if (job.isCancelled())
            break;
        job.setProgress(100.0 * double(index) / double(request.tracks.size()));
        const Track& track = request.tracks[index];
        Run::Entry entry{track, {}, {}, {}, {}, {}};
        const QString label = trackLabel(track);
        const auto skip = [&](const QString& why) {
            entry.failure = why;
            run.entries << entry;
            fail(job, run, QStringLiteral("%1: %2").arg(label, why));
        };
        const auto gone = [&] {
            if (QFileInfo::exists(track.file))
                return false;
            skip(QStringLiteral("Not ripped, the disc is no longer there."));
            return true;
        };
        if (gone())
            continue;

        // Name every file of the track first.
        const RipNaming::TrackNames names = track.names();
        QStringList targets;
        for (const QString& format : formats) {
            const QVariantMap formatSettings = settings.forFormat(format);
            const QString type = format.toLower();
            const QString named = RipNaming::namedFile(
                names, formatSettings.value(QStringLiteral("mRipFilenameFormatStored")).toInt(),
                formatSettings.value(QStringLiteral("mRipSettingsFormatStringStored")).toString(), type);
            targets << RipNaming::uniqueFilename({named, request.destinationFolder,
                                                  RipNaming::subPath(names, formatSettings), type, track.file,
                                                  formatSettings, false});
        }
        run.reserved << targets;
        entry.folder = QFileInfo(targets.first()).path();
        showProgress({{"savefilename", QFileInfo(targets.first()).fileName()}});
        if (gone())
            continue;

        // Read the track once.
        const QString prefix = background ? QStringLiteral("track%1").arg(track.number, 2, 10, QLatin1Char('0'))
                                          : QStringLiteral("musiccache");
        const QString wav =
            wavOnly ? targets.first()
                    : AppPaths::uniqueIntermediate(cache, prefix,
                                                   background ? QStringLiteral("BGRIP.WAV") : QStringLiteral("WAV"));
        if (!wavOnly)
            run.intermediates << wav;
        {
            ExportRequestScope scope(job);
            center.post(VLWAVExportNotification,
                        QVariantMap{{"sourcepath", track.file},
                                    {"destinationpath", wav},
                                    {"riptrack", track.number},
                                    {"rippanelsettings", settings.panelSettings(formats.first())}});
            entry.report = scope.ripReport();
            if (job.isCancelled())
                break;
            if (!scope.failure().isEmpty() || QFileInfo(wav).size() == 0) {
                skip(!QFileInfo::exists(track.file)
                         ? QStringLiteral("Not ripped, the disc went away while it was read.")
                     : scope.failure().isEmpty() ? QStringLiteral("The track could not be read.")
                                                 : scope.failure());
                continue;
            }
        }
        if (settings.writeLog) {
            // Opened now: an encoder that removes the intermediate when it is
            // done cannot take the samples away from the sums.
            auto file = std::make_shared<QFile>(wav);
            if (file->open(QIODevice::ReadOnly)) {
                const bool first = track.number == request.firstTrack, last = track.number == request.lastTrack;
                entry.sums = std::async(std::launch::async, [file, first, last] {
                                 return RipChecksums::forWav(*file, first, last);
                             }).share();
            }
        }

        for (qsizetype f = 0; f < formats.size(); ++f) {
            const QString& format = formats[f];
            const QString& target = targets[f];
            const QString outputLabel = QStringLiteral("%1, %2").arg(label, format);
            if (format == QLatin1String("WAV")) {
                QString error;
                if (!wavOnly) {
                    // The copy of the shared intermediate is made here, as any WAV export is.
                    ExportRequestScope scope(job);
                    center.post(VLWAVExportNotification, QVariantMap{{"sourcepath", wav}, {"destinationpath", target}});
                    error = scope.failure();
                }
                run.outputs << Run::Output{outputLabel, target, true, error};
                continue;
            }
            QVariantMap exportRequest{{"sourcepath", track.file},
                                      {"destinationpath", target},
                                      {"wavpath", wav},
                                      {"riptrack", track.number},
                                      {"riptags", ripTags(track)},
                                      {"rippanelsettings", settings.panelSettings(format)},
                                      {"ripinbackground", background}};
            if (sharedWav)
                exportRequest.insert(QStringLiteral("wavcleanup"), QStringLiteral("MULTI-RIP"));
            if (!clip.isEmpty()) {
                // The clip goes beside the file, under a name of its own.
                const QFileInfo made(target);
                const QString clipType = clipExtension(format);
                const QString stem = made.completeBaseName() + QStringLiteral(".clp");
                const QString clipName = RipNaming::applyCharChanges(
                    stem, settings.forFormat(QStringLiteral("clp")).value(QStringLiteral("charchange")).toList());
                const QString clipPath = UniqueNames::claim(made.path(), FileNames::fitName(clipName, '.' + clipType),
                                                            stem, clipType, false);
                run.reserved << clipPath;
                const QString clipWav = AppPaths::uniqueIntermediate(
                    cache, prefix, background ? QStringLiteral("BGRIP.CLP.WAV") : QStringLiteral("CLP.WAV"));
                run.intermediates << clipWav;
                exportRequest.insert(QStringLiteral("clipsettings"), clip);
                exportRequest.insert(QStringLiteral("clpwavpath"), clipWav);
                exportRequest.insert(QStringLiteral("clpfolderpath"), clipPath);
            }
            run.outputs << Run::Output{outputLabel, target, false, {}};
            center.post(exportNotificationName(format), exportRequest);
        }
        run.entries << entry;
    }
    if (!job.isCancelled())
        job.setProgress(100);
}

void RipSourcesWrapper::finish(Job& job, const RipRequest& request, const RipSettings& settings, Run& run)
{
    job.setStatus(QStringLiteral("Waiting for the encoders"));
    QHash<QString, QString> failureOf;  // by file
    for (const Run::Output& output : std::as_const(run.outputs)) {
        QStringList files;
        QString error;
        if (output.madeHere) {
            if (output.error.isEmpty() && QFileInfo(output.path).size() > 0)
                files << output.path;
            else
                error = output.error.isEmpty() ? QStringLiteral("the WAV file could not be made.") : output.error;
        } else if (const std::shared_ptr<Job> exported = run.watch.jobFor(output.path)) {
            exported->wait();
            const JobResult result = exported->result();
            files = result.files;
            if (!files.contains(output.path))
                error = result.outcome == JobResult::Outcome::Cancelled ? QStringLiteral("Cancelled.") : result.error;
        } else {
            error = QStringLiteral("No export job makes these files.");
        }
        for (const QString& file : std::as_const(files)) {
            run.made << file;
            if (madeHandler_)
                madeHandler_(file);
        }
        if (!error.isEmpty()) {
            failureOf.insert(output.path, error);
            if (!job.isCancelled())
                fail(job, run, QStringLiteral("%1: %2").arg(output.label, error));
        }
    }
    // Every export has ended: nothing needs the intermediates any more.
    for (const QString& file : std::as_const(run.intermediates))
        QFile::remove(file);
    for (const QString& name : std::as_const(run.reserved))
        FileNames::release(name);
    if (!settings.writeLog || run.entries.isEmpty())
        return;

    // The rip log, beside the first track's files.
    const RipNaming::TrackNames first = run.entries.first().track.names();
    QString text = QStringLiteral("Velmora rip log, %1\n\n").arg(QDateTime::currentDateTime().toString(Qt::ISODate));
    text += QStringLiteral("Disc: %1 / %2\n").arg(first.artist, first.album);
    text += QStringLiteral("CDDB query: %1\n").arg(request.disc.value(QStringLiteral("discid")).toString());
    text += QStringLiteral("Read from: %1\n").arg(request.discSource);
    text += QStringLiteral("Ripped to: %1\n").arg(request.type);
    for (const Run::Entry& entry : std::as_const(run.entries)) {
        text += QStringLiteral("\n%1\n").arg(trackLabel(entry.track));
        text +=
            QStringLiteral("    Length: %1 (%2 sectors)\n").arg(duration(entry.track.sectors)).arg(entry.track.sectors);
        if (!entry.failure.isEmpty()) {
            text += QStringLiteral("    Not ripped: %1\n").arg(entry.failure);
            continue;
        }
        for (const Run::Output& output : std::as_const(run.outputs)) {
            if (!output.label.startsWith(trackLabel(entry.track) + ','))
                continue;
            const QString why = failureOf.value(output.path);
            text += why.isEmpty() ? QStringLiteral("    File: %1\n").arg(output.path)
                                  : QStringLiteral("    Not made: %1: %2\n").arg(output.path, why);
        }
        if (const auto sums = entry.sums.valid() ? entry.sums.get() : std::nullopt) {
            text += QStringLiteral("    PCM CRC32: %1\n").arg(hex(sums->crc32));
            text += QStringLiteral("    AccurateRip v1: %1\n").arg(hex(sums->accurateRipV1));
            text += QStringLiteral("    AccurateRip v2: %1\n").arg(hex(sums->accurateRipV2));
        }
        if (!entry.report.isEmpty()) {
            text += QStringLiteral("    Reader's report:\n");
            for (const QString& line : entry.report.split(QLatin1Char('\n'))) {
                if (!line.trimmed().isEmpty())
                    text += QStringLiteral("        %1\n").arg(line.trimmed());
            }
        }
    }
    const QString folder =
        run.entries.first().folder.isEmpty() ? request.destinationFolder : run.entries.first().folder;
    const QString stem = QStringLiteral("%1 - %2").arg(first.artist, first.album);
    const QString log = UniqueNames::claim(folder, FileNames::fitName(stem, QStringLiteral(".log")), stem,
                                           QStringLiteral("log"), false);
    QString error;
    if (SafeFile::writeFile(log, text.toUtf8(), &error)) {
        run.made << log;
        if (madeHandler_)
            madeHandler_(log);
    } else {
        FileNames::release(log);
        fail(job, run, QStringLiteral("The rip log %1 could not be written: %2").arg(log, error));
    }
}

void RipSourcesWrapper::showProgress(const QVariantMap& progress, Job* job) const
{
    if (job && progress.contains(QStringLiteral("operation")))
        job->setProgress(-1, progress.value(QStringLiteral("operation")).toString());
    if (progressHandler_)
        progressHandler_(progress);
}

void RipSourcesWrapper::terminateSave()
{
    std::shared_ptr<Job> job;
    {
        std::lock_guard lock(mutex_);
        job = saveJob_;
    }
    if (job && job->state() != Job::State::Finished)
        job->cancel();
}

void RipSourcesWrapper::waitForSaveThread()
{
    std::shared_ptr<Job> job;
    {
        std::lock_guard lock(mutex_);
        job = saveJob_;
    }
    if (job)
        job->wait();
}

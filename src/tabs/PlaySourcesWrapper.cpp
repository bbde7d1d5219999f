#include "tabs/PlaySourcesWrapper.h"

#include "core/Defaults.h"
#include "core/FileSystemItem.h"
#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "core/Preferences.h"
#include "core/StringUtils.h"
#include "disc/DiscFolder.h"
#include "disc/MountedCDWrapper.h"
#include "encode/ExportArguments.h"
#include "platform/AppPaths.h"
#include "platform/ChildProcess.h"
#include "platform/ResourceLocator.h"
#include "player/MqpWrapper.h"
#include "playlists/PlaylistFiles.h"
#include "tabs/FolderCollector.h"
#include "tabs/MusicSourcesWrapper.h"
#include "tags/TagFacade.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QThread>
#include <QtConcurrent>

#include <cstdlib>

namespace {

constexpr int kTimerMs = 1000;
// A song that cannot play gives way to the next one this soon.
constexpr int kSkipMs = 100;
constexpr qint64 kCdSectorBytes = 2352;
const QString kVolumeKey = QStringLiteral("mPlayVolumeStored");

bool isDiscTrack(const QString& path)
{
    return path.endsWith(QLatin1String(".cdda"), Qt::CaseInsensitive);
}

QString sourceTitle(const QString& path)
{
    const QString name = QFileInfo(QDir::cleanPath(path)).fileName();
    return name.isEmpty() ? path : name;
}

}  // namespace

// What one load gathers: the pieces of a source, in order.
struct PlaySourcesWrapper::LoadRequest {
    struct Piece {
        SourceKind kind = SourceKind::Library;
        QString path;
        QVariantList trackInfo;  // a disc's track records from FreeDB
    };
    QString title;
    QList<Piece> pieces;
    bool play = false;
};

const std::array<const char*, 4>& PlaySourcesWrapper::modeKeys()
{
    static const std::array<const char*, 4> keys = {"mModeRepeatButton", "mModeShuffleButton", "mModeStopButton",
                                                    "mModeNextButton"};
    return keys;
}

PlaySourcesWrapper::Notices PlaySourcesWrapper::playTabNotices()
{
    return {VLPSWFileDropNotification, VLPlayerEjectCDNotification, VLPlayerCleanupBeforeTerminationNotification, true};
}

PlaySourcesWrapper::Notices PlaySourcesWrapper::clipTabNotices()
{
    return {VLCSWFileDropNotification, VLCliperEjectCDNotification, VLCliperCleanupBeforeTerminationNotification,
            false};
}

PlaySourcesWrapper::PlaySourcesWrapper(QObject* parent) : PlaySourcesWrapper(playTabNotices(), parent) {}

PlaySourcesWrapper::PlaySourcesWrapper(const Notices& notices, QObject* parent)
    : QObject(parent), converter_(std::make_unique<MusicSourcesWrapper>())
{
    qRegisterMetaType<PlaySourcesWrapper::State>();
    // The converter only saves; the Music tab's own object answers its notices.
    NotificationCenter::defaultCenter().removeObserver(converter_.get());

    Defaults& defaults = Defaults::standard();
    for (size_t i = 0; i < modes_.size(); ++i)
        modes_[i] = defaults.integerForKey(QString::fromLatin1(modeKeys()[i])) != 0;
    if (defaults.hasKey(kVolumeKey))
        volume_ = int(std::clamp<qint64>(defaults.integerForKey(kVolumeKey), 0, 100));

    timer_.setInterval(kTimerMs);
    connect(&timer_, &QTimer::timeout, this, &PlaySourcesWrapper::HandleTimer);

    // Notices may come from any thread; the tab's state belongs to its own.
    auto onOwnThread = [this](std::function<void()> work) {
        QMetaObject::invokeMethod(this, std::move(work), Qt::AutoConnection);
    };
    NotificationCenter& center = NotificationCenter::defaultCenter();
    if (notices.playsOpenedFiles) {
        center.addObserver(this, VLFileOpenNotification, [this, onOwnThread](const Notification& n) {
            onOwnThread([this, object = n.object.toMap()] { vlFileOpenNotification(object); });
        });
        center.addObserver(this, VLPlayPlaylistNotification, [this, onOwnThread](const Notification& n) {
            onOwnThread([this, object = n.object] { vlPlayPlaylistNotification(object); });
        });
    }
    center.addObserver(this, notices.fileDrop, [this, onOwnThread](const Notification& n) {
        onOwnThread([this, object = n.object.toMap()] { vlFileDropNotification(object); });
    });
    center.addObserver(this, VLMountedCDWrapperNotification, [this, onOwnThread](const Notification& n) {
        onOwnThread([this, object = n.object.toMap()] { vlMountedCDWrapperNotification(object); });
    });
    center.addObserver(this, notices.ejectCD, [this, onOwnThread](const Notification&) {
        onOwnThread([this] { vlPlayerEjectCDNotification(); });
    });
    center.addObserver(this, notices.cleanup, [this, onOwnThread](const Notification&) {
        onOwnThread([this] { vlPlayerCleanupBeforeTerminationNotification(); });
    });
    center.addObserver(this, VLPlaylistInfoNotification, [this, onOwnThread](const Notification& n) {
        onOwnThread([this, list = n.object.toMap().value("playlistarray").toStringList()] {
            playlists_ = list;
            rebuildSources();
        });
    });
    center.addObserver(this, VLPlayListGroupInfoNotification, [this, onOwnThread](const Notification& n) {
        onOwnThread([this, list = n.object.toMap().value("playlistgrouparray").toStringList()] {
            mediaSets_.clear();
            for (const QString& entry : list)
                mediaSets_ << (QDir::isAbsolutePath(entry) ? entry : PlaylistFiles::mediaFolder() + '/' + entry);
            rebuildSources();
        });
    });
    center.addObserver(this, VLReloadLibraryNotification,
                       [this, onOwnThread](const Notification&) { onOwnThread([this] { rebuildSources(); }); });
    rebuildSources();
}

PlaySourcesWrapper::~PlaySourcesWrapper()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    timer_.stop();
    cancelLoading();
    quitPlayer();
    cancelReading();
    for (const std::shared_ptr<Job>& job : cancelledReads_)
        job->wait();
    if (!trackWav_.isEmpty())
        QFile::remove(trackWav_);
    for (QFuture<void>& gathering : informationFutures_)
        gathering.waitForFinished();
}

void PlaySourcesWrapper::setCdWatcher(mounted_cd_wrapper* watcher)
{
    cdWatcher_ = watcher;
    discs_.clear();
    if (watcher) {
        for (const QVariant& description : watcher->descriptions())
            vlMountedCDWrapperNotification({{"notificationtype", VLMountCDType}, {"object", description}});
    }
    rebuildSources();
}

void PlaySourcesWrapper::setFlashPlayers(const QStringList& mountPoints)
{
    flashPlayers_ = mountPoints;
    rebuildSources();
}

// ---------------------------------------------------------------- sources

void PlaySourcesWrapper::rebuildSources()
{
    QList<SourceRow> rows;
    rows << SourceRow{SourceKind::Library, 0, tr("Library"), {}};
    for (const QString& root : FileSystemItem::rootPaths())
        rows << SourceRow{SourceKind::Library, 1, sourceTitle(root), root};
    rows << SourceRow{SourceKind::Playlist, 0, tr("Playlists"), {}};
    for (const QString& playlist : playlists_)
        rows << SourceRow{SourceKind::Playlist, 1, PlaylistFiles::displayName(playlist), playlist};
    rows << SourceRow{SourceKind::MediaSet, 0, tr("Media Sets"), {}};
    for (const QString& mediaSet : mediaSets_)
        rows << SourceRow{SourceKind::MediaSet, 1, PlaylistFiles::displayName(mediaSet), mediaSet};
    rows << SourceRow{SourceKind::Disc, 0, tr("Discs"), {}};
    for (const Disc& disc : discs_)
        rows << SourceRow{SourceKind::Disc, 1, disc.title, disc.cdpath};
    rows << SourceRow{SourceKind::FlashPlayer, 0, tr("Flash Players"), {}};
    for (const QString& flash : flashPlayers_)
        rows << SourceRow{SourceKind::FlashPlayer, 1, sourceTitle(flash), flash};
    rows << SourceRow{SourceKind::DropZone, 0, tr("Dropped Files (%1)").arg(dropZone_.size()), {}};

    const bool hadSelection = selectedSource_ >= 0 && selectedSource_ < sources_.size();
    const SourceRow selected = hadSelection ? sources_.at(selectedSource_) : SourceRow{};
    sources_ = rows;
    selectedSource_ = hadSelection ? int(sources_.indexOf(selected)) : -1;
    emit sourcesChanged();
    emit sourceSelected(selectedSource_);
    // The songs of a disc or flash player that went away went with it.
    if (hadSelection && selectedSource_ < 0 &&
        (selected.kind == SourceKind::Disc || selected.kind == SourceKind::FlashPlayer)) {
        cancelLoading();
        songs_.clear();
        records_.clear();
        selectedSong_ = -1;
        emit songsChanged();
        emit songSelected(-1);
    }
}

void PlaySourcesWrapper::selectSource(int row)
{
    selectSourceRow(row, false);
}

void PlaySourcesWrapper::selectSourceRow(int row, bool play)
{
    if (row < 0 || row >= sources_.size())
        return;
    selectedSource_ = row;
    emit sourceSelected(row);
    const SourceRow& source = sources_.at(row);
    LoadRequest request;
    request.title = tr("Reading the songs of \u201c%1\u201d").arg(source.title);
    request.play = play;
    auto add = [&](const QString& path) {
        LoadRequest::Piece piece{source.kind, path, {}};
        for (const Disc& disc : discs_) {
            if (source.kind == SourceKind::Disc && disc.cdpath == path)
                piece.trackInfo = disc.trackInfo;
        }
        request.pieces << piece;
    };
    if (source.level == 1) {
        add(source.path);
    } else if (source.kind == SourceKind::DropZone) {
        for (const QString& file : dropZone_)
            add(file);
    } else {
        for (const SourceRow& entry : sources_) {
            if (entry.kind == source.kind && entry.level == 1)
                add(entry.path);
        }
    }
    load(request);
}

void PlaySourcesWrapper::selectPendingFiles(const QStringList& files, bool play)
{
    pendingFiles_ = files;
    selectedSource_ = -1;
    emit sourceSelected(-1);
    LoadRequest request;
    request.title = tr("Reading the songs to play");
    request.play = play;
    for (const QString& file : files)
        request.pieces << LoadRequest::Piece{SourceKind::DropZone, file, {}};
    load(request);
}

void PlaySourcesWrapper::load(const LoadRequest& request)
{
    cancelLoading();
    const quint64 generation = ++loadGeneration_;
    loading_ = Job::create(request.title, [this, request, generation](Job& job) {
        std::atomic<bool> cancel{false};
        const Job::CancelHook hook = job.onCancel([&cancel] { cancel = true; });
        QElapsedTimer shown;
        shown.start();
        auto examining = [&job, &shown](const QString& name) {
            if (shown.elapsed() >= 100) {
                job.setProgress(-1, name);
                shown.restart();
            }
        };
        QStringList songs;
        QVariantList records;
        auto take = [&](const QVariantMap& contents, const QVariantList& trackInfo = {}) {
            const QVariantList leaves = contents.value("leafarray").toList();
            const QVariantList comments = contents.value("commentarray").toList();
            for (qsizetype i = 0; i < leaves.size(); ++i) {
                const QString path = leaves.at(i).toString();
                QVariantMap record = comments.value(i).toMap();
                if (isDiscTrack(path)) {
                    // A disc's tracks: FreeDB's names, the length from the track file.
                    const QVariantMap info = trackInfo.value(i).toMap();
                    for (const char* key : {"title", "artist", "album", "year", "genre"}) {
                        if (!info.value(key).toString().isEmpty())
                            record.insert(key, info.value(key));
                    }
                    if (const auto track = DiscFolder::readTrackFile(path))
                        record.insert("duration", QString::number(track->length / 75));
                }
                songs << path;
                records << record;
            }
        };
        for (const LoadRequest::Piece& piece : request.pieces) {
            if (cancel)
                break;
            switch (piece.kind) {
            case SourceKind::Playlist:
                take(MusicSourcesWrapper::contentsOfPlaylist(piece.path, &cancel));
                break;
            case SourceKind::MediaSet:
                take(MusicSourcesWrapper::contentsOfPlaylistGroup(piece.path, &cancel));
                break;
            case SourceKind::Disc: {
                QSet<QString> types = defaultAudioTypes();
                types.insert(QStringLiteral("cdda"));
                if (const auto contents = contentsOfFolder(piece.path, &cancel, examining, types))
                    take(*contents, piece.trackInfo);
                break;
            }
            default:
                if (piece.path.endsWith(QLatin1String(".cd3"), Qt::CaseInsensitive))
                    take(MusicSourcesWrapper::contentsOfPlaylist(piece.path, &cancel));
                else if (isDiscTrack(piece.path) && QFileInfo(piece.path).isFile())
                    take({{"leafarray", QVariantList{piece.path}},
                          {"commentarray", QVariantList{getComments(piece.path).value_or(QVariantMap())}}});
                else if (const auto contents = contentsOfFolder(piece.path, &cancel, examining))
                    take(*contents);
                break;
            }
        }
        if (cancel)
            return JobResult::cancelled();
        QMetaObject::invokeMethod(
            this,
            [this, generation, songs, records, play = request.play] { takeSongs(generation, songs, records, play); },
            Qt::QueuedConnection);
        return JobResult::succeeded();
    });
    emit loadingChanged(true);
    loading_->start();
}

void PlaySourcesWrapper::cancelLoading()
{
    if (!loading_)
        return;
    loading_->cancel();
    loading_->wait();
    loading_.reset();
    emit loadingChanged(false);
}

void PlaySourcesWrapper::takeSongs(quint64 generation, const QStringList& songs, const QVariantList& records, bool play)
{
    if (generation != loadGeneration_)
        return;
    if (loading_) {
        loading_->wait();
        loading_.reset();
        emit loadingChanged(false);
    }
    songs_ = songs;
    records_ = records;
    // A list from a new source is shuffled when the Shuffle button is on.
    shuffleIfNeededFromMainRunloop();
    playingRow_ = playingPath_.isEmpty() ? -1 : int(songs_.indexOf(playingPath_));
    selectedSong_ = -1;
    emit songsChanged();
    if (!play) {
        emit songSelected(-1);
        return;
    }
    if (songs_.isEmpty() && isModeOn(Next) && selectedSource_ >= 0 && emptyHops_ < sources_.size()) {
        ++emptyHops_;
        nextSource();
        return;
    }
    selectSong(0);
    playSelectedSong();
}

void PlaySourcesWrapper::selectSong(int row)
{
    selectedSong_ = row >= 0 && row < songs_.size() ? row : -1;
    emit songSelected(selectedSong_);
}

// ---------------------------------------------------------------- notices

void PlaySourcesWrapper::vlFileOpenNotification(const QVariantMap& object)
{
    emit playTabRequested();
    playFiles(object.value("filearray").toStringList());
}

void PlaySourcesWrapper::playFiles(const QStringList& files)
{
    selectPendingFiles(files, true);
}

void PlaySourcesWrapper::vlFileDropNotification(const QVariantMap& object)
{
    dropZone_ = object.value("filearray").toStringList();
    rebuildSources();
    selectSource(int(sources_.size()) - 1);  // the drop zone is the last row
}

void PlaySourcesWrapper::vlMountedCDWrapperNotification(const QVariantMap& object)
{
    const QString type = object.value("notificationtype").toString();
    const QVariantMap description = object.value("object").toMap();
    const QString cdpath = description.value("cdpath").toString();
    const auto at = std::find_if(discs_.begin(), discs_.end(), [&](const Disc& disc) { return disc.cdpath == cdpath; });
    if (type == QLatin1String(VLUnmountCDType)) {
        if (at == discs_.end())
            return;
        discs_.erase(at);
        if (playingDisc_ == cdpath)
            stopPlayingSong();
    } else {
        Disc disc{cdpath, description.value("freedbtitle").toString(), description.value("mFreeDBTrackList").toList()};
        if (disc.title.isEmpty() || disc.title == cdpath)
            disc.title = sourceTitle(cdpath);
        if (at == discs_.end())
            discs_ << disc;
        else
            *at = disc;
    }
    rebuildSources();
}

void PlaySourcesWrapper::vlPlayerEjectCDNotification()
{
    if (playingDisc_.isEmpty())
        return;
    const QString disc = playingDisc_;
    stopPlayingSong();
    eject(disc);
}

void PlaySourcesWrapper::vlPlayerCleanupBeforeTerminationNotification()
{
    stopPlayingSong();
    Defaults::standard().setInteger(kVolumeKey, volume_);
    Defaults::standard().synchronize();
}

void PlaySourcesWrapper::vlPlayPlaylistNotification(const QVariant& object)
{
    if (object.typeId() == QMetaType::QString) {
        const qsizetype row = sources_.indexOf(SourceRow{SourceKind::Playlist, 1, {}, object.toString()});
        if (row >= 0) {
            selectSourceRow(int(row), true);
            return;
        }
        selectPendingFiles({}, false);
        LoadRequest request;
        request.title = tr("Reading the songs of \u201c%1\u201d").arg(PlaylistFiles::displayName(object.toString()));
        request.play = true;
        request.pieces << LoadRequest::Piece{SourceKind::Playlist, object.toString(), {}};
        load(request);
        return;
    }
    selectPendingFiles(object.toMap().value("leafarray").toStringList(), true);
}

// ---------------------------------------------------------------- playing

void PlaySourcesWrapper::playSelectedSong()
{
    timer_.stop();
    if (songs_.isEmpty()) {
        if (state_ != State::Stopped) {
            stopPlayingSong();
            emit listEnded();
        }
        return;
    }
    if (selectedSong_ < 0)
        selectSong(0);
    const QString song = songs_.at(selectedSong_);
    rememberMedia(song);
    postEjectableMedia();
    emit pauseButtonChanged(false);
    playingRow_ = selectedSong_;
    playThisSong(song);
}

void PlaySourcesWrapper::playThisSong(const QString& path)
{
    quitPlayer();
    timer_.stop();
    cancelReading();
    if (!trackWav_.isEmpty()) {
        QFile::remove(trackWav_);
        trackWav_.clear();
    }
    playingPath_ = path;
    if (songs_.value(playingRow_) != path)
        playingRow_ = int(songs_.indexOf(path));
    progress_ = 0;
    emit progressChanged(0, QString());  // the last song's position goes at once, not at the next tick
    if (isDiscTrack(path))
        startReadingTrack(path);
    else
        startPlayer(path);
}

void PlaySourcesWrapper::startPlayer(const QString& playable)
{
    player_ = std::make_unique<mqp_wrapper>(playable, false);
    player_->setVolume(volume_);
    player_->play();
    if (!player_->isRunning()) {
        // What mplayer cannot start, the media framework may play.
        player_ = std::make_unique<mqp_wrapper>(playable, true);
        player_->setVolume(volume_);
        player_->play();
    }
    if (!player_->isRunning()) {
        cannotPlay(playingPath_, QFileInfo::exists(playable) ? tr("no player can read it") : tr("the file is missing"));
        return;
    }
    connect(player_.get(), &mqp_wrapper::progressChanged, this, [this](int value, const QString& text) {
        progress_ = value;
        emit progressChanged(value, text);
    });
    connect(player_.get(), &mqp_wrapper::beepRequested, this, &PlaySourcesWrapper::beep);
    failures_ = 0;
    emptyHops_ = 0;
    const bool announced = state_ == State::Reading;  // a disc track was announced when its reading began
    setState(State::Playing);
    if (!announced)
        emit nowPlaying(playingRow_, playingPath_);
    timer_.start(kTimerMs);
}

void PlaySourcesWrapper::startReadingTrack(const QString& trackFile)
{
    const auto track = DiscFolder::readTrackFile(trackFile);
    const QString paranoia = ResourceLocator::pathForTool(QStringLiteral("cdparanoia"));
    if (!track) {
        cannotPlay(trackFile, tr("it is not a track of a disc that is in"));
        return;
    }
    if (paranoia.isEmpty()) {
        cannotPlay(trackFile, tr("cd-paranoia is not installed"));
        return;
    }
    createDirectoriesAtPath(AppPaths::cacheDir());
    trackWav_ = AppPaths::uniqueIntermediate(AppPaths::cacheDir(), QStringLiteral("playtrack"), QStringLiteral("wav"));
    const quint64 generation = ++readGeneration_;
    const QStringList arguments = ExportArguments::cdparanoiaArguments(track->device, track->track, false, trackWav_);
    const qint64 expected = track->length * kCdSectorBytes;
    setState(State::Reading);
    emit nowPlaying(playingRow_, playingPath_);
    const QString title = tr("Reading track %1 from the disc").arg(track->track);
    reading_ = Job::create(title, [this, paranoia, arguments, expected, generation, wav = trackWav_](Job& job) {
        ChildProcess child(paranoia, arguments);
        QString error;
        if (!child.start()) {
            error = tr("cd-paranoia cannot be started");
        } else {
            const Job::CancelHook hook = job.onCancel([&child] { child.terminate(); });
            while (child.isRunning()) {
                QThread::msleep(100);
                if (expected > 0)
                    job.setProgress(100.0 * double(QFileInfo(wav).size()) / double(expected));
            }
            child.waitForExit();
            if (job.isCancelled())
                return JobResult::cancelled();
            if (QFileInfo(wav).size() < 1024)
                error = tr("the disc cannot be read");
        }
        QMetaObject::invokeMethod(
            this, [this, generation, wav, error] { trackRead(generation, wav, error); }, Qt::QueuedConnection);
        return error.isEmpty() ? JobResult::succeeded() : JobResult::failed(error);
    });
    reading_->start();
}

void PlaySourcesWrapper::cancelReading()
{
    if (!reading_)
        return;
    reading_->cancel();
    // Kept until it has ended: its thread still holds this object.
    cancelledReads_.removeIf([](const std::shared_ptr<Job>& job) { return job->state() == Job::State::Finished; });
    cancelledReads_ << std::move(reading_);
}

void PlaySourcesWrapper::trackRead(quint64 generation, const QString& wav, const QString& error)
{
    if (generation != readGeneration_ || wav != trackWav_)
        return;
    reading_.reset();
    if (!error.isEmpty())
        cannotPlay(playingPath_, error);
    else
        startPlayer(wav);
}

void PlaySourcesWrapper::cannotPlay(const QString& path, const QString& why)
{
    quitPlayer();
    const QString name = QFileInfo(path).fileName();
    if (++failures_ >= songs_.size()) {
        emit message(tr("\u201c%1\u201d cannot be played (%2), and neither can the other songs.").arg(name, why));
        stopPlayingSong();
        emit listEnded();
        return;
    }
    emit message(tr("\u201c%1\u201d cannot be played (%2); playing goes on with the next song.").arg(name, why));
    setState(State::Playing);
    timer_.start(kSkipMs);  // the timer finds no player and moves on
}

void PlaySourcesWrapper::quitPlayer()
{
    if (!player_)
        return;
    player_->disconnect(this);
    player_.reset();
}

void PlaySourcesWrapper::HandleTimer()
{
    if (!timer_.isActive())
        return;
    if (player_) {
        progress_ = player_->updateProgress();
        if (progress_ <= 99)
            return;
    }
    songEnded();
}

void PlaySourcesWrapper::songEnded()
{
    timer_.stop();
    quitPlayer();
    const int next = selectedSong_ + 1;
    if (next < songs_.size()) {
        selectSong(next);
        playSelectedSong();
        return;
    }
    endOfList();
}

void PlaySourcesWrapper::endOfList()
{
    const bool autoEject = Preferences::sharedInstance().prefsIntForKey(PrefKeys::AutoEject) != 0;
    if (autoEject && !playingDisc_.isEmpty())
        eject(playingDisc_);
    else if (!autoEject)
        selectSong(0);
    switch (playbackMode()) {
    case Repeat:
        selectSong(0);
        playSelectedSong();
        break;
    case Shuffle:
        shuffleIfNeededFromMainRunloop();
        emit songsChanged();
        selectSong(0);
        playSelectedSong();
        break;
    case Next:
        nextSource();
        break;
    case Stop:
    case NoMode:
        // Without a mode the list plays once, as with Stop.
        selectSong(0);
        stopPlayingSong();
        emit listEnded();
        break;
    }
}

void PlaySourcesWrapper::nextSource()
{
    const int row = selectedSource_;
    if (row < 0 || row >= sources_.size() || sources_.at(row).level == 0) {
        selectSong(0);
        playSelectedSong();
        return;
    }
    int next = row + 1;
    if (next >= sources_.size() || sources_.at(next).level == 0) {
        next = row;
        while (next > 0 && sources_.at(next).level != 0)
            --next;
    }
    selectSourceRow(next, true);
}

void PlaySourcesWrapper::shuffleIfNeededFromMainRunloop()
{
    const qsizetype count = songs_.size();
    if (!isModeOn(Shuffle) || count < 2)
        return;
    const bool parallel = records_.size() == count;
    // Every song is moved at least once: each place swaps with another one.
    for (qsizetype i = 0; i < count; ++i) {
        qsizetype other;
        do {
            other = qsizetype(random() % count);
        } while (other == i);
        songs_.swapItemsAt(i, other);
        if (parallel)
            records_.swapItemsAt(i, other);
    }
}

void PlaySourcesWrapper::stopPlayingSong()
{
    timer_.stop();
    quitPlayer();
    cancelReading();
    if (!trackWav_.isEmpty()) {
        QFile::remove(trackWav_);
        trackWav_.clear();
    }
    playingDisc_.clear();
    playingFlash_.clear();
    postEjectableMedia();
    playingPath_.clear();
    playingRow_ = -1;
    progress_ = 0;
    emit pauseButtonChanged(false);
    setState(State::Stopped);
}

void PlaySourcesWrapper::pausePlaying()
{
    if (!timer_.isActive() || !player_)
        return;
    // The end of a song is too close to pause on.
    if (player_->updateProgress() < 96) {
        player_->pause();
        setState(State::Paused);
        emit pauseButtonChanged(true);
    } else {
        emit pauseButtonChanged(false);
    }
}

void PlaySourcesWrapper::resumePlaying()
{
    if (!player_ || state_ != State::Paused)
        return;
    player_->pause();
    player_->play();
    setState(State::Playing);
    emit pauseButtonChanged(false);
}

void PlaySourcesWrapper::restartSong()
{
    if (player_ && (state_ == State::Playing || state_ == State::Paused)) {
        player_->setTimeSeconds(0);
        resumePlaying();
        player_->updateProgress();
    } else if (!playingPath_.isEmpty()) {
        playThisSong(playingPath_);
    } else {
        playSelectedSong();
    }
}

void PlaySourcesWrapper::nextSong()
{
    if (state_ == State::Stopped) {
        selectSong(std::min(selectedSong_ + 1, int(songs_.size()) - 1));
        return;
    }
    songEnded();
}

void PlaySourcesWrapper::setVolume(int volume)
{
    volume_ = std::clamp(volume, 0, 100);
    if (player_)
        player_->setVolume(volume_);
    emit volumeChanged(volume_);
}

void PlaySourcesWrapper::setTime(int percent)
{
    if (player_) {
        player_->setTime(std::clamp(percent, 0, 100));
        player_->updateProgress();
    }
}

void PlaySourcesWrapper::setTimeSeconds(int seconds)
{
    if (player_) {
        player_->setTimeSeconds(std::max(seconds, 0));
        player_->updateProgress();
    }
}

int PlaySourcesWrapper::position() const
{
    return player_ ? player_->position() : 0;
}

QVariantMap PlaySourcesWrapper::playingRecord() const
{
    return playingRow_ >= 0 ? records_.value(playingRow_).toMap() : QVariantMap();
}

void PlaySourcesWrapper::selectPlaybackMode(Mode clicked, bool on)
{
    if (clicked == NoMode)
        return;
    for (size_t i = 0; i < modes_.size(); ++i)
        modes_[i] = i == size_t(clicked) ? on : false;
    Defaults& defaults = Defaults::standard();
    for (size_t i = 0; i < modes_.size(); ++i)
        defaults.setInteger(QString::fromLatin1(modeKeys()[i]), modes_[i] ? 1 : 0);
    defaults.synchronize();
    emit modesChanged();
}

void PlaySourcesWrapper::setSessionPlaybackMode(Mode mode)
{
    for (size_t i = 0; i < modes_.size(); ++i)
        modes_[i] = mode != NoMode && i == size_t(mode);
    emit modesChanged();
}

PlaySourcesWrapper::Mode PlaySourcesWrapper::playbackMode() const
{
    for (size_t i = 0; i < modes_.size(); ++i) {
        if (modes_[i])
            return Mode(i);
    }
    return NoMode;
}

void PlaySourcesWrapper::setState(State state)
{
    if (state_ == state)
        return;
    state_ = state;
    emit stateChanged(state);
}

// ---------------------------------------------------------------- discs and flash players

void PlaySourcesWrapper::rememberMedia(const QString& song)
{
    playingDisc_.clear();
    playingFlash_.clear();
    const QString folder = QDir::cleanPath(QFileInfo(song).absolutePath());
    for (const Disc& disc : discs_) {
        if (QDir::cleanPath(disc.cdpath) == folder)
            playingDisc_ = disc.cdpath;
    }
    for (const QString& flash : flashPlayers_) {
        const QString mount = QDir::cleanPath(flash);
        if (folder == mount || folder.startsWith(mount + '/'))
            playingFlash_ = flash;
    }
}

void PlaySourcesWrapper::postEjectableMedia()
{
    QVariantMap media;
    if (!playingDisc_.isEmpty())
        media.insert("mThisCDIsPlaying", playingDisc_);
    if (!playingFlash_.isEmpty())
        media.insert("mThisFlashIsPlaying", playingFlash_);
    NotificationCenter::defaultCenter().post(VLEjectableMediaPlayingNotification, media);
}

void PlaySourcesWrapper::ejectSelectedCD()
{
    const SourceRow source = sources_.value(selectedSource_);
    if (selectedSource_ < 0 || source.kind != SourceKind::Disc || source.level != 1)
        return;
    if (playingDisc_ == source.path)
        stopPlayingSong();
    eject(source.path);
}

void PlaySourcesWrapper::eject(const QString& cdpath)
{
    if (cdWatcher_)
        cdWatcher_->eject(cdpath);
}

// ---------------------------------------------------------------- converting and information

void PlaySourcesWrapper::convertSongs(const QString& formatKey, const QString& folder, const QList<int>& rows)
{
    MusicSourcesWrapper::Selection selection;
    if (rows.isEmpty()) {
        for (const QString& song : songs_)
            selection << MusicSourcesWrapper::Source::library(song);
    }
    for (int row : rows) {
        if (row >= 0 && row < songs_.size())
            selection << MusicSourcesWrapper::Source::library(songs_.at(row));
    }
    if (!selection.isEmpty())
        converter_->chooseSaveFolderDidEnd(true, folder, formatKey, selection);
}

void PlaySourcesWrapper::showInformation(int row)
{
    if (row < 0 || row >= songs_.size())
        return;
    const QString path = songs_.at(row);
    QVariantMap information = records_.value(row).toMap();
    informationFutures_.removeIf([](const QFuture<void>& done) { return done.isFinished(); });
    informationFutures_ << QtConcurrent::run([this, path, information]() mutable {
        const QFileInfo file(path);
        information.insert("path", path);
        information.insert("size", file.size());
        information.insert("format", file.suffix().toUpper());
        information.insert("player", isDiscTrack(path)                          ? QStringLiteral("cd-paranoia, mqp")
                                     : mqp_wrapper::usesMplayerFor(path, false) ? QStringLiteral("mplayer")
                                                                                : QStringLiteral("mqp"));
        const QVariantList art = getAlbumArt(path);
        if (!art.isEmpty())
            information.insert("artwork", art.first().toMap().value("Image"));
        QMetaObject::invokeMethod(
            this, [this, information] { emit informationReady(information); }, Qt::QueuedConnection);
    });
}

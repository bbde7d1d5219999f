#pragma once
#include <QFuture>
#include <QObject>
#include <QStringList>
#include <QTimer>
#include <QVariantList>
#include <QVariantMap>

#include <array>
#include <memory>

class Job;
class MusicSourcesWrapper;
class mounted_cd_wrapper;
class mqp_wrapper;

// The Play tab's logic: the music sources (library, playlists, media sets,
// discs, flash players, the drop zone), the song table of the selected source,
// and playing its songs one after another through the player engine, with the
// four playback modes deciding what follows the last song. Lives on the main
// thread; songs are gathered and their tags read in jobs, and the results come
// back through the event loop.
class PlaySourcesWrapper : public QObject {
    Q_OBJECT
public:
    enum class SourceKind { Library, Playlist, MediaSet, Disc, FlashPlayer, DropZone };
    // One row of the sources outline: a top-level source (level 0, every song
    // of its kind) or one of its entries (level 1).
    struct SourceRow {
        SourceKind kind = SourceKind::Library;
        int level = 0;
        QString title;
        QString path;  // an entry's library folder, playlist, media set, disc folder or flash player
        bool operator==(const SourceRow& other) const
        {
            return kind == other.kind && level == other.level && path == other.path;
        }
    };
    enum Mode { NoMode = -1, Repeat = 0, Shuffle, Stop, Next };
    enum class State { Stopped, Reading, Playing, Paused };

    static const std::array<const char*, 4>& modeKeys();  // mModeRepeatButton, ...

    // The notices a browser of songs answers: the Play tab's, or the Clip tab's
    // (its own drop, eject and clean-up names; files opened from the desktop and
    // playlists to play are the Play tab's alone).
    struct Notices {
        const char* fileDrop;
        const char* ejectCD;
        const char* cleanup;
        bool playsOpenedFiles;
    };
    static Notices playTabNotices();
    static Notices clipTabNotices();

    explicit PlaySourcesWrapper(QObject* parent = nullptr);
    explicit PlaySourcesWrapper(const Notices& notices, QObject* parent = nullptr);
    ~PlaySourcesWrapper() override;

    // The watcher whose discs are shown and ejected (the window's; none on the command line).
    void setCdWatcher(mounted_cd_wrapper* watcher);
    // Flash players appear once their watcher tells of them.
    void setFlashPlayers(const QStringList& mountPoints);
    // Shared with the Music tab: the convert actions on the songs of this tab.
    MusicSourcesWrapper& converter() { return *converter_; }
    void convertSongs(const QString& formatKey, const QString& folder, const QList<int>& rows);

    // Sources.
    QList<SourceRow> sources() const { return sources_; }
    int selectedSource() const { return selectedSource_; }
    void selectSource(int row);

    // The song table.
    QStringList songs() const { return songs_; }
    QVariantList records() const { return records_; }
    int selectedSong() const { return selectedSong_; }
    void selectSong(int row);
    bool isLoading() const { return loading_ != nullptr; }

    // Playing.
    // Plays files (and the songs of folders and .cd3 playlists) as a list of
    // their own, from the first, as files opened from the desktop play.
    void playFiles(const QStringList& files);
    void playSelectedSong();
    void playThisSong(const QString& path);
    void stopPlayingSong();
    void pausePlaying();
    void resumePlaying();
    void restartSong();
    void nextSong();
    void setVolume(int volume);
    int volume() const { return volume_; }
    void setTime(int percent);
    void setTimeSeconds(int seconds);
    // Clicking a mode button turns the other three off; the states are stored.
    void selectPlaybackMode(Mode clicked, bool on);
    // The command line's mode, for this run only.
    void setSessionPlaybackMode(Mode mode);
    Mode playbackMode() const;
    bool isModeOn(Mode mode) const { return mode != NoMode && modes_[size_t(mode)]; }
    void ejectSelectedCD();
    // Gathers what is known of a song off the main thread; informationReady follows.
    void showInformation(int row);

    State state() const { return state_; }
    QString playingPath() const { return playingPath_; }
    int playingRow() const { return playingRow_; }
    QVariantMap playingRecord() const;
    int progress() const { return progress_; }
    int position() const;  // seconds into the song playing
    const mqp_wrapper* player() const { return player_.get(); }
    QString playingDisc() const { return playingDisc_; }

    // The timer's work, once a second while a song plays.
    void HandleTimer();
    void shuffleIfNeededFromMainRunloop();

signals:
    void sourcesChanged();
    void sourceSelected(int row);  // -1: files handed over by the desktop
    void songsChanged();
    void songSelected(int row);
    void loadingChanged(bool loading);
    void stateChanged(PlaySourcesWrapper::State state);
    void nowPlaying(int row, const QString& path);
    void progressChanged(int value, const QString& text);
    void pauseButtonChanged(bool showsResume);
    void modesChanged();
    void volumeChanged(int volume);
    void message(const QString& text);
    void beep();
    void informationReady(const QVariantMap& information);
    // Files opened from the desktop: the Play tab comes to the front.
    void playTabRequested();
    // The last song ended and nothing more plays.
    void listEnded();

private:
    struct Disc {
        QString cdpath;
        QString title;
        QVariantList trackInfo;
    };
    struct LoadRequest;

    void vlFileOpenNotification(const QVariantMap& object);
    void vlFileDropNotification(const QVariantMap& object);
    void vlMountedCDWrapperNotification(const QVariantMap& object);
    void vlPlayerEjectCDNotification();
    void vlPlayerCleanupBeforeTerminationNotification();
    void vlPlayPlaylistNotification(const QVariant& object);
    void rebuildSources();
    void selectSourceRow(int row, bool play);
    void selectPendingFiles(const QStringList& files, bool play);
    void load(const LoadRequest& request);
    void takeSongs(quint64 generation, const QStringList& songs, const QVariantList& records, bool play);
    void cancelLoading();
    void songEnded();
    void endOfList();
    void nextSource();
    void startPlayer(const QString& playable);
    void startReadingTrack(const QString& trackFile);
    void cancelReading();
    void trackRead(quint64 generation, const QString& wav, const QString& error);
    void cannotPlay(const QString& path, const QString& why);
    void quitPlayer();
    void setState(State state);
    void rememberMedia(const QString& song);
    void postEjectableMedia();
    void eject(const QString& cdpath);

    std::unique_ptr<MusicSourcesWrapper> converter_;
    mounted_cd_wrapper* cdWatcher_ = nullptr;
    QStringList playlists_;
    QStringList mediaSets_;
    QList<Disc> discs_;
    QStringList flashPlayers_;
    QStringList dropZone_;
    QStringList pendingFiles_;
    QList<SourceRow> sources_;
    int selectedSource_ = -1;

    QStringList songs_;
    QVariantList records_;
    int selectedSong_ = -1;
    std::shared_ptr<Job> loading_;
    quint64 loadGeneration_ = 0;
    int emptyHops_ = 0;  // sources without songs skipped in a row by the Next mode

    std::unique_ptr<mqp_wrapper> player_;
    QTimer timer_;
    State state_ = State::Stopped;
    QString playingPath_;
    int playingRow_ = -1;
    int progress_ = 0;
    int failures_ = 0;  // songs in a row that could not be played
    int volume_ = 100;
    std::array<bool, 4> modes_{};
    QString playingDisc_;
    QString playingFlash_;
    std::shared_ptr<Job> reading_;  // a disc track being read for playing
    QList<std::shared_ptr<Job>> cancelledReads_;
    quint64 readGeneration_ = 0;
    QString trackWav_;
    QList<QFuture<void>> informationFutures_;
};

Q_DECLARE_METATYPE(PlaySourcesWrapper::State)

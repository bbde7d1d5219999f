#pragma once
#include "tabs/RipNaming.h"
#include "tabs/RipSettings.h"

#include <QHash>
#include <QObject>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

class Job;
class mounted_cd_wrapper;

// The Rip tab's logic: the audio CDs the watcher knows with their tracks and
// FreeDB names, the choice among several FreeDB matches, eject, the per-format
// settings and their sheets, and the rip itself: a job that reads each chosen
// track once, names its files and hands each format's export request to the
// export jobs, then waits for them and writes the rip log.
class RipSourcesWrapper : public QObject {
    Q_OBJECT
public:
    struct Track {
        int number = 0;
        QString file;  // the track file in the disc folder
        qint64 sectors = 0;
        QVariantMap info;      // the track info of the CD info; empty without one
        bool selected = true;  // the tick box
        RipNaming::TrackNames names() const { return RipNaming::TrackNames::from(info, number); }
    };
    // What a rip works on, taken when it starts.
    struct RipRequest {
        QString type;               // a format name, "MP3 and M4A" or "MULTI-RIP"
        QString destinationFolder;  // the folder the user chose
        QList<Track> tracks;        // the chosen tracks, in disc order
        int firstTrack = 0;         // the disc's first and last audio tracks
        int lastTrack = 0;
        QVariantMap disc;    // the disc description
        QString discSource;  // the drive or the image
    };
    using ProgressHandler = std::function<void(const QVariantMap& progress)>;

    explicit RipSourcesWrapper(mounted_cd_wrapper& watcher, QObject* parent = nullptr);
    ~RipSourcesWrapper() override;

    // The format names of the convert actions, then "MP3 and M4A" and "MULTI-RIP".
    static const QStringList& actionNames();

    // Discs and tracks (main thread).
    QVariantList discs() const;
    QString currentDisc() const { return currentDisc_; }
    void selectDisc(const QString& cdpath);
    QList<Track> tracks() const { return tracks_; }
    void setTrackSelected(int row, bool selected);
    void selectAllTracks(bool selected);
    // The track whose target the naming controls show.
    void setCurrentTrack(int row);
    int currentTrack() const { return currentTrack_; }
    // The FreeDB matches of the disc: their titles, whether there is a choice, the one read.
    QStringList albumMenu() const;
    bool albumMenuEnabled() const { return albumMenu().size() > 1; }
    int selectedAlbum() const;
    void selectAlbum(int index);
    // A rip of the disc is cancelled first.
    void ejectSelectedCD();
    // The disc folder the player reads, which rips leave alone.
    QString playingDisc() const;

    // Settings kept in the defaults; the sheets edit a copy until Save.
    const RipSettings& settings() const { return settings_; }
    void setRipInBackground(bool on);
    void setWriteLog(bool on);
    void setClipValue(const QString& key, const QVariant& value);
    void chooseCacheFolderDidEnd(bool confirmed, const QString& folder);
    QString cacheFolder() const;

    void ripSettingsShow(const QString& format);
    QString shownFormat() const { return shownFormat_; }
    QVariantMap shownSettings() const { return shown_; }
    void setShownValue(const QString& key, const QVariant& value);
    void setRipBitrate(int index);
    void setCustomFormat(const QString& format);
    void addCharChange(const QString& replace, const QString& with);
    void deleteCharChange(int index);
    void ripSettingsSave();
    void ripSettingsCancel();
    void ripSettingsDefault();
    void multiRipSettingsShow();
    QStringList shownMultiRip() const { return shownMultiRip_; }
    void setMultiRipFormat(const QString& format, bool on);
    void multiRipSettingsSave();
    void multiRipSettingsCancel();
    void multiRipSettingsDefault();

    // Where the current track of a format would go now (the shown settings when
    // the sheet of that format is open), in the folder last chosen for it.
    QString previewPath(const QString& format) const;

    // The convert actions: with allTracks every track is ticked first; the
    // window then asks for the folder (chooseFolderRequested).
    void convertTo(const QString& type, bool allTracks);
    static QString startingFolderFor(const QString& type);
    static QString chooseFolderMessage(const QString& type);
    // The folder chooser ended; on confirmation the rip starts on a thread of its own.
    void chooseSaveFolderDidEnd(bool confirmed, const QString& folder, const QString& type);
    // A rip of the current disc's ticked tracks; nothing when none is ticked.
    std::optional<RipRequest> ripRequest(const QString& type, const QString& folder) const;
    // A rip as a job ("Ripping MP3 files"), for the window to start() and the
    // command line to run(). Its percent is the share of tracks read; it ends
    // when every export has, with the files made, a message per track that was
    // not, and the rip log.
    std::shared_ptr<Job> makeRipJob(const RipRequest& request, const RipSettings& settings);
    // Cancels the rip: its reading stops and the export jobs are told to cancel.
    void terminateSave();
    bool isSaving() const { return saving_; }
    void waitForSaveThread();

    // Called on the rip's thread: progress records {"operation", "status",
    // "savefilename"}, each file made whole, each track or file that was not.
    void setProgressHandler(ProgressHandler handler) { progressHandler_ = std::move(handler); }
    void setMadeHandler(std::function<void(const QString& file)> handler) { madeHandler_ = std::move(handler); }
    void setFailureHandler(std::function<void(const QString& message)> handler)
    {
        failureHandler_ = std::move(handler);
    }

signals:
    void discsChanged();
    void tracksChanged();
    void settingsChanged();
    void chooseFolderRequested(const QString& type);
    void progressSheetShown();
    void progressSheetEnded(int returnCode);
    // The tab's controls are off while a rip reads, and on again after.
    void controlsEnabled(bool enabled);

private:
    struct Run;
    void rebuild();
    void HandleSaveThread(Job& job, const RipRequest& request, const RipSettings& settings, Run& run);
    void saveFiles(Job& job, const RipRequest& request, const RipSettings& settings, Run& run);
    void saveMP3andM4ARipFiles(Job& job, const RipRequest& request, const RipSettings& settings, Run& run);
    void saveMultiRipFiles(Job& job, const RipRequest& request, const RipSettings& settings, Run& run);
    void ripTracks(Job& job, const RipRequest& request, const RipSettings& settings, const QStringList& formats,
                   bool sharedWav, Run& run);
    void finish(Job& job, const RipRequest& request, const RipSettings& settings, Run& run);
    void showProgress(const QVariantMap& progress, Job* job = nullptr) const;
    void fail(Job& job, Run& run, const QString& message) const;

    mounted_cd_wrapper& watcher_;
    QString currentDisc_;
    QList<Track> tracks_;
    int currentTrack_ = 0;
    QString playingDisc_;               // guarded by mutex_
    QHash<QString, int> chosenAlbums_;  // by disc folder
    RipSettings settings_;
    QString shownFormat_;
    QVariantMap shown_;
    QStringList shownMultiRip_;

    ProgressHandler progressHandler_;
    std::function<void(const QString&)> madeHandler_;
    std::function<void(const QString&)> failureHandler_;
    mutable std::mutex mutex_;
    std::shared_ptr<Job> saveJob_;  // the rip started on its own thread, guarded by mutex_
    QString savingDisc_;            // its disc, guarded by mutex_
    std::atomic<bool> saving_{false};
};

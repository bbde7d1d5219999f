#pragma once
#include "core/FlashWriting.h"
#include "platform/VolumeMonitor.h"

#include <QObject>
#include <QStringList>
#include <QThreadPool>
#include <QVariantMap>

#include <atomic>
#include <mutex>

class ChildProcess;
class MyController;

// Puts music onto flash players: the removable FAT volumes. Keeps the pop-up's
// list of player volumes, answers the Music tab's copy request (handing the
// copy back as a save request) and the playlist stores' (copying one file at a
// time for them), erases a player first when asked, and ejects it. The setup
// and erase sheets are the window's; this object says when to show them and
// takes their answers.
class FlashWriter : public QObject, public FlashWriting {
    Q_OBJECT
public:
    static constexpr char kSettingsKey[] = "flashpanelsettings";
    // The seven options, in the sheet's order: erase, replace, no folders,
    // re-encode when possible, quality, mono, convert to MP3.
    static const QStringList& settingKeys();
    static constexpr char kWaitingStatus[] = "Waiting for media to be inserted...";

    explicit FlashWriter(VolumeMonitor& monitor, QObject* parent = nullptr);
    ~FlashWriter() override;

    // Builds the volume lists and starts observing the monitor and the bus.
    void awakeFromNib();
    void setController(MyController* controller) { controller_ = controller; }

    // The pop-up: titles are the volumes' last path components; index i of the
    // pop-up is index i of mountedVolumes().
    QStringList popupTitles() const;
    QStringList mountedVolumes() const { return mMountedVolumes; }
    QStringList allMountedVolumes() const { return mAllMountedVolumes; }
    int selectedIndex() const { return selected_; }
    void selectVolume(int index);
    // The selected volume, item 0 when none is selected; "" when there is none.
    QString selectedVolume() const;
    // showSelectedDriveStatus: the status line, and whether OK and Eject are enabled.
    QString driveStatusText() const;
    bool canWrite() const { return !mMountedVolumes.isEmpty(); }
    static QString statusTextFor(const VolumeSpace& space);

    // Why a file cannot go into a folder on a player, "" when it can: FAT holds
    // no file over 4 GB, and a copy that does not fit in the room left (with
    // what replacing a file frees) stops before the player is full.
    struct Refusal {
        QString message;
        bool playerFull = false;
    };
    static Refusal playerRefusal(const QString& source, const QString& folder, qint64 freed = 0);

    // The options as stored (every key present; absent ones 0).
    static QVariantMap flashPanelSettings();
    static void storeFlashPanelSettings(const QVariantMap& settings);
    // LAME's and the Ogg encoder's arguments for re-encoding smaller.
    static QStringList getMP3Params(const QVariantMap& settings);
    static QStringList getOGGParams(const QVariantMap& settings);

    // The Music tab's path.
    void vlV20CopyToFlashSetupNotification(const QVariantMap& selection);
    void writeToFlashV20();
    void writeToFlashSetupPanelDidEndV20(int returnCode);
    // The save request handed to the Music tab for a volume and options.
    static QVariantMap copyRequest(const QVariantMap& selection, const QString& volume, const QVariantMap& settings);
    // The worker's body: erases when asked, then posts VLCopyToFlashV20Notification.
    void HandleWriteToFlashV20Thread(QVariantMap request);

    // The playlist stores' path.
    void writeToFlash() override;
    void writeToFlashSetupPanelDidEnd(int returnCode);
    void HandleWriteToFlashThread(const QVariantMap& request);
    FlashItemCopy copyOneItemToFlash(const QString& source, const QString& folder) override;

    // The options the copies in hand follow (what OK took from the sheet).
    void setSettings(const QVariantMap& settings);
    QVariantMap settings() const { return mFlashPanelSettings; }

    // The setup sheet's buttons: OK stores the options and ends the sheet with 1.
    void writeToFlashSetupPanelOK(const QVariantMap& settings);
    void writeToFlashSetupPanelCancel();
    void writeToFlashSetupPanelEject();
    // Unmounts and powers off the player at mountPoint as a job; alert tells of a failure.
    void ejectVolume(const QString& mountPoint);
    // Which path the sheet serves while it is up.
    enum class Path { None, V20, Playlist };
    Path sheetPath() const { return path_; }

    // Erases a player (as a job of the job list) and waits; false when it failed
    // or was cancelled. *volumePath follows the volume if it comes back elsewhere.
    bool formatThisDisk(QString* volumePath);
    void erasingMediaPanelCancel();
    bool userDidCancelErase() const { return mUserDidCancelErase; }

    // Waits for the workers started by the sheets (erasing, handing over, ejecting).
    void waitForWorkers();
    bool isBusy() const { return workers_.activeThreadCount() > 0; }

signals:
    void volumesChanged();
    void setupSheetRequested();
    void setupSheetClosed();
    void erasingStarted(const QString& volumePath);
    void erasingEnded();
    // Something the user should read (a failed erase or eject).
    void alert(const QString& title, const QString& text);

private:
    void workspaceMountObserver(const RemovableVolume& volume);
    // The copying threads ask whether a folder is still on a mounted player.
    bool isOnMountedPlayer(const QString& path) const;
    void publishVolumes();
    void workspaceUnmountObserver(const QString& mountPoint);
    void beginSheet(Path path);
    void closeSheet();
    void setIgnoreInsert(bool ignore);
    QString lamePath() const;

    VolumeMonitor& monitor_;
    MyController* controller_ = nullptr;
    QStringList mAllMountedVolumes;
    QStringList mMountedVolumes;
    int selected_ = -1;
    Path path_ = Path::None;
    QVariantMap v20Selection_;
    QVariantMap mFlashPanelSettings;
    std::atomic<bool> mUserDidCancelErase{false};
    mutable std::mutex mutex_;
    QString lamePath_;
    ChildProcess* mErasingMediaTask = nullptr;  // guarded by mutex_
    mutable std::mutex volumesMutex_;
    QStringList playerPaths_;  // mMountedVolumes for other threads, guarded by volumesMutex_
    QThreadPool workers_;
};

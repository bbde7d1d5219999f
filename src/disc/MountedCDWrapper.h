#pragma once
#include "disc/CdDrives.h"
#include "disc/DiscTable.h"
#include "disc/FreeDBWrapper.h"

#include <QFutureWatcher>
#include <QObject>
#include <QSet>
#include <QVariantMap>

#include <memory>
#include <mutex>

class Job;

// The "notificationtype" values of VLMountedCDWrapperNotification.
inline constexpr char VLMountCDType[] = "VLMountCDType";
inline constexpr char VLUnmountCDType[] = "VLUnmountCDType";
inline constexpr char VLHaveAlbumsInfoType[] = "VLHaveAlbumsInfoType";
inline constexpr char VLHaveCDInfoType[] = "VLHaveCDInfoType";

struct CdWatcherOptions {
    QString folder;      // where the disc folders go; the working folder when empty
    bool lookUp = true;  // give each disc a FreeDB client and ask it
    FreeDBOptions freedb;
};

// The audio-CD watcher: knows the audio CDs in the drives and the disc images
// the user opened. Each disc becomes a folder of track files in the working
// folder (its "cdpath") and a disc description {"cdpath", "freedbtitle",
// "discid", "freedbwrapper", and, as FreeDB answers, "mFreeDBAlbumList" and
// "mFreeDBTrackList"}. Every change is announced with VLMountedCDWrapperNotification.
// Drives are read on worker threads and images in jobs; the descriptions are
// kept and announced on the thread the watcher lives in.
class mounted_cd_wrapper : public QObject, public FreeDBReplyTarget {
    Q_OBJECT
public:
    using Options = CdWatcherOptions;

    explicit mounted_cd_wrapper(std::unique_ptr<CdDriveAdapter> drives, Options options = {},
                                QObject* parent = nullptr);
    ~mounted_cd_wrapper() override;

    // Registers for the launch notice, which starts findMountedAudioCDs().
    void awakeFromNib();
    // Reads every drive (discs found are added without a notice), then follows
    // the drives' media changes with mount and unmount notices.
    void findMountedAudioCDs();
    // Reads a cue sheet and its BIN as a disc, or the disc in one drive; the
    // mount notice follows once it is ready (imageOpened or openFailed then).
    std::shared_ptr<Job> openImage(const QString& cuePath);
    std::shared_ptr<Job> openDrive(const QString& device);
    // An image is closed; a drive is asked to eject its disc.
    void eject(const QString& cdpath);

    void reply(const QString& name, const QVariant& object) override;

    QVariantList descriptions() const;
    QVariantMap description(const QString& cdpath) const;
    FreeDBWrapper* freeDBWrapper(const QString& cdpath) const;
    // The table of a disc and what cd-paranoia reads it from.
    std::optional<DiscTable> table(const QString& cdpath) const;
    QString sourceOf(const QString& cdpath) const;
    bool isDiscFolder(const QString& path) const;
    CdDriveAdapter& drives() { return *drives_; }

signals:
    void discsChanged();
    void opened(const QString& source, const QString& cdpath);
    void openFailed(const QString& source, const QString& message);
    // A reading of the drives has been taken in.
    void drivesScanned();

private:
    // A disc read and laid out as a folder, waiting to be taken into the list.
    struct PreparedDisc {
        QString cdpath;
        QString source;  // the drive, or the cue sheet the user opened
        DiscSource kind = DiscSource::Drive;
        DiscTable table;
        QByteArray toc;
        bool foundByScan = false;  // a drive the readings of all drives watch
    };
    struct DriveReading {
        QString device;
        std::optional<DiscTable> table;
        QByteArray toc;  // empty: no audio disc
    };
    struct Disc {
        QVariantMap description;
        PreparedDisc prepared;
        FreeDBWrapper* wrapper = nullptr;
    };

    std::shared_ptr<Job> open(const QString& source, DiscSource kind);
    static std::optional<PreparedDisc> prepareImage(const QString& cuePath, const QString& folder, QString* error);
    static std::optional<PreparedDisc> prepareDisc(const QString& device, DiscTable table, const QString& folder,
                                                   QString* error);
    void scanDrives();
    void takeScan();
    void mount(const PreparedDisc& disc, bool notify);
    void unmount(qsizetype index);
    void askFreeDB(FreeDBWrapper* wrapper, const QString& query);
    void vlHaveAlbumsInfoReply(const QVariantList& albums);
    void vlHaveCDInfoReply(const QVariantList& info);
    qsizetype indexOf(const QString& cdpath) const;
    bool isOpen(const QString& source) const;
    void post(const char* type, const QVariantMap& object);
    void keepPending(const QString& folder);
    bool takePending(const QString& folder);

    std::unique_ptr<CdDriveAdapter> drives_;
    Options options_;
    QString folder_;
    QList<Disc> discs_;
    QFutureWatcher<QList<DriveReading>> scan_;
    bool scanning_ = false;
    bool scanQuietly_ = false;
    bool rescan_ = false;
    bool watching_ = false;
    QSet<QString> opening_;  // sources of jobs still running
    QList<std::shared_ptr<Job>> jobs_;
    QList<QFuture<void>> ejects_;
    std::mutex pendingMutex_;
    QSet<QString> pending_;  // folders made on worker threads, not yet mounted
};

#pragma once
#include <QDBusConnection>
#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

class ChildProcess;

// One mounted volume of a removable drive.
struct RemovableVolume {
    QString mountPoint;
    QString device;       // the block device (or image) it is mounted from
    QString fileSystem;   // as the system names it: "vfat", "msdos", "ext4", ...
    QString label;
    QString blockObject;  // UDisks2 object paths; "" when UDisks2 is not running
    QString driveObject;

    // The file system's kind as flash players are told apart: "msdos" for every FAT.
    QString kind() const;
    bool operator==(const RemovableVolume& other) const = default;
};

// Free and total space of the file system holding a path; -1 when unknown.
struct VolumeSpace {
    qint64 freeBytes = -1;
    qint64 totalBytes = -1;
};

// The removable volumes that are mounted, kept up to date. UDisks2 over the
// system bus when it runs, else /proc/self/mountinfo read once a second and
// /sys/block for "removable". Tests point it elsewhere through the environment:
// VELMORA_UDISKS2_BUS (the address of a bus holding a UDisks2 service),
// VELMORA_MOUNTINFO and VELMORA_SYS_BLOCK.
class VolumeMonitor : public QObject {
    Q_OBJECT
public:
    explicit VolumeMonitor(QObject* parent = nullptr);
    ~VolumeMonitor() override;

    bool usesUDisks2() const { return udisks_; }
    // In the order they were mounted (as first seen). Safe from any thread.
    QList<RemovableVolume> volumes() const;
    std::optional<RemovableVolume> volumeAt(const QString& mountPoint) const;
    // Reads the list again now, telling of what came and went.
    void rescan();

    static VolumeSpace space(const QString& path);
    static QString kindOf(const QString& fileSystem);

    // Blocking; for worker threads. Each returns "" on success, else what went wrong.
    // Erases the volume as a FAT file system named label and mounts it again;
    // *mountPoint is where it is mounted afterwards. `running` is told of the
    // child process of the fallback (to stop it).
    QString format(const RemovableVolume& volume, const QString& label, QString* mountPoint,
                   const std::function<void(ChildProcess*)>& running = {}) const;
    // Unmounts the volume and powers its drive off, so it can be pulled out.
    QString unmountAndPowerOff(const RemovableVolume& volume) const;

signals:
    void volumeMounted(const RemovableVolume& volume);
    void volumeUnmounted(const QString& mountPoint);

private slots:
    void udisksChanged();

private:
    QList<RemovableVolume> readUDisks2() const;
    QList<RemovableVolume> readMountInfo() const;
    QString callUDisks2(const QString& object, const QString& interface, const QString& method,
                        const QVariantList& arguments, QVariant* answer = nullptr) const;

    bool udisks_ = false;
    std::unique_ptr<QDBusConnection> bus_;
    QString connectionName_;
    mutable std::mutex mutex_;
    QList<RemovableVolume> volumes_;  // guarded by mutex_
    QTimer poll_;
};

Q_DECLARE_METATYPE(RemovableVolume)

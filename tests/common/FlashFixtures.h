#pragma once
// Flash players for tests: a UDisks2 service of our own on a private D-Bus bus,
// whose volumes are folders (mounted players to copy onto) or FAT images made
// with mkfs.vfat (players to erase, read back with mtools).
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QThread>

#include <functional>
#include <memory>

namespace flashfixtures {

struct Device {
    QString name;               // the block device's name: "sdb1"
    QString fileSystem = "vfat";
    QString label;
    QString mountPoint;         // "" while it is not mounted
    QString image;              // a FAT image standing for the device, if any
    bool removable = true;
};

inline Device device(const QString& name, const QString& fileSystem, const QString& label, const QString& mountPoint,
                     const QString& image = {}, bool removable = true)
{
    return {name, fileSystem, label, mountPoint, image, removable};
}

class FakeService;

// Starts dbus-daemon, puts the service on it in a thread of its own, and points
// VELMORA_UDISKS2_BUS at it for as long as it lives.
class FakeUDisks2 {
public:
    FakeUDisks2();
    ~FakeUDisks2();
    bool isRunning() const;

    // Adding and removing devices and mounting them sends the signals UDisks2 sends.
    void add(const Device& device);
    void mount(const QString& name, const QString& mountPoint);
    void unmount(const QString& name);
    // A method that answers with this error from now on ("Format", "PowerOff", ...).
    void failMethod(const QString& method, const QString& message);
    // Every method called on a device, as "Method object-path argument...".
    QStringList calls() const;
    static QString blockPath(const QString& name);
    static QString drivePath(const QString& name);

private:
    QProcess daemon_;
    QThread thread_;
    FakeService* service_ = nullptr;
    QString connectionName_;
};

// A FAT image of `megabytes` made with mkfs.vfat; "" when that failed.
QString makeFatImage(const QString& path, int megabytes, const QString& label);
// The label of a FAT image as mtools reads it.
QString fatLabel(const QString& image);

// Runs the event loop until `done` holds or the time runs out.
bool waitUntil(const std::function<bool()>& done, int timeoutMs = 5000);

} // namespace flashfixtures

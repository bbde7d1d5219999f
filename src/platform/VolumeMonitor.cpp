#include "platform/VolumeMonitor.h"

#include "platform/ChildProcess.h"
#include "platform/ResourceLocator.h"

#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <atomic>
#include <sys/statvfs.h>

namespace {

using Interfaces = QMap<QString, QVariantMap>;
using ManagedObjects = QMap<QDBusObjectPath, Interfaces>;

const QString kService = QStringLiteral("org.freedesktop.UDisks2");
const QString kRoot = QStringLiteral("/org/freedesktop/UDisks2");
const QString kBlock = QStringLiteral("org.freedesktop.UDisks2.Block");
const QString kFilesystem = QStringLiteral("org.freedesktop.UDisks2.Filesystem");
const QString kDrive = QStringLiteral("org.freedesktop.UDisks2.Drive");
// Erasing a large player takes a while; the bus's default of 25 seconds is too short.
constexpr int kFormatTimeoutMs = 10 * 60 * 1000;
constexpr int kToolTimeoutMs = 10 * 60 * 1000;

QString envOr(const char* name, const QString& fallback)
{
    const QString value = qEnvironmentVariable(name);
    return value.isEmpty() ? fallback : value;
}

// "aay" values (mount points, device names) hold NUL-terminated byte strings.
QList<QByteArray> byteStrings(const QVariant& value)
{
    QList<QByteArray> list;
    if (value.canConvert<QDBusArgument>())
        value.value<QDBusArgument>() >> list;
    else if (value.typeId() == QMetaType::QByteArray)
        list << value.toByteArray();
    for (QByteArray& bytes : list) {
        if (bytes.endsWith('\0'))
            bytes.chop(1);
    }
    return list;
}

QString objectPath(const QVariant& value)
{
    return value.value<QDBusObjectPath>().path();
}

// mountinfo writes blanks, tabs, newlines and backslashes as \ooo.
QString unescapeMountField(const QByteArray& field)
{
    QByteArray out;
    for (qsizetype i = 0; i < field.size(); ++i) {
        if (field.at(i) == '\\' && i + 3 < field.size()) {
            bool ok = false;
            const int code = field.mid(i + 1, 3).toInt(&ok, 8);
            if (ok) {
                out += char(code);
                i += 3;
                continue;
            }
        }
        out += field.at(i);
    }
    return QFile::decodeName(out);
}

struct MountEntry {
    QString mountPoint;
    QString fileSystem;
    QString source;
};

QList<MountEntry> readMountEntries(const QString& file)
{
    QList<MountEntry> entries;
    QFile info(file);
    if (!info.open(QIODevice::ReadOnly))
        return entries;
    for (const QByteArray& line : info.readAll().split('\n')) {
        const QList<QByteArray> fields = line.split(' ');
        const qsizetype separator = fields.indexOf("-");
        // id, parent, device, root, mount point, options, optional fields, "-", type, source.
        if (fields.size() < 10 || separator < 6 || separator + 2 >= fields.size())
            continue;
        entries.push_back({unescapeMountField(fields.at(4)), QString::fromUtf8(fields.at(separator + 1)),
                           unescapeMountField(fields.at(separator + 2))});
    }
    return entries;
}

// Whether the disk holding a device says it is removable, in the /sys/block layout:
// sysBlock/DISK/removable, the partition as sysBlock/DISK/PARTITION.
bool isRemovableDevice(const QString& device, const QString& sysBlock)
{
    const QString name = QFileInfo(device).fileName();
    if (name.isEmpty())
        return false;
    for (const QString& disk : QDir(sysBlock).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        if (disk != name && !QFileInfo::exists(sysBlock + '/' + disk + '/' + name))
            continue;
        QFile removable(sysBlock + '/' + disk + QStringLiteral("/removable"));
        return removable.open(QIODevice::ReadOnly) && removable.readAll().trimmed() == "1";
    }
    return false;
}

QString systemTool(const QString& name)
{
    const QString found = ResourceLocator::pathForTool(name);
    return found.isEmpty() ? QStandardPaths::findExecutable(name, {"/usr/sbin", "/sbin", "/usr/bin", "/bin"})
                           : found;
}

QString runTool(const QString& name, const QStringList& arguments,
                const std::function<void(ChildProcess*)>& running = {})
{
    const QString program = systemTool(name);
    if (program.isEmpty())
        return QStringLiteral("%1 is not installed.").arg(name);
    ChildProcess child(program, arguments);
    child.setTimeLimit(kToolTimeoutMs);
    if (!child.start())
        return QStringLiteral("%1 could not be started.").arg(name);
    if (running)
        running(&child);
    const int code = child.waitForExit();
    if (running)
        running(nullptr);
    if (child.wasTerminated())
        return QStringLiteral("%1 was stopped.").arg(name);
    return code == 0 ? QString() : QStringLiteral("%1 failed (exit code %2).").arg(name).arg(code);
}

} // namespace

QString RemovableVolume::kind() const
{
    return VolumeMonitor::kindOf(fileSystem);
}

QString VolumeMonitor::kindOf(const QString& fileSystem)
{
    static const QStringList fat = {"vfat", "msdos", "fat", "umsdos"};
    return fat.contains(fileSystem.toLower()) ? QStringLiteral("msdos") : fileSystem.toLower();
}

VolumeSpace VolumeMonitor::space(const QString& path)
{
    struct statvfs info {};
    if (::statvfs(QFile::encodeName(path).constData(), &info) != 0)
        return {};
    return {qint64(info.f_bavail) * qint64(info.f_frsize), qint64(info.f_blocks) * qint64(info.f_frsize)};
}

VolumeMonitor::VolumeMonitor(QObject* parent) : QObject(parent)
{
    qRegisterMetaType<RemovableVolume>();
    qDBusRegisterMetaType<QList<QByteArray>>();
    qDBusRegisterMetaType<Interfaces>();
    qDBusRegisterMetaType<ManagedObjects>();
    static std::atomic<int> connections{0};
    connectionName_ = QStringLiteral("velmora-volumes-%1").arg(++connections);
    const QString address = qEnvironmentVariable("VELMORA_UDISKS2_BUS");
    bus_ = std::make_unique<QDBusConnection>(address.isEmpty()
                                                 ? QDBusConnection::connectToBus(QDBusConnection::SystemBus, connectionName_)
                                                 : QDBusConnection::connectToBus(address, connectionName_));
    // A private bus is given for tests and holds no other udisks; the system bus
    // only counts when the service is there.
    udisks_ = bus_->isConnected() && bus_->interface() && bus_->interface()->isServiceRegistered(kService).value();
    if (udisks_) {
        bus_->connect(kService, kRoot, QStringLiteral("org.freedesktop.DBus.ObjectManager"),
                      QStringLiteral("InterfacesAdded"), this, SLOT(udisksChanged()));
        bus_->connect(kService, kRoot, QStringLiteral("org.freedesktop.DBus.ObjectManager"),
                      QStringLiteral("InterfacesRemoved"), this, SLOT(udisksChanged()));
        bus_->connect(kService, QString(), QStringLiteral("org.freedesktop.DBus.Properties"),
                      QStringLiteral("PropertiesChanged"), this, SLOT(udisksChanged()));
    } else {
        bus_.reset();
        QDBusConnection::disconnectFromBus(connectionName_);
        connect(&poll_, &QTimer::timeout, this, &VolumeMonitor::rescan);
        poll_.start(1000);
    }
    volumes_ = udisks_ ? readUDisks2() : readMountInfo();
}

VolumeMonitor::~VolumeMonitor()
{
    if (bus_) {
        bus_.reset();
        QDBusConnection::disconnectFromBus(connectionName_);
    }
}

QList<RemovableVolume> VolumeMonitor::volumes() const
{
    std::lock_guard lock(mutex_);
    return volumes_;
}

std::optional<RemovableVolume> VolumeMonitor::volumeAt(const QString& mountPoint) const
{
    for (const RemovableVolume& volume : volumes()) {
        if (volume.mountPoint == mountPoint)
            return volume;
    }
    return std::nullopt;
}

void VolumeMonitor::udisksChanged()
{
    rescan();
}

void VolumeMonitor::rescan()
{
    const QList<RemovableVolume> now = udisks_ ? readUDisks2() : readMountInfo();
    QList<RemovableVolume> kept;
    QStringList gone;
    for (const RemovableVolume& old : volumes()) {
        const auto same = std::find_if(now.cbegin(), now.cend(),
                                       [&](const RemovableVolume& v) { return v.mountPoint == old.mountPoint; });
        if (same == now.cend())
            gone << old.mountPoint;
        else
            kept << *same;
    }
    QList<RemovableVolume> added;
    for (const RemovableVolume& volume : now) {
        if (!std::any_of(kept.cbegin(), kept.cend(),
                         [&](const RemovableVolume& v) { return v.mountPoint == volume.mountPoint; }))
            added << volume;
    }
    {
        std::lock_guard lock(mutex_);
        volumes_ = kept + added;
    }
    for (const QString& mountPoint : gone)
        emit volumeUnmounted(mountPoint);
    for (const RemovableVolume& volume : added)
        emit volumeMounted(volume);
}

QList<RemovableVolume> VolumeMonitor::readUDisks2() const
{
    QList<RemovableVolume> found;
    QDBusMessage call = QDBusMessage::createMethodCall(kService, kRoot, QStringLiteral("org.freedesktop.DBus.ObjectManager"),
                                                       QStringLiteral("GetManagedObjects"));
    const QDBusMessage reply = bus_->call(call);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return found;
    const ManagedObjects objects = qdbus_cast<ManagedObjects>(reply.arguments().constFirst());
    for (auto object = objects.cbegin(); object != objects.cend(); ++object) {
        const Interfaces& interfaces = object.value();
        if (!interfaces.contains(kBlock) || !interfaces.contains(kFilesystem))
            continue;
        const QVariantMap block = interfaces.value(kBlock);
        const QList<QByteArray> mountPoints = byteStrings(interfaces.value(kFilesystem).value("MountPoints"));
        if (mountPoints.isEmpty() || block.value("HintIgnore").toBool())
            continue;
        const QString drivePath = objectPath(block.value("Drive"));
        const QVariantMap drive = objects.value(QDBusObjectPath(drivePath.isEmpty() ? "/" : drivePath)).value(kDrive);
        if (!drive.value("Removable").toBool() && !drive.value("MediaRemovable").toBool())
            continue;
        const QList<QByteArray> device = byteStrings(block.value("PreferredDevice"));
        found.push_back({QFile::decodeName(mountPoints.constFirst()),
                         device.isEmpty() ? QString() : QFile::decodeName(device.constFirst()),
                         block.value("IdType").toString(), block.value("IdLabel").toString(), object.key().path(),
                         drivePath});
    }
    return found;
}

QList<RemovableVolume> VolumeMonitor::readMountInfo() const
{
    const QString sysBlock = envOr("VELMORA_SYS_BLOCK", QStringLiteral("/sys/block"));
    QList<RemovableVolume> found;
    for (const MountEntry& entry : readMountEntries(envOr("VELMORA_MOUNTINFO", QStringLiteral("/proc/self/mountinfo")))) {
        if (!isRemovableDevice(entry.source, sysBlock))
            continue;
        found.push_back({entry.mountPoint, entry.source, entry.fileSystem, QFileInfo(entry.mountPoint).fileName(), {}, {}});
    }
    return found;
}

QString VolumeMonitor::callUDisks2(const QString& object, const QString& interface, const QString& method,
                                   const QVariantList& arguments, QVariant* answer) const
{
    QDBusMessage call = QDBusMessage::createMethodCall(kService, object, interface, method);
    call.setArguments(arguments);
    const QDBusMessage reply = bus_->call(call, QDBus::Block, kFormatTimeoutMs);
    if (reply.type() == QDBusMessage::ErrorMessage)
        return reply.errorMessage().isEmpty() ? reply.errorName() : reply.errorMessage();
    if (answer && !reply.arguments().isEmpty())
        *answer = reply.arguments().constFirst();
    return {};
}

QString VolumeMonitor::format(const RemovableVolume& volume, const QString& label, QString* mountPoint,
                              const std::function<void(ChildProcess*)>& running) const
{
    if (udisks_ && !volume.blockObject.isEmpty()) {
        const QVariantMap none;
        if (QString error = callUDisks2(volume.blockObject, kFilesystem, "Unmount", {none}); !error.isEmpty())
            return QStringLiteral("The player could not be unmounted: %1").arg(error);
        if (QString error = callUDisks2(volume.blockObject, kBlock, "Format",
                                        {QStringLiteral("vfat"), QVariantMap{{"label", label}}});
            !error.isEmpty()) {
            // Left as it was, and mounted again so its music can still be used.
            callUDisks2(volume.blockObject, kFilesystem, "Mount", {none});
            return QStringLiteral("The player could not be erased: %1").arg(error);
        }
        QVariant mounted;
        if (QString error = callUDisks2(volume.blockObject, kFilesystem, "Mount", {none}, &mounted); !error.isEmpty())
            return QStringLiteral("The player was erased but could not be mounted again: %1").arg(error);
        if (mountPoint)
            *mountPoint = mounted.toString();
        return {};
    }
    // Without UDisks2: mkfs.vfat on the device while nothing has it mounted.
    const auto mounted = [&] {
        const auto entries = readMountEntries(QStringLiteral("/proc/self/mountinfo"));
        return std::any_of(entries.cbegin(), entries.cend(),
                           [&](const MountEntry& entry) { return entry.mountPoint == volume.mountPoint; });
    };
    const bool wasMounted = mounted();
    if (wasMounted) {
        if (QString error = runTool("umount", {"--", volume.mountPoint}); !error.isEmpty())
            return QStringLiteral("The player could not be unmounted: %1").arg(error);
    }
    if (QString error = runTool("mkfs.vfat", {"-n", label, "--", volume.device}, running); !error.isEmpty())
        return QStringLiteral("The player could not be erased: %1").arg(error);
    if (wasMounted) {
        if (QString error = runTool("mount", {"--", volume.device, volume.mountPoint}); !error.isEmpty())
            return QStringLiteral("The player was erased but could not be mounted again: %1").arg(error);
    }
    if (mountPoint)
        *mountPoint = volume.mountPoint;
    return {};
}

QString VolumeMonitor::unmountAndPowerOff(const RemovableVolume& volume) const
{
    if (udisks_ && !volume.blockObject.isEmpty()) {
        if (QString error = callUDisks2(volume.blockObject, kFilesystem, "Unmount", {QVariantMap()}); !error.isEmpty())
            return QStringLiteral("The player could not be unmounted: %1").arg(error);
        if (volume.driveObject.isEmpty())
            return {};
        if (QString error = callUDisks2(volume.driveObject, kDrive, "PowerOff", {QVariantMap()}); !error.isEmpty())
            return QStringLiteral("The player was unmounted but could not be powered off: %1").arg(error);
        return {};
    }
    if (QString error = runTool("umount", {"--", volume.mountPoint}); !error.isEmpty())
        return QStringLiteral("The player could not be unmounted: %1").arg(error);
    return {};
}

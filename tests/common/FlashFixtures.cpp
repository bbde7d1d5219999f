#include "common/FlashFixtures.h"

#include "common/TestSupport.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>
#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QMutex>
#include <QRegularExpression>
#include <QTest>

namespace flashfixtures {

namespace {

using Interfaces = QMap<QString, QVariantMap>;
using ManagedObjects = QMap<QDBusObjectPath, Interfaces>;

const QString kRoot = QStringLiteral("/org/freedesktop/UDisks2");
const QString kBlock = QStringLiteral("org.freedesktop.UDisks2.Block");
const QString kFilesystem = QStringLiteral("org.freedesktop.UDisks2.Filesystem");
const QString kDrive = QStringLiteral("org.freedesktop.UDisks2.Drive");

QByteArray nulTerminated(const QString& text)
{
    QByteArray bytes = QFile::encodeName(text);
    bytes.append('\0');
    return bytes;
}

} // namespace

// Answers the calls Velmora makes of UDisks2 from the devices it was given.
class FakeService : public QDBusVirtualObject {
public:
    explicit FakeService(QDBusConnection connection) : connection_(std::move(connection)) {}

    QString introspect(const QString&) const override { return {}; }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection&) override
    {
        QMutexLocker lock(&mutex_);
        const QString method = message.member();
        if (method == QLatin1String("GetManagedObjects")) {
            connection_.send(message.createReply(QVariant::fromValue(objects())));
            return true;
        }
        const QString name = message.path().section('/', -1);
        QStringList record{method, message.path()};
        for (const QVariant& argument : message.arguments()) {
            if (argument.canConvert<QDBusArgument>()) {
                const QVariantMap options = qdbus_cast<QVariantMap>(argument);
                for (auto it = options.cbegin(); it != options.cend(); ++it)
                    record << it.key() + '=' + it.value().toString();
            } else {
                record << argument.toString();
            }
        }
        calls_ << record.join(' ');
        if (failures_.contains(method)) {
            connection_.send(message.createErrorReply(QStringLiteral("org.freedesktop.UDisks2.Error.Failed"),
                                                      failures_.value(method)));
            return true;
        }
        auto device = std::find_if(devices_.begin(), devices_.end(), [&](const Device& d) { return d.name == name; });
        if (device == devices_.end()) {
            connection_.send(message.createErrorReply(QStringLiteral("org.freedesktop.DBus.Error.UnknownObject"),
                                                      message.path()));
            return true;
        }
        QVariant answer;
        if (method == QLatin1String("Unmount")) {
            lastMountPoint_[device->name] = device->mountPoint;
            device->mountPoint.clear();
        } else if (method == QLatin1String("Mount")) {
            device->mountPoint = lastMountPoint_.value(device->name);
            answer = device->mountPoint;
        } else if (method == QLatin1String("Format")) {
            const QString label = qdbus_cast<QVariantMap>(message.arguments().value(1)).value("label").toString();
            device->label = label;
            if (!device->image.isEmpty()) {
                testsupport::run("mkfs.vfat", {"-n", label, device->image});
            } else {
                // A folder standing for a player is erased by emptying it.
                QDir(lastMountPoint_.value(device->name)).removeRecursively();
                QDir().mkpath(lastMountPoint_.value(device->name));
            }
        }
        connection_.send(answer.isValid() ? message.createReply(answer) : message.createReply());
        if (method == QLatin1String("Unmount") || method == QLatin1String("Mount"))
            mountPointsChanged(*device);
        return true;
    }

    void add(const Device& device)
    {
        QMutexLocker lock(&mutex_);
        devices_ << device;
        QDBusMessage signal = QDBusMessage::createSignal(kRoot, "org.freedesktop.DBus.ObjectManager", "InterfacesAdded");
        signal << QVariant::fromValue(QDBusObjectPath(FakeUDisks2::blockPath(device.name)))
               << QVariant::fromValue(objects().value(QDBusObjectPath(FakeUDisks2::blockPath(device.name))));
        connection_.send(signal);
    }
    void setMountPoint(const QString& name, const QString& mountPoint)
    {
        QMutexLocker lock(&mutex_);
        for (Device& device : devices_) {
            if (device.name == name) {
                device.mountPoint = mountPoint;
                mountPointsChanged(device);
            }
        }
    }
    void fail(const QString& method, const QString& text)
    {
        QMutexLocker lock(&mutex_);
        failures_.insert(method, text);
    }
    QStringList calls() const
    {
        QMutexLocker lock(&mutex_);
        return calls_;
    }

private:
    ManagedObjects objects() const
    {
        ManagedObjects all;
        for (const Device& device : devices_) {
            QList<QByteArray> mountPoints;
            if (!device.mountPoint.isEmpty())
                mountPoints << nulTerminated(device.mountPoint);
            const QString drive = FakeUDisks2::drivePath(device.name);
            all.insert(QDBusObjectPath(FakeUDisks2::blockPath(device.name)),
                       {{kBlock,
                         {{"IdType", device.fileSystem},
                          {"IdLabel", device.label},
                          {"HintIgnore", false},
                          {"PreferredDevice", QVariant::fromValue(nulTerminated("/dev/" + device.name))},
                          {"Drive", QVariant::fromValue(QDBusObjectPath(drive))}}},
                        {kFilesystem, {{"MountPoints", QVariant::fromValue(mountPoints)}}}});
            all.insert(QDBusObjectPath(drive), {{kDrive, {{"Removable", device.removable}, {"MediaRemovable", false}}}});
        }
        return all;
    }
    void mountPointsChanged(const Device& device)
    {
        QList<QByteArray> mountPoints;
        if (!device.mountPoint.isEmpty())
            mountPoints << nulTerminated(device.mountPoint);
        QDBusMessage signal = QDBusMessage::createSignal(FakeUDisks2::blockPath(device.name),
                                                         "org.freedesktop.DBus.Properties", "PropertiesChanged");
        signal << kFilesystem << QVariantMap{{"MountPoints", QVariant::fromValue(mountPoints)}} << QStringList();
        connection_.send(signal);
    }

    QDBusConnection connection_;
    mutable QMutex mutex_;
    QList<Device> devices_;
    QHash<QString, QString> lastMountPoint_;
    QHash<QString, QString> failures_;
    QStringList calls_;
};

FakeUDisks2::FakeUDisks2()
{
    qDBusRegisterMetaType<QList<QByteArray>>();
    qDBusRegisterMetaType<Interfaces>();
    qDBusRegisterMetaType<ManagedObjects>();
    daemon_.start("dbus-daemon", {"--session", "--print-address", "--nofork", "--nopidfile"});
    if (!daemon_.waitForReadyRead(10000))
        return;
    const QString address = QString::fromUtf8(daemon_.readLine()).trimmed();
    static int made = 0;
    connectionName_ = QStringLiteral("fake-udisks2-%1").arg(++made);
    QDBusConnection connection = QDBusConnection::connectToBus(address, connectionName_);
    if (!connection.isConnected() || !connection.registerService("org.freedesktop.UDisks2"))
        return;
    service_ = new FakeService(connection);
    connection.registerVirtualObject(kRoot, service_, QDBusConnection::SubPath);
    // The code under test calls from the main thread and waits: the service answers from its own.
    thread_.start();
    service_->moveToThread(&thread_);
    qputenv("VELMORA_UDISKS2_BUS", address.toUtf8());
}

FakeUDisks2::~FakeUDisks2()
{
    qunsetenv("VELMORA_UDISKS2_BUS");
    if (service_) {
        QDBusConnection(connectionName_).unregisterObject(kRoot, QDBusConnection::UnregisterTree);
        QMetaObject::invokeMethod(service_, [service = service_] { delete service; }, Qt::BlockingQueuedConnection);
    }
    thread_.quit();
    thread_.wait();
    if (!connectionName_.isEmpty())
        QDBusConnection::disconnectFromBus(connectionName_);
    daemon_.terminate();
    daemon_.waitForFinished();
}

bool FakeUDisks2::isRunning() const
{
    return service_ != nullptr;
}

void FakeUDisks2::add(const Device& device)
{
    service_->add(device);
}

void FakeUDisks2::mount(const QString& name, const QString& mountPoint)
{
    service_->setMountPoint(name, mountPoint);
}

void FakeUDisks2::unmount(const QString& name)
{
    service_->setMountPoint(name, QString());
}

void FakeUDisks2::failMethod(const QString& method, const QString& message)
{
    service_->fail(method, message);
}

QStringList FakeUDisks2::calls() const
{
    return service_->calls();
}

QString FakeUDisks2::blockPath(const QString& name)
{
    return kRoot + QStringLiteral("/block_devices/") + name;
}

QString FakeUDisks2::drivePath(const QString& name)
{
    return kRoot + QStringLiteral("/drives/Drive_") + name;
}

QString makeFatImage(const QString& path, int megabytes, const QString& label)
{
    QFile::remove(path);
    // -C makes the image file itself, of the given size in KiB.
    if (testsupport::run("mkfs.vfat", {"-C", "-n", label, path, QString::number(megabytes * 1024)}) != 0)
        return {};
    return path;
}

QString fatLabel(const QString& image)
{
    QByteArray output;
    testsupport::run("mlabel", {"-i", image, "-s", "::"}, &output);
    // "Volume label is NAME" (with trailing blanks), or "Volume has no label".
    static const QRegularExpression labelLine(QStringLiteral("Volume label is (.*)"));
    const auto match = labelLine.match(QString::fromUtf8(output));
    return match.hasMatch() ? match.captured(1).trimmed() : QString();
}

bool waitUntil(const std::function<bool()>& done, int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return true;
}

} // namespace flashfixtures

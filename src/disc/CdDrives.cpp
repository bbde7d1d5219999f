#include "disc/CdDrives.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QFileInfo>

namespace {
const QString kUDisks = QStringLiteral("org.freedesktop.UDisks2");
const QString kUDisksPath = QStringLiteral("/org/freedesktop/UDisks2");
constexpr int kPollMs = 2000;
}  // namespace

bool CdDriveAdapter::isDrive(const QString& device)
{
    const QString real = QFileInfo(device).canonicalFilePath();
    for (const QString& drive : drives()) {
        if (drive == device || (!real.isEmpty() && QFileInfo(drive).canonicalFilePath() == real))
            return true;
    }
    return false;
}

SystemCdDrives::SystemCdDrives(QObject* parent) : CdDriveAdapter(parent)
{
    poll_.setInterval(kPollMs);
    connect(&poll_, &QTimer::timeout, this, &CdDriveAdapter::mediaChanged);
}

QStringList SystemCdDrives::drives()
{
    return libcdioDrives();
}

std::optional<DiscTable> SystemCdDrives::readDisc(const QString& device)
{
    return readDiscTable(device, DiscSource::Drive);
}

bool SystemCdDrives::eject(const QString& device)
{
    return libcdioEject(device);
}

void SystemCdDrives::startMonitoring()
{
    if (usesUDisks_ || poll_.isActive())
        return;
    usesUDisks_ = connectToUDisks();
    if (!usesUDisks_)
        poll_.start();
}

bool SystemCdDrives::connectToUDisks()
{
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected() || !bus.interface())
        return false;
    const auto registered = bus.interface()->isServiceRegistered(kUDisks);
    if (!registered.isValid() || !registered.value())
        return false;
    // A drive's media properties change when a disc comes or goes; drives
    // themselves come and go as objects of the object manager.
    const bool properties = bus.connect(kUDisks, QString(), QStringLiteral("org.freedesktop.DBus.Properties"),
                                        QStringLiteral("PropertiesChanged"), this,
                                        SLOT(udisksPropertiesChanged(QString, QVariantMap, QStringList)));
    const bool added = bus.connect(kUDisks, kUDisksPath, QStringLiteral("org.freedesktop.DBus.ObjectManager"),
                                   QStringLiteral("InterfacesAdded"), this, SLOT(udisksObjectsChanged()));
    const bool removed = bus.connect(kUDisks, kUDisksPath, QStringLiteral("org.freedesktop.DBus.ObjectManager"),
                                     QStringLiteral("InterfacesRemoved"), this, SLOT(udisksObjectsChanged()));
    return properties && added && removed;
}

void SystemCdDrives::udisksPropertiesChanged(const QString& interface, const QVariantMap&, const QStringList&)
{
    if (interface == QLatin1String("org.freedesktop.UDisks2.Drive"))
        emit mediaChanged();
}

void SystemCdDrives::udisksObjectsChanged()
{
    emit mediaChanged();
}

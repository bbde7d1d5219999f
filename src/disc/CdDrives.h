#pragma once
#include "disc/DiscTable.h"

#include <QObject>
#include <QStringList>
#include <QTimer>

#include <optional>

// The machine's CD drives as the audio-CD watcher sees them. Reading may take
// seconds (a disc spinning up), so the watcher calls drives() and readDisc()
// on a worker thread: implementations are thread-safe. mediaChanged() comes
// on the thread the adapter lives in, whenever a disc may have come or gone.
class CdDriveAdapter : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    virtual QStringList drives() = 0;
    // The table of the disc in a drive; empty when there is none or it cannot be read.
    virtual std::optional<DiscTable> readDisc(const QString& device) = 0;
    virtual bool eject(const QString& device) = 0;
    // From now on, report media changes.
    virtual void startMonitoring() = 0;

    // Whether device (or the device a link such as /dev/cdrom leads to) is one of the drives.
    bool isDrive(const QString& device);

signals:
    void mediaChanged();
};

// The real drives, read with libcdio. Media changes come from UDisks2 over the
// system bus when it is there; otherwise the drives are polled every 2 seconds.
class SystemCdDrives : public CdDriveAdapter {
    Q_OBJECT
public:
    explicit SystemCdDrives(QObject* parent = nullptr);

    QStringList drives() override;
    std::optional<DiscTable> readDisc(const QString& device) override;
    bool eject(const QString& device) override;
    void startMonitoring() override;

    // Whether media changes come from UDisks2 rather than the 2-second poll.
    bool usesUDisks() const { return usesUDisks_; }

private slots:
    void udisksPropertiesChanged(const QString& interface, const QVariantMap& changed, const QStringList& invalidated);
    void udisksObjectsChanged();

private:
    bool connectToUDisks();

    QTimer poll_;
    bool usesUDisks_ = false;
};

#pragma once
#include "disc/BurnDrives.h"

#include <mutex>

// The burners libburn finds, and image files through libburn's "stdio:" drives.
// libburn keeps one list of drives for the process, so calls are taken one at a time.
class LibburnDrives : public BurnDrives {
public:
    LibburnDrives();
    ~LibburnDrives() override;

    QList<BurnDriveInfo> drives() override;
    QString writeAudio(Job& job, AudioDiscLayout& layout, const BurnSetup& setup,
                       QList<QByteArray>* digests) override;
    QString writeData(Job& job, burn_source* source, const BurnSetup& setup) override;
    QString erase(Job& job, const QString& drive, bool full) override;
    QString readBackDevice(const QString& drive) override;

    // libburn's message in words a person can act on.
    static QString plainWords(const QString& message);

private:
    bool ready(QString* error);

    std::mutex mutex_;
    bool initialized_ = false;
};

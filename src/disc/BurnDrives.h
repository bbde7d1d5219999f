#pragma once
#include "disc/AudioDiscImage.h"
#include "disc/BurnSetup.h"

#include <QList>
#include <QString>

struct burn_source;
class Job;

// A burner and the medium in it, as the setup sheets show them.
struct BurnDriveInfo {
    QString address;  // what libburn opens: "/dev/sr0", "stdio:/path/file.iso"
    QString name;     // vendor and product
    QString media;    // "blank CD-R", "appendable DVD+RW", "no disc", ...
    bool blank = false;
    bool appendable = false;
    bool rewritable = false;
    bool erasable = false;
    qint64 capacity = 0;  // bytes free for writing
    bool canWriteAudio = false;
};

// The burners of the machine. Each call may take long (a disc spinning up) and
// is made on a job's thread; a call reports progress and reads the job's
// cancel flag. Returned texts are empty on success, else the reason in plain words.
class BurnDrives {
public:
    virtual ~BurnDrives() = default;

    virtual QList<BurnDriveInfo> drives() = 0;
    // digests receives one SHA-1 per track of the audio sent, for reading it back.
    virtual QString writeAudio(Job& job, AudioDiscLayout& layout, const BurnSetup& setup,
                               QList<QByteArray>* digests) = 0;
    // Writes a data track (an ISO image's source, 2048-byte blocks) as one session.
    virtual QString writeData(Job& job, burn_source* source, const BurnSetup& setup) = 0;
    virtual QString erase(Job& job, const QString& drive, bool full) = 0;
    // The device cd-paranoia reads the written disc from; empty when it cannot.
    virtual QString readBackDevice(const QString& drive) = 0;
};

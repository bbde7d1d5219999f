#pragma once
#include <QString>

// What the burn setup sheet decides: where to write and how.
struct BurnSetup {
    QString drive;  // a drive's address; empty when writing an image file
    QString image;  // the image file (.cue for an audio CD, .iso for a data disc)
    int speed = 0;  // times CD speed (DVD speed for DVDs); 0 is the drive's fastest
    bool simulate = false;
    bool ejectAfter = false;
    bool verify = true;  // read an audio CD back and compare it with what was sent

    bool toImage() const { return drive.isEmpty(); }
};

#pragma once
#include <QByteArray>
#include <QString>

#include <functional>

// The sum of the decimal digits of n; 0 for n < 1.
int cddb_sum(long n);

// Whether path names a CD drive: it must begin with "/dev/", and the device name
// after it is cut to its first five characters ("/dev/disk2s0" asks about disk2,
// and "/dev/disk10" about disk1) before isDrive is asked about "/dev/" + that name.
bool isCDDevice(const QString& path, const std::function<bool(const QString& device)>& isDrive);

// Writes the CDDB query string of the disc whose table of contents is toc (the
// bytes DiscTable::toc() makes) into out: the disc ID as 8 hex digits, the track
// count, each track's frame offset and the lead-out in seconds, joined by "+".
// Returns the length of the text.
int cd_discid_main(const QByteArray& toc, QByteArray& out);

#include "disc/DiscTable.h"

#include <QFile>

#include <cdio/cdio.h>
#include <cdio/cdtext.h>
#include <cdio/logging.h>

#include <memory>
#include <mutex>

namespace {

// libcdio keeps global state (its log handler, driver tables); one caller at a time.
std::mutex& libcdioMutex()
{
    static std::mutex mutex;
    return mutex;
}

// Our callers report failures in their own words; libcdio's lines would only
// clutter standard error of the command line.
void quietLog(cdio_log_level_t, const char*)
{
}

void setUpLibcdio()
{
    static std::once_flag once;
    std::call_once(once, [] { cdio_log_set_handler(quietLog); });
}

struct Msf {
    int minute = 0, second = 0, frame = 0;
};

// Addresses count from the start of the lead-in area: 150 frames before sector 0.
Msf msfOf(qint64 sector)
{
    const qint64 frames = qMax<qint64>(0, sector + 150);
    return {int(qMin<qint64>(frames / (60 * 75), 255)), int(frames / 75 % 60), int(frames % 75)};
}

void appendDescriptor(QByteArray& toc, bool data, int point, Msf p)
{
    toc.append(char(1));                   // session
    toc.append(char(data ? 0x14 : 0x10));  // ADR 1; control: data track or two-channel audio
    toc.append(char(0));                   // TNO
    toc.append(char(point));
    toc.append(3, char(0));  // address (minute, second, frame)
    toc.append(char(0));     // zero
    toc.append(char(p.minute));
    toc.append(char(p.second));
    toc.append(char(p.frame));
}

QString cdText(const cdtext_t* text, cdtext_field_t field, track_t track)
{
    const char* value = text ? cdtext_get_const(text, field, track) : nullptr;
    return value ? QString::fromUtf8(value).trimmed() : QString();
}

}  // namespace

bool DiscTable::hasAudio() const
{
    for (const DiscTrack& track : tracks) {
        if (track.audio)
            return true;
    }
    return false;
}

QByteArray DiscTable::toc() const
{
    QByteArray toc;
    const int descriptors = 3 + int(tracks.size());
    const int length = 2 + 11 * descriptors;
    toc.append(char(length >> 8));
    toc.append(char(length & 0xFF));
    toc.append(char(1));  // first and last session
    toc.append(char(1));
    const bool firstIsData = !tracks.isEmpty() && !tracks.first().audio;
    const bool lastIsData = !tracks.isEmpty() && !tracks.last().audio;
    // 0xA0 and 0xA1 carry the first and last track numbers in their P minute.
    appendDescriptor(toc, firstIsData, 0xA0, {tracks.isEmpty() ? 0 : tracks.first().number, 0, 0});
    appendDescriptor(toc, lastIsData, 0xA1, {tracks.isEmpty() ? 0 : tracks.last().number, 0, 0});
    appendDescriptor(toc, lastIsData, 0xA2, msfOf(leadout));
    for (const DiscTrack& track : tracks)
        appendDescriptor(toc, !track.audio, track.number, msfOf(track.firstSector));
    return toc;
}

std::optional<DiscTable> readDiscTable(const QString& source, DiscSource kind, QString* error)
{
    auto fail = [&](const QString& reason) -> std::optional<DiscTable> {
        if (error)
            *error = reason;
        return std::nullopt;
    };
    std::lock_guard lock(libcdioMutex());
    setUpLibcdio();
    const QByteArray path = QFile::encodeName(source);
    std::unique_ptr<CdIo_t, void (*)(CdIo_t*)> cdio(
        cdio_open(path.constData(), kind == DiscSource::Image ? DRIVER_BINCUE : DRIVER_DEVICE), cdio_destroy);
    if (!cdio)
        return fail(kind == DiscSource::Image ? QStringLiteral("the CD reader cannot open %1").arg(source)
                                              : QStringLiteral("%1 cannot be opened as a CD drive").arg(source));
    const track_t first = cdio_get_first_track_num(cdio.get());
    const track_t count = cdio_get_num_tracks(cdio.get());
    if (first == CDIO_INVALID_TRACK || count == CDIO_INVALID_TRACK || count == 0)
        return fail(QStringLiteral("there is no disc in %1").arg(source));
    DiscTable table;
    table.source = source;
    table.leadout = cdio_get_track_lsn(cdio.get(), CDIO_CDROM_LEADOUT_TRACK);
    if (table.leadout == CDIO_INVALID_LSN)
        return fail(QStringLiteral("the table of contents of %1 cannot be read").arg(source));
    // An image's CD-Text comes from our own cue reader, which knows its encoding.
    const cdtext_t* text = kind == DiscSource::Drive ? cdio_get_cdtext(cdio.get()) : nullptr;
    table.title = cdText(text, CDTEXT_FIELD_TITLE, 0);
    table.performer = cdText(text, CDTEXT_FIELD_PERFORMER, 0);
    for (int number = first; number < int(first) + int(count) && number <= 99; ++number) {
        DiscTrack track;
        track.number = number;
        track.firstSector = cdio_get_track_lsn(cdio.get(), track_t(number));
        if (track.firstSector == CDIO_INVALID_LSN)
            return fail(QStringLiteral("the table of contents of %1 cannot be read").arg(source));
        track.audio = cdio_get_track_format(cdio.get(), track_t(number)) == TRACK_FORMAT_AUDIO;
        track.title = cdText(text, CDTEXT_FIELD_TITLE, track_t(number));
        track.performer = cdText(text, CDTEXT_FIELD_PERFORMER, track_t(number));
        table.tracks.append(track);
    }
    for (qsizetype i = 0; i < table.tracks.size(); ++i) {
        const qint64 end = i + 1 < table.tracks.size() ? table.tracks[i + 1].firstSector : table.leadout;
        table.tracks[i].length = qMax<qint64>(0, end - table.tracks[i].firstSector);
    }
    return table;
}

QStringList libcdioDrives()
{
    std::lock_guard lock(libcdioMutex());
    setUpLibcdio();
    QStringList drives;
    char** devices = cdio_get_devices(DRIVER_DEVICE);
    for (char** device = devices; device && *device; ++device)
        drives << QFile::decodeName(*device);
    cdio_free_device_list(devices);
    return drives;
}

bool libcdioEject(const QString& device)
{
    std::lock_guard lock(libcdioMutex());
    setUpLibcdio();
    return cdio_eject_media_drive(QFile::encodeName(device).constData()) == DRIVER_OP_SUCCESS;
}

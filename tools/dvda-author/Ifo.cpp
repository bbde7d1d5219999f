#include "Ifo.h"

#include <algorithm>
#include <cstring>

namespace dvda {
namespace {

constexpr unsigned kVersion = 0x0012;
constexpr std::size_t kSamgTable = 16 * 1024;
constexpr std::size_t kSamgCopies = 8;
constexpr std::size_t kSamgRecord = 52;
constexpr std::size_t kTrackTimeRecord = 20;
constexpr std::size_t kTrackSectorRecord = 12;
constexpr std::size_t kTitleRecordHeader = 16;
constexpr std::size_t kTitleTableHeader = 16;

void putId(std::uint8_t* p, const char* id)
{
    std::memcpy(p, id, 12);
}

std::uint32_t titleLength(const std::vector<TrackPlacement>& tracks)
{
    std::uint32_t total = 0;
    for (const TrackPlacement& t : tracks)
        total += t.lengthPts;
    return total;
}

std::size_t formatIndex(const std::vector<LpcmFormat>& formats, const LpcmFormat& format)
{
    return static_cast<std::size_t>(std::find(formats.begin(), formats.end(), format) - formats.begin());
}

// Sector of ATS_01_0.IFO counted from AUDIO_TS.IFO's first sector.
std::uint32_t titleSetStart(const VolumeLayout& layout)
{
    return 2 * layout.amgSectors + layout.samgSectors;
}

// The manager's list of titles: one audio title of title set 1.
void putTitleList(std::uint8_t* p, const VolumeLayout& layout, const std::vector<TrackPlacement>& tracks)
{
    constexpr std::size_t kEntry = 14;
    put16(p, 1);
    put32(p + 4, static_cast<std::uint32_t>(8 + kEntry - 1));
    std::uint8_t* e = p + 8;
    e[0] = 0x80;  // an audio title
    e[2] = static_cast<std::uint8_t>(tracks.size());
    put32(e + 4, titleLength(tracks));
    e[8] = 1;  // title set
    e[9] = 1;  // title within it
    put32(e + 10, titleSetStart(layout));
}

} // namespace

std::uint32_t atsiSectorsFor(std::size_t tracks)
{
    const std::size_t table =
        kTitleTableHeader + kTitleRecordHeader + tracks * (kTrackTimeRecord + kTrackSectorRecord);
    return static_cast<std::uint32_t>(1 + (table + kSector - 1) / kSector);
}

std::vector<LpcmFormat> distinctFormats(const std::vector<TrackPlacement>& tracks)
{
    std::vector<LpcmFormat> formats;
    for (const TrackPlacement& t : tracks)
        if (std::find(formats.begin(), formats.end(), t.format) == formats.end())
            formats.push_back(t.format);
    return formats;
}

Bytes buildAudioManager(const VolumeLayout& layout, const std::vector<TrackPlacement>& tracks)
{
    Bytes ifo(layout.amgSectors * kSector);
    std::uint8_t* p = ifo.data();
    putId(p, "DVDAUDIO-AMG");
    put32(p + 12, titleSetStart(layout) - 1);  // last sector before the title set
    put32(p + 28, layout.amgSectors - 1);      // last sector of this file
    put16(p + 32, kVersion);
    put16(p + 38, 1);  // volumes
    put16(p + 40, 1);  // this volume
    p[42] = 1;         // side
    p[47] = 1;         // no still pictures
    p[62] = 0;         // video title sets
    p[63] = 1;         // audio title sets
    put32(p + 128, kSector - 1);
    put32(p + 196, 1);  // sector of the list of all titles
    put32(p + 200, 2);  // sector of the list of audio titles
    putTitleList(p + kSector, layout, tracks);
    putTitleList(p + 2 * kSector, layout, tracks);
    return ifo;
}

Bytes buildSimpleAudioManager(const VolumeLayout& layout, const std::vector<TrackPlacement>& tracks,
                              std::uint32_t ppSector)
{
    Bytes ifo(layout.samgSectors * kSector);
    std::uint8_t* table = ifo.data();
    putId(table, "DVDAUDIOSAPP");
    put16(table + 12, static_cast<unsigned>(tracks.size()));
    put16(table + 14, kVersion);
    const std::uint32_t aobStart = ppSector + layout.samgSectors + layout.atsiSectors;
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        const TrackPlacement& t = tracks[i];
        std::uint8_t* r = table + 16 + i * kSamgRecord;
        r[2] = 1;  // group
        r[3] = static_cast<std::uint8_t>(i + 1);
        put32(r + 4, t.firstPts);
        put32(r + 8, t.lengthPts);
        r[16] = i == 0 ? 0xC8 : 0x48;  // whether the track starts its group
        r[17] = t.format.quantizationCode();
        r[18] = t.format.rateCode();
        r[19] = static_cast<std::uint8_t>(t.format.assignment);
        put32(r + 40, aobStart + t.firstSector);
        put32(r + 44, aobStart + t.firstSector);
        put32(r + 48, aobStart + t.lastSector);
    }
    for (std::size_t copy = 1; copy < kSamgCopies; ++copy)
        std::memcpy(table + copy * kSamgTable, table, kSamgTable);
    return ifo;
}

Bytes buildTitleSetInfo(const VolumeLayout& layout, const std::vector<TrackPlacement>& tracks)
{
    Bytes ifo(layout.atsiSectors * kSector);
    std::uint8_t* p = ifo.data();
    putId(p, "DVDAUDIO-ATS");
    put32(p + 12, 2 * layout.atsiSectors + layout.aobSectors - 1);  // last sector of ATS_01_0.BUP
    put32(p + 28, layout.atsiSectors - 1);
    put16(p + 32, kVersion);
    put32(p + 128, kSector - 1);
    put32(p + 196, layout.atsiSectors);  // first AOB sector
    put32(p + 204, 1);                   // sector of the title table

    // One 16-byte record per audio format (LPCM), then the down-mix coefficients.
    const std::vector<LpcmFormat> formats = distinctFormats(tracks);
    for (std::size_t i = 0; i < formats.size() && i < 8; ++i) {
        std::uint8_t* r = p + 256 + 16 * i;
        r[2] = formats[i].quantizationCode();
        r[3] = formats[i].rateCode();
        r[4] = static_cast<std::uint8_t>(formats[i].assignment);
    }
    constexpr std::uint8_t kDownmix[16] = {0x00, 0x00, 0x1E, 0xFF, 0xFF, 0x1E, 0x2D, 0x2D,
                                           0x3C, 0xFF, 0xFF, 0x3C, 0x4B, 0x4B, 0x00, 0x00};
    std::memcpy(p + 384, kDownmix, sizeof kDownmix);

    // The title table: one title, a time record and a sector record per track.
    std::uint8_t* t = p + kSector;
    const std::size_t titleOffset = kTitleTableHeader;
    const std::size_t timesSize = tracks.size() * kTrackTimeRecord;
    const std::size_t sectorsOffset = kTitleRecordHeader + timesSize;
    const std::size_t end = titleOffset + sectorsOffset + tracks.size() * kTrackSectorRecord;
    put16(t, 1);
    put32(t + 4, static_cast<std::uint32_t>(end - 1));
    t[8] = 0x81;  // title 1, an audio title
    put32(t + 12, static_cast<std::uint32_t>(titleOffset));
    std::uint8_t* title = t + titleOffset;
    title[2] = static_cast<std::uint8_t>(tracks.size());
    title[3] = static_cast<std::uint8_t>(tracks.size());  // one index per track
    put32(title + 4, titleLength(tracks));
    put16(title + 10, static_cast<unsigned>(sectorsOffset));
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        std::uint8_t* r = title + kTitleRecordHeader + i * kTrackTimeRecord;
        put16(r, i == 0 ? 0xC010 : 0x0010);
        r[2] = static_cast<std::uint8_t>(i + 1);
        r[3] = static_cast<std::uint8_t>(formatIndex(formats, tracks[i].format));
        put32(r + 4, tracks[i].firstPts);
        put32(r + 8, tracks[i].lengthPts);
        std::uint8_t* s = title + sectorsOffset + i * kTrackSectorRecord;
        put32(s, 0x01000000);
        put32(s + 4, tracks[i].firstSector);
        put32(s + 8, tracks[i].lastSector);
    }
    return ifo;
}

} // namespace dvda

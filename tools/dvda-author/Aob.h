#pragma once
#include "Bytes.h"
#include "Lpcm.h"

#include <cstdint>
#include <string>
#include <vector>

namespace dvda {

// The presentation time of a title's first sample, in 90 kHz ticks: the time
// the decoder's buffer takes to fill, as authored discs have it.
constexpr std::uint32_t kFirstPts = 585;

// Where a track ended up: its time line in the title and its packs, counted
// from the first sector of the title set's first AOB.
struct TrackPlacement {
    LpcmFormat format;
    std::uint64_t frames = 0;
    std::uint32_t firstPts = 0;
    std::uint32_t lengthPts = 0;
    std::uint32_t firstSector = 0;
    std::uint32_t lastSector = 0;
};

// Packs a title's LPCM into 2048-byte MPEG-2 program-stream packs, one
// private-stream-1 packet each, and writes them to ATS_01_1.AOB, ATS_01_2.AOB,
// ... in `folder`, starting a new file when one holds `sectorLimit` packs.
// Every track starts in a pack of its own (with a system header), so a player
// can start it from the sector the IFOs give. Throws std::runtime_error when a
// file cannot be written.
class AobWriter {
public:
    AobWriter(std::string folder, std::uint32_t sectorLimit);
    ~AobWriter();
    AobWriter(const AobWriter&) = delete;
    AobWriter& operator=(const AobWriter&) = delete;

    void beginTrack(const LpcmFormat& format, std::uint64_t frames);
    // Sample pairs already in DVD-Audio order (see toDvdOrder).
    void add(const std::uint8_t* pairs, std::size_t bytes);
    TrackPlacement endTrack();
    // Writes what is buffered and flushes the last file to disk.
    void finish();

    const std::vector<std::string>& fileNames() const { return names_; }
    std::uint32_t sectors() const { return sectors_; }

private:
    void emitPack(std::size_t audioBytes);
    void writePack(const std::uint8_t* pack);
    void flushBuffer();
    void closeFile();

    std::string folder_;
    std::uint32_t sectorLimit_;
    std::vector<std::string> names_;
    int fd_ = -1;
    std::uint32_t sectorsInFile_ = 0;
    std::uint32_t sectors_ = 0;
    Bytes buffer_;

    // The title's clocks, carried from track to track.
    std::uint32_t nextTrackPts_ = kFirstPts;
    std::uint64_t lastScr_ = 0;
    bool anyPack_ = false;

    // The track being packed.
    TrackPlacement track_;
    Bytes pending_;
    std::size_t pendingStart_ = 0;
    std::uint64_t bytesPacked_ = 0;
    bool firstPackOfTrack_ = false;
};

} // namespace dvda

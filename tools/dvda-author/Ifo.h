#pragma once
#include "Aob.h"
#include "Bytes.h"

#include <cstdint>
#include <vector>

namespace dvda {

// Sizes of the files the AUDIO_TS folder holds, in sectors. The image tool
// lays them out contiguously in this order: AUDIO_TS.IFO, AUDIO_TS.BUP,
// AUDIO_PP.IFO, ATS_01_0.IFO, the AOBs, ATS_01_0.BUP.
struct VolumeLayout {
    std::uint32_t amgSectors = 3;   // AUDIO_TS.IFO, and its backup
    std::uint32_t samgSectors = 64; // AUDIO_PP.IFO: eight copies of a 16 KiB table
    std::uint32_t atsiSectors = 2;  // ATS_01_0.IFO, and its backup
    std::uint32_t aobSectors = 0;
};

// The ATSI's title table needs room for every track.
std::uint32_t atsiSectorsFor(std::size_t tracks);

// The distinct audio formats of a title set, in the order tracks first use them
// (the ATSI lists at most 8).
std::vector<LpcmFormat> distinctFormats(const std::vector<TrackPlacement>& tracks);

// AUDIO_TS.IFO: the audio manager, one group holding one title.
Bytes buildAudioManager(const VolumeLayout& layout, const std::vector<TrackPlacement>& tracks);

// AUDIO_PP.IFO: the simple audio manager for audio-only players. Its sector
// pointers are absolute sectors of the finished image, so it needs the sector
// AUDIO_PP.IFO itself lands on (`ppSector`): the AOBs start right after it and
// ATS_01_0.IFO. With 0 (the first pass, before an image exists) they count
// from AUDIO_PP.IFO's own first sector.
Bytes buildSimpleAudioManager(const VolumeLayout& layout, const std::vector<TrackPlacement>& tracks,
                              std::uint32_t ppSector);

// ATS_01_0.IFO: the title set's formats, its title and the tracks' times and sectors.
Bytes buildTitleSetInfo(const VolumeLayout& layout, const std::vector<TrackPlacement>& tracks);

} // namespace dvda

// Feeds arbitrary bytes to the cue sheet reader and checks what it accepts
// describes a disc: tracks numbered from 1, each in a file, starting in order.
#include "disc/CueSheet.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const auto sheet = CueSheet::parse(QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)));
    if (!sheet)
        return 0;
    if (sheet->tracks.isEmpty() || sheet->tracks.size() > 99)
        std::abort();
    for (qsizetype i = 0; i < sheet->tracks.size(); ++i) {
        const CueSheet::Track& track = sheet->tracks[i];
        if (track.number != i + 1 || track.file < 0 || track.file >= sheet->files.size() || track.index1 < 0 ||
            track.index0 > track.index1 || track.sectorSize <= 0)
            std::abort();
        if (i > 0 && sheet->tracks[i - 1].file == track.file && sheet->tracks[i - 1].index1 >= track.index1)
            std::abort();
    }
    return 0;
}

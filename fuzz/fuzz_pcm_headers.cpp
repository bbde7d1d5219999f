// Feeds arbitrary bytes to the WAV and AIFF/AIFF-C header readers of the Ogg
// encoder, then reads the samples they promise.
#include "encode/PcmReaders.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    FILE* in = fmemopen(const_cast<uint8_t*>(data), size, "rb");
    if (!in)
        return 0;
    OggEncInput input;
    if (const PcmInputFormat* format = open_audio_file(in, &input)) {
        if (input.channels <= 0 || !input.readSamples)
            std::abort();
        // Up to 65535 channels: a few samples per read keep the buffers small.
        const int perRead = std::max(1, 8192 / input.channels);
        std::vector<std::vector<float>> channels(size_t(input.channels), std::vector<float>(size_t(perRead)));
        std::vector<float*> buffer;
        for (auto& channel : channels)
            buffer.push_back(channel.data());
        // The samples a header promises can be far more than the input holds.
        for (long got = 0, total = 0; (got = input.readSamples(input.readState, buffer.data(), perRead)) > 0;) {
            total += got;
            // Every sample comes out of the input's bytes.
            if (got > perRead || total > long(size))
                std::abort();
        }
        format->close(input.readState);
    }
    std::fclose(in);
    return 0;
}

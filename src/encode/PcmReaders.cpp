#include "encode/PcmReaders.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

// Private state of an open WAV or AIFF reader.
struct PcmReaderState {
    uint16_t channels = 0;
    uint16_t bitsPerSample = 0;
    int sampleBytes = 0;             // bytes of one sample of one channel
    long long totalSamples = 0;      // per channel; 0 when unknown
    long long samplesRead = 0;
    FILE* in = nullptr;
    bool bigEndian = false;
    unsigned char* bytes = nullptr;  // raw frames of the current read
    size_t bytesCapacity = 0;
};

const PcmInputFormat formats[] = {
    {wav_id, 12, wav_open, pcm_close, "wav", "WAV file reader"},
    {aiff_id, 12, aiff_open, pcm_close, "aiff", "AIFF/AIFC file reader"},
};

unsigned readLe16(const unsigned char* p) { return p[0] | (p[1] << 8); }
unsigned long readLe32(const unsigned char* p)
{
    return static_cast<unsigned long>(p[0]) | (static_cast<unsigned long>(p[1]) << 8) |
           (static_cast<unsigned long>(p[2]) << 16) | (static_cast<unsigned long>(p[3]) << 24);
}
unsigned readBe16(const unsigned char* p) { return (p[0] << 8) | p[1]; }
unsigned long readBe32(const unsigned char* p)
{
    return (static_cast<unsigned long>(p[0]) << 24) | (static_cast<unsigned long>(p[1]) << 16) |
           (static_cast<unsigned long>(p[2]) << 8) | static_cast<unsigned long>(p[3]);
}

// Moves forward over length bytes; a pipe cannot seek, so there they are read and dropped.
bool skipBytes(FILE* in, unsigned long long length)
{
    if (length == 0)
        return true;
    if (length <= 0x7fffffffULL && std::fseek(in, static_cast<long>(length), SEEK_CUR) == 0)
        return true;
    unsigned char scrap[1024];
    while (length > 0) {
        const size_t piece = length > sizeof scrap ? sizeof scrap : static_cast<size_t>(length);
        if (std::fread(scrap, 1, piece, in) != piece)
            return false;
        length -= piece;
    }
    return true;
}

// Reads chunk headers until one of the given type; returns its length in *length.
// RIFF and AIFF chunks are padded to an even length.
bool findChunk(FILE* in, const char* type, unsigned long* length, bool bigEndian, const char* eofWarning)
{
    for (;;) {
        unsigned char header[8];
        if (std::fread(header, 1, 8, in) != 8) {
            std::fprintf(stderr, "%s", eofWarning);
            return false;
        }
        const unsigned long chunkLength = bigEndian ? readBe32(header + 4) : readLe32(header + 4);
        if (std::memcmp(header, type, 4) == 0) {
            *length = chunkLength;
            return true;
        }
        char name[5];
        std::memcpy(name, header, 4);
        name[4] = '\0';
        std::fprintf(stderr, "Skipping chunk of type \"%s\", length %lu\n", name, chunkLength);
        if (!skipBytes(in, chunkLength + (chunkLength & 1))) {
            std::fprintf(stderr, "%s", eofWarning);
            return false;
        }
    }
}

// Makes room for one read of the given size in the state's byte buffer.
unsigned char* frameBuffer(PcmReaderState* state, size_t size)
{
    if (size > state->bytesCapacity) {
        auto* grown = static_cast<unsigned char*>(std::realloc(state->bytes, size));
        if (!grown)
            return nullptr;
        state->bytes = grown;
        state->bytesCapacity = size;
    }
    return state->bytes;
}

// Reads whole frames, never past the declared length; a file that ends early
// (its header claims more than it holds) simply ends there.
long readFrames(PcmReaderState* state, int wanted)
{
    long long frames = wanted;
    if (state->totalSamples > 0) {
        const long long left = state->totalSamples - state->samplesRead;
        if (frames > left)
            frames = left > 0 ? left : 0;
    }
    if (frames <= 0)
        return 0;
    const size_t frameBytes = static_cast<size_t>(state->sampleBytes) * state->channels;
    unsigned char* buffer = frameBuffer(state, frameBytes * static_cast<size_t>(frames));
    if (!buffer)
        return 0;
    const size_t got = std::fread(buffer, 1, frameBytes * static_cast<size_t>(frames), state->in);
    const long delivered = static_cast<long>(got / frameBytes);
    state->samplesRead += delivered;
    return delivered;
}

float integerSample(const unsigned char* p, int sampleBytes, bool bigEndian)
{
    switch (sampleBytes) {
    case 1:
        // Taken as unsigned in AIFF files as well.
        return (static_cast<int>(p[0]) - 128) * 0.0078125f;
    case 2: {
        const auto value = static_cast<int16_t>(bigEndian ? readBe16(p) : readLe16(p));
        return value / 32768.0f;
    }
    case 3: {
        const uint32_t raw = bigEndian ? (uint32_t(p[0]) << 16) | (uint32_t(p[1]) << 8) | p[2]
                                       : (uint32_t(p[2]) << 16) | (uint32_t(p[1]) << 8) | p[0];
        const int32_t value = static_cast<int32_t>(raw << 8) >> 8;
        return value / 8388608.0f;
    }
    default: {
        const auto value = static_cast<int32_t>(bigEndian ? readBe32(p) : readLe32(p));
        return static_cast<float>(value / 2147483648.0);
    }
    }
}

long readInteger(void* opaque, float** buffer, int samples)
{
    auto* state = static_cast<PcmReaderState*>(opaque);
    const long frames = readFrames(state, samples);
    const unsigned char* p = state->bytes;
    for (long i = 0; i < frames; ++i)
        for (int channel = 0; channel < state->channels; ++channel) {
            buffer[channel][i] = integerSample(p, state->sampleBytes, state->bigEndian);
            p += state->sampleBytes;
        }
    return frames;
}

long readFloat(void* opaque, float** buffer, int samples)
{
    auto* state = static_cast<PcmReaderState*>(opaque);
    const long frames = readFrames(state, samples);
    const unsigned char* p = state->bytes;
    for (long i = 0; i < frames; ++i)
        for (int channel = 0; channel < state->channels; ++channel) {
            const uint32_t bits = static_cast<uint32_t>(readLe32(p));
            float value;
            std::memcpy(&value, &bits, sizeof value);
            buffer[channel][i] = value;
            p += 4;
        }
    return frames;
}

PcmReaderState* newState(FILE* in, int channels, int bits, int sampleBytes, long long total, bool bigEndian)
{
    auto* state = new PcmReaderState;
    state->in = in;
    state->channels = static_cast<uint16_t>(channels);
    state->bitsPerSample = static_cast<uint16_t>(bits);
    state->sampleBytes = sampleBytes;
    state->totalSamples = total;
    state->bigEndian = bigEndian;
    return state;
}

// The sample rate held in an 80-bit IEEE extended number.
long extendedToRate(const unsigned char* p)
{
    const unsigned exponent = readBe16(p) & 0x7fff;
    const unsigned long high = readBe32(p + 2);
    const unsigned long low = readBe32(p + 6);
    if (exponent == 0x7fff)
        return (high & 0x80000000UL) ? 0x7fffffffL : static_cast<long>(0x80000000UL);
    const double value = std::ldexp(static_cast<double>(high) * 4294967296.0 + static_cast<double>(low),
                                    static_cast<int>(exponent) - 16383 - 63);
    if (!(value < 2147483647.0))
        return 0x7fffffffL; // far beyond any real rate; the encoder will refuse it
    return static_cast<long>(value);
}

// WAVE_FORMAT_EXTENSIBLE: the real format tag is the start of the sub-format GUID.
const unsigned wavFormatPcm = 1, wavFormatFloat = 3, wavFormatExtensible = 0xfffe;

} // namespace

const PcmInputFormat* open_audio_file(FILE* in, OggEncInput* input)
{
    int needed = 0;
    for (const PcmInputFormat& format : formats)
        if (format.identifyLength > needed)
            needed = format.identifyLength;
    unsigned char header[12];
    const int got = static_cast<int>(std::fread(header, 1, static_cast<size_t>(needed), in));
    for (const PcmInputFormat& format : formats) {
        if (got >= format.identifyLength && format.identify(header, got))
            return format.open(in, input, header, got) ? &format : nullptr;
    }
    return nullptr;
}

bool wav_id(const unsigned char* header, int length)
{
    return length >= 12 && std::memcmp(header, "RIFF", 4) == 0 && std::memcmp(header + 8, "WAVE", 4) == 0;
}

bool wav_open(FILE* in, OggEncInput* input, const unsigned char* /*header*/, int /*headerLength*/)
{
    const char* eofWarning = "Warning: Unexpected EOF in reading WAV header\n";
    unsigned long length = 0;
    if (!findChunk(in, "fmt ", &length, false, eofWarning))
        return false;
    if (length < 16) {
        std::fprintf(stderr, "Warning: Unrecognised format chunk in WAV header\n");
        return false;
    }
    if (length != 16 && length != 18 && length != 40)
        std::fprintf(stderr, "Warning: INVALID format chunk in wav header.\n Trying to read anyway (may not work)...\n");

    // The basic 16 bytes, and the extensible part when there is one.
    unsigned char fmt[40];
    const size_t wanted = length >= 40 ? 40 : 16;
    if (std::fread(fmt, 1, wanted, in) != wanted || !skipBytes(in, length - wanted + (length & 1))) {
        std::fprintf(stderr, "%s", eofWarning);
        return false;
    }
    unsigned formatTag = readLe16(fmt);
    const int channels = static_cast<int>(readLe16(fmt + 2));
    const long rate = static_cast<long>(readLe32(fmt + 4));
    const unsigned blockAlign = readLe16(fmt + 12);
    const int bits = static_cast<int>(readLe16(fmt + 14));
    if (formatTag == wavFormatExtensible && wanted == 40)
        formatTag = readLe16(fmt + 24);

    unsigned long dataLength = 0;
    if (!findChunk(in, "data", &dataLength, false, eofWarning))
        return false;

    int sampleBytes;
    if (formatTag == wavFormatPcm) {
        sampleBytes = bits / 8;
    } else if (formatTag == wavFormatFloat) {
        sampleBytes = 4;
    } else {
        std::fprintf(stderr, "ERROR: Wav file is unsupported type (must be standard PCM\n or type 3 floating point PCM\n");
        return false;
    }
    if (channels < 1 || sampleBytes < 1 || sampleBytes > 4 ||
        blockAlign != static_cast<unsigned>(sampleBytes * channels) || bits != sampleBytes * 8) {
        std::fprintf(stderr, "ERROR: Wav file is unsupported subformat (must be 16 bit PCM\nor floating point PCM\n");
        return false;
    }

    long long total = static_cast<long long>(dataLength / blockAlign);
    if (dataLength == 0) {
        // Unknown length (a header written before the data): measure the rest of the file.
        total = 0;
        const long here = std::ftell(in);
        if (here >= 0 && std::fseek(in, 0, SEEK_END) == 0) {
            const long end = std::ftell(in);
            if (end > here)
                total = (end - here) / static_cast<long>(blockAlign);
            std::fseek(in, here, SEEK_SET);
        }
    }

    input->rate = rate;
    input->channels = channels;
    input->totalSamplesPerChannel = total;
    input->readSamples = formatTag == wavFormatFloat ? readFloat : readInteger;
    input->readState = newState(in, channels, bits, sampleBytes, total, false);
    return true;
}

bool aiff_id(const unsigned char* header, int length)
{
    return length >= 12 && std::memcmp(header, "FORM", 4) == 0 && std::memcmp(header + 8, "AIF", 3) == 0 &&
           (header[11] == 'F' || header[11] == 'C');
}

bool aiff_open(FILE* in, OggEncInput* input, const unsigned char* header, int /*headerLength*/)
{
    const bool aifc = header[11] == 'C';
    const char* eofWarning = "Warning: Unexpected EOF in AIFF chunk\n";
    unsigned long length = 0;
    if (!findChunk(in, "COMM", &length, true, eofWarning)) {
        std::fprintf(stderr, "Warning: No common chunk found in AIFF file\n");
        return false;
    }
    if (length < 18) {
        std::fprintf(stderr, "Warning: Truncated common chunk in AIFF header\n");
        return false;
    }
    unsigned char comm[22];
    const size_t wanted = aifc && length >= 22 ? 22 : 18;
    if (std::fread(comm, 1, wanted, in) != wanted) {
        std::fprintf(stderr, "Warning: Unexpected EOF in reading AIFF header\n");
        return false;
    }
    const int channels = static_cast<int>(readBe16(comm));
    const long long frames = static_cast<long long>(readBe32(comm + 2));
    const int bits = static_cast<int>(readBe16(comm + 6));
    const long rate = extendedToRate(comm + 8);
    if (aifc) {
        if (length < 22) {
            std::fprintf(stderr, "Warning: AIFF-C header truncated.\n");
            return false;
        }
        if (std::memcmp(comm + 18, "NONE", 4) != 0) {
            std::fprintf(stderr, "Warning: Can't handle compressed AIFF-C\n");
            return false;
        }
    }
    // The rest of the chunk (the AIFF-C compression name) and its pad byte.
    if (!skipBytes(in, length - wanted + (length & 1))) {
        std::fprintf(stderr, "Warning: Unexpected EOF in reading AIFF header\n");
        return false;
    }

    if (!findChunk(in, "SSND", &length, true, eofWarning)) {
        std::fprintf(stderr, "Warning: No SSND chunk found in AIFF file\n");
        return false;
    }
    if (length < 8) {
        std::fprintf(stderr, "Warning: Corrupted SSND chunk in AIFF header\n");
        return false;
    }
    unsigned char ssnd[8];
    if (std::fread(ssnd, 1, 8, in) != 8) {
        std::fprintf(stderr, "Warning: Unexpected EOF reading AIFF header\n");
        return false;
    }
    const unsigned long offset = readBe32(ssnd);
    const unsigned long blockSize = readBe32(ssnd + 4);
    if (blockSize != 0 || channels < 1 || (bits != 8 && bits != 16 && bits != 24 && bits != 32)) {
        std::fprintf(stderr, "Warning: OggEnc does not support this type of AIFF/AIFC file\n Must be 8 or 16 bit PCM.\n");
        return false;
    }
    if (!skipBytes(in, offset)) {
        std::fprintf(stderr, "Warning: Unexpected EOF reading AIFF header\n");
        return false;
    }

    input->rate = rate;
    input->channels = channels;
    input->totalSamplesPerChannel = frames;
    input->readSamples = readInteger;
    input->readState = newState(in, channels, bits, bits / 8, frames, true);
    return true;
}

void pcm_close(void* opaque)
{
    auto* state = static_cast<PcmReaderState*>(opaque);
    if (!state)
        return;
    std::free(state->bytes);
    delete state;
}

#include "tabs/Mp3Envelope.h"

#include "tags/AudioPayload.h"

#include <QFile>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

constexpr int kGranuleSamples = 576;
constexpr int kCancelCheckFrames = 4096;

// What a Layer III frame header tells that the scan needs.
struct FrameHeader {
    bool mpeg1 = true;
    int rate = 0;
    int channels = 0;
    int length = 0;          // bytes, header included
    int sideInfoOffset = 0;  // after the header and its CRC
    int sideInfoBytes = 0;

    bool sameStream(const FrameHeader& other) const { return mpeg1 == other.mpeg1 && rate == other.rate; }
};

// Free-format frames (bit rate index 0) have no length to step by and are taken as damage.
std::optional<FrameHeader> parseHeader(const uchar* p)
{
    if (p[0] != 0xFF || (p[1] & 0xE0) != 0xE0)
        return std::nullopt;
    const int version = (p[1] >> 3) & 3;  // 0: MPEG 2.5, 2: MPEG 2, 3: MPEG 1
    const int layer = (p[1] >> 1) & 3;    // 1: Layer III
    const int bitrateIndex = p[2] >> 4;
    const int rateIndex = (p[2] >> 2) & 3;
    if (version == 1 || layer != 1 || bitrateIndex == 0 || bitrateIndex == 15 || rateIndex == 3)
        return std::nullopt;
    static const int kMpeg1Kbps[15] = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
    static const int kLowRateKbps[15] = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
    static const int kRates[3] = {44100, 48000, 32000};
    FrameHeader header;
    header.mpeg1 = version == 3;
    header.rate = kRates[rateIndex] >> (version == 3 ? 0 : version == 2 ? 1 : 2);
    header.channels = (p[3] >> 6) == 3 ? 1 : 2;
    const int kbps = (header.mpeg1 ? kMpeg1Kbps : kLowRateKbps)[bitrateIndex];
    const int padding = (p[2] >> 1) & 1;
    header.length = (header.mpeg1 ? 144000 : 72000) * kbps / header.rate + padding;
    header.sideInfoOffset = (p[1] & 1) ? 4 : 6;
    header.sideInfoBytes = header.mpeg1 ? (header.channels == 1 ? 17 : 32) : (header.channels == 1 ? 9 : 17);
    return header;
}

// Reads fields of the side information, most significant bit first; the
// caller has checked that the bytes are there.
class BitReader {
public:
    explicit BitReader(const uchar* bytes) : bytes_(bytes) {}
    int take(int bits)
    {
        int value = 0;
        for (int i = 0; i < bits; ++i, ++position_)
            value = (value << 1) | ((bytes_[position_ >> 3] >> (7 - (position_ & 7))) & 1);
        return value;
    }
    void skip(int bits) { position_ += bits; }

private:
    const uchar* bytes_;
    int position_ = 0;
};

// The largest value each Huffman table can code (15 and the escape bits for
// tables 16 to 31); 0 for the tables that code nothing or do not exist.
constexpr int kTableLargest[32] = {0,  1,  2,  2,  0,  3,   3,    5,    5,  5,  7,  7,   7,   15,  0,    15,
                                   16, 18, 22, 30, 78, 270, 1038, 8206, 30, 46, 78, 142, 270, 526, 2062, 8206};

// A channel's loudness in a granule: the quantiser's step (global gain, a
// factor of 2^(1/4) a step) times the largest value its Huffman tables can
// code, dequantised (to the power 4/3). Scale factors only lower bands below
// this, so it bounds the spectrum from above, and the tables the encoder chose
// (the cheapest that fit) keep the bound close. Without Huffman bits the
// channel is silent.
float channelLoudness(int huffmanBits, int bigValues, int globalGain, int largestTable)
{
    if (huffmanBits == 0)
        return 0;
    const int largest = bigValues > 0 ? std::max(largestTable, 1) : 1;  // the count1 region codes at most 1
    return float(std::exp2((globalGain - 210) / 4.0) * std::pow(double(largest), 4.0 / 3.0));
}

// Each granule's loudness: the loudest of its channels.
void addGranules(const FrameHeader& header, const uchar* sideInfo, std::vector<float>& loudness)
{
    BitReader bits(sideInfo);
    const int granules = header.mpeg1 ? 2 : 1;
    // main_data_begin and the private bits, then MPEG 1's scale factor sharing flags.
    if (header.mpeg1)
        bits.skip(9 + (header.channels == 1 ? 5 : 3) + 4 * header.channels);
    else
        bits.skip(8 + (header.channels == 1 ? 1 : 2));
    for (int granule = 0; granule < granules; ++granule) {
        float loudest = 0;
        for (int channel = 0; channel < header.channels; ++channel) {
            const int huffmanBits = bits.take(12);
            const int bigValues = bits.take(9);
            const int globalGain = bits.take(8);
            bits.skip(header.mpeg1 ? 4 : 9);  // scalefac_compress
            int largestTable = 0;
            if (bits.take(1)) {  // window switching: block type and mixed flag, two tables, subblock gains
                bits.skip(3);
                for (int region = 0; region < 2; ++region)
                    largestTable = std::max(largestTable, kTableLargest[bits.take(5)]);
                bits.skip(9);
            } else {  // three tables, the region sizes
                for (int region = 0; region < 3; ++region)
                    largestTable = std::max(largestTable, kTableLargest[bits.take(5)]);
                bits.skip(7);
            }
            bits.skip(header.mpeg1 ? 3 : 2);  // preflag (MPEG 1), scalefac_scale, count1table_select
            loudest = std::max(loudest, channelLoudness(huffmanBits, bigValues, globalGain, largestTable));
        }
        loudness.push_back(loudest);
    }
}

// The LAME/Xing header frame stands where audio would and holds none.
bool isInfoFrame(const uchar* frame, const FrameHeader& header, qint64 available)
{
    const qint64 at = header.sideInfoOffset + header.sideInfoBytes;
    return available >= at + 4 && (std::memcmp(frame + at, "Xing", 4) == 0 || std::memcmp(frame + at, "Info", 4) == 0);
}

}  // namespace

namespace Mp3Envelope {

std::optional<Envelope> read(const QString& path, const std::atomic<bool>& cancel)
{
    const auto span = AudioPayload::mpegFrames(path);
    if (!span)
        return std::nullopt;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const uchar* data = file.map(span->offset, span->length);
    if (!data)
        return std::nullopt;
    const qint64 end = span->length;
    Envelope envelope;
    envelope.samplesPerGranule = kGranuleSamples;
    envelope.loudness.reserve(size_t(end / 200));
    envelope.frameIndex.reserve(size_t(end / 200 / Envelope::kIndexStep));
    std::optional<FrameHeader> stream;  // the first frame's version and rate
    qint64 at = 0;
    int frames = 0;
    qint64 audioFrames = 0;
    bool indexing = true;
    while (at + 4 <= end) {
        const auto header = parseHeader(data + at);
        // A header counts when the next frame follows where it says (or the
        // file ends there): a stray sync pattern in damaged bytes seldom does.
        bool found = header && (!stream || header->sameStream(*stream));
        if (found && at + header->length + 4 <= end) {
            const auto next = parseHeader(data + at + header->length);
            found = next && next->sameStream(*header);
        } else if (found && !stream) {
            // Nothing follows to confirm a first header: it stands only as a whole frame.
            found = at + header->length == end;
        }
        if (!found) {
            ++at;
            indexing = false;
            continue;
        }
        // The last frame of a cut file counts while its side information is whole.
        if (at + header->sideInfoOffset + header->sideInfoBytes > end)
            break;
        if (++frames % kCancelCheckFrames == 0 && cancel)
            return std::nullopt;
        const bool first = !stream;
        stream = header;
        if (!(first && isInfoFrame(data + at, *header, end - at))) {
            if (indexing && audioFrames % Envelope::kIndexStep == 0)
                envelope.frameIndex.push_back(span->offset + at);
            ++audioFrames;
            addGranules(*header, data + at + header->sideInfoOffset, envelope.loudness);
        }
        at += header->length;
    }
    if (!stream || envelope.loudness.empty() || cancel)
        return std::nullopt;
    envelope.rate = stream->rate;
    return envelope;
}

}  // namespace Mp3Envelope

#pragma once
#include <QString>

#include <atomic>
#include <optional>
#include <vector>

// A rough loudness of each stretch of an MP3, read from the Layer III frames'
// side information alone, without decoding: a granule whose channels carry no
// Huffman bits is silent, otherwise its quantiser step and the largest value
// its Huffman tables can code bound its spectrum. It tells loud from quiet
// within one song; against the decoded samples it is off by a factor that
// depends on the sound (noise or tone), up to a few times either way.
// Damaged stretches are skipped up to the next frame that reads.
namespace Mp3Envelope {

struct Envelope {
    int rate = 0;                 // samples a second
    int samplesPerGranule = 0;    // 576 in every MPEG version
    std::vector<float> loudness;  // one a granule, 0 for silence, relative otherwise
    // The file offsets of audio frames 0, kIndexStep, 2 kIndexStep... (the
    // encoder's info frame not counted), as libmpg123 takes a seek index. It
    // stops at the first bytes skipped: past damage a decoder may count frames
    // otherwise, and a wrong index would shift the audio after it.
    static constexpr int kIndexStep = 32;
    std::vector<qint64> frameIndex;

    qint64 samples() const { return qint64(loudness.size()) * samplesPerGranule; }
    double seconds() const { return rate > 0 ? double(samples()) / rate : 0; }
};

// nullopt when the file holds no Layer III frames or cancel became true.
std::optional<Envelope> read(const QString& path, const std::atomic<bool>& cancel);

}  // namespace Mp3Envelope

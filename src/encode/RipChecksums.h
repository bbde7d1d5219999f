#pragma once
#include <QString>

class QFile;

#include <cstddef>
#include <cstdint>
#include <optional>

// What a rip log says about one track's audio: the CRC32 of its PCM bytes and
// its AccurateRip checksums, which anyone can compare with another rip of the
// same pressing.
namespace RipChecksums {

// Where the samples of a RIFF/WAVE file lie.
struct PcmSpan {
    qint64 offset = 0;
    qint64 size = 0;
};
// The data chunk of a 16-bit stereo PCM WAV file; empty when the file is not one
// (or a chunk claims more bytes than the file holds).
std::optional<PcmSpan> wavData(const QString& path);
std::optional<PcmSpan> wavData(QFile& file);

quint32 crc32(const unsigned char* data, std::size_t size, quint32 crc = 0);

struct TrackSums {
    quint32 crc32 = 0;
    quint32 accurateRipV1 = 0;
    quint32 accurateRipV2 = 0;
    qint64 frames = 0;  // stereo sample frames of the track
};

// The checksums of a track's PCM fed in pieces (16-bit little-endian stereo).
// The first and last tracks of a disc leave five sectors out of the AccurateRip
// sums, where drives differ in what they can read.
class Accumulator {
public:
    Accumulator(qint64 totalFrames, bool firstTrack, bool lastTrack);
    // Bytes in any split; a frame cut between two calls is joined up.
    void add(const unsigned char* data, std::size_t size);
    TrackSums sums() const;

private:
    void addFrame(quint32 frame);

    quint32 from_;  // the range of position multipliers that count
    quint32 to_;
    quint32 position_ = 1;
    quint32 crc_ = 0;
    quint32 v1_ = 0;
    quint32 v2_ = 0;
    qint64 frames_ = 0;
    unsigned char partial_[4]{};
    std::size_t partialSize_ = 0;
};

// Reads a track's WAV file once for all three sums; empty when it cannot be read.
std::optional<TrackSums> forWav(const QString& path, bool firstTrack, bool lastTrack);
// The same from a file opened for reading, which may have been removed since.
std::optional<TrackSums> forWav(QFile& file, bool firstTrack, bool lastTrack);

}  // namespace RipChecksums

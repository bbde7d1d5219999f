#pragma once
#include <QString>
#include <QVector>

#include <atomic>
#include <functional>
#include <optional>

// The outline of a song's audio at screen resolution: for each pixel column the
// lowest and highest sample (-1 to 1) of the stretch of time it covers, mixed to
// mono. WAV and AIFF files are read directly; an MP3 is first sketched from its
// frames' side information, then decoded by libmpg123 with the decoded columns
// replacing the sketch's as they come; anything else is decoded by ffmpeg to a
// low-rate mono stream, and the columns fill in as it arrives.
struct WaveformPeaks {
    QVector<float> minimum;
    QVector<float> maximum;
    double seconds = 0;      // the song's length as decoded
    int columnsDone = 0;     // columns filled so far, from the left
    bool estimated = false;  // some columns are sketched, not decoded

    int columns() const { return int(minimum.size()); }
    bool complete() const { return columnsDone == columns() && !estimated; }
};

namespace Waveform {

// Where a RIFF/WAVE file keeps its samples, from its chunk headers (each length
// checked against the file); nullopt when it is no WAV file.
struct WavLayout {
    int formatTag = 0;  // 1: integer PCM, 3: float, 0xFFFE: extensible
    int channels = 0;
    int rate = 0;
    int bits = 0;
    qint64 dataOffset = 0;
    qint64 dataBytes = 0;  // what the file holds of the data chunk
    double seconds() const
    {
        const qint64 frameBytes = qint64(channels) * ((bits + 7) / 8);
        return frameBytes > 0 && rate > 0 ? double(dataBytes / frameBytes) / rate : 0;
    }
};
std::optional<WavLayout> wavLayout(const QString& path);

// Called with the columns so far, a few times a second while decoding.
using Partial = std::function<void(const WaveformPeaks& peaks)>;

// Reads the whole song; an empty result (no columns) when it cannot be read or
// cancel became true. Runs on the caller's thread: call it off the main thread.
WaveformPeaks compute(const QString& path, int columns, const std::atomic<bool>& cancel, const Partial& partial = {});

// The sketch of an MP3 from its frames alone (see Mp3Envelope): each column
// the loudest granule in it, the loudest of the song at most of the height.
// Empty when the file is no MP3 or cancel became true.
WaveformPeaks sketchMp3(const QString& path, int columns, const std::atomic<bool>& cancel);

// Peaks of samples already in memory (mono, any rate), for columns of equal time.
WaveformPeaks fromSamples(const float* samples, qint64 count, double rate, int columns);

}  // namespace Waveform

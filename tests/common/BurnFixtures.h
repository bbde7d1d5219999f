#pragma once
// Sample-file builders for the burning tests: WAV and AIFF files with headers
// as told, and sources made by the real encoders.
#include <QByteArray>
#include <QString>

#include <functional>

namespace burnfixtures {

struct PcmPlan {
    int channels = 2;
    int bits = 16;
    quint32 rate = 44100;
    qint64 frames = 588 * 4;
    // The data size the header declares; the real size when negative.
    qint64 declaredDataBytes = -1;
    // Sample value of a frame's channel (the low 16 bits are written, as many bytes as bits need).
    std::function<quint32(qint64 frame, int channel)> sample = [](qint64 frame, int channel) {
        return quint32(frame * 7 + channel * 1000);
    };
};

QByteArray wavFile(const PcmPlan& plan);
// AIFF with the 80-bit rate taken from plan.rate (44100 or 22050).
QByteArray aiffFile(const PcmPlan& plan);
// A WAV whose header says `seconds` of 16-bit stereo sound; the samples are a
// hole in the file (no disk used).
bool writeSparseWav(const QString& path, qint64 seconds);

// A tone made by sox, as 16-bit stereo WAV.
bool makeTone(const QString& path, double seconds, int frequency);
// The tone encoded by lame with an ID3v2 tag (title, artist, album, year, genre)
// and without an ID3v1 one; by oggenc with the same comments.
bool makeMp3(const QString& wav, const QString& mp3, const QString& title, const QString& artist,
             const QString& genre = QStringLiteral("Rock"));
bool makeOgg(const QString& wav, const QString& ogg, const QString& title, const QString& artist);

// The 16-bit stereo samples ffmpeg decodes a file to (the same decoder the burn uses).
QByteArray decodedSamples(const QString& path);

}  // namespace burnfixtures

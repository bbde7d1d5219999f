#pragma once
#include <QString>

// One audio track of a CD as the burner pulls it: raw CD audio (44.1 kHz,
// 16-bit little-endian stereo) handed out block by block. Made with its file
// (the length known then), prepared when the burn starts, asked for data until
// it answers 0, cleaned up after the burn.
class AudioTrackProducer {
public:
    static constexpr int kBlockBytes = 2352;
    static constexpr int kFramesPerBlock = kBlockBytes / 4;

    virtual ~AudioTrackProducer() = default;

    virtual QString path() const = 0;
    // The track's length in 2352-byte blocks; 0 when the file gives no track.
    virtual qint64 length() const = 0;
    // Opens the file again; false, with the reason in *error, when it cannot be read now.
    virtual bool prepareTrack(QString* error) = 0;
    // Writes up to `length` bytes (a multiple of 4) of audio; 0 at the end.
    virtual qint64 produceData(char* buffer, qint64 length) = 0;
    virtual void cleanupTrackAfterBurn() = 0;
    // Why the file gives no track (length() is 0).
    virtual QString problem() const = 0;
};

#pragma once
#include "disc/AudioTrackProducer.h"

#include <QByteArray>

#include <atomic>
#include <memory>

class ChildProcess;

// Feeds any file ffmpeg can decode (MP3, Ogg, AAC, FLAC, ...) to the burner as
// CD audio, decoded on the fly through a pipe. The length is found by decoding
// the file once when the track is made; the burn's own decode is held to it,
// and the last block is filled out with silence.
class DecodedTrackProducer : public AudioTrackProducer {
public:
    // cancelled, when given, stops the measuring decode early (the track then has no length).
    explicit DecodedTrackProducer(QString path, const std::atomic<bool>* cancelled = nullptr);
    ~DecodedTrackProducer() override;

    // Sample frames the decoder gives for the file; -1 when it cannot decode it.
    static qint64 decodedFrames(const QString& path, const std::atomic<bool>* cancelled = nullptr,
                                QString* why = nullptr);

    QString path() const override { return path_; }
    qint64 length() const override { return length_; }
    bool prepareTrack(QString* error) override;
    qint64 produceData(char* buffer, qint64 length) override;
    void cleanupTrackAfterBurn() override;
    QString problem() const override { return problem_; }

private:
    QString path_;
    QString problem_;
    qint64 length_ = 0;
    qint64 produced_ = 0;
    bool decoderEnded_ = false;
    QByteArray pending_;
    std::unique_ptr<ChildProcess> decoder_;
};

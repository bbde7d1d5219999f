#pragma once
#include "disc/AudioTrackProducer.h"

#include <QByteArray>

#include <cstdint>

// Feeds a WAV or AIFF file to the burner straight from its sample data: the
// header is parsed once for the length and again when the burn starts, and
// each request reads the next frames and writes them as 16-bit stereo, mixing
// 1, 3, 4 or 6 channels down to two. The first 8 bytes of a WAV file's sample
// data are not played, and a last block of fewer than 588 frames is dropped.
class AIFFTrackProducer : public AudioTrackProducer {
public:
    struct FileInfo {
        uint32_t channels = 0;
        uint32_t sampleRate = 0;  // the WAV rate, or the leading 32 bits of AIFF's 80-bit rate
        uint32_t bitsPerSample = 0;
        uint32_t bytesPerSample = 0;
        uint32_t dataStart = 0;
        uint32_t dataEnd = 0;
        uint32_t aiff = 0;  // 1 when the header fields were big-endian
    };

    explicit AIFFTrackProducer(QString path);
    ~AIFFTrackProducer() override;

    // Fills *info from the file's header; false, with the reason in *why, when
    // the file cannot be burned from its samples.
    static bool parseFileAtPath(const QString& path, FileInfo* info, QString* why = nullptr);
    static bool parseFile(int fd, FileInfo* info, QString* why = nullptr);
    // Blocks of a parsed file (0 for a header without frames).
    static qint64 lengthOf(const FileInfo& info);

    QString path() const override { return path_; }
    qint64 length() const override { return length_; }
    bool prepareTrack(QString* error) override;
    qint64 produceData(char* buffer, qint64 length) override;
    void cleanupTrackAfterBurn() override;
    QString problem() const override { return problem_; }

private:
    QString path_;
    QString problem_;
    FileInfo info_;
    qint64 length_ = 0;
    int fd_ = -1;
    uint32_t position_ = 0;
    uint32_t sampleMask_ = 0xFFFF;
    QByteArray scratch_;  // the samples read, when they do not fit the output in place
};

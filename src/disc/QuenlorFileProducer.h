#pragma once
#include <QString>

#include <array>
#include <cstdint>

// One MP3 file of a data disc, handed to the image writer on demand without
// ever writing to the source: the on-disc name carries the order prefix, the
// ID3v2 tag can be left out on the fly and a 128-byte ID3v1 tag, built from
// the ID3v2 frames, appended after the audio.
class QuenlorFileProducer {
public:
    static constexpr int kTagSize = 128;

    explicit QuenlorFileProducer(QString sourcePath);
    virtual ~QuenlorFileProducer();
    QuenlorFileProducer(const QuenlorFileProducer&) = delete;
    QuenlorFileProducer& operator=(const QuenlorFileProducer&) = delete;

    // The two preferences: leave the ID3v2 tag out, append an ID3v1 tag.
    void setPreferences(bool stripID3v2, bool appendID3v1);
    // "%03d" of the file's place in its folder, or "".
    void setFileIndex(const QString& index) { fileIndex_ = index; }

    bool prepareFileForBurn();
    bool prepareFileForVerification();
    virtual qint64 calculateSizeOfFile() const;
    // Up to length bytes of the disc file from address on; the bytes written.
    virtual qint64 produceFile(char* buffer, qint64 length, qint64 address);
    void cleanupFileAfterBurn();
    void makeID3v1(const QString& sourcePath);

    QString sourcePath() const { return sourcePath_; }
    QString diskName() const { return diskName_; }
    qint64 skip() const { return skip_; }
    bool appending() const { return append_ != 0; }

protected:
    // pread at skip + address, opening and closing the file around it.
    qint64 readSource(char* buffer, qint64 length, qint64 address);
    // Whether a tag is appended at all (the no-tag variant never does).
    virtual bool appendsTags() const { return true; }

    QString sourcePath_;
    QString diskName_;
    QString fileIndex_;
    bool strip_ = false;
    bool appendPreference_ = false;
    qint64 fileSize_ = 0;
    qint64 skip_ = 0;
    uint16_t append_ = 0;
    int16_t tagBytesLeft_ = kTagSize;
    std::array<unsigned char, kTagSize> id3v1_ {};
};

// The same file without the appended tag.
class QuenlorNoID3FileProducer : public QuenlorFileProducer {
public:
    using QuenlorFileProducer::QuenlorFileProducer;
    qint64 calculateSizeOfFile() const override;
    qint64 produceFile(char* buffer, qint64 length, qint64 address) override;

protected:
    bool appendsTags() const override { return false; }
};

#include "disc/DecodedTrackProducer.h"

#include "platform/ChildProcess.h"
#include "platform/ResourceLocator.h"

#include <QFileInfo>

#include <cstring>

namespace {

// A decoder that stops writing for this long has hung.
constexpr int kStallMs = 60000;

QStringList decodeArguments(const QString& path)
{
    return {QStringLiteral("-nostdin"), QStringLiteral("-v"),  QStringLiteral("error"), QStringLiteral("-i"),
            path,                       QStringLiteral("-map"), QStringLiteral("0:a:0"), QStringLiteral("-f"),
            QStringLiteral("s16le"),    QStringLiteral("-ac"),  QStringLiteral("2"),     QStringLiteral("-ar"),
            QStringLiteral("44100"),    QStringLiteral("pipe:1")};
}

std::unique_ptr<ChildProcess> startDecoder(const QString& path, QString* why)
{
    const QString ffmpeg = ResourceLocator::pathForTool(QStringLiteral("ffmpeg"));
    if (ffmpeg.isEmpty()) {
        *why = QStringLiteral("ffmpeg, which decodes it, is not installed");
        return nullptr;
    }
    auto child = std::make_unique<ChildProcess>(ffmpeg, decodeArguments(path));
    child->setInteractive(true);
    if (!child->start()) {
        *why = QStringLiteral("ffmpeg cannot be started");
        return nullptr;
    }
    return child;
}

}  // namespace

DecodedTrackProducer::DecodedTrackProducer(QString path, const std::atomic<bool>* cancelled) : path_(std::move(path))
{
    const qint64 frames = decodedFrames(path_, cancelled, &problem_);
    if (frames > 0)
        length_ = (frames + kFramesPerBlock - 1) / kFramesPerBlock;
    else if (frames == 0)
        problem_ = QStringLiteral("it holds no sound");
}

DecodedTrackProducer::~DecodedTrackProducer()
{
    cleanupTrackAfterBurn();
}

qint64 DecodedTrackProducer::decodedFrames(const QString& path, const std::atomic<bool>* cancelled, QString* why)
{
    QString reason;
    std::unique_ptr<ChildProcess> child = startDecoder(path, &reason);
    qint64 bytes = 0;
    bool ended = !child;
    while (!ended && !(cancelled && *cancelled)) {
        const QByteArray got = child->readOutput(kStallMs, &ended);
        if (got.isEmpty() && !ended) {
            reason = QStringLiteral("ffmpeg stopped decoding it");
            break;
        }
        bytes += got.size();
    }
    if (child) {
        if (!ended)
            child->terminate();
        if (child->waitForExit() != 0 && reason.isEmpty())
            reason = (cancelled && *cancelled) ? QStringLiteral("cancelled") : QStringLiteral("ffmpeg cannot decode it");
    }
    if (!reason.isEmpty()) {
        if (why)
            *why = reason;
        return -1;
    }
    return bytes / 4;
}

bool DecodedTrackProducer::prepareTrack(QString* error)
{
    cleanupTrackAfterBurn();
    QString why;
    if (!QFileInfo(path_).isReadable())
        why = QFileInfo::exists(path_) ? QStringLiteral("it cannot be read") : QStringLiteral("it is no longer there");
    else
        decoder_ = startDecoder(path_, &why);
    if (!decoder_) {
        if (error)
            *error = why;
        return false;
    }
    return true;
}

qint64 DecodedTrackProducer::produceData(char* buffer, qint64 length)
{
    const qint64 left = length_ * kBlockBytes - produced_;
    length = std::min(length & ~qint64(3), left);
    if (!decoder_ || length <= 0)
        return 0;
    while (pending_.size() < length && !decoderEnded_) {
        const QByteArray got = decoder_->readOutput(kStallMs, &decoderEnded_);
        if (got.isEmpty() && !decoderEnded_)
            return 0;  // hung: the burn stops short
        pending_.append(got);
    }
    const qint64 taken = std::min<qint64>(length, pending_.size());
    std::memcpy(buffer, pending_.constData(), size_t(taken));
    pending_.remove(0, taken);
    qint64 given = taken;
    // Silence fills out the last block; a decoder that ends sooner (the file
    // changed since it was measured) ends the track short, which the burn reports.
    if (taken < length && left - taken < kBlockBytes) {
        std::memset(buffer + taken, 0, size_t(length - taken));
        given = length;
    }
    produced_ += given;
    return given;
}

void DecodedTrackProducer::cleanupTrackAfterBurn()
{
    if (decoder_) {
        decoder_->terminate();
        decoder_->waitForExit();
    }
    decoder_.reset();
    pending_.clear();
    decoderEnded_ = false;
    produced_ = 0;
}

#include "disc/AudioDiscImage.h"

#include "core/Job.h"
#include "disc/BurnCache.h"
#include "encode/ExportArguments.h"
#include "encode/ExportJobs.h"
#include "platform/ChildProcess.h"
#include "platform/ResourceLocator.h"
#include "platform/SafeFile.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>

namespace {

constexpr int kBlocksPerWrite = 64;

QString msf(qint64 blocks)
{
    return QString::asprintf("%02lld:%02lld:%02lld", blocks / (60 * 75), blocks / 75 % 60, blocks % 75);
}

// CD-Text in a cue sheet is one quoted line; a quote inside would end it.
QString quoted(const QString& text)
{
    QString line = text;
    line.replace('"', '\'').replace('\n', ' ').replace('\r', ' ');
    return '"' + line + '"';
}

// The sample data of a WAV file cd-paranoia wrote.
QByteArray wavSamples(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray bytes = file.readAll();
    qsizetype at = 12;
    while (at + 8 <= bytes.size()) {
        const auto* p = reinterpret_cast<const unsigned char*>(bytes.constData() + at);
        const qint64 size = qint64(p[4]) | qint64(p[5]) << 8 | qint64(p[6]) << 16 | qint64(p[7]) << 24;
        if (bytes.mid(at, 4) == "data")
            return bytes.mid(at + 8, qsizetype(std::min<qint64>(size, bytes.size() - at - 8)));
        at += 8 + qsizetype(size) + (size & 1);
    }
    return {};
}

}  // namespace

qint64 AudioDiscLayout::blocks() const
{
    qint64 total = 0;
    for (const Track& track : tracks)
        total += track.producer->length();
    return total;
}

QString AudioDiscImage::binPathFor(const QString& cuePath)
{
    const QFileInfo cue(cuePath);
    return cue.path() + '/' + cue.completeBaseName() + QStringLiteral(".bin");
}

QByteArray AudioDiscImage::cueText(const AudioDiscLayout& layout, const QString& binName)
{
    QString text;
    if (!layout.title.isEmpty())
        text += QStringLiteral("TITLE %1\n").arg(quoted(layout.title));
    if (!layout.performer.isEmpty())
        text += QStringLiteral("PERFORMER %1\n").arg(quoted(layout.performer));
    text += QStringLiteral("FILE %1 BINARY\n").arg(quoted(binName));
    qint64 start = 0;
    int number = 1;
    for (const AudioDiscLayout::Track& track : layout.tracks) {
        text += QString::asprintf("  TRACK %02d AUDIO\n", number++);
        if (!track.title.isEmpty())
            text += QStringLiteral("    TITLE %1\n").arg(quoted(track.title));
        if (!track.performer.isEmpty())
            text += QStringLiteral("    PERFORMER %1\n").arg(quoted(track.performer));
        text += QStringLiteral("    INDEX 01 %1\n").arg(msf(start));
        start += track.producer->length();
    }
    return text.toUtf8();
}

QString AudioDiscImage::write(Job& job, AudioDiscLayout& layout, const QString& cuePath, QList<QByteArray>* digests)
{
    const QString binPath = binPathFor(cuePath);
    SafeFile::Replacement bin(binPath);
    if (!bin.create())
        return QStringLiteral("%1 cannot be made: %2").arg(binPath, bin.errorString());
    const qint64 total = std::max<qint64>(layout.blocks(), 1);
    qint64 done = 0;
    QByteArray buffer(kBlocksPerWrite * AudioTrackProducer::kBlockBytes, Qt::Uninitialized);
    digests->clear();
    for (size_t index = 0; index < layout.tracks.size(); ++index) {
        AudioTrackProducer& producer = *layout.tracks[index].producer;
        const QString name = QFileInfo(producer.path()).fileName();
        QString why;
        if (!producer.prepareTrack(&why))
            return QStringLiteral("Track %1 (%2) cannot be read: %3").arg(index + 1).arg(name, why);
        QCryptographicHash digest(QCryptographicHash::Sha1);
        qint64 left = producer.length();
        while (left > 0) {
            if (job.isCancelled()) {
                producer.cleanupTrackAfterBurn();
                return QStringLiteral("cancelled");
            }
            const qint64 blocks = std::min<qint64>(left, kBlocksPerWrite);
            const qint64 wanted = blocks * AudioTrackProducer::kBlockBytes;
            qint64 filled = 0;
            while (filled < wanted) {
                const qint64 got = producer.produceData(buffer.data() + filled, wanted - filled);
                if (got <= 0)
                    break;
                filled += got;
            }
            if (filled < wanted) {
                producer.cleanupTrackAfterBurn();
                return QStringLiteral("Track %1 (%2) ended before its length; has it changed since the burn began?")
                    .arg(index + 1)
                    .arg(name);
            }
            const QByteArray chunk = QByteArray::fromRawData(buffer.constData(), qsizetype(wanted));
            digest.addData(chunk);
            if (!bin.write(chunk)) {
                producer.cleanupTrackAfterBurn();
                return bin.errorString();
            }
            left -= blocks;
            done += blocks;
            job.setProgress(100.0 * double(done) / double(total),
                            QStringLiteral("Writing track %1 of %2").arg(index + 1).arg(layout.tracks.size()));
        }
        producer.cleanupTrackAfterBurn();
        digests->append(digest.result());
    }
    if (!bin.commit())
        return QStringLiteral("%1 cannot be written: %2").arg(binPath, bin.errorString());
    QString error;
    if (!SafeFile::writeFile(cuePath, cueText(layout, QFileInfo(binPath).fileName()), &error))
        return QStringLiteral("%1 cannot be written: %2").arg(cuePath, error);
    return {};
}

QString AudioDiscImage::verify(Job& job, const QString& device, const QList<QByteArray>& digests, bool* same)
{
    *same = false;
    const QString paranoia = ResourceLocator::pathForTool(QStringLiteral("cdparanoia"));
    if (paranoia.isEmpty())
        return QStringLiteral("not verified: cd-paranoia is not installed");
    const std::unique_ptr<QTemporaryDir> folder = BurnCache::make(QStringLiteral("WAV"));
    if (!folder)
        return QStringLiteral("not verified: no room to read the tracks back into");
    for (qsizetype index = 0; index < digests.size(); ++index) {
        job.setStatus(QStringLiteral("Verifying track %1 of %2").arg(index + 1).arg(digests.size()));
        const QString wav = folder->filePath(QStringLiteral("track.wav"));
        ChildProcess child(paranoia, ExportArguments::cdparanoiaArguments(device, int(index + 1), false, wav));
        if (runCancellable(job, child) != 0)
            return job.isCancelled() ? QStringLiteral("cancelled")
                                     : QStringLiteral("track %1 cannot be read back").arg(index + 1);
        const QByteArray read = wavSamples(wav);
        QFile::remove(wav);
        if (QCryptographicHash::hash(read, QCryptographicHash::Sha1) != digests.at(index))
            return QStringLiteral("track %1 differs from what was written").arg(index + 1);
    }
    *same = true;
    return QStringLiteral("verified");
}

#include "common/BurnFixtures.h"
#include "common/TestSupport.h"

#include <QFile>

namespace burnfixtures {

namespace {

void putLE(QByteArray& out, quint64 value, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        out.append(char(value >> (8 * i)));
}
void putBE(QByteArray& out, quint64 value, int bytes)
{
    for (int i = bytes - 1; i >= 0; --i)
        out.append(char(value >> (8 * i)));
}

QByteArray samples(const PcmPlan& plan, bool bigEndian)
{
    const int bytes = (plan.bits + 7) / 8;
    QByteArray out;
    for (qint64 frame = 0; frame < plan.frames; ++frame) {
        for (int channel = 0; channel < plan.channels; ++channel) {
            const quint32 value = plan.sample(frame, channel);
            bigEndian ? putBE(out, value, bytes) : putLE(out, value, bytes);
        }
    }
    return out;
}

}  // namespace

QByteArray wavFile(const PcmPlan& plan)
{
    const QByteArray data = samples(plan, false);
    const int bytes = (plan.bits + 7) / 8;
    QByteArray out("RIFF");
    putLE(out, quint64(36 + data.size()), 4);
    out += "WAVEfmt ";
    putLE(out, 16, 4);
    putLE(out, 1, 2);
    putLE(out, quint64(plan.channels), 2);
    putLE(out, plan.rate, 4);
    putLE(out, quint64(plan.rate) * quint64(plan.channels * bytes), 4);
    putLE(out, quint64(plan.channels * bytes), 2);
    putLE(out, quint64(plan.bits), 2);
    out += "data";
    putLE(out, quint64(plan.declaredDataBytes < 0 ? data.size() : plan.declaredDataBytes), 4);
    return out + data;
}

QByteArray aiffFile(const PcmPlan& plan)
{
    const QByteArray data = samples(plan, true);
    QByteArray comm("COMM");
    putBE(comm, 18, 4);
    putBE(comm, quint64(plan.channels), 2);
    putBE(comm, quint64(plan.frames), 4);
    putBE(comm, quint64(plan.bits), 2);
    // 80-bit extended: exponent, then the mantissa with its leading one.
    const quint32 exponent = plan.rate == 22050 ? 0x400D : 0x400E;
    putBE(comm, exponent, 2);
    putBE(comm, quint64(plan.rate == 22050 ? 0xAC44 : 0xAC44) << 48, 8);
    QByteArray ssnd("SSND");
    putBE(ssnd, quint64(plan.declaredDataBytes < 0 ? data.size() + 8 : plan.declaredDataBytes + 8), 4);
    putBE(ssnd, 0, 4);
    putBE(ssnd, 0, 4);
    QByteArray out("FORM");
    putBE(out, quint64(4 + comm.size() + ssnd.size() + data.size()), 4);
    return out + "AIFF" + comm + ssnd + data;
}

bool writeSparseWav(const QString& path, qint64 seconds)
{
    PcmPlan plan;
    plan.frames = 0;
    plan.declaredDataBytes = seconds * 44100 * 4 + 8;  // the producer leaves out 8 bytes
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(wavFile(plan)) < 0)
        return false;
    return file.resize(44 + plan.declaredDataBytes);
}

bool makeTone(const QString& path, double seconds, int frequency)
{
    return testsupport::run("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16", path, "synth",
                                    QString::number(seconds), "sine", QString::number(frequency)}) == 0;
}

bool makeMp3(const QString& wav, const QString& mp3, const QString& title, const QString& artist,
             const QString& genre)
{
    return testsupport::run("lame", {"--quiet", "--id3v2-only", "--tt", title, "--ta", artist, "--tl", "Album",
                                     "--ty", "2001", "--tg", genre, wav, mp3}) == 0;
}

bool makeOgg(const QString& wav, const QString& ogg, const QString& title, const QString& artist)
{
    return testsupport::run("oggenc", {"-Q", "-t", title, "-a", artist, "-l", "Album", wav, "-o", ogg}) == 0;
}

QByteArray decodedSamples(const QString& path)
{
    QByteArray out;
    testsupport::run("ffmpeg", {"-nostdin", "-v", "error", "-i", path, "-f", "s16le", "-ac", "2", "-ar", "44100",
                                "pipe:1"},
                     &out);
    return out;
}

}  // namespace burnfixtures

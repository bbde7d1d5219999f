#pragma once
// Fixture makers and probes shared by the export tests.
#include "common/TestSupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QtEndian>

namespace encodetest {

// A sine tone made by sox; extra arguments go before the output name (e.g. "-b", "24").
inline bool makeTone(const QString& path, double seconds, int rate = 44100, int channels = 2,
                     const QStringList& extra = {}, int frequency = 440)
{
    QStringList arguments {"-n", "-r", QString::number(rate), "-c", QString::number(channels)};
    arguments << extra << path << "synth" << QString::number(seconds) << "sine" << QString::number(frequency);
    return testsupport::run("sox", arguments) == 0;
}

// What a file holds when it holds one sine tone: how long it plays and at what
// pitch, measured on its decoded samples (so a file made of another file's audio,
// or cut short, shows).
struct Tone {
    double seconds = 0;
    double frequency = 0;
};

inline Tone measureTone(const QString& path)
{
    constexpr int rate = 16000;
    QProcess ffmpeg;
    ffmpeg.start("ffmpeg", {"-v", "error", "-i", path, "-f", "s16le", "-ac", "1", "-ar", QString::number(rate), "-"});
    if (!ffmpeg.waitForFinished(60000) || ffmpeg.exitCode() != 0)
        return {};
    const QByteArray pcm = ffmpeg.readAllStandardOutput();
    const qsizetype samples = pcm.size() / 2;
    // Upward passes through the middle, with some hysteresis so that encoder
    // noise around silence does not count; the pitch is their rate.
    qsizetype first = -1, last = -1, rises = 0;
    int side = 0;
    for (qsizetype i = 0; i < samples; ++i) {
        const int value = qFromLittleEndian<qint16>(pcm.constData() + 2 * i);
        if (value < -2000) {
            side = -1;
        } else if (value > 2000 && side < 0) {
            side = 1;
            ++rises;
            if (first < 0)
                first = i;
            last = i;
        } else if (value > 2000) {
            side = 1;
        }
    }
    Tone tone;
    tone.seconds = double(samples) / rate;
    if (rises > 1)
        tone.frequency = double(rises - 1) * rate / double(last - first);
    return tone;
}

struct Probe {
    bool ok = false;
    QString codec;
    int sampleRate = 0;
    int channels = 0;
    double duration = 0;
    QJsonObject tags;  // keys lower-cased
};

inline Probe probe(const QString& path)
{
    QByteArray out;
    Probe result;
    if (testsupport::run("ffprobe", {"-v", "error", "-show_streams", "-show_format", "-of", "json", path}, &out) != 0)
        return result;
    const QJsonObject root = QJsonDocument::fromJson(out.mid(out.indexOf('{'))).object();
    const QJsonArray streams = root.value("streams").toArray();
    for (const QJsonValue& stream : streams) {
        const QJsonObject s = stream.toObject();
        if (s.value("codec_type").toString() != "audio")
            continue;
        result.ok = true;
        result.codec = s.value("codec_name").toString();
        result.sampleRate = s.value("sample_rate").toString().toInt();
        result.channels = s.value("channels").toInt();
        // Ogg keeps its comments with the stream, the other containers with the file.
        const QJsonObject tags = s.value("tags").toObject();
        for (auto it = tags.begin(); it != tags.end(); ++it)
            result.tags.insert(it.key().toLower(), it.value());
        break;
    }
    const QJsonObject format = root.value("format").toObject();
    result.duration = format.value("duration").toString().toDouble();
    const QJsonObject tags = format.value("tags").toObject();
    for (auto it = tags.begin(); it != tags.end(); ++it)
        result.tags.insert(it.key().toLower(), it.value());
    return result;
}

} // namespace encodetest

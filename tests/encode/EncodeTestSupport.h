#pragma once
// Fixture makers and probes shared by the export tests.
#include "common/TestSupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>
#include <QStringList>

namespace encodetest {

// A sine tone made by sox; extra arguments go before the output name (e.g. "-b", "24").
inline bool makeTone(const QString& path, double seconds, int rate = 44100, int channels = 2,
                     const QStringList& extra = {})
{
    QStringList arguments {"-n", "-r", QString::number(rate), "-c", QString::number(channels)};
    arguments << extra << path << "synth" << QString::number(seconds) << "sine" << "440";
    return testsupport::run("sox", arguments) == 0;
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

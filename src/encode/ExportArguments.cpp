#include "encode/ExportArguments.h"

#include "core/Defaults.h"
#include "tags/ID3Tables.h"

#include <algorithm>

namespace ExportArguments {

namespace {

bool isMono(const QVariant& value)
{
    return value.toLongLong() == 1;
}

QString text(const QVariantMap& map, const char* key)
{
    return map.value(QLatin1String(key)).toString();
}

void appendTag(QStringList& arguments, const QVariantMap& tags, const char* key, const char* option)
{
    if (tags.contains(QLatin1String(key))) {
        arguments << QLatin1String(option) << text(tags, key);
    }
}

// Index and percentage values topped at 224 kbit/s (AAC and Ogg).
int toppedAt224(qint64 value)
{
    return std::min(bitrateForIndexOrPercent(value), 224);
}

QString flashAbrRate(const QVariant& quality)
{
    switch (quality.toLongLong()) {
    case 0: return QStringLiteral("32");
    case 25: return QStringLiteral("48");
    case 50: return QStringLiteral("64");
    case 100: return QStringLiteral("128");
    default: return QStringLiteral("96");
    }
}

} // namespace

TspSettings TspSettings::fromDefaults()
{
    Defaults& defaults = Defaults::standard();
    TspSettings settings;
    settings.bitrate = defaults.integerForKey(QStringLiteral("mTSPBitrateStored"));
    settings.mono = defaults.integerForKey(QStringLiteral("mTSPMonoStored"));
    settings.vbr = defaults.integerForKey(QStringLiteral("mTSPVBRStored"));
    settings.resample = defaults.integerForKey(QStringLiteral("mTSPResampleStored"));
    return settings;
}

int bitrateForIndex(qint64 index)
{
    switch (index) {
    case 1: return 32;
    case 2: return 40;
    case 3: return 48;
    case 4: return 56;
    case 5: return 64;
    case 6: return 80;
    case 7: return 96;
    case 8: return 112;
    case 10: return 160;
    case 11: return 192;
    case 12: return 224;
    case 13: return 256;
    case 14: return 320;
    default: return 128;
    }
}

int bitrateForIndexOrPercent(qint64 value)
{
    switch (value) {
    case 25: return 160;
    case 50: return 192;
    case 75: return 256;
    case 100: return 320;
    default: return bitrateForIndex(value);
    }
}

QString matchGenre(const QString& genre)
{
    const QString wanted = genre.toLower().trimmed();
    if (wanted.isEmpty())
        return {};
    for (const char* name : ID3_v1_genre_description) {
        if (QString::fromLatin1(name).compare(wanted, Qt::CaseInsensitive) == 0)
            return QString::fromLatin1(name);
    }
    for (const char* name : ID3_v1_genre_description) {
        if (wanted.startsWith(QString::fromLatin1(name), Qt::CaseInsensitive))
            return QString::fromLatin1(name);
    }
    return {};
}

QStringList mp3ExportParams(const TspSettings& settings, int sampleBits)
{
    const QString rate = QString::number(bitrateForIndex(settings.bitrate));
    QStringList arguments;
    if (sampleBits <= 16 && settings.vbr == 0) {
        arguments << QStringLiteral("-b") << rate;
    } else {
        // Above 16 bits per sample, or VBR: the rate is the upper bound.
        arguments << QStringLiteral("-B") << rate;
        if (sampleBits <= 16)
            arguments << QStringLiteral("-v");
    }
    if (settings.mono == 1)
        arguments << QStringLiteral("-a");
    return arguments;
}

namespace {

// Rip settings of the LAME-like encoders: a variable rate with a maximum, or a
// fixed or average rate under the encoder's own option name.
QStringList rateParams(const QVariantMap& ripSettings, const QString& fixedRateOption)
{
    if (ripSettings.isEmpty())
        return {};
    const qint64 bitrate = ripSettings.value(QStringLiteral("bitrate")).toLongLong();
    QStringList arguments;
    if (ripSettings.value(QStringLiteral("vbr")).toLongLong() != 0) {
        arguments << QStringLiteral("-v") << QStringLiteral("-B")
                  << QString::number(bitrateForIndex(bitrate));
    } else {
        arguments << fixedRateOption << QString::number(bitrateForIndexOrPercent(bitrate));
    }
    if (isMono(ripSettings.value(QStringLiteral("mono"))))
        arguments << QStringLiteral("-a");
    return arguments;
}

QStringList flashRateParams(const QVariantMap& flashSettings, const QString& rateOption)
{
    if (!flashSettings.value(QStringLiteral("whenpossible")).toBool())
        return {};
    QStringList arguments {rateOption, flashAbrRate(flashSettings.value(QStringLiteral("quality")))};
    if (isMono(flashSettings.value(QStringLiteral("mono"))))
        arguments << QStringLiteral("-a");
    return arguments;
}

} // namespace

QStringList mp3RipParams(const QVariantMap& ripSettings)
{
    return rateParams(ripSettings, QStringLiteral("--abr"));
}

QStringList mp3FlashParams(const QVariantMap& flashSettings)
{
    return flashRateParams(flashSettings, QStringLiteral("--abr"));
}

QStringList lameParamsFromComments(const QVariantMap& tags)
{
    QStringList arguments;
    appendTag(arguments, tags, "title", "--tt");
    appendTag(arguments, tags, "artist", "--ta");
    appendTag(arguments, tags, "album", "--tl");
    appendTag(arguments, tags, "track", "--tn");
    if (tags.contains(QStringLiteral("genre"))) {
        const QString genre = matchGenre(text(tags, "genre"));
        if (!genre.isEmpty())
            arguments << QStringLiteral("--tg") << genre;
    }
    appendTag(arguments, tags, "year", "--ty");
    return arguments;
}

QStringList mp2ExportParams(const TspSettings& settings, int sampleBits)
{
    return mp3ExportParams(settings, sampleBits);
}

QStringList mp2RipParams(const QVariantMap& ripSettings)
{
    return rateParams(ripSettings, QStringLiteral("--bitrate"));
}

QStringList mp2FlashParams(const QVariantMap& flashSettings)
{
    return flashRateParams(flashSettings, QStringLiteral("--bitrate"));
}

QString aacRateText(qint64 value)
{
    return QStringLiteral("%1").arg(toppedAt224(value), 3, 10, QLatin1Char('0'));
}

QString aacSettingsName(qint64 value, bool mono)
{
    return QStringLiteral("AAC") + aacRateText(value) + QStringLiteral("BEST") +
           (mono ? QStringLiteral("MONO") : QStringLiteral("STEREO"));
}

QStringList mqpConvertArguments(const QString& source, const QString& settingsFile,
                                const QString& destination)
{
    return {QStringLiteral("-e"), source, QStringLiteral("-c"), settingsFile, destination};
}

QString oggRateText(qint64 value)
{
    if (value >= 1 && value <= 3)
        return QStringLiteral("48");
    return QString::number(toppedAt224(value));
}

QStringList oggParams(qint64 value, bool mono)
{
    return {oggRateText(value), mono ? QStringLiteral("1") : QStringLiteral("0")};
}

QStringList oggEncoderArguments(const QStringList& params, const QVariantMap& tags,
                                const QString& wavPath, const QString& savePath)
{
    QStringList arguments {QString(), QStringLiteral("-Q")};
    appendTag(arguments, tags, "title", "-t");
    appendTag(arguments, tags, "artist", "-a");
    appendTag(arguments, tags, "album", "-l");
    appendTag(arguments, tags, "track", "-N");
    appendTag(arguments, tags, "genre", "-G");
    appendTag(arguments, tags, "year", "-d");
    if (params.value(1) == QLatin1String("1"))
        arguments << QStringLiteral("--downmix");
    arguments << QStringLiteral("-b") << params.value(0, QStringLiteral("128"))
              << QStringLiteral("-o") << savePath << wavPath;
    return arguments;
}

QString wmaRateText(qint64 index)
{
    return QString::number(bitrateForIndex(index)) + QLatin1Char('k');
}

QStringList wmaArguments(const QString& wavPath, const QString& savePath, qint64 bitrateIndex, bool mono)
{
    QStringList arguments {QStringLiteral("-i"), wavPath, QStringLiteral("-acodec"), QStringLiteral("wmav2"),
                           QStringLiteral("-ab"), wmaRateText(bitrateIndex)};
    if (mono)
        arguments << QStringLiteral("-ac") << QStringLiteral("1");
    arguments << savePath;
    return arguments;
}

QString resampleRate(const QString& requestedRate, const TspSettings& settings)
{
    if (!requestedRate.isEmpty())
        return requestedRate;
    return settings.resample == 1 ? QStringLiteral("48000") : QStringLiteral("44100");
}

QStringList resampleArguments(const QString& rate)
{
    return {QStringLiteral("-af"), QStringLiteral("resample=") + rate, QStringLiteral("-ar"), rate};
}

QStringList ffmpegDecodeArguments(const QString& source, const QString& rate, const QString& output)
{
    return {QStringLiteral("-i"), source, QStringLiteral("-ar"), rate, output};
}

QStringList mplayerDecodeArguments(const QString& source, const QString& rate, const QString& output)
{
    return {source, QStringLiteral("-af"), QStringLiteral("resample=") + rate,
            QStringLiteral("-vc"), QStringLiteral("null"), QStringLiteral("-vo"), QStringLiteral("null"),
            QStringLiteral("-ao"), QStringLiteral("pcm:file=\"") + output + QLatin1Char('"')};
}

QStringList cdparanoiaArguments(const QString& device, int track, bool maxSpeed, const QString& output,
                                const QString& summaryLog)
{
    QStringList arguments;
    if (!device.isEmpty())
        arguments << QStringLiteral("-d") << device;
    if (maxSpeed)
        arguments << QStringLiteral("-Z");
    if (!summaryLog.isEmpty())
        arguments << QStringLiteral("-l") << summaryLog;
    arguments << QString::number(track) << output;
    return arguments;
}

QStringList ffmpegTrackArguments(const QString& device, qint64 firstSector, qint64 sectors, const QString& rate,
                                 const QString& output)
{
    // Seeking lands on whole seconds only; the trim then starts on the track's
    // first sample and ends after its last (588 samples to a sector).
    const qint64 seconds = firstSector / 75;
    const qint64 start = (firstSector - seconds * 75) * 588;
    return {QStringLiteral("-f"),
            QStringLiteral("libcdio"),
            QStringLiteral("-ss"),
            QString::number(seconds),
            QStringLiteral("-i"),
            device,
            QStringLiteral("-af"),
            QStringLiteral("atrim=start_sample=%1:end_sample=%2").arg(start).arg(start + sectors * 588),
            QStringLiteral("-ar"),
            rate,
            output};
}

QStringList aiffArguments(const QString& source, const QString& rate, const QString& output)
{
    return {QStringLiteral("-i"), source, QStringLiteral("-ar"), rate, QStringLiteral("-f"),
            QStringLiteral("aiff"), output};
}

ClipSettings ClipSettings::fromRequest(const QVariantMap& request)
{
    const QVariantMap settings = request.value(QStringLiteral("clipsettings")).toMap();
    auto pick = [&](const char* key, const QString& fallback) {
        const QString value = text(settings, key);
        return value.isEmpty() ? fallback : value;
    };
    ClipSettings clip;
    clip.start = pick("mRipClipStartStored", QStringLiteral("0"));
    clip.duration = pick("mRipClipDurationStored", QStringLiteral("0"));
    clip.fadeIn = pick("mRipClipFadeInStored", QStringLiteral("0"));
    clip.fadeOut = pick("mRipClipFadeOutStored", QStringLiteral("0"));
    clip.volume = text(settings, "volume");
    // A rip carries start and length inside its clip settings, the Clip tab in the request.
    for (const QVariantMap* source : {&settings, &request}) {
        if (!text(*source, "clipstart").isEmpty())
            clip.start = text(*source, "clipstart");
        if (!text(*source, "cliplength").isEmpty())
            clip.duration = text(*source, "cliplength");
    }
    return clip;
}

QStringList soxClipArguments(const QString& input, const QString& output, const ClipSettings& clip)
{
    QStringList arguments {input, output, QStringLiteral("trim"), clip.start, clip.duration,
                           QStringLiteral("fade"), QStringLiteral("t"), clip.fadeIn, clip.duration,
                           clip.fadeOut};
    if (!clip.volume.isEmpty())
        arguments << QStringLiteral("vol") << clip.volume << QStringLiteral("dB");
    return arguments;
}

} // namespace ExportArguments

#pragma once
#include <QString>
#include <QStringList>
#include <QVariantMap>

// The command lines of the export jobs, as pure functions of their settings,
// so that what each encoder and decoder is told can be checked as data.
namespace ExportArguments {

// The export settings the user keeps in the defaults ("mTSP…" keys); used when
// a request brings neither rip nor flash settings.
struct TspSettings {
    qint64 bitrate = 0;   // bit-rate index
    qint64 mono = 0;      // 1 = mono
    qint64 vbr = 0;       // non-zero = variable bit rate
    qint64 resample = 0;  // 1 = 48,000 Hz, otherwise 44,100 Hz
    static TspSettings fromDefaults();
};

// kbit/s of a bit-rate index; 9 and unknown values are 128.
int bitrateForIndex(qint64 index);
// The same, also taking the flash dialog's quality percentages 25/50/75/100.
int bitrateForIndexOrPercent(qint64 value);

// The ID3v1 genre name matching a free genre text: a whole match, else the first
// name that starts the text (both ignoring case); empty when none does.
QString matchGenre(const QString& genre);

// lame
QStringList mp3ExportParams(const TspSettings& settings, int sampleBits);
QStringList mp3RipParams(const QVariantMap& ripSettings);
QStringList mp3FlashParams(const QVariantMap& flashSettings);
QStringList lameParamsFromComments(const QVariantMap& tags);

// twolame
QStringList mp2ExportParams(const TspSettings& settings, int sampleBits);
QStringList mp2RipParams(const QVariantMap& ripSettings);
QStringList mp2FlashParams(const QVariantMap& flashSettings);

// AAC through mqp: the settings file name, e.g. "AAC128BESTSTEREO".
QString aacRateText(qint64 value);  // "032".."224"
QString aacSettingsName(qint64 value, bool mono);
QStringList mqpConvertArguments(const QString& source, const QString& settingsFile,
                                const QString& destination);

// Ogg Vorbis: the stored parameters are {rate, "1"/"0" for mono}.
QString oggRateText(qint64 value);
QStringList oggParams(qint64 value, bool mono);
// The encoder's argument vector: empty program slot, "-Q", tags, "--downmix", "-b", "-o", WAV.
QStringList oggEncoderArguments(const QStringList& params, const QVariantMap& tags,
                                const QString& wavPath, const QString& savePath);

// ffmpeg WMA
QString wmaRateText(qint64 index);  // "32k".."320k"
QStringList wmaArguments(const QString& wavPath, const QString& savePath, qint64 bitrateIndex,
                         bool mono);

// The WAV stage.
QString resampleRate(const QString& requestedRate, const TspSettings& settings);
QStringList resampleArguments(const QString& rate);  // "-af", "resample=R", "-ar", R
QStringList ffmpegDecodeArguments(const QString& source, const QString& rate, const QString& output);
QStringList mplayerDecodeArguments(const QString& source, const QString& rate, const QString& output);
// summaryLog: where cd-paranoia writes its summary of the read (none when empty).
QStringList cdparanoiaArguments(const QString& device, int track, bool maxSpeed, const QString& output,
                                const QString& summaryLog = {});
// ffmpeg reading one track of a disc (a drive or a cue sheet) through libcdio:
// firstSector counts from the disc's first audio sector; the cut is sample-exact.
QStringList ffmpegTrackArguments(const QString& device, qint64 firstSector, qint64 sectors, const QString& rate,
                                 const QString& output);
QStringList aiffArguments(const QString& source, const QString& rate, const QString& output);

// The clip: sox input output trim START LENGTH fade t IN LENGTH OUT [vol V dB].
struct ClipSettings {
    QString start, duration, fadeIn, fadeOut, volume;
    // The request's "clipsettings", with its "clipstart" and "cliplength" winning.
    static ClipSettings fromRequest(const QVariantMap& request);
};
QStringList soxClipArguments(const QString& input, const QString& output, const ClipSettings& clip);

} // namespace ExportArguments

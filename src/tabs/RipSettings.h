#pragma once
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

// The Rip tab's settings. Per format, one dictionary (bit rate, VBR, mono, error
// correction off, character changes, folder options, file name format, custom
// format) kept in the defaults under mRipSettingsDictionaryStored, keyed "mp3"
// (MP2 rips follow it), "clpmp3" (the clip made during a rip), "ogg", "aac" (also
// M4A and M4B) and "wma" (also WAV); beside them the tab's own keys.
struct RipSettings {
    QVariantMap formats;       // by settings key, each complete
    QStringList multiRip;      // the formats a MULTI-RIP makes, in the order of formatNames()
    QString cacheFolder;       // where the intermediate WAVs go; the user's cache folder when empty
    bool inBackground = true;  // encoders run under task slots while the next track is read
    bool writeLog = false;     // a rip log beside the files
    QVariantMap clip;          // mRipClipStored, mRipClipStartStored, ... for the clip made during a rip

    // "AAC", "M4A", "M4B", "MP2", "MP3", "OGG", "WAV", "WMA".
    static const QStringList& formatNames();
    // The key of a format's dictionary: "mp3" for MP3 and MP2, "aac" for AAC, M4A
    // and M4B, "wma" for WMA and WAV, "clpmp3" for "clp"; any case.
    static QString keyFor(const QString& format);
    // What "Default" restores.
    static QVariantMap defaultFormatSettings();
    static QStringList defaultMultiRip();

    // From the defaults, missing values filled with the defaults.
    static RipSettings stored();
    // Into the defaults, synchronised.
    void store() const;

    QVariantMap forFormat(const QString& format) const;
    void setForFormat(const QString& format, const QVariantMap& settings);
    // The request's "rippanelsettings": every format's dictionary under its key
    // (with "mp2" and "WAV" beside "mp3" and "wma"), and "maxspeed" of the format ripped.
    QVariantMap panelSettings(const QString& format) const;
    // The request's "clipsettings", or empty when no clip is made.
    QVariantMap clipSettings() const;
};

#include "tabs/RipSettings.h"

#include "core/Defaults.h"

namespace {

const QString kDictionaryKey = QStringLiteral("mRipSettingsDictionaryStored");
const QString kMultiRipKey = QStringLiteral("mMultiRipStored");
const QString kCacheFolderKey = QStringLiteral("mRipCacheFolderStored");
const QString kBackgroundKey = QStringLiteral("mRipInBackgroundStored");
const QString kLogKey = QStringLiteral("mRipLogStored");
const QStringList kClipKeys = {"mRipClipStored", "mRipClipStartStored", "mRipClipDurationStored",
                               "mRipClipFadeInStored", "mRipClipFadeOutStored"};
const QStringList kOwnKeys = {"mp3", "clpmp3", "ogg", "aac", "wma"};

}  // namespace

const QStringList& RipSettings::formatNames()
{
    static const QStringList names = {"AAC", "M4A", "M4B", "MP2", "MP3", "OGG", "WAV", "WMA"};
    return names;
}

QString RipSettings::keyFor(const QString& format)
{
    const QString lower = format.toLower();
    if (lower == QLatin1String("mp2"))
        return QStringLiteral("mp3");
    if (lower == QLatin1String("m4a") || lower == QLatin1String("m4b"))
        return QStringLiteral("aac");
    if (lower == QLatin1String("wav"))
        return QStringLiteral("wma");
    if (lower == QLatin1String("clp"))
        return QStringLiteral("clpmp3");
    return lower;
}

QVariantMap RipSettings::defaultFormatSettings()
{
    return {{"bitrate", 10},
            {"vbr", 0},
            {"mono", 0},
            {"maxspeed", 0},
            {"charchange", QVariantList()},
            {"mRipSubfoldersStored", 0},
            {"mRipTypeFolderStored", 0},
            {"mRipFolderCaseStored", 0},
            {"mRipFolderSpacesStored", 0},
            {"mRipFilenameFormatStored", 0},
            {"mRipSettingsFormatStringStored", QStringLiteral("[Title].[ext]")}};
}

QStringList RipSettings::defaultMultiRip()
{
    return {QStringLiteral("MP3"), QStringLiteral("OGG")};
}

RipSettings RipSettings::stored()
{
    Defaults& defaults = Defaults::standard();
    RipSettings settings;
    const QVariantMap kept = defaults.dictionaryForKey(kDictionaryKey);
    for (const QString& key : kOwnKeys) {
        QVariantMap format = defaultFormatSettings();
        const QVariantMap stored = kept.value(key).toMap();
        for (auto it = stored.begin(); it != stored.end(); ++it)
            format.insert(it.key(), it.value());
        settings.formats.insert(key, format);
    }
    for (const QVariant& format : defaults.arrayForKey(kMultiRipKey)) {
        if (formatNames().contains(format.toString()))
            settings.multiRip << format.toString();
    }
    if (!defaults.hasKey(kMultiRipKey))
        settings.multiRip = defaultMultiRip();
    settings.cacheFolder = defaults.stringForKey(kCacheFolderKey);
    settings.inBackground = !defaults.hasKey(kBackgroundKey) || defaults.integerForKey(kBackgroundKey) != 0;
    settings.writeLog = defaults.integerForKey(kLogKey) != 0;
    for (const QString& key : kClipKeys) {
        if (defaults.hasKey(key))
            settings.clip.insert(key, defaults.objectForKey(key));
    }
    return settings;
}

void RipSettings::store() const
{
    Defaults& defaults = Defaults::standard();
    QVariantMap kept = formats;
    // MP2 rips follow the MP3 settings and WAV rips the WMA settings: the same
    // dictionary under both keys.
    kept.insert(QStringLiteral("mp2"), formats.value(QStringLiteral("mp3")));
    kept.insert(QStringLiteral("WAV"), formats.value(QStringLiteral("wma")));
    defaults.setObject(kDictionaryKey, kept);
    defaults.setObject(kMultiRipKey, multiRip);
    defaults.setObject(kCacheFolderKey, cacheFolder);
    defaults.setInteger(kBackgroundKey, inBackground ? 1 : 0);
    defaults.setInteger(kLogKey, writeLog ? 1 : 0);
    for (auto it = clip.begin(); it != clip.end(); ++it)
        defaults.setObject(it.key(), it.value());
    defaults.synchronize();
}

QVariantMap RipSettings::forFormat(const QString& format) const
{
    const QVariantMap settings = formats.value(keyFor(format)).toMap();
    return settings.isEmpty() ? defaultFormatSettings() : settings;
}

void RipSettings::setForFormat(const QString& format, const QVariantMap& settings)
{
    QVariantMap complete = defaultFormatSettings();
    for (auto it = settings.begin(); it != settings.end(); ++it)
        complete.insert(it.key(), it.value());
    // A change without "with" takes nothing in place of what it finds, and says so.
    QVariantList changes;
    for (const QVariant& entry : complete.value(QStringLiteral("charchange")).toList()) {
        QVariantMap change = entry.toMap();
        if (!change.contains(QStringLiteral("with")))
            change.insert(QStringLiteral("with"), QString());
        changes << change;
    }
    complete.insert(QStringLiteral("charchange"), changes);
    formats.insert(keyFor(format), complete);
}

QVariantMap RipSettings::panelSettings(const QString& format) const
{
    QVariantMap panel;
    for (const QString& key : kOwnKeys)
        panel.insert(key, forFormat(key));
    panel.insert(QStringLiteral("mp2"), panel.value(QStringLiteral("mp3")));
    panel.insert(QStringLiteral("WAV"), panel.value(QStringLiteral("wma")));
    panel.insert(QStringLiteral("maxspeed"), forFormat(format).value(QStringLiteral("maxspeed")).toInt() != 0);
    return panel;
}

QVariantMap RipSettings::clipSettings() const
{
    return clip.value(QStringLiteral("mRipClipStored")).toInt() == 1 ? clip : QVariantMap();
}

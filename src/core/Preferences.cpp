#include "core/Preferences.h"

#include "core/Defaults.h"
#include "platform/AppPaths.h"

Preferences& Preferences::sharedInstance()
{
    static Preferences* preferences = new Preferences;
    return *preferences;
}

const std::vector<Preferences::IntSetting>& Preferences::intSettings()
{
    // 600 and 649 are two different warning sizes; both are wanted.
    static const std::vector<IntSetting> settings = {
        {PrefKeys::ShowPlayer, 0},      {PrefKeys::ShowWriter, 0},       {PrefKeys::RipFromFolder, 0},
        {PrefKeys::AutoEject, 1},       {PrefKeys::AutoPlay, 0},         {PrefKeys::IncludeJoliet, 1},
        {PrefKeys::StripID3v2, 0},      {PrefKeys::AppendID3v1, 1},      {PrefKeys::UseCoverart, 0},
        {PrefKeys::WarnSpaceCheck, 1},  {PrefKeys::WarnSpaceCombo, 600}, {PrefKeys::WarnMoreCheck, 1},
        {PrefKeys::WarnMoreCombo, 649}, {PrefKeys::PreserveOrder, 0},    {PrefKeys::CreateM3U, 0},
        {PrefKeys::AutoClip, 0},
    };
    return settings;
}

QString Preferences::defaultM3UExportFolder()
{
    return AppPaths::abbreviateHome(AppPaths::dataDir() + "/M3U");
}

void Preferences::prefsLoad()
{
    Defaults& defaults = Defaults::standard();
    for (const IntSetting& setting : intSettings())
        ints_[setting.key] = int(defaults.integerForKey(setting.key));
    const QString prefix = defaults.stringForKey(PrefKeys::M3UPathPrefix);
    m3uPathPrefix_ = prefix.isNull() ? QString("") : prefix;
    const QString folder = defaults.stringForKey(PrefKeys::M3UExportFolder);
    m3uExportFolder_ = folder.isNull() ? defaultM3UExportFolder() : folder;
    if (defaults.integerForKey(PrefKeys::Inited) != 1)
        prefsDefaults();
    else
        prefsRevert();
}

void Preferences::prefsSave()
{
    Defaults& defaults = Defaults::standard();
    for (const IntSetting& setting : intSettings())
        defaults.setInteger(setting.key, ints_.value(setting.key));
    defaults.setObject(PrefKeys::M3UPathPrefix, m3uPathPrefix_.isNull() ? QString("") : m3uPathPrefix_);
    defaults.setObject(PrefKeys::M3UExportFolder,
                       m3uExportFolder_.isEmpty() ? defaultM3UExportFolder() : m3uExportFolder_);
    defaults.setInteger(PrefKeys::Inited, 1);
    defaults.synchronize();
    emit saveEnabledChanged(false);
}

void Preferences::prefsDefaults()
{
    for (const IntSetting& setting : intSettings())
        ints_[setting.key] = setting.defaultValue;
    m3uPathPrefix_ = "";
    m3uExportFolder_ = defaultM3UExportFolder();
    Defaults& defaults = Defaults::standard();
    if (!defaults.hasKey(PrefKeys::SelectedTab))
        defaults.setInteger(PrefKeys::SelectedTab, 0);
    prefsRevert();
    prefsSave();
}

void Preferences::prefsRevert()
{
    emit controlsReverted();
}

void Preferences::prefsClearAppendibleCheckbox()
{
    Defaults::standard().setObject("DRBurnOptionsAppendable", false);
    Defaults::standard().synchronize();
}

int Preferences::prefsIntForKey(const QString& key) const
{
    return ints_.value(key, 0);
}

QString Preferences::prefsStringForKey(const QString& key) const
{
    if (key == QLatin1String(PrefKeys::M3UPathPrefix))
        return m3uPathPrefix_;
    if (key == QLatin1String(PrefKeys::M3UExportFolder))
        return m3uExportFolder_;
    return {};
}

void Preferences::setPrefsInt(const QString& key, int value)
{
    ints_[key] = value;
}

void Preferences::setPrefsString(const QString& key, const QString& value)
{
    if (key == QLatin1String(PrefKeys::M3UPathPrefix))
        m3uPathPrefix_ = value;
    else if (key == QLatin1String(PrefKeys::M3UExportFolder))
        m3uExportFolder_ = value;
}

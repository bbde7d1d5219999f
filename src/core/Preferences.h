#pragma once
#include <QHash>
#include <QObject>
#include <QString>
#include <QStringList>

// The application-wide settings of the Preferences window. Each setting is a
// field here, loaded from the defaults database at start, written back on
// save, and put back into the window's controls on revert. Other components
// read them through prefsIntForKey / prefsStringForKey.
class Preferences : public QObject {
    Q_OBJECT
public:
    static Preferences& sharedInstance();

    // The integer settings in the order they are looked up, with their factory values.
    struct IntSetting {
        const char* key;
        int defaultValue;
    };
    static const std::vector<IntSetting>& intSettings();
    static QString defaultM3UExportFolder();

    void prefsLoad();
    void prefsSave();
    void prefsDefaults();
    void prefsRevert();
    void prefsClearAppendibleCheckbox();

    int prefsIntForKey(const QString& key) const;
    QString prefsStringForKey(const QString& key) const;

    // The window hands its controls' values over before saving.
    void setPrefsInt(const QString& key, int value);
    void setPrefsString(const QString& key, const QString& value);

signals:
    // The window puts its controls back from the fields.
    void controlsReverted();
    void saveEnabledChanged(bool enabled);

private:
    Preferences() = default;

    QHash<QString, int> ints_;
    QString m3uPathPrefix_;
    QString m3uExportFolder_;
};

namespace PrefKeys {
inline constexpr char ShowWriter[] = "prefsShowWriterStored";
inline constexpr char ShowPlayer[] = "prefsShowPlayerStored";
inline constexpr char AutoEject[] = "prefsAutoEjectStored";
inline constexpr char AutoPlay[] = "prefsAutoPlayStored";
inline constexpr char AutoClip[] = "prefsAutoClipStored";
inline constexpr char IncludeJoliet[] = "prefsIncludeJolietStored";
inline constexpr char StripID3v2[] = "prefsStripID3v2Stored";
inline constexpr char AppendID3v1[] = "prefsappendID3v1Stored";
inline constexpr char UseCoverart[] = "prefsuseCoverartStored";
inline constexpr char RipFromFolder[] = "prefsRipFromFolderStored";
inline constexpr char WarnSpaceCheck[] = "prefsWarnSpaceCheckStored";
inline constexpr char WarnSpaceCombo[] = "prefsWarnSpaceComboStored";
inline constexpr char WarnMoreCheck[] = "prefsWarnMoreCheckStored";
inline constexpr char WarnMoreCombo[] = "prefsWarnMoreComboStored";
inline constexpr char PreserveOrder[] = "prefsPreserveOrderStored";
inline constexpr char CreateM3U[] = "prefsCreateM3UStored";
inline constexpr char M3UPathPrefix[] = "prefsM3UPathPrefixStored";
inline constexpr char M3UExportFolder[] = "prefsM3UExportFolderStored";
inline constexpr char Inited[] = "prefsInited";
inline constexpr char SelectedTab[] = "mSelectedTabStored";
// The FreeDB client's own keys.
inline constexpr char HostName[] = "mHostName";
inline constexpr char UserName[] = "mUserName";
inline constexpr char DefaultHostName[] = "mDefaultHostName";
inline constexpr char FreeDBServerList[] = "mFreeDBServerList";
inline constexpr char DisableFreeDB[] = "mDisableFreeDB";
} // namespace PrefKeys

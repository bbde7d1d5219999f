#include "playlists/HPlayListDataSource.h"

#include "core/Defaults.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "playlists/PlaylistFiles.h"

HPlayListDataSource::HPlayListDataSource(QObject* parent) : QObject(parent) {}

HPlayListDataSource::~HPlayListDataSource()
{
    NotificationCenter::defaultCenter().removeObserver(this);
}

void HPlayListDataSource::awakeFromNib()
{
    names_.clear();
    for (const QVariant& name : Defaults::standard().arrayForKey(kDefaultsKey))
        if (name.typeId() == QMetaType::QString)
            names_.append(name.toString());
    NotificationCenter::defaultCenter().addObserver(
        this, VLDidHidePlaylistNotification,
        [this](const Notification& n) { vlDidHidePlaylistNotification(n.object.toString()); });
}

bool HPlayListDataSource::hideThisItem(const QString& path) const
{
    return names_.contains(PlaylistFiles::displayName(path));
}

QString HPlayListDataSource::nameAt(int row) const
{
    return row >= 0 && row < names_.size() ? names_.at(row) : QString();
}

void HPlayListDataSource::setNameAt(int row, const QString& text)
{
    if (row < 0 || row >= names_.size())
        return;
    names_[row] = PlaylistFiles::displayName(text);
    store();
    emit changed();
}

void HPlayListDataSource::selectRow(int row)
{
    selectedRow_ = row >= 0 && row < names_.size() ? row : -1;
}

void HPlayListDataSource::addPlaylist()
{
    names_.append(QString::fromLatin1(kPlaceholderName));
    selectedRow_ = int(names_.size()) - 1;
    store();
    emit changed();
}

void HPlayListDataSource::deletePlaylist()
{
    if (selectedRow_ < 0 || selectedRow_ >= names_.size())
        return;
    names_.removeAt(selectedRow_);
    if (selectedRow_ >= names_.size())
        selectedRow_ = -1;
    store();
    emit changed();
}

void HPlayListDataSource::vlDidHidePlaylistNotification(const QString& path)
{
    names_.append(PlaylistFiles::displayName(path));
    emit changed();
    store();
}

void HPlayListDataSource::store()
{
    Defaults::standard().setObject(kDefaultsKey, QVariantList(names_.begin(), names_.end()));
    Defaults::standard().synchronize();
}

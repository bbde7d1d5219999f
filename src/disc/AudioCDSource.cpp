#include "disc/AudioCDSource.h"

#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "disc/FreeDBWrapper.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>

audiocd_wrapper::audiocd_wrapper(const QVariantMap& description)
{
    getTracksFromPath(description.value("cdpath").toString());
    NotificationCenter& center = NotificationCenter::defaultCenter();
    auto handler = [this](const Notification& note) { vlHaveCDInfoNotification(note); };
    center.addObserver(this, VLHaveCDInfoNotification, handler);
    center.addObserver(this, VLHaveReqestedCDInfoNotification, handler);
    if (description.contains("genre")) {
        if (auto* wrapper = qobject_cast<FreeDBWrapper*>(description.value("freedbwrapper").value<QObject*>()))
            wrapper->getFreeDBRead(description.value("genre").toString() + '+' +
                                   description.value("discid").toString());
    }
}

audiocd_wrapper::~audiocd_wrapper()
{
    NotificationCenter::defaultCenter().removeObserver(this);
}

void audiocd_wrapper::getTracksFromPath(const QString& folder)
{
    tracks_.clear();
    if (folder.isEmpty())
        return;
    const QDir root(folder);
    QStringList relativePaths;
    QDirIterator it(folder, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString relative = root.relativeFilePath(it.next());
        if (!relative.startsWith('.'))
            relativePaths << relative;
    }
    // The folder lists its track files in the disc's order by name ("01 ...",
    // "02 ..."); this file system's own order is not the disc's.
    relativePaths.sort();
    for (const QString& relative : relativePaths) {
        tracks_ << QVariantMap{{"path", root.filePath(relative)},
                               {"title", QFileInfo(relative).completeBaseName()},
                               {"genre", QString()},
                               {"year", QString()}};
    }
}

QVariantMap audiocd_wrapper::track(int index) const
{
    const QVariantList& list = merged_ ? *merged_ : tracks_;
    return index >= 0 && index < list.size() ? list.at(index).toMap() : QVariantMap();
}

void audiocd_wrapper::vlHaveCDInfoNotification(const Notification& note)
{
    if (!merged_) {
        QVariantList merged = note.object.toList();
        for (qsizetype i = 0; i < merged.size() && i < tracks_.size(); ++i) {
            QVariantMap info = merged[i].toMap();
            info.insert("path", tracks_[i].toMap().value("path"));
            merged[i] = info;
        }
        merged_ = merged;
    }
    NotificationCenter::defaultCenter().post(VLAudioCDHaveCDInfoNotification, note.object);
}

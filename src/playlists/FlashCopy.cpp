#include "playlists/FlashCopy.h"

#include "playlists/PlaylistFiles.h"

#include <QDir>

using namespace PlaylistFiles;

void PlaylistFlashCopier::reset()
{
    cancelled_ = false;
    std::lock_guard lock(taskMutex_);
    runningTask_.reset();
}

void PlaylistFlashCopier::cancel()
{
    cancelled_ = true;
    std::lock_guard lock(taskMutex_);
    if (runningTask_)
        runningTask_->terminate();
}

void PlaylistFlashCopier::copyPlaylistDict(const QVariantMap& group, const QString& destination,
                                           const QString& relativePath)
{
    for (const QVariant& entry : group.value(QStringLiteral("Entries")).toList()) {
        if (cancelled_)
            return;
        if (entry.typeId() == QMetaType::QVariantMap) {
            const QVariantMap subGroup = entry.toMap();
            const QString name = subGroup.value(QStringLiteral("Group")).toString();
            const QString folder = appendingPathComponent(appendingPathComponent(destination, relativePath), name);
            QDir().mkpath(folder);
            copyPlaylistDict(subGroup, destination, appendingPathComponent(relativePath, name));
            continue;
        }
        const QString source = entry.toString();
        if (onFile)
            onFile(lastPathComponent(source));
        auto task = writer_->copyOneItemToFlash(source, appendingPathComponent(destination, relativePath));
        if (task) {
            {
                // A cancel that came while the copy was starting must still end it.
                std::lock_guard lock(taskMutex_);
                runningTask_ = task;
                if (cancelled_)
                    task->terminate();
            }
            task->waitForExit();
            std::lock_guard lock(taskMutex_);
            runningTask_.reset();
        }
        if (cancelled_)
            return;
    }
}

#pragma once
#include "core/Defaults.h"
#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "playlists/PlaylistFiles.h"

#include <QDir>
#include <QStringList>
#include <QVariant>

#include <utility>
#include <vector>

// Records the notifications of the given names, in the order they were posted.
class NotificationRecorder {
public:
    explicit NotificationRecorder(const QStringList& names)
    {
        for (const QString& name : names)
            NotificationCenter::defaultCenter().addObserver(
                this, name, [this](const Notification& n) { posted.emplace_back(n.name, n.object); });
    }
    ~NotificationRecorder() { NotificationCenter::defaultCenter().removeObserver(this); }
    NotificationRecorder(const NotificationRecorder&) = delete;
    NotificationRecorder& operator=(const NotificationRecorder&) = delete;

    QStringList names() const
    {
        QStringList result;
        for (const auto& [name, object] : posted)
            result.append(name);
        return result;
    }
    void clear() { posted.clear(); }

    std::vector<std::pair<QString, QVariant>> posted;
};

// Every test starts without playlists, media sets or remembered settings.
inline void resetPlaylistState()
{
    QDir(PlaylistFiles::appFolder()).removeRecursively();
    for (const char* key : {"mHPlaylistArray", "prefsPreserveOrderStored", "prefsM3UPathPrefixStored",
                            "prefsM3UExportFolderStored", "mShuffleM3UStored"})
        Defaults::standard().removeObject(QString::fromLatin1(key));
    Defaults::standard().synchronize();
}

// The failed jobs of that title waiting in the job list (how the window learns why).
inline QList<std::shared_ptr<Job>> failedJobs(const QString& title)
{
    QList<std::shared_ptr<Job>> failed;
    for (const auto& job : JobList::shared().jobs())
        if (job->title() == title && job->state() == Job::State::Finished &&
            job->result().outcome == JobResult::Outcome::Failed)
            failed << job;
    return failed;
}

inline void dismissFailedJobs()
{
    for (const auto& job : JobList::shared().jobs())
        if (job->state() == Job::State::Finished)
            JobList::shared().dismiss(job->id());
}

#pragma once
#include "core/FlashWriting.h"

#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

// Copies playlist groups onto a player: a group becomes a folder (under a name
// FAT can hold), a leaf is handed to the flash writer. Cancelling takes effect
// between files or by ending the running copy; a full or vanished player stops it.
class PlaylistFlashCopier {
public:
    explicit PlaylistFlashCopier(FlashWriting* writer) : writer_(writer) {}

    void reset();
    void cancel();
    bool isCancelled() const { return cancelled_; }
    // The player could take no more (full or gone).
    bool isStopped() const { return stopped_; }

    // Called with each file's name before it is copied (on the copying thread).
    std::function<void(const QString&)> onFile;
    // Told of each failure and each name changed for the player.
    std::function<void(const QString&)> onMessage;

    // Walks "Entries" in order below destination/relativePath.
    void copyPlaylistDict(const QVariantMap& group, const QString& destination, const QString& relativePath);

    // Runs body (which calls copyPlaylistDict) on this thread as a job of the job
    // list: cancelling the job is cancel(), its status the file in hand, and it
    // fails with the first problem when any file could not go.
    void runAsJob(const QString& title, const std::function<void()>& body);

    int copiedCount() const { return copied_; }
    int failedCount() const { return failed_; }

private:
    void report(const QString& message) const;

    FlashWriting* writer_;
    std::atomic<bool> cancelled_{false};
    std::atomic<bool> stopped_{false};
    std::atomic<int> copied_{0};
    std::atomic<int> failed_{0};
    std::mutex taskMutex_;
    std::shared_ptr<FlashCopyTask> runningTask_;
};

// Shown while no flash writer is installed.
inline constexpr char kFlashUnavailableTitle[] = "Copy to Flash Player";
inline constexpr char kFlashUnavailableMessage[] = "Copying to a flash player is not available in this version.";

#pragma once
#include <QString>
#include <QVariantMap>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

// One file being copied onto a flash player.
class FlashCopyTask {
public:
    virtual ~FlashCopyTask() = default;
    virtual void waitForExit() = 0;
    virtual void terminate() = 0;
};

// What the playlist and media-set stores ask of the flash writer. writeToFlash()
// asks the user for the player and answers with VLShouldCopyFilesNotification,
// whose object is the destination folder (none when the user gave up).
class FlashWriter {
public:
    virtual ~FlashWriter() = default;
    virtual void writeToFlash() = 0;
    // Starts copying one file into a folder on the player; the running task, or none.
    virtual std::shared_ptr<FlashCopyTask> copyOneItemToFlash(const QString& source, const QString& folder) = 0;
};

// Copies playlist groups onto a player: a group becomes a folder, a leaf is
// handed to the flash writer. Cancelling takes effect between files or by
// ending the running copy.
class PlaylistFlashCopier {
public:
    explicit PlaylistFlashCopier(FlashWriter* writer) : writer_(writer) {}

    void reset();
    void cancel();
    bool isCancelled() const { return cancelled_; }

    // Called with each file's name before it is copied (on the copying thread).
    std::function<void(const QString&)> onFile;

    // Walks "Entries" in order below destination/relativePath.
    void copyPlaylistDict(const QVariantMap& group, const QString& destination, const QString& relativePath);

private:
    FlashWriter* writer_;
    std::atomic<bool> cancelled_{false};
    std::mutex taskMutex_;
    std::shared_ptr<FlashCopyTask> runningTask_;
};

// Shown while no flash writer is installed.
inline constexpr char kFlashUnavailableTitle[] = "Copy to Flash Player";
inline constexpr char kFlashUnavailableMessage[] = "Copying to a flash player is not available in this version.";

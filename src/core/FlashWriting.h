#pragma once
#include <QString>

#include <memory>

// One file still being written onto a flash player (a re-encode running).
class FlashCopyTask {
public:
    virtual ~FlashCopyTask() = default;
    // Waits for the end; true when the file is on the player, whole.
    virtual bool waitForExit() = 0;
    virtual void terminate() = 0;
    // Why it failed, once it has ended; "" when it did not.
    virtual QString errorString() const = 0;
};

// What happened to one file handed to the flash writer.
struct FlashItemCopy {
    std::shared_ptr<FlashCopyTask> task;  // still running, or none when the outcome is known
    bool didSucceed = false;
    bool skipped = false;     // left out on purpose ("._" companions)
    bool stopCopying = false; // the player is full or gone: later files cannot go either
    QString message;          // why it failed, or the name the file got on the player
};

// What the playlist and media-set stores ask of the flash writer. writeToFlash()
// asks the user for the player and answers with VLShouldCopyFilesNotification,
// whose object is the destination folder (none when the user gave up).
class FlashWriting {
public:
    virtual ~FlashWriting() = default;
    virtual void writeToFlash() = 0;
    // Copies one file into a folder on the player, or starts re-encoding it there.
    virtual FlashItemCopy copyOneItemToFlash(const QString& source, const QString& folder) = 0;
};

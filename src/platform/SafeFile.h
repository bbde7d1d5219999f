#pragma once
#include <QByteArray>
#include <QString>

#include <QHash>

#include <functional>
#include <mutex>
#include <sys/types.h>
#include <vector>

// Writing files people own without ever losing them. A new file is made beside
// the old one (unnamed where the file system allows, else under a unique name
// made with O_EXCL, never through a symbolic link), checked, flushed and renamed
// over the old one in one step; it keeps the old file's mode. Any failure leaves
// the old file byte-identical and nothing behind.
namespace SafeFile {

// The steps of a replacement, in order; a test can make any of them fail.
enum class Step { Create, Write, Check, Sync, Rename };
using FaultInjector = std::function<bool(Step step, const QString& target)>;
// Test-only: called before each step; returning true fails the step. Empty to clear.
void setFaultInjector(FaultInjector injector);

// Why an existing file may not be rewritten: "" when it may. Not a regular file,
// no write permission ("is read-only"), or a folder we cannot write into.
QString refusalToReplace(const QString& path);

// The path a write to `path` really changes: a symbolic link is followed to the
// file it names (the link itself stays a link).
QString resolvedTarget(const QString& path);

class Batch;

// A new version of one file, made beside it and put in place by commit().
class Replacement {
public:
    explicit Replacement(const QString& target);
    ~Replacement();  // drops the new file unless it was committed
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    // Makes the new file: empty, or holding a copy of the target's bytes.
    bool create();
    bool createCopy();

    int fd() const { return fd_; }
    // A path the new file can be opened by, for readers and libraries that want one.
    QString path() const;
    QString target() const { return target_; }
    bool write(const QByteArray& bytes);

    // Reads the new file back through `check` (a non-empty answer is the reason
    // to drop it), flushes it and renames it over the target. While a Batch is in
    // use on this thread the checked file is handed to it instead, and only the
    // batch's finish() tells whether the target was replaced.
    bool commit(const std::function<QString(const QString& newFile)>& check = {});
    QString errorString() const { return error_; }

private:
    bool fail(const QString& text);
    void discard();

    QString target_;
    QString named_;  // the temporary's name; empty while the file is unnamed
    QString error_;
    int fd_ = -1;
    bool hadTarget_ = false;
    mode_t mode_ = 0;
    bool committed_ = false;
};

// Many replacements made durable together. Flushing each new file and its folder
// on its own costs a wait for the disk per file; a batch instead keeps the checked
// new files (unnamed, so a kill leaves nothing behind), flushes their file system
// once, renames each over its target and flushes each folder once. Every
// kStagedLimit files are finished early, so few descriptors stay open.
class Batch {
public:
    static constexpr size_t kStagedLimit = 64;

    Batch() = default;
    ~Batch();  // drops what was handed over and not finished; the targets stay as they were
    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;

    // Puts the batch in use on the calling thread for the guard's lifetime.
    class Use {
    public:
        explicit Use(Batch& batch);
        ~Use();
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;

    private:
        Batch* previous_;
    };

    // Finishes what was handed over; the reasons of the targets that were not
    // replaced, by target (as Replacement::target() names it). Empty when all were.
    QHash<QString, QString> finish();

private:
    friend class Replacement;
    struct Staged {
        int fd = -1;
        QString named;  // the temporary's name; empty while the file is unnamed
        QString target;
    };
    void stage(Staged staged);
    void complete(std::vector<Staged> staged);

    std::mutex mutex_;
    std::vector<Staged> staged_;
    QHash<QString, QString> failed_;
};

// A whole new file in one call.
bool writeFile(const QString& path, const QByteArray& contents, QString* error = nullptr);

// A private folder (0700) beside a target, for tools that make their own output
// files: they write inside it, and place() moves the result over the target.
// The folder and anything left in it go when the object does.
class WorkFolder {
public:
    explicit WorkFolder(const QString& target);
    ~WorkFolder();
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;

    bool isValid() const { return !folder_.isEmpty(); }
    QString folder() const { return folder_; }
    // A path inside the folder with the target's file name (tools read the extension).
    QString fileFor() const;
    // Gives the target a copy of its current bytes at fileFor(), for tools that edit in place.
    bool copyTarget();
    // Checks `made`, flushes it, gives it the target's mode and renames it over the target.
    bool place(const QString& made, const std::function<QString(const QString& newFile)>& check = {});
    QString errorString() const { return error_; }

private:
    QString target_;
    QString folder_;
    QString error_;
};

// Copies a file's bytes into an open descriptor (in the kernel where it can).
bool copyInto(const QString& source, int fd, QString* error);

} // namespace SafeFile

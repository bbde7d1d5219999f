#pragma once
#include <QList>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

// One node of the library tree: a folder or an audio file under one of the
// user's library roots. A folder's children are read from disk the first time
// they are asked for and kept until releaseChildren(); only audio files and
// folders are listed, in the order the file system gives them.
//
// Not thread-safe: one tree belongs to one thread. The shared roots list itself
// may be used from any thread.
class FileSystemItem {
public:
    using Ptr = std::shared_ptr<FileSystemItem>;
    enum class Kind { Unknown, Folder, File };

    // A root when parent is null (path is then the full path); otherwise path is
    // the last component under the parent. kind, when known from the parent's
    // listing, saves a look at the disk later.
    FileSystemItem(const QString& path, FileSystemItem* parent, Kind kind = Kind::Unknown);
    ~FileSystemItem();
    FileSystemItem(const FileSystemItem&) = delete;
    FileSystemItem& operator=(const FileSystemItem&) = delete;

    // The library roots, made from the defaults key "rootItem" on first use and
    // again after the stored list changed. A fresh installation gets "/" and the
    // Music folder, written back at once.
    static QList<Ptr> rootItem();
    // The stored root paths with "~" expanded, in order (duplicates kept).
    static QStringList rootPaths();
    // Append or remove (every entry equal to it, as stored or with "~"
    // expanded) a root path in the defaults and synchronise them. Nothing happens when the key holds something other than
    // an array.
    static void addToRootItem(const QString& path);
    static void removeFromRootItem(const QString& path);

    // The listing filter: audio extensions are kept whatever the entry is
    // (a hidden file included); other folders are kept unless their name
    // begins with ".".
    static bool hasLibraryExtension(const QString& name);
    static bool isLibraryEntry(const QString& name, bool isFolder);

    struct Entry {
        QString name;
        bool isFolder = false;
    };
    // The filtered listing of a folder in file-system order; empty when it
    // cannot be read. Entries whose names are not valid UTF-8 are left out (no
    // name held as text opens them); *unreadable gets those the filter would
    // have kept, as escaped full paths. The listing of "/" leaves out the
    // kernel's pseudo file systems (/proc, /sys, /dev, /run).
    static std::vector<Entry> readEntries(const QString& folder, QStringList* unreadable = nullptr);

    // The children, read on first use; null when the item is not a folder.
    const std::vector<std::unique_ptr<FileSystemItem>>* children();
    bool childrenAreRead() const { return state_ != State::NotRead; }
    // Forgets the cached children so the next children() reads the disk again.
    void releaseChildren();
    FileSystemItem* childAtIndex(int index);
    // Reads the children when needed; -1 for an item that is not a folder.
    int numberOfChildren();

    // Whether the item is a folder, without reading its children.
    bool isFolder();
    QString fullPath() const;
    const QString& relativePath() const { return relativePath_; }
    FileSystemItem* parent() const { return parent_; }
    int indexInParent() const;

    // Edits of an already read listing, for views that bring a folder up to
    // date in place instead of dropping every item under it.
    // Takes a listing read beforehand as the children.
    void adoptEntries(const std::vector<Entry>& entries);
    std::unique_ptr<FileSystemItem> takeChild(int index);
    void insertChild(int index, std::unique_ptr<FileSystemItem> child);
    // Marks the item as no folder (it was replaced by a file), dropping children.
    void markNotFolder();

private:
    enum class State { NotRead, Read, NotFolder };

    QString relativePath_;
    FileSystemItem* parent_;
    Kind kind_;
    State state_ = State::NotRead;
    std::vector<std::unique_ptr<FileSystemItem>> children_;
};

#pragma once
#include "core/FileSystemItem.h"

#include <QAbstractItemModel>
#include <QHash>
#include <QSet>
#include <QStringList>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QFileSystemWatcher;
class QTimer;

// The library column of a tab: the library roots and, below them, the audio
// files and folders of the disk, each folder in Finder-like name order. A
// folder is read only when a view expands it (canFetchMore/fetchMore); a folder
// that has been read is watched, and brought up to date in place (keeping what
// is open below it) when files appear or vanish. Items drag out as file URLs.
//
// Beside the name, the columns show the title, artist, album and duration of
// each file, read by the tag reader on worker threads as rows appear and filled
// in as the answers come back.
//
// Each model keeps its own items, so one tab re-reading a folder never pulls
// items out from under another tab's view. The roots are read again when the
// library changes (VLReloadLibraryNotification).
class LibraryModel : public QAbstractItemModel {
    Q_OBJECT
public:
    enum Column { NameColumn, TitleColumn, ArtistColumn, AlbumColumn, DurationColumn, ColumnCount };
    enum Role { FullPathRole = Qt::UserRole + 1, IsFolderRole };
    // Reads a file's track record ("title", "artist", "album", "duration" in
    // whole seconds); called on worker threads, several at a time.
    using TagReader = std::function<std::optional<QVariantMap>(const QString& path)>;

    explicit LibraryModel(QObject* parent = nullptr);
    ~LibraryModel() override;

    // The reader every model made afterwards uses; set once by the program
    // (without one the tag columns stay empty).
    static void setTagReader(TagReader reader);

    FileSystemItem* itemForIndex(const QModelIndex& index) const;  // null for the invisible root
    QString fullPath(const QModelIndex& index) const;
    // True for the roots: the only items that can be removed from the library.
    bool isRoot(const QModelIndex& index) const;
    // Files whose tags are still to be read or on their way back.
    int pendingTagReads() const { return int(waiting_.size()); }

    // Reads the root paths again from the defaults.
    void reloadRoots();
    // Reads an already read folder again: vanished entries go, new ones come in
    // at their place, the rest stay (with what is open below them).
    void refresh(const QModelIndex& folder);

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& index) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    bool hasChildren(const QModelIndex& parent = {}) const override;
    bool canFetchMore(const QModelIndex& parent) const override;
    void fetchMore(const QModelIndex& parent) override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    Qt::DropActions supportedDragActions() const override;
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;

signals:
    // Every tag read asked for so far has come back.
    void tagsRead();

private:
    struct Tags {
        QString title, artist, album, duration;
    };
    struct Reader;

    QModelIndex indexForItem(FileSystemItem* item, int column = NameColumn) const;
    static std::vector<FileSystemItem::Entry> sortedEntries(const QString& folder);
    // A folder just read: watch it and ask for the tags of its files.
    void adopted(FileSystemItem* folder, int first, int last);
    // Items about to go: forget their tags, watches and pending reads.
    void forget(FileSystemItem* item);
    void tagsArrived(const QList<QPair<QString, QVariantMap>>& answers);
    void folderChanged(const QString& path);
    void refreshChangedFolders();

    std::vector<std::unique_ptr<FileSystemItem>> roots_;
    QHash<const FileSystemItem*, Tags> tags_;
    QMultiHash<QString, FileSystemItem*> waiting_;  // by full path, until the answer comes
    QMultiHash<QString, FileSystemItem*> watched_;  // read folders, by full path (a root may show twice)
    QSet<QString> changed_;
    QFileSystemWatcher* watcher_;
    QTimer* changeTimer_;
    std::shared_ptr<Reader> reader_;
};

#pragma once
#include "core/FileSystemItem.h"

#include <QAbstractItemModel>

#include <memory>
#include <vector>

// The library column of a tab: the library roots and, below them, the audio
// files and folders of the disk. A folder is read only when a view expands it
// (canFetchMore/fetchMore); refresh() brings an open folder up to date in place,
// keeping what is open below it. A view calls refresh() whenever it expands a
// folder again, so that the column always shows a folder's present contents.
// Items drag out as file URLs.
//
// Each model keeps its own items, so one tab re-reading a folder never pulls
// items out from under another tab's view. The roots are read again when the
// library changes (VLReloadLibraryNotification).
class LibraryModel : public QAbstractItemModel {
    Q_OBJECT
public:
    enum Role { FullPathRole = Qt::UserRole + 1, IsFolderRole };

    explicit LibraryModel(QObject* parent = nullptr);
    ~LibraryModel() override;

    FileSystemItem* itemForIndex(const QModelIndex& index) const;  // null for the invisible root
    QString fullPath(const QModelIndex& index) const;
    // True for the roots: the only items that can be removed from the library.
    bool isRoot(const QModelIndex& index) const;

    // Reads the root paths again from the defaults.
    void reloadRoots();
    // Reads an already read folder again: vanished entries go, new ones come in
    // listing order, the rest stay (with what is open below them).
    void refresh(const QModelIndex& folder);

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& index) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    bool hasChildren(const QModelIndex& parent = {}) const override;
    bool canFetchMore(const QModelIndex& parent) const override;
    void fetchMore(const QModelIndex& parent) override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    Qt::DropActions supportedDragActions() const override;
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;

private:
    QModelIndex indexForItem(FileSystemItem* item) const;

    std::vector<std::unique_ptr<FileSystemItem>> roots_;
};

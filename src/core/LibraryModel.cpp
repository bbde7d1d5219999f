#include "core/LibraryModel.h"

#include "core/NotificationCenter.h"
#include "core/Notifications.h"

#include <QFileInfo>
#include <QMimeData>
#include <QUrl>

#include <algorithm>

LibraryModel::LibraryModel(QObject* parent) : QAbstractItemModel(parent)
{
    for (const QString& path : FileSystemItem::rootPaths())
        roots_.push_back(std::make_unique<FileSystemItem>(path, nullptr));
    NotificationCenter::defaultCenter().addObserver(this, VLReloadLibraryNotification, [this](const Notification&) {
        QMetaObject::invokeMethod(this, [this] { reloadRoots(); }, Qt::AutoConnection);
    });
}

LibraryModel::~LibraryModel()
{
    NotificationCenter::defaultCenter().removeObserver(this);
}

FileSystemItem* LibraryModel::itemForIndex(const QModelIndex& index) const
{
    if (!index.isValid() || index.model() != this)
        return nullptr;
    return static_cast<FileSystemItem*>(index.internalPointer());
}

QString LibraryModel::fullPath(const QModelIndex& index) const
{
    FileSystemItem* item = itemForIndex(index);
    return item ? item->fullPath() : QString();
}

bool LibraryModel::isRoot(const QModelIndex& index) const
{
    FileSystemItem* item = itemForIndex(index);
    return item && !item->parent();
}

QModelIndex LibraryModel::indexForItem(FileSystemItem* item) const
{
    if (!item)
        return {};
    if (!item->parent()) {
        const auto it = std::find_if(roots_.begin(), roots_.end(), [item](const auto& root) { return root.get() == item; });
        return it == roots_.end() ? QModelIndex() : createIndex(int(it - roots_.begin()), 0, item);
    }
    return createIndex(item->indexInParent(), 0, item);
}

void LibraryModel::reloadRoots()
{
    beginResetModel();
    roots_.clear();
    for (const QString& path : FileSystemItem::rootPaths())
        roots_.push_back(std::make_unique<FileSystemItem>(path, nullptr));
    endResetModel();
}

void LibraryModel::refresh(const QModelIndex& folder)
{
    FileSystemItem* item = itemForIndex(folder);
    if (!item || !item->childrenAreRead())
        return;
    const int oldCount = rowCount(folder);
    if (!QFileInfo(item->fullPath()).isDir()) {
        if (oldCount > 0)
            beginRemoveRows(folder, 0, oldCount - 1);
        item->markNotFolder();
        if (oldCount > 0)
            endRemoveRows();
        return;
    }
    const std::vector<FileSystemItem::Entry> wanted = FileSystemItem::readEntries(item->fullPath());
    const auto matches = [](FileSystemItem* child, const FileSystemItem::Entry& entry) {
        return child->relativePath() == entry.name && child->isFolder() == entry.isFolder;
    };
    // Drop what is gone (or changed between file and folder).
    for (int row = oldCount - 1; row >= 0; --row) {
        FileSystemItem* child = item->childAtIndex(row);
        if (std::none_of(wanted.begin(), wanted.end(), [&](const auto& entry) { return matches(child, entry); })) {
            beginRemoveRows(folder, row, row);
            item->takeChild(row);
            endRemoveRows();
        }
    }
    // Then put every entry at its place in the listing, moving or adding.
    for (int row = 0; row < int(wanted.size()); ++row) {
        if (row < item->numberOfChildren() && matches(item->childAtIndex(row), wanted[size_t(row)]))
            continue;
        int from = -1;
        for (int later = row + 1; later < item->numberOfChildren(); ++later) {
            if (matches(item->childAtIndex(later), wanted[size_t(row)])) {
                from = later;
                break;
            }
        }
        if (from >= 0) {
            beginMoveRows(folder, from, from, folder, row);
            item->insertChild(row, item->takeChild(from));
            endMoveRows();
        } else {
            const FileSystemItem::Entry& entry = wanted[size_t(row)];
            beginInsertRows(folder, row, row);
            item->insertChild(row, std::make_unique<FileSystemItem>(
                                       entry.name, item,
                                       entry.isFolder ? FileSystemItem::Kind::Folder : FileSystemItem::Kind::File));
            endInsertRows();
        }
    }
}

QModelIndex LibraryModel::index(int row, int column, const QModelIndex& parent) const
{
    if (column != 0 || row < 0)
        return {};
    if (!parent.isValid())
        return row < int(roots_.size()) ? createIndex(row, 0, roots_[size_t(row)].get()) : QModelIndex();
    FileSystemItem* item = itemForIndex(parent);
    // Only what has been read is shown; reading waits for fetchMore.
    if (!item->childrenAreRead() || row >= item->numberOfChildren())
        return {};
    return createIndex(row, 0, item->childAtIndex(row));
}

QModelIndex LibraryModel::parent(const QModelIndex& index) const
{
    FileSystemItem* item = itemForIndex(index);
    return item ? indexForItem(item->parent()) : QModelIndex();
}

int LibraryModel::rowCount(const QModelIndex& parent) const
{
    if (!parent.isValid())
        return int(roots_.size());
    FileSystemItem* item = itemForIndex(parent);
    if (!item->childrenAreRead())
        return 0;
    return std::max(item->numberOfChildren(), 0);
}

int LibraryModel::columnCount(const QModelIndex&) const
{
    return 1;
}

bool LibraryModel::hasChildren(const QModelIndex& parent) const
{
    if (!parent.isValid())
        return !roots_.empty();
    // A folder can be opened, even an empty one; finding out costs no listing.
    return itemForIndex(parent)->isFolder();
}

bool LibraryModel::canFetchMore(const QModelIndex& parent) const
{
    FileSystemItem* item = itemForIndex(parent);
    return item && !item->childrenAreRead() && item->isFolder();
}

void LibraryModel::fetchMore(const QModelIndex& parent)
{
    if (!canFetchMore(parent))
        return;
    FileSystemItem* item = itemForIndex(parent);
    const std::vector<FileSystemItem::Entry> entries = FileSystemItem::readEntries(item->fullPath());
    if (entries.empty()) {
        item->adoptEntries(entries);
        return;
    }
    beginInsertRows(parent, 0, int(entries.size()) - 1);
    item->adoptEntries(entries);
    endInsertRows();
}

QVariant LibraryModel::data(const QModelIndex& index, int role) const
{
    FileSystemItem* item = itemForIndex(index);
    if (!item)
        return {};
    switch (role) {
    case Qt::DisplayRole:
        return item->relativePath();
    case Qt::ToolTipRole:
    case FullPathRole:
        return item->fullPath();
    case IsFolderRole:
        return item->isFolder();
    default:
        return {};
    }
}

Qt::ItemFlags LibraryModel::flags(const QModelIndex& index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled;
}

Qt::DropActions LibraryModel::supportedDragActions() const
{
    return Qt::CopyAction;
}

QStringList LibraryModel::mimeTypes() const
{
    return {QStringLiteral("text/uri-list")};
}

QMimeData* LibraryModel::mimeData(const QModelIndexList& indexes) const
{
    QList<QUrl> urls;
    for (const QModelIndex& index : indexes) {
        if (FileSystemItem* item = itemForIndex(index))
            urls.append(QUrl::fromLocalFile(item->fullPath()));
    }
    auto* data = new QMimeData;
    data->setUrls(urls);
    return data;
}

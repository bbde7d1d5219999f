#include "core/LibraryModel.h"

#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "core/StringUtils.h"

#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QIcon>
#include <QMimeData>
#include <QThread>
#include <QThreadPool>
#include <QTimer>
#include <QUrl>

#include <algorithm>
#include <deque>
#include <mutex>

namespace {

// Answers travel back in small batches, so the first rows fill at once and a
// big folder does not flood the event loop.
constexpr int kReadsPerBatch = 8;
// A folder being written to changes many times a second; it is read once the
// burst has passed.
constexpr int kChangeSettleMs = 150;

LibraryModel::TagReader& sharedTagReader()
{
    static LibraryModel::TagReader reader;
    return reader;
}

QString durationText(const QString& seconds)
{
    bool ok = false;
    const int total = seconds.toInt(&ok);
    if (!ok || total < 0)
        return {};
    if (total >= 3600)
        return QStringLiteral("%1:%2:%3")
            .arg(total / 3600)
            .arg(total / 60 % 60, 2, 10, QLatin1Char('0'))
            .arg(total % 60, 2, 10, QLatin1Char('0'));
    return QStringLiteral("%1:%2").arg(total / 60).arg(total % 60, 2, 10, QLatin1Char('0'));
}

const QIcon& folderIcon()
{
    static const QIcon icon = QIcon::fromTheme(QStringLiteral("folder"));
    return icon;
}

const QIcon& audioIcon()
{
    static const QIcon icon = QIcon::fromTheme(QStringLiteral("audio-x-generic"));
    return icon;
}

}  // namespace

// The worker threads that read tags, shared with the model until it goes.
struct LibraryModel::Reader {
    TagReader read;
    LibraryModel* model = nullptr;
    QThreadPool pool;
    std::mutex mutex;
    std::deque<QString> queue;
    int workers = 0;
    bool stopped = false;

    void enqueue(const QStringList& paths)
    {
        std::lock_guard lock(mutex);
        if (stopped)
            return;
        queue.insert(queue.end(), paths.begin(), paths.end());
        while (workers < pool.maxThreadCount() && size_t(workers) < queue.size()) {
            ++workers;
            pool.start([this] { work(); });
        }
    }

    void work()
    {
        for (;;) {
            QStringList batch;
            {
                std::lock_guard lock(mutex);
                if (stopped || queue.empty()) {
                    --workers;
                    return;
                }
                while (!queue.empty() && batch.size() < kReadsPerBatch) {
                    batch << queue.front();
                    queue.pop_front();
                }
            }
            QList<QPair<QString, QVariantMap>> answers;
            for (const QString& path : batch)
                answers.append({path, read(path).value_or(QVariantMap())});
            // The model waits for the workers before it goes, and its end drops
            // answers still queued for it.
            QMetaObject::invokeMethod(
                model, [model = model, answers] { model->tagsArrived(answers); }, Qt::QueuedConnection);
        }
    }

    void stop()
    {
        {
            std::lock_guard lock(mutex);
            stopped = true;
            queue.clear();
        }
        pool.waitForDone();
    }

    void clear()
    {
        std::lock_guard lock(mutex);
        queue.clear();
    }
};

void LibraryModel::setTagReader(TagReader reader)
{
    sharedTagReader() = std::move(reader);
}

LibraryModel::LibraryModel(QObject* parent)
    : QAbstractItemModel(parent), watcher_(new QFileSystemWatcher(this)), changeTimer_(new QTimer(this))
{
    if (sharedTagReader()) {
        reader_ = std::make_shared<Reader>();
        reader_->read = sharedTagReader();
        reader_->model = this;
        reader_->pool.setMaxThreadCount(std::max(2, QThread::idealThreadCount()));
    }
    changeTimer_->setSingleShot(true);
    changeTimer_->setInterval(kChangeSettleMs);
    connect(changeTimer_, &QTimer::timeout, this, &LibraryModel::refreshChangedFolders);
    connect(watcher_, &QFileSystemWatcher::directoryChanged, this, &LibraryModel::folderChanged);

    for (const QString& path : FileSystemItem::rootPaths())
        roots_.push_back(std::make_unique<FileSystemItem>(path, nullptr));
    NotificationCenter::defaultCenter().addObserver(this, VLReloadLibraryNotification, [this](const Notification&) {
        QMetaObject::invokeMethod(this, [this] { reloadRoots(); }, Qt::AutoConnection);
    });
}

LibraryModel::~LibraryModel()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    if (reader_)
        reader_->stop();
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

QModelIndex LibraryModel::indexForItem(FileSystemItem* item, int column) const
{
    if (!item)
        return {};
    if (!item->parent()) {
        const auto it = std::find_if(roots_.begin(), roots_.end(), [item](const auto& root) { return root.get() == item; });
        return it == roots_.end() ? QModelIndex() : createIndex(int(it - roots_.begin()), column, item);
    }
    return createIndex(item->indexInParent(), column, item);
}

std::vector<FileSystemItem::Entry> LibraryModel::sortedEntries(const QString& folder)
{
    std::vector<FileSystemItem::Entry> entries = FileSystemItem::readEntries(folder);
    // Sort keys once per name rather than collating on every comparison.
    std::vector<std::pair<QCollatorSortKey, size_t>> keys;
    keys.reserve(entries.size());
    for (size_t i = 0; i < entries.size(); ++i)
        keys.emplace_back(finderSortKey(entries[i].name), i);
    std::stable_sort(keys.begin(), keys.end(),
                     [](const auto& a, const auto& b) { return a.first.compare(b.first) < 0; });
    std::vector<FileSystemItem::Entry> sorted;
    sorted.reserve(entries.size());
    for (const auto& key : keys)
        sorted.push_back(std::move(entries[key.second]));
    return sorted;
}

void LibraryModel::adopted(FileSystemItem* folder, int first, int last)
{
    const QString path = folder->fullPath();
    if (!watched_.contains(path))
        watcher_->addPath(path);
    if (!watched_.contains(path, folder))
        watched_.insert(path, folder);
    if (!reader_)
        return;
    QStringList files;
    for (int row = first; row <= last; ++row) {
        FileSystemItem* child = folder->childAtIndex(row);
        if (child && !child->isFolder()) {
            const QString file = child->fullPath();
            waiting_.insert(file, child);
            files << file;
        }
    }
    reader_->enqueue(files);
}

void LibraryModel::forget(FileSystemItem* item)
{
    if (item->childrenAreRead() && item->isFolder()) {
        for (int row = 0; row < item->numberOfChildren(); ++row)
            forget(item->childAtIndex(row));
        const QString path = item->fullPath();
        watched_.remove(path, item);
        if (!watched_.contains(path))
            watcher_->removePath(path);
    }
    tags_.remove(item);
    waiting_.remove(item->fullPath(), item);
}

void LibraryModel::tagsArrived(const QList<QPair<QString, QVariantMap>>& answers)
{
    if (waiting_.isEmpty())
        return;
    // One change per folder and batch: the rows between the first and last filled.
    QHash<FileSystemItem*, std::pair<int, int>> spans;
    for (const auto& [path, record] : answers) {
        const QList<FileSystemItem*> items = waiting_.values(path);
        waiting_.remove(path);
        for (FileSystemItem* item : items) {
            tags_.insert(item, {record.value(QStringLiteral("title")).toString(),
                                record.value(QStringLiteral("artist")).toString(),
                                record.value(QStringLiteral("album")).toString(),
                                durationText(record.value(QStringLiteral("duration")).toString())});
            const int row = item->indexInParent();
            auto span = spans.find(item->parent());
            if (span == spans.end())
                spans.insert(item->parent(), {row, row});
            else
                *span = {std::min(span->first, row), std::max(span->second, row)};
        }
    }
    for (auto it = spans.begin(); it != spans.end(); ++it) {
        const QModelIndex folder = indexForItem(it.key());
        emit dataChanged(index(it->first, TitleColumn, folder), index(it->second, DurationColumn, folder),
                         {Qt::DisplayRole});
    }
    if (waiting_.isEmpty())
        emit tagsRead();
}

void LibraryModel::folderChanged(const QString& path)
{
    changed_.insert(path);
    changeTimer_->start();
}

void LibraryModel::refreshChangedFolders()
{
    const QSet<QString> paths = std::exchange(changed_, {});
    for (const QString& path : paths) {
        // A refresh may drop other watched folders; look each one up afresh.
        for (FileSystemItem* item : watched_.values(path)) {
            if (watched_.contains(path, item))
                refresh(indexForItem(item));
        }
    }
}

void LibraryModel::reloadRoots()
{
    beginResetModel();
    if (reader_)
        reader_->clear();
    if (!watcher_->directories().isEmpty())
        watcher_->removePaths(watcher_->directories());
    watched_.clear();
    waiting_.clear();
    tags_.clear();
    roots_.clear();
    for (const QString& path : FileSystemItem::rootPaths())
        roots_.push_back(std::make_unique<FileSystemItem>(path, nullptr));
    endResetModel();
}

void LibraryModel::refresh(const QModelIndex& folder)
{
    FileSystemItem* item = itemForIndex(folder.siblingAtColumn(NameColumn));
    if (!item || !item->childrenAreRead())
        return;
    const QModelIndex parent = indexForItem(item);
    const int oldCount = rowCount(parent);
    if (!QFileInfo(item->fullPath()).isDir()) {
        if (oldCount > 0)
            beginRemoveRows(parent, 0, oldCount - 1);
        forget(item);
        item->markNotFolder();
        if (oldCount > 0)
            endRemoveRows();
        return;
    }
    const std::vector<FileSystemItem::Entry> wanted = sortedEntries(item->fullPath());
    const auto matches = [](FileSystemItem* child, const FileSystemItem::Entry& entry) {
        return child->relativePath() == entry.name && child->isFolder() == entry.isFolder;
    };
    // Drop what is gone (or changed between file and folder).
    QHash<QString, bool> wantedFolders;
    for (const auto& entry : wanted)
        wantedFolders.insert(entry.name, entry.isFolder);
    for (int row = oldCount - 1; row >= 0; --row) {
        FileSystemItem* child = item->childAtIndex(row);
        const auto kind = wantedFolders.constFind(child->relativePath());
        if (kind == wantedFolders.cend() || *kind != child->isFolder()) {
            beginRemoveRows(parent, row, row);
            forget(child);
            item->takeChild(row);
            endRemoveRows();
        }
    }
    // Then put every entry at its place in the order, moving or adding.
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
            beginMoveRows(parent, from, from, parent, row);
            item->insertChild(row, item->takeChild(from));
            endMoveRows();
        } else {
            const FileSystemItem::Entry& entry = wanted[size_t(row)];
            beginInsertRows(parent, row, row);
            item->insertChild(row, std::make_unique<FileSystemItem>(
                                       entry.name, item,
                                       entry.isFolder ? FileSystemItem::Kind::Folder : FileSystemItem::Kind::File));
            endInsertRows();
            adopted(item, row, row);
        }
    }
}

QModelIndex LibraryModel::index(int row, int column, const QModelIndex& parent) const
{
    if (column < 0 || column >= ColumnCount || row < 0)
        return {};
    if (!parent.isValid())
        return row < int(roots_.size()) ? createIndex(row, column, roots_[size_t(row)].get()) : QModelIndex();
    FileSystemItem* item = itemForIndex(parent);
    // Only what has been read is shown; reading waits for fetchMore.
    if (!item || parent.column() != NameColumn || !item->childrenAreRead() || row >= item->numberOfChildren())
        return {};
    return createIndex(row, column, item->childAtIndex(row));
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
    if (!item || parent.column() != NameColumn || !item->childrenAreRead())
        return 0;
    return std::max(item->numberOfChildren(), 0);
}

int LibraryModel::columnCount(const QModelIndex&) const
{
    return ColumnCount;
}

bool LibraryModel::hasChildren(const QModelIndex& parent) const
{
    if (!parent.isValid())
        return !roots_.empty();
    if (parent.column() != NameColumn)
        return false;
    // A folder can be opened, even an empty one; finding out costs no listing.
    return itemForIndex(parent)->isFolder();
}

bool LibraryModel::canFetchMore(const QModelIndex& parent) const
{
    FileSystemItem* item = itemForIndex(parent);
    return item && parent.column() == NameColumn && !item->childrenAreRead() && item->isFolder();
}

void LibraryModel::fetchMore(const QModelIndex& parent)
{
    if (!canFetchMore(parent))
        return;
    FileSystemItem* item = itemForIndex(parent);
    const std::vector<FileSystemItem::Entry> entries = sortedEntries(item->fullPath());
    if (entries.empty()) {
        item->adoptEntries(entries);
    } else {
        beginInsertRows(parent, 0, int(entries.size()) - 1);
        item->adoptEntries(entries);
        endInsertRows();
    }
    adopted(item, 0, int(entries.size()) - 1);
}

QVariant LibraryModel::data(const QModelIndex& index, int role) const
{
    FileSystemItem* item = itemForIndex(index);
    if (!item)
        return {};
    switch (role) {
    case Qt::ToolTipRole:
    case FullPathRole:
        return item->fullPath();
    case IsFolderRole:
        return item->isFolder();
    case Qt::DecorationRole:
        if (index.column() == NameColumn)
            return item->isFolder() ? folderIcon() : audioIcon();
        return {};
    case Qt::TextAlignmentRole:
        if (index.column() == DurationColumn)
            return int(Qt::AlignRight | Qt::AlignVCenter);
        return {};
    case Qt::DisplayRole:
        break;
    default:
        return {};
    }
    if (index.column() == NameColumn)
        return item->relativePath();
    const auto tags = tags_.constFind(item);
    if (tags == tags_.cend())
        return {};
    switch (index.column()) {
    case TitleColumn:
        return tags->title;
    case ArtistColumn:
        return tags->artist;
    case AlbumColumn:
        return tags->album;
    default:
        return tags->duration;
    }
}

QVariant LibraryModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || section < 0 || section >= ColumnCount)
        return {};
    if (role == Qt::TextAlignmentRole && section == DurationColumn)
        return int(Qt::AlignRight | Qt::AlignVCenter);
    if (role != Qt::DisplayRole)
        return {};
    static const char* const titles[] = {"Name", "Title", "Artist", "Album", "Duration"};
    return tr(titles[section]);
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
    // A selected row brings one index per column: each item goes once.
    QList<QUrl> urls;
    QSet<const FileSystemItem*> seen;
    for (const QModelIndex& index : indexes) {
        FileSystemItem* item = itemForIndex(index);
        if (item && !seen.contains(item)) {
            seen.insert(item);
            urls.append(QUrl::fromLocalFile(item->fullPath()));
        }
    }
    auto* data = new QMimeData;
    data->setUrls(urls);
    return data;
}

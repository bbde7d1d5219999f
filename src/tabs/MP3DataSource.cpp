#include "tabs/MP3DataSource.h"

#include "core/Defaults.h"
#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "core/PropertyList.h"
#include "platform/Desktop.h"
#include "platform/FileNames.h"
#include "playlists/PlaylistFiles.h"

#include <QDirIterator>
#include <QFileInfo>

#include <chrono>
#include <thread>

const QString MP3DataSource::searchSheetTitle = QStringLiteral("Searching for music files");
const QString MP3DataSource::searchSheetMessage = QStringLiteral(
    "If you selected a deep directory, this may take a long time and slow down other tasks your computer is "
    "performing.  To stop the search, click the cancel button.");
const QString MP3DataSource::searchSheetButton = QStringLiteral("Cancel");

namespace {
const QString kRootName = QStringLiteral("OVRoot");

SimpleTreeNode* asSimple(TreeNode* node)
{
    return static_cast<SimpleTreeNode*>(node);
}
} // namespace

MP3DataSource::MP3DataSource(QObject* parent) : QObject(parent), selection_(&model_)
{
    model_.setDropHandler([this](const CompilationModel::Drop& drop, SimpleTreeNode* target, int childIndex) {
        return acceptDrop(drop, target, childIndex);
    });
    connect(&model_, &CompilationModel::nodeEdited, this, [this] { saveCurrentMP3CD(); });
    // A search ends here however it ended, also when it was cancelled before it began.
    connect(
        &JobList::shared(), &JobList::jobFinished, this,
        [this](quint64 id) {
            if (searches_.count(id))
                finishSearch(id);
        },
        Qt::QueuedConnection);
    NotificationCenter::defaultCenter().addObserver(
        this, VLDidSelectPlaylistNotification, [this](const Notification& notification) {
            const QString path = notification.object.toString();
            // Queued: other observers (the iTunes import) may first write the
            // .cd3 file of the selected playlist.
            QMetaObject::invokeMethod(this, [this, path] { loadPlaylist(path); }, Qt::QueuedConnection);
        });
    NotificationCenter::defaultCenter().addObserver(this, VLPlaylistInfoNotification, [this](const Notification&) {
        QMetaObject::invokeMethod(this, [this] { dropDeletedPlaylist(); });
    });
    exports_.setMaxThreadCount(1);
}

MP3DataSource::~MP3DataSource()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    exports_.waitForDone();
    for (auto& [id, search] : searches_)
        search->cancel();
    for (auto& [id, search] : searches_)
        search->wait();
}

// ---- toolbar actions

void MP3DataSource::insertNew(const SimpleTreeNode::Ptr& node)
{
    // Into a selected group at its top, after a selected leaf, or at the end.
    const QList<TreeNode::Ptr> selected = selectedNodes();
    SimpleTreeNode* parent = root();
    int row = parent->numberOfChildren();
    if (!selected.isEmpty()) {
        auto* anchor = asSimple(selected.first().get());
        if (anchor->data().isGroup()) {
            parent = anchor;
            row = 0;
        } else {
            parent = anchor->parentNode();
            row = parent->indexOfChildIdenticalTo(anchor) + 1;
        }
    }
    model_.insertNodes(parent, row, {node});
    selectNodes({node});
    saveCurrentMP3CD();
}

void MP3DataSource::addGroup()
{
    insertNew(SimpleTreeNode::group(QStringLiteral("New Folder")));
}

void MP3DataSource::addLeaf()
{
    insertNew(SimpleTreeNode::leaf(QStringLiteral("New Leaf")));
}

void MP3DataSource::deleteSelections()
{
    const QList<TreeNode::Ptr> nodes = TreeNode::minimumNodeCoverFromNodesInArray(selectedNodes());
    selection_.clearSelection();
    for (const TreeNode::Ptr& node : nodes)
        model_.removeNode(node.get());
    updateSizeInUI();
    saveCurrentMP3CD();
}

void MP3DataSource::sortData()
{
    const QList<TreeNode::Ptr> selected = selectedNodes();
    model_.sortRecursively();
    selectNodes(selected);
    saveCurrentMP3CD();
}

QList<TreeNode::Ptr> MP3DataSource::selectedNodes() const
{
    // By node, whether a view selects whole rows or single cells.
    QList<TreeNode::Ptr> nodes;
    for (const QModelIndex& index : selection_.selectedIndexes()) {
        const TreeNode::Ptr node = model_.nodeForIndex(index)->sharedNode();
        if (!nodes.contains(node))
            nodes.append(node);
    }
    return nodes;
}

void MP3DataSource::selectNodes(const QList<TreeNode::Ptr>& nodes)
{
    QItemSelection selection;
    for (const TreeNode::Ptr& node : nodes) {
        if (!model_.containsNode(node.get()))
            continue;
        const QModelIndex first = model_.indexForNode(node.get(), CompilationModel::NameColumn);
        const QModelIndex last = model_.indexForNode(node.get(), CompilationModel::NodeKindColumn);
        selection.select(first, last);
    }
    selection_.select(selection, QItemSelectionModel::ClearAndSelect);
}

// ---- drops

bool MP3DataSource::acceptDrop(const CompilationModel::Drop& drop, SimpleTreeNode* target, int childIndex)
{
    const QList<TreeNode::Ptr> cover = TreeNode::minimumNodeCoverFromNodesInArray(drop.nodes);
    // Nodes never go into themselves or below themselves.
    if ((target ? target : root())->isDescendantOfNodeInArray(cover))
        return false;
    SimpleTreeNode* parent = root();
    int index = childIndex < 0 ? 0 : childIndex;
    if (target && target->data().isLeaf()) {
        if (childIndex < 0) {
            parent = target->parentNode();
            index = parent->indexOfChildIdenticalTo(target) + 1;
        } else {
            model_.setNodeIsLeaf(target, false);
            parent = target;
            index = 0;
        }
    } else if (target) {
        parent = target;
    }
    index = std::clamp(index, 0, parent->numberOfChildren());

    QList<TreeNode::Ptr> added;
    if (!cover.isEmpty()) {
        for (const TreeNode::Ptr& node : cover) {
            if (node->nodeParent() == parent && parent->indexOfChildIdenticalTo(node.get()) < index)
                --index;
            model_.removeNode(node.get());
        }
        model_.insertNodes(parent, index, cover);
        added = cover;
    } else {
        QList<TreeNode::Ptr> folders;
        bool fileAdded = false;
        for (const QString& path : drop.paths) {
            const bool folder = QFileInfo(path).isDir();
            const bool duplicate = std::any_of(parent->children().begin(), parent->children().end(),
                                               [&](const TreeNode::Ptr& sibling) {
                                                   return asSimple(sibling.get())->data().name() == path;
                                               });
            if (duplicate) {
                Desktop::beep();
                continue;
            }
            const SimpleTreeNode::Ptr node = folder ? SimpleTreeNode::group(path) : SimpleTreeNode::leaf(path);
            model_.insertNodes(parent, index++, {node});
            added.append(node);
            if (folder)
                folders.append(node);
            else
                fileAdded = true;
        }
        if (fileAdded)
            updateSizeInUI();
        if (!folders.isEmpty())
            startSearch(folders);
    }
    selectNodes(added);
    saveCurrentMP3CD();
    return true;
}

// ---- folder search

bool MP3DataSource::isScannedMusicFile(const QString& name)
{
    // No "M4R" here, unlike the library listing: ringtones are not gathered.
    static const QStringList music = {"MP3", "MP2", "WMA", "FLAC", "OGG", "M4A", "MID", "MIDI",
                                      "KAR", "M4B", "AAC", "M4P", "AIF", "AIFF", "WAV"};
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    return dot > 0 && music.contains(name.mid(dot + 1).toUpper());
}

int MP3DataSource::addMP3(const QString& folder, SimpleTreeNode& node, const Job& job, bool* cancelled)
{
    // Give other work on the disk a moment between folders.
    std::this_thread::sleep_for(std::chrono::microseconds(200));
    for (const char* remote : {"/Network", "/private", "/automount"}) {
        if (folder.startsWith(QLatin1String(remote)))
            return 0;
    }
    if (job.isCancelled()) {
        if (cancelled)
            *cancelled = true;
        return 0;
    }
    int index = 0;
    int count = 0;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    while (it.hasNext()) {
        it.next();
        const QFileInfo info = it.fileInfo();
        // Links to folders are not followed, so a link cycle cannot trap the search.
        if (info.isDir() && !info.isSymLink()) {
            const SimpleTreeNode::Ptr group = SimpleTreeNode::group(info.filePath());
            node.insertChild(group, index);
            bool stopped = false;
            const int found = addMP3(info.filePath(), *group, job, &stopped);
            if (stopped) {
                // Stop where we stand; what was found so far stays.
                if (cancelled)
                    *cancelled = true;
                return count + found;
            }
            count += found;
            if (found == 0)
                node.removeChild(group.get());
            else
                ++index;
        } else if (isScannedMusicFile(info.fileName())) {
            node.insertChild(SimpleTreeNode::leaf(info.filePath()), index++);
            ++count;
        }
    }
    return count;
}

void MP3DataSource::startSearch(const QList<TreeNode::Ptr>& groups)
{
    QList<ScanJob> scans;
    for (const TreeNode::Ptr& group : groups)
        scans.append({asSimple(group.get())->data().name(), group});
    setSheetShown(true);
    auto job = Job::create(searchSheetTitle, [this, scans](Job& job) { return handleThread(this, scans, job); });
    searches_[job->id()] = job;
    job->start();
}

JobResult MP3DataSource::handleThread(MP3DataSource* self, const QList<ScanJob>& scans, Job& job)
{
    int found = 0;
    for (qsizetype i = 0; i < scans.size(); ++i) {
        const ScanJob& scan = scans.at(i);
        // How deep a folder goes is not known before it has been searched.
        job.setProgress(-1, scan.path);
        const SimpleTreeNode::Ptr scratch = SimpleTreeNode::group(scan.path);
        bool cancelled = false;
        found += addMP3(scan.path, *scratch, job, &cancelled);
        QMetaObject::invokeMethod(
            self, [self, target = scan.group, scratch] { self->adoptScan(target, scratch); }, Qt::QueuedConnection);
        if (cancelled)
            break;
    }
    job.setStatus(QStringLiteral("%1 music files found").arg(found));
    // What was found before a cancel stays in the tree.
    return job.isCancelled() ? JobResult::cancelled() : JobResult::succeeded();
}

void MP3DataSource::adoptScan(const std::weak_ptr<TreeNode>& target, const SimpleTreeNode::Ptr& scratch)
{
    // The group may have been deleted, or another playlist loaded, meanwhile.
    const TreeNode::Ptr group = target.lock();
    if (!group || !model_.containsNode(group.get()) || scratch->numberOfChildren() == 0)
        return;
    model_.insertNodes(asSimple(group.get()), 0, scratch->children());
}

void MP3DataSource::finishSearch(quint64 jobId)
{
    auto it = searches_.find(jobId);
    if (it != searches_.end()) {
        it->second->wait();
        searches_.erase(it);
    }
    if (searches_.empty())
        setSheetShown(false);
    updateSizeInUI();
    saveCurrentMP3CD();
    emit searchFinished();
}

void MP3DataSource::cancelSearch()
{
    for (auto& [id, search] : searches_)
        search->cancel();
    setSheetShown(false);
}

void MP3DataSource::setSheetShown(bool shown)
{
    if (sheetShown_ == shown)
        return;
    sheetShown_ = shown;
    emit searchSheetChanged(shown);
}

// ---- sizing

void MP3DataSource::sumTree(const TreeNode& node)
{
    for (const TreeNode::Ptr& child : node.children()) {
        const auto& simple = static_cast<const SimpleTreeNode&>(*child);
        if (simple.data().isLeaf()) {
            const QFileInfo info(simple.data().name());
            if (info.exists())
                totalBytes_ += info.size();
            else
                ++missingFiles_;
        }
        sumTree(*child);
    }
}

void MP3DataSource::updateSizeInUI()
{
    totalBytes_ = 0;
    missingFiles_ = 0;
    sumTree(*root());
    emit sizeChanged();
}

// ---- the current playlist

void MP3DataSource::loadPlaylist(const QString& path)
{
    // Tree edits are saved to the .cd3 file of the selected playlist, also when
    // an imported playlist of another kind was selected.
    const QFileInfo selected(path);
    const QString playlist = selected.suffix().compare(QLatin1String("cd3"), Qt::CaseInsensitive) == 0
                                 ? path
                                 : selected.path() + '/' + selected.completeBaseName() + ".cd3";
    SimpleTreeNode::Ptr tree;
    for (const QString& source : {playlist, path}) {
        const auto contents = PropertyList::read(source);
        if (contents && contents->typeId() == QMetaType::QVariantMap
            && contents->toMap().value(QStringLiteral("Group")).typeId() == QMetaType::QString) {
            tree = SimpleTreeNode::treeFromDictionary(contents->toMap());
            break;
        }
    }
    model_.setRoot(tree ? tree : SimpleTreeNode::group(kRootName));
    currentPlaylist_ = playlist;
    loadedFrom_ = path;
    updateSizeInUI();
}

void MP3DataSource::dropDeletedPlaylist()
{
    if (currentPlaylist_.isEmpty() || QFileInfo::exists(currentPlaylist_) || QFileInfo::exists(loadedFrom_))
        return;
    selection_.clearSelection();
    model_.setRoot(SimpleTreeNode::group(kRootName));
    currentPlaylist_.clear();
    loadedFrom_.clear();
    updateSizeInUI();
}

QString MP3DataSource::newPlaylist()
{
    const QString folder = PlaylistFiles::playlistFolder();
    QDir().mkpath(folder);
    // Reserving the name keeps another Velmora from taking it at the same moment.
    QString path;
    for (int n = 1;; ++n) {
        path = folder + QStringLiteral("/Playlist %1.cd3").arg(n);
        if (!QFileInfo::exists(path) && FileNames::reserve(path))
            break;
        if (n == 10000)
            return {};
    }
    const SimpleTreeNode::Ptr empty = SimpleTreeNode::group(kRootName);
    if (!PlaylistFiles::writeGroup(path, empty->toDictionary())) {
        FileNames::release(path);
        return {};
    }
    FileNames::release(path);
    selection_.clearSelection();
    model_.setRoot(empty);
    currentPlaylist_ = path;
    loadedFrom_ = path;
    updateSizeInUI();
    NotificationCenter& center = NotificationCenter::defaultCenter();
    center.post(VLDidChangePlaylistNotification, path);
    center.post(VLDidAddPlaylistNotification, path);
    return path;
}

bool MP3DataSource::saveCurrentMP3CD()
{
    if (currentPlaylist_.isEmpty())
        return false;
    // A failure leaves the file as it was and is reported.
    if (!PlaylistFiles::writeGroup(currentPlaylist_, root()->toDictionary()))
        return false;
    NotificationCenter::defaultCenter().post(VLDidChangePlaylistNotification, currentPlaylist_);
    return true;
}

void MP3DataSource::playPlaylist()
{
    if (saveCurrentMP3CD())
        NotificationCenter::defaultCenter().post(VLPlayPlaylistNotification, currentPlaylist_);
}

bool MP3DataSource::exportM3U()
{
    if (!saveCurrentMP3CD())
        return false;
    QVariantMap request{{QStringLiteral("path"), currentPlaylist_},
                        {QStringLiteral("dictionary"), root()->toDictionary()}};
    Defaults& defaults = Defaults::standard();
    for (const char* key : {"mShuffleM3UStored", "prefsM3UPathPrefixStored", "prefsM3UExportFolderStored"}) {
        if (defaults.hasKey(QLatin1String(key)))
            request.insert(QLatin1String(key), defaults.objectForKey(QLatin1String(key)));
    }
    // Every track is read for its length and title: not on the window's thread.
    exports_.start([request] { NotificationCenter::defaultCenter().post(VLM3UPlaylistNotification, request); });
    return true;
}

void MP3DataSource::waitForExport()
{
    exports_.waitForDone();
}

void MP3DataSource::burnAudioCD()
{
    QVariantList tracks;
    for (const QString& path : root()->leafNames())
        tracks.append(path);
    NotificationCenter::defaultCenter().post(VLBurnAudioCDWithArrayNotification, tracks);
}

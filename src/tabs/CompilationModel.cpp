#include "tabs/CompilationModel.h"

#include <QDir>
#include <QIcon>
#include <QMimeData>
#include <QUrl>

#include <algorithm>
#include <chrono>
#include <thread>

const QString CompilationModel::nodePasteboardType = QStringLiteral("MyCustomOutlineViewPboardType");

namespace {
const char* const kIdentifiers[] = {"NameColumn", "IsExpandableColumn", "NodeKindColumn"};
const char* const kTitles[] = {"Name", "Opens", "Type"};
} // namespace

QString CompilationModel::columnIdentifier(int column)
{
    return column >= 0 && column < ColumnCount ? QString::fromLatin1(kIdentifiers[column]) : QString();
}

int CompilationModel::columnForIdentifier(const QString& identifier)
{
    for (int column = 0; column < ColumnCount; ++column) {
        if (identifier == QLatin1String(kIdentifiers[column]))
            return column;
    }
    return -1;
}

CompilationModel::CompilationModel(QObject* parent)
    : QAbstractItemModel(parent), root_(SimpleTreeNode::group(QStringLiteral("OVRoot")))
{
}

CompilationModel::~CompilationModel() = default;

void CompilationModel::setRoot(const SimpleTreeNode::Ptr& root)
{
    beginResetModel();
    root_ = root;
    endResetModel();
}

SimpleTreeNode* CompilationModel::nodeForIndex(const QModelIndex& index) const
{
    if (!index.isValid() || index.model() != this)
        return root_.get();
    return static_cast<SimpleTreeNode*>(index.internalPointer());
}

QModelIndex CompilationModel::indexForNode(const TreeNode* node, int column) const
{
    if (!node || node == root_.get() || !node->nodeParent())
        return {};
    const int row = node->nodeParent()->indexOfChildIdenticalTo(node);
    return row < 0 ? QModelIndex() : createIndex(row, column, const_cast<TreeNode*>(node));
}

bool CompilationModel::containsNode(const TreeNode* node) const
{
    return node && node->isDescendantOfNode(root_.get());
}

void CompilationModel::insertNodes(SimpleTreeNode* parent, int row, const QList<TreeNode::Ptr>& list)
{
    // A copy: the list may be the children of the nodes' old parent.
    const QList<TreeNode::Ptr> nodes = list;
    if (nodes.isEmpty())
        return;
    // Take the nodes out where they are first, each with its own signals.
    for (const TreeNode::Ptr& node : nodes) {
        if (containsNode(node.get())) {
            if (node->nodeParent() == parent && parent->indexOfChildIdenticalTo(node.get()) < row)
                --row;
            removeNode(node.get());
        } else {
            node->removeFromParent();
        }
    }
    row = std::clamp(row, 0, parent->numberOfChildren());
    beginInsertRows(indexForNode(parent), row, row + int(nodes.size()) - 1);
    parent->insertChildren(nodes, row);
    endInsertRows();
}

void CompilationModel::removeNode(TreeNode* node)
{
    TreeNode* parent = node->nodeParent();
    if (!parent || !containsNode(node))
        return;
    const int row = parent->indexOfChildIdenticalTo(node);
    const TreeNode::Ptr keepAlive = parent->childAtIndex(row);
    beginRemoveRows(indexForNode(parent), row, row);
    parent->removeChild(node);
    endRemoveRows();
}

void CompilationModel::setNodeIsLeaf(SimpleTreeNode* node, bool isLeaf)
{
    node->data().setIsLeaf(isLeaf);
    // A node that becomes a group can be opened, one that becomes a leaf cannot.
    node->data().setIsExpandable(!isLeaf);
    emit dataChanged(indexForNode(node, NameColumn), indexForNode(node, NodeKindColumn));
}

void CompilationModel::sortRecursively()
{
    emit layoutAboutToBeChanged();
    const QModelIndexList before = persistentIndexList();
    QList<TreeNode*> nodes;
    for (const QModelIndex& index : before)
        nodes.append(static_cast<TreeNode*>(index.internalPointer()));
    root_->recursiveSortChildren();
    QModelIndexList after;
    for (int i = 0; i < before.size(); ++i)
        after.append(indexForNode(nodes[i], before[i].column()));
    changePersistentIndexList(before, after);
    emit layoutChanged();
}

QModelIndex CompilationModel::index(int row, int column, const QModelIndex& parent) const
{
    if (column < 0 || column >= ColumnCount)
        return {};
    SimpleTreeNode* node = nodeForIndex(parent);
    if (row < 0 || row >= node->numberOfChildren())
        return {};
    return createIndex(row, column, node->childAtIndex(row).get());
}

QModelIndex CompilationModel::parent(const QModelIndex& index) const
{
    if (!index.isValid())
        return {};
    return indexForNode(nodeForIndex(index)->nodeParent());
}

int CompilationModel::rowCount(const QModelIndex& parent) const
{
    if (parent.isValid() && parent.column() != NameColumn)
        return 0;
    return nodeForIndex(parent)->numberOfChildren();
}

int CompilationModel::columnCount(const QModelIndex&) const
{
    return ColumnCount;
}

QVariant CompilationModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid())
        return {};
    const SimpleNodeData& node = nodeForIndex(index)->data();
    switch (index.column()) {
    case NameColumn:
        if (role == Qt::DisplayRole || role == Qt::EditRole || role == Qt::ToolTipRole)
            return node.name();
        if (role == Qt::DecorationRole)
            return node.iconRep().isNull()
                       ? QIcon::fromTheme(node.isGroup() ? QStringLiteral("folder") : QStringLiteral("audio-x-generic"))
                       : node.iconRep();
        break;
    case IsExpandableColumn:
        if (role == Qt::CheckStateRole && node.isGroup())
            return node.isExpandable() ? Qt::Checked : Qt::Unchecked;
        break;
    case NodeKindColumn:
        if (role == Qt::DisplayRole)
            return node.isLeaf() ? QStringLiteral("Leaf") : QStringLiteral("Group");
        break;
    }
    return {};
}

bool CompilationModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (!index.isValid())
        return false;
    SimpleTreeNode* node = nodeForIndex(index);
    if (index.column() == NameColumn && role == Qt::EditRole) {
        const QString name = value.toString();
        if (name.isEmpty())
            return false;
        node->data().setName(name);
    } else if (index.column() == IsExpandableColumn && role == Qt::CheckStateRole && node->data().isGroup()) {
        node->data().setIsExpandable(value.toInt() == Qt::Checked);
    } else {
        return false;
    }
    emit dataChanged(index, index, {role});
    emit nodeEdited(node);
    return true;
}

QVariant CompilationModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || section < 0 || section >= ColumnCount)
        return {};
    if (role == ColumnIdentifierRole)
        return columnIdentifier(section);
    if (role == Qt::DisplayRole)
        return QString::fromLatin1(kTitles[section]);
    return {};
}

Qt::ItemFlags CompilationModel::flags(const QModelIndex& index) const
{
    if (!index.isValid())
        return Qt::ItemIsDropEnabled;
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled | Qt::ItemIsDropEnabled;
    if (index.column() == NameColumn)
        flags |= Qt::ItemIsEditable;
    if (index.column() == IsExpandableColumn && nodeForIndex(index)->data().isGroup())
        flags |= Qt::ItemIsUserCheckable;
    return flags;
}

Qt::DropActions CompilationModel::supportedDragActions() const
{
    return Qt::CopyAction;
}

Qt::DropActions CompilationModel::supportedDropActions() const
{
    return Qt::CopyAction | Qt::MoveAction;
}

QStringList CompilationModel::mimeTypes() const
{
    return {nodePasteboardType, QStringLiteral("text/uri-list")};
}

QMimeData* CompilationModel::mimeData(const QModelIndexList& indexes) const
{
    dragNodes_.clear();
    QList<QUrl> urls;
    QList<const TreeNode*> seen;
    for (const QModelIndex& index : indexes) {
        SimpleTreeNode* node = nodeForIndex(index);
        if (!index.isValid() || seen.contains(node))
            continue;
        seen.append(node);
        dragNodes_.push_back(node->sharedNode());
        if (node->data().isLeaf())
            urls.append(QUrl::fromLocalFile(node->data().name()));
    }
    auto* data = new QMimeData;
    // Other programs get the files; this tree gets its own nodes back.
    data->setUrls(urls);
    data->setData(nodePasteboardType,
                  QByteArray::number(quintptr(this)) + ':' + QByteArray::number(++dragSerial_));
    return data;
}

QList<TreeNode::Ptr> CompilationModel::draggedNodes(const QMimeData* data) const
{
    if (!data->hasFormat(nodePasteboardType))
        return {};
    const QByteArray expected = QByteArray::number(quintptr(this)) + ':' + QByteArray::number(dragSerial_);
    if (data->data(nodePasteboardType) != expected)
        return {};
    QList<TreeNode::Ptr> nodes;
    for (const auto& weak : dragNodes_) {
        TreeNode::Ptr node = weak.lock();
        if (node && containsNode(node.get()))
            nodes.append(node);
    }
    return nodes;
}

bool CompilationModel::canDropMimeData(const QMimeData* data, Qt::DropAction, int, int,
                                       const QModelIndex& parent) const
{
    if (scrollSpeed_ > 0)
        std::this_thread::sleep_for(std::chrono::microseconds(qint64(scrollSpeed_ * 5000)));
    if (data->hasFormat(nodePasteboardType)) {
        const QList<TreeNode::Ptr> nodes = draggedNodes(data);
        // Nothing may be dropped into itself.
        return !nodes.isEmpty() && !nodeForIndex(parent)->isDescendantOfNodeInArray(nodes);
    }
    const QList<QUrl> urls = data->urls();
    return std::any_of(urls.begin(), urls.end(), [](const QUrl& url) { return url.isLocalFile(); });
}

bool CompilationModel::dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                                    const QModelIndex& parent)
{
    if (action == Qt::IgnoreAction)
        return true;
    if (!dropHandler_ || !canDropMimeData(data, action, row, column, parent))
        return false;
    Drop drop;
    if (data->hasFormat(nodePasteboardType)) {
        drop.nodes = draggedNodes(data);
    } else {
        for (const QUrl& url : data->urls()) {
            if (url.isLocalFile())
                drop.paths.append(QDir::cleanPath(url.toLocalFile()));
        }
    }
    SimpleTreeNode* target = parent.isValid() ? nodeForIndex(parent) : nullptr;
    return dropHandler_(drop, target, row);
}

#pragma once
#include "tabs/SimpleTreeNode.h"

#include <QAbstractItemModel>
#include <QStringList>

#include <functional>
#include <memory>
#include <vector>

// The compilation tree as an item model: three columns by identifier
// ("NameColumn", "IsExpandableColumn", "NodeKindColumn"), nodes dragged within
// the tree and files dropped from outside. Every structural change goes through
// the edit methods below so that views stay in step; what a drop means is left
// to the drop handler (the compilation data source).
class CompilationModel : public QAbstractItemModel {
    Q_OBJECT
public:
    enum Column { NameColumn, IsExpandableColumn, NodeKindColumn, ColumnCount };
    // headerData(section, Qt::Horizontal, ColumnIdentifierRole) gives the identifier.
    static constexpr int ColumnIdentifierRole = Qt::UserRole + 1;
    static QString columnIdentifier(int column);
    static int columnForIdentifier(const QString& identifier);  // -1 when unknown

    // The drag type of nodes moved within the tree.
    static const QString nodePasteboardType;

    struct Drop {
        QList<TreeNode::Ptr> nodes;  // nodes of this tree being moved
        QStringList paths;           // files and folders dropped from outside
    };
    // target: the node dropped on (null: the root area); childIndex: the
    // position among its children, -1 when dropped on the node itself.
    using DropHandler = std::function<bool(const Drop& drop, SimpleTreeNode* target, int childIndex)>;

    explicit CompilationModel(QObject* parent = nullptr);
    ~CompilationModel() override;

    SimpleTreeNode* root() const { return root_.get(); }
    void setRoot(const SimpleTreeNode::Ptr& root);
    // The node of an index; the root for an invalid one.
    SimpleTreeNode* nodeForIndex(const QModelIndex& index) const;
    QModelIndex indexForNode(const TreeNode* node, int column = NameColumn) const;
    bool containsNode(const TreeNode* node) const;

    // Edits. Inserted nodes are taken from wherever they were.
    void insertNodes(SimpleTreeNode* parent, int row, const QList<TreeNode::Ptr>& nodes);
    void removeNode(TreeNode* node);
    void setNodeIsLeaf(SimpleTreeNode* node, bool isLeaf);
    void sortRecursively();

    void setDropHandler(DropHandler handler) { dropHandler_ = std::move(handler); }
    // While a drag hovers, each check waits speed × 5 ms so that auto-scrolling
    // runs at the user's chosen pace.
    void setScrollSpeed(double speed) { scrollSpeed_ = speed; }

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& index) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    // Dragging within the tree moves the nodes, and the model does the move
    // itself: drags are offered as copies so a view never removes the source rows.
    Qt::DropActions supportedDragActions() const override;
    Qt::DropActions supportedDropActions() const override;
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;
    bool canDropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                         const QModelIndex& parent) const override;
    bool dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                      const QModelIndex& parent) override;

signals:
    // A name or the expandable flag was edited in a view.
    void nodeEdited(SimpleTreeNode* node);

private:
    QList<TreeNode::Ptr> draggedNodes(const QMimeData* data) const;

    SimpleTreeNode::Ptr root_;
    DropHandler dropHandler_;
    double scrollSpeed_ = 0;
    // Nodes of the drag in progress; the drag data carries only its serial.
    mutable std::vector<std::weak_ptr<TreeNode>> dragNodes_;
    mutable quint64 dragSerial_ = 0;
};

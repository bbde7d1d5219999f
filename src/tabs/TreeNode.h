#pragma once
#include <QList>

#include <memory>

// The payload of a tree node; nodes sort by comparing their payloads.
class TreeNodeData {
public:
    virtual ~TreeNodeData() = default;
    // <0, 0 or >0 as this payload sorts before, with or after the other.
    virtual int compare(const TreeNodeData& other) const = 0;
};

// A node of an ordered tree. A parent owns its children (shared, so that a node
// taken out of the tree lives on while someone holds it); the back link to the
// parent is not owning.
class TreeNode : public std::enable_shared_from_this<TreeNode> {
public:
    using Ptr = std::shared_ptr<TreeNode>;

    static Ptr treeNodeWithData(std::unique_ptr<TreeNodeData> data);
    // A node that adopts the given children, in order.
    static Ptr create(std::unique_ptr<TreeNodeData> data, const QList<Ptr>& children = {});
    virtual ~TreeNode();

    TreeNodeData* nodeData() const { return nodeData_.get(); }
    void setNodeData(std::unique_ptr<TreeNodeData> data) { nodeData_ = std::move(data); }
    TreeNode* nodeParent() const { return nodeParent_; }
    const QList<Ptr>& children() const { return children_; }

    // A child already under another parent is taken from it first.
    void insertChild(const Ptr& child, int index);
    void insertChildren(const QList<Ptr>& children, int index);
    void removeChild(TreeNode* child);
    void removeFromParent();

    // The first child whose payload compares equal; -1 when none does.
    int indexOfChild(const TreeNode* node) const;
    // The position of this very node among the children; -1 when it is not one.
    int indexOfChildIdenticalTo(const TreeNode* node) const;
    int numberOfChildren() const { return int(children_.size()); }
    Ptr firstChild() const;
    Ptr lastChild() const;
    Ptr childAtIndex(int index) const;

    // True when node is this node or one of its ancestors.
    bool isDescendantOfNode(const TreeNode* node) const;
    bool isDescendantOfNodeInArray(const QList<Ptr>& nodes) const;

    // Sorts every child array by payload, at every level (stable).
    void recursiveSortChildren();
    // The nodes of the array that have no ancestor in the array, in array order.
    static QList<Ptr> minimumNodeCoverFromNodesInArray(const QList<Ptr>& nodes);

    int compare(const TreeNode& other) const;

protected:
    explicit TreeNode(std::unique_ptr<TreeNodeData> data);

private:
    std::unique_ptr<TreeNodeData> nodeData_;
    TreeNode* nodeParent_ = nullptr;
    QList<Ptr> children_;
};

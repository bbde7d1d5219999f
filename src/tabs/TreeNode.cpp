#include "tabs/TreeNode.h"

#include <algorithm>

TreeNode::TreeNode(std::unique_ptr<TreeNodeData> data) : nodeData_(std::move(data)) {}

TreeNode::~TreeNode()
{
    for (const Ptr& child : children_)
        child->nodeParent_ = nullptr;
}

TreeNode::Ptr TreeNode::treeNodeWithData(std::unique_ptr<TreeNodeData> data)
{
    return create(std::move(data));
}

TreeNode::Ptr TreeNode::create(std::unique_ptr<TreeNodeData> data, const QList<Ptr>& children)
{
    Ptr node(new TreeNode(std::move(data)));
    node->insertChildren(children, 0);
    return node;
}

void TreeNode::insertChild(const Ptr& child, int index)
{
    insertChildren({child}, index);
}

void TreeNode::insertChildren(const QList<Ptr>& children, int index)
{
    // Keep the nodes alive while they change parents.
    const QList<Ptr> moving = children;
    for (const Ptr& child : moving) {
        if (child->nodeParent_ == this && indexOfChildIdenticalTo(child.get()) < index)
            --index;
        child->removeFromParent();
    }
    index = std::clamp(index, 0, int(children_.size()));
    for (const Ptr& child : moving) {
        child->nodeParent_ = this;
        children_.insert(index++, child);
    }
}

void TreeNode::removeChild(TreeNode* child)
{
    const int index = indexOfChildIdenticalTo(child);
    if (index < 0)
        return;
    child->nodeParent_ = nullptr;
    children_.removeAt(index);
}

void TreeNode::removeFromParent()
{
    if (nodeParent_)
        nodeParent_->removeChild(this);
}

int TreeNode::indexOfChild(const TreeNode* node) const
{
    for (int i = 0; i < children_.size(); ++i) {
        if (children_[i]->compare(*node) == 0)
            return i;
    }
    return -1;
}

int TreeNode::indexOfChildIdenticalTo(const TreeNode* node) const
{
    for (int i = 0; i < children_.size(); ++i) {
        if (children_[i].get() == node)
            return i;
    }
    return -1;
}

TreeNode::Ptr TreeNode::firstChild() const
{
    return children_.isEmpty() ? nullptr : children_.first();
}

TreeNode::Ptr TreeNode::lastChild() const
{
    return children_.isEmpty() ? nullptr : children_.last();
}

TreeNode::Ptr TreeNode::childAtIndex(int index) const
{
    return index >= 0 && index < children_.size() ? children_[index] : nullptr;
}

bool TreeNode::isDescendantOfNode(const TreeNode* node) const
{
    for (const TreeNode* walk = this; walk; walk = walk->nodeParent_) {
        if (walk == node)
            return true;
    }
    return false;
}

bool TreeNode::isDescendantOfNodeInArray(const QList<Ptr>& nodes) const
{
    return std::any_of(nodes.begin(), nodes.end(), [this](const Ptr& node) { return isDescendantOfNode(node.get()); });
}

void TreeNode::recursiveSortChildren()
{
    std::stable_sort(children_.begin(), children_.end(),
                     [](const Ptr& a, const Ptr& b) { return a->compare(*b) < 0; });
    for (const Ptr& child : children_)
        child->recursiveSortChildren();
}

QList<TreeNode::Ptr> TreeNode::minimumNodeCoverFromNodesInArray(const QList<Ptr>& nodes)
{
    QList<Ptr> cover;
    for (const Ptr& node : nodes) {
        const bool underAnother = std::any_of(nodes.begin(), nodes.end(), [&](const Ptr& other) {
            return other != node && node->nodeParent_ && node->nodeParent_->isDescendantOfNode(other.get());
        });
        if (!underAnother && !cover.contains(node))
            cover.append(node);
    }
    return cover;
}

int TreeNode::compare(const TreeNode& other) const
{
    if (!nodeData_ || !other.nodeData_)
        return int(bool(nodeData_)) - int(bool(other.nodeData_));
    return nodeData_->compare(*other.nodeData_);
}

#pragma once
#include "tabs/SimpleNodeData.h"
#include "tabs/TreeNode.h"

#include <QVariantMap>

// A compilation-tree node: a TreeNode whose payload is a SimpleNodeData.
// Its dictionary form is the playlist group record {"Group": name,
// "Entries": [full path | group record, ...]}.
class SimpleTreeNode : public TreeNode {
public:
    using Ptr = std::shared_ptr<SimpleTreeNode>;

    static Ptr leaf(const QString& name);
    static Ptr group(const QString& name);

    SimpleNodeData& data() const { return static_cast<SimpleNodeData&>(*nodeData()); }
    SimpleTreeNode* parentNode() const { return static_cast<SimpleTreeNode*>(nodeParent()); }
    SimpleTreeNode* child(int index) const { return static_cast<SimpleTreeNode*>(childAtIndex(index).get()); }
    Ptr sharedNode() { return std::static_pointer_cast<SimpleTreeNode>(shared_from_this()); }

    // A group named by "Group" with, in order, a leaf for every string entry and
    // a subtree for every dictionary entry; other entries are skipped.
    static Ptr treeFromDictionary(const QVariantMap& dictionary);
    // The group record of this node: groups nest, leaves become their names.
    QVariantMap toDictionary() const;
    // The names of the leaves under this node, depth first, in order.
    QStringList leafNames() const;

private:
    explicit SimpleTreeNode(std::unique_ptr<SimpleNodeData> data);
};

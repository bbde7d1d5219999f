#include "tabs/SimpleTreeNode.h"

#include <QStringList>

SimpleTreeNode::SimpleTreeNode(std::unique_ptr<SimpleNodeData> data) : TreeNode(std::move(data)) {}

SimpleTreeNode::Ptr SimpleTreeNode::leaf(const QString& name)
{
    return Ptr(new SimpleTreeNode(SimpleNodeData::leafDataWithName(name)));
}

SimpleTreeNode::Ptr SimpleTreeNode::group(const QString& name)
{
    return Ptr(new SimpleTreeNode(SimpleNodeData::groupDataWithName(name)));
}

SimpleTreeNode::Ptr SimpleTreeNode::treeFromDictionary(const QVariantMap& dictionary)
{
    Ptr node = group(dictionary.value(QStringLiteral("Group")).toString());
    for (const QVariant& entry : dictionary.value(QStringLiteral("Entries")).toList()) {
        if (entry.typeId() == QMetaType::QString)
            node->insertChild(leaf(entry.toString()), node->numberOfChildren());
        else if (entry.typeId() == QMetaType::QVariantMap)
            node->insertChild(treeFromDictionary(entry.toMap()), node->numberOfChildren());
    }
    return node;
}

QVariantMap SimpleTreeNode::toDictionary() const
{
    QVariantList entries;
    for (const TreeNode::Ptr& child : children()) {
        const auto& node = static_cast<const SimpleTreeNode&>(*child);
        if (node.data().isLeaf())
            entries.append(node.data().name());
        else
            entries.append(node.toDictionary());
    }
    return {{QStringLiteral("Group"), data().name()}, {QStringLiteral("Entries"), entries}};
}

QStringList SimpleTreeNode::leafNames() const
{
    QStringList names;
    for (const TreeNode::Ptr& child : children()) {
        const auto& node = static_cast<const SimpleTreeNode&>(*child);
        if (node.data().isLeaf())
            names.append(node.data().name());
        names.append(node.leafNames());
    }
    return names;
}

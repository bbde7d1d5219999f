#pragma once
#include "tabs/TreeNode.h"

#include <QIcon>
#include <QString>

// The payload of a compilation-tree node: a group or a leaf (a file), with the
// name shown for it (for nodes made from files, the file's full path).
class SimpleNodeData : public TreeNodeData {
public:
    SimpleNodeData(const QString& name, bool isLeaf);

    static std::unique_ptr<SimpleNodeData> leafDataWithName(const QString& name);
    static std::unique_ptr<SimpleNodeData> groupDataWithName(const QString& name);

    const QString& name() const { return name_; }
    void setName(const QString& name) { name_ = name; }
    bool isLeaf() const { return isLeaf_; }
    bool isGroup() const { return !isLeaf_; }
    void setIsLeaf(bool isLeaf) { isLeaf_ = isLeaf; }
    bool isExpandable() const { return isExpandable_; }
    void setIsExpandable(bool isExpandable) { isExpandable_ = isExpandable; }
    const QIcon& iconRep() const { return iconRep_; }
    void setIconRep(const QIcon& icon) { iconRep_ = icon; }

    // Names compare as plain, case-sensitive strings.
    int compare(const TreeNodeData& other) const override;

private:
    QString name_;
    bool isLeaf_;
    bool isExpandable_;
    QIcon iconRep_;
};

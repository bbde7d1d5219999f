#include "tabs/SimpleNodeData.h"

SimpleNodeData::SimpleNodeData(const QString& name, bool isLeaf)
    : name_(name), isLeaf_(isLeaf), isExpandable_(!isLeaf)
{
}

std::unique_ptr<SimpleNodeData> SimpleNodeData::leafDataWithName(const QString& name)
{
    return std::make_unique<SimpleNodeData>(name, true);
}

std::unique_ptr<SimpleNodeData> SimpleNodeData::groupDataWithName(const QString& name)
{
    return std::make_unique<SimpleNodeData>(name, false);
}

int SimpleNodeData::compare(const TreeNodeData& other) const
{
    const auto* simple = dynamic_cast<const SimpleNodeData*>(&other);
    if (!simple)
        return 1;
    return name_.compare(simple->name_, Qt::CaseSensitive);
}

#include "core/DictionaryTree.h"

#include <algorithm>

namespace DictionaryTree {

namespace {
const QString kGroup = QStringLiteral("Group");
const QString kEntries = QStringLiteral("Entries");

QVariantList entries(const QVariant& group)
{
    return isGroup(group) ? group.toMap().value(kEntries).toList() : QVariantList();
}

template <typename Edit>
void editEntries(QVariant& group, Edit edit)
{
    if (!isGroup(group))
        return;
    QVariantMap map = group.toMap();
    QVariantList list = map.value(kEntries).toList();
    edit(list);
    map.insert(kEntries, list);
    group = map;
}
} // namespace

QVariantMap newGroup()
{
    return {{kGroup, QStringLiteral("New Folder")}, {kEntries, QVariantList()}};
}

QString newLeaf()
{
    return QStringLiteral("New Leaf");
}

QVariantMap newGroupFromLeaf(const QString& leaf)
{
    return {{kGroup, leaf}, {kEntries, QVariantList()}};
}

bool isGroup(const QVariant& item)
{
    return item.typeId() == QMetaType::QVariantMap;
}

bool isLeaf(const QVariant& item)
{
    return item.typeId() == QMetaType::QString;
}

QString itemDescription(const QVariant& item)
{
    return isGroup(item) ? item.toMap().value(kGroup).toString() : item.toString();
}

void setItemDescription(QVariant& item, const QString& description)
{
    if (isGroup(item)) {
        QVariantMap map = item.toMap();
        map.insert(kGroup, description);
        item = map;
    } else {
        item = description;
    }
}

int numberOfChildItems(const QVariant& group)
{
    return int(entries(group).size());
}

QVariant childItemAtIndex(const QVariant& group, int index)
{
    const QVariantList list = entries(group);
    return index >= 0 && index < list.size() ? list[index] : QVariant();
}

int indexOfChildItem(const QVariant& group, const QVariant& child)
{
    return int(entries(group).indexOf(child));
}

void insertChildItem(QVariant& group, const QVariant& child, int index)
{
    editEntries(group, [&](QVariantList& list) { list.insert(std::clamp(index, 0, int(list.size())), child); });
}

void removeChildItem(QVariant& group, const QVariant& child)
{
    editEntries(group, [&](QVariantList& list) { list.removeOne(child); });
}

void replaceChildAtIndex(QVariant& group, int index, const QVariant& child)
{
    editEntries(group, [&](QVariantList& list) {
        if (index >= 0 && index < list.size())
            list[index] = child;
    });
}

QStringList itemsByFlattening(const QVariant& item)
{
    if (!isGroup(item))
        return {item.toString()};
    QStringList items{itemDescription(item)};
    for (const QVariant& entry : entries(item))
        items.append(itemsByFlattening(entry));
    return items;
}

void sortRecursively(QVariant& item)
{
    editEntries(item, [](QVariantList& list) {
        std::stable_sort(list.begin(), list.end(), [](const QVariant& a, const QVariant& b) {
            return itemDescription(a).compare(itemDescription(b), Qt::CaseSensitive) < 0;
        });
        for (QVariant& entry : list)
            sortRecursively(entry);
    });
}

} // namespace DictionaryTree

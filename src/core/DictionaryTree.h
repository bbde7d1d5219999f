#pragma once
#include <QStringList>
#include <QVariant>

// The group/leaf tree kept as plain values: a group is a dictionary
// {"Group": name, "Entries": [children]}, a leaf is a string (its name). This is
// the form playlists are stored in. Values are copied deeply whenever they are
// copied, so there is no separate deep-copy operation.
namespace DictionaryTree {

QVariantMap newGroup();                              // {"Group": "New Folder", "Entries": []}
QString newLeaf();                                   // "New Leaf"
QVariantMap newGroupFromLeaf(const QString& leaf);   // a group named after the leaf, no entries

bool isGroup(const QVariant& item);
bool isLeaf(const QVariant& item);

// The group's "Group" value or the leaf string.
QString itemDescription(const QVariant& item);
void setItemDescription(QVariant& item, const QString& description);

// Operations on a group's "Entries"; a leaf has no children.
int numberOfChildItems(const QVariant& group);
QVariant childItemAtIndex(const QVariant& group, int index);  // null when out of range
int indexOfChildItem(const QVariant& group, const QVariant& child);  // first equal entry, or -1
void insertChildItem(QVariant& group, const QVariant& child, int index);
// Removes the first entry equal to child (values have no identity to go by).
void removeChildItem(QVariant& group, const QVariant& child);
void replaceChildAtIndex(QVariant& group, int index, const QVariant& child);

// A group: its name followed by the flattening of each entry in order; a leaf: itself.
QStringList itemsByFlattening(const QVariant& item);
// Sorts every "Entries" by description (plain, case-sensitive), at every level.
void sortRecursively(QVariant& item);

} // namespace DictionaryTree

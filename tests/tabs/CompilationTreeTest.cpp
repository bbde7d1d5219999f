#include "core/DictionaryTree.h"
#include "tabs/SimpleTreeNode.h"

#include <gtest/gtest.h>

namespace {

QStringList names(const TreeNode& node)
{
    QStringList list;
    for (const TreeNode::Ptr& child : node.children())
        list << static_cast<const SimpleTreeNode&>(*child).data().name();
    return list;
}

} // namespace

TEST(TreeNode, InsertsMovesAndRemovesChildren)
{
    auto root = SimpleTreeNode::group("root");
    auto a = SimpleTreeNode::leaf("a");
    auto b = SimpleTreeNode::leaf("b");
    auto c = SimpleTreeNode::leaf("c");
    auto group = SimpleTreeNode::group("g");
    root->insertChildren({a, b, c}, 0);
    root->insertChild(group, 1);
    EXPECT_EQ(names(*root), (QStringList{"a", "g", "b", "c"}));
    EXPECT_EQ(b->nodeParent(), root.get());
    EXPECT_EQ(root->firstChild(), a);
    EXPECT_EQ(root->lastChild(), c);
    EXPECT_EQ(root->childAtIndex(9), nullptr);

    // Moving within the same parent lands where the caller meant.
    root->insertChild(a, 3);
    EXPECT_EQ(names(*root), (QStringList{"g", "b", "a", "c"}));
    // A node put under another parent leaves the old one.
    group->insertChild(b, 0);
    EXPECT_EQ(names(*root), (QStringList{"g", "a", "c"}));
    EXPECT_EQ(b->nodeParent(), group.get());

    auto twin = SimpleTreeNode::leaf("c");
    EXPECT_EQ(root->indexOfChild(twin.get()), 2);                 // equal payload
    EXPECT_EQ(root->indexOfChildIdenticalTo(twin.get()), -1);     // not this node
    EXPECT_EQ(root->indexOfChildIdenticalTo(c.get()), 2);

    c->removeFromParent();
    EXPECT_EQ(c->nodeParent(), nullptr);
    root->removeChild(a.get());
    EXPECT_EQ(names(*root), QStringList{"g"});
}

TEST(TreeNode, DescendantsCoverAndSort)
{
    auto root = SimpleTreeNode::group("root");
    auto g1 = SimpleTreeNode::group("g1");
    auto g2 = SimpleTreeNode::group("g2");
    auto x = SimpleTreeNode::leaf("x");
    auto y = SimpleTreeNode::leaf("y");
    root->insertChildren({g1, y}, 0);
    g1->insertChild(g2, 0);
    g2->insertChild(x, 0);

    EXPECT_TRUE(x->isDescendantOfNode(g1.get()));
    EXPECT_TRUE(g1->isDescendantOfNode(g1.get()));
    EXPECT_FALSE(g1->isDescendantOfNode(x.get()));
    EXPECT_TRUE(x->isDescendantOfNodeInArray({y, g2}));
    EXPECT_FALSE(y->isDescendantOfNodeInArray({g1, x}));

    const QList<TreeNode::Ptr> cover = TreeNode::minimumNodeCoverFromNodesInArray({x, y, g1, g2, y});
    EXPECT_EQ(cover, (QList<TreeNode::Ptr>{y, g1}));

    auto sorted = SimpleTreeNode::group("s");
    auto inner = SimpleTreeNode::group("M");
    sorted->insertChildren({SimpleTreeNode::leaf("b"), inner, SimpleTreeNode::leaf("B"), SimpleTreeNode::leaf("a")}, 0);
    inner->insertChildren({SimpleTreeNode::leaf("z"), SimpleTreeNode::leaf("Z")}, 0);
    sorted->recursiveSortChildren();
    // Plain, case-sensitive order: capitals first.
    EXPECT_EQ(names(*sorted), (QStringList{"B", "M", "a", "b"}));
    EXPECT_EQ(names(*inner), (QStringList{"Z", "z"}));
}

TEST(SimpleTreeNode, GroupRecordRoundTrip)
{
    const QVariantMap record{
        {"Group", "OVRoot"},
        {"Entries", QVariantList{"/music/one.mp3",
                                 QVariantMap{{"Group", "Disc 1"},
                                             {"Entries", QVariantList{"/music/two.ogg", QVariantMap{{"Group", "Empty"}, {"Entries", QVariantList{}}}}}},
                                 42, "/music/three.wav"}}};
    const auto tree = SimpleTreeNode::treeFromDictionary(record);
    EXPECT_EQ(tree->data().name(), "OVRoot");
    EXPECT_TRUE(tree->data().isGroup());
    EXPECT_EQ(names(*tree), (QStringList{"/music/one.mp3", "Disc 1", "/music/three.wav"}));  // the number is skipped
    EXPECT_TRUE(tree->child(0)->data().isLeaf());
    EXPECT_FALSE(tree->child(0)->data().isExpandable());
    EXPECT_TRUE(tree->child(1)->data().isExpandable());
    EXPECT_EQ(tree->leafNames(), (QStringList{"/music/one.mp3", "/music/two.ogg", "/music/three.wav"}));

    QVariantMap expected = record;
    QVariantList entries = expected["Entries"].toList();
    entries.removeAt(2);
    expected["Entries"] = entries;
    EXPECT_EQ(tree->toDictionary(), expected);
}

TEST(DictionaryTree, GroupAndLeafOperations)
{
    using namespace DictionaryTree;
    QVariant root = newGroup();
    EXPECT_EQ(itemDescription(root), "New Folder");
    EXPECT_EQ(numberOfChildItems(root), 0);
    EXPECT_EQ(newLeaf(), "New Leaf");

    insertChildItem(root, QString("b.mp3"), 0);
    insertChildItem(root, newGroupFromLeaf("Disc"), 0);
    insertChildItem(root, QString("a.mp3"), 99);  // past the end: appended
    EXPECT_EQ(numberOfChildItems(root), 3);
    EXPECT_TRUE(isGroup(childItemAtIndex(root, 0)));
    EXPECT_TRUE(isLeaf(childItemAtIndex(root, 2)));
    EXPECT_FALSE(childItemAtIndex(root, 3).isValid());
    EXPECT_EQ(indexOfChildItem(root, QString("a.mp3")), 2);

    QVariant disc = childItemAtIndex(root, 0);
    insertChildItem(disc, QString("z.ogg"), 0);
    insertChildItem(disc, QString("c.ogg"), 1);
    setItemDescription(disc, "Disc 1");
    replaceChildAtIndex(root, 0, disc);
    EXPECT_EQ(itemsByFlattening(root), (QStringList{"New Folder", "Disc 1", "z.ogg", "c.ogg", "b.mp3", "a.mp3"}));

    sortRecursively(root);
    EXPECT_EQ(itemsByFlattening(root), (QStringList{"New Folder", "Disc 1", "c.ogg", "z.ogg", "a.mp3", "b.mp3"}));

    removeChildItem(root, QString("a.mp3"));
    EXPECT_EQ(numberOfChildItems(root), 2);
    QVariant leaf = QString("x");
    EXPECT_EQ(itemsByFlattening(leaf), QStringList{"x"});
    setItemDescription(leaf, "y");
    EXPECT_EQ(leaf.toString(), "y");
    insertChildItem(leaf, QString("child"), 0);  // a leaf has no children
    EXPECT_EQ(numberOfChildItems(leaf), 0);
}

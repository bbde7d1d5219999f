#include "core/Defaults.h"
#include "tabs/StoresList.h"
#include "platform/Desktop.h"

#include <gtest/gtest.h>

namespace {
void forgetStores()
{
    Defaults::standard().removeObject("mMusicStore");
    Defaults::standard().removeObject("mMusicStoreURL");
}
} // namespace

TEST(Stores, DefaultsShowButAreWrittenOnlyAfterTheFirstChange)
{
    forgetStores();
    stores_wrapper stores;
    stores.awakeFromNib();
    ASSERT_EQ(stores.numberOfRows(), 5);
    EXPECT_EQ(stores.nameAt(0), "Free Music Archive");
    EXPECT_EQ(stores.nameAt(4), "Classics Online");
    EXPECT_TRUE(stores.toolTipAt(2).startsWith("https://"));
    EXPECT_FALSE(Defaults::standard().hasKey("mMusicStore"));

    // An added entry is not saved; a later update saves everything shown.
    stores.add();
    EXPECT_EQ(stores.numberOfRows(), 6);
    EXPECT_EQ(stores.nameAt(5), "New Music Store Name");
    EXPECT_FALSE(Defaults::standard().hasKey("mMusicStore"));
    stores_wrapper reopened;
    reopened.awakeFromNib();
    EXPECT_EQ(reopened.numberOfRows(), 5);

    stores.selectRow(1);
    EXPECT_EQ(stores.nameField(), "eMusic");
    stores.setFields("eMusic Shop", "https://shop.example.org/");
    stores.update();
    const QVariantList saved = Defaults::standard().arrayForKey("mMusicStore");
    ASSERT_EQ(saved.size(), 6);
    EXPECT_EQ(saved.at(1).toString(), "eMusic Shop");
    EXPECT_EQ(Defaults::standard().arrayForKey("mMusicStoreURL").at(1).toString(), "https://shop.example.org/");
}

TEST(Stores, WithoutSelectionUpdateDeleteAndGotoDoNothing)
{
    forgetStores();
    QStringList opened;
    Desktop::setOpenUrlHandler([&](const QString& url) { opened << url; return true; });
    stores_wrapper stores;
    stores.awakeFromNib();
    stores.numberOfRows();
    stores.selectRow(-1);
    stores.update();
    stores.remove();
    EXPECT_FALSE(stores.gotoSelected());
    EXPECT_TRUE(opened.isEmpty());
    EXPECT_FALSE(Defaults::standard().hasKey("mMusicStore"));

    stores.selectRow(3);
    EXPECT_TRUE(stores.gotoSelected());
    EXPECT_EQ(opened, QStringList{stores.toolTipAt(3)});

    stores.remove();
    EXPECT_EQ(Defaults::standard().arrayForKey("mMusicStore").size(), 4);
    EXPECT_EQ(stores.selectedRow(), -1);

    stores.resetDefaultStores();
    EXPECT_EQ(Defaults::standard().arrayForKey("mMusicStore").size(), 5);
    EXPECT_EQ(Defaults::standard().arrayForKey("mMusicStoreURL").size(), 5);
    Desktop::setOpenUrlHandler(nullptr);
}

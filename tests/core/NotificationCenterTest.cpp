#include "core/NotificationCenter.h"
#include "core/Notifications.h"

#include <gtest/gtest.h>

#include <thread>

TEST(NotificationCenter, DeliversSynchronouslyOnThePostersThreadInRegistrationOrder)
{
    NotificationCenter center;
    std::vector<std::pair<int, std::thread::id>> calls;
    int owner1 = 0, owner2 = 0;
    center.addObserver(&owner1, VLReloadLibraryNotification,
                       [&](const Notification& n) {
                           EXPECT_EQ(n.object.toString(), "payload");
                           calls.emplace_back(1, std::this_thread::get_id());
                       });
    center.addObserver(&owner2, VLReloadLibraryNotification,
                       [&](const Notification&) { calls.emplace_back(2, std::this_thread::get_id()); });
    center.addObserver(&owner2, VLDidLaunchNotification, [&](const Notification&) { calls.emplace_back(3, std::thread::id()); });

    std::thread::id poster;
    std::thread worker([&] {
        poster = std::this_thread::get_id();
        center.post(VLReloadLibraryNotification, QStringLiteral("payload"));
        // Delivery has finished when post returns.
        EXPECT_EQ(calls.size(), 2u);
    });
    worker.join();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].first, 1);
    EXPECT_EQ(calls[1].first, 2);
    EXPECT_EQ(calls[0].second, poster);
    EXPECT_EQ(calls[1].second, poster);
}

TEST(NotificationCenter, ObserverRemovedDuringDeliveryIsNotCalledAgain)
{
    NotificationCenter center;
    int first = 0, second = 0, secondCalls = 0, firstCalls = 0;
    center.addObserver(&first, "X", [&](const Notification&) {
        ++firstCalls;
        center.removeObserver(&first);   // itself
        center.removeObserver(&second);  // the one still waiting in this delivery
    });
    center.addObserver(&second, "X", [&](const Notification&) { ++secondCalls; });
    center.post("X");
    center.post("X");
    EXPECT_EQ(firstCalls, 1);
    EXPECT_EQ(secondCalls, 0);
    EXPECT_EQ(center.observerCount("X"), 0);
}

TEST(NotificationCenter, RemovesOnlyTheNamedRegistration)
{
    NotificationCenter center;
    int owner = 0, a = 0, b = 0;
    center.addObserver(&owner, "A", [&](const Notification&) { ++a; });
    center.addObserver(&owner, "B", [&](const Notification&) { ++b; });
    center.removeObserver(&owner, "A");
    center.post("A");
    center.post("B");
    EXPECT_EQ(a, 0);
    EXPECT_EQ(b, 1);
}

TEST(NotificationCenter, ExportNamesAreBuiltFromTheFormatKey)
{
    EXPECT_EQ(exportNotificationName("MP3"), QString(VLMP3ExportNotification));
    EXPECT_EQ(exportNotificationName("M4R"), QString(VLM4RExportNotification));
}

#include "platform/SingleInstance.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

TEST(SingleInstance, ASecondInstanceHandsItsFilesToTheFirst)
{
    const QString name = SingleInstance::defaultName() + "-test";
    SingleInstance first(name);
    SingleInstance second(name);
    EXPECT_FALSE(second.sendToRunningInstance({"/x/a.mp3"}, 200));  // nobody listens yet
    ASSERT_TRUE(first.listen());
    QSignalSpy received(&first, &SingleInstance::filesReceived);
    // The sender waits for the connection, which the listener accepts from its event loop.
    bool sent = false;
    QMetaObject::invokeMethod(&second, [&] { sent = second.sendToRunningInstance({"/x/a.mp3", "/x/b c.ogg"}); },
                              Qt::QueuedConnection);
    ASSERT_TRUE(received.wait(5000));
    EXPECT_TRUE(sent);
    EXPECT_EQ(received.at(0).at(0).toStringList(), (QStringList{"/x/a.mp3", "/x/b c.ogg"}));
}

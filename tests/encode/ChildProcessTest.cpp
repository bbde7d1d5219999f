#include "platform/ChildProcess.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

TEST(ChildProcess, RunsArgumentVectorsWithoutAShell)
{
    ChildProcess echo("/bin/echo", {"$(rm -rf /tmp/never)", "a b", "'q'"});
    echo.setCaptureOutput(true);
    ASSERT_TRUE(echo.start());
    EXPECT_EQ(echo.waitForExit(), 0);
    EXPECT_EQ(echo.output(), QByteArray("$(rm -rf /tmp/never) a b 'q'\n"));

    EXPECT_EQ(ChildProcess::execute("/bin/sh", {"-c", "exit 3"}), 3);
    EXPECT_EQ(ChildProcess::execute("/nonexistent/tool", {}), -1);
    // Output that is not captured goes nowhere, and stdin reads as empty.
    ChildProcess cat("/bin/cat", {});
    cat.setCaptureOutput(true);
    ASSERT_TRUE(cat.start());
    EXPECT_EQ(cat.waitForExit(), 0);
    EXPECT_TRUE(cat.output().isEmpty());
}

TEST(ChildProcess, TerminateFromAnotherThread)
{
    ChildProcess sleeper("/bin/sleep", {"30"});
    ASSERT_TRUE(sleeper.start());
    const auto started = std::chrono::steady_clock::now();
    std::thread stopper([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        sleeper.terminate();
    });
    EXPECT_EQ(sleeper.waitForExit(), -1);
    stopper.join();
    EXPECT_TRUE(sleeper.wasTerminated());
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(10));
    sleeper.terminate();  // already reaped: nothing is signalled
    EXPECT_EQ(sleeper.waitForExit(), -1);
}

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

TEST(ChildProcess, AToolThatHangsIsStoppedAtItsTimeLimit)
{
    const auto started = std::chrono::steady_clock::now();
    // It ignores the polite signal, so the limit must end it the hard way.
    ChildProcess stubborn("/bin/sh", {"-c", "trap '' TERM; echo started; sleep 30"});
    stubborn.setCaptureOutput(true);
    stubborn.setTimeLimit(300);
    ASSERT_TRUE(stubborn.start());
    EXPECT_EQ(stubborn.waitForExit(), -1);
    EXPECT_TRUE(stubborn.timedOut());
    EXPECT_EQ(stubborn.output(), QByteArray("started\n"));
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(10));

    // Within its limit a tool's exit code and output are its own.
    ChildProcess quick("/bin/sh", {"-c", "printf done; exit 4"});
    quick.setCaptureOutput(true);
    quick.setTimeLimit(20000);
    ASSERT_TRUE(quick.start());
    EXPECT_EQ(quick.waitForExit(), 4);
    EXPECT_FALSE(quick.timedOut());
    EXPECT_EQ(quick.output(), QByteArray("done"));
}

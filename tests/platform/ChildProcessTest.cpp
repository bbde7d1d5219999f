#include "platform/ChildProcess.h"

#include <QFile>
#include <QTemporaryDir>

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

TEST(ChildProcess, OutputArrivesWhileTheChildRunsAndErrorsAreKeptApart)
{
    // The second line is written only after the first was seen, so a reader
    // that waited for the end would hang here until the time limit.
    QTemporaryDir dir;
    const QString seen = dir.filePath("seen");
    ChildProcess tool("/bin/sh", {"-c", "echo 'Progress: 5%'; echo oops >&2; while [ ! -e \"$0\" ]; do sleep 0.05; done; "
                                        "echo 'Progress: 100%'; exit 2",
                                  seen});
    QList<QByteArray> pieces;
    tool.setOutputHandler([&](const QByteArray& piece) {
        pieces << piece;
        QFile(seen).open(QIODevice::WriteOnly);
    });
    tool.setCaptureErrors(true);
    tool.setTimeLimit(10000);
    ASSERT_TRUE(tool.start());
    EXPECT_EQ(tool.waitForExit(), 2);
    EXPECT_FALSE(tool.timedOut());
    ASSERT_FALSE(pieces.isEmpty());
    EXPECT_EQ(pieces.first(), QByteArray("Progress: 5%\n"));
    EXPECT_EQ(tool.output(), QByteArray("Progress: 5%\nProgress: 100%\n"));
    EXPECT_EQ(tool.errors(), QByteArray("oops\n"));

    // A flood on standard error is cut at the limit and never stalls the child.
    ChildProcess noisy("/bin/sh", {"-c", "head -c 300000 /dev/zero >&2; echo end"});
    noisy.setCaptureErrors(true);
    noisy.setCaptureOutput(true);
    noisy.setTimeLimit(10000);
    ASSERT_TRUE(noisy.start());
    EXPECT_EQ(noisy.waitForExit(), 0);
    EXPECT_EQ(noisy.errors().size(), ChildProcess::kMaxErrorBytes);
    EXPECT_EQ(noisy.output(), QByteArray("end\n"));
}

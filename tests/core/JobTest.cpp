#include "core/Job.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

TEST(Job, RunsOnItsOwnThreadReportsProgressAndStaysListedOnlyWhenItFailed)
{
    auto& list = JobList::shared();
    QSignalSpy finished(&list, &JobList::jobFinished);
    const std::thread::id caller = std::this_thread::get_id();
    std::thread::id worker;
    auto good = Job::create("Converting", [&](Job& job) {
        worker = std::this_thread::get_id();
        job.setProgress(50, "Saving Files");
        job.addMessage("a.mp3 skipped");
        return JobResult::succeeded({"/out/b.MP3"});
    });
    good->start();
    good->wait();
    EXPECT_NE(worker, caller);
    EXPECT_EQ(good->state(), Job::State::Finished);
    EXPECT_EQ(good->status(), "Saving Files");
    EXPECT_EQ(good->messages(), QStringList{"a.mp3 skipped"});
    EXPECT_EQ(good->result().files, QStringList{"/out/b.MP3"});
    EXPECT_EQ(good->percent(), 100);
    EXPECT_FALSE(list.job(good->id()));  // a success leaves the list

    auto bad = Job::create("Writing tags", [](Job&) { return JobResult::failed("\"x.mp3\" is read-only"); });
    const JobResult result = bad->run();  // on this thread
    EXPECT_EQ(result.outcome, JobResult::Outcome::Failed);
    ASSERT_TRUE(list.job(bad->id()));  // kept, so the window can say why
    EXPECT_EQ(list.job(bad->id())->result().error, "\"x.mp3\" is read-only");
    list.dismiss(bad->id());
    EXPECT_FALSE(list.job(bad->id()));
    EXPECT_EQ(finished.size(), 2);
    EXPECT_TRUE(list.waitForAll(1000));
}

TEST(Job, CancelStopsWhatTheBodyWaitsOnAndHooksEndBeforeTheirOwners)
{
    std::atomic<bool> release {false};
    std::atomic<int> stops {0};
    auto job = Job::create("Encoding", [&](Job& self) {
        // The body waits on something only its cancel hook can end.
        auto hook = self.onCancel([&] {
            ++stops;
            release = true;
        });
        while (!release)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return self.isCancelled() ? JobResult::cancelled() : JobResult::succeeded();
    });
    job->start();
    while (job->state() != Job::State::Running)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(JobList::shared().runningCount(), 1);
    JobList::shared().cancelAll();
    job->wait();
    EXPECT_EQ(job->result().outcome, JobResult::Outcome::Cancelled);
    EXPECT_EQ(stops, 1);
    job->cancel();  // after the end: the hook is gone and nothing is called again
    EXPECT_EQ(stops, 1);

    // A job cancelled before it starts never runs its body.
    bool ran = false;
    auto early = Job::create("Scan", [&](Job&) {
        ran = true;
        return JobResult::succeeded();
    });
    early->cancel();
    early->run();
    EXPECT_FALSE(ran);
    EXPECT_EQ(early->result().outcome, JobResult::Outcome::Cancelled);
}

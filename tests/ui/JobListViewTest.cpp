#include "ui/JobListView.h"
#include "core/Job.h"
#include "ui/AwakeApplication.h"
#include "ui/MainWindow.h"

#include <QLabel>
#include <QLayout>
#include <QProgressBar>
#include <QTabWidget>
#include <QTest>
#include <QToolButton>

#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <mutex>

namespace {

// A job on its own thread that does what the test tells it, step by step.
class ScriptedJob {
public:
    explicit ScriptedJob(const QString& title)
    {
        job = Job::create(title, [this](Job& self) {
            const auto hook = self.onCancel([this] { release(); });
            for (;;) {
                std::unique_lock lock(mutex_);
                wake_.wait(lock, [this] { return pending_ || released_; });
                if (released_)
                    break;
                auto step = std::move(step_);
                pending_ = false;
                lock.unlock();
                step(self);
                lock.lock();
                done_ = true;
                wake_.notify_all();
            }
            if (self.isCancelled())
                return JobResult::cancelled();
            return failure_.isEmpty() ? JobResult::succeeded() : JobResult::failed(failure_);
        });
        job->start();
    }
    ~ScriptedJob()
    {
        release();
        job->wait();
    }
    // Runs a step on the job's thread and waits for it.
    void step(std::function<void(Job&)> action)
    {
        std::unique_lock lock(mutex_);
        step_ = std::move(action);
        pending_ = true;
        done_ = false;
        wake_.notify_all();
        wake_.wait(lock, [this] { return done_; });
    }
    void finish(const QString& failure = {})
    {
        {
            std::lock_guard lock(mutex_);
            failure_ = failure;
        }
        release();
        job->wait();
    }

    std::shared_ptr<Job> job;

private:
    void release()
    {
        std::lock_guard lock(mutex_);
        released_ = true;
        wake_.notify_all();
    }
    std::mutex mutex_;
    std::condition_variable wake_;
    std::function<void(Job&)> step_;
    bool pending_ = false;
    bool done_ = false;
    bool released_ = false;
    QString failure_;
};

template <typename T>
T* part(JobListView& view, quint64 id, const char* name)
{
    QWidget* row = view.rowFor(id);
    return row ? row->findChild<T*>(QLatin1String(name)) : nullptr;
}

class JobListViewTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (const auto& job : JobList::shared().jobs())
            if (job->state() == Job::State::Finished)
                JobList::shared().dismiss(job->id());
    }
    // The panel as the window holds it, on a parent of its own.
    QWidget parent;
    JobListView& view = *new JobListView(&parent);
};

}  // namespace

TEST_F(JobListViewTest, ARunningJobShowsItsProgressAndStatusAndCancelStopsIt)
{
    parent.show();
    EXPECT_FALSE(view.isVisible());  // nothing to show yet
    ScriptedJob scripted("Converting to MP3");
    const quint64 id = scripted.job->id();
    ASSERT_TRUE(QTest::qWaitFor([&] { return view.rowFor(id) != nullptr; }, 5000));
    EXPECT_TRUE(view.isVisible());
    EXPECT_EQ(part<QLabel>(view, id, "jobTitle")->text(), "Converting to MP3");
    // Unknown progress is a busy bar.
    EXPECT_EQ(part<QProgressBar>(view, id, "jobProgress")->maximum(), 0);

    scripted.step([](Job& job) { job.setProgress(40, "Song 4 of 10"); });
    auto* bar = part<QProgressBar>(view, id, "jobProgress");
    ASSERT_TRUE(QTest::qWaitFor([&] { return bar->maximum() == 100 && bar->value() == 40; }, 5000));
    EXPECT_EQ(part<QLabel>(view, id, "jobStatus")->text(), "Song 4 of 10");
    auto* cancel = part<QToolButton>(view, id, "jobCancel");
    ASSERT_TRUE(cancel);
    EXPECT_TRUE(cancel->isVisibleTo(&parent));
    EXPECT_FALSE(cancel->toolTip().isEmpty());
    EXPECT_FALSE(part<QToolButton>(view, id, "jobDismiss")->isVisibleTo(&parent));

    cancel->click();
    scripted.job->wait();
    EXPECT_EQ(scripted.job->result().outcome, JobResult::Outcome::Cancelled);
    // A cancelled job leaves the list, and the panel hides with its last row.
    ASSERT_TRUE(QTest::qWaitFor([&] { return view.rowFor(id) == nullptr; }, 5000));
    EXPECT_FALSE(view.isVisible());
}

TEST_F(JobListViewTest, AFailedJobShowsWhyUntilItIsDismissedAndASuccessLeaves)
{
    parent.show();
    ScriptedJob good("Saving Files");
    ScriptedJob bad("Writing tags");
    ASSERT_TRUE(QTest::qWaitFor([&] { return view.rowCount() == 2; }, 5000));
    // Oldest first.
    EXPECT_LT(view.layout()->indexOf(view.rowFor(good.job->id())), view.layout()->indexOf(view.rowFor(bad.job->id())));

    good.finish();
    bad.finish("\"x.mp3\" is read-only; it was left as it is.");
    const quint64 id = bad.job->id();
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return view.rowCount() == 1 && !part<QProgressBar>(view, id, "jobProgress")->isVisibleTo(&parent); },
        5000));
    EXPECT_FALSE(view.rowFor(good.job->id()));
    EXPECT_EQ(part<QLabel>(view, id, "jobStatus")->text(), "\"x.mp3\" is read-only; it was left as it is.");
    EXPECT_FALSE(part<QToolButton>(view, id, "jobCancel")->isVisibleTo(&parent));
    auto* dismiss = part<QToolButton>(view, id, "jobDismiss");
    ASSERT_TRUE(dismiss->isVisibleTo(&parent));

    // It waits there however long the user takes.
    QTest::qWait(200);
    ASSERT_TRUE(view.rowFor(id));
    EXPECT_TRUE(view.isVisible());
    dismiss->click();
    EXPECT_FALSE(JobList::shared().job(id));
    ASSERT_TRUE(QTest::qWaitFor([&] { return view.rowCount() == 0; }, 5000));
    EXPECT_FALSE(view.isVisible());
}

TEST_F(JobListViewTest, AJobStartedBeforeTheWindowIsShownAndSeenFromEveryTab)
{
    ScriptedJob early("Scanning the library");
    AwakeApplication app;
    MainWindow& window = app.window();
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    JobListView* list = window.jobList();
    ASSERT_TRUE(list->rowFor(early.job->id()));
    for (int tab = 0; tab < window.tabs()->count(); ++tab) {
        window.tabs()->setCurrentIndex(tab);
        EXPECT_TRUE(list->isVisible()) << tab;
    }
    early.finish();
    ASSERT_TRUE(QTest::qWaitFor([&] { return list->rowFor(early.job->id()) == nullptr; }, 5000));
    // Shown exactly while something is listed (the window's own start-up jobs may still be).
    EXPECT_EQ(list->isVisible(), list->rowCount() > 0);
}

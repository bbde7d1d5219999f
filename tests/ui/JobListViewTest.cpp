#include "ui/JobListView.h"
#include "core/Job.h"
#include "ui/AwakeApplication.h"
#include "ui/MainWindow.h"

#include <QLabel>
#include <QLayout>
#include <QProgressBar>
#include <QScrollArea>
#include <QScrollBar>
#include <QTabWidget>
#include <QTest>
#include <QToolButton>
#include <QVBoxLayout>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

namespace {

// A job on its own thread that runs until the test ends it or it is cancelled;
// the test reports its progress (a job may do so from any thread).
class HeldJob {
public:
    explicit HeldJob(const QString& title)
        : job(Job::create(title, [this](Job& self) {
              while (!released_ && !self.isCancelled())
                  std::this_thread::sleep_for(std::chrono::milliseconds(2));
              if (self.isCancelled())
                  return JobResult::cancelled();
              return failure_.isEmpty() ? JobResult::succeeded() : JobResult::failed(failure_);
          }))
    {
        job->start();
    }
    ~HeldJob() { finish(); }
    void finish(const QString& failure = {})
    {
        if (!released_)
            failure_ = failure;
        released_ = true;
        job->wait();
    }

    std::shared_ptr<Job> job;

private:
    QString failure_;
    std::atomic<bool> released_{false};
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
        // Jobs of earlier tests in this process (a disc lookup, say) must not show here.
        JobList::shared().cancelAll();
        JobList::shared().waitForAll(10000);
        for (const auto& job : JobList::shared().jobs())
            if (job->state() == Job::State::Finished)
                JobList::shared().dismiss(job->id());
        // The panel was made before: let it take the removals in.
        QTest::qWait(120);
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
    HeldJob held("Converting to MP3");
    const quint64 id = held.job->id();
    ASSERT_TRUE(QTest::qWaitFor([&] { return view.rowFor(id) != nullptr; }, 5000));
    EXPECT_TRUE(view.isVisible());
    EXPECT_EQ(part<QLabel>(view, id, "jobTitle")->text(), "Converting to MP3");
    // Unknown progress is a busy bar.
    EXPECT_EQ(part<QProgressBar>(view, id, "jobProgress")->maximum(), 0);

    held.job->setProgress(40, "Song 4 of 10");
    auto* bar = part<QProgressBar>(view, id, "jobProgress");
    ASSERT_TRUE(QTest::qWaitFor([&] { return bar->maximum() == 100 && bar->value() == 40; }, 5000));
    EXPECT_EQ(part<QLabel>(view, id, "jobStatus")->text(), "Song 4 of 10");
    auto* cancel = part<QToolButton>(view, id, "jobCancel");
    ASSERT_TRUE(cancel);
    EXPECT_TRUE(cancel->isVisibleTo(&parent));
    EXPECT_FALSE(cancel->toolTip().isEmpty());
    EXPECT_FALSE(part<QToolButton>(view, id, "jobDismiss")->isVisibleTo(&parent));

    cancel->click();
    held.job->wait();
    EXPECT_EQ(held.job->result().outcome, JobResult::Outcome::Cancelled);
    // A cancelled job leaves the list, and the panel hides with its last row.
    ASSERT_TRUE(QTest::qWaitFor([&] { return view.rowFor(id) == nullptr; }, 5000));
    EXPECT_FALSE(view.isVisible());
}

TEST_F(JobListViewTest, AFailedJobShowsWhyUntilItIsDismissedAndASuccessLeaves)
{
    parent.show();
    HeldJob good("Saving Files");
    HeldJob bad("Writing tags");
    ASSERT_TRUE(QTest::qWaitFor([&] { return view.rowCount() == 2; }, 5000));
    // Oldest first.
    const QLayout* rows = view.rowFor(good.job->id())->parentWidget()->layout();
    EXPECT_LT(rows->indexOf(view.rowFor(good.job->id())), rows->indexOf(view.rowFor(bad.job->id())));

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
    HeldJob early("Scanning the library");
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

TEST_F(JobListViewTest, ABatchOfManyJobsScrollsInsteadOfGrowingTheWindow)
{
    auto* layout = new QVBoxLayout(&parent);
    layout->addWidget(new QWidget, 1);  // the tabs above it
    layout->addWidget(&view);
    parent.resize(800, 600);
    parent.show();
    std::vector<std::unique_ptr<HeldJob>> jobs;
    for (int i = 0; i < 40; ++i)
        jobs.push_back(std::make_unique<HeldJob>(QStringLiteral("Converting %1.wav to OGG").arg(i)));
    ASSERT_TRUE(QTest::qWaitFor([&] { return view.rowCount() == 40; }, 5000));
    // A few rows tall once laid out, the window keeps its size, and the last job is still reachable.
    QWidget* first = view.rowFor(jobs.front()->job->id());
    ASSERT_TRUE(QTest::qWaitFor([&] { return first->height() > 0 && view.height() >= 3 * first->height(); }, 5000));
    EXPECT_LE(view.height(), 12 * first->height());
    EXPECT_EQ(parent.height(), 600);
    auto* scroll = view.findChild<QScrollArea*>();
    ASSERT_TRUE(scroll);
    scroll->ensureWidgetVisible(view.rowFor(jobs.back()->job->id()));
    EXPECT_GT(scroll->verticalScrollBar()->value(), 0);
}

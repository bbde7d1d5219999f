#pragma once
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

// What a finished piece of long work gives back.
struct JobResult {
    enum class Outcome { Succeeded, Failed, Cancelled };
    Outcome outcome = Outcome::Succeeded;
    QStringList files;  // the files it made, each written whole
    QString error;      // for the user, when it failed

    static JobResult succeeded(QStringList files = {});
    static JobResult failed(QString error, QStringList files = {});
    static JobResult cancelled(QStringList files = {});
    bool ok() const { return outcome == Outcome::Succeeded; }
};

// One piece of long work (an export, a save, a scan, a rip, a burn, a copy):
// started on a worker thread of its own or run where the caller stands, with
// a cancel flag, progress (percent and a status text), messages and a result.
// Every job is listed in JobList::shared() while it runs; a failed one stays
// there until it is dismissed, so the window can show why.
class Job : public std::enable_shared_from_this<Job> {
public:
    enum class State { Waiting, Running, Finished };
    using Body = std::function<JobResult(Job& job)>;

    static std::shared_ptr<Job> create(QString title, Body body);
    ~Job();
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;

    quint64 id() const { return id_; }
    QString title() const;
    void setTitle(const QString& title);

    // Runs the body on a new thread of its own.
    void start();
    // Runs the body on the calling thread, listed like any other job.
    JobResult run();
    // Blocks until the body has returned.
    void wait() const;

    // Sets the flag the body reads between steps, then calls the cancel
    // handlers (which stop what the body waits on, a child process say).
    void cancel();
    bool isCancelled() const { return cancelled_; }

    // A cancel handler for as long as the returned hook lives; the hook's end
    // waits for a call in progress, so the handler may use what the body owns.
    // On a job already cancelled the handler runs at once.
    class CancelHook {
    public:
        CancelHook() = default;
        CancelHook(CancelHook&& other) noexcept;
        CancelHook& operator=(CancelHook&& other) noexcept;
        ~CancelHook();

    private:
        friend class Job;
        CancelHook(std::shared_ptr<Job> job, quint64 key) : job_(std::move(job)), key_(key) {}
        std::shared_ptr<Job> job_;
        quint64 key_ = 0;
    };
    [[nodiscard]] CancelHook onCancel(std::function<void()> handler);

    // Called by the body, from any thread. A negative percent means "unknown";
    // an empty status keeps the one shown.
    void setProgress(double percent, const QString& status = QString());
    void setStatus(const QString& status);
    void addMessage(const QString& message);

    State state() const;
    double percent() const;
    QString status() const;
    QStringList messages() const;
    JobResult result() const;

private:
    Job(QString title, Body body);
    void execute();

    const quint64 id_;
    Body body_;
    mutable std::mutex mutex_;
    mutable std::condition_variable finishedCondition_;
    QString title_;
    State state_ = State::Waiting;
    bool done_ = false;
    double percent_ = -1;
    QString status_;
    QStringList messages_;
    JobResult result_;
    std::atomic<bool> cancelled_ {false};
    std::mutex handlersMutex_;
    std::vector<std::pair<quint64, std::function<void()>>> cancelHandlers_;
    quint64 nextHandlerKey_ = 1;
};

// Every job of the process. Signals come from the thread that changed the job;
// a window connects to them queued.
class JobList : public QObject {
    Q_OBJECT
public:
    static JobList& shared();

    // Running jobs and finished jobs that failed, oldest first.
    QList<std::shared_ptr<Job>> jobs() const;
    std::shared_ptr<Job> job(quint64 id) const;
    int runningCount() const;
    // A finished job leaves the list.
    void dismiss(quint64 id);
    void cancelAll();
    // Until no job runs; false when the time ran out first (negative: no limit).
    bool waitForAll(int timeoutMs = -1) const;

signals:
    void jobAdded(quint64 id);
    void jobChanged(quint64 id);
    void jobFinished(quint64 id);
    void jobRemoved(quint64 id);

private:
    friend class Job;
    JobList() = default;
    void add(const std::shared_ptr<Job>& job);
    void changed(quint64 id);
    void finished(quint64 id, bool keep);

    mutable std::mutex mutex_;
    mutable std::condition_variable idle_;
    QList<std::shared_ptr<Job>> jobs_;
    int running_ = 0;
};

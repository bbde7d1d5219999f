#include "core/Job.h"

#include <chrono>
#include <thread>

namespace {
std::atomic<quint64> nextJobId {1};
}

JobResult JobResult::succeeded(QStringList files)
{
    return {Outcome::Succeeded, std::move(files), {}};
}

JobResult JobResult::failed(QString error, QStringList files)
{
    return {Outcome::Failed, std::move(files), std::move(error)};
}

JobResult JobResult::cancelled(QStringList files)
{
    return {Outcome::Cancelled, std::move(files), {}};
}

Job::Job(QString title, Body body) : id_(nextJobId++), body_(std::move(body)), title_(std::move(title)) {}

Job::~Job() = default;

std::shared_ptr<Job> Job::create(QString title, Body body)
{
    return std::shared_ptr<Job>(new Job(std::move(title), std::move(body)));
}

QString Job::title() const
{
    std::lock_guard lock(mutex_);
    return title_;
}

void Job::setTitle(const QString& title)
{
    {
        std::lock_guard lock(mutex_);
        title_ = title;
    }
    JobList::shared().changed(id_);
}

void Job::start()
{
    JobList::shared().add(shared_from_this());
    std::thread([self = shared_from_this()] { self->execute(); }).detach();
}

JobResult Job::run()
{
    JobList::shared().add(shared_from_this());
    execute();
    return result();
}

void Job::execute()
{
    {
        std::lock_guard lock(mutex_);
        state_ = State::Running;
    }
    JobList::shared().changed(id_);
    JobResult outcome = cancelled_ ? JobResult::cancelled() : body_(*this);
    if (cancelled_ && outcome.outcome == JobResult::Outcome::Succeeded && outcome.files.isEmpty())
        outcome.outcome = JobResult::Outcome::Cancelled;
    {
        std::lock_guard lock(mutex_);
        result_ = outcome;
        state_ = State::Finished;
        if (outcome.ok())
            percent_ = 100;
        // What the body held (captured objects) goes now, not with the last reference.
        body_ = nullptr;
    }
    JobList::shared().finished(id_, outcome.outcome == JobResult::Outcome::Failed);
    // Waiters wake once the list too shows the end.
    {
        std::lock_guard lock(mutex_);
        done_ = true;
    }
    finishedCondition_.notify_all();
}

void Job::wait() const
{
    std::unique_lock lock(mutex_);
    finishedCondition_.wait(lock, [this] { return done_; });
}

void Job::cancel()
{
    if (cancelled_.exchange(true))
        return;
    {
        std::lock_guard lock(handlersMutex_);
        for (const auto& [key, handler] : cancelHandlers_)
            handler();
    }
    JobList::shared().changed(id_);
}

Job::CancelHook Job::onCancel(std::function<void()> handler)
{
    std::lock_guard lock(handlersMutex_);
    if (cancelled_)
        handler();
    const quint64 key = nextHandlerKey_++;
    cancelHandlers_.emplace_back(key, std::move(handler));
    return CancelHook(shared_from_this(), key);
}

Job::CancelHook::CancelHook(CancelHook&& other) noexcept : job_(std::move(other.job_)), key_(other.key_)
{
    other.key_ = 0;
}

Job::CancelHook& Job::CancelHook::operator=(CancelHook&& other) noexcept
{
    if (this != &other) {
        CancelHook old(std::move(*this));
        job_ = std::move(other.job_);
        key_ = other.key_;
        other.key_ = 0;
    }
    return *this;
}

Job::CancelHook::~CancelHook()
{
    if (!job_)
        return;
    std::lock_guard lock(job_->handlersMutex_);
    auto& handlers = job_->cancelHandlers_;
    for (auto it = handlers.begin(); it != handlers.end(); ++it) {
        if (it->first == key_) {
            handlers.erase(it);
            break;
        }
    }
}

void Job::setProgress(double percent, const QString& status)
{
    {
        std::lock_guard lock(mutex_);
        percent_ = percent < 0 ? -1 : std::min(percent, 100.0);
        if (!status.isEmpty())
            status_ = status;
    }
    JobList::shared().changed(id_);
}

void Job::setStatus(const QString& status)
{
    {
        std::lock_guard lock(mutex_);
        status_ = status;
    }
    JobList::shared().changed(id_);
}

void Job::addMessage(const QString& message)
{
    {
        std::lock_guard lock(mutex_);
        messages_.append(message);
    }
    JobList::shared().changed(id_);
}

Job::State Job::state() const
{
    std::lock_guard lock(mutex_);
    return state_;
}

double Job::percent() const
{
    std::lock_guard lock(mutex_);
    return percent_;
}

QString Job::status() const
{
    std::lock_guard lock(mutex_);
    return status_;
}

QStringList Job::messages() const
{
    std::lock_guard lock(mutex_);
    return messages_;
}

JobResult Job::result() const
{
    std::lock_guard lock(mutex_);
    return result_;
}

JobList& JobList::shared()
{
    static JobList* list = new JobList;  // outlives every job thread
    return *list;
}

void JobList::add(const std::shared_ptr<Job>& job)
{
    {
        std::lock_guard lock(mutex_);
        jobs_.append(job);
        ++running_;
    }
    emit jobAdded(job->id());
}

void JobList::changed(quint64 id)
{
    emit jobChanged(id);
}

void JobList::finished(quint64 id, bool keep)
{
    std::shared_ptr<Job> held;  // the job may go here; let it go outside the lock
    {
        std::lock_guard lock(mutex_);
        --running_;
        if (!keep) {
            for (qsizetype i = 0; i < jobs_.size(); ++i) {
                if (jobs_.at(i)->id() == id) {
                    held = jobs_.takeAt(i);
                    break;
                }
            }
        }
    }
    idle_.notify_all();
    emit jobFinished(id);
    if (!keep)
        emit jobRemoved(id);
}

QList<std::shared_ptr<Job>> JobList::jobs() const
{
    std::lock_guard lock(mutex_);
    return jobs_;
}

std::shared_ptr<Job> JobList::job(quint64 id) const
{
    std::lock_guard lock(mutex_);
    for (const auto& job : jobs_) {
        if (job->id() == id)
            return job;
    }
    return nullptr;
}

int JobList::runningCount() const
{
    std::lock_guard lock(mutex_);
    return running_;
}

void JobList::dismiss(quint64 id)
{
    std::shared_ptr<Job> held;
    {
        std::lock_guard lock(mutex_);
        for (qsizetype i = 0; i < jobs_.size(); ++i) {
            if (jobs_.at(i)->id() == id && jobs_.at(i)->state() == Job::State::Finished) {
                held = jobs_.takeAt(i);
                break;
            }
        }
    }
    if (held)
        emit jobRemoved(id);
}

void JobList::cancelAll()
{
    for (const auto& job : jobs())
        job->cancel();
}

bool JobList::waitForAll(int timeoutMs) const
{
    std::unique_lock lock(mutex_);
    if (timeoutMs < 0) {
        idle_.wait(lock, [this] { return running_ == 0; });
        return true;
    }
    return idle_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] { return running_ == 0; });
}

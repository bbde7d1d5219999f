#pragma once
#include "core/Job.h"

#include <QList>
#include <QObject>

#include <memory>
#include <mutex>

// While it lives, holds every job the process starts, so that a command can
// read the outcome of jobs that have finished and left the job list.
class HeldJobs {
public:
    HeldJobs() : context_(std::make_unique<QObject>())
    {
        // Direct: a job is taken when it is added, before it can run and leave.
        QObject::connect(
            &JobList::shared(), &JobList::jobAdded, context_.get(),
            [this](quint64 id) {
                if (auto job = JobList::shared().job(id)) {
                    std::lock_guard lock(mutex_);
                    jobs_.append(std::move(job));
                }
            },
            Qt::DirectConnection);
    }
    HeldJobs(const HeldJobs&) = delete;
    HeldJobs& operator=(const HeldJobs&) = delete;

private:
    std::unique_ptr<QObject> context_;  // its end disconnects us
    std::mutex mutex_;
    QList<std::shared_ptr<Job>> jobs_;
};

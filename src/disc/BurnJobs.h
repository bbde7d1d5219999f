#pragma once
#include "core/Job.h"

#include <memory>
#include <vector>

// The jobs a burner has started, each running on its own thread. A burner
// stops them (cancels, then waits) before it goes away.
class BurnJobs {
public:
    std::shared_ptr<Job> start(const QString& title, Job::Body body)
    {
        std::erase_if(jobs_, [](const std::shared_ptr<Job>& job) { return job->state() == Job::State::Finished; });
        std::shared_ptr<Job> job = Job::create(title, std::move(body));
        jobs_.push_back(job);
        job->start();
        return job;
    }
    void stopAll()
    {
        for (const std::shared_ptr<Job>& job : jobs_)
            job->cancel();
        for (const std::shared_ptr<Job>& job : jobs_)
            job->wait();
        jobs_.clear();
    }

private:
    std::vector<std::shared_ptr<Job>> jobs_;
};

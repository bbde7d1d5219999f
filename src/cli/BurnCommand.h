#pragma once
// What the burning commands share: running a burn job to its end with Ctrl-C
// cancelling it, and telling how it went.
#include "core/Job.h"

#include <QStringList>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <memory>
#include <thread>

namespace burncommand {

inline std::atomic<bool> interrupted {false};

inline void onInterrupt(int)
{
    interrupted = true;
}

// Waits for the job, cancelling it on Ctrl-C; prints its messages and outcome.
// The exit code: 0 when it succeeded, 130 when cancelled, else 1.
inline int finish(const char* command, const std::shared_ptr<Job>& job)
{
    interrupted = false;
    auto previous = std::signal(SIGINT, onInterrupt);
    std::atomic<bool> finished {false};
    std::thread watcher([&] {
        while (!finished) {
            if (interrupted) {
                job->cancel();
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    });
    job->wait();
    finished = true;
    watcher.join();
    std::signal(SIGINT, previous);
    for (const QString& message : job->messages())
        std::fprintf(stderr, "velmora-cli %s: %s\n", command, qPrintable(message));
    const JobResult result = job->result();
    if (result.outcome == JobResult::Outcome::Cancelled) {
        std::fprintf(stderr, "velmora-cli %s: cancelled\n", command);
        return 130;
    }
    if (!result.ok()) {
        std::fprintf(stderr, "velmora-cli %s: %s\n", command, qPrintable(result.error));
        return 1;
    }
    std::printf("%s\n", qPrintable(job->status()));
    for (const QString& file : result.files)
        std::printf("%s\n", qPrintable(file));
    return 0;
}

}  // namespace burncommand

#include "cli/InterruptWatch.h"

#include <chrono>
#include <csignal>

namespace {

std::atomic<bool> interrupted{false};

void onSignal(int)
{
    interrupted = true;
}

}  // namespace

InterruptWatch::InterruptWatch(std::function<bool()> onInterrupt)
{
    interrupted = false;
    previous_ = std::signal(SIGINT, onSignal);
    watcher_ = std::thread([this, onInterrupt = std::move(onInterrupt)] {
        for (; !finished_; std::this_thread::sleep_for(std::chrono::milliseconds(20))) {
            if (interrupted && onInterrupt())
                return;
        }
    });
}

InterruptWatch::~InterruptWatch()
{
    finished_ = true;
    watcher_.join();
    std::signal(SIGINT, previous_);
}

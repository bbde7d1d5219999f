#pragma once
#include <atomic>
#include <functional>
#include <thread>

// Ctrl-C while a command works. The signal handler only sets a flag (all a
// handler may safely do); a thread watching the flag calls `onInterrupt` until
// it returns true (false: nothing to cancel yet, try again). The previous
// handler is back once the watch ends.
class InterruptWatch {
public:
    explicit InterruptWatch(std::function<bool()> onInterrupt);
    ~InterruptWatch();
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

private:
    std::atomic<bool> finished_{false};
    void (*previous_)(int) = nullptr;
    std::thread watcher_;
};

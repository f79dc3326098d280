#pragma once

#include "liba/nocopy.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace liba {

// A manual-reset event, created unsignalled: once set it stays signalled
// until reset, releasing every waiter. Threads: any.
class Event : Nocopy {
public:
    void set();
    void reset();
    void wait();
    // Waits at most `ms` milliseconds; true when the event was signalled.
    bool wait_for(int ms);
    bool is_set() const;

private:
    mutable std::mutex mutex_;
    std::condition_variable cv_;
    bool signalled_ = false;
};

} // namespace liba

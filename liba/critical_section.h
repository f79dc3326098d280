#pragma once

#include "liba/nocopy.h"

#include <mutex>

namespace liba {

// A re-entrant lock: the thread that holds it may enter again.
// Threads: any.
class CriticalSection : Nocopy {
public:
    CriticalSection() = default;
    // Waits for a holder on another thread before the lock goes away.
    ~CriticalSection();

    void enter() { mutex_.lock(); }
    void leave() { mutex_.unlock(); }
    bool try_enter() { return mutex_.try_lock(); }

private:
    std::recursive_mutex mutex_;
};

// Holds a CriticalSection for the length of a scope.
class Lock : Nocopy {
public:
    explicit Lock(CriticalSection& cs) : cs_(cs) { cs_.enter(); }
    ~Lock() { cs_.leave(); }

private:
    CriticalSection& cs_;
};

} // namespace liba

#pragma once

#include "liba/nocopy.h"

#include <string>

namespace os {

// The lock that lets one start of the program at a time decide whether it is
// the first instance: an exclusive flock on a file in the runtime folder.
// Threads: main thread. Released by release() or the destructor, and by the
// kernel when the process dies, so a crashed instance never blocks the next.
class InstanceLock : liba::Nocopy {
public:
    ~InstanceLock() { release(); }

    // Blocks until the lock is ours. False when the file can't be opened or
    // locked, or a signal interrupted the wait.
    bool acquire(const std::string& path);
    void release();
    bool held() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

} // namespace os

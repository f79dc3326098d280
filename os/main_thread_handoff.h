#pragma once

#include "liba/active.h"
#include "liba/event.h"

#include <functional>
#include <mutex>

namespace os {

// Carries one piece of work at a time from a worker thread to the main
// thread's scheduler and lets the worker wait until it has run. Armed
// (active) whenever it can take work.
// Threads: deliver on the worker; arm, close, reopen and cancel on the main
// thread. `work` stays the caller's and must live until deliver returns.
class MainThreadHandoff : public CActive {
public:
    // Main thread: ready to take the next piece of work.
    void arm();
    // Worker thread: runs `work` on the main thread and waits for it; false
    // when the handoff was closed first and `work` did not run.
    bool deliver(const std::function<void()>& work);
    // Main thread, after cancel: releases a worker still waiting.
    void close();
    // Main thread: a fresh start after close.
    void reopen();

    void run() override;
    void do_cancel() override;

private:
    std::mutex mutex_;
    const std::function<void()>* work_ = nullptr;
    bool posted_ = false;
    bool closed_ = false;
    bool handled_ = false;
    liba::Event done_;
};

} // namespace os

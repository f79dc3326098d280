#pragma once

#include "liba/nocopy.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <sys/types.h>
#include <thread>

namespace liba {

// A worker thread: derive, implement run(), start() it and join() it before
// the object goes. Destroying a Thread whose run() has not returned is a
// broken invariant and ends the process through liba::fatal.
// Threads: start, join, set_priority, suspend and resume belong to the
// owner's thread; request_stop may come from any thread; run,
// check_suspended and should_stop are for the worker itself.
class Thread : Nocopy {
public:
    Thread() = default;
    virtual ~Thread();

    // Clears the stop request and starts run() on a new thread. False when
    // the previous run() has not returned yet.
    bool start();
    // Waits until run() has returned. Returns at once when the thread was
    // never started or has been joined already.
    void join();
    // True from start() until run() has returned.
    bool is_running() const { return running_.load(std::memory_order_acquire); }

    // The stop request that a looping run() tests; its owner sets it before
    // join(). A stop request also releases a suspended worker.
    void request_stop();
    bool should_stop() const { return stop_.load(std::memory_order_acquire); }

    // Urgency from -2 (least) to 2 (most), clamped, 0 being the urgency the
    // thread started with. Mapped onto the thread's nice level, 5 nice steps
    // a level; where the system refuses (a more urgent level needs rights
    // that most users lack) the call changes nothing. Before start() the
    // level is kept and applied as the thread starts.
    void set_priority(int priority);

    // Suspension is cooperative: suspend() makes the worker wait in its next
    // check_suspended() call until resume() (or a stop request); a worker
    // that never calls check_suspended() is never suspended.
    void suspend();
    void resume();

protected:
    virtual void run() = 0;
    // Called by run() at points where it may pause; waits while suspended.
    void check_suspended();

private:
    void body();
    void apply_priority();

    std::thread thread_;
    std::atomic<bool> running_{false};
    std::atomic<bool> stop_{false};
    std::atomic<int> priority_{0};
    // The worker's kernel thread id and its nice level at start; tid 0 while
    // no worker runs. Guarded by priority_mutex_.
    std::mutex priority_mutex_;
    pid_t tid_ = 0;
    int base_nice_ = 0;

    std::mutex suspend_mutex_;
    std::condition_variable suspend_cv_;
    bool suspended_ = false;
};

} // namespace liba

#pragma once

#include "liba/nocopy.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <mutex>

// Completion objects of the main thread and the scheduler that runs them.
//
// A CActive is marked active when it has something outstanding; whoever
// completes it (any thread) calls CActiveScheduler::notify, and the main
// thread later runs its `run`. The scheduler keeps the posted completions in
// its own queue, in posting order, and wakes the main thread's event loop
// through the waker that loop installs.
//
// Threads: everything belongs to the main thread except
// CActiveScheduler::notify, which any thread may call.

namespace liba {
class Timer;
}

class CActiveScheduler;

class CActive : liba::Nocopy {
public:
    CActive() = default;
    // Fatal when still active: an object must be cancelled before it dies.
    virtual ~CActive();

    // Called on the main thread after completion, with the flag already clear.
    virtual void run() = 0;
    // Must bring about completion at once, that is, notify the scheduler.
    virtual void do_cancel() = 0;

    // Cancels an outstanding completion; `run` then does not happen.
    void cancel();
    bool is_active() const { return active.load(std::memory_order_acquire); }

    // Set by CActiveScheduler::set_active, cleared when the completion is
    // taken; read by notify on other threads.
    std::atomic<bool> active{false};
};

class CActiveScheduler : liba::Nocopy {
public:
    // The scheduler of the process, reachable from any layer; there is one.
    CActiveScheduler();
    // Fatal when active objects still live.
    virtual ~CActiveScheduler();
    static CActiveScheduler& instance();
    static bool exists();

    void set_active(CActive& object);
    // Any thread: posts the object's completion to the main thread.
    void notify(CActive& object);
    void process_actives(CActive& object);
    void cancel(CActive& object);

    // --- The event loop's side (main thread) ---

    // Called from any thread after a post; the loop installs it before any
    // worker starts. It must only wake the loop, never run completions.
    void set_waker(std::function<void()> waker) { waker_ = std::move(waker); }
    // Runs the completions that were posted before the call, in order.
    // Returns how many ran.
    int dispatch_posted();
    bool has_posted() const;
    // Milliseconds until the platform timer is due: -1 when none is armed,
    // 0 when it is due now.
    int timer_wait_ms() const;
    // The platform timer went off: scan the timers and post the due ones.
    void on_platform_timer();

    // --- liba::Timer's side ---
    // A timer as the scheduler sees it: its completion object, its due tick,
    // and whether its completion is queued, so a scan never posts it twice.
    struct TimerEntry {
        CActive* active = nullptr;
        uint32_t due = 0;
        bool posted = false;
    };
    void add_timer(TimerEntry* entry);
    void remove_timer(TimerEntry* entry);
    void scan_timers();

    // A due time further than this from now arms nothing by itself.
    static constexpr int32_t kNoTimer = 10'000'000;

private:
    bool take_posted(CActive*& object);
    static void remove_from(std::list<CActive*>& list, CActive* object);

    std::list<CActive*> actives_;
    std::list<CActive*> pending_actives_;
    std::list<TimerEntry*> timers_;

    mutable std::mutex queue_mutex_;
    std::deque<CActive*> posted_;
    std::function<void()> waker_;

    bool timer_armed_ = false;
    uint32_t timer_due_ = 0;
};

// Milliseconds of a monotonic clock, wrapping at 2^32 like the handheld's tick.
uint32_t tick_count();

#include "liba/active.h"

#include "liba/fatal.h"

#include <algorithm>
#include <chrono>

namespace {
CActiveScheduler* g_scheduler = nullptr;
}

uint32_t tick_count()
{
    using namespace std::chrono;
    auto ms = duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
    return static_cast<uint32_t>(ms);
}

CActive::~CActive()
{
    if (is_active())
        liba::fatal(L"CActive::~CActive()", L"Active object is already active");
}

void CActive::cancel()
{
    if (is_active())
        CActiveScheduler::instance().cancel(*this);
}

CActiveScheduler::CActiveScheduler()
{
    if (g_scheduler)
        liba::fatal(L"CActiveScheduler::CActiveScheduler", L"instance != 0");
    g_scheduler = this;
}

CActiveScheduler::~CActiveScheduler()
{
    if (!actives_.empty())
        liba::fatal(L"", L"Some active objects still live while scheduler is terminating");
    timers_.clear();
    pending_actives_.clear();
    actives_.clear();
    g_scheduler = nullptr;
}

CActiveScheduler& CActiveScheduler::instance()
{
    if (!g_scheduler)
        liba::fatal(L"CActiveScheduler::instance", L"No scheduler");
    return *g_scheduler;
}

bool CActiveScheduler::exists() { return g_scheduler != nullptr; }

void CActiveScheduler::set_active(CActive& object)
{
    if (object.is_active())
        liba::fatal(L"CActiveScheduler::set_active", L"Object is already active");
    object.active.store(true, std::memory_order_release);
    actives_.push_back(&object);
}

void CActiveScheduler::notify(CActive& object)
{
    if (!object.is_active())
        liba::fatal(L"CActiveScheduler::notify()", L"Active object is not active");
    {
        std::lock_guard<std::mutex> g(queue_mutex_);
        posted_.push_back(&object);
    }
    if (waker_)
        waker_();
}

void CActiveScheduler::remove_from(std::list<CActive*>& list, CActive* object)
{
    list.remove(object);
}

void CActiveScheduler::process_actives(CActive& object)
{
    auto it = std::find(actives_.begin(), actives_.end(), &object);
    if (it == actives_.end())
        liba::fatal(L"CActiveScheduler::process_actives()", L"Active object is not in active list");
    if (!object.is_active())
        liba::fatal(L"CActiveScheduler::process_actives()", L"Active object is not marked active");
    object.active.store(false, std::memory_order_release);
    actives_.erase(it);
    object.run();
}

bool CActiveScheduler::take_posted(CActive*& object)
{
    std::lock_guard<std::mutex> g(queue_mutex_);
    if (posted_.empty())
        return false;
    object = posted_.front();
    posted_.pop_front();
    return true;
}

void CActiveScheduler::cancel(CActive& object)
{
    object.do_cancel();

    auto pending = std::find(pending_actives_.begin(), pending_actives_.end(), &object);
    if (pending != pending_actives_.end()) {
        pending_actives_.erase(pending);
        object.active.store(false, std::memory_order_release);
        remove_from(actives_, &object);
        return;
    }

    // Completions of other objects that stand before ours in the queue are
    // kept aside and delivered below, in their posting order.
    CActive* taken = nullptr;
    while (take_posted(taken)) {
        if (taken == &object) {
            object.active.store(false, std::memory_order_release);
            remove_from(actives_, &object);
            break;
        }
        if (!taken->is_active())
            liba::fatal(L"CActiveScheduler::cancel",
                        L"Object to be added to pending_actives is not marked as active");
        pending_actives_.push_back(taken);
    }

    while (!pending_actives_.empty()) {
        CActive* next = pending_actives_.front();
        pending_actives_.pop_front();
        process_actives(*next);
    }
}

int CActiveScheduler::dispatch_posted()
{
    size_t count;
    {
        std::lock_guard<std::mutex> g(queue_mutex_);
        count = posted_.size();
    }
    // Only what was posted before this pass runs now: a completion that posts
    // itself again waits for the next pass, so input is never starved.
    int ran = 0;
    CActive* object = nullptr;
    for (size_t i = 0; i < count && take_posted(object); ++i) {
        process_actives(*object);
        ++ran;
    }
    return ran;
}

bool CActiveScheduler::has_posted() const
{
    std::lock_guard<std::mutex> g(queue_mutex_);
    return !posted_.empty();
}

int CActiveScheduler::timer_wait_ms() const
{
    if (!timer_armed_)
        return -1;
    int32_t remaining = static_cast<int32_t>(timer_due_ - tick_count());
    return remaining < 0 ? 0 : remaining;
}

void CActiveScheduler::on_platform_timer()
{
    if (timer_armed_ && timer_wait_ms() == 0)
        scan_timers();
}

void CActiveScheduler::add_timer(TimerEntry* entry) { timers_.push_back(entry); }

void CActiveScheduler::remove_timer(TimerEntry* entry)
{
    timers_.remove(entry);
    // With no timer left the platform timer has nothing to wake for.
    if (timers_.empty())
        timer_armed_ = false;
}

void CActiveScheduler::scan_timers()
{
    timer_armed_ = false;
    uint32_t now = tick_count();
    int32_t next = kNoTimer;
    for (TimerEntry* t : timers_) {
        int32_t remaining = static_cast<int32_t>(t->due - now);
        if (remaining < 1) {
            if (!t->posted) {
                t->posted = true;
                notify(*t->active);
            }
        } else {
            next = std::min(next, remaining);
        }
    }
    if (next != kNoTimer) {
        timer_armed_ = true;
        timer_due_ = now + static_cast<uint32_t>(next);
    }
}

#include "liba/thread.h"

#include "liba/fatal.h"

#include <algorithm>
#include <cerrno>
#include <sys/resource.h>
#include <unistd.h>

namespace liba {

namespace {

// Nice steps per urgency level: -2..2 become +10..-10 around the start level.
constexpr int kNicePerLevel = 5;
constexpr int kNiceMin = -20;
constexpr int kNiceMax = 19;

} // namespace

Thread::~Thread()
{
    if (running_.load(std::memory_order_acquire))
        fatal(L"liba::Thread", L"thread object destroyed while its run() is still going");
    if (thread_.joinable())
        thread_.join();
}

bool Thread::start()
{
    if (running_.load(std::memory_order_acquire))
        return false;
    // A worker that has returned from run() may still be on its way out.
    if (thread_.joinable())
        thread_.join();
    stop_.store(false, std::memory_order_release);
    {
        std::lock_guard<std::mutex> g(suspend_mutex_);
        suspended_ = false;
    }
    running_.store(true, std::memory_order_release);
    thread_ = std::thread([this] { body(); });
    return true;
}

void Thread::join()
{
    if (thread_.joinable())
        thread_.join();
}

void Thread::request_stop()
{
    stop_.store(true, std::memory_order_release);
    std::lock_guard<std::mutex> g(suspend_mutex_);
    suspend_cv_.notify_all();
}

void Thread::set_priority(int priority)
{
    priority_.store(std::clamp(priority, -2, 2), std::memory_order_relaxed);
    std::lock_guard<std::mutex> g(priority_mutex_);
    apply_priority();
}

// Called with priority_mutex_ held, so the thread id cannot go stale (and be
// reused by another thread) between the test and the call.
void Thread::apply_priority()
{
    if (tid_ == 0)
        return;
    int nice = base_nice_ - priority_.load(std::memory_order_relaxed) * kNicePerLevel;
    // Refused without the rights to raise urgency: keeping the old level is
    // the documented answer, so the result is not looked at.
    (void)setpriority(PRIO_PROCESS, static_cast<id_t>(tid_), std::clamp(nice, kNiceMin, kNiceMax));
}

void Thread::suspend()
{
    std::lock_guard<std::mutex> g(suspend_mutex_);
    suspended_ = true;
}

void Thread::resume()
{
    std::lock_guard<std::mutex> g(suspend_mutex_);
    suspended_ = false;
    suspend_cv_.notify_all();
}

void Thread::check_suspended()
{
    std::unique_lock<std::mutex> g(suspend_mutex_);
    suspend_cv_.wait(g, [this] { return !suspended_ || stop_.load(std::memory_order_acquire); });
}

void Thread::body()
{
    {
        std::lock_guard<std::mutex> g(priority_mutex_);
        tid_ = gettid();
        errno = 0;
        int nice = getpriority(PRIO_PROCESS, static_cast<id_t>(tid_));
        base_nice_ = errno == 0 ? nice : 0;
        if (priority_.load(std::memory_order_relaxed) != 0)
            apply_priority();
    }
    run();
    {
        std::lock_guard<std::mutex> g(priority_mutex_);
        tid_ = 0;
    }
    running_.store(false, std::memory_order_release);
}

} // namespace liba

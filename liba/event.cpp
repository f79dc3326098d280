#include "liba/event.h"

namespace liba {

void Event::set()
{
    std::lock_guard<std::mutex> g(mutex_);
    signalled_ = true;
    cv_.notify_all();
}

void Event::reset()
{
    std::lock_guard<std::mutex> g(mutex_);
    signalled_ = false;
}

void Event::wait()
{
    std::unique_lock<std::mutex> g(mutex_);
    cv_.wait(g, [this] { return signalled_; });
}

bool Event::wait_for(int ms)
{
    std::unique_lock<std::mutex> g(mutex_);
    return cv_.wait_for(g, std::chrono::milliseconds(ms), [this] { return signalled_; });
}

bool Event::is_set() const
{
    std::lock_guard<std::mutex> g(mutex_);
    return signalled_;
}

} // namespace liba

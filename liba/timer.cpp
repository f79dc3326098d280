#include "liba/timer.h"

namespace liba {

class Timer::Impl : public CActive {
public:
    Impl(Timer& owner, Listener& listener) : owner_(owner), listener_(listener)
    {
        entry_.active = this;
    }

    void start(double seconds)
    {
        if (is_active())
            cancel();
        entry_.due = tick_count() + static_cast<uint32_t>(static_cast<int64_t>(seconds * 1000.0));
        entry_.posted = false;
        auto& s = CActiveScheduler::instance();
        s.set_active(*this);
        s.add_timer(&entry_);
        s.scan_timers();
    }

    void run() override
    {
        CActiveScheduler::instance().remove_timer(&entry_);
        entry_.posted = false;
        listener_.on_timer(owner_);
    }

    void do_cancel() override
    {
        auto& s = CActiveScheduler::instance();
        s.remove_timer(&entry_);
        // When the scan already posted the completion, that message is the one
        // the cancel takes out of the queue; otherwise post one for it to take.
        if (!entry_.posted)
            s.notify(*this);
        entry_.posted = false;
    }

private:
    Timer& owner_;
    Listener& listener_;
    CActiveScheduler::TimerEntry entry_;
};

Timer::Timer(Listener& listener) : impl_(std::make_unique<Impl>(*this, listener)) {}

Timer::~Timer()
{
    if (impl_->is_active())
        impl_->cancel();
}

void Timer::start(double seconds) { impl_->start(seconds); }

void Timer::stop() { impl_->cancel(); }

bool Timer::is_active() const { return impl_->is_active(); }

} // namespace liba

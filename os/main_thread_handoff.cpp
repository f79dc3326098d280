#include "os/main_thread_handoff.h"

namespace os {

void MainThreadHandoff::arm()
{
    CActiveScheduler::instance().set_active(*this);
    std::lock_guard<std::mutex> g(mutex_);
    posted_ = false;
}

bool MainThreadHandoff::deliver(const std::function<void()>& work)
{
    {
        std::lock_guard<std::mutex> g(mutex_);
        if (closed_ || posted_ || !is_active())
            return false;
        work_ = &work;
        posted_ = true;
        handled_ = false;
        done_.reset();
        // Notify under the lock, so a cancel on the main thread either finds
        // this completion in the queue or sees that none will come.
        CActiveScheduler::instance().notify(*this);
    }
    done_.wait();
    std::lock_guard<std::mutex> g(mutex_);
    work_ = nullptr;
    return handled_;
}

void MainThreadHandoff::close()
{
    {
        std::lock_guard<std::mutex> g(mutex_);
        closed_ = true;
    }
    done_.set();
}

void MainThreadHandoff::reopen()
{
    std::lock_guard<std::mutex> g(mutex_);
    closed_ = false;
}

void MainThreadHandoff::run()
{
    const std::function<void()>* work;
    {
        std::lock_guard<std::mutex> g(mutex_);
        work = work_;
    }
    // The worker waits in deliver until done_ is set, so `work` lives.
    if (work)
        (*work)();
    arm();
    {
        std::lock_guard<std::mutex> g(mutex_);
        handled_ = work != nullptr;
    }
    done_.set();
}

void MainThreadHandoff::do_cancel()
{
    std::lock_guard<std::mutex> g(mutex_);
    closed_ = true;
    if (!posted_) {
        posted_ = true;
        CActiveScheduler::instance().notify(*this);
    }
}

} // namespace os

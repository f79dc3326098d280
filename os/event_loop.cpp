#include "os/event_loop.h"

#include "liba/fatal.h"

namespace os {

EventLoop::EventLoop(CActiveScheduler& scheduler) : scheduler_(scheduler)
{
    // SDL's own SIGINT/SIGTERM handlers would turn a signal into an event only
    // when a window polls; the application handles the signals itself.
    SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
    if (SDL_InitSubSystem(SDL_INIT_EVENTS) != 0)
        liba::fatal(L"EventLoop::EventLoop", L"SDL events can't start");
    wake_event_ = SDL_RegisterEvents(1);
    scheduler_.set_waker([this] { wake(); });
}

EventLoop::~EventLoop()
{
    scheduler_.set_waker({});
    SDL_QuitSubSystem(SDL_INIT_EVENTS);
}

bool EventLoop::video_on() const { return SDL_WasInit(SDL_INIT_VIDEO) != 0; }

void EventLoop::wake()
{
    {
        std::lock_guard<std::mutex> g(mutex_);
        woken_ = true;
    }
    cv_.notify_one();
    if (video_on() && !wake_pending_.exchange(true)) {
        SDL_Event e{};
        e.type = wake_event_;
        SDL_PushEvent(&e);
    }
}

void EventLoop::quit()
{
    quit_.store(true);
    wake();
}

void EventLoop::run(const std::function<bool()>& done)
{
    while (!quit_.load() && !(done && done())) {
        int timeout = scheduler_.has_posted() ? 0 : scheduler_.timer_wait_ms();
        if (video_on())
            pass_with_video(timeout);
        else
            pass_without_video(timeout);
        if (quit_.load())
            break;
        scheduler_.dispatch_posted();
        scheduler_.on_platform_timer();
    }
}

void EventLoop::pass_without_video(int timeout_ms)
{
    std::unique_lock<std::mutex> g(mutex_);
    auto woken = [this] { return woken_; };
    if (timeout_ms < 0)
        cv_.wait(g, woken);
    else
        cv_.wait_for(g, std::chrono::milliseconds(timeout_ms), woken);
    woken_ = false;
}

void EventLoop::pass_with_video(int timeout_ms)
{
    SDL_Event e;
    // SDL 2 takes -1 as "wait for ever".
    if (!SDL_WaitEventTimeout(&e, timeout_ms))
        return;
    do {
        if (e.type == wake_event_) {
            wake_pending_.store(false);
        } else if (e.type == SDL_QUIT) {
            // Closing the screen is a request of the user's, told to the handler
            // (the main form decides); without one, it ends the program.
            if (handler_)
                handler_(e);
            else
                quit_.store(true);
        } else if (handler_) {
            handler_(e);
        }
    } while (!quit_.load() && SDL_PollEvent(&e));
    std::lock_guard<std::mutex> g(mutex_);
    woken_ = false;
}

} // namespace os

#pragma once

#include "liba/active.h"
#include "liba/nocopy.h"

#include <SDL.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>

namespace os {

// The main thread's message loop: runs the scheduler's posted completions,
// its one platform timer, and (once a window exists) SDL's window and input
// events. Posted completions come before the timer, as posted messages came
// before timer ticks on the handheld.
//
// Without SDL video the loop sleeps on a condition variable, so a program in
// the background costs nothing while idle; with video it sleeps in
// SDL_WaitEventTimeout and is woken by an SDL user event.
//
// Threads: run, the handlers and everything else on the main thread;
// wake and quit from any thread. Owned by os::Application.
class EventLoop : liba::Nocopy {
public:
    explicit EventLoop(CActiveScheduler& scheduler);
    ~EventLoop();

    // Runs until `done` returns true (checked after each pass) or quit is
    // requested. Loops nest: a modal form runs its own loop inside a handler.
    void run(const std::function<bool()>& done = {});
    // Any thread: every running loop returns, now and for the rest of the
    // process.
    void quit();
    bool quit_requested() const { return quit_.load(); }

    // Receives each SDL event other than the loop's own wake-ups.
    void set_sdl_handler(std::function<void(const SDL_Event&)> handler) { handler_ = std::move(handler); }

    // Any thread: makes the loop take a pass now.
    void wake();

private:
    void pass_with_video(int timeout_ms);
    void pass_without_video(int timeout_ms);
    bool video_on() const;

    CActiveScheduler& scheduler_;
    std::function<void(const SDL_Event&)> handler_;
    Uint32 wake_event_ = 0;
    std::atomic<bool> quit_{false};
    // One SDL wake-up in flight at most; further wakes ride on it.
    std::atomic<bool> wake_pending_{false};

    std::mutex mutex_;
    std::condition_variable cv_;
    bool woken_ = false;
};

} // namespace os

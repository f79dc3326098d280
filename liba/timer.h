#pragma once

#include "liba/active.h"

#include <memory>

namespace liba {

// A one-shot timer of the main thread; a listener that wants it to repeat
// calls start again from on_timer. All timers share one platform timer,
// armed for the nearest due time. Threads: main thread only.
class Timer : Nocopy {
public:
    class Listener {
    public:
        virtual void on_timer(Timer& timer) = 0;
        virtual ~Listener() = default;
    };

    explicit Timer(Listener& listener);
    virtual ~Timer();

    // Fires once after `seconds` (truncated to whole milliseconds); a running
    // timer restarts. Due times 10,000 s or more away never arm the platform
    // timer by themselves and fire only if a scan happens to come near them.
    void start(double seconds);
    void stop();
    bool is_active() const;

    class Impl;

private:
    std::unique_ptr<Impl> impl_;
};

} // namespace liba

#pragma once

#include "liba/nocopy.h"
#include "liba/timer.h"

#include <chrono>
#include <memory>

// The display's power: it goes off after an interval without a press of a
// mouse button or a key while the program's window has the focus, and on
// at the next press, which still reaches the forms. The monitor is switched
// through X11 DPMS where the display is X11 and capable; elsewhere a log
// line says so once and switching does nothing.
// Threads: the user-interface thread only. Times are seconds.
struct SDL_Window;

namespace skinner {

class Screen;

class PowerManagerImpl : liba::Nocopy, liba::Timer::Listener {
public:
    // What the power manager switches and asks: the monitor and the focus.
    class Display {
    public:
        virtual ~Display() = default;
        // False when the monitor can't be switched.
        virtual bool set_power(bool on) = 0;
        // True when the monitor is on or can't be asked.
        virtual bool is_power_on() const = 0;
        virtual bool has_focus() const = 0;
    };
    // X11 DPMS on the display of `window` with SDL's focus of `window`; a
    // display that is not X11 or not capable logs once and switches nothing.
    // The window must outlive the result.
    static std::unique_ptr<Display> make_display(SDL_Window* window);

    static constexpr double kCheckSeconds = 1.0;

    // Watches the screen's presses until destroyed, checks the idle time
    // every `check_seconds`. Null `display`: that of the screen's window.
    // The interval starts at 0: never off.
    explicit PowerManagerImpl(Screen& screen, std::unique_ptr<Display> display = {},
                              double check_seconds = kCheckSeconds);
    ~PowerManagerImpl() override;

    // Switching on restarts the idle time.
    void set_display(bool on);
    bool is_display_on() const;
    // Idle seconds before the display goes off; 0 never.
    void set_interval(double seconds) { interval_ = seconds; }
    double interval() const { return interval_; }
    // Restarts the idle time.
    void reset() { idle_since_ = std::chrono::steady_clock::now(); }

private:
    void on_timer(liba::Timer& timer) override;
    void on_press();
    double idle_seconds() const;

    Screen& screen_;
    std::unique_ptr<Display> display_;
    double check_seconds_;
    double interval_ = 0.0;
    std::chrono::steady_clock::time_point idle_since_;
    liba::Timer timer_{*this};
};

} // namespace skinner

#pragma once

#include "skinner/skin_choice.h"

#include <memory>

namespace os {
class EventLoop;
}
namespace skinner {
class Screen;
} // namespace skinner

// The screen of the program: SDL video started (on the offscreen driver
// when no display answers), the window at the chosen skin's native size
// times its zoom, and the zoom kept from one run to the next in the
// registry store. Closing the window ends the loop.
// Threads: main thread. The loop must outlive the shell. Sizes are screen
// pixels; zooms 1 to skinner::Screen::kMaxZoom, 0 for "none kept".
class ScreenShell {
public:
    // Starts SDL video on the display, else (logged) on the offscreen
    // driver, where message forms then log their text and take their
    // default answer; an offscreen driver named in SDL_VIDEODRIVER keeps
    // them waiting for an answer. False when the screen is offscreen.
    static bool start_video();
    // Whether SDL draws offscreen (no display, or a test asked for it).
    static bool offscreen();
    // The usable size of the desktop, (0,0) when unknown or offscreen.
    static skinner::Point desktop_size();
    // Lowers the zoom of `choice` until the window, its screen and the menu
    // bar below it, fits `desktop`, and loads `skin` again for the smaller
    // screen. True when the zoom was lowered.
    static bool fit_desktop(skinner::Properties& skin, skinner::SkinChoice& choice, skinner::Point desktop);
    // The zoom of the last run, 0 when none was kept (or it is out of range).
    static int saved_zoom();
    static void save_zoom(int zoom);

    // Opens the screen for `choice` (its size and zoom), its window hidden
    // until the program brings it up.
    ScreenShell(os::EventLoop& loop, const skinner::SkinChoice& choice);
    ~ScreenShell();

    skinner::Screen& screen() const { return *screen_; }
    int zoom() const;

private:
    os::EventLoop& loop_;
    std::unique_ptr<skinner::Screen> screen_;
};

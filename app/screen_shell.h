#pragma once

#include "skinner/listener.h"
#include "skinner/skin_choice.h"

#include <memory>

namespace os {
class EventLoop;
}
namespace skinner {
class ClassFactoryForm;
class Properties;
class Screen;
} // namespace skinner

// The screen of the program: SDL video started (on the offscreen driver
// when no display answers), the window at the chosen skin's native size
// times its zoom, and the skin's "Main" built from the skin by class, shown
// until the main window takes its place. It reloads the skin when the zoom
// changes ("#ScreenResolution#"), and closing the window ends the loop.
// Threads: main thread. The loop and the skin must outlive the shell.
// Sizes are screen pixels.
class ScreenShell : skinner::Listener {
public:
    // Starts SDL video on the display, else (logged) on the offscreen
    // driver, where message forms then log their text and take their
    // default answer. False when the screen is offscreen.
    static bool start_video();
    // The usable size of the desktop, (0,0) when unknown or offscreen.
    static skinner::Point desktop_size();

    // Opens the screen for `choice` (its size and zoom), hidden when asked,
    // and shows the skin's "Main" on it.
    ScreenShell(os::EventLoop& loop, skinner::Properties& skin, const skinner::SkinChoice& choice, bool hidden);
    ~ScreenShell() override;

    skinner::Screen& screen() const { return *screen_; }
    int zoom() const;
    // Shows the window and brings it to the front.
    void bring_up();

private:
    int on_command(const std::wstring& name) override;

    os::EventLoop& loop_;
    skinner::Properties& skin_;
    std::wstring skin_path_;
    std::unique_ptr<skinner::Screen> screen_;
    std::unique_ptr<skinner::ClassFactoryForm> main_;
};

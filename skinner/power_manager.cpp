#include "skinner/power_manager.h"

#include "os/log.h"
#include "skinner/screen.h"

#include <SDL.h>
#include <SDL_syswm.h>
// Xlib's macros (None, Bool, Status) stay in this file.
#include <X11/Xlib.h>
#include <X11/extensions/dpms.h>

namespace skinner {

namespace {

bool window_focused(SDL_Window* window)
{
    return window && (SDL_GetWindowFlags(window) & SDL_WINDOW_INPUT_FOCUS) != 0;
}

// A display whose monitor can't be switched: on, as far as anyone can tell.
class UnswitchedDisplay : public PowerManagerImpl::Display {
public:
    explicit UnswitchedDisplay(SDL_Window* window) : window_(window) {}
    bool set_power(bool) override { return false; }
    bool is_power_on() const override { return true; }
    bool has_focus() const override { return window_focused(window_); }

private:
    SDL_Window* window_;
};

// The monitor of an X server with the DPMS extension, through SDL's own
// connection to it.
class DpmsDisplay : public PowerManagerImpl::Display {
public:
    DpmsDisplay(SDL_Window* window, ::Display* x) : window_(window), x_(x) {}

    bool set_power(bool on) override
    {
        CARD16 level = 0;
        BOOL enabled = False;
        DPMSInfo(x_, &level, &enabled);
        // Forcing a level is refused while DPMS is disabled; the server's
        // own timeouts stay as they were.
        if (!enabled && !DPMSEnable(x_))
            return false;
        const bool forced = DPMSForceLevel(x_, on ? DPMSModeOn : DPMSModeOff);
        XSync(x_, False);
        return forced;
    }
    bool is_power_on() const override
    {
        CARD16 level = 0;
        BOOL enabled = False;
        if (!DPMSInfo(x_, &level, &enabled))
            return true;
        return !enabled || level == DPMSModeOn;
    }
    bool has_focus() const override { return window_focused(window_); }

private:
    SDL_Window* window_;
    ::Display* x_;
};

::Display* x11_of(SDL_Window* window)
{
    if (!window)
        return nullptr;
    SDL_SysWMinfo info;
    SDL_VERSION(&info.version);
    if (!SDL_GetWindowWMInfo(window, &info) || info.subsystem != SDL_SYSWM_X11)
        return nullptr;
    return info.info.x11.display;
}

} // namespace

std::unique_ptr<PowerManagerImpl::Display> PowerManagerImpl::make_display(SDL_Window* window)
{
    ::Display* x = x11_of(window);
    int event_base = 0;
    int error_base = 0;
    if (!x || !DPMSQueryExtension(x, &event_base, &error_base) || !DPMSCapable(x)) {
        const char* driver = SDL_GetCurrentVideoDriver();
        os::log() << "PowerManagerImpl: the display can't be switched off (video driver "
                  << (driver ? driver : "none") << ")\n";
        return std::make_unique<UnswitchedDisplay>(window);
    }
    return std::make_unique<DpmsDisplay>(window, x);
}

PowerManagerImpl::PowerManagerImpl(Screen& screen, std::unique_ptr<Display> display, double check_seconds)
    : screen_(screen), display_(std::move(display)), check_seconds_(check_seconds),
      idle_since_(std::chrono::steady_clock::now())
{
    if (!display_)
        display_ = make_display(screen_.window());
    screen_.set_press_watcher([this] { on_press(); });
    timer_.start(check_seconds_);
}

PowerManagerImpl::~PowerManagerImpl() { screen_.set_press_watcher({}); }

void PowerManagerImpl::set_display(bool on)
{
    display_->set_power(on);
    if (on)
        reset();
}

bool PowerManagerImpl::is_display_on() const { return display_->is_power_on(); }

double PowerManagerImpl::idle_seconds() const
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - idle_since_).count();
}

void PowerManagerImpl::on_press()
{
    // Asked on every press, switched only when off: a press is no round
    // trip to the server while the display is on.
    if (!is_display_on()) {
        os::log() << "PowerManagerImpl: a press switches the display on\n";
        display_->set_power(true);
    }
    reset();
}

void PowerManagerImpl::on_timer(liba::Timer&)
{
    timer_.start(check_seconds_);
    // Idle time counts only while the user looks at this program, and
    // starts afresh once the display is off.
    if (!display_->has_focus() || !is_display_on()) {
        reset();
        return;
    }
    if (interval_ <= 0.0 || idle_seconds() <= interval_)
        return;
    os::log() << "PowerManagerImpl: idle for " << idle_seconds() << " s, the display goes off\n";
    set_display(false);
}

} // namespace skinner

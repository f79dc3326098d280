#include "app/screen_shell.h"

#include "liba/text.h"
#include "os/event_loop.h"
#include "os/log.h"
#include "os/registry.h"
#include "skinner/form_message.h"
#include "skinner/menu_manager.h"
#include "skinner/properties.h"
#include "skinner/screen.h"

#include <SDL.h>

#include <algorithm>
#include <cstdlib>
#include <string>

namespace {

constexpr const wchar_t* kTitle = L"Quillaphonics";
constexpr const wchar_t* kZoomKey = L"HKEY_CURRENT_USER\\Software\\Kelb";
constexpr const wchar_t* kZoomValue = L"Zoom";

bool is_set(const char* name)
{
    const char* value = std::getenv(name);
    return value && *value;
}

bool is_offscreen_driver(const char* driver)
{
    return driver && (std::string(driver) == "offscreen" || std::string(driver) == "dummy");
}

} // namespace

bool ScreenShell::start_video()
{
    // A driver named by the user is tried as it is; otherwise only a display
    // that the environment names is worth trying.
    std::string why;
    if (is_set("SDL_VIDEODRIVER") || is_set("DISPLAY") || is_set("WAYLAND_DISPLAY")) {
        if (SDL_InitSubSystem(SDL_INIT_VIDEO) == 0) {
            if (!is_offscreen_driver(SDL_GetCurrentVideoDriver()))
                return true;
            // Asked for by name (a test): message forms wait for their
            // answer as on a display, so the test can give it.
            os::log() << "start-up: the screen is offscreen, as asked\n";
            return false;
        }
        why = SDL_GetError();
    } else {
        why = "neither DISPLAY nor WAYLAND_DISPLAY is set";
    }
    os::log() << "start-up: no display (" << liba::from_utf8(why)
              << "); the screen is offscreen and message forms answer by themselves\n";
    SDL_SetHintWithPriority(SDL_HINT_VIDEODRIVER, "offscreen", SDL_HINT_OVERRIDE);
    if (SDL_InitSubSystem(SDL_INIT_VIDEO) != 0)
        os::log() << "start-up: not even the offscreen screen starts: " << liba::from_utf8(SDL_GetError()) << "\n";
    skinner::set_message_forms_headless(true);
    return false;
}

bool ScreenShell::offscreen() { return is_offscreen_driver(SDL_GetCurrentVideoDriver()); }

skinner::Point ScreenShell::desktop_size() { return skinner::desktop_size(); }

bool ScreenShell::fit_desktop(skinner::Properties& skin, skinner::SkinChoice& choice, skinner::Point desktop)
{
    const int scale = std::max(skin.scale(), 1);
    const skinner::Point native{choice.screen_size.x / choice.zoom, choice.screen_size.y / choice.zoom};
    const int strip_per_zoom = skinner::MenuManagerImpl::bar_height(skin) / scale;
    const int zoom = skinner::zoom_that_fits(native, strip_per_zoom, choice.zoom, desktop);
    if (zoom == choice.zoom)
        return false;
    os::log() << "screen: zoom " << choice.zoom << " with the menu bar would not fit the desktop " << desktop.x
              << "x" << desktop.y << "; zoom " << zoom << "\n";
    choice.zoom = zoom;
    choice.screen_size = {native.x * zoom, native.y * zoom};
    skin.change_skin(choice.path, choice.screen_size);
    if (!skin.check_version(skinner::kAppVersionMark, choice.screen_size))
        os::log() << "screen: the skin doesn't fit " << choice.screen_size.x << "x" << choice.screen_size.y << "\n";
    return true;
}

int ScreenShell::saved_zoom()
{
    uint32_t zoom = 0;
    if (!os::Registry::read_dword(kZoomKey, kZoomValue, zoom) || zoom > skinner::Screen::kMaxZoom)
        return 0;
    return static_cast<int>(zoom);
}

void ScreenShell::save_zoom(int zoom)
{
    if (!os::Registry::write_dword(kZoomKey, kZoomValue, static_cast<uint32_t>(zoom)))
        os::log() << "screen: the zoom could not be kept\n";
}

ScreenShell::ScreenShell(os::EventLoop& loop, const skinner::SkinChoice& choice) : loop_(loop)
{
    screen_ = std::make_unique<skinner::Screen>(loop_, choice.screen_size, kTitle, choice.zoom, true);
    screen_->set_quit_handler([this] {
        os::log() << "screen: closed\n";
        loop_.quit();
    });
    os::log() << "screen: " << choice.screen_size.x << "x" << choice.screen_size.y << " zoom " << choice.zoom
              << "\n";
}

ScreenShell::~ScreenShell() = default;

int ScreenShell::zoom() const { return screen_->zoom(); }

#include "app/screen_shell.h"

#include "liba/text.h"
#include "os/event_loop.h"
#include "os/log.h"
#include "skinner/form_message.h"
#include "skinner/form_render.h"
#include "skinner/properties.h"
#include "skinner/screen.h"

#include <SDL.h>

#include <cstdlib>
#include <string>

namespace {

constexpr const wchar_t* kTitle = L"Quillaphonics";
constexpr const wchar_t* kMainForm = L"Main";

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
            os::log() << "start-up: the screen is offscreen; message forms answer by themselves\n";
            skinner::set_message_forms_headless(true);
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

skinner::Point ScreenShell::desktop_size()
{
    SDL_Rect r{};
    if (!SDL_WasInit(SDL_INIT_VIDEO) || is_offscreen_driver(SDL_GetCurrentVideoDriver()) ||
        SDL_GetDisplayUsableBounds(0, &r) != 0)
        return {};
    return {r.w, r.h};
}

ScreenShell::ScreenShell(os::EventLoop& loop, skinner::Properties& skin, const skinner::SkinChoice& choice,
                         bool hidden)
    : loop_(loop), skin_(skin), skin_path_(choice.path)
{
    screen_ = std::make_unique<skinner::Screen>(loop_, choice.screen_size, kTitle, choice.zoom, hidden);
    screen_->set_quit_handler([this] {
        os::log() << "screen: closed\n";
        loop_.quit();
    });
    os::log() << "screen: " << choice.screen_size.x << "x" << choice.screen_size.y << " zoom " << choice.zoom
              << (hidden ? " hidden" : "") << "\n";
    // A skin without its "Main" ends the program here with the skin's report.
    skinner::Listener* listener = this;
    main_ = std::make_unique<skinner::ClassFactoryForm>(skin_, kMainForm, nullptr, listener);
    // Nothing in the skin's "Main" names the program: the window does.
    main_->set_title(kTitle);
    main_->show(true);
    main_->set_active(true);
    screen_->paint_now();
}

ScreenShell::~ScreenShell()
{
    main_.reset();
    screen_.reset();
}

int ScreenShell::zoom() const { return screen_->zoom(); }

void ScreenShell::bring_up() { screen_->show_window(true); }

int ScreenShell::on_command(const std::wstring& name)
{
    if (name != L"#ScreenResolution#")
        return 0;
    // The skin again for the screen's new size: every form of it reads itself anew.
    skinner::Point size = screen_->size();
    skin_.change_skin(skin_path_, size);
    if (!skin_.check_version(skinner::kAppVersionMark, size))
        os::log() << "screen: the skin doesn't fit " << size.x << "x" << size.y << "\n";
    return 1;
}

#include "app/main_form.h"

#include "skinner/screen.h"

namespace {

// Which modifiers a key of the table wants: Shift only where the key has a
// shifted meaning of its own, Control only for Exit.
enum class Shift { kAny, kUp, kDown };

struct KeyCommand {
    SDL_Keycode key;
    Shift shift;
    bool control;
    const wchar_t* command;
};

// A key for every command. F2 and F10 are not here: F2 clicks the panel
// button, F10 belongs to the menu bar; Control with plus and minus zooms.
constexpr KeyCommand kKeys[] = {
    {SDLK_SPACE, Shift::kUp, false, L"Play"},
    {SDLK_SPACE, Shift::kDown, false, L"PlayStop"},
    {SDLK_r, Shift::kUp, false, L"Record"},
    {SDLK_r, Shift::kDown, false, L"RecordStop"},
    {SDLK_s, Shift::kAny, false, L"Stop"},
    {SDLK_n, Shift::kAny, false, L"Next"},
    {SDLK_p, Shift::kAny, false, L"Prev"},
    {SDLK_LEFTBRACKET, Shift::kAny, false, L"Rewind"},
    {SDLK_RIGHTBRACKET, Shift::kAny, false, L"Forward"},
    {SDLK_b, Shift::kAny, false, L"NewBookmark"},
    {SDLK_m, Shift::kAny, false, L"Mode"},
    {SDLK_c, Shift::kAny, false, L"ClockMode"},
    {SDLK_PLUS, Shift::kAny, false, L"VolumeUp"},
    {SDLK_EQUALS, Shift::kAny, false, L"VolumeUp"},
    {SDLK_KP_PLUS, Shift::kAny, false, L"VolumeUp"},
    {SDLK_MINUS, Shift::kAny, false, L"VolumeDown"},
    {SDLK_KP_MINUS, Shift::kAny, false, L"VolumeDown"},
    {SDLK_F1, Shift::kAny, false, L"Help"},
    {SDLK_q, Shift::kAny, true, L"Exit"},
};

bool is_joystick(int key)
{
    return key == skinner::kKeyLeft || key == skinner::kKeyRight || key == skinner::kKeyUp ||
           key == skinner::kKeyDown || key == skinner::kKeyEnter;
}

const wchar_t* command_of(const SDL_Keysym& key)
{
    // Alt and the system keys belong to the desktop.
    if (key.mod & (KMOD_ALT | KMOD_GUI))
        return nullptr;
    const bool shift = (key.mod & KMOD_SHIFT) != 0;
    const bool control = (key.mod & KMOD_CTRL) != 0;
    for (const KeyCommand& k : kKeys) {
        if (k.key != key.sym || k.control != control)
            continue;
        if ((k.shift == Shift::kUp && shift) || (k.shift == Shift::kDown && !shift))
            continue;
        return k.command;
    }
    return nullptr;
}

} // namespace

bool MainForm::on_keydown(int key)
{
    if (is_joystick(key))
        return on_joystick(key);
    if (Form::on_keydown(key))
        return true;
    skinner::Screen* screen = skinner::Screen::instance();
    if (!screen)
        return false;
    const SDL_Keysym& pressed = screen->key_being_delivered();
    if (pressed.sym == SDLK_F2 && !(pressed.mod & (KMOD_CTRL | KMOD_ALT | KMOD_GUI))) {
        // As a click: the next panel, then its command.
        mode_.click();
        return true;
    }
    const wchar_t* command = command_of(pressed);
    return command && on_command(command) != 0;
}

bool MainForm::on_joystick(int key)
{
    // Up, down and the action key belong to the file list while it shows.
    const bool sideways = key == skinner::kKeyLeft || key == skinner::kKeyRight;
    if (!sideways && explorer_.own_visible())
        return explorer_.on_keydown(key);
    const Settings& settings = document_.settings();
    if (key != skinner::kKeyRight && !settings.joy_left_action.empty()) {
        on_command(settings.joy_left_action);
        return true;
    }
    // Right, and the others when the left action is empty.
    if (!settings.joy_right_action.empty()) {
        on_command(settings.joy_right_action);
        return true;
    }
    return Form::on_keydown(key);
}

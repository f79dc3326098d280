#pragma once

#include "liba/nocopy.h"

#include <SDL.h>

#include <array>
#include <string>

// The device's application buttons on a desktop: the keyboard's media keys
// (Play, Stop, Previous, Next, Rewind, Fast Forward, Volume Up, Volume Down)
// and F5 to F8, Button0 to Button11 in that order. An assigned button's
// command goes to the listener before any form sees the key; keys reach the
// program only while its window has the focus. Threads: the user-interface
// thread only. The listener is not owned and must outlive the assignment.
namespace skinner {

class Listener;
class Screen;

class HardwareKeysImpl : liba::Nocopy {
public:
    static constexpr int kKeyCount = 12;

    // Takes the screen's keys until destroyed. Buttons 0 to 7 carry their own
    // key's command (Play, Stop, Prev, Next, Rewind, Forward, VolumeUp,
    // VolumeDown) and are assigned; F5 to F8 carry nothing.
    explicit HardwareKeysImpl(Screen& screen);
    ~HardwareKeysImpl();

    void set_listener(Listener* listener) { listener_ = listener; }
    int key_count() const { return kKeyCount; }
    // "Button0" … "Button11"; empty out of range.
    std::wstring key_name(int i) const;
    // The SDL key of button `i`, SDLK_UNKNOWN out of range.
    SDL_Keycode key_code(int i) const;
    // The command button `i` sends; an empty one sends nothing.
    void set_command(int i, const std::wstring& command);
    const std::wstring& command(int i) const;
    // An unassigned button's key goes on to the forms as any other key.
    void assign(int i, bool assigned);
    bool is_assigned(int i) const;

    // True when `key` is an assigned button's, whose command was sent (if any).
    bool take(SDL_Keycode key);

private:
    struct Button {
        std::wstring command;
        bool assigned = false;
    };
    Screen& screen_;
    Listener* listener_ = nullptr;
    std::array<Button, kKeyCount> buttons_;
};

} // namespace skinner

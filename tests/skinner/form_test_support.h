#pragma once

#include "liba/active.h"
#include "os/event_loop.h"
#include "skinner/form.h"
#include "skinner/properties.h"
#include "skinner/screen.h"

#include <memory>
#include <string>
#include <vector>

// A screen of the test skin on SDL's offscreen driver, with the input
// helpers the form tests drive it by: each pushes real SDL events into the
// queue and lets the screen take them. Threads: the test's main thread.
namespace form_test {

class TestScreen {
public:
    // The test skin (or the skin file `skin`) for a 240x320 screen times `scale`.
    explicit TestScreen(int scale = 1, const std::string& skin = {});
    ~TestScreen();

    skinner::Properties& properties() { return *properties_; }
    skinner::Screen& screen() { return *screen_; }
    os::EventLoop& loop() { return *loop_; }

    // Screen points; the pointer goes down, moves or comes up there.
    void press_at(skinner::Point p);
    void move_to(skinner::Point p);
    void release();
    void press_right_at(skinner::Point p);
    void release_right();
    // A key pressed and let go, with the character it types (0: none).
    void key(SDL_Keycode key, const char* text = nullptr);
    void key_down(SDL_Keycode key, const char* text = nullptr);
    void key_up(SDL_Keycode key);
    // Text from an input method, with no key.
    void text(const char* text);
    // Takes every waiting event and paints.
    void settle();
    // A form's point on the screen.
    static skinner::Point on_screen(const skinner::Form& form, skinner::Point p);

private:
    void push(SDL_Event e);
    void press_button(skinner::Point p, Uint8 button);

    std::unique_ptr<CActiveScheduler> scheduler_;
    std::unique_ptr<os::EventLoop> loop_;
    std::unique_ptr<skinner::Properties> properties_;
    std::unique_ptr<skinner::Screen> screen_;
    skinner::Point pointer_;
};

// A form that counts what its controls tell it.
class RecordingForm : public skinner::Form {
public:
    RecordingForm(skinner::Properties& p, const std::wstring& name, skinner::Form* parent = nullptr)
        : Form(parent, p, name)
    {
    }
    int on_click(skinner::Control* control, int) override
    {
        clicks.push_back(control->id());
        return 1;
    }
    int clicks_of(const std::wstring& id) const;
    skinner::Point center_of(const std::wstring& id) const;
    std::vector<std::wstring> clicks;
};

} // namespace form_test

#include "form_test_support.h"

#include "skin_test_support.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace form_test {

using skinner::Point;

namespace {

SDL_Event button_event(Uint32 type, Uint8 button, Point p)
{
    SDL_Event e{};
    e.type = type;
    e.button.button = button;
    e.button.clicks = type == SDL_MOUSEBUTTONDOWN ? 1 : 0;
    e.button.x = p.x;
    e.button.y = p.y;
    return e;
}

SDL_Event text_event(const char* typed)
{
    SDL_Event t{};
    t.type = SDL_TEXTINPUT;
    std::strncpy(t.text.text, typed, sizeof t.text.text - 1);
    return t;
}

} // namespace

TestScreen::TestScreen(int scale, const std::string& skin)
{
    setenv("SDL_VIDEODRIVER", "offscreen", 1);
    scheduler_ = std::make_unique<CActiveScheduler>();
    loop_ = std::make_unique<os::EventLoop>(*scheduler_);
    Point size{240 * scale, 320 * scale};
    properties_ = std::make_unique<skinner::Properties>(skin_test::wide(skin.empty() ? skin_test::test_skin() : std::filesystem::path(skin)), size);
    screen_ = std::make_unique<skinner::Screen>(*loop_, size);
}

TestScreen::~TestScreen()
{
    screen_.reset();
    properties_.reset();
    loop_.reset();
    scheduler_.reset();
}

void TestScreen::push(SDL_Event e)
{
    SDL_PushEvent(&e);
}

void TestScreen::settle()
{
    SDL_Event e;
    while (SDL_PollEvent(&e))
        screen_->handle_event(e);
    screen_->paint_now();
}

Point TestScreen::on_screen(const skinner::Form& form, Point p) { return form.screen_position() + p; }

void TestScreen::press_at(Point p) { press_button(p, SDL_BUTTON_LEFT); }

void TestScreen::press_right_at(Point p) { press_button(p, SDL_BUTTON_RIGHT); }

void TestScreen::press_button(Point p, Uint8 button)
{
    pointer_ = p;
    push(button_event(SDL_MOUSEBUTTONDOWN, button, p));
    settle();
}

void TestScreen::move_to(Point p)
{
    pointer_ = p;
    SDL_Event e{};
    e.type = SDL_MOUSEMOTION;
    e.motion.x = p.x;
    e.motion.y = p.y;
    push(e);
    settle();
}

void TestScreen::release()
{
    push(button_event(SDL_MOUSEBUTTONUP, SDL_BUTTON_LEFT, pointer_));
    settle();
}

void TestScreen::release_right()
{
    push(button_event(SDL_MOUSEBUTTONUP, SDL_BUTTON_RIGHT, pointer_));
    settle();
}

void TestScreen::key_down(SDL_Keycode key, const char* typed)
{
    SDL_Event e{};
    e.type = SDL_KEYDOWN;
    e.key.keysym.sym = key;
    push(e);
    if (typed)
        push(text_event(typed));
    settle();
}

void TestScreen::key_up(SDL_Keycode key)
{
    SDL_Event e{};
    e.type = SDL_KEYUP;
    e.key.keysym.sym = key;
    push(e);
    settle();
}

void TestScreen::key(SDL_Keycode key, const char* typed)
{
    key_down(key, typed);
    key_up(key);
}

void TestScreen::text(const char* typed)
{
    push(text_event(typed));
    settle();
}

int RecordingForm::clicks_of(const std::wstring& id) const
{
    return int(std::count(clicks.begin(), clicks.end(), id));
}

Point RecordingForm::center_of(const std::wstring& id) const
{
    skinner::Control* c = find_control(id);
    return c ? screen_position() + c->center() : Point{-1, -1};
}

} // namespace form_test

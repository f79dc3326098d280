#pragma once

#include "liba/nocopy.h"
#include "skinner/canvas.h"
#include "skinner/image_loader.h"

#include <SDL.h>

#include <string>

// "The screen": the one SDL window (or, without a display, the offscreen
// driver's) in which the forms stand stacked and are composited, the
// handheld's display at a skin's native size times a zoom of 1 to 4. It
// takes SDL's input from the event loop and hands it to the form on top,
// and presents only the rectangles that forms repainted.
// Threads: the user-interface thread only. Points are screen pixels.
namespace os {
class EventLoop;
}

namespace skinner {

class Form;

class Screen : liba::Nocopy {
public:
    // Opens the window of `size` (SDL video is started if needed) and hooks
    // into the loop's SDL events. There is one screen at a time.
    Screen(os::EventLoop& loop, Point size, const std::wstring& title = L"Quillaphonics");
    ~Screen();
    static Screen* instance();

    Point size() const { return size_; }
    SDL_Surface* surface() const { return surface_; }
    os::EventLoop& loop() const { return loop_; }

    // A form became dirty: one paint pass is queued (as a posted paint
    // message would be).
    void request_paint();
    // Paints every dirty visible form and presents what changed.
    void paint_now();
    // Composes the forms that cover the rectangle, bottom to top, into the
    // window surface and presents it.
    void present(Rect rect);
    // The form that takes input: the innermost modal form, else the top
    // visible form.
    Form* input_form() const;
    void handle_event(const SDL_Event& event);
    // The window's title follows the form on top.
    void update_title();
    // A form is going: drop it from pointer routing.
    void forget(Form* form);

private:
    void pointer_event(const SDL_Event& event);
    void key_down(const SDL_Event& event);

    os::EventLoop& loop_;
    Point size_;
    SDL_Window* window_ = nullptr;
    SDL_Surface* surface_ = nullptr;
    Uint32 paint_event_ = 0;
    bool paint_pending_ = false;
    Form* pointer_form_ = nullptr; // the form that holds the pointer
};

// The engine's key number for an SDL key.
int key_from_sdl(SDL_Keycode key);

} // namespace skinner

#pragma once

#include "liba/nocopy.h"
#include "skinner/canvas.h"
#include "skinner/image_loader.h"

#include <SDL.h>

#include <functional>
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

// A strip of the window below the screen that forms never cover (the menu
// bar). Points are strip pixels, except that the strip paints at `position`
// of the window's canvas; the height is window pixels.
class ScreenStrip {
public:
    virtual ~ScreenStrip() = default;
    virtual int strip_height() const = 0;
    virtual void paint_strip(Canvas& canvas, Point position, Point size) = 0;
    virtual void strip_pointer_down(Point point) = 0;
    virtual void strip_pointer_up(Point point) = 0;
    // A key the strip takes before any form: true when taken.
    virtual bool strip_key(SDL_Keycode key) = 0;
};

class Screen : liba::Nocopy {
public:
    static constexpr int kMaxZoom = 4;

    // Opens the window of `size` (SDL video is started if needed), hidden
    // when asked, and hooks into the loop's SDL events. `size` is the skin's
    // native size times `zoom`. There is one screen at a time.
    Screen(os::EventLoop& loop, Point size, const std::wstring& title = L"Quillaphonics", int zoom = 1,
           bool hidden = false);
    ~Screen();
    static Screen* instance();

    Point size() const { return size_; }
    int zoom() const { return zoom_; }
    Point native_size() const { return {size_.x / zoom_, size_.y / zoom_}; }
    // Resizes the window to the native size times `zoom` (1 to kMaxZoom) and
    // tells every form, as the handheld told its windows of a new display
    // resolution; then repaints all. False when out of range or unchanged.
    bool set_zoom(int zoom);
    // Closing the window calls this instead of closing the form on top.
    void set_quit_handler(std::function<void()> handler) { quit_handler_ = std::move(handler); }
    // Sees each pressed key after the zoom keys and before any form; true
    // takes the key (and the character it typed) away from the forms.
    void set_key_filter(std::function<bool(SDL_Keycode)> filter) { key_filter_ = std::move(filter); }
    // The key whose press a form is being told of, with the modifiers that
    // came with it; SDLK_UNKNOWN outside that delivery. For keys the engine
    // has no number for.
    const SDL_Keysym& key_being_delivered() const { return delivered_key_; }
    // Sees every press of a mouse button or a key before anything else does,
    // and cannot take it: the press goes on as if unseen (display power).
    void set_press_watcher(std::function<void()> watcher) { press_watcher_ = std::move(watcher); }
    // The window grows by the strip's height below the screen (null: none).
    // The strip is not owned and must be unset before it goes.
    void set_strip(ScreenStrip* strip);
    ScreenStrip* strip() const { return strip_; }
    // Repaints the strip and presents it.
    void present_strip();
    void show_window(bool shown);
    bool window_shown() const;
    SDL_Surface* surface() const { return surface_; }
    SDL_Window* window() const { return window_; }
    os::EventLoop& loop() const { return loop_; }

    // A form became dirty: one paint pass is queued (as a posted paint
    // message would be).
    void request_paint();
    // Paints every dirty visible form and presents what changed.
    void paint_now();
    // Paints every visible form whole and presents the whole window: after
    // the window was uncovered or resized.
    void repaint_all();
    // Composes the forms that cover the rectangle, bottom to top, into the
    // window surface and presents it.
    void present(Rect rect);
    // The form that takes input: the innermost modal form (or a drop-down
    // it opened), else the top visible form.
    Form* input_form() const;
    void handle_event(const SDL_Event& event);
    // The window's title follows the form on top.
    void update_title();
    // A form is going: drop it from pointer routing.
    void forget(Form* form);

private:
    void pointer_event(const SDL_Event& event);
    // A press on the strip, and its release wherever it comes: true when taken.
    bool strip_pointer_event(const SDL_Event& event);
    void key_down(const SDL_Event& event);
    // Ctrl+Plus and Ctrl+Minus: true when the key was one of them.
    bool zoom_key(const SDL_Event& event);
    void window_event(const SDL_Event& event);

    os::EventLoop& loop_;
    Point size_;
    int zoom_ = 1;
    std::function<void()> quit_handler_;
    std::function<bool(SDL_Keycode)> key_filter_;
    SDL_Keysym delivered_key_{};
    std::function<void()> press_watcher_;
    SDL_Window* window_ = nullptr;
    SDL_Surface* surface_ = nullptr;
    Uint32 paint_event_ = 0;
    bool paint_pending_ = false;
    Form* pointer_form_ = nullptr; // the form that holds the pointer
    ScreenStrip* strip_ = nullptr;
    bool strip_pointer_ = false;   // the strip holds the pointer
    void resize_window();
};

// The engine's key number for an SDL key.
int key_from_sdl(SDL_Keycode key);

// The largest zoom of 1 to `zoom` at which the window, a screen of `native`
// times the zoom over a strip of `strip_per_zoom` times the zoom, fits
// `desktop`: 1 when none does, `zoom` when the desktop is unknown (0,0).
int zoom_that_fits(Point native, int strip_per_zoom, int zoom, Point desktop);
// The usable size of the desktop the window stands on, (0,0) when unknown
// (no video, or an offscreen driver, which has no desktop to fill).
Point desktop_size();

} // namespace skinner

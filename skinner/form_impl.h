#pragma once

#include "skinner/canvas.h"
#include "skinner/image_loader.h"

#include <SDL.h>

#include <map>
#include <memory>
#include <vector>

// What ties a form to the screen: its back buffer, its dirty rectangle, the
// pointer buttons held on it and its timers. Owned by its Form.
// Threads: the user-interface thread only. Points are form pixels.
namespace liba {
class Timer;
}

namespace skinner {

class Form;

class FormImpl : liba::Nocopy {
public:
    explicit FormImpl(Form* form);
    ~FormImpl();
    void set_form(Form* form) { form_ = form; }

    // Adds the rectangle to the dirty ones and asks the screen to paint.
    // Rectangles far apart (a clock at the top, a lamp at the bottom) stay
    // apart, so a tick repaints what changed rather than everything between.
    void invalidate(Point position, Point size);
    // Drops the back buffer; everything is dirty.
    void invalidate_all();
    // Paints what is dirty into the back buffer (made at the form's size when
    // missing, first filled with a glaring yellow so that gaps show); the
    // rectangle holding all that was painted.
    Rect paint();
    SDL_Surface* back_buffer() const { return back_buffer_.get(); }

    // Pointer and keys as the screen delivers them, in form pixels.
    void pointer_down(int button, Point point, int flags);
    void pointer_up(int button, Point point);
    void pointer_move(Point point);
    // The pointer went elsewhere: held buttons go up at the last position.
    void capture_lost();
    bool any_button_held() const { return held_[0] || held_[1] || held_[2]; }
    // A key with the character that came with it (0: none or a control code).
    void key_down(int key, wchar_t character);
    void key_up(int key);
    void text(const std::wstring& text);

    int set_timer(double seconds);
    void kill_timer(int id);

private:
    class FormTimer;

    Form* form_;
    bool held_[3] = {false, false, false};
    int flags_[3] = {0, 0, 0};
    Point last_pointer_;
    static constexpr size_t kMaxDirty = 8;
    std::vector<Rect> dirty_;
    Surface back_buffer_;
    std::map<int, std::unique_ptr<FormTimer>> timers_;
    std::vector<std::unique_ptr<FormTimer>> dead_timers_;
};

} // namespace skinner

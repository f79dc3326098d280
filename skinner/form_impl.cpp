#include "skinner/form_impl.h"

#include "liba/timer.h"
#include "os/log.h"
#include "skinner/form.h"
#include "skinner/screen.h"

#include <algorithm>

namespace skinner {

namespace {

// Timer ids of all forms come from one counter, as the platform's did.
int g_next_timer_id = 1;
// Timer ticks being handled now: killed timers can't be freed under them.
int g_tick_depth = 0;

// Colour of a fresh back buffer, so that what nobody paints shows.
constexpr uint32_t kGapColour = 0xFFFFFF00u;

} // namespace

// A form timer: repeats every `seconds` until killed, on the shared timer list.
class FormImpl::FormTimer : public liba::Timer::Listener {
public:
    FormTimer(FormImpl& owner, int id, double seconds) : owner_(owner), id_(id), seconds_(seconds), timer_(*this)
    {
        timer_.start(seconds_);
    }
    void on_timer(liba::Timer&) override
    {
        timer_.start(seconds_);
        // The tick may kill this timer or the form: nothing of this is used after.
        Form* form = owner_.form_;
        int id = id_;
        ++g_tick_depth;
        if (form)
            form->on_timer(id, 0);
        --g_tick_depth;
    }
    void stop() { timer_.stop(); }

private:
    FormImpl& owner_;
    int id_;
    double seconds_;
    liba::Timer timer_;
};

FormImpl::FormImpl(Form* form) : form_(form) {}
FormImpl::~FormImpl() = default;

void FormImpl::invalidate(Point position, Point size)
{
    if (size.x <= 0 || size.y <= 0)
        return;
    add_dirty(dirty_, {position.x, position.y, size.x, size.y}, kMaxDirty);
    if (Screen* screen = Screen::instance())
        screen->request_paint();
}

void FormImpl::invalidate_all()
{
    back_buffer_.reset();
    if (form_)
        invalidate({0, 0}, form_->size());
}

Rect FormImpl::paint()
{
    if (g_tick_depth == 0)
        dead_timers_.clear();
    if (!form_)
        return {};
    Point size = form_->size();
    if (!back_buffer_ || back_buffer_->w != size.x || back_buffer_->h != size.y) {
        back_buffer_ = make_surface(size.x, size.y);
        if (!back_buffer_)
            return {};
        SDL_FillRect(back_buffer_.get(), nullptr, kGapColour);
        dirty_.assign(1, Rect{0, 0, size.x, size.y});
    }
    const Rect whole{0, 0, size.x, size.y};
    std::vector<Rect> dirty;
    dirty.swap(dirty_);
    Rect painted;
    for (const Rect& d : dirty) {
        Rect part = intersect(d, whole);
        if (part.empty())
            continue;
        Canvas canvas(back_buffer_.get(), {part.x, part.y}, {part.w, part.h});
        form_->background().draw(canvas, {0, 0}, size);
        form_->paint(canvas, {part.x, part.y}, {part.w, part.h});
        painted = painted.empty() ? part : bounding(painted, part);
    }
    return painted;
}

void FormImpl::pointer_down(int button, Point point, int flags)
{
    held_[button] = true;
    flags_[button] = flags;
    last_pointer_ = point;
    form_->mouse_down(button, point, flags);
    if (flags & kDoubleFlag)
        form_->mouse_double(point, flags);
}

void FormImpl::pointer_up(int button, Point point)
{
    if (!held_[button])
        return;
    held_[button] = false;
    last_pointer_ = point;
    form_->mouse_up(button, point, flags_[button]);
}

void FormImpl::pointer_move(Point point)
{
    last_pointer_ = point;
    form_->mouse_move(point, 0);
}

void FormImpl::capture_lost()
{
    os::log() << "WM_CAPTURECHANGED\n";
    for (int b = 0; b < 3; ++b)
        if (held_[b]) {
            held_[b] = false;
            form_->mouse_up(b, last_pointer_, flags_[b]);
        }
}

void FormImpl::key_down(int key, wchar_t character)
{
    if (character != 0 && form_->on_text(std::wstring(1, character)))
        return;
    form_->on_keydown(key);
}

void FormImpl::key_up(int key) { form_->on_keyup(key); }

void FormImpl::text(const std::wstring& text)
{
    if (!text.empty() && text[0] >= 32)
        form_->on_text(text);
}

int FormImpl::set_timer(double seconds)
{
    int id = g_next_timer_id++;
    if (g_next_timer_id <= 0)
        g_next_timer_id = 1;
    timers_[id] = std::make_unique<FormTimer>(*this, id, seconds);
    return id;
}

void FormImpl::kill_timer(int id)
{
    auto it = timers_.find(id);
    if (it == timers_.end())
        return;
    // Killed from its own tick perhaps: freed later, when no tick runs.
    it->second->stop();
    dead_timers_.push_back(std::move(it->second));
    timers_.erase(it);
}

} // namespace skinner

#include "skinner/container.h"

#include "liba/fatal.h"
#include "skinner/canvas.h"
#include "skinner/form.h"
#include "skinner/properties.h"

#include <SDL.h>

#include <algorithm>

namespace skinner {

namespace {

// Position and size along one axis by the anchor: P, S the container's
// position and size, D its design size, p and s the control's skin values.
void lay_axis(Anchor anchor, int32_t P, int32_t S, int32_t D, int32_t p, int32_t s, int32_t& pos, int32_t& size)
{
    switch (anchor) {
    case BOTH_SIDE: pos = P + p; size = s + S - D; break;
    case MAX_SIDE: pos = P + p + S - D; size = s; break;
    case RATIO:
        if (D == 0) {
            pos = P + p;
            size = s;
        } else {
            pos = P + S * p / D;
            size = S * (p + s) / D - S * p / D;
        }
        break;
    case CENTER: pos = P + S * (p + s / 2) / D - s / 2; size = s; break;
    default: pos = P + p; size = s; break;
    }
}

bool usable(const Control* c) { return c->can_focus() && c->is_visible() && c->is_enabled(); }

} // namespace

Container::Container(Form* form, Properties& properties, const std::wstring& name, Source source, Listener* listener)
    : source_(source), properties_(properties), listener_(listener), form_(form)
{
    if (source == kByKind)
        kind_ = name;
    else
        name_ = name;
    read_design_size();
    size_ = design_size_;
    create_auto_controls();
}

Container::~Container()
{
    delete_auto_controls();
}

void Container::read_design_size()
{
    if (source_ == kNoSkin)
        return;
    if (source_ == kByKind)
        design_size_ = properties_.get_point(L"", kind_, L"Size", design_size_);
    else
        design_size_ = properties_.get_form_point(name_, L"Size", design_size_);
}

void Container::create_auto_controls()
{
    if (source_ != kByName || name_.empty())
        return;
    int n = properties_.item_count(name_);
    for (int i = 0; i < n; ++i) {
        auto [id, kind] = properties_.item(name_, i);
        if (auto control = make_auto_control(this, id, kind))
            auto_controls_.push_back(std::move(control));
    }
}

void Container::delete_auto_controls()
{
    while (!auto_controls_.empty())
        auto_controls_.pop_back();
}

void Container::register_control(Control* control)
{
    if (!control->id().empty() && find_control(control->id()))
        liba::fatal(L"Container::register_control",
                    L"control with id {" + control->id() + L"} already exists in container");
    auto at = std::upper_bound(children_.begin(), children_.end(), control->z_order(),
                               [](int z, const Control* c) { return z < c->z_order(); });
    children_.insert(at, control);
    layout(control);
}

void Container::unregister(Control* control)
{
    if (focused_ == control)
        focused_ = nullptr;
    if (capture_ == control) {
        capture_ = nullptr;
        for (bool& b : button_held_)
            b = false;
    }
    if (hover_ == control)
        hover_ = nullptr;
    control->stop_timer();
    children_.erase(std::remove(children_.begin(), children_.end(), control), children_.end());
}

Control* Container::find_control(const std::wstring& id) const
{
    for (Control* c : children_)
        if (c->id() == id)
            return c;
    return nullptr;
}

void Container::sort_children()
{
    std::stable_sort(children_.begin(), children_.end(),
                     [](const Control* a, const Control* b) { return a->z_order() < b->z_order(); });
}

void Container::layout(Control* control)
{
    Point pos, size;
    Point p = control->skin_position();
    Point s = control->get_skin_size();
    lay_axis(control->anchor_x(), position_.x, size_.x, design_size_.x, p.x, s.x, pos.x, size.x);
    lay_axis(control->anchor_y(), position_.y, size_.y, design_size_.y, p.y, s.y, pos.y, size.y);
    control->set_rect(pos, size);
}

void Container::set_rect(Point position, Point size)
{
    position_ = position;
    size_ = size;
    for (auto it = children_.rbegin(); it != children_.rend(); ++it)
        layout(*it);
}

Point Container::minimum_size() const
{
    Point m = design_size_;
    for (auto it = children_.rbegin(); it != children_.rend(); ++it) {
        const Control* c = *it;
        Point skin = c->skin_size();
        Point min = c->get_skin_size();
        if (c->anchor_x() == BOTH_SIDE)
            m.x = std::max(m.x, design_size_.x - skin.x + min.x);
        if (c->anchor_y() == BOTH_SIDE)
            m.y = std::max(m.y, design_size_.y - skin.y + min.y);
    }
    return m;
}

void Container::refresh()
{
    delete_auto_controls();
    read_design_size();
    create_auto_controls();
    std::vector<Control*> copy = children_;
    for (Control* c : copy)
        c->refresh();
    sort_children();
}

void Container::set_focus(Control* control, int reason)
{
    if (control == focused_)
        return;
    if (active_ && focused_)
        focused_->on_focus_lost(reason);
    focused_ = control;
    if (active_ && focused_)
        focused_->on_focus_gained(reason);
}

void Container::set_active(bool active)
{
    if (active == active_)
        return;
    active_ = active;
    if (active && !focused_) {
        move_focus(true);
        return;
    }
    if (focused_) {
        if (active)
            focused_->on_focus_gained(kFocusByProgram);
        else
            focused_->on_focus_lost(kFocusByProgram);
    }
}

bool Container::move_focus(bool forward)
{
    std::vector<Control*> list;
    for (Control* c : children_)
        if (usable(c))
            list.push_back(c);
    if (list.empty()) {
        set_focus(nullptr, kFocusByKey);
        return false;
    }
    std::stable_sort(list.begin(), list.end(),
                     [](const Control* a, const Control* b) { return a->tab_order() < b->tab_order(); });
    auto at = std::find(list.begin(), list.end(), focused_);
    bool no_wrap = true;
    Control* next;
    if (forward) {
        if (at == list.end()) {
            next = list.front();
        } else if (at + 1 == list.end()) {
            next = list.front();
            no_wrap = false;
        } else {
            next = *(at + 1);
        }
    } else {
        if (at == list.end()) {
            next = list.back();
        } else if (at == list.begin()) {
            next = list.back();
            no_wrap = false;
        } else {
            next = *(at - 1);
        }
    }
    set_focus(next, kFocusByKey);
    return no_wrap;
}

Control* Container::control_at(Point point) const
{
    for (auto it = children_.rbegin(); it != children_.rend(); ++it)
        if ((*it)->is_visible() && (*it)->hit_test(point))
            return *it;
    return nullptr;
}

void Container::set_hover(Control* control, Point point)
{
    if (control == hover_)
        return;
    if (hover_) {
        hover_->on_mouse_leave(point);
        hover_->invalidate();
    }
    hover_ = control;
    int cursor = -1;
    if (hover_) {
        hover_->on_mouse_enter(point);
        hover_->invalidate();
        cursor = hover_->get_cursor();
    }
    if (SDL_WasInit(SDL_INIT_VIDEO)) {
        static SDL_Cursor* cursors[SDL_NUM_SYSTEM_CURSORS] = {};
        int which = cursor >= 0 && cursor < SDL_NUM_SYSTEM_CURSORS ? cursor : SDL_SYSTEM_CURSOR_ARROW;
        if (!cursors[which])
            cursors[which] = SDL_CreateSystemCursor(static_cast<SDL_SystemCursor>(which));
        if (cursors[which])
            SDL_SetCursor(cursors[which]);
    }
}

namespace {

void down_of(Control* c, int button, Point p, int flags)
{
    if (button == kLeft)
        c->on_left_down(p, flags);
    else if (button == kRight)
        c->on_right_down(p, flags);
    else
        c->on_middle_down(p, flags);
}

void up_of(Control* c, int button, Point p, int flags)
{
    if (button == kLeft)
        c->on_left_up(p, flags);
    else if (button == kRight)
        c->on_right_up(p, flags);
    else
        c->on_middle_up(p, flags);
}

} // namespace

void Container::mouse_move(Point point, int flags)
{
    last_mouse_ = point;
    if (capture_) {
        capture_->on_mouse_move(point, flags);
        return;
    }
    Control* hit = control_at(point);
    if (hit && hit->is_enabled()) {
        set_hover(hit, point);
        hit->on_mouse_move(point, flags);
    } else {
        set_hover(nullptr, point);
    }
}

void Container::mouse_down(int button, Point point, int flags)
{
    last_mouse_ = point;
    if (capture_) {
        button_held_[button] = true;
        button_flags_[button] = flags;
        down_of(capture_, button, point, flags);
        return;
    }
    Control* hit = control_at(point);
    if (!hit || !hit->is_enabled()) {
        set_hover(nullptr, point);
        return;
    }
    set_hover(hit, point);
    capture_ = hit;
    if (hit->can_focus())
        hit->set_focus(kFocusByPointer);
    if (capture_ != hit)
        return; // the control went away while taking the focus
    button_held_[button] = true;
    button_flags_[button] = flags;
    down_of(hit, button, point, flags);
}

void Container::mouse_up(int button, Point point, int flags)
{
    last_mouse_ = point;
    if (!capture_)
        return;
    Control* c = capture_;
    button_held_[button] = false;
    up_of(c, button, point, flags);
    if (!button_held_[0] && !button_held_[1] && !button_held_[2] && capture_ == c)
        capture_ = nullptr;
}

void Container::mouse_double(Point point, int flags)
{
    last_mouse_ = point;
    Control* c = capture_ ? capture_ : control_at(point);
    if (c)
        c->on_mouse_double(point, flags);
}

void Container::release_capture()
{
    if (!capture_)
        return;
    Control* c = capture_;
    for (int b = 0; b < 3; ++b)
        if (button_held_[b]) {
            button_held_[b] = false;
            up_of(c, b, last_mouse_, button_flags_[b]);
        }
    capture_ = nullptr;
}

void Container::paint(Canvas& canvas, Point clip_position, Point clip_size)
{
    int32_t right = clip_position.x + clip_size.x;
    int32_t bottom = clip_position.y + clip_size.y;
    for (Control* c : children_) {
        if (!c->is_visible())
            continue;
        Point p = c->position();
        Point s = c->size();
        if (p.x < right && p.y < bottom && p.x + s.x > clip_position.x && p.y + s.y > clip_position.y)
            c->paint(canvas, clip_position, clip_size);
    }
}

int Container::cursor_at(Point point) const
{
    Control* c = control_at(point);
    return c ? c->get_cursor() : -1;
}

void Container::set_shown(bool shown)
{
    if (shown == shown_)
        return;
    std::vector<bool> before;
    for (Control* c : children_)
        before.push_back(c->is_visible());
    shown_ = shown;
    for (size_t i = 0; i < children_.size(); ++i)
        if (children_[i]->is_visible() != before[i])
            children_[i]->on_show(children_[i]->is_visible());
}

void Container::set_enabled(bool enabled)
{
    if (enabled == enabled_)
        return;
    if (!enabled)
        release_capture();
    std::vector<bool> before;
    for (Control* c : children_)
        before.push_back(c->is_enabled());
    enabled_ = enabled;
    for (size_t i = 0; i < children_.size(); ++i)
        if (children_[i]->is_enabled() != before[i]) {
            children_[i]->on_enable(children_[i]->is_enabled());
            children_[i]->invalidate();
        }
}

bool Container::on_text(const std::wstring& text)
{
    return focused_ ? focused_->on_text(text) : false;
}

bool Container::on_keydown(int key)
{
    if (focused_ && focused_->on_keydown(key))
        return true;
    if (key == kKeyTab && !is_modifier_down(kKeyControl) && !is_modifier_down(kKeyAlt)) {
        move_focus(!is_modifier_down(kKeyShift));
        return true;
    }
    return false;
}

bool Container::on_keyup(int key)
{
    return focused_ ? focused_->on_keyup(key) : false;
}

void Container::on_timer(int id, int user_data)
{
    std::vector<Control*> copy = children_;
    for (Control* c : copy)
        c->dispatch_timer(id, user_data);
}

} // namespace skinner

#include "skinner/control_frame.h"
#include "skinner/control_panel.h"
#include "skinner/control_picture.h"

namespace skinner {

std::unique_ptr<Control> make_auto_control(Container* container, const std::wstring& id, const std::wstring& kind)
{
    if (kind == L"Auto.Button")
        return std::make_unique<ControlButton>(container, id);
    if (kind == L"Auto.Frame")
        return std::make_unique<ControlFrame>(container, id);
    if (kind == L"Auto.Picture")
        return std::make_unique<ControlPicture>(container, id);
    if (kind == L"Auto.Panel")
        return std::make_unique<ControlPanel>(container, id);
    return nullptr;
}

} // namespace skinner

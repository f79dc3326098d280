#include "skinner/control_scroll_bar.h"

#include <algorithm>

namespace skinner {

namespace {

// Ticks between the press and the first repeat, less one.
constexpr int kRepeatDelay = 5;

} // namespace

ControlScrollBar::Button::Button(Container* container, const std::wstring& kind, ControlScrollBar& bar, Role role)
    : ControlButton(container, kind, kByKind), bar_(bar), role_(role), timer_(*this)
{
    set_want_focus(false);
    repeat_ms_ = get_integer(L"Repeat", 0);
}

void ControlScrollBar::Button::refresh()
{
    ControlButton::refresh();
    set_want_focus(false);
    repeat_ms_ = get_integer(L"Repeat", 0);
}

void ControlScrollBar::Button::on_left_down(Point point, int flags)
{
    ControlButton::on_left_down(point, flags);
    if (role_ == kTrack) {
        grab_ = bar_.vertical_ ? point.y - position().y : point.x - position().x;
        return;
    }
    bar_.on_button_pressed(role_);
    if (repeat_ms_ > 0) {
        counter_ = kRepeatDelay;
        timer_.start(repeat_ms_ / 1000.0);
    }
}

void ControlScrollBar::Button::on_left_up(Point point, int flags)
{
    timer_.stop();
    ControlButton::on_left_up(point, flags);
}

void ControlScrollBar::Button::on_mouse_move(Point point, int flags)
{
    ControlButton::on_mouse_move(point, flags);
    if (role_ == kTrack && is_active())
        bar_.on_track_dragged(bar_.vertical_ ? point.y : point.x, grab_);
}

void ControlScrollBar::Button::on_timer(liba::Timer&)
{
    if (!is_active())
        return;
    timer_.start(repeat_ms_ / 1000.0);
    if (--counter_ < 0 && is_enabled())
        bar_.on_button_pressed(role_);
}

ControlScrollBar::ControlScrollBar(Container* container, const std::wstring& name, Source source)
    : ControlPanel(container, name, source)
{
    read_scroll_properties();
    const wchar_t* kinds[5] = {L"KindMin", L"KindMax", L"KindSpace", L"KindSpace", L"KindTrack"};
    // Page areas first, so that arrows and handle lie above them.
    const Role order[5] = {kMinSpace, kMaxSpace, kMinArrow, kMaxArrow, kTrack};
    for (Role role : order) {
        std::wstring kind = source == kNoSkin ? std::wstring() : get_string(kinds[role], L"");
        buttons_[role] = std::make_unique<Button>(&inner(), kind, *this, role);
    }
    set(position_, true);
}

ControlScrollBar::~ControlScrollBar()
{
    for (auto& b : buttons_)
        b.reset();
}

void ControlScrollBar::read_scroll_properties()
{
    if (source() == kNoSkin)
        return;
    vertical_ = get_integer(L"Vertical", 0) != 0;
    min_button_ = get_scaled_integer(L"MinButtonSize", 0);
    max_button_ = get_scaled_integer(L"MaxButtonSize", 0);
    min_ = get_integer(L"Min", min_);
    max_ = get_integer(L"Max", max_);
    page_ = get_integer(L"Page", page_);
}

void ControlScrollBar::refresh()
{
    ControlPanel::refresh();
    read_scroll_properties();
    set(position_, true);
}

void ControlScrollBar::set_range(int min, int max)
{
    min_ = min;
    max_ = max;
    set(position_, false);
}

void ControlScrollBar::set_page(int page)
{
    page_ = page;
    set(position_, false);
}

void ControlScrollBar::set_position(int value)
{
    set(value, false);
}

void ControlScrollBar::set(int position, bool silent)
{
    if (max_ < min_)
        max_ = min_;
    page_ = std::clamp(page_, 0, max_ - min_);
    position = std::max(std::min(position, max_ - page_), min_);
    if (position != position_) {
        position_ = position;
        if (!silent)
            on_position_changed();
    }
    layout_buttons();
}

void ControlScrollBar::on_position_changed()
{
    on_scroll(this);
}

void ControlScrollBar::set_rect(Point position, Point size)
{
    ControlPanel::set_rect(position, size);
    if (buttons_[kTrack])
        layout_buttons();
}

void ControlScrollBar::track_area(int& start, int& length) const
{
    const int along = vertical_ ? size().y : size().x;
    const int origin = vertical_ ? position().y : position().x;
    auto len = [this](const Button& b) { return vertical_ ? b.skin_size().y : b.skin_size().x; };
    int a = std::min(len(*buttons_[kMinArrow]), along / 2);
    int b = std::min(len(*buttons_[kMaxArrow]), along / 2);
    start = origin + a;
    length = std::max(0, along - a - b);
}

void ControlScrollBar::layout_buttons()
{
    if (!buttons_[kTrack])
        return;
    int start = 0, length = 0;
    track_area(start, length);
    const int origin = vertical_ ? position().y : position().x;
    const int along = vertical_ ? size().y : size().x;
    const int range = max_ - min_;
    int handle = range > 0 ? int(int64_t(length) * page_ / range) : length;
    if (max_button_ > 0)
        handle = std::min(handle, max_button_);
    handle = std::min(std::max(handle, min_button_), length);
    const int travel = range - page_;
    const int offset = travel > 0 ? int(int64_t(length - handle) * (position_ - min_) / travel) : 0;
    const int handle_at = start + offset;
    // Pieces along the axis: [from, to) for each role.
    const int from[5] = {origin, start + length, start, handle_at + handle, handle_at};
    const int to[5] = {start, origin + along, handle_at, start + length, handle_at + handle};
    for (int r = 0; r < 5; ++r) {
        Point p = position(), s = size();
        if (vertical_) {
            p.y = from[r];
            s.y = std::max(0, to[r] - from[r]);
        } else {
            p.x = from[r];
            s.x = std::max(0, to[r] - from[r]);
        }
        buttons_[r]->set_rect(p, s);
    }
}

void ControlScrollBar::on_button_pressed(Role role)
{
    switch (role) {
    case kMinArrow:
        set_position(position_ - line_);
        break;
    case kMaxArrow:
        set_position(position_ + line_);
        break;
    case kMinSpace:
        set_position(position_ - page_);
        break;
    case kMaxSpace:
        set_position(position_ + page_);
        break;
    case kTrack:
        break;
    }
}

bool ControlScrollBar::on_keydown(int key)
{
    const int back = vertical_ ? kKeyUp : kKeyLeft;
    const int forward = vertical_ ? kKeyDown : kKeyRight;
    if (key == back)
        on_button_pressed(kMinArrow);
    else if (key == forward)
        on_button_pressed(kMaxArrow);
    else if (key == kKeyPageUp)
        on_button_pressed(kMinSpace);
    else if (key == kKeyPageDown)
        on_button_pressed(kMaxSpace);
    else if (key == kKeyHome)
        set_position(min_);
    else if (key == kKeyEnd)
        set_position(max_);
    else
        return ControlPanel::on_keydown(key);
    return true;
}

void ControlScrollBar::on_track_dragged(int pointer_along, int grab)
{
    int start = 0, length = 0;
    track_area(start, length);
    if (length <= 0)
        return;
    double fraction = std::clamp(double(pointer_along - grab - start) / length, 0.0, 1.0);
    set_position(min_ + int((max_ - min_) * fraction));
}

} // namespace skinner

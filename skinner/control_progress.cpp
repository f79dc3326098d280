#include "skinner/control_progress.h"

#include <algorithm>

namespace skinner {

ControlProgressBase::ControlProgressBase(Container* container, const std::wstring& name, Source source)
    : Control(container, name, source)
{
    read_progress_properties();
}

void ControlProgressBase::read_progress_properties()
{
    if (source() == kNoSkin)
        return;
    background_ = get_picture(L"Background", Picture());
    track_ = get_picture(L"Track", Picture());
    track_disabled_ = get_picture(L"TrackDisabled", Picture());
    progress_ = get_picture(L"Progress", Picture());
    int o = get_integer(L"Orientation", kFromLeft);
    orientation_ = o >= kFromTop && o <= kFromLeft ? o : kFromLeft;
    track_size_ = get_scaled_integer(L"TrackSize", 0);
}

void ControlProgressBase::refresh()
{
    Control::refresh();
    read_progress_properties();
    invalidate();
}

void ControlProgressBase::set_position(double position)
{
    position = std::clamp(position, 0.0, 1.0);
    if (position == position_)
        return;
    position_ = position;
    on_position_set();
    invalidate();
}

void ControlProgressBase::set_range(double low, double high, double value)
{
    set_position(high <= low ? 0.0 : (value - low) / (high - low));
}

void ControlProgressBase::on_position_dragged(double position)
{
    on_range_changed(this, position);
}

void ControlProgressBase::on_position_set()
{
    on_value_changed(this);
}

void ControlProgressBase::fill_rect(double p, Point& at, Point& fill) const
{
    const Point pos = position();
    const Point s = size();
    const int t = track_size_;
    at = pos;
    switch (orientation_) {
    case kFromTop:
        fill = {s.x, int32_t((s.y - t) * p)};
        break;
    case kFromRight:
        at.x = pos.x + int32_t((s.x - t) * (1 - p));
        fill = {int32_t((s.x - t) * p), s.y};
        break;
    case kFromBottom:
        at.y = pos.y + int32_t((s.y - t) * (1 - p));
        fill = {s.x, int32_t((s.y - t) * p)};
        break;
    default:
        fill = {int32_t((s.x - t) * p), s.y};
        break;
    }
}

double ControlProgressBase::position_at(Point point) const
{
    const Point pos = position();
    const Point s = size();
    const int t = track_size_;
    int num = 0, den = 0;
    switch (orientation_) {
    case kFromTop:
        num = point.y - t / 2 - pos.y;
        den = s.y - t;
        break;
    case kFromRight:
        num = s.x - t / 2 - point.x + pos.x;
        den = s.x - t;
        break;
    case kFromBottom:
        num = s.y - t / 2 - point.y + pos.y;
        den = s.y - t;
        break;
    default:
        num = point.x - t / 2 - pos.x;
        den = s.x - t;
        break;
    }
    if (den == 0)
        return 0;
    return std::clamp(double(num) / den, 0.0, 1.0);
}

void ControlProgressBase::on_left_down(Point point, int flags)
{
    if (flags & kDoubleFlag)
        return;
    dragging_ = true;
    on_position_dragged(position_at(point));
}

void ControlProgressBase::on_mouse_move(Point point, int)
{
    if (dragging_)
        on_position_dragged(position_at(point));
}

void ControlProgressBase::on_left_up(Point, int)
{
    dragging_ = false;
}

void ControlProgress::paint(Canvas& canvas, Point clip_position, Point clip_size)
{
    const double p = value();
    Point at, fill;
    fill_rect(p, at, fill);
    if (orientation_ == kFromTop || orientation_ == kFromLeft) {
        background_.draw(canvas, position(), size());
        progress_.draw(canvas, at, fill);
    } else {
        // The picture is covered from its start: the background hides what
        // isn't filled yet.
        progress_.draw(canvas, position(), size());
        // What is still empty: left of the fill from the right, above the
        // fill from the bottom.
        const Point s = size();
        Point bsize = orientation_ == kFromRight ? Point{at.x - position().x, s.y}
                                                 : Point{s.x, int32_t((s.y - track_size_) * (1 - p))};
        const Point bat = position();
        background_.draw(canvas, bat, bsize);
    }
    const Picture& handle = is_enabled() ? track_ : track_disabled_;
    if (track_size_ > 0) {
        Point hat = at;
        Point hsize;
        switch (orientation_) {
        case kFromTop:
            hat = {position().x, position().y + fill.y};
            hsize = {size().x, track_size_};
            break;
        case kFromBottom:
            hsize = {size().x, track_size_};
            break;
        case kFromRight:
            hsize = {track_size_, size().y};
            break;
        default:
            hat = {position().x + fill.x, position().y};
            hsize = {track_size_, size().y};
            break;
        }
        handle.draw(canvas, hat, hsize);
    }
    Control::paint(canvas, clip_position, clip_size);
}

} // namespace skinner

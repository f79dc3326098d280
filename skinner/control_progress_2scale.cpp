#include "skinner/control_progress_2scale.h"

#include "skinner/canvas.h"

#include <algorithm>

namespace skinner {

ControlProgress2Scale::ControlProgress2Scale(Container* container, const std::wstring& name, Source source)
    : ControlProgress(container, name, source)
{
    read_scale_properties();
}

void ControlProgress2Scale::read_scale_properties()
{
    if (source() == kNoSkin)
        return;
    progress_over_ = get_picture(L"ProgressOver", progress_);
    mark_color_ = get_color(L"Mark", mark_color_);
}

void ControlProgress2Scale::refresh()
{
    ControlProgress::refresh();
    read_scale_properties();
}

void ControlProgress2Scale::set_mark(double mark)
{
    mark = std::clamp(mark, 0.0, 1.0);
    if (mark == mark_)
        return;
    mark_ = mark;
    invalidate();
}

Point ControlProgress2Scale::fill_end(double p) const
{
    Point at, fill;
    fill_rect(p, at, fill);
    switch (orientation()) {
    case kFromTop:
        return {at.x, at.y + fill.y};
    case kFromLeft:
        return {at.x + fill.x, at.y};
    default:
        // Filling from the right or the bottom, the fill's near edge is `at`.
        return at;
    }
}

void ControlProgress2Scale::paint(Canvas& canvas, Point clip_position, Point clip_size)
{
    const double level = value();
    background_.draw(canvas, position(), size());
    Point at, fill;
    fill_rect(level, at, fill);
    progress_over_.draw(canvas, at, fill);
    // Up to the mark the fill is the ordinary one.
    Point below_at, below;
    fill_rect(std::min(level, mark_), below_at, below);
    canvas.push_clip(below_at, below);
    progress_.draw(canvas, at, fill);
    canvas.pop_clip();
    const Point edge = fill_end(mark_);
    const bool across = orientation() == kFromLeft || orientation() == kFromRight;
    const int thick = std::max(1, scale());
    canvas.fill_rect(edge, across ? Point{thick, size().y} : Point{size().x, thick}, mark_color_);
    Control::paint(canvas, clip_position, clip_size);
}

} // namespace skinner

#include "skinner/control_picture.h"

#include <algorithm>

namespace skinner {

ControlPicture::ControlPicture(Container* container, const std::wstring& name, Source source)
    : ControlButton(container, name, source)
{
    read_picture_properties();
}

void ControlPicture::read_picture_properties()
{
    if (source() == kNoSkin)
        return;
    h_alignment_ = kAlignCenter;
    v_alignment_ = kAlignVCenter;
    parse_h_alignment(get_string(L"PictureHAlignment", L"CENTER"), h_alignment_);
    parse_v_alignment(get_string(L"PictureVAlignment", L"VCENTER"), v_alignment_);
    picture_ = get_picture(L"Picture", picture_);
}

void ControlPicture::refresh()
{
    ControlButton::refresh();
    read_picture_properties();
}

void ControlPicture::set_picture(const Picture& picture)
{
    picture_ = picture;
    invalidate();
}

void ControlPicture::placement(Point& at, Point& drawn) const
{
    Point n = picture_.natural_size();
    Point w = size();
    double fx = n.x > w.x ? double(w.x) / n.x : 1.0;
    double fy = n.y > w.y ? double(w.y) / n.y : 1.0;
    double f = std::min(fx, fy);
    drawn = {int32_t(n.x * f), int32_t(n.y * f)};
    at = position();
    if (h_alignment_ == kAlignCenter)
        at.x += (w.x - drawn.x) / 2;
    else if (h_alignment_ == kAlignRight)
        at.x += w.x - drawn.x;
    if (v_alignment_ == kAlignVCenter)
        at.y += (w.y - drawn.y) / 2;
    else if (v_alignment_ == kAlignBottom)
        at.y += w.y - drawn.y;
}

void ControlPicture::paint(Canvas& canvas, Point clip_position, Point clip_size)
{
    ControlButton::paint(canvas, clip_position, clip_size);
    Point n = picture_.natural_size();
    if (n.x == 0 || n.y == 0)
        return;
    Point at, drawn;
    placement(at, drawn);
    picture_.draw(canvas, at, drawn);
}

bool ControlPicture::hit_test(Point point) const
{
    if (!ControlButton::hit_test(point))
        return false;
    Point at, drawn;
    placement(at, drawn);
    return !picture_.is_transparent_at(point, at, drawn);
}

} // namespace skinner

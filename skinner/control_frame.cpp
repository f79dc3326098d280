#include "skinner/control_frame.h"

#include "skinner/canvas.h"
#include "skinner/container.h"
#include "skinner/form.h"
#include "skinner/properties.h"

#include <algorithm>

namespace skinner {

ControlFrame::ControlFrame(Container* container, const std::wstring& name, Source source)
    : Control(container, name, source), font_(container->properties().scale())
{
    set_want_focus(false);
    read_frame_properties();
}

void ControlFrame::read_frame_properties()
{
    if (source() == kNoSkin)
        return;
    border_min_ = get_point(L"BorderMin", border_min_);
    border_max_ = get_point(L"BorderMax", border_min_);
    h_alignment_ = kAlignCenter;
    v_alignment_ = kAlignVCenter;
    parse_h_alignment(get_string(L"HAlignment", L"CENTER"), h_alignment_);
    parse_v_alignment(get_string(L"VAlignment", L"VCENTER"), v_alignment_);
    picture_ = get_picture(L"Normal", picture_);
    font_ = get_font(L"Normal", font_);
    color_ = get_color(L"Normal", color_);
    text_ = get_translated(L"Text", text_);
    wrap_ = get_integer(L"Wrap", 0) != 0;
    auto_size_ = get_integer(L"AutoSize", 0) != 0;
    ellipsis_ = get_integer(L"Ellipsis", 0) != 0;
    layout_text(text_);
}

void ControlFrame::refresh()
{
    Control::refresh();
    read_frame_properties();
    invalidate();
}

const Font& ControlFrame::font() const
{
    return font_.is_empty() && form() ? form()->default_font() : font_;
}

void ControlFrame::set_text(const std::wstring& text)
{
    if (text == text_)
        return;
    text_ = text;
    layout_text(text_);
    invalidate();
}

void ControlFrame::set_rect(Point position, Point size)
{
    bool width_changed = size.x != this->size().x;
    Control::set_rect(position, size);
    if (width_changed && wrap_)
        layout_text(text_);
}

void ControlFrame::layout_text(const std::wstring& text)
{
    lines_.clear();
    if (!wrap_) {
        lines_.push_back(text);
    } else {
        int32_t room = size().x - border_min_.x - border_max_.x;
        const Font& f = font();
        size_t start = 0;
        size_t candidate = std::wstring::npos;
        for (size_t i = 0; i <= text.size(); ++i) {
            bool at_end = i == text.size();
            if (!at_end && text[i] >= 33)
                continue;
            if (candidate != std::wstring::npos && f.text_size(text.substr(start, i - start)).x > room) {
                lines_.push_back(text.substr(start, candidate - start));
                start = candidate + 1;
                candidate = std::wstring::npos;
            }
            if (at_end)
                break;
            bool separator = !separator_.empty() && text.compare(i, separator_.size(), separator_) == 0;
            if (text[i] == L'\n' || separator) {
                lines_.push_back(text.substr(start, i - start));
                if (separator)
                    i += separator_.size() - 1;
                start = i + 1;
                candidate = std::wstring::npos;
                continue;
            }
            candidate = i;
        }
        lines_.push_back(text.substr(std::min(start, text.size())));
    }
    content_size_ = border_min_ + border_max_;
    if (auto_size_) {
        int32_t width = 0, height = 0;
        for (const auto& line : lines_) {
            Point s = font().text_size(line);
            width = std::max(width, s.x);
            height += s.y;
        }
        content_size_ = content_size_ + Point{width, height};
    }
}

Point ControlFrame::get_skin_size() const
{
    Point s = Control::get_skin_size();
    return {std::max(s.x, content_size_.x), std::max(s.y, content_size_.y)};
}

void ControlFrame::paint(Canvas& canvas, Point clip_position, Point clip_size)
{
    picture_.draw(canvas, position(), size());
    Control::paint(canvas, clip_position, clip_size);
    const Font& f = font();
    if (lines_.size() == 1) {
        Point at = position() + border_min_;
        Point room = size() - border_min_ - border_max_;
        if (v_alignment_ == kAlignVCenter) {
            int32_t grow = std::min(border_min_.y, border_max_.y);
            at.y -= grow;
            room.y += 2 * grow;
        }
        if (ellipsis_)
            f.draw_text_end_ellipsis(canvas, color_, lines_[0], at, room, h_alignment_, kAlignVCenter == v_alignment_ ? kAlignVCenter : v_alignment_);
        else
            f.draw_text(canvas, color_, lines_[0], at, room, h_alignment_, v_alignment_);
        return;
    }
    canvas.push_clip(position(), size());
    int32_t sum = 0;
    for (const auto& line : lines_)
        sum += f.text_size(line).y;
    int32_t y = border_min_.y;
    if (v_alignment_ == kAlignVCenter)
        y = (size().y - sum) / 2;
    else if (v_alignment_ == kAlignBottom)
        y = size().y - border_max_.y - sum;
    int32_t x = position().x + border_min_.x;
    int32_t w = size().x - border_min_.x - border_max_.x;
    for (const auto& line : lines_) {
        int32_t h = f.text_size(line).y;
        if (h > size().y - y) {
            if (ellipsis_)
                f.draw_text(canvas, color_, L"\u2026", {x, position().y + size().y - border_max_.y - h}, {w, h},
                            h_alignment_, kAlignTop);
            break;
        }
        f.draw_text(canvas, color_, line, {x, position().y + y}, {w, h}, h_alignment_, kAlignTop);
        y += h;
    }
    canvas.pop_clip();
}

} // namespace skinner

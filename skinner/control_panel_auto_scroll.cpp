#include "skinner/control_panel_auto_scroll.h"

#include "skinner/canvas.h"

#include <algorithm>

namespace skinner {

// A bar that tells its panel instead of its listener.
class ControlPanelAutoScroll::Bar : public ControlScrollBar {
public:
    Bar(Container* container, const std::wstring& kind, ControlPanelAutoScroll& panel)
        : ControlScrollBar(container, kind, kind.empty() ? kNoSkin : kByKind), panel_(panel)
    {
    }
    void on_position_changed() override { panel_.on_bar_scrolled(); }

private:
    ControlPanelAutoScroll& panel_;
};

ControlPanelAutoScroll::ControlPanelAutoScroll(Container* container, const std::wstring& name, Source source)
    : ControlPanel(container, name, source)
{
    read_auto_scroll_properties();
    const std::wstring vkind = source == kNoSkin ? std::wstring() : get_string(L"KindScroll", L"");
    const std::wstring hkind = source == kNoSkin ? std::wstring() : get_string(L"KindHScroll", L"");
    vbar_ = std::make_unique<Bar>(container, vkind, *this);
    hbar_ = std::make_unique<Bar>(container, hkind, *this);
    content_ = inner().design_size();
    layout_content();
}

ControlPanelAutoScroll::~ControlPanelAutoScroll()
{
    vbar_.reset();
    hbar_.reset();
}

ControlScrollBar& ControlPanelAutoScroll::vertical_bar()
{
    return *vbar_;
}

ControlScrollBar& ControlPanelAutoScroll::horizontal_bar()
{
    return *hbar_;
}

void ControlPanelAutoScroll::read_auto_scroll_properties()
{
    if (source() == kNoSkin)
        return;
    scroll_width_ = get_scaled_integer(L"ScrollWidth", 0);
    scroll_height_ = get_scaled_integer(L"ScrollHeight", 0);
    border_min_ = get_point(L"BorderMin", {});
    border_max_ = get_point(L"BorderMax", {});
    scroll_border_min_ = get_point(L"ScrollBorderMin", {});
    scroll_border_max_ = get_point(L"ScrollBorderMax", {});
}

void ControlPanelAutoScroll::refresh()
{
    ControlPanel::refresh();
    read_auto_scroll_properties();
    layout_content();
}

void ControlPanelAutoScroll::set_content_size(Point size)
{
    content_ = size;
    layout_content();
}

void ControlPanelAutoScroll::set_rect(Point position, Point size)
{
    ControlPanel::set_rect(position, size);
    if (vbar_)
        layout_content();
}

Point ControlPanelAutoScroll::scroll_offset() const
{
    return {hbar_->own_visible() ? hbar_->position_value() : 0, vbar_->own_visible() ? vbar_->position_value() : 0};
}

void ControlPanelAutoScroll::layout_content()
{
    if (!vbar_ || !hbar_)
        return;
    Point at = position() + border_min_;
    Point inner = size() - border_min_ - border_max_;
    bool vertical = false, horizontal = false;
    auto add_vertical = [&] {
        vertical = true;
        inner.x -= scroll_width_ + scroll_border_min_.x + scroll_border_max_.x;
    };
    if (content_.y > inner.y)
        add_vertical();
    if (content_.x > inner.x) {
        horizontal = true;
        inner.y -= scroll_height_ + scroll_border_min_.y + scroll_border_max_.y;
    }
    if (!vertical && content_.y > inner.y)
        add_vertical();
    inner.x = std::max(0, inner.x);
    inner.y = std::max(0, inner.y);
    view_position_ = at;
    view_size_ = inner;

    vbar_->set_visible(vertical);
    hbar_->set_visible(horizontal);
    vbar_->set_rect({at.x + inner.x + scroll_border_min_.x, at.y}, {scroll_width_, inner.y});
    hbar_->set_rect({at.x, at.y + inner.y + scroll_border_min_.y}, {inner.x, scroll_height_});
    // The bars' units are pixels of the content.
    vbar_->set_line(std::max(1, inner.y / 10));
    hbar_->set_line(std::max(1, inner.x / 10));
    vbar_->set_range(0, std::max(0, content_.y));
    vbar_->set_page(inner.y);
    hbar_->set_range(0, std::max(0, content_.x));
    hbar_->set_page(inner.x);
    on_bar_scrolled();
}

void ControlPanelAutoScroll::on_bar_scrolled()
{
    Point offset = scroll_offset();
    inner().set_rect(view_position_ - offset, {std::max(view_size_.x, content_.x), std::max(view_size_.y, content_.y)});
    invalidate();
    on_scroll(this);
}

bool ControlPanelAutoScroll::hit_test(Point point) const
{
    return point.x >= view_position_.x && point.y >= view_position_.y &&
           point.x < view_position_.x + view_size_.x && point.y < view_position_.y + view_size_.y &&
           ControlPanel::hit_test(point);
}

void ControlPanelAutoScroll::paint(Canvas& canvas, Point clip_position, Point clip_size)
{
    canvas.push_clip(view_position_, view_size_);
    ControlPanel::paint(canvas, clip_position, clip_size);
    canvas.pop_clip();
}

} // namespace skinner

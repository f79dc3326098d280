#pragma once

#include "skinner/control_scroll_bar.h"

#include <memory>

// A panel whose content may be larger than the panel: scroll bars of the
// kinds "KindScroll" (vertical) and "KindHScroll" (horizontal) appear when
// the content's size (the design size of the panel's template, or what the
// caller sets) needs them, and move the content under a clip. The bars stand
// beside the panel in the same container. Threads: the user-interface thread
// only. Points are form pixels.

namespace skinner {

class ControlPanelAutoScroll : public ControlPanel {
public:
    ControlPanelAutoScroll(Container* container, const std::wstring& name, Source source = kByName);
    ~ControlPanelAutoScroll() override;

    // The size of what scrolls; lays out again.
    void set_content_size(Point size);
    Point content_size() const { return content_; }
    // The part of the panel that shows content.
    Point view_position() const { return view_position_; }
    Point view_size() const { return view_size_; }
    ControlScrollBar& vertical_bar();
    ControlScrollBar& horizontal_bar();
    Point scroll_offset() const;

    void set_rect(Point position, Point size) override;
    void paint(Canvas& canvas, Point clip_position, Point clip_size) override;
    bool hit_test(Point point) const override;
    void refresh() override;

private:
    class Bar;
    void read_auto_scroll_properties();
    void layout_content();
    void on_bar_scrolled();

    int scroll_width_ = 0;
    int scroll_height_ = 0;
    Point border_min_, border_max_, scroll_border_min_, scroll_border_max_;
    Point content_;
    Point view_position_, view_size_;
    std::unique_ptr<Bar> vbar_;
    std::unique_ptr<Bar> hbar_;
};

} // namespace skinner

#pragma once

#include "liba/timer.h"
#include "skinner/control_button.h"
#include "skinner/control_panel.h"

// A scroll bar: a panel of five buttons made of kinds (two arrows, two page
// areas and the handle) over a range of integers with a page. Arrows and
// page areas act on press and repeat while held; dragging the handle sets
// the position. With the focus, the arrow keys of its axis step a line,
// Page Up and Page Down a page, Home and End go to the ends. Threads: the user-interface thread only. Points are form
// pixels; min, max, page and line are the caller's units.

namespace skinner {

class ControlScrollBar : public ControlPanel {
public:
    enum Role { kMinArrow = 0, kMaxArrow, kMinSpace, kMaxSpace, kTrack };

    // A button that repeats its press while held: "Repeat" is its interval
    // in milliseconds (0: no repeat); six intervals pass before the first.
    class Button : public ControlButton, liba::Timer::Listener {
    public:
        Button(Container* container, const std::wstring& kind, ControlScrollBar& bar, Role role);
        void on_left_down(Point point, int flags) override;
        void on_left_up(Point point, int flags) override;
        void on_mouse_move(Point point, int flags) override;
        // The form's timers still reach the button as any control's do.
        using ControlButton::on_timer;
        void on_timer(liba::Timer& timer) override;
        void refresh() override;
        int repeat_ms() const { return repeat_ms_; }
        Role role() const { return role_; }

    private:
        ControlScrollBar& bar_;
        Role role_;
        int repeat_ms_ = 0;
        int counter_ = 0;
        int grab_ = 0; // pointer offset inside the handle, along the axis
        liba::Timer timer_;
    };

    ControlScrollBar(Container* container, const std::wstring& name, Source source = kByName);
    ~ControlScrollBar() override;

    void set_range(int min, int max);
    void set_page(int page);
    void set_position(int value);
    int position_value() const { return position_; }
    int min() const { return min_; }
    int max() const { return max_; }
    int page() const { return page_; }
    int line() const { return line_; }
    void set_line(int line) { line_ = line; }
    bool vertical() const { return vertical_; }

    // Tells the listener's on_scroll.
    virtual void on_position_changed();

    void set_rect(Point position, Point size) override;
    void refresh() override;
    bool on_keydown(int key) override;

    Button& button(Role role) { return *buttons_[role]; }
    // The handle's area between the arrows, along the axis: start and length.
    void track_area(int& start, int& length) const;

private:
    friend class Button;
    void read_scroll_properties();
    // Clamps and stores; unless `silent`, tells of a change; lays out.
    void set(int position, bool silent);
    void layout_buttons();
    void on_button_pressed(Role role);
    void on_track_dragged(int pointer_along, int grab);

    bool vertical_ = false;
    int min_button_ = 0;
    int max_button_ = 0;
    int min_ = 0;
    int max_ = 0;
    int page_ = 0;
    int position_ = 0;
    int line_ = 1;
    std::unique_ptr<Button> buttons_[5];
};

} // namespace skinner

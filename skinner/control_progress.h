#pragma once

#include "skinner/control.h"

// A progress bar that can be dragged: a background, a filled part and a
// handle at the moving end, filling from one of four sides. The value is a
// fraction from 0 to 1. Threads: the user-interface thread only. Points are
// form pixels; the track size is scaled.

namespace skinner {

class ControlProgressBase : public Control {
public:
    // Orientation: the side the fill grows from.
    enum Orientation { kFromTop = 0, kFromRight = 1, kFromBottom = 2, kFromLeft = 3 };

    ControlProgressBase(Container* container, const std::wstring& name, Source source = kByName);

    // Clamps to 0..1; an equal value does nothing.
    void set_position(double position);
    // The fraction of `value` between `low` and `high`; 0 for an empty range.
    void set_range(double low, double high, double value);
    double value() const { return position_; }

    // The listener hears on_range_changed with the dragged value.
    virtual void on_position_dragged(double position);
    // The listener hears on_value_changed.
    virtual void on_position_set();
    // The value under a form point, clamped to 0..1.
    virtual double position_at(Point point) const;

    // The filled rectangle for the fraction `p`.
    void fill_rect(double p, Point& at, Point& fill) const;

    void on_left_down(Point point, int flags) override;
    void on_mouse_move(Point point, int flags) override;
    void on_left_up(Point point, int flags) override;
    void refresh() override;

    int orientation() const { return orientation_; }
    int track_size() const { return track_size_; }

protected:
    Picture background_;
    Picture track_;
    Picture track_disabled_;
    Picture progress_;
    int orientation_ = kFromLeft;
    int track_size_ = 0;

private:
    void read_progress_properties();
    double position_ = 0;
    bool dragging_ = false;
};

class ControlProgress : public ControlProgressBase {
public:
    using ControlProgressBase::ControlProgressBase;
    void paint(Canvas& canvas, Point clip_position, Point clip_size) override;
};

} // namespace skinner

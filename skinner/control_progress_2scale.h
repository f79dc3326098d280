#pragma once

#include "skinner/control_progress.h"

// A meter on two scales: the level fills the bar, and past a mark (a
// threshold) the fill changes to a second picture, with a line at the mark,
// so a glance tells whether the level is above it. Skin properties beyond a
// progress bar's: "ProgressOver" (the fill past the mark; default
// "Progress") and the colour "Mark". Threads: the user-interface thread
// only. The level and the mark are fractions 0..1; points are form pixels.
namespace skinner {

class ControlProgress2Scale : public ControlProgress {
public:
    ControlProgress2Scale(Container* container, const std::wstring& name, Source source = kByName);
    // Clamps to 0..1; an equal value does nothing.
    void set_mark(double mark);
    double mark() const { return mark_; }

    void paint(Canvas& canvas, Point clip_position, Point clip_size) override;
    void refresh() override;

private:
    void read_scale_properties();
    // The first row or column past the fill for the fraction `p`.
    Point fill_end(double p) const;

    Picture progress_over_;
    Color mark_color_{0xe4, 0x57, 0x2e, 0xff};
    double mark_ = 0.0;
};

} // namespace skinner

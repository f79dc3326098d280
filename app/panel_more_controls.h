#pragma once

#include "app/panel_view.h"
#include "skinner/control_button.h"
#include "skinner/control_progress.h"

// The panel of further controls: the playback speed bar and the pitch lock.
// The bar runs from half to double speed, and a drag close to normal speed
// stays at normal speed; while recording it is disabled. (The dynamic
// processors' three choices wait for a combo box control.)
// Threads: the main thread only. Speeds are factors, the bar 0..1.
class PanelMoreControls : public PanelView {
public:
    PanelMoreControls(skinner::Container* container, Document& document);

    int on_click(skinner::Control* control, int user_data) override;
    int on_range_changed(skinner::Control* control, double value) override;
    void on_document_changed(const ChangeFlags& changes) override;

    // The speed of a bar position, snapped to 1.0 near it, and back.
    static double speed_of(double position);
    static double position_of(double speed);

    const skinner::ControlProgress& speed_bar() const { return speed_; }
    const skinner::ControlCheckBox& pitch_check() const { return pitch_; }

private:
    skinner::ControlProgress speed_;
    skinner::ControlCheckBox pitch_;
};

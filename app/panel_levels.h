#pragma once

#include "app/panel_view.h"
#include "skinner/control_button.h"
#include "skinner/control_progress.h"
#include "skinner/control_progress_2scale.h"

// The levels panel: voice activation, input and output, each a slider with
// a left and a right meter, a switch and a lamp. "chkVAS" and "chkInput"
// checked mean off; the output has no switch. Threads: the main thread
// only. Levels, the threshold, the input gain and the volume are 0..1.
class PanelLevels : public PanelView {
public:
    PanelLevels(skinner::Container* container, Document& document);

    int on_click(skinner::Control* control, int user_data) override;
    int on_range_changed(skinner::Control* control, double value) override;
    void on_document_changed(const ChangeFlags& changes) override;

    // "pbInput" keeps the gain that bypasses the control when dragged near it.
    static double snapped_input(double value);

    // For tests: what the panel shows.
    const skinner::ControlProgress& vas_bar() const { return vas_; }
    const skinner::ControlProgress& input_bar() const { return input_; }
    const skinner::ControlProgress& output_bar() const { return output_; }
    const skinner::ControlProgress2Scale& vas_meter(int channel) const { return channel ? vas_right_ : vas_left_; }
    const skinner::ControlProgress& input_meter(int channel) const { return channel ? input_right_ : input_left_; }
    const skinner::ControlProgress& output_meter(int channel) const { return channel ? output_right_ : output_left_; }
    const skinner::ControlCheckBox& vas_check() const { return vas_check_; }
    const skinner::ControlCheckBox& input_check() const { return input_check_; }
    const skinner::ControlCheckBox& output_check() const { return output_check_; }
    const skinner::ControlCheckBox& vas_lamp() const { return vas_lamp_; }
    const skinner::ControlCheckBox& input_lamp() const { return input_lamp_; }

private:
    void show_levels();
    void show_switches();

    skinner::ControlCheckBox vas_check_;
    skinner::ControlCheckBox vas_lamp_;
    skinner::ControlProgress vas_;
    skinner::ControlProgress2Scale vas_left_;
    skinner::ControlProgress2Scale vas_right_;
    skinner::ControlCheckBox input_check_;
    skinner::ControlCheckBox input_lamp_;
    skinner::ControlProgress input_;
    skinner::ControlProgress input_left_;
    skinner::ControlProgress input_right_;
    skinner::ControlCheckBox output_check_;
    skinner::ControlCheckBox output_lamp_;
    skinner::ControlProgress output_;
    skinner::ControlProgress output_left_;
    skinner::ControlProgress output_right_;
};

#pragma once

#include "app/panel_view.h"
#include "skinner/control_button.h"
#include "skinner/control_equalizer.h"

#include <array>

// The equaliser panel: the response of the three bands with a handle for
// each active one, and a switch per band. A change takes a copy of the
// settings, reads the handles back into the bands (a band is active while
// it has a handle), applies the copy and has the Document rebuild its
// equalisers. The settings keep a band's full width; the handles half of it.
// Threads: the main thread only. Hz, dB and octaves.
class PanelEqualizer : public PanelView {
public:
    // The response is drawn as the bands sound at this rate.
    static constexpr int kDrawingRate = 44100;
    // A band stored with no width would do nothing: its handle starts this wide.
    static constexpr double kDefaultWidth = 1.0;

    PanelEqualizer(skinner::Container* container, Document& document);

    int on_click(skinner::Control* control, int user_data) override;
    int on_value_changed(skinner::Control* control) override;
    void on_document_changed(const ChangeFlags& changes) override;

    // The gain in dB that one band gives at `hz`, from the coefficients the
    // play path would filter with at kDrawingRate.
    static double band_response(const skinner::ControlEqualizer::Band& band, double hz);

    const skinner::ControlEqualizer& equalizer() const { return equalizer_; }
    const skinner::ControlCheckBox& band_check(int index) const { return checks_[index]; }

private:
    // The three bands of the settings, in order (const or not as they are).
    template <class S> static auto bands_of(S& settings)
    {
        return std::array{&settings.equalizer1, &settings.equalizer2, &settings.equalizer3};
    }
    void show_bands();
    void add_handle(int index);
    void apply();

    skinner::ControlEqualizer equalizer_;
    std::array<skinner::ControlCheckBox, 3> checks_;
};

#include "app/panel_equalizer.h"

#include "audio/equalizer_pcm.h"

PanelEqualizer::PanelEqualizer(skinner::Container* container, Document& document)
    : PanelView(container, L"PanelEqualizer", document), equalizer_(&inner(), L"Equalizer"),
      checks_{skinner::ControlCheckBox(&inner(), L"chkEq1"), skinner::ControlCheckBox(&inner(), L"chkEq2"),
              skinner::ControlCheckBox(&inner(), L"chkEq3")}
{
    equalizer_.set_response(band_response);
    show_bands();
}

double PanelEqualizer::band_response(const skinner::ControlEqualizer::Band& band, double hz)
{
    audio::EqualizerPCM::Coefficients c;
    if (!audio::EqualizerPCM::design(band.frequency, band.half_width * 2.0, band.gain, kDrawingRate, c))
        return 0.0;
    return audio::EqualizerPCM::response_db(c, hz, kDrawingRate);
}

void PanelEqualizer::show_bands()
{
    const auto bands = bands_of(document_.settings());
    for (int i = 0; i < 3; ++i) {
        checks_[i].set_checked(bands[i]->active);
        if (bands[i]->active)
            add_handle(i);
        else
            equalizer_.remove_band(i);
    }
}

void PanelEqualizer::add_handle(int index)
{
    const EqualizerSettings& stored = *bands_of(document_.settings())[index];
    skinner::ControlEqualizer::Band band;
    band.frequency = stored.frequency;
    band.gain = stored.amplitude;
    band.half_width = (stored.width > 0.0 ? stored.width : kDefaultWidth) / 2.0;
    equalizer_.add_band(index, band);
}

int PanelEqualizer::on_click(skinner::Control* control, int user_data)
{
    for (int i = 0; i < 3; ++i) {
        if (control != &checks_[i])
            continue;
        if (checks_[i].is_checked())
            add_handle(i);
        else
            equalizer_.remove_band(i);
        apply();
        return 1;
    }
    return PanelView::on_click(control, user_data);
}

int PanelEqualizer::on_value_changed(skinner::Control* control)
{
    if (control != &equalizer_)
        return PanelView::on_value_changed(control);
    apply();
    return 1;
}

void PanelEqualizer::apply()
{
    Settings copy = document_.settings();
    const auto bands = bands_of(copy);
    for (int i = 0; i < 3; ++i) {
        const skinner::ControlEqualizer::Band* handle = equalizer_.band(i);
        bands[i]->active = handle != nullptr;
        if (!handle)
            continue;
        bands[i]->frequency = handle->frequency;
        bands[i]->amplitude = handle->gain;
        bands[i]->width = handle->half_width * 2.0;
    }
    document_.apply_settings(copy);
    document_.rebuild_equalizers();
    changed();
}

void PanelEqualizer::on_document_changed(const ChangeFlags& changes)
{
    // Only a full refresh: the panel's own changes come back as `state`,
    // and the handles already show them.
    if (changes.general)
        show_bands();
}

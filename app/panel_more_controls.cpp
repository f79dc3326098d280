#include "app/panel_more_controls.h"

PanelMoreControls::PanelMoreControls(skinner::Container* container, Document& document)
    : PanelView(container, L"PanelMoreControls", document), speed_(&inner(), L"pbPlaybackSpeed"),
      pitch_(&inner(), L"chkTone")
{
    on_document_changed(ChangeFlags::all());
}

double PanelMoreControls::speed_of(double position)
{
    const double speed = position * 1.5 + 0.5;
    return speed > 0.95 && speed < 1.05 ? 1.0 : speed;
}

double PanelMoreControls::position_of(double speed)
{
    return (speed - 0.5) * 2.0 / 3.0;
}

int PanelMoreControls::on_click(skinner::Control* control, int user_data)
{
    if (control != &pitch_)
        return PanelView::on_click(control, user_data);
    document_.set_speed(document_.speed(), pitch_.is_checked());
    changed();
    return 1;
}

int PanelMoreControls::on_range_changed(skinner::Control* control, double value)
{
    if (control != &speed_)
        return PanelView::on_range_changed(control, value);
    document_.set_speed(speed_of(value), document_.pitch_lock());
    changed();
    return 1;
}

void PanelMoreControls::on_document_changed(const ChangeFlags& changes)
{
    if (!changes.state)
        return;
    speed_.set_position(position_of(document_.speed()));
    speed_.set_enabled(!document_.is_recording());
    pitch_.set_checked(document_.pitch_lock());
}

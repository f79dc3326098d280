#include "app/panel_levels.h"

#include <algorithm>

PanelLevels::PanelLevels(skinner::Container* container, Document& document)
    : PanelView(container, L"PanelLevels", document), vas_check_(&inner(), L"chkVAS"),
      vas_lamp_(&inner(), L"chkVASInd"), vas_(&inner(), L"pbVAS"), vas_left_(&inner(), L"pbVASLeft"),
      vas_right_(&inner(), L"pbVASRight"), input_check_(&inner(), L"chkInput"), input_lamp_(&inner(), L"chkInputInd"),
      input_(&inner(), L"pbInput"), input_left_(&inner(), L"pbInputLeft"), input_right_(&inner(), L"pbInputRight"),
      output_check_(&inner(), L"chkOutput"), output_lamp_(&inner(), L"chkOutputInd"), output_(&inner(), L"pbOutput"),
      output_left_(&inner(), L"pbOutputLeft"), output_right_(&inner(), L"pbOutputRight")
{
    // The output has no switch of its own: its box and lamp stay dark.
    output_check_.set_checked(false);
    output_check_.set_enabled(false);
    for (skinner::ControlCheckBox* lamp : {&vas_lamp_, &input_lamp_, &output_lamp_})
        lamp->set_enabled(false);
    on_document_changed(ChangeFlags::all());
}

double PanelLevels::snapped_input(double value)
{
    return value > 0.45 && value < 0.55 ? 0.5 : value;
}

int PanelLevels::on_click(skinner::Control* control, int user_data)
{
    // A checked box is a switch turned off.
    if (control == &vas_check_)
        document_.set_vas_on(!vas_check_.is_checked());
    else if (control == &input_check_)
        document_.set_monitor(!input_check_.is_checked());
    else
        return PanelView::on_click(control, user_data);
    changed();
    return 1;
}

int PanelLevels::on_range_changed(skinner::Control* control, double value)
{
    ChangeFlags changes;
    if (control == &vas_) {
        document_.set_vas_level(value);
    } else if (control == &input_) {
        document_.set_input(snapped_input(value));
    } else if (control == &output_) {
        document_.set_volume(std::clamp(value, 0.0, 1.0));
        changes.volume = true;
    } else {
        return PanelView::on_range_changed(control, value);
    }
    changed(changes);
    return 1;
}

void PanelLevels::on_document_changed(const ChangeFlags& changes)
{
    if (changes.state)
        show_switches();
    if (changes.position || changes.state)
        show_levels();
    if (changes.volume)
        output_.set_position(document_.volume());
}

void PanelLevels::show_switches()
{
    const Settings& s = document_.settings();
    vas_check_.set_checked(!s.vas_on);
    input_check_.set_checked(!s.monitor);
    vas_lamp_.set_checked(s.vas_on);
    input_lamp_.set_checked(s.monitor);
    vas_.set_enabled(s.vas_on);
}

void PanelLevels::show_levels()
{
    const Settings& s = document_.settings();
    vas_.set_position(s.vas);
    input_.set_position(s.input);
    // Both channels show the one level the Document measures.
    const double vas = s.vas_on && s.monitor ? document_.vas_level() : 0.0;
    const double in = document_.input_level();
    const double out = document_.output_level();
    for (skinner::ControlProgress2Scale* m : {&vas_left_, &vas_right_}) {
        m->set_mark(s.vas);
        m->set_position(vas);
    }
    for (skinner::ControlProgress* m : {&input_left_, &input_right_})
        m->set_position(in);
    for (skinner::ControlProgress* m : {&output_left_, &output_right_})
        m->set_position(out);
}

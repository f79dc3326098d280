#include "skinner/listener.h"

namespace skinner {

int Listener::on_click(Control*, int) { return 0; }
int Listener::on_cell_click(Control*, const CellEvent&) { return 0; }
int Listener::on_cell_context(Control*, const CellEvent&) { return 0; }
int Listener::on_inplace_end(Control*, const EditEvent&) { return 0; }
int Listener::on_scroll(Control*) { return 0; }
int Listener::on_command(const std::wstring&) { return 0; }
int Listener::on_range_changed(Control*, double) { return 0; }
int Listener::on_value_changed(Control*) { return 0; }
int Listener::on_text_changed(Control*) { return 0; }
int Listener::on_header_click(Control*, const HeaderEvent&) { return 0; }
int Listener::on_header_context(Control*, const HeaderEvent&) { return 0; }
int Listener::on_selection_changed(Control*) { return 0; }
int Listener::on_highlight_changed(Control*) { return 0; }
int Listener::on_focus_request() { return 0; }
int Listener::on_collect_menu(MenuEntries*) { return 0; }
int Listener::on_open(Control*) { return 0; }

int ForwardingListener::on_click(Control* control, int user_data)
{
    Listener* up = upward();
    return up ? up->on_click(control, user_data) : 0;
}

int ForwardingListener::on_cell_click(Control* control, const CellEvent& event)
{
    Listener* up = upward();
    return up ? up->on_cell_click(control, event) : 0;
}

int ForwardingListener::on_cell_context(Control* control, const CellEvent& event)
{
    Listener* up = upward();
    return up ? up->on_cell_context(control, event) : 0;
}

int ForwardingListener::on_inplace_end(Control* control, const EditEvent& event)
{
    Listener* up = upward();
    return up ? up->on_inplace_end(control, event) : 0;
}

int ForwardingListener::on_scroll(Control* control)
{
    Listener* up = upward();
    return up ? up->on_scroll(control) : 0;
}

int ForwardingListener::on_command(const std::wstring& name)
{
    Listener* up = upward();
    return up ? up->on_command(name) : 0;
}

int ForwardingListener::on_range_changed(Control* control, double value)
{
    Listener* up = upward();
    return up ? up->on_range_changed(control, value) : 0;
}

int ForwardingListener::on_value_changed(Control* control)
{
    Listener* up = upward();
    return up ? up->on_value_changed(control) : 0;
}

int ForwardingListener::on_text_changed(Control* control)
{
    Listener* up = upward();
    return up ? up->on_text_changed(control) : 0;
}

int ForwardingListener::on_header_click(Control* control, const HeaderEvent& event)
{
    Listener* up = upward();
    return up ? up->on_header_click(control, event) : 0;
}

int ForwardingListener::on_header_context(Control* control, const HeaderEvent& event)
{
    Listener* up = upward();
    return up ? up->on_header_context(control, event) : 0;
}

int ForwardingListener::on_selection_changed(Control* control)
{
    Listener* up = upward();
    return up ? up->on_selection_changed(control) : 0;
}

int ForwardingListener::on_highlight_changed(Control* control)
{
    Listener* up = upward();
    return up ? up->on_highlight_changed(control) : 0;
}

int ForwardingListener::on_focus_request()
{
    Listener* up = upward();
    return up ? up->on_focus_request() : 0;
}

int ForwardingListener::on_collect_menu(MenuEntries* menu)
{
    Listener* up = upward();
    return up ? up->on_collect_menu(menu) : 0;
}

int ForwardingListener::on_open(Control* control)
{
    Listener* up = upward();
    return up ? up->on_open(control) : 0;
}

} // namespace skinner

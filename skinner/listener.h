#pragma once

#include "skinner/color.h"

#include <string>

// What a control tells of: each operation passes from a control to its
// container and from there to the container's listener, until a form or a
// panel overrides it. Every default does nothing and answers 0.
// Threads: the user-interface thread only. Points are form pixels.
namespace skinner {

class Control;

// A tap on a grid cell: column, row, the point within the cell, the point on
// the form and the pointer flags.
struct CellEvent {
    int column = 0;
    int row = 0;
    Point in_cell;
    Point point;
    int flags = 0;
};

// The end of an in-place edit of a grid cell.
struct EditEvent {
    int column = 0;
    int row = 0;
    bool commit = false;
};

// A tap on a grid header.
struct HeaderEvent {
    int column = 0;
    Point point;
    int flags = 0;
};

// The menu entries a form gathers; filled by the menu layer.
struct MenuEntries;

class Listener {
public:
    virtual ~Listener() = default;

    virtual int on_click(Control* control, int user_data);
    virtual int on_cell_click(Control* control, const CellEvent& event);
    virtual int on_cell_context(Control* control, const CellEvent& event);
    virtual int on_inplace_end(Control* control, const EditEvent& event);
    virtual int on_scroll(Control* control);
    virtual int on_command(const std::wstring& name);
    virtual int on_range_changed(Control* control, double value);
    virtual int on_value_changed(Control* control);
    virtual int on_text_changed(Control* control);
    virtual int on_header_click(Control* control, const HeaderEvent& event);
    virtual int on_header_context(Control* control, const HeaderEvent& event);
    virtual int on_selection_changed(Control* control);
    virtual int on_highlight_changed(Control* control);
    virtual int on_focus_request();
    virtual int on_collect_menu(MenuEntries* menu);
    virtual int on_open(Control* control);
};

// Forwards every operation to another listener (null: stops here). The
// common base of controls and containers.
class ForwardingListener : public Listener {
public:
    int on_click(Control* control, int user_data) override;
    int on_cell_click(Control* control, const CellEvent& event) override;
    int on_cell_context(Control* control, const CellEvent& event) override;
    int on_inplace_end(Control* control, const EditEvent& event) override;
    int on_scroll(Control* control) override;
    int on_command(const std::wstring& name) override;
    int on_range_changed(Control* control, double value) override;
    int on_value_changed(Control* control) override;
    int on_text_changed(Control* control) override;
    int on_header_click(Control* control, const HeaderEvent& event) override;
    int on_header_context(Control* control, const HeaderEvent& event) override;
    int on_selection_changed(Control* control) override;
    int on_highlight_changed(Control* control) override;
    int on_focus_request() override;
    int on_collect_menu(MenuEntries* menu) override;
    int on_open(Control* control) override;

protected:
    // Where the operations go; null stops them.
    virtual Listener* upward() const = 0;
};

} // namespace skinner

#pragma once

#include "skinner/control.h"
#include "skinner/form_combo.h"
#include "skinner/menu_item.h"

#include <functional>
#include <memory>

// A menu-bar sub-menu dropped down as a form of its own ("SubMenu" of the
// skin: Background, Highlight, font and colours Normal, Highlighted,
// Disabled, Separator, ItemHeight): one row per entry, the pressed row
// highlighted, disabled entries grey. Releasing on an enabled entry closes
// the drop-down and then sends the entry's command to its receiver; a
// disabled entry sends nothing. By keys: Up and Down move the highlight over
// the enabled entries, Enter or Space runs the lit one, Escape closes, Left
// and Right ask for the neighbouring sub-menu. Threads: the user-interface
// thread only.
// Points: `bottom_left` is the owner's form pixels where the drop-down's
// lower left corner stands (it opens upward, out of the bar below).
namespace skinner {

class MenuDropDown : public FormCombo {
public:
    MenuDropDown(Form* owner, Properties& properties, const MenuRecord& menu, Point bottom_left);
    ~MenuDropDown() override;

    const MenuRecord& menu() const { return menu_; }
    // The row at a point of the drop-down, -1 for none.
    int row_at(Point point) const;
    int row_height() const { return row_height_; }
    // The lit row, -1 for none; lighting a disabled or missing row lights none.
    int highlighted() const;
    void set_highlighted(int row);
    // The next enabled row from `row` (-1: from the edge) in direction
    // `step`, round the end; -1 when none is enabled.
    int next_enabled(int row, int step) const;
    // Left (-1) and Right (+1) go to whoever opened the drop-down.
    void set_neighbour_handler(std::function<void(int step)> handler) { neighbour_ = std::move(handler); }
    bool on_keydown(int key) override;

private:
    class Rows;
    friend class Rows;
    void choose(int row);

    MenuRecord menu_;
    int row_height_;
    std::unique_ptr<Rows> rows_;
    std::function<void(int)> neighbour_;
};

} // namespace skinner

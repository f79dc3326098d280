#pragma once

#include "skinner/control.h"
#include "skinner/form_combo.h"
#include "skinner/menu_item.h"

#include <memory>

// A menu-bar sub-menu dropped down as a form of its own ("SubMenu" of the
// skin: Background, Highlight, font and colours Normal, Highlighted,
// Disabled, Separator, ItemHeight): one row per entry, the pressed row
// highlighted, disabled entries grey. Releasing on an enabled entry closes
// the drop-down and then sends the entry's command to its receiver; a
// disabled entry sends nothing. Threads: the user-interface thread only.
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

private:
    class Rows;
    friend class Rows;
    void choose(int row);

    MenuRecord menu_;
    int row_height_;
    std::unique_ptr<Rows> rows_;
};

} // namespace skinner

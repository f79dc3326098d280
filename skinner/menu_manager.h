#pragma once

#include "liba/nocopy.h"
#include "skinner/font.h"
#include "skinner/menu_item.h"
#include "skinner/screen.h"

#include <memory>
#include <vector>

// The menu bar of a form with a main menu, drawn in the strip below the
// screen with the skin's "MenuBar" look (Background, Item, ItemPressed, font
// Normal, colours Normal and Disabled): its entries left to right in order.
// A tap on a command entry sends its command; on a sub-menu entry it drops
// the sub-menu down above the bar; F10 drops the first sub-menu down, and
// closes it again; Left and Right in a drop-down go to the neighbouring
// sub-menu. While another form runs modally the bar takes nothing.
// Disabled entries are grey and send nothing. Threads: the user-interface
// thread only. The manager borrows the screen, the skin and the form, and
// owns the drop-down it opened.
namespace skinner {

class Form;
class MenuDropDown;
class Properties;

class MenuManagerImpl : public ScreenStrip, liba::Nocopy {
public:
    MenuManagerImpl(Screen& screen, Properties& properties, Form& form);
    ~MenuManagerImpl() override;

    // The bar's height in window pixels for `properties` at its scale.
    static int bar_height(Properties& properties);
    // Reads the entries afresh and repaints the bar.
    void rebuild();
    // Reads the bar's look again after the skin was reloaded at a new scale
    // (its height follows the zoom).
    void reload();
    // The bar's entries as laid out: strip pixels.
    struct Entry {
        MenuRecord record;
        bool submenu = false;
        int x = 0;
        int width = 0;
    };
    const std::vector<Entry>& entries() const { return entries_; }
    MenuDropDown* drop_down() const { return drop_.get(); }

    int strip_height() const override;
    void paint_strip(Canvas& canvas, Point position, Point size) override;
    void strip_pointer_down(Point point) override;
    void strip_pointer_up(Point point) override;
    bool strip_key(SDL_Keycode key) override;

private:
    void read_look();
    int entry_at(Point point) const;
    // `by_key`: the drop-down lights its first enabled entry.
    void open(int index, bool by_key = false);
    // The next enabled sub-menu from the open one in direction `step`.
    void open_neighbour(int step);
    // Another form runs modally above this one: the bar waits.
    bool blocked() const;

    Screen& screen_;
    Properties& properties_;
    Form& form_;
    Picture background_, item_, item_pressed_;
    Font font_;
    Color normal_, disabled_;
    int height_ = 0;
    std::vector<Entry> entries_;
    int pressed_ = -1;
    std::unique_ptr<MenuDropDown> drop_;
    std::unique_ptr<MenuDropDown> retired_;
    int open_index_ = -1; // the entry whose drop-down is open
};

} // namespace skinner

#pragma once

#include "skinner/control.h"
#include "skinner/menu_item.h"

// The skin's menu-bar entries: a command button ("MenuButton") and a
// sub-menu ("MenuSubMenu") whose entries the form supplies through
// on_collect_menu when it opens. Each is a control of no size placed by the
// skin; it lists itself with the form's ControlMenuMain while it is visible,
// and sends its commands up its listener chain. Skin properties: "Text" (a
// translation key), "Icon" (a picture), "Order" (an integer, lowest first).
// Threads: the user-interface thread only.
namespace skinner {

class ControlMenuMain;

class MenuMainEntry : public Control, public MenuItem {
public:
    MenuMainEntry(Container* container, const std::wstring& id);
    ~MenuMainEntry() override;

    MenuRecord describe() const override;
    std::wstring name() const override { return id(); }
    int order() const override { return order_; }
    void on_show(bool visible) override;
    void on_enable(bool enabled) override;
    void refresh() override;
    // A label of the owner's in place of the skin's, kept across a change of
    // skin; an empty one gives the skin's back. The bar hears of it.
    void set_text(const std::wstring& text);
    const std::wstring& text() const { return text_; }

private:
    ControlMenuMain* menu() const;
    void read_skin();

    std::wstring text_;
    std::wstring own_text_;
    Picture icon_;
    int order_ = 0;
    bool listed_ = false;
};

class MenuMainButton : public MenuMainEntry {
public:
    using MenuMainEntry::MenuMainEntry;
    bool is_submenu() const override { return false; }
};

class MenuMainSubMenu : public MenuMainEntry {
public:
    using MenuMainEntry::MenuMainEntry;
    bool is_submenu() const override { return true; }
    // The form's entries for this sub-menu, asked for afresh each time.
    MenuRecord describe() const override;
};

} // namespace skinner

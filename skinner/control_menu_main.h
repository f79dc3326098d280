#pragma once

#include "skinner/control.h"
#include "skinner/menu_item.h"

#include <functional>
#include <vector>

// The form's main menu as a control: it registers with its form so that a
// form knows it has one, and keeps the form's menu-bar entries in order. The
// bar itself is drawn by the menu manager, which hears of each change.
// Threads: the user-interface thread only. Items are not owned: each removes
// itself before it goes.
namespace skinner {

class ControlMenuMain : public Control {
public:
    explicit ControlMenuMain(Container* container, const std::wstring& id = L"MenuMain");
    ~ControlMenuMain() override;

    // Each is followed by the change handler (the bar's rebuild).
    void add_item(MenuItem* item);
    void remove_item(MenuItem* item);
    // Sorted by order; equal orders keep the order they were added in.
    const std::vector<MenuItem*>& items() const { return items_; }
    void set_change_handler(std::function<void()> handler) { on_change_ = std::move(handler); }
    void changed();

private:
    void sort();

    std::vector<MenuItem*> items_;
    std::function<void()> on_change_;
};

} // namespace skinner

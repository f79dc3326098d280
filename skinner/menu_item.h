#pragma once

#include "skinner/picture.h"

#include <string>
#include <vector>

// What a menu-bar entry shows and sends. Threads: the user-interface thread
// only. The receiver is not owned: it is the entry's control, which lives as
// long as the entry is listed.
namespace skinner {

class Listener;

struct MenuRecord {
    std::wstring id;             // the command sent through on_command
    Listener* receiver = nullptr;
    std::wstring text;           // shown as it is: no "&" mnemonics
    bool enabled = true;
    bool separator = false;      // a separator follows the entry
    Picture icon;                // empty: none
    std::vector<MenuRecord> sub_items;
};

// A sub-menu's entries, gathered from the form when it opens: `menu` names
// the sub-menu asked for; the form appends to `items`.
struct MenuEntries {
    std::wstring menu;
    std::vector<MenuRecord> items;
};

// An entry of a form's menu bar, listed by the bar in order of `order`.
class MenuItem {
public:
    virtual ~MenuItem() = default;
    virtual MenuRecord describe() const = 0;
    virtual bool is_submenu() const = 0;
    virtual std::wstring name() const = 0;
    virtual int order() const = 0;
};

// The label without its "&" mnemonic marks.
std::wstring strip_mnemonics(const std::wstring& text);

} // namespace skinner

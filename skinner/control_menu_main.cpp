#include "skinner/control_menu_main.h"

#include "skinner/form.h"

#include <algorithm>

namespace skinner {

std::wstring strip_mnemonics(const std::wstring& text)
{
    std::wstring out;
    for (wchar_t c : text)
        if (c != L'&')
            out += c;
    return out;
}

ControlMenuMain::ControlMenuMain(Container* container, const std::wstring& id) : Control(container, id, kNoSkin)
{
    set_want_focus(false);
    set_visible(false);
    if (Form* f = form())
        f->register_menu_main(this);
}

ControlMenuMain::~ControlMenuMain()
{
    if (Form* f = form())
        f->unregister_menu_main(this);
}

void ControlMenuMain::add_item(MenuItem* item)
{
    if (std::find(items_.begin(), items_.end(), item) != items_.end())
        return;
    items_.push_back(item);
    sort();
    changed();
}

void ControlMenuMain::remove_item(MenuItem* item)
{
    auto it = std::find(items_.begin(), items_.end(), item);
    if (it == items_.end())
        return;
    items_.erase(it);
    changed();
}

void ControlMenuMain::changed()
{
    if (on_change_)
        on_change_();
}

void ControlMenuMain::sort()
{
    std::stable_sort(items_.begin(), items_.end(), [](MenuItem* a, MenuItem* b) { return a->order() < b->order(); });
}

} // namespace skinner

#include "skinner/menu_main_items.h"

#include "skinner/control_menu_main.h"
#include "skinner/form.h"

namespace skinner {

MenuMainEntry::MenuMainEntry(Container* container, const std::wstring& id) : Control(container, id)
{
    set_want_focus(false);
    read_skin();
    on_show(own_visible());
}

MenuMainEntry::~MenuMainEntry() { on_show(false); }

ControlMenuMain* MenuMainEntry::menu() const
{
    Form* f = form();
    return f ? f->main_menu() : nullptr;
}

void MenuMainEntry::read_skin()
{
    text_ = strip_mnemonics(own_text_.empty() ? get_translated(L"Text", id()) : own_text_);
    icon_ = get_picture(L"Icon", Picture());
    order_ = get_integer(L"Order", 0);
}

MenuRecord MenuMainEntry::describe() const
{
    MenuRecord r;
    r.id = id();
    r.receiver = const_cast<MenuMainEntry*>(this);
    r.text = text_;
    r.enabled = own_enabled();
    r.icon = icon_;
    return r;
}

void MenuMainEntry::on_show(bool)
{
    // The entry's own switch counts: a form not yet shown still has its bar.
    bool want = own_visible();
    ControlMenuMain* m = menu();
    if (!m || want == listed_)
        return;
    listed_ = want;
    if (want)
        m->add_item(this);
    else
        m->remove_item(this);
}

void MenuMainEntry::on_enable(bool)
{
    if (ControlMenuMain* m = menu(); m && listed_)
        m->changed();
}

void MenuMainEntry::refresh()
{
    Control::refresh();
    read_skin();
    if (ControlMenuMain* m = menu(); m && listed_)
        m->changed();
}

void MenuMainEntry::set_text(const std::wstring& text)
{
    own_text_ = text;
    read_skin();
    if (ControlMenuMain* m = menu(); m && listed_)
        m->changed();
}

MenuRecord MenuMainSubMenu::describe() const
{
    MenuRecord r = MenuMainEntry::describe();
    MenuEntries entries;
    entries.menu = id();
    const_cast<MenuMainSubMenu*>(this)->on_collect_menu(&entries);
    for (MenuRecord& e : entries.items)
        e.text = strip_mnemonics(e.text);
    r.sub_items = std::move(entries.items);
    return r;
}

} // namespace skinner

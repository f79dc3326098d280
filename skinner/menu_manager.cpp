#include "skinner/menu_manager.h"

#include "os/log.h"
#include "skinner/control_menu_main.h"
#include "skinner/form.h"
#include "skinner/menu_drop_down.h"
#include "skinner/properties.h"

namespace skinner {

namespace {

const wchar_t kLook[] = L"MenuBar";

} // namespace

MenuManagerImpl::MenuManagerImpl(Screen& screen, Properties& properties, Form& form)
    : screen_(screen), properties_(properties), form_(form), font_(properties.scale())
{
    read_look();
    if (ControlMenuMain* menu = form_.main_menu())
        menu->set_change_handler([this] { rebuild(); });
    rebuild();
    screen_.set_strip(this);
}

void MenuManagerImpl::read_look()
{
    height_ = bar_height(properties_);
    background_ = properties_.get_form_picture(kLook, L"Background", Picture());
    item_ = properties_.get_form_picture(kLook, L"Item", Picture());
    item_pressed_ = properties_.get_form_picture(kLook, L"ItemPressed", item_);
    font_ = properties_.get_form_font(kLook, L"Normal", Font(properties_.scale()));
    normal_ = properties_.get_form_color(kLook, L"Normal", Color());
    disabled_ = properties_.get_form_color(kLook, L"Disabled", normal_);
}

void MenuManagerImpl::reload()
{
    read_look();
    rebuild();
    // Handing the strip over again fits the window to its new height.
    screen_.set_strip(this);
}

MenuManagerImpl::~MenuManagerImpl()
{
    drop_.reset();
    retired_.reset();
    screen_.set_strip(nullptr);
    if (ControlMenuMain* menu = form_.main_menu())
        menu->set_change_handler({});
}

int MenuManagerImpl::bar_height(Properties& properties)
{
    return properties.get_form_point(kLook, L"Size", {0, 26 * properties.scale()}).y;
}

int MenuManagerImpl::strip_height() const { return height_; }

void MenuManagerImpl::rebuild()
{
    entries_.clear();
    ControlMenuMain* menu = form_.main_menu();
    int x = 0;
    int pad = height_ / 3;
    for (MenuItem* item : menu ? menu->items() : std::vector<MenuItem*>{}) {
        Entry e{item->describe(), item->is_submenu(), x, 0};
        e.width = font_.text_size(e.record.text).x + 2 * pad;
        x += e.width;
        entries_.push_back(std::move(e));
    }
    screen_.present_strip();
}

void MenuManagerImpl::paint_strip(Canvas& canvas, Point position, Point size)
{
    background_.draw(canvas, position, size);
    for (int i = 0; i < int(entries_.size()); ++i) {
        const Entry& e = entries_[size_t(i)];
        bool pressed = i == pressed_ && e.record.enabled;
        Point at = position + Point{e.x, 0};
        (pressed ? item_pressed_ : item_).draw(canvas, at, {e.width, size.y});
        font_.draw_text(canvas, e.record.enabled ? normal_ : disabled_, e.record.text, at, {e.width, size.y},
                        kAlignCenter, kAlignVCenter);
    }
}

int MenuManagerImpl::entry_at(Point point) const
{
    if (point.y < 0 || point.y >= height_)
        return -1;
    for (int i = 0; i < int(entries_.size()); ++i)
        if (point.x >= entries_[size_t(i)].x && point.x < entries_[size_t(i)].x + entries_[size_t(i)].width)
            return i;
    return -1;
}

void MenuManagerImpl::strip_pointer_down(Point point)
{
    if (blocked())
        return;
    pressed_ = entry_at(point);
    screen_.present_strip();
}

void MenuManagerImpl::strip_pointer_up(Point point)
{
    int at = entry_at(point);
    int was = pressed_;
    pressed_ = -1;
    screen_.present_strip();
    if (at >= 0 && at == was)
        open(at);
}

bool MenuManagerImpl::blocked() const
{
    Form* modal = Form::current_modal();
    return modal && modal != &form_;
}

bool MenuManagerImpl::strip_key(SDL_Keycode key)
{
    if (key != SDLK_F10 || blocked())
        return false;
    if (drop_ && drop_->is_visible()) {
        drop_->close();
        return true;
    }
    for (int i = 0; i < int(entries_.size()); ++i)
        if (entries_[size_t(i)].submenu) {
            open(i, true);
            break;
        }
    return true;
}

void MenuManagerImpl::open_neighbour(int step)
{
    const int n = int(entries_.size());
    for (int i = open_index_ + step; i >= 0 && i < n; i += step) {
        const Entry& e = entries_[size_t(i)];
        if (e.submenu && e.record.enabled) {
            open(i, true);
            return;
        }
    }
}

void MenuManagerImpl::open(int index, bool by_key)
{
    // The entry may have changed since the bar was drawn.
    rebuild();
    if (index >= int(entries_.size()))
        return;
    const Entry& e = entries_[size_t(index)];
    if (!e.record.enabled)
        return;
    os::log() << "menu bar: " << e.record.id << "\n";
    if (!e.submenu) {
        if (e.record.receiver)
            e.record.receiver->on_command(e.record.id);
        return;
    }
    // A drop-down may ask for its neighbour from its own key handler: it
    // stays alive, hidden, until the next one is replaced.
    if (drop_)
        drop_->show(false);
    retired_ = std::move(drop_);
    Point bottom_left{e.x - form_.screen_position().x, screen_.size().y - form_.screen_position().y};
    drop_ = std::make_unique<MenuDropDown>(&form_, properties_, e.record, bottom_left);
    open_index_ = index;
    drop_->set_neighbour_handler([this](int step) { open_neighbour(step); });
    if (by_key)
        drop_->set_highlighted(drop_->next_enabled(-1, 1));
}

} // namespace skinner

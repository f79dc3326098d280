#include "skinner/control.h"

#include "skinner/container.h"
#include "skinner/form.h"
#include "skinner/properties.h"

#include <SDL.h>

namespace skinner {

namespace {

const wchar_t* const kAnchorNames[] = {L"MIN_SIDE", L"BOTH_SIDE", L"MAX_SIDE", L"RATIO", L"CENTER"};
const std::wstring kNoForm;

} // namespace

bool is_modifier_down(int key)
{
    SDL_Keymod mod = SDL_GetModState();
    switch (key) {
    case kKeyShift: return (mod & KMOD_SHIFT) != 0;
    case kKeyControl: return (mod & KMOD_CTRL) != 0;
    case kKeyAlt: return (mod & KMOD_ALT) != 0;
    default: return false;
    }
}

Anchor anchor_from_name(const std::wstring& name)
{
    for (int i = 0; i < 5; ++i)
        if (name == kAnchorNames[i])
            return static_cast<Anchor>(i);
    return MIN_SIDE;
}

Control::Control(Container* container, const std::wstring& name, Source source)
    : source_(source), container_(container)
{
    if (source == kByKind)
        kind_ = name;
    else
        id_ = name;
    read_base_properties();
    container_->register_control(this);
}

Control::~Control()
{
    container_->unregister(this);
}

int Control::scale() const { return container_->properties().scale(); }

Form* Control::form() const
{
    Form* f = container_->form();
    return Form::is_live(f) ? f : nullptr;
}

Listener* Control::upward() const { return container_; }

const std::wstring& Control::lookup_form() const
{
    return source_ == kByKind ? kNoForm : container_->name();
}

void Control::read_base_properties()
{
    if (source_ == kNoSkin)
        return;
    // Before registration the container must not hear of focus or painting.
    bool registered = false;
    for (Control* c : container_->children())
        registered = registered || c == this;
    cursor_ = container_->properties().get_cursor(lookup_form(), lookup_name(), L"Cursor", cursor_);
    anchor_x_ = anchor_from_name(get_string(L"AnchorX", kAnchorNames[anchor_x_]));
    anchor_y_ = anchor_from_name(get_string(L"AnchorY", kAnchorNames[anchor_y_]));
    focus_picture_ = get_picture(L"Focus", focus_picture_);
    tab_order_ = get_integer(L"TabOrder", tab_order_);
    skin_position_ = get_point(L"Position", skin_position_);
    skin_size_ = get_point(L"Size", skin_size_);
    bool visible = get_integer(L"Visible", visible_) != 0;
    bool enabled = get_integer(L"Enabled", enabled_) != 0;
    gestures_ = get_integer(L"Gestures", gestures_) != 0;
    int z = get_integer(L"ZOrder", z_order_);
    bool want = get_integer(L"WantFocus", want_focus_) != 0;
    if (registered) {
        set_visible(visible);
        set_enabled(enabled);
        if (z != z_order_)
            set_z_order(z);
        set_want_focus(want);
    } else {
        visible_ = visible;
        enabled_ = enabled;
        z_order_ = z;
        want_focus_ = want;
    }
}

void Control::refresh() { read_base_properties(); }

void Control::set_z_order(int value)
{
    z_order_ = value;
    container_->sort_children();
    invalidate();
}

void Control::set_want_focus(bool want)
{
    want_focus_ = want;
    if (!can_focus() && has_focus())
        container_->move_focus(true);
}

void Control::on_focus_gained(int) { invalidate(); }
void Control::on_focus_lost(int) { invalidate(); }

void Control::paint(Canvas& canvas, Point, Point)
{
    if (has_focus())
        focus_picture_.draw(canvas, position_, size_);
}

bool Control::hit_test(Point p) const
{
    return p.x >= position_.x && p.x < position_.x + size_.x && p.y >= position_.y && p.y < position_.y + size_.y;
}

void Control::dispatch_timer(int id, int user_data)
{
    if (id != 0 && id == timer_id_)
        on_timer(id, user_data);
}

void Control::set_rect(Point position, Point size)
{
    if (position == position_ && size == size_)
        return;
    invalidate();
    position_ = position;
    size_ = size;
    invalidate();
}

bool Control::is_visible() const { return visible_ && container_->is_shown(); }
bool Control::is_enabled() const { return enabled_ && container_->is_enabled(); }
bool Control::has_focus() const { return container_->has_focus(this); }

void Control::invalidate()
{
    if (is_visible() && form())
        form()->invalidate(position_, size_);
}

void Control::visibility_changed()
{
    if (form())
        form()->invalidate(position_, size_);
    bool usable = is_visible() && is_enabled();
    if (!usable && has_focus())
        container_->move_focus(true);
    else if (usable && can_focus() && !container_->focused())
        container_->set_focus(this, kFocusByProgram);
}

void Control::set_visible(bool visible)
{
    bool before = is_visible();
    visible_ = visible;
    if (is_visible() == before)
        return;
    on_show(is_visible());
    visibility_changed();
}

void Control::set_enabled(bool enabled)
{
    bool before = is_enabled();
    enabled_ = enabled;
    if (is_enabled() == before)
        return;
    on_enable(is_enabled());
    visibility_changed();
}

void Control::set_focus(int reason)
{
    container_->set_focus(this, reason);
    on_focus_request();
}

void Control::start_timer(double seconds)
{
    stop_timer();
    if (form())
        timer_id_ = form()->set_timer(seconds);
}

void Control::stop_timer()
{
    if (timer_id_ && form())
        form()->kill_timer(timer_id_);
    timer_id_ = 0;
}

const std::wstring& Control::translate(const std::wstring& key) const
{
    return container_->properties().translate(key);
}

const std::wstring& Control::translate(const std::wstring& key, const std::wstring& def) const
{
    return container_->properties().translate(key, def);
}

Color Control::get_color(const std::wstring& key, Color def) const
{
    return container_->properties().get_color(lookup_form(), lookup_name(), key, def);
}

std::wstring Control::get_string(const std::wstring& key, const std::wstring& def) const
{
    return container_->properties().get_string(lookup_form(), lookup_name(), key, def);
}

int Control::get_integer(const std::wstring& key, int def) const
{
    return container_->properties().get_integer(lookup_form(), lookup_name(), key, def);
}

int Control::get_scaled_integer(const std::wstring& key, int def) const
{
    return container_->properties().get_scaled_integer(lookup_form(), lookup_name(), key, def);
}

Point Control::get_point(const std::wstring& key, Point def) const
{
    return container_->properties().get_point(lookup_form(), lookup_name(), key, def);
}

Picture Control::get_picture(const std::wstring& key, const Picture& def) const
{
    return container_->properties().get_picture(lookup_form(), lookup_name(), key, def);
}

Font Control::get_font(const std::wstring& key, const Font& def) const
{
    return container_->properties().get_font(lookup_form(), lookup_name(), key, def);
}

std::wstring Control::get_translated(const std::wstring& key, const std::wstring& def) const
{
    std::wstring raw = get_string(key, L"\x01");
    if (raw == L"\x01")
        return def;
    return translate(raw, raw);
}

} // namespace skinner

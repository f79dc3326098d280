#include "skinner/control_button.h"

#include "os/log.h"
#include "skinner/canvas.h"
#include "skinner/container.h"
#include "skinner/form.h"

namespace skinner {

namespace {

const wchar_t* const kActionNames[] = {
    L"NOTHING", L"CAPTION", L"BORDER_LEFT", L"BORDER_RIGHT", L"BORDER_BOTTOM", L"BORDER_TOP",
    L"CORNER_BOTTOM_LEFT", L"CORNER_BOTTOM_RIGHT", L"CORNER_TOP_LEFT", L"CORNER_TOP_RIGHT", L"BUTTON_CLOSE",
    L"BUTTON_MINIMIZE", L"BUTTON_MAXIMIZE", L"BUTTON_SYSMENU", L"BUTTON_OK", L"BUTTON_CANCEL", L"BUTTON_YES",
    L"BUTTON_NO_MENU",
};

// The caption: the screen's title follows the text; nothing is drawn.
class ControlButtonImplCaption : public ControlButtonImpl {
public:
    explicit ControlButtonImplCaption(ControlButtonBase& button) : ControlButtonImpl(button)
    {
        visible = false;
        can_focus = false;
    }
    void set_text(const std::wstring& text) override
    {
        if (Form* form = button_.form())
            form->set_title(text);
    }
};

// The close button: its click closes the form.
class ControlButtonImplClose : public ControlButtonImpl {
public:
    using ControlButtonImpl::ControlButtonImpl;
    void on_click(int) override
    {
        os::log() << "ControlButtonImplClosePocket WM_CLOSE sent\n";
        if (Form* form = button_.form())
            form->close();
    }
};

} // namespace

ButtonAction action_from_name(const std::wstring& name)
{
    for (int i = 0; i <= BUTTON_NO_MENU; ++i)
        if (name == kActionNames[i])
            return static_cast<ButtonAction>(i);
    return NOTHING;
}

void Looks::read(const Control& c, const std::wstring& prefix, const Looks* base)
{
    // The picture comes from the nearest look of this set; the caption's font
    // and colour may come from the base set's look of the same state.
    auto read_one = [&](Look& look, const std::wstring& state, const Look& picture_def, const Look& text_def) {
        look.picture = c.get_picture(prefix + state, picture_def.picture);
        look.font = c.get_font(prefix + state, text_def.font);
        look.color = c.get_color(prefix + state, text_def.color);
    };
    read_one(normal, L"Normal", base ? base->normal : normal, base ? base->normal : normal);
    read_one(pressed, L"Pressed", normal, normal);
    read_one(highlighted, L"Highlighted", normal, normal);
    read_one(disabled, L"Disabled", normal, base ? base->disabled : normal);
}

ControlButtonBase::ControlButtonBase(Container* container, const std::wstring& name, Source source)
    : Control(container, name, source)
{
    read_button_properties();
}

ControlButtonBase::~ControlButtonBase()
{
    if (Form* f = form()) {
        if (f->default_button() == this)
            f->set_default_button(nullptr);
        if (f->cancel_button() == this)
            f->set_cancel_button(nullptr);
    }
}

void ControlButtonBase::read_button_properties()
{
    if (source() == kNoSkin) {
        choose_impl();
        return;
    }
    border_min_ = get_point(L"BorderMin", border_min_);
    border_max_ = get_point(L"BorderMax", border_min_);
    looks_.read(*this, L"");
    text_ = get_translated(L"Text", text_);
    h_alignment_ = kAlignCenter;
    v_alignment_ = kAlignVCenter;
    parse_h_alignment(get_string(L"HAlignment", L"CENTER"), h_alignment_);
    parse_v_alignment(get_string(L"VAlignment", L"VCENTER"), v_alignment_);
    action_ = action_from_name(get_string(L"Action", L"NOTHING"));
    choose_impl();
}

void ControlButtonBase::choose_impl()
{
    switch (action_) {
    case CAPTION: impl_ = std::make_unique<ControlButtonImplCaption>(*this); break;
    case BUTTON_CLOSE: impl_ = std::make_unique<ControlButtonImplClose>(*this); break;
    default: impl_ = std::make_unique<ControlButtonImpl>(*this); break;
    }
    if (action_ == BUTTON_SYSMENU)
        impl_->visible = impl_->can_focus = false;
    // Without a shell title bar, OK and Cancel are the form's Enter and Escape.
    if (Form* f = form()) {
        if (action_ == BUTTON_OK && !f->default_button())
            f->set_default_button(this);
        if (action_ == BUTTON_CANCEL && !f->cancel_button())
            f->set_cancel_button(this);
    }
    impl_->set_text(text_);
}

void ControlButtonBase::refresh()
{
    Control::refresh();
    read_button_properties();
    invalidate();
}

void ControlButtonBase::set_text(const std::wstring& text)
{
    if (text == text_)
        return;
    text_ = text;
    impl_->set_text(text_);
    invalidate();
}

const Look& ControlButtonBase::current_look() const
{
    const Looks& looks = get_looks();
    if (!is_enabled())
        return looks.disabled;
    if (is_active())
        return looks.pressed;
    if (has_focus())
        return looks.highlighted;
    return looks.normal;
}

void ControlButtonBase::paint(Canvas& canvas, Point clip_position, Point clip_size)
{
    if (!impl_->visible)
        return;
    const Look& look = current_look();
    look.picture.draw(canvas, position(), size());
    Control::paint(canvas, clip_position, clip_size);
    if (text_.empty())
        return;
    const Font& font = look.font.is_empty() && form() ? form()->default_font() : look.font;
    Point at = position() + border_min_;
    Point room = size() - border_min_ - border_max_;
    font.draw_text(canvas, look.color, text_, at, room, h_alignment_, v_alignment_);
}

bool ControlButtonBase::hit_test(Point point) const
{
    if (!impl_->visible || !Control::hit_test(point))
        return false;
    const Picture& picture = current_look().picture;
    return picture.is_empty() || !picture.is_transparent_at(point, position(), size());
}

void ControlButtonBase::on_left_down(Point, int)
{
    pressed_by_pointer_ = true;
    invalidate();
    impl_->on_left_down();
}

void ControlButtonBase::on_mouse_move(Point, int) { impl_->on_mouse_move(); }

void ControlButtonBase::release(bool was_active, Point point, int flags, bool by_pointer)
{
    if (was_active && !is_active() && (!by_pointer || hit_test(point)) && is_enabled())
        on_clicked(flags);
}

void ControlButtonBase::on_left_up(Point point, int flags)
{
    bool was_active = is_active();
    pressed_by_pointer_ = false;
    impl_->on_left_up();
    invalidate();
    release(was_active, point, flags, true);
}

bool ControlButtonBase::on_keydown(int key)
{
    if (key != kActionKey)
        return false;
    pressed_by_key_ = true;
    invalidate();
    return true;
}

bool ControlButtonBase::on_keyup(int key)
{
    if (key != kActionKey)
        return false;
    bool was_active = is_active();
    pressed_by_key_ = false;
    invalidate();
    release(was_active, center(), 0, false);
    return true;
}

void ControlButtonBase::press_by_form(bool pressed)
{
    bool was_active = is_active();
    pressed_by_form_ = pressed;
    invalidate();
    if (!pressed)
        release(was_active, center(), 0, false);
}

void ControlButtonBase::click() { on_clicked(0); }

void ControlButtonBase::on_clicked(int user_data)
{
    impl_->on_click(user_data);
    on_click(this, user_data);
}

void ControlButtonBase::on_focus_gained(int reason)
{
    impl_->on_focus_gained();
    Control::on_focus_gained(reason);
}

void ControlButtonBase::on_focus_lost(int reason)
{
    pressed_by_key_ = false;
    impl_->on_focus_lost();
    Control::on_focus_lost(reason);
}

int ControlButtonBase::on_command(const std::wstring& name)
{
    if (!id().empty() && name == id()) {
        click();
        return 1;
    }
    return Control::on_command(name);
}

ControlButton::ControlButton(Container* container, const std::wstring& name, Source source)
    : ControlButtonBase(container, name, source)
{
}

void ControlButton::refresh()
{
    ControlButtonBase::refresh();
    choose_impl();
}

ControlButtonMultistate::ControlButtonMultistate(Container* container, const std::wstring& name, int states,
                                                 Source source)
    : ControlButton(container, name, source), states_(states > 0 ? states : 1)
{
    if (source != kNoSkin)
        for (size_t i = 0; i < states_.size(); ++i)
            states_[i].read(*this, L"State" + std::to_wstring(i));
}

void ControlButtonMultistate::refresh()
{
    ControlButton::refresh();
    if (source() != kNoSkin)
        for (size_t i = 0; i < states_.size(); ++i)
            states_[i].read(*this, L"State" + std::to_wstring(i));
}

const Looks& ControlButtonMultistate::get_looks() const { return states_[size_t(state_)]; }

void ControlButtonMultistate::set_state(int state)
{
    if (state < 0 || state >= int(states_.size()) || state == state_)
        return;
    state_ = state;
    invalidate();
}

void ControlButtonMultistate::on_clicked(int user_data)
{
    set_state((state_ + 1) % int(states_.size()));
    ControlButton::on_clicked(user_data);
}

ControlCheckBox::ControlCheckBox(Container* container, const std::wstring& name, Source source)
    : ControlButtonBase(container, name, source)
{
    read_check_properties();
}

void ControlCheckBox::read_check_properties()
{
    if (source() == kNoSkin)
        return;
    checked_looks_.read(*this, L"Checked", &ControlButtonBase::get_looks());
    unchecked_text_ = get_translated(L"Text", unchecked_text_);
    checked_text_ = get_translated(L"CheckedText", unchecked_text_);
    checked_ = get_integer(L"Checked", checked_) != 0;
    ControlButtonBase::set_text(checked_ ? checked_text_ : unchecked_text_);
}

void ControlCheckBox::refresh()
{
    ControlButtonBase::refresh();
    read_check_properties();
}

void ControlCheckBox::set_checked(bool checked, int)
{
    if (checked == checked_)
        return;
    checked_ = checked;
    if (checked_text_ != unchecked_text_)
        ControlButtonBase::set_text(checked_ ? checked_text_ : unchecked_text_);
    invalidate();
}

void ControlCheckBox::set_text(const std::wstring& text, bool checked)
{
    (checked ? checked_text_ : unchecked_text_) = text;
    if (checked == checked_)
        ControlButtonBase::set_text(text);
}

void ControlCheckBox::on_clicked(int user_data)
{
    set_checked(!checked_, user_data);
    ControlButtonBase::on_clicked(user_data);
}

} // namespace skinner

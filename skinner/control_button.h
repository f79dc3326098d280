#pragma once

#include "skinner/control.h"

#include <memory>
#include <string>
#include <vector>

// Buttons: the base with its four looks, pointer and key presses and the
// click; the plain button, the multistate button and the check box. The
// "Action" of a button chooses an impl that holds what the platform does
// with it. Threads: the user-interface thread only. Points are form pixels.
namespace skinner {

// One visual state: picture over the whole control, caption font and colour.
struct Look {
    Picture picture;
    Font font;
    Color color;
};

// The four states, read with a prefix: P"Normal", P"Pressed",
// P"Highlighted", P"Disabled"; the last three default to "Normal". Given a
// `base` set, P"Normal" defaults to its normal look, and P"Disabled" takes
// its font and colour from the base's disabled look, so a checked caption
// keeps the box's own font and greys out like the unchecked one.
struct Looks {
    Look normal, pressed, highlighted, disabled;
    void read(const Control& control, const std::wstring& prefix, const Looks* base = nullptr);
};

enum ButtonAction {
    NOTHING = 0, CAPTION, BORDER_LEFT, BORDER_RIGHT, BORDER_BOTTOM, BORDER_TOP, CORNER_BOTTOM_LEFT,
    CORNER_BOTTOM_RIGHT, CORNER_TOP_LEFT, CORNER_TOP_RIGHT, BUTTON_CLOSE, BUTTON_MINIMIZE, BUTTON_MAXIMIZE,
    BUTTON_SYSMENU, BUTTON_OK, BUTTON_CANCEL, BUTTON_YES, BUTTON_NO_MENU,
};
ButtonAction action_from_name(const std::wstring& name);

class ControlButtonBase;

// What a button's action does beyond drawing and clicking. The ordinary one
// does nothing; the caption one titles the screen and isn't drawn; the close
// one closes the form.
class ControlButtonImpl {
public:
    explicit ControlButtonImpl(ControlButtonBase& button) : button_(button) {}
    virtual ~ControlButtonImpl() = default;
    virtual void set_text(const std::wstring&) {}
    virtual void on_focus_gained() {}
    virtual void on_focus_lost() {}
    virtual void on_visible(bool, int) {}
    virtual void on_click(int) {}
    virtual void on_left_down() {}
    virtual void on_mouse_move() {}
    virtual void on_left_up() {}

    bool visible = true;
    bool can_focus = true;

protected:
    ControlButtonBase& button_;
};

class ControlButtonBase : public Control {
public:
    ControlButtonBase(Container* container, const std::wstring& name, Source source = kByName);
    ~ControlButtonBase() override;

    virtual void set_text(const std::wstring& text);
    virtual void on_clicked(int user_data);
    // The set of looks to draw now.
    virtual const Looks& get_looks() const { return looks_; }

    const std::wstring& get_text() const { return text_; }
    // Pressed and released as the form's default or cancel button.
    void press_by_form(bool pressed);
    void click();
    bool is_active() const { return pressed_by_pointer_ || pressed_by_key_ || pressed_by_form_; }
    ButtonAction action() const { return action_; }
    ControlButtonImpl& impl() const { return *impl_; }
    // The look chosen for the present state.
    const Look& current_look() const;

    void paint(Canvas& canvas, Point clip_position, Point clip_size) override;
    bool hit_test(Point point) const override;
    bool can_focus() const override { return want_focus() && impl_->can_focus; }
    void on_left_down(Point point, int flags) override;
    void on_left_up(Point point, int flags) override;
    void on_mouse_move(Point point, int flags) override;
    bool on_keydown(int key) override;
    bool on_keyup(int key) override;
    void on_focus_gained(int reason) override;
    void on_focus_lost(int reason) override;
    int on_command(const std::wstring& name) override;
    void refresh() override;

protected:
    // Chooses the impl for the action (again).
    void choose_impl();

private:
    void read_button_properties();
    void release(bool was_active, Point point, int flags, bool by_pointer);

    Point border_min_;
    Point border_max_;
    Looks looks_;
    std::wstring text_;
    int h_alignment_ = 1;
    int v_alignment_ = 1;
    ButtonAction action_ = NOTHING;
    bool pressed_by_pointer_ = false;
    bool pressed_by_key_ = false;
    bool pressed_by_form_ = false;
    std::unique_ptr<ControlButtonImpl> impl_;
};

class ControlButton : public ControlButtonBase {
public:
    ControlButton(Container* container, const std::wstring& name, Source source = kByName);
    void refresh() override;
};

// A button that steps through `states` looks ("State0Normal", ...) on each click.
class ControlButtonMultistate : public ControlButton {
public:
    ControlButtonMultistate(Container* container, const std::wstring& name, int states, Source source = kByName);
    void set_state(int state);
    int state() const { return state_; }
    const Looks& get_looks() const override;
    void on_clicked(int user_data) override;
    void refresh() override;

private:
    std::vector<Looks> states_;
    int state_ = 0;
};

class ControlCheckBox : public ControlButtonBase {
public:
    ControlCheckBox(Container* container, const std::wstring& name, Source source = kByName);
    virtual void set_checked(bool checked, int user_data = 0);
    // The caption for one of the two states.
    virtual void set_text(const std::wstring& text, bool checked);
    using ControlButtonBase::set_text;
    bool is_checked() const { return checked_; }
    const Looks& get_looks() const override { return checked_ ? checked_looks_ : ControlButtonBase::get_looks(); }
    void on_clicked(int user_data) override;
    void refresh() override;

private:
    void read_check_properties();

    bool checked_ = false;
    Looks checked_looks_;
    std::wstring unchecked_text_;
    std::wstring checked_text_;
};

} // namespace skinner

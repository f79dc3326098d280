#pragma once

#include "skinner/container.h"
#include "skinner/font.h"
#include "skinner/picture.h"
#include "skinner/properties.h"

#include <memory>
#include <string>
#include <vector>

// A top-level surface of the engine: one of the forms stacked on the screen,
// with its own back buffer, its container of controls, a background picture
// and a place on the stack of modal forms. Threads: the user-interface
// thread only. Points are screen pixels (form pixels for its controls).
namespace skinner {

class ControlButtonBase;
class ControlMenuMain;
class FormImpl;

class FormImplHolder : liba::Nocopy {
public:
    FormImplHolder();
    ~FormImplHolder();
    FormImpl& impl() const { return *impl_; }

protected:
    std::unique_ptr<FormImpl> impl_;
};

// A form is a live form of its skin: a change of skin or language refreshes it.
class Form : public FormImplHolder, public Container, public LiveForm {
public:
    // Creates the form hidden, reads it from the skin (fatal when the skin
    // lacks it) and makes its automatic controls.
    Form(Form* parent, Properties& properties, const std::wstring& name, Listener* listener = nullptr);
    ~Form() override;

    virtual void update_position();
    virtual bool can_close() { return true; }
    // Brings the form to the front; `text` is a command line handed over.
    virtual void activate(const std::wstring& text = {});
    virtual void on_picture_failed_to_load(const Picture& picture);

    void refresh() override;
    const Properties* skin_properties() const override { return &properties(); }
    void on_skin_changed() override { refresh(); }
    // The screen's size changed: the listener hears "#ScreenResolution#"
    // (and may load the skin for the new size); the form places itself anew.
    void on_screen_resolution_changed();
    bool on_keydown(int key) override;
    bool on_keyup(int key) override;

    void show(bool visible);
    bool is_visible() const { return visible_; }
    // Runs the event loop until this form (or the innermost one) closes.
    void do_modal();
    // Dispatches what waits and returns.
    void pump();
    // Asks the form to close: hides it when can_close agrees and, if the
    // form runs modally, ends the innermost modal loop.
    void close();
    bool is_modal() const { return modal_; }

    void invalidate(Point position, Point size);
    void invalidate_all();
    // Paints the dirty rectangle into the back buffer; its rectangle, empty
    // when nothing was dirty.
    Rect paint_dirty();

    void register_menu_main(ControlMenuMain* menu);
    void unregister_menu_main(ControlMenuMain* menu);
    ControlMenuMain* main_menu() const { return main_menu_; }

    // A repeating timer of `seconds`; its id (never 0) arrives at on_timer.
    int set_timer(double seconds);
    void kill_timer(int id);
    void message_box(const std::wstring& caption, const std::wstring& text);
    // The screen less nothing: the whole of it.
    void work_area(Point& position, Point& size) const;

    void set_default_button(ControlButtonBase* button) { default_button_ = button; }
    void set_cancel_button(ControlButtonBase* button) { cancel_button_ = button; }
    ControlButtonBase* default_button() const { return default_button_; }
    ControlButtonBase* cancel_button() const { return cancel_button_; }
    // The title the screen shows while this form is on top; a form without
    // one of its own (a drop-down, a dialog) leaves its owner's title up.
    void set_title(const std::wstring& title);
    const std::wstring& title() const { return title_; }

    Form* parent() const { return parent_; }
    const Font& default_font() const { return default_font_; }
    const Picture& background() const { return background_; }
    // Where the form stands on the screen.
    Point screen_position() const { return screen_position_; }
    void set_screen_position(Point p) { screen_position_ = p; }
    bool is_combo() const { return combo_; }

    // All live forms, in order of creation, and the innermost modal one.
    static const std::vector<Form*>& forms();
    static Form* current_modal();
    // Whether `form` is built and not yet going; controls made while their
    // form builds itself must not call it.
    static bool is_live(const Form* form);

protected:
    // For a drop-down: the form is placed by its maker, not by the skin.
    void set_combo(bool combo) { combo_ = combo; }

private:
    void read_form_properties();

    Font default_font_;
    bool first_layout_ = true;
    ControlButtonBase* default_button_ = nullptr;
    ControlButtonBase* cancel_button_ = nullptr;
    bool modal_ = false;
    Form* parent_;
    ControlMenuMain* main_menu_ = nullptr;
    Picture background_;
    int start_x_ = 0;
    int start_y_ = 0;
    bool visible_ = false;
    bool combo_ = false;
    Point screen_position_;
    std::wstring title_;
};

} // namespace skinner

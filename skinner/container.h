#pragma once

#include "skinner/control.h"

#include <memory>
#include <string>
#include <vector>

// Holds controls: lays them out from their skin geometry and anchors, routes
// pointer and key events to them (top of the z order first), keeps the
// focus and the pointer capture, and owns the automatic controls that the
// skin's item list asks for. The base of Form and the inner part of a panel.
// Threads: the user-interface thread only. Points are form pixels.
namespace skinner {

class Properties;

class Container : public ForwardingListener {
public:
    // With kByKind `name` is the kind and the form name stays empty. Reads
    // the design size and makes the automatic controls. `form` may be null
    // only while a Form constructs itself (it passes itself).
    Container(Form* form, Properties& properties, const std::wstring& name, Source source, Listener* listener);
    ~Container() override;

    virtual void set_focus(Control* control, int reason);
    virtual bool has_focus(const Control* control) const { return control && control == focused_; }
    virtual void set_active(bool active);
    virtual void set_rect(Point position, Point size);
    virtual void refresh();
    virtual bool on_text(const std::wstring& text);
    virtual bool on_keydown(int key);
    virtual bool on_keyup(int key);
    virtual void on_timer(int id, int user_data);

    void register_control(Control* control);
    void unregister(Control* control);
    Control* find_control(const std::wstring& id) const;
    // Sorts the children by z order again (stable).
    void sort_children();
    // Lays one control out in the container's present rectangle.
    void layout(Control* control);
    // The design size raised by what children anchored on both sides need.
    Point minimum_size() const;

    void mouse_down(int button, Point point, int flags);
    void mouse_up(int button, Point point, int flags);
    void mouse_move(Point point, int flags);
    void mouse_double(Point point, int flags);
    // A form disabled under a capture: every held button goes up.
    void release_capture();
    void paint(Canvas& canvas, Point clip_position, Point clip_size);
    int cursor_at(Point point) const;
    // The top effectively visible control whose hit test takes the point.
    Control* control_at(Point point) const;

    void set_shown(bool shown);
    void set_enabled(bool enabled);
    bool is_shown() const { return shown_; }
    bool is_enabled() const { return enabled_; }
    // false when the focus wrapped round (or nothing can take it).
    bool move_focus(bool forward);

    Form* form() const { return form_; }
    Properties& properties() const { return properties_; }
    const std::wstring& name() const { return name_; }
    const std::wstring& kind() const { return kind_; }
    Source source() const { return source_; }
    Point position() const { return position_; }
    Point size() const { return size_; }
    Point design_size() const { return design_size_; }
    Control* focused() const { return focused_; }
    Control* capture() const { return capture_; }
    Control* hover() const { return hover_; }
    bool is_active() const { return active_; }
    const std::vector<Control*>& children() const { return children_; }
    size_t auto_control_count() const { return auto_controls_.size(); }
    Listener* listener() const { return listener_; }

protected:
    Listener* upward() const override { return listener_; }
    void read_design_size();
    void create_auto_controls();
    void delete_auto_controls();
    void set_hover(Control* control, Point point);
    void set_form(Form* form) { form_ = form; }

private:
    Point size_;
    Point position_;
    Source source_;
    Properties& properties_;
    std::wstring name_;
    std::wstring kind_;
    Point design_size_;
    Point last_mouse_;
    bool shown_ = true;
    bool enabled_ = true;
    Listener* listener_;
    Form* form_;
    std::vector<Control*> children_;
    std::vector<std::unique_ptr<Control>> auto_controls_;
    Control* focused_ = nullptr;
    bool active_ = false;
    Control* hover_ = nullptr;
    Control* capture_ = nullptr;
    bool button_held_[3] = {false, false, false};
    int button_flags_[3] = {0, 0, 0};
};

// Makes a control of an automatic kind ("Auto.Button", "Auto.Frame",
// "Auto.Picture", "Auto.Panel"), or null for any other kind.
std::unique_ptr<Control> make_auto_control(Container* container, const std::wstring& id, const std::wstring& kind);

} // namespace skinner

#pragma once

#include "liba/nocopy.h"
#include "skinner/color.h"
#include "skinner/font.h"
#include "skinner/listener.h"
#include "skinner/picture.h"

#include <string>

// The base of everything drawn on a form: a rectangle that reads its look
// from the skin, paints itself on the form's canvas and takes pointer, key
// and timer events from its container. Controls are members of their form
// (or owned by their container when the skin makes them); the container
// only points at them. Threads: the user-interface thread only. Positions
// and sizes are form pixels with the skin's scale applied.
namespace skinner {

class Canvas;
class Container;
class Form;

// The engine's key numbers.
enum Key {
    kKeyNone = 0, kKeyShift = 1, kKeyControl = 2, kKeyAlt = 3, kKeyLeft = 4, kKeyRight = 5, kKeyUp = 6,
    kKeyDown = 7, kKeyEscape = 8, kKeyEnter = 9, kKeySpace = 10, kKeyBackspace = 11, kKeyDelete = 12,
    kKeyInsert = 13, kKeyHome = 14, kKeyEnd = 15, kKeyPageDown = 16, kKeyPageUp = 17, kKeyTab = 18,
    kKeyApplications = 19, kKeyA = 20, kKeyZ = 45, kKey0 = 46, kKey9 = 55,
};
// The key that activates a focused control.
inline constexpr int kActionKey = kKeyEnter;
// Whether Shift (1), Control (2) or Alt (3) is held now; false for others.
bool is_modifier_down(int key);

// Where a control reads its properties.
enum Source { kByName = 0, kByKind = 1, kNoSkin = 2 };

enum Anchor { MIN_SIDE = 0, BOTH_SIDE = 1, MAX_SIDE = 2, RATIO = 3, CENTER = 4 };
// The exact names; anything else is MIN_SIDE.
Anchor anchor_from_name(const std::wstring& name);

// Pointer buttons and the flag of a double tap.
enum Button { kLeft = 0, kRight = 1, kMiddle = 2 };
inline constexpr int kDoubleFlag = 1;

// Why focus moved.
enum FocusReason { kFocusByProgram = 0, kFocusByPointer = 1, kFocusByKey = 2 };

class Control : public ForwardingListener, liba::Nocopy {
public:
    // With kByKind `name` is the kind and the id stays empty; otherwise it
    // is the id. Reads the skin and registers in the container.
    Control(Container* container, const std::wstring& name, Source source = kByName);
    ~Control() override;

    virtual void set_z_order(int value);
    virtual void set_want_focus(bool want);
    virtual bool can_focus() const { return want_focus_; }
    virtual void on_focus_gained(int reason);
    virtual void on_focus_lost(int reason);
    virtual void on_show(bool visible) { (void)visible; }
    virtual bool has_gestures() const { return gestures_; }
    virtual void on_enable(bool enabled) { (void)enabled; }
    // `clip` selects what needs drawing; a control may draw more.
    virtual void paint(Canvas& canvas, Point clip_position, Point clip_size);
    virtual int get_cursor() const { return cursor_; }
    virtual bool hit_test(Point point) const;
    virtual void on_mouse_enter(Point) {}
    virtual void on_mouse_move(Point, int) {}
    virtual void on_mouse_leave(Point) {}
    virtual void on_left_down(Point, int) {}
    virtual void on_left_up(Point, int) {}
    virtual void on_right_down(Point, int) {}
    virtual void on_right_up(Point, int) {}
    virtual void on_middle_down(Point, int) {}
    virtual void on_middle_up(Point, int) {}
    virtual void on_mouse_double(Point, int) {}
    // True: consumed. `text` is one character, or several from an input method.
    virtual bool on_text(const std::wstring& text) { (void)text; return false; }
    virtual bool on_keydown(int key) { (void)key; return false; }
    virtual bool on_keyup(int key) { (void)key; return false; }
    virtual void on_timer(int id, int user_data) { (void)id; (void)user_data; }
    virtual void dispatch_timer(int id, int user_data);
    virtual void set_rect(Point position, Point size);
    virtual Point get_skin_size() const { return skin_size_; }
    // Reads every own property again; overrides call the base first.
    virtual void refresh();

    bool is_visible() const;
    bool is_enabled() const;
    bool own_visible() const { return visible_; }
    bool own_enabled() const { return enabled_; }
    void invalidate();
    void set_visible(bool visible);
    void set_enabled(bool enabled);
    void set_focus(int reason = kFocusByProgram);
    bool has_focus() const;
    // Seconds; replaces a running timer of this control.
    void start_timer(double seconds);
    void stop_timer();
    int timer_id() const { return timer_id_; }

    const std::wstring& translate(const std::wstring& key) const;
    const std::wstring& translate(const std::wstring& key, const std::wstring& def) const;

    Color get_color(const std::wstring& key, Color def) const;
    std::wstring get_string(const std::wstring& key, const std::wstring& def) const;
    int get_integer(const std::wstring& key, int def) const;
    int get_scaled_integer(const std::wstring& key, int def) const;
    Point get_point(const std::wstring& key, Point def) const;
    Picture get_picture(const std::wstring& key, const Picture& def) const;
    Font get_font(const std::wstring& key, const Font& def) const;
    // The text of a skin string passed through the translator.
    std::wstring get_translated(const std::wstring& key, const std::wstring& def) const;

    Container* container() const { return container_; }
    Form* form() const;
    const std::wstring& id() const { return id_; }
    const std::wstring& kind() const { return kind_; }
    Source source() const { return source_; }
    int z_order() const { return z_order_; }
    int tab_order() const { return tab_order_; }
    bool want_focus() const { return want_focus_; }
    Anchor anchor_x() const { return anchor_x_; }
    Anchor anchor_y() const { return anchor_y_; }
    Point position() const { return position_; }
    Point size() const { return size_; }
    Point skin_position() const { return skin_position_; }
    Point skin_size() const { return skin_size_; }
    Point center() const { return {position_.x + size_.x / 2, position_.y + size_.y / 2}; }
    int scale() const;

protected:
    Listener* upward() const override;
    // The form's name for lookups, or empty for a control of a kind.
    const std::wstring& lookup_form() const;
    const std::wstring& lookup_name() const { return source_ == kByKind ? kind_ : id_; }

private:
    void read_base_properties();
    void visibility_changed();

    Source source_;
    Container* container_;
    std::wstring id_;
    std::wstring kind_;
    int cursor_ = -1;
    int z_order_ = 0;
    bool visible_ = true;
    bool enabled_ = true;
    bool want_focus_ = true;
    Anchor anchor_x_ = MIN_SIDE;
    Anchor anchor_y_ = MIN_SIDE;
    Point position_;
    Point size_;
    Point skin_position_;
    Point skin_size_;
    Picture focus_picture_;
    int timer_id_ = 0;
    int tab_order_ = 0;
    bool gestures_ = false;
};

} // namespace skinner

#pragma once

#include "skinner/container.h"

// A control that holds controls: an inner container described by the form
// node "FormTemplate", whose listener is the panel, so events pass through
// the panel on their way up and panels nest. Threads: the user-interface
// thread only. Points are form pixels.
namespace skinner {

class ControlPanel : public Control {
public:
    ControlPanel(Container* container, const std::wstring& name, Source source = kByName);
    ~ControlPanel() override;
    Container& inner() { return *inner_; }
    const Container& inner_container() const { return *inner_; }

    void paint(Canvas& canvas, Point clip_position, Point clip_size) override;
    void set_rect(Point position, Point size) override;
    void on_mouse_move(Point point, int flags) override { inner_->mouse_move(point, flags); }
    void on_left_down(Point point, int flags) override { inner_->mouse_down(kLeft, point, flags); }
    void on_left_up(Point point, int flags) override { inner_->mouse_up(kLeft, point, flags); }
    void on_right_down(Point point, int flags) override { inner_->mouse_down(kRight, point, flags); }
    void on_right_up(Point point, int flags) override { inner_->mouse_up(kRight, point, flags); }
    void on_mouse_double(Point point, int flags) override { inner_->mouse_double(point, flags); }
    bool on_text(const std::wstring& text) override { return inner_->on_text(text); }
    bool on_keydown(int key) override;
    bool on_keyup(int key) override { return inner_->on_keyup(key); }
    void dispatch_timer(int id, int user_data) override;
    void on_focus_gained(int reason) override;
    void on_focus_lost(int reason) override;
    void on_show(bool visible) override { inner_->set_shown(visible); }
    void on_enable(bool enabled) override { inner_->set_enabled(enabled); }
    int on_focus_request() override;
    void refresh() override;

private:
    std::wstring template_;
    Picture background_;
    std::unique_ptr<Container> inner_;
};

} // namespace skinner

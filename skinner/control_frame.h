#pragma once

#include "skinner/control.h"

#include <string>
#include <vector>

// A text frame: a background picture and text, one line or broken into
// lines, ellipsised on request. Threads: the user-interface thread only.
// Points are form pixels.
namespace skinner {

class ControlFrame : public Control {
public:
    ControlFrame(Container* container, const std::wstring& name, Source source = kByName);
    void set_text(const std::wstring& text);
    const std::wstring& text() const { return text_; }
    const std::vector<std::wstring>& lines() const { return lines_; }
    virtual void layout_text(const std::wstring& text);
    Point get_skin_size() const override;
    void paint(Canvas& canvas, Point clip_position, Point clip_size) override;
    void set_rect(Point position, Point size) override;
    void refresh() override;

private:
    void read_frame_properties();
    const Font& font() const;

    Point border_min_, border_max_;
    int h_alignment_ = kAlignCenter;
    int v_alignment_ = kAlignVCenter;
    Picture picture_;
    Font font_;
    Color color_;
    std::wstring text_;
    bool wrap_ = false;
    bool auto_size_ = false;
    bool ellipsis_ = false;
    std::wstring separator_ = L"\r\n";
    std::vector<std::wstring> lines_;
    Point content_size_;
};


} // namespace skinner

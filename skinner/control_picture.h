#pragma once

#include "skinner/control_button.h"

// A picture in a control, shrunk to fit and never enlarged, which can be
// tapped like a button. Threads: the user-interface thread only.
namespace skinner {

class ControlPicture : public ControlButton {
public:
    ControlPicture(Container* container, const std::wstring& name, Source source = kByName);
    void set_picture(const Picture& picture);
    const Picture& picture() const { return picture_; }
    // Where the picture is drawn within the control now.
    void placement(Point& position, Point& size) const;
    void paint(Canvas& canvas, Point clip_position, Point clip_size) override;
    bool hit_test(Point point) const override;
    void refresh() override;

private:
    void read_picture_properties();

    int h_alignment_ = kAlignCenter;
    int v_alignment_ = kAlignVCenter;
    Picture picture_;
};

} // namespace skinner

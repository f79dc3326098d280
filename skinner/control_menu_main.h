#pragma once

#include "skinner/control.h"

// The form's main menu as a control: for now a bare control that reads
// nothing and registers with its form, so that a form knows it has one.
// The menu bar itself belongs to the main window. Threads: the
// user-interface thread only.
namespace skinner {

class ControlMenuMain : public Control {
public:
    explicit ControlMenuMain(Container* container);
    ~ControlMenuMain() override;
};

} // namespace skinner

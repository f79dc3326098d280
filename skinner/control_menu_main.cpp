#include "skinner/control_menu_main.h"

#include "skinner/form.h"

namespace skinner {

ControlMenuMain::ControlMenuMain(Container* container) : Control(container, L"MenuMain", kNoSkin)
{
    set_want_focus(false);
    set_visible(false);
    if (Form* f = form())
        f->register_menu_main(this);
}

ControlMenuMain::~ControlMenuMain()
{
    if (Form* f = form())
        f->unregister_menu_main(this);
}

} // namespace skinner

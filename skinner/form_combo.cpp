#include "skinner/form_combo.h"

#include "os/log.h"

namespace skinner {

FormCombo::FormCombo(Form* owner, Properties& properties, const std::wstring& name, Point position, Point size,
                     Listener* listener)
    : Form(owner, properties, name, listener)
{
    set_combo(true);
    set_screen_position((owner ? owner->screen_position() : Point{}) + position);
    set_rect({0, 0}, size);
    os::log() << "FormCombo::FormCombo 2\n";
    show(true);
    set_active(true);
    invalidate_all();
    os::log() << "FormCombo::FormCombo 3\n";
}

bool FormCombo::can_close()
{
    os::log() << "FormCombo::can_close 1\n";
    return true;
}

} // namespace skinner

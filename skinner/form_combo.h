#pragma once

#include "skinner/form.h"

// A drop-down surface over its owner form (a combo box's list): placed by
// its maker at a point of the owner, never by the skin, it takes the
// pointer while shown, and a tap outside it closes it without reaching the
// form beneath. Threads: the user-interface thread only. Points: `position`
// is in the owner's form pixels, `size` in screen pixels.

namespace skinner {

class FormCombo : public Form {
public:
    FormCombo(Form* owner, Properties& properties, const std::wstring& name, Point position, Point size,
              Listener* listener = nullptr);

    // Logs and agrees.
    bool can_close() override;
};

} // namespace skinner

#pragma once

#include "skinner/control_button.h"
#include "skinner/control_frame.h"
#include "skinner/form.h"

#include <string>

// The about box: the skin form "About" with the program's mark, a caption
// ("frmCaption"), the program's name and version ("frmTitle"), the skin's
// own line of text and "btnOk", which closes it (as does Escape).
// Threads: the user-interface thread only. The properties must outlive the
// form; the form owns its controls.
namespace dialogs {

class FormAbout : public skinner::Form {
public:
    // `caption_key` is translated by the skin's language.
    FormAbout(skinner::Form* parent, skinner::Properties& properties, const std::wstring& title,
              const std::wstring& caption_key);
    ~FormAbout() override;

    // Runs modally until OK; without a display it logs and returns at once.
    void run();
    const std::wstring& caption() const { return caption_.text(); }
    const std::wstring& title_text() const { return title_.text(); }

    int on_click(skinner::Control* control, int user_data) override;

private:
    skinner::ControlFrame caption_;
    skinner::ControlFrame title_;
    skinner::ControlButton ok_;
};

} // namespace dialogs

#pragma once

#include "skinner/control_button.h"
#include "skinner/control_frame.h"
#include "skinner/control_menu_main.h"
#include "skinner/form.h"

#include <memory>
#include <string>
#include <vector>

// The stock message form: a caption, a text and the buttons of a skin form
// such as "Message" or "MessageOk"; its result is the id of the button that
// closed it. When the program runs without a display (the switch below),
// message forms log their text and take their default answer at once.
// Threads: the user-interface thread only.

namespace skinner {

// Whether the program's own message forms answer by themselves: set once at
// start-up when the program fell back to the offscreen driver.
void set_message_forms_headless(bool headless);
bool message_forms_headless();

// Makes a plain button for each "Button" of the form's item list whose id
// isn't in `made`, in the list's order. The caller owns them.
std::vector<std::unique_ptr<ControlButton>> make_skin_buttons(Form& form, const std::vector<std::wstring>& made);

class FormMessage : public Form {
public:
    // Shows the caption in "btnCaption" or "frmCaption" and the text in
    // "frmText" or "frmMessage", whichever the skin form has.
    FormMessage(Form* parent, Properties& properties, const std::wstring& form_name, const std::wstring& caption,
                const std::wstring& text);
    ~FormMessage() override;

    // Runs modally, or headless logs and answers at once; the result.
    const std::wstring& run();
    // The id of the button that closed the form; the default button's until then.
    const std::wstring& result() const { return result_; }
    const std::wstring& caption() const { return caption_; }
    const std::wstring& text() const { return text_; }

    int on_click(Control* control, int user_data) override;

private:
    std::wstring caption_;
    std::wstring text_;
    std::wstring result_;
    std::unique_ptr<ControlMenuMain> menu_;
    std::unique_ptr<ControlButton> caption_button_;
    std::unique_ptr<ControlFrame> caption_frame_;
    std::unique_ptr<ControlFrame> text_frame_;
    std::vector<std::unique_ptr<ControlButton>> buttons_;
};

} // namespace skinner

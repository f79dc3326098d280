#pragma once

#include "skinner/control_button.h"
#include "skinner/control_frame.h"
#include "skinner/form.h"

#include <memory>
#include <string>
#include <vector>

// The stock question: a caption, a message and the buttons of a skin form
// ("ConfirmYesNo", "Confirm5Way"). The answer is 0 yes, 1 no, 2 yes to all,
// 3 no to all, 4 cancel; closing by any other means is no. Without a
// display (message_forms_headless) it logs and answers no at once.
// Threads: the user-interface thread only.

namespace skinner {

class ConfirmForm : public Form {
public:
    enum Answer { kYes = 0, kNo = 1, kYesAll = 2, kNoAll = 3, kCancel = 4 };

    ConfirmForm(Form* parent, Properties& properties, const std::wstring& form_name, const std::wstring& caption,
                const std::wstring& message);
    ~ConfirmForm() override;

    // Runs modally (or answers headless); the result.
    int run();
    int result() const { return result_; }

    int on_click(Control* control, int user_data) override;

private:
    ControlFrame message_;
    ControlFrame caption_;
    std::vector<std::unique_ptr<ControlButton>> buttons_;
    int result_ = kNo;
};

} // namespace skinner

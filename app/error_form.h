#pragma once

#include "skinner/form_message.h"

// The one message that interrupts the user: the skin's form "Error", its
// caption in "frmCaption" and its text in "frmMessage", closed by its one
// button. Threads: the user-interface thread only.
class ErrorForm : public skinner::FormMessage {
public:
    ErrorForm(skinner::Form* owner, skinner::Properties& properties, const std::wstring& caption,
              const std::wstring& text)
        : FormMessage(owner, properties, L"Error", caption, text)
    {
    }
};

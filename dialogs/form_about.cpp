#include "dialogs/form_about.h"

#include "os/log.h"
#include "skinner/form_message.h"

namespace dialogs {

FormAbout::FormAbout(skinner::Form* parent, skinner::Properties& properties, const std::wstring& title,
                     const std::wstring& caption_key)
    : Form(parent, properties, L"About"), caption_(this, L"frmCaption"), title_(this, L"frmTitle"),
      ok_(this, L"btnOk")
{
    caption_.set_text(properties.translate(caption_key));
    title_.set_text(title);
    set_title(caption_.text());
    set_cancel_button(&ok_);
    // Only OK takes keys: the mark and the text would swallow Enter.
    for (skinner::Control* c : children())
        if (c != &ok_)
            c->set_want_focus(false);
    ok_.set_focus();
}

FormAbout::~FormAbout() = default;

void FormAbout::run()
{
    if (skinner::message_forms_headless()) {
        os::log() << L"FormAbout: " << caption_.text() << L": " << title_.text() << L"\n";
        return;
    }
    do_modal();
}

int FormAbout::on_click(skinner::Control* control, int user_data)
{
    if (control != &ok_)
        return Form::on_click(control, user_data);
    close();
    return 1;
}

} // namespace dialogs

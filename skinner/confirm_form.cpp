#include "skinner/confirm_form.h"

#include "os/log.h"
#include "skinner/form_message.h"

namespace skinner {

namespace {

struct IdAnswer {
    const wchar_t* id;
    int answer;
};
constexpr IdAnswer kAnswers[] = {
    {L"btnYes", ConfirmForm::kYes},       {L"btnNo", ConfirmForm::kNo},         {L"btnYesAll", ConfirmForm::kYesAll},
    {L"btnNoAll", ConfirmForm::kNoAll}, {L"btnCancel", ConfirmForm::kCancel},
};

} // namespace

ConfirmForm::ConfirmForm(Form* parent, Properties& properties, const std::wstring& form_name,
                         const std::wstring& caption, const std::wstring& message)
    : Form(parent, properties, form_name), message_(this, L"frmMessage"), caption_(this, L"frmCaption")
{
    message_.set_text(message);
    caption_.set_text(caption);
    set_title(caption);
    buttons_ = make_skin_buttons(*this, {L"frmMessage", L"frmCaption"});
    // The buttons may be the skin's own automatic ones: look them up by id.
    auto button = [this](const wchar_t* id) { return dynamic_cast<ControlButtonBase*>(find_control(id)); };
    set_default_button(button(L"btnYes"));
    set_cancel_button(button(L"btnCancel") ? button(L"btnCancel") : button(L"btnNo"));
    update_position();
}

ConfirmForm::~ConfirmForm()
{
    buttons_.clear();
}

int ConfirmForm::run()
{
    if (message_forms_headless()) {
        os::log() << L"ConfirmForm " << name() << L": " << caption_.text() << L": " << message_.text() << L" -> "
                  << static_cast<long long>(result_) << L"\n";
        return result_;
    }
    do_modal();
    return result_;
}

int ConfirmForm::on_click(Control* control, int)
{
    for (const IdAnswer& a : kAnswers) {
        if (control->id() == a.id) {
            result_ = a.answer;
            close();
            return 1;
        }
    }
    return 0;
}

} // namespace skinner

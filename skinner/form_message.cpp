#include "skinner/form_message.h"

#include "os/log.h"
#include "skinner/properties.h"

#include <algorithm>

namespace skinner {

namespace {

bool g_headless = false;

bool has_item(Properties& properties, const std::wstring& form, const std::wstring& id)
{
    int n = properties.item_count(form);
    for (int i = 0; i < n; ++i)
        if (properties.item(form, i).first == id)
            return true;
    return false;
}

} // namespace

void set_message_forms_headless(bool headless) { g_headless = headless; }
bool message_forms_headless() { return g_headless; }

std::vector<std::unique_ptr<ControlButton>> make_skin_buttons(Form& form, const std::vector<std::wstring>& made)
{
    std::vector<std::unique_ptr<ControlButton>> buttons;
    int n = form.properties().item_count(form.name());
    for (int i = 0; i < n; ++i) {
        auto [id, cls] = form.properties().item(form.name(), i);
        if (cls == L"Button" && std::find(made.begin(), made.end(), id) == made.end())
            buttons.push_back(std::make_unique<ControlButton>(&form, id));
    }
    return buttons;
}

FormMessage::FormMessage(Form* parent, Properties& properties, const std::wstring& form_name,
                         const std::wstring& caption, const std::wstring& text)
    : Form(parent, properties, form_name), caption_(caption), text_(text)
{
    const std::wstring& form = name();
    std::vector<std::wstring> made;
    if (has_item(properties, form, L"MenuMain")) {
        menu_ = std::make_unique<ControlMenuMain>(this);
        made.push_back(L"MenuMain");
    }
    if (has_item(properties, form, L"btnCaption")) {
        caption_button_ = std::make_unique<ControlButton>(this, L"btnCaption");
        caption_button_->set_text(caption);
        made.push_back(L"btnCaption");
    } else if (has_item(properties, form, L"frmCaption")) {
        caption_frame_ = std::make_unique<ControlFrame>(this, L"frmCaption");
        caption_frame_->set_text(caption);
        made.push_back(L"frmCaption");
    }
    const wchar_t* text_id = has_item(properties, form, L"frmText") ? L"frmText" : L"frmMessage";
    if (has_item(properties, form, text_id)) {
        text_frame_ = std::make_unique<ControlFrame>(this, text_id);
        text_frame_->set_text(text);
        made.push_back(text_id);
    }
    set_title(caption);
    buttons_ = make_skin_buttons(*this, made);
    // Enter answers with "btnOk", else the first button; Escape with "btnCancel".
    // The buttons may be the skin's own automatic ones: look them up by id.
    auto button = [this](const wchar_t* id) { return dynamic_cast<ControlButtonBase*>(find_control(id)); };
    set_default_button(button(L"btnOk"));
    set_cancel_button(button(L"btnCancel"));
    if (!default_button() && !buttons_.empty())
        set_default_button(buttons_.front().get());
    if (default_button())
        result_ = default_button()->id();
    update_position();
}

FormMessage::~FormMessage()
{
    buttons_.clear();
    text_frame_.reset();
    caption_frame_.reset();
    caption_button_.reset();
    menu_.reset();
}

const std::wstring& FormMessage::run()
{
    if (message_forms_headless()) {
        os::log() << L"FormMessage " << name() << L": " << caption_ << L": " << text_ << L" -> " << result_ << L"\n";
        return result_;
    }
    do_modal();
    return result_;
}

int FormMessage::on_click(Control* control, int)
{
    if (control->id().empty())
        return 0;
    result_ = control->id();
    close();
    return 1;
}

} // namespace skinner

#include "skinner/form_render.h"

#include "skinner/control_button.h"
#include "skinner/control_equalizer.h"
#include "skinner/control_frame.h"
#include "skinner/control_lcd.h"
#include "skinner/control_menu_main.h"
#include "skinner/control_panel.h"
#include "skinner/control_panel_auto_scroll.h"
#include "skinner/control_picture.h"
#include "skinner/control_progress.h"
#include "skinner/control_scroll_bar.h"
#include "skinner/menu_main_items.h"
#include "skinner/properties.h"

namespace skinner {

namespace {

// A control of a class not built yet: its "Normal" picture.
class PlaceholderControl : public Control {
public:
    PlaceholderControl(Container* container, const std::wstring& id) : Control(container, id)
    {
        picture_ = get_picture(L"Normal", picture_);
    }
    void paint(Canvas& canvas, Point clip_position, Point clip_size) override
    {
        picture_.draw(canvas, position(), size());
        Control::paint(canvas, clip_position, clip_size);
    }

private:
    Picture picture_;
};

} // namespace

std::unique_ptr<Control> make_control_by_class(Container* c, const std::wstring& id, const std::wstring& cls)
{
    if (cls.rfind(L"Auto.", 0) == 0)
        return nullptr;
    if (cls == L"Button")
        return std::make_unique<ControlButton>(c, id);
    if (cls == L"CheckBox")
        return std::make_unique<ControlCheckBox>(c, id);
    if (cls == L"Equalizer")
        return std::make_unique<ControlEqualizer>(c, id);
    if (cls == L"Frame")
        return std::make_unique<ControlFrame>(c, id);
    if (cls == L"Picture")
        return std::make_unique<ControlPicture>(c, id);
    if (cls == L"Panel")
        return std::make_unique<ControlPanel>(c, id);
    if (cls == L"PanelAutoScroll")
        return std::make_unique<ControlPanelAutoScroll>(c, id);
    if (cls == L"Progress")
        return std::make_unique<ControlProgress>(c, id);
    if (cls == L"LCD")
        return std::make_unique<ControlLCD>(c, id);
    if (cls == L"ScrollBar")
        return std::make_unique<ControlScrollBar>(c, id);
    if (cls == L"MenuMain")
        return std::make_unique<ControlMenuMain>(c, id);
    if (cls == L"MenuButton")
        return std::make_unique<MenuMainButton>(c, id);
    if (cls == L"MenuSubMenu")
        return std::make_unique<MenuMainSubMenu>(c, id);
    return std::make_unique<PlaceholderControl>(c, id);
}

ClassFactoryForm::ClassFactoryForm(Properties& properties, const std::wstring& name, Form* parent,
                                   Listener* listener)
    : Form(parent, properties, name, listener)
{
    build_items(*this, 0);
    update_position();
    invalidate_all();
}

void ClassFactoryForm::build_items(Container& container, int depth)
{
    // Panels nest through their templates; a skin whose templates name each
    // other in a ring stops here.
    constexpr int kDeepest = 8;
    const std::wstring form = container.name();
    int n = properties().item_count(form);
    for (int i = 0; i < n; ++i) {
        auto [id, cls] = properties().item(form, i);
        if (auto control = make_control_by_class(&container, id, cls))
            controls_.push_back(std::move(control));
    }
    if (depth >= kDeepest)
        return;
    const std::vector<Control*> children = container.children();
    for (Control* child : children) {
        auto* panel = dynamic_cast<ControlPanel*>(child);
        if (panel && panel->inner().source() != kNoSkin && !panel->inner().name().empty())
            build_items(panel->inner(), depth + 1);
    }
}

void ClassFactoryForm::refresh()
{
    destroy_items();
    Form::refresh();
    build_items(*this, 0);
    update_position();
    invalidate_all();
}

void ClassFactoryForm::destroy_items()
{
    // Those inside panels went in last: they go first, while their panels live.
    while (!controls_.empty())
        controls_.pop_back();
}

ClassFactoryForm::~ClassFactoryForm() { destroy_items(); }

std::wstring check_form(Properties& properties, const std::wstring& form)
{
    if (!properties.impl().is_valid())
        return L"not a usable skin: " + properties.impl().load_error();
    if (!properties.impl().choose_form(form))
        return L"the skin has no form \"" + form + L"\" for this screen";
    return {};
}

} // namespace skinner

#include "skinner/control_panel.h"

#include "skinner/properties.h"

namespace skinner {

namespace {

std::wstring template_of(Container* container, const std::wstring& name, Source source)
{
    if (source == kNoSkin)
        return {};
    const std::wstring form = source == kByKind ? std::wstring() : container->name();
    return container->properties().get_string(form, name, L"FormTemplate", L"");
}

} // namespace

ControlPanel::ControlPanel(Container* container, const std::wstring& name, Source source)
    : Control(container, name, source), template_(template_of(container, name, source))
{
    inner_ = std::make_unique<Container>(container->form(), container->properties(), template_,
                                         template_.empty() ? kNoSkin : kByName, this);
    Picture none;
    if (!template_.empty())
        none = container->properties().get_form_picture(template_, L"Background", none);
    background_ = get_picture(L"Background", none);
    inner_->set_rect(position(), size());
    // A panel the skin hides never hears of a change of its visibility, so its
    // controls must learn it here, or they would draw and invalidate unseen.
    inner_->set_shown(is_visible());
}

ControlPanel::~ControlPanel()
{
    inner_.reset();
}

void ControlPanel::refresh()
{
    Control::refresh();
    inner_->refresh();
    inner_->set_rect(position(), size());
    inner_->set_shown(is_visible());
    invalidate();
}

void ControlPanel::set_rect(Point position, Point size)
{
    Control::set_rect(position, size);
    if (inner_)
        inner_->set_rect(position, size);
}

void ControlPanel::paint(Canvas& canvas, Point clip_position, Point clip_size)
{
    background_.draw(canvas, position(), size());
    inner_->paint(canvas, clip_position, clip_size);
    Control::paint(canvas, clip_position, clip_size);
}

bool ControlPanel::on_keydown(int key)
{
    return inner_->on_keydown(key);
}

void ControlPanel::dispatch_timer(int id, int user_data)
{
    Control::dispatch_timer(id, user_data);
    inner_->on_timer(id, user_data);
}

void ControlPanel::on_focus_gained(int reason)
{
    inner_->set_active(true);
    Control::on_focus_gained(reason);
}

void ControlPanel::on_focus_lost(int reason)
{
    inner_->set_active(false);
    Control::on_focus_lost(reason);
}

int ControlPanel::on_focus_request()
{
    // A control inside asked for the focus: the panel takes it in its own container.
    container()->set_focus(this, kFocusByProgram);
    return Control::on_focus_request();
}

} // namespace skinner

#include "skinner/form.h"

#include "liba/fatal.h"
#include "liba/text.h"
#include "os/event_loop.h"
#include "os/log.h"
#include "skinner/control_button.h"
#include "skinner/form_impl.h"
#include "skinner/properties.h"
#include "skinner/screen.h"

#include <SDL.h>

#include <algorithm>

namespace skinner {

namespace {

std::vector<Form*> g_forms;
Form* g_current_modal = nullptr;
// End-of-modal messages not yet taken: each ends the innermost loop.
int g_end_requests = 0;

constexpr const wchar_t* kDefaultFontText = L"14 1 0 0 Tahoma";

// One axis of the placement: start position, minimum m, skin position c,
// work area (w0, ws), parent (p0, ps).
void place_axis(int start, int32_t m, int32_t c, int32_t w0, int32_t ws, int32_t p0, int32_t ps, int32_t& pos,
                int32_t& size)
{
    switch (start) {
    case 1: size = m; pos = w0 + (ws - size) / 2; break;
    case 2: size = m; pos = p0 + (ps - size) / 2; break;
    case 3: size = std::max(m, ws); pos = w0; break;
    case 4: size = m; pos = w0; break;
    case 5: size = m; pos = w0 + ws - size; break;
    default: size = m; pos = c; break;
    }
}

} // namespace

FormImplHolder::FormImplHolder() : impl_(std::make_unique<FormImpl>(nullptr)) {}
FormImplHolder::~FormImplHolder() = default;

Form::Form(Form* parent, Properties& properties, const std::wstring& name, Listener* listener)
    : Container(this, properties, name, kByName, listener), default_font_(properties.scale()), parent_(parent)
{
    impl_->set_form(this);
    default_font_.parse(kDefaultFontText);
    read_form_properties();
    g_forms.push_back(this);
    add_live_form(this);
    update_position();
}

Form::~Form()
{
    remove_live_form(this);
    if (Screen* screen = Screen::instance())
        screen->forget(this);
    g_forms.erase(std::remove(g_forms.begin(), g_forms.end(), this), g_forms.end());
    if (g_current_modal == this)
        g_current_modal = nullptr;
    bool was_visible = visible_;
    visible_ = false;
    if (was_visible)
        if (Screen* screen = Screen::instance())
            screen->present({screen_position_.x, screen_position_.y, size().x, size().y});
}

const std::vector<Form*>& Form::forms() { return g_forms; }
Form* Form::current_modal() { return g_current_modal; }

bool Form::is_live(const Form* form)
{
    return form && std::find(g_forms.begin(), g_forms.end(), form) != g_forms.end();
}

void Form::read_form_properties()
{
    background_ = properties().get_form_picture(name(), L"Background", background_);
    int start = properties().get_form_integer(name(), L"StartPosition", 0);
    start_x_ = properties().get_form_integer(name(), L"StartPositionX", start);
    start_y_ = properties().get_form_integer(name(), L"StartPositionY", start);
}

void Form::refresh()
{
    Container::refresh();
    // The skin's scale may have changed with it.
    default_font_ = Font(properties().scale());
    default_font_.parse(kDefaultFontText);
    read_form_properties();
    update_position();
    invalidate_all();
}

void Form::on_screen_resolution_changed()
{
    if (Listener* l = listener())
        l->on_command(L"#ScreenResolution#");
    update_position();
    invalidate_all();
}

void Form::work_area(Point& position, Point& size) const
{
    position = {0, 0};
    if (Screen* screen = Screen::instance())
        size = screen->size();
    else
        size = properties().impl().screen_size();
    if (size.x == 0 || size.y == 0)
        size = Container::size();
}

void Form::update_position()
{
    if (combo_ || start_x_ == 6 || start_y_ == 6 || design_size().x == 0 || design_size().y == 0)
        return;
    Point m = minimum_size();
    Point c = properties().get_form_point(name(), L"Position", Point{});
    Point wp, ws;
    work_area(wp, ws);
    Point pp = wp, ps = ws;
    if (parent_) {
        pp = parent_->screen_position();
        ps = parent_->size();
    }
    Point pos, size;
    place_axis(start_x_, m.x, c.x, wp.x, ws.x, pp.x, ps.x, pos.x, size.x);
    place_axis(start_y_, m.y, c.y, wp.y, ws.y, pp.y, ps.y, pos.y, size.y);
    bool moved = !(pos == screen_position_);
    screen_position_ = pos;
    if (!(size == Container::size()) || first_layout_) {
        set_rect({0, 0}, size);
        invalidate_all();
    } else if (moved) {
        invalidate_all();
    }
    first_layout_ = false;
}

void Form::activate(const std::wstring&)
{
    show(true);
    invalidate_all();
}

void Form::on_picture_failed_to_load(const Picture&)
{
    message_box(properties().translate(L"on_picture_failed_to_load", L"Out of memory"), L"");
    if (modal_)
        close();
    else if (parent_)
        parent_->on_picture_failed_to_load(Picture());
}

bool Form::on_keydown(int key)
{
    if (Container::on_keydown(key))
        return true;
    ControlButtonBase* target = key == kKeyEscape ? cancel_button_ : key == kKeyEnter ? default_button_ : nullptr;
    if (!target)
        return false;
    target->press_by_form(true);
    return true;
}

bool Form::on_keyup(int key)
{
    if (Container::on_keyup(key))
        return true;
    ControlButtonBase* target = key == kKeyEscape ? cancel_button_ : key == kKeyEnter ? default_button_ : nullptr;
    if (!target)
        return false;
    target->press_by_form(false);
    return true;
}

void Form::show(bool visible)
{
    if (visible == visible_)
        return;
    visible_ = visible;
    if (Screen* screen = Screen::instance()) {
        if (visible)
            screen->forget(nullptr);
        else {
            screen->forget(this);
            screen->present({screen_position_.x, screen_position_.y, size().x, size().y});
        }
        screen->update_title();
    }
    invalidate_all();
}

void Form::do_modal()
{
    Screen* screen = Screen::instance();
    if (!screen)
        liba::fatal(L"Form::do_modal", L"no screen to run a form on");
    Form* previous = g_current_modal;
    g_current_modal = this;
    modal_ = true;
    os::log() << " Form::do_modal: 1\n" << " Form::do_modal: 2\n";
    if (previous) {
        previous->impl().capture_lost();
        previous->release_capture();
    }
    set_active(true);
    os::log() << " Form::do_modal: 3\n";
    show(true);
    // A dialog waits for an answer: a hidden window comes forward for it.
    if ((parent_ || previous) && !screen->window_shown())
        screen->show_window(true);
    screen->update_title();
    screen->loop().run([] {
        if (g_end_requests > 0) {
            --g_end_requests;
            return true;
        }
        return false;
    });
    set_active(false);
    modal_ = false;
    g_current_modal = previous;
    if (previous && std::find(g_forms.begin(), g_forms.end(), previous) == g_forms.end())
        g_current_modal = nullptr;
    screen->update_title();
}

void Form::pump()
{
    if (Screen* screen = Screen::instance()) {
        SDL_Event e;
        while (SDL_PollEvent(&e))
            screen->handle_event(e);
        screen->paint_now();
    }
}

void Form::close()
{
    os::log() << " WM_CLOSE received\n";
    if (!combo_ && !can_close())
        return;
    show(false);
    // Only a form that runs its own loop ends one: a drop-down or a form
    // shown beside others must not end the loop of the modal form below.
    if (!modal_)
        return;
    ++g_end_requests;
    if (Screen* screen = Screen::instance())
        screen->loop().wake();
}

void Form::invalidate(Point position, Point size) { impl_->invalidate(position, size); }
void Form::invalidate_all() { impl_->invalidate_all(); }

Rect Form::paint_dirty() { return impl_->paint(); }

void Form::register_menu_main(ControlMenuMain* menu)
{
    if (main_menu_)
        liba::fatal(L"Form::register_menu_main", L"Menu main is already exists");
    main_menu_ = menu;
}

void Form::unregister_menu_main(ControlMenuMain* menu)
{
    if (menu != main_menu_)
        liba::fatal(L"Form::unregister_menu_main", L"Menus do not match");
    main_menu_ = nullptr;
}

int Form::set_timer(double seconds) { return impl_->set_timer(seconds); }
void Form::kill_timer(int id) { impl_->kill_timer(id); }

void Form::message_box(const std::wstring& caption, const std::wstring& text)
{
    os::log() << caption << L": " << text << L"\n";
    const char* driver = SDL_WasInit(SDL_INIT_VIDEO) ? SDL_GetCurrentVideoDriver() : nullptr;
    if (driver && std::string(driver) != "offscreen" && std::string(driver) != "dummy")
        SDL_ShowSimpleMessageBox(SDL_MESSAGEBOX_INFORMATION, liba::to_utf8(caption).c_str(),
                                 liba::to_utf8(text).c_str(), nullptr);
}

void Form::set_title(const std::wstring& title)
{
    title_ = title;
    if (Screen* screen = Screen::instance())
        screen->update_title();
}

} // namespace skinner

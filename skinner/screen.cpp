#include "skinner/screen.h"

#include "liba/fatal.h"
#include "liba/text.h"
#include "os/event_loop.h"
#include "os/log.h"
#include "skinner/form.h"
#include "skinner/form_impl.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

namespace skinner {

namespace {

Screen* g_screen = nullptr;
bool g_painted = false;

int button_of(Uint8 sdl_button)
{
    switch (sdl_button) {
    case SDL_BUTTON_LEFT: return kLeft;
    case SDL_BUTTON_RIGHT: return kRight;
    case SDL_BUTTON_MIDDLE: return kMiddle;
    default: return -1;
    }
}

} // namespace

int key_from_sdl(SDL_Keycode key)
{
    if (key >= SDLK_a && key <= SDLK_z)
        return kKeyA + int(key - SDLK_a);
    if (key >= SDLK_0 && key <= SDLK_9)
        return kKey0 + int(key - SDLK_0);
    switch (key) {
    case SDLK_LSHIFT: case SDLK_RSHIFT: return kKeyShift;
    case SDLK_LCTRL: case SDLK_RCTRL: return kKeyControl;
    case SDLK_LALT: case SDLK_RALT: return kKeyAlt;
    case SDLK_LEFT: return kKeyLeft;
    case SDLK_RIGHT: return kKeyRight;
    case SDLK_UP: return kKeyUp;
    case SDLK_DOWN: return kKeyDown;
    case SDLK_ESCAPE: return kKeyEscape;
    case SDLK_RETURN: case SDLK_KP_ENTER: return kKeyEnter;
    case SDLK_SPACE: return kKeySpace;
    case SDLK_BACKSPACE: return kKeyBackspace;
    case SDLK_DELETE: return kKeyDelete;
    case SDLK_INSERT: return kKeyInsert;
    case SDLK_HOME: return kKeyHome;
    case SDLK_END: return kKeyEnd;
    case SDLK_PAGEDOWN: return kKeyPageDown;
    case SDLK_PAGEUP: return kKeyPageUp;
    case SDLK_TAB: return kKeyTab;
    case SDLK_APPLICATION: return kKeyApplications;
    default: return kKeyNone;
    }
}

Screen::Screen(os::EventLoop& loop, Point size, const std::wstring& title, int zoom, bool hidden)
    : loop_(loop), size_(size), zoom_(std::clamp(zoom, 1, kMaxZoom))
{
    if (g_screen)
        liba::fatal(L"Screen::Screen", L"a screen exists already");
    // The canvas is software: the window's own framebuffer, no GPU texture.
    SDL_SetHint(SDL_HINT_FRAMEBUFFER_ACCELERATION, "0");
    if (SDL_InitSubSystem(SDL_INIT_VIDEO) != 0)
        liba::fatal(L"Screen::Screen", L"SDL video can't start: " + liba::from_utf8(SDL_GetError()));
    window_ = SDL_CreateWindow(liba::to_utf8(title).c_str(), SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED, size.x,
                               size.y, hidden ? SDL_WINDOW_HIDDEN : 0);
    if (!window_)
        liba::fatal(L"Screen::Screen", L"no window: " + liba::from_utf8(SDL_GetError()));
    surface_ = SDL_GetWindowSurface(window_);
    if (!surface_)
        liba::fatal(L"Screen::Screen", L"no window surface: " + liba::from_utf8(SDL_GetError()));
    SDL_FillRect(surface_, nullptr, 0xFF000000u);
    paint_event_ = SDL_RegisterEvents(1);
    g_screen = this;
    loop_.set_sdl_handler([this](const SDL_Event& e) { handle_event(e); });
}

Screen::~Screen()
{
    loop_.set_sdl_handler({});
    g_screen = nullptr;
    SDL_DestroyWindow(window_);
    SDL_QuitSubSystem(SDL_INIT_VIDEO);
}

Screen* Screen::instance() { return g_screen; }

bool Screen::set_zoom(int zoom)
{
    if (zoom < 1 || zoom > kMaxZoom || zoom == zoom_)
        return false;
    Point native = native_size();
    zoom_ = zoom;
    size_ = {native.x * zoom, native.y * zoom};
    os::log() << "screen: zoom " << zoom << ", " << size_.x << "x" << size_.y << "\n";
    resize_window();
    // A form may close another while it hears of the change.
    std::vector<Form*> snapshot = Form::forms();
    for (Form* form : snapshot)
        if (Form::is_live(form))
            form->on_screen_resolution_changed();
    repaint_all();
    return true;
}

void Screen::resize_window()
{
    SDL_SetWindowSize(window_, size_.x, size_.y + (strip_ ? strip_->strip_height() : 0));
    SDL_SetWindowPosition(window_, SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED);
    surface_ = SDL_GetWindowSurface(window_);
}

void Screen::set_strip(ScreenStrip* strip)
{
    strip_ = strip;
    strip_pointer_ = false;
    resize_window();
    repaint_all();
}

void Screen::present_strip()
{
    if (!strip_ || !surface_)
        return;
    SDL_Rect r{0, size_.y, size_.x, strip_->strip_height()};
    if (r.h < 1 || surface_->h < size_.y + r.h)
        return;
    SDL_FillRect(surface_, &r, 0xFF000000u);
    Canvas canvas(surface_, {0, size_.y}, {r.w, r.h});
    strip_->paint_strip(canvas, {0, size_.y}, {r.w, r.h});
    SDL_UpdateWindowSurfaceRects(window_, &r, 1);
}

void Screen::show_window(bool shown)
{
    if (shown) {
        SDL_ShowWindow(window_);
        SDL_RaiseWindow(window_);
    } else {
        SDL_HideWindow(window_);
    }
}

bool Screen::window_shown() const { return (SDL_GetWindowFlags(window_) & SDL_WINDOW_HIDDEN) == 0; }

void Screen::request_paint()
{
    if (paint_pending_)
        return;
    paint_pending_ = true;
    SDL_Event e{};
    e.type = paint_event_;
    SDL_PushEvent(&e);
}

void Screen::paint_now()
{
    paint_pending_ = false;
    for (Form* form : Form::forms()) {
        if (!form->is_visible())
            continue;
        Rect r = form->paint_dirty();
        if (!r.empty())
            present({r.x + form->screen_position().x, r.y + form->screen_position().y, r.w, r.h});
    }
}

void Screen::repaint_all()
{
    surface_ = SDL_GetWindowSurface(window_);
    if (!surface_)
        return;
    for (Form* form : Form::forms())
        if (form->is_visible())
            form->paint_dirty();
    paint_now();
    present({0, 0, size_.x, size_.y});
    present_strip();
}

void Screen::present(Rect rect)
{
    rect = intersect(rect, {0, 0, size_.x, size_.y});
    if (rect.empty())
        return;
    SDL_Rect whole{rect.x, rect.y, rect.w, rect.h};
    SDL_FillRect(surface_, &whole, 0xFF000000u);
    for (Form* form : Form::forms()) {
        SDL_Surface* buffer = form->impl().back_buffer();
        if (!form->is_visible() || !buffer)
            continue;
        Point at = form->screen_position();
        Rect part = intersect(rect, {at.x, at.y, buffer->w, buffer->h});
        if (part.empty())
            continue;
        SDL_Rect from{part.x - at.x, part.y - at.y, part.w, part.h};
        SDL_Rect to{part.x, part.y, part.w, part.h};
        SDL_BlitSurface(buffer, &from, surface_, &to);
    }
    SDL_UpdateWindowSurfaceRects(window_, &whole, 1);
    if (!g_painted && window_shown()) {
        g_painted = true;
        // Start-up timing goes by this: the first pixels shown (a hidden
        // window's paints show nothing), on the clock every process shares.
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        os::log() << "screen: first paint, monotonic "
                  << static_cast<long long>(std::chrono::duration_cast<std::chrono::microseconds>(now).count())
                  << " us\n";
    }
}

Form* Screen::input_form() const
{
    const auto& forms = Form::forms();
    if (Form* modal = Form::current_modal(); modal && modal->is_visible()) {
        // A drop-down the modal form opened stands above it and comes first.
        for (auto it = forms.rbegin(); it != forms.rend() && *it != modal; ++it)
            if ((*it)->is_combo() && (*it)->is_visible() && (*it)->parent() == modal)
                return *it;
        return modal;
    }
    for (auto it = forms.rbegin(); it != forms.rend(); ++it)
        if ((*it)->is_visible())
            return *it;
    return nullptr;
}

void Screen::forget(Form* form)
{
    if (form && pointer_form_ == form) {
        form->impl().capture_lost();
        pointer_form_ = nullptr;
    }
}

void Screen::update_title()
{
    Form* top = input_form();
    while (top && top->title().empty())
        top = top->parent();
    if (top)
        SDL_SetWindowTitle(window_, liba::to_utf8(top->title()).c_str());
}

bool Screen::strip_pointer_event(const SDL_Event& e)
{
    if (!strip_ || pointer_form_ || e.type == SDL_MOUSEMOTION || e.button.button != SDL_BUTTON_LEFT)
        return false;
    Point p{e.button.x, e.button.y - size_.y};
    if (e.type == SDL_MOUSEBUTTONDOWN) {
        if (p.y < 0)
            return false;
        // A drop-down open above closes at a tap on the strip, as anywhere outside it.
        if (Form* top = input_form(); top && top->is_combo())
            top->close();
        strip_pointer_ = true;
        strip_->strip_pointer_down(p);
        return true;
    }
    if (!strip_pointer_)
        return false;
    strip_pointer_ = false;
    strip_->strip_pointer_up(p);
    return true;
}

void Screen::pointer_event(const SDL_Event& e)
{
    if (strip_pointer_event(e))
        return;
    Form* form = pointer_form_ ? pointer_form_ : input_form();
    if (!form)
        return;
    Point at = form->screen_position();
    if (e.type == SDL_MOUSEMOTION) {
        form->impl().pointer_move({e.motion.x - at.x, e.motion.y - at.y});
        return;
    }
    int button = button_of(e.button.button);
    if (button < 0)
        return;
    Point p{e.button.x - at.x, e.button.y - at.y};
    if (e.type == SDL_MOUSEBUTTONDOWN) {
        if (form->is_combo() && !pointer_form_ &&
            (p.x < 0 || p.y < 0 || p.x >= form->size().x || p.y >= form->size().y)) {
            // A tap outside a drop-down closes it and goes no further.
            form->close();
            return;
        }
        pointer_form_ = form;
        int flags = (button == kLeft && e.button.clicks >= 2) ? kDoubleFlag : 0;
        form->impl().pointer_down(button, p, flags);
    } else {
        form->impl().pointer_up(button, p);
        if (pointer_form_ == form && !form->impl().any_button_held())
            pointer_form_ = nullptr;
    }
}

bool Screen::zoom_key(const SDL_Event& e)
{
    if (!(e.key.keysym.mod & KMOD_CTRL))
        return false;
    int step = 0;
    switch (e.key.keysym.sym) {
    // Plus shares its key with '=' on most layouts.
    case SDLK_PLUS: case SDLK_EQUALS: case SDLK_KP_PLUS: step = 1; break;
    case SDLK_MINUS: case SDLK_KP_MINUS: step = -1; break;
    default: return false;
    }
    // The key's character, if any came, is no text for a form.
    SDL_Event text;
    SDL_PeepEvents(&text, 1, SDL_GETEVENT, SDL_TEXTINPUT, SDL_TEXTINPUT);
    // A step up that would cut the window, menu strip and all, off the
    // desktop is not taken.
    const int strip_per_zoom = strip_ ? strip_->strip_height() / zoom_ : 0;
    if (step > 0 && zoom_that_fits(native_size(), strip_per_zoom, zoom_ + step, desktop_size()) < zoom_ + step) {
        os::log() << "screen: zoom " << zoom_ + step << " would not fit the desktop\n";
        return true;
    }
    set_zoom(zoom_ + step);
    return true;
}

void Screen::window_event(const SDL_Event& e)
{
    switch (e.window.event) {
    case SDL_WINDOWEVENT_EXPOSED:
    case SDL_WINDOWEVENT_SIZE_CHANGED:
    case SDL_WINDOWEVENT_SHOWN:
    case SDL_WINDOWEVENT_RESTORED:
        repaint_all();
        break;
    default:
        break;
    }
}

void Screen::key_down(const SDL_Event& e)
{
    if (zoom_key(e))
        return;
    // The character typed with this key waits in the queue as its own event.
    SDL_Event text;
    bool typed = SDL_PeepEvents(&text, 1, SDL_GETEVENT, SDL_TEXTINPUT, SDL_TEXTINPUT) == 1;
    if (strip_ && strip_->strip_key(e.key.keysym.sym))
        return;
    if (key_filter_ && key_filter_(e.key.keysym.sym))
        return;
    Form* form = input_form();
    wchar_t character = 0;
    if (typed) {
        std::wstring w = liba::from_utf8(text.text.text);
        if (!w.empty() && w[0] >= 32)
            character = w[0];
    }
    if (!form)
        return;
    delivered_key_ = e.key.keysym;
    form->impl().key_down(key_from_sdl(e.key.keysym.sym), character);
    delivered_key_ = SDL_Keysym{};
}

void Screen::handle_event(const SDL_Event& e)
{
    if (e.type == paint_event_) {
        paint_now();
        return;
    }
    if (press_watcher_ && (e.type == SDL_MOUSEBUTTONDOWN || e.type == SDL_KEYDOWN))
        press_watcher_();
    switch (e.type) {
    case SDL_MOUSEMOTION:
    case SDL_MOUSEBUTTONDOWN:
    case SDL_MOUSEBUTTONUP:
        pointer_event(e);
        break;
    case SDL_KEYDOWN:
        key_down(e);
        break;
    case SDL_KEYUP:
        if (Form* form = input_form())
            form->impl().key_up(key_from_sdl(e.key.keysym.sym));
        break;
    case SDL_TEXTINPUT:
        if (Form* form = input_form())
            form->impl().text(liba::from_utf8(e.text.text));
        break;
    case SDL_WINDOWEVENT:
        window_event(e);
        break;
    case SDL_QUIT:
        if (quit_handler_)
            quit_handler_();
        else if (Form* form = input_form())
            form->close();
        break;
    default:
        break;
    }
}

int zoom_that_fits(Point native, int strip_per_zoom, int zoom, Point desktop)
{
    if (desktop.x <= 0 || desktop.y <= 0)
        return zoom;
    for (int z = zoom; z > 1; --z)
        if (int64_t(native.x) * z <= desktop.x && int64_t(native.y + strip_per_zoom) * z <= desktop.y)
            return z;
    return 1;
}

Point desktop_size()
{
    SDL_Rect r{};
    const char* driver = SDL_WasInit(SDL_INIT_VIDEO) ? SDL_GetCurrentVideoDriver() : nullptr;
    if (!driver || std::string(driver) == "offscreen" || std::string(driver) == "dummy")
        return {};
    const int display = g_screen && g_screen->window() ? SDL_GetWindowDisplayIndex(g_screen->window()) : 0;
    if (SDL_GetDisplayUsableBounds(display < 0 ? 0 : display, &r) != 0)
        return {};
    return {r.w, r.h};
}

} // namespace skinner

#include "app/main_form_controls.h"

#include "skinner/form.h"

#include <cmath>
#include <cstdio>

ControlFlash::ControlFlash(skinner::Container* container, const std::wstring& name)
    : ControlPicture(container, name)
{
    read_pictures();
    update();
}

void ControlFlash::read_pictures()
{
    steady_ = get_picture(L"Normal", {});
    on_ = get_picture(L"on", steady_);
    off_ = get_picture(L"off", steady_);
}

void ControlFlash::refresh()
{
    ControlPicture::refresh();
    read_pictures();
    update();
}

void ControlFlash::set_flashing(bool flashing)
{
    flashing_ = flashing;
    update();
}

void ControlFlash::update()
{
    const double age = std::chrono::duration<double>(std::chrono::steady_clock::now() - born_).count();
    const bool lit = flashing_ && static_cast<long long>(age / 0.5) % 2 == 0;
    lit_ = lit;
    set_picture(!flashing_ ? steady_ : lit ? on_ : off_);
}

ControlClock::ControlClock(skinner::Container* container, const std::wstring& name)
    : ControlPanel(container, name), lcd_(std::make_unique<skinner::ControlLCD>(&inner(), L"lcdClock"))
{
    show();
}

std::wstring ControlClock::format(double seconds)
{
    const long long s = seconds > 0.0 ? static_cast<long long>(std::floor(seconds)) : 0;
    wchar_t text[32];
    std::swprintf(text, 32, L"%02lld:%02lld:%02lld", s / 3600, s / 60 % 60, s % 60);
    return text;
}

void ControlClock::set_times(double elapsed, double remaining)
{
    elapsed_ = elapsed;
    remaining_ = remaining;
    show();
}

void ControlClock::toggle_mode()
{
    remaining_mode_ = !remaining_mode_;
    show();
}

void ControlClock::show()
{
    const std::wstring text = format(remaining_mode_ ? remaining_ : elapsed_);
    if (text != lcd_->text())
        lcd_->set_text(text);
}

ControlSpeed::ControlSpeed(skinner::Container* container, const std::wstring& name) : Control(container, name)
{
    read_speed_properties();
}

void ControlSpeed::read_speed_properties()
{
    font_ = get_font(L"Normal", font_);
    normal_ = get_color(L"Normal", normal_);
    highlighted_ = get_color(L"Highlighted", normal_);
    h_alignment_ = skinner::kAlignCenter;
    skinner::parse_h_alignment(get_string(L"HAlignment", L"CENTER"), h_alignment_);
}

void ControlSpeed::refresh()
{
    Control::refresh();
    read_speed_properties();
    invalidate();
}

std::wstring ControlSpeed::format(double speed)
{
    wchar_t text[16];
    std::swprintf(text, 16, L"x%.1f", static_cast<int>((speed + 0.05) * 10) / 10.0);
    return text;
}

void ControlSpeed::set_speed(double speed)
{
    if (speed == speed_)
        return;
    speed_ = speed;
    text_ = format(speed);
    invalidate();
}

void ControlSpeed::paint(skinner::Canvas& canvas, skinner::Point clip_position, skinner::Point clip_size)
{
    const skinner::Font& f = font_.is_empty() && form() ? form()->default_font() : font_;
    f.draw_text(canvas, highlighted() ? highlighted_ : normal_, text_, position(), size(), h_alignment_,
                skinner::kAlignVCenter);
    Control::paint(canvas, clip_position, clip_size);
}

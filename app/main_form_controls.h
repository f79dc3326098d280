#pragma once

#include "skinner/control_lcd.h"
#include "skinner/control_panel.h"
#include "skinner/control_picture.h"
#include "skinner/font.h"

#include <chrono>
#include <memory>
#include <string>

// The main window's display pieces. Threads: the user-interface thread only.

// A lamp that blinks while its flag is set: the skin's picture "on" and
// "off" by turns, each half a second counted from the lamp's making, and
// its "Normal" picture while the flag is clear.
class ControlFlash : public skinner::ControlPicture {
public:
    ControlFlash(skinner::Container* container, const std::wstring& name);
    void set_flashing(bool flashing);
    bool flashing() const { return flashing_; }
    // Picks the picture for the present moment; called on each tick.
    void update();
    // Whether the lamp shows "on" now.
    bool lit() const { return lit_; }
    void refresh() override;

private:
    void read_pictures();

    std::chrono::steady_clock::time_point born_ = std::chrono::steady_clock::now();
    skinner::Picture on_;
    skinner::Picture off_;
    skinner::Picture steady_;
    bool flashing_ = false;
    bool lit_ = false;
};

// The LCD clock panel: "lcdClock" shows the seconds elapsed or, in the
// other mode, those remaining, as "hh:mm:ss". Times are seconds.
class ControlClock : public skinner::ControlPanel {
public:
    ControlClock(skinner::Container* container, const std::wstring& name);
    void set_times(double elapsed, double remaining);
    void toggle_mode();
    bool shows_remaining() const { return remaining_mode_; }
    const std::wstring& text() const { return lcd_->text(); }
    // "hh:mm:ss" of whole seconds, negative times as 0.
    static std::wstring format(double seconds);

private:
    void show();

    std::unique_ptr<skinner::ControlLCD> lcd_;
    double elapsed_ = 0.0;
    double remaining_ = 0.0;
    bool remaining_mode_ = false;
};

// The speed: "x" and the factor to one decimal, rounded at .05 and cut, in
// the skin's "Highlighted" colour whenever the speed isn't exactly normal
// ("Normal" colour). Reads "Normal" (font and colour), "Highlighted" and
// "HAlignment". The speed is a factor.
class ControlSpeed : public skinner::Control {
public:
    ControlSpeed(skinner::Container* container, const std::wstring& name);
    void set_speed(double speed);
    const std::wstring& text() const { return text_; }
    bool highlighted() const { return speed_ != 1.0; }
    // "x1.0"-like text for `speed`.
    static std::wstring format(double speed);

    void paint(skinner::Canvas& canvas, skinner::Point clip_position, skinner::Point clip_size) override;
    void refresh() override;

private:
    void read_speed_properties();

    skinner::Font font_;
    skinner::Color normal_;
    skinner::Color highlighted_;
    int h_alignment_ = skinner::kAlignCenter;
    double speed_ = 1.0;
    std::wstring text_ = format(1.0);
};

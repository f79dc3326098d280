#pragma once

#include "liba/nocopy.h"
#include "skinner/power_manager.h"

#include <memory>

class Settings;
namespace skinner {
class Screen;
}

// What the main window does about idle time on its tick: while sound plays
// or records the desktop's screen saver is held off, and the display's
// turn-off gets the "Play" or "Record" timeout, its idle time restarted
// once when playing or recording begins; idle, the display stays on.
// Threads: the main thread only. Times are seconds.
class MainFormPower : liba::Nocopy {
public:
    // Null `screen`: a form on no screen, with no display to switch.
    MainFormPower(skinner::Screen* screen, const Settings& settings);
    ~MainFormPower();

    void on_tick(bool playing, bool recording, const Settings& settings);
    // New settings: the timeout of what is armed, the play timeout if none.
    void on_settings(const Settings& settings);

    bool play_armed() const { return play_armed_; }
    bool record_armed() const { return record_armed_; }
    bool holds_screen_saver() const { return screen_saver_held_; }
    // Null without a screen.
    skinner::PowerManagerImpl* power_manager() const { return power_.get(); }

private:
    void arm(double seconds);
    void hold_screen_saver(bool hold);

    std::unique_ptr<skinner::PowerManagerImpl> power_;
    bool play_armed_ = false;
    bool record_armed_ = false;
    bool screen_saver_held_ = false;
};

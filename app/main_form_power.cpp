#include "app/main_form_power.h"

#include "app/settings.h"
#include "skinner/screen.h"

#include <SDL.h>

MainFormPower::MainFormPower(skinner::Screen* screen, const Settings& settings)
    : screen_saver_held_(!SDL_IsScreenSaverEnabled())
{
    // SDL starts its video with the screen saver off; the first idle tick
    // gives it back.
    if (screen) {
        power_ = std::make_unique<skinner::PowerManagerImpl>(*screen);
        power_->set_interval(settings.turn_off_play);
    }
}

MainFormPower::~MainFormPower() { hold_screen_saver(false); }

void MainFormPower::on_tick(bool playing, bool recording, const Settings& settings)
{
    hold_screen_saver(playing || recording);
    if (recording) {
        if (!record_armed_)
            arm(settings.turn_off_record);
        record_armed_ = true;
        play_armed_ = false;
    } else if (playing) {
        if (!play_armed_)
            arm(settings.turn_off_play);
        play_armed_ = true;
        record_armed_ = false;
    } else if (play_armed_ || record_armed_ || (power_ && power_->interval() != 0.0)) {
        // Idle: the display stays on however long nobody touches it.
        arm(0.0);
        play_armed_ = record_armed_ = false;
    }
}

void MainFormPower::on_settings(const Settings& settings)
{
    if (power_)
        power_->set_interval(record_armed_ ? settings.turn_off_record : settings.turn_off_play);
}

void MainFormPower::arm(double seconds)
{
    if (!power_)
        return;
    power_->set_interval(seconds);
    power_->reset();
}

void MainFormPower::hold_screen_saver(bool hold)
{
    if (hold == screen_saver_held_)
        return;
    screen_saver_held_ = hold;
    if (hold)
        SDL_DisableScreenSaver();
    else
        SDL_EnableScreenSaver();
}

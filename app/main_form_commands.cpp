#include "app/main_form.h"

#include <algorithm>
#include <utility>

int MainForm::on_click(skinner::Control* control, int user_data)
{
    static const std::pair<const wchar_t*, const wchar_t*> kButtons[] = {
        {L"btnForward", L"Next"}, {L"btnRewind", L"Prev"},       {L"btnPlay", L"Play"},
        {L"btnRecord", L"Record"}, {L"btnStop", L"Stop"},        {L"btnMode", L"Panel"},
        {L"btnClockMode", L"ClockMode"}, {L"btnNewMark", L"NewBookmark"},
    };
    for (const auto& [id, command] : kButtons) {
        if (control->id() == id)
            return on_command(command);
    }
    return Form::on_click(control, user_data);
}

int MainForm::on_range_changed(skinner::Control* control, double value)
{
    if (control == &volume_) {
        document_.set_volume(std::clamp(value, 0.0, 1.0));
        ChangeFlags volume;
        volume.volume = true;
        document_.notify_views(volume);
        return 1;
    }
    if (control == &position_) {
        document_.seek_fraction(value);
        ChangeFlags position;
        position.position = true;
        document_.notify_views(position);
        return 1;
    }
    return Form::on_range_changed(control, value);
}

int MainForm::on_command(const std::wstring& name)
{
    if (name == L"Play" || name == L"PlayStop") {
        play(name == L"PlayStop");
    } else if (name == L"Record" || name == L"RecordStop") {
        record(name == L"RecordStop");
    } else if (name == L"Stop") {
        // With this form as owner, a long drain shows its progress.
        document_.stop(this);
    } else if (name == L"Next" || name == L"Prev") {
        document_.step_item(name == L"Next" ? 1 : -1);
    } else if (name == L"Forward" || name == L"Rewind") {
        document_.seek_relative(name == L"Forward" ? 5.0 : -5.0);
    } else if (name == L"VolumeUp" || name == L"VolumeDown") {
        change_volume(name == L"VolumeUp" ? kVolumeStep : -kVolumeStep);
        return 1;
    } else if (name == L"NewBookmark") {
        document_.add_bookmark();
    } else if (name == L"ClockMode") {
        clock_.toggle_mode();
        return 1;
    } else if (name == L"Panel") {
        show_panel();
        ChangeFlags general;
        general.general = true;
        document_.notify_views(general);
        return 1;
    } else if (name == L"Mode") {
        document_.set_play_mode((document_.play_mode() + 1) % 5);
        show_mode();
        ChangeFlags general;
        general.general = true;
        document_.notify_views(general);
        return 1;
    } else if (name == L"Settings") {
        show_settings();
        return 1;
    } else if (name == L"Help") {
        show_help();
        return 1;
    } else if (name == L"About") {
        show_about();
        return 1;
    } else if (name == L"Exit") {
        exit();
        return 1;
    } else {
        return Form::on_command(name);
    }
    document_.notify_views();
    return 1;
}

void MainForm::play(bool stop_when_playing)
{
    if (!document_.is_playing()) {
        // The explorer's file first; without one, the list the Document holds.
        if (!explorer_.play())
            document_.play_current();
    } else if (stop_when_playing)
        document_.stop(nullptr);
    else if (document_.is_paused())
        document_.resume();
    else
        document_.pause();
}

void MainForm::record(bool stop_when_recording)
{
    // Into the folder the file explorer shows; the Document asks for the
    // new file to be selected when it ends.
    if (!document_.is_recording())
        document_.record(explorer_.folder());
    else if (stop_when_recording)
        document_.stop(nullptr);
    else if (document_.is_paused())
        document_.resume();
    else
        document_.pause();
}

void MainForm::change_volume(double delta)
{
    // Steps past either end stop there rather than leaving the bar's range.
    document_.set_volume(std::clamp(document_.volume() + delta, 0.0, 1.0));
    ChangeFlags volume;
    volume.volume = true;
    document_.notify_views(volume);
}

#include "app/main_form.h"

#include "app/command_lines.h"
#include "os/file.h"
#include "os/log.h"
#include "os/path.h"
#include "skinner/screen.h"
#include "skinner/skin_description.h"

#include <SDL.h>

#include <cstring>

namespace {

// The window has the keyboard, or (offscreen, where no other window exists
// and none gets the keyboard) it is shown at all.
bool window_in_front()
{
    skinner::Screen* screen = skinner::Screen::instance();
    if (!screen || !screen->window_shown())
        return false;
    if (SDL_GetKeyboardFocus() == screen->window())
        return true;
    const char* driver = SDL_GetCurrentVideoDriver();
    return driver && (std::strcmp(driver, "offscreen") == 0 || std::strcmp(driver, "dummy") == 0);
}

// Why a handed-over path can't play as it is; empty when it may.
const wchar_t* why_not_playable(const std::wstring& path)
{
    os::FileAttributes file(os::expand_path(path));
    if (!file.exists())
        return L"no such file";
    if (file.is_folder)
        return L"a folder";
    return L"";
}

} // namespace

void MainForm::on_command_line(const std::wstring& line)
{
    os::log() << "on_command_line[" << line << "]\n";
    // A running program is not hidden by a later "-hide", nor a hidden one
    // brought up by it.
    if (line == kHideCommand)
        return;
    if (line == kRunAtTimeCommand) {
        const std::wstring path = document_.run_due_schedule();
        os::log() << "command line: scheduled recording is due" << (path.empty() ? L"" : L", recording ") << path
                  << "\n";
    } else if (!line.empty()) {
        play_handed_over(line);
    } else if (window_in_front()) {
        // A key that starts the program acts as a record and stop key while
        // the program is in front.
        record_or_stop_by_line();
    }
    bring_up();
    document_.notify_views(ChangeFlags::all());
}

void MainForm::play_handed_over(const std::wstring& path)
{
    const wchar_t* why = why_not_playable(path);
    if (!*why && !play_selected(path))
        why = L"neither sound nor list";
    if (*why)
        os::log() << "command line: skipped [" << path << "]: " << why << "\n";
    else
        os::log() << "command line: play file [" << path << "]\n";
}

bool MainForm::play_selected(const std::wstring& path)
{
    // The explorer still on the file or list the Document holds: its
    // current item, where the order stands.
    if (path.empty())
        return explorer_.current() == os::normalize_path(document_.playlist_name()) && document_.item_count() > 0
                   ? document_.play_current()
                   : explorer_.play();
    // Only a file that plays moves the explorer.
    if (!document_.play_file(path))
        return false;
    explorer_.select(path);
    return true;
}

void MainForm::record_or_stop_by_line()
{
    if (document_.is_recording()) {
        os::log() << "command line: stop the recording\n";
        // No owner: the stop shows no progress.
        document_.stop(nullptr);
    } else if (skinner::PowerManagerImpl* power = power_.power_manager(); power && !power->is_display_on()) {
        // With the display off the line starts nothing unseen.
        os::log() << "command line: the display was off\n";
    } else {
        os::log() << "command line: record\n";
        on_command(L"Record");
    }
}

void MainForm::bring_up()
{
    skinner::Screen* screen = skinner::Screen::instance();
    if (!screen)
        return;
    if (!screen->window_shown())
        os::log() << "main: the window comes up\n";
    screen->show_window(true);
}

int MainForm::ScreenListener::on_command(const std::wstring& name)
{
    return name == L"#ScreenResolution#" ? form_.reload_skin_for_screen() : 0;
}

int MainForm::reload_skin_for_screen()
{
    skinner::Screen* screen = skinner::Screen::instance();
    if (!screen)
        return 0;
    // Every form of the skin reads itself anew, at the new scale.
    const skinner::Point size = screen->size();
    properties().change_skin(properties().impl().path(), size);
    if (!properties().check_version(skinner::kAppVersionMark, size))
        os::log() << "main: the skin doesn't fit " << size.x << "x" << size.y << "\n";
    if (menu_bar_)
        menu_bar_->reload();
    ChangeFlags changes;
    changes.general = true;
    changes.position = true;
    changes.state = true;
    document_.notify_views(changes);
    return 1;
}

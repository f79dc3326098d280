#include "app/start_up.h"

#include "app/document.h"
#include "app/command_lines.h"
#include "app/main_form.h"
#include "app/mpris_player.h"
#include "app/screen_shell.h"
#include "app/settings.h"
#include "audio/wav_repair.h"
#include "liba/text.h"
#include "os/application.h"
#include "os/file.h"
#include "os/log.h"
#include "os/path.h"
#include "skinner/skin_choice.h"

#include <unistd.h>

namespace {

constexpr const wchar_t* kAppName = L"Quillaphonics";

std::wstring current_folder()
{
    char buf[4096];
    if (!::getcwd(buf, sizeof buf))
        return L"";
    return liba::from_utf8(buf);
}

bool is_keyword(const std::wstring& line)
{
    return line.empty() || line == kHideCommand || line == kRunAtTimeCommand;
}

// At the zoom the registry store keeps, else the largest that fits the
// desktop; either is lowered until the window with its menu bar fits.
std::unique_ptr<skinner::Properties> choose_start_skin(const Settings& settings, skinner::SkinChoice& choice)
{
    std::wstring language;
    settings.language_file(language);
    std::unique_ptr<skinner::Properties> skin =
        skinner::choose_skin(settings.skin, ScreenShell::saved_zoom(), ScreenShell::desktop_size(), language, &choice);
    if (!skin)
        return skin;
    ScreenShell::fit_desktop(*skin, choice, ScreenShell::desktop_size());
    os::log() << "skin[" << choice.path << "] " << choice.screen_size.x << "x" << choice.screen_size.y << "\n";
    return skin;
}

// The program's life on its main window, from this start's own command line
// until the window closes or a quit signal comes.
void run_main_window(os::Application& app, Document& document, skinner::Properties& skin,
                     const skinner::SkinChoice& choice, const std::wstring& command_line)
{
    // The window stays hidden until this start's command line says otherwise.
    ScreenShell screen(app.loop(), choice);
    MainForm form(skin, document);
    // Nothing in the skin's "Main" names the program: the window does.
    form.set_title(kAppName);
    if (!app.listen_for_command_lines([&form](const std::wstring& line) { form.on_command_line(line); }))
        os::log() << "start-up: later starts can't reach this instance\n";
    // Desktop media keys and playerctl; without a session bus the player
    // has logged why and the program goes on without it.
    MprisPlayer media_player(
        document, [&form](const std::wstring& command) { return form.on_command(command); },
        [&form] { form.bring_up(); });
    media_player.publish();
    form.on_command_line(command_line);
    app.release_instance_lock();
    document.notify_views(ChangeFlags::all());

    form.do_modal();

    // Closed or told to end while recording: the file is finished first.
    if (document.is_recording()) {
        os::log() << "start-up: the recording stops before the end\n";
        document.stop(nullptr);
    }
    media_player.stop();
    app.stop_listening();
    if (screen.zoom() != ScreenShell::saved_zoom())
        ScreenShell::save_zoom(screen.zoom());
}

} // namespace

std::wstring compose_command_line(const std::vector<std::string>& args, const std::wstring& working_folder)
{
    std::wstring line;
    for (size_t i = 0; i < args.size(); ++i) {
        if (i > 0)
            line += L' ';
        line += liba::from_utf8(args[i]);
    }
    if (is_keyword(line) || working_folder.empty())
        return line;
    // Macros and quoted paths are handed on as they are.
    if (line[0] == L'%' || line[0] == L'"')
        return line;
    return os::make_absolute(line, working_folder);
}

int run_quillaphonics(const std::vector<std::string>& args)
{
    os::Application app(kAppName);
    std::wstring command_line = compose_command_line(args, current_folder());
    if (app.find_running_instance(command_line))
        return 0;
    if (os::Application::quit_signalled())
        return 0;

    os::log().start_afresh();
    os::log() << "cmd_line[" << command_line << "] \n";
    // Recordings that a crash cut off are whole again before anything lists
    // or plays them.
    audio::repair_orphaned_recordings(os::RecordingJournal());
    // The Document owns the settings: it reads them here and writes them as
    // it goes, at the very end.
    Document document;

    // The skin of the settings for its own screen, else the default skin;
    // without a usable one the program ends here, its settings still kept.
    ScreenShell::start_video();
    skinner::SkinChoice choice;
    std::unique_ptr<skinner::Properties> skin = choose_start_skin(document.settings(), choice);
    if (!skin)
        return 0;
    run_main_window(app, document, *skin, choice, command_line);
    return 0;
}

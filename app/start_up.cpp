#include "app/start_up.h"

#include "app/document.h"
#include "app/headless_shell.h"
#include "app/mpris_player.h"
#include "app/screen_shell.h"
#include "app/settings.h"
#include "app/status_publication.h"
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
    const Settings& settings = document.settings();

    // The skin of the settings for its own screen (at the zoom of the last
    // run, else the largest that fits the desktop), else the default skin;
    // without a usable one the program ends here, its settings still kept.
    ScreenShell::start_video();
    std::wstring language;
    settings.language_file(language);
    skinner::SkinChoice choice;
    std::unique_ptr<skinner::Properties> skin =
        skinner::choose_skin(settings.skin, settings.zoom, ScreenShell::desktop_size(), language, &choice);
    if (!skin)
        return 0;
    os::log() << "skin[" << choice.path << "] " << choice.screen_size.x << "x" << choice.screen_size.y << "\n";

    // Until the main window exists the screen shows the skin's "Main" and the
    // headless shell acts on command lines, as the main window will.
    ScreenShell screen(app.loop(), *skin, choice, command_line == kHideCommand);
    HeadlessShell shell(document);
    auto on_line = [&shell, &screen](const std::wstring& line) {
        shell.on_command_line(line);
        if (line != kHideCommand)
            screen.bring_up();
    };
    if (!app.listen_for_command_lines(on_line))
        os::log() << "start-up: later starts can't reach this instance\n";
    StatusPublication publication(document, [&shell, &screen] {
        shell.show();
        screen.bring_up();
    });
    if (!publication.publish())
        os::log() << "start-up: the status publication is not available\n";
    // Desktop media keys and playerctl; without a session bus the player
    // has logged why and the program goes on without it.
    MprisPlayer media_player(document, [&screen] { screen.bring_up(); }, [&app] { app.loop().quit(); });
    media_player.publish();
    shell.on_first_command_line(command_line);
    app.release_instance_lock();
    document.notify_views(ChangeFlags::all());

    app.loop().run();

    media_player.stop();
    publication.stop();
    app.stop_listening();
    if (screen.zoom() != settings.zoom) {
        Settings kept = settings;
        kept.zoom = screen.zoom();
        document.apply_settings(kept);
    }
    return 0;
}

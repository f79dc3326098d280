#include "app/headless_shell.h"

#include "app/document.h"
#include "os/log.h"

HeadlessShell::HeadlessShell(Document& document) : document_(document), tick_(*this)
{
    tick_.start(kTickSeconds);
}

HeadlessShell::~HeadlessShell() { tick_.stop(); }

void HeadlessShell::on_first_command_line(const std::wstring& line)
{
    if (line == kHideCommand) {
        os::log() << "start-up: hidden\n";
        return;
    }
    act(line);
}

void HeadlessShell::on_command_line(const std::wstring& line)
{
    os::log() << "on_command_line[" << line << "]\n";
    // A running program is not hidden by a later "-hide".
    if (line == kHideCommand)
        return;
    act(line);
    document_.notify_views(ChangeFlags::all());
}

void HeadlessShell::show()
{
    os::log() << "command: bring the program up\n";
}

void HeadlessShell::act(const std::wstring& line)
{
    ++handled_;
    if (line == kRunAtTimeCommand) {
        os::log() << "command line: scheduled recording is due\n";
        const std::wstring path = document_.run_due_schedule();
        if (!path.empty())
            os::log() << "command line: recording " << path << "\n";
    } else if (line.empty()) {
        os::log() << "command line: bring the program up\n";
    } else {
        os::log() << "command line: play file [" << line << "]\n";
        // The Document logs why a file did not play.
        document_.play_file(line);
    }
}

void HeadlessShell::on_timer(liba::Timer&)
{
    tick_.start(kTickSeconds);
    document_.on_timer();
}

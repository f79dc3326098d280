#include "app/headless_shell.h"

#include "os/log.h"

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
}

void HeadlessShell::act(const std::wstring& line)
{
    ++handled_;
    if (line == kRunAtTimeCommand)
        os::log() << "command line: scheduled recording is due\n";
    else if (line.empty())
        os::log() << "command line: bring the program up\n";
    else
        os::log() << "command line: play file [" << line << "]\n";
}

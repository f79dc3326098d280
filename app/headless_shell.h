#pragma once

#include <string>

inline constexpr const wchar_t* kHideCommand = L"-hide";
inline constexpr const wchar_t* kRunAtTimeCommand = L"AppRunAtTime";

// Acts on command lines while the program runs without its main window: it
// tells each one apart as the main window does ("AppRunAtTime", "-hide", a
// file, nothing) and logs what it would do. Threads: main thread.
class HeadlessShell {
public:
    // The command line of this start, before the instance lock is released.
    void on_first_command_line(const std::wstring& line);
    // A command line handed over by a later start.
    void on_command_line(const std::wstring& line);

    int lines_handled() const { return handled_; }

private:
    void act(const std::wstring& line);
    int handled_ = 0;
};

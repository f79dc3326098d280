#pragma once

#include "liba/timer.h"

#include <string>

class Document;

inline constexpr const wchar_t* kHideCommand = L"-hide";
inline constexpr const wchar_t* kRunAtTimeCommand = L"AppRunAtTime";

// Stands in for the main window while the program runs without one: it tells
// command lines apart as the main window does ("AppRunAtTime", "-hide", a
// file, nothing), plays a file through the Document and logs the rest, and
// runs the Document's 0.2-second tick on a timer of the event loop.
// Threads: main thread. The Document must outlive the shell.
class HeadlessShell : liba::Timer::Listener {
public:
    static constexpr double kTickSeconds = 0.2;

    explicit HeadlessShell(Document& document);
    ~HeadlessShell() override;

    // The command line of this start, before the instance lock is released.
    void on_first_command_line(const std::wstring& line);
    // A command line handed over by a later start.
    void on_command_line(const std::wstring& line);
    // A status command asked for the window.
    void show();

    int lines_handled() const { return handled_; }

private:
    void act(const std::wstring& line);
    void on_timer(liba::Timer& timer) override;

    Document& document_;
    liba::Timer tick_;
    int handled_ = 0;
};

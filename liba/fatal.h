#pragma once

#include <string>

namespace liba {

// The one reaction to a violated invariant of our own code: flush the log,
// show `text` with `location` as caption (a message box, or standard error
// without a display), and end the process on the spot with kFatalExitCode.
// Nothing is unwound and nothing is saved. Threads: any.
[[noreturn]] void fatal(const std::wstring& location, const std::wstring& text);

inline constexpr int kFatalExitCode = 3;

// The same report ending with another exit code: a skin that lacks what the
// code needs ends the program with 0, like a normal end.
[[noreturn]] void fatal(const std::wstring& location, const std::wstring& text, int exit_code);

// Hooks the upper layers install at start: `flush` empties the log, `report`
// shows the text to the user and returns true when it did so. Either may be
// null. Set them once on the main thread before any worker starts.
struct FatalHooks {
    void (*flush)() = nullptr;
    bool (*report)(const std::wstring& location, const std::wstring& text) = nullptr;
};
void set_fatal_hooks(const FatalHooks& hooks);

} // namespace liba

#pragma once

#include <string>

namespace liba {

// The one reaction to a violated invariant of our own code: flush the log,
// show `text` with `location` as caption (a message box, or standard error
// without a display), and end the process on the spot with kFatalExitCode.
// Nothing is unwound and nothing is saved. Threads: any.
[[noreturn]] void fatal(const std::wstring& location, const std::wstring& text);

inline constexpr int kFatalExitCode = 3;

// Hooks the upper layers install at start: `flush` empties the log, `report`
// shows the text to the user and returns true when it did so. Either may be
// null. Set them once on the main thread before any worker starts.
struct FatalHooks {
    void (*flush)() = nullptr;
    bool (*report)(const std::wstring& location, const std::wstring& text) = nullptr;
};
void set_fatal_hooks(const FatalHooks& hooks);

} // namespace liba

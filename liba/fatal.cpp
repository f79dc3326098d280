#include "liba/fatal.h"

#include "liba/text.h"

#include <cstdio>
#include <unistd.h>

namespace liba {

namespace {
FatalHooks g_hooks;
}

void set_fatal_hooks(const FatalHooks& hooks) { g_hooks = hooks; }

void fatal(const std::wstring& location, const std::wstring& text) { fatal(location, text, kFatalExitCode); }

void fatal(const std::wstring& location, const std::wstring& text, int exit_code)
{
    if (g_hooks.flush)
        g_hooks.flush();
    // Standard error always gets the text: a message box may be dismissed
    // unseen, and scripts and tests read the reason there.
    std::string line = to_utf8(location) + ": " + to_utf8(text) + "\n";
    if (::write(2, line.data(), line.size()) < 0) {
        // Nothing more can be done about a lost report.
    }
    if (g_hooks.report)
        g_hooks.report(location, text);
    ::_exit(exit_code);
}

} // namespace liba

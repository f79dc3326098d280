#pragma once

#include "liba/error_base.h"

#include <string>

// Path macros and path arithmetic. Paths are wide text; either "\" or "/"
// separates on input, "/" on output of expand_path and join_path. Stored
// paths keep their macro and are expanded at each file operation.
// Threads: any. init_path_macros() belongs to start-up (and to tests that
// change the environment); everything else only reads the macro table.
namespace os {

// Computes the macro values from /proc/self/exe, HOME and the XDG variables.
// Runs once by itself on first use; call again after changing those.
void init_path_macros();

// The value of one macro ("%app_data%"); empty for an unknown name.
std::wstring macro_value(const std::wstring& macro);

// Creates "%app_data%" and its parents. On failure returns false and, when
// `errors` is given, adds "can't create folder" with the path.
bool ensure_app_data(liba::ErrorBase* errors = nullptr);

// A macro at the very start of `path` is replaced by its value; every "\"
// of the rest becomes "/". A macro anywhere else stays as it is.
std::wstring expand_path(const std::wstring& path);

// The expanded path as UTF-8, for the kernel.
std::string native_path(const std::wstring& path);

bool is_separator(wchar_t c);

// The path less one trailing separator.
std::wstring strip_trailing_separator(const std::wstring& path);
// Up to and including the last separator; empty when there is none.
std::wstring folder_of(const std::wstring& path);
// Behind the last separator, or the whole path.
std::wstring file_name_of(const std::wstring& path);
// Behind the last dot of the file name; empty when it has none.
std::wstring extension_of(const std::wstring& path);
// folder_of(strip_trailing_separator(path)).
std::wstring parent_of(const std::wstring& path);
// An empty folder gives `name`; otherwise the folder less its trailing
// separators, one "/", and the name less its leading separators.
std::wstring join_path(const std::wstring& folder, const std::wstring& name);

// Expanded, with "/" only, no duplicate or trailing separator, and "." and
// ".." resolved lexically (".." above the root stays at the root; leading
// ".." of a relative path stay). An empty relative result is ".".
std::wstring normalize_path(const std::wstring& path);
// Exact comparison of the normalised forms: Linux names are case-sensitive.
bool same_path(const std::wstring& a, const std::wstring& b);

// Creates the path's folders from the root downward, one level at a time,
// ignoring failures on the way. True when the folder exists at the end.
bool create_folders(const std::wstring& path);

// A path whose expansion is relative is joined to `base_folder` and
// normalised; an absolute one is returned unchanged.
std::wstring make_absolute(const std::wstring& path, const std::wstring& base_folder);

// The folder for sockets and other per-session files: $XDG_RUNTIME_DIR, else
// private_folder("/tmp/quillaphonics-UID").
std::wstring runtime_dir();

// Creates `path` as an owner-only folder (0700), or narrows an existing one
// of ours to that. Returns the expanded path; empty when it is a link, not a
// folder, or owned by someone else, so nobody can plant it for us.
std::wstring private_folder(const std::wstring& path);

} // namespace os

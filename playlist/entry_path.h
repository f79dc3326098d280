#pragma once

#include <string>

// Where the file of a list entry is. A list holds its paths as written
// ("song.mp3", "..\Music\a.mp3", "/home/me/a.mp3", "file:///home/me/a%20b.mp3",
// "http://radio/stream"); a relative one means the list's own folder, never
// the working folder. Threads: any (reads only the path macros).
namespace playlist {

// The path to open for an entry of the list at `list_path`: a relative path
// joined to the list's folder and normalised; an absolute one normalised; a
// "file:" URL as the path it names; a URL of any other scheme and a path with
// a drive letter ("C:\Music\a.mp3") as they stand, with "/" separators for
// the latter. Empty stays empty.
std::wstring resolve_entry_path(const std::wstring& list_path, const std::wstring& entry_path);

// Whether the entry path is relative to its list's folder.
bool is_relative_entry_path(const std::wstring& entry_path);

// The entry path that names the same file from a list at `to_list` as
// `entry_path` does from `from_list`: relative paths are rewritten relative
// to the new folder ("/" separators), everything else stays as it is. Both
// list paths should be absolute; otherwise the entry's absolute form is given.
std::wstring rebase_entry_path(const std::wstring& entry_path, const std::wstring& from_list,
                               const std::wstring& to_list);

} // namespace playlist

#pragma once

#include <cstdint>
#include <string>

// Questions to the system and starting other programs.
// Threads: any (no state of their own).
namespace os {

// Physical memory in bytes; both 0 when /proc/meminfo can't be read.
struct MemoryStatus {
    uint64_t total_bytes = 0;
    uint64_t available_bytes = 0;
};
MemoryStatus memory_status();

// Bytes free for this user on the volume of the (expanded) path; 0 on failure.
double free_disk_space(const std::wstring& path);

// Opens `file` with the desktop's handler (xdg-open), or runs it with
// `parameters` (split at blanks, double quotes group) when it is an
// executable program. Both are expanded first. The program runs detached;
// true when it was started.
bool execute_file(const std::wstring& file, const std::wstring& parameters);

} // namespace os

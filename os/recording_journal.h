#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// The list of files that recordings are being written to, each with the
// process writing it, so that a start after a crash finds what a writer left
// half-done. A process is known by its id and its start time, so that an id
// the kernel has handed on is not taken for the writer. The journal is a
// small text file, replaced whole on each change, and changed only under an
// flock on a lock file beside it, so that several processes may share it.
// Threads: any; every operation takes the lock itself. The object holds only
// the journal's path. Start times are in clock ticks since boot.
namespace os {

class RecordingJournal {
public:
    struct Entry {
        std::wstring file; // absolute
        int pid = 0;
        std::uint64_t started = 0;
    };

    // The journal the program keeps for its recordings.
    static constexpr const wchar_t* kDefaultPath = L"%app_data%/recordings.journal";

    explicit RecordingJournal(std::wstring path = kDefaultPath);

    // Lists `file` (made absolute) as written by this process. False when
    // the journal can't be locked or written.
    bool add(const std::wstring& file) const;
    // Takes this process's entry for `file` out; other entries for the same
    // file stay.
    bool remove(const std::wstring& file) const;
    std::vector<Entry> entries() const;
    // Hands each file whose writer is gone to `repair`, in the order listed,
    // and takes those entries out; all under the lock, so no other start
    // repairs the same files. The number of entries taken out.
    int take_orphans(const std::function<void(const std::wstring& file)>& repair) const;

    const std::wstring& path() const { return path_; }

private:
    std::wstring path_;
};

// When process `pid` started, from /proc/<pid>/stat; 0 when no such process
// is running.
std::uint64_t process_start_time(int pid);

} // namespace os

#pragma once

#include "liba/nocopy.h"
#include "os/recording_journal.h"

#include <chrono>
#include <string>

// What a writer in recording mode adds so that its file survives a crash:
// the file's entry in the recordings journal for as long as the writer has
// it, and the clock that says when the part written so far must be made
// durable (at least once a second of wall-clock time, at one flush a
// second). Writers of conversions have none.
// Threads: the writer's, under its stage lock. Owned by the writer; its
// destruction takes the entry out of the journal.
namespace audio {

class RecordingGuard : liba::Nocopy {
public:
    static constexpr std::chrono::milliseconds kSyncInterval{1000};

    explicit RecordingGuard(const os::RecordingJournal& journal);
    ~RecordingGuard();

    // Lists `path` in the journal; called before the file is made or opened,
    // so no moment of a recording goes unlisted.
    void list(const std::wstring& path);
    // Called after each write: true when the writer should make its file
    // durable now. The sync comes at the last write before a second has
    // passed, judged by the gap between writes, so a steady stream of
    // records never leaves more than a second unsynced.
    bool sync_due();
    // The writer made its file durable.
    void synced();

private:
    using Clock = std::chrono::steady_clock;

    os::RecordingJournal journal_;
    std::wstring listed_;
    Clock::time_point synced_at_;
    Clock::time_point written_at_;
};

} // namespace audio

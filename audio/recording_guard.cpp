#include "audio/recording_guard.h"

namespace audio {

RecordingGuard::RecordingGuard(const os::RecordingJournal& journal)
    : journal_(journal), synced_at_(Clock::now()), written_at_(synced_at_)
{
}

RecordingGuard::~RecordingGuard()
{
    if (!listed_.empty())
        journal_.remove(listed_);
}

void RecordingGuard::list(const std::wstring& path)
{
    if (journal_.add(path))
        listed_ = path;
    synced();
}

bool RecordingGuard::sync_due()
{
    const Clock::time_point now = Clock::now();
    const Clock::duration gap = now - written_at_;
    written_at_ = now;
    return now - synced_at_ + gap >= kSyncInterval;
}

void RecordingGuard::synced() { synced_at_ = written_at_ = Clock::now(); }

} // namespace audio

#pragma once

#include "audio/pipeline.h"
#include "audio/records.h"

#include <atomic>

// The first stage of the record path: while muted it replaces the input by
// silence of the same size and format (128 for 8-bit samples, 0 otherwise),
// so time runs on and the file keeps growing; otherwise it passes records on.
// Owned by Document for the whole run. Threads: process on the recorder's
// thread; set_muted and is_muted on the main thread.
namespace audio {

class Muter : public Processor<PCMData> {
public:
    void set_muted(bool muted) { muted_.store(muted, std::memory_order_relaxed); }
    bool is_muted() const { return muted_.load(std::memory_order_relaxed); }

protected:
    void process(PCMData& out, const PCMData& in) override;

private:
    std::atomic<bool> muted_{false};
};

} // namespace audio

#pragma once

#include "audio/pipeline.h"
#include "audio/records.h"

#include <atomic>

// Counts the seconds of sound that pass it: the recorded time. It stands
// behind the link that a record pause cuts, so it stands still while paused.
// Owned by Document for the whole run. Threads: process on the recorder's
// thread; get_time and reset on the main thread. Units: seconds.
namespace audio {

class TimeMeter : public Processor<PCMData> {
public:
    double get_time() const { return seconds_.load(std::memory_order_relaxed); }
    void reset() { seconds_.store(0.0, std::memory_order_relaxed); }

protected:
    void process(PCMData& out, const PCMData& in) override;

private:
    std::atomic<double> seconds_{0.0};
};

} // namespace audio

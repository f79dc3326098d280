#pragma once

#include "audio/pipeline.h"
#include "audio/records.h"

#include <atomic>
#include <cstddef>
#include <deque>

// The input meter of the record path and the ear of voice activation. For
// each record it takes the peak of the first channel's positive samples as
// the level, and counts the seconds since the last sample above the
// threshold; more than the silence limit of them is silence. It is never
// reset: silence carries from one recording into the next.
// Its output link is the one a record pause cuts. While cut it keeps the
// newest input, at most `hold_frames` plus `hold_seconds` of it, so that a
// resume when the sound returns can hand on the onset that woke it.
// Owned by Document for the whole run. Threads: process on the recorder's
// thread under the stage's lock; the getters and set_threshold on the main
// thread without it; cut and relink on the main thread under it.
// Units: levels and thresholds 0.0..1.0 of full scale, times in seconds.
namespace audio {

class LevelMeterRecord : public Processor<PCMData> {
public:
    LevelMeterRecord(double silence_limit, std::size_t hold_frames, double hold_seconds);

    // The peak of the last record.
    double get_level() const { return level_.load(std::memory_order_relaxed); }
    // Leaves the silence counted so far as it is.
    void set_threshold(double threshold) { threshold_.store(threshold, std::memory_order_relaxed); }
    double threshold() const { return threshold_.load(std::memory_order_relaxed); }
    // Strictly more than the silence limit since the last loud sample.
    bool is_silent() const { return silence_.load(std::memory_order_relaxed) > silence_limit_; }
    double silence() const { return silence_.load(std::memory_order_relaxed); }

    // Cuts the output: a pause. What arrives from now on is held.
    void cut();
    // Links the output to `next`. With `replay` the input held while it was
    // cut is handed to `next` first, under this stage's lock, so that no new
    // record gets in between; without, it is dropped.
    void relink(Consumer<PCMData>* next, bool replay);
    // Drops what is held.
    void drop_held();
    // Frames held now.
    std::size_t held_frames();

protected:
    void process(PCMData& out, const PCMData& in) override;

private:
    void measure(const PCMData& in);
    void hold(const PCMData& in);

    const double silence_limit_;
    const std::size_t hold_frames_;
    const double hold_seconds_;
    std::atomic<double> level_{0.0};
    std::atomic<double> threshold_{0.0};
    std::atomic<double> silence_{0.0};
    std::deque<PCMData> held_;
    std::size_t held_count_ = 0;
};

} // namespace audio

#pragma once

#include "audio/pipeline.h"
#include "audio/records.h"

#include <chrono>
#include <deque>
#include <vector>

// The level of what is being played, delayed so that the bar moves with
// what is heard and not with what is read ahead. Each record that passes
// leaves an entry: its duration and the positive peaks of its first channel
// in chunks of rate / 15 frames. Entries expire as their time runs out on a
// clock that starts with the first record after a silence and stops while
// paused.
// Owned by Document for the whole run, in the play path before the player.
// Threads: process on the player's thread; get_level, set_paused and clear
// on the main thread; all under the stage's lock. Units: levels 0.0..1.0 of
// full scale, times in seconds.
namespace audio {

class LevelMeter : public Processor<PCMData> {
public:
    static constexpr double kValuesPerSecond = 15.0;

    LevelMeter();
    double get_level();
    void set_paused(bool paused);
    void clear();

protected:
    void process(PCMData& out, const PCMData& in) override;

private:
    struct Entry {
        std::vector<double> levels;
        std::int32_t rate = 0;
        double duration = 0.0;
    };

    double clock_seconds() const;
    double now() const;
    void expire(double now);

    std::chrono::steady_clock::time_point clock_;
    std::deque<Entry> entries_;
    double base_ = 0.0;
    double paused_at_ = 0.0;
    bool paused_ = false;
};

} // namespace audio

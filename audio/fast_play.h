#pragma once

#include "audio/pipeline.h"
#include "audio/records.h"

#include <atomic>

namespace audio {

// Plain speed change of the play path: whole sample frames are dropped or
// repeated, so the pitch follows the speed. No filtering, no interpolation.
// Threads: get_data / on_data run on the driver's thread under `lock`;
// set_step runs on the main thread and takes no lock (the two numbers are
// atomic), so a resampling under way may see the new step. Units: `step` in input frames per output frame.
// Records out are views of the input (step 1.0) or new blocks.
class FastPlay : public Consumer<PCMData>, public Provider<PCMData> {
public:
    // Whether `v` differs from the step; if it does, it becomes the step and
    // the phase starts again at 0.
    bool set_step(double v);
    double get_step() const { return step.load(std::memory_order_relaxed); }
    double get_phase() const { return phase.load(std::memory_order_relaxed); }

    // Picks the frames of `in` for the current step and phase into `out`.
    void resample(PCMData& out, const PCMData& in);

    void get_data(PCMData& out, int n) override;
    void on_data(const PCMData& in) override;

private:
    std::atomic<double> step{1.0};
    // Offset of the next output frame from the start of the next input
    // record, in input frames.
    std::atomic<double> phase{0.0};
};

} // namespace audio

#pragma once

#include "audio/stream_filter.h"
#include "audio/time_stretch.h"

#include <cstdint>

namespace audio {

// Slows sound down at its natural pitch. With `factor` 2 (or 3) it finds
// the pitch periods of each channel by their dominant positive peaks and
// plays each period `factor` times, the repeats cross-faded back into the
// waveform; factor 1 passes records on. The last 100 ms of input stay for the
// cross-fades to look back at. Besides, a time stretch at any speed from 0.5
// to 2.0 (TimeStretch) takes the filter's place while its speed is not 1.0.
// Threads: filter runs on the driver's thread under `lock`; set_factor and
// set_stretch run on the main thread and take `lock`. Units: frames of the
// current input for `cursor`; a stretch speed in input frames per output
// frame. Formats other than 8 or 16 bits in 1 or 2 channels pass unchanged.
class StretchFilter : public StreamFilter {
public:
    // 1, 2 or 3; a change starts the analysis again at the input's start.
    void set_factor(std::int32_t f);
    std::int32_t get_factor() const { return factor; }
    // A speed of 1.0 turns the stretch off. Changing the speed keeps the
    // stream's positions; leaving the stretch hands on nothing twice.
    void set_stretch(double speed);
    double get_stretch() const { return stretch.get_speed(); }

    void reset() override;
    std::size_t filter(PCMData& out, const PCMData& in, bool flush) override;

private:
    static constexpr int kMaxChannels = 2;

    struct Candidate {
        std::int32_t start;
        std::int32_t value;
    };
    // The analysis of one pass, in one sample format.
    struct Pass;
    template <class Sample>
    std::int32_t analyse(const PCMData& in, PCMData& out, bool flush);
    template <class Sample>
    void analyse_channel(Pass& pass, int ch);

    // Output of the last pass that is not yet final.
    PCMData carry;
    std::int32_t factor = 1;
    // Frame of the current input at which each channel's analysis stands.
    std::int32_t cursor[kMaxChannels] = {};
    TimeStretch stretch;
};

} // namespace audio

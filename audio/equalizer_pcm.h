#pragma once

#include "audio/pipeline.h"
#include "audio/records.h"

#include <cstdint>

namespace audio {

// One peaking band of the play path: a fixed-point biquad followed by a
// look-ahead limiter that rescales whole half-waves instead of clipping them.
// The look-ahead is rate / 10 frames (100 ms): an active band delays the
// sound by that much, its first 100 ms out are zeros and the last 100 ms of a
// stream stay inside it. A band at gain 0, or at a frequency the rate can't
// carry, passes records on untouched and adds no delay.
// Threads: process runs on the driver's thread under `lock`; the setters run
// on the main thread while the band is out of the path (they take no lock).
// Units: frequency in Hz, width in octaves, amplitude (gain at the centre) in
// dB. Records out are new blocks owned by the receiver.
class EqualizerPCM : public Processor<PCMData> {
public:
    // The Q28 coefficients a band filters with (1.0 is 1 << 28).
    struct Coefficients {
        std::int64_t b0 = 0, b1 = 0, b2 = 0, a1 = 0, a2 = 0;
    };
    // The coefficients of a band centred on `hz`, `octaves` wide, with `db`
    // at the centre, for `rate`; false when the rate can't carry the centre
    // (at or above rate / 2.01).
    static bool design(double hz, double octaves, double db, std::int32_t rate, Coefficients& out);
    // The gain in dB at `hz` of the biquad `c` running at `rate`.
    static double response_db(const Coefficients& c, double hz, std::int32_t rate);

    void set_frequency(double hz);
    void set_width(double octaves);
    void set_amplitude(double db);
    double get_frequency() const { return frequency; }
    double get_width() const { return width; }
    double get_amplitude() const { return amplitude; }

protected:
    void process(PCMData& out, const PCMData& in) override;

private:
    static constexpr int kMaxChannels = 2;

    // Makes the coefficients for `rate`; false when the band can't be made
    // there (its centre at or above rate / 2.01).
    bool make_coefficients();
    // Makes `work` hold `delay` frames of history for the format of `in`
    // with room for `need` frames, and returns its samples.
    std::int32_t* prepare_work(const PCMData& in, std::int32_t delay, std::int32_t need);
    // Runs the biquad over `frames` interleaved frames in place, the
    // channels side by side so that their recursions overlap.
    template <int Channels> void filter(std::int32_t* samples, std::int32_t frames);
    void limit(std::int32_t* samples, std::int32_t need, int channels);

    double frequency = 0.0;
    double width = 1.0;
    double amplitude = 0.0;
    std::int32_t rate = 0;
    bool valid = false;
    // Q28 coefficients (28 fractional bits, so 1.0 is 1 << 28).
    std::int64_t a1 = 0, a2 = 0, b0 = 0, b1 = 0, b2 = 0;
    // Filter history of one channel, in the sample format of `work`: the
    // last two samples in and out.
    struct History {
        std::int32_t in1 = 0, in2 = 0, out1 = 0, out2 = 0;
    };
    History history[kMaxChannels];
    // Delay line of 32-bit interleaved samples (`bits` 32) on a scale where
    // full scale is 1 << 27 (Q27). Between calls it holds the last `delay`
    // frames, not yet handed on; its block has room for more.
    PCMData work;
    // Frames of `work` whose half-waves the limiter has finished.
    std::int32_t scan[kMaxChannels] = {};
};

} // namespace audio

#pragma once

#include "audio/records.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace audio {

// Time stretch at natural pitch by any speed from 0.5 to 2.0: a
// waveform-similarity overlap-add. Every hop of output (20 ms) cross-fades
// the natural continuation of the last piece taken into the piece of input,
// near where the speed says the stream should stand, that looks most like
// that continuation (searched 10 ms either way, coarse on a 4 kHz average of
// the channels, then finer and finer). All channels share the offsets, so the
// stereo image stays. Sample work is integer; only the comparison of
// candidates divides in floating point.
// Threads: the caller's (the stretch filter, under its lock). Units: speed in
// input frames per output frame; positions in frames of the input as last
// given; records out are new blocks owned by the receiver.
class TimeStretch {
public:
    // Takes effect at the next hop; the stream's positions stay.
    void set_speed(double speed);
    double get_speed() const;
    bool is_active() const { return speed_q16_ != kUnit; }
    // Forgets the stream: the next input starts a new one.
    void reset();
    // Whether the bits and channels of `in` can be stretched (8 or 16 bits,
    // 1 to 8 channels).
    static bool can_stretch(const PCMData& in);

    // Stretches `in`, which starts where the last call's result left off,
    // into `out` and returns the bytes of `in` that are not needed again.
    // With `flush` the stream ends: everything is made, `out` has
    // exactly the frames that the input's length over the speed calls for,
    // and the stream is forgotten.
    std::size_t run(PCMData& out, const PCMData& in, bool flush);
    // The input frame up to which output has been made: the start of the
    // continuation of the last piece.
    std::int64_t made_to() const { return started_ ? prev_ : 0; }

private:
    static constexpr std::int64_t kUnit = std::int64_t(1) << 16; // Q16 speed and positions

    struct Shape {
        std::int32_t hop, seek, coarse;
    };
    static Shape shape_of(std::int32_t rate);
    // The channels of frame `f` summed, on a zero level of 0.
    static std::int32_t mono(const PCMData& in, std::int64_t f);
    // The start, within [lo, hi], of the piece of `hop` frames most like the
    // one at `prev_`.
    std::int64_t best_match(const PCMData& in, std::int64_t lo, std::int64_t hi, const Shape& shape);
    // The best start among from..to (within 0..last) every `every` frames,
    // comparing every `stride`-th frame of the hop.
    std::int64_t refine(std::int64_t from, std::int64_t to, std::int64_t every, std::int32_t stride,
                        std::int64_t last, std::int32_t hop) const;
    // Writes `count` frames: the continuation at `from` faded out, the
    // piece at `to` faded in.
    static void cross_fade(const PCMData& in, std::int64_t from, std::int64_t to, std::int32_t count,
                           std::uint8_t* dst);
    // The last frames of a flushed stream: the continuation, then its last
    // frame held.
    void tail(const PCMData& in, std::int64_t count, std::uint8_t* dst) const;

    std::int64_t speed_q16_ = kUnit;
    bool started_ = false;
    // Start of the continuation of the last piece taken.
    std::int64_t prev_ = 0;
    // Where the stream should stand by the speed, Q16 frames.
    std::int64_t nominal_q16_ = 0;
    // Work areas of best_match, kept to spare allocations.
    std::vector<std::int32_t> region_, target_;
    std::vector<std::int64_t> coarse_region_, coarse_target_;
};

} // namespace audio

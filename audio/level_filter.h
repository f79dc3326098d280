#pragma once

#include "audio/pipeline.h"
#include "audio/records.h"

#include <array>
#include <cstdint>

namespace audio {

// The dynamic processor of the play path (booster, noise gate, limiter). It
// maps the peak of each half-wave through a 256-point transfer curve and
// scales the half-wave by the resulting gain, so the gain only changes at
// zero crossings, in linear fades between one dominant peak and the next.
// It holds at least rate / 10 frames behind the newest input to find those
// peaks. Resting state is `identity`: records pass by reference, no delay.
// Threads: get_data / on_data run on the driver's thread under `lock`;
// set_curve, set_identity and reset run on the main thread and take `lock`.
// Units: curve points are output levels 0..256 for input levels 0..255 in
// steps of 1/256 of full scale; records out are views owned by the receiver.
class LevelFilter : public Consumer<PCMData>, public Provider<PCMData> {
public:
    // The settings' four steps Off, Low, Medium, High as curve parameters.
    static constexpr int kSteps[4] = {0, 8, 32, 128};
    // The parameter of a setting's index 0..3, or -1 for another index.
    static int step_value(int index);

    LevelFilter();

    // Builds the curve from a booster (-256..256, negative cuts), a noise
    // gate and a limiter (0..256 each). Values out of range leave the curve
    // as it is; all three 0 make the filter the identity.
    void set_curve(int booster, int noise, int limiter);
    void set_identity();
    // Forgets the peaks and positions of the stream (the owner calls it when
    // a new stream starts, before set_curve).
    void reset();

    bool is_identity() const { return identity; }
    const std::array<std::int32_t, 256>& get_curve() const { return curve; }
    // The output level in Q29 (1 << 29 is full scale) of a half-wave whose
    // peak is `x` in Q15.
    std::int32_t level_of(std::int32_t x) const;

    void on_data(const PCMData& in) override;
    void get_data(PCMData& out, int n) override;

private:
    static constexpr int kMaxChannels = 2;

    // Works on `block` in place (a block this filter made, offset 0) and
    // returns the bytes finished at its start. Without `flush` it keeps
    // rate / 10 frames back and stops at an open half-wave; with `flush`
    // everything is finished.
    std::size_t process(PCMData& block, bool flush);
    // Scales one channel from `cursor` to `limit`; returns the end of the
    // best peak seen and its value in `best_peak`, for forced progress.
    std::int32_t process_channel(std::int32_t* s, int channels, int ch, std::int32_t frames,
                                 std::int32_t limit, std::int32_t margin, bool flush,
                                 std::int32_t& best_peak);
    std::int32_t gain_of(std::int32_t peak) const;
    // Takes at most `n` frames from `ready`.
    void take(PCMData& out, int n);
    // Processes `input` with flush into `ready` (what is left stays input).
    void flush_input();

    bool identity = true;
    PCMData input;
    PCMData ready;
    std::array<std::int32_t, 256> curve{};
    // Signed peak of the previous half-wave per channel, Q15.
    std::int32_t last_peak[kMaxChannels] = {};
    // Frame of `input` at which the work of each channel stands.
    std::int32_t cursor[kMaxChannels] = {};
};

} // namespace audio

#include "audio/fast_play.h"

#include <cmath>
#include <cstring>

namespace audio {

bool FastPlay::set_step(double v)
{
    if (v == step.load(std::memory_order_relaxed))
        return false;
    step.store(v, std::memory_order_relaxed);
    phase.store(0.0, std::memory_order_relaxed);
    return true;
}

void FastPlay::resample(PCMData& out, const PCMData& in)
{
    // One read of each: the main thread may change them meanwhile.
    const double s = step.load(std::memory_order_relaxed);
    const double p = phase.load(std::memory_order_relaxed);
    if (in.empty() || s == 1.0) {
        out = in;
        return;
    }
    if (s == 0.0) {
        out = PCMData();
        return;
    }
    const double frames = static_cast<double>(in.sample_count());
    out.channels = in.channels;
    out.bits = in.bits;
    out.rate = in.rate;
    if (frames - p <= 0.0) {
        phase.store(p - frames, std::memory_order_relaxed);
        out.bytes = liba::ByteBlock();
        return;
    }
    const auto n = static_cast<std::size_t>(std::trunc((frames - p - 1.0) / s)) + 1;
    const auto frame = static_cast<std::size_t>(in.bytes_per_frame());
    liba::ByteBlock block(n * frame);
    std::uint8_t* dst = block.writable();
    const std::uint8_t* src = in.bytes.data();
    for (std::size_t i = 0; i < n; ++i) {
        const auto k = static_cast<std::size_t>(std::trunc(static_cast<double>(i) * s + p));
        std::memcpy(dst + i * frame, src + k * frame, frame);
    }
    out.bytes = std::move(block);
    phase.store(-((frames - p) - static_cast<double>(n) * s), std::memory_order_relaxed);
}

void FastPlay::get_data(PCMData& out, int n)
{
    liba::Lock held(lock);
    for (;;) {
        int want = static_cast<int>(std::trunc(n * get_step() + get_phase()));
        if (want < 1)
            want = 1;
        PCMData in;
        pull_data(in, want);
        if (in.empty()) {
            out = in;
            return;
        }
        resample(out, in);
        // A step of 0 picks nothing ever: that ends the stream here.
        if (!out.empty() || get_step() == 0.0)
            return;
    }
}

void FastPlay::on_data(const PCMData& in)
{
    if (in.empty()) {
        push_data(in);
        return;
    }
    PCMData out;
    resample(out, in);
    if (!out.empty())
        push_data(out);
}

} // namespace audio

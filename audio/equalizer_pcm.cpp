#include "audio/equalizer_pcm.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

namespace audio {

namespace {

// Coefficients carry 28 fractional bits.
constexpr int kCoefShift = 28;
constexpr double kCoefOne = double(std::int64_t(1) << kCoefShift);
// Samples in the delay line: 16-bit ones moved up by 12 bits and 8-bit ones
// by 20 put full scale at 1 << 27 and leave headroom for a boosted band.
constexpr int kShift16 = 12;
constexpr int kShift8 = 20;
constexpr std::int32_t kFullScale = std::int32_t(1) << 27;   // 0x8000000
constexpr std::int32_t kKnee = kFullScale / 4 * 3;            // 0x6000000
// A band whose centre is at or above rate / 2.01 is refused.
constexpr double kTopOfBand = 1.0 / 2.01;
constexpr double kHalfLn2 = 0.34657359027997264;

std::int32_t saturate32(std::int64_t v)
{
    return std::int32_t(std::clamp<std::int64_t>(v, INT32_MIN, INT32_MAX));
}

} // namespace

void EqualizerPCM::set_frequency(double hz)
{
    frequency = hz;
    valid = false;
}

void EqualizerPCM::set_width(double octaves)
{
    width = octaves;
    valid = false;
}

void EqualizerPCM::set_amplitude(double db)
{
    amplitude = db;
    valid = false;
}

bool EqualizerPCM::make_coefficients()
{
    const double fs = rate;
    if (!(frequency < fs * kTopOfBand))
        return false;
    const double s = std::sinh(width * kHalfLn2);
    const double gain = std::pow(10.0, amplitude * 0.025);
    const double w = 2.0 * std::numbers::pi * frequency / fs;
    const double c = std::cos(w);
    const double alpha = std::sin(w) * s;
    const double n = 1.0 / (1.0 + alpha / gain);
    b0 = std::int64_t((1.0 + alpha * gain) * n * kCoefOne);
    b1 = a1 = std::int64_t(-2.0 * c * n * kCoefOne);
    b2 = std::int64_t((1.0 - alpha * gain) * n * kCoefOne);
    a2 = std::int64_t((1.0 - alpha / gain) * n * kCoefOne);
    std::fill(std::begin(in1), std::end(in1), 0);
    std::fill(std::begin(in2), std::end(in2), 0);
    std::fill(std::begin(out1), std::end(out1), 0);
    std::fill(std::begin(out2), std::end(out2), 0);
    valid = true;
    return true;
}

std::int32_t* EqualizerPCM::prepare_work(const PCMData& in, std::int32_t delay, std::int32_t need)
{
    const int channels = in.channels;
    const std::size_t frame_bytes = sizeof(std::int32_t) * std::size_t(channels);
    bool keep = work.channels == in.channels && work.rate == in.rate;
    if (!keep) {
        std::fill(std::begin(scan), std::end(scan), 0);
        work = PCMData();
    }
    if (work.bytes.size() < std::size_t(need) * frame_bytes) {
        // Twice what this call needs, so that steady records of one size
        // never make another block.
        liba::ByteBlock grown(std::size_t(need) * frame_bytes * 2);
        std::uint8_t* to = grown.writable();
        std::memset(to, 0, grown.size());
        if (keep)
            std::memcpy(to, work.bytes.data(), std::size_t(delay) * frame_bytes);
        work.bytes = grown;
        work.channels = in.channels;
        work.bits = 32;
        work.rate = in.rate;
    }
    return reinterpret_cast<std::int32_t*>(work.bytes.writable());
}

void EqualizerPCM::filter(std::int32_t* samples, std::int32_t frames, int channels)
{
    for (int ch = 0; ch < channels; ++ch) {
        std::int64_t x1 = in1[ch], x2 = in2[ch], y1 = out1[ch], y2 = out2[ch];
        std::int32_t* p = samples + ch;
        for (std::int32_t i = 0; i < frames; ++i, p += channels) {
            const std::int64_t x = *p;
            const std::int64_t sum = b0 * x + b1 * x1 + b2 * x2 - a1 * y1 - a2 * y2;
            const std::int32_t y = saturate32(sum >> kCoefShift);
            x2 = x1;
            x1 = x;
            y2 = y1;
            y1 = y;
            *p = y;
        }
        in1[ch] = std::int32_t(x1);
        in2[ch] = std::int32_t(x2);
        out1[ch] = std::int32_t(y1);
        out2[ch] = std::int32_t(y2);
    }
}

void EqualizerPCM::limit(std::int32_t* samples, std::int32_t need, int channels)
{
    for (int ch = 0; ch < channels; ++ch) {
        auto at = [&](std::int32_t f) -> std::int32_t& { return samples[std::size_t(f) * channels + ch]; };
        std::int32_t start = scan[ch];
        while (start < need) {
            // The half-wave runs to the next change of sign; a zero belongs
            // to the half-wave before it.
            std::int64_t peak = std::abs(std::int64_t(at(start)));
            std::int32_t end = start + 1;
            for (; end < need; ++end) {
                const std::int32_t prev = at(end - 1), cur = at(end);
                if ((cur < 0 && prev >= 0) || (cur > 0 && prev <= 0))
                    break;
                peak = std::max(peak, std::abs(std::int64_t(cur)));
            }
            // Still open at the end of the line: its peak may yet grow.
            if (end == need && at(need - 1) != 0)
                break;
            if (peak > kKnee) {
                const std::int64_t target = peak <= kFullScale ? (peak + kKnee) / 2 : kFullScale;
                for (std::int32_t f = start; f < end; ++f) {
                    const std::int64_t v = std::int64_t(at(f)) * target / peak;
                    at(f) = std::int32_t(std::clamp<std::int64_t>(v, -kFullScale, kFullScale - 1));
                }
            }
            start = end;
        }
        scan[ch] = start;
    }
}

void EqualizerPCM::process(PCMData& out, const PCMData& in)
{
    const int width_bytes = (in.bits + 7) / 8;
    if (amplitude == 0.0 || in.empty() || (in.channels != 1 && in.channels != 2) ||
        (width_bytes != 1 && width_bytes != 2) || in.rate < 1) {
        out = in;
        return;
    }
    if (in.rate != rate) {
        valid = false;
        rate = in.rate;
    }
    if (!valid && !make_coefficients()) {
        out = in;
        return;
    }
    const int channels = in.channels;
    const std::int32_t delay = in.rate / 10;
    const std::int32_t frames = std::int32_t(in.sample_count());
    const std::int32_t need = delay + frames;
    std::int32_t* w = prepare_work(in, delay, need);

    // New samples go in behind the history.
    std::int32_t* fresh = w + std::size_t(delay) * channels;
    const std::size_t count = std::size_t(frames) * channels;
    if (width_bytes == 2) {
        const std::uint8_t* src = in.bytes.data();
        for (std::size_t i = 0; i < count; ++i) {
            std::int16_t s;
            std::memcpy(&s, src + 2 * i, 2);
            fresh[i] = std::int32_t(s) * (1 << kShift16);
        }
    } else {
        const std::uint8_t* src = in.bytes.data();
        for (std::size_t i = 0; i < count; ++i)
            fresh[i] = (std::int32_t(src[i]) - 128) * (1 << kShift8);
    }
    filter(fresh, frames, channels);
    limit(w, need, channels);

    // The oldest frames go out; a sample the limiter hasn't reached yet (a
    // half-wave longer than the look-ahead) is clipped rather than wrapped.
    liba::ByteBlock bytes(count * std::size_t(width_bytes));
    std::uint8_t* dst = bytes.writable();
    if (width_bytes == 2) {
        for (std::size_t i = 0; i < count; ++i) {
            const std::int16_t s = std::int16_t(std::clamp(w[i] >> kShift16, -32768, 32767));
            std::memcpy(dst + 2 * i, &s, 2);
        }
    } else {
        for (std::size_t i = 0; i < count; ++i)
            dst[i] = std::uint8_t(std::clamp((w[i] >> kShift8) + 128, 0, 255));
    }
    out.bytes = bytes;
    out.channels = in.channels;
    out.bits = in.bits;
    out.rate = in.rate;

    std::memmove(w, w + count, std::size_t(delay) * channels * sizeof(std::int32_t));
    for (int ch = 0; ch < channels; ++ch)
        scan[ch] = std::max(0, scan[ch] - frames);
}

} // namespace audio

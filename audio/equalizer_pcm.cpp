#include "audio/equalizer_pcm.h"

#include <algorithm>
#include <cmath>
#include <complex>
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

// The biquad's sum in the sample scale, saturated. The range check is a
// branch the predictor gets right, which keeps the clamp off the recursion's
// critical path.
std::int32_t saturate32(std::int64_t v)
{
    const std::int32_t narrow = std::int32_t(v);
    if (__builtin_expect(narrow == v, 1))
        return narrow;
    return v < 0 ? INT32_MIN : INT32_MAX;
}

// One channel of the interleaved delay line; the stride is a constant so
// that the search for loud frames unrolls without index arithmetic.
template <int Channels> struct Strided {
    std::int32_t* samples;
    std::int32_t& operator[](std::int32_t f) const { return samples[std::size_t(f) * Channels]; }
};

// Beyond the knee, where the limiter must look at the whole half-wave. The
// sum is unsigned so that the sign test and the range test are one compare.
bool loud(std::int32_t v)
{
    return std::uint32_t(v) + std::uint32_t(kKnee) > std::uint32_t(2 * kKnee);
}

// A half-wave starts where the sign changes; a zero belongs to the
// half-wave before it.
bool crossing(std::int32_t prev, std::int32_t cur)
{
    return (cur < 0 && prev >= 0) || (cur > 0 && prev <= 0);
}

// The first loud frame of [from, to), or `to`. Almost every frame is quiet,
// so the frames are tested in runs without a branch per frame.
template <int Channels> std::int32_t find_loud(Strided<Channels> at, std::int32_t from, std::int32_t to)
{
    constexpr std::int32_t kRun = 16;
    std::int32_t f = from;
    for (; f + kRun <= to; f += kRun) {
        bool any = false;
        for (std::int32_t k = 0; k < kRun; ++k)
            any |= loud(at[f + k]);
        if (any)
            break;
    }
    for (; f < to; ++f)
        if (loud(at[f]))
            return f;
    return to;
}

// Scales the half-wave [start, end), whose peak is beyond the knee, as a
// whole: a peak up to full scale comes down halfway to the knee, a greater
// one to full scale.
template <int Channels> void scale_half_wave(Strided<Channels> at, std::int32_t start, std::int32_t end)
{
    std::int64_t peak = 0;
    for (std::int32_t f = start; f < end; ++f)
        peak = std::max(peak, std::abs(std::int64_t(at[f])));
    const std::int64_t target = peak <= kFullScale ? (peak + kKnee) / 2 : kFullScale;
    for (std::int32_t f = start; f < end; ++f) {
        const std::int64_t v = std::int64_t(at[f]) * target / peak;
        at[f] = std::int32_t(std::clamp<std::int64_t>(v, -kFullScale, kFullScale - 1));
    }
}

// Limits one channel's half-waves from `start`, the first one not yet
// finished, to `need`; returns where the half-wave still open at the end of
// the line starts (or `need` when none is open). Only a half-wave with a
// loud sample needs its bounds found.
template <int Channels> std::int32_t limit_channel(Strided<Channels> at, std::int32_t start, std::int32_t need)
{
    for (;;) {
        const std::int32_t f = find_loud(at, start, need);
        if (f == need)
            break;
        std::int32_t first = f;
        while (first > start && !crossing(at[first - 1], at[first]))
            --first;
        std::int32_t end = f + 1;
        while (end < need && !crossing(at[end - 1], at[end]))
            ++end;
        // Still open at the end of the line: its peak may yet grow.
        if (end == need && at[need - 1] != 0)
            return first;
        scale_half_wave(at, first, end);
        start = end;
    }
    if (start == need || at[need - 1] == 0)
        return need;
    std::int32_t first = need - 1;
    while (first > start && !crossing(at[first - 1], at[first]))
        --first;
    return first;
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

bool EqualizerPCM::design(double hz, double octaves, double db, std::int32_t rate, Coefficients& out)
{
    const double fs = rate;
    if (!(hz < fs * kTopOfBand))
        return false;
    const double s = std::sinh(octaves * kHalfLn2);
    const double gain = std::pow(10.0, db * 0.025);
    const double w = 2.0 * std::numbers::pi * hz / fs;
    const double c = std::cos(w);
    const double alpha = std::sin(w) * s;
    const double n = 1.0 / (1.0 + alpha / gain);
    out.b0 = std::int64_t((1.0 + alpha * gain) * n * kCoefOne);
    out.b1 = out.a1 = std::int64_t(-2.0 * c * n * kCoefOne);
    out.b2 = std::int64_t((1.0 - alpha * gain) * n * kCoefOne);
    out.a2 = std::int64_t((1.0 - alpha / gain) * n * kCoefOne);
    return true;
}

double EqualizerPCM::response_db(const Coefficients& c, double hz, std::int32_t rate)
{
    // H(z) = (b0 + b1 z^-1 + b2 z^-2) / (1 + a1 z^-1 + a2 z^-2) on the unit circle.
    const std::complex<double> z1 = std::polar(1.0, -2.0 * std::numbers::pi * hz / rate);
    const std::complex<double> z2 = z1 * z1;
    const std::complex<double> num = (double(c.b0) + double(c.b1) * z1 + double(c.b2) * z2) / kCoefOne;
    const std::complex<double> den = 1.0 + (double(c.a1) * z1 + double(c.a2) * z2) / kCoefOne;
    return 20.0 * std::log10(std::abs(num) / std::abs(den));
}

bool EqualizerPCM::make_coefficients()
{
    Coefficients c;
    if (!design(frequency, width, amplitude, rate, c))
        return false;
    b0 = c.b0;
    b1 = c.b1;
    b2 = c.b2;
    a1 = c.a1;
    a2 = c.a2;
    std::fill(std::begin(history), std::end(history), History());
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

template <int Channels> void EqualizerPCM::filter(std::int32_t* samples, std::int32_t frames)
{
    std::int64_t x1[Channels], x2[Channels], y1[Channels], y2[Channels];
    for (int ch = 0; ch < Channels; ++ch) {
        x1[ch] = history[ch].in1;
        x2[ch] = history[ch].in2;
        y1[ch] = history[ch].out1;
        y2[ch] = history[ch].out2;
    }
    std::int32_t* p = samples;
    for (std::int32_t i = 0; i < frames; ++i, p += Channels) {
        for (int ch = 0; ch < Channels; ++ch) {
            const std::int64_t x = p[ch];
            // Everything but the last output first: only a1 * y1 waits on
            // the sample before.
            const std::int64_t known = b0 * x + b1 * x1[ch] + b2 * x2[ch] - a2 * y2[ch];
            const std::int32_t y = saturate32((known - a1 * y1[ch]) >> kCoefShift);
            x2[ch] = x1[ch];
            x1[ch] = x;
            y2[ch] = y1[ch];
            y1[ch] = y;
            p[ch] = y;
        }
    }
    for (int ch = 0; ch < Channels; ++ch)
        history[ch] = {std::int32_t(x1[ch]), std::int32_t(x2[ch]), std::int32_t(y1[ch]), std::int32_t(y2[ch])};
}

void EqualizerPCM::limit(std::int32_t* samples, std::int32_t need, int channels)
{
    if (channels == 2) {
        scan[0] = limit_channel(Strided<2>{samples}, scan[0], need);
        scan[1] = limit_channel(Strided<2>{samples + 1}, scan[1], need);
    } else {
        scan[0] = limit_channel(Strided<1>{samples}, scan[0], need);
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
    if (channels == 2)
        filter<2>(fresh, frames);
    else
        filter<1>(fresh, frames);
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

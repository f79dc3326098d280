#include "audio/time_stretch.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace audio {

namespace {

// Hop of 20 ms, a search of 10 ms either way (a low voice's pitch period),
// and a coarse search on averages of the channels at about 4 kHz.
constexpr std::int32_t kHopsPerSecond = 50;
constexpr std::int32_t kSeeksPerSecond = 100;
constexpr std::int32_t kCoarseRate = 4000;
constexpr int kWeightShift = 32;

std::int32_t sample_at(const PCMData& in, std::int64_t index)
{
    const std::uint8_t* p = in.bytes.data();
    if (in.bits == 8)
        return std::int32_t(p[index]) - 128;
    return static_cast<std::int16_t>(p[index * 2] | (p[index * 2 + 1] << 8));
}

void put_sample(std::uint8_t* dst, std::int64_t index, int bits, std::int32_t v)
{
    if (bits == 8) {
        dst[index] = static_cast<std::uint8_t>(v + 128);
        return;
    }
    const auto s = static_cast<std::int16_t>(v);
    std::memcpy(dst + index * 2, &s, 2);
}

// How alike a candidate is to the target: its correlation over the root of
// its energy, so that loud pieces do not win for loudness alone.
double likeness(std::int64_t correlation, std::int64_t energy)
{
    return static_cast<double>(correlation) / std::sqrt(static_cast<double>(energy) + 1.0);
}

} // namespace

void TimeStretch::set_speed(double speed)
{
    speed_q16_ = std::llround(std::clamp(speed, 0.5, 2.0) * static_cast<double>(kUnit));
}

double TimeStretch::get_speed() const
{
    return static_cast<double>(speed_q16_) / static_cast<double>(kUnit);
}

void TimeStretch::reset()
{
    started_ = false;
    prev_ = 0;
    nominal_q16_ = 0;
}

bool TimeStretch::can_stretch(const PCMData& in)
{
    return (in.bits == 8 || in.bits == 16) && in.channels >= 1 && in.channels <= 8 && in.rate > 0;
}

TimeStretch::Shape TimeStretch::shape_of(std::int32_t rate)
{
    Shape s;
    s.hop = std::max(rate / kHopsPerSecond, 8);
    s.seek = std::max(rate / kSeeksPerSecond, 4);
    s.coarse = std::max(rate / kCoarseRate, 1);
    return s;
}

std::int32_t TimeStretch::mono(const PCMData& in, std::int64_t f)
{
    std::int32_t sum = 0;
    if (in.bits == 16) {
        const std::uint8_t* p = in.bytes.data() + f * in.channels * 2;
        for (std::int32_t c = 0; c < in.channels; ++c, p += 2)
            sum += static_cast<std::int16_t>(p[0] | (p[1] << 8));
        return sum;
    }
    for (std::int32_t c = 0; c < in.channels; ++c)
        sum += sample_at(in, f * in.channels + c);
    return sum;
}

std::int64_t TimeStretch::best_match(const PCMData& in, std::int64_t lo, std::int64_t hi, const Shape& shape)
{
    const std::int32_t hop = shape.hop, step = shape.coarse;
    const auto span = static_cast<std::size_t>(hi - lo + hop);
    region_.resize(span);
    target_.resize(static_cast<std::size_t>(hop));
    for (std::size_t i = 0; i < span; ++i)
        region_[i] = mono(in, lo + static_cast<std::int64_t>(i));
    for (std::int32_t i = 0; i < hop; ++i)
        target_[static_cast<std::size_t>(i)] = mono(in, prev_ + i);

    // Coarse: sums of `step` frames, candidates `step` frames apart.
    const std::size_t coarse_span = span / static_cast<std::size_t>(step);
    const std::size_t coarse_hop = static_cast<std::size_t>(hop / step);
    coarse_region_.assign(coarse_span, 0);
    coarse_target_.assign(coarse_hop, 0);
    for (std::size_t i = 0; i < coarse_span * static_cast<std::size_t>(step); ++i)
        coarse_region_[i / static_cast<std::size_t>(step)] += region_[i];
    for (std::size_t i = 0; i < coarse_hop * static_cast<std::size_t>(step); ++i)
        coarse_target_[i / static_cast<std::size_t>(step)] += target_[i];
    std::int64_t coarse_best = 0;
    double best = -1e300;
    for (std::size_t j = 0; j + coarse_hop <= coarse_span; ++j) {
        std::int64_t correlation = 0, energy = 0;
        for (std::size_t m = 0; m < coarse_hop; ++m) {
            const std::int64_t v = coarse_region_[j + m];
            correlation += coarse_target_[m] * v;
            energy += v * v;
        }
        const double score = likeness(correlation, energy);
        if (score > best) {
            best = score;
            coarse_best = static_cast<std::int64_t>(j) * step;
        }
    }

    // Then every third frame within one coarse step, on every other sample,
    // and last every frame within two of that.
    std::int64_t best_at = refine(coarse_best - step, coarse_best + step, 3, 2, hi - lo, hop);
    best_at = refine(best_at - 2, best_at + 2, 1, 1, hi - lo, hop);
    return lo + best_at;
}

std::int64_t TimeStretch::refine(std::int64_t from, std::int64_t to, std::int64_t every, std::int32_t stride,
                                 std::int64_t last, std::int32_t hop) const
{
    from = std::max<std::int64_t>(from, 0);
    to = std::min(to, last);
    std::int64_t best_at = from;
    double best = -1e300;
    for (std::int64_t a = from; a <= to; a += every) {
        std::int64_t correlation = 0, energy = 0;
        const std::int32_t* r = region_.data() + a;
        const std::int32_t* t = target_.data();
        for (std::int32_t m = 0; m < hop; m += stride) {
            correlation += std::int64_t(t[m]) * r[m];
            energy += std::int64_t(r[m]) * r[m];
        }
        const double score = likeness(correlation, energy);
        if (score > best) {
            best = score;
            best_at = a;
        }
    }
    return best_at;
}

void TimeStretch::cross_fade(const PCMData& in, std::int64_t from, std::int64_t to, std::int32_t count,
                             std::uint8_t* dst)
{
    // Weights in Q32: the piece's grows by 1 / count a frame.
    const std::int32_t ch = in.channels;
    const std::int64_t rise = (std::int64_t(1) << kWeightShift) / count;
    for (std::int32_t i = 0; i < count; ++i) {
        const std::int64_t w = rise * i, keep = (std::int64_t(1) << kWeightShift) - w;
        for (std::int32_t c = 0; c < ch; ++c) {
            const std::int64_t out = std::int64_t(sample_at(in, (from + i) * ch + c)) * keep +
                                     std::int64_t(sample_at(in, (to + i) * ch + c)) * w;
            put_sample(dst, std::int64_t(i) * ch + c, in.bits, static_cast<std::int32_t>(out >> kWeightShift));
        }
    }
}

void TimeStretch::tail(const PCMData& in, std::int64_t count, std::uint8_t* dst) const
{
    const auto frames = static_cast<std::int64_t>(in.sample_count());
    const std::int64_t frame = in.bytes_per_frame();
    const std::int64_t from = std::min(made_to(), frames);
    const std::int64_t have = std::min(count, frames - from);
    if (have > 0)
        std::memcpy(dst, in.bytes.data() + from * frame, static_cast<std::size_t>(have * frame));
    for (std::int64_t i = std::max<std::int64_t>(have, 0); i < count; ++i) {
        if (frames > 0)
            std::memcpy(dst + i * frame, in.bytes.data() + (frames - 1) * frame, static_cast<std::size_t>(frame));
        else
            std::memset(dst + i * frame, in.bits == 8 ? 128 : 0, static_cast<std::size_t>(frame));
    }
}

std::size_t TimeStretch::run(PCMData& out, const PCMData& in, bool flush)
{
    out = in;
    const auto frames = static_cast<std::int64_t>(in.sample_count());
    const std::int64_t frame = in.bytes_per_frame();
    const Shape shape = shape_of(in.rate);
    const std::int64_t hop = shape.hop;
    // At most: a hop for each half-hop of input, and the tail.
    const std::int64_t room = (frames / (hop / 2) + 2) * hop + frames * 2 + 1;
    liba::ByteBlock block(static_cast<std::size_t>(room * frame));
    std::uint8_t* dst = block.writable();
    std::int64_t made = 0;
    for (;;) {
        // A hop moves the stream on by hop x speed: never beyond the input,
        // so that a flush has the rest to make and never too much made.
        const std::int64_t after_q16 = (started_ ? nominal_q16_ : 0) + hop * speed_q16_;
        if (after_q16 > (frames << 16))
            break;
        if (!started_) {
            if (hop > frames)
                break;
            std::memcpy(dst, in.bytes.data(), static_cast<std::size_t>(hop * frame));
            made = hop;
            prev_ = hop;
            nominal_q16_ = hop * speed_q16_;
            started_ = true;
            continue;
        }
        const std::int64_t nominal = nominal_q16_ >> 16;
        const std::int64_t lo = std::max<std::int64_t>(nominal - shape.seek, 0);
        const std::int64_t hi = nominal + shape.seek;
        if (std::max(hi, prev_) + hop > frames)
            break;
        const std::int64_t a = best_match(in, lo, hi, shape);
        cross_fade(in, prev_, a, shape.hop, dst + made * frame);
        made += hop;
        prev_ = a + hop;
        nominal_q16_ += hop * speed_q16_;
    }
    std::size_t used = 0;
    if (flush) {
        const std::int64_t rest_q16 = (frames << 16) - (started_ ? nominal_q16_ : 0);
        const std::int64_t count = std::max<std::int64_t>((rest_q16 + speed_q16_ / 2) / speed_q16_, 0);
        tail(in, count, dst + made * frame);
        made += count;
        reset();
        used = in.bytes.size();
    } else if (started_) {
        // Keep what the next search may reach back to.
        const std::int64_t drop =
            std::max<std::int64_t>(std::min(prev_, (nominal_q16_ >> 16) - shape.seek), 0);
        prev_ -= drop;
        nominal_q16_ -= drop << 16;
        used = static_cast<std::size_t>(drop * frame);
    }
    out.bytes = liba::ByteBlock(block, 0, static_cast<std::size_t>(made * frame));
    return used;
}

} // namespace audio

#include "audio/level_filter.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace audio {

namespace {

// Gains carry 14 fractional bits; levels of the lookup 29 (Q29), peaks 15.
constexpr int kGainShift = 14;
constexpr std::int32_t kUnity = std::int32_t(1) << kGainShift;
constexpr int kLevelShift = 29;
constexpr std::int32_t kLevelTop = std::int32_t(1) << kLevelShift;
// Input level steps of the curve: 32768 / 256.
constexpr std::int32_t kStep = 128;
// The filter pulls this many frames at a time, whatever is asked of it.
constexpr int kPullFrames = 5000;
// Input held back before a block is worth processing.
constexpr std::size_t kHoldBytes = 32000;
// The de-clipper never estimates a true peak above 1.5 of full scale.
constexpr std::int64_t kEstimateLimit = 49152;

bool crossing(const std::int32_t* s, int channels, int ch, std::int32_t f)
{
    return std::int64_t(s[std::size_t(f) * channels + ch]) * s[std::size_t(f - 1) * channels + ch] < 1;
}

// A product rounded towards 0, as the gains are applied.
std::int32_t apply(std::int32_t x, std::int32_t g)
{
    const std::int64_t p = std::int64_t(x) * g;
    return std::int32_t(p >= 0 ? p >> kGainShift : -((-p) >> kGainShift));
}

// Rebuilds the flat tops of one 16-bit half-wave [a, b) of channel `ch`
// and scales the whole half-wave so that its rebuilt peak fits.
void declip_half_wave(std::int32_t* s, int channels, int ch, std::int32_t frames, std::int32_t a,
                      std::int32_t b)
{
    auto at = [&](std::int32_t f) -> std::int32_t& { return s[std::size_t(f) * channels + ch]; };
    struct Run {
        std::int32_t start, end;
        std::int64_t before, after, m0, m1, estimate;
    };
    std::vector<Run> runs;
    std::int64_t greatest = 0;
    std::int32_t magnitude = 0;
    for (std::int32_t k = a; k < b; ++k) {
        const std::int32_t v = at(k);
        if (v != 32767 && v != -32768)
            continue;
        // The run goes on while the sample stays at the rail, over at most
        // one sample that strays.
        std::int32_t e = k + 1;
        bool strayed = false;
        while (e < b) {
            if (at(e) == v) {
                ++e;
            } else if (!strayed && e + 1 < b && at(e + 1) == v) {
                strayed = true;
                e += 2;
            } else {
                break;
            }
        }
        const std::int32_t start = k;
        k = e - 1;
        if (e - start <= 2 || start < 2 || e + 1 >= frames)
            continue;
        const std::int64_t m0 = std::abs(at(start - 1)), m1 = std::abs(at(e));
        const std::int64_t rail = std::abs(std::int64_t(v));
        const std::int64_t before = std::max(rail - m0, m0 - std::abs(at(start - 2)));
        const std::int64_t after = std::max(rail - m1, m1 - std::abs(at(e + 1)));
        if (before <= 0 || after <= 0)
            continue;
        const std::int64_t len = e - start;
        std::int64_t estimate = m0 + ((len + 1) * after + (m1 - m0) * 2) * before / (2 * (after + before));
        estimate = std::min(estimate, kEstimateLimit);
        runs.push_back({start, e, before, after, m0, m1, estimate});
        greatest = std::max(greatest, estimate);
        magnitude = std::int32_t(rail);
    }
    if (runs.empty() || greatest <= magnitude)
        return;
    const std::int32_t scale = std::int32_t(std::int64_t(magnitude) * kUnity / greatest);
    for (const Run& r : runs) {
        // A pointed top along the slopes on both sides, pressed down so its
        // apex is the estimate: continuous with its neighbours, never flat.
        const std::int64_t base = std::max(r.m0, r.m1);
        std::int64_t apex = base;
        for (std::int32_t f = r.start; f < r.end; ++f)
            apex = std::max(apex, std::min(r.m0 + r.before * (f - r.start + 1), r.m1 + r.after * (r.end - f)));
        const std::int32_t sign = at(r.start) < 0 ? -1 : 1;
        for (std::int32_t f = r.start; f < r.end; ++f) {
            std::int64_t v = std::min(r.m0 + r.before * (f - r.start + 1), r.m1 + r.after * (r.end - f));
            if (apex > r.estimate && v > base)
                v = base + (v - base) * (r.estimate - base) / (apex - base);
            at(f) = sign * std::int32_t(v);
        }
    }
    for (std::int32_t f = a; f < b; ++f)
        at(f) = apply(at(f), scale);
}

} // namespace

int LevelFilter::step_value(int index)
{
    return index >= 0 && index < 4 ? kSteps[index] : -1;
}

LevelFilter::LevelFilter()
{
    set_identity();
}

void LevelFilter::set_identity()
{
    liba::Lock held(lock);
    for (int i = 0; i < 256; ++i)
        curve[std::size_t(i)] = i + 1;
    identity = true;
}

void LevelFilter::reset()
{
    liba::Lock held(lock);
    std::fill(std::begin(last_peak), std::end(last_peak), 0);
    std::fill(std::begin(cursor), std::end(cursor), 0);
}

void LevelFilter::set_curve(int booster, int noise, int limiter)
{
    if (booster < -256 || booster > 256 || noise < 0 || noise > 256 || limiter < 0 || limiter > 256)
        return;
    if (booster == 0 && noise == 0 && limiter == 0) {
        set_identity();
        return;
    }
    liba::Lock held(lock);
    identity = false;
    // Booster: a family of curves through (0, 0) and (1, 1), bent up for a
    // boost and down for a cut.
    for (int i = 1; i <= 256; ++i) {
        const double t = i / 256.0;
        if (booster <= 0) {
            const double k = 1.0 - booster / 32.0;
            curve[std::size_t(i - 1)] = 256 - std::int32_t(256.0 * std::pow(1.0 - std::pow(t, k), 1.0 / k));
        } else {
            const double k = 1.0 + booster / 32.0;
            curve[std::size_t(i - 1)] = std::int32_t(256.0 * std::pow(1.0 - std::pow(1.0 - t, k), 1.0 / k));
        }
    }
    // Noise gate: silence below `noise`, then a ramp up to the curve at `top`.
    if (noise > 0) {
        const int top = int(std::sqrt(double(noise)) * 16.0 + 1.0);
        const std::int32_t level = top >= 256 ? curve[255] : curve[std::size_t(top)];
        for (int i = 0; i < std::min(top, 256); ++i)
            curve[std::size_t(i)] = i < noise ? 0 : (i - noise) * level / (top - noise);
    }
    // Limiter: above the knee only part of the excess is kept.
    const std::int32_t knee = (256 - limiter) * (256 - limiter) / 256;
    const std::int32_t span = 256 - knee;
    for (auto& c : curve)
        if (c > knee)
            c = knee + (c - knee) * (span - limiter) / span + 1;
}

std::int32_t LevelFilter::level_of(std::int32_t x) const
{
    const std::int32_t a = std::abs(x);
    const std::int32_t i = a / kStep, r = a % kStep;
    const std::int64_t lo = i == 0 ? 0 : std::int64_t(curve[std::size_t(i - 1)]) * kStep;
    const std::int64_t hi = i >= 256 ? 32768 : std::int64_t(curve[std::size_t(i)]) * kStep;
    std::int64_t level = ((kStep - r) * lo + r * hi) * (std::int64_t(1) << 14) / kStep;
    if (level >= kLevelTop && x > 0)
        level = kLevelTop - 1;
    return std::int32_t(level);
}

std::int32_t LevelFilter::gain_of(std::int32_t peak) const
{
    return peak == 0 ? 0 : level_of(peak) / std::abs(peak);
}

std::int32_t LevelFilter::process_channel(std::int32_t* s, int channels, int ch, std::int32_t frames,
                                          std::int32_t limit, std::int32_t margin, bool flush,
                                          std::int32_t& best_peak)
{
    auto at = [&](std::int32_t f) { return s[std::size_t(f) * channels + ch]; };
    auto set = [&](std::int32_t f, std::int32_t g) {
        s[std::size_t(f) * channels + ch] = apply(at(f), g);
    };
    std::int32_t& cur = cursor[ch];
    std::int32_t best_reach = -1, best_end = 0;
    best_peak = 0;
    std::int32_t seg = cur;
    while (cur < limit && seg < frames) {
        std::int32_t end = seg + 1;
        while (end < frames && !crossing(s, channels, ch, end))
            ++end;
        if (end == frames && !flush)
            break;
        std::int32_t peak_at = seg;
        for (std::int32_t f = seg; f < std::min(end, limit); ++f)
            if (std::abs(at(f)) > std::abs(at(peak_at)))
                peak_at = f;
        const std::int32_t peak = seg < limit ? at(peak_at) : 0;
        if (peak == 0) {
            seg = end;
            continue;
        }
        // How far the peak rules its surroundings.
        const std::int32_t mag = std::abs(peak);
        std::int32_t reach = margin;
        for (std::int32_t d = 1; d <= margin; ++d) {
            if ((peak_at - d >= cur && std::abs(at(peak_at - d)) > mag) ||
                (peak_at + d < frames && std::abs(at(peak_at + d)) > mag)) {
                reach = d;
                break;
            }
        }
        if (reach >= best_reach) {
            best_reach = reach;
            best_peak = peak;
            best_end = end;
        }
        if (reach < margin) {
            seg = end;
            continue;
        }
        const std::int32_t g_new = gain_of(peak), g_old = gain_of(last_peak[ch]);
        if (end >= frames - 1)
            end = frames;
        std::int32_t fade_start = cur, fade_end = seg;
        if (std::abs(last_peak[ch]) >= mag) {
            // Falling: the louder part before keeps the old gain.
            for (std::int32_t f = seg - 1; f > cur; --f) {
                if (std::abs(at(f)) > mag)
                    break;
                if (crossing(s, channels, ch, f))
                    fade_start = f;
            }
        } else {
            // Rising: the fade ends before the first sample louder than the
            // old peak.
            const std::int32_t old_mag = std::abs(last_peak[ch]);
            for (std::int32_t f = cur + 1; f < seg; ++f) {
                if (std::abs(at(f)) > old_mag)
                    break;
                if (crossing(s, channels, ch, f))
                    fade_end = f;
            }
        }
        for (std::int32_t f = cur; f < fade_start; ++f)
            set(f, g_old);
        const std::int64_t len = fade_end - fade_start;
        for (std::int32_t j = 0; j < len; ++j)
            set(fade_start + j, std::int32_t((g_old * (len - j) + g_new * std::int64_t(j)) / len));
        for (std::int32_t f = fade_end; f < end; ++f)
            set(f, g_new);
        cur = end;
        seg = end;
        last_peak[ch] = peak;
    }
    if (flush && cur < frames) {
        // The end of the stream: what no dominant peak covered keeps the
        // last gain (or, with none yet, the gain of its own peak).
        std::int32_t peak = last_peak[ch];
        if (peak == 0)
            for (std::int32_t f = cur; f < frames; ++f)
                if (std::abs(at(f)) > std::abs(peak))
                    peak = at(f);
        const std::int32_t g = gain_of(peak);
        for (std::int32_t f = cur; f < frames; ++f)
            set(f, g);
        cur = frames;
    }
    return best_end;
}

std::size_t LevelFilter::process(PCMData& block, bool flush)
{
    const int channels = block.channels;
    const int width = (block.bits + 7) / 8;
    if ((channels != 1 && channels != 2) || (width != 1 && width != 2) || block.rate < 1)
        return 0;
    const std::int32_t frames = std::int32_t(block.sample_count());
    const std::int32_t margin = block.rate / 10;
    const std::int32_t limit = flush ? frames : frames - margin;
    if (limit <= 0)
        return 0;
    std::uint8_t* bytes = block.bytes.writable();
    const std::size_t count = std::size_t(frames) * channels;
    std::vector<std::int32_t> s(count);
    if (width == 2) {
        for (std::size_t i = 0; i < count; ++i) {
            std::int16_t v;
            std::memcpy(&v, bytes + 2 * i, 2);
            s[i] = v;
        }
    } else {
        for (std::size_t i = 0; i < count; ++i)
            s[i] = (std::int32_t(bytes[i]) - 128) * 256;
    }
    std::int32_t best_end[kMaxChannels] = {}, best_peak[kMaxChannels] = {};
    for (int ch = 0; ch < channels; ++ch) {
        cursor[ch] = std::clamp(cursor[ch], 0, frames);
        if (width == 2) {
            std::int32_t a = cursor[ch];
            for (std::int32_t f = a + 1; f <= limit; ++f) {
                if (f == limit || crossing(s.data(), channels, ch, f)) {
                    declip_half_wave(s.data(), channels, ch, frames, a, f);
                    a = f;
                }
            }
        }
        best_end[ch] = process_channel(s.data(), channels, ch, frames, limit, margin, flush, best_peak[ch]);
    }
    std::int32_t done = *std::min_element(cursor, cursor + channels);
    if (done == 0 && frames > block.rate && !flush) {
        // No channel found a dominant peak in more than a second: move on
        // at the best candidate rather than hold the sound forever.
        done = *std::min_element(best_end, best_end + channels);
        if (done == 0) {
            done = frames;
        } else {
            for (int ch = 0; ch < channels; ++ch) {
                cursor[ch] = std::max(cursor[ch], best_end[ch]);
                if (std::abs(best_peak[ch]) > std::abs(last_peak[ch]))
                    last_peak[ch] = best_peak[ch];
            }
        }
    }
    for (int ch = 0; ch < channels; ++ch)
        cursor[ch] = std::max(0, cursor[ch] - done);

    if (width == 2) {
        for (std::size_t i = 0; i < count; ++i) {
            const std::int16_t v = std::int16_t(std::clamp(s[i], -32768, 32767));
            std::memcpy(bytes + 2 * i, &v, 2);
        }
    } else {
        for (std::size_t i = 0; i < count; ++i)
            bytes[i] = std::uint8_t(std::clamp((s[i] >> 8) + 128, 0, 255));
    }
    if (flush) {
        std::fill(std::begin(last_peak), std::end(last_peak), 0);
        std::fill(std::begin(cursor), std::end(cursor), 0);
    }
    return std::size_t(done) * std::size_t(block.bytes_per_frame());
}

void LevelFilter::take(PCMData& out, int n)
{
    const std::size_t frame = std::size_t(ready.bytes_per_frame());
    const std::size_t want = frame * std::size_t(std::max(n, 0));
    if (ready.bytes.size() > want) {
        out = ready;
        out.bytes = liba::ByteBlock(ready.bytes, 0, want);
        ready.bytes = liba::ByteBlock(ready.bytes, want, SIZE_MAX);
    } else {
        out = ready;
        ready = PCMData();
    }
}

namespace {

// Mono or stereo, 8 or 16 bits: what the filter can work on. Anything else
// passes unchanged.
bool supported(const PCMData& r)
{
    const int width = (r.bits + 7) / 8;
    return (r.channels == 1 || r.channels == 2) && (width == 1 || width == 2) && r.rate >= 1;
}

// A new block of `a` followed by `b`, in the format of `b`.
PCMData join(const PCMData& a, const PCMData& b)
{
    PCMData r = b;
    r.bytes = liba::ByteBlock(a.bytes.size() + b.bytes.size());
    std::uint8_t* to = r.bytes.writable();
    if (!a.bytes.empty())
        std::memcpy(to, a.bytes.data(), a.bytes.size());
    std::memcpy(to + a.bytes.size(), b.bytes.data(), b.bytes.size());
    return r;
}

// Splits `block` at `used` bytes into a finished head and the rest.
void split(const PCMData& block, std::size_t used, PCMData& head, PCMData& rest)
{
    head = block;
    head.bytes = liba::ByteBlock(block.bytes, 0, used);
    rest = block;
    rest.bytes = liba::ByteBlock(block.bytes, used, SIZE_MAX);
    if (head.bytes.empty())
        head = PCMData();
    if (rest.bytes.empty())
        rest = PCMData();
}

} // namespace

void LevelFilter::flush_input()
{
    PCMData block = join(PCMData(), input);
    const std::size_t used = process(block, true);
    split(block, used, ready, input);
}

void LevelFilter::on_data(const PCMData& in)
{
    liba::Lock held(lock);
    if (identity || (!in.empty() && !supported(in))) {
        push_data(in);
        return;
    }
    if (!input.empty() && !format_equal(input, in)) {
        flush_input();
        if (!ready.empty())
            push_data(ready);
        ready = PCMData();
        input = PCMData();
        std::fill(std::begin(last_peak), std::end(last_peak), 0);
        std::fill(std::begin(cursor), std::end(cursor), 0);
    }
    if (in.empty())
        return;
    PCMData block = join(input, in);
    const std::size_t used = process(block, false);
    PCMData head;
    split(block, used, head, input);
    if (!head.empty())
        push_data(head);
}

void LevelFilter::get_data(PCMData& out, int n)
{
    liba::Lock held(lock);
    if (identity) {
        pull_data(out, n);
        return;
    }
    if (!ready.empty()) {
        take(out, n);
        return;
    }
    for (;;) {
        PCMData r;
        pull_data(r, kPullFrames);
        if (r.empty())
            break;
        if (!supported(r)) {
            out = r;
            return;
        }
        if (!input.empty() && !format_equal(input, r)) {
            flush_input();
            if (!ready.empty()) {
                // The record of the new format is dropped here.
                take(out, n);
                return;
            }
            std::fill(std::begin(last_peak), std::end(last_peak), 0);
            std::fill(std::begin(cursor), std::end(cursor), 0);
        }
        const bool worth = input.bytes.size() > kHoldBytes;
        PCMData block = join(input, r);
        const std::size_t used = worth ? process(block, false) : 0;
        split(block, used, ready, input);
        if (!ready.empty()) {
            take(out, n);
            return;
        }
    }
    if (!input.empty()) {
        flush_input();
        input = PCMData();
        if (!ready.empty()) {
            take(out, n);
            return;
        }
    }
    out = PCMData();
}

} // namespace audio

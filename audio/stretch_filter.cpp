#include "audio/stretch_filter.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace audio {

namespace {

// Samples on a zero level of 0, read from and written to their stored form.
struct Signed16 {
    static constexpr std::uint8_t kSilence = 0;
    static std::int32_t load(const std::uint8_t* p, std::int64_t i)
    {
        std::int16_t v;
        std::memcpy(&v, p + i * 2, 2);
        return v;
    }
    static void store(std::uint8_t* p, std::int64_t i, std::int32_t v)
    {
        const auto s = static_cast<std::int16_t>(v);
        std::memcpy(p + i * 2, &s, 2);
    }
};

struct Unsigned8 {
    static constexpr std::uint8_t kSilence = 128;
    static std::int32_t load(const std::uint8_t* p, std::int64_t i) { return std::int32_t(p[i]) - 128; }
    static void store(std::uint8_t* p, std::int64_t i, std::int32_t v) { p[i] = static_cast<std::uint8_t>(v + 128); }
};

constexpr std::size_t kMaxCandidates = 5;

} // namespace

struct StretchFilter::Pass {
    const std::uint8_t* src;
    std::uint8_t* dst;
    std::int32_t frames, channels, factor;
    std::int32_t span, min_span;
    bool flush;
    std::int32_t* cursor;
};

void StretchFilter::set_factor(std::int32_t f)
{
    liba::Lock held(lock);
    if (f == factor)
        return;
    factor = f;
    cursor[0] = cursor[1] = 0;
}

void StretchFilter::set_stretch(double speed)
{
    liba::Lock held(lock);
    const bool was = stretch.is_active();
    stretch.set_speed(speed);
    if (!was || stretch.is_active())
        return;
    // The input up to where the stretch had made output is out already: it
    // must not come again from the analysis that takes over.
    const std::size_t done = static_cast<std::size_t>(stretch.made_to()) *
                             static_cast<std::size_t>(std::max(input.bytes_per_frame(), 0));
    input.bytes = liba::ByteBlock(input.bytes, std::min(done, input.bytes.size()), SIZE_MAX);
    if (input.bytes.empty())
        input = PCMData();
    stretch.reset();
    carry = PCMData();
    cursor[0] = cursor[1] = 0;
}

void StretchFilter::reset()
{
    cursor[0] = cursor[1] = 0;
    stretch.reset();
}

std::size_t StretchFilter::filter(PCMData& out, const PCMData& in, bool flush)
{
    if (stretch.is_active() && TimeStretch::can_stretch(in))
        return stretch.run(out, in, flush);
    const bool fits = (in.bits == 8 || in.bits == 16) && (in.channels == 1 || in.channels == 2);
    if (factor == 1 || !fits) {
        out = in;
        return in.bytes.size();
    }
    out = in;
    const std::size_t size = static_cast<std::size_t>(factor) * in.bytes.size();
    out.bytes = liba::ByteBlock(size);
    std::uint8_t* dst = out.bytes.writable();
    const std::size_t head = std::min(size, carry.bytes.size());
    std::memcpy(dst, carry.bytes.data(), head);
    // Beyond the carry nothing is final until the analysis has written it;
    // silence keeps the bytes defined.
    std::memset(dst + head, in.bits == 8 ? Unsigned8::kSilence : Signed16::kSilence, size - head);
    const std::int32_t used =
        in.bits == 8 ? analyse<Unsigned8>(in, out, flush) : analyse<Signed16>(in, out, flush);
    const std::size_t used_bytes = static_cast<std::size_t>(used) * static_cast<std::size_t>(in.bytes_per_frame());
    const std::size_t final_bytes = static_cast<std::size_t>(factor) * used_bytes;

    PCMData next = out;
    const std::size_t old_rest = carry.bytes.size() - head;
    next.bytes = liba::ByteBlock(old_rest + (size - final_bytes));
    std::uint8_t* c = next.bytes.writable();
    std::memcpy(c, carry.bytes.data() + head, old_rest);
    std::memcpy(c + old_rest, dst + final_bytes, size - final_bytes);
    carry = next;
    out.bytes = liba::ByteBlock(out.bytes, 0, final_bytes);
    return used_bytes;
}

template <class Sample>
std::int32_t StretchFilter::analyse(const PCMData& in, PCMData& out, bool flush)
{
    if ((factor != 2 && factor != 3) || in.empty() || out.bytes.size() != in.bytes.size() * factor)
        return 0;
    Pass pass;
    pass.src = in.bytes.data();
    pass.dst = out.bytes.writable();
    pass.frames = static_cast<std::int32_t>(in.sample_count());
    pass.channels = in.channels;
    pass.factor = factor;
    pass.span = in.rate / 200;
    pass.min_span = in.rate / 600;
    pass.flush = flush;
    pass.cursor = cursor;
    for (int ch = 0; ch < in.channels; ++ch)
        analyse_channel<Sample>(pass, ch);

    std::int32_t low = cursor[0];
    for (int ch = 1; ch < in.channels; ++ch)
        low = std::min(low, cursor[ch]);
    if (flush) {
        cursor[0] = cursor[1] = 0;
        return pass.frames;
    }
    // The last 100 ms stay, for the cross-fades to look back at.
    const std::int32_t drop = std::max(0, low - in.rate / 10);
    for (int ch = 0; ch < in.channels; ++ch)
        cursor[ch] -= drop;
    return drop;
}

namespace {

// One period of `n` frames from `src` played `factor` times at `written`:
// as it stands, then cross-faded from the following period back into itself
// (and, for factor 3, first cross-faded in from the period before).
template <class Sample>
void emit_period(const std::uint8_t* in, std::uint8_t* out, std::int32_t frames, std::int32_t channels,
                 std::int32_t factor, int ch, std::int32_t src, std::int32_t n, std::int32_t written)
{
    auto at = [&](std::int64_t f) { return Sample::load(in, f * channels + ch); };
    auto put = [&](std::int64_t f, std::int32_t v) { Sample::store(out, f * channels + ch, v); };
    const std::int32_t avail = frames - src, back = src;
    std::int32_t section = written;
    if (factor == 3) {
        for (std::int32_t i = 0; i < n; ++i) {
            if (i - n >= -back)
                put(section + i, static_cast<std::int32_t>((std::int64_t(at(src + i)) * (n - i) +
                                                            std::int64_t(at(src + i - n)) * i) / n));
            else
                put(section + i, at(src + i));
        }
        section += n;
    }
    for (std::int32_t i = 0; i < n; ++i)
        put(section + i, at(src + i));
    section += n;
    for (std::int32_t i = 0; i < n; ++i) {
        if (i + n < avail - 1)
            put(section + i, static_cast<std::int32_t>((std::int64_t(at(src + n + i)) * (n - i) +
                                                        std::int64_t(at(src + i)) * i) / n));
        else
            put(section + i, at(src + i));
    }
}

} // namespace

template <class Sample>
void StretchFilter::analyse_channel(Pass& p, int ch)
{
    auto at = [&](std::int32_t f) { return Sample::load(p.src, std::int64_t(f) * p.channels + ch); };
    std::int32_t pos = p.cursor[ch];
    std::int32_t written = pos * p.factor;
    std::vector<Candidate> list;
    list.reserve(kMaxCandidates);
    auto emit = [&](std::int32_t from, std::int32_t to) {
        emit_period<Sample>(p.src, p.dst, p.frames, p.channels, p.factor, ch, from, to - from, written);
        written += p.factor * (to - from);
    };
    while (pos < p.frames) {
        std::int32_t end = pos + 1;
        while (end < p.frames && std::int64_t(at(end)) * at(end - 1) >= 1)
            ++end;
        if (!p.flush && end >= p.frames)
            break;
        end = std::min(end, p.frames);
        std::int32_t peak = pos;
        for (std::int32_t f = pos + 1; f < end; ++f)
            if (at(f) > at(peak))
                peak = f;
        if (!p.flush && peak >= p.frames - p.span)
            break;
        const std::int32_t value = at(peak);
        if (value < 0) {
            pos = end;
            continue;
        }
        std::int32_t reach = p.span;
        if (end >= p.frames - p.span) {
            if (!p.flush) {
                pos = end;
                continue;
            }
        } else {
            for (std::int32_t d = 1; d <= p.span; ++d) {
                const bool before = peak - d >= 0 && at(peak - d) > value;
                const bool after = peak + d < p.frames && at(peak + d) > value;
                if (before || after) {
                    reach = d;
                    break;
                }
            }
            if (reach < p.min_span) {
                pos = end;
                continue;
            }
        }
        list.push_back({pos, value});
        if (reach == p.span && list.size() >= 2) {
            // A strong peak: walk from the first entry through values that
            // lie between the first and this one, each step to the nearest.
            const std::int64_t target = list.back().value, first = list.front().value;
            std::size_t current = 0;
            for (;;) {
                std::size_t next = 0;
                std::int64_t nearest = -1;
                for (std::size_t j = current + 1; j < list.size(); ++j) {
                    const std::int64_t v = list[j].value;
                    if ((v - target) * (v - first) >= 1)
                        continue;
                    const std::int64_t distance = std::llabs(v - list[current].value);
                    if (nearest < 0 || distance < nearest) {
                        nearest = distance;
                        next = j;
                    }
                }
                if (nearest < 0)
                    break;
                emit(list[current].start, list[next].start);
                current = next;
            }
            const Candidate last = list.back();
            list.assign(1, last);
        } else if (list.size() == kMaxCandidates) {
            std::size_t nearest_at = 1;
            for (std::size_t j = 2; j < list.size(); ++j)
                if (std::llabs(std::int64_t(list[j].value) - list[0].value) <
                    std::llabs(std::int64_t(list[nearest_at].value) - list[0].value))
                    nearest_at = j;
            emit(list[0].start, list[nearest_at].start);
            list.erase(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(nearest_at));
        }
        pos = end;
    }
    if (p.flush && written < p.frames * p.factor) {
        for (std::int32_t f = written; f < p.frames * p.factor; ++f)
            Sample::store(p.dst, std::int64_t(f) * p.channels + ch, 0);
        written = p.frames * p.factor;
    }
    p.cursor[ch] = written / p.factor;
}

} // namespace audio

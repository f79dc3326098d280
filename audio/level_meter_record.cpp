#include "audio/level_meter_record.h"

#include <cstdint>
#include <cstring>

namespace audio {

namespace {

constexpr double kScale16 = 3.051850947599719e-5; // 1 / 32767
constexpr double kScale8 = 0.007874015748031496;  // 1 / 127

} // namespace

LevelMeterRecord::LevelMeterRecord(double silence_limit, std::size_t hold_frames, double hold_seconds)
    : silence_limit_(silence_limit), hold_frames_(hold_frames), hold_seconds_(hold_seconds)
{
}

void LevelMeterRecord::process(PCMData& out, const PCMData& in)
{
    out = in;
    if (in.sample_count() == 0)
        return;
    measure(in);
    if (consumer.load(std::memory_order_acquire) == nullptr)
        hold(in);
}

void LevelMeterRecord::measure(const PCMData& in)
{
    const std::size_t n = in.sample_count();
    const bool wide = in.bits == 16;
    const auto t = static_cast<std::int32_t>(threshold() * (wide ? 32767.0 : 127.0));
    const std::size_t stride = static_cast<std::size_t>(in.bytes_per_frame());
    const std::uint8_t* p = in.bytes.data();
    std::int32_t peak = 0;
    std::size_t last = n;
    for (std::size_t i = 0; i < n; ++i, p += stride) {
        std::int32_t s;
        if (wide) {
            std::int16_t v;
            std::memcpy(&v, p, 2);
            s = v;
        } else {
            s = *p - 128;
        }
        if (s > peak)
            peak = s;
        if (s > t)
            last = i;
    }
    level_.store(peak * (wide ? kScale16 : kScale8), std::memory_order_relaxed);
    if (last != n)
        silence_.store(static_cast<double>(n - last) / in.rate, std::memory_order_relaxed);
    else
        silence_.store(silence() + static_cast<double>(n) / in.rate, std::memory_order_relaxed);
}

void LevelMeterRecord::hold(const PCMData& in)
{
    held_.push_back(in);
    held_count_ += in.sample_count();
    const auto limit = hold_frames_ + static_cast<std::size_t>(hold_seconds_ * in.rate);
    // The oldest go first: what is kept ends with the newest input.
    while (held_count_ > limit) {
        PCMData& oldest = held_.front();
        const std::size_t frames = oldest.sample_count();
        const std::size_t excess = held_count_ - limit;
        if (frames <= excess) {
            held_count_ -= frames;
            held_.pop_front();
            continue;
        }
        const std::size_t frame_bytes = static_cast<std::size_t>(oldest.bytes_per_frame());
        oldest.bytes = liba::ByteBlock(oldest.bytes, excess * frame_bytes, (frames - excess) * frame_bytes);
        held_count_ -= excess;
    }
}

void LevelMeterRecord::cut()
{
    liba::Lock held(lock);
    connect(*this, nullptr);
}

void LevelMeterRecord::relink(Consumer<PCMData>* next, bool replay)
{
    liba::Lock held(lock);
    connect(*this, next);
    if (replay) {
        for (const PCMData& record : held_)
            push_data(record);
    }
    held_.clear();
    held_count_ = 0;
}

void LevelMeterRecord::drop_held()
{
    liba::Lock held(lock);
    held_.clear();
    held_count_ = 0;
}

std::size_t LevelMeterRecord::held_frames()
{
    liba::Lock held(lock);
    return held_count_;
}

} // namespace audio

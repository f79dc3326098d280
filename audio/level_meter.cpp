#include "audio/level_meter.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace audio {

namespace {

constexpr double kScale16 = 3.0517578125e-5; // 1 / 32768
constexpr double kScale8 = 0.0078125;        // 1 / 128

} // namespace

LevelMeter::LevelMeter() : clock_(std::chrono::steady_clock::now()) {}

double LevelMeter::clock_seconds() const
{
    // Whole milliseconds, as a tick count gives them.
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - clock_);
    return static_cast<double>(ms.count()) / 1000.0;
}

double LevelMeter::now() const
{
    return paused_ ? paused_at_ : clock_seconds();
}

void LevelMeter::expire(double now)
{
    while (!entries_.empty() && now >= base_ + entries_.front().duration) {
        base_ += entries_.front().duration;
        entries_.pop_front();
    }
}

void LevelMeter::process(PCMData& out, const PCMData& in)
{
    out = in;
    expire(now());
    if (entries_.empty()) {
        // Time begins again with the new audio.
        base_ = 0.0;
        paused_at_ = 0.0;
        clock_ = std::chrono::steady_clock::now();
    }
    const std::size_t n = in.sample_count();
    if (n == 0 || in.rate <= 0)
        return;
    Entry entry;
    entry.rate = in.rate;
    entry.duration = static_cast<double>(n) / in.rate;
    const std::size_t step = std::max<std::size_t>(1, static_cast<std::size_t>(in.rate / kValuesPerSecond));
    const std::size_t stride = static_cast<std::size_t>(in.bytes_per_frame());
    const bool wide = in.bits == 16;
    const std::uint8_t* p = in.bytes.data();
    for (std::size_t start = 0; start < n; start += step) {
        std::int32_t peak = 0;
        for (std::size_t i = start; i < std::min(n, start + step); ++i) {
            std::int32_t s;
            if (wide) {
                std::int16_t v;
                std::memcpy(&v, p + i * stride, 2);
                s = v;
            } else {
                s = p[i * stride] - 128;
            }
            peak = std::max(peak, s);
        }
        entry.levels.push_back(peak * (wide ? kScale16 : kScale8));
    }
    entries_.push_back(std::move(entry));
}

double LevelMeter::get_level()
{
    liba::Lock held(lock);
    const double t = now();
    expire(t);
    if (entries_.empty() || entries_.front().levels.empty())
        return 0.0;
    const Entry& e = entries_.front();
    // Samples, not values, per second: the index runs to the entry's last
    // chunk within milliseconds, and the bar shows that chunk.
    const double index = std::trunc((t - base_) * (e.rate / kValuesPerSecond));
    const auto last = static_cast<double>(e.levels.size() - 1);
    return e.levels[static_cast<std::size_t>(std::clamp(index, 0.0, last))];
}

void LevelMeter::set_paused(bool paused)
{
    liba::Lock held(lock);
    if (paused == paused_)
        return;
    if (paused)
        paused_at_ = clock_seconds();
    else
        base_ += clock_seconds() - paused_at_;
    paused_ = paused;
}

void LevelMeter::clear()
{
    liba::Lock held(lock);
    entries_.clear();
}

} // namespace audio

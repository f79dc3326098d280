#include "audio/record_level_control.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace audio {

namespace {

constexpr double kGainAtZero = 0.05;
constexpr double kGainAtFull = 10.0;

} // namespace

double RecordLevelControlSoft::gain_of(double level)
{
    if (level < kBypass)
        return kGainAtZero + level * (1.0 - kGainAtZero) / kBypass;
    return 1.0 + (level - kBypass) * (kGainAtFull - 1.0) / kBypass;
}

void RecordLevelControlSoft::process(PCMData& out, const PCMData& in)
{
    out = in;
    if (level_ == kBypass || in.empty())
        return;
    const double gain = gain_of(level_);
    const std::size_t n = in.sample_count();
    out.bytes = liba::ByteBlock(in.bytes.size());
    std::uint8_t* to = out.bytes.writable();
    std::memset(to, 0, in.bytes.size());
    const std::uint8_t* from = in.bytes.data();
    if (in.bits == 16) {
        for (std::size_t i = 0; i < n; ++i) {
            std::int16_t s;
            std::memcpy(&s, from + 2 * i, 2);
            const auto scaled = static_cast<std::int16_t>(std::clamp(s * gain, -32768.0, 32767.0));
            std::memcpy(to + 2 * i, &scaled, 2);
        }
    } else if (in.bits == 8) {
        for (std::size_t i = 0; i < n; ++i)
            to[i] = static_cast<std::uint8_t>(std::clamp((from[i] - 128.0) * gain, -128.0, 127.0) + 128.0);
    }
}

RecordLevelControl::RecordLevelControl() : impl_(std::make_unique<RecordLevelControlSoft>()) {}

double RecordLevelControl::get_level()
{
    liba::Lock held(lock);
    return impl_->get_level();
}

void RecordLevelControl::set_level(double level)
{
    liba::Lock held(lock);
    impl_->set_level(level);
}

void RecordLevelControl::process(PCMData& out, const PCMData& in)
{
    // on_data holds the stage's lock around this.
    impl_->process(out, in);
}

} // namespace audio

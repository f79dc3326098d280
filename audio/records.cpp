#include "audio/records.h"

namespace audio {

std::size_t PCMData::sample_count() const
{
    // Emptiness is tested first: an end-of-stream record may carry a zeroed
    // format, which must never be divided by.
    if (bytes.size() == 0)
        return 0;
    std::int32_t frame = bytes_per_frame();
    if (frame <= 0)
        return 0;
    return bytes.size() / static_cast<std::size_t>(frame);
}

bool format_equal(const PCMData& a, const PCMData& b)
{
    return a.rate == b.rate && a.bits == b.bits && a.channels == b.channels;
}

} // namespace audio

#include "audio/time_meter.h"

namespace audio {

void TimeMeter::process(PCMData& out, const PCMData& in)
{
    if (in.rate != 0)
        seconds_.store(get_time() + static_cast<double>(in.sample_count()) / in.rate, std::memory_order_relaxed);
    out = in;
}

} // namespace audio

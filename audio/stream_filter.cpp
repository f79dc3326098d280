#include "audio/stream_filter.h"

#include <cstring>

namespace audio {

void StreamFilter::on_data(const PCMData&)
{
    reject_drive(kStreamFilterOnData);
}

void StreamFilter::get_data(PCMData& out, int n)
{
    liba::Lock held(lock);
    if (!ready.empty()) {
        take(out, n);
        return;
    }
    PCMData r;
    pull_data(r, n);
    while (!r.empty()) {
        if (!input.empty() && !format_equal(input, r)) {
            // The old format goes out whole before the new one starts.
            filter(ready, input, true);
            input = r;
            reset();
            if (!ready.empty()) {
                take(out, n);
                return;
            }
        } else {
            PCMData block = r;
            if (!input.empty()) {
                block.bytes = liba::ByteBlock(input.bytes.size() + r.bytes.size());
                std::uint8_t* at = block.bytes.writable();
                std::memcpy(at, input.bytes.data(), input.bytes.size());
                std::memcpy(at + input.bytes.size(), r.bytes.data(), r.bytes.size());
            }
            std::size_t used = 0;
            if (block.bytes.size() > static_cast<std::size_t>(threshold))
                used = filter(ready, block, false);
            input = block;
            input.bytes = liba::ByteBlock(block.bytes, used, SIZE_MAX);
            if (!ready.empty()) {
                take(out, n);
                return;
            }
        }
        pull_data(r, n);
    }
    if (!input.empty()) {
        filter(ready, input, true);
        input = PCMData();
        take(out, n);
        return;
    }
    out = PCMData();
}

void StreamFilter::take(PCMData& out, int n)
{
    const std::size_t frames = ready.sample_count();
    if (n > 0 && frames >= static_cast<std::size_t>(n)) {
        const std::size_t bytes = static_cast<std::size_t>(n) * static_cast<std::size_t>(ready.bytes_per_frame());
        out = ready;
        out.bytes = liba::ByteBlock(ready.bytes, 0, bytes);
        ready.bytes = liba::ByteBlock(ready.bytes, bytes, SIZE_MAX);
        if (ready.bytes.empty())
            ready = PCMData();
        return;
    }
    out = ready;
    ready = PCMData();
}

} // namespace audio

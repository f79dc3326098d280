#include "audio/muter.h"

#include <cstring>

namespace audio {

void Muter::process(PCMData& out, const PCMData& in)
{
    out = in;
    if (!is_muted() || in.empty())
        return;
    out.bytes = liba::ByteBlock(in.bytes.size());
    std::memset(out.bytes.writable(), in.bits == 8 ? 128 : 0, in.bytes.size());
}

} // namespace audio

#pragma once

#include "audio/file_reader.h"
#include "audio/pipeline.h"
#include "audio/records.h"

#include <cstdint>

namespace audio {

// A file reader that decodes as it reads and hands out its own 16-bit PCM:
// the time conversions and the pass of an amount downstream, shared by the
// decoders of the compressed formats.
// Position unit: sample frames. Times in seconds.
// Threads: those of the reader; the pass runs on the caller's thread.
class DecodingReader : public Provider<PCMData>, public FileReader {
public:
    // trunc(rate x seconds), clamped to 32 bits.
    std::int32_t seconds_to_position(double seconds) override;
    // 0.0 while the rate is 0 (a closed source).
    double position_to_seconds(std::int32_t position) override;
    bool transfer_seconds(double seconds) override;
    // Pulls and pushes downstream until `amount` frames went through; false
    // when closed or when the stream ends first.
    bool transfer_position(std::int32_t amount) override;
};

} // namespace audio

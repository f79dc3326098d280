#pragma once

#include "liba/byte_block.h"

#include <cstddef>
#include <cstdint>

// The records that move between audio stages. Each is passed by value and a
// copy shares its bytes. A record whose `bytes` is empty ends the stream; its
// format fields carry no meaning then (0 when a stage has nothing to say).
// Threads: a record belongs to the thread that holds it; copies may be
// released on any thread.
namespace audio {

// Interleaved linear samples: 16-bit ones signed little-endian, 8-bit ones
// unsigned with 128 as silence. `rate` in samples per second per channel,
// `bits` per sample.
struct PCMData {
    liba::ByteBlock bytes;
    std::int32_t channels = 0;
    std::int32_t bits = 0;
    std::int32_t rate = 0;

    bool empty() const { return bytes.size() == 0; }
    // Bytes of one sample frame (a sample of every channel).
    std::int32_t bytes_per_frame() const { return channels * ((bits + 7) / 8); }
    // Whole frames in `bytes`; 0 for an empty record whatever its format,
    // and 0 for a format without a frame size.
    std::size_t sample_count() const;
};

// True when rate, bits and channels agree.
bool format_equal(const PCMData& a, const PCMData& b);

// Whole Microsoft ADPCM blocks of one file: `bits` is 4, `block_size` in
// bytes per block.
struct ADPCMData {
    liba::ByteBlock bytes;
    std::int32_t channels = 0;
    std::int32_t bits = 0;
    std::int32_t rate = 0;
    std::int32_t block_size = 0;

    bool empty() const { return bytes.size() == 0; }
};

// Whole 65-byte GSM 06.10 blocks (WAV49 packing), always 8000 Hz mono.
struct GSMData {
    liba::ByteBlock bytes;

    bool empty() const { return bytes.size() == 0; }
};

// Exactly one MP3 frame. `bytes` may run past the frame; `frame_size` is the
// frame's length in bytes, the distance the reader advanced by.
struct MP3Data {
    liba::ByteBlock bytes;
    std::int32_t frame_size = 0;

    bool empty() const { return bytes.size() == 0; }
};

} // namespace audio

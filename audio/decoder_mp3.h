#pragma once

#include "audio/block_codec.h"
#include "audio/records.h"
#include "liba/nocopy.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace audio {

// The libmad objects of one stream and the final conversion of libmad's
// 28-bit fixed-point samples to integers. The stream keeps state from frame
// to frame (the layer III bit reservoir, the synthesis filter), so one front
// serves one stream in order. Threads: the consumer's thread only.
class MP3DecoderFront : liba::Nocopy {
public:
    // Results of decode().
    static constexpr int kDone = 0;
    static constexpr int kNeedMore = 1;     // the frame runs past `size`
    static constexpr int kOutTooSmall = 2;  // `out_size` can't hold the samples
    static constexpr int kRecoverable = -1; // a damaged frame; the next may do
    static constexpr int kFailed = -2;

    MP3DecoderFront();
    ~MP3DecoderFront();

    // Decodes the frame at the start of `data` (`size` bytes, which must hold
    // the frame and 8 bytes more) into interleaved little-endian samples of
    // `bits` (8, 16 or 24; 8-bit ones unsigned) at `out`. `consumed` and
    // `produced` are in bytes. `half_rate` halves the output rate.
    int decode(const std::uint8_t* data, std::size_t size, std::uint8_t* out, std::size_t out_size,
               std::size_t& consumed, std::size_t& produced, int bits, bool half_rate);

private:
    struct State;
    std::unique_ptr<State> state; // allocated once, for the life of the stream
};

// Turns one MP3 frame a pull into 16-bit PCM. A frame that fails (damaged, a
// rate of 12000 Hz, layer II of the low rates, main data from before a seek)
// decodes to nothing, and the base pulls the next. Threads: those of the
// drive. Owned by its play chain; records it returns are the caller's.
class DecoderMP3 : public BlockDecoderPCM<MP3Data> {
protected:
    void decode_blocks(PCMData& out, const MP3Data& in) override;
    // One frame a pull.
    int blocks_for_samples(int) override { return 1; }

private:
    MP3DecoderFront core;
};

} // namespace audio

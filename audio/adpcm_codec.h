#pragma once

#include "audio/block_codec.h"
#include "audio/encoder.h"
#include "audio/records.h"

#include <cstdint>

// Microsoft ADPCM (WAV format tag 2): blocks of 4-bit codes, each block
// opening with a header per channel (predictor index, step `delta`, and the
// two first samples). Mono blocks hold the codes high nibble first; stereo
// blocks one byte per frame, left in the high nibble. All arithmetic is
// integer. Threads: those of the drive (see block_codec.h).
namespace audio {

// One predictor: the weights of the newer and the older sample, Q8.
struct ADPCMCoefficient {
    std::int16_t coef1 = 0;
    std::int16_t coef2 = 0;
};

// The predictors every file uses. A file's own table is never consulted.
inline constexpr ADPCMCoefficient kADPCMCoefficients[] = {
    {256, 0}, {512, -256}, {0, 0}, {192, 64}, {240, 0}, {460, -208}, {392, -232},
};
inline constexpr int kADPCMPredictorCount = 7;

// Q8 factors by which `delta` adapts after each code, by code 0..15.
inline constexpr std::int32_t kADPCMAdaptation[16] = {
    230, 230, 230, 230, 307, 409, 512, 614, 768, 614, 512, 409, 307, 230, 230, 230,
};

// The smallest step; `delta` never adapts below it.
inline constexpr std::int32_t kADPCMMinDelta = 16;

// Bytes of the block header per channel.
inline constexpr std::int32_t kADPCMHeaderPerChannel = 7;

// Sample frames in a block of `block_size` bytes with `bits` per code;
// 0 when the block cannot hold its headers (fewer than 2 frames) or when
// `channels` x `bits` is not positive.
std::int32_t adpcm_samples_per_block(std::int32_t block_size, std::int32_t channels, std::int32_t bits);

// The block size the encoder uses: 256 bytes per channel below 22050 Hz,
// 512 below 44100, 1024 below 96000, 2048 from there on.
std::int32_t adpcm_block_size(std::int32_t channels, std::int32_t rate);

// Encodes `spb` frames of `channels` (1 or 2) interleaved 16-bit samples into
// a block of `block_size` bytes at `out`, every channel on `predictor`,
// starting with the smallest step. Returns the peak error, the largest
// distance between a sample and what a decoder will make of it.
std::int32_t adpcm_encode_block(const std::int16_t* frames, std::int32_t channels, std::int32_t spb,
                                std::int32_t block_size, int predictor, std::uint8_t* out);

// Turns whole ADPCM blocks into 16-bit PCM. Keeps nothing between blocks: a
// block with a bad predictor index is silence and the next decodes as usual.
// Owned by the play chain.
class DecoderADPCM : public BlockDecoderPCM<ADPCMData> {
protected:
    void decode_blocks(PCMData& out, const ADPCMData& in) override;
    int blocks_for_samples(int n) override;
};

// Gathers 16-bit mono or stereo PCM into blocks and encodes each with the one
// predictor, for all channels, that gives the lowest peak error (the lower
// index on a tie). The format of the first record is the format of the
// stream; another format, and any format of other than 16 bits and 1 or 2
// channels, is dropped. Owned by the record chain.
class EncoderADPCM : public BlockEncoderPCM<ADPCMData>, public Encoder {
public:
    // Bits per second of the coded stream, known once the first record came;
    // 0 before.
    std::int32_t get_bitrate() override;

protected:
    void encode_block(ADPCMData& out, const PCMData& block) override;
    void make_block(PCMData& out, const PCMData& sample) override;

private:
    std::int32_t bitrate = 0;
    std::int32_t block_size = 0;
    std::int32_t samples_per_block = 0;
};

} // namespace audio

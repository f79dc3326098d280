#include "audio/adpcm_codec.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace audio {

namespace {

constexpr std::int32_t kCodeBits = 4;
constexpr std::int32_t kSampleMin = -32768;
constexpr std::int32_t kSampleMax = 32767;
constexpr std::int32_t kCodeMin = -8;
constexpr std::int32_t kCodeMax = 7;
constexpr int kCoefficientShift = 8; // coefficients and adaptation are Q8
// Largest block the encoder makes: 2048 bytes a channel, two channels.
constexpr std::size_t kMaxEncodedBlock = 4096;
// Worse than any real peak error, which is at most 65535.
constexpr std::int32_t kNoPeakYet = 100000;

std::int16_t get_i16(const std::uint8_t* p) { return static_cast<std::int16_t>(p[0] | (p[1] << 8)); }

void put_i16(std::uint8_t* p, std::int32_t v)
{
    p[0] = static_cast<std::uint8_t>(v & 0xff);
    p[1] = static_cast<std::uint8_t>((v >> 8) & 0xff);
}

std::int32_t clamp_sample(std::int64_t v)
{
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(v, kSampleMin, kSampleMax));
}

std::int32_t predict(std::int32_t s1, std::int32_t s2, const ADPCMCoefficient& c)
{
    return (s1 * c.coef1 + s2 * c.coef2) >> kCoefficientShift;
}

// The step after code `code` (0..15). A step read from a damaged header can
// grow without bound, so the product wraps as 32-bit arithmetic would rather
// than overflowing.
std::int32_t adapt(std::int32_t delta, std::uint32_t code)
{
    std::uint32_t product = static_cast<std::uint32_t>(kADPCMAdaptation[code & 15]) * static_cast<std::uint32_t>(delta);
    std::int32_t next = static_cast<std::int32_t>(product) >> kCoefficientShift;
    return next < kADPCMMinDelta ? kADPCMMinDelta : next;
}

// Where code `index` of a block (counted over all channels, in frame order)
// lives: mono blocks take the high nibble first, stereo ones give each frame
// a byte, left high and right low. Both come to the same rule.
std::uint32_t code_at(const std::uint8_t* codes, std::size_t index)
{
    std::uint8_t b = codes[index / 2];
    return index % 2 == 0 ? b >> 4 : b & 0x0f;
}

// Decodes one block of `channels` (1 or 2) into `spb` interleaved frames at
// `out`, which is zero; a bad predictor leaves the block so.
void decode_block(const std::uint8_t* block, std::int32_t block_size, std::int32_t channels, std::int32_t spb,
                  std::uint8_t* out)
{
    const std::size_t ch = static_cast<std::size_t>(channels);
    for (std::size_t c = 0; c < ch; ++c)
        if (block[c] >= kADPCMPredictorCount)
            return;
    std::int32_t delta[2], s1[2], s2[2];
    for (std::size_t c = 0; c < ch; ++c) {
        delta[c] = get_i16(block + ch + 2 * c);
        s1[c] = get_i16(block + 3 * ch + 2 * c);
        s2[c] = get_i16(block + 5 * ch + 2 * c);
        put_i16(out + 2 * c, s2[c]);
        put_i16(out + 2 * (ch + c), s1[c]);
    }
    const std::uint8_t* codes = block + kADPCMHeaderPerChannel * ch;
    // Codes the block has room for; a bit count other than 4 may promise
    // more samples than that, and those stay silent.
    const std::size_t room = (static_cast<std::size_t>(block_size) - kADPCMHeaderPerChannel * ch) * 2;
    const std::size_t total = static_cast<std::size_t>(spb) * ch;
    for (std::size_t i = 2 * ch; i < total && i - 2 * ch < room; ++i) {
        std::size_t c = i % ch;
        std::uint32_t code = code_at(codes, i - 2 * ch);
        std::int32_t p = predict(s1[c], s2[c], kADPCMCoefficients[block[c]]);
        std::int32_t e = (code & 8) ? static_cast<std::int32_t>(code) - 16 : static_cast<std::int32_t>(code);
        std::int32_t v = clamp_sample(static_cast<std::int64_t>(p) + static_cast<std::int64_t>(delta[c]) * e);
        put_i16(out + 2 * i, v);
        s2[c] = s1[c];
        s1[c] = v;
        delta[c] = adapt(delta[c], code);
    }
}

} // namespace

std::int32_t adpcm_samples_per_block(std::int32_t block_size, std::int32_t channels, std::int32_t bits)
{
    const std::int64_t per_frame = static_cast<std::int64_t>(channels) * bits;
    const std::int64_t codes = static_cast<std::int64_t>(block_size) - std::int64_t{kADPCMHeaderPerChannel} * channels;
    if (channels <= 0 || per_frame <= 0 || codes < 0)
        return 0;
    std::int64_t spb = codes * 8 / per_frame + 2;
    return static_cast<std::int32_t>(std::min<std::int64_t>(spb, INT32_MAX));
}

std::int32_t adpcm_block_size(std::int32_t channels, std::int32_t rate)
{
    std::int32_t per_channel = rate < 22050 ? 256 : rate < 44100 ? 512 : rate < 96000 ? 1024 : 2048;
    return channels * per_channel;
}

std::int32_t adpcm_encode_block(const std::int16_t* frames, std::int32_t channels, std::int32_t spb,
                                std::int32_t block_size, int predictor, std::uint8_t* out)
{
    const std::size_t ch = static_cast<std::size_t>(channels);
    const ADPCMCoefficient& coef = kADPCMCoefficients[predictor];
    std::memset(out, 0, static_cast<std::size_t>(block_size));
    std::int32_t delta[2], s1[2], s2[2];
    // The first two frames stand in the header as they are: the older one
    // (`sample2`) is frame 0.
    for (std::size_t c = 0; c < ch; ++c) {
        delta[c] = kADPCMMinDelta;
        s1[c] = frames[ch + c];
        s2[c] = frames[c];
        out[c] = static_cast<std::uint8_t>(predictor);
        put_i16(out + ch + 2 * c, delta[c]);
        put_i16(out + 3 * ch + 2 * c, s1[c]);
        put_i16(out + 5 * ch + 2 * c, s2[c]);
    }
    std::uint8_t* codes = out + kADPCMHeaderPerChannel * ch;
    std::int32_t peak = 0;
    const std::size_t total = static_cast<std::size_t>(spb) * ch;
    for (std::size_t i = 2 * ch; i < total; ++i) {
        std::size_t c = i % ch;
        std::int32_t x = frames[i];
        std::int32_t p = predict(s1[c], s2[c], coef);
        // Truncated towards zero, as integer division does.
        std::int32_t code = std::clamp((x - p) / delta[c], kCodeMin, kCodeMax);
        std::int32_t v = clamp_sample(static_cast<std::int64_t>(p) + static_cast<std::int64_t>(delta[c]) * code);
        peak = std::max(peak, std::abs(v - x));
        std::uint32_t nibble = static_cast<std::uint32_t>(code) & 0x0f;
        delta[c] = adapt(delta[c], nibble);
        s2[c] = s1[c];
        s1[c] = v;
        std::size_t index = i - 2 * ch;
        codes[index / 2] |= static_cast<std::uint8_t>(index % 2 == 0 ? nibble << 4 : nibble);
    }
    return peak;
}

void DecoderADPCM::decode_blocks(PCMData& out, const ADPCMData& in)
{
    const std::int32_t spb = adpcm_samples_per_block(in.block_size, in.channels, in.bits);
    if (spb == 0 || in.block_size <= 0) {
        out = PCMData();
        return;
    }
    const std::size_t block_size = static_cast<std::size_t>(in.block_size);
    const std::size_t count = in.bytes.size() / block_size;
    const std::size_t frame_bytes = static_cast<std::size_t>(in.channels) * 2;
    const std::size_t block_bytes = frame_bytes * static_cast<std::size_t>(spb);
    liba::ByteBlock pcm(count * block_bytes);
    std::uint8_t* to = pcm.writable();
    std::memset(to, 0, pcm.size());
    // Other channel counts have no layout: their blocks stay silent.
    if (in.channels == 1 || in.channels == 2)
        for (std::size_t k = 0; k < count; ++k)
            decode_block(in.bytes.data() + k * block_size, in.block_size, in.channels, spb, to + k * block_bytes);
    out.bytes = std::move(pcm);
    out.channels = in.channels;
    out.bits = 16;
    out.rate = in.rate;
}

int DecoderADPCM::blocks_for_samples(int) { return 1; }

std::int32_t EncoderADPCM::get_bitrate()
{
    liba::Lock held(this->lock);
    return bitrate;
}

void EncoderADPCM::make_block(PCMData& out, const PCMData& sample)
{
    if (sample.bits != 16 || (sample.channels != 1 && sample.channels != 2)) {
        out = PCMData();
        return;
    }
    block_size = adpcm_block_size(sample.channels, sample.rate);
    samples_per_block = adpcm_samples_per_block(block_size, sample.channels, kCodeBits);
    bitrate = static_cast<std::int32_t>(static_cast<std::int64_t>(sample.rate) * block_size * 8 / samples_per_block);
    out.bytes = liba::ByteBlock(static_cast<std::size_t>(samples_per_block) * sample.channels * 2);
    out.channels = sample.channels;
    out.bits = sample.bits;
    out.rate = sample.rate;
}

void EncoderADPCM::encode_block(ADPCMData& out, const PCMData& pcm)
{
    const std::size_t count = static_cast<std::size_t>(samples_per_block) * static_cast<std::size_t>(pcm.channels);
    std::vector<std::int16_t> frames(count);
    for (std::size_t i = 0; i < count; ++i)
        frames[i] = get_i16(pcm.bytes.data() + 2 * i);
    // Two scratch blocks: the best so far, and the one being tried. A better
    // result swaps their roles instead of being copied.
    static_assert(kMaxEncodedBlock >= 2 * 2048);
    std::uint8_t scratch[2][kMaxEncodedBlock];
    int trying = 0, kept = -1;
    std::int32_t best = kNoPeakYet;
    for (int predictor = 0; predictor < kADPCMPredictorCount; ++predictor) {
        std::int32_t peak =
            adpcm_encode_block(frames.data(), pcm.channels, samples_per_block, block_size, predictor, scratch[trying]);
        if (peak < best) {
            best = peak;
            kept = trying;
            trying = 1 - trying;
        }
    }
    if (kept < 0) {
        out = ADPCMData();
        return;
    }
    out.bytes = liba::ByteBlock(scratch[kept], static_cast<std::size_t>(block_size));
    out.channels = pcm.channels;
    out.bits = kCodeBits;
    out.rate = pcm.rate;
    out.block_size = block_size;
}

} // namespace audio

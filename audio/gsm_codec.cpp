#include "audio/gsm_codec.h"

#include <gsm.h>

#include <cstring>

namespace audio {

namespace {

constexpr int kFrameSamples = 160;
// In the WAV49 packing the first frame of a block takes 32.5 bytes: the
// encoder writes it from byte 0 and the second from byte 32, where the two
// meet in one byte; the decoder reads 33 bytes for the first and goes on at
// byte 33, libgsm keeping the shared half byte between the calls.
constexpr std::size_t kSecondFrameEncoded = 32;
constexpr std::size_t kSecondFrameDecoded = 33;
constexpr std::int32_t kBitrate = 13000;

gsm_state* make_wav49_state()
{
    gsm_state* g = gsm_create();
    int on = 1;
    if (g != nullptr)
        gsm_option(g, GSM_OPT_WAV49, &on);
    return g;
}

void put_samples(std::uint8_t* to, const gsm_signal* samples)
{
    for (int i = 0; i < kFrameSamples; ++i) {
        auto v = static_cast<std::uint16_t>(samples[i]);
        to[2 * i] = static_cast<std::uint8_t>(v & 0xff);
        to[2 * i + 1] = static_cast<std::uint8_t>(v >> 8);
    }
}

void get_samples(gsm_signal* samples, const std::uint8_t* from)
{
    for (int i = 0; i < kFrameSamples; ++i)
        samples[i] = static_cast<gsm_signal>(static_cast<std::int16_t>(from[2 * i] | (from[2 * i + 1] << 8)));
}

} // namespace

DecoderGSM::DecoderGSM() : gsm(make_wav49_state()) {}

DecoderGSM::~DecoderGSM()
{
    if (gsm != nullptr)
        gsm_destroy(gsm);
}

void DecoderGSM::decode_blocks(PCMData& out, const GSMData& in)
{
    const std::size_t count = in.bytes.size() / kGSMBlockBytes;
    const std::size_t pcm_block = kGSMBlockSamples * 2;
    liba::ByteBlock pcm(count * pcm_block);
    std::uint8_t* to = pcm.writable();
    std::memset(to, 0, pcm.size());
    for (std::size_t k = 0; k < count && gsm != nullptr; ++k) {
        // libgsm reads through a non-const pointer but does not write.
        auto* from = const_cast<gsm_byte*>(in.bytes.data() + k * kGSMBlockBytes);
        gsm_signal samples[kFrameSamples];
        gsm_decode(gsm, from, samples);
        put_samples(to + k * pcm_block, samples);
        gsm_decode(gsm, from + kSecondFrameDecoded, samples);
        put_samples(to + k * pcm_block + kFrameSamples * 2, samples);
    }
    out.bytes = std::move(pcm);
    out.channels = 1;
    out.bits = 16;
    out.rate = kGSMRate;
}

int DecoderGSM::blocks_for_samples(int n)
{
    // Rounded up by half a block: 320 samples ask for two blocks.
    return static_cast<int>((static_cast<std::int64_t>(n) + kFrameSamples - 1) / kFrameSamples);
}

EncoderGSM::EncoderGSM() : gsm(make_wav49_state()) {}

EncoderGSM::~EncoderGSM()
{
    if (gsm != nullptr)
        gsm_destroy(gsm);
}

std::int32_t EncoderGSM::get_bitrate() { return kBitrate; }

void EncoderGSM::make_block(PCMData& out, const PCMData& sample)
{
    if (sample.bits != 16 || sample.channels != 1 || sample.rate != kGSMRate) {
        out = PCMData();
        return;
    }
    out.bytes = liba::ByteBlock(kGSMBlockSamples * 2);
    out.channels = 1;
    out.bits = 16;
    out.rate = kGSMRate;
}

void EncoderGSM::encode_block(GSMData& out, const PCMData& block)
{
    liba::ByteBlock coded(kGSMBlockBytes);
    std::uint8_t* to = coded.writable();
    std::memset(to, 0, coded.size());
    if (gsm != nullptr) {
        gsm_signal samples[kFrameSamples];
        get_samples(samples, block.bytes.data());
        gsm_encode(gsm, samples, to);
        get_samples(samples, block.bytes.data() + kFrameSamples * 2);
        gsm_encode(gsm, samples, to + kSecondFrameEncoded);
    }
    out.bytes = std::move(coded);
}

} // namespace audio

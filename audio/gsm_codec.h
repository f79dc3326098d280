#pragma once

#include "audio/block_codec.h"
#include "audio/encoder.h"
#include "audio/records.h"

#include <cstdint>

struct gsm_state;

// GSM 06.10 full rate in the WAV49 packing: a block of 65 bytes holds two
// frames of 160 samples, 8000 Hz mono, 16 bits. Both codecs keep libgsm's
// filter state from block to block for their whole life; a seek does not
// reset it, so the first blocks after a seek carry some of what came before.
// Threads: those of the drive (see block_codec.h).
namespace audio {

inline constexpr std::int32_t kGSMBlockBytes = 65;
inline constexpr std::int32_t kGSMBlockSamples = 320;
inline constexpr std::int32_t kGSMRate = 8000;

// Turns whole 65-byte blocks into 16-bit PCM. Owned by the play chain.
class DecoderGSM : public BlockDecoderPCM<GSMData> {
public:
    DecoderGSM();
    ~DecoderGSM() override;

protected:
    void decode_blocks(PCMData& out, const GSMData& in) override;
    int blocks_for_samples(int n) override;

private:
    gsm_state* gsm;
};

// Gathers 16-bit 8000 Hz mono PCM into blocks of 320 samples and encodes
// each; any other format is dropped. Owned by the record chain.
class EncoderGSM : public BlockEncoderPCM<GSMData>, public Encoder {
public:
    EncoderGSM();
    ~EncoderGSM() override;
    // 13000 bits per second, the rate of GSM full rate.
    std::int32_t get_bitrate() override;

protected:
    void encode_block(GSMData& out, const PCMData& block) override;
    void make_block(PCMData& out, const PCMData& sample) override;

private:
    gsm_state* gsm;
};

} // namespace audio

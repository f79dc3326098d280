#pragma once

#include "audio/encoder.h"
#include "audio/pipeline.h"
#include "audio/records.h"

#include <cstdint>

struct lame_global_struct;

// Encodes PCM to MP3 through LAME at a constant bit rate, one MP3 frame's
// worth of samples (1152 or 576 per channel) at a time. The output keeps the
// input's sample rate and carries no Info tag frame. The samples LAME still
// holds when the encoder goes are never flushed to the file, so an encoding
// ends up to about two frames short of its input.
// Threads: records arrive on the writer's thread (or the main thread during
// a conversion); get_bitrate may be asked on any thread. Owned by the record
// chain, which deletes it before the writer. Rates in samples per second.
namespace audio {

class EncoderMP3 : public Consumer<PCMData>, public Provider<MP3Data>, public Encoder {
public:
    // `bit_rate` in bits per second; LAME gets it in whole kilobits.
    explicit EncoderMP3(std::int32_t bit_rate);
    ~EncoderMP3() override;

    // Encodes whole frames of `in` and pushes what LAME gives for each,
    // keeping the rest for the next record. 8- or 16-bit, 1 or 2 channels;
    // a change of rate or channels starts LAME anew.
    void on_data(const PCMData& in) override;
    // The encoder is driven by pushes; a pull gets an empty record.
    void get_data(MP3Data& out, int n) override;

    // The bit rate of the constructor, in bits per second.
    std::int32_t get_bitrate() override { return bit_rate; }

private:
    // One frame of 16-bit stereo.
    static constexpr int kResidueBytes = 4608;
    static constexpr int kFrameSamples = 1152;
    // LAME's bound for one frame's output, with room to spare.
    static constexpr int kOutBytes = 2500;

    bool open_lame();
    // Flushes LAME into `out`, dropping what comes, and closes it.
    void close_lame();
    // Encodes the full `residue` of `frame` samples a channel and pushes it.
    void encode_residue(int frame, int bits);

    std::uint8_t residue[kResidueBytes];
    std::int32_t residue_size = 0;
    std::int16_t left[kFrameSamples];
    std::int16_t right[kFrameSamples];
    std::uint8_t out[kOutBytes];
    lame_global_struct* lame = nullptr;
    std::int32_t bit_rate;
    std::int32_t channels = 0;
    std::int32_t rate = 0;
};

} // namespace audio

#pragma once

#include <mad.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

// A plain libmad decode, the reference the MP3 tests hold the program's
// decoding to. Threads: the test's thread.
namespace test {

// What a plain libmad loop makes of a whole file: mad_stream_buffer over all
// of it (no guard bytes), frames decoded until the buffer runs short,
// recoverable errors skipped, samples rounded to 16 bits.
struct MadDecode {
    std::vector<std::int16_t> samples; // interleaved
    std::vector<mad_fixed_t> raw;      // the same before rounding, Q28
    std::vector<std::size_t> offsets;  // file offset of each decoded frame
    std::vector<std::size_t> sizes;    // its length in bytes
    int channels = 0;
    int rate = 0;
    int samples_per_frame = 0;
    std::size_t frames() const { return offsets.size(); }
};

inline std::int16_t round_to_16(mad_fixed_t s)
{
    std::int64_t v = std::int64_t(s) + (std::int64_t(1) << (MAD_F_FRACBITS - 16));
    v = std::clamp<std::int64_t>(v, -MAD_F_ONE, MAD_F_ONE - 1);
    return static_cast<std::int16_t>(v >> (MAD_F_FRACBITS + 1 - 16));
}

inline MadDecode mad_decode(const std::string& bytes)
{
    MadDecode r;
    mad_stream stream;
    mad_frame frame;
    mad_synth synth;
    mad_stream_init(&stream);
    mad_frame_init(&frame);
    mad_synth_init(&synth);
    auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    mad_stream_buffer(&stream, data, bytes.size());
    for (;;) {
        if (mad_frame_decode(&frame, &stream) != 0) {
            if (MAD_RECOVERABLE(stream.error))
                continue;
            break;
        }
        mad_synth_frame(&synth, &frame);
        r.offsets.push_back(static_cast<std::size_t>(stream.this_frame - data));
        r.sizes.push_back(static_cast<std::size_t>(stream.next_frame - stream.this_frame));
        r.channels = synth.pcm.channels;
        r.rate = static_cast<int>(synth.pcm.samplerate);
        r.samples_per_frame = synth.pcm.length;
        for (unsigned i = 0; i < synth.pcm.length; ++i)
            for (unsigned ch = 0; ch < synth.pcm.channels; ++ch) {
                r.samples.push_back(round_to_16(synth.pcm.samples[ch][i]));
                r.raw.push_back(synth.pcm.samples[ch][i]);
            }
    }
    mad_synth_finish(&synth);
    mad_frame_finish(&frame);
    mad_stream_finish(&stream);
    return r;
}

// The bit rate of the first frame header libmad finds, in kbit/s.
inline int first_frame_kbps(const std::string& bytes)
{
    mad_stream stream;
    mad_header header;
    mad_stream_init(&stream);
    mad_header_init(&header);
    mad_stream_buffer(&stream, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    int kbps = 0;
    for (;;) {
        if (mad_header_decode(&header, &stream) == 0) {
            kbps = static_cast<int>(header.bitrate / 1000);
            break;
        }
        if (!MAD_RECOVERABLE(stream.error))
            break;
    }
    mad_header_finish(&header);
    mad_stream_finish(&stream);
    return kbps;
}

} // namespace test

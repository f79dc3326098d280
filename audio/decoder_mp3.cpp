#include "audio/decoder_mp3.h"

#include "audio/mp3_header.h"

#include <mad.h>

#include <algorithm>

namespace audio {

struct MP3DecoderFront::State {
    mad_stream stream;
    mad_frame frame;
    mad_synth synth;
};

MP3DecoderFront::MP3DecoderFront() : state(new State)
{
    mad_stream_init(&state->stream);
    mad_frame_init(&state->frame);
    mad_synth_init(&state->synth);
}

MP3DecoderFront::~MP3DecoderFront()
{
    mad_synth_finish(&state->synth);
    mad_frame_finish(&state->frame);
    mad_stream_finish(&state->stream);
}

namespace {

// libmad's samples carry 28 fractional bits (Q28): 1.0 is full scale.
constexpr int kFracBits = MAD_F_FRACBITS;
constexpr std::int64_t kFullScale = std::int64_t(1) << kFracBits;

// Truncates samples to `Bytes`-wide integers with error feedback, one error
// term a channel, started at 0 with each frame: what truncation cut off, and
// what clipping cut off as well, goes into the channel's next sample. The
// channels run side by side, so their error chains overlap in time.
template <int Bytes, unsigned Channels>
void convert(const mad_pcm& pcm, std::uint8_t* out)
{
    constexpr int width = std::min(Bytes * 8, 24);
    constexpr int shift = kFracBits + 1 - width;
    constexpr std::int64_t low_bits = (std::int64_t(1) << shift) - 1;
    std::int64_t error[Channels] = {};
    for (unsigned i = 0; i < pcm.length; ++i) {
        for (unsigned ch = 0; ch < Channels; ++ch, out += Bytes) {
            std::int64_t a = std::int64_t(pcm.samples[ch][i]) + error[ch];
            std::int64_t q;
            if (a >= -kFullScale && a < kFullScale) [[likely]] {
                // Within range the clipped value is `a` itself, and the error
                // is just the bits cleared.
                error[ch] = a & low_bits;
                q = a - error[ch];
            } else {
                q = std::clamp(a, -kFullScale, kFullScale - 1) & ~low_bits;
                error[ch] = a - q;
            }
            auto v = static_cast<std::uint32_t>(static_cast<std::int32_t>(q >> shift));
            if constexpr (Bytes == 1) {
                out[0] = static_cast<std::uint8_t>(v + 128);
            } else {
                for (int b = 0; b < Bytes; ++b)
                    out[b] = static_cast<std::uint8_t>(v >> (8 * b));
            }
        }
    }
}

template <int Bytes>
void convert(const mad_pcm& pcm, std::uint8_t* out)
{
    if (pcm.channels == 1)
        convert<Bytes, 1>(pcm, out);
    else
        convert<Bytes, 2>(pcm, out);
}

} // namespace

int MP3DecoderFront::decode(const std::uint8_t* data, std::size_t size, std::uint8_t* out,
                            std::size_t out_size, std::size_t& consumed, std::size_t& produced,
                            int bits, bool half_rate)
{
    consumed = 0;
    produced = 0;
    if (bits != 8 && bits != 16 && bits != 24)
        return kFailed;
    mad_stream& stream = state->stream;
    // The bit reservoir lives in the stream, not in the buffer, so it carries
    // over from the previous frame's call.
    mad_stream_buffer(&stream, data, size);
    if (mad_frame_decode(&state->frame, &stream) != 0) {
        if (stream.error == MAD_ERROR_BUFLEN)
            return kNeedMore;
        return MAD_RECOVERABLE(stream.error) ? kRecoverable : kFailed;
    }
    if (half_rate)
        state->frame.options |= MAD_OPTION_HALFSAMPLERATE;
    else
        state->frame.options &= ~MAD_OPTION_HALFSAMPLERATE;
    mad_synth_frame(&state->synth, &state->frame);

    const mad_pcm& pcm = state->synth.pcm;
    std::size_t bytes = static_cast<std::size_t>(bits / 8);
    std::size_t need = std::size_t(pcm.channels) * pcm.length * bytes;
    if (out_size < need)
        return kOutTooSmall;
    switch (bits) {
    case 8: convert<1>(pcm, out); break;
    case 16: convert<2>(pcm, out); break;
    default: convert<3>(pcm, out); break;
    }
    produced = need;
    consumed = static_cast<std::size_t>(stream.next_frame - data);
    return kDone;
}

namespace {

// The rates the decoder plays. The MPEG-2.5 rate of 12000 Hz is not among
// them: such frames decode to nothing.
bool rate_played(std::int32_t rate)
{
    switch (rate) {
    case 8000: case 11025: case 16000: case 22050:
    case 24000: case 32000: case 44100: case 48000:
        return true;
    default:
        return false;
    }
}

} // namespace

void DecoderMP3::decode_blocks(PCMData& out, const MP3Data& in)
{
    out = PCMData();
    MP3Header header;
    if (in.bytes.size() < std::size_t(kMP3HeaderSize) || !parse_mp3_header(in.bytes.data(), header))
        return;
    if (!rate_played(header.rate))
        return;
    std::size_t size = std::size_t(header.samples) * header.channels * 16 / 8;
    PCMData pcm;
    pcm.bytes = liba::ByteBlock(size);
    pcm.channels = header.channels;
    pcm.bits = 16;
    pcm.rate = header.rate;
    std::size_t consumed = 0;
    std::size_t produced = 0;
    if (core.decode(in.bytes.data(), in.bytes.size(), pcm.bytes.writable(), size, consumed, produced,
                    16, false) != MP3DecoderFront::kDone)
        return;
    if (produced < size)
        pcm.bytes = liba::ByteBlock(pcm.bytes, 0, produced);
    out = pcm;
}

} // namespace audio

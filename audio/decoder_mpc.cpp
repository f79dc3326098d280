#include "audio/decoder_mpc.h"

#include "os/log.h"

#include <mpc/mpcdec.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <vector>

namespace audio {

struct DecoderMPC::Stream {
    mpc_reader reader{};
    mpc_demux* demux = nullptr;
    std::vector<MPC_SAMPLE_FORMAT> buffer = std::vector<MPC_SAMPLE_FORMAT>(MPC_DECODER_BUFFER_LENGTH);
};

namespace {

os::File& file_of(mpc_reader* r) { return *static_cast<os::File*>(r->data); }

mpc_int32_t read_callback(mpc_reader* r, void* buffer, mpc_int32_t size)
{
    if (size <= 0)
        return 0;
    return static_cast<mpc_int32_t>(file_of(r).read(buffer, static_cast<std::size_t>(size)));
}

mpc_bool_t seek_callback(mpc_reader* r, mpc_int32_t offset) { return file_of(r).seek(offset) ? MPC_TRUE : MPC_FALSE; }

mpc_int32_t tell_callback(mpc_reader* r) { return static_cast<mpc_int32_t>(file_of(r).tell()); }

mpc_int32_t size_callback(mpc_reader* r)
{
    return static_cast<mpc_int32_t>(std::min<std::int64_t>(file_of(r).size(), INT32_MAX));
}

mpc_bool_t can_seek_callback(mpc_reader*) { return MPC_TRUE; }

// A float sample of full scale +-1.0 as a 16-bit one, rounded and clipped.
std::int16_t to_16_bits(float s)
{
    const float v = std::nearbyint(s * 32768.0f);
    return static_cast<std::int16_t>(std::clamp(v, -32768.0f, 32767.0f));
}

} // namespace

DecoderMPC::DecoderMPC(const std::wstring& path) : file(path, os::File::kRead), stream(std::make_unique<Stream>())
{
    if (!file.good())
        return;
    stream->reader = mpc_reader{read_callback, seek_callback, tell_callback, size_callback, can_seek_callback, &file};
    // The demuxer reads and checks the stream header, and sets the decoder up.
    stream->demux = mpc_demux_init(&stream->reader);
    if (stream->demux == nullptr) {
        os::log() << L"musepack: " << path << L" is not a Musepack stream\n";
        return;
    }
    mpc_streaminfo info;
    mpc_demux_get_info(stream->demux, &info);
    const mpc_int64_t samples = mpc_streaminfo_get_length_samples(&info);
    if (info.channels == 0 || info.sample_freq == 0 || samples < 0) {
        os::log() << L"musepack: " << path << L" has no audio\n";
        return;
    }
    channels = static_cast<std::int32_t>(info.channels);
    rate = static_cast<std::int32_t>(info.sample_freq);
    bitrate = static_cast<std::int32_t>(std::clamp(std::trunc(info.average_bitrate), 0.0, double(INT32_MAX)));
    length = static_cast<std::int32_t>(std::min<mpc_int64_t>(samples, INT32_MAX));
}

DecoderMPC::~DecoderMPC()
{
    if (stream->demux != nullptr)
        mpc_demux_exit(stream->demux);
}

void DecoderMPC::get_data(PCMData& out, int n)
{
    liba::Lock held(lock);
    out = PCMData();
    if (channels == 0 || n <= 0)
        return;
    if (residue.empty()) {
        mpc_frame_info frame{};
        frame.buffer = stream->buffer.data();
        // A frame of no samples comes after a seek; the next one has them.
        do {
            const mpc_status status = mpc_demux_decode(stream->demux, &frame);
            if (status != MPC_STATUS_OK || frame.bits == -1)
                return;
        } while (frame.samples == 0);
        const std::size_t count = std::size_t(frame.samples) * std::size_t(channels);
        liba::ByteBlock block(count * 2);
        std::uint8_t* p = block.writable();
        for (std::size_t i = 0; i < count; ++i) {
            const auto v = static_cast<std::uint16_t>(to_16_bits(frame.buffer[i]));
            p[2 * i] = static_cast<std::uint8_t>(v & 0xFF);
            p[2 * i + 1] = static_cast<std::uint8_t>(v >> 8);
        }
        residue.bytes = block;
        residue.channels = channels;
        residue.bits = 16;
        residue.rate = rate;
        position += static_cast<std::int32_t>(frame.samples);
    }
    const std::size_t frame_bytes = static_cast<std::size_t>(channels) * 2;
    const std::size_t take = std::min(residue.bytes.size(), static_cast<std::size_t>(n) * frame_bytes);
    out = residue;
    out.bytes = liba::ByteBlock(residue.bytes, 0, take);
    residue.bytes = liba::ByteBlock(residue.bytes, take, SIZE_MAX);
}

bool DecoderMPC::is_eof()
{
    liba::Lock held(lock);
    return channels == 0 || position >= length;
}

std::int32_t DecoderMPC::get_length() { return length; }

std::int32_t DecoderMPC::get_position()
{
    liba::Lock held(lock);
    return position;
}

void DecoderMPC::set_position(std::int32_t p)
{
    liba::Lock held(lock);
    if (channels == 0)
        return;
    position = std::max(p, 0);
    residue = PCMData();
    mpc_demux_seek_sample(stream->demux, static_cast<mpc_uint64_t>(position));
}

} // namespace audio

#include "audio/decoder_vorbis.h"

#include "os/log.h"

#include <tremor/ivorbisfile.h>

#include <algorithm>
#include <climits>
#include <cstdio>

namespace audio {

struct DecoderVorbis::Stream {
    OggVorbis_File vf{};
};

namespace {

// Tremor reads the file through these, with the os::File as its source.
size_t read_callback(void* buffer, size_t size, size_t count, void* source)
{
    if (size == 0)
        return 0;
    return static_cast<os::File*>(source)->read(buffer, size * count) / size;
}

int seek_callback(void* source, ogg_int64_t offset, int whence)
{
    auto* file = static_cast<os::File*>(source);
    switch (whence) {
    case SEEK_SET:
        file->seek(offset);
        break;
    case SEEK_CUR:
        file->seek(file->tell() + offset);
        break;
    case SEEK_END:
        file->seek(file->size() + offset);
        break;
    default:
        break;
    }
    return 0;
}

long tell_callback(void* source) { return static_cast<long>(static_cast<os::File*>(source)->tell()); }

// Vorbis allows up to 255 channels.
constexpr int kMaxChannels = 255;

std::int32_t clamp32(ogg_int64_t v) { return static_cast<std::int32_t>(std::clamp<ogg_int64_t>(v, INT32_MIN, INT32_MAX)); }

// Bits per second over the whole stream. Tremor divides by the stream's
// duration, and each link's length by its rate, unchecked: a damaged stream
// with a link of no rate or no length has no bit rate.
std::int32_t stream_bitrate(OggVorbis_File* vf)
{
    for (long i = 0; i < ov_streams(vf); ++i) {
        const vorbis_info* link = ov_info(vf, static_cast<int>(i));
        if (link == nullptr || link->rate <= 0)
            return 0;
    }
    if (ov_time_total(vf, -1) <= 0)
        return 0;
    return clamp32(ov_bitrate(vf, -1));
}

} // namespace

DecoderVorbis::DecoderVorbis(const std::wstring& path) : file(path, os::File::kRead), stream(std::make_unique<Stream>())
{
    if (!file.good())
        return;
    ov_callbacks callbacks{read_callback, seek_callback, nullptr, tell_callback};
    const int result = ov_open_callbacks(&file, &stream->vf, nullptr, 0, callbacks);
    if (result != 0) {
        os::log() << L"vorbis: " << path << L" is not Ogg Vorbis (" << result << L")\n";
        return;
    }
    info = ov_info(&stream->vf, -1);
    if (info == nullptr) {
        ov_clear(&stream->vf);
        return;
    }
    bitrate = stream_bitrate(&stream->vf);
    fewest_channels = info->channels;
    for (long i = 0; i < ov_streams(&stream->vf); ++i)
        if (const vorbis_info* link = ov_info(&stream->vf, static_cast<int>(i)); link != nullptr && link->channels > 0)
            fewest_channels = std::min(fewest_channels, link->channels);
}

DecoderVorbis::~DecoderVorbis()
{
    if (info != nullptr)
        ov_clear(&stream->vf);
}

void DecoderVorbis::get_data(PCMData& out, int n)
{
    liba::Lock held(lock);
    out = PCMData();
    if (info == nullptr || n <= 0)
        return;
    const int frames = std::min(n, kMaxFrames);
    // Sized for the link with the fewest channels: a read that crosses into
    // such a link still gives no more than `frames`.
    const int bytes = frames * fewest_channels * 2;
    liba::ByteBlock block(static_cast<std::size_t>(std::max(bytes, kMaxChannels * 2)));
    int bitstream = 0;
    long got = ov_read(&stream->vf, reinterpret_cast<char*>(block.writable()), bytes, &bitstream);
    // Too small for one frame of a wider link, the read gives nothing and
    // leaves the samples there: then one frame of that link.
    const vorbis_info* current = ov_info(&stream->vf, -1);
    if (got == 0 && current != nullptr && current->channels * 2 > bytes && current->channels <= kMaxChannels)
        got = ov_read(&stream->vf, reinterpret_cast<char*>(block.writable()), current->channels * 2, &bitstream);
    if (got <= 0) {
        // A hole ends the stream as far as the stages can tell.
        if (got < 0)
            os::log() << L"vorbis: read failed at sample " << ov_pcm_tell(&stream->vf) << L" (" << got << L")\n";
        return;
    }
    // A chained stream may change channels and rate at a link: the samples
    // are in the format of the link they came from.
    const vorbis_info* link = ov_info(&stream->vf, bitstream);
    if (link == nullptr)
        link = info;
    out.bytes = liba::ByteBlock(block, 0, static_cast<std::size_t>(got));
    out.channels = link->channels;
    out.bits = 16;
    out.rate = static_cast<std::int32_t>(link->rate);
}

bool DecoderVorbis::is_eof()
{
    liba::Lock held(lock);
    return info == nullptr || get_position() == get_length();
}

std::int32_t DecoderVorbis::get_channels() { return info != nullptr ? info->channels : 0; }

std::int32_t DecoderVorbis::get_rate() { return info != nullptr ? static_cast<std::int32_t>(info->rate) : 0; }

std::int32_t DecoderVorbis::get_length()
{
    liba::Lock held(lock);
    return info != nullptr ? clamp32(ov_pcm_total(&stream->vf, -1)) : 0;
}

std::int32_t DecoderVorbis::get_position()
{
    liba::Lock held(lock);
    return info != nullptr ? clamp32(ov_pcm_tell(&stream->vf)) : 0;
}

void DecoderVorbis::set_position(std::int32_t position)
{
    liba::Lock held(lock);
    if (info != nullptr)
        ov_pcm_seek(&stream->vf, position);
}

} // namespace audio

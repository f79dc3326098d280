#pragma once

#include <cstdint>

// The four-byte header that starts every MPEG audio frame, as the MP3 reader,
// the decoder and the MP3 record chain see it. Threads: any (no state).
namespace audio {

// One parsed frame header. `rate` in samples per second, `bitrate` in
// kilobits per second, `frame_size` in bytes (header included), `samples`
// per channel.
struct MP3Header {
    std::int32_t version = 0;  // 1 MPEG-1, 2 MPEG-2, 3 MPEG-2.5
    std::int32_t layer = 0;    // 1, 2, 3
    std::int32_t channels = 0; // 1 for single channel, otherwise 2
    std::int32_t rate = 0;
    std::int32_t bitrate = 0;
    std::int32_t frame_size = 0;
    std::int32_t samples = 0;
};

// Bytes of a frame header.
inline constexpr int kMP3HeaderSize = 4;

// Parses the header in bytes[0..3]; false when they are no frame start. Free
// format (bit rate index 0) is refused. MPEG-2 and 2.5 frames of layer II get
// the size and sample count of layer III.
bool parse_mp3_header(const std::uint8_t* bytes, MP3Header& out);

// True when two frames can belong to one stream: version, layer, rate,
// samples and channels agree. The bit rate may differ (VBR).
bool same_stream(const MP3Header& a, const MP3Header& b);

} // namespace audio

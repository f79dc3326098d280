#include "audio/mp3_header.h"

namespace audio {

namespace {

// Kilobits per second by bit rate index (1..14; 0 is free format, 15 bad).
// MPEG-1 has a column per layer; MPEG-2 and 2.5 share one for layer I and one
// for layers II and III.
constexpr std::int32_t kBitratesV1[3][16] = {
    {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448, 0},
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384, 0},
    {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0},
};
constexpr std::int32_t kBitratesV2[2][16] = {
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256, 0},
    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0},
};
// Samples per second by version (1..3) and sample rate index (0..2).
constexpr std::int32_t kRates[3][4] = {
    {44100, 48000, 32000, 0},
    {22050, 24000, 16000, 0},
    {11025, 12000, 8000, 0},
};

constexpr std::uint32_t kSyncMask = 0xFFE00000u; // the top 11 bits

} // namespace

bool parse_mp3_header(const std::uint8_t* bytes, MP3Header& out)
{
    std::uint32_t h = (std::uint32_t(bytes[0]) << 24) | (std::uint32_t(bytes[1]) << 16) |
                      (std::uint32_t(bytes[2]) << 8) | std::uint32_t(bytes[3]);
    if ((h & kSyncMask) != kSyncMask)
        return false;
    std::uint32_t layer_bits = (h >> 17) & 3;
    std::uint32_t bitrate_index = (h >> 12) & 15;
    std::uint32_t rate_index = (h >> 10) & 3;
    if (layer_bits == 0 || bitrate_index == 0 || bitrate_index == 15 || rate_index == 3)
        return false;

    MP3Header r;
    if (h & (1u << 20))
        r.version = (h & (1u << 19)) ? 1 : 2;
    else
        r.version = 3;
    r.layer = 4 - static_cast<std::int32_t>(layer_bits);
    r.channels = ((h >> 6) & 3) == 3 ? 1 : 2;
    if (r.version == 1)
        r.bitrate = kBitratesV1[r.layer - 1][bitrate_index];
    else
        r.bitrate = kBitratesV2[r.layer == 1 ? 0 : 1][bitrate_index];
    r.rate = kRates[r.version - 1][rate_index];
    if (r.bitrate == 0 || r.rate == 0)
        return false;

    std::int32_t pad = static_cast<std::int32_t>((h >> 9) & 1);
    if (r.layer == 1) {
        r.frame_size = (12000 * r.bitrate / r.rate + pad) * 4;
        r.samples = 384;
    } else if (r.version == 1) {
        r.frame_size = 144000 * r.bitrate / r.rate + pad;
        r.samples = 1152;
    } else {
        // Layer II of the low rates is sized as layer III: its frames come
        // out too small and the decoder refuses them.
        r.frame_size = 72000 * r.bitrate / r.rate + pad;
        r.samples = 576;
    }
    out = r;
    return true;
}

bool same_stream(const MP3Header& a, const MP3Header& b)
{
    return a.version == b.version && a.layer == b.layer && a.rate == b.rate &&
           a.samples == b.samples && a.channels == b.channels;
}

} // namespace audio

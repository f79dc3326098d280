#pragma once

#include "audio/decoding_reader.h"
#include "audio/records.h"
#include "liba/critical_section.h"
#include "liba/nocopy.h"
#include "os/file.h"

#include <cstdint>
#include <memory>
#include <string>

struct vorbis_info;

namespace audio {

// An Ogg Vorbis file, read and decoded at once through Tremor, the integer
// Vorbis decoder: it is both the file's reader and the provider of its
// 16-bit PCM. A file that isn't Ogg Vorbis leaves it closed.
// Position unit: sample frames of the stream. Times in seconds.
// Threads: the player's thread pulls; the main thread queries, seeks and
// transfers; `lock` serialises them. Owned by its play chain; records it
// returns are the caller's.
class DecoderVorbis : public DecodingReader, liba::Nocopy {
public:
    explicit DecoderVorbis(const std::wstring& path);
    ~DecoderVorbis() override;

    // At most min(n, kMaxFrames) frames, often fewer: one ov_read a call.
    // A damaged stretch of the stream (a hole) gives an empty record, which
    // ends the stream for the stages; a later seek can go on.
    // Each record has the format of the link of a chained stream it comes
    // from; get_channels and get_rate tell the first link's.
    void get_data(PCMData& out, int n) override;

    bool is_open() override { return info != nullptr; }
    // Exactly at the end: a cursor set past it does not count.
    bool is_eof() override;
    std::int32_t get_channels() override;
    std::int32_t get_bits() override { return 16; }
    std::int32_t get_rate() override;
    std::int32_t get_bitrate() override { return bitrate; }
    std::int32_t get_length() override;
    std::int32_t get_position() override;
    void set_position(std::int32_t position) override;

    // The most frames one ov_read is asked for.
    static constexpr int kMaxFrames = 8192;

    // Tremor's state; its type stays inside the implementation.
    struct Stream;

private:
    os::File file;
    std::unique_ptr<Stream> stream;      // the OggVorbis_File
    vorbis_info* info = nullptr; // the stream's; null when the file did not open
    std::int32_t bitrate = 0;    // bits per second, ov_bitrate of the whole stream
    int fewest_channels = 0;     // of all links of a chained stream
    liba::CriticalSection lock;
};

} // namespace audio

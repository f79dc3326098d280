#pragma once

#include "audio/decoding_reader.h"
#include "audio/records.h"
#include "liba/critical_section.h"
#include "liba/nocopy.h"
#include "os/file.h"

#include <cstdint>
#include <memory>
#include <string>

namespace audio {

// A Musepack file (stream versions 7 and 8), read and decoded at once
// through libmpcdec's demuxer: it is both the file's reader and the provider
// of its PCM, 16-bit, the library's float samples scaled by 32768 and
// clipped. A file that isn't Musepack leaves it closed.
// Position unit: sample frames of the stream. Times in seconds.
// Threads: the player's thread pulls; the main thread queries, seeks and
// transfers; `lock` serialises them. Owned by its play chain; records it
// returns are the caller's.
class DecoderMPC : public DecodingReader, liba::Nocopy {
public:
    explicit DecoderMPC(const std::wstring& path);
    ~DecoderMPC() override;

    // At most `n` frames of one decoded Musepack frame (1152 sample frames);
    // what is left of it waits for the next call. Empty at the end of the
    // stream or when a frame fails.
    void get_data(PCMData& out, int n) override;

    bool is_open() override { return channels != 0; }
    bool is_eof() override;
    std::int32_t get_channels() override { return channels; }
    std::int32_t get_bits() override { return 16; }
    std::int32_t get_rate() override { return rate; }
    std::int32_t get_bitrate() override { return bitrate; }
    std::int32_t get_length() override;
    std::int32_t get_position() override;
    void set_position(std::int32_t position) override;

    // libmpcdec's state; its types stay inside the implementation.
    struct Stream;

private:
    os::File file;
    std::unique_ptr<Stream> stream; // the reader callbacks and the demuxer
    std::int32_t channels = 0;      // 0 when the file did not open
    std::int32_t rate = 0;          // samples per second
    std::int32_t bitrate = 0;       // bits per second, the stream's average
    std::int32_t position = 0;      // sample frames handed out or skipped
    std::int32_t length = 0;        // sample frames of the stream
    liba::CriticalSection lock;
    PCMData residue;                // what is left of the last decoded frame
};

} // namespace audio

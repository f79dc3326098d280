#pragma once

#include <cstdint>

namespace audio {

// Every source that plays from a file. Position is in a unit private to each
// source (bytes of the data chunk for PCM WAV, blocks for ADPCM and GSM WAV,
// bytes of the file for MP3, ...): callers convert through seconds and never
// assume a unit. Times are seconds.
// Threads: the reader's own lock serialises the player thread's reads and the
// main thread's queries and seeks. Owned by its play chain.
class FileReader {
public:
    virtual ~FileReader() = default;

    // The file opened and its header parsed.
    virtual bool is_open() = 0;
    // True when not open, or when the read cursor has reached the end.
    virtual bool is_eof() = 0;
    virtual int32_t get_channels() = 0;
    // Bits per sample after decoding: 16 for sources with a decoder.
    virtual int32_t get_bits() = 0;
    // Samples per second.
    virtual int32_t get_rate() = 0;
    // Bits per second of the file.
    virtual int32_t get_bitrate() = 0;
    virtual int32_t seconds_to_position(double seconds) = 0;
    // 0.0 where a divisor of the header is 0.
    virtual double position_to_seconds(int32_t position) = 0;
    double get_duration() { return position_to_seconds(get_length()); }
    double get_time() { return position_to_seconds(get_position()); }
    void set_time(double seconds) { set_position(seconds_to_position(seconds)); }
    virtual int32_t get_length() = 0;
    virtual int32_t get_position() = 0;
    virtual void set_position(int32_t position) = 0;
    // Read the next `seconds` (or position units) of audio and push it
    // downstream on the caller's thread; true when the whole amount went
    // through, false when the source is closed or ends early.
    virtual bool transfer_seconds(double seconds) = 0;
    virtual bool transfer_position(int32_t amount) = 0;
};

} // namespace audio

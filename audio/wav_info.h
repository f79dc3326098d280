#pragma once

#include "audio/adpcm_codec.h"
#include "os/file.h"

#include <cstdint>
#include <string>
#include <vector>

// The parsed header of a WAV file, as the readers take it apart and the
// writers lay it out. Reading is deliberately narrow: "fmt " must be the first
// chunk, only the 16 standard bytes of it plus what a format's tail reads are
// taken (its size word is kept, never used to skip), and chunks are skipped by
// their size word as it stands, with no rounding of odd sizes. A file outside
// that shape fails to read rather than being guessed at.
// Threads: an object belongs to its reader or writer, whose lock guards it.
// All integers in the file are little-endian; sizes and offsets are bytes.
namespace audio {

inline constexpr std::uint16_t kFormatTagPCM = 1;
inline constexpr std::uint16_t kFormatTagADPCM = 2;
inline constexpr std::uint16_t kFormatTagGSM = 49;

class WAVInfo {
public:
    virtual ~WAVInfo() = default;

    // Parses the header from the start of `file` and leaves the file at the
    // first byte of audio; false when the file is not one this kind reads.
    bool read(os::File& file);
    // Writes the header at the file's position, and on success sets
    // `data_offset` to where the audio begins. False on any short write.
    bool write(os::File& file);
    // The header as write() lays it out, up to the first byte of audio.
    std::string header_bytes();

    // What follows the 16 standard bytes of "fmt ". The base reads and
    // writes nothing and accepts any format.
    virtual bool read_format_tail(os::File& file);
    virtual void append_format_tail(std::string& bytes);

    std::int32_t channels = 0;
    std::int32_t bits = 0;          // per sample, as stored
    std::int32_t rate = 0;          // samples per second
    std::uint16_t format_tag = 0;
    std::uint32_t bytes_per_second = 0;
    std::uint16_t block_align = 0;  // bytes per sample frame (PCM) or block
    std::uint32_t riff_size = 0;
    std::uint32_t fmt_size = 0;
    std::uint32_t data_size = 0;
    std::uint32_t data_offset = 0;  // file offset of the first byte of audio
};

// Linear PCM, format tag 1, any channels, bits and rate.
class WAVInfoPCM : public WAVInfo {
public:
    bool read_format_tail(os::File& file) override;
};

// Microsoft ADPCM, format tag 2: 1 or 2 channels of 4 bits, a table of 7
// coefficient pairs (read and kept, but decoding always uses the built-in
// table) and a "fact" chunk with the length in samples.
class WAVInfoADPCM : public WAVInfo {
public:
    bool read_format_tail(os::File& file) override;
    void append_format_tail(std::string& bytes) override;
    // The table every Microsoft ADPCM file carries, for writing.
    void set_standard_coefficients();

    std::uint16_t samples_per_block = 1;
    std::vector<ADPCMCoefficient> coefficients;
    std::uint32_t coefficient_count = 0;
    std::uint32_t fact_samples = 0;  // samples per channel
};

// GSM 06.10, format tag 49: 8000 Hz mono in 65-byte blocks of 320 samples,
// with a "fact" chunk with the length in samples.
class WAVInfoGSM : public WAVInfo {
public:
    bool read_format_tail(os::File& file) override;
    void append_format_tail(std::string& bytes) override;

    std::uint16_t samples_per_block = 1;
    std::uint32_t fact_samples = 0;
};

} // namespace audio

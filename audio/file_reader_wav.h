#pragma once

#include "audio/file_reader.h"
#include "audio/pipeline.h"
#include "audio/records.h"
#include "audio/wav_info.h"
#include "liba/critical_section.h"
#include "os/file.h"

#include <cstdint>
#include <string>

// The readers of WAV files with format tags 1 (PCM), 2 (Microsoft ADPCM) and
// 49 (GSM 06.10). A reader opens and parses its file in its constructor and
// stays closed (is_open() false, every answer 0 or empty) when the file is
// not of its kind; the chain factory then tries the next one.
// Threads: the player's thread reads (get_data) while the main thread asks
// for times and seeks; every operation takes the reader's re-entrant lock, so
// a seek lands between two reads. Owned by its play chain, or by whoever
// converts; the records it hands out share nothing with it.
namespace audio {

class FileReaderWAV : public FileReader {
public:
    explicit FileReaderWAV(const std::wstring& path);

    bool is_open() override;
    // The parsed header, of the reader's own kind.
    virtual WAVInfo& get_wav_info() = 0;

    // What the header says, the same for every kind; 0 while closed.
    bool is_eof() override;
    std::int32_t get_channels() override;
    std::int32_t get_rate() override;
    std::int32_t get_bitrate() override;

protected:
    // Reads the header into `info`; a file that is not of this `kind` leaves
    // the reader closed and a log line saying where the parse gave up.
    void parse(WAVInfo& info, const char* kind);
    // Bytes from the file's read cursor to its end; 0 at or past the end.
    std::int64_t bytes_left_in_file();

    os::File file;
    bool is_valid = false;
    liba::CriticalSection lock;

private:
    std::wstring path_;
};

// Linear PCM as stored: 8-bit samples stay unsigned 8-bit, 16-bit ones
// signed. Position unit: bytes of the data chunk; get_data counts frames.
class FileReaderWAVPCM : public Provider<PCMData>, public FileReaderWAV {
public:
    explicit FileReaderWAVPCM(const std::wstring& path);

    // At most `n` frames, and never past `data_size`. A file that ends
    // before its `data_size` ends the stream at the last request it could
    // fill whole: a short read hands out nothing.
    void get_data(PCMData& out, int n) override;
    WAVInfo& get_wav_info() override { return info; }

    std::int32_t get_bits() override;
    std::int32_t seconds_to_position(double seconds) override;
    double position_to_seconds(std::int32_t position) override;
    std::int32_t get_length() override;
    std::int32_t get_position() override;
    // Rounded down to a whole frame and limited to the size of the file.
    void set_position(std::int32_t position) override;
    bool transfer_seconds(double seconds) override;
    // `amount` in bytes, pushed in records of at most 5000 frames.
    bool transfer_position(std::int32_t amount) override;

private:
    WAVInfoPCM info;
};

// The readers of whole coded blocks. Position unit: blocks; the length comes
// from the "fact" chunk (whole blocks of it), not from the data chunk's size.
// A file that ends early ends the stream at its last whole block.
template <class T, class Info>
class FileReaderWAVBlocks : public Provider<T>, public FileReaderWAV {
public:
    // At most `n` whole blocks.
    void get_data(T& out, int n) override;
    WAVInfo& get_wav_info() override { return info; }

    // 16: what the decoder makes of the blocks.
    std::int32_t get_bits() override;
    std::int32_t seconds_to_position(double seconds) override;
    double position_to_seconds(std::int32_t position) override;
    std::int32_t get_length() override;
    std::int32_t get_position() override;
    // Not limited: a block past the end leaves the reader at its end.
    void set_position(std::int32_t position) override;
    bool transfer_seconds(double seconds) override;
    // `amount` in blocks, pushed `transfer_step` blocks at a time.
    bool transfer_position(std::int32_t amount) override;

protected:
    FileReaderWAVBlocks(const std::wstring& path, const char* kind, std::int32_t transfer_step);
    // The record for whole blocks `bytes`.
    virtual void make_record(T& out, const liba::ByteBlock& bytes) = 0;

    Info info;
    std::int32_t block_index = 0; // the next block to read

private:
    std::int32_t transfer_step_;
};

extern template class FileReaderWAVBlocks<ADPCMData, WAVInfoADPCM>;
extern template class FileReaderWAVBlocks<GSMData, WAVInfoGSM>;

// Microsoft ADPCM blocks, each record carrying the file's format.
class FileReaderWAVADPCM : public FileReaderWAVBlocks<ADPCMData, WAVInfoADPCM> {
public:
    explicit FileReaderWAVADPCM(const std::wstring& path);

protected:
    void make_record(ADPCMData& out, const liba::ByteBlock& bytes) override;
};

// GSM 06.10 blocks of 65 bytes, 8000 Hz mono.
class FileReaderWAVGSM : public FileReaderWAVBlocks<GSMData, WAVInfoGSM> {
public:
    explicit FileReaderWAVGSM(const std::wstring& path);

protected:
    void make_record(GSMData& out, const liba::ByteBlock& bytes) override;
};

} // namespace audio

#pragma once

#include "audio/file_reader.h"
#include "audio/mp3_header.h"
#include "audio/pipeline.h"
#include "audio/records.h"
#include "liba/critical_section.h"
#include "os/file.h"

#include <cstdint>
#include <string>

namespace audio {

// Finds MPEG audio frames in a file and hands them out one a call, each as a
// fresh copy of 2000 bytes from the frame's start. Tags are not parsed: the
// frame search passes over them. The stream counts as constant bit rate: time
// follows from the first frame's bit rate and the file's size.
// Position unit: bytes of the file, tags included. Times in seconds.
// Threads: the player's thread pulls; the main thread queries, seeks and
// transfers. `lock` serialises them. Owned by its play chain; records it
// returns are the caller's.
class FileReaderMP3 : public Provider<MP3Data>, public FileReader {
public:
    // Opens `path` and searches for a frame that a like frame follows at
    // exactly its end. A file of 0 bytes opens, with a zeroed format.
    explicit FileReaderMP3(const std::wstring& path);

    // One frame; `n` is ignored. Empty at the end of the frames.
    void get_data(MP3Data& out, int n) override;

    bool is_open() override { return is_valid; }
    bool is_eof() override;
    std::int32_t get_channels() override { return format.channels; }
    std::int32_t get_bits() override { return 16; }
    std::int32_t get_rate() override { return format.rate; }
    std::int32_t get_bitrate() override { return format.bitrate * 1000; }
    std::int32_t seconds_to_position(double seconds) override;
    double position_to_seconds(std::int32_t position) override;
    std::int32_t get_length() override { return file_size; }
    std::int32_t get_position() override;
    // Limited to 0..file size. Frames after the landing one lean on main
    // data from before the seek for a frame or two; their decoder drops them.
    void set_position(std::int32_t position) override;
    bool transfer_seconds(double seconds) override;
    bool transfer_position(std::int32_t amount) override;

    // The first frame's header, zeroed for an empty file.
    const MP3Header& get_format() const { return format; }

    // Bytes of the reading window and of each handed-out frame copy; the
    // window keeps at least a copy's worth ahead of the cursor until the end
    // of the file, so a frame is always whole in it.
    static constexpr std::int32_t kBufferSize = 10000;
    static constexpr std::int32_t kFrameCopy = 2000;

private:
    // Keeps a frame copy's worth ahead of the cursor while the file lasts;
    // returns the bytes read, or those ahead when no read was needed.
    std::int32_t refill();
    bool find_frame(MP3Header& out);
    std::int32_t position_locked() const { return read_total - (length - cursor); }

    os::File file;
    std::int32_t file_size = 0;  // bytes; files past 2 GiB are read as if they ended there
    MP3Header format;
    std::int32_t read_total = 0; // file position behind the window's last byte
    bool is_valid = false;
    liba::CriticalSection lock;
    std::uint8_t buffer[kBufferSize] = {};
    std::int32_t length = 0;     // valid bytes in `buffer`
    std::int32_t cursor = 0;     // next byte of `buffer` to look at
};

} // namespace audio

#pragma once

#include "audio/file_reader.h"
#include "audio/pipeline.h"
#include "audio/records.h"
#include "liba/critical_section.h"
#include "liba/nocopy.h"

#include <cstdint>
#include <string>

namespace audio {

// A Windows Media file (or any file the media service can play), played by
// the media service itself: GStreamer's playbin decodes it and sends the
// sound to its own sink, so this source delivers no samples at all and only
// its time queries and transport serve the program. One such reader plays
// at a time: a second one made while another lives stays closed. Loading
// leaves the file paused at its start. The reported format is fixed (mono,
// 16 bits, 44100 Hz) whatever the file holds.
// Position unit: milliseconds. Times in seconds.
// Threads: the main thread only (it is never pulled by the player). Owned
// by its play chain.
class FileReaderWMA : public Provider<PCMData>, public FileReader, liba::Nocopy {
public:
    // Starts the media service on the first use in the process, then loads
    // `path` and waits until the service is ready to play it or reports an
    // error. A file the service can't identify at all stays closed; one that
    // fails later in loading opens and fails when it plays. A load that
    // gets no answer within the load timeout leaves the reader closed.
    explicit FileReaderWMA(const std::wstring& path);
    ~FileReaderWMA() override;

    // Always empty: the service plays by itself.
    void get_data(PCMData& out, int n) override;

    bool is_open() override { return is_valid; }
    bool is_eof() override { return get_position() >= get_length(); }
    std::int32_t get_channels() override { return 1; }
    std::int32_t get_bits() override { return 16; }
    std::int32_t get_rate() override { return 44100; }
    // The stream's bit rate as the service reports it; 0 when it has none.
    std::int32_t get_bitrate() override { return bitrate; }
    std::int32_t seconds_to_position(double seconds) override;
    double position_to_seconds(std::int32_t position) override { return position * 0.001; }
    std::int32_t get_length() override;
    // The play position; once the service went from playing to stopped
    // (the end of the file) while this was polled, the length, until a seek.
    std::int32_t get_position() override;
    // Seeks the service; clears a seen end.
    void set_position(std::int32_t position) override;
    // A Windows Media file can't pass through the stages.
    bool transfer_seconds(double) override { return false; }
    bool transfer_position(std::int32_t) override { return false; }

    // Pauses or plays the service.
    void set_paused(bool on);
    // True when the service has reported an error for this file.
    bool has_error();

    // The service's play state: 2 playing, 1 paused, 0 stopped (at the end
    // of the file too).
    int get_play_state();

    // Where the service's sound goes, as a GStreamer pipeline description
    // ("fakesink sync=true"); empty for GStreamer's default audio sink.
    // Process-wide, read when a reader is made.
    static void set_audio_sink(const std::string& description);
    // Whether files may be handed to the service at all (true by default).
    // A process that must never start GStreamer (a fuzzer feeding random
    // bytes to the play-chain factory) switches it off; readers made then
    // stay closed.
    static void set_service_allowed(bool allowed);

    // How long a load may go unanswered: kLoadTimeoutMs unless a test
    // shortens it. Process-wide, read when a reader is made.
    static constexpr int kLoadTimeoutMs = 10000;
    static void set_load_timeout_ms(int ms);

    // The playbin and its bus; GStreamer's types stay inside the
    // implementation.
    struct Service;

private:
    void poll_bus();

    Service* service = nullptr; // null when closed
    liba::CriticalSection lock;
    bool is_valid = false;
    int last_state = 0;
    std::int32_t bitrate = 0;   // bits per second
};

} // namespace audio

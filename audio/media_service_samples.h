#pragma once

#include "liba/nocopy.h"

#include <cstdint>
#include <string>

namespace audio {

// The samples of a file as the media service decodes it: GStreamer's
// playbin hands them to an application sink instead of the speaker, as
// interleaved signed 16-bit little-endian samples in the stream's own rate
// and channels, as fast as they decode (no clock). GStreamer starts on the
// first one made in the process.
// Threads: one thread at a time. Blocks returned by read() belong to the
// caller. Rate in Hz, times in seconds.
class MediaServiceSamples : liba::Nocopy {
public:
    // Loads `path` and waits (up to the patience) until the first samples
    // are ready; stays closed when the service can't play it.
    explicit MediaServiceSamples(const std::wstring& path);
    ~MediaServiceSamples();

    bool is_open() const { return service != nullptr; }
    int get_channels() const { return channels; }
    int get_rate() const { return rate; }
    // The service's duration of the stream; 0 when it tells none.
    double get_duration();

    // Moves to the sample at `seconds` (exactly where the service can);
    // false when the service refuses.
    bool seek(double seconds);

    // The next block of samples, appended to `out`, with the time of its
    // first sample in `*at` (-1 when the service gave none). False at the
    // end of the stream or on an error (then error() says which).
    bool read(std::string& out, double* at);

    // The service's error text; empty when none came.
    const std::string& error() const { return error_text; }

    // How long a load may go unanswered, and a read without a block or a
    // word from the service, before either gives up: kPatienceMs unless a
    // test shortens it. Process-wide, read when a load or read begins.
    static constexpr int kPatienceMs = 10000;
    static void set_patience_ms(int ms);

    // The playbin, its sink and bus; GStreamer's types stay inside the
    // implementation.
    struct Service;

private:
    bool wait_preroll();
    void take_errors();

    Service* service = nullptr; // null when closed
    int channels = 0;
    int rate = 0;
    bool playing = false;
    std::string error_text;
};

} // namespace audio

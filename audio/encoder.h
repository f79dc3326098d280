#pragma once

#include <cstdint>

namespace audio {

// A stage that turns PCM into a coded stream, as a record chain sees it.
// Threads: asked on the main thread while the writer's thread encodes; the
// answer is fixed once the first record has set the format.
class Encoder {
public:
    virtual ~Encoder() = default;
    // Bits per second of the encoded stream.
    virtual std::int32_t get_bitrate() = 0;
};

} // namespace audio

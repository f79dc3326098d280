#pragma once

#include <cstdint>

namespace audio {

// The last stage of a record chain as the Document sees it: whether the file
// is still being written, and how far it has come. Threads: polled on the
// main thread while the writer's thread writes; each writer guards its state
// with its stage lock, so a poll may wait for a write under way.
class FileWriter {
public:
    virtual ~FileWriter() = default;
    // False once a write or the file's creation failed; a failed writer
    // stays failed and takes nothing more.
    virtual bool is_good() = 0;
    // How far the file has come, in the position unit the reader of the
    // same format uses (bytes of PCM data, blocks of ADPCM and GSM, bytes of
    // an MP3 file), so that a mark set while recording holds on playing.
    virtual std::int32_t get_position() = 0;
};

} // namespace audio

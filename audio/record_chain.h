#pragma once

#include "audio/encoder.h"
#include "audio/file_reader.h"
#include "audio/file_writer.h"
#include "audio/pipeline.h"
#include "audio/records.h"
#include "audio/recorder_pcm.h"
#include "liba/nocopy.h"
#include "os/recording_journal.h"

#include <cstdint>
#include <memory>
#include <string>

// What one file being recorded becomes: the chain that owns the file's
// encoder and writer and gives the record path one PCM consumer to link
// behind the active buffer. The mirror of PlayChain.
// Threads: made and deleted on the main thread, deleted only after the
// active buffer has run empty and its link to the consumer is cut; records
// arrive on the buffer's thread. Bit rates in bits per second.
namespace audio {

class RecordChain : liba::Nocopy {
public:
    // Closes the file: the encoder goes first, then the writer.
    virtual ~RecordChain() = default;
    // The bit rate of what is written.
    virtual Encoder* get_encoder() = 0;
    // The end to which sound is pushed; owned by the chain.
    virtual Consumer<PCMData>* get_consumer() = 0;
    // is_good and get_position of the file.
    virtual FileWriter* get_writer() = 0;
    // One of the kFormat names of play_chain.h.
    virtual std::wstring get_format() = 0;
    // Links a play chain's reader of this chain's format straight to the
    // writer, so that a transfer copies coded frames and blocks as they are,
    // past the encoder. False, and nothing linked, for a reader of another
    // format (and for every reader of Vorbis, Musepack or Windows Media).
    virtual bool attach_reader(FileReader& reader) = 0;
};

// Makes the chain of `format` ("PCM", "mp3", "ADPCM", "GSM") writing `path`,
// which is continued at its end with `append`. `channels`, `bits` and `rate`
// are taken by no chain: writers and encoders follow the records that come.
// `bit_rate` is the MP3 encoder's. With `journal` the file is a recording's,
// listed there while it is written and kept durable to the last second.
// Null for any other format.
std::unique_ptr<RecordChain> create_record_chain(const std::wstring& path, const std::wstring& format,
                                                 std::int32_t channels, std::int32_t bits, std::int32_t rate,
                                                 std::int32_t bit_rate, bool append,
                                                 const os::RecordingJournal* journal = nullptr);

// Makes a chain writing `target_path` in the format of the file at
// `model_path`; `out_length` (when given) gets the model's length in its
// reader's position unit. Null when the model doesn't open, its format has
// no chain (Vorbis, Musepack, Windows Media) or the writer failed at once.
std::unique_ptr<RecordChain> create_record_chain_like(const std::wstring& model_path,
                                                      const std::wstring& target_path, bool append,
                                                      std::int32_t* out_length,
                                                      const os::RecordingJournal* journal = nullptr);

// A recorder in the channels, bits and rate of the file at `path`; null when
// the file doesn't open or the device refuses.
std::unique_ptr<RecorderPCM> create_recorder_like(const std::wstring& path);

} // namespace audio

#pragma once

#include "audio/file_writer.h"
#include "audio/pipeline.h"
#include "audio/records.h"
#include "audio/recording_guard.h"
#include "os/file.h"
#include "os/recording_journal.h"

#include <cstdint>
#include <memory>
#include <string>

// The writer of MP3 files: nothing but the frames, gathered into blocks of
// 120,000 bytes because a flash card writes slowly in small pieces. The file
// is made (or emptied) at once; an appended file simply grows at its end, so
// a tag at the old end stays in the middle. No header needs patching, so a
// crash costs at most what is in the cache. A writer given the recordings
// journal writes a recording: its file is listed there while it is written,
// and the cache goes to the file and is made durable at least once a second.
// Threads: frames arrive on the writer's thread (or the main thread during a
// merge or conversion); is_good and get_position are polled on the main
// thread; all of it under the stage lock. Owned by the record chain;
// deleting the writer writes the cache and closes the file. Sizes in bytes.
namespace audio {

class FileWriterMP3 : public Consumer<MP3Data>, public FileWriter {
public:
    // Bytes gathered before they go to the card.
    static constexpr std::int32_t kCacheSize = 120000;

    FileWriterMP3(const std::wstring& path, bool append, const os::RecordingJournal* journal = nullptr);
    ~FileWriterMP3() override;

    // Takes `frame_size` bytes of the record. A frame larger than the cache
    // goes to the file at once, ahead of what is cached.
    void on_data(const MP3Data& record) override;

    // The file is open and no write has failed.
    bool is_good() override;
    // Bytes of the file, what is still cached included.
    std::int32_t get_position() override;

private:
    // Writes what is cached; false when not all of it went out.
    bool write_cache();

    std::unique_ptr<RecordingGuard> guard; // null unless a recording's
    os::File file;
    bool good = true;
    std::int32_t position = 0;
    std::unique_ptr<std::uint8_t[]> cache;
    std::int32_t cached = 0;
};

} // namespace audio

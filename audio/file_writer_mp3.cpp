#include "audio/file_writer_mp3.h"

#include <algorithm>
#include <cstring>
#include <unistd.h>

namespace audio {

namespace {

// Lists a recording's file before it is made, so that no moment of it goes
// unlisted.
std::unique_ptr<RecordingGuard> listed(const std::wstring& path, const os::RecordingJournal* journal)
{
    if (!journal)
        return nullptr;
    auto guard = std::make_unique<RecordingGuard>(*journal);
    guard->list(path);
    return guard;
}

} // namespace

FileWriterMP3::FileWriterMP3(const std::wstring& path, bool append, const os::RecordingJournal* journal)
    : guard(listed(path, journal)), file(path, append ? os::File::kReadWrite : os::File::kWrite),
      cache(new std::uint8_t[kCacheSize])
{
    if (append) {
        std::int64_t end = file.size();
        file.seek(end);
        position = static_cast<std::int32_t>(file.tell());
    }
}

FileWriterMP3::~FileWriterMP3()
{
    liba::Lock held(lock);
    if (cached > 0)
        file.write(cache.get(), static_cast<std::size_t>(cached));
    if (guard && file.is_open())
        ::fdatasync(file.handle());
    file.close();
    // The file is whole: its entry in the journal goes last.
    guard.reset();
}

bool FileWriterMP3::write_cache()
{
    const auto n = static_cast<std::size_t>(cached);
    cached = 0;
    return file.write(cache.get(), n) == n;
}

void FileWriterMP3::on_data(const MP3Data& record)
{
    liba::Lock held(lock);
    if (!is_good())
        return;
    const std::int32_t n =
        std::min(std::max(record.frame_size, 0), static_cast<std::int32_t>(record.bytes.size()));
    position += n;
    if (n + cached > kCacheSize) {
        good = write_cache();
        if (!is_good())
            return;
    }
    if (n <= kCacheSize) {
        std::memcpy(cache.get() + cached, record.bytes.data(), static_cast<std::size_t>(n));
        cached += n;
    } else {
        good = file.write(record.bytes.data(), static_cast<std::size_t>(n)) == static_cast<std::size_t>(n);
    }
    if (good && guard && guard->sync_due()) {
        // Durability is sought, not required: a file system that can't
        // sync still holds what was written.
        good = write_cache();
        ::fdatasync(file.handle());
        guard->synced();
    }
}

bool FileWriterMP3::is_good()
{
    liba::Lock held(lock);
    return good && file.is_open();
}

std::int32_t FileWriterMP3::get_position()
{
    liba::Lock held(lock);
    return position;
}

} // namespace audio

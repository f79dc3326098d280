#include "audio/file_writer_mp3.h"

#include <algorithm>
#include <cstring>

namespace audio {

namespace {

// Open for reading and writing, creating the file if it is missing.
constexpr int kReadWriteMode = 3;

} // namespace

FileWriterMP3::FileWriterMP3(const std::wstring& path, bool append)
    : file(path, append ? kReadWriteMode : os::File::kWrite), cache(new std::uint8_t[kCacheSize])
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
    file.close();
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
        good = file.write(cache.get(), static_cast<std::size_t>(cached)) == static_cast<std::size_t>(cached);
        if (!is_good())
            return;
        cached = 0;
    }
    if (n <= kCacheSize) {
        std::memcpy(cache.get() + cached, record.bytes.data(), static_cast<std::size_t>(n));
        cached += n;
    } else {
        good = file.write(record.bytes.data(), static_cast<std::size_t>(n)) == static_cast<std::size_t>(n);
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

#include "audio/file_reader_mp3.h"

#include "os/log.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>

namespace audio {

FileReaderMP3::FileReaderMP3(const std::wstring& path) : file(path, os::File::kRead)
{
    is_valid = true;
    if (!file.good()) {
        is_valid = false;
        return;
    }
    // Positions are 32-bit: a larger file is read as if it ended at 2 GiB.
    file_size = static_cast<std::int32_t>(std::min<std::int64_t>(file.size(), INT32_MAX));
    if (file_size == 0)
        return;

    for (;;) {
        while (!find_frame(format)) {
            // Nothing coming is the end too, should the file have shrunk.
            if (refill() == 0 || is_eof()) {
                os::log() << L"mp3: no frame found in " << path << L" up to byte "
                          << position_locked() << L"\n";
                format = MP3Header();
                is_valid = false;
                return;
            }
        }
        refill();
        cursor += format.frame_size;
        // A frame counts as real only when a like frame follows at exactly
        // its end.
        MP3Header next;
        if (cursor < length - kMP3HeaderSize && parse_mp3_header(buffer + cursor, next) &&
            same_stream(next, format))
            break;
        // A false sync: the search goes on behind the frame it claimed.
        if (is_eof())
            break;
    }
    // A lone frame that ran into the end of the file confirms nothing.
    if (is_eof()) {
        os::log() << L"mp3: no second frame confirms the first in " << path << L"\n";
        format = MP3Header();
        is_valid = false;
    }
    // Reading starts again at the window's start and searches through what
    // lies before the first frame once more.
    cursor = 0;
}

std::int32_t FileReaderMP3::refill()
{
    if (cursor <= length - kFrameCopy)
        return length - cursor;
    std::int32_t keep = std::max(length - cursor, 0);
    if (keep > 0)
        std::memmove(buffer, buffer + cursor, static_cast<std::size_t>(keep));
    std::int32_t room = std::min(kBufferSize - keep, INT32_MAX - read_total);
    std::int32_t came = static_cast<std::int32_t>(file.read(buffer + keep, static_cast<std::size_t>(room)));
    read_total += came;
    cursor = 0;
    length = keep + came;
    return came;
}

bool FileReaderMP3::find_frame(MP3Header& out)
{
    while (cursor < length - kMP3HeaderSize) {
        if (parse_mp3_header(buffer + cursor, out))
            return true;
        ++cursor;
    }
    cursor = length;
    return false;
}

void FileReaderMP3::get_data(MP3Data& out, int)
{
    liba::Lock held(lock);
    out = MP3Data();
    if (!is_valid || position_locked() >= file_size)
        return;
    refill();
    MP3Header frame;
    if (!find_frame(frame))
        return;
    // A frame of another mode (a stray mono frame in a stereo file) is passed
    // over byte by byte, as a false sync is.
    while (!same_stream(frame, format)) {
        ++cursor;
        if (!find_frame(frame))
            return;
    }
    refill();
    // The last frame goes out only if it ends before the last byte read.
    if (cursor >= length - frame.frame_size) {
        cursor = length;
        return;
    }
    // Always a full copy: the decoder gets what follows the frame as well,
    // and near the end of the file stale bytes of the window make up the rest.
    out.bytes = liba::ByteBlock(buffer + cursor, kFrameCopy);
    out.frame_size = frame.frame_size;
    cursor += frame.frame_size;
}

bool FileReaderMP3::is_eof()
{
    liba::Lock held(lock);
    return !is_valid || position_locked() >= file_size;
}

std::int32_t FileReaderMP3::get_position()
{
    liba::Lock held(lock);
    return position_locked();
}

std::int32_t FileReaderMP3::seconds_to_position(double seconds)
{
    // A byte takes 8 bits, and the bit rate is in kilobits per second.
    double p = std::trunc(format.bitrate * seconds * 125.0);
    if (!(p > double(INT32_MIN)))
        return std::isnan(p) ? 0 : INT32_MIN;
    if (p >= double(INT32_MAX))
        return INT32_MAX;
    return static_cast<std::int32_t>(p);
}

double FileReaderMP3::position_to_seconds(std::int32_t position)
{
    if (format.bitrate == 0)
        return 0.0;
    // Whole milliseconds from a 32-bit product of bits, which wraps for
    // positions past 2^28 bytes (256 MiB) as it always has.
    auto bits = static_cast<std::int32_t>(static_cast<std::uint32_t>(position) * 8u);
    return (bits / format.bitrate) * 0.001;
}

void FileReaderMP3::set_position(std::int32_t position)
{
    liba::Lock held(lock);
    read_total = std::clamp(position, 0, file_size);
    file.seek(read_total);
    length = 0;
    cursor = 0;
}

bool FileReaderMP3::transfer_seconds(double seconds)
{
    if (!is_open())
        return false;
    double start = get_time();
    while (get_time() - start < seconds) {
        MP3Data frame;
        get_data(frame, 1);
        if (frame.empty())
            return false;
        push_data(frame);
    }
    return true;
}

bool FileReaderMP3::transfer_position(std::int32_t amount)
{
    if (!is_open())
        return false;
    std::int64_t start = get_position();
    while (get_position() - start < amount) {
        MP3Data frame;
        get_data(frame, 1);
        if (frame.empty())
            return false;
        push_data(frame);
    }
    return true;
}

} // namespace audio

#include "files/id3_tag.h"

#include "liba/text.h"
#include "os/file.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace {

constexpr char kMagic[] = {'T', 'A', 'G'};
constexpr int kMagicSize = 3;
// Bytes of the tag behind "TAG".
constexpr int kBodySize = 125;
// Bytes at the end of the file searched for "TAG".
constexpr std::int64_t kSearchWindow = 1000;
// Mode of os::File: read and write, open or create.
constexpr int kReadWrite = 3;

// Offsets and widths of the fields in the body.
struct Field {
    int offset;
    int width;
};
constexpr Field kTitle{0, 30};
constexpr Field kArtist{30, 30};
constexpr Field kAlbum{60, 30};
constexpr Field kYear{90, 4};
constexpr Field kComment{94, 30};
// A comment written leaves room for a zero byte and the track.
constexpr int kCommentWritten = 28;
constexpr int kTrackMarker = 122; // 0 when byte 123 is a track number
constexpr int kTrack = 123;
constexpr int kGenre = 124;

// The file position just behind the last "TAG" in the file's final
// kSearchWindow bytes, or -1.
std::int64_t find_tag(os::File& file)
{
    std::int64_t size = file.size();
    std::int64_t n = std::min(kSearchWindow, size);
    if (n < kMagicSize || !file.seek(size - n))
        return -1;
    char tail[kSearchWindow];
    if (file.read(tail, static_cast<std::size_t>(n)) != static_cast<std::size_t>(n))
        return -1;
    for (std::int64_t i = n - kMagicSize; i >= 0; --i) {
        if (std::memcmp(tail + i, kMagic, kMagicSize) == 0)
            return size - n + i + kMagicSize;
    }
    return -1;
}

// A text field: it ends at its first zero byte, and trailing blanks go.
std::wstring field_text(const unsigned char* body, Field f)
{
    std::string_view bytes(reinterpret_cast<const char*>(body + f.offset), static_cast<std::size_t>(f.width));
    bytes = bytes.substr(0, bytes.find('\0'));
    while (!bytes.empty() && bytes.back() == ' ')
        bytes.remove_suffix(1);
    return liba::from_cp1252(bytes);
}

void put_text(unsigned char* body, int offset, int width, const std::wstring& text)
{
    std::string bytes = liba::to_cp1252(text);
    std::memcpy(body + offset, bytes.data(), std::min(bytes.size(), static_cast<std::size_t>(width)));
}

} // namespace

void Id3Tag::read(const std::wstring& path)
{
    *this = Id3Tag();
    os::File file(path, os::File::kRead);
    std::int64_t at = find_tag(file);
    if (at < 0 || !file.seek(at))
        return;
    unsigned char body[kBodySize];
    if (file.read(body, kBodySize) != kBodySize)
        return;
    if (body[kTrackMarker] == 0 && body[kTrack] != 0)
        track = body[kTrack];
    title = field_text(body, kTitle);
    artist = field_text(body, kArtist);
    album = field_text(body, kAlbum);
    year = field_text(body, kYear);
    comment = field_text(body, kComment);
    genre = body[kGenre];
    present = true;
}

bool Id3Tag::write(const std::wstring& path) const
{
    os::File file(path, kReadWrite);
    if (!file.good())
        return false;
    std::int64_t at = find_tag(file);
    if (at < 0) {
        if (!file.seek(file.size()) || file.write(kMagic, kMagicSize) != kMagicSize)
            return false;
    } else if (!file.seek(at)) {
        return false;
    }
    unsigned char body[kBodySize] = {};
    put_text(body, kTitle.offset, kTitle.width, title);
    put_text(body, kArtist.offset, kArtist.width, artist);
    put_text(body, kAlbum.offset, kAlbum.width, album);
    put_text(body, kYear.offset, kYear.width, year);
    put_text(body, kComment.offset, kCommentWritten, comment);
    body[kTrack] = track;
    body[kGenre] = genre;
    return file.write(body, kBodySize) == kBodySize;
}

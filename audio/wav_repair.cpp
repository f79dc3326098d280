#include "audio/wav_repair.h"

#include "audio/wav_info.h"
#include "liba/little_endian.h"
#include "os/file.h"
#include "os/log.h"

#include <algorithm>
#include <cstring>
#include <unistd.h>

namespace audio {

namespace {

// The header and every chunk before the audio must lie within this.
constexpr std::size_t kMostHeader = 65536;
constexpr std::size_t kChunkHeader = liba::kRiffChunkHeader;
constexpr std::size_t kRiffHeader = 12;
constexpr std::size_t kBlockAlignInFmt = 12;
constexpr std::size_t kSamplesPerBlockInFmt = 18;
constexpr std::size_t kID3v1Size = 128;

// Where the fields that a repair changes stand in a header.
struct Layout {
    std::uint16_t format_tag = 0;
    std::uint16_t block_align = 0;
    std::uint16_t samples_per_block = 0;
    std::size_t fact_at = 0; // of the sample count; 0 when there is none
    std::size_t data_size_at = 0;
    std::uint32_t data_size = 0;
    std::int64_t data_offset = 0;
};

bool is_tag(const char* at, const char* tag) { return std::memcmp(at, tag, 4) == 0; }

// Walks the chunks the way the readers do, by their size words as they
// stand, up to the data chunk.
bool find_layout(const std::string& head, Layout& l)
{
    if (head.size() < kRiffHeader || !is_tag(head.data(), "RIFF") || !is_tag(head.data() + 8, "WAVE"))
        return false;
    bool have_fmt = false;
    bool have_data = false;
    liba::walk_riff_chunks(head, kRiffHeader, [&](std::size_t at) {
        const char* chunk = head.data() + at;
        const std::uint32_t size = liba::get_le32(chunk + 4);
        const std::size_t body = at + kChunkHeader;
        if (is_tag(chunk, "data")) {
            l.data_size_at = at + 4;
            l.data_size = size;
            l.data_offset = static_cast<std::int64_t>(body);
            have_data = true;
            return false;
        }
        if (is_tag(chunk, "fmt ") && body + kBlockAlignInFmt + 2 <= head.size()) {
            have_fmt = true;
            l.format_tag = liba::get_le16(chunk + kChunkHeader);
            l.block_align = liba::get_le16(chunk + kChunkHeader + kBlockAlignInFmt);
            if (size >= kSamplesPerBlockInFmt + 2 && body + kSamplesPerBlockInFmt + 2 <= head.size())
                l.samples_per_block = liba::get_le16(chunk + kChunkHeader + kSamplesPerBlockInFmt);
        }
        if (is_tag(chunk, "fact") && size >= 4 && body + 4 <= head.size())
            l.fact_at = body;
        return true;
    });
    return have_data && have_fmt && l.block_align != 0;
}

bool is_chunk_name(const char* name)
{
    return std::all_of(name, name + 4, [](char c) { return c >= 0x20 && c <= 0x7e; });
}

std::string read_at(os::File& file, std::int64_t at, std::size_t size)
{
    std::string bytes(size, '\0');
    if (!file.seek(at))
        return {};
    bytes.resize(file.read(bytes.data(), size));
    return bytes;
}

// True when the bytes from `at` to `end` (behind the data chunk and its pad
// byte) are nothing but well-formed chunks, each with a printable name and
// ending within the file (the last one's pad byte may be missing), or an
// ID3v1 tag at the very end. Sound never looks like that.
bool is_trailing_chunks(os::File& file, std::int64_t at, std::int64_t end)
{
    while (at < end) {
        const std::string chunk = read_at(file, at, kChunkHeader);
        if (end - at == static_cast<std::int64_t>(kID3v1Size) && chunk.compare(0, 3, "TAG") == 0)
            return true;
        if (chunk.size() < kChunkHeader || !is_chunk_name(chunk.data()))
            return false;
        const std::int64_t size = liba::get_le32(chunk.data() + 4);
        const std::int64_t next = at + static_cast<std::int64_t>(kChunkHeader) + size;
        if (next > end)
            return false;
        at = std::min(next + (size & 1), end);
    }
    return true;
}

// Takes `whole` bytes of audio into the data chunk and cuts the rest.
bool rewrite_header(os::File& file, std::string head, const Layout& l, std::uint32_t whole)
{
    head.resize(static_cast<std::size_t>(l.data_offset));
    liba::put_le32(head.data() + l.data_size_at, whole);
    liba::put_le32(head.data() + liba::kRiffSizeAt, static_cast<std::uint32_t>(l.data_offset + whole - 8));
    if (l.fact_at != 0 && l.format_tag != kFormatTagPCM && l.samples_per_block != 0)
        liba::put_le32(head.data() + l.fact_at, whole / l.block_align * l.samples_per_block);
    return ::ftruncate(file.handle(), static_cast<off_t>(l.data_offset + whole)) == 0 &&
           ::pwrite(file.handle(), head.data(), head.size(), 0) == static_cast<ssize_t>(head.size()) &&
           ::fdatasync(file.handle()) == 0;
}

} // namespace

WAVCheck check_and_repair_wav(const std::wstring& path)
{
    if (!os::FileAttributes(path).exists())
        return WAVCheck::kNotWAV;
    os::File file(path, os::File::kReadWrite);
    const std::string head = read_at(file, 0, kMostHeader);
    Layout l;
    if (!find_layout(head, l))
        return WAVCheck::kNotWAV;
    const std::int64_t size = file.size();
    const std::int64_t data_end = l.data_offset + l.data_size;
    if (data_end >= size)
        return WAVCheck::kSound;
    if (is_trailing_chunks(file, data_end + (l.data_size & 1), size))
        return WAVCheck::kSound;
    const std::int64_t room = std::min<std::int64_t>(size - l.data_offset, UINT32_MAX - l.data_offset);
    const auto whole = static_cast<std::uint32_t>(room / l.block_align * l.block_align);
    if (!rewrite_header(file, head, l, whole)) {
        os::log() << "WAV repair: " << path << " could not be repaired\n";
        return WAVCheck::kFailed;
    }
    os::log() << "WAV repair: " << path << " claimed " << l.data_size << " bytes of audio and held "
              << (size - l.data_offset) << "; it now claims " << whole << "\n";
    return WAVCheck::kRepaired;
}

int repair_orphaned_recordings(const os::RecordingJournal& journal)
{
    return journal.take_orphans([](const std::wstring& file) { check_and_repair_wav(file); });
}

} // namespace audio

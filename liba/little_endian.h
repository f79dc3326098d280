#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Little-endian integers in byte strings, as the RIFF headers of WAV files
// store them. Threads: any; the functions touch only what they are given.
namespace liba {

inline std::uint16_t get_le16(const void* at)
{
    const auto* b = static_cast<const std::uint8_t*>(at);
    return static_cast<std::uint16_t>(b[0] | (b[1] << 8));
}

inline std::uint32_t get_le32(const void* at)
{
    const auto* b = static_cast<const std::uint8_t*>(at);
    return static_cast<std::uint32_t>(get_le16(b)) | static_cast<std::uint32_t>(get_le16(b + 2)) << 16;
}

inline void put_le32(void* at, std::uint32_t v)
{
    auto* b = static_cast<std::uint8_t*>(at);
    for (int i = 0; i < 4; ++i)
        b[i] = static_cast<std::uint8_t>(v >> (8 * i));
}

inline void append_le16(std::string& bytes, std::uint32_t v)
{
    bytes.push_back(static_cast<char>(v & 0xff));
    bytes.push_back(static_cast<char>((v >> 8) & 0xff));
}

inline void append_le32(std::string& bytes, std::uint32_t v)
{
    append_le16(bytes, v & 0xffff);
    append_le16(bytes, v >> 16);
}

// A RIFF file's size word, and the header (tag, size word) before each chunk.
constexpr std::size_t kRiffSizeAt = 4;
constexpr std::size_t kRiffChunkHeader = 8;

// Walks the RIFF chunks of `bytes` from `at` by their size words as they
// stand, calling visit(offset of a chunk's header) for each header that lies
// whole within `bytes` until visit returns false. Where the walk stopped.
template <class Visit>
std::size_t walk_riff_chunks(const std::string& bytes, std::size_t at, Visit visit)
{
    while (at + kRiffChunkHeader <= bytes.size() && visit(at))
        at += kRiffChunkHeader + get_le32(bytes.data() + at + 4);
    return at;
}

} // namespace liba

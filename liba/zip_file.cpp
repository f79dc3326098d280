#include "liba/zip_file.h"

#include "liba/text.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace liba {

namespace {

// Field positions within a local header.
constexpr size_t kCompressedSizeAt = 18;
constexpr size_t kUncompressedSizeAt = 22;
constexpr size_t kNameLengthAt = 26;
constexpr size_t kExtraLengthAt = 28;

uint32_t le32(const uint8_t* p)
{
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

uint16_t le16(const uint8_t* p) { return uint16_t(p[0] | p[1] << 8); }

} // namespace

ZipFile::ZipFile(const std::wstring& path)
{
    fd_ = ::open(to_utf8(path).c_str(), O_RDONLY | O_CLOEXEC);
}

ZipFile::~ZipFile() { close(); }

void ZipFile::close()
{
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = -1;
    ended_ = true;
    entry_size_ = 0;
    read_position_ = 0;
}

bool ZipFile::read_at(uint64_t offset, void* buffer, size_t bytes, size_t* got) const
{
    size_t done = 0;
    char* out = static_cast<char*>(buffer);
    while (fd_ >= 0 && done < bytes) {
        ssize_t n = ::pread(fd_, out + done, bytes - done, static_cast<off_t>(offset + done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        done += static_cast<size_t>(n);
    }
    if (got)
        *got = done;
    return done == bytes;
}

void ZipFile::rewind()
{
    next_header_ = 0;
    ended_ = fd_ < 0;
    entry_offset_ = 0;
    entry_size_ = 0;
    read_position_ = 0;
}

std::wstring ZipFile::next_entry()
{
    entry_size_ = 0;
    read_position_ = 0;
    if (ended_ || fd_ < 0)
        return {};
    ended_ = true;
    uint8_t header[kZipLocalHeaderSize];
    if (!read_at(next_header_, header, sizeof header) || le32(header) != kZipLocalSignature)
        return {};
    uint32_t compressed = le32(header + kCompressedSizeAt);
    uint32_t size = le32(header + kUncompressedSizeAt);
    if (compressed != size)
        return {};
    uint16_t name_length = le16(header + kNameLengthAt);
    uint16_t extra_length = le16(header + kExtraLengthAt);
    std::string name(name_length, '\0');
    if (!read_at(uint64_t(next_header_) + kZipLocalHeaderSize, name.data(), name.size()))
        return {};
    // Positions are 32-bit in this format; a chain that would run past them
    // has no next link.
    uint64_t data = uint64_t(next_header_) + kZipLocalHeaderSize + name_length + extra_length;
    uint64_t next = data + size;
    if (next > UINT32_MAX)
        return {};
    std::wstring wide(name.size(), L'\0');
    for (size_t i = 0; i < name.size(); ++i)
        wide[i] = static_cast<wchar_t>(static_cast<unsigned char>(name[i]));
    entry_offset_ = static_cast<uint32_t>(data);
    entry_size_ = size;
    next_header_ = static_cast<uint32_t>(next);
    ended_ = wide.empty();
    return wide;
}

bool ZipFile::find(const std::wstring& name)
{
    rewind();
    std::wstring wanted = to_lower(name);
    for (std::wstring entry = next_entry(); !entry.empty(); entry = next_entry())
        if (to_lower(entry) == wanted)
            return true;
    return false;
}

size_t ZipFile::read(void* buffer, size_t bytes)
{
    if (fd_ < 0 || read_position_ >= entry_size_)
        return 0;
    size_t left = entry_size_ - read_position_;
    if (bytes > left)
        bytes = left;
    size_t got = 0;
    read_at(uint64_t(entry_offset_) + read_position_, buffer, bytes, &got);
    read_position_ += static_cast<uint32_t>(got);
    return got;
}

bool ZipFile::seek(uint32_t position)
{
    if (position > entry_size_)
        return false;
    read_position_ = position;
    return true;
}

} // namespace liba

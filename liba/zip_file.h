#pragma once

#include "liba/nocopy.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace liba {

// Reads the stored (uncompressed) entries of a ZIP archive as a chain of
// local file headers from offset 0; the central directory is never read and
// nothing is inflated or checked against its CRC. An entry whose compressed
// and uncompressed sizes differ (deflated, or sizes kept in a data
// descriptor) ends the chain as the end of the archive does.
// Threads: one object belongs to one thread. Offsets and sizes are bytes,
// unsigned 32-bit as in the archive.
class ZipFile : Nocopy {
public:
    // Opens `path` (expanded, as the kernel takes it) for reading; no entry
    // is current yet. A file that can't be opened reads as an empty archive.
    explicit ZipFile(const std::wstring& path);
    ~ZipFile();

    bool is_open() const { return fd_ >= 0; }
    void close();

    // Reads the next local header and makes its entry current. Returns the
    // entry's name, each byte widened to one character; empty at the end of
    // the chain, on a bad signature, a short read or a compressed entry, and
    // on every later call.
    std::wstring next_entry();
    // Enumerates from the first header until an entry's name equals `name`
    // without regard to case; that entry is then current.
    bool find(const std::wstring& name);
    // Starts the enumeration again at the first header.
    void rewind();

    // The current entry: its size, and reads limited to what is left of it.
    uint32_t size() const { return entry_size_; }
    uint32_t tell() const { return read_position_; }
    // Bytes read, at most what is left of the entry; fewer when the archive
    // ends early. Advances the read position.
    size_t read(void* buffer, size_t bytes);
    // Moves the read position within the entry; false beyond its end.
    bool seek(uint32_t position);

private:
    bool read_at(uint64_t offset, void* buffer, size_t bytes, size_t* got = nullptr) const;

    int fd_ = -1;
    uint32_t next_header_ = 0;   // file position of the next local header
    uint32_t read_position_ = 0; // within the current entry
    uint32_t entry_offset_ = 0;  // file position of the current entry's data
    uint32_t entry_size_ = 0;
    bool ended_ = false;
};

// Local header layout, for readers and for the tools that write archives.
inline constexpr uint32_t kZipLocalSignature = 0x04034B50;
inline constexpr size_t kZipLocalHeaderSize = 30;

} // namespace liba

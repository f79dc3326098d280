#include "app/status_publication_wire.h"

#include "liba/text.h"
#include "os/log.h"
#include "os/path.h"
#include "os/unix_socket_server.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace status {

namespace {

void put_u32(unsigned char* out, uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        out[i] = static_cast<unsigned char>(v >> (8 * i));
}

uint32_t get_u32(const unsigned char* in)
{
    return uint32_t(in[0]) | uint32_t(in[1]) << 8 | uint32_t(in[2]) << 16 | uint32_t(in[3]) << 24;
}

bool push_i32(CCommClipboard& c, int32_t v)
{
    unsigned char b[4];
    put_u32(b, static_cast<uint32_t>(v));
    return c.push(b, 4);
}

bool pop_i32(CCommClipboard& c, int32_t& v)
{
    unsigned char b[4];
    if (!c.pop(b, 4))
        return false;
    v = static_cast<int32_t>(get_u32(b));
    return true;
}

} // namespace

uint32_t CCommClipboard::used() const
{
    return base_ ? get_u32(base_) : 0;
}

void CCommClipboard::clear()
{
    if (base_)
        put_u32(base_, 0);
}

bool CCommClipboard::push(const void* buffer, uint32_t size)
{
    if (!base_)
        return false;
    uint32_t u = used();
    // Another party may have left any number here: never trust it further
    // than the capacity.
    if (u > capacity || size > capacity - u)
        return false;
    if (size > 0)
        std::memcpy(base_ + 4 + u, buffer, size);
    put_u32(base_, u + size);
    return true;
}

bool CCommClipboard::pop(void* buffer, uint32_t size)
{
    if (!base_)
        return false;
    uint32_t u = used();
    if (u > capacity || size > u)
        return false;
    u -= size;
    if (size > 0)
        std::memcpy(buffer, base_ + 4 + u, size);
    put_u32(base_, u);
    return true;
}

CCommBufferClipboard::CCommBufferClipboard() : memory_(kMappingSize, 0)
{
    base_ = memory_.data();
}

CCommMemoryMappedFilesClipboard::CCommMemoryMappedFilesClipboard(const char* name)
{
    int fd = ::shm_open(name, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0 && errno == EEXIST) {
        existed_ = true;
        fd = ::shm_open(name, O_RDWR | O_CLOEXEC, 0600);
    }
    if (fd < 0) {
        os::log() << "status: can't open the shared memory: " << std::strerror(errno) << "\n";
        return;
    }
    struct stat st {};
    if (::fstat(fd, &st) != 0 || st.st_uid != ::getuid() || (st.st_mode & 077) != 0) {
        os::log() << "status: refused shared memory that is not ours alone\n";
        ::close(fd);
        return;
    }
    if (static_cast<size_t>(st.st_size) < kMappingSize && ::ftruncate(fd, kMappingSize) != 0) {
        ::close(fd);
        return;
    }
    void* p = ::mmap(nullptr, kMappingSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ::close(fd);
    if (p == MAP_FAILED)
        return;
    base_ = static_cast<unsigned char*>(p);
    if (!existed_)
        clear();
}

CCommMemoryMappedFilesClipboard::~CCommMemoryMappedFilesClipboard()
{
    if (base_)
        ::munmap(base_, kMappingSize);
}

bool CSerializableBool::read(CCommClipboard& clipboard)
{
    unsigned char b = 0;
    if (!clipboard.pop(&b, 1))
        return false;
    value = b != 0;
    return true;
}

bool CSerializableBool::write(CCommClipboard& clipboard) const
{
    unsigned char b = value ? 1 : 0;
    return clipboard.push(&b, 1);
}

bool CSerializableString::read(CCommClipboard& clipboard)
{
    int32_t count = 0;
    if (!pop_i32(clipboard, count))
        return false;
    uint32_t n = static_cast<uint32_t>(count);
    if (n > clipboard.used())
        return false;
    std::string bytes(n, '\0');
    if (!clipboard.pop(bytes.data(), n))
        return false;
    bytes.resize(n & ~1u);
    // The text ends at its first NUL.
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
        if (bytes[i] == 0 && bytes[i + 1] == 0) {
            bytes.resize(i);
            break;
        }
    }
    std::optional<std::wstring> t = liba::from_utf16le_bytes(bytes);
    if (!t)
        return false;
    text = std::move(*t);
    return true;
}

bool CSerializableString::write(CCommClipboard& clipboard) const
{
    if (!text)
        return false;
    std::string bytes = liba::to_utf16le_bytes(*text);
    bytes.append(2, '\0');
    if (bytes.size() > clipboard.capacity)
        return false;
    uint32_t n = static_cast<uint32_t>(bytes.size());
    if (!clipboard.push(bytes.data(), n))
        return false;
    if (push_i32(clipboard, static_cast<int32_t>(n)))
        return true;
    // Leave the stack as it was.
    std::string drop(n, '\0');
    clipboard.pop(drop.data(), n);
    return false;
}

bool CQuillaphonicsStatus::write(CCommClipboard& clipboard) const
{
    unsigned char path_bytes[kPathUnits * 2] = {};
    std::string bytes = liba::to_utf16le_bytes(path);
    std::memcpy(path_bytes, bytes.data(), std::min(bytes.size(), sizeof path_bytes - 2));
    return push_i32(clipboard, state) && clipboard.push(path_bytes, sizeof path_bytes) &&
           push_i32(clipboard, length) && push_i32(clipboard, position) && push_i32(clipboard, format) &&
           push_i32(clipboard, rate) && push_i32(clipboard, bits) && push_i32(clipboard, kbps) &&
           push_i32(clipboard, stereo) && push_i32(clipboard, time_ms);
}

bool CQuillaphonicsStatus::read(CCommClipboard& clipboard)
{
    unsigned char path_bytes[kPathUnits * 2];
    if (!(pop_i32(clipboard, time_ms) && pop_i32(clipboard, stereo) && pop_i32(clipboard, kbps) &&
          pop_i32(clipboard, bits) && pop_i32(clipboard, rate) && pop_i32(clipboard, format) &&
          pop_i32(clipboard, position) && pop_i32(clipboard, length) &&
          clipboard.pop(path_bytes, sizeof path_bytes) && pop_i32(clipboard, state)))
        return false;
    size_t units = 0;
    while (units < kPathUnits && (path_bytes[2 * units] != 0 || path_bytes[2 * units + 1] != 0))
        ++units;
    // A path cut inside a surrogate pair is shown without its broken end.
    std::optional<std::wstring> t =
        liba::from_utf16le_bytes(std::string_view(reinterpret_cast<char*>(path_bytes), units * 2));
    path = t ? *t : std::wstring();
    return true;
}

const char* state_word(int32_t state)
{
    switch (state) {
    case CQuillaphonicsStatus::kStopped: return "stopped";
    case CQuillaphonicsStatus::kPlaying: return "playing";
    case CQuillaphonicsStatus::kRecording: return "recording";
    case CQuillaphonicsStatus::kPlayPaused: return "play-paused";
    case CQuillaphonicsStatus::kRecordPaused: return "record-paused";
    default: return "";
    }
}

std::vector<std::wstring> split_arguments(const std::wstring& text, const std::vector<size_t>& max_lengths)
{
    std::vector<std::wstring> fields;
    size_t at = 0;
    for (size_t max : max_lengths) {
        size_t end = at;
        while (end < text.size() && end - at < max && text[end] != L',')
            ++end;
        fields.push_back(text.substr(at, end - at));
        at = end;
        if (at < text.size() && text[at] == L',')
            ++at;
    }
    return fields;
}

std::vector<size_t> argument_lengths(int command)
{
    switch (command) {
    case kPlay:
    case kOverwrite:
    case kAppend: return {200, 1};
    case kRecord:
    case kInsert: return {200, 20, 1};
    case kPause:
    case kStop: return {1};
    case kStep: return {20, 1};
    default: return {};
    }
}

std::string socket_path()
{
    return liba::to_utf8(os::join_path(os::runtime_dir(), kSocketName));
}

std::optional<int32_t> send_command(const std::string& socket, int32_t command)
{
    int fd = os::connect_unix_socket(socket);
    if (fd < 0)
        return std::nullopt;
    std::optional<int32_t> result;
    uint32_t answer = 0;
    if (os::write_u32le(fd, static_cast<uint32_t>(command)) && os::read_u32le(fd, answer))
        result = static_cast<int32_t>(answer);
    ::close(fd);
    return result;
}

} // namespace status

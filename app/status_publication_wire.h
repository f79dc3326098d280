#pragma once

#include "liba/nocopy.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// The wire of the status publication, shared by the program (server) and
// quillctl (client): a stack of bytes in named shared memory (the clipboard),
// the values pushed onto it, and the numbered command sent over a socket
// whose answer is a 4-byte result. A value written with several pushes is
// read with pops in the reverse order. Integers are little-endian; text is
// UTF-16LE. Threads: each object belongs to the thread that made it; there
// is no lock on the memory, the protocol being synchronous.
namespace status {

inline constexpr const char* kSharedMemoryName = "/6BB6FB49-A344-4ab3-A510-C8B2FEFB1E20";
inline constexpr const wchar_t* kSocketName = L"84FC44F5-FCD6-4847-8E8E-8B9576D2F96D";
inline constexpr uint32_t kCapacity = 1024;
inline constexpr size_t kMappingSize = kCapacity + 4;

// Command numbers.
inline constexpr int kPlay = 0;
inline constexpr int kRecord = 1;
inline constexpr int kOverwrite = 2;
inline constexpr int kAppend = 3;
inline constexpr int kInsert = 4;
inline constexpr int kPause = 5;
inline constexpr int kStop = 6;
inline constexpr int kStatus = 7;
inline constexpr int kStep = 8;

// A stack of bytes over a region of `capacity` + 4 bytes: a u32 `used`, then
// the data. A region whose `used` exceeds the capacity is refused by every
// push and pop.
class CCommClipboard : liba::Nocopy {
public:
    virtual ~CCommClipboard() = default;
    virtual void clear();
    // False, `used` untouched, when `size` does not fit.
    virtual bool push(const void* buffer, uint32_t size);
    // False, `used` untouched, when fewer than `size` bytes are held.
    virtual bool pop(void* buffer, uint32_t size);
    uint32_t used() const;
    bool is_open() const { return base_ != nullptr; }

    const uint32_t capacity = kCapacity;

protected:
    unsigned char* base_ = nullptr; // the region; owned by the derived class
};

// The clipboard in memory of its own: for tests and the fuzzer.
class CCommBufferClipboard : public CCommClipboard {
public:
    CCommBufferClipboard();
    unsigned char* region() { return memory_.data(); }

private:
    std::vector<unsigned char> memory_;
};

// The clipboard in POSIX shared memory, owner-only. A mapping that was new
// gets `used` 0; an existing one is taken as it is. Not open when the memory
// can't be made or mapped, or belongs to another user or is open to others.
class CCommMemoryMappedFilesClipboard : public CCommClipboard {
public:
    explicit CCommMemoryMappedFilesClipboard(const char* name = kSharedMemoryName);
    ~CCommMemoryMappedFilesClipboard() override;
    // Whether the mapping existed before.
    bool existed() const { return existed_; }

private:
    bool existed_ = false;
};

// A value that travels on the clipboard.
class CSerializable {
public:
    virtual ~CSerializable() = default;
    virtual bool read(CCommClipboard& clipboard) = 0;
    virtual bool write(CCommClipboard& clipboard) const = 0;
};

class CSerializableBool : public CSerializable {
public:
    explicit CSerializableBool(bool v = false) : value(v) {}
    bool read(CCommClipboard& clipboard) override;
    bool write(CCommClipboard& clipboard) const override;
    bool value;
};

// Text with its NUL as UTF-16LE, then its byte count. Null text is not
// written. A read takes the bytes up to the first NUL; bytes that are not
// UTF-16 fail the read.
class CSerializableString : public CSerializable {
public:
    CSerializableString() = default;
    explicit CSerializableString(std::wstring t) : text(std::move(t)) {}
    bool read(CCommClipboard& clipboard) override;
    bool write(CCommClipboard& clipboard) const override;
    std::optional<std::wstring> text;
};

// The state of the program as command 7 answers it.
class CQuillaphonicsStatus : public CSerializable {
public:
    static constexpr int32_t kStopped = 1;
    static constexpr int32_t kPlaying = 2;
    static constexpr int32_t kRecording = 3;
    static constexpr int32_t kPlayPaused = 4;
    static constexpr int32_t kRecordPaused = 5;
    static constexpr size_t kPathUnits = 260;

    bool read(CCommClipboard& clipboard) override;
    bool write(CCommClipboard& clipboard) const override;

    int32_t state = kStopped;
    std::wstring path;     // at most 259 units go on the wire
    int32_t length = -1;   // the reader's position unit
    int32_t position = -1;
    int32_t format = 2;    // 0 MP3, 1 WAV, 2 other or stopped
    int32_t rate = 0;      // samples per second
    int32_t bits = 0;
    int32_t kbps = 0;
    int32_t stereo = 2;    // 1 two channels, 0 one, 2 stopped
    int32_t time_ms = 0;
};

// "stopped", "playing", "recording", "play-paused", "record-paused"; "" else.
const char* state_word(int32_t state);

// The comma-separated argument text: each field ends at its first "," or at
// its maximum length, whichever comes first (a "," right behind a field cut
// at its length still ends it). Missing fields are empty.
std::vector<std::wstring> split_arguments(const std::wstring& text, const std::vector<size_t>& max_lengths);

// The maximum field lengths of a command's argument text, "show" last; empty
// for command 7 (a bool) and unknown numbers.
std::vector<size_t> argument_lengths(int command);

// The socket of the running program: "$XDG_RUNTIME_DIR/<kSocketName>".
std::string socket_path();

// Client: sends `command` and waits for the result. nullopt when nobody
// listens (or the link broke before an answer came).
std::optional<int32_t> send_command(const std::string& socket, int32_t command);

} // namespace status

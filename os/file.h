#pragma once

#include "liba/error_base.h"
#include "liba/nocopy.h"
#include "os/date_time.h"

#include <cstddef>
#include <cstdint>
#include <string>

// Files by path. Paths are expanded (macros, separators) before use.
// Threads: an object belongs to one thread at a time; the free functions may
// be called from any thread. Positions and sizes are in bytes.
namespace os {

// One open file. A failed open leaves an object that is not good (error
// "can't open file"); its operations then do nothing and return 0/false.
class File : public liba::ErrorBase, liba::Nocopy {
public:
    enum Mode {
        kRead = 0,   // open existing
        kWrite = 1,  // create always, truncating
        kAppend = 2, // open or create, position at the end
        kReadWrite = 3, // read and write, open or create (so is any other value)
    };

    File(const std::wstring& path, int mode);
    ~File() override;

    // Bytes read; 0 at the end, on failure, or on a bad object.
    size_t read(void* buffer, size_t bytes);
    // Bytes written; a short write adds "can't write file".
    size_t write(const void* buffer, size_t bytes);
    // Moves the position by `bytes` (a read-only file stops at its end and at
    // its start); returns the distance moved.
    int64_t skip(int64_t bytes);
    int64_t size();
    bool seek(int64_t position);
    int64_t tell();
    // Makes what was written durable (fsync).
    bool flush();
    void close();

    bool is_open() const { return fd_ >= 0; }
    int handle() const { return fd_; }

private:
    int fd_ = -1;
    int mode_ = kRead;
};

// A snapshot of one file or folder, taken at construction. Operations store
// errno in last_error (0 on success).
class FileAttributes {
public:
    explicit FileAttributes(const std::wstring& path);

    std::wstring path;
    int attributes = -1; // st_mode; -1 when nothing is there
    bool is_folder = false;
    bool read_only = false; // the owner's write bit is clear
    int64_t size = 0;
    DateTime created;  // birth time where the file system keeps it, else modified
    DateTime modified;
    int last_error = 0;

    bool exists() const { return attributes != -1; }

    // Creates the folder `name` inside this one.
    bool create_folder(const std::wstring& name);
    // Clears all write bits, or sets the owner's; nothing when unchanged.
    bool set_read_only(bool on);
    // A folder must be empty.
    bool remove();
    // Fails when `new_path` exists already. On success `path` follows.
    bool rename(const std::wstring& new_path);

private:
    void take_snapshot();
};

// Writes the whole file or leaves the old one: a temporary file in the same
// folder is written, made durable and renamed over the old file, and the
// folder is made durable. A failure removes the temporary file. The old
// file's permissions carry over.
bool write_file_atomically(const std::wstring& path, const std::string& bytes);

// Temporary files that write_file_atomically left for `path` when its
// process was killed. Callers that serialise their writers (a lock) may
// remove them; returns how many were removed.
int remove_stale_temporaries(const std::wstring& path);

bool read_whole_file(const std::wstring& path, std::string& out);

} // namespace os

#include "os/file.h"

#include "liba/text.h"
#include "os/path.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace os {

namespace {

bool write_all(int fd, const char* data, size_t bytes, size_t* written = nullptr)
{
    size_t done = 0;
    while (done < bytes) {
        ssize_t n = ::write(fd, data + done, bytes - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        done += static_cast<size_t>(n);
    }
    if (written)
        *written = done;
    return done == bytes;
}

} // namespace

File::File(const std::wstring& path, int mode) : mode_(mode)
{
    int flags;
    switch (mode) {
    case kRead: flags = O_RDONLY; break;
    case kWrite: flags = O_WRONLY | O_CREAT | O_TRUNC; break;
    case kAppend: flags = O_WRONLY | O_CREAT; break;
    default: flags = O_RDWR | O_CREAT; break;
    }
    fd_ = ::open(native_path(path).c_str(), flags | O_CLOEXEC, 0666);
    if (fd_ >= 0) {
        struct stat st;
        // A folder opens for reading on Linux; as a file it is not there.
        bool folder = ::fstat(fd_, &st) == 0 && S_ISDIR(st.st_mode);
        if (folder || (mode == kAppend && ::lseek(fd_, 0, SEEK_END) < 0))
            close();
    }
    if (fd_ < 0)
        add_error(L"can't open file");
}

File::~File() { close(); }

void File::close()
{
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = -1;
}

size_t File::read(void* buffer, size_t bytes)
{
    if (!good() || fd_ < 0 || bytes == 0)
        return 0;
    char* out = static_cast<char*>(buffer);
    size_t done = 0;
    while (done < bytes) {
        ssize_t n = ::read(fd_, out + done, bytes - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        done += static_cast<size_t>(n);
    }
    return done;
}

size_t File::write(const void* buffer, size_t bytes)
{
    if (!good() || fd_ < 0 || bytes == 0)
        return 0;
    size_t done = 0;
    if (!write_all(fd_, static_cast<const char*>(buffer), bytes, &done))
        add_error(L"can't write file");
    return done;
}

int64_t File::skip(int64_t bytes)
{
    if (!good() || fd_ < 0)
        return 0;
    off_t current = ::lseek(fd_, 0, SEEK_CUR);
    if (current < 0)
        return 0;
    int64_t target;
    if (bytes > 0 && current > INT64_MAX - bytes)
        target = INT64_MAX;
    else
        target = current + bytes;
    if (target < 0)
        target = 0;
    if (mode_ == kRead && bytes > 0) {
        int64_t end = size();
        if (target > end)
            target = end > current ? end : current;
    }
    off_t now = ::lseek(fd_, static_cast<off_t>(target), SEEK_SET);
    return now < 0 ? 0 : now - current;
}

int64_t File::size()
{
    struct stat st;
    if (!good() || fd_ < 0 || ::fstat(fd_, &st) != 0)
        return 0;
    return st.st_size;
}

bool File::seek(int64_t position)
{
    if (!good() || fd_ < 0 || position < 0)
        return false;
    return ::lseek(fd_, static_cast<off_t>(position), SEEK_SET) == position;
}

int64_t File::tell()
{
    if (!good() || fd_ < 0)
        return 0;
    off_t pos = ::lseek(fd_, 0, SEEK_CUR);
    return pos < 0 ? 0 : pos;
}

bool File::flush()
{
    if (!good() || fd_ < 0)
        return false;
    return ::fsync(fd_) == 0;
}

// --- FileAttributes ---

FileAttributes::FileAttributes(const std::wstring& p) : path(p) { take_snapshot(); }

void FileAttributes::take_snapshot()
{
    attributes = -1;
    is_folder = read_only = false;
    size = 0;
    created = modified = DateTime();

    std::wstring stripped = strip_trailing_separator(path);
    std::string p = native_path(stripped.empty() ? path : stripped);
    struct statx stx;
    unsigned mask = STATX_BASIC_STATS | STATX_BTIME;
    // Follow a link to what it names; a dangling link is still there itself.
    if (::statx(AT_FDCWD, p.c_str(), 0, mask, &stx) != 0 &&
        ::statx(AT_FDCWD, p.c_str(), AT_SYMLINK_NOFOLLOW, mask, &stx) != 0) {
        last_error = errno;
        return;
    }
    attributes = stx.stx_mode;
    is_folder = S_ISDIR(stx.stx_mode);
    read_only = (stx.stx_mode & S_IWUSR) == 0;
    size = static_cast<int64_t>(stx.stx_size);
    modified = DateTime::from_timespec(
        timespec{static_cast<time_t>(stx.stx_mtime.tv_sec), static_cast<long>(stx.stx_mtime.tv_nsec)});
    if (stx.stx_mask & STATX_BTIME)
        created = DateTime::from_timespec(
            timespec{static_cast<time_t>(stx.stx_btime.tv_sec), static_cast<long>(stx.stx_btime.tv_nsec)});
    else
        created = modified;
}

bool FileAttributes::create_folder(const std::wstring& name)
{
    bool ok = ::mkdir(native_path(join_path(path, name)).c_str(), 0777) == 0;
    last_error = ok ? 0 : errno;
    return ok;
}

bool FileAttributes::set_read_only(bool on)
{
    if (!exists()) {
        last_error = ENOENT;
        return false;
    }
    if (on == read_only) {
        last_error = 0;
        return true;
    }
    mode_t mode = static_cast<mode_t>(attributes) & 07777;
    mode = on ? (mode & ~static_cast<mode_t>(0222)) : (mode | S_IWUSR);
    bool ok = ::chmod(native_path(path).c_str(), mode) == 0;
    last_error = ok ? 0 : errno;
    if (ok)
        take_snapshot();
    return ok;
}

bool FileAttributes::remove()
{
    std::string p = native_path(path);
    bool ok = (is_folder ? ::rmdir(p.c_str()) : ::unlink(p.c_str())) == 0;
    last_error = ok ? 0 : errno;
    if (ok)
        take_snapshot();
    return ok;
}

bool FileAttributes::rename(const std::wstring& new_path)
{
    std::string from = native_path(path);
    std::string to = native_path(new_path);
    int rc = ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
    if (rc != 0 && errno == EINVAL) {
        // A file system without RENAME_NOREPLACE: check, then rename.
        struct stat st;
        if (::lstat(to.c_str(), &st) == 0)
            errno = EEXIST;
        else
            rc = ::rename(from.c_str(), to.c_str());
    }
    last_error = rc == 0 ? 0 : errno;
    if (rc != 0)
        return false;
    path = new_path;
    take_snapshot();
    return true;
}

// --- whole files ---

namespace {

std::string temporary_prefix(const std::string& name) { return "." + name + ".tmp-"; }

void split_path(const std::string& path, std::string& folder, std::string& name)
{
    size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) {
        folder = ".";
        name = path;
    } else {
        folder = slash == 0 ? "/" : path.substr(0, slash);
        name = path.substr(slash + 1);
    }
}

std::string random_suffix()
{
    unsigned char bytes[6];
    if (::getrandom(bytes, sizeof bytes, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof bytes)) {
        static unsigned counter = 0;
        unsigned v = static_cast<unsigned>(::getpid()) * 7919u + ++counter;
        for (auto& b : bytes)
            b = static_cast<unsigned char>(v >>= 3);
    }
    static const char kDigits[] = "0123456789abcdef";
    std::string s;
    for (unsigned char b : bytes) {
        s += kDigits[b >> 4];
        s += kDigits[b & 15];
    }
    return s;
}

bool sync_folder(const std::string& folder)
{
    int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return false;
    bool ok = ::fsync(fd) == 0;
    ::close(fd);
    return ok;
}

} // namespace

bool write_file_atomically(const std::wstring& path, const std::string& bytes)
{
    std::string target = native_path(path);
    if (target.empty())
        return false;
    // Writing through a link replaces what it names, not the link.
    struct stat st;
    if (::lstat(target.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
        if (char* real = ::realpath(target.c_str(), nullptr)) {
            target = real;
            std::free(real);
        }
    }
    std::string folder, name;
    split_path(target, folder, name);

    std::string temp;
    int fd = -1;
    for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
        temp = folder + "/" + temporary_prefix(name) + random_suffix();
        fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0 && errno != EEXIST)
            return false;
    }
    if (fd < 0)
        return false;

    bool ok = true;
    if (::stat(target.c_str(), &st) == 0 && S_ISREG(st.st_mode))
        ok = ::fchmod(fd, st.st_mode & 07777) == 0;
    ok = ok && write_all(fd, bytes.data(), bytes.size()) && ::fsync(fd) == 0;
    ok = ::close(fd) == 0 && ok;
    ok = ok && ::rename(temp.c_str(), target.c_str()) == 0;
    if (!ok) {
        int saved = errno;
        ::unlink(temp.c_str());
        errno = saved;
        return false;
    }
    sync_folder(folder);
    return true;
}

int remove_stale_temporaries(const std::wstring& path)
{
    std::string folder, name;
    split_path(native_path(path), folder, name);
    std::string prefix = temporary_prefix(name);
    DIR* dir = ::opendir(folder.c_str());
    if (!dir)
        return 0;
    int removed = 0;
    while (dirent* e = ::readdir(dir)) {
        if (std::string(e->d_name).compare(0, prefix.size(), prefix) == 0 &&
            ::unlinkat(::dirfd(dir), e->d_name, 0) == 0)
            ++removed;
    }
    ::closedir(dir);
    return removed;
}

bool read_whole_file(const std::wstring& path, std::string& out)
{
    out.clear();
    int fd = ::open(native_path(path).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat st;
    bool is_file = ::fstat(fd, &st) == 0 && !S_ISDIR(st.st_mode);
    if (!is_file) {
        ::close(fd);
        errno = EISDIR;
        return false;
    }
    if (st.st_size > 0)
        out.reserve(static_cast<size_t>(st.st_size));
    char buf[65536];
    bool ok = true;
    for (;;) {
        ssize_t n = ::read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            ok = false;
        if (n <= 0)
            break;
        out.append(buf, static_cast<size_t>(n));
    }
    int saved = errno;
    ::close(fd);
    errno = saved;
    return ok;
}

} // namespace os

#include "os/finder.h"

#include "liba/text.h"
#include "os/path.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace os {

namespace {

// Iterative wildcard match with one backtrack point: linear in practice and
// never recursive, whatever the pattern.
bool wildcard_match(const std::wstring& p, const std::wstring& s)
{
    size_t pi = 0, si = 0;
    size_t star = std::wstring::npos, star_s = 0;
    while (si < s.size()) {
        if (pi < p.size() && (p[pi] == L'?' || p[pi] == s[si])) {
            ++pi;
            ++si;
        } else if (pi < p.size() && p[pi] == L'*') {
            star = pi++;
            star_s = si;
        } else if (star != std::wstring::npos) {
            pi = star + 1;
            si = ++star_s;
        } else {
            return false;
        }
    }
    while (pi < p.size() && p[pi] == L'*')
        ++pi;
    return pi == p.size();
}

DateTime to_date(const statx_timestamp& t)
{
    return DateTime::from_timespec(timespec{static_cast<time_t>(t.tv_sec), static_cast<long>(t.tv_nsec)});
}

} // namespace

bool Finder::matches(const std::wstring& pattern, const std::wstring& name)
{
    if (pattern == L"*.*" || pattern == L"*")
        return true;
    return wildcard_match(liba::to_lower(pattern), liba::to_lower(name));
}

Finder::Finder(const std::wstring& folder, const std::wstring& pattern)
    : folder_(folder), pattern_(pattern)
{
    std::string p = native_path(folder);
    // glibc opens the folder close-on-exec.
    dir_ = ::opendir(p.empty() ? "." : p.c_str());
}

Finder::~Finder()
{
    if (dir_)
        ::closedir(static_cast<DIR*>(dir_));
}

std::wstring Finder::full_path() const { return join_path(folder_, name_); }

bool Finder::next()
{
    DIR* dir = static_cast<DIR*>(dir_);
    if (!dir)
        return false;
    while (dirent* e = ::readdir(dir)) {
        std::string raw = e->d_name;
        if (raw == "." || raw == "..")
            continue;
        std::wstring name = liba::from_utf8(raw);
        if (!matches(pattern_, name))
            continue;
        struct statx stx;
        unsigned mask = STATX_BASIC_STATS | STATX_BTIME;
        int fd = ::dirfd(dir);
        // An entry that went away between the listing and the look is skipped.
        if (::statx(fd, raw.c_str(), 0, mask, &stx) != 0 &&
            ::statx(fd, raw.c_str(), AT_SYMLINK_NOFOLLOW, mask, &stx) != 0)
            continue;
        name_ = std::move(name);
        is_folder_ = S_ISDIR(stx.stx_mode);
        size_ = static_cast<int64_t>(stx.stx_size);
        read_only_ = (stx.stx_mode & S_IWUSR) == 0;
        modified_ = to_date(stx.stx_mtime);
        created_ = (stx.stx_mask & STATX_BTIME) ? to_date(stx.stx_btime) : modified_;
        return true;
    }
    return false;
}

} // namespace os

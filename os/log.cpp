#include "os/log.h"

#include "liba/text.h"
#include "os/date_time.h"
#include "os/path.h"

#include <atomic>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <chrono>
#include <thread>

namespace os {

namespace {

constexpr const wchar_t* kSwitchKey = L"HKEY_CURRENT_USER\\Software\\Kelb";
constexpr const wchar_t* kSwitchName = L"Log";
constexpr const wchar_t* kLogFile = L"%app_data%/Quillaphonics.txt";
constexpr char kByteOrderMark[] = {'\xFF', '\xFE'};

std::atomic<Log*> g_log{nullptr};

// liba::fatal's flush: the log's writes go straight to the file, so what is
// left is making them durable.
void flush_for_fatal()
{
    Log* l = g_log.load();
    if (l)
        l->flush();
}

} // namespace

Log& log()
{
    static Log* const instance = [] {
        Log* l = new Log();
        g_log.store(l);
        return l;
    }();
    instance->check_switch();
    return *instance;
}

double log_time() { return process_stopwatch().elapsed(); }

void install_log_fatal_flush(liba::FatalHooks hooks)
{
    hooks.flush = &flush_for_fatal;
    liba::set_fatal_hooks(hooks);
}

bool set_log_switch(bool on) { return Registry::write_dword(kSwitchKey, kSwitchName, on ? 1 : 0); }

void Log::check_switch()
{
    liba::Lock lock(lock_);
    // The stamp is taken before the read: a change in between shows as a new
    // stamp at the next call, never as a missed one.
    StoreStamp now = Registry::stamp();
    if (checked_ && now == stamp_)
        return;
    bool first_look = !checked_;
    checked_ = true;
    stamp_ = now;
    uint32_t value = 0;
    // A switch found on at the first look was on before this process began:
    // its log belongs to whoever switched it on, and this process adds to it.
    // A switch turned on while the process runs starts the file afresh.
    switch_to(Registry::read_dword(kSwitchKey, kSwitchName, value) && value != 0, !first_look);
}

void Log::start_afresh()
{
    liba::Lock lock(lock_);
    if (fd_ < 0)
        return;
    close_file();
    open_file(true);
}

void Log::switch_to(bool on, bool truncate)
{
    if (on == (fd_ >= 0))
        return;
    if (on)
        open_file(truncate);
    else
        close_file();
}

void Log::open_file(bool truncate)
{
    ensure_app_data();
    std::string path = native_path(expand_path(kLogFile));
    int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | (truncate ? O_TRUNC : 0);
    int fd = ::open(path.c_str(), flags, 0644);
    if (fd < 0)
        return;
    struct stat st {};
    if (::fstat(fd, &st) == 0 && st.st_size == 0 &&
        ::write(fd, kByteOrderMark, sizeof kByteOrderMark) != sizeof kByteOrderMark) {
        ::close(fd);
        return;
    }
    fd_ = fd;
}

void Log::close_file()
{
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = -1;
}

bool Log::is_on()
{
    liba::Lock lock(lock_);
    return fd_ >= 0;
}

void Log::write_utf16(std::wstring_view text)
{
    liba::Lock lock(lock_);
    if (fd_ < 0 || text.empty())
        return;
    std::string bytes = liba::to_utf16le_bytes(text);
    // One write per piece: with O_APPEND another process's pieces fall
    // between ours, never inside them.
    if (::write(fd_, bytes.data(), bytes.size()) < 0) {
        // A log that can't be written is not worth stopping for.
    }
}

Log& Log::operator<<(std::wstring_view text)
{
    write_utf16(text);
    return *this;
}

Log& Log::operator<<(std::string_view text)
{
    write_utf16(liba::from_utf8(text));
    return *this;
}

Log& Log::operator<<(bool value)
{
    write_utf16(liba::bool_to_text(value));
    return *this;
}

Log& Log::operator<<(double value)
{
    write_utf16(liba::double_to_text(value));
    return *this;
}

Log& Log::write_integer(long long value, bool is_unsigned)
{
    write_utf16(is_unsigned ? std::to_wstring(static_cast<unsigned long long>(value))
                            : std::to_wstring(value));
    return *this;
}

void Log::flush()
{
    // Bounded wait: flush is also what liba::fatal calls, and a fatal error
    // must not hang on a holder that never lets go.
    for (int attempt = 0; attempt < 200; ++attempt) {
        if (lock_.try_enter()) {
            if (fd_ >= 0)
                ::fdatasync(fd_);
            lock_.leave();
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

} // namespace os

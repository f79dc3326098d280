#include "os/log.h"

#include "liba/text.h"
#include "os/date_time.h"
#include "os/path.h"

#include <atomic>
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
    checked_ = true;
    stamp_ = now;
    uint32_t value = 0;
    switch_to(Registry::read_dword(kSwitchKey, kSwitchName, value) && value != 0);
}

void Log::switch_to(bool on)
{
    if (on == (file_ != nullptr))
        return;
    if (!on) {
        file_.reset();
        return;
    }
    ensure_app_data();
    auto file = std::make_unique<File>(kLogFile, File::kWrite);
    if (!file->good())
        return;
    file->write(kByteOrderMark, sizeof kByteOrderMark);
    file_ = std::move(file);
}

bool Log::is_on()
{
    liba::Lock lock(lock_);
    return file_ != nullptr;
}

void Log::write_utf16(std::wstring_view text)
{
    liba::Lock lock(lock_);
    if (!file_ || text.empty())
        return;
    std::string bytes = liba::to_utf16le_bytes(text);
    file_->write(bytes.data(), bytes.size());
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
            if (file_)
                file_->flush();
            lock_.leave();
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

} // namespace os

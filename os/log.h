#pragma once

#include "liba/critical_section.h"
#include "liba/fatal.h"
#include "liba/nocopy.h"
#include "os/registry.h"

#include <string>
#include <string_view>
#include <type_traits>

// The diagnostic log: "%app_data%/Quillaphonics.txt", UTF-16LE with a
// byte-order mark, on while the DWORD "Log" under
// "HKEY_CURRENT_USER\Software\Kelb" is non-zero. Each os::log() call looks at
// the switch (re-reading the registry store only when the store file changed),
// so logging can be turned on and off while the program runs; switching on
// truncates the file. There are no levels.
// Threads: any thread may log; the switch check and every write are guarded.
// The object is created once and never destroyed.
namespace os {

class Log : liba::Nocopy {
public:
    Log& operator<<(std::wstring_view text);
    Log& operator<<(const std::wstring& text) { return *this << std::wstring_view(text); }
    Log& operator<<(const wchar_t* text) { return *this << std::wstring_view(text ? text : L""); }
    // Narrow text is UTF-8 and is widened.
    Log& operator<<(std::string_view text);
    Log& operator<<(const std::string& text) { return *this << std::string_view(text); }
    Log& operator<<(const char* text) { return *this << std::string_view(text ? text : ""); }
    Log& operator<<(wchar_t c) { return *this << std::wstring_view(&c, 1); }
    Log& operator<<(char c) { return *this << std::string_view(&c, 1); }
    Log& operator<<(bool value);
    Log& operator<<(double value);
    template <typename T>
        requires(std::is_integral_v<T> && !std::is_same_v<T, bool> && !std::is_same_v<T, char> &&
                 !std::is_same_v<T, wchar_t>)
    Log& operator<<(T value)
    {
        if constexpr (std::is_signed_v<T>)
            return write_integer(static_cast<long long>(value), false);
        else
            return write_integer(static_cast<long long>(value), true);
    }

    // Makes what was logged durable.
    void flush();
    bool is_on();

    // Looks at the switch; os::log() does this on every call.
    void check_switch();

    // Empties the log file, when the log is on: the first instance of the
    // program starts a fresh log, while a start that only hands its command
    // line over adds to the running instance's.
    void start_afresh();

private:
    friend Log& log();
    Log() = default;
    ~Log() = default;

    Log& write_integer(long long value, bool is_unsigned);
    void write_utf16(std::wstring_view text);
    void switch_to(bool on, bool truncate);
    void open_file(bool truncate);
    void close_file();

    liba::CriticalSection lock_; // guards everything below
    // The log file while on, opened for appending: several processes of the
    // program (a running one and a start that hands over) share it, and
    // appends keep their lines whole.
    int fd_ = -1;
    bool checked_ = false;       // whether the switch has been looked at yet
    StoreStamp stamp_;           // the registry store as last looked at
};

// The process-wide log, after a look at the switch.
Log& log();

// Seconds since program start, for lines that want a time stamp.
double log_time();

// Makes liba::fatal flush the log before it ends the process. Other hooks
// given in `hooks` are installed with it.
void install_log_fatal_flush(liba::FatalHooks hooks = {});

// Writes the switch: the DWORD "Log" under "HKEY_CURRENT_USER\Software\Kelb".
bool set_log_switch(bool on);

} // namespace os

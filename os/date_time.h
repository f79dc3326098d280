#pragma once

#include <compare>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

// Calendar values in local time, stopwatches and the millisecond tick.
// Threads: values are plain data; the process stopwatch and tick_count may be
// read from any thread.
namespace os {

// A local date and time to the millisecond. A default-constructed value is
// null (month 0); ordering is chronological, null before every real date.
struct DateTime {
    uint16_t year = 0;
    uint16_t month = 0; // 1..12
    uint16_t day = 0;   // 1..31
    uint16_t hour = 0;
    uint16_t minute = 0;
    uint16_t second = 0;
    uint16_t milliseconds = 0;

    bool is_null() const { return month == 0; }

    static DateTime now();
    static DateTime from_time(time_t t);
    static DateTime from_timespec(const timespec& ts);
    // Seconds since the epoch for this local time; -1 for a null value.
    time_t to_time_t() const;

    // "2024 03 07 09 05 00": year, month, day, hour, minute, second, single
    // blanks, all but the year in two digits. Milliseconds are not kept.
    std::wstring to_text() const;
    // The reverse; nullopt unless the text is exactly that form of a valid date.
    static std::optional<DateTime> from_text(const std::wstring& text);

    // Field by field in the order above, which is the order of time.
    auto operator<=>(const DateTime&) const = default;
};

// Measures seconds since its start on a monotonic clock.
class Stopwatch {
public:
    Stopwatch() { restart(); }
    void restart();
    double elapsed() const;

private:
    double start_ms_ = 0;
};

// Started when the program is loaded; the time stamps of the log.
const Stopwatch& process_stopwatch();

// Milliseconds of a monotonic clock, wrapping at 2^32.
uint32_t tick_count();

} // namespace os

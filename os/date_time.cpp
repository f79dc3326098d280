#include "os/date_time.h"

#include <cstdio>
#include <cwchar>
#include <ctime>

namespace os {

namespace {

double monotonic_ms()
{
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) * 1000.0 + static_cast<double>(ts.tv_nsec) / 1e6;
}

bool is_leap(int y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

int days_in_month(int y, int m)
{
    static constexpr int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return m == 2 && is_leap(y) ? 29 : kDays[m - 1];
}

// Reads exactly `digits` decimal digits at `pos` (any count when 0, at least one).
bool read_number(const std::wstring& text, size_t& pos, size_t digits, int& value)
{
    size_t start = pos;
    value = 0;
    while (pos < text.size() && text[pos] >= L'0' && text[pos] <= L'9' &&
           (digits == 0 || pos - start < digits) && pos - start < 5) {
        value = value * 10 + (text[pos] - L'0');
        ++pos;
    }
    return digits == 0 ? pos > start : pos - start == digits;
}

} // namespace

DateTime DateTime::from_timespec(const timespec& ts)
{
    tm local;
    time_t t = ts.tv_sec;
    if (!localtime_r(&t, &local) || local.tm_year + 1900 < 1 || local.tm_year + 1900 > 65535)
        return {};
    DateTime d;
    d.year = static_cast<uint16_t>(local.tm_year + 1900);
    d.month = static_cast<uint16_t>(local.tm_mon + 1);
    d.day = static_cast<uint16_t>(local.tm_mday);
    d.hour = static_cast<uint16_t>(local.tm_hour);
    d.minute = static_cast<uint16_t>(local.tm_min);
    d.second = static_cast<uint16_t>(local.tm_sec > 59 ? 59 : local.tm_sec);
    d.milliseconds = static_cast<uint16_t>(ts.tv_nsec / 1000000);
    return d;
}

DateTime DateTime::from_time(time_t t) { return from_timespec(timespec{t, 0}); }

DateTime DateTime::now()
{
    timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    return from_timespec(ts);
}

time_t DateTime::to_time_t() const
{
    if (is_null())
        return -1;
    tm local{};
    local.tm_year = year - 1900;
    local.tm_mon = month - 1;
    local.tm_mday = day;
    local.tm_hour = hour;
    local.tm_min = minute;
    local.tm_sec = second;
    local.tm_isdst = -1;
    return mktime(&local);
}

std::wstring DateTime::to_text() const
{
    wchar_t buf[64];
    std::swprintf(buf, 64, L"%d %02d %02d %02d %02d %02d", year, month, day, hour, minute,
                  second);
    return buf;
}

std::optional<DateTime> DateTime::from_text(const std::wstring& text)
{
    int v[6];
    size_t pos = 0;
    for (int k = 0; k < 6; ++k) {
        if (k > 0 && (pos >= text.size() || text[pos++] != L' '))
            return std::nullopt;
        if (!read_number(text, pos, k == 0 ? 0 : 2, v[k]))
            return std::nullopt;
    }
    if (pos != text.size())
        return std::nullopt;
    if (v[0] < 1 || v[0] > 65535 || v[1] < 1 || v[1] > 12 || v[2] < 1 ||
        v[2] > days_in_month(v[0], v[1]) || v[3] > 23 || v[4] > 59 || v[5] > 59)
        return std::nullopt;
    DateTime d;
    d.year = static_cast<uint16_t>(v[0]);
    d.month = static_cast<uint16_t>(v[1]);
    d.day = static_cast<uint16_t>(v[2]);
    d.hour = static_cast<uint16_t>(v[3]);
    d.minute = static_cast<uint16_t>(v[4]);
    d.second = static_cast<uint16_t>(v[5]);
    return d;
}

void Stopwatch::restart() { start_ms_ = monotonic_ms(); }

double Stopwatch::elapsed() const { return (monotonic_ms() - start_ms_) * 0.001; }

const Stopwatch& process_stopwatch()
{
    static const Stopwatch watch;
    return watch;
}

namespace {
// Starts the process stopwatch while the program loads, not at its first use.
[[maybe_unused]] const Stopwatch& g_started_at_load = process_stopwatch();
} // namespace

uint32_t tick_count()
{
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    uint64_t ms = static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u;
    return static_cast<uint32_t>(ms);
}

} // namespace os

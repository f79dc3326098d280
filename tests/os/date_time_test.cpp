#include "os/date_time.h"

#include "liba/text.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

// Runs the test in a time zone of its choice, restoring the old one after.
struct ScopedTimeZone {
    explicit ScopedTimeZone(const char* tz) : env(std::make_unique<test::ScopedEnv>("TZ", tz)) { ::tzset(); }
    ~ScopedTimeZone()
    {
        env.reset();
        ::tzset();
    }
    std::unique_ptr<test::ScopedEnv> env;
};

std::string trim(std::string s)
{
    while (!s.empty() && (s.back() == '\n' || s.back() == '\r'))
        s.pop_back();
    return s;
}

} // namespace

TEST(DateTime, LocalTimeAndTextAgreeWithDate)
{
    // Time zones with a half-hour offset and with summer time; instants on
    // either side of a change and of a year's end.
    const time_t instants[] = {0, 951782400 /* 2000-02-29 */, 1616288400, 1616893200,
                               1703980799 /* 2023-12-30/31 */, 1709251199, 2147483647, 4102444800};
    for (const char* tz : {"UTC", "Europe/Berlin", "America/St_Johns", "Australia/Lord_Howe"}) {
        ScopedTimeZone zone(tz);
        for (time_t t : instants) {
            std::string expected;
            ASSERT_EQ(test::run("TZ=" + std::string(tz) + " date -d @" + std::to_string(t) +
                                    " '+%Y %m %d %H %M %S'",
                                &expected),
                      0);
            os::DateTime d = os::DateTime::from_time(t);
            EXPECT_EQ(liba::to_utf8(d.to_text()), trim(expected)) << tz << " " << t;
            EXPECT_EQ(d.to_time_t(), t) << tz << " " << t;
            auto back = os::DateTime::from_text(d.to_text());
            ASSERT_TRUE(back.has_value());
            EXPECT_EQ(*back, d);
        }
        timespec ts{1616288400, 987654321};
        EXPECT_EQ(os::DateTime::from_timespec(ts).milliseconds, 987);
    }
}

TEST(DateTime, TextFormIsStrict)
{
    auto d = os::DateTime::from_text(L"2024 03 07 09 05 00");
    ASSERT_TRUE(d.has_value());
    EXPECT_EQ(d->year, 2024);
    EXPECT_EQ(d->month, 3);
    EXPECT_EQ(d->day, 7);
    EXPECT_EQ(d->hour, 9);
    EXPECT_EQ(d->minute, 5);
    EXPECT_EQ(d->second, 0);
    EXPECT_EQ(d->to_text(), L"2024 03 07 09 05 00");

    auto early = os::DateTime::from_text(L"999 01 02 03 04 05");
    ASSERT_TRUE(early.has_value());
    EXPECT_EQ(early->to_text(), L"999 01 02 03 04 05");
    EXPECT_TRUE(os::DateTime::from_text(L"2024 02 29 23 59 59").has_value());

    for (const wchar_t* bad : {L"", L"2024", L"2024 3 07 09 05 00", L"2024 03 07 09 05",
                               L"2024  03 07 09 05 00", L"2024 03 07 09 05 00 ", L"2024 13 01 00 00 00",
                               L"2023 02 29 00 00 00", L"2024 04 31 00 00 00", L"2024 03 07 24 00 00",
                               L"2024 03 07 23 60 00", L"2024 03 07 23 00 60", L"2024 00 07 00 00 00",
                               L"2024-03-07 09:05:00", L"-2024 03 07 09 05 00", L"123456 01 01 00 00 00",
                               L"2024 03 07 09 05 0x"})
        EXPECT_FALSE(os::DateTime::from_text(bad).has_value()) << liba::to_utf8(bad);
}

TEST(DateTime, OrderIsTheOrderOfTime)
{
    ScopedTimeZone zone("UTC");
    std::vector<os::DateTime> values;
    for (time_t t : {1700000000, 1, 1700000001, 1699999940, 1700003600, 1600000000, 1700086400})
        values.push_back(os::DateTime::from_time(t));
    os::DateTime later_ms = os::DateTime::from_timespec({1700000000, 500000000});
    values.push_back(later_ms);
    values.push_back(os::DateTime());
    std::sort(values.begin(), values.end());
    EXPECT_TRUE(values.front().is_null());
    for (size_t i = 2; i < values.size(); ++i)
        EXPECT_LE(values[i - 1].to_time_t(), values[i].to_time_t());
    EXPECT_LT(os::DateTime::from_time(1700000000), later_ms);
    EXPECT_GT(later_ms, os::DateTime::from_time(1700000000));
    EXPECT_EQ(os::DateTime::from_time(1700000000), os::DateTime::from_time(1700000000));
    EXPECT_NE(os::DateTime::from_time(1700000000), later_ms);
    EXPECT_LT(os::DateTime(), os::DateTime::from_time(0));
    EXPECT_EQ(os::DateTime().to_time_t(), -1);

    os::DateTime now = os::DateTime::now();
    EXPECT_FALSE(now.is_null());
    EXPECT_LE(std::abs(static_cast<long>(now.to_time_t() - time(nullptr))), 2);
}

TEST(Stopwatch, CountsSecondsOnAMonotonicClock)
{
    os::Stopwatch watch;
    double since_load = os::process_stopwatch().elapsed();
    uint32_t tick = os::tick_count();
    EXPECT_GE(since_load, watch.elapsed()); // started at load, before this test
    std::this_thread::sleep_for(std::chrono::milliseconds(120));
    double e = watch.elapsed();
    EXPECT_GE(e, 0.12);
    EXPECT_LT(e, 5.0);
    uint32_t ticks = os::tick_count() - tick;
    EXPECT_GE(ticks, 119u);
    EXPECT_LT(ticks, 5000u);
    EXPECT_GE(os::process_stopwatch().elapsed(), since_load + 0.12);
    watch.restart();
    EXPECT_LT(watch.elapsed(), e);
}

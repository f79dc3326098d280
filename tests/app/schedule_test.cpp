// The schedule's rules: where a task goes, which ones it may not overlap,
// and which task is next or running at a moment.
#include "app/schedule.h"

#include <gtest/gtest.h>

namespace {

os::DateTime at(int hour, int minute)
{
    return {2030, 5, 17, static_cast<uint16_t>(hour), static_cast<uint16_t>(minute), 0, 0};
}

// 10:00-11:00, 12:00-13:00, 14:00-15:00.
Schedule three_tasks()
{
    Schedule s;
    for (int h : {14, 10, 12})
        EXPECT_GE(s.insert({at(h, 0), at(h + 1, 0)}), 0);
    return s;
}

} // namespace

TEST(Schedule, InsertsInOrderAndRefusesOnlyTheOverlapsItChecks)
{
    struct Case {
        const char* what;
        ScheduleTask task;
        int index;
    };
    const Case cases[] = {
        {"before all", {at(8, 0), at(9, 0)}, 0},
        {"behind all", {at(16, 0), at(17, 0)}, 3},
        {"touching both neighbours", {at(11, 0), at(12, 0)}, 1},
        {"running into the next task", {at(11, 0), at(12, 30)}, 1},
        {"from the start running into the first", {at(8, 0), at(10, 30)}, 0},
        {"running into the task after the next", {at(11, 0), at(14, 30)}, -1},
        {"from the start into the second", {at(8, 0), at(12, 30)}, -1},
        {"beginning inside one", {at(10, 30), at(11, 30)}, -1},
        {"beginning with one", {at(10, 0), at(10, 30)}, -1},
        {"beginning where the last ends", {at(15, 0), at(15, 30)}, 3},
    };
    for (const Case& c : cases) {
        Schedule s = three_tasks();
        EXPECT_EQ(s.insert(c.task), c.index) << c.what;
        EXPECT_EQ(s.count(), c.index < 0 ? 3 : 4) << c.what;
        if (c.index >= 0) {
            EXPECT_EQ(s.task(c.index), c.task) << c.what;
        }
        for (int i = 1; i < s.count(); ++i)
            EXPECT_LE(s.task(i - 1).begin, s.task(i).begin) << c.what;
    }
    Schedule empty;
    EXPECT_EQ(empty.insert({at(8, 0), at(9, 0)}), 0);
}

TEST(Schedule, FindsTheNextAndTheRunningTask)
{
    struct Case {
        os::DateTime when;
        int next;
        int running;
    };
    const os::DateTime just_before_eleven{2030, 5, 17, 10, 59, 59, 999};
    const Case cases[] = {
        {at(9, 0), 0, -1},   {at(10, 0), 1, 0},  {just_before_eleven, 1, 0}, {at(11, 0), 1, -1},
        {at(12, 30), 2, 1},  {at(14, 0), -1, 2}, {at(15, 0), -1, -1},        {os::DateTime(), 0, -1},
    };
    const Schedule s = three_tasks();
    for (const Case& c : cases) {
        EXPECT_EQ(s.next_after(c.when), c.next) << c.when.to_text();
        EXPECT_EQ(s.running_at(c.when), c.running) << c.when.to_text();
    }
    Schedule less = s;
    less.remove(1);
    EXPECT_EQ(less.count(), 2);
    EXPECT_EQ(less.running_at(at(12, 30)), -1);
    EXPECT_EQ(less.task(1).begin, at(14, 0));
}

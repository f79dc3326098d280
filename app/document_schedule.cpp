// The schedule side of the Document: the due recording, its end, and the
// wake-up that starts the program for the next one.
#include "app/document.h"

#include "app/command_lines.h"
#include "os/log.h"

std::wstring Document::run_due_schedule()
{
    // A recording under way is never cut short by a schedule.
    const int task = is_recording() ? -1 : settings_.schedule.running_at(os::DateTime::now());
    if (task < 0) {
        os::log() << "schedule: nothing is due\n";
        arm_wakeup();
        return L"";
    }
    const os::DateTime end = settings_.schedule.task(task).end;
    const bool started = record(settings_.folder);
    notify_views();
    stop_time_ = end;
    settings_.schedule.remove(task);
    apply_settings(settings_);
    if (!started) {
        os::log() << "schedule: the recording due until " << end.to_text() << " did not start\n";
        return L"";
    }
    os::log() << "schedule: recording until " << end.to_text() << "\n";
    return record_path_;
}

void Document::arm_wakeup()
{
    const int next = settings_.schedule.next_after(os::DateTime::now());
    if (next >= 0)
        wake_up_.arm(L"%app_full_name%", settings_.schedule.task(next).begin, kRunAtTimeCommand);
    else
        // Not the program's own name: a wake-up registered before stays.
        wake_up_.arm(L"app_path", os::DateTime(), kRunAtTimeCommand);
}

bool Document::stop_time_passed() const
{
    return !stop_time_.is_null() && os::DateTime::now() > stop_time_;
}

void Document::on_wakeup_due()
{
    os::log() << "wake-up: this program's own timer: " << kRunAtTimeCommand << "\n";
    const std::wstring path = run_due_schedule();
    if (!path.empty())
        pending_changes_.select_path = path;
    notify_views(ChangeFlags::all());
}

#pragma once

#include "liba/timer.h"
#include "os/date_time.h"

#include <functional>
#include <string>
#include <vector>

namespace os {

// What a program run to its end said: its exit code (-1 when it could not be
// started or died of a signal) and its standard output.
struct CommandOutput {
    int status = -1;
    std::string output;
};
// Runs argv[0], found on PATH, with the rest as its arguments and waits for
// its end; its standard error is dropped. A seam: tests hand in their own.
using CommandRunner = std::function<CommandOutput(const std::vector<std::string>& argv)>;
CommandOutput run_command(const std::vector<std::string>& argv);

// Starts a program with one argument at a moment of local time, whether or
// not this program still runs then: a transient systemd user timer, which
// also wakes a sleeping machine where the user manager may set wake alarms.
// Where no user manager answers, a one-shot timer of this process stands in
// while it runs and calls `on_local_due` at that moment.
// Threads: main thread only; the process's CActiveScheduler must exist
// whenever the local timer is armed. Times are local, to the second.
class WakeUp : liba::Timer::Listener {
public:
    enum Armed {
        kNotArmed,  // a null time, or nothing took the moment
        kLocalOnly, // no user manager: only this running process will act
        kNoWake,    // a timer that won't wake a sleeping machine
        kWakes,     // a timer that wakes the machine
    };

    explicit WakeUp(std::function<void()> on_local_due, CommandRunner runner = run_command);
    ~WakeUp() override;

    // Registers `executable` (expanded) to start with `argument` at `when`.
    // What that executable had registered before is dropped first: its
    // timers are stopped, never the service a woken program runs in. A null
    // `when` only drops it.
    Armed arm(const std::wstring& executable, const DateTime& when, const std::wstring& argument);

    // Arms only this process's own timer for `executable` at `when`: a
    // running program's stand-in for a registration made before it started.
    // Nothing without the process's scheduler.
    void arm_local(const std::wstring& executable, const DateTime& when);
    bool local_timer_armed() const { return local_.is_active(); }
    // The start of the unit names of an executable's timers.
    static std::string unit_prefix(const std::string& executable);
    // "--on-calendar" text of a moment: "2024-03-07 09:05:00".
    static std::string calendar_text(const DateTime& when);

private:
    // Makes a fresh timer unit; true when it is waiting for its moment.
    bool arm_timer(const std::string& executable, const DateTime& when, const std::string& argument,
                   bool wake_system, bool* manager_answers);
    std::string fresh_unit_name(const std::string& executable);
    std::vector<std::string> systemctl(std::initializer_list<std::string> args) const;
    void start_local(const std::string& executable, const DateTime& when);
    void start_local_step();
    void on_timer(liba::Timer& timer) override;

    std::function<void()> on_local_due_;
    CommandRunner runner_;
    liba::Timer local_;
    std::string local_executable_;
    DateTime local_when_;
    int arms_ = 0;
};

} // namespace os

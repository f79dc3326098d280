// The wake-up of a program at a moment: the systemd commands it runs,
// through a stand-in for the user manager, and the timer of the running
// process that takes over where no user manager answers.
#include "os/wake_up.h"

#include "liba/text.h"
#include "os/event_loop.h"
#include "os/log.h"
#include "os/path.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace {

const std::wstring kExe = L"/opt/quill aphonics/quillaphonics";

std::string joined(const std::vector<std::string>& argv)
{
    std::string out;
    for (const std::string& a : argv)
        out += (out.empty() ? "" : " ") + a;
    return out;
}

bool has(const std::vector<std::string>& argv, const std::string& arg)
{
    return std::find(argv.begin(), argv.end(), arg) != argv.end();
}

// A user manager: remembers every command and answers "show" with the state
// a timer takes, by whether it would wake the machine.
struct FakeManager {
    bool answers = true;
    std::string waking_state = "ActiveState=active\nSubState=waiting\n";
    std::string plain_state = "ActiveState=active\nSubState=waiting\n";
    std::vector<std::vector<std::string>> commands;
    bool last_run_wakes = false;

    os::CommandOutput operator()(const std::vector<std::string>& argv)
    {
        commands.push_back(argv);
        if (!answers)
            return {1, ""};
        if (argv[0] == "systemd-run")
            last_run_wakes = has(argv, "--timer-property=WakeSystem=true");
        if (argv.size() > 2 && argv[2] == "show")
            return {0, last_run_wakes ? waking_state : plain_state};
        return {0, ""};
    }
    std::vector<std::vector<std::string>> runs() const
    {
        std::vector<std::vector<std::string>> out;
        for (const auto& c : commands)
            if (c[0] == "systemd-run")
                out.push_back(c);
        return out;
    }
};

// ASCII text as the log writes it, UTF-16LE.
std::string utf16le(const std::string& ascii)
{
    std::string out;
    for (char c : ascii) {
        out += c;
        out += '\0';
    }
    return out;
}

std::string unit_of(const std::vector<std::string>& run)
{
    for (const std::string& a : run)
        if (a.rfind("--unit=", 0) == 0)
            return a.substr(7);
    return "";
}

} // namespace

TEST(WakeUp, ArmsAFreshTimerEachTimeAndStopsOnlyTheTimersOfTheSameProgram)
{
    test::PrivateHome home;
    setenv("SDL_AUDIODRIVER", "disk", 1);
    setenv("UNRELATED_VARIABLE", "x", 1);
    FakeManager manager;
    os::WakeUp wake([] {}, std::ref(manager));
    const os::DateTime when{2031, 2, 3, 4, 5, 6, 0};
    const std::string prefix = os::WakeUp::unit_prefix(liba::to_utf8(kExe));

    ASSERT_EQ(wake.arm(kExe, when, L"AppRunAtTime"), os::WakeUp::kWakes);
    ASSERT_EQ(wake.arm(kExe, when, L"AppRunAtTime"), os::WakeUp::kWakes);
    const auto runs = manager.runs();
    ASSERT_EQ(runs.size(), 2u);
    const std::vector<std::string>& run = runs[0];
    EXPECT_EQ(std::vector<std::string>(run.begin(), run.begin() + 2),
              (std::vector<std::string>{"systemd-run", "--user"}));
    for (const char* arg : {"--on-calendar=2031-02-03 04:05:06", "--timer-property=AccuracySec=1s",
                            "--timer-property=WakeSystem=true"})
        EXPECT_TRUE(has(run, arg)) << arg << " in " << joined(run);
    // The program's files and devices go with it; nothing else does.
    EXPECT_TRUE(has(run, "XDG_CONFIG_HOME=" + home.config().string())) << joined(run);
    EXPECT_TRUE(has(run, "SDL_AUDIODRIVER=disk")) << joined(run);
    EXPECT_FALSE(has(run, "UNRELATED_VARIABLE=x")) << joined(run);
    EXPECT_EQ(std::vector<std::string>(run.end() - 2, run.end()),
              (std::vector<std::string>{liba::to_utf8(kExe), "AppRunAtTime"}));
    EXPECT_EQ(unit_of(run).rfind(prefix + "-", 0), 0u) << unit_of(run);
    EXPECT_NE(unit_of(run), unit_of(runs[1]));
    // Each arm first stops the program's timers, never a service.
    EXPECT_EQ(joined(manager.commands[0]), "systemctl --user stop " + prefix + "-*.timer");
    for (const auto& c : manager.commands)
        EXPECT_EQ(joined(c).find(".service"), std::string::npos) << joined(c);

    // A null moment only stops the timers of the name it is given.
    manager.commands.clear();
    EXPECT_EQ(wake.arm(L"app_path", os::DateTime(), L"AppRunAtTime"), os::WakeUp::kNotArmed);
    ASSERT_EQ(manager.commands.size(), 1u);
    EXPECT_EQ(joined(manager.commands[0]),
              "systemctl --user stop " + os::WakeUp::unit_prefix("app_path") + "-*.timer");
    unsetenv("SDL_AUDIODRIVER");
    unsetenv("UNRELATED_VARIABLE");
}

TEST(WakeUp, ATimerThatMayNotWakeTheMachineIsArmedAgainWithoutWaking)
{
    test::PrivateHome home;
    ASSERT_TRUE(os::set_log_switch(true));
    FakeManager manager;
    manager.waking_state = "ActiveState=failed\nSubState=failed\n";
    os::WakeUp wake([] {}, std::ref(manager));

    EXPECT_EQ(wake.arm(kExe, {2031, 2, 3, 4, 5, 6, 0}, L"AppRunAtTime"), os::WakeUp::kNoWake);
    ASSERT_EQ(manager.runs().size(), 2u);
    EXPECT_TRUE(has(manager.runs()[0], "--timer-property=WakeSystem=true"));
    EXPECT_FALSE(has(manager.runs()[1], "--timer-property=WakeSystem=true"));
    EXPECT_TRUE(has(manager.runs()[1], "--timer-property=AccuracySec=1s"));
    const std::string failed = unit_of(manager.runs()[0]) + ".timer";
    EXPECT_TRUE(has(manager.commands[3], "stop") && has(manager.commands[3], failed));
    EXPECT_TRUE(has(manager.commands[4], "reset-failed") && has(manager.commands[4], failed));
    EXPECT_FALSE(wake.local_timer_armed());
    os::log().flush();
    EXPECT_NE(test::read_file(home.app_data() / "Quillaphonics.txt").find(
                  utf16le("the machine will not be woken")),
              std::string::npos);
    os::set_log_switch(false);
}

TEST(WakeUp, WithoutAUserManagerTheRunningProcessTakesTheMomentItself)
{
    test::PrivateHome home;
    CActiveScheduler scheduler;
    os::EventLoop loop{scheduler};
    int due = 0;
    // The real tools, with no user manager to reach in the private home.
    os::WakeUp wake([&] { ++due; });
    timespec start;
    clock_gettime(CLOCK_REALTIME, &start);
    const os::DateTime when = os::DateTime::from_time(start.tv_sec + 2);

    ASSERT_EQ(wake.arm(kExe, when, L"AppRunAtTime"), os::WakeUp::kLocalOnly);
    // Clearing another name leaves it armed.
    EXPECT_EQ(wake.arm(L"app_path", os::DateTime(), L"AppRunAtTime"), os::WakeUp::kNotArmed);
    EXPECT_TRUE(wake.local_timer_armed());
    loop.run([&] { return due > 0; });
    EXPECT_GE(os::DateTime::now(), when);
    EXPECT_EQ(due, 1);

    // A timer the manager takes replaces the process's own; a null moment
    // for the same program clears it.
    FakeManager manager;
    os::WakeUp managed([&] { ++due; }, std::ref(manager));
    manager.answers = false;
    ASSERT_EQ(managed.arm(kExe, os::DateTime::from_time(start.tv_sec + 3600), L"AppRunAtTime"),
              os::WakeUp::kLocalOnly);
    manager.answers = true;
    EXPECT_EQ(managed.arm(kExe, os::DateTime::from_time(start.tv_sec + 7200), L"AppRunAtTime"),
              os::WakeUp::kWakes);
    EXPECT_FALSE(managed.local_timer_armed());
    manager.answers = false;
    managed.arm(kExe, os::DateTime::from_time(start.tv_sec + 3600), L"AppRunAtTime");
    managed.arm(kExe, os::DateTime(), L"AppRunAtTime");
    EXPECT_FALSE(managed.local_timer_armed());
}

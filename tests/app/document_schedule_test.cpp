// Scheduled recording in the real program: a span a few seconds ahead in the
// settings records by itself (through the program's own timer, as no user
// manager answers in the private home) and stops at its end, whatever a
// wake-up handed over meanwhile; a start with "AppRunAtTime" when nothing is
// due records nothing.
#include "app/settings.h"

#include "liba/text.h"
#include "os/log.h"
#include "os/path.h"
#include "tests/app/program_runner.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <signal.h>

namespace fs = std::filesystem;

namespace {

std::wstring wide(const fs::path& p) { return liba::from_utf8(p.string()); }

os::DateTime seconds_from_now(int seconds) { return os::DateTime::from_time(std::time(nullptr) + seconds); }

// The program, hidden, with the disk driver of the test's environment (the
// shared starter puts in the dummy driver); its process id.
int start_hidden(const std::string& argument)
{
    std::string pid;
    EXPECT_EQ(test::run(test::quote((test::program_dir() / "quillaphonics").string()) + " " + argument +
                            " </dev/null >/dev/null 2>&1 & echo $!",
                        &pid),
              0);
    return std::atoi(pid.c_str());
}

void end_program(int pid)
{
    ASSERT_GT(pid, 0);
    ::kill(pid, SIGTERM);
    EXPECT_TRUE(test::wait_for([&] { return ::kill(pid, 0) != 0; }, 10000));
}

class ScheduleRun : public testing::Test {
protected:
    void SetUp() override
    {
        os::init_path_macros();
        ASSERT_TRUE(os::ensure_app_data());
        os::set_log_switch(true);
        // The speech clip, as raw input in the format the settings record,
        // read by SDL's disk driver in real time.
        ASSERT_EQ(test::run("sox " + test::quote(test::one_media("speech_src.wav").string()) +
                            " -r 22050 -b 16 -c 1 -e signed-integer -t raw " + test::quote(input.string())),
                  0);
        setenv("SDL_AUDIODRIVER", "disk", 1);
        setenv("SDL_DISKAUDIOFILEIN", input.c_str(), 1);
        setenv("SDL_DISKAUDIOFILE", "/dev/null", 1);
        unsetenv("SDL_DISKAUDIODELAY");
        fs::create_directories(folder);
        settings.codec = L"PCM";
        settings.folder = wide(folder);
    }
    void TearDown() override
    {
        os::set_log_switch(false);
        os::log();
        unsetenv("SDL_AUDIODRIVER");
        unsetenv("SDL_DISKAUDIOFILEIN");
        unsetenv("SDL_DISKAUDIOFILE");
    }
    std::string log() const { return liba::to_utf8(test::read_log(home.app_data())); }
    fs::path settings_file() const { return home.app_data() / "Quillaphonics.xml"; }
    Schedule saved_schedule() const
    {
        Settings back;
        EXPECT_TRUE(back.load(wide(settings_file())));
        return back.schedule;
    }

    test::PrivateHome home;
    fs::path input = home.root() / "in.raw";
    fs::path folder = home.root() / "recordings";
    Settings settings;
};

} // namespace

TEST_F(ScheduleRun, ADueSpanRecordsByItselfAndStopsAtItsEnd)
{
    // Time enough for the program to start before the span begins.
    const ScheduleTask due{seconds_from_now(5), seconds_from_now(10)};
    const ScheduleTask later{seconds_from_now(3600), seconds_from_now(3700)};
    settings.schedule = {due, later};
    ASSERT_TRUE(settings.save(wide(settings_file())));

    const int program = start_hidden("-hide");
    ASSERT_TRUE(test::wait_for([&] { return log().find("schedule: recording until") != std::string::npos; }, 20000))
        << log();
    // A wake-up handed over meanwhile never cuts the recording short.
    EXPECT_EQ(test::run(test::quote((test::program_dir() / "quillaphonics").string()) + " AppRunAtTime"), 0);
    EXPECT_NE(log().find("schedule: nothing is due"), std::string::npos) << log();
    ASSERT_TRUE(test::wait_for([&] { return log().find("record: stopped") != std::string::npos; }, 20000))
        << log();
    EXPECT_GE(os::DateTime::now(), due.end);
    const fs::path file = folder / "1.wav";
    std::string format;
    ASSERT_EQ(test::run("for o in t r c b; do soxi -$o " + test::quote(file.string()) + "; done | tr '\\n' ' '",
                        &format), 0);
    EXPECT_EQ(format, "wav 22050 1 16 ");
    std::string seconds;
    ASSERT_EQ(test::run("soxi -D " + test::quote(file.string()), &seconds), 0);
    // The span less the beep, the start of the device and the buffer left
    // at stop; never beyond the span's end.
    EXPECT_GT(std::stod(seconds), 3.0);
    EXPECT_LT(std::stod(seconds), 5.5);
    // What was captured is the input from its start.
    std::string samples;
    ASSERT_EQ(test::run("sox " + test::quote(file.string()) + " -t raw -", &samples), 0);
    const std::string captured = test::read_file(input);
    size_t same = 0;
    while (same < samples.size() && same < captured.size() && samples[same] == captured[same])
        ++same;
    EXPECT_EQ(same, samples.size()) << "of " << captured.size();

    // The task that ran has left the list; the next one is armed, here by
    // the program itself.
    EXPECT_EQ(saved_schedule(), Schedule({later}));
    const std::string lines = log();
    EXPECT_NE(lines.find("wake-up: this program's own timer: AppRunAtTime"), std::string::npos) << lines;
    EXPECT_NE(lines.find("no user service manager answers; only this running program starts"), std::string::npos)
        << lines;
    end_program(program);
}

TEST_F(ScheduleRun, AWakeUpWithNothingDueRecordsNothingAndKeepsTheList)
{
    // Missed while the machine was off, and one to come.
    const ScheduleTask missed{seconds_from_now(-600), seconds_from_now(-300)};
    const ScheduleTask later{seconds_from_now(3600), seconds_from_now(3700)};
    settings.schedule = {missed, later};
    ASSERT_TRUE(settings.save(wide(settings_file())));

    const int program = start_hidden("AppRunAtTime");
    ASSERT_TRUE(test::wait_for([&] { return log().find("schedule: nothing is due") != std::string::npos; }, 10000))
        << log();
    end_program(program);
    EXPECT_TRUE(fs::is_empty(folder));
    EXPECT_EQ(saved_schedule(), Schedule({missed, later}));
}

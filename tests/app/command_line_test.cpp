// Command lines handed to a running program, as a shell, a launcher or a key
// bound to the program would start it, with quillctl's status and the log as
// witnesses. Sound goes in and out through SDL's disk driver in real time;
// sox makes the input and reads back what was recorded.
#include "liba/text.h"
#include "tests/app/program_runner.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <thread>

namespace fs = std::filesystem;

namespace {

class HandOver : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(test::quillctl("log on"), 0);
        // A tone with no silent sample, in the settings' recording format.
        ASSERT_EQ(test::run("sox -n -r 22050 -b 16 -c 1 -t raw " + test::quote(in.string()) +
                            " synth 60 sine 300 vol 0.4 dcshift 0.5"),
                  0);
        env.set("SDL_AUDIODRIVER", "disk");
        env.set("SDL_DISKAUDIOFILE", (dir.path() / "out.raw").c_str());
        env.set("SDL_DISKAUDIOFILEIN", in.c_str());
        env.set("SDL_DISKAUDIODELAY", nullptr);
        env.set("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + (dir.path() / "no-bus").string()).c_str());
        // PCM recordings compare with the input sample for sample.
        test::write_file(home.app_data() / "Quillaphonics.xml", "<Settings><Record Codec=\"PCM\"/></Settings>");
    }
    void TearDown() override
    {
        test::kill_started();
        if (bus_pid > 0)
            ::kill(bus_pid, SIGTERM);
    }
    // The first instance, started in the background, answering.
    void start()
    {
        first = test::start_program("quillaphonics", {"-hide"});
        ASSERT_TRUE(test::wait_for([&] { return fs::exists(home.runtime() / "SkinnerClass_Quillaphonics"); }, 10000));
        ASSERT_TRUE(test::wait_for([&] { return handled() == 1; }, 5000));
    }
    // A later start with `args`; it ends once the first has taken its line.
    void hand_over(const std::vector<std::string>& args)
    {
        const size_t before = handled();
        EXPECT_EQ(test::start_program("quillaphonics", args).wait(5000), 0);
        EXPECT_TRUE(test::wait_for([&] { return handled() == before + 1; }, 3000));
    }
    size_t handled() const { return count(L"on_command_line["); }
    size_t count(const std::wstring& what) const
    {
        const std::wstring text = log();
        size_t n = 0;
        for (size_t at = text.find(what); at != std::wstring::npos; at = text.find(what, at + 1))
            ++n;
        return n;
    }
    std::wstring log() const { return test::read_log(home.app_data()); }
    static std::string status(const std::string& key)
    {
        std::string out;
        test::quillctl("status", &out);
        const size_t at = out.find(key + ": ");
        return at == std::string::npos ? "" : out.substr(at + key.size() + 2, out.find('\n', at) - at - key.size() - 2);
    }
    static bool state_is(const std::string& state)
    {
        return test::wait_for([&] { return status("state") == state; }, 3000);
    }
    // The recording's samples are the input's from its start; its length.
    double expect_input_recorded(const fs::path& file) const
    {
        std::string samples;
        EXPECT_EQ(test::run("sox " + test::quote(file.string()) + " -t raw -", &samples), 0) << file;
        EXPECT_FALSE(samples.empty());
        EXPECT_TRUE(samples == test::read_file(in).substr(0, samples.size())) << "not the input: " << file;
        return samples.size() / (2 * 22050.0);
    }
    fs::path tone(const std::string& name, double seconds) const
    {
        fs::path p = dir.path() / name;
        EXPECT_EQ(test::run("sox -n -r 22050 -b 16 -c 1 " + test::quote(p.string()) + " synth " +
                            std::to_string(seconds) + " sine 440 vol 0.3"),
                  0);
        return p;
    }
    // The new recordings in the documents folder.
    std::vector<fs::path> recordings() const
    {
        std::vector<fs::path> found;
        for (const auto& e : fs::recursive_directory_iterator(home.root() / "home"))
            if (e.path().extension() == ".wav")
                found.push_back(e.path());
        return found;
    }

    test::EnvironmentGuard env;
    test::PrivateHome home;
    test::TempDir dir;
    fs::path in = dir.path() / "in.raw";
    test::Process first;
    int bus_pid = -1;
};

TEST_F(HandOver, APathPlaysAMissingFolderOrSoundlessOneIsSkippedAndLoggedAndHideChangesNothing)
{
    const fs::path song = tone("song.wav", 20);
    const fs::path picture = dir.path() / "picture.png";
    ASSERT_EQ(test::run("sox " + test::quote(song.string()) + " -n spectrogram -o " + test::quote(picture.string())), 0);
    start();

    hand_over({"-hide"});
    EXPECT_EQ(count(L"command line: "), 0u) << "-hide to a running program does nothing";
    EXPECT_EQ(count(L"main: the window comes up"), 0u);

    const std::pair<fs::path, std::wstring> skipped[] = {
        {dir.path() / "missing.wav", L"no such file"},
        {dir.path(), L"a folder"},
        {picture, L"neither sound nor list"},
    };
    for (const auto& [path, why] : skipped) {
        hand_over({path.string()});
        EXPECT_EQ(count(L"command line: skipped [" + liba::from_utf8(path.string()) + L"]: " + why + L"\n"), 1u)
            << liba::to_utf8(log());
        EXPECT_EQ(status("state"), "stopped") << path;
    }
    EXPECT_EQ(count(L"main: the window comes up"), 1u) << "the first skip brought the window forward";

    hand_over({song.string()});
    ASSERT_TRUE(state_is("playing"));
    EXPECT_EQ(status("path"), song.string());
    hand_over({skipped[0].first.string()});
    EXPECT_EQ(status("path"), song.string()) << "a skipped path leaves what plays";
    EXPECT_EQ(status("state"), "playing");
}

TEST_F(HandOver, AnEmptyLineBringsTheWindowUpThenRecordsAndStopsWhileItIsInFront)
{
    start();
    hand_over({});
    EXPECT_EQ(count(L"main: the window comes up"), 1u);
    EXPECT_EQ(status("state"), "stopped") << "behind, the window only comes forward";

    hand_over({});
    ASSERT_TRUE(state_is("recording")) << liba::to_utf8(log());
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    hand_over({});
    ASSERT_TRUE(state_is("stopped"));
    const std::vector<fs::path> made = recordings();
    ASSERT_EQ(made.size(), 1u);
    EXPECT_GT(expect_input_recorded(made[0]), 1.0);
}

TEST_F(HandOver, SigtermWhileRecordingStopsTheRecordingFirstAndLeavesTheFileWhole)
{
    start();
    const fs::path file = dir.path() / "take.wav";
    std::string out;
    ASSERT_EQ(test::quillctl("record " + test::quote(file.string()) + " 7", &out), 0) << out;
    std::this_thread::sleep_for(std::chrono::milliseconds(2000));
    const double recorded = std::stod("0" + status("time_ms")) / 1000.0;
    ASSERT_GT(recorded, 1.5);
    first.signal(SIGTERM);
    EXPECT_EQ(first.wait(10000), 0);
    EXPECT_EQ(count(L"start-up: the recording stops before the end"), 1u);
    // What the status last counted, and what came in until the signal was
    // taken: at most a buffer on an idle machine, allowed a second here.
    const double length = expect_input_recorded(file);
    EXPECT_GE(length, recorded);
    EXPECT_LE(length, recorded + 1.0);
}

TEST_F(HandOver, AFileHandedOverPlaysPausesSeeksStopsThenANewRecordingIsSelectedAndPlaysTheInputAndQuitEndsARecording)
{
    // A bus of its own, for the seek through the desktop's media controls.
    const std::string bus = test::run_out("dbus-daemon --session --fork --nopidfile --print-address=1 --print-pid=1");
    const size_t nl = bus.find('\n');
    ASSERT_NE(nl, std::string::npos) << bus;
    env.set("DBUS_SESSION_BUS_ADDRESS", bus.substr(0, nl).c_str());
    bus_pid = std::atoi(bus.c_str() + nl + 1);
    const fs::path song = tone("song.wav", 8);
    start();

    hand_over({song.string()});
    ASSERT_TRUE(state_is("playing"));
    EXPECT_EQ(status("path"), song.string());
    std::string out;
    ASSERT_EQ(test::quillctl("pause", &out), 0) << out;
    EXPECT_EQ(status("state"), "play-paused");
    ASSERT_EQ(test::quillctl("pause", &out), 0) << out;
    EXPECT_EQ(status("state"), "playing");
    ASSERT_EQ(test::run("playerctl -p quillaphonics position 5"), 0);
    EXPECT_GE(std::stol("0" + status("time_ms")), 4900);
    ASSERT_EQ(test::quillctl("stop", &out), 0) << out;
    EXPECT_EQ(status("state"), "stopped");

    ASSERT_EQ(test::quillctl("record", &out), 0) << out;
    EXPECT_EQ(status("state"), "recording");
    std::this_thread::sleep_for(std::chrono::milliseconds(3000));
    ASSERT_EQ(test::quillctl("stop", &out), 0) << out;
    const std::vector<fs::path> made = recordings();
    ASSERT_EQ(made.size(), 1u);
    // Three seconds, less what the device still held, more the time
    // quillctl took to start twice.
    const double length = expect_input_recorded(made[0]);
    EXPECT_GE(length, 2.5);
    EXPECT_LE(length, 4.5);

    // Play with no path plays what the window selected: the new recording.
    ASSERT_EQ(test::quillctl("play", &out), 0) << out;
    EXPECT_EQ(fs::path(status("path")), made[0]);
    ASSERT_TRUE(test::wait_for([] { return status("state") == "stopped"; }, int(length * 1000) + 3000));
    std::string samples;
    ASSERT_EQ(test::run("sox " + test::quote(made[0].string()) + " -t raw -", &samples), 0);
    EXPECT_NE(test::read_file(dir.path() / "out.raw").find(samples), std::string::npos)
        << "the device was not handed the recording";

    // Quit from the desktop while recording: the window's "Exit", and the
    // recording is finished before the program ends.
    const fs::path last = dir.path() / "last.wav";
    ASSERT_EQ(test::quillctl("record " + test::quote(last.string()) + " 7", &out), 0) << out;
    std::this_thread::sleep_for(std::chrono::milliseconds(1000));
    EXPECT_EQ(test::run("busctl --user call org.mpris.MediaPlayer2.quillaphonics /org/mpris/MediaPlayer2 "
                        "org.mpris.MediaPlayer2 Quit"),
              0);
    EXPECT_EQ(first.wait(10000), 0);
    EXPECT_EQ(count(L"start-up: the recording stops before the end"), 1u);
    EXPECT_GT(expect_input_recorded(last), 0.5);
}

} // namespace

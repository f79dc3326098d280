// The program as a media player on a private session bus, driven by
// playerctl and busctl as a desktop would, with quillctl's status as the
// witness of what the Document did.
#include "app/status_publication_wire.h"
#include "liba/text.h"
#include "os/log.h"
#include "os/unix_socket_server.h"
#include "tests/app/program_runner.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <unistd.h>

namespace {

const std::string kBusName = "org.mpris.MediaPlayer2.quillaphonics";

// A quillaphonics -hide with disk audio, on a bus of its own (a private
// dbus-daemon) or with `bus_address` where there is none.
class Mpris : public ::testing::Test {
protected:
    void start(const std::string& bus_address = {})
    {
        setenv("SDL_AUDIODRIVER", "disk", 1);
        setenv("SDL_DISKAUDIOFILE", (dir / "out.raw").c_str(), 1);
        unsetenv("SDL_DISKAUDIODELAY");
        if (bus_address.empty()) {
            std::string out = test::run_out("dbus-daemon --session --fork --nopidfile --print-address=1 --print-pid=1");
            size_t nl = out.find('\n');
            setenv("DBUS_SESSION_BUS_ADDRESS", out.substr(0, nl).c_str(), 1);
            daemon_pid_ = std::atoi(out.c_str() + nl + 1);
        } else {
            setenv("DBUS_SESSION_BUS_ADDRESS", bus_address.c_str(), 1);
        }
        program_ = test::start_program("quillaphonics", {"-hide"});
    }
    void TearDown() override
    {
        if (program_.running()) {
            program_.signal(SIGTERM);
            program_.wait(5000);
        }
        test::kill_started();
        os::set_log_switch(false);
        if (daemon_pid_ > 0)
            ::kill(daemon_pid_, SIGTERM);
        unsetenv("DBUS_SESSION_BUS_ADDRESS");
    }
    static std::string ctl(const std::string& args)
    {
        std::string out;
        test::run("playerctl -p quillaphonics " + args + " 2>&1", &out);
        while (!out.empty() && out.back() == '\n')
            out.pop_back();
        // Object paths come quoted.
        if (out.size() >= 2 && out.front() == '\'' && out.back() == '\'')
            out = out.substr(1, out.size() - 2);
        return out;
    }
    static int bus_call(const std::string& method_and_args)
    {
        return test::run("busctl --user call " + kBusName +
                         " /org/mpris/MediaPlayer2 org.mpris.MediaPlayer2.Player " + method_and_args + " >/dev/null 2>&1");
    }
    static std::string quill_status(const std::string& key)
    {
        std::string out;
        test::quillctl("status", &out);
        size_t at = out.find(key + ": ");
        if (at == std::string::npos)
            return "";
        at += key.size() + 2;
        return out.substr(at, out.find('\n', at) - at);
    }
    static double position_s() { return std::stod("0" + ctl("position")); }

    test::PrivateHome home;
    test::TempDir dir;
    test::Process program_;
    int daemon_pid_ = -1;
};

TEST_F(Mpris, PlayerctlAndBusctlDriveTheDocument)
{
    start();
    ASSERT_EQ(test::run("sox -n -r 44100 -b 16 -c 2 " + test::quote((dir / "src.wav").string()) +
                        " synth 8 sine 300 norm -6"),
              0);
    ASSERT_EQ(test::run("lame --quiet -b 128 --tt Song --ta Singer " + test::quote((dir / "src.wav").string()) + " " +
                        test::quote((dir / "a b.mp3").string())),
              0);
    ASSERT_TRUE(test::wait_for([] { return ctl("status") == "Stopped"; }, 5000)) << ctl("status");
    EXPECT_EQ(ctl("metadata mpris:trackid"), "/org/mpris/MediaPlayer2/TrackList/NoTrack");

    std::string out;
    ASSERT_EQ(test::quillctl("play " + test::quote((dir / "a b.mp3").string()), &out), 0) << out;
    EXPECT_TRUE(test::wait_for([] { return ctl("status") == "Playing"; }, 3000));
    EXPECT_EQ(ctl("metadata title"), "Song");
    EXPECT_EQ(ctl("metadata artist"), "Singer");
    EXPECT_NEAR(std::stod(ctl("metadata mpris:length")) / 1e6, 8.0, 0.1);

    EXPECT_EQ(ctl("pause"), "");
    EXPECT_EQ(ctl("status"), "Paused");
    EXPECT_EQ(quill_status("state"), "play-paused");
    ctl("play-pause");
    EXPECT_EQ(quill_status("state"), "playing");

    // Seeks: a jump the bus hears as Seeked; a stale track or a negative
    // position changes nothing.
    std::string monitor = (dir / "monitor.txt").string();
    test::run("(timeout 30 busctl --user monitor " + kBusName + " > " + test::quote(monitor) + " 2>&1 &)");
    test::wait_for([&] { return test::read_file(monitor).find("NameAcquired") != std::string::npos ||
                                test::read_file(monitor).size() > 0; }, 2000);
    ctl("position 5");
    EXPECT_NEAR(position_s(), 5.0, 0.5);
    EXPECT_TRUE(test::wait_for([&] { return test::read_file(monitor).find("Seeked") != std::string::npos; }, 3000));
    std::string track = ctl("metadata mpris:trackid");
    EXPECT_EQ(bus_call("SetPosition ox /org/quillaphonics/track/999 0"), 0);
    EXPECT_EQ(bus_call("SetPosition ox " + track + " -- -1000000"), 0);
    EXPECT_GT(position_s(), 4.5) << "stale track id and negative position ignored";
    ctl("position 2-");
    EXPECT_LT(position_s(), 4.5);

    // Settings through properties.
    ctl("volume 0.25");
    EXPECT_EQ(ctl("volume"), "0.250000");
    const std::string rate = kBusName + " /org/mpris/MediaPlayer2 org.mpris.MediaPlayer2.Player Rate";
    for (auto [set, got] : {std::pair{"0.5", "d 0.5\n"}, {"9", "d 2\n"}, {"1", "d 1\n"}}) {
        EXPECT_EQ(test::run("busctl --user set-property " + rate + " d " + set), 0);
        EXPECT_EQ(test::run_out("busctl --user get-property " + rate), got) << "rate " << set;
    }
    ctl("loop Track");
    EXPECT_EQ(ctl("loop"), "Track");
    ctl("shuffle On");
    EXPECT_EQ(ctl("shuffle"), "On");
    EXPECT_EQ(ctl("loop"), "Playlist");

    // OpenUri: a file address plays, anything else is a D-Bus error.
    ASSERT_EQ(test::run("cp " + test::quote((dir / "src.wav").string()) + " " + test::quote((dir / "c d.wav").string())), 0);
    EXPECT_NE(bus_call("OpenUri s http://example.org/x.mp3"), 0);
    EXPECT_EQ(bus_call("OpenUri s file://" + test::quote((dir / "c%20d.wav").string())), 0);
    EXPECT_EQ(quill_status("path"), (dir / "c d.wav").string());
    EXPECT_NE(ctl("metadata mpris:trackid"), track);

    ctl("stop");
    EXPECT_EQ(ctl("status"), "Stopped");
    auto count = [](const std::string& text, const std::string& what) {
        size_t n = 0;
        for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
            ++n;
        return n;
    };
    EXPECT_EQ(count(test::read_file(monitor), "Member=Seeked"), 2u) << "the two seeks; a new item is no seek";
    EXPECT_EQ(quill_status("state"), "stopped");
    ctl("play");
    EXPECT_EQ(ctl("status"), "Playing") << "stopped, Play plays the current item";

    EXPECT_EQ(test::run("busctl --user call " + kBusName + " /org/mpris/MediaPlayer2 org.mpris.MediaPlayer2 Quit"), 0);
    EXPECT_EQ(program_.wait(5000), 0);
}

TEST_F(Mpris, WithoutASessionBusTheProgramRunsAndSaysSoOnce)
{
    os::set_log_switch(true);
    start("unix:path=" + (dir / "no-bus").string());
    // quillctl would start a program of its own if ours did not answer yet.
    ASSERT_TRUE(test::wait_for([] {
        int fd = os::connect_unix_socket(status::socket_path());
        if (fd >= 0)
            ::close(fd);
        return fd >= 0;
    }, 10000));
    std::string out;
    ASSERT_EQ(test::quillctl("play " + test::quote(test::one_media("pcm_s16_mono_8000.wav").string()), &out), 0) << out;
    EXPECT_EQ(quill_status("state"), "playing");
    std::string log = liba::to_utf8(test::read_log(home.app_data()));
    size_t first = log.find("session bus: none");
    EXPECT_NE(first, std::string::npos) << log;
    EXPECT_EQ(log.find("session bus", first + 1), std::string::npos) << log;
}

} // namespace

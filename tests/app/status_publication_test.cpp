// The status publication: the clipboard's stack discipline and its refusals,
// the values and the argument text on the wire, the server's commands run
// against a Document, and remote control of the real program by quillctl.
#include "app/document.h"
#include "app/status_publication.h"

#include "liba/active.h"
#include "liba/text.h"
#include "os/path.h"
#include "os/unix_socket_server.h"
#include "tests/app/program_runner.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <sys/mman.h>
#include <csignal>
#include <fcntl.h>
#include <map>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace status;

namespace {

TEST(StatusWire, ClipboardIsAStackThatRefusesWhatDoesNotFit)
{
    CCommBufferClipboard c;
    std::vector<unsigned char> big(kCapacity, 7);
    EXPECT_TRUE(c.push(big.data(), kCapacity - 3));
    unsigned char one = 1;
    EXPECT_FALSE(c.push(big.data(), 4)) << "one byte more than is left";
    EXPECT_EQ(c.used(), kCapacity - 3);
    EXPECT_TRUE(c.push(big.data(), 3)) << "exactly what is left";
    EXPECT_EQ(c.used(), kCapacity);
    EXPECT_FALSE(c.push(&one, 1));
    c.clear();
    EXPECT_FALSE(c.pop(&one, 1)) << "pop of more than used";
    EXPECT_EQ(c.used(), 0u);

    // Values come off in the reverse order of their pushes.
    unsigned char a[2] = {1, 2}, b[3] = {3, 4, 5}, out[3] = {};
    c.push(a, 2);
    c.push(b, 3);
    ASSERT_TRUE(c.pop(out, 3));
    EXPECT_EQ(std::memcmp(out, b, 3), 0);
    ASSERT_TRUE(c.pop(out, 2));
    EXPECT_EQ(std::memcmp(out, a, 2), 0);

    // A `used` beyond the capacity, as another party might leave it: refused.
    unsigned char* r = c.region();
    r[0] = 0xff;
    r[1] = 0x04;
    r[2] = r[3] = 0;
    EXPECT_FALSE(c.pop(out, 1));
    EXPECT_FALSE(c.push(&one, 1));
}

TEST(StatusWire, StringsStatusAndArgumentsRoundTrip)
{
    CCommBufferClipboard c;
    CSerializableString s(L"päth,ü 🎵");
    ASSERT_TRUE(s.write(c));
    EXPECT_EQ(c.used(), (9u + 1u) * 2u + 4u) << "UTF-16 with its NUL, then the count";
    CSerializableString back;
    ASSERT_TRUE(back.read(c));
    EXPECT_EQ(*back.text, *s.text);
    EXPECT_FALSE(CSerializableString().write(c)) << "a null text is not written";
    std::wstring too_long(kCapacity, L'x');
    EXPECT_FALSE(CSerializableString(too_long).write(c));
    EXPECT_EQ(c.used(), 0u);

    // A count larger than what is held fails and takes nothing.
    unsigned char count[4] = {0x10, 0, 0, 0};
    c.push(count, 4);
    EXPECT_FALSE(back.read(c));

    CQuillaphonicsStatus st;
    st.state = CQuillaphonicsStatus::kPlayPaused;
    st.path = L"/music/a.wav";
    st.length = 1000;
    st.position = 12;
    st.format = 1;
    st.rate = 22050;
    st.bits = 16;
    st.kbps = 352;
    st.stereo = 0;
    st.time_ms = 4321;
    c.clear();
    ASSERT_TRUE(st.write(c));
    EXPECT_EQ(c.used(), 556u);
    CQuillaphonicsStatus got;
    ASSERT_TRUE(got.read(c));
    EXPECT_EQ(got.path, st.path);
    EXPECT_EQ(got.state, st.state);
    EXPECT_EQ(got.position, 12);
    EXPECT_EQ(got.time_ms, 4321);
    EXPECT_EQ(got.rate, 22050);
    EXPECT_EQ(c.used(), 0u);

    // Fields end at "," or their maximum length; "show" is last.
    std::wstring p200(200, L'p');
    auto f = split_arguments(p200 + L",7,y", argument_lengths(kRecord));
    EXPECT_EQ(f, (std::vector<std::wstring>{p200, L"7", L"y"}));
    f = split_arguments(p200 + L"qq,y", argument_lengths(kPlay));
    EXPECT_EQ(f, (std::vector<std::wstring>{p200, L"q"})) << "an overlong path loses its tail to the next field";
    f = split_arguments(L"y", argument_lengths(kPause));
    EXPECT_EQ(f, (std::vector<std::wstring>{L"y"}));
    f = split_arguments(L"", argument_lengths(kStep));
    EXPECT_EQ(f, (std::vector<std::wstring>{L"", L""}));
}

class StatusServer : public ::testing::Test {
protected:
    void SetUp() override
    {
        os::init_path_macros();
        setenv("SDL_AUDIODRIVER", "disk", 1);
        setenv("SDL_DISKAUDIOFILE", (dir.path() / "out.raw").c_str(), 1);
        setenv("SDL_DISKAUDIODELAY", "20", 1);
    }
    // Runs a command with `text` as its arguments; the Bool answer in `answer`.
    int32_t command(StatusPublication& s, CCommBufferClipboard& c, int32_t number, const std::wstring& text,
                    bool* answer = nullptr)
    {
        c.clear();
        CSerializableString(text).write(c);
        int32_t r = s.handle(number);
        CSerializableBool b;
        if (answer)
            *answer = r != 0 && b.read(c) && b.value;
        return r;
    }
    test::PrivateHome home;
    test::TempDir dir;
};

TEST_F(StatusServer, CommandsDriveTheDocumentAndBadOnesFail)
{
    fs::path wav = dir.path() / "t.wav";
    ASSERT_EQ(test::run("sox -n -r 22050 -b 16 -c 2 '" + wav.string() + "' synth 3 sine 440"), 0);
    Document d(liba::from_utf8((dir.path() / "s.xml").string()));
    int shows = 0;
    StatusPublication s(d, [&] { ++shows; });
    auto owned = std::make_unique<CCommBufferClipboard>();
    CCommBufferClipboard& c = *owned;
    s.use_clipboard(std::move(owned));

    // Status while stopped.
    c.clear();
    CSerializableBool(true).write(c);
    ASSERT_EQ(s.handle(kStatus), 1);
    CSerializableBool done;
    CQuillaphonicsStatus st;
    ASSERT_TRUE(done.read(c) && done.value);
    ASSERT_TRUE(st.read(c));
    EXPECT_EQ(st.state, CQuillaphonicsStatus::kStopped);
    EXPECT_EQ(st.path, L"");
    EXPECT_EQ(st.length, -1);
    EXPECT_EQ(st.position, -1);
    EXPECT_EQ(st.format, 2);
    EXPECT_EQ(st.stereo, 2);
    EXPECT_EQ(shows, 1);

    bool ok = true;
    EXPECT_EQ(command(s, c, kPlay, L",n", &ok), 1);
    EXPECT_FALSE(ok) << "no current item to play";
    EXPECT_EQ(command(s, c, kPlay, liba::from_utf8(wav.string()) + L",y", &ok), 1);
    EXPECT_TRUE(ok);
    EXPECT_EQ(shows, 2);
    EXPECT_TRUE(d.is_playing());
    c.clear();
    CSerializableBool(false).write(c);
    ASSERT_EQ(s.handle(kStatus), 1);
    ASSERT_TRUE(done.read(c) && st.read(c));
    EXPECT_EQ(st.state, CQuillaphonicsStatus::kPlaying);
    EXPECT_EQ(st.path, liba::from_utf8(wav.string()));
    EXPECT_EQ(st.format, 1);
    EXPECT_EQ(st.rate, 22050);
    EXPECT_EQ(st.stereo, 1);
    EXPECT_EQ(st.length, 3 * 22050 * 4);

    EXPECT_EQ(command(s, c, kPause, L"n", &ok), 1);
    EXPECT_TRUE(ok && d.is_paused());
    EXPECT_EQ(command(s, c, kPause, L"n", &ok), 1);
    EXPECT_TRUE(ok && !d.is_paused()) << "pause again resumes";
    EXPECT_EQ(command(s, c, kStep, L"0,n", &ok), 1);
    EXPECT_TRUE(ok && d.is_playing());
    EXPECT_EQ(command(s, c, kStop, L"n", &ok), 1);
    EXPECT_TRUE(ok && !d.is_playing());

    // Unreadable arguments and unknown numbers fail; the server goes on.
    c.clear();
    EXPECT_EQ(s.handle(kStop), 0) << "no argument text at all";
    EXPECT_EQ(command(s, c, kStep, L"x,n"), 0) << "a delta that is no number";
    EXPECT_EQ(command(s, c, kRecord, L"/tmp/x.wav,x,n"), 0) << "a format that is no number";
    EXPECT_EQ(command(s, c, kInsert, L"/tmp/x.wav,x,n"), 0) << "a position that is no number";
    EXPECT_EQ(command(s, c, 9, L"n"), 0);
    EXPECT_EQ(command(s, c, -1, L"n"), 0);
    EXPECT_EQ(command(s, c, kStop, L"n", &ok), 1);
}

TEST_F(StatusServer, SharedMemoryIsOwnerOnlyAndKeepsWhatItHeld)
{
    const char* name = "/quill-status-test-memory";
    ::shm_unlink(name);
    {
        CCommMemoryMappedFilesClipboard first(name);
        ASSERT_TRUE(first.is_open());
        EXPECT_FALSE(first.existed());
        unsigned char b[5] = {1, 2, 3, 4, 5};
        first.push(b, 5);
        CCommMemoryMappedFilesClipboard second(name);
        ASSERT_TRUE(second.existed());
        EXPECT_EQ(second.used(), 5u) << "a leftover `used` is honoured";
    }
    struct stat st {};
    int fd = ::shm_open(name, O_RDONLY, 0);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::fstat(fd, &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    ::fchmod(fd, 0644);
    ::close(fd);
    EXPECT_FALSE(CCommMemoryMappedFilesClipboard(name).is_open()) << "memory open to others is refused";
    ::shm_unlink(name);
}

// The real program, driven by quillctl as a script would.
class Remote : public ::testing::Test {
protected:
    void SetUp() override { ::shm_unlink(kSharedMemoryName); }
    void TearDown() override
    {
        // quillctl started the program; its socket names it.
        int pid = server_pid();
        if (pid > 0) {
            ::kill(pid, SIGTERM);
            test::wait_for([&] { return ::kill(pid, 0) != 0; }, 5000);
        }
        test::kill_started();
        ::shm_unlink(kSharedMemoryName);
    }
    static int server_pid()
    {
        int fd = os::connect_unix_socket(socket_path());
        ucred peer{};
        socklen_t len = sizeof peer;
        int pid = fd >= 0 && ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &len) == 0 ? peer.pid : -1;
        if (fd >= 0)
            ::close(fd);
        return pid;
    }
    std::map<std::string, std::string> status()
    {
        std::string out;
        EXPECT_EQ(test::quillctl("status", &out), 0) << out;
        std::map<std::string, std::string> m;
        size_t at = 0;
        while (at < out.size()) {
            size_t end = out.find('\n', at);
            std::string line = out.substr(at, end - at);
            size_t colon = line.find(": ");
            if (colon != std::string::npos)
                m[line.substr(0, colon)] = line.substr(colon + 2);
            at = end == std::string::npos ? out.size() : end + 1;
        }
        return m;
    }
    test::PrivateHome home;
    test::TempDir dir;
};

TEST_F(Remote, StatusStartsAHiddenProgramAndQuillctlDrivesIt)
{
    setenv("SDL_AUDIODRIVER", "disk", 1);
    setenv("SDL_DISKAUDIOFILE", (dir.path() / "out.raw").c_str(), 1);
    unsetenv("SDL_DISKAUDIODELAY");
    const fs::path in = dir.path() / "in.raw";
    ASSERT_EQ(test::run("sox -n -r 22050 -b 16 -c 1 -t raw " + test::quote(in.string()) + " synth 30 sine 300"), 0);
    setenv("SDL_DISKAUDIOFILEIN", in.c_str(), 1);
    auto m = status();
    EXPECT_EQ(m["state"], "stopped") << "no program ran: one was started hidden and answered";
    EXPECT_EQ(m["stereo"], "2");

    for (const char* n : {"a", "b", "c"})
        ASSERT_EQ(test::run(std::string("sox -n -r 8000 -b 16 -c 1 '") + (dir.path() / n).string() +
                            ".wav' synth 6 sine 300"),
                  0);
    std::ofstream(dir.path() / "l.m3u") << "a.wav\nb.wav\nc.wav\n";

    std::string out;
    ASSERT_EQ(test::quillctl("play " + (dir.path() / "a.wav").string(), &out), 0);
    EXPECT_EQ(out, "ok\n");
    m = status();
    EXPECT_EQ(m["state"], "playing");
    EXPECT_EQ(m["path"], (dir.path() / "a.wav").string());
    EXPECT_EQ(m["format"], "1");
    // Positions move in whole pulls of the player: poll long enough.
    int first = std::stoi(m["position"]);
    EXPECT_TRUE(test::wait_for([&] { return std::stoi(status()["position"]) > first; }, 4000));

    EXPECT_EQ(test::quillctl("pause", &out), 0);
    EXPECT_EQ(status()["state"], "play-paused");
    EXPECT_EQ(test::quillctl("pause", &out), 0);
    EXPECT_EQ(status()["state"], "playing");

    ASSERT_EQ(test::quillctl("play " + (dir.path() / "l.m3u").string(), &out), 0);
    EXPECT_EQ(status()["path"], (dir.path() / "a.wav").string());
    EXPECT_EQ(test::quillctl("next", &out), 0);
    EXPECT_EQ(status()["path"], (dir.path() / "b.wav").string());
    EXPECT_EQ(test::quillctl("next", &out), 0);
    EXPECT_EQ(status()["path"], (dir.path() / "c.wav").string());
    EXPECT_EQ(test::quillctl("previous", &out), 0);
    EXPECT_EQ(status()["path"], (dir.path() / "b.wav").string());
    EXPECT_EQ(test::quillctl("play", &out), 0) << "the current item again";
    EXPECT_EQ(status()["path"], (dir.path() / "b.wav").string());

    EXPECT_EQ(test::quillctl("stop", &out), 0);
    EXPECT_EQ(out, "ok\n");
    EXPECT_EQ(status()["state"], "stopped");
    EXPECT_EQ(test::quillctl("stop", &out), 1) << "nothing is left to stop";
    EXPECT_EQ(test::quillctl("record /nowhere/x.wav 9", &out), 1);
    EXPECT_EQ(out, "failed\n");

    // A recording pauses, goes on and stops as the window's buttons do it.
    ASSERT_EQ(test::quillctl("record", &out), 0) << out;
    EXPECT_EQ(status()["state"], "recording");
    for (auto [command, state] : {std::pair{"pause", "record-paused"}, {"pause", "recording"}, {"stop", "stopped"}}) {
        EXPECT_EQ(test::quillctl(command, &out), 0) << command;
        EXPECT_EQ(status()["state"], state) << command;
    }
    EXPECT_EQ(test::quillctl("step x"), 2);
}

} // namespace

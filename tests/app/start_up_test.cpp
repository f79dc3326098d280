// Start-up and shutdown of the real program: the single instance, the
// command-line handover and the quit signals, driven as a user's shell would.
#include "app/document.h"
#include "app/error_form.h"
#include "app/main_form.h"
#include "app/screen_shell.h"
#include "app/start_up.h"
#include "liba/active.h"
#include "liba/text.h"
#include "liba/timer.h"
#include "os/event_loop.h"
#include "os/path.h"
#include "skinner/form_message.h"
#include "skinner/screen.h"
#include "tests/app/program_runner.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

size_t count_of(const std::wstring& text, const std::wstring& what)
{
    size_t n = 0;
    for (size_t at = text.find(what); at != std::wstring::npos; at = text.find(what, at + 1))
        ++n;
    return n;
}

class StartUp : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(test::quillctl("log on"), 0);
        socket = home.runtime() / "SkinnerClass_Quillaphonics";
    }
    void TearDown() override { test::kill_started(); }
    // Starts the first instance and waits until it listens.
    void start_first(const std::vector<std::string>& args = {"-hide"})
    {
        first = test::start_program("quillaphonics", args);
        ASSERT_TRUE(test::wait_for([&] { return fs::exists(socket); }, 10000)) << "the first start never listened";
    }
    std::wstring log() const { return test::read_log(home.app_data()); }

    test::PrivateHome home;
    fs::path socket;
    test::Process first;
};

TEST_F(StartUp, SecondStartHandsItsRelativePathToTheFirstAndTermEndsIt)
{
    start_first();
    test::TempDir elsewhere;
    auto second = test::start_program("quillaphonics", {"notes.wav"}, elsewhere.path());
    EXPECT_EQ(second.wait(5000), 0);

    std::wstring expected = L"on_command_line[" + liba::from_utf8((elsewhere.path() / "notes.wav").string()) + L"]";
    EXPECT_TRUE(test::wait_for([&] { return log().find(expected) != std::wstring::npos; }, 2000)) << liba::to_utf8(log());

    first.signal(SIGTERM);
    EXPECT_EQ(first.wait(5000), 0);
    std::wstring text = log();
    // Both processes, the one that handed over and the one that ran, end
    // through the same steps, into the same log.
    for (int step = 1; step <= 4; ++step)
        EXPECT_EQ(count_of(text, L" Application::~Application " + std::to_wstring(step) + L"\n"), 2u) << step;
    EXPECT_FALSE(fs::exists(socket)) << "a cleanly ended instance leaves no socket behind";
}

TEST_F(StartUp, SimultaneousStartsLeaveOneInstanceAndEachLineArrivesOnce)
{
    constexpr int kStarts = 8;
    std::vector<test::Process> starts;
    for (int i = 0; i < kStarts; ++i)
        starts.push_back(test::start_program("quillaphonics", {"/music/take" + std::to_string(i) + ".wav"}));

    // All but one hand over and end; the one that remains is the first instance.
    ASSERT_TRUE(test::wait_for([&] {
        int alive = 0;
        for (auto& p : starts)
            if (p.pid > 0 && p.wait(0) == -1 && p.running())
                ++alive;
        return alive == 1;
    }, 20000));
    for (auto& p : starts)
        if (p.pid > 0)
            first = p;
    ASSERT_TRUE(first.running());

    std::wstring text;
    ASSERT_TRUE(test::wait_for([&] {
        text = log();
        return count_of(text, L"command line: skipped [/music/take") == kStarts;
    }, 5000)) << liba::to_utf8(text);
    for (int i = 0; i < kStarts; ++i)
        EXPECT_EQ(count_of(text, L"on_command_line[/music/take" + std::to_wstring(i) + L".wav]"), 1u)
            << "take" << i << "\n" << liba::to_utf8(text);
    EXPECT_EQ(count_of(text, L"cmd_line["), 1u) << "exactly one first instance";
    first.signal(SIGTERM);
    EXPECT_EQ(first.wait(5000), 0);
}

TEST_F(StartUp, HideToARunningInstanceChangesNothingAndKeywordsMatchWholeLinesOnly)
{
    start_first();
    EXPECT_EQ(test::start_program("quillaphonics", {"-hide"}).wait(5000), 0);
    EXPECT_EQ(test::start_program("quillaphonics", {"AppRunAtTime"}).wait(5000), 0);
    // With a trailing blank it is a file name, made absolute like any other.
    EXPECT_EQ(test::start_program("quillaphonics", {"AppRunAtTime", ""}, "/").wait(5000), 0);
    // The first start's own line goes the same way.
    ASSERT_TRUE(test::wait_for([&] { return count_of(log(), L"on_command_line[") == 4; }, 3000));
    std::wstring text = log();
    EXPECT_EQ(count_of(text, L"command line: scheduled recording is due"), 1u);
    EXPECT_EQ(count_of(text, L"command line: skipped [/AppRunAtTime ]"), 1u) << liba::to_utf8(text);
    EXPECT_EQ(count_of(text, L"command line: "), 2u) << "-hide does nothing at all";
}

// Sends raw bytes as a later start would and returns the answer byte, or -1.
int send_raw(const fs::path& socket, const std::string& bytes)
{
    int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, socket.c_str(), sizeof addr.sun_path - 1);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
        ::close(fd);
        return -1;
    }
    size_t sent = 0;
    while (sent < bytes.size()) {
        ssize_t n = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0)
            break;
        sent += static_cast<size_t>(n);
    }
    // Like a sender that died: nothing more comes.
    ::shutdown(fd, SHUT_WR);
    unsigned char answer;
    ssize_t got = ::recv(fd, &answer, 1, 0);
    ::close(fd);
    return got == 1 ? answer : -1;
}

std::string framed(const std::string& payload)
{
    uint32_t n = static_cast<uint32_t>(payload.size());
    std::string header = {char(n & 0xFF), char((n >> 8) & 0xFF), char((n >> 16) & 0xFF), char(n >> 24)};
    return header + payload;
}

TEST_F(StartUp, OverlongOrBrokenLinesAreIgnoredAndStillAnswered)
{
    start_first();
    std::string too_long = liba::to_utf16le_bytes(std::wstring(32769, L'x'));
    EXPECT_EQ(send_raw(socket, framed(too_long)), 0);
    std::string lone_surrogate("\x00\xD8" "a\x00", 4);
    EXPECT_EQ(send_raw(socket, framed(lone_surrogate)), 0);
    EXPECT_EQ(send_raw(socket, framed("abc")), 0) << "an odd byte count is not UTF-16";
    EXPECT_EQ(send_raw(socket, framed("abcd").substr(0, 6)), -1) << "a line cut short is dropped without an answer";
    // Exactly the limit is still a command line.
    EXPECT_EQ(send_raw(socket, framed(liba::to_utf16le_bytes(L"/" + std::wstring(32767, L'y')))), 1);
    EXPECT_EQ(send_raw(socket, framed(liba::to_utf16le_bytes(L"/tmp/\u00e9t\u00e9 \U0001F3B5.wav"))), 1);

    std::wstring text = log();
    EXPECT_EQ(count_of(text, L"ignored a command line of 65538 bytes"), 1u) << liba::to_utf8(text);
    EXPECT_EQ(count_of(text, L"ignored a command line that is not valid UTF-16"), 2u);
    EXPECT_EQ(count_of(text, L"on_command_line[/tmp/\u00e9t\u00e9 \U0001F3B5.wav]"), 1u);
    EXPECT_TRUE(first.running());
}

TEST_F(StartUp, AKilledInstanceLeavesNothingThatStopsTheNext)
{
    start_first();
    first.signal(SIGKILL);
    first.wait(2000);
    ASSERT_TRUE(fs::exists(socket)) << "the killed instance's socket file stays behind";
    first = test::start_program("quillaphonics", {"/a.wav"});
    // Once it has logged its command line it holds the instance lock, so the
    // next start waits for it rather than taking the stale socket for nobody.
    ASSERT_TRUE(test::wait_for([&] { return log().find(L"cmd_line[/a.wav]") != std::wstring::npos; }, 10000));
    EXPECT_EQ(test::start_program("quillaphonics", {"/b.wav"}).wait(5000), 0);
    EXPECT_TRUE(test::wait_for([&] { return log().find(L"on_command_line[/b.wav]") != std::wstring::npos; }, 3000));
}

TEST_F(StartUp, ConnectionsOfAnotherUserAreRefused)
{
    if (::getuid() != 0)
        GTEST_SKIP() << "needs root to connect as another user";
    start_first();
    ::chmod(home.root().c_str(), 0755);
    ::chmod(home.runtime().c_str(), 0755);
    ::chmod(socket.c_str(), 0777);
    pid_t child = ::fork();
    if (child == 0) {
        if (::setgid(65534) != 0 || ::setuid(65534) != 0)
            ::_exit(10);
        int answer = send_raw(socket, framed(liba::to_utf16le_bytes(L"/intruder.wav")));
        ::_exit(answer == -1 ? 0 : 11);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "the other user got an answer";
    EXPECT_TRUE(test::wait_for([&] { return log().find(L"refused a connection of user 65534") != std::wstring::npos; }, 3000));
    EXPECT_EQ(log().find(L"intruder"), std::wstring::npos);
}

TEST_F(StartUp, WithoutADisplayTheScreenGoesOffscreenAndTheZoomIsKeptInTheRegistryStore)
{
    test::EnvironmentGuard env;
    env.set("SDL_VIDEODRIVER", "");
    env.set("DISPLAY", nullptr);
    env.set("WAYLAND_DISPLAY", nullptr);
    const fs::path registry = home.app_data() / "registry.xml";
    const std::string zoom_1 = "name=\"Zoom\" type=\"dword\" data=\"1\"";
    // No zoom kept: offscreen there is no desktop to fill, so 1, and 1 is kept.
    start_first();
    ASSERT_TRUE(test::wait_for([&] { return log().find(L"screen: 240x320 zoom 1\n") != std::wstring::npos; }, 10000))
        << liba::to_utf8(log());
    EXPECT_NE(log().find(L"start-up: no display (neither DISPLAY nor WAYLAND_DISPLAY is set); the screen is "
                         L"offscreen and message forms answer by themselves\n"),
              std::wstring::npos);
    first.signal(SIGTERM);
    ASSERT_EQ(first.wait(5000), 0);
    std::string store = test::read_file(registry);
    size_t at = store.find(zoom_1);
    ASSERT_NE(at, std::string::npos) << store;
    EXPECT_EQ(test::read_file(home.app_data() / "Quillaphonics.xml").find("Zoom"), std::string::npos)
        << "the settings file keeps no zoom";

    // A zoom kept by an earlier run is taken as it is.
    test::write_file(registry, store.replace(at, zoom_1.size(), "name=\"Zoom\" type=\"dword\" data=\"3\""));
    fs::remove(home.app_data() / "Quillaphonics.txt");
    start_first();
    EXPECT_TRUE(test::wait_for([&] { return log().find(L"screen: 720x960 zoom 3\n") != std::wstring::npos; }, 10000))
        << liba::to_utf8(log());
    first.signal(SIGTERM);
    EXPECT_EQ(first.wait(5000), 0);
}

// The screen at start-up in this process, on SDL's offscreen driver, with the
// main window on it as the program builds them.
class ScreenAtStart : public ::testing::Test {
protected:
    void SetUp() override
    {
        env.set("SDL_VIDEODRIVER", "offscreen");
        env.set("SDL_AUDIODRIVER", "dummy");
        os::init_path_macros();
        ASSERT_FALSE(ScreenShell::start_video()) << "offscreen is no display";
        EXPECT_FALSE(skinner::message_forms_headless()) << "asked for by name, message forms wait for an answer";
        skin = skinner::choose_skin(liba::from_utf8(skin_path.string()), 1, ScreenShell::desktop_size(), L"", &choice);
        ASSERT_TRUE(skin);
        document = std::make_unique<Document>(liba::from_utf8((dir.path() / "settings.xml").string()));
        shell = std::make_unique<ScreenShell>(loop, choice);
        form = std::make_unique<MainForm>(*skin, *document);
        form->show(true);
    }
    void TearDown() override
    {
        form.reset();
        shell.reset();
        skin.reset();
        document.reset();
        skinner::set_message_forms_headless(false);
    }
    // Takes every waiting event, as the loop would, and paints.
    void settle()
    {
        SDL_Event e;
        while (SDL_PollEvent(&e))
            shell->screen().handle_event(e);
        shell->screen().paint_now();
    }
    void press(SDL_Keycode key, Uint16 mod)
    {
        for (Uint32 type : {SDL_KEYDOWN, SDL_KEYUP}) {
            SDL_Event e{};
            e.type = type;
            e.key.keysym.sym = key;
            e.key.keysym.mod = mod;
            SDL_PushEvent(&e);
        }
        settle();
    }
    // The screen, the skin and the main window all stand at `zoom`.
    void expect_zoom(int zoom)
    {
        skinner::Screen& screen = shell->screen();
        ASSERT_EQ(screen.zoom(), zoom);
        EXPECT_EQ(screen.size().x, 240 * zoom);
        EXPECT_EQ(screen.size().y, 320 * zoom);
        EXPECT_EQ(skin->scale(), zoom) << "the skin is loaded again for the screen's size";
        EXPECT_EQ(form->size().x, 240 * zoom) << "the main window fills the screen";
        EXPECT_EQ(form->size().y, 320 * zoom);
        EXPECT_EQ(form->clock().size().x, clock_width * zoom);
        // The menu strip below the screen grows with the zoom as well.
        int w = 0, h = 0;
        SDL_GetWindowSize(screen.window(), &w, &h);
        EXPECT_EQ(h, 320 * zoom + strip_per_zoom * zoom) << "zoom " << zoom;
    }

    test::EnvironmentGuard env;
    test::PrivateHome home;
    test::TempDir dir;
    fs::path skin_path = test::program_dir() / "skins" / "Default" / "Default.skin";
    CActiveScheduler scheduler;
    os::EventLoop loop{scheduler};
    skinner::SkinChoice choice;
    std::unique_ptr<skinner::Properties> skin;
    std::unique_ptr<Document> document;
    std::unique_ptr<ScreenShell> shell;
    std::unique_ptr<MainForm> form;
    int clock_width = 0;
    int strip_per_zoom = 0;
};

// Answers a dialog from the loop it runs, noting whether the window showed.
class Answerer : liba::Timer::Listener {
public:
    Answerer(skinner::Form& dialog, skinner::Screen& screen) : dialog_(dialog), screen_(screen) { timer_.start(0.05); }
    bool window_was_shown() const { return shown_; }

private:
    void on_timer(liba::Timer&) override
    {
        shown_ = screen_.window_shown();
        dialog_.close();
    }
    skinner::Form& dialog_;
    skinner::Screen& screen_;
    bool shown_ = false;
    liba::Timer timer_{*this};
};

TEST_F(ScreenAtStart, HiddenUntilBroughtUpOrADialogWantsAnAnswerAndCtrlPlusOrMinusZoomsWithinOneToFour)
{
    // Every start builds the window hidden; its command line brings it up.
    EXPECT_FALSE(shell->screen().window_shown());
    {
        ErrorForm error(form.get(), *skin, L"caption", L"text");
        Answerer answer(error, shell->screen());
        error.run();
        EXPECT_TRUE(answer.window_was_shown()) << "a dialog brings the hidden window forward";
    }
    shell->screen().show_window(false);
    form->bring_up();
    EXPECT_TRUE(shell->screen().window_shown());
    settle();
    clock_width = form->clock().size().x;
    ASSERT_NE(shell->screen().strip(), nullptr);
    strip_per_zoom = shell->screen().strip()->strip_height() / shell->screen().zoom();
    ASSERT_GT(clock_width, 0);
    expect_zoom(1);
    press(SDLK_MINUS, KMOD_LCTRL);
    expect_zoom(1);
    press(SDLK_EQUALS, KMOD_LCTRL);
    expect_zoom(2);
    press(SDLK_KP_PLUS, KMOD_RCTRL);
    press(SDLK_PLUS, KMOD_LCTRL);
    press(SDLK_PLUS, KMOD_LCTRL);
    expect_zoom(4);
    press(SDLK_KP_MINUS, KMOD_LCTRL);
    press(SDLK_MINUS, KMOD_NONE);
    expect_zoom(3);
    EXPECT_EQ(form->on_command(L"#ScreenResolution#"), 1) << "the main window takes the command by name";
    expect_zoom(3);

    // At start the zoom, kept or the largest for the screen alone, is lowered
    // until the screen and the menu bar below it (26 skin pixels) fit too.
    struct {
        int kept;
        skinner::Point desktop;
        int zoom;
    } starts[] = {{0, {1280, 1024}, 2}, {4, {1280, 1024}, 2}, {3, {1920, 1080}, 3},
                  {4, {0, 0}, 4},       {0, {200, 200}, 1}};
    for (auto start : starts) {
        skinner::SkinChoice fitted;
        auto fitted_skin = skinner::choose_skin(liba::from_utf8(skin_path.string()), start.kept, start.desktop, L"",
                                                &fitted);
        ASSERT_TRUE(fitted_skin);
        ScreenShell::fit_desktop(*fitted_skin, fitted, start.desktop);
        EXPECT_EQ(fitted.zoom, start.zoom) << start.kept << " on " << start.desktop.y;
        EXPECT_EQ(fitted.screen_size.y, 320 * start.zoom) << start.kept << " on " << start.desktop.y;
        EXPECT_EQ(fitted_skin->scale(), start.zoom) << "the skin is loaded again for the lower zoom";
    }

    // Closing the window ends the loop: the program goes on to its end.
    SDL_Event quit{};
    quit.type = SDL_QUIT;
    SDL_PushEvent(&quit);
    loop.run();
    EXPECT_TRUE(loop.quit_requested());
}

TEST(CommandLine, JoinsWithBlanksAndAnchorsRelativePaths)
{
    EXPECT_EQ(compose_command_line({}, L"/home/u"), L"");
    EXPECT_EQ(compose_command_line({"-hide"}, L"/home/u"), L"-hide");
    EXPECT_EQ(compose_command_line({"AppRunAtTime"}, L"/home/u"), L"AppRunAtTime");
    EXPECT_EQ(compose_command_line({"my", "notes.wav"}, L"/home/u"), L"/home/u/my notes.wav");
    EXPECT_EQ(compose_command_line({"../x/./y.mp3"}, L"/home/u/music"), L"/home/u/x/y.mp3");
    EXPECT_EQ(compose_command_line({"/abs/z.wav"}, L"/home/u"), L"/abs/z.wav");
    EXPECT_EQ(compose_command_line({"%my_documents%/z.wav"}, L"/home/u"), L"%my_documents%/z.wav");
    EXPECT_EQ(compose_command_line({"\"quoted.wav\""}, L"/home/u"), L"\"quoted.wav\"");
    EXPECT_EQ(compose_command_line({"\xc3\xa9t\xc3\xa9.wav"}, L"/h"), L"/h/\u00e9t\u00e9.wav");
}

TEST(Quillctl, UnknownCommandOrBadArgumentsExitTwoWithUsage)
{
    std::string out;
    EXPECT_EQ(test::run((test::program_dir() / "quillctl").string() + " frobnicate 2>&1", &out), 2);
    EXPECT_NE(out.find("usage: quillctl"), std::string::npos);
    EXPECT_EQ(test::quillctl("log maybe 2>/dev/null"), 2);
    EXPECT_EQ(test::quillctl("2>/dev/null"), 2);
    EXPECT_EQ(test::quillctl("--help", &out), 0);
    EXPECT_NE(out.find("quillctl log on|off"), std::string::npos);
}

TEST(Quillctl, LogSwitchMakesTheProgramWriteAUtf16Log)
{
    test::PrivateHome home;
    ASSERT_EQ(test::quillctl("log on"), 0);
    auto p = test::start_program("quillaphonics", {"-hide"});
    fs::path file = home.app_data() / "Quillaphonics.txt";
    ASSERT_TRUE(test::wait_for([&] { return test::read_log(home.app_data()).find(L"cmd_line[-hide] \n") != std::wstring::npos; }, 10000));
    std::string bytes = test::read_file(file);
    ASSERT_GE(bytes.size(), 2u);
    EXPECT_EQ(bytes.substr(0, 2), std::string("\xFF\xFE", 2));
    p.signal(SIGTERM);
    EXPECT_EQ(p.wait(5000), 0);

    ASSERT_EQ(test::quillctl("log off"), 0);
    fs::remove(file);
    p = test::start_program("quillaphonics", {"-hide"});
    ASSERT_TRUE(test::wait_for([&] { return fs::exists(home.runtime() / "SkinnerClass_Quillaphonics"); }, 10000));
    p.signal(SIGTERM);
    EXPECT_EQ(p.wait(5000), 0);
    EXPECT_FALSE(fs::exists(file)) << "with the log off nothing is written";
}

} // namespace

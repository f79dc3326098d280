// Times the main window as a user runs it, and prints each figure with its
// goal:
// - the tick: the main window's 0.2-second timer (meters, clock, lamps, the
//   Document's end-of-item check) and the repaint of the dirty rectangle it
//   leaves, in-process on SDL's offscreen driver with the Default skin at
//   zoom 1 and 4, idle, playing a 128 kbit/s MP3 and recording from the disk
//   capture device. Median and 95th percentile in µs; goals 1 ms at zoom 1,
//   3 ms at zoom 4.
// - CPU of the whole program at zoom 1 on a private Xvfb (a screen only zoom
//   1 fits), idle and playing the MP3 in real time on SDL's disk audio
//   driver, against ffplay -nodisp on the same file and driver in the same
//   run; from /proc/PID/stat over a window that starts after a settling
//   time. Goals: idle under 0.5 % of one core, the MP3 under 3 %.
// - start to first paint on Xvfb 1280x1024: from the exec to the moment the
//   screen logs its first present into the shown window (the log's monotonic
//   stamp), median of several starts, at the largest zoom that fits.
//   Goal: under 200 ms.
// Options: --seconds N (the CPU window, 60), --ticks N (per case, 50),
// --starts N (7).
#include "app/main_form.h"

#include "bench_support.h"
#include "liba/active.h"
#include "liba/text.h"
#include "os/event_loop.h"
#include "os/path.h"
#include "skinner/properties.h"
#include "skinner/screen.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kSkipTicks = 3; // the first ticks of a case still settle
constexpr double kSettleSeconds = 2.0;
constexpr double kGiveUpSeconds = 10.0;

struct Options {
    int seconds = 60;
    int ticks = 50;
    int starts = 7;
};

struct Files {
    fs::path program;    // quillaphonics
    fs::path quillctl;
    fs::path skin;       // Default.skin
    fs::path language;   // English.lng
    fs::path mp3;        // 128 kbit/s stereo, longer than the CPU window
    fs::path capture;    // raw 44.1 kHz stereo 16-bit for the disk capture device
    fs::path scratch;
};

double percentile(std::vector<double> v, double share)
{
    if (v.empty())
        return 0.0;
    std::sort(v.begin(), v.end());
    return v[std::min(v.size() - 1, static_cast<size_t>(share * double(v.size())))];
}

// ---- The tick, in-process

// The main window with each of its timer passes timed together with the
// screen's repaint of what the pass left dirty. The window's only timer
// while nothing is pressed is its tick.
class TimedMainForm : public MainForm {
public:
    TimedMainForm(skinner::Properties& skin, Document& document, skinner::Screen& screen)
        : MainForm(skin, document), screen_(screen)
    {
    }
    void on_timer(int id, int user_data) override
    {
        const auto start = Clock::now();
        MainForm::on_timer(id, user_data);
        const auto ticked = Clock::now();
        screen_.paint_now();
        const auto painted = Clock::now();
        micros.push_back(std::chrono::duration<double, std::micro>(painted - start).count());
        paint_micros.push_back(std::chrono::duration<double, std::micro>(painted - ticked).count());
    }
    std::vector<double> micros;       // timer pass and repaint
    std::vector<double> paint_micros; // the repaint alone

private:
    skinner::Screen& screen_;
};

bool time_ticks(const Files& files, const Options& options, Document& document, CActiveScheduler& scheduler)
{
    os::EventLoop loop(scheduler);
    bool ok = true;
    for (int zoom : {1, 4}) {
        const skinner::Point size{240 * zoom, 320 * zoom};
        skinner::Properties skin(liba::from_utf8(files.skin.string()), size);
        skin.load_language(liba::from_utf8(files.language.string()));
        skinner::Screen screen(loop, size, L"Quillaphonics", zoom);
        TimedMainForm form(skin, document, screen);
        form.show(true);
        form.set_active(true);
        screen.paint_now();
        const double goal = zoom == 1 ? 1000.0 : 3000.0;
        struct Case {
            const char* name;
            std::function<bool()> start;
        };
        const Case cases[] = {
            {"idle", [] { return true; }},
            {"playing MP3", [&] { return document.play_file(liba::from_utf8(files.mp3.string())); }},
            {"recording", [&] { return document.record(liba::from_utf8(files.scratch.string())); }},
        };
        std::printf("  zoom %d (%dx%d):\n", zoom, size.x, size.y);
        for (const Case& c : cases) {
            if (!c.start()) {
                std::fprintf(stderr, "bench_main_form: %s did not start\n", c.name);
                ok = false;
                continue;
            }
            document.notify_views();
            form.micros.clear();
            form.paint_micros.clear();
            loop.run([&] { return int(form.micros.size()) >= options.ticks + kSkipTicks; });
            std::vector<double> kept(form.micros.begin() + kSkipTicks, form.micros.end());
            std::vector<double> paints(form.paint_micros.begin() + kSkipTicks, form.paint_micros.end());
            const double p95 = percentile(kept, 0.95);
            std::printf("    %-12s median %7.1f us  p95 %7.1f us  (repaint median %7.1f us)  goal %5.0f us  %s\n",
                        c.name, percentile(kept, 0.5), p95, percentile(paints, 0.5), goal,
                        p95 < goal ? "met" : "MISSED");
            document.stop();
            document.notify_views();
        }
    }
    return ok;
}

// ---- Whole processes

// An Xvfb of its own on a display it picks itself, ended with the object.
class XServer {
public:
    explicit XServer(const std::string& screen)
    {
        int fds[2];
        if (::pipe(fds) != 0)
            return;
        pid_ = bench::spawn_quiet({"/bin/sh", "-c", "exec Xvfb -displayfd 3 -screen 0 " + screen + " -nolisten tcp 3>&" +
                                                        std::to_string(fds[1])});
        ::close(fds[1]);
        std::string number;
        pollfd p{fds[0], POLLIN, 0};
        char c = 0;
        while (pid_ > 0 && ::poll(&p, 1, 10000) == 1 && ::read(fds[0], &c, 1) == 1 && c != '\n')
            number += c;
        ::close(fds[0]);
        if (!number.empty())
            display_ = ":" + number;
    }
    ~XServer()
    {
        if (pid_ > 0) {
            ::kill(pid_, SIGTERM);
            ::waitpid(pid_, nullptr, 0);
        }
    }
    const std::string& display() const { return display_; }

private:
    int pid_ = -1;
    std::string display_;
};

double seconds_since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

void end_process(int pid)
{
    ::kill(pid, SIGTERM);
    const auto ended = Clock::now();
    while (::waitpid(pid, nullptr, WNOHANG) == 0) {
        if (seconds_since(ended) > kGiveUpSeconds)
            ::kill(pid, SIGKILL);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

// User and system seconds of every thread of `pid` so far; -1 when gone.
double cpu_seconds(int pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    if (!std::getline(in, text))
        return -1.0;
    // The name in parentheses may hold blanks; the fields after it are plain.
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::string field;
    unsigned long long utime = 0, stime = 0;
    for (int n = 3; n <= 15 && fields >> field; ++n) {
        if (n == 14)
            utime = std::stoull(field);
        else if (n == 15)
            stime = std::stoull(field);
    }
    return double(utime + stime) / double(::sysconf(_SC_CLK_TCK));
}

// The share of one core `argv` uses over `seconds` once settled; -1 when it
// failed to start or ended early.
double cpu_share(const std::vector<std::string>& argv, int seconds)
{
    const int pid = bench::spawn_quiet(argv);
    if (pid < 0)
        return -1.0;
    std::this_thread::sleep_for(std::chrono::duration<double>(kSettleSeconds));
    const double before = cpu_seconds(pid);
    const auto start = Clock::now();
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    const double after = cpu_seconds(pid);
    const double wall = seconds_since(start);
    const bool alive = ::waitpid(pid, nullptr, WNOHANG) == 0;
    end_process(pid);
    return alive && before >= 0.0 && after >= before ? (after - before) / wall : -1.0;
}

bool time_cpu(const Files& files, const Options& options)
{
    // Only zoom 1 fits this screen, whatever the settings hold.
    XServer x("640x480x24");
    if (x.display().empty()) {
        std::fprintf(stderr, "bench_main_form: Xvfb did not start\n");
        return false;
    }
    setenv("DISPLAY", x.display().c_str(), 1);
    setenv("SDL_VIDEODRIVER", "x11", 1);
    setenv("SDL_AUDIODRIVER", "disk", 1);
    setenv("SDL_DISKAUDIOFILE", "/dev/null", 1);
    unsetenv("SDL_DISKAUDIODELAY");
    struct Run {
        const char* name;
        std::vector<std::string> argv;
        double goal;
        double share = 0.0;
    };
    Run runs[] = {
        {"quillaphonics, idle", {files.program.string()}, 0.005},
        {"quillaphonics FILE", {files.program.string(), files.mp3.string()}, 0.03},
        {"ffplay -nodisp -autoexit FILE", {"ffplay", "-nodisp", "-autoexit", "-loglevel", "quiet", files.mp3.string()}, 0},
    };
    for (Run& r : runs) {
        r.share = cpu_share(r.argv, options.seconds);
        if (r.share < 0.0) {
            std::fprintf(stderr, "bench_main_form: %s did not run for %d s\n", r.name, options.seconds);
            return false;
        }
    }
    std::printf("CPU at zoom 1 on Xvfb, SDL disk audio in real time, %d s after %.0f s settling:\n", options.seconds,
                kSettleSeconds);
    const double peer = runs[2].share;
    for (const Run& r : runs) {
        std::printf("  %-32s %6.3f %% of one core", r.name, r.share * 100.0);
        if (r.goal > 0.0)
            std::printf("  goal %.1f %%  %s", r.goal * 100.0, r.share < r.goal ? "met" : "MISSED");
        if (&r == &runs[1])
            std::printf("  ratio to ffplay %.2f", peer > 0.0 ? r.share / peer : 0.0);
        std::printf("\n");
    }
    return true;
}

// The log file as ASCII: its UTF-16LE code units below 128.
std::string read_log(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::string text;
    for (size_t at = 0; at + 1 < bytes.size(); at += 2)
        if (bytes[at + 1] == 0 && static_cast<unsigned char>(bytes[at]) < 128)
            text += bytes[at];
    return text;
}

// Seconds from the exec of the program to its first present, as the screen
// logs it; -1 when none came.
double first_paint(const Files& files, const fs::path& log)
{
    static const std::string kLine = "screen: first paint, monotonic ";
    fs::remove(log);
    const auto start = Clock::now();
    const int pid = bench::spawn_quiet({files.program.string()});
    double found = -1.0;
    while (pid > 0 && found < 0.0 && seconds_since(start) < kGiveUpSeconds) {
        const std::string text = read_log(log);
        const size_t at = text.find(kLine);
        if (at != std::string::npos && text.find(" us\n", at) != std::string::npos) {
            const double painted_us = std::atof(text.c_str() + at + kLine.size());
            found = (painted_us - std::chrono::duration<double, std::micro>(start.time_since_epoch()).count()) * 1e-6;
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
    if (pid > 0)
        end_process(pid);
    return found;
}

bool time_first_paint(const Files& files, const Options& options)
{
    XServer x("1280x1024x24");
    if (x.display().empty()) {
        std::fprintf(stderr, "bench_main_form: Xvfb did not start\n");
        return false;
    }
    setenv("DISPLAY", x.display().c_str(), 1);
    setenv("SDL_VIDEODRIVER", "x11", 1);
    setenv("SDL_AUDIODRIVER", "dummy", 1);
    if (bench::run({files.quillctl.string(), "log", "on"}).ok == false) {
        std::fprintf(stderr, "bench_main_form: quillctl log on failed\n");
        return false;
    }
    const fs::path log = fs::path(getenv("XDG_CONFIG_HOME")) / "quillaphonics" / "Quillaphonics.txt";
    std::vector<double> times;
    // The first start warms the page cache.
    for (int i = 0; i <= options.starts; ++i) {
        const double t = first_paint(files, log);
        if (t < 0.0) {
            std::fprintf(stderr, "bench_main_form: no first paint logged in %s\n", log.c_str());
            return false;
        }
        if (i > 0)
            times.push_back(t);
    }
    const double median = percentile(times, 0.5);
    std::printf("Start to first paint on Xvfb 1280x1024, median of %d: %.1f ms (best %.1f)  goal 200 ms  %s\n",
                options.starts, median * 1000.0, *std::min_element(times.begin(), times.end()) * 1000.0,
                median < 0.2 ? "met" : "MISSED");
    return true;
}

bool parse(int argc, char** argv, Options& options)
{
    for (int i = 1; i + 1 < argc; i += 2) {
        const int value = std::atoi(argv[i + 1]);
        if (value < 1)
            return false;
        if (!std::strcmp(argv[i], "--seconds"))
            options.seconds = value;
        else if (!std::strcmp(argv[i], "--ticks"))
            options.ticks = value;
        else if (!std::strcmp(argv[i], "--starts"))
            options.starts = value;
        else
            return false;
    }
    return argc % 2 == 1;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    if (!parse(argc, argv, options)) {
        std::fprintf(stderr, "usage: bench_main_form [--seconds N] [--ticks N] [--starts N]\n");
        return 2;
    }
    const char* kName = "bench_main_form";
    const fs::path here = bench::here();
    // The MP3 outlasts the settling and the CPU window.
    const int mp3_seconds = std::max(90, options.seconds + 30);
    Files files{bench::built_program("quillaphonics", kName),
                bench::built_program("quillctl", kName),
                bench::built_program("skins/Default/Default.skin", kName),
                bench::built_program("English.lng", kName),
                here / "bench_media" / ("music_" + std::to_string(mp3_seconds) + "s_128k_stereo.mp3"),
                here / "bench_media" / "capture_60s_44k_stereo.raw",
                {}};
    if (files.program.empty() || files.quillctl.empty() || files.skin.empty() || files.language.empty() ||
        !bench::peers_installed({"ffplay", "Xvfb", "sox", "lame"}, kName))
        return 1;
    if (!bench::make_once(files.mp3,
                          "sox -V1 -n -r 44100 -c 2 -b 16 -t wav - synth " + std::to_string(mp3_seconds) +
                              " sine 100-8000 pinknoise gain -10 | lame --quiet -b 128 - \"$0\"",
                          kName) ||
        !bench::make_once(files.capture,
                          "sox -V1 -n -r 44100 -c 2 -b 16 -t raw \"$0\" synth 60 sine 440 vol 0.4 dcshift 0.3", kName))
        return 1;
    char scratch_template[] = "/tmp/bench_main_form.XXXXXX";
    if (!mkdtemp(scratch_template) || !bench::use_private_home(scratch_template)) {
        std::fprintf(stderr, "bench_main_form: no scratch folder\n");
        return 1;
    }
    files.scratch = scratch_template;

    bool ok = true;
    {
        std::printf("Main window tick (timer pass and dirty repaint), offscreen, %d ticks a case:\n", options.ticks);
        setenv("SDL_VIDEODRIVER", "offscreen", 1);
        setenv("SDL_AUDIODRIVER", "disk", 1);
        setenv("SDL_DISKAUDIOFILE", "/dev/null", 1);
        setenv("SDL_DISKAUDIOFILEIN", files.capture.c_str(), 1);
        unsetenv("SDL_DISKAUDIODELAY");
        os::init_path_macros();
        CActiveScheduler scheduler;
        Document document(liba::from_utf8((files.scratch / "settings.xml").string()));
        ok = time_ticks(files, options, document, scheduler);
    }
    std::fflush(stdout);
    ok = time_cpu(files, options) && ok;
    std::fflush(stdout);
    ok = time_first_paint(files, options) && ok;
    std::error_code ec;
    fs::remove_all(files.scratch, ec);
    return ok ? 0 : 1;
}

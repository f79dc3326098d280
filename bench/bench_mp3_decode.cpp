// Times the MP3 decode of a 10-minute 128 kbit/s stereo file to raw PCM:
// FileReaderMP3 into DecoderMP3 (mp3_decode_pipeline) against a minimal C
// loop over libmad (mp3_decode_plain) and against madplay, all in one run on
// the same file, and prints the ratios. Goal: the pipeline takes at most 1.10
// times the plain loop's CPU time. The file is made once with sox and lame
// and kept beside this program.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <utility>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace fs = std::filesystem;

namespace {

constexpr int kRounds = 5;
constexpr double kGoal = 1.10;

struct Timing {
    double cpu = 0.0;  // user and system seconds of the child
    double wall = 0.0; // seconds
    std::string out;   // what it printed
    bool ok = false;
};

double seconds(const timeval& t) { return double(t.tv_sec) + double(t.tv_usec) * 1e-6; }

// Runs `argv` with its standard output into a pipe and measures it.
Timing run(const std::vector<std::string>& argv)
{
    Timing t;
    int pipe_fds[2];
    if (pipe(pipe_fds) != 0)
        return t;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipe_fds[1], 1);
    posix_spawn_file_actions_addclose(&actions, pipe_fds[0]);
    std::vector<char*> args;
    for (const auto& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    timespec start, end;
    clock_gettime(CLOCK_MONOTONIC, &start);
    pid_t pid = -1;
    int spawned = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(pipe_fds[1]);
    if (spawned != 0) {
        close(pipe_fds[0]);
        return t;
    }
    char buf[256];
    ssize_t n;
    while ((n = read(pipe_fds[0], buf, sizeof buf)) > 0)
        t.out.append(buf, static_cast<size_t>(n));
    close(pipe_fds[0]);
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    clock_gettime(CLOCK_MONOTONIC, &end);
    t.wall = double(end.tv_sec - start.tv_sec) + double(end.tv_nsec - start.tv_nsec) * 1e-9;
    t.cpu = seconds(usage.ru_utime) + seconds(usage.ru_stime);
    t.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return t;
}

bool on_path(const char* program)
{
    std::string cmd = std::string("command -v ") + program + " >/dev/null 2>&1";
    return std::system(cmd.c_str()) == 0;
}

struct Contender {
    Contender(std::string n, std::vector<std::string> a) : name(std::move(n)), argv(std::move(a)) {}
    std::string name;
    std::vector<std::string> argv;
    double cpu = 1e300;
    double wall = 1e300;
    std::string out;
    bool ok = true;
};

} // namespace

int main()
{
    fs::path here = fs::read_symlink("/proc/self/exe").parent_path();
    fs::path media = here / "bench_media";
    fs::path mp3 = media / "mp3_10min_128k_stereo.mp3";
    if (!fs::exists(mp3)) {
        fs::create_directories(media);
        std::printf("bench_mp3_decode: making %s with sox and lame\n", mp3.c_str());
        std::fflush(stdout);
        std::string make = "sox -V1 -n -r 44100 -c 2 -b 16 -t wav - synth 600 sine 100-8000 pinknoise gain -10 "
                           "| lame --quiet -b 128 - '" + (media / "partial.mp3").string() + "' && mv '" +
                           (media / "partial.mp3").string() + "' '" + mp3.string() + "'";
        if (std::system(make.c_str()) != 0) {
            std::fprintf(stderr, "bench_mp3_decode: could not make the test file\n");
            return 1;
        }
    }

    std::vector<Contender> contenders = {
        {"plain libmad loop", {(here / "mp3_decode_plain").string(), mp3.string(), "/dev/null"}},
        {"FileReaderMP3 + DecoderMP3", {(here / "mp3_decode_pipeline").string(), mp3.string(), "/dev/null"}},
    };
    // The same decode as a user runs it: the program's play chain pulled in
    // the player's requests, its samples to standard output.
    fs::path quillctl = here.parent_path() / "program" / "quillctl";
    if (fs::exists(quillctl))
        contenders.emplace_back("quillctl decode FILE -",
                                std::vector<std::string>{"/bin/sh", "-c", "exec \"$0\" decode \"$1\" - >/dev/null",
                                                         quillctl.string(), mp3.string()});
    if (on_path("madplay"))
        contenders.emplace_back("madplay -o raw:/dev/null",
                                std::vector<std::string>{"madplay", "-q", "-o", "raw:/dev/null", mp3.string()});
    else
        std::printf("bench_mp3_decode: madplay is not installed; it is left out\n");

    // One warm-up round fills the page cache; then the contenders take
    // turns, and each keeps its best time.
    for (auto& c : contenders)
        c.ok = run(c.argv).ok;
    for (int round = 0; round < kRounds; ++round) {
        for (auto& c : contenders) {
            Timing t = run(c.argv);
            c.ok = c.ok && t.ok;
            c.cpu = std::min(c.cpu, t.cpu);
            c.wall = std::min(c.wall, t.wall);
            c.out = t.out;
        }
    }
    for (const auto& c : contenders) {
        if (!c.ok) {
            std::fprintf(stderr, "bench_mp3_decode: %s failed\n", c.name.c_str());
            return 1;
        }
    }
    const Contender& plain = contenders[0];
    const Contender& ours = contenders[1];
    std::printf("MP3 decode of 10 minutes at 128 kbit/s stereo to raw, best of %d runs:\n", kRounds);
    for (const auto& c : contenders)
        std::printf("  %-30s cpu %6.3f s  wall %6.3f s  cpu ratio %.3f  wall ratio %.3f\n", c.name.c_str(),
                    c.cpu, c.wall, c.cpu / plain.cpu, c.wall / plain.wall);
    if (plain.out != ours.out)
        std::printf("  note: the PCM differs in length: plain %s bytes, ours %s bytes\n", plain.out.c_str(),
                    ours.out.c_str());
    double ratio = ours.cpu / plain.cpu;
    std::printf("  goal: FileReaderMP3 + DecoderMP3 at most %.2f x the plain loop: %.3f, %s\n", kGoal, ratio,
                ratio <= kGoal ? "met" : "MISSED");
    return 0;
}

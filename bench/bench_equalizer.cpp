// Times three active equaliser bands over a 10-minute 44.1 kHz stereo WAV
// made with sox at the first run: FileReaderWAVPCM into three EqualizerPCM
// (equalizer_pipeline) against ffmpeg with three equalizer filters on one
// filter thread and against sox with three equalizer effects, all writing
// raw PCM to /dev/null, and prints the ratios. Goal: no slower than ffmpeg
// and at most half of sox's CPU time.
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
    fs::path wav = media / "pcm_10min_44100_stereo.wav";
    if (!fs::exists(wav)) {
        fs::create_directories(media);
        std::printf("bench_equalizer: making %s with sox\n", wav.c_str());
        std::fflush(stdout);
        const fs::path partial = media / "partial.wav";
        std::string make = "sox -V1 -n -r 44100 -c 2 -b 16 '" + partial.string() +
                           "' synth 600 sine 100-8000 pinknoise gain -12 && mv '" + partial.string() + "' '" +
                           wav.string() + "'";
        if (std::system(make.c_str()) != 0) {
            std::fprintf(stderr, "bench_equalizer: could not make the test file\n");
            return 1;
        }
    }
    // Hz, octaves, dB of the three bands, as equalizer_pipeline sets them.
    const std::vector<std::string> sox_bands = {"equalizer", "100", "1o", "4", "equalizer", "1000", "1o", "-6",
                                                "equalizer", "6000", "2o", "3"};
    const std::string ffmpeg_bands = "equalizer=f=100:t=o:w=1:g=4,equalizer=f=1000:t=o:w=1:g=-6,"
                                     "equalizer=f=6000:t=o:w=2:g=3";
    std::vector<Contender> contenders = {
        {"3 x EqualizerPCM", {(here / "equalizer_pipeline").string(), wav.string(), "/dev/null"}},
        {"ffmpeg, 3 x equalizer", {"ffmpeg", "-nostdin", "-loglevel", "error", "-filter_threads", "1", "-i",
                                    wav.string(), "-af", ffmpeg_bands, "-f", "s16le", "-y", "/dev/null"}},
    };
    std::vector<std::string> sox = {"sox", "-D", wav.string(), "-t", "raw", "/dev/null"};
    sox.insert(sox.end(), sox_bands.begin(), sox_bands.end());
    contenders.emplace_back("sox, 3 x equalizer", sox);

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
        }
    }
    for (const auto& c : contenders) {
        if (!c.ok) {
            std::fprintf(stderr, "bench_equalizer: %s failed\n", c.name.c_str());
            return 1;
        }
    }
    const Contender& ours = contenders[0];
    std::printf("Three equaliser bands over 10 minutes of 44.1 kHz stereo to /dev/null, best of %d runs:\n",
                kRounds);
    for (const auto& c : contenders)
        std::printf("  %-24s cpu %6.3f s  wall %6.3f s  ours / this: cpu %.3f  wall %.3f\n", c.name.c_str(), c.cpu,
                    c.wall, ours.cpu / c.cpu, ours.wall / c.wall);
    const double to_ffmpeg = ours.cpu / contenders[1].cpu, to_sox = ours.cpu / contenders[2].cpu;
    std::printf("  goal: no slower than ffmpeg (cpu ratio %.3f, %s), at most half of sox (cpu ratio %.3f, %s)\n",
                to_ffmpeg, to_ffmpeg <= 1.0 ? "met" : "MISSED", to_sox, to_sox <= 0.5 ? "met" : "MISSED");
    return 0;
}

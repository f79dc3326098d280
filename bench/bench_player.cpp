// Times the player as a user meets it, against ffplay on the same SDL disk
// audio driver in the same run, and prints the ratios:
// - first sound: from the start of `quillaphonics tone.wav` to the first
//   sample of the file reaching the device (the driver writes into a FIFO
//   with no delay; the tone has no frame equal to the device's silence, so
//   the first byte that is not 0 is the first buffer the player handed over).
//   Goal: under 150 ms.
// - CPU while playing 30 s of a 128 kbit/s 44.1 kHz stereo MP3 in real time
//   (the driver paced to the clock, writing to /dev/null), measured over the
//   first 20 s of the playing, start-up included. Goal: under 3% of one core.
// Each program runs in a private home, so a running instance of the user's is
// never asked to play, and its settings are never touched.
#include "bench_support.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr int kStartRounds = 7;
constexpr int kPlayRounds = 2;
constexpr int kPlayWindowSeconds = 20;
constexpr double kStartGoalSeconds = 0.150;
constexpr double kCpuGoalShare = 0.03;
constexpr double kGiveUpSeconds = 10.0;

double now()
{
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

// Seconds from the start of `argv` until a byte that is not 0 comes out of
// `fifo`, where the disk driver writes; -1 when none comes in time. The
// program is ended with SIGTERM afterwards.
double first_sound(const std::vector<std::string>& argv, const fs::path& fifo)
{
    // Opened before the program, so the driver's open for writing never
    // waits for us.
    int fd = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    if (fd < 0)
        return -1.0;
    const double start = now();
    pid_t pid = bench::spawn_quiet(argv);
    double found = -1.0;
    char buf[65536];
    while (pid > 0 && found < 0.0 && now() - start < kGiveUpSeconds) {
        pollfd p{fd, POLLIN, 0};
        poll(&p, 1, 1);
        ssize_t n = read(fd, buf, sizeof buf);
        if (n <= 0) {
            // No writer yet (end of file) or nothing written: look again soon.
            timespec pause{0, 200000};
            nanosleep(&pause, nullptr);
            continue;
        }
        if (std::any_of(buf, buf + n, [](char c) { return c != 0; }))
            found = now() - start;
    }
    if (pid > 0) {
        kill(pid, SIGTERM);
        const double ended = now();
        // Drain, so a writer blocked on a full FIFO sees the signal.
        while (waitpid(pid, nullptr, WNOHANG) == 0) {
            if (now() - ended > kGiveUpSeconds)
                kill(pid, SIGKILL);
            if (read(fd, buf, sizeof buf) <= 0) {
                timespec pause{0, 1000000};
                nanosleep(&pause, nullptr);
            }
        }
    }
    close(fd);
    return found;
}

struct Player {
    std::string name;
    std::vector<std::string> argv; // followed by the file to play
    double first = 1e300;          // best seconds to the first sound
    double cpu_share = 0.0;        // best CPU seconds per second of playing
};

std::vector<std::string> with_file(const Player& p, const fs::path& file)
{
    std::vector<std::string> argv = p.argv;
    argv.push_back(file.string());
    return argv;
}

bool time_first_sound(std::vector<Player>& players, const fs::path& wav, const fs::path& fifo)
{
    setenv("SDL_DISKAUDIOFILE", fifo.c_str(), 1);
    setenv("SDL_DISKAUDIODELAY", "0", 1);
    for (int round = 0; round <= kStartRounds; ++round) {
        for (Player& p : players) {
            double t = first_sound(with_file(p, wav), fifo);
            if (t < 0.0) {
                std::fprintf(stderr, "bench_player: no sound from %s\n", p.name.c_str());
                return false;
            }
            // Round 0 warms the page cache.
            if (round > 0)
                p.first = std::min(p.first, t);
        }
    }
    return true;
}

// Each program plays for the window and is ended there by timeout(1), whose
// own exit status 124 says that the program was still playing.
bool time_playing(std::vector<Player>& players, const fs::path& mp3)
{
    setenv("SDL_DISKAUDIOFILE", "/dev/null", 1);
    unsetenv("SDL_DISKAUDIODELAY");
    std::vector<bench::Contender> contenders;
    for (const Player& p : players) {
        std::vector<std::string> argv = {"/bin/sh", "-c",
                                         "timeout -s TERM " + std::to_string(kPlayWindowSeconds) +
                                             " \"$@\" >/dev/null 2>&1; test $? -eq 124",
                                         "sh"};
        for (const std::string& a : with_file(p, mp3))
            argv.push_back(a);
        contenders.emplace_back(p.name, argv);
    }
    if (!bench::race(contenders, kPlayRounds, "bench_player"))
        return false;
    for (size_t i = 0; i < players.size(); ++i)
        players[i].cpu_share = contenders[i].cpu / contenders[i].wall;
    return true;
}

} // namespace

int main()
{
    const fs::path here = bench::here();
    const fs::path media = here / "bench_media";
    const fs::path wav = media / "tone_44k_stereo_5s.wav";
    const fs::path mp3 = media / "music_30s_128k_stereo.mp3";
    if (!bench::make_once(wav, "sox -V1 -n -r 44100 -c 2 -b 16 \"$0\" synth 5 sine 440 vol 0.4 dcshift 0.5",
                          "bench_player") ||
        !bench::make_once(mp3,
                          "sox -V1 -n -r 44100 -c 2 -b 16 -t wav - synth 30 sine 100-8000 pinknoise gain -10 "
                          "| lame --quiet -b 128 - \"$0\"",
                          "bench_player"))
        return 1;
    const fs::path program = bench::built_program("quillaphonics", "bench_player");
    if (program.empty() || !bench::peers_installed({"ffplay"}, "bench_player"))
        return 1;

    char scratch_template[] = "/tmp/bench_player.XXXXXX";
    if (!mkdtemp(scratch_template))
        return 1;
    const fs::path scratch = scratch_template;
    const fs::path fifo = scratch / "device.fifo";
    if (!bench::use_private_home(scratch) || mkfifo(fifo.c_str(), 0600) != 0) {
        std::fprintf(stderr, "bench_player: can't prepare %s\n", scratch.c_str());
        return 1;
    }
    setenv("SDL_AUDIODRIVER", "disk", 1);
    setenv("SDL_VIDEODRIVER", "offscreen", 1);

    std::vector<Player> players = {
        {"quillaphonics FILE", {program.string()}},
        {"ffplay -nodisp -autoexit FILE", {"ffplay", "-nodisp", "-autoexit", "-loglevel", "quiet"}},
    };
    const bool ok = time_first_sound(players, wav, fifo) && time_playing(players, mp3);
    std::error_code ec;
    fs::remove_all(scratch, ec);
    if (!ok)
        return 1;

    const Player& ours = players[0];
    const Player& peer = players[1];
    std::printf("Player on SDL's disk audio driver, against ffplay in the same run:\n");
    std::printf("  first sound of a 44.1 kHz stereo WAV (delay 0), best of %d:\n", kStartRounds);
    for (const Player& p : players)
        std::printf("    %-32s %7.1f ms  ratio %.2f\n", p.name.c_str(), p.first * 1000.0, p.first / peer.first);
    std::printf("  CPU playing a 128 kbit/s stereo MP3 in real time, first %d s, best of %d:\n", kPlayWindowSeconds,
                kPlayRounds);
    for (const Player& p : players)
        std::printf("    %-32s %6.2f %% of one core  ratio %.2f\n", p.name.c_str(), p.cpu_share * 100.0,
                    p.cpu_share / peer.cpu_share);
    std::printf("  goal: first sound under %.0f ms: %.1f ms, %s\n", kStartGoalSeconds * 1000.0, ours.first * 1000.0,
                ours.first < kStartGoalSeconds ? "met" : "MISSED");
    std::printf("  goal: CPU under %.0f %% of one core: %.2f %%, %s\n", kCpuGoalShare * 100.0,
                ours.cpu_share * 100.0, ours.cpu_share < kCpuGoalShare ? "met" : "MISSED");
    return 0;
}

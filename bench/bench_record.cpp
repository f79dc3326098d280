// Records 10 minutes (or the seconds given) of 44.1 kHz stereo input to MP3
// at 128 kbit/s through the program's record path, from SDL's disk driver
// paced in real time, and encodes the same input with lame as the peer. With
// --stress, stress-ng loads both cores meanwhile and everything is pinned to
// cores 0 and 1. Goal: no overrun, no frame lost, every frame the recorder
// pushed reaching the encoder, and the MP3 decoding to the input's length
// less at most about three frames (the encoder's tail is dropped) plus
// LAME's start delay. Prints the figures, the CPU use of the recording and
// its ratio to lame's.
// Usage: bench_record [SECONDS] [--stress]
#include "bench_support.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

namespace fs = std::filesystem;

namespace {

std::map<std::string, std::string> fields(const std::string& out)
{
    std::map<std::string, std::string> m;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
        if (auto colon = line.find(": "); colon != std::string::npos)
            m[line.substr(0, colon)] = line.substr(colon + 2);
    }
    return m;
}

std::vector<std::string> pinned(std::vector<std::string> argv, bool pin)
{
    if (pin && bench::on_path("taskset"))
        argv.insert(argv.begin(), {"taskset", "-c", "0,1"});
    return argv;
}

pid_t start_stress(int seconds)
{
    std::vector<std::string> args = {"taskset", "-c", "0,1", "stress-ng", "--quiet", "--cpu", "2", "--timeout",
                                     std::to_string(seconds + 60) + "s"};
    std::vector<char*> argv;
    for (auto& a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawnp(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0)
        return -1;
    return pid;
}

} // namespace

int main(int argc, char** argv)
{
    int seconds = 600;
    bool stress = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--stress") == 0)
            stress = true;
        else
            seconds = std::atoi(argv[i]);
    }
    if (seconds <= 0) {
        std::fprintf(stderr, "usage: bench_record [SECONDS] [--stress]\n");
        return 2;
    }
    const fs::path here = bench::here();
    const fs::path raw = here / "bench_media" / ("record_" + std::to_string(seconds) + "s_44100_stereo.raw");
    if (!bench::make_once(raw,
                          "sox -V1 -n -r 44100 -c 2 -b 16 -e signed-integer -t raw \"$0\" synth " +
                              std::to_string(seconds) + " sine 100-8000 pinknoise gain -10",
                          "bench_record"))
        return 1;
    if (stress && !bench::peers_installed({"stress-ng"}, "bench_record"))
        return 1;
    const fs::path mp3 = here / "bench_media" / "record_out.mp3";
    pid_t load = stress ? start_stress(seconds) : -1;
    bench::Timing ours = bench::run(pinned({(here / "record_pipeline").string(), raw.string(), mp3.string()}, stress));
    bench::Timing lame = bench::run(pinned({"lame", "--quiet", "-r", "-s", "44.1", "--bitwidth", "16", "--signed",
                                            "--little-endian", "-m", "s", "-b", "128", raw.string(), "/dev/null"},
                                           stress));
    if (load > 0) {
        kill(load, SIGTERM);
        waitpid(load, nullptr, 0);
    }
    std::map<std::string, std::string> f = fields(ours.out);
    if (f.empty()) {
        std::fprintf(stderr, "bench_record: the recording printed nothing\n");
        return 1;
    }
    std::string decoded;
    {
        bench::Timing d = bench::run({"sh", "-c", "ffmpeg -v error -i \"$0\" -f s16le - | wc -c", mp3.string()});
        decoded = d.out.substr(0, d.out.find('\n'));
    }
    const long long input = std::atoll(f["input_frames"].c_str());
    const long long pushed = std::atoll(f["pushed_frames"].c_str());
    const long long encoded = std::atoll(f["encoder_frames"].c_str());
    const long long lost = std::atoll(f["lost_frames"].c_str());
    const long long out_frames = std::atoll(decoded.c_str()) / 4;
    std::printf("Recording %d s of 44.1 kHz stereo to MP3 at 128 kbit/s%s:\n", seconds,
                stress ? " under stress-ng on both cores" : "");
    std::printf("  frames: input %lld, pushed by the recorder %lld, reaching the encoder %lld, lost at the device %lld\n",
                input, pushed, encoded, lost);
    std::printf("  overrun: %s; writer good: %s; most queued: %s bytes\n", f["overrun"].c_str(),
                f["writer_good"].c_str(), f["max_pending_bytes"].c_str());
    std::printf("  MP3 decodes to %lld frames: %lld short of what reached the encoder (goal: at most about 3 x 1152 "
                "plus LAME's start delay)\n",
                out_frames, encoded - out_frames);
    std::printf("  recording: cpu %.3f s over wall %.3f s = %.2f%% of one core\n", ours.cpu, ours.wall,
                100.0 * ours.cpu / ours.wall);
    std::printf("  lame -r on the same input: cpu %.3f s; recording / lame cpu ratio %.3f\n", lame.cpu,
                ours.cpu / lame.cpu);
    const long long shortfall = encoded - out_frames;
    const bool goal = ours.ok && f["overrun"] == "no" && lost == 0 && pushed == encoded && pushed >= input &&
                      shortfall <= 3 * 1152 + 1105 && shortfall >= -1105;
    std::printf("  goal %s\n", goal ? "met" : "MISSED");
    return goal ? 0 : 1;
}

// Shared by the benchmarks: runs whole processes, keeps each contender's
// best (or median) CPU and wall time over alternating rounds, and makes bench
// media once.
// Called from a benchmark's main thread only. Times are in seconds.
#pragma once

#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

namespace bench {

struct Timing {
    double cpu = 0.0;  // user and system seconds of the child
    double wall = 0.0; // seconds
    std::string out;   // what it printed on standard output
    bool ok = false;   // exited with 0
};

// Runs `argv` (searched on PATH) with its standard output into a pipe.
Timing run(const std::vector<std::string>& argv);

struct Contender {
    Contender(std::string n, std::vector<std::string> a);
    std::string name;
    std::vector<std::string> argv;
    double cpu = 1e300;
    double wall = 1e300;
    std::string out; // standard output of the last round
    bool ok = true;
};

// One warm-up round fills the page cache; then the contenders take turns
// for `rounds` rounds and each keeps its best times. False, with a line on
// stderr naming `bench` and the contender, when any run failed.
bool race(std::vector<Contender>& contenders, int rounds, const char* bench);
// The same, keeping each contender's median times instead.
bool race_median(std::vector<Contender>& contenders, int rounds, const char* bench);

// The folder of the running benchmark program.
std::filesystem::path here();

// Makes `file` with the shell command `make`, which writes "$0": a partial
// name beside `file` with its extension, renamed into place on success.
// Does nothing when `file` is already there.
bool make_once(const std::filesystem::path& file, const std::string& make, const char* bench);

bool on_path(const char* program);
// True when every one of `peers` is on PATH; else false, with a line naming
// `bench` and the first one missing.
bool peers_installed(std::initializer_list<const char*> peers, const char* bench);
// This build's program `name` (quillaphonics, quillctl); empty, with a line
// naming `bench`, when it is not built.
std::filesystem::path built_program(const char* name, const char* bench);

// ffmpeg on one filter thread running `filter` over `input`, writing raw
// 16-bit PCM to /dev/null.
std::vector<std::string> ffmpeg_filter(const std::filesystem::path& input, const std::string& filter);
// Ten minutes of 44.1 kHz stereo sweep and noise, made by sox at the first
// run into the bench media; empty, with a line naming `bench`, when it could
// not be made.
std::filesystem::path long_pcm(const char* bench);

// Points HOME, XDG_CONFIG_HOME, XDG_DATA_HOME and XDG_RUNTIME_DIR at fresh
// folders below `root`, so a program we start never asks a running instance
// of the user's to act and never touches the user's settings.
bool use_private_home(const std::filesystem::path& root);

// Starts `argv` (searched on PATH) with its standard streams on /dev/null;
// its process id, or -1 when it can't.
int spawn_quiet(const std::vector<std::string>& argv);

} // namespace bench

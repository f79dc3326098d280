#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <sys/types.h>
#include <vector>

// Shared helpers of the test programs. Threads: the test's main thread.
namespace test {

// The folder of files made at build time by sox, lame, oggenc and friends.
std::filesystem::path media_dir();
// Files there whose names match a shell pattern ("pcm_*.wav"), sorted.
std::vector<std::filesystem::path> media(const std::string& pattern);
// The program folder of this build tree (quillaphonics, quillctl, skins/…).
std::filesystem::path program_dir();

// A path as the program's wide text.
std::wstring wide(const std::filesystem::path& p);

// A fresh folder under the system's temporary folder, removed with the object.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

// Points HOME, XDG_CONFIG_HOME, XDG_DATA_HOME and XDG_RUNTIME_DIR of this
// process at private folders below a TempDir, so a test never touches the
// user's own settings; restores the old values when it goes.
class PrivateHome {
public:
    PrivateHome();
    ~PrivateHome();
    const std::filesystem::path& root() const { return dir_.path(); }
    std::filesystem::path config() const { return dir_.path() / "config"; }
    std::filesystem::path app_data() const { return config() / "quillaphonics"; }
    std::filesystem::path runtime() const { return dir_.path() / "runtime"; }

private:
    TempDir dir_;
    std::vector<std::pair<std::string, std::string>> saved_;
    std::vector<std::string> unset_;
};

// Sets (or, with a null value, unsets) one environment variable for the
// length of a scope.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value);
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    const char* name_;
    std::string old_;
    bool had_ = false;
};

// Runs a shell command; returns its exit status, its standard output in `out`.
int run(const std::string& command, std::string* out = nullptr);
// `s` in single quotes for the shell.
std::string quote(const std::string& s);
// The standard output of a command that must succeed (else the test fails).
std::string run_out(const std::string& command);
// The one media file of that name (else the test fails and the path is empty).
std::filesystem::path one_media(const std::string& name);
// What sox decodes of `f` as 16-bit little-endian samples: all of it, or its
// first `frames` sample frames.
std::string sox16(const std::filesystem::path& f, std::size_t frames = 0);
// A number soxi reports of `f` ("-c", "-r", "-b", "-s").
int soxi_int(const std::filesystem::path& f, const std::string& option);
// The unsigned little-endian number of `bytes` bytes at `at` of `s`.
std::uint32_t le(const std::string& s, std::size_t at, int bytes = 4);
// Raw 16-bit little-endian samples as numbers.
std::vector<std::int16_t> samples_of(const std::string& raw);

// A run of quillctl: its exit status and what it wrote.
struct QuillctlRun {
    int status = -1;
    std::string out;
    std::string err;
};
// Runs quillctl with `args`, each quoted, in the folder `scratch` (which
// relative paths start from); standard error goes through a file there.
QuillctlRun run_quillctl(const std::vector<std::string>& args, const std::filesystem::path& scratch);
// Expects one line on standard error, naming `what`.
void expect_one_line_naming(const QuillctlRun& r, const std::string& what);

// Waits for a forked child; its exit code, 128 + the signal that ended it,
// or -1.
int exit_code_of(pid_t child);
// Runs `body` in a forked child; returns its exit code (128 + the signal
// when a signal ended it).
int run_in_child(const std::function<int()>& body);
// The same in a child that file permissions apply to: as root the child
// first hands `tree` to user nobody and becomes nobody.
int run_unprivileged(const std::filesystem::path& tree, const std::function<int()>& body);
// Forks `writers` children that each call write(child) over and over, kills
// them after a pause of `min_us` to `max_us` microseconds drawn from `rng`,
// and waits for them: what they leave is what a crash mid-write leaves.
void kill_writers_midway(int writers, int min_us, int max_us, std::mt19937& rng,
                         const std::function<void(int child)>& write);

std::string read_file(const std::filesystem::path& p);
void write_file(const std::filesystem::path& p, const std::string& bytes);

// A private Xvfb with one screen of `screen` ("1280x1024x24") on a display
// it picks itself, ended with the object; display() (":N") is empty when
// it did not start.
class XServer {
public:
    explicit XServer(const std::string& screen = "1280x1024x24");
    ~XServer();
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;
    const std::string& display() const { return display_; }

private:
    pid_t pid_ = -1;
    std::string display_;
};

} // namespace test

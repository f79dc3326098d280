#include "bench_support.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <utility>
#include <vector>

extern char** environ;

namespace bench {

namespace {

double seconds(const timeval& t) { return double(t.tv_sec) + double(t.tv_usec) * 1e-6; }

double since(const timespec& start)
{
    timespec end;
    clock_gettime(CLOCK_MONOTONIC, &end);
    return double(end.tv_sec - start.tv_sec) + double(end.tv_nsec - start.tv_nsec) * 1e-9;
}

std::string quoted(const std::string& s)
{
    std::string q = "'";
    for (char c : s)
        q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

} // namespace

Contender::Contender(std::string n, std::vector<std::string> a) : name(std::move(n)), argv(std::move(a)) {}

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
    timespec start;
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
    t.wall = since(start);
    t.cpu = seconds(usage.ru_utime) + seconds(usage.ru_stime);
    t.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return t;
}

namespace {

double best(const std::vector<double>& v) { return v.empty() ? 1e300 : *std::min_element(v.begin(), v.end()); }

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    const std::size_t n = v.size();
    return n == 0 ? 1e300 : n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

// Runs the rounds and keeps, of each contender's times, the best or the
// median.
bool race_keeping(std::vector<Contender>& contenders, int rounds, const char* bench, bool keep_median)
{
    for (auto& c : contenders)
        c.ok = run(c.argv).ok;
    std::vector<std::vector<double>> cpu(contenders.size()), wall(contenders.size());
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < contenders.size(); ++i) {
            Contender& c = contenders[i];
            Timing t = run(c.argv);
            c.ok = c.ok && t.ok;
            cpu[i].push_back(t.cpu);
            wall[i].push_back(t.wall);
            c.out = t.out;
        }
    }
    bool all_ok = true;
    for (std::size_t i = 0; i < contenders.size(); ++i) {
        Contender& c = contenders[i];
        c.cpu = keep_median ? median(cpu[i]) : best(cpu[i]);
        c.wall = keep_median ? median(wall[i]) : best(wall[i]);
        if (!c.ok) {
            std::fprintf(stderr, "%s: %s failed\n", bench, c.name.c_str());
            all_ok = false;
        }
    }
    return all_ok;
}

} // namespace

bool race(std::vector<Contender>& contenders, int rounds, const char* bench)
{
    return race_keeping(contenders, rounds, bench, false);
}

bool race_median(std::vector<Contender>& contenders, int rounds, const char* bench)
{
    return race_keeping(contenders, rounds, bench, true);
}

std::filesystem::path here() { return std::filesystem::read_symlink("/proc/self/exe").parent_path(); }

bool make_once(const std::filesystem::path& file, const std::string& make, const char* bench)
{
    if (std::filesystem::exists(file))
        return true;
    std::filesystem::create_directories(file.parent_path());
    std::printf("%s: making %s\n", bench, file.c_str());
    std::fflush(stdout);
    // The partial name keeps the extension, which sox and lame go by.
    const std::string partial = (file.parent_path() / ("partial-" + file.filename().string())).string();
    const std::string cmd = "sh -c " + quoted(make) + " " + quoted(partial) + " && mv " + quoted(partial) + " " +
                            quoted(file.string());
    if (std::system(cmd.c_str()) != 0) {
        std::fprintf(stderr, "%s: could not make %s\n", bench, file.c_str());
        return false;
    }
    return true;
}

bool on_path(const char* program)
{
    std::string cmd = std::string("command -v ") + program + " >/dev/null 2>&1";
    return std::system(cmd.c_str()) == 0;
}

bool peers_installed(std::initializer_list<const char*> peers, const char* bench)
{
    for (const char* peer : peers)
        if (!on_path(peer)) {
            std::fprintf(stderr, "%s: %s, a peer, is not installed\n", bench, peer);
            return false;
        }
    return true;
}

std::filesystem::path built_program(const char* name, const char* bench)
{
    const std::filesystem::path program = here().parent_path() / "program" / name;
    if (std::filesystem::exists(program))
        return program;
    std::fprintf(stderr, "%s: %s is not built\n", bench, program.c_str());
    return {};
}

std::vector<std::string> ffmpeg_filter(const std::filesystem::path& input, const std::string& filter)
{
    return {"ffmpeg", "-nostdin", "-loglevel", "error", "-filter_threads", "1", "-i", input.string(),
            "-af", filter, "-f", "s16le", "-y", "/dev/null"};
}

std::filesystem::path long_pcm(const char* bench)
{
    const std::filesystem::path wav = here() / "bench_media" / "pcm_10min_44100_stereo.wav";
    if (!make_once(wav, "sox -V1 -n -r 44100 -c 2 -b 16 \"$0\" synth 600 sine 100-8000 pinknoise gain -12", bench))
        return {};
    return wav;
}

bool use_private_home(const std::filesystem::path& root)
{
    const std::pair<const char*, const char*> vars[] = {
        {"HOME", "home"}, {"XDG_CONFIG_HOME", "config"}, {"XDG_DATA_HOME", "data"}, {"XDG_RUNTIME_DIR", "runtime"}};
    std::error_code ec;
    for (const auto& [name, folder] : vars) {
        std::filesystem::create_directories(root / folder, ec);
        if (ec)
            return false;
        setenv(name, (root / folder).c_str(), 1);
    }
    return chmod((root / "runtime").c_str(), 0700) == 0;
}

int spawn_quiet(const std::vector<std::string>& argv)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (int fd = 0; fd <= 2; ++fd)
        posix_spawn_file_actions_addopen(&actions, fd, "/dev/null", fd == 0 ? O_RDONLY : O_WRONLY, 0);
    std::vector<char*> args;
    for (const auto& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    pid_t pid = -1;
    int rc = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return rc == 0 ? pid : -1;
}

} // namespace bench

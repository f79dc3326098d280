#include "tests/app/program_runner.h"

#include "liba/text.h"
#include "tests/support/test_support.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace test {

namespace {
std::vector<int>& started()
{
    static std::vector<int> pids;
    return pids;
}
} // namespace

void kill_started()
{
    for (int pid : started()) {
        if (::kill(pid, SIGKILL) == 0)
            ::waitpid(pid, nullptr, 0);
    }
    started().clear();
}

int Process::wait(int ms)
{
    auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    for (;;) {
        int status = 0;
        int r = ::waitpid(pid, &status, WNOHANG);
        if (r == pid) {
            std::erase(started(), pid);
            pid = -1;
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        if (r < 0 || std::chrono::steady_clock::now() >= until)
            return -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

bool Process::running() const { return pid > 0 && ::kill(pid, 0) == 0; }

void Process::signal(int sig) const
{
    if (pid > 0)
        ::kill(pid, sig);
}

Process start_program(const std::string& exe, const std::vector<std::string>& args, const std::filesystem::path& cwd)
{
    std::string path = (program_dir() / exe).string();
    std::vector<char*> argv;
    argv.push_back(path.data());
    std::vector<std::string> copies = args;
    for (auto& a : copies)
        argv.push_back(a.data());
    argv.push_back(nullptr);

    // A test may name another driver, or none.
    ::setenv("SDL_VIDEODRIVER", "offscreen", 0);
    ::setenv("SDL_AUDIODRIVER", "dummy", 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    // A program left running by a failed test must not hold the test runner's
    // output open, or the runner waits for it.
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    if (!cwd.empty())
        posix_spawn_file_actions_addchdir_np(&actions, cwd.c_str());
    Process p;
    if (posix_spawn(&p.pid, path.c_str(), &actions, nullptr, argv.data(), environ) != 0)
        p.pid = -1;
    else
        started().push_back(p.pid);
    posix_spawn_file_actions_destroy(&actions);
    return p;
}

int quillctl(const std::string& args, std::string* out)
{
    return run((program_dir() / "quillctl").string() + " " + args, out);
}

std::wstring read_log(const std::filesystem::path& app_data)
{
    std::string bytes = read_file(app_data / "Quillaphonics.txt");
    if (bytes.size() < 2)
        return L"";
    auto text = liba::from_utf16le_bytes(bytes.substr(2, (bytes.size() - 2) & ~size_t(1)));
    return text ? *text : L"";
}

bool wait_for(const std::function<bool()>& cond, int ms)
{
    auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (!cond()) {
        if (std::chrono::steady_clock::now() >= until)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

void EnvironmentGuard::set(const char* name, const char* value)
{
    const char* old = std::getenv(name);
    saved_.push_back({name, old ? std::optional<std::string>(old) : std::nullopt});
    if (value)
        ::setenv(name, value, 1);
    else
        ::unsetenv(name);
}

EnvironmentGuard::~EnvironmentGuard()
{
    for (auto it = saved_.rbegin(); it != saved_.rend(); ++it) {
        if (it->second)
            ::setenv(it->first.c_str(), it->second->c_str(), 1);
        else
            ::unsetenv(it->first.c_str());
    }
}

} // namespace test

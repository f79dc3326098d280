#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// Starts the real program and quillctl from the build's program folder as
// separate processes, headless (offscreen video; audio on SDL's dummy driver
// unless the test names another, such as "disk"), in the environment of the
// calling test (so a test::PrivateHome applies to them). Threads: the test's main thread.
namespace test {

struct Process {
    int pid = -1;
    // Waits at most `ms` for the process to end; its exit code, or -1 when it
    // still runs (or died of a signal).
    int wait(int ms);
    bool running() const;
    void signal(int sig) const;
};

// `cwd` empty: the test's own working folder.
Process start_program(const std::string& exe, const std::vector<std::string>& args,
                      const std::filesystem::path& cwd = {});

// Kills every program this test process started that still runs.
void kill_started();

// Runs quillctl to its end; returns the exit code, its standard output in `out`.
int quillctl(const std::string& args, std::string* out = nullptr);

// The log file of the private home, decoded from UTF-16LE ("" when missing).
std::wstring read_log(const std::filesystem::path& app_data);

// Waits until `cond` holds, at most `ms`; returns whether it held.
bool wait_for(const std::function<bool()>& cond, int ms);

// Sets environment variables (null: unsets) for one test and puts them back
// after it.
class EnvironmentGuard {
public:
    void set(const char* name, const char* value);
    ~EnvironmentGuard();

private:
    std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

} // namespace test

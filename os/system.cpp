#include "os/system.h"

#include "liba/text.h"
#include "os/file.h"
#include "os/log.h"
#include "os/path.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace os {

namespace {

// The number of kilobytes on the /proc/meminfo line that begins with `key`.
uint64_t meminfo_kib(const std::string& text, const std::string& key)
{
    size_t pos = 0;
    while (pos < text.size()) {
        size_t end = text.find('\n', pos);
        if (end == std::string::npos)
            end = text.size();
        if (text.compare(pos, key.size(), key) == 0) {
            uint64_t v = 0;
            for (size_t i = pos + key.size(); i < end; ++i)
                if (text[i] >= '0' && text[i] <= '9')
                    v = v * 10 + static_cast<uint64_t>(text[i] - '0');
            return v;
        }
        pos = end + 1;
    }
    return 0;
}

// Splits at blanks; double quotes group blanks into one argument.
std::vector<std::string> split_arguments(const std::string& text)
{
    std::vector<std::string> args;
    std::string current;
    bool quoted = false, have = false;
    for (char c : text) {
        if (c == '"') {
            quoted = !quoted;
            have = true;
        } else if ((c == ' ' || c == '\t') && !quoted) {
            if (have)
                args.push_back(current);
            current.clear();
            have = false;
        } else {
            current += c;
            have = true;
        }
    }
    if (have)
        args.push_back(current);
    return args;
}

bool is_program(const std::string& path)
{
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

} // namespace

MemoryStatus memory_status()
{
    MemoryStatus m;
    std::string text;
    if (!read_whole_file(L"/proc/meminfo", text))
        return m;
    m.total_bytes = meminfo_kib(text, "MemTotal:") * 1024;
    m.available_bytes = meminfo_kib(text, "MemAvailable:") * 1024;
    return m;
}

double free_disk_space(const std::wstring& path)
{
    struct statvfs vfs;
    if (::statvfs(native_path(path).c_str(), &vfs) != 0)
        return 0;
    return static_cast<double>(vfs.f_bavail) * static_cast<double>(vfs.f_frsize);
}

bool execute_file(const std::wstring& file, const std::wstring& parameters)
{
    std::wstring f = expand_path(file);
    std::wstring p = expand_path(parameters);
    log() << "execute_file(" << f << ", " << p << ")\n";

    std::string target = liba::to_utf8(f);
    std::vector<std::string> args;
    if (!p.empty() && is_program(target)) {
        args.push_back(target);
        for (auto& a : split_arguments(liba::to_utf8(p)))
            args.push_back(std::move(a));
    } else {
        args = {"xdg-open", target};
    }
    std::vector<char*> argv;
    for (auto& a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);

    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attr, &none);
    // Its own session: the program outlives us and ignores our terminal.
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK);
    pid_t pid = 0;
    int rc = ::posix_spawnp(&pid, argv[0], nullptr, &attr, argv.data(), environ);
    posix_spawnattr_destroy(&attr);
    if (rc != 0) {
        log() << "execute_file: can't start " << args[0] << ": " << rc << "\n";
        return false;
    }
    // Nobody waits for the program; this collects its exit so it leaves no zombie.
    std::thread([pid] {
        int status;
        while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
    }).detach();
    return true;
}

} // namespace os

#include "os/wake_up.h"

#include "liba/text.h"
#include "os/log.h"
#include "os/path.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace os {

namespace {

// The local timer never waits longer than this at once: the scheduler's
// timers arm the platform timer only for moments closer than that.
constexpr double kLongestStepSeconds = 3600.0;
// Variables a program started by the user manager needs to find the same
// files, devices and display as this one; the XDG_ and SDL_ ones all go.
constexpr const char* kPassedVariables[] = {"HOME", "PATH", "LANG", "LC_ALL", "DISPLAY", "WAYLAND_DISPLAY",
                                            "XAUTHORITY"};

bool passes(const std::string& name)
{
    if (name.rfind("XDG_", 0) == 0 || name.rfind("SDL_", 0) == 0)
        return true;
    for (const char* v : kPassedVariables)
        if (name == v)
            return true;
    return false;
}

std::vector<std::string> environment_arguments()
{
    std::vector<std::string> out;
    for (char** e = environ; *e; ++e) {
        std::string entry = *e;
        size_t eq = entry.find('=');
        if (eq != std::string::npos && passes(entry.substr(0, eq))) {
            out.push_back("-E");
            out.push_back(entry);
        }
    }
    return out;
}

// Milliseconds since the epoch; -1 for a null value.
int64_t epoch_ms(const DateTime& t)
{
    if (t.is_null())
        return -1;
    return static_cast<int64_t>(t.to_time_t()) * 1000 + t.milliseconds;
}

int64_t now_ms()
{
    timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// Characters a unit name may hold; the rest become "_".
std::string unit_safe(const std::string& text)
{
    std::string out = text;
    for (char& c : out)
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-'))
            c = '_';
    return out;
}

bool is_waiting(const std::string& show_output)
{
    return show_output.find("ActiveState=active") != std::string::npos &&
           show_output.find("SubState=waiting") != std::string::npos;
}

} // namespace

CommandOutput run_command(const std::vector<std::string>& argv)
{
    CommandOutput result;
    if (argv.empty())
        return result;
    int pipe_fds[2];
    if (::pipe2(pipe_fds, O_CLOEXEC) != 0)
        return result;
    std::vector<char*> args;
    for (const std::string& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, pipe_fds[1], 1);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const int rc = ::posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipe_fds[1]);
    if (rc == 0) {
        char buf[4096];
        ssize_t n;
        while ((n = ::read(pipe_fds[0], buf, sizeof buf)) != 0) {
            if (n > 0)
                result.output.append(buf, static_cast<size_t>(n));
            else if (errno != EINTR)
                break;
        }
    }
    ::close(pipe_fds[0]);
    if (rc != 0)
        return result;
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

WakeUp::WakeUp(std::function<void()> on_local_due, CommandRunner runner)
    : on_local_due_(std::move(on_local_due)), runner_(std::move(runner)), local_(*this)
{
}

WakeUp::~WakeUp() = default;

std::string WakeUp::unit_prefix(const std::string& executable)
{
    // FNV-1a: the same path gives the same prefix in every run.
    uint64_t hash = 14695981039346656037ull;
    for (unsigned char c : executable) {
        hash ^= c;
        hash *= 1099511628211ull;
    }
    char hex[17];
    std::snprintf(hex, sizeof hex, "%016llx", static_cast<unsigned long long>(hash));
    return unit_safe(liba::to_utf8(file_name_of(liba::from_utf8(executable)))) + "-wake-" + hex;
}

std::string WakeUp::calendar_text(const DateTime& when)
{
    char text[64];
    std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u", when.year, when.month, when.day, when.hour,
                  when.minute, when.second);
    return text;
}

std::string WakeUp::fresh_unit_name(const std::string& executable)
{
    // A woken program runs in the service of its timer's name, so a new
    // timer can't reuse a name: the moment of arming, the process and a count.
    return unit_prefix(executable) + "-" + std::to_string(now_ms()) + "-" + std::to_string(::getpid()) + "-" +
           std::to_string(++arms_);
}

std::vector<std::string> WakeUp::systemctl(std::initializer_list<std::string> args) const
{
    std::vector<std::string> argv{"systemctl", "--user"};
    argv.insert(argv.end(), args);
    return argv;
}

WakeUp::Armed WakeUp::arm(const std::wstring& executable, const DateTime& when, const std::wstring& argument)
{
    const std::string exe = liba::to_utf8(expand_path(executable));
    // Timers only: the service of a timer that went off may be this program.
    runner_(systemctl({"stop", unit_prefix(exe) + "-*.timer"}));
    if (exe == local_executable_)
        local_.stop();
    if (when.is_null())
        return kNotArmed;

    const std::string arg = liba::to_utf8(argument);
    bool answers = false;
    if (arm_timer(exe, when, arg, true, &answers)) {
        log() << "wake-up: " << exe << " " << arg << " at " << calendar_text(when) << "\n";
        return kWakes;
    }
    if (answers && arm_timer(exe, when, arg, false, &answers)) {
        log() << "wake-up: the user manager may not set wake alarms; " << exe << " " << arg << " at "
              << calendar_text(when) << ", but the machine will not be woken for it\n";
        return kNoWake;
    }
    log() << "wake-up: " << (answers ? "the user manager refuses the timer" : "no user service manager answers")
          << "; only this running program starts " << exe << " " << arg << " at " << calendar_text(when) << "\n";
    if (!CActiveScheduler::exists())
        return kNotArmed;
    start_local(exe, when);
    return kLocalOnly;
}

bool WakeUp::arm_timer(const std::string& executable, const DateTime& when, const std::string& argument,
                       bool wake_system, bool* manager_answers)
{
    const std::string unit = fresh_unit_name(executable);
    std::vector<std::string> argv{"systemd-run",
                                  "--user",
                                  "--unit=" + unit,
                                  "--on-calendar=" + calendar_text(when),
                                  // The default minute of slack would miss a short span.
                                  "--timer-property=AccuracySec=1s"};
    if (wake_system)
        argv.push_back("--timer-property=WakeSystem=true");
    for (std::string& e : environment_arguments())
        argv.push_back(std::move(e));
    argv.push_back(executable);
    argv.push_back(argument);
    // Its answer says little: a timer may be made and then fail to start.
    runner_(argv);
    const CommandOutput state = runner_(systemctl({"show", "-p", "ActiveState,SubState", unit + ".timer"}));
    *manager_answers = state.status == 0;
    if (*manager_answers && is_waiting(state.output))
        return true;
    if (*manager_answers) {
        runner_(systemctl({"stop", unit + ".timer"}));
        runner_(systemctl({"reset-failed", unit + ".timer"}));
    }
    return false;
}

void WakeUp::arm_local(const std::wstring& executable, const DateTime& when)
{
    if (!CActiveScheduler::exists() || when.is_null())
        return;
    start_local(liba::to_utf8(expand_path(executable)), when);
}

void WakeUp::start_local(const std::string& executable, const DateTime& when)
{
    local_executable_ = executable;
    local_when_ = when;
    start_local_step();
}

void WakeUp::start_local_step()
{
    const double left = static_cast<double>(epoch_ms(local_when_) - now_ms()) / 1000.0;
    local_.start(left < 0 ? 0 : left < kLongestStepSeconds ? left : kLongestStepSeconds);
}

void WakeUp::on_timer(liba::Timer&)
{
    if (epoch_ms(local_when_) > now_ms()) {
        start_local_step();
        return;
    }
    local_executable_.clear();
    on_local_due_();
}

} // namespace os

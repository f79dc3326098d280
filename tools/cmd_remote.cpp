// The remote commands: each sends one status command to the running program
// (starting it hidden when nobody answers) and prints its answer.
#include "app/status_publication_wire.h"
#include "liba/text.h"
#include "os/path.h"
#include "os/unix_socket_server.h"
#include "tools/commands.h"

#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <optional>
#include <spawn.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace quillctl {

namespace {

constexpr auto kStartWait = std::chrono::seconds(5);

std::wstring absolute(const std::string& path)
{
    char buf[4096];
    std::wstring cwd = ::getcwd(buf, sizeof buf) ? liba::from_utf8(buf) : std::wstring();
    return cwd.empty() ? liba::from_utf8(path) : os::make_absolute(liba::from_utf8(path), cwd);
}

// Connects and hangs up: tells whether a server listens, without a command.
bool server_listens(const std::string& socket)
{
    int fd = os::connect_unix_socket(socket);
    if (fd < 0)
        return false;
    ::close(fd);
    return true;
}

// "quillaphonics -hide" from quillctl's own folder, in a session of its own
// and with no standard streams of ours, so that it outlives this call.
bool start_program()
{
    std::string exe = liba::to_utf8(os::expand_path(L"%app_path%/quillaphonics"));
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attr;
    posix_spawn_file_actions_init(&actions);
    for (int fd = 0; fd <= 2; ++fd)
        posix_spawn_file_actions_addopen(&actions, fd, "/dev/null", fd == 0 ? O_RDONLY : O_WRONLY, 0);
    posix_spawnattr_init(&attr);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSID);
    char arg0[] = "quillaphonics";
    char arg1[] = "-hide";
    char* argv[] = {arg0, arg1, nullptr};
    pid_t pid = 0;
    int rc = posix_spawn(&pid, exe.c_str(), &actions, &attr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    return rc == 0;
}

// Pushes the arguments of a command: the argument text, or for status the
// show flag.
bool push_arguments(status::CCommClipboard& clipboard, int command, const std::wstring& text, bool show)
{
    clipboard.clear();
    if (command == status::kStatus)
        return status::CSerializableBool(show).write(clipboard);
    std::wstring flag = show ? L"y" : L"n";
    bool show_only = status::argument_lengths(command).size() == 1;
    return status::CSerializableString(show_only ? flag : text + L"," + flag).write(clipboard);
}

// Sends the command; the clipboard then holds the answer. Failure: one line
// on standard error, and nullopt.
std::optional<int32_t> send(status::CCommClipboard& clipboard, const char* name, int command,
                            const std::wstring& text, bool show)
{
    os::init_path_macros();
    const std::string socket = status::socket_path();
    if (!push_arguments(clipboard, command, text, show)) {
        fail(name, "the arguments are too long");
        return std::nullopt;
    }
    std::optional<int32_t> result = status::send_command(socket, command);
    if (result)
        return result;
    if (!start_program()) {
        fail(name, "no program answered, and quillaphonics could not be started");
        return std::nullopt;
    }
    auto until = std::chrono::steady_clock::now() + kStartWait;
    while (!server_listens(socket) && std::chrono::steady_clock::now() < until)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    // The program may have found leftovers in the memory: start afresh.
    push_arguments(clipboard, command, text, show);
    result = status::send_command(socket, command);
    if (!result)
        fail(name, "no program answered");
    return result;
}

// Splits off "--show"; the rest stays in `rest`.
bool take_show(const Args& args, Args& rest)
{
    bool show = false;
    for (const std::string& a : args) {
        if (a == "--show")
            show = true;
        else
            rest.push_back(a);
    }
    return show;
}

int run(const char* name, int command, const std::wstring& text, bool show)
{
    status::CCommMemoryMappedFilesClipboard clipboard;
    if (!clipboard.is_open())
        return fail(name, "can't open the shared memory of the status publication");
    std::optional<int32_t> result = send(clipboard, name, command, text, show);
    if (!result)
        return kFailed;
    status::CSerializableBool answer;
    bool ok = *result != 0 && answer.read(clipboard) && answer.value;
    std::printf("%s\n", ok ? "ok" : "failed");
    return ok ? kDone : kFailed;
}

bool is_integer(const std::string& s)
{
    return liba::text_to_int(liba::from_utf8(s)).has_value();
}

} // namespace

int cmd_play(const Args& args)
{
    Args rest;
    bool show = take_show(args, rest);
    if (rest.size() > 1)
        return kUsage;
    return run("play", status::kPlay, rest.empty() ? L"" : absolute(rest[0]), show);
}

int cmd_record(const Args& args)
{
    Args rest;
    bool show = take_show(args, rest);
    if (rest.empty())
        return run("record", status::kRecord, L",", show);
    if (rest.size() != 2 || !is_integer(rest[1]))
        return kUsage;
    return run("record", status::kRecord, absolute(rest[0]) + L"," + liba::from_utf8(rest[1]), show);
}

int cmd_overwrite(const Args& args)
{
    Args rest;
    bool show = take_show(args, rest);
    if (rest.size() != 1)
        return kUsage;
    return run("overwrite", status::kOverwrite, absolute(rest[0]), show);
}

int cmd_append(const Args& args)
{
    Args rest;
    bool show = take_show(args, rest);
    if (rest.size() != 1)
        return kUsage;
    return run("append", status::kAppend, absolute(rest[0]), show);
}

int cmd_insert(const Args& args)
{
    Args rest;
    bool show = take_show(args, rest);
    if (rest.size() != 2 || !is_integer(rest[1]))
        return kUsage;
    return run("insert", status::kInsert, absolute(rest[0]) + L"," + liba::from_utf8(rest[1]), show);
}

int cmd_pause(const Args& args)
{
    Args rest;
    bool show = take_show(args, rest);
    if (!rest.empty())
        return kUsage;
    return run("pause", status::kPause, L"", show);
}

int cmd_stop(const Args& args)
{
    Args rest;
    bool show = take_show(args, rest);
    if (!rest.empty())
        return kUsage;
    return run("stop", status::kStop, L"", show);
}

int cmd_step(const Args& args)
{
    Args rest;
    bool show = take_show(args, rest);
    if (rest.size() != 1 || !is_integer(rest[0]))
        return kUsage;
    return run("step", status::kStep, liba::from_utf8(rest[0]), show);
}

int cmd_next(const Args& args)
{
    Args with_delta{"1"};
    with_delta.insert(with_delta.end(), args.begin(), args.end());
    return cmd_step(with_delta);
}

int cmd_previous(const Args& args)
{
    Args with_delta{"-1"};
    with_delta.insert(with_delta.end(), args.begin(), args.end());
    return cmd_step(with_delta);
}

int cmd_status(const Args& args)
{
    Args rest;
    bool show = take_show(args, rest);
    if (!rest.empty())
        return kUsage;
    status::CCommMemoryMappedFilesClipboard clipboard;
    if (!clipboard.is_open())
        return fail("status", "can't open the shared memory of the status publication");
    std::optional<int32_t> result = send(clipboard, "status", status::kStatus, L"", show);
    if (!result)
        return kFailed;
    status::CSerializableBool done;
    status::CQuillaphonicsStatus s;
    if (*result == 0 || !done.read(clipboard) || !done.value || !s.read(clipboard))
        return fail("status", "the program gave no status");
    std::printf("state: %s\npath: %s\nlength: %d\nposition: %d\nformat: %d\nrate: %d\nbits: %d\nkbps: %d\n"
                "stereo: %d\ntime_ms: %d\n",
                status::state_word(s.state), liba::to_utf8(s.path).c_str(), s.length, s.position, s.format,
                s.rate, s.bits, s.kbps, s.stereo, s.time_ms);
    return kDone;
}

} // namespace quillctl

#include "tests/support/test_support.h"

#include "liba/text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fnmatch.h>
#include <fstream>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace test {

fs::path media_dir() { return QUILL_TEST_MEDIA_DIR; }
fs::path program_dir() { return QUILL_PROGRAM_DIR; }
std::wstring wide(const fs::path& p) { return liba::from_utf8(p.string()); }

std::vector<fs::path> media(const std::string& pattern)
{
    std::vector<fs::path> found;
    for (const auto& e : fs::directory_iterator(media_dir()))
        if (fnmatch(pattern.c_str(), e.path().filename().c_str(), 0) == 0)
            found.push_back(e.path());
    std::sort(found.begin(), found.end());
    return found;
}

TempDir::TempDir()
{
    std::string tmpl = (fs::temp_directory_path() / "quilltest-XXXXXX").string();
    char* made = mkdtemp(tmpl.data());
    if (!made)
        std::abort();
    path_ = made;
}

TempDir::~TempDir()
{
    std::error_code ec;
    fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ec);
    fs::remove_all(path_, ec);
}

PrivateHome::PrivateHome()
{
    const std::pair<const char*, fs::path> vars[] = {
        {"HOME", dir_.path() / "home"},
        {"XDG_CONFIG_HOME", dir_.path() / "config"},
        {"XDG_DATA_HOME", dir_.path() / "data"},
        {"XDG_RUNTIME_DIR", dir_.path() / "runtime"},
    };
    for (const auto& [name, value] : vars) {
        if (const char* old = std::getenv(name))
            saved_.emplace_back(name, old);
        else
            unset_.push_back(name);
        fs::create_directories(value);
        ::setenv(name, value.c_str(), 1);
    }
    ::chmod((dir_.path() / "runtime").c_str(), 0700);
}

PrivateHome::~PrivateHome()
{
    for (const auto& [name, value] : saved_)
        ::setenv(name.c_str(), value.c_str(), 1);
    for (const auto& name : unset_)
        ::unsetenv(name.c_str());
}

ScopedEnv::ScopedEnv(const char* name, const char* value) : name_(name)
{
    if (const char* old = std::getenv(name))
        old_ = old, had_ = true;
    if (value)
        ::setenv(name, value, 1);
    else
        ::unsetenv(name);
}

ScopedEnv::~ScopedEnv()
{
    if (had_)
        ::setenv(name_, old_.c_str(), 1);
    else
        ::unsetenv(name_);
}

int run(const std::string& command, std::string* out)
{
    FILE* p = ::popen(command.c_str(), "r");
    if (!p)
        return -1;
    std::string text;
    std::array<char, 4096> buf;
    size_t n;
    while ((n = std::fread(buf.data(), 1, buf.size(), p)) > 0)
        text.append(buf.data(), n);
    int status = ::pclose(p);
    if (out)
        *out = text;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int exit_code_of(pid_t child)
{
    int status = 0;
    if (::waitpid(child, &status, 0) != child)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int run_in_child(const std::function<int()>& body)
{
    const pid_t pid = ::fork();
    if (pid == 0)
        ::_exit(body());
    return pid < 0 ? -1 : exit_code_of(pid);
}

int run_unprivileged(const fs::path& tree, const std::function<int()>& body)
{
    return run_in_child([&] {
        if (::geteuid() == 0) {
            ::lchown(tree.c_str(), 65534, 65534);
            for (const auto& e : fs::recursive_directory_iterator(tree))
                ::lchown(e.path().c_str(), 65534, 65534);
            if (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0)
                return 90;
        }
        return body();
    });
}

void kill_writers_midway(int writers, int min_us, int max_us, std::mt19937& rng,
                         const std::function<void(int child)>& write)
{
    std::vector<pid_t> children;
    for (int c = 0; c < writers; ++c) {
        const pid_t pid = ::fork();
        if (pid < 0) {
            ADD_FAILURE() << "no process for writer " << c;
            break;
        }
        if (pid == 0)
            for (;;)
                write(c);
        children.push_back(pid);
    }
    ::usleep(static_cast<useconds_t>(std::uniform_int_distribution<int>(min_us, max_us)(rng)));
    for (pid_t pid : children)
        ::kill(pid, SIGKILL);
    for (pid_t pid : children)
        exit_code_of(pid);
}

std::string quote(const std::string& s)
{
    std::string out = "'";
    for (char c : s)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

std::string run_out(const std::string& command)
{
    std::string out;
    EXPECT_EQ(run(command, &out), 0) << command;
    return out;
}

fs::path one_media(const std::string& name)
{
    auto found = media(name);
    EXPECT_EQ(found.size(), 1u) << name;
    return found.size() == 1 ? found[0] : fs::path();
}

std::string sox16(const fs::path& f, std::size_t frames)
{
    const std::string trim = frames ? " trim 0 " + std::to_string(frames) + "s" : "";
    return run_out("sox " + quote(f.string()) + " -t raw -e signed-integer -b 16 -L -" + trim);
}

int soxi_int(const fs::path& f, const std::string& option)
{
    return std::atoi(run_out("soxi " + option + " " + quote(f.string())).c_str());
}

std::uint32_t le(const std::string& s, std::size_t at, int bytes)
{
    std::uint32_t v = 0;
    for (int i = bytes - 1; i >= 0; --i)
        v = v << 8 | static_cast<std::uint8_t>(s.at(at + static_cast<std::size_t>(i)));
    return v;
}

std::vector<std::int16_t> samples_of(const std::string& raw)
{
    std::vector<std::int16_t> s(raw.size() / 2);
    std::memcpy(s.data(), raw.data(), s.size() * 2);
    return s;
}

QuillctlRun run_quillctl(const std::vector<std::string>& args, const fs::path& scratch)
{
    // The leak checker's list of suppressions is no line of quillctl's.
    std::string line = "cd " + quote(scratch.string()) + " && LSAN_OPTIONS=print_suppressions=0 " +
                       quote((program_dir() / "quillctl").string());
    for (const std::string& a : args)
        line += " " + quote(a);
    const fs::path err = scratch / "quillctl.stderr";
    QuillctlRun r;
    r.status = run(line + " 2>" + quote(err.string()), &r.out);
    r.err = read_file(err);
    return r;
}

void expect_one_line_naming(const QuillctlRun& r, const std::string& what)
{
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_NE(r.err.find(what), std::string::npos) << r.err;
}

std::string read_file(const fs::path& p)
{
    std::ifstream in(p, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

void write_file(const fs::path& p, const std::string& bytes)
{
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

XServer::XServer(const std::string& screen)
{
    int fds[2];
    if (::pipe(fds) != 0)
        return;
    pid_ = ::fork();
    if (pid_ == 0) {
        ::close(fds[0]);
        const std::string fd = std::to_string(fds[1]);
        const int null = ::open("/dev/null", O_WRONLY);
        ::dup2(null, 1);
        ::dup2(null, 2);
        ::execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-screen", "0", screen.c_str(), "-nolisten", "tcp",
                 static_cast<char*>(nullptr));
        ::_exit(127);
    }
    ::close(fds[1]);
    // The number comes once the server takes clients.
    std::string number;
    pollfd p{fds[0], POLLIN, 0};
    char c = 0;
    while (pid_ > 0 && ::poll(&p, 1, 10000) == 1 && ::read(fds[0], &c, 1) == 1 && c != '\n')
        number += c;
    ::close(fds[0]);
    if (!number.empty())
        display_ = ":" + number;
}

XServer::~XServer()
{
    if (pid_ > 0) {
        ::kill(pid_, SIGTERM);
        ::waitpid(pid_, nullptr, 0);
    }
}

} // namespace test

#include "tests/support/test_support.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fnmatch.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace test {

fs::path media_dir() { return QUILL_TEST_MEDIA_DIR; }
fs::path program_dir() { return QUILL_PROGRAM_DIR; }

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

} // namespace test

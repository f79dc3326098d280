#pragma once

#include <filesystem>
#include <string>
#include <vector>

// Shared helpers of the test programs. Threads: the test's main thread.
namespace test {

// The folder of files made at build time by sox, lame, oggenc and friends.
std::filesystem::path media_dir();
// Files there whose names match a shell pattern ("pcm_*.wav"), sorted.
std::vector<std::filesystem::path> media(const std::string& pattern);
// The program folder of this build tree (quillaphonics, quillctl, skins/…).
std::filesystem::path program_dir();

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

// Runs a shell command; returns its exit status, its standard output in `out`.
int run(const std::string& command, std::string* out = nullptr);

std::string read_file(const std::filesystem::path& p);
void write_file(const std::filesystem::path& p, const std::string& bytes);

} // namespace test

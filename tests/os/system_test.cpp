#include "os/system.h"

#include "liba/text.h"
#include "os/log.h"
#include "os/path.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>
#include <thread>

namespace fs = std::filesystem;

namespace {

using test::wide;

// Waits up to five seconds for a file that another process writes.
std::string wait_for_file(const fs::path& p)
{
    for (int i = 0; i < 500; ++i) {
        if (fs::exists(p)) {
            std::string text = test::read_file(p);
            if (!text.empty() && text.back() == '\n')
                return text;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return {};
}

// A shell script that records its arguments, one a line, into `out`.
void make_recorder(const fs::path& script, const fs::path& out)
{
    test::write_file(script, "#!/bin/sh\nfor a in \"$@\"; do printf '%s\\n' \"$a\"; done > '" +
                                 out.string() + ".part'\nmv '" + out.string() + ".part' '" +
                                 out.string() + "'\n");
    ::chmod(script.c_str(), 0755);
}

struct ScopedPath : test::ScopedEnv {
    explicit ScopedPath(const std::string& value) : ScopedEnv("PATH", value.c_str()) {}
};

} // namespace

TEST(System, MemoryAndDiskAgreeWithTheTools)
{
    os::MemoryStatus m = os::memory_status();
    std::string total;
    ASSERT_EQ(test::run("awk '/^MemTotal:/ {printf \"%.0f\", $2 * 1024}' /proc/meminfo", &total), 0);
    EXPECT_EQ(std::to_string(m.total_bytes), total);
    EXPECT_GT(m.available_bytes, 0u);
    EXPECT_LE(m.available_bytes, m.total_bytes);

    test::PrivateHome home;
    os::init_path_macros();
    ASSERT_TRUE(os::ensure_app_data());
    std::string avail;
    ASSERT_EQ(test::run("df -B1 --output=avail '" + home.app_data().string() + "' | tail -1", &avail), 0);
    double expected = std::strtod(avail.c_str(), nullptr);
    double ours = os::free_disk_space(L"%app_data%\\");
    EXPECT_GT(ours, 0.0);
    // Others write to the same disk meanwhile.
    EXPECT_NEAR(ours, expected, 256.0 * 1024 * 1024);
    EXPECT_EQ(os::free_disk_space(L"/no/such/folder"), 0.0);
}

TEST(System, ExecuteFileOpensWithTheDesktopHandler)
{
    test::PrivateHome home;
    os::init_path_macros();
    ASSERT_TRUE(os::ensure_app_data());
    fs::path bin = home.root() / "bin";
    fs::create_directories(bin);
    fs::path record = home.root() / "args.txt";
    make_recorder(bin / "xdg-open", record);
    ASSERT_TRUE(os::set_log_switch(true));
    {
        ScopedPath path(bin.string() + ":/usr/bin:/bin");
        EXPECT_TRUE(os::execute_file(L"%app_data%\\help\\Hilfe ü.htm", L""));
        EXPECT_EQ(wait_for_file(record), (home.app_data() / "help" / "Hilfe ü.htm").string() + "\n");
    }
    os::log().flush();
    std::string log;
    test::run("tail -c +3 '" + (home.app_data() / "Quillaphonics.txt").string() +
                  "' | iconv -f UTF-16LE -t UTF-8",
              &log);
    EXPECT_NE(log.find("execute_file(" + (home.app_data() / "help" / "Hilfe ü.htm").string()),
              std::string::npos)
        << log;
    os::set_log_switch(false);

    // A program with parameters is run itself; quotes group blanks.
    fs::remove(record);
    make_recorder(bin / "prog", record);
    EXPECT_TRUE(os::execute_file(wide(bin / "prog"), L"one \"two three\" %app_data%\\x"));
    EXPECT_EQ(wait_for_file(record), "one\ntwo three\n%app_data%/x\n");

    // Without a handler on the path nothing starts.
    {
        ScopedPath path((home.root() / "empty").string());
        EXPECT_FALSE(os::execute_file(L"/tmp/some.htm", L""));
    }
}

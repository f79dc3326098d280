#include "os/log.h"

#include "liba/fatal.h"
#include "liba/text.h"
#include "os/path.h"
#include "os/registry.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fcntl.h>
#include <filesystem>
#include <thread>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

const std::string kBom = "\xFF\xFE";

// UTF-8 text as UTF-16LE, made by iconv(1).
std::string utf16le_by_iconv(const std::string& utf8, const fs::path& scratch)
{
    test::write_file(scratch, utf8);
    std::string out;
    EXPECT_EQ(test::run("iconv -f UTF-8 -t UTF-16LE '" + scratch.string() + "'", &out), 0);
    return out;
}

// The log file's text, decoded from UTF-16LE by iconv(1).
std::string log_text_by_iconv(const fs::path& file)
{
    std::string out;
    EXPECT_EQ(test::run("tail -c +3 '" + file.string() + "' | iconv -f UTF-16LE -t UTF-8", &out), 0);
    return out;
}

// Every test starts from a switch that is off, in a home of its own.
class LogTest : public testing::Test {
protected:
    void SetUp() override
    {
        os::init_path_macros();
        os::set_log_switch(false);
        ASSERT_FALSE(os::log().is_on());
    }
    void TearDown() override
    {
        os::set_log_switch(false);
        os::log();
    }
    fs::path log_file() const { return home_.app_data() / "Quillaphonics.txt"; }

    test::PrivateHome home_;
};

} // namespace

TEST_F(LogTest, WritesUtf16LittleEndianWithByteOrderMark)
{
    EXPECT_FALSE(fs::exists(log_file()));
    os::log() << "not written while off\n";
    EXPECT_FALSE(fs::exists(log_file()));

    ASSERT_TRUE(os::set_log_switch(true));
    ASSERT_TRUE(os::log().is_on());
    os::log() << L"wide Grüße " << "narrow Ωμέγα " << std::string("std ") << std::wstring(L"\U0001D11E ")
              << 42 << ' ' << -7 << L' ' << 4000000000u << ' ' << 2.5 << ' ' << true << "\n";
    os::log().flush();

    std::string expected =
        kBom + utf16le_by_iconv("wide Grüße narrow Ωμέγα std 𝄞 42 -7 4000000000 2.500000 true\n",
                                home_.root() / "expected.txt");
    std::string bytes = test::read_file(log_file());
    EXPECT_EQ(bytes, expected);
    // U+1D11E is the surrogate pair D834 DD1E.
    EXPECT_NE(bytes.find(std::string("\x34\xD8\x1E\xDD", 4)), std::string::npos);
    EXPECT_EQ(log_text_by_iconv(log_file()),
              "wide Grüße narrow Ωμέγα std 𝄞 42 -7 4000000000 2.500000 true\n");
}

TEST_F(LogTest, SwitchingOnTruncatesAndOffCloses)
{
    ASSERT_TRUE(os::set_log_switch(true));
    os::log() << "first run\n";
    ASSERT_TRUE(os::set_log_switch(false));
    os::log() << "while off\n";
    EXPECT_FALSE(os::log().is_on());
    EXPECT_EQ(log_text_by_iconv(log_file()), "first run\n");

    ASSERT_TRUE(os::set_log_switch(true));
    os::log() << "second run\n";
    EXPECT_EQ(test::read_file(log_file()).substr(0, 2), kBom);
    EXPECT_EQ(log_text_by_iconv(log_file()), "second run\n");

    // Deleting the value switches off as well.
    ASSERT_TRUE(os::Registry::delete_value(L"HKEY_CURRENT_USER\\Software\\Kelb", L"Log"));
    EXPECT_FALSE(os::log().is_on());
    // Any non-zero value is on.
    ASSERT_TRUE(os::Registry::write_dword(L"HKEY_CURRENT_USER\\Software\\Kelb", L"Log", 7));
    EXPECT_TRUE(os::log().is_on());
}

TEST_F(LogTest, NoticesEveryFlipAtOnce)
{
    // Flips within the same clock tick, each store the same size as the last:
    // the store's time is pinned, as on a file system with coarse times.
    const std::string store = (home_.app_data() / "registry.xml").string();
    const timespec pinned[2] = {{1600000000, 0}, {1600000000, 0}};
    for (int i = 0; i < 30; ++i) {
        bool on = i % 2 == 0;
        ASSERT_TRUE(os::set_log_switch(on));
        ASSERT_EQ(::utimensat(AT_FDCWD, store.c_str(), pinned, 0), 0);
        ASSERT_EQ(os::log().is_on(), on) << "flip " << i;
        os::log() << "flip " << i << "\n";
    }
    EXPECT_EQ(log_text_by_iconv(log_file()), "flip 28\n");

    // Another process (quillctl) flips it.
    for (bool on : {true, false, true}) {
        ASSERT_EQ(test::run_in_child([on] { return os::set_log_switch(on) ? 0 : 1; }), 0);
        EXPECT_EQ(os::log().is_on(), on);
    }
}

TEST_F(LogTest, UnreadableStoreMeansOff)
{
    ASSERT_TRUE(os::set_log_switch(true));
    ASSERT_TRUE(os::log().is_on());
    testing::internal::CaptureStderr();
    test::write_file(home_.app_data() / "registry.xml", "<registry><key name=");
    for (int i = 0; i < 5; ++i)
        EXPECT_FALSE(os::log().is_on());
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    EXPECT_FALSE(os::set_log_switch(true));
    test::write_file(home_.app_data() / "registry.xml", "");
    EXPECT_FALSE(os::log().is_on());

    // A folder we may not enter, as a user the permissions apply to.
    ASSERT_TRUE(os::set_log_switch(true));
    ASSERT_TRUE(os::log().is_on());
    const fs::path app_data = home_.app_data();
    EXPECT_EQ(test::run_unprivileged(home_.root(),
                                     [&] {
                                         ::dup2(::open("/dev/null", O_WRONLY), 2);
                                         ::chmod(app_data.c_str(), 0);
                                         const bool on = os::log().is_on();
                                         ::chmod(app_data.c_str(), 0700);
                                         return on ? 1 : 0;
                                     }),
              0);
}

TEST_F(LogTest, ThreadsWriteWholeLinesWhileTheSwitchFlips)
{
    ASSERT_TRUE(os::set_log_switch(true));
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &stop] {
            for (int i = 0; !stop; ++i)
                os::log() << (L"thread " + std::to_wstring(t) + L" line " + std::to_wstring(i) +
                              L" Grüße \U0001D11E\n");
        });
    }
    for (int i = 0; i < 6; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        os::set_log_switch(i % 2 == 1);
    }
    stop = true;
    for (auto& t : threads)
        t.join();
    os::log().flush();

    std::string bytes = test::read_file(log_file());
    ASSERT_EQ(bytes.substr(0, 2), kBom);
    auto text = liba::from_utf16le_bytes(std::string_view(bytes).substr(2));
    ASSERT_TRUE(text.has_value()) << "a write was cut or interleaved";
    size_t lines = 0;
    size_t pos = 0;
    while (pos < text->size()) {
        size_t end = text->find(L'\n', pos);
        ASSERT_NE(end, std::wstring::npos);
        std::wstring line = text->substr(pos, end - pos);
        EXPECT_EQ(line.rfind(L"thread ", 0), 0u) << liba::to_utf8(line);
        EXPECT_TRUE(line.ends_with(L" Grüße \U0001D11E")) << liba::to_utf8(line);
        ++lines;
        pos = end + 1;
    }
    EXPECT_GT(lines, 0u);
}

TEST_F(LogTest, FatalFlushKeepsTheOtherHooks)
{
    ASSERT_TRUE(os::set_log_switch(true));
    EXPECT_EXIT(
        {
            liba::FatalHooks hooks;
            hooks.report = [](const std::wstring&, const std::wstring& text) {
                os::log() << "reported: " << text << "\n";
                return true;
            };
            os::install_log_fatal_flush(hooks);
            os::log() << "before the end\n";
            liba::fatal(L"here", L"broken invariant");
        },
        testing::ExitedWithCode(liba::kFatalExitCode), "broken invariant");
    EXPECT_EQ(log_text_by_iconv(log_file()), "before the end\nreported: broken invariant\n");
    EXPECT_GE(os::log_time(), 0.0);
}

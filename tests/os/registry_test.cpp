#include "os/registry.h"

#include "liba/text.h"
#include "os/file.h"
#include "os/path.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

const std::wstring kKelb = L"HKEY_CURRENT_USER\\Software\\Kelb";

using test::wide;

int count_lines_with(const std::string& text, const std::string& needle)
{
    int n = 0;
    size_t pos = 0;
    while (pos < text.size()) {
        size_t end = text.find('\n', pos);
        if (end == std::string::npos)
            end = text.size();
        if (text.substr(pos, end - pos).find(needle) != std::string::npos)
            ++n;
        pos = end + 1;
    }
    return n;
}

int count_lines(const std::string& text) { return static_cast<int>(std::count(text.begin(), text.end(), '\n')); }

using test::run_unprivileged;

// The store as another reader finds it on disk.
bool load_disk_store(const fs::path& app_data, os::RegistryStore& store)
{
    return store.load(test::read_file(app_data / "registry.xml"));
}

} // namespace

TEST(Registry, RootsAndKeyPaths)
{
    test::PrivateHome home;
    os::init_path_macros();
    const wchar_t* roots[] = {L"HKEY_CLASSES_ROOT", L"HKEY_LOCAL_MACHINE", L"HKEY_USERS",
                              L"HKEY_CURRENT_USER"};
    uint32_t n = 1;
    for (const wchar_t* root : roots) {
        std::wstring key = std::wstring(root) + L"\\Software\\Kelb";
        EXPECT_TRUE(os::Registry::write_dword(key, L"Root", n)) << liba::to_utf8(root);
        ++n;
    }
    n = 1;
    for (const wchar_t* root : roots) {
        uint32_t v = 0;
        EXPECT_TRUE(os::Registry::read_dword(std::wstring(root) + L"\\Software\\Kelb", L"Root", v));
        EXPECT_EQ(v, n++) << "each root is a tree of its own";
    }

    // Names compare without regard to case; a trailing or doubled "\" is harmless.
    uint32_t v = 0;
    EXPECT_TRUE(os::Registry::read_dword(L"HKEY_CURRENT_USER\\SOFTWARE\\kelb\\", L"root", v));
    EXPECT_EQ(v, 4u);
    EXPECT_TRUE(os::Registry::read_dword(L"HKEY_CURRENT_USER\\\\Software\\Kelb", L"ROOT", v));
    // The root alone is a key too.
    EXPECT_TRUE(os::Registry::write_string(L"HKEY_USERS", L"at root", L"r"));
    std::wstring s;
    EXPECT_TRUE(os::Registry::read_string(L"HKEY_USERS\\", L"at root", s));
    EXPECT_EQ(s, L"r");

    // No root, HKEY_CURRENT_CONFIG, or a root name run on: an empty key.
    for (const wchar_t* bad : {L"Software\\Kelb", L"HKEY_CURRENT_CONFIG\\Software\\Kelb",
                               L"HKEY_CURRENT_CONFIG", L"HKEY_CURRENT_USERS\\Software", L"",
                               L"hkey_current_user\\Software\\Kelb", L"\\HKEY_CURRENT_USER\\Software"}) {
        std::string what = liba::to_utf8(bad);
        EXPECT_FALSE(os::Registry::write_dword(bad, L"x", 1)) << what;
        EXPECT_FALSE(os::Registry::write_string(bad, L"x", L"y")) << what;
        EXPECT_FALSE(os::Registry::read_dword(bad, L"Root", v)) << what;
        EXPECT_FALSE(os::Registry::read_string(bad, L"x", s)) << what;
        EXPECT_FALSE(os::Registry::delete_value(bad, L"Root")) << what;
        std::vector<std::wstring> keys;
        EXPECT_FALSE(os::Registry::enum_subkeys(bad, keys)) << what;
    }
    os::RegistryStore store;
    ASSERT_TRUE(load_disk_store(home.app_data(), store));
    std::vector<std::wstring> subkeys;
    EXPECT_FALSE(store.enum_subkeys(L"HKEY_CURRENT_CONFIG", subkeys));
    EXPECT_FALSE(store.has_key(L"HKEY_CURRENT_USER\\Software\\Kelb\\x"));
}

TEST(Registry, ValuesTypesAndDefaults)
{
    test::PrivateHome home;
    os::init_path_macros();
    std::wstring s;
    uint32_t v = 7;
    // Nothing there yet: reads fail and leave the caller's default alone.
    EXPECT_FALSE(os::Registry::read_dword(kKelb, L"Log", v));
    EXPECT_EQ(v, 7u);

    // Text that XML must escape, controls, and characters past U+FFFF.
    const std::wstring tricky = L"<a href=\"x\">&amp; 'q'</a>\t\r\n  lead/trail  \x01\x1F"
                                L" Grüße Ωμέγα \U0001D11E \\backslash";
    EXPECT_TRUE(os::Registry::write_string(kKelb, L"Tricky", tricky));
    EXPECT_TRUE(os::Registry::write_string(kKelb, L"", L"the default value"));
    EXPECT_TRUE(os::Registry::write_dword(kKelb, L"Max", 0xFFFFFFFFu));
    EXPECT_TRUE(os::Registry::write_dword(kKelb, L"Zero", 0));
    EXPECT_TRUE(os::Registry::write_string(kKelb, L"Empty", L""));

    EXPECT_TRUE(os::Registry::read_string(kKelb, L"Tricky", s));
    EXPECT_EQ(s, tricky);
    EXPECT_TRUE(os::Registry::read_string(kKelb, L"", s));
    EXPECT_EQ(s, L"the default value");
    EXPECT_TRUE(os::Registry::read_dword(kKelb, L"Max", v));
    EXPECT_EQ(v, 0xFFFFFFFFu);
    EXPECT_TRUE(os::Registry::read_dword(kKelb, L"Zero", v));
    EXPECT_EQ(v, 0u);
    EXPECT_TRUE(os::Registry::read_string(kKelb, L"Empty", s));
    EXPECT_EQ(s, L"");

    const std::wstring with_nul(L"a\0b", 3);
    EXPECT_TRUE(os::Registry::write_string(kKelb, L"Nul", with_nul));
    EXPECT_TRUE(os::Registry::read_string(kKelb, L"Nul", s));
    EXPECT_EQ(s, with_nul);
    EXPECT_TRUE(os::Registry::write_string(kKelb, L"Nul", L"plain again"));
    EXPECT_TRUE(os::Registry::read_string(kKelb, L"Nul", s));
    EXPECT_EQ(s, L"plain again");
    EXPECT_TRUE(os::Registry::write_string(kKelb, L"Nul", with_nul));

    // A value is of one type; writing the other type replaces it.
    EXPECT_FALSE(os::Registry::read_dword(kKelb, L"Tricky", v));
    EXPECT_FALSE(os::Registry::read_string(kKelb, L"Max", s));
    EXPECT_TRUE(os::Registry::write_string(kKelb, L"Max", L"now text"));
    EXPECT_FALSE(os::Registry::read_dword(kKelb, L"Max", v));
    EXPECT_TRUE(os::Registry::read_string(kKelb, L"max", s));
    EXPECT_EQ(s, L"now text");

    EXPECT_TRUE(os::Registry::delete_value(kKelb, L"ZERO"));
    EXPECT_FALSE(os::Registry::read_dword(kKelb, L"Zero", v));
    EXPECT_FALSE(os::Registry::delete_value(kKelb, L"Zero"));

    // The store is well-formed XML for other tools, too.
    fs::path store = home.app_data() / "registry.xml";
    EXPECT_EQ(test::run("xmllint --noout '" + store.string() + "' 2>&1"), 0);
}

TEST(Registry, ReadUnderMissingKeyCreatesTheKey)
{
    test::PrivateHome home;
    os::init_path_macros();
    std::vector<std::wstring> keys;
    EXPECT_FALSE(os::Registry::enum_subkeys(L"HKEY_CURRENT_USER\\Software", keys));
    EXPECT_FALSE(os::Registry::enum_subkeys(L"HKEY_CURRENT_USER\\Software", keys))
        << "listing does not create";

    std::wstring s;
    EXPECT_FALSE(os::Registry::read_string(L"HKEY_CURRENT_USER\\Software\\Kelb\\Keys", L"x", s));
    EXPECT_TRUE(os::Registry::enum_subkeys(L"HKEY_CURRENT_USER\\Software", keys));
    EXPECT_EQ(keys, std::vector<std::wstring>{L"Kelb"});
    EXPECT_TRUE(os::Registry::enum_subkeys(kKelb, keys));
    EXPECT_EQ(keys, std::vector<std::wstring>{L"Keys"});
    EXPECT_TRUE(os::Registry::enum_subkeys(kKelb + L"\\Keys", keys));
    EXPECT_TRUE(keys.empty());

    uint32_t v;
    EXPECT_FALSE(os::Registry::read_dword(L"HKEY_CLASSES_ROOT\\.wav", L"", v));
    EXPECT_FALSE(os::Registry::read_dword(L"HKEY_CLASSES_ROOT\\.mp3", L"", v));
    EXPECT_TRUE(os::Registry::enum_subkeys(L"HKEY_CLASSES_ROOT", keys));
    EXPECT_EQ(keys, (std::vector<std::wstring>{L".wav", L".mp3"}));

    // What another reader of the file finds.
    os::RegistryStore store;
    ASSERT_TRUE(load_disk_store(home.app_data(), store));
    EXPECT_TRUE(store.has_key(kKelb + L"\\Keys"));
    EXPECT_TRUE(store.has_key(L"HKEY_CLASSES_ROOT\\.MP3"));
}

TEST(Registry, StampTellsEveryRewriteApart)
{
    test::PrivateHome home;
    os::init_path_macros();
    os::StoreStamp missing = os::Registry::stamp();
    EXPECT_EQ(missing.error, ENOENT);
    EXPECT_EQ(missing, os::Registry::stamp());

    // Same size, same time (pinned, as on a file system with coarse times):
    // the store is a new file each time all the same.
    const std::string path = (home.app_data() / "registry.xml").string();
    const timespec pinned[2] = {{1600000000, 0}, {1600000000, 0}};
    ASSERT_TRUE(os::Registry::write_dword(kKelb, L"Log", 1));
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), pinned, 0), 0);
    os::StoreStamp last = os::Registry::stamp();
    EXPECT_EQ(last.error, 0);
    EXPECT_NE(last, missing);
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(os::Registry::write_dword(kKelb, L"Log", i % 2));
        ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), pinned, 0), 0);
        os::StoreStamp now = os::Registry::stamp();
        EXPECT_EQ(now.mtime_ns, last.mtime_ns);
        EXPECT_EQ(now.size, last.size);
        EXPECT_NE(now, last) << i;
        EXPECT_EQ(now, os::Registry::stamp());
        last = now;
    }
    uint32_t v;
    EXPECT_TRUE(os::Registry::read_dword(kKelb, L"Log", v));
    EXPECT_EQ(last, os::Registry::stamp()) << "a read of an existing key writes nothing";
    EXPECT_EQ(os::Registry::store_path(), wide(home.app_data() / "registry.xml"));
}

TEST(Registry, BrokenStoreFailsOnceAloudAndIsLeftAlone)
{
    test::PrivateHome home;
    os::init_path_macros();
    ASSERT_TRUE(os::Registry::write_dword(kKelb, L"Log", 1));
    fs::path store = home.app_data() / "registry.xml";

    for (const std::string& garbage : {std::string("<registry><key name=\"HKEY_CU"),
                                       std::string("\x89PNG\r\n\x1a\n\0\0\0", 11),
                                       std::string("<other/>")}) {
        test::write_file(store, garbage);
        testing::internal::CaptureStderr();
        uint32_t v = 5;
        std::wstring s;
        std::vector<std::wstring> keys;
        for (int i = 0; i < 3; ++i) {
            EXPECT_FALSE(os::Registry::read_dword(kKelb, L"Log", v));
            EXPECT_FALSE(os::Registry::read_string(kKelb + L"\\New", L"x", s));
            EXPECT_FALSE(os::Registry::write_dword(kKelb, L"Log", 0));
            EXPECT_FALSE(os::Registry::delete_value(kKelb, L"Log"));
            EXPECT_FALSE(os::Registry::enum_subkeys(kKelb, keys));
        }
        std::string err = testing::internal::GetCapturedStderr();
        EXPECT_EQ(v, 5u);
        EXPECT_EQ(count_lines(err), 1) << err;
        EXPECT_EQ(count_lines_with(err, store.string()), 1) << err;
        EXPECT_EQ(test::read_file(store), garbage) << "never overwritten";

        // Mended, the store works again; broken again, it is told again.
        test::write_file(store, "");
        EXPECT_TRUE(os::Registry::write_dword(kKelb, L"Log", 1));
    }

    // A folder the program may not enter (a user other than root, so the
    // permissions count).
    int rc = run_unprivileged(home.root(), [&] {
        ::chmod(home.app_data().c_str(), 0);
        int log_fd = ::open((home.root() / "stderr.txt").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ::dup2(log_fd, 2);
        uint32_t v = 5;
        std::wstring s;
        std::vector<std::wstring> keys;
        for (int i = 0; i < 3; ++i) {
            if (os::Registry::read_dword(kKelb, L"Log", v) ||
                os::Registry::read_string(kKelb, L"x", s) ||
                os::Registry::write_dword(kKelb, L"Log", 0) ||
                os::Registry::enum_subkeys(kKelb, keys))
                return 1;
        }
        ::chmod(home.app_data().c_str(), 0700);
        std::string err = test::read_file(home.root() / "stderr.txt");
        if (count_lines(err) != 1 || count_lines_with(err, store.string()) != 1)
            return 2;
        return v == 5 ? 0 : 3;
    });
    EXPECT_EQ(rc, 0);
}

TEST(Registry, ConcurrentWritersLoseNothing)
{
    test::PrivateHome home;
    os::init_path_macros();
    const int kValues = 40;
    std::vector<pid_t> children;
    for (wchar_t who : {L'a', L'b', L'c'}) {
        pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            for (int i = 0; i < kValues; ++i) {
                std::wstring name = std::wstring(1, who) + std::to_wstring(i);
                if (!os::Registry::write_string(kKelb + L"\\" + std::wstring(1, who), name, name))
                    ::_exit(1);
            }
            ::_exit(0);
        }
        children.push_back(pid);
    }
    for (pid_t pid : children)
        EXPECT_EQ(test::exit_code_of(pid), 0);

    for (wchar_t who : {L'a', L'b', L'c'}) {
        for (int i = 0; i < kValues; ++i) {
            std::wstring name = std::wstring(1, who) + std::to_wstring(i), s;
            EXPECT_TRUE(os::Registry::read_string(kKelb + L"\\" + std::wstring(1, who), name, s))
                << liba::to_utf8(name);
            EXPECT_EQ(s, name);
        }
    }
    std::vector<std::wstring> keys;
    EXPECT_TRUE(os::Registry::enum_subkeys(kKelb, keys));
    EXPECT_EQ(keys.size(), 3u);
}

TEST(Registry, KilledWriterLeavesOldOrNewStore)
{
    test::PrivateHome home;
    os::init_path_macros();
    const size_t kSize = 400000;
    ASSERT_TRUE(os::Registry::write_string(kKelb, L"Big", std::wstring(kSize, L'a')));
    ASSERT_TRUE(os::Registry::write_dword(kKelb, L"Keep", 42));
    std::mt19937 rng(2024);
    for (int round = 0; round < 12; ++round) {
        int i = 0;
        test::kill_writers_midway(2, 2000, 80000, rng, [&](int c) {
            os::Registry::write_string(kKelb, L"Big", std::wstring(kSize, static_cast<wchar_t>(L'b' + (i++ + c) % 20)));
        });

        os::RegistryStore store;
        ASSERT_TRUE(load_disk_store(home.app_data(), store)) << "round " << round;
        std::wstring big;
        ASSERT_TRUE(store.read_string(kKelb, L"Big", big)) << "round " << round;
        ASSERT_EQ(big.size(), kSize) << "round " << round;
        ASSERT_EQ(big.find_first_not_of(big[0]), std::wstring::npos) << "round " << round;
        uint32_t keep = 0;
        ASSERT_TRUE(store.read_dword(kKelb, L"Keep", keep));
        EXPECT_EQ(keep, 42u);
    }
    // The next write clears what the killed writers left behind.
    ASSERT_TRUE(os::Registry::write_dword(kKelb, L"Keep", 43));
    std::vector<std::string> left;
    for (const auto& e : fs::directory_iterator(home.app_data()))
        left.push_back(e.path().filename().string());
    std::sort(left.begin(), left.end());
    EXPECT_EQ(left, (std::vector<std::string>{"registry.xml", "registry.xml.lock"}));
}

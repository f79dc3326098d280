#include "os/file.h"

#include "liba/text.h"
#include "os/path.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

using test::wide;

std::string read_all(os::File& f)
{
    std::string out;
    char buf[7]; // odd size: reads that end mid-buffer
    size_t n;
    while ((n = f.read(buf, sizeof buf)) > 0)
        out.append(buf, n);
    return out;
}

int count_entries(const fs::path& folder)
{
    int n = 0;
    for ([[maybe_unused]] const auto& e : fs::directory_iterator(folder))
        ++n;
    return n;
}

} // namespace

TEST(File, MissingFileInReadModeIsNotGoodAndDoesNothing)
{
    test::TempDir dir;
    os::File f(wide(dir / "missing.wav"), os::File::kRead);
    EXPECT_FALSE(f.good());
    EXPECT_FALSE(f.is_open());
    ASSERT_EQ(f.errors().size(), 1u);
    EXPECT_EQ(f.errors()[0], L"can't open file");
    char buf[16];
    EXPECT_EQ(f.read(buf, sizeof buf), 0u);
    EXPECT_EQ(f.size(), 0);
    EXPECT_EQ(f.tell(), 0);
    EXPECT_EQ(f.skip(5), 0);
    EXPECT_FALSE(f.seek(2));
    EXPECT_EQ(f.write("x", 1), 0u);
    EXPECT_FALSE(fs::exists(dir / "missing.wav"));

    // A folder is not a file, though open(2) would take it for reading.
    os::File folder(wide(dir.path()), os::File::kRead);
    EXPECT_FALSE(folder.good());
}

TEST(File, ModesCreateTruncateAppendAndUpdate)
{
    test::PrivateHome home;
    os::init_path_macros();
    ASSERT_TRUE(os::ensure_app_data());
    const std::wstring path = L"%app_data%\\Aufnahme ü.bin"; // through the macro, "\" separated
    const fs::path real = home.app_data() / "Aufnahme ü.bin";
    {
        os::File f(path, os::File::kWrite);
        ASSERT_TRUE(f.good());
        EXPECT_EQ(f.write("hello world", 11), 11u);
        EXPECT_EQ(f.tell(), 11);
        EXPECT_TRUE(f.flush());
        // Not inherited by programs we start.
        EXPECT_TRUE(::fcntl(f.handle(), F_GETFD) & FD_CLOEXEC);
    }
    EXPECT_EQ(test::read_file(real), "hello world");
    {
        os::File f(path, os::File::kWrite); // truncates
        EXPECT_EQ(f.size(), 0);
        f.write("abc", 3);
    }
    {
        os::File f(path, os::File::kAppend);
        ASSERT_TRUE(f.good());
        EXPECT_EQ(f.tell(), 3);
        f.write("def", 3);
        f.close();
        EXPECT_FALSE(f.is_open());
        EXPECT_EQ(f.write("x", 1), 0u);
    }
    EXPECT_EQ(test::read_file(real), "abcdef");
    {
        os::File f(path, 3); // read and write, nothing truncated
        ASSERT_TRUE(f.good());
        EXPECT_EQ(f.size(), 6);
        EXPECT_TRUE(f.seek(2));
        f.write("XY", 2);
        EXPECT_TRUE(f.seek(0));
        EXPECT_EQ(read_all(f), "abXYef");
    }
    {
        os::File f(path, os::File::kRead);
        EXPECT_EQ(f.write("zz", 2), 0u); // a read-only handle refuses
        EXPECT_FALSE(f.good());
    }
    EXPECT_EQ(test::read_file(real), "abXYef");

    // Append and read-write create what is missing; read does not.
    os::File appended(L"%app_data%/new_append.txt", os::File::kAppend);
    EXPECT_TRUE(appended.good());
    EXPECT_EQ(appended.tell(), 0);
    os::File updated(L"%app_data%/new_update.txt", 7);
    EXPECT_TRUE(updated.good());
    EXPECT_TRUE(fs::exists(home.app_data() / "new_append.txt"));
    EXPECT_TRUE(fs::exists(home.app_data() / "new_update.txt"));

    // A path into a missing folder fails in every mode.
    for (int mode : {0, 1, 2, 3})
        EXPECT_FALSE(os::File(L"%app_data%/no/such/x", mode).good()) << mode;
}

TEST(File, SkipSeekAndTellInBytes)
{
    test::TempDir dir;
    std::string data;
    for (int i = 0; i < 1000; ++i)
        data += static_cast<char>('a' + i % 26);
    test::write_file(dir / "data.bin", data);

    os::File f(wide(dir / "data.bin"), os::File::kRead);
    ASSERT_TRUE(f.good());
    EXPECT_EQ(f.size(), 1000);
    char buf[4];
    EXPECT_EQ(f.read(buf, 0), 0u);
    EXPECT_EQ(f.skip(100), 100);
    EXPECT_EQ(f.tell(), 100);
    ASSERT_EQ(f.read(buf, 4), 4u);
    EXPECT_EQ(std::string(buf, 4), data.substr(100, 4));
    EXPECT_EQ(f.skip(-50), -50);
    EXPECT_EQ(f.tell(), 54);
    EXPECT_EQ(f.skip(-1000), -54); // stops at the start
    EXPECT_EQ(f.tell(), 0);
    EXPECT_EQ(f.skip(5000), 1000); // and at the end of a file being read
    EXPECT_EQ(f.tell(), 1000);
    EXPECT_EQ(f.read(buf, 4), 0u);
    EXPECT_TRUE(f.seek(998));
    EXPECT_EQ(f.read(buf, 4), 2u);
    EXPECT_FALSE(f.seek(-1));
    EXPECT_EQ(f.tell(), 1000);

    // A file being written may be skipped past its end, leaving a hole.
    os::File w(wide(dir / "holes.bin"), os::File::kWrite);
    EXPECT_EQ(w.skip(10), 10);
    w.write("z", 1);
    EXPECT_EQ(w.size(), 11);
    w.close();
    EXPECT_EQ(test::read_file(dir / "holes.bin"), std::string(10, '\0') + "z");
}

TEST(FileAttributes, SnapshotAndChanges)
{
    test::TempDir dir;
    fs::path file = dir / "Lied ä.mp3";
    test::write_file(file, std::string(1234, 'x'));
    // Times set by touch(1), read back in local time.
    ASSERT_EQ(test::run("touch -m -d '2021-03-04 05:06:07.250' '" + file.string() + "'"), 0);

    os::FileAttributes missing(wide(dir / "nothing"));
    EXPECT_FALSE(missing.exists());
    EXPECT_EQ(missing.attributes, -1);
    EXPECT_EQ(missing.last_error, ENOENT);

    os::FileAttributes a(wide(file));
    ASSERT_TRUE(a.exists());
    EXPECT_FALSE(a.is_folder);
    EXPECT_FALSE(a.read_only);
    EXPECT_EQ(a.size, 1234);
    EXPECT_EQ(a.modified.to_text(), L"2021 03 04 05 06 07");
    EXPECT_EQ(a.modified.milliseconds, 250);
    EXPECT_FALSE(a.created.is_null());

    EXPECT_TRUE(a.set_read_only(true));
    EXPECT_TRUE(a.read_only);
    EXPECT_EQ(fs::status(file).permissions() & (fs::perms::owner_write | fs::perms::group_write |
                                                 fs::perms::others_write),
              fs::perms::none);
    EXPECT_TRUE(a.set_read_only(true)); // unchanged: nothing to do
    EXPECT_TRUE(os::FileAttributes(wide(file)).read_only);
    EXPECT_TRUE(a.set_read_only(false));
    EXPECT_FALSE(os::FileAttributes(wide(file)).read_only);

    // A folder, named with a trailing separator of either kind.
    os::FileAttributes folder(wide(dir.path()) + L"\\");
    ASSERT_TRUE(folder.exists());
    EXPECT_TRUE(folder.is_folder);
    EXPECT_TRUE(folder.create_folder(L"Neu"));
    EXPECT_TRUE(fs::is_directory(dir / "Neu"));
    EXPECT_FALSE(folder.create_folder(L"Neu"));
    EXPECT_EQ(folder.last_error, EEXIST);

    // Rename refuses to replace, and follows the file when it moves.
    test::write_file(dir / "other.mp3", "o");
    EXPECT_FALSE(a.rename(wide(dir / "other.mp3")));
    EXPECT_EQ(a.last_error, EEXIST);
    EXPECT_EQ(test::read_file(dir / "other.mp3"), "o");
    EXPECT_TRUE(a.rename(wide(dir / "Neu") + L"\\moved.mp3"));
    EXPECT_TRUE(fs::exists(dir / "Neu" / "moved.mp3"));
    EXPECT_FALSE(fs::exists(file));
    EXPECT_EQ(a.size, 1234);

    os::FileAttributes neu(wide(dir / "Neu"));
    EXPECT_FALSE(neu.remove()); // not empty
    EXPECT_EQ(neu.last_error, ENOTEMPTY);
    EXPECT_TRUE(a.remove());
    EXPECT_FALSE(a.exists());
    EXPECT_TRUE(neu.remove());
    EXPECT_FALSE(fs::exists(dir / "Neu"));
}

TEST(WholeFiles, WriteAtomicallyReplacesOrLeavesTheOldFile)
{
    test::TempDir dir;
    fs::path target = dir / "settings.xml";
    EXPECT_TRUE(os::write_file_atomically(wide(target), "first"));
    EXPECT_EQ(test::read_file(target), "first");
    ::chmod(target.c_str(), 0640);
    EXPECT_TRUE(os::write_file_atomically(wide(target), std::string(100000, 's')));
    EXPECT_EQ(test::read_file(target), std::string(100000, 's'));
    EXPECT_EQ(fs::status(target).permissions(),
              fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
    EXPECT_EQ(count_entries(dir.path()), 1);

    std::string read;
    EXPECT_TRUE(os::read_whole_file(wide(target), read));
    EXPECT_EQ(read, std::string(100000, 's'));
    EXPECT_FALSE(os::read_whole_file(wide(dir / "missing"), read));
    EXPECT_FALSE(os::read_whole_file(wide(dir.path()), read));

    // Writing through a link replaces the file it names.
    fs::create_symlink(target, dir / "link.xml");
    EXPECT_TRUE(os::write_file_atomically(wide(dir / "link.xml"), "via link"));
    EXPECT_TRUE(fs::is_symlink(dir / "link.xml"));
    EXPECT_EQ(test::read_file(target), "via link");
    fs::remove(dir / "link.xml");

    // A folder in the way: the rename fails, nothing is left behind.
    fs::create_directory(dir / "taken");
    EXPECT_FALSE(os::write_file_atomically(wide(dir / "taken"), "x"));
    EXPECT_TRUE(fs::is_directory(dir / "taken"));
    EXPECT_EQ(count_entries(dir.path()), 2);
    EXPECT_FALSE(os::write_file_atomically(wide(dir / "no" / "folder"), "x"));

    // A write that fails halfway (the file size limit, in a child that may
    // lower its own) leaves the old content and no temporary file.
    EXPECT_EQ(test::run_in_child([&] {
                  ::signal(SIGXFSZ, SIG_IGN);
                  rlimit lim{4096, 4096};
                  ::setrlimit(RLIMIT_FSIZE, &lim);
                  return os::write_file_atomically(wide(target), std::string(100000, 'n')) ? 1 : 0;
              }),
              0);
    EXPECT_EQ(test::read_file(target), "via link");
    EXPECT_EQ(count_entries(dir.path()), 2);
}

TEST(WholeFiles, KillDuringWriteLeavesOldOrNewNeverHalf)
{
    test::TempDir dir;
    fs::path target = dir / "big.dat";
    // Each version is one letter repeated, so a mix or a cut shows at once.
    const size_t kSize = 3 << 20;
    ASSERT_TRUE(os::write_file_atomically(wide(target), std::string(kSize, 'a')));
    std::mt19937 rng(12345);
    for (int round = 0; round < 12; ++round) {
        int i = 0;
        test::kill_writers_midway(1, 1000, 60000, rng, [&](int) {
            os::write_file_atomically(wide(target), std::string(kSize, static_cast<char>('b' + i++ % 20)));
        });
        std::string content = test::read_file(target);
        ASSERT_EQ(content.size(), kSize) << "round " << round;
        ASSERT_EQ(content.find_first_not_of(content[0]), std::string::npos) << "round " << round;
    }
    // The killed writers' temporaries are found and removed.
    os::remove_stale_temporaries(wide(target));
    EXPECT_EQ(count_entries(dir.path()), 1);
}

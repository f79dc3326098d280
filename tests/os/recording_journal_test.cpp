// The recordings journal: entries come and go with their writers, a process
// is known by its start time as well as its id, processes changing the
// journal at once all land, and the orphans of dead writers are handed out
// once.
#include "os/recording_journal.h"

#include "liba/text.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

std::wstring wide(const fs::path& p) { return liba::from_utf8(p.string()); }

std::vector<std::wstring> files_of(const os::RecordingJournal& j)
{
    std::vector<std::wstring> files;
    for (const auto& e : j.entries())
        files.push_back(e.file);
    std::sort(files.begin(), files.end());
    return files;
}

pid_t reaped_child()
{
    pid_t pid = ::fork();
    if (pid == 0)
        ::_exit(0);
    ::waitpid(pid, nullptr, 0);
    return pid;
}

} // namespace

TEST(RecordingJournal, ListsWritersAndHandsOutTheOrphansOfDeadOnes)
{
    test::TempDir dir;
    const fs::path journal_file = dir / "app" / "recordings.journal";
    const os::RecordingJournal journal(wide(journal_file));
    EXPECT_TRUE(journal.entries().empty());

    // Made absolute, with this process's id and start time; the folder is
    // made on the way.
    const std::wstring a = wide(dir / "a.wav"), b = wide(dir / "b.mp3");
    ASSERT_TRUE(journal.add(a));
    ASSERT_TRUE(journal.add(b));
    const auto entries = journal.entries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].file, a);
    EXPECT_EQ(entries[0].pid, ::getpid());
    EXPECT_NE(entries[0].started, 0u);
    EXPECT_EQ(entries[0].started, os::process_start_time(::getpid()));
    EXPECT_NE(os::process_start_time(::getppid()), 0u);
    EXPECT_EQ(os::process_start_time(reaped_child()), 0u);

    // Other processes add at the same time: the lock keeps every entry.
    std::vector<pid_t> kids;
    for (int i = 0; i < 8; ++i) {
        pid_t pid = ::fork();
        if (pid == 0) {
            const os::RecordingJournal j(wide(journal_file));
            for (int k = 0; k < 5; ++k)
                j.add(wide(dir / ("kid" + std::to_string(i) + "_" + std::to_string(k) + ".wav")));
            ::_exit(0);
        }
        kids.push_back(pid);
    }
    for (pid_t pid : kids)
        ::waitpid(pid, nullptr, 0);
    EXPECT_EQ(journal.entries().size(), 2u + 8 * 5);

    // Orphans: the children's entries, one of a live process whose start
    // time is not the writer's (an id handed on), and a damaged line, which
    // is dropped. Our own and our parent's entries stay.
    std::string text = test::read_file(journal_file);
    text += std::to_string(::getppid()) + " " + std::to_string(os::process_start_time(::getppid())) + " /x/parent.wav\n";
    text += std::to_string(::getpid()) + " 1 /x/reused.wav\nnot an entry\n";
    test::write_file(journal_file, text);
    std::vector<std::wstring> handed;
    EXPECT_EQ(journal.take_orphans([&](const std::wstring& f) { handed.push_back(f); }), 8 * 5 + 1);
    EXPECT_EQ(handed.size(), 8u * 5 + 1);
    EXPECT_EQ(handed.back(), L"/x/reused.wav");
    EXPECT_EQ(files_of(journal), (std::vector<std::wstring>{a, b, L"/x/parent.wav"}));
    EXPECT_EQ(journal.take_orphans([](const std::wstring&) { FAIL() << "handed out twice"; }), 0);

    // Only this process's entry of a file goes.
    EXPECT_TRUE(journal.remove(wide(dir / "a.wav")));
    EXPECT_TRUE(journal.remove(L"/x/parent.wav"));
    EXPECT_TRUE(journal.remove(wide(dir / "never.wav")));
    EXPECT_EQ(files_of(journal), (std::vector<std::wstring>{b, L"/x/parent.wav"}));
    EXPECT_TRUE(fs::exists(dir / "app" / "recordings.journal.lock"));
}

#include "os/recording_journal.h"

#include "liba/text.h"
#include "os/file.h"
#include "os/instance_lock.h"
#include "os/path.h"

#include <cstdlib>
#include <sstream>
#include <unistd.h>

namespace os {

namespace {

constexpr const char* kLockSuffix = ".lock";
// In /proc/<pid>/stat the state is the 3rd field and the start time the
// 22nd; they are counted behind the command name, which may hold blanks and
// ")".
constexpr int kFieldsFromStateToStartTime = 22 - 3;

std::wstring current_folder()
{
    char buf[4096];
    return ::getcwd(buf, sizeof buf) ? liba::from_utf8(buf) : L"";
}

std::wstring absolute(const std::wstring& file) { return make_absolute(file, current_folder()); }

// One entry a line: "<pid> <start time> <UTF-8 path>". Lines that don't read
// so are dropped.
std::vector<RecordingJournal::Entry> parse(const std::string& text)
{
    std::vector<RecordingJournal::Entry> entries;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        RecordingJournal::Entry e;
        std::string file;
        if (!(fields >> e.pid >> e.started) || fields.get() != ' ' || !std::getline(fields, file) ||
            file.empty() || e.pid <= 0)
            continue;
        e.file = liba::from_utf8(file);
        entries.push_back(e);
    }
    return entries;
}

std::string format(const std::vector<RecordingJournal::Entry>& entries)
{
    std::string text;
    for (const auto& e : entries)
        text += std::to_string(e.pid) + " " + std::to_string(e.started) + " " + liba::to_utf8(e.file) + "\n";
    return text;
}

bool is_gone(const RecordingJournal::Entry& e) { return process_start_time(e.pid) != e.started; }

// Holds the journal's lock while the entries are read, changed and, when
// they changed, written back whole.
class LockedJournal {
public:
    explicit LockedJournal(const std::wstring& path) : path_(path)
    {
        create_folders(folder_of(expand_path(path)));
        if (!lock_.acquire(native_path(path) + kLockSuffix))
            return;
        // A writer killed in the middle of a replacement left its temporary.
        remove_stale_temporaries(path);
        std::string text;
        read_whole_file(path, text);
        entries = parse(text);
    }
    bool held() const { return lock_.held(); }
    bool save() { return write_file_atomically(path_, format(entries)); }

    std::vector<RecordingJournal::Entry> entries;

private:
    std::wstring path_;
    InstanceLock lock_;
};

} // namespace

RecordingJournal::RecordingJournal(std::wstring path) : path_(std::move(path)) {}

bool RecordingJournal::add(const std::wstring& file) const
{
    LockedJournal journal(path_);
    if (!journal.held())
        return false;
    const int pid = static_cast<int>(::getpid());
    journal.entries.push_back({absolute(file), pid, process_start_time(pid)});
    return journal.save();
}

bool RecordingJournal::remove(const std::wstring& file) const
{
    LockedJournal journal(path_);
    if (!journal.held())
        return false;
    const std::wstring target = absolute(file);
    const int pid = static_cast<int>(::getpid());
    auto& entries = journal.entries;
    for (auto it = entries.begin(); it != entries.end(); ++it) {
        if (it->pid == pid && it->file == target) {
            entries.erase(it);
            return journal.save();
        }
    }
    return true;
}

std::vector<RecordingJournal::Entry> RecordingJournal::entries() const
{
    LockedJournal journal(path_);
    return journal.entries;
}

int RecordingJournal::take_orphans(const std::function<void(const std::wstring& file)>& repair) const
{
    LockedJournal journal(path_);
    if (!journal.held())
        return 0;
    std::vector<Entry> alive;
    for (const auto& e : journal.entries) {
        if (is_gone(e))
            repair(e.file);
        else
            alive.push_back(e);
    }
    const int taken = static_cast<int>(journal.entries.size() - alive.size());
    journal.entries = std::move(alive);
    if (taken > 0)
        journal.save();
    return taken;
}

std::uint64_t process_start_time(int pid)
{
    std::string stat;
    if (pid <= 0 || !read_whole_file(L"/proc/" + std::to_wstring(pid) + L"/stat", stat))
        return 0;
    const std::size_t name_end = stat.rfind(')');
    if (name_end == std::string::npos)
        return 0;
    std::istringstream fields(stat.substr(name_end + 1));
    std::string field;
    // A process that has died but not yet been waited for is gone too.
    if (!(fields >> field) || field == "Z" || field == "X")
        return 0;
    for (int i = 1; i < kFieldsFromStateToStartTime && fields >> field; ++i) {
    }
    std::uint64_t started = 0;
    return fields >> started ? started : 0;
}

} // namespace os

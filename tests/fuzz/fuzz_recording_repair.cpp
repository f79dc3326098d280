// Feeds arbitrary bytes, as a file, to the repair of crashed recordings:
// once as a WAV a dead writer left, once as the recordings journal. A repair must leave a file that needs none, never grow it,
// and the file must still read as the header says.
#include "audio/wav_repair.h"
#include "liba/text.h"
#include "os/file.h"
#include "os/recording_journal.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace {

std::string g_folder;
std::string g_tag;

std::wstring file_in_folder(const char* name) { return liba::from_utf8(g_folder + "/" + name + g_tag); }

void put_file(const std::wstring& path, const uint8_t* data, size_t size)
{
    os::File f(path, os::File::kWrite);
    if (size != 0 && f.write(data, size) != size)
        std::abort();
}

void repair_wav(const std::wstring& path, size_t size)
{
    const audio::WAVCheck first = audio::check_and_repair_wav(path);
    if (first != audio::WAVCheck::kRepaired)
        return;
    if (os::FileAttributes(path).size > static_cast<int64_t>(size))
        std::abort();
    if (audio::check_and_repair_wav(path) != audio::WAVCheck::kSound)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // Files are named by process, so parallel jobs keep apart; the repair
    // logs what it did, away from the user's home.
    g_folder = (std::filesystem::temp_directory_path() / "fuzz_recording_repair").string();
    std::error_code ignored;
    std::filesystem::create_directories(g_folder, ignored);
    g_tag = std::to_string(getpid());
    setenv("HOME", g_folder.c_str(), 1);
    setenv("XDG_CONFIG_HOME", g_folder.c_str(), 1);
    setenv("XDG_DATA_HOME", g_folder.c_str(), 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::wstring wav = file_in_folder("input.wav-");
    put_file(wav, data, size);
    repair_wav(wav, size);

    // The same bytes as a journal. The files it names are not repaired
    // here: they could be anyone's.
    const std::wstring journal_path = file_in_folder("journal-");
    put_file(journal_path, data, size);
    const os::RecordingJournal journal(journal_path);
    for (const auto& e : journal.entries())
        if (e.pid <= 0 || e.file.empty())
            std::abort();
    journal.take_orphans([](const std::wstring&) {});

    std::error_code ignored;
    for (const char* name : {"input.wav-", "journal-", "journal-.lock"})
        std::filesystem::remove(liba::to_utf8(file_in_folder(name)), ignored);
    return 0;
}

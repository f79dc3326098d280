// Feeds arbitrary bytes, as a file, to the repair of crashed recordings:
// once as a WAV a dead writer left, once as the recordings journal. A repair must leave a file that needs none, never grow it,
// and the file must still read as the header says.
#include "audio/wav_repair.h"
#include "fuzz_files.h"
#include "os/file.h"
#include "os/recording_journal.h"

#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

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
    // The repair logs what it did.
    fuzz::init_scratch("fuzz_recording_repair");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::wstring wav = fuzz::scratch_file("input-", ".wav");
    fuzz::put_file(wav, data, size);
    repair_wav(wav, size);

    // The same bytes as a journal. The files it names are not repaired
    // here: they could be anyone's.
    const std::wstring journal_path = fuzz::scratch_file("journal-");
    fuzz::put_file(journal_path, data, size);
    const os::RecordingJournal journal(journal_path);
    for (const auto& e : journal.entries())
        if (e.pid <= 0 || e.file.empty())
            std::abort();
    journal.take_orphans([](const std::wstring&) {});

    for (const std::wstring& f : {wav, journal_path, journal_path + L".lock"})
        fuzz::remove_file(f);
    return 0;
}

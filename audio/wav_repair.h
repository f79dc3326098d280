#pragma once

#include "os/recording_journal.h"

#include <string>

// Mends a WAV file that a recording left when its process died: the header
// is patched now and then while recording, so the file may hold whole
// blocks of audio behind the data its header claims. Those are taken into
// the data chunk, a part block at the end is cut, and the RIFF size and the
// "fact" sample count follow. What other programs put behind the data chunk
// (LIST, "id3 ", "cue " or any other well-formed chunks, an ID3v1 tag) is
// recognised and left alone.
// Threads: any; the file must not be written meanwhile. Sizes in bytes.
namespace audio {

enum class WAVCheck {
    kNotWAV,   // not a RIFF WAVE file with "fmt " and "data": left alone
    kSound,    // nothing to repair
    kRepaired, // the header now covers the audio the file holds (logged)
    kFailed,   // the repair could not be written
};

WAVCheck check_and_repair_wav(const std::wstring& path);

// Repairs each file listed in `journal` whose writer is gone and takes it
// out of the journal; the number of files taken out. Files of other kinds
// (MP3 needs no patching) are kept as they are.
int repair_orphaned_recordings(const os::RecordingJournal& journal);

} // namespace audio

// Writes the audio of a 16-bit WAV through FileWriterWAVPCM in 5000-frame
// records, as a recording does: with the recordings journal (beside the
// output), so the header is patched and the data synced once a second, or
// with "--plain" as a conversion writes. Usage:
// wav_writer_recording [--plain] IN.wav OUT.wav
#include "audio/file_writer_wav.h"
#include "audio/wav_info.h"
#include "liba/text.h"
#include "os/file.h"
#include "os/recording_journal.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

namespace {

constexpr int kRecordFrames = 5000;

} // namespace

int main(int argc, char** argv)
{
    const bool plain = argc == 4 && std::strcmp(argv[1], "--plain") == 0;
    if (argc != 3 && !plain) {
        std::fprintf(stderr, "usage: wav_writer_recording [--plain] IN.wav OUT.wav\n");
        return 2;
    }
    const std::wstring in_path = liba::from_utf8(argv[argc - 2]);
    const std::wstring out_path = liba::from_utf8(argv[argc - 1]);
    os::File in(in_path, os::File::kRead);
    audio::WAVInfoPCM info;
    if (!info.read(in) || info.block_align == 0) {
        std::fprintf(stderr, "wav_writer_recording: %s is not PCM WAV\n", argv[argc - 2]);
        return 1;
    }
    const os::RecordingJournal journal(out_path + L".journal");
    {
        audio::FileWriterWAVPCM writer(out_path, false, plain ? nullptr : &journal);
        const std::size_t record = static_cast<std::size_t>(kRecordFrames) * info.block_align;
        for (std::size_t left = info.data_size; left > 0;) {
            audio::PCMData r;
            liba::ByteBlock bytes(std::min(record, left));
            const std::size_t got = in.read(bytes.writable(), bytes.size());
            if (got == 0)
                break;
            r.bytes = liba::ByteBlock(bytes, 0, got);
            r.channels = info.channels;
            r.bits = info.bits;
            r.rate = info.rate;
            writer.on_data(r);
            left -= got;
        }
        if (!writer.is_good())
            return 1;
    }
    return 0;
}

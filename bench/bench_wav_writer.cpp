// Times writing 10 minutes of 44.1 kHz stereo PCM through the WAV writer in
// recording mode (the header patched and the data synced once a second)
// against cp of the same bytes, and against dd that syncs its output once at
// the end; the writer without the flushes shows what they cost. Prints the
// ratios to cp. The source is made once by sox and kept beside this program.
#include "bench_support.h"

#include <cstdio>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr int kRounds = 5;

} // namespace

int main()
{
    const fs::path here = bench::here();
    const fs::path media = here / "bench_media";
    const fs::path wav = bench::long_pcm("bench_wav_writer");
    if (wav.empty())
        return 1;
    const std::string writer = (here / "wav_writer_recording").string();
    const std::string out = (media / "written.wav").string();
    std::vector<bench::Contender> contenders = {
        {"cp", {"cp", wav.string(), out}},
        {"dd conv=fdatasync", {"dd", "if=" + wav.string(), "of=" + out, "bs=1M", "conv=fdatasync", "status=none"}},
        {"writer, recording", {writer, wav.string(), out}},
        {"writer, plain", {writer, "--plain", wav.string(), out}},
    };
    if (!bench::race(contenders, kRounds, "bench_wav_writer"))
        return 1;
    const bench::Contender& cp = contenders[0];
    std::printf("Writing 10 minutes of 44.1 kHz stereo PCM WAV (%.1f MB), best of %d runs:\n",
                static_cast<double>(fs::file_size(wav)) / 1e6, kRounds);
    for (const auto& c : contenders)
        std::printf("  %-20s cpu %6.3f s  wall %6.3f s  cpu ratio to cp %.3f  wall ratio to cp %.3f\n",
                    c.name.c_str(), c.cpu, c.wall, c.cpu / cp.cpu, c.wall / cp.wall);
    std::printf("  writer with the once-a-second flush against cp: wall %.3f, cpu %.3f\n", contenders[2].wall / cp.wall,
                contenders[2].cpu / cp.cpu);
    fs::remove(out);
    return 0;
}

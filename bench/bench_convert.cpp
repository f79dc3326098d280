// Times `quillctl convert` of a 10-minute 16 kHz mono speech WAV to MP3 at
// 64 kbit/s against `lame -t -b 64` on the same file, in the same run,
// median of 3, wall and CPU time, and prints the ratios. Goal: quillctl
// takes at most 1.05 times lame's time. The speech is espeak-ng's, repeated
// by sox, made once and kept beside this program.
#include "bench_support.h"

#include <cstdio>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr int kRounds = 3;
constexpr double kGoal = 1.05;

constexpr const char* kSpeech =
    "The quick brown fox jumps over the lazy dog. A recording of a meeting runs for an hour, and "
    "the notes that come of it are read out again at the end, slowly, so that nobody misses a word.";

} // namespace

int main()
{
    const fs::path here = bench::here();
    const fs::path media = here / "bench_media";
    const fs::path wav = media / "speech_10min_16000_mono.wav";
    if (!bench::make_once(wav,
                          std::string("espeak-ng --stdout \"") + kSpeech +
                              "\" | sox -V1 -t wav - -r 16000 -c 1 -b 16 \"$0\" repeat 100 trim 0 600",
                          "bench_convert"))
        return 1;
    const fs::path quillctl = bench::built_program("quillctl", "bench_convert");
    if (quillctl.empty())
        return 1;
    std::vector<bench::Contender> contenders = {
        {"lame -t -b 64", {"lame", "--quiet", "-t", "-b", "64", wav.string(), (media / "lame.mp3").string()}},
        {"quillctl convert", {quillctl.string(), "convert", wav.string(), (media / "quillctl.mp3").string()}},
    };
    if (!bench::race_median(contenders, kRounds, "bench_convert"))
        return 1;
    const bench::Contender& lame = contenders[0];
    const bench::Contender& ours = contenders[1];
    std::printf("Convert of 10 minutes of 16 kHz mono speech to 64 kbit/s MP3, median of %d runs:\n", kRounds);
    for (const auto& c : contenders)
        std::printf("  %-20s cpu %6.3f s  wall %6.3f s  cpu ratio %.3f  wall ratio %.3f\n", c.name.c_str(), c.cpu,
                    c.wall, c.cpu / lame.cpu, c.wall / lame.wall);
    const double cpu = ours.cpu / lame.cpu, wall = ours.wall / lame.wall;
    std::printf("  goal: quillctl convert at most %.2f x lame: cpu %.3f, wall %.3f, %s\n", kGoal, cpu, wall,
                cpu <= kGoal && wall <= kGoal ? "met" : "MISSED");
    return 0;
}

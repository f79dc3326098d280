// Times the MP3 decode of a 10-minute 128 kbit/s stereo file to raw PCM:
// FileReaderMP3 into DecoderMP3 (mp3_decode_pipeline) against a minimal C
// loop over libmad (mp3_decode_plain) and against madplay, all in one run on
// the same file, and prints the ratios. Goal: the pipeline takes at most 1.10
// times the plain loop's CPU time. The file is made once with sox and lame
// and kept beside this program.
#include "bench_support.h"

#include <cstdio>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr int kRounds = 5;
constexpr double kGoal = 1.10;

} // namespace

int main()
{
    const fs::path here = bench::here();
    const fs::path mp3 = here / "bench_media" / "mp3_10min_128k_stereo.mp3";
    if (!bench::make_once(mp3,
                          "sox -V1 -n -r 44100 -c 2 -b 16 -t wav - synth 600 sine 100-8000 pinknoise gain -10 "
                          "| lame --quiet -b 128 - \"$0\"",
                          "bench_mp3_decode"))
        return 1;

    std::vector<bench::Contender> contenders = {
        {"plain libmad loop", {(here / "mp3_decode_plain").string(), mp3.string(), "/dev/null"}},
        {"FileReaderMP3 + DecoderMP3", {(here / "mp3_decode_pipeline").string(), mp3.string(), "/dev/null"}},
    };
    // The same decode as a user runs it: the program's play chain pulled in
    // the player's requests, its samples to standard output.
    fs::path quillctl = here.parent_path() / "program" / "quillctl";
    if (fs::exists(quillctl))
        contenders.emplace_back("quillctl decode FILE -",
                                std::vector<std::string>{"/bin/sh", "-c", "exec \"$0\" decode \"$1\" - >/dev/null",
                                                         quillctl.string(), mp3.string()});
    if (bench::on_path("madplay"))
        contenders.emplace_back("madplay -o raw:/dev/null",
                                std::vector<std::string>{"madplay", "-q", "-o", "raw:/dev/null", mp3.string()});
    else
        std::printf("bench_mp3_decode: madplay is not installed; it is left out\n");

    if (!bench::race(contenders, kRounds, "bench_mp3_decode"))
        return 1;
    const bench::Contender& plain = contenders[0];
    const bench::Contender& ours = contenders[1];
    std::printf("MP3 decode of 10 minutes at 128 kbit/s stereo to raw, best of %d runs:\n", kRounds);
    for (const auto& c : contenders)
        std::printf("  %-30s cpu %6.3f s  wall %6.3f s  cpu ratio %.3f  wall ratio %.3f\n", c.name.c_str(),
                    c.cpu, c.wall, c.cpu / plain.cpu, c.wall / plain.wall);
    if (plain.out != ours.out)
        std::printf("  note: the PCM differs in length: plain %s bytes, ours %s bytes\n", plain.out.c_str(),
                    ours.out.c_str());
    double ratio = ours.cpu / plain.cpu;
    std::printf("  goal: FileReaderMP3 + DecoderMP3 at most %.2f x the plain loop: %.3f, %s\n", kGoal, ratio,
                ratio <= kGoal ? "met" : "MISSED");
    return 0;
}

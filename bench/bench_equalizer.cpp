// Times three active equaliser bands over a 10-minute 44.1 kHz stereo WAV
// made with sox at the first run: FileReaderWAVPCM into three EqualizerPCM
// (equalizer_pipeline) against ffmpeg with three equalizer filters on one
// filter thread and against sox with three equalizer effects, all writing
// raw PCM to /dev/null, and prints the ratios. Goal: no slower than ffmpeg
// and at most half of sox's CPU time.
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
    const fs::path wav = bench::long_pcm("bench_equalizer");
    if (wav.empty())
        return 1;
    // Hz, octaves, dB of the three bands, as equalizer_pipeline sets them.
    const std::vector<std::string> sox_bands = {"equalizer", "100", "1o", "4", "equalizer", "1000", "1o", "-6",
                                                "equalizer", "6000", "2o", "3"};
    const std::string ffmpeg_bands = "equalizer=f=100:t=o:w=1:g=4,equalizer=f=1000:t=o:w=1:g=-6,"
                                     "equalizer=f=6000:t=o:w=2:g=3";
    std::vector<bench::Contender> contenders = {
        {"3 x EqualizerPCM", {(bench::here() / "equalizer_pipeline").string(), wav.string(), "/dev/null"}},
        {"ffmpeg, 3 x equalizer", bench::ffmpeg_filter(wav, ffmpeg_bands)},
    };
    std::vector<std::string> sox = {"sox", "-D", wav.string(), "-t", "raw", "/dev/null"};
    sox.insert(sox.end(), sox_bands.begin(), sox_bands.end());
    contenders.emplace_back("sox, 3 x equalizer", sox);

    if (!bench::race(contenders, kRounds, "bench_equalizer"))
        return 1;
    const bench::Contender& ours = contenders[0];
    std::printf("Three equaliser bands over 10 minutes of 44.1 kHz stereo to /dev/null, best of %d runs:\n",
                kRounds);
    for (const auto& c : contenders)
        std::printf("  %-24s cpu %6.3f s  wall %6.3f s  ours / this: cpu %.3f  wall %.3f\n", c.name.c_str(), c.cpu,
                    c.wall, ours.cpu / c.cpu, ours.wall / c.wall);
    const double to_ffmpeg = ours.cpu / contenders[1].cpu, to_sox = ours.cpu / contenders[2].cpu;
    std::printf("  goal: no slower than ffmpeg (cpu ratio %.3f, %s), at most half of sox (cpu ratio %.3f, %s)\n",
                to_ffmpeg, to_ffmpeg <= 1.0 ? "met" : "MISSED", to_sox, to_sox <= 0.5 ? "met" : "MISSED");
    return 0;
}

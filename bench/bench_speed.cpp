// Times the speed stages over 10 minutes of 44.1 kHz stereo speech (the
// espeak-ng clip repeated, made at the first run): half speed with the pitch
// held (the stretch filter's repeated periods) against ffmpeg's atempo=0.5,
// and the any-speed stretch at 1.5 against atempo=1.5, all on one thread
// writing raw PCM to /dev/null; prints the ratios. Goal: no slower than
// ffmpeg for both. Also saves both speeds of the speech clip through
// quillctl decode beside the bench media, to be listened to.
#include "bench_support.h"

#include <cstdio>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr int kRounds = 3;
constexpr const char* kSpeech = "Quillaphonics records speech without losing a second of it. "
                                "One, two, three, four, five.";

} // namespace

int main()
{
    const fs::path here = bench::here();
    const fs::path media = here / "bench_media";
    const fs::path clip = media / "speech_clip_44100_stereo.wav";
    const fs::path wav = media / "speech_10min_44100_stereo.wav";
    if (!bench::make_once(clip,
                          std::string("espeak-ng -w \"$0.src.wav\" '") + kSpeech +
                              "' && sox -V1 \"$0.src.wav\" -r 44100 -c 2 -b 16 -t wav \"$0\" && rm \"$0.src.wav\"",
                          "bench_speed") ||
        !bench::make_once(wav, "sox -V1 \"" + clip.string() + "\" -t wav \"$0\" repeat 120 trim 0 600",
                          "bench_speed"))
        return 1;
    const std::string pipeline = (here / "speed_pipeline").string();
    auto ffmpeg = [&](const char* tempo) { return bench::ffmpeg_filter(wav, std::string("atempo=") + tempo); };
    std::vector<bench::Contender> contenders = {
        {"half speed, pitch kept", {pipeline, wav.string(), "/dev/null", "0.5", "keep"}},
        {"ffmpeg atempo=0.5", ffmpeg("0.5")},
        {"stretch 1.5", {pipeline, wav.string(), "/dev/null", "1.5", "stretch"}},
        {"ffmpeg atempo=1.5", ffmpeg("1.5")},
    };
    if (!bench::race(contenders, kRounds, "bench_speed"))
        return 1;
    std::printf("Speed change over 10 minutes of 44.1 kHz stereo speech to /dev/null, best of %d runs:\n", kRounds);
    for (const auto& c : contenders)
        std::printf("  %-24s cpu %6.3f s  wall %6.3f s\n", c.name.c_str(), c.cpu, c.wall);
    for (int i = 0; i < 4; i += 2) {
        const double ratio = contenders[i].cpu / contenders[i + 1].cpu;
        std::printf("  %s / %s: cpu %.3f, wall %.3f (goal: at most 1.0, %s)\n", contenders[i].name.c_str(),
                    contenders[i + 1].name.c_str(), ratio, contenders[i].wall / contenders[i + 1].wall,
                    ratio <= 1.0 ? "met" : "MISSED");
    }

    // What to listen to: the clip at half speed and stretched to 1.5.
    const fs::path quillctl = here.parent_path() / "program" / "quillctl";
    for (const auto& [name, options] : std::vector<std::pair<std::string, std::vector<std::string>>>{
             {"listen_half_speed.wav", {"--speed", "0.5"}},
             {"listen_stretch_1.5.wav", {"--speed", "1.5", "--pitch", "stretch"}}}) {
        std::vector<std::string> argv = {quillctl.string(), "decode", clip.string(), (media / name).string()};
        argv.insert(argv.end(), options.begin(), options.end());
        if (!bench::run(argv).ok) {
            std::fprintf(stderr, "bench_speed: quillctl decode to %s failed\n", name.c_str());
            return 1;
        }
        std::printf("  saved %s\n", (media / name).c_str());
    }
    return 0;
}

// Times the decode of a 10-minute Ogg Vorbis file (oggenc -q 4) and a
// 10-minute Musepack file (mpcenc --standard) to raw PCM on standard output:
// `quillctl decode FILE -` (Tremor and libmpcdec through the play chain)
// against oggdec and mpcdec, all in one run on the same files, and prints
// the ratios. Goal: quillctl takes at most 1.15 times the peer's CPU time.
// A plain Tremor loop shows what the decoder library costs by itself, apart
// from the play chain: oggdec decodes with libvorbis, in floating point.
// The files are made once with sox, oggenc and mpcenc and kept beside this
// program.
#include "bench_support.h"

#include <cstdio>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr int kRounds = 5;
constexpr double kGoal = 1.15;

// Ten minutes of a sweep over pink noise, as a WAV on standard output.
const std::string kSource =
    "sox -V1 -n -r 44100 -c 2 -b 16 -t wav - synth 600 sine 100-8000 pinknoise gain -10";

// `program` with its arguments, its standard output thrown away.
bench::Contender to_null(std::string name, const std::vector<std::string>& argv)
{
    std::string script = "exec";
    for (std::size_t i = 0; i < argv.size(); ++i)
        script += " \"$" + std::to_string(i) + "\"";
    std::vector<std::string> all{"/bin/sh", "-c", script + " >/dev/null 2>&1"};
    all.insert(all.end(), argv.begin(), argv.end());
    return {std::move(name), all};
}

} // namespace

int main()
{
    const fs::path here = bench::here();
    const fs::path ogg = here / "bench_media" / "vorbis_10min_q4_stereo.ogg";
    const fs::path mpc = here / "bench_media" / "musepack_10min_standard_stereo.mpc";
    if (!bench::make_once(ogg, kSource + " | oggenc --quiet -q 4 -o \"$0\" -", "bench_vorbis_mpc_decode") ||
        !bench::make_once(mpc,
                          kSource + " >\"$0.wav\" && mpcenc --silent --standard \"$0.wav\" \"$0\" 2>/dev/null; "
                                    "s=$?; rm -f \"$0.wav\"; exit $s",
                          "bench_vorbis_mpc_decode"))
        return 1;
    const fs::path quillctl = bench::built_program("quillctl", "bench_vorbis_mpc_decode");
    if (quillctl.empty() || !bench::peers_installed({"oggdec", "mpcdec"}, "bench_vorbis_mpc_decode"))
        return 1;

    std::vector<bench::Contender> contenders = {
        to_null("oggdec -R", {"oggdec", "-Q", "-R", "-o", "-", ogg.string()}),
        to_null("quillctl decode (Vorbis)", {quillctl.string(), "decode", ogg.string(), "-"}),
        to_null("mpcdec -r", {"mpcdec", "-r", mpc.string(), "-"}),
        to_null("quillctl decode (Musepack)", {quillctl.string(), "decode", mpc.string(), "-"}),
        to_null("plain Tremor loop", {(here / "vorbis_decode_plain").string(), ogg.string()}),
    };
    if (!bench::race(contenders, kRounds, "bench_vorbis_mpc_decode"))
        return 1;
    std::printf("Decode of 10 minutes of stereo 44100 Hz to raw 16-bit samples, best of %d runs:\n", kRounds);
    for (std::size_t i = 0; i + 1 < contenders.size(); i += 2) {
        const bench::Contender& peer = contenders[i];
        const bench::Contender& ours = contenders[i + 1];
        for (const bench::Contender* c : {&peer, &ours})
            std::printf("  %-28s cpu %6.3f s  wall %6.3f s\n", c->name.c_str(), c->cpu, c->wall);
        const double ratio = ours.cpu / peer.cpu;
        std::printf("  goal: %s at most %.2f x %s's cpu time: %.3f (wall %.3f), %s\n", ours.name.c_str(), kGoal,
                    peer.name.c_str(), ratio, ours.wall / peer.wall, ratio <= kGoal ? "met" : "MISSED");
    }
    const bench::Contender& tremor = contenders[4];
    std::printf("  %-28s cpu %6.3f s  wall %6.3f s\n", tremor.name.c_str(), tremor.cpu, tremor.wall);
    std::printf("  Tremor by itself against oggdec -R: cpu ratio %.3f; quillctl decode (Vorbis) against it: %.3f\n",
                tremor.cpu / contenders[0].cpu, contenders[1].cpu / tremor.cpu);
    return 0;
}

// quillctl decode through the speed stages and the output volume, as a user
// runs it, on a sox tone and the espeak-ng clip: lengths, pitch (by
// autocorrelation, against the source's), clicks (no sample-to-sample step
// above the source's largest) and the options that leave the sound alone.
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

using test::one_media;
using test::quote;
using test::run_out;
using test::samples_of;

// Raw 16-bit samples of quillctl decode with `options`.
std::string decode(const fs::path& f, const std::string& options)
{
    return run_out(quote((test::program_dir() / "quillctl").string()) + " decode " + quote(f.string()) + " - " +
                   options + " 2>/dev/null");
}

// The largest step between neighbouring samples of one channel.
int largest_step(const std::vector<std::int16_t>& s, int channels)
{
    int most = 0;
    for (std::size_t i = static_cast<std::size_t>(channels); i < s.size(); ++i)
        most = std::max(most, std::abs(s[i] - s[i - static_cast<std::size_t>(channels)]));
    return most;
}

// The median pitch, in Hz, of the voiced 50 ms windows of mono `x`: each
// window's shortest autocorrelation peak (60 Hz to 1 kHz) within 10% of its
// highest, refined by a parabola.
double median_pitch(const std::vector<std::int16_t>& x, int rate)
{
    const int win = rate / 20, min_lag = rate / 1000, max_lag = rate / 60;
    std::vector<double> energies;
    for (std::size_t w = 0; w + static_cast<std::size_t>(win + max_lag) < x.size(); w += static_cast<std::size_t>(win / 2)) {
        double e = 0;
        for (int i = 0; i < win; ++i)
            e += double(x[w + static_cast<std::size_t>(i)]) * x[w + static_cast<std::size_t>(i)];
        energies.push_back(e);
    }
    const double loud = energies.empty() ? 0 : *std::max_element(energies.begin(), energies.end()) * 0.05;
    std::vector<double> pitches;
    std::vector<double> r(static_cast<std::size_t>(max_lag + 2));
    for (std::size_t k = 0; k < energies.size(); ++k) {
        if (energies[k] < loud)
            continue;
        const std::int16_t* p = x.data() + k * static_cast<std::size_t>(win / 2);
        for (int lag = min_lag - 1; lag <= max_lag + 1; ++lag) {
            double c = 0, e = 0;
            for (int i = 0; i < win; ++i) {
                c += double(p[i]) * p[i + lag];
                e += double(p[i + lag]) * p[i + lag];
            }
            r[static_cast<std::size_t>(lag)] = c / std::sqrt(energies[k] * e + 1.0);
        }
        double top = 0;
        for (int lag = min_lag; lag <= max_lag; ++lag)
            top = std::max(top, r[static_cast<std::size_t>(lag)]);
        if (top < 0.7)
            continue;
        for (int lag = min_lag; lag <= max_lag; ++lag) {
            const double a = r[static_cast<std::size_t>(lag - 1)], b = r[static_cast<std::size_t>(lag)],
                         c = r[static_cast<std::size_t>(lag + 1)];
            if (b >= a && b >= c && b >= 0.9 * top) {
                const double shift = (a - c) / (2 * (a - 2 * b + c));
                pitches.push_back(rate / (lag + (std::isfinite(shift) ? shift : 0.0)));
                break;
            }
        }
    }
    if (pitches.empty())
        return 0;
    std::nth_element(pitches.begin(), pitches.begin() + static_cast<std::ptrdiff_t>(pitches.size() / 2), pitches.end());
    return pitches[pitches.size() / 2];
}

} // namespace

TEST(DecodeStages, SpeedsGiveTheirLengthAndPitchWithoutClicks)
{
    struct Case {
        double speed;
        const char* pitch;
        double length; // output frames over input frames
        double rise;   // output pitch over input pitch
    };
    const Case cases[] = {
        {0.5, nullptr, 2.0, 1.0},       {0.5, "keep", 2.0, 1.0},        {1.5, "change", 1 / 1.5, 1.5},
        {0.5, "stretch", 2.0, 1.0},     {0.75, "stretch", 1 / 0.75, 1.0}, {1.25, "stretch", 1 / 1.25, 1.0},
        {1.5, "stretch", 1 / 1.5, 1.0}, {2.0, "stretch", 0.5, 1.0},
    };
    for (const char* name : {"pcm_s16_mono_8000.wav", "pcm_s16_speech_16000.wav"}) {
        const fs::path f = one_media(name);
        const bool speech = std::strstr(name, "speech") != nullptr;
        const int rate = std::stoi(run_out("soxi -r " + quote(f.string())));
        const std::vector<std::int16_t> source = samples_of(decode(f, ""));
        const double source_pitch = median_pitch(source, rate);
        ASSERT_GT(source_pitch, 60) << name;
        for (const Case& c : cases) {
            char options[64];
            std::snprintf(options, sizeof options, "--speed %g%s%s", c.speed, c.pitch ? " --pitch " : "",
                          c.pitch ? c.pitch : "");
            const bool stretch = c.pitch && std::strcmp(c.pitch, "stretch") == 0;
            const std::vector<std::int16_t> out = samples_of(decode(f, options));
            // Half speed with the pitch held ends on exactly twice the frames,
            // fast play and a stretch within a frame.
            const double slack = !stretch && c.length == 2.0 ? 0.0 : 1.0;
            EXPECT_NEAR(static_cast<double>(out.size()), static_cast<double>(source.size()) * c.length, slack)
                << name << " " << options;
            // A stretched voice is held against sox's own stretch of it:
            // over a phrase, the median of a stretch's pitches moves a little
            // whoever stretches (about 2% at half and double speed).
            double want = source_pitch * c.rise;
            if (stretch && speech)
                want = median_pitch(samples_of(run_out("sox " + quote(f.string()) + " -t raw - tempo -s " +
                                                       std::to_string(c.speed))),
                                    rate);
            // 3% is a semitone's half: a pitch that follows the speed misses
            // it by 25% at 1.25, while two good stretches of one clip differ
            // by up to about 1% (and the clip varies with espeak-ng's build).
            EXPECT_NEAR(median_pitch(out, rate) / want, 1.0, 0.03) << name << " " << options;
            // Clicks, in speech: fast play drops frames on purpose, and a
            // tone's period at 8 kHz is no whole number of frames, which bends
            // the repeated periods of half speed at each seam.
            if (speech && !(c.pitch && std::strcmp(c.pitch, "change") == 0)) {
                EXPECT_LE(largest_step(out, 1), largest_step(source, 1)) << name << " " << options;
            }
        }
        // With the pitch held, the speed table plays 0.75 and 1.5 at normal
        // speed.
        const std::string plain = decode(f, "");
        EXPECT_TRUE(decode(f, "--speed 1.5") == plain) << name;
        EXPECT_TRUE(decode(f, "--speed 0.75 --pitch keep") == plain) << name;
    }
    // Stereo at 44.1 kHz: length and clicks of half speed and of a stretch.
    const fs::path stereo = one_media("pcm_s16_speech_stereo_44100.wav");
    const std::vector<std::int16_t> source = samples_of(decode(stereo, ""));
    for (const auto& [options, length] :
         std::vector<std::pair<std::string, double>>{{"--speed 0.5", 2.0}, {"--speed 1.5 --pitch stretch", 1 / 1.5}}) {
        const std::vector<std::int16_t> out = samples_of(decode(stereo, options));
        EXPECT_NEAR(static_cast<double>(out.size() / 2), static_cast<double>(source.size() / 2) * length, 1.0)
            << options;
        EXPECT_LE(largest_step(out, 2), largest_step(source, 2)) << options;
    }
}

TEST(DecodeStages, VolumeScalesAsTheDeviceAndStagesAtRestLeaveTheSoundAlone)
{
    const fs::path f = one_media("pcm_s16_speech_16000.wav");
    const std::string plain = decode(f, "");
    std::vector<std::int16_t> half = samples_of(plain);
    // The device's level for 50%: 0.5 x 65535, truncated; products truncated.
    for (std::int16_t& s : half)
        s = static_cast<std::int16_t>(s * 32767 / 65535);
    EXPECT_TRUE(samples_of(decode(f, "--volume 50")) == half);
    EXPECT_TRUE(decode(f, "--volume 100") == plain);
    EXPECT_TRUE(decode(f, "--booster 0 --noise 0 --limiter 0") == plain);
    EXPECT_FALSE(decode(f, "--booster 3") == plain);
    EXPECT_FALSE(decode(f, "--eq 1000,1,6") == plain);
    // A band the rate can't carry (at or above 16000 / 2.01 Hz) passes the
    // sound on as it is.
    EXPECT_TRUE(decode(f, "--eq 8000,1,6") == plain);
}

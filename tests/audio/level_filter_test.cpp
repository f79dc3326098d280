#include "audio/level_filter.h"
#include "tests/audio/audio_test_util.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <deque>
#include <numbers>

namespace {

using audio_test::Reference;

// Hands out prepared records one per request, whatever is asked.
class RecordSource : public audio::Provider<audio::PCMData> {
public:
    void get_data(audio::PCMData& out, int) override
    {
        out = audio::PCMData();
        if (!records.empty()) {
            out = records.front();
            records.pop_front();
        }
    }
    std::deque<audio::PCMData> records;
};

using audio_test::mono16;

std::vector<std::int32_t> samples_of(const std::string& bytes)
{
    const auto s = test::samples_of(bytes);
    return {s.begin(), s.end()};
}

std::string pull_all(audio::LevelFilter& level, audio::Provider<audio::PCMData>& source)
{
    audio::connect(source, &level);
    std::string all = audio_test::drain(level);
    audio::connect(source, nullptr);
    return all;
}

bool crossing(const std::vector<std::int32_t>& s, std::size_t f)
{
    return std::int64_t(s[f]) * s[f - 1] < 1;
}

// The curve from its three parameters, step by step as the settings mean it.
std::array<std::int32_t, 256> expected_curve(int booster, int noise, int limiter)
{
    std::array<std::int32_t, 256> c{};
    for (int i = 1; i <= 256; ++i) {
        const double t = i / 256.0;
        const double k = booster <= 0 ? 1 - booster / 32.0 : 1 + booster / 32.0;
        c[std::size_t(i - 1)] = booster <= 0 ? 256 - int(256 * std::pow(1 - std::pow(t, k), 1 / k))
                                             : int(256 * std::pow(1 - std::pow(1 - t, k), 1 / k));
    }
    if (noise > 0) {
        const int top = int(std::sqrt(noise) * 16 + 1.0);
        const int level = top >= 256 ? c[255] : c[std::size_t(top)];
        for (int i = 0; i < top && i < 256; ++i)
            c[std::size_t(i)] = i < noise ? 0 : (i - noise) * level / (top - noise);
    }
    const int knee = (256 - limiter) * (256 - limiter) / 256, span = 256 - knee;
    for (auto& v : c)
        if (v > knee)
            v = knee + (v - knee) * (span - limiter) / span + 1;
    return c;
}

TEST(LevelFilter, CurvesOfEverySetting)
{
    EXPECT_EQ(audio::LevelFilter::step_value(0), 0);
    EXPECT_EQ(audio::LevelFilter::step_value(1), 8);
    EXPECT_EQ(audio::LevelFilter::step_value(2), 32);
    EXPECT_EQ(audio::LevelFilter::step_value(3), 128);
    EXPECT_EQ(audio::LevelFilter::step_value(4), -1);
    audio::LevelFilter level;
    EXPECT_TRUE(level.is_identity());
    // The identity maps every level onto itself: unity gain.
    for (std::int32_t x = 0; x < 32768; x += 7)
        EXPECT_EQ(level.level_of(x), x << 14) << x;
    for (int b = 0; b < 4; ++b)
        for (int n = 0; n < 4; ++n)
            for (int l = 0; l < 4; ++l) {
                const int booster = audio::LevelFilter::step_value(b);
                const int noise = audio::LevelFilter::step_value(n);
                const int limiter = audio::LevelFilter::step_value(l);
                level.set_curve(booster, noise, limiter);
                EXPECT_EQ(level.is_identity(), b + n + l == 0);
                if (b + n + l > 0) {
                    EXPECT_EQ(level.get_curve(), expected_curve(booster, noise, limiter)) << b << n << l;
                }
                // Louder in never gives quieter out.
                for (std::size_t i = 1; i < 256; ++i)
                    EXPECT_LE(level.get_curve()[i - 1], level.get_curve()[i]);
            }
    level.set_curve(128, 0, 0);
    EXPECT_EQ(level.get_curve()[0], int(256 * std::pow(1 - std::pow(255 / 256.0, 5), 0.2)));
    EXPECT_GT(level.get_curve()[0], 40);
    level.set_curve(0, 8, 0);
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(level.get_curve()[std::size_t(i)], 0);
    EXPECT_EQ(level.get_curve()[46], 47);
    EXPECT_LT(level.get_curve()[45], 47);
    level.set_curve(0, 0, 128);
    EXPECT_EQ(level.get_curve()[63], 64);
    EXPECT_EQ(level.get_curve()[255], 64 + 192 / 3 + 1);
    // Out of range: nothing changes.
    const auto before = level.get_curve();
    level.set_curve(300, 0, 0);
    level.set_curve(0, 257, 0);
    level.set_curve(0, 0, -1);
    EXPECT_EQ(level.get_curve(), before);
    // Between two points the level is interpolated.
    EXPECT_EQ(level.level_of(-32768), (64 + 64 + 1) * 128 << 14);
    EXPECT_EQ(level.level_of(64 * 128 + 64), (64 * 128 + (level.get_curve()[64] - 64) * 64) << 14);
}

TEST(LevelFilter, IdentityPassesRecordsByReference)
{
    const Reference ref = audio_test::sox_reference("pcm_s16_stereo_44100.wav");
    audio::LevelFilter level;
    level.set_curve(32, 8, 0);
    level.set_curve(0, 0, 0);
    RecordSource source;
    const audio::PCMData r = audio_test::pcm_of(ref, 0, 40000);
    source.records.push_back(r);
    audio::connect(source, &level);
    audio::PCMData out;
    level.get_data(out, 16384);
    EXPECT_EQ(out.bytes.data(), r.bytes.data());
    audio::connect(source, nullptr);
    audio_test::Sink<audio::PCMData> sink;
    audio::connect(level, &sink);
    level.on_data(r);
    ASSERT_EQ(sink.records.size(), 1u);
    EXPECT_EQ(sink.records[0].bytes.data(), r.bytes.data());
    audio::connect(level, nullptr);
}

// A 1 kHz tone in steps: quiet lead-in, then quiet, loud, quiet.
TEST(LevelFilter, GainHoldsBetweenFadesThatMeetZeroCrossings)
{
    const int rate = 44100;
    std::vector<std::int32_t> x;
    const std::pair<double, double> steps[] = {{0.05, 0.04}, {0.35, 0.2}, {0.4, 0.6}, {0.4, 0.2}};
    for (auto [seconds, amplitude] : steps)
        for (int i = 0; i < int(seconds * rate); ++i)
            x.push_back(int(std::lround(amplitude * 32767 * std::sin(2 * std::numbers::pi * 1000 * x.size() / rate))));
    const Reference ref = mono16(x, rate);
    for (int booster : {32, 128, -32}) {
        audio::LevelFilter level;
        level.set_curve(booster, 0, booster == 128 ? 32 : 0);
        audio_test::PCMSource source(ref);
        const auto y = samples_of(pull_all(level, source));
        ASSERT_EQ(y.size(), x.size());
        // Gain in Q14 at each frame loud enough to measure it.
        auto gain = [&](std::size_t f) { return double(y[f]) * 16384 / x[f]; };
        std::size_t start = 0;
        int half_waves = 0;
        for (std::size_t f = 1; f <= x.size(); ++f) {
            if (f < x.size() && !crossing(x, f))
                continue;
            // Within a half-wave the gain is constant or one straight fade.
            std::vector<std::pair<double, double>> pts;
            for (std::size_t k = start; k < f; ++k)
                if (std::abs(x[k]) >= 1024)
                    pts.push_back({double(k), gain(k)});
            if (pts.size() >= 4) {
                double sx = 0, sy = 0, sxx = 0, sxy = 0;
                for (auto [t, g] : pts)
                    sx += t, sy += g, sxx += t * t, sxy += t * g;
                const double n = double(pts.size());
                const double slope = (n * sxy - sx * sy) / (n * sxx - sx * sx);
                const double icpt = (sy - slope * sx) / n;
                double worst = 0;
                for (auto [t, g] : pts)
                    worst = std::max(worst, std::abs(g - (slope * t + icpt)));
                EXPECT_LT(worst, 40.0) << "booster " << booster << ", half-wave at " << start;
                ++half_waves;
            }
            start = f;
        }
        EXPECT_GT(half_waves, 1000);
        // The fades begin up to 100 ms ahead of a step; before that the gain
        // is the curve's, taken from the greatest peak nearby.
        for (auto [from, to] : {std::pair{0.15, 0.28}, std::pair{0.55, 0.68}, std::pair{0.95, 1.1}}) {
            std::int32_t peak = 0;
            for (std::size_t f = std::size_t(from * rate); f < std::size_t(to * rate); ++f)
                peak = std::max(peak, std::abs(x[f]));
            // Peaks of the sampled tone differ by a few tenths of a percent;
            // each half-wave takes the gain of one of them.
            double lo = 1e9, hi = 0;
            for (std::int32_t p = peak * 995 / 1000; p <= peak; ++p) {
                lo = std::min(lo, double(level.level_of(p) / p));
                hi = std::max(hi, double(level.level_of(p) / p));
            }
            for (std::size_t f = std::size_t(from * rate); f < std::size_t(to * rate); ++f)
                if (std::abs(x[f]) >= 2048) {
                    const double slack = 16384.0 / std::abs(x[f]) + 2;
                    ASSERT_GE(gain(f), lo - slack) << booster << " at " << f;
                    ASSERT_LE(gain(f), hi + slack) << booster << " at " << f;
                }
        }
        // The stream starts with a fade-in from silence over the lead-in.
        double first = 0;
        for (std::size_t f = 0; f < 44; ++f)
            if (std::abs(x[f]) >= 512)
                first = std::max(first, std::abs(gain(f)));
        const std::size_t steady = std::size_t(0.3 * rate);
        EXPECT_LT(first, 0.25 * std::abs(gain(steady + 11)));
    }
}

TEST(LevelFilter, DeclipperRescalesWholeHalfWaves)
{
    // A tone driven 1.4 times past full scale and cut flat at the rails.
    std::vector<std::int32_t> x;
    for (int i = 0; i < 22050; ++i)
        x.push_back(std::clamp(int(std::lround(1.4 * 32767 * std::sin(2 * std::numbers::pi * 997 * i / 44100))),
                               -32768, 32767));
    const Reference ref = mono16(x, 44100);
    ASSERT_GT(std::count(x.begin(), x.end(), 32767), 100);
    audio::LevelFilter level;
    level.set_curve(0, 8, 0); // a gate far below: unity gain at these levels
    audio_test::PCMSource source(ref);
    const auto y = samples_of(pull_all(level, source));
    ASSERT_EQ(y.size(), x.size());
    int rescaled = 0;
    std::size_t start = 0;
    for (std::size_t f = 1; f < x.size(); ++f) {
        if (!crossing(x, f))
            continue;
        const bool clipped = std::count(x.begin() + long(start), x.begin() + long(f), x[start + 5] > 0 ? 32767 : -32768) > 2;
        if (clipped && start > 4410 && f + 4410 < x.size()) {
            // Outside the flat top every sample is scaled by one factor below 1.
            double lo = 1e9, hi = -1e9;
            int top_run = 0, longest = 0;
            for (std::size_t k = start; k < f; ++k) {
                if (std::abs(x[k]) >= 8192 && std::abs(x[k]) < 32767) {
                    lo = std::min(lo, double(y[k]) / x[k] - 1.0 / std::abs(x[k]));
                    hi = std::max(hi, double(y[k]) / x[k] + 1.0 / std::abs(x[k]));
                }
                top_run = k > start && y[k] == y[k - 1] ? top_run + 1 : 0;
                longest = std::max(longest, top_run);
            }
            EXPECT_LT(hi, 1.0) << start;
            EXPECT_GT(lo + 0.002, hi - 0.002) << "one factor for the half-wave at " << start;
            EXPECT_LT(longest, 2) << "no flat top at " << start;
            ++rescaled;
        }
        start = f;
    }
    EXPECT_GT(rescaled, 100);
}

TEST(LevelFilter, FormatChangeLosesOneRecordAndSilenceForcesProgress)
{
    const Reference a = audio_test::sox_reference("pcm_s16_mono_44100.wav");
    const Reference b = audio_test::sox_reference("pcm_s16_mono_22050.wav");
    RecordSource source;
    std::size_t a_frames = 0, b_frames = 0, first_b = 0;
    for (std::size_t at = 0; at < a.bytes.size(); at += 8000) {
        source.records.push_back(audio_test::pcm_of(a, at, 8000));
        a_frames += source.records.back().sample_count();
    }
    for (std::size_t at = 0; at < b.bytes.size(); at += 6000) {
        source.records.push_back(audio_test::pcm_of(b, at, 6000));
        b_frames += source.records.back().sample_count();
        if (first_b == 0)
            first_b = b_frames;
    }
    audio::LevelFilter level;
    level.set_curve(32, 0, 0);
    audio::connect(source, &level);
    std::size_t got_a = 0, got_b = 0;
    for (;;) {
        audio::PCMData r;
        level.get_data(r, 16384);
        if (r.empty())
            break;
        (r.rate == 44100 ? got_a : got_b) += r.sample_count();
    }
    audio::connect(source, nullptr);
    EXPECT_EQ(got_a, a_frames);
    EXPECT_EQ(got_b, b_frames - first_b);

    // A constant level has no zero crossing: after more than a second held,
    // the filter lets it through unprocessed rather than wait for one.
    std::vector<std::int32_t> dc(44100 * 3, 9000);
    const Reference flat = mono16(dc, 44100);
    audio::LevelFilter held;
    held.set_curve(128, 0, 0);
    audio_test::PCMSource dc_source(flat);
    const auto y = samples_of(pull_all(held, dc_source));
    ASSERT_EQ(y.size(), dc.size());
    for (std::size_t f = 0; f < 44100; ++f)
        ASSERT_EQ(y[f], 9000) << f;
}

} // namespace

#include "audio/equalizer_pcm.h"
#include "audio/level_filter.h"
#include "tests/audio/audio_test_util.h"

#include <cmath>
#include <complex>
#include <cstring>
#include <numbers>

namespace {

using audio_test::Reference;

constexpr double kPi = std::numbers::pi;

// A mono 16-bit tone of `amplitude` (share of full scale) from the formula.
Reference tone(int rate, double hz, double amplitude, double seconds)
{
    std::vector<long> v(std::size_t(rate * seconds));
    for (std::size_t i = 0; i < v.size(); ++i)
        v[i] = std::lround(amplitude * 32767.0 * std::sin(2 * kPi * hz * double(i) / rate));
    return audio_test::mono16(v, rate);
}

std::vector<double> samples_of(const std::string& bytes)
{
    const auto s = test::samples_of(bytes);
    return {s.begin(), s.end()};
}

std::string equalize(const Reference& ref, double hz, double octaves, double db)
{
    audio_test::PCMSource source(ref);
    audio::EqualizerPCM eq;
    eq.set_frequency(hz);
    eq.set_width(octaves);
    eq.set_amplitude(db);
    audio::connect(source, &eq);
    std::string out = audio_test::drain(eq);
    audio::connect(source, nullptr);
    return out;
}

// The band's coefficients in doubles, as the filter makes them.
struct Biquad {
    double b0, b1, b2, a1, a2;
    Biquad(int rate, double hz, double octaves, double db)
    {
        const double s = std::sinh(octaves * std::log(2.0) / 2);
        const double a = std::pow(10.0, db / 40);
        const double w = 2 * kPi * hz / rate;
        const double alpha = std::sin(w) * s;
        const double n = 1 / (1 + alpha / a);
        b0 = (1 + alpha * a) * n;
        b1 = a1 = -2 * std::cos(w) * n;
        b2 = (1 - alpha * a) * n;
        a2 = (1 - alpha / a) * n;
    }
    double magnitude(int rate, double hz) const
    {
        const std::complex<double> z = std::polar(1.0, -2 * kPi * hz / rate);
        return std::abs((b0 + b1 * z + b2 * z * z) / (1.0 + a1 * z + a2 * z * z));
    }
};

// Amplitude of the `hz` component of v[from, from + whole periods).
double amplitude_at(const std::vector<double>& v, std::size_t from, std::size_t span, int rate, double hz)
{
    const std::size_t n = std::size_t(std::floor(span * hz / rate) * rate / hz);
    double si = 0, co = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const double ph = 2 * kPi * hz * double(from + i) / rate;
        si += v[from + i] * std::sin(ph);
        co += v[from + i] * std::cos(ph);
    }
    return 2 * std::hypot(si, co) / double(n);
}

TEST(EqualizerPCM, GainAtCentreAndElsewhereFollowsTheBand)
{
    const int rate = 44100, delay = rate / 10, settle = rate / 4;
    const double centre = 1000;
    for (double db : {6.0, -6.0, 3.5}) {
        const Biquad band(rate, centre, 1.0, db);
        for (double hz : {60.0, 300.0, 700.0, 1000.0, 1500.0, 4000.0, 12000.0}) {
            const Reference in = tone(rate, hz, 0.25, 1.0);
            const auto x = samples_of(in.bytes);
            const auto y = samples_of(equalize(in, centre, 1.0, db));
            ASSERT_EQ(y.size(), x.size());
            for (int i = 0; i < delay; ++i)
                ASSERT_EQ(y[std::size_t(i)], 0.0) << "the look-ahead comes out as zeros";
            const std::size_t span = x.size() - delay - settle;
            const double gain = amplitude_at(y, delay + settle, span, rate, hz) /
                                amplitude_at(x, settle, span, rate, hz);
            const double expect = hz == centre ? db : 20 * std::log10(band.magnitude(rate, hz));
            EXPECT_NEAR(20 * std::log10(gain), expect, 0.1) << db << " dB band, tone " << hz;
        }
    }
}

TEST(EqualizerPCM, LimiterScalesWholeHalfWaves)
{
    const int rate = 44100, delay = rate / 10;
    const double hz = 997, db = 6.0;
    const Biquad band(rate, hz, 1.0, db);
    // Filtered peaks near 0.6, 0.9 and 1.4 of full scale.
    for (double amplitude : {0.3, 0.45, 0.7}) {
        const Reference in = tone(rate, hz, amplitude, 0.5);
        const auto x = samples_of(in.bytes);
        const auto y = samples_of(equalize(in, hz, 1.0, db));
        // The filter in doubles, without the limiter, on a 1.0 full scale.
        std::vector<double> f(x.size());
        double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
        for (std::size_t i = 0; i < x.size(); ++i) {
            const double v = x[i] / 32768;
            f[i] = band.b0 * v + band.b1 * x1 + band.b2 * x2 - band.a1 * y1 - band.a2 * y2;
            x2 = x1, x1 = v, y2 = y1, y1 = f[i];
        }
        int over = 0, between = 0, under = 0;
        std::size_t start = 0;
        for (std::size_t i = 1; i + delay <= x.size(); ++i) {
            if ((f[i] < 0) == (f[i - 1] < 0) && i + delay < x.size())
                continue;
            // Half-wave [start, i) of the reference; its output is `delay` later.
            double p = 0;
            for (std::size_t k = start; k < i; ++k)
                p = std::max(p, std::abs(f[k]));
            const double scale = p <= 0.75 ? 1.0 : p <= 1.0 ? (p + 0.75) / 2 / p : 1.0 / p;
            (p <= 0.75 ? under : p <= 1.0 ? between : over)++;
            double out_peak = 0;
            for (std::size_t k = start + 1; k + 1 < i; ++k) {
                EXPECT_NEAR(y[k + delay] / 32768, f[k] * scale, 3.0 / 32768) << amplitude << " at " << k;
                out_peak = std::max(out_peak, std::abs(y[k + delay]));
            }
            if (p > 1.0) {
                double extreme = 0;
                for (std::size_t k = start; k < i; ++k)
                    extreme = f[k] < 0 ? std::min(extreme, y[k + delay]) : std::max(extreme, y[k + delay]);
                EXPECT_TRUE(extreme == 32767 || extreme == -32768) << extreme << " at " << start;
            }
            start = i;
        }
        EXPECT_GT(amplitude == 0.3 ? under : amplitude == 0.45 ? between : over, 20) << amplitude;
    }
}

TEST(EqualizerPCM, MatchesSoxEqualizerClosely)
{
    auto src = test::media("pcm_s16_speech_stereo_44100.wav");
    ASSERT_EQ(src.size(), 1u);
    test::TempDir dir;
    const auto quiet = dir / "quiet.wav";
    ASSERT_EQ(test::run("sox -D '" + src[0].string() + "' '" + quiet.string() + "' gain -n -9"), 0);
    struct Band {
        double hz, octaves, db;
    };
    for (Band b : {Band{150, 1.0, 5.0}, Band{1000, 1.0, -8.0}, Band{4000, 2.0, 4.0}}) {
        std::string theirs;
        char effect[96];
        std::snprintf(effect, sizeof effect, " equalizer %g %go %g", b.hz, b.octaves, b.db);
        ASSERT_EQ(test::run("sox -D '" + quiet.string() + "' -t raw -e signed-integer -b 16 -L -" + effect,
                            &theirs),
                  0);
        Reference in;
        in.channels = 2, in.bits = 16, in.rate = 44100;
        ASSERT_EQ(test::run("sox '" + quiet.string() + "' -t raw -", &in.bytes), 0);
        const auto ours = samples_of(equalize(in, b.hz, b.octaves, b.db));
        const auto sox = samples_of(theirs);
        const std::size_t shift = 2 * 4410;
        ASSERT_EQ(ours.size(), sox.size());
        double diff = 0, power = 0;
        for (std::size_t i = shift; i < ours.size(); ++i) {
            diff += (ours[i] - sox[i - shift]) * (ours[i] - sox[i - shift]);
            power += sox[i - shift] * sox[i - shift];
        }
        const double db_apart = 10 * std::log10(diff / power);
        std::printf("equalizer %g Hz %g oct %+g dB: difference to sox %.1f dB below the signal\n", b.hz,
                    b.octaves, b.db, -db_apart);
        EXPECT_LT(db_apart, -25.0);
    }
}

TEST(EqualizerPCM, PassesWhatItCannotOrNeedNotFilter)
{
    // Gain 0, or a centre at or above rate / 2.01: the very same bytes, no
    // delay. Just below that limit the band works.
    const Reference in = tone(44100, 440, 0.5, 0.3);
    for (auto [rate, hz, db, passes] : {std::tuple{44100, 1000.0, 0.0, true}, std::tuple{44100, 22100.0, 6.0, true},
                                        std::tuple{8000, 4000.0, 6.0, true}, std::tuple{44100, 21941.0, 6.0, true},
                                        std::tuple{44100, 21900.0, 6.0, false}}) {
        audio::EqualizerPCM eq;
        eq.set_frequency(hz);
        eq.set_amplitude(db);
        audio_test::Sink<audio::PCMData> sink;
        audio::connect(eq, &sink);
        audio::PCMData r = audio_test::pcm_of(in, 0, in.bytes.size());
        r.rate = rate;
        eq.on_data(r);
        ASSERT_EQ(sink.records.size(), 1u);
        const audio::PCMData& out = sink.records[0];
        EXPECT_EQ(out.bytes.size(), r.bytes.size());
        if (passes) {
            EXPECT_EQ(out.bytes.data(), r.bytes.data()) << hz << " at " << rate;
        } else {
            auto y = samples_of(audio_test::bytes_of(out.bytes));
            EXPECT_TRUE(std::all_of(y.begin(), y.begin() + 4410, [](double v) { return v == 0; }));
            EXPECT_FALSE(std::all_of(y.begin() + 4410, y.end(), [](double v) { return v == 0; }));
        }
        // An empty record ends the stream as an empty record.
        eq.on_data(audio::PCMData());
        ASSERT_EQ(sink.records.size(), 2u);
        EXPECT_TRUE(sink.records[1].empty());
        audio::connect(eq, nullptr);
    }
    // 100 ms through one active band: only zeros come out.
    const Reference short_tone = tone(44100, 440, 0.5, 0.1);
    const auto y = samples_of(equalize(short_tone, 1000, 1, 6));
    EXPECT_EQ(y.size(), 4410u);
    EXPECT_TRUE(std::all_of(y.begin(), y.end(), [](double v) { return v == 0; }));
}

// Every width, channel count and rate the readers give passes three bands and
// the level filter, frame for frame.
TEST(EqualizerPCM, EveryReaderFormatPassesEveryStage)
{
    int files = 0;
    for (const auto& path : test::media("pcm_*.wav")) {
        const std::string name = path.filename().string();
        if (name.find("3ch") != std::string::npos)
            continue;
        const Reference ref = audio_test::sox_reference(name);
        audio_test::PCMSource source(ref);
        audio::EqualizerPCM eq[3];
        const double bands[3][3] = {{100, 1, 4}, {1000, 2, -5}, {3000, 1, 3}};
        for (int i = 0; i < 3; ++i) {
            eq[i].set_frequency(bands[i][0]);
            eq[i].set_width(bands[i][1]);
            eq[i].set_amplitude(bands[i][2]);
        }
        audio::LevelFilter level;
        level.set_curve(32, 8, 32);
        audio::connect(source, &eq[0]);
        audio::connect(eq[0], &eq[1]);
        audio::connect(eq[1], &eq[2]);
        audio::connect(eq[2], &level);
        std::size_t frames = 0;
        bool sound = false;
        const int silence = ref.bits == 8 ? 128 : 0;
        for (;;) {
            audio::PCMData r;
            level.get_data(r, 16384);
            if (r.empty())
                break;
            EXPECT_EQ(r.channels, ref.channels);
            EXPECT_EQ(r.bits, ref.bits);
            EXPECT_EQ(r.rate, ref.rate);
            frames += r.sample_count();
            for (std::size_t i = 0; i < r.bytes.size() && !sound; i += 2)
                sound = std::abs(int(r.bytes.data()[i]) - silence) > 2;
        }
        const std::size_t frame_bytes = std::size_t(ref.channels * ref.bits / 8);
        EXPECT_EQ(frames, ref.bytes.size() / frame_bytes) << name;
        EXPECT_TRUE(sound) << name;
        audio::connect(eq[2], nullptr);
        audio::connect(eq[1], nullptr);
        audio::connect(eq[0], nullptr);
        audio::connect(source, nullptr);
        ++files;
    }
    EXPECT_GE(files, 8);
}

} // namespace

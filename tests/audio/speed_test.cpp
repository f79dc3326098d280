// Fast play and the stretch filter on their own, pulled as the player pulls:
// the frames fast play picks, the stretch filter's bookkeeping (twice the
// frames at the end, each format out whole and in order, silence), and speed
// changes while pulling. Pitch, length and clicks of the whole play path are
// checked through quillctl decode (tests/tools/decode_stages_test.cpp).
#include "audio/fast_play.h"
#include "audio/stretch_filter.h"
#include "tests/audio/audio_test_util.h"

#include <cstring>
#include <functional>

namespace {

using audio_test::PCMSource;
using audio_test::Reference;

constexpr int kRequest = 16384; // frames, as the player asks

// Stereo 16-bit frames that count: left = index & 0x7FFF, right = index >> 15.
Reference counting(int frames, int rate = 8000)
{
    Reference r;
    r.channels = 2;
    r.bits = 16;
    r.rate = rate;
    r.bytes.resize(static_cast<std::size_t>(frames) * 4);
    for (int i = 0; i < frames; ++i) {
        const std::int16_t s[2] = {static_cast<std::int16_t>(i & 0x7FFF), static_cast<std::int16_t>(i >> 15)};
        std::memcpy(&r.bytes[static_cast<std::size_t>(i) * 4], s, 4);
    }
    return r;
}

std::vector<int> counts_of(const audio::PCMData& d)
{
    std::vector<int> out;
    for (std::size_t i = 0; i < d.sample_count(); ++i) {
        std::int16_t s[2];
        std::memcpy(s, d.bytes.data() + i * 4, 4);
        out.push_back(s[0] | (s[1] << 15));
    }
    return out;
}

// Pulls until the end; `between` runs before each pull with the pull's number.
std::vector<audio::PCMData> pull_all(audio::Provider<audio::PCMData>& stage,
                                     const std::function<void(int)>& between = {})
{
    std::vector<audio::PCMData> records;
    for (int i = 0;; ++i) {
        if (between)
            between(i);
        audio::PCMData r;
        stage.get_data(r, kRequest);
        if (r.empty())
            return records;
        records.push_back(r);
    }
}

std::string bytes_of(const std::vector<audio::PCMData>& records) { return audio_test::all_bytes(records); }

// Hands out one reference after the other.
class Sources : public audio::Provider<audio::PCMData> {
public:
    explicit Sources(std::vector<PCMSource*> parts) : parts_(std::move(parts)) {}
    void get_data(audio::PCMData& out, int n) override
    {
        while (at_ < parts_.size()) {
            parts_[at_]->get_data(out, n);
            if (!out.empty())
                return;
            ++at_;
        }
        out = audio::PCMData();
    }

private:
    std::vector<PCMSource*> parts_;
    std::size_t at_ = 0;
};

} // namespace

TEST(FastPlay, PicksWholeFramesByStepAndCarriesThePhase)
{
    struct Case {
        double step;
        std::vector<int> picked; // of 10 frames
        double phase;
    };
    const Case cases[] = {
        {2.0, {0, 2, 4, 6, 8}, 0.0},
        {0.5, {0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7, 8, 8, 9}, -0.5},
        {1.5, {0, 1, 3, 4, 6, 7, 9}, 0.5},
    };
    const Reference ten = counting(10);
    for (const Case& c : cases) {
        audio::FastPlay f;
        EXPECT_TRUE(f.set_step(c.step));
        EXPECT_FALSE(f.set_step(c.step));
        audio::PCMData out;
        f.resample(out, audio_test::pcm_of(ten, 0, ten.bytes.size()));
        EXPECT_EQ(counts_of(out), c.picked) << c.step;
        EXPECT_DOUBLE_EQ(f.get_phase(), c.phase) << c.step;
        // A new step starts the phase again.
        EXPECT_TRUE(f.set_step(1.25));
        EXPECT_EQ(f.get_phase(), 0.0);
    }
    audio::FastPlay same;
    const audio::PCMData in = audio_test::pcm_of(ten, 0, ten.bytes.size());
    audio::PCMData out;
    same.resample(out, in);
    EXPECT_EQ(out.bytes.data(), in.bytes.data()) << "step 1.0 passes the record by reference";

    // Pulled, with the step changed between pulls: every frame comes in
    // order, none twice at steps above 1, and the length follows the steps.
    const Reference long_ramp = counting(200000);
    PCMSource source(long_ramp);
    audio::FastPlay f;
    audio::connect(source, &f);
    const double steps[] = {1.5, 0.5, 2.0, 1.0};
    std::vector<int> seen;
    for (const audio::PCMData& r : pull_all(f, [&](int i) { f.set_step(steps[(i / 3) % 4]); })) {
        const std::vector<int> c = counts_of(r);
        seen.insert(seen.end(), c.begin(), c.end());
    }
    ASSERT_FALSE(seen.empty());
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
    EXPECT_EQ(seen.front(), 0);
    EXPECT_GE(seen.back(), 200000 - 2);
    audio::connect(source, nullptr);
}

TEST(StretchFilter, HalfSpeedGivesTwiceTheFramesWithEachFormatWholeAndInOrder)
{
    // Every file alone, then all of them in one stream: each format's part
    // comes out whole, twice its frames, before the next format begins.
    std::vector<Reference> refs;
    for (const char* name : {"pcm_s16_mono_8000.wav", "pcm_u8_mono_22050.wav", "pcm_u8_stereo_11025.wav",
                             "pcm_s16_stereo_44100.wav", "pcm_s16_speech_16000.wav"})
        refs.push_back(audio_test::sox_reference(name));
    std::vector<std::unique_ptr<PCMSource>> sources;
    std::vector<PCMSource*> parts;
    for (const Reference& ref : refs) {
        PCMSource alone(ref);
        audio::StretchFilter f;
        f.set_factor(2);
        audio::connect(alone, &f);
        const std::string out = bytes_of(pull_all(f));
        EXPECT_EQ(out.size(), 2 * ref.bytes.size()) << ref.rate;
        audio::connect(alone, nullptr);
        sources.push_back(std::make_unique<PCMSource>(ref));
        parts.push_back(sources.back().get());
    }
    Sources all(parts);
    audio::StretchFilter f;
    f.set_factor(2);
    audio::connect(all, &f);
    std::size_t part = 0, bytes = 0;
    for (const audio::PCMData& r : pull_all(f)) {
        if (bytes == 2 * refs[part].bytes.size()) {
            ++part;
            bytes = 0;
        }
        ASSERT_LT(part, refs.size());
        EXPECT_EQ(r.rate, refs[part].rate);
        EXPECT_EQ(r.channels, refs[part].channels);
        EXPECT_EQ(r.bits, refs[part].bits);
        bytes += r.bytes.size();
    }
    EXPECT_EQ(part, refs.size() - 1);
    EXPECT_EQ(bytes, 2 * refs.back().bytes.size());
    audio::connect(all, nullptr);

    // Silence has no positive peak: it comes out, as silence, at the flush.
    for (int bits : {8, 16}) {
        Reference quiet;
        quiet.channels = 1;
        quiet.bits = bits;
        quiet.rate = 8000;
        quiet.bytes.assign(bits == 8 ? 30000 : 60000, bits == 8 ? char(128) : char(0));
        PCMSource source(quiet);
        audio::StretchFilter s;
        s.set_factor(2);
        audio::connect(source, &s);
        std::string twice = quiet.bytes + quiet.bytes;
        EXPECT_TRUE(bytes_of(pull_all(s)) == twice) << bits;
        audio::connect(source, nullptr);
    }
}

TEST(StretchFilter, LeavingASpeedWhilePullingGoesOnWhereItsOutputEnded)
{
    // Stretched for two pulls, then back to normal speed: what follows is
    // the source from where the stretched output had got to, nothing repeated
    // or lost. For half speed with the pitch held that is exactly half its output;
    // a time stretch ends on the tail of its last piece, so its output's last
    // frames line up with the source just before the plain part.
    const Reference speech = audio_test::sox_reference("pcm_s16_speech_16000.wav");
    ASSERT_EQ(speech.channels, 1);
    auto sample = [](const std::string& b, std::int64_t i) {
        std::int16_t v;
        std::memcpy(&v, b.data() + i * 2, 2);
        return std::int64_t(v);
    };
    const std::int64_t source_frames = static_cast<std::int64_t>(speech.bytes.size() / 2);
    for (const auto& [factor, stretch] : std::vector<std::pair<int, double>>{{2, 1.0}, {1, 0.5}, {1, 0.75}, {1, 1.5}, {1, 2.0}}) {
        PCMSource source(speech);
        audio::StretchFilter f;
        f.set_factor(factor);
        f.set_stretch(stretch);
        audio::connect(source, &f);
        const std::string all = bytes_of(pull_all(f, [&](int i) {
            if (i == 2) {
                f.set_factor(1);
                f.set_stretch(1.0);
            }
        }));
        audio::connect(source, nullptr);
        // The longest tail of the output that is a tail of the source.
        std::size_t same = 0;
        while (same < all.size() && same < speech.bytes.size() &&
               all[all.size() - 1 - same] == speech.bytes[speech.bytes.size() - 1 - same])
            ++same;
        same -= same % 2;
        const std::int64_t plain_from = source_frames - static_cast<std::int64_t>(same / 2);
        const std::int64_t stretched = static_cast<std::int64_t>((all.size() - same) / 2);
        ASSERT_GT(stretched, 2 * 1000) << stretch;
        if (factor == 2) {
            EXPECT_EQ(2 * plain_from, stretched);
            continue;
        }
        constexpr std::int64_t kTail = 64, kSearch = 400;
        ASSERT_GT(plain_from, kTail + kSearch);
        ASSERT_LT(plain_from + kSearch, source_frames);
        std::int64_t best_offset = 0;
        double best = 1e300;
        for (std::int64_t o = -kSearch; o <= kSearch; ++o) {
            double error = 0;
            for (std::int64_t j = 0; j < kTail; ++j) {
                const double d = double(sample(all, stretched - kTail + j) - sample(speech.bytes, plain_from - kTail + o + j));
                error += d * d;
            }
            if (error < best) {
                best = error;
                best_offset = o;
            }
        }
        EXPECT_NEAR(best_offset, 0, 2) << stretch;
    }
}

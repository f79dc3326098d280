// The small stages of the record path (muter, level control, input meter,
// time meter) and the play path's level meter.
#include "audio/level_meter.h"
#include "audio/level_meter_record.h"
#include "audio/muter.h"
#include "audio/record_level_control.h"
#include "audio/time_meter.h"
#include "tests/audio/audio_test_util.h"

#include <chrono>
#include <thread>

using namespace audio_test;

namespace {

// One record of 16-bit mono samples at `rate`.
audio::PCMData mono16(const std::vector<std::int16_t>& s, int rate)
{
    audio::PCMData r;
    r.bytes = liba::ByteBlock(s.data(), s.size() * 2);
    r.channels = 1;
    r.bits = 16;
    r.rate = rate;
    return r;
}

// Pushes `in` through `stage` into a sink and returns what came out.
audio::PCMData through(audio::Processor<audio::PCMData>& stage, const audio::PCMData& in)
{
    Sink<audio::PCMData> sink;
    audio::connect(stage, &sink);
    stage.on_data(in);
    audio::connect(stage, nullptr);
    return sink.records.empty() ? audio::PCMData() : sink.records[0];
}

} // namespace

TEST(RecordStages, TheLevelControlScalesByItsGainAsSoxVolDoes)
{
    struct Case {
        const char* media;
        double level;
        double gain;
    };
    // The bypass level, both lines of the gain and their ends; 1.0 clips.
    const Case cases[] = {
        {"pcm_s16_speech_16000.wav", 0.5, 1.0},   {"pcm_s16_speech_16000.wav", 0.0, 0.05},
        {"pcm_s16_speech_16000.wav", 0.25, 0.525}, {"pcm_s16_speech_16000.wav", 0.49, 0.981},
        {"pcm_s16_speech_16000.wav", 0.6, 2.8},   {"pcm_s16_speech_16000.wav", 1.0, 10.0},
        {"pcm_u8_mono_22050.wav", 0.75, 5.5},      {"pcm_u8_mono_22050.wav", 0.1, 0.24},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.media) + " at " + std::to_string(c.level));
        EXPECT_NEAR(audio::RecordLevelControlSoft::gain_of(c.level), c.gain, 1e-12);
        const Reference ref = sox_reference(c.media);
        audio::RecordLevelControl control;
        control.set_level(c.level);
        EXPECT_EQ(control.get_level(), c.level);
        const audio::PCMData in = pcm_of(ref, 0, ref.bytes.size());
        const audio::PCMData out = through(control, in);
        ASSERT_EQ(out.bytes.size(), in.bytes.size());
        EXPECT_EQ(out.bytes.data() == in.bytes.data(), c.level == 0.5) << "only the bypass passes the block on";
        // sox rounds where the control truncates: one step apart at most.
        const std::string enc = ref.bits == 8 ? "-e unsigned-integer" : "-e signed-integer";
        std::string expected;
        ASSERT_EQ(test::run("sox -D " + test::quote(one(c.media).string()) + " -t raw -L " + enc + " - vol " +
                                std::to_string(c.gain) + " 2>/dev/null",
                            &expected),
                  0);
        ASSERT_EQ(expected.size(), in.bytes.size());
        const std::string got = bytes_of(out.bytes);
        int worst = 0;
        if (ref.bits == 8) {
            for (std::size_t i = 0; i < got.size(); ++i)
                worst = std::max(worst, std::abs(int(std::uint8_t(got[i])) - int(std::uint8_t(expected[i]))));
        } else {
            worst = max_difference(samples_of(got), samples_of(expected));
        }
        EXPECT_LE(worst, 1);
    }

    // A stereo record: the first sample_count() samples are scaled, the
    // rest of the block is left empty.
    const Reference stereo = sox_reference("pcm_s16_speech_stereo_44100.wav");
    audio::RecordLevelControl control;
    control.set_level(0.25);
    const audio::PCMData in = pcm_of(stereo, 0, 40000);
    const auto got = samples_of(bytes_of(through(control, in).bytes));
    const auto src = samples_of(bytes_of(in.bytes));
    const std::size_t n = in.sample_count();
    for (std::size_t i = 0; i < src.size(); ++i)
        ASSERT_EQ(got[i], i < n ? std::int16_t(src[i] * audio::RecordLevelControlSoft::gain_of(0.25)) : 0) << i;
}

TEST(RecordStages, TheInputMeterTakesPositivePeaksOfTheFirstChannelAndCountsSilencePerRecord)
{
    constexpr int kRate = 8000;
    audio::LevelMeterRecord meter(2.0, 5000, 0.2);
    meter.set_threshold(0.1); // 3276 of 32767
    struct Step {
        std::vector<std::int16_t> samples;
        double level;
        double silence;
    };
    std::vector<std::int16_t> quiet(4000, 0);
    std::vector<std::int16_t> negative(4000, -30000);
    std::vector<std::int16_t> loud_last(4000, 100);
    loud_last.back() = 3277;
    std::vector<std::int16_t> at_threshold(4000, 3276);
    std::vector<std::int16_t> loud_at_1000(4000, 0);
    loud_at_1000[1000] = 16384;
    const Step steps[] = {
        {quiet, 0.0, 0.5},
        {negative, 0.0, 1.0}, // negative excursions never count
        {loud_last, 3277 / 32767.0, 1.0 / kRate},
        {loud_at_1000, 16384 / 32767.0, 3000.0 / kRate},
        {quiet, 0.0, 3000.0 / kRate + 0.5},
        {at_threshold, 3276 / 32767.0, 3000.0 / kRate + 1.0},
        {{}, 3276 / 32767.0, 3000.0 / kRate + 1.0}, // no frames: nothing changes
    };
    for (const Step& s : steps) {
        const audio::PCMData in = mono16(s.samples, kRate);
        EXPECT_EQ(through(meter, in).bytes.data(), in.bytes.data());
        EXPECT_NEAR(meter.get_level(), s.level, 1e-12);
        EXPECT_NEAR(meter.silence(), s.silence, 1e-12);
        EXPECT_FALSE(meter.is_silent());
    }

    // Strictly more than the limit: exactly 2.0 s is not silence yet.
    audio::LevelMeterRecord exact(2.0, 5000, 0.2);
    exact.set_threshold(0.1);
    for (int i = 0; i < 4; ++i)
        through(exact, mono16(quiet, kRate));
    EXPECT_EQ(exact.silence(), 2.0);
    EXPECT_FALSE(exact.is_silent());
    through(exact, mono16({0}, kRate));
    EXPECT_TRUE(exact.is_silent());
    // A new threshold leaves the count; only a loud sample ends it.
    exact.set_threshold(0.0);
    EXPECT_TRUE(exact.is_silent());
    through(exact, mono16({0, 1}, kRate));
    EXPECT_FALSE(exact.is_silent());

    // 8-bit records: the byte minus 128 against threshold x 127.
    audio::PCMData bytes;
    const std::uint8_t u8[] = {128, 0, 128 + 13, 128};
    bytes.bytes = liba::ByteBlock(u8, sizeof u8);
    bytes.channels = 1;
    bytes.bits = 8;
    bytes.rate = kRate;
    exact.set_threshold(0.1); // 12
    through(exact, bytes);
    EXPECT_NEAR(exact.get_level(), 13 / 127.0, 1e-12);
    EXPECT_NEAR(exact.silence(), 2.0 / kRate, 1e-12);
}

TEST(RecordStages, ACutInputMeterHoldsTheNewestInputAndHandsItOnOnlyWhenRelinkedToReplay)
{
    constexpr int kRate = 8000;
    // Hold one record of 1000 frames plus 0.1 s (800 frames).
    audio::LevelMeterRecord meter(2.0, 1000, 0.1);
    Sink<audio::PCMData> sink;
    audio::connect(meter, &sink);
    auto record = [&](std::int16_t first) {
        std::vector<std::int16_t> s(1000);
        for (int i = 0; i < 1000; ++i)
            s[i] = static_cast<std::int16_t>(first + i);
        return mono16(s, kRate);
    };
    meter.on_data(record(0));
    EXPECT_EQ(meter.held_frames(), 0u) << "nothing is held while linked";
    meter.cut();
    for (int k = 1; k <= 4; ++k)
        meter.on_data(record(static_cast<std::int16_t>(1000 * k)));
    EXPECT_EQ(sink.records.size(), 1u);
    EXPECT_EQ(meter.held_frames(), 1800u);
    meter.relink(&sink, true);
    meter.on_data(record(5000));
    // The newest 1800 frames before the resume, then the input after it.
    std::vector<std::int16_t> expected;
    for (int i = 0; i < 1000; ++i)
        expected.push_back(static_cast<std::int16_t>(i));
    for (int i = 3200; i < 6000; ++i)
        expected.push_back(static_cast<std::int16_t>(i));
    EXPECT_EQ(samples_of(sink.all_bytes()), expected);

    // Relinked without replay (a resume by hand, the stop): dropped, and a
    // later replay never repeats it.
    sink.records.clear();
    meter.cut();
    meter.on_data(record(7000));
    meter.relink(&sink, false);
    meter.cut();
    meter.relink(&sink, true);
    EXPECT_TRUE(sink.records.empty());
    audio::connect(meter, nullptr);
}

TEST(RecordStages, TheMuterSilencesAndTheTimeMeterCountsWhatPasses)
{
    audio::Muter muter;
    audio::TimeMeter time;
    for (const char* media : {"pcm_s16_speech_16000.wav", "pcm_u8_stereo_11025.wav"}) {
        const Reference ref = sox_reference(media);
        const audio::PCMData in = pcm_of(ref, 0, ref.bytes.size());
        muter.set_muted(false);
        EXPECT_EQ(through(muter, in).bytes.data(), in.bytes.data());
        muter.set_muted(true);
        EXPECT_TRUE(muter.is_muted());
        const audio::PCMData out = through(muter, in);
        EXPECT_TRUE(format_equal(out, in));
        EXPECT_EQ(bytes_of(out.bytes), std::string(in.bytes.size(), ref.bits == 8 ? '\x80' : '\0'));
        time.reset();
        through(time, in);
        through(time, in);
        EXPECT_NEAR(time.get_time(), 2.0 * in.sample_count() / ref.rate, 1e-9);
    }
    audio::PCMData no_rate = mono16({1, 2, 3}, 0);
    const double before = time.get_time();
    EXPECT_EQ(through(time, no_rate).bytes.size(), 6u);
    EXPECT_EQ(time.get_time(), before);
    EXPECT_TRUE(through(muter, audio::PCMData()).empty());
}

TEST(RecordStages, ThePlayMeterShowsTheEntryBeingHeardAndStandsStillWhilePaused)
{
    audio::LevelMeter meter;
    EXPECT_EQ(meter.get_level(), 0.0);
    // 0.3 s at 15000 Hz: chunks of 1000 frames, the last one the loudest.
    std::vector<std::int16_t> s(4500, -20000);
    s[100] = 8192;
    s[4400] = 16384;
    through(meter, mono16(s, 15000));
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(meter.get_level(), 0.5) << "the index runs to the last chunk at once";
    meter.set_paused(true);
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    EXPECT_EQ(meter.get_level(), 0.5) << "paused, the entry does not expire";
    meter.set_paused(false);
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    EXPECT_EQ(meter.get_level(), 0.0) << "heard to its end";
    through(meter, mono16(s, 15000));
    meter.clear();
    EXPECT_EQ(meter.get_level(), 0.0);
}

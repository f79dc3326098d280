// The numbers the main window's tick reads, read on the main thread while
// the player's thread and a recorder-like thread write them: the play
// level, what the player still holds, the record level, silence and time.
// Nothing may race (this runs under ThreadSanitizer), and the numbers must
// still be those of a -6 dBFS signal and of the seconds pushed.
#include "audio/level_meter.h"
#include "audio/level_meter_record.h"
#include "audio/player_pcm.h"
#include "audio/time_meter.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

using audio::PCMData;

namespace {

constexpr int kRate = 8000;
constexpr std::int16_t kHalf = 16384; // -6 dBFS

PCMData half_scale(int frames)
{
    PCMData out;
    out.bytes = liba::ByteBlock(static_cast<std::size_t>(frames) * 2);
    std::uint8_t* w = out.bytes.writable();
    for (int i = 0; i < frames; ++i) {
        const std::int16_t v = (i % 2) ? kHalf : static_cast<std::int16_t>(-kHalf);
        std::memcpy(w + 2 * i, &v, 2);
    }
    out.channels = 1;
    out.bits = 16;
    out.rate = kRate;
    return out;
}

class HalfScaleSource : public audio::Provider<PCMData> {
public:
    void get_data(PCMData& out, int n) override { out = half_scale(std::min(n, 1000)); }
};

class Sink : public audio::Consumer<PCMData> {
public:
    void on_data(const PCMData&) override {}
};

TEST(MetersThreading, TheTicksNumbersReadWhileThePlayerAndTheRecorderWriteThem)
{
    test::TempDir dir;
    const std::string out = (dir / "out.raw").string();
    setenv("SDL_AUDIODRIVER", "disk", 1);
    setenv("SDL_DISKAUDIOFILE", out.c_str(), 1);
    setenv("SDL_DISKAUDIODELAY", "1", 1);

    // The play side: source, meter, player.
    HalfScaleSource source;
    audio::LevelMeter meter;
    audio::PlayerPCM player;
    audio::connect(source, &meter);
    audio::connect(meter, &player);
    player.play();

    // The record side, pushed by a thread of its own in 0.05-s records.
    audio::LevelMeterRecord record_meter(2.0, 4096, 0.2);
    audio::TimeMeter time_meter;
    Sink sink;
    audio::connect(record_meter, &time_meter);
    audio::connect(time_meter, &sink);
    constexpr int kRecords = 200;
    std::atomic<bool> pushed{false};
    std::thread recorder([&] {
        for (int i = 0; i < kRecords; ++i)
            record_meter.on_data(half_scale(kRate / 20));
        pushed = true;
    });

    double play_level = 0.0;
    double record_level = 0.0;
    double queued_most = 0.0;
    double time_before = 0.0;
    bool time_went_back = false;
    const auto start = std::chrono::steady_clock::now();
    while (!pushed || std::chrono::steady_clock::now() - start < std::chrono::milliseconds(800)) {
        play_level = std::max(play_level, meter.get_level());
        queued_most = std::max(queued_most, player.queued_seconds());
        record_level = std::max(record_level, record_meter.get_level());
        const double t = time_meter.get_time();
        time_went_back = time_went_back || t < time_before;
        time_before = t;
        EXPECT_FALSE(record_meter.is_silent());
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    recorder.join();

    EXPECT_NEAR(play_level, 0.5, 1e-3);
    EXPECT_NEAR(record_level, 0.5, 1e-3);
    EXPECT_NEAR(player.status().peak[0], 0.5, 1e-3);
    // At most the six 200-ms buffers and one pull of 16384 frames.
    EXPECT_GT(queued_most, 0.0);
    EXPECT_LE(queued_most, 1.2 + 16384.0 / kRate);
    EXPECT_FALSE(time_went_back);
    EXPECT_DOUBLE_EQ(time_meter.get_time(), kRecords / 20.0);

    // Stopped: nothing held, the meter falls to 0 once its records ran out.
    player.stop();
    const auto stopped = std::chrono::steady_clock::now();
    while ((player.status().state != audio::PlayerPCM::kIdle || player.queued_seconds() > 0.0) &&
           std::chrono::steady_clock::now() - stopped < std::chrono::seconds(5))
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(player.queued_seconds(), 0.0);
    meter.clear();
    EXPECT_EQ(meter.get_level(), 0.0);
    audio::connect(meter, nullptr);
    audio::connect(source, nullptr);
}

} // namespace

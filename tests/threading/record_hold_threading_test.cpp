// The input meter of the record path cut and relinked by the main thread
// while another thread pushes through it, as voice activation does while the
// recorder runs: what was held while cut is handed on at a replaying relink
// before anything newer, and nothing comes out twice or out of order.
#include "audio/level_meter_record.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

namespace {

class Collector : public audio::Consumer<audio::PCMData> {
public:
    void on_data(const audio::PCMData& r) override
    {
        std::lock_guard<std::mutex> held(mutex);
        const std::size_t n = r.bytes.size() / 2;
        const std::size_t at = samples.size();
        samples.resize(at + n);
        std::memcpy(samples.data() + at, r.bytes.data(), n * 2);
    }
    std::mutex mutex;
    std::vector<std::int16_t> samples;
};

} // namespace

TEST(RecordHold, ReplayingRelinksRaceThePushesAndKeepTheOrder)
{
    constexpr int kRecords = 3000;
    constexpr int kFrames = 500;
    // One record of 500 frames plus 0.01 s at 22050 Hz (220 frames) is held.
    audio::LevelMeterRecord meter(2.0, kFrames, 0.01);
    Collector out;
    audio::connect(meter, &out);
    std::atomic<bool> done{false};
    std::thread recorder([&] {
        // Every frame of record k is k, so order and repeats show.
        std::vector<std::int16_t> s(kFrames);
        for (int k = 1; k <= kRecords; ++k) {
            std::fill(s.begin(), s.end(), static_cast<std::int16_t>(k));
            audio::PCMData r;
            r.bytes = liba::ByteBlock(s.data(), s.size() * 2);
            r.channels = 1;
            r.bits = 16;
            r.rate = 22050;
            meter.on_data(r);
            std::this_thread::sleep_for(std::chrono::microseconds(20));
        }
        done = true;
    });
    int relinks = 0;
    int replayed = 0;
    while (!done) {
        meter.cut();
        std::this_thread::sleep_for(std::chrono::microseconds(150 + 50 * (relinks % 5)));
        const bool replay = relinks % 3 != 0;
        if (replay && meter.held_frames() > 0)
            ++replayed;
        meter.relink(&out, replay);
        ++relinks;
        std::this_thread::yield();
    }
    recorder.join();
    audio::connect(meter, nullptr);

    ASSERT_FALSE(out.samples.empty());
    std::map<int, int> frames;
    for (std::size_t i = 0; i < out.samples.size(); ++i) {
        if (i > 0) {
            ASSERT_LE(out.samples[i - 1], out.samples[i]) << "out of order at " << i;
        }
        ++frames[out.samples[i]];
    }
    for (const auto& [k, n] : frames)
        ASSERT_LE(n, kFrames) << "record " << k << " came out twice";
    EXPECT_GT(relinks, 10);
    // Pushes met the cut, and what they left was handed on.
    EXPECT_GT(replayed, 0);
}

// The player's thread fills buffers under its stage lock while SDL's callback
// thread drains them under the device's own lock, and the main thread pauses,
// resumes, changes the volume, reads the status and cuts and rejoins the
// source all the while. Nothing may race (this runs under ThreadSanitizer),
// the callback must keep running while a fill waits for a slow source, and
// what reaches the device must still be the source's frames, in order.
#include "audio/player_pcm.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

using audio::PCMData;
using audio::PlayerPCM;

namespace {

constexpr int kRate = 8000;
// Frame values run 1..kCycle and round again: never 0, the device's silence.
constexpr std::uint32_t kCycle = 30000;

std::int16_t value_of(std::uint64_t frame)
{
    return static_cast<std::int16_t>(1 + frame % kCycle);
}

// Counts its frames out as 16-bit mono samples, in pieces of varying size;
// every so often a pull takes its time, as a slow decoder would.
class CountingSource : public audio::Provider<PCMData> {
public:
    void get_data(PCMData& out, int n) override
    {
        std::uint64_t k = pulls.fetch_add(1) + 1;
        // Only this thread pauses or closes the device, so what the status
        // says holds for the whole wait.
        PlayerPCM::Status s = player->status();
        if (k % 23 == 0 && s.device_open && !s.paused) {
            std::uint64_t before = player->device_callbacks();
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
            if (player->device_callbacks() == before)
                ++stalled_callbacks;
        }
        int frames = std::min(n, static_cast<int>(50 + (k * 7919) % 3000));
        out.bytes = liba::ByteBlock(static_cast<std::size_t>(frames) * 2);
        std::uint8_t* w = out.bytes.writable();
        for (int i = 0; i < frames; ++i) {
            std::int16_t v = value_of(next_++);
            std::memcpy(w + 2 * i, &v, 2);
        }
        out.channels = 1;
        out.bits = 16;
        out.rate = kRate;
    }

    PlayerPCM* player = nullptr;
    std::atomic<std::uint64_t> pulls{0};
    std::atomic<int> stalled_callbacks{0};

private:
    std::uint64_t next_ = 0;
};

TEST(PlayerPCMThreading, FillsCallbacksAndRequestsRaceNowhere)
{
    test::TempDir dir;
    const std::string out = (dir / "out.raw").string();
    setenv("SDL_AUDIODRIVER", "disk", 1);
    setenv("SDL_DISKAUDIOFILE", out.c_str(), 1);
    setenv("SDL_DISKAUDIODELAY", "1", 1);

    PlayerPCM player;
    CountingSource source;
    source.player = &player;
    audio::connect(source, &player);
    ASSERT_TRUE(player.play());

    std::mt19937 rng(7);
    for (int op = 0; op < 600; ++op) {
        switch (rng() % 8) {
        case 0: player.pause(); break;
        case 1: player.play(); break;
        case 2: player.set_volume(1.0); break;
        case 3: EXPECT_DOUBLE_EQ(player.get_volume(), 1.0); break;
        case 4: (void)player.status(); break;
        case 5:
            // A cut ends the stream; the device drains and closes, and the
            // next play() starts a new one.
            audio::connect(source, nullptr);
            std::this_thread::sleep_for(std::chrono::milliseconds(rng() % 20));
            audio::connect(source, &player);
            player.play();
            break;
        default: break;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(rng() % 2000));
    }
    player.play();
    // Let the last stream run for a while, then end it by a cut.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    audio::connect(source, nullptr);
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (player.status().state != PlayerPCM::kIdle && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    PlayerPCM::Status s = player.status();
    EXPECT_EQ(s.state, PlayerPCM::kIdle);
    EXPECT_EQ(s.buffers_in_device, 0);
    EXPECT_GT(s.opens, 1);
    EXPECT_EQ(source.stalled_callbacks, 0);
    EXPECT_GT(source.pulls, 20u);

    // The last device session got a run of consecutive frames; silence
    // (paused, starved, drained) is all that may lie between them.
    std::string bytes = test::read_file(out);
    std::vector<std::int16_t> frames;
    for (std::size_t at = 0; at + 2 <= bytes.size(); at += 2) {
        std::int16_t v;
        std::memcpy(&v, bytes.data() + at, 2);
        if (v != 0)
            frames.push_back(v);
    }
    ASSERT_FALSE(frames.empty());
    int breaks = 0;
    for (std::size_t i = 1; i < frames.size(); ++i) {
        std::int16_t want = static_cast<std::int16_t>(frames[i - 1] == kCycle ? 1 : frames[i - 1] + 1);
        if (frames[i] != want)
            ++breaks;
    }
    EXPECT_EQ(breaks, 0);
}

} // namespace

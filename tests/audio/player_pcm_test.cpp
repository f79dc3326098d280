// The player against SDL's disk audio driver: what the device was handed is
// read back from the file the driver writes, with the silence it writes while
// paused, starved or after the end taken out. The test signals have no frame
// equal to that silence, so what is left must be the signal itself.
#include "audio/player_pcm.h"

#include "liba/fatal.h"
#include "tests/audio/audio_test_util.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

using audio::PCMData;
using audio::PlayerPCM;
using audio_test::Reference;

namespace {

void use_disk_device(const std::string& file, int delay_ms) { audio_test::use_disk_audio(file, delay_ms); }

using audio_test::wait_until;

void sleep_ms(int ms)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

// A stream is over when the device has opened and closed again.
bool ended(const PlayerPCM& p, int opens)
{
    PlayerPCM::Status s = p.status();
    return s.opens == opens && s.state == PlayerPCM::kIdle;
}

// The frames of `bytes` that are not the device's silence.
std::string without_silence(const std::string& bytes, int channels, int bits)
{
    const std::size_t frame = static_cast<std::size_t>(channels * bits / 8);
    const char silence = bits == 8 ? static_cast<char>(0x80) : 0;
    std::string out;
    for (std::size_t at = 0; at + frame <= bytes.size(); at += frame) {
        bool quiet = true;
        for (std::size_t i = 0; i < frame; ++i)
            quiet = quiet && bytes[at + i] == silence;
        if (!quiet)
            out.append(bytes, at, frame);
    }
    return out;
}

// Serves references one after the other, in pieces of varying size up to
// what is asked, then empty records. Runs on the player's thread; `on_pull`
// sees each piece before it goes.
class StreamSource : public audio::Provider<PCMData> {
public:
    explicit StreamSource(std::vector<const Reference*> refs) : refs_(std::move(refs)) {}
    void get_data(PCMData& out, int n) override
    {
        ++pulls;
        out = PCMData();
        while (index_ < refs_.size()) {
            const Reference& r = *refs_[index_];
            std::size_t frame = static_cast<std::size_t>(r.channels * r.bits / 8);
            std::size_t frames = std::min<std::size_t>(static_cast<std::size_t>(n), 700 + (pulls * 977) % 5000);
            out = audio_test::pcm_of(r, pos_, frames * frame);
            pos_ += out.bytes.size();
            if (!out.empty())
                break;
            ++index_;
            pos_ = 0;
        }
        if (on_pull)
            on_pull(out);
    }
    std::atomic<int> pulls{0};
    std::function<void(const PCMData&)> on_pull;

private:
    std::vector<const Reference*> refs_;
    std::size_t index_ = 0;
    std::size_t pos_ = 0;
};

class PlayerPCMTest : public ::testing::Test {
protected:
    test::TempDir dir;
    std::string out_file = (dir / "out.raw").string();
};

TEST_F(PlayerPCMTest, HandsTheDeviceEverySampleInOrderThroughPauses)
{
    for (const char* name :
         {"player_s16_stereo_44100.wav", "player_s16_mono_22050.wav", "player_u8_stereo_11025.wav"}) {
        SCOPED_TRACE(name);
        Reference ref = audio_test::sox_reference(name);
        // Paced so that the stream lasts about a second, longer than the pauses.
        const int frames = static_cast<int>(ref.bytes.size()) / (ref.channels * ref.bits / 8);
        use_disk_device(out_file, 1000 * 512 / frames);
        {
            PlayerPCM player;
            StreamSource source({&ref});
            audio::connect(source, &player);
            EXPECT_DOUBLE_EQ(player.get_volume(), 1.0);
            ASSERT_TRUE(player.play());
            for (int i = 0; i < 3; ++i) {
                sleep_ms(60);
                ASSERT_TRUE(player.pause());
                EXPECT_TRUE(player.is_paused());
                ASSERT_TRUE(wait_until([&] { return player.status().paused; }));
                // Paused, the device keeps every buffer it holds (once the
                // report of the callback that ran as the pause came is in).
                sleep_ms(10);
                int held = player.status().buffers_in_device;
                sleep_ms(40);
                EXPECT_EQ(player.status().buffers_in_device, held);
                // Playing, or draining when the whole signal fits the buffers.
                EXPECT_NE(player.status().state, PlayerPCM::kIdle);
                ASSERT_TRUE(player.play());
                EXPECT_FALSE(player.is_paused());
            }
            ASSERT_TRUE(wait_until([&] { return ended(player, 1); }));
            PlayerPCM::Status s = player.status();
            EXPECT_TRUE(s.finished);
            EXPECT_FALSE(s.paused);
            EXPECT_EQ(s.buffer_size, ref.rate / 5 * ref.channels * ref.bits / 8);
            audio::connect(source, nullptr);
        }
        std::string played = without_silence(test::read_file(out_file), ref.channels, ref.bits);
        EXPECT_EQ(played.size(), ref.bytes.size());
        EXPECT_TRUE(played == ref.bytes);
    }
}

TEST_F(PlayerPCMTest, ReopensTheDeviceWhenTheFormatChanges)
{
    Reference first = audio_test::sox_reference("player_s16_stereo_44100.wav");
    Reference second = audio_test::sox_reference("player_s16_mono_22050.wav");
    std::string second_file = (dir / "second.raw").string();
    use_disk_device(out_file, 0);
    PlayerPCM player;
    StreamSource source({&first, &second});
    int size_before = -1;
    bool switched = false;
    source.on_pull = [&](const PCMData& r) {
        // The first record of the new format: the old device is still open,
        // and the new one will write elsewhere.
        if (!switched && r.rate == second.rate) {
            switched = true;
            size_before = player.status().buffer_size;
            setenv("SDL_DISKAUDIOFILE", second_file.c_str(), 1);
        }
    };
    audio::connect(source, &player);
    ASSERT_TRUE(player.play());
    // No play() in between: the end of the old format closes the device and
    // the player opens it again for the new one by itself.
    ASSERT_TRUE(wait_until([&] { return ended(player, 2); }));
    audio::connect(source, nullptr);
    EXPECT_EQ(size_before, 44100 / 5 * 4);
    EXPECT_EQ(player.status().buffer_size, 22050 / 5 * 2);
    EXPECT_TRUE(without_silence(test::read_file(out_file), 2, 16) == first.bytes);
    EXPECT_TRUE(without_silence(test::read_file(second_file), 1, 16) == second.bytes);
}

TEST_F(PlayerPCMTest, ShortStreamsEmptyPathsAndStopMidStream)
{
    Reference ref = audio_test::sox_reference("player_u8_stereo_11025.wav");
    use_disk_device(out_file, 2);
    Reference small = ref;
    small.bytes.resize(100 * 2);
    Reference longer = ref;
    for (int i = 0; i < 15; ++i)
        longer.bytes += ref.bytes;
    StreamSource first({&small});
    StreamSource source({&longer});
    PlayerPCM player;

    // Nothing linked: nothing opens and the stream counts as finished.
    ASSERT_TRUE(player.play());
    sleep_ms(50);
    EXPECT_EQ(player.status().opens, 0);
    EXPECT_EQ(player.status().state, PlayerPCM::kIdle);
    EXPECT_TRUE(player.status().finished);

    // 100 frames: one short buffer, then the device closes by itself.
    audio::connect(first, &player);
    ASSERT_TRUE(player.play());
    ASSERT_TRUE(wait_until([&] { return ended(player, 1); }));
    audio::connect(first, nullptr);
    EXPECT_TRUE(without_silence(test::read_file(out_file), 2, 8) == small.bytes);

    // Stopped mid-stream: what the device got is the start of the signal,
    // and the device closes without the rest.
    audio::connect(source, &player);
    ASSERT_TRUE(player.play());
    sleep_ms(60);
    ASSERT_TRUE(player.stop());
    ASSERT_TRUE(wait_until([&] { return ended(player, 2); }));
    int pulls = source.pulls;
    std::string played = without_silence(test::read_file(out_file), 2, 8);
    EXPECT_GT(played.size(), 0u);
    EXPECT_LT(played.size(), longer.bytes.size());
    EXPECT_TRUE(longer.bytes.compare(0, played.size(), played) == 0);
    // Stopped stays stopped: nothing is pulled while idle.
    sleep_ms(50);
    EXPECT_EQ(source.pulls, pulls);
    audio::connect(source, nullptr);
}

TEST_F(PlayerPCMTest, VolumeScalesSamplesAndIsLimited)
{
    Reference ref = audio_test::sox_reference("player_s16_mono_22050.wav");
    use_disk_device(out_file, 0);
    PlayerPCM player;
    player.set_volume(1.5);
    EXPECT_DOUBLE_EQ(player.get_volume(), 1.0);
    player.set_volume(-1);
    EXPECT_DOUBLE_EQ(player.get_volume(), 0.0);
    player.set_volume(0.5);
    StreamSource source({&ref});
    audio::connect(source, &player);
    ASSERT_TRUE(player.play());
    ASSERT_TRUE(wait_until([&] { return ended(player, 1); }));
    audio::connect(source, nullptr);
    std::string played = without_silence(test::read_file(out_file), 1, 16);
    ASSERT_EQ(played.size(), ref.bytes.size());
    const auto got = test::samples_of(played), want = test::samples_of(ref.bytes);
    int worst = 0;
    for (std::size_t i = 0; i < got.size(); ++i)
        worst = std::max(worst, std::abs(2 * got[i] - want[i]));
    EXPECT_LE(worst, 2);
}

TEST_F(PlayerPCMTest, WithoutASoundDeviceStaysSilentUntilStopped)
{
    Reference ref = audio_test::sox_reference("player_s16_mono_22050.wav");
    setenv("SDL_AUDIODRIVER", "no-such-driver", 1);
    PlayerPCM player;
    StreamSource source({&ref});
    audio::connect(source, &player);
    ASSERT_TRUE(player.play());
    ASSERT_TRUE(wait_until([&] { return player.status().state == PlayerPCM::kPlaying; }));
    // No busy loop: the one pull that found audio, and nothing after it.
    sleep_ms(200);
    EXPECT_EQ(source.pulls, 1);
    PlayerPCM::Status s = player.status();
    EXPECT_EQ(s.state, PlayerPCM::kPlaying);
    EXPECT_FALSE(s.device_open);
    EXPECT_EQ(s.opens, 0);
    ASSERT_TRUE(player.pause());
    ASSERT_TRUE(player.play());
    ASSERT_TRUE(player.stop());
    ASSERT_TRUE(wait_until([&] { return player.status().state == PlayerPCM::kIdle; }));
    EXPECT_EQ(source.pulls, 1);
    audio::connect(source, nullptr);
}

TEST(PlayerPCMDeathTest, RefusesPushedData)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    setenv("SDL_AUDIODRIVER", "dummy", 1);
    EXPECT_EXIT(
        {
            PlayerPCM player;
            player.on_data(PCMData());
        },
        ::testing::ExitedWithCode(liba::kFatalExitCode), "on_data unexpected - player is active object");
}

} // namespace

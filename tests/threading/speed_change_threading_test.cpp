// The play path's speed changed from the main thread while another thread
// pulls through it as the player does: no pull comes back empty before the
// source's end, the source is read through once, and nothing waits for ever.
#include "app/play_path.h"
#include "tests/audio/audio_test_util.h"

#include <atomic>
#include <thread>

namespace {

// Hands out a sox tone `repeats` times over; thread-safe only in that one
// thread pulls it.
class RepeatedSource : public audio::Provider<audio::PCMData> {
public:
    RepeatedSource(const audio_test::Reference& ref, int repeats) : ref_(ref), left_(repeats) {}
    void get_data(audio::PCMData& out, int n) override
    {
        const std::size_t frame = static_cast<std::size_t>(ref_.channels * 2);
        if (at_ >= ref_.bytes.size() && left_ > 1) {
            at_ = 0;
            --left_;
        }
        out = audio_test::pcm_of(ref_, at_, frame * static_cast<std::size_t>(n));
        at_ += out.bytes.size();
    }
    bool at_end() const { return left_ == 1 && at_ >= ref_.bytes.size(); }

private:
    const audio_test::Reference& ref_;
    std::size_t at_ = 0;
    int left_;
};

class PlayerEnd : public audio::PullOnlyConsumer<audio::PCMData> {
public:
    PlayerEnd() : audio::PullOnlyConsumer<audio::PCMData>(audio::kPlayerOnData) {}
    bool pull()
    {
        liba::Lock held(lock);
        audio::PCMData r;
        pull_data(r, 16384);
        return !r.empty();
    }
};

} // namespace

TEST(SpeedThreading, SpeedChangesWhilePullingNeverStall)
{
    const audio_test::Reference tone = audio_test::sox_reference("pcm_s16_stereo_44100.wav");
    RepeatedSource source(tone, 40);
    PlayerEnd end;
    PlayPath path;
    path.attach(&end);
    audio::connect(source, &path.head());
    std::atomic<bool> done{false};
    std::atomic<int> pulls{0};
    bool ended_early = false;
    std::thread player([&] {
        while (end.pull())
            ++pulls;
        ended_early = !source.at_end();
        done = true;
    });
    struct Setting {
        double speed;
        bool lock, any;
    };
    const Setting settings[] = {{0.5, true, false}, {1.5, false, false}, {1.25, true, true}, {1.0, true, false},
                                {0.6, true, true},  {2.0, false, false}, {0.5, true, false}, {0.8, true, true}};
    for (int i = 0; !done; ++i) {
        const Setting& s = settings[i % std::size(settings)];
        path.set_speed(s.speed, s.lock, s.any);
        std::this_thread::yield();
    }
    player.join();
    EXPECT_FALSE(ended_early);
    EXPECT_GT(pulls.load(), 40);
    path.attach(nullptr);
    audio::connect(source, nullptr);
}

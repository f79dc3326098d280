// The recorder against SDL's disk audio driver, which reads its capture input
// from a raw file: the speech clip, turned into each format by sox. Then the
// active buffer's limits, with a writer held back by the test.
#include "audio/active_buffer.h"
#include "audio/recorder_pcm.h"
#include "tests/audio/audio_test_util.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

using audio::ActiveBuffer;
using audio::PCMData;
using audio::RecorderPCM;

namespace {

struct Format {
    int rate, bits, channels;
};

using audio_test::wait_until;

// The speech clip in format `f` captured from `input`, `delay_ms` per device
// callback; what it would play goes to a file in `dir`.
std::string use_speech_input(const test::TempDir& dir, const std::filesystem::path& input, const Format& f,
                             int delay_ms)
{
    audio_test::use_disk_audio(dir / "played.raw", delay_ms, input);
    return audio_test::speech_raw(input, f.rate, f.bits, f.channels);
}

// Keeps what is pushed to it, from any thread. While `held`, every push
// waits in on_data until release() (a writer slower than the device).
class Collector : public audio::Consumer<PCMData> {
public:
    explicit Collector(bool held = false) : held_(held) {}
    void on_data(const PCMData& r) override
    {
        std::unique_lock<std::mutex> g(m_);
        records_.push_back(r);
        bytes_ += audio_test::bytes_of(r.bytes);
        cv_.notify_all();
        cv_.wait(g, [this] { return !held_; });
    }
    void release()
    {
        std::lock_guard<std::mutex> g(m_);
        held_ = false;
        cv_.notify_all();
    }
    std::size_t count()
    {
        std::lock_guard<std::mutex> g(m_);
        return records_.size();
    }
    std::size_t size()
    {
        std::lock_guard<std::mutex> g(m_);
        return bytes_.size();
    }
    std::vector<PCMData> records()
    {
        std::lock_guard<std::mutex> g(m_);
        return records_;
    }
    std::string bytes()
    {
        std::lock_guard<std::mutex> g(m_);
        return bytes_;
    }

private:
    std::mutex m_;
    std::condition_variable cv_;
    bool held_;
    std::vector<PCMData> records_;
    std::string bytes_;
};

} // namespace

TEST(RecorderPCM, CapturesTheInputSampleForSampleInBuffersOf5000Blocks)
{
    for (Format f : {Format{22050, 16, 1}, Format{11025, 8, 1}, Format{8000, 16, 1}, Format{44100, 16, 2}}) {
        SCOPED_TRACE(std::to_string(f.rate) + " Hz " + std::to_string(f.bits) + " bits x" +
                     std::to_string(f.channels));
        test::TempDir dir;
        const std::string input = use_speech_input(dir, dir / "in.raw", f, 1);
        Collector sink;
        {
            RecorderPCM rec(f.channels, f.rate, f.bits);
            ASSERT_TRUE(rec.is_good());
            EXPECT_EQ(rec.get_bit_rate(), ((f.bits + 7) * f.rate * f.channels) / 8 * 8);
            // The rounding of the block alignment gives 5 bytes for 16-bit stereo.
            const int align = f.bits == 16 && f.channels == 2 ? 5 : f.channels * f.bits / 8;
            EXPECT_EQ(rec.buffer_size(), align * RecorderPCM::kBlocksPerBuffer);
            audio::connect(rec, &sink);
            ASSERT_TRUE(rec.start());
            ASSERT_TRUE(wait_until([&] { return sink.size() > input.size(); }));
            EXPECT_TRUE(rec.stop());
            EXPECT_TRUE(rec.is_stopped());
            audio::connect(rec, nullptr);
            EXPECT_TRUE(rec.is_good());
            EXPECT_EQ(rec.counts().lost, 0u);
        }
        for (const PCMData& r : sink.records()) {
            EXPECT_EQ(r.rate, f.rate);
            EXPECT_EQ(r.bits, f.bits);
            EXPECT_EQ(r.channels, f.channels);
        }
        const std::string got = sink.bytes();
        EXPECT_EQ(got.substr(0, input.size()), input);
        // The driver gives silence once its input file has ended.
        const char silence = f.bits == 8 ? '\x80' : '\0';
        EXPECT_EQ(got.substr(input.size()), std::string(got.size() - input.size(), silence));
    }
}

TEST(RecorderPCM, StarvesForGoodOnceEveryBufferIsBackAndEndsWithoutADevice)
{
    test::TempDir dir;
    use_speech_input(dir, dir / "in.raw", Format{22050, 16, 1}, 0);
    {
        // A format the device refuses: nothing opens, the thread still ends.
        RecorderPCM refused(1, 22050, 24);
        EXPECT_FALSE(refused.is_good());
        EXPECT_FALSE(refused.start());
    }
    Collector held(true);
    RecorderPCM rec(1, 22050, 16);
    audio::connect(rec, &held);
    ASSERT_TRUE(rec.start());
    // The recorder's thread waits in the first push while the device fills
    // the other 19 buffers, and then has nowhere to put what it hears.
    ASSERT_TRUE(wait_until([&] { return rec.counts().lost > 0; }));
    held.release();
    ASSERT_TRUE(wait_until([&] { return held.count() == RecorderPCM::kBufferCount; }));
    EXPECT_FALSE(rec.is_good());
    const std::uint64_t lost = rec.counts().lost;
    ASSERT_TRUE(wait_until([&] { return rec.counts().lost > lost + 100000; }));
    // No buffer went back to the device: nothing more came.
    EXPECT_EQ(held.count(), static_cast<std::size_t>(RecorderPCM::kBufferCount));
    EXPECT_FALSE(rec.is_good());
    audio::connect(rec, nullptr);
}

TEST(ActiveBuffer, RefusesAboveItsLimitsUntilResetAndStillWritesWhatWasQueuedInOrder)
{
    std::uint64_t free_memory = 1u << 30;
    Collector writer(true);
    ActiveBuffer buffer([&] { return free_memory; });
    audio::connect(buffer, &writer);
    PCMData empty;
    buffer.get_data(empty, 100);
    EXPECT_TRUE(empty.empty());
    EXPECT_EQ(empty.rate, 0);

    // Records of a million bytes, each marked with its number.
    auto record = [](int n) {
        PCMData r;
        r.bytes = liba::ByteBlock(std::string(1000000, static_cast<char>(n)).data(), 1000000);
        r.channels = 1;
        r.bits = 16;
        r.rate = 22050;
        return r;
    };
    buffer.on_data(record(0));
    ASSERT_TRUE(wait_until([&] { return writer.count() == 1; })); // taken, and held in the writer
    for (int n = 1; n <= 10; ++n)
        buffer.on_data(record(n));
    // Exactly 10,000,000 pending: one more is still taken, over the limit.
    EXPECT_EQ(buffer.pending_bytes(), 10000000);
    buffer.on_data(record(11));
    EXPECT_TRUE(buffer.is_good());
    EXPECT_EQ(buffer.pending_bytes(), 11000000);
    buffer.on_data(record(12));
    EXPECT_FALSE(buffer.is_good());
    free_memory = 0; // refused stays refused whatever the memory
    buffer.on_data(record(13));
    EXPECT_EQ(buffer.queued_records(), 12); // 11 queued and one in the writer's hands

    writer.release();
    ASSERT_TRUE(wait_until([&] { return buffer.queued_records() == 0; }));
    ASSERT_EQ(writer.count(), 12u);
    std::vector<PCMData> written = writer.records();
    for (int n = 0; n < 12; ++n)
        EXPECT_EQ(written[static_cast<std::size_t>(n)].bytes.data()[0], n);
    EXPECT_FALSE(buffer.is_good());

    // Short of memory: refused at the next record, accepting again after reset.
    buffer.reset();
    EXPECT_TRUE(buffer.is_good());
    free_memory = ActiveBuffer::kMinFreeMemory - 1;
    buffer.on_data(record(14));
    EXPECT_FALSE(buffer.is_good());
    free_memory = ActiveBuffer::kMinFreeMemory;
    buffer.reset();
    buffer.on_data(record(15));
    ASSERT_TRUE(wait_until([&] { return writer.count() == 13; }));
    EXPECT_EQ(writer.records().back().bytes.data()[0], 15);
    audio::connect(buffer, nullptr);
}

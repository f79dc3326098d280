#include "audio/pipeline.h"

#include "audio_test_util.h"
#include "liba/fatal.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

using audio::PCMData;
using audio_test::bytes_of;
using audio_test::PCMSource;
using audio_test::Reference;
using audio_test::Sink;

namespace {

// Inverts every bit of a record in a new block (so the change is visible)
// and counts the records, empty ones included, that it sees.
class InvertBits : public audio::Processor<PCMData> {
public:
    int processed = 0;
    int empties = 0;

protected:
    void process(PCMData& out, const PCMData& in) override
    {
        ++processed;
        if (in.empty())
            ++empties;
        out = in;
        if (in.empty())
            return;
        out.bytes = liba::ByteBlock(in.bytes.size());
        std::uint8_t* w = out.bytes.writable();
        for (std::size_t i = 0; i < in.bytes.size(); ++i)
            w[i] = static_cast<std::uint8_t>(~in.bytes.data()[i]);
    }
};

std::string inverted(std::string s)
{
    for (auto& c : s)
        c = static_cast<char>(~c);
    return s;
}

} // namespace

TEST(Records, DerivedValuesAgreeWithSoxAndNeverDivideByZero)
{
    for (const char* name : {"pcm_s16_stereo_44100.wav", "pcm_u8_stereo_11025.wav", "pcm_s16_mono_8000.wav",
                             "pcm_u8_mono_22050.wav"}) {
        Reference ref = audio_test::sox_reference(name);
        PCMData all = audio_test::pcm_of(ref, 0, ref.bytes.size());
        EXPECT_EQ(all.sample_count(), std::size_t(test::soxi_int(test::one_media(name), "-s"))) << name;
        EXPECT_EQ(all.bytes_per_frame(), ref.channels * ref.bits / 8) << name;
    }

    PCMData empty;
    EXPECT_TRUE(empty.empty());
    EXPECT_EQ(empty.bytes_per_frame(), 0);
    EXPECT_EQ(empty.sample_count(), 0u);
    // Bytes without a format have no frames either (and no division by 0).
    PCMData formatless;
    formatless.bytes = liba::ByteBlock(10);
    EXPECT_EQ(formatless.sample_count(), 0u);
    // A 24-bit stereo frame, and a partial frame that does not count.
    PCMData wide{liba::ByteBlock(13), 2, 24, 48000};
    EXPECT_EQ(wide.bytes_per_frame(), 6);
    EXPECT_EQ(wide.sample_count(), 2u);

    PCMData a{liba::ByteBlock(4), 2, 16, 44100};
    PCMData b{liba::ByteBlock(), 2, 16, 44100};
    EXPECT_TRUE(audio::format_equal(a, b));     // sizes do not matter
    for (PCMData c : {PCMData{{}, 1, 16, 44100}, PCMData{{}, 2, 8, 44100}, PCMData{{}, 2, 16, 22050}})
        EXPECT_FALSE(audio::format_equal(a, c));
}

TEST(Pipeline, UnlinkedEndsGiveEmptyAndDropAndConnectJoinsCutsAndRejoins)
{
    // A pull with no provider answers an empty record with a zeroed format,
    // whatever `out` held before.
    Sink<PCMData> lone;
    PCMData out{liba::ByteBlock(8), 2, 16, 44100};
    lone.pull_data(out, 100);
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(out.channels, 0);
    EXPECT_EQ(out.bits, 0);
    EXPECT_EQ(out.rate, 0);

    // A push with no consumer drops the record and keeps no reference to it.
    Reference ref = audio_test::sox_reference("pcm_s16_mono_8000.wav");
    PCMSource source(ref);
    PCMData record = audio_test::pcm_of(ref, 0, 64);
    source.push_data(record);
    EXPECT_EQ(record.bytes.use_count(), 1);

    PCMSource p(ref);
    Sink<PCMData> c, d;

    audio::connect(p, &c);
    audio::connect(p, &c);      // cut and joined again: the same link
    EXPECT_EQ(p.consumer.load(), &c);
    EXPECT_EQ(c.provider.load(), &p);
    p.push_data(audio_test::pcm_of(ref, 0, 10));
    EXPECT_EQ(c.records.size(), 1u);

    // A new consumer takes the place of the old one, which loses its link.
    audio::connect(p, &d);
    EXPECT_EQ(p.consumer.load(), &d);
    EXPECT_EQ(d.provider.load(), &p);
    EXPECT_EQ(c.provider.load(), nullptr);
    p.push_data(audio_test::pcm_of(ref, 10, 10));
    EXPECT_EQ(c.records.size(), 1u);
    EXPECT_EQ(d.records.size(), 1u);

    // Connecting to null cuts both directions.
    audio::connect(p, nullptr);
    EXPECT_EQ(p.consumer.load(), nullptr);
    EXPECT_EQ(d.provider.load(), nullptr);
    p.push_data(audio_test::pcm_of(ref, 20, 10));
    EXPECT_EQ(d.records.size(), 1u);
    d.pull_data(out, 10);
    EXPECT_TRUE(out.empty());

    // A consumer taken over by another provider: the old provider is not
    // told and still names it (its owner cuts it first when that matters).
    PCMSource q(ref);
    audio::connect(p, &c);
    audio::connect(q, &c);
    EXPECT_EQ(c.provider.load(), &q);
    EXPECT_EQ(p.consumer.load(), &c);
}

TEST(Pipeline, PushAndPullCarrySoxSamplesThroughProcessors)
{
    Reference ref = audio_test::sox_reference("pcm_s16_speech_16000.wav");

    // Push: source -> null -> invert -> null -> sink, in uneven pieces.
    PCMSource source(ref);
    audio::NullProcessor<PCMData> head, tail;
    InvertBits invert;
    Sink<PCMData> sink;
    audio::connect(source, &head);
    audio::connect(head, &invert);
    audio::connect(invert, &tail);
    audio::connect(tail, &sink);
    std::size_t pos = 0;
    for (std::size_t piece = 2; pos < ref.bytes.size(); piece = piece * 3 % 4099 + 2) {
        source.push_data(audio_test::pcm_of(ref, pos, piece));
        pos += piece;
    }
    EXPECT_EQ(sink.all_bytes(), inverted(ref.bytes));
    for (const auto& r : sink.records) {
        EXPECT_EQ(r.rate, 16000);
        EXPECT_EQ(r.channels, 1);
        EXPECT_EQ(r.bits, 16);
    }
    // An empty record is processed and passed on like any other.
    int before = invert.processed;
    source.push_data(PCMData{});
    EXPECT_EQ(invert.processed, before + 1);
    EXPECT_EQ(invert.empties, 1);
    EXPECT_TRUE(sink.records.back().empty());

    // Pull through the same stages: everything once, then empty records.
    PCMSource puller_source(ref);
    audio::connect(puller_source, &head);
    Sink<PCMData> end;
    audio::connect(tail, &end);
    std::string pulled;
    PCMData r;
    int calls = 0;
    for (end.pull_data(r, 1000); !r.empty(); end.pull_data(r, 1000)) {
        EXPECT_LE(r.sample_count(), 1000u);
        pulled += bytes_of(r.bytes);
        ++calls;
    }
    EXPECT_EQ(pulled, inverted(ref.bytes));
    EXPECT_EQ(calls, static_cast<int>((ref.bytes.size() / 2 + 999) / 1000));
    EXPECT_EQ(invert.empties, 2);
    end.pull_data(r, 1000);
    EXPECT_TRUE(r.empty());
}

TEST(Pipeline, PushCallsTheConsumerWhoseLockItHolds)
{
    // While the main thread holds A's lock, a push aimed at A waits. The main
    // thread relinks the provider to B meanwhile; the waiting push must end
    // up in B and never in A, which is no longer linked.
    Reference ref = audio_test::sox_reference("pcm_s16_mono_8000.wav");
    PCMSource p(ref);
    Sink<PCMData> a, b;
    audio::connect(p, &a);
    a.lock.enter();
    std::atomic<bool> pushed{false};
    std::thread pusher([&] {
        p.push_data(audio_test::pcm_of(ref, 0, 32));
        pushed = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(pushed);
    audio::connect(p, &b);      // re-enters A's lock on this thread
    a.lock.leave();
    pusher.join();
    EXPECT_TRUE(a.records.empty());
    ASSERT_EQ(b.records.size(), 1u);
    EXPECT_EQ(bytes_of(b.records[0].bytes), ref.bytes.substr(0, 32));
}

TEST(PipelineDeathTest, WrongDriveDirectionsAreFatal)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Reference ref = audio_test::sox_reference("pcm_s16_mono_8000.wav");

    // A push into the player, the stage that pulls.
    EXPECT_EXIT(
        {
            PCMSource source(ref);
            audio::PullOnlyConsumer<PCMData> player(audio::kPlayerOnData);
            audio::connect(source, &player);
            source.push_data(audio_test::pcm_of(ref, 0, 8));
        },
        testing::ExitedWithCode(liba::kFatalExitCode),
        "PlayerPCM::on_data: on_data unexpected - player is active object");

    // A pull from the recorder, the stage that pushes.
    EXPECT_EXIT(
        {
            audio::PushOnlyProvider<PCMData> recorder(audio::kRecorderGetData);
            Sink<PCMData> next;
            audio::connect(recorder, &next);
            PCMData out;
            next.pull_data(out, 8);
        },
        testing::ExitedWithCode(liba::kFatalExitCode),
        "RecorderPCM::get_data: get_data unexpected - recorder is active object");

    // A push into the stretch filter's base, which serves pulls only; its
    // report keeps caption and text the other way round.
    class PullOnlyPass : public audio::PullOnlyProcessor<PCMData> {
    public:
        PullOnlyPass() : PullOnlyProcessor(audio::kStreamFilterOnData) {}

    protected:
        void process(PCMData& out, const PCMData& in) override { out = in; }
    };
    EXPECT_EXIT(
        {
            PCMSource source(ref);
            PullOnlyPass filter;
            audio::connect(source, &filter);
            source.push_data(audio_test::pcm_of(ref, 0, 8));
        },
        testing::ExitedWithCode(liba::kFatalExitCode), "Not implemented: LevelFilter::on_data");

    // The same stage still answers pulls.
    PCMSource source(ref);
    PullOnlyPass filter;
    Sink<PCMData> end;
    audio::connect(source, &filter);
    audio::connect(filter, &end);
    PCMData out;
    end.pull_data(out, 4);
    EXPECT_EQ(bytes_of(out.bytes), ref.bytes.substr(0, 8));
}

// A worker drives a chain of stages, pushing or pulling without pause, while
// the main thread cuts and rejoins links and takes stages out, puts them back
// and replaces them with new ones, thousands of times. Every record that
// arrives must be whole and in order, and nothing may crash or race (this
// test runs under AddressSanitizer and ThreadSanitizer).
#include "audio/pipeline.h"
#include "liba/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <random>
#include <thread>
#include <vector>

using audio::PCMData;

namespace {

constexpr int kFrames = 256;
constexpr int kRate = 8000;
constexpr int kOps = 20000;

// Records count themselves: the first two samples hold the sequence number
// and every other sample follows from it.
std::uint16_t sample_at(std::uint32_t seq, int i)
{
    if (i == 0)
        return static_cast<std::uint16_t>(seq & 0xFFFF);
    if (i == 1)
        return static_cast<std::uint16_t>(seq >> 16);
    return static_cast<std::uint16_t>(seq * 2654435761u + static_cast<std::uint32_t>(i) * 40503u);
}

PCMData make_record(std::uint32_t seq)
{
    PCMData r;
    r.bytes = liba::ByteBlock(kFrames * 2);
    std::uint8_t* w = r.bytes.writable();
    for (int i = 0; i < kFrames; ++i) {
        std::uint16_t s = sample_at(seq, i);
        w[2 * i] = static_cast<std::uint8_t>(s & 0xFF);
        w[2 * i + 1] = static_cast<std::uint8_t>(s >> 8);
    }
    r.channels = 1;
    r.bits = 16;
    r.rate = kRate;
    return r;
}

// The sequence number of an intact record, or -1.
long long check_record(const PCMData& r)
{
    if (r.bytes.size() != kFrames * 2 || r.channels != 1 || r.bits != 16 || r.rate != kRate)
        return -1;
    const std::uint8_t* p = r.bytes.data();
    auto at = [p](int i) { return static_cast<std::uint16_t>(p[2 * i] | (p[2 * i + 1] << 8)); };
    std::uint32_t seq = at(0) | (static_cast<std::uint32_t>(at(1)) << 16);
    for (int i = 2; i < kFrames; ++i)
        if (at(i) != sample_at(seq, i))
            return -1;
    return seq;
}

std::atomic<long> g_damaged{0};

// Checks each record as it passes and hands on a private copy of it, made
// through writable(), so blocks are made and freed on the worker's thread
// while the main thread relinks.
class CopyingStage : public audio::Processor<PCMData> {
protected:
    void process(PCMData& out, const PCMData& in) override
    {
        out = in;
        if (in.empty())
            return;
        if (check_record(in) < 0)
            ++g_damaged;
        std::uint8_t* w = out.bytes.writable();
        w[0] = in.bytes.data()[0];
    }
};

// Makes numbered records on demand (pull) or for the pusher (push).
class Source : public audio::Provider<PCMData> {
public:
    void get_data(PCMData& out, int) override { out = make_record(next++); }
    std::uint32_t next = 0;     // touched by the one driving thread only
};

// Keeps the last sequence number seen; guarded by its lock, which a push
// holds and the puller takes.
class Sink : public audio::Consumer<PCMData> {
public:
    void on_data(const PCMData& r) override { take(r); }
    void take(const PCMData& r)
    {
        if (r.empty()) {
            ++empties;
            return;
        }
        long long seq = check_record(r);
        if (seq < 0) {
            ++damaged;
            return;
        }
        if (seq <= last)
            ++out_of_order;
        if (seq != last + 1)
            ++gaps;
        last = seq;
        ++received;
    }
    long long last = -1;
    long received = 0, empties = 0, damaged = 0, out_of_order = 0, gaps = 0;
};

class Pusher : public liba::Thread {
public:
    explicit Pusher(Source& s) : source_(s) {}
    ~Pusher() override { request_stop(); join(); }

protected:
    void run() override
    {
        while (!should_stop())
            source_.push_data(make_record(source_.next++));
    }

private:
    Source& source_;
};

class Puller : public liba::Thread {
public:
    explicit Puller(Sink& s) : sink_(s) {}
    ~Puller() override { request_stop(); join(); }

protected:
    void run() override
    {
        while (!should_stop()) {
            // The player's way: the consumer end holds its own lock while
            // it pulls, so a relink of its link waits for the pull.
            liba::Lock held(sink_.lock);
            PCMData r;
            sink_.pull_data(r, kFrames);
            sink_.take(r);
        }
    }

private:
    Sink& sink_;
};

// source -> slots in path, in order -> sink
class Chain {
public:
    static constexpr int kSlots = 6;

    // `pushed`: the worker pushes rather than pulls.
    explicit Chain(bool pushed) : keep_retired_(pushed)
    {
        for (int k = 0; k < kSlots; ++k) {
            slots_.push_back(make_stage(k));
            in_path_.push_back(true);
        }
        audio::Provider<PCMData>* up = &source;
        for (auto& s : slots_) {
            audio::connect(*up, s.get());
            up = s.get();
        }
        audio::connect(*up, &sink);
    }
    ~Chain()
    {
        // The owner cuts every link before the stages go.
        audio::connect(source, nullptr);
        for (auto& s : slots_)
            audio::connect(*s, nullptr);
    }

    // One random change of the path, as the main thread makes them.
    void change(std::mt19937& rng)
    {
        int k = static_cast<int>(rng() % kSlots);
        switch (rng() % 4) {
        case 0: {   // cut the link below the source and join it again
            audio::connect(source, nullptr);
            audio::connect(source, down_of(-1));
            break;
        }
        case 1: {   // cut the link below a stage in the path and join it again
            if (!in_path_[k])
                break;
            audio::connect(*slots_[k], nullptr);
            audio::connect(*slots_[k], down_of(k));
            break;
        }
        case 2:     // take a stage out or put it back
            if (in_path_[k])
                take_out(k);
            else
                put_in(k);
            break;
        default:    // replace a stage with a new one and destroy the old
            if (in_path_[k])
                take_out(k);
            retire(k);
            slots_[k] = make_stage(k + static_cast<int>(rng() % 2));
            put_in(k);
            break;
        }
    }

    void put_all_in()
    {
        for (int k = 0; k < kSlots; ++k)
            if (!in_path_[k])
                put_in(k);
    }

    Source source;
    Sink sink;

private:
    static std::unique_ptr<audio::Processor<PCMData>> make_stage(int kind)
    {
        if (kind % 2 == 0)
            return std::make_unique<audio::NullProcessor<PCMData>>();
        return std::make_unique<CopyingStage>();
    }

    audio::Provider<PCMData>* up_of(int k)
    {
        for (int i = k - 1; i >= 0; --i)
            if (in_path_[i])
                return slots_[i].get();
        return &source;
    }
    audio::Consumer<PCMData>* down_of(int k)
    {
        for (int i = k + 1; i < kSlots; ++i)
            if (in_path_[i])
                return slots_[i].get();
        return &sink;
    }

    // The stage's downstream link goes first: cutting it after the bypass
    // would clear the `provider` of the stage below, which by then belongs
    // to the bypass.
    void take_out(int k)
    {
        audio::connect(*slots_[k], nullptr);
        audio::connect(*up_of(k), down_of(k));
        in_path_[k] = false;
    }
    // Upstream link first, for the same reason.
    void put_in(int k)
    {
        audio::connect(*up_of(k), slots_[k].get());
        audio::connect(*slots_[k], down_of(k));
        in_path_[k] = true;
    }

    // Destroys a stage that is out of the path. A pull cannot be inside it
    // any more: the pull held the lock of the stage below, which the cut
    // took. A push, though, may have read the link to it just before the cut
    // (the head of a push path reads its link without a lock), so in a push
    // path the stage is kept until the pusher has stopped.
    void retire(int k)
    {
        if (keep_retired_)
            retired_.push_back(std::move(slots_[k]));
        else
            slots_[k].reset();
    }

    std::vector<std::unique_ptr<audio::Processor<PCMData>>> slots_;
    std::vector<bool> in_path_;
    bool keep_retired_;
    std::vector<std::unique_ptr<audio::Processor<PCMData>>> retired_;
};

void relink_many_times(Chain& chain, const liba::Thread& worker, long& received_during)
{
    std::mt19937 rng(12345);
    for (int i = 0; i < kOps; ++i) {
        chain.change(rng);
        if (i % 8 == 0)
            std::this_thread::yield();
    }
    ASSERT_TRUE(worker.is_running());
    chain.put_all_in();
    liba::Lock held(chain.sink.lock);
    received_during = chain.sink.received;
}

} // namespace

TEST(ChainRelink, PushedRecordsArriveWholeAndInOrderWhileRelinking)
{
    g_damaged = 0;
    // On the heap, so that its locks die with it and are not mistaken for
    // those of the next test's chain at the same place on the stack.
    auto owned = std::make_unique<Chain>(true);
    Chain& chain = *owned;
    long during = 0;
    {
        Pusher pusher(chain.source);
        ASSERT_TRUE(pusher.start());
        relink_many_times(chain, pusher, during);
        pusher.request_stop();
        pusher.join();
    }
    // The whole path works once the changes are over.
    long before = chain.sink.received;
    chain.source.push_data(make_record(chain.source.next++));
    EXPECT_EQ(chain.sink.received, before + 1);
    EXPECT_EQ(chain.sink.last, static_cast<long long>(chain.source.next) - 1);

    EXPECT_GT(during, 100);
    EXPECT_EQ(chain.sink.damaged, 0);
    EXPECT_EQ(chain.sink.out_of_order, 0);
    EXPECT_EQ(chain.sink.empties, 0);
    EXPECT_EQ(g_damaged, 0);
    // Records pushed while a link was cut are dropped, never more than that.
    EXPECT_LE(chain.sink.received, static_cast<long>(chain.source.next));
}

TEST(ChainRelink, PulledRecordsArriveWholeAndGaplessWhileRelinking)
{
    g_damaged = 0;
    // On the heap, so that its locks die with it and are not mistaken for
    // those of the next test's chain at the same place on the stack.
    auto owned = std::make_unique<Chain>(false);
    Chain& chain = *owned;
    long during = 0;
    {
        Puller puller(chain.sink);
        ASSERT_TRUE(puller.start());
        relink_many_times(chain, puller, during);
        puller.request_stop();
        puller.join();
    }
    PCMData r;
    chain.sink.pull_data(r, kFrames);
    chain.sink.take(r);

    EXPECT_GT(during, 100);
    EXPECT_EQ(chain.sink.damaged, 0);
    EXPECT_EQ(chain.sink.out_of_order, 0);
    // A pulled record is made on request and comes straight back, so none
    // is lost: a cut link answers empty instead.
    EXPECT_EQ(chain.sink.gaps, 0);
    EXPECT_EQ(chain.sink.last, static_cast<long long>(chain.source.next) - 1);
    EXPECT_EQ(g_damaged, 0);
}

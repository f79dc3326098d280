#include "liba/thread.h"

#include "liba/event.h"
#include "liba/fatal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <sys/resource.h>
#include <thread>

namespace {

using namespace std::chrono_literals;

// Waits up to two seconds for `done`; the bound only guards against a hang.
template <class F>
bool eventually(F done)
{
    for (int i = 0; i < 2000; ++i) {
        if (done())
            return true;
        std::this_thread::sleep_for(1ms);
    }
    return done();
}

// Runs once and records that it did.
class OnceThread : public liba::Thread {
public:
    ~OnceThread() override { join(); }
    std::atomic<int> runs{0};
    liba::Event release;

protected:
    void run() override
    {
        ++runs;
        release.wait();
    }
};

// Loops until asked to stop, pausing where it may be suspended.
class LoopThread : public liba::Thread {
public:
    ~LoopThread() override
    {
        request_stop();
        join();
    }
    std::atomic<long> rounds{0};
    std::atomic<int> nice{0};

protected:
    void run() override
    {
        while (!should_stop()) {
            check_suspended();
            errno = 0;
            nice = getpriority(PRIO_PROCESS, 0);    // 0: the calling thread
            ++rounds;
            std::this_thread::sleep_for(100us);
        }
    }
};

} // namespace

TEST(Thread, StartJoinAndRestart)
{
    OnceThread t;
    t.join();                   // never started: returns at once
    EXPECT_FALSE(t.is_running());

    ASSERT_TRUE(t.start());
    ASSERT_TRUE(eventually([&] { return t.runs == 1; }));
    EXPECT_TRUE(t.is_running());
    EXPECT_FALSE(t.start());    // still in run()
    t.release.set();
    t.join();
    EXPECT_FALSE(t.is_running());
    t.join();                   // joined already: returns at once
    EXPECT_EQ(t.runs, 1);

    // Started again after run() returned, with or without a join between.
    ASSERT_TRUE(t.start());
    ASSERT_TRUE(eventually([&] { return !t.is_running(); }));
    ASSERT_TRUE(t.start());
    t.join();
    EXPECT_EQ(t.runs, 3);
}

TEST(Thread, StopEndsTheLoopAndSuspendWaitsAtACheckpointUntilResumeOrStop)
{
    LoopThread t;
    ASSERT_TRUE(t.start());
    ASSERT_TRUE(eventually([&] { return t.rounds > 3; }));
    t.request_stop();
    EXPECT_TRUE(t.should_stop());
    t.join();
    EXPECT_FALSE(t.is_running());

    long before = t.rounds;
    ASSERT_TRUE(t.start());
    EXPECT_FALSE(t.should_stop());
    ASSERT_TRUE(eventually([&] { return t.rounds > before + 3; }));

    t.suspend();
    // The worker finishes its round and parks at its next checkpoint; a
    // worker that went on would make hundreds of rounds meanwhile. One round
    // is allowed for a worker that was slow to reach the checkpoint.
    std::this_thread::sleep_for(20ms);
    long parked = t.rounds;
    std::this_thread::sleep_for(100ms);
    EXPECT_LE(t.rounds - parked, 1);
    parked = t.rounds;
    EXPECT_TRUE(t.is_running());

    t.resume();
    EXPECT_TRUE(eventually([&] { return t.rounds > parked + 3; }));

    // A stop request releases a suspended worker, so join cannot hang.
    t.suspend();
    std::this_thread::sleep_for(20ms);
    t.request_stop();
    t.join();
    EXPECT_FALSE(t.is_running());
}

TEST(Thread, LowerPriorityRaisesNiceOfThatThreadOnly)
{
    errno = 0;
    const int own_nice = getpriority(PRIO_PROCESS, 0);
    ASSERT_EQ(errno, 0);

    LoopThread t;
    ASSERT_TRUE(t.start());
    ASSERT_TRUE(eventually([&] { return t.rounds > 0; }));
    EXPECT_EQ(t.nice, own_nice);

    // Out-of-range levels are clamped: -9 acts as -2, ten nice steps down.
    t.set_priority(-9);
    const int expected = std::min(own_nice + 10, 19);
    EXPECT_TRUE(eventually([&] { return t.nice == expected; })) << t.nice;
    t.set_priority(-1);
    // Back up to -1 needs rights not everybody has; either answer is right,
    // but nothing else is.
    std::this_thread::sleep_for(10ms);
    int now = t.nice;
    EXPECT_TRUE(now == expected || now == std::min(own_nice + 5, 19)) << now;
    t.request_stop();
    t.join();

    // The calling thread keeps its level.
    EXPECT_EQ(getpriority(PRIO_PROCESS, 0), own_nice);

    // A level set before start applies from the start.
    LoopThread early;
    early.set_priority(-2);
    ASSERT_TRUE(early.start());
    ASSERT_TRUE(eventually([&] { return early.rounds > 0; }));
    EXPECT_EQ(early.nice, expected);
}

TEST(ThreadDeathTest, DestroyedWhileRunningIsFatal)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // Its owner forgets to stop and join it.
    class Forgotten : public liba::Thread {
    protected:
        void run() override
        {
            for (;;)
                std::this_thread::sleep_for(1ms);
        }
    };
    EXPECT_EXIT(
        {
            Forgotten t;
            t.start();
        },
        testing::ExitedWithCode(liba::kFatalExitCode), "destroyed while its run\\(\\) is still going");
}

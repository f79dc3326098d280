// The main thread's completions and timers, on the real event loop, with and
// without SDL video (the two ways the loop sleeps).
#include "liba/active.h"
#include "liba/fatal.h"
#include "liba/timer.h"
#include "os/event_loop.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

class Probe : public CActive {
public:
    Probe(std::vector<std::string>& journal, std::string name) : journal_(journal), name_(std::move(name)) {}
    ~Probe() override { cancel(); }
    void arm() { CActiveScheduler::instance().set_active(*this); }
    void complete() { CActiveScheduler::instance().notify(*this); }
    void run() override { journal_.push_back(name_); if (on_run) on_run(); }
    void do_cancel() override { CActiveScheduler::instance().notify(*this); }
    std::function<void()> on_run;

private:
    std::vector<std::string>& journal_;
    std::string name_;
};

class Recorder : public liba::Timer::Listener {
public:
    Recorder(std::vector<std::string>& journal, std::string name) : journal_(journal), name_(std::move(name)) {}
    void on_timer(liba::Timer&) override { journal_.push_back(name_); if (then) then(); }
    std::function<void()> then;

private:
    std::vector<std::string>& journal_;
    std::string name_;
};

class Scheduler : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override
    {
        if (GetParam()) {
            ::setenv("SDL_VIDEODRIVER", "offscreen", 1);
            ASSERT_EQ(SDL_InitSubSystem(SDL_INIT_VIDEO), 0) << SDL_GetError();
        }
        scheduler = std::make_unique<CActiveScheduler>();
        loop = std::make_unique<os::EventLoop>(*scheduler);
    }
    void TearDown() override
    {
        loop.reset();
        scheduler.reset();
        if (GetParam())
            SDL_QuitSubSystem(SDL_INIT_VIDEO);
    }
    // Runs the loop until `done` or a generous limit, which only a broken
    // loop reaches.
    void run_until(const std::function<bool()>& done, int limit_ms = 5000)
    {
        auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(limit_ms);
        liba::Timer guard(guard_listener);
        guard.start(limit_ms / 1000.0);
        loop->run([&] { return done() || std::chrono::steady_clock::now() >= until; });
        guard.stop();
    }

    std::unique_ptr<CActiveScheduler> scheduler;
    std::unique_ptr<os::EventLoop> loop;
    std::vector<std::string> journal;
    Recorder guard_listener{journal_unused, "guard"};
    std::vector<std::string> journal_unused;
};

TEST_P(Scheduler, TimersFireOnceInDueOrderAndRestartMovesTheDueTimeAndTiesKeepStartingOrder)
{
    Recorder a(journal, "a"), b(journal, "b"), c(journal, "c");
    liba::Timer ta(a), tb(b), tc(c);
    ta.start(0.06);
    tb.start(0.02);
    tc.start(0.01);
    tc.start(0.04);  // restarted: moves behind b, still fires once
    run_until([&] { return journal.size() == 3; });
    EXPECT_EQ(journal, (std::vector<std::string>{"b", "c", "a"}));
    EXPECT_FALSE(ta.is_active() || tb.is_active() || tc.is_active());
    EXPECT_EQ(scheduler->timer_wait_ms(), -1) << "an idle program arms no timer";

    // Timers due at the same scan run in the order they were started.
    journal.clear();
    tb.start(0.02);
    tc.start(0.02);
    ta.start(0.02);
    std::this_thread::sleep_for(std::chrono::milliseconds(40));
    run_until([&] { return journal.size() == 3; });
    EXPECT_EQ(journal, (std::vector<std::string>{"b", "c", "a"}));
}

TEST_P(Scheduler, ZeroTimerPostsWithinStartRunsInTheNextPassAndStopTakesItOut)
{
    Recorder a(journal, "a");
    liba::Timer t(a);
    t.start(0);
    EXPECT_TRUE(scheduler->has_posted());
    EXPECT_TRUE(journal.empty());
    scheduler->dispatch_posted();
    EXPECT_EQ(journal, std::vector<std::string>{"a"});

    // A stop takes a queued timer out again; a stop of an idle one does nothing.
    journal.clear();
    Recorder b(journal, "b");
    liba::Timer tb(b);
    t.stop(); // idle
    t.start(0);
    tb.start(0.03);
    ASSERT_TRUE(scheduler->has_posted());
    t.stop();
    EXPECT_FALSE(scheduler->has_posted());
    run_until([&] { return !journal.empty(); });
    EXPECT_EQ(journal, std::vector<std::string>{"b"});
}

TEST_P(Scheduler, ARepeatingListenerRestartsFromOnTimer)
{
    Recorder a(journal, "tick");
    liba::Timer t(a);
    a.then = [&] { if (journal.size() < 5) t.start(0.005); };
    t.start(0.005);
    run_until([&] { return journal.size() == 5 && !t.is_active(); });
    EXPECT_EQ(journal.size(), 5u);
}

TEST_P(Scheduler, CancelDeliversOvertakenCompletionsFirstInPostingOrder)
{
    Probe a(journal, "a"), b(journal, "b"), c(journal, "c");
    a.arm(), b.arm(), c.arm();
    b.complete();
    c.complete();
    a.cancel();
    // b and c ran inside the cancel, a never did.
    EXPECT_EQ(journal, (std::vector<std::string>{"b", "c"}));
    EXPECT_FALSE(a.is_active() || b.is_active() || c.is_active());
    EXPECT_FALSE(scheduler->has_posted());
}

TEST_P(Scheduler, CompletionsFromWorkersRunOnTheMainThreadInPostingOrder)
{
    constexpr int kCount = 200;
    std::vector<std::unique_ptr<Probe>> probes;
    std::vector<std::thread::id> threads;
    for (int i = 0; i < kCount; ++i) {
        probes.push_back(std::make_unique<Probe>(journal, std::to_string(i)));
        probes.back()->on_run = [&] { threads.push_back(std::this_thread::get_id()); };
        probes.back()->arm();
    }
    std::thread worker([&] {
        for (auto& p : probes)
            p->complete();
    });
    run_until([&] { return journal.size() == kCount; });
    worker.join();
    ASSERT_EQ(journal.size(), size_t(kCount));
    for (int i = 0; i < kCount; ++i) {
        EXPECT_EQ(journal[i], std::to_string(i));
        EXPECT_EQ(threads[i], std::this_thread::get_id());
    }
}

TEST_P(Scheduler, NestedLoopsKeepTimersInOrder)
{
    Recorder outer(journal, "outer"), inner1(journal, "inner1"), inner2(journal, "inner2"), after(journal, "after");
    liba::Timer t_outer(outer), t_in1(inner1), t_in2(inner2), t_after(after);
    bool nested_done = false;
    outer.then = [&] {
        // A modal loop inside a handler: the timers started here fire within it.
        t_in2.start(0.02);
        t_in1.start(0.01);
        loop->run([&] { return journal.size() == 3; });
        nested_done = true;
    };
    t_outer.start(0.005);
    t_after.start(0.06);
    run_until([&] { return journal.size() == 4; });
    EXPECT_TRUE(nested_done);
    EXPECT_EQ(journal, (std::vector<std::string>{"outer", "inner1", "inner2", "after"}));
}

TEST_P(Scheduler, QuitFromAnotherThreadEndsTheLoop)
{
    std::thread t([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        loop->quit();
    });
    auto start = std::chrono::steady_clock::now();
    loop->run();
    t.join();
    EXPECT_TRUE(loop->quit_requested());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

INSTANTIATE_TEST_SUITE_P(Loop, Scheduler, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "WithVideo" : "Headless"; });

TEST(SchedulerLimits, FarTimerArmsNothingAndNeverFires)
{
    CActiveScheduler scheduler;
    std::vector<std::string> journal;
    Recorder far(journal, "far");
    liba::Timer t(far);
    t.start(10000.0);
    EXPECT_TRUE(t.is_active());
    EXPECT_EQ(scheduler.timer_wait_ms(), -1);
    scheduler.on_platform_timer();
    scheduler.dispatch_posted();
    EXPECT_TRUE(journal.empty());
    t.stop();
    EXPECT_FALSE(t.is_active());
}

TEST(SchedulerMisuse, IsLoudAndNamesTheOperation)
{
    auto death = [](auto body, const char* text) {
        EXPECT_EXIT(body(), ::testing::ExitedWithCode(liba::kFatalExitCode), text);
    };
    std::vector<std::string> journal;
    death([&] {
        CActiveScheduler s;
        Probe p(journal, "p");
        p.arm();
        p.arm();
    }, "CActiveScheduler::set_active: Object is already active");
    death([&] {
        CActiveScheduler s;
        Probe p(journal, "p");
        p.complete();
    }, "CActiveScheduler::notify\\(\\): Active object is not active");
    death([&] {
        struct Uncancelled : CActive {
            void run() override {}
            void do_cancel() override {}
        };
        CActiveScheduler s;
        Uncancelled u;
        s.set_active(u);
    }, "CActive::~CActive\\(\\): Active object is already active");
    death([&] {
        auto* s = new CActiveScheduler;
        Probe p(journal, "p");
        p.arm();
        delete s;
    }, "Some active objects still live while scheduler is terminating");
}

} // namespace

// Completions posted from worker threads while the main thread runs, cancels
// and re-arms them: every completion runs exactly once or is cancelled,
// always on the main thread.
#include "liba/active.h"
#include "os/event_loop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

namespace {

// Armed on the main thread; a worker completes it when it sees it armed.
class Job : public CActive {
public:
    void arm()
    {
        std::lock_guard<std::mutex> g(mutex);
        CActiveScheduler::instance().set_active(*this);
        armed = true;
    }
    // Worker side: completes the job if it is armed and not completed yet.
    bool try_complete()
    {
        std::lock_guard<std::mutex> g(mutex);
        if (!armed)
            return false;
        armed = false;
        CActiveScheduler::instance().notify(*this);
        return true;
    }
    void run() override
    {
        ++runs;
        EXPECT_EQ(std::this_thread::get_id(), main_thread);
    }
    void do_cancel() override
    {
        std::lock_guard<std::mutex> g(mutex);
        if (armed) {
            armed = false;
            CActiveScheduler::instance().notify(*this);
        }
    }

    std::mutex mutex;
    bool armed = false;
    int runs = 0;
    std::thread::id main_thread = std::this_thread::get_id();
};

TEST(SchedulerThreading, WorkersCompleteWhileTheMainThreadCancelsAndRearms)
{
    CActiveScheduler scheduler;
    os::EventLoop loop(scheduler);
    constexpr int kJobs = 16;
    constexpr int kRounds = 3000;
    std::vector<Job> jobs(kJobs);
    std::atomic<bool> done{false};
    std::atomic<long> completed{0};

    std::vector<std::thread> workers;
    for (int w = 0; w < 2; ++w)
        workers.emplace_back([&, w] {
            while (!done.load())
                for (int i = w; i < kJobs; i += 2)
                    if (jobs[i].try_complete())
                        ++completed;
        });

    long cancels = 0;
    for (int round = 0; round < kRounds; ++round) {
        for (auto& j : jobs)
            if (!j.is_active())
                j.arm();
        // Each round waits for at least one completion, so the rounds really
        // race the workers however slow the machine is.
        long before = completed.load();
        for (int spin = 0; completed.load() == before && spin < 1'000'000; ++spin)
            std::this_thread::yield();
        scheduler.dispatch_posted();
        Job& victim = jobs[round % kJobs];
        if (victim.is_active()) {
            victim.cancel();
            ++cancels;
        }
    }
    done.store(true);
    for (auto& t : workers)
        t.join();
    for (auto& j : jobs)
        j.cancel();
    scheduler.dispatch_posted();

    long runs = 0;
    for (auto& j : jobs)
        runs += j.runs;
    EXPECT_FALSE(scheduler.has_posted());
    EXPECT_GE(runs, kRounds) << "what was posted before a pass runs in that pass";
    EXPECT_LE(runs, completed.load()) << "a cancelled completion never runs";
    EXPECT_GT(cancels, 0);
}

} // namespace

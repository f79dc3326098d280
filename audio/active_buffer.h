#pragma once

#include "audio/pipeline.h"
#include "audio/records.h"
#include "liba/thread.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>

// Decouples the recorder from everything slow: records pushed in are queued
// in RAM (sharing their bytes, nothing copied) and handed on, in order, by a
// thread of its own to the linked record chain. It refuses what comes once
// the queue holds more than kMaxPendingBytes or free memory is short, and
// stays refused until reset; what was queued is still handed on.
// Owned by Document for the whole run. Threads: on_data on the recorder's
// thread; the chain behind is pushed on the buffer's thread; the queries and
// reset on the main thread. Sizes in bytes.
namespace audio {

class ActiveBuffer : public Consumer<PCMData>, public Provider<PCMData>, public liba::Thread {
public:
    // Pending bytes at or above which the next record is refused.
    static constexpr std::int64_t kMaxPendingBytes = 10000001;
    // Free physical memory below which the next record is refused.
    static constexpr std::uint64_t kMinFreeMemory = 1000000;

    // Bytes of free physical memory; asked for each record.
    using FreeMemory = std::function<std::uint64_t()>;

    // Starts the thread. `free_memory` defaults to the system's answer.
    explicit ActiveBuffer(FreeMemory free_memory = {});
    // Stops the thread; what is still queued is dropped. The owner cuts the
    // output first.
    ~ActiveBuffer() override;

    // Queues the record, or drops it when refused.
    void on_data(const PCMData& record) override;
    // Nothing can be pulled: an empty record with a zeroed format.
    void get_data(PCMData& out, int n) override;

    bool is_good() const;
    std::int32_t pending_bytes() const;
    std::int32_t queued_records() const;
    // Accepts again and empties the queue.
    void reset();

protected:
    void run() override;

private:
    FreeMemory free_memory_;
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<PCMData> queue_;
    bool good_ = true;
    std::int64_t pending_ = 0;
    // Taken off the queue and not yet handed on: counted as queued, so a
    // drain that polls the count waits for the push under way.
    int in_hand_ = 0;
};

} // namespace audio

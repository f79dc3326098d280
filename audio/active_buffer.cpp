#include "audio/active_buffer.h"

#include "os/system.h"

namespace audio {

ActiveBuffer::ActiveBuffer(FreeMemory free_memory) : free_memory_(std::move(free_memory))
{
    if (!free_memory_)
        free_memory_ = [] { return os::memory_status().available_bytes; };
    start();
}

ActiveBuffer::~ActiveBuffer()
{
    {
        std::lock_guard<std::mutex> g(mutex_);
        request_stop();
    }
    wake_.notify_all();
    join();
    std::lock_guard<std::mutex> g(mutex_);
    queue_.clear();
    pending_ = 0;
}

void ActiveBuffer::on_data(const PCMData& record)
{
    // Asked outside the list lock: it reads a file.
    const std::uint64_t free = free_memory_();
    {
        std::lock_guard<std::mutex> g(mutex_);
        if (!good_)
            return;
        if (pending_ >= kMaxPendingBytes || free < kMinFreeMemory) {
            good_ = false;
            return;
        }
        queue_.push_back(record);
        pending_ += static_cast<std::int64_t>(record.bytes.size());
    }
    wake_.notify_one();
}

void ActiveBuffer::get_data(PCMData& out, int)
{
    out = PCMData();
}

bool ActiveBuffer::is_good() const
{
    std::lock_guard<std::mutex> g(mutex_);
    return good_;
}

std::int32_t ActiveBuffer::pending_bytes() const
{
    std::lock_guard<std::mutex> g(mutex_);
    return static_cast<std::int32_t>(pending_);
}

std::int32_t ActiveBuffer::queued_records() const
{
    std::lock_guard<std::mutex> g(mutex_);
    return static_cast<std::int32_t>(queue_.size()) + in_hand_;
}

void ActiveBuffer::reset()
{
    std::lock_guard<std::mutex> g(mutex_);
    good_ = true;
    queue_.clear();
    pending_ = 0;
}

void ActiveBuffer::run()
{
    for (;;) {
        PCMData record;
        {
            std::unique_lock<std::mutex> g(mutex_);
            wake_.wait(g, [this] { return should_stop() || !queue_.empty(); });
            if (should_stop())
                return;
            record = queue_.front();
            queue_.pop_front();
            pending_ -= static_cast<std::int64_t>(record.bytes.size());
            in_hand_ = 1;
        }
        // Outside the lock, so the recorder goes on queuing while the
        // encoder and the writer work.
        push_data(record);
        std::lock_guard<std::mutex> g(mutex_);
        in_hand_ = 0;
    }
}

} // namespace audio

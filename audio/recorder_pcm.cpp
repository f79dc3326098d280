#include "audio/recorder_pcm.h"

#include "audio/sound_in.h"
#include "liba/critical_section.h"
#include "liba/thread.h"

#include <SDL.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <vector>

namespace audio {

namespace {

// The message that ends the recorder's thread.
constexpr int kQuit = 18;

} // namespace

std::int32_t recorder_block_align(std::int32_t channels, std::int32_t bits)
{
    return ((bits + 7) * channels) / 8;
}

// The recorder's thread: takes the device's reports in order from its own
// message queue, copies each full buffer into a record, pushes it and gives
// the buffer back. `lock` guards everything below it and every device call.
class RecorderPCMImpl : public liba::Thread, private SoundIn::Listener {
public:
    RecorderPCMImpl(RecorderPCM& owner, std::uint32_t channels, std::uint32_t rate, std::uint32_t bits);
    ~RecorderPCMImpl() override;

    bool start();
    bool stop();
    bool is_stopped();
    bool is_good();
    RecorderPCM::Counts counts();

    const std::uint32_t channels;
    const std::uint32_t rate;
    const std::uint32_t bits;
    std::int32_t buffer_size = 0;

protected:
    void run() override;

private:
    struct Message {
        int number;
        int buffer;
        std::size_t recorded;
    };

    void on_device_message(int message, int buffer, std::size_t recorded) override { post({message, buffer, recorded}); }
    void post(const Message& m);
    Message get_message();
    // A full (or, at a stop, partly filled) buffer has come back.
    void on_data(int buffer, std::size_t recorded);

    RecorderPCM& owner;
    liba::CriticalSection lock;
    SoundIn device{*this};
    std::array<std::vector<std::uint8_t>, RecorderPCM::kBufferCount> headers;
    bool good = true;
    bool stopped = false;
    bool closing = false;
    std::atomic<std::uint64_t> pushed{0};

    std::mutex queue_mutex;
    std::condition_variable queue_cv;
    std::deque<Message> queue;
    bool sdl_audio = false;
};

RecorderPCMImpl::RecorderPCMImpl(RecorderPCM& o, std::uint32_t channels_, std::uint32_t rate_, std::uint32_t bits_)
    : channels(channels_), rate(rate_), bits(bits_), owner(o)
{
    sdl_audio = SDL_InitSubSystem(SDL_INIT_AUDIO) == 0;
    // The thread runs before the device opens, since the device reports to it.
    liba::Thread::start();
    const std::int32_t align = recorder_block_align(static_cast<std::int32_t>(channels), static_cast<std::int32_t>(bits));
    buffer_size = align * RecorderPCM::kBlocksPerBuffer;
    liba::Lock held(lock);
    if (buffer_size <= 0 || !device.open(static_cast<int>(channels), static_cast<int>(bits), static_cast<int>(rate)))
        return;
    for (std::size_t i = 0; i < headers.size(); ++i) {
        headers[i].assign(static_cast<std::size_t>(buffer_size), 0);
        device.add_buffer(static_cast<int>(i), headers[i].data(), headers[i].size());
    }
}

RecorderPCMImpl::~RecorderPCMImpl()
{
    {
        liba::Lock held(lock);
        closing = true;
        if (device.is_open()) {
            device.reset();
            device.close();
        }
    }
    post({kQuit, -1, 0});
    join();
    if (sdl_audio)
        SDL_QuitSubSystem(SDL_INIT_AUDIO);
}

void RecorderPCMImpl::post(const Message& m)
{
    {
        std::lock_guard<std::mutex> g(queue_mutex);
        queue.push_back(m);
    }
    queue_cv.notify_one();
}

RecorderPCMImpl::Message RecorderPCMImpl::get_message()
{
    std::unique_lock<std::mutex> g(queue_mutex);
    queue_cv.wait(g, [this] { return !queue.empty(); });
    Message m = queue.front();
    queue.pop_front();
    return m;
}

void RecorderPCMImpl::run()
{
    set_priority(1);
    while (!should_stop()) {
        Message m = get_message();
        if (m.number == kQuit)
            break;
        switch (m.number) {
        case SoundIn::kOpen: {
            liba::Lock held(lock);
            break;
        }
        case SoundIn::kClose: {
            liba::Lock held(lock);
            stopped = true;
            break;
        }
        case SoundIn::kData: on_data(m.buffer, m.recorded); break;
        default: break;
        }
    }
}

void RecorderPCMImpl::on_data(int buffer, std::size_t recorded)
{
    liba::Lock held(lock);
    if (buffer < 0 || buffer >= RecorderPCM::kBufferCount)
        return;
    std::vector<std::uint8_t>& header = headers[static_cast<std::size_t>(buffer)];
    PCMData record;
    record.bytes = liba::ByteBlock(header.data(), recorded);
    record.channels = static_cast<std::int32_t>(channels);
    record.bits = static_cast<std::int32_t>(bits);
    record.rate = static_cast<std::int32_t>(rate);
    owner.push_data(record);
    pushed += recorded;
    // The overrun rule: with every buffer back from the device, it has
    // nowhere left to put sound, and this one does not go back either.
    if (device.queued() == 0) {
        good = false;
        return;
    }
    good = true;
    if (!closing)
        device.add_buffer(buffer, header.data(), header.size());
}

bool RecorderPCMImpl::start()
{
    liba::Lock held(lock);
    if (!device.is_open())
        return false;
    bool ok = device.start();
    if (!ok)
        stopped = true;
    return ok;
}

bool RecorderPCMImpl::stop()
{
    liba::Lock held(lock);
    if (stopped)
        return true;
    stopped = device.stop();
    return stopped;
}

bool RecorderPCMImpl::is_stopped()
{
    liba::Lock held(lock);
    return stopped;
}

bool RecorderPCMImpl::is_good()
{
    liba::Lock held(lock);
    return device.is_open() && good;
}

RecorderPCM::Counts RecorderPCMImpl::counts()
{
    // Without the lock: a push that waits downstream must not hold this up.
    return {device.bytes_heard(), device.bytes_lost(), pushed.load()};
}

RecorderPCM::RecorderPCM(std::uint32_t channels, std::uint32_t samples_per_sec, std::uint32_t bits)
    : impl(std::make_unique<RecorderPCMImpl>(*this, channels, samples_per_sec, bits))
{
}

RecorderPCM::~RecorderPCM() { impl.reset(); }

bool RecorderPCM::start() { return impl->start(); }
bool RecorderPCM::stop() { return impl->stop(); }
bool RecorderPCM::is_stopped() { return impl->is_stopped(); }
bool RecorderPCM::is_good() { return impl->is_good(); }
std::int32_t RecorderPCM::get_channels() { return static_cast<std::int32_t>(impl->channels); }
std::int32_t RecorderPCM::get_bits() { return static_cast<std::int32_t>(impl->bits); }
std::int32_t RecorderPCM::get_samples_per_sec() { return static_cast<std::int32_t>(impl->rate); }

std::int32_t RecorderPCM::get_bit_rate()
{
    const std::int32_t bits = get_bits(), rate = get_samples_per_sec(), channels = get_channels();
    return ((bits + 7) * rate * channels) / 8 * 8;
}

std::int32_t RecorderPCM::buffer_size() const { return impl->buffer_size; }
RecorderPCM::Counts RecorderPCM::counts() const { return impl->counts(); }

} // namespace audio

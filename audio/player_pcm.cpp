#include "audio/player_pcm.h"

#include "audio/sound_out.h"
#include "liba/event.h"
#include "liba/thread.h"

#include <SDL.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <vector>

namespace audio {

namespace {

// The request to look at the flags, posted by the main thread and by the
// player to itself once a device has closed.
constexpr int kWake = 1024;
constexpr int kBufferCount = 6;
constexpr int kBufferMs = 200;
// Frames asked of the path per pull: more than a buffer at 44100 Hz, so that
// one pull serves the next buffers without another copy.
constexpr int kPullFrames = 16384;

} // namespace

// The player's thread: owns the device and the six buffers and reacts to the
// wake request and to the device's reports, which reach it in order through
// its own message queue. All state below `owner.lock` belongs to that lock;
// the request flags are written by the main thread without it.
class PlayerPCMImpl : public liba::Thread, private SoundOut::Listener {
public:
    explicit PlayerPCMImpl(PlayerPCM& owner);
    ~PlayerPCMImpl() override;

    // Queues a message for the thread; any thread.
    bool post(int message, int buffer = -1);
    // Waits until the thread takes messages.
    void wait_ready() { ready.wait(); }

    void set_volume(double v);
    double get_volume();
    PlayerPCM::Status status();
    std::uint64_t device_callbacks() const { return device.callbacks(); }
    double queued_seconds();

    std::atomic<bool> start_requested{false};
    std::atomic<bool> pause_requested{false};
    std::atomic<bool> finished{true};

protected:
    void run() override;

private:
    struct Buffer {
        std::vector<std::uint8_t> data;
        std::size_t length = 0;
        bool in_device = false;
    };
    struct Message {
        int number;
        int buffer;
    };

    void on_device_message(int message, int buffer) override { post(message, buffer); }
    Message get_message();

    void on_wake();
    void on_open();
    void on_done(int buffer);
    void on_close();
    // Refills what came back, and closes a draining device once all is back.
    void continue_stream();
    // True when the stream ended for the device (its end, or a new format).
    bool fill_buffers();
    void open_device();
    void measure_peaks(const Buffer& b);
    bool all_free() const;
    bool same_format(const PCMData& r) const;
    // Publishes what is pulled and not yet in a buffer, for queued_seconds.
    void note_pending();
    void apply_volume();

    PlayerPCM& owner;
    bool sdl_audio = false;

    SoundOut device{*this};
    // The device has reported itself open: the handle of the wave-out model.
    bool device_open = false;
    std::array<Buffer, kBufferCount> buffers;
    double volume = 1.0;
    double peak[2] = {0.0, 0.0};
    int device_channels = 0;
    int device_bits = 0;
    int device_rate = 0;
    int buffer_size = 0;
    std::int64_t frames_fed = 0;
    int opens = 0;
    // Pulled and not yet copied into a buffer; the player's thread only.
    PCMData pending;
    // What queued_seconds reads without the lock: the frames of `pending`
    // in the device's format, the device's frame size and rate (0: closed).
    std::atomic<std::int64_t> pending_frames{0};
    std::atomic<int> open_frame_bytes{0};
    std::atomic<int> open_rate{0};
    liba::Event ready;
    int state = PlayerPCM::kIdle;
    bool paused = false;

    std::mutex queue_mutex;
    std::condition_variable queue_cv;
    std::deque<Message> queue;
};

PlayerPCMImpl::PlayerPCMImpl(PlayerPCM& o) : owner(o)
{
    sdl_audio = SDL_InitSubSystem(SDL_INIT_AUDIO) == 0;
    start();
}

PlayerPCMImpl::~PlayerPCMImpl()
{
    request_stop();
    post(kWake);
    join();
    if (sdl_audio)
        SDL_QuitSubSystem(SDL_INIT_AUDIO);
}

bool PlayerPCMImpl::post(int message, int buffer)
{
    {
        std::lock_guard<std::mutex> g(queue_mutex);
        queue.push_back(Message{message, buffer});
    }
    queue_cv.notify_one();
    return true;
}

PlayerPCMImpl::Message PlayerPCMImpl::get_message()
{
    std::unique_lock<std::mutex> g(queue_mutex);
    queue_cv.wait(g, [this] { return !queue.empty(); });
    Message m = queue.front();
    queue.pop_front();
    return m;
}

void PlayerPCMImpl::run()
{
    set_priority(1);
    ready.set();
    while (!should_stop()) {
        Message m = get_message();
        if (should_stop())
            break;
        switch (m.number) {
        case SoundOut::kOpen: on_open(); break;
        case SoundOut::kClose: on_close(); break;
        case SoundOut::kDone: on_done(m.buffer); break;
        case kWake: on_wake(); break;
        default: break;
        }
    }
    liba::Lock held(owner.lock);
    if (device.is_open()) {
        device.reset();
        device.close();
    }
}

void PlayerPCMImpl::on_wake()
{
    if (start_requested.load() && state == PlayerPCM::kIdle) {
        // Pulled under the lock, as a fill is: the main thread cuts a path
        // under this lock and then deletes it, so a pull without it could
        // still be inside a path that is gone.
        liba::Lock held(owner.lock);
        if (pending.empty()) {
            owner.pull_data(pending, kPullFrames);
            frames_fed += static_cast<std::int64_t>(pending.sample_count());
        }
        note_pending();
        if (pending.empty()) {
            if (all_free())
                finished.store(true);
        } else {
            device_channels = pending.channels;
            device_bits = pending.bits;
            device_rate = pending.rate;
            state = PlayerPCM::kPlaying;
            open_device();
        }
    } else if (!start_requested.load() && state == PlayerPCM::kPlaying) {
        liba::Lock held(owner.lock);
        state = PlayerPCM::kDraining;
        device.reset();
        pending = PCMData();
        note_pending();
        if (!device.is_open()) {
            // The device never opened: there is nothing to drain or close.
            state = PlayerPCM::kIdle;
            device_channels = device_bits = device_rate = 0;
        } else if (device_open && all_free()) {
            device.close();
        }
    }
    liba::Lock held(owner.lock);
    if (pause_requested.load() && !paused) {
        device.pause();
        paused = true;
    } else if (!pause_requested.load() && paused) {
        device.restart();
        paused = false;
    }
}

void PlayerPCMImpl::open_device()
{
    if (device.is_open())
        return;
    const int align = device_bits * device_channels / 8;
    const int size = (device_rate * kBufferMs / 1000) * align;
    if (size != buffer_size) {
        buffer_size = size;
        for (Buffer& b : buffers)
            b.data.assign(static_cast<std::size_t>(std::max(size, 0)), 0);
    }
    for (Buffer& b : buffers) {
        b.in_device = false;
        b.length = 0;
    }
    frames_fed = 0;
    open_frame_bytes.store(align);
    open_rate.store(device_rate);
    note_pending();
    // A failure is not looked at: no open report comes, and the player stays
    // in its playing state, silent, until it is stopped.
    if (sdl_audio && size > 0 && device.open(device_channels, device_bits, device_rate, paused))
        ++opens;
}

void PlayerPCMImpl::on_open()
{
    liba::Lock held(owner.lock);
    device_open = true;
    apply_volume();
    continue_stream();
}

void PlayerPCMImpl::on_done(int index)
{
    liba::Lock held(owner.lock);
    if (index < 0 || index >= kBufferCount)
        return;
    Buffer& b = buffers[static_cast<std::size_t>(index)];
    b.in_device = false;
    measure_peaks(b);
    continue_stream();
}

void PlayerPCMImpl::on_close()
{
    liba::Lock held(owner.lock);
    for (Buffer& b : buffers)
        b.in_device = false;
    state = PlayerPCM::kIdle;
    frames_fed = 0;
    peak[0] = peak[1] = 0.0;
    device_channels = device_bits = device_rate = 0;
    open_rate.store(0);
    device_open = false;
    finished.store(true);
    // With sound still wanted, the wake either finds audio of a new format
    // waiting and opens the device again, or pulls once more and finds the end.
    post(kWake);
}

void PlayerPCMImpl::continue_stream()
{
    if (state == PlayerPCM::kPlaying && fill_buffers())
        state = PlayerPCM::kDraining;
    if (state == PlayerPCM::kDraining && device_open && all_free())
        device.close();
}

bool PlayerPCMImpl::fill_buffers()
{
    const std::size_t size = static_cast<std::size_t>(buffer_size);
    for (Buffer& b : buffers) {
        if (b.in_device)
            continue;
        b.length = 0;
        std::size_t left = size;
        for (;;) {
            std::size_t n = std::min(pending.bytes.size(), left);
            if (n > 0) {
                std::memcpy(b.data.data() + b.length, pending.bytes.data(), n);
                b.length += n;
                left -= n;
                pending.bytes = liba::ByteBlock(pending.bytes, n, SIZE_MAX);
            }
            if (left == 0)
                break;
            // The lock stays held through the pull: the provider can't be
            // relinked while a buffer is half made.
            owner.pull_data(pending, kPullFrames);
            frames_fed += static_cast<std::int64_t>(pending.sample_count());
            if (pending.empty() || !same_format(pending))
                break;
        }
        b.in_device = true;
        device.write(static_cast<int>(&b - buffers.data()), b.data.data(), b.length);
        note_pending();
        if (left > 0)
            return true;
    }
    return false;
}

bool PlayerPCMImpl::same_format(const PCMData& r) const
{
    return r.rate == device_rate && r.channels == device_channels && r.bits == device_bits;
}

void PlayerPCMImpl::note_pending()
{
    pending_frames.store(same_format(pending) ? static_cast<std::int64_t>(pending.sample_count()) : 0);
}

double PlayerPCMImpl::queued_seconds()
{
    const int rate = open_rate.load();
    const int frame_bytes = open_frame_bytes.load();
    if (rate <= 0 || frame_bytes <= 0)
        return 0.0;
    const auto frames = pending_frames.load() + static_cast<std::int64_t>(device.queued_bytes()) / frame_bytes;
    return static_cast<double>(frames) / rate;
}

bool PlayerPCMImpl::all_free() const
{
    return std::none_of(buffers.begin(), buffers.end(), [](const Buffer& b) { return b.in_device; });
}

void PlayerPCMImpl::measure_peaks(const Buffer& b)
{
    peak[0] = peak[1] = 0.0;
    if (b.length == 0 || device_channels <= 0 || (device_bits != 8 && device_bits != 16))
        return;
    const std::size_t width = static_cast<std::size_t>(device_bits / 8);
    const std::size_t frame = width * static_cast<std::size_t>(device_channels);
    const int measured = std::min(device_channels, 2);
    int top[2] = {0, 0};
    for (std::size_t at = 0; at + frame <= b.length; at += frame) {
        for (int c = 0; c < measured; ++c) {
            const std::uint8_t* p = b.data.data() + at + static_cast<std::size_t>(c) * width;
            int v = width == 2 ? static_cast<std::int16_t>(p[0] | (p[1] << 8)) : p[0] - 128;
            top[c] = std::max(top[c], std::abs(v));
        }
    }
    const double unit = width == 2 ? 1.0 / 32768.0 : 1.0 / 128.0;
    peak[0] = top[0] * unit;
    peak[1] = measured == 2 ? top[1] * unit : peak[0];
}

void PlayerPCMImpl::apply_volume()
{
    const auto n = static_cast<std::uint32_t>(volume * 65535.0);
    device.set_level(n);
}

void PlayerPCMImpl::set_volume(double v)
{
    liba::Lock held(owner.lock);
    volume = std::clamp(v, 0.0, 1.0);
    if (device_open)
        apply_volume();
}

double PlayerPCMImpl::get_volume()
{
    liba::Lock held(owner.lock);
    return volume;
}

PlayerPCM::Status PlayerPCMImpl::status()
{
    liba::Lock held(owner.lock);
    PlayerPCM::Status s;
    s.state = state;
    s.device_open = device_open;
    s.paused = paused;
    s.finished = finished.load();
    s.channels = device_channels;
    s.bits = device_bits;
    s.rate = device_rate;
    s.buffer_size = buffer_size;
    s.buffers_in_device = static_cast<int>(
        std::count_if(buffers.begin(), buffers.end(), [](const Buffer& b) { return b.in_device; }));
    s.opens = opens;
    s.peak[0] = peak[0];
    s.peak[1] = peak[1];
    return s;
}

PlayerPCM::PlayerPCM() : PullOnlyConsumer<PCMData>(kPlayerOnData), impl(std::make_unique<PlayerPCMImpl>(*this)) {}

PlayerPCM::~PlayerPCM()
{
    impl.reset();
}

bool PlayerPCM::play()
{
    impl->wait_ready();
    impl->start_requested.store(true);
    impl->pause_requested.store(false);
    impl->finished.store(false);
    return impl->post(kWake);
}

bool PlayerPCM::stop()
{
    impl->wait_ready();
    impl->start_requested.store(false);
    impl->pause_requested.store(false);
    impl->finished.store(true);
    return impl->post(kWake);
}

bool PlayerPCM::pause()
{
    impl->wait_ready();
    impl->pause_requested.store(true);
    return impl->post(kWake);
}

bool PlayerPCM::is_paused() const
{
    return impl->pause_requested.load();
}

void PlayerPCM::set_volume(double volume)
{
    impl->set_volume(volume);
}

double PlayerPCM::get_volume() const
{
    return impl->get_volume();
}

PlayerPCM::Status PlayerPCM::status() const
{
    return impl->status();
}

std::uint64_t PlayerPCM::device_callbacks() const
{
    return impl->device_callbacks();
}

double PlayerPCM::queued_seconds() const
{
    return impl->queued_seconds();
}

} // namespace audio

#pragma once

#include "audio/sdl_audio_device.h"
#include "liba/nocopy.h"

#include <SDL.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>

// The sound output device of the player: an SDL2 audio device that plays
// buffers handed to it in order and reports each one back when it is used up,
// like a wave-out device with thread callbacks.
// Threads: open, write, reset, pause, restart and close belong to the player's
// thread; set_level and callbacks may come from any thread. SDL's callback
// thread copies from the buffer at the head under this object's own short
// lock (never its owner's) and reports through the Listener from there.
// The bytes of a written buffer belong to the caller and must stay until the
// buffer is reported done. Sizes are in bytes, the level in 1/65535.
namespace audio {

class SoundOut : liba::Nocopy {
public:
    // The reports of the device, numbered as the wave-out messages they
    // stand for.
    static constexpr int kOpen = 955;
    static constexpr int kClose = 956;
    static constexpr int kDone = 957;
    static constexpr int kMaxBuffers = 8;

    // Receives the reports; called from the player's thread (open, close,
    // reset) and from SDL's callback thread (done). It must only queue them.
    class Listener {
    public:
        virtual ~Listener() = default;
        // `buffer` is the index given to write for kDone, -1 otherwise.
        virtual void on_device_message(int message, int buffer) = 0;
    };

    explicit SoundOut(Listener& listener) : listener_(listener) {}
    // Closes a device that is still open; no report is made then.
    ~SoundOut();

    // Opens a device in this format (8, 16 or 32-bit linear samples), paused
    // or running, and reports kOpen. False, with no report, when there is no
    // device, the format is refused or a device is open already.
    bool open(int channels, int bits, int rate, bool paused);
    bool is_open() const { return device_ != 0; }
    // Queues `length` bytes behind the buffers already queued. False when the
    // device is closed or the queue is full.
    bool write(int buffer, const std::uint8_t* bytes, std::size_t length);
    // Reports every queued buffer as done, in order, and empties the queue.
    bool reset();
    bool pause();
    bool restart();
    // Closes the device and reports kClose. Buffers still queued are dropped
    // without a report.
    bool close();

    // 65535 plays samples as they are, 0 mutes; applied in the callback.
    void set_level(std::uint32_t level) { level_.store(level, std::memory_order_relaxed); }
    // Scales `len` bytes of `bits`-bit samples to `level` as the device
    // does; also for sinks that stand in for the device.
    static void scale(std::uint8_t* out, std::size_t len, int bits, std::uint32_t level);
    static constexpr std::uint32_t kFullLevel = 65535;
    // Bytes written and not yet copied out by SDL's callback; any thread.
    std::size_t queued_bytes();
    // Callbacks that SDL has made on devices of this object so far.
    std::uint64_t callbacks() const { return callbacks_.load(std::memory_order_relaxed); }

private:
    static void SDLCALL callback(void* self, Uint8* stream, int len);
    void fill(std::uint8_t* out, std::size_t len);

    Listener& listener_;
    // Written only by the player's thread, while SDL's thread for the device
    // does not run (before open returns, after close has joined it).
    SDL_AudioDeviceID device_ = 0;
    int bits_ = 0;
    std::uint8_t silence_ = 0;

    // The callback's short lock: the queue of buffers and the read position
    // in the one at its head. Reports of done buffers are made under it, so
    // that they arrive in order.
    std::mutex mutex_;
    BufferRing<const std::uint8_t, kMaxBuffers> ring_;

    std::atomic<std::uint32_t> level_{65535};
    std::atomic<std::uint64_t> callbacks_{0};
};

} // namespace audio

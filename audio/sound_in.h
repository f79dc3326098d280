#pragma once

#include "audio/sdl_audio_device.h"
#include "liba/nocopy.h"

#include <SDL.h>

#include <cstddef>
#include <cstdint>
#include <mutex>

// The capture device of the recorder: an SDL2 capture device that fills the
// buffers handed to it, in order, and reports each one back when it is full,
// like a wave-in device with thread callbacks.
// Threads: open, add_buffer, start, stop, reset and close belong to the
// recorder's thread (or its owner while that thread waits); SDL's callback
// thread copies into the buffer at the head under this object's own short
// lock (never its owner's) and reports through the Listener from there.
// The bytes of an added buffer belong to the caller and must stay until the
// buffer is reported done. Sizes are in bytes.
namespace audio {

class SoundIn : liba::Nocopy {
public:
    // The reports of the device, numbered as the wave-in messages they
    // stand for.
    static constexpr int kOpen = 958;
    static constexpr int kClose = 959;
    static constexpr int kData = 960;
    static constexpr int kMaxBuffers = 32;

    // Receives the reports; called from the owner's thread (open, close,
    // stop, reset) and from SDL's callback thread (data). It must only queue
    // them.
    class Listener {
    public:
        virtual ~Listener() = default;
        // `buffer` is the index given to add_buffer and `recorded` the bytes
        // filled for kData; -1 and 0 otherwise.
        virtual void on_device_message(int message, int buffer, std::size_t recorded) = 0;
    };

    explicit SoundIn(Listener& listener) : listener_(listener) {}
    // Closes a device that is still open; no report is made then.
    ~SoundIn();

    // Opens the default capture device in this format (8 or 16-bit linear
    // samples), stopped, and reports kOpen. False, with no report, when
    // there is no device, the format is refused or a device is open already.
    bool open(int channels, int bits, int rate);
    bool is_open() const { return device_ != 0; }
    // Queues a buffer of `length` bytes behind those already queued. False
    // when the device is closed or the queue is full.
    bool add_buffer(int buffer, std::uint8_t* bytes, std::size_t length);
    // Starts taking sound into the queued buffers.
    bool start();
    // Stops taking sound; a buffer partly filled is reported done with what
    // it holds, the empty ones stay queued.
    bool stop();
    // Stops, and reports every queued buffer done, in order.
    bool reset();
    // Closes the device and reports kClose. Buffers still queued are dropped
    // without a report.
    bool close();
    // Buffers queued and not yet reported done. 0 means the device has
    // nowhere to put what it hears: every buffer has come back.
    int queued() const;

    // Bytes the device delivered, and those of them that found no buffer.
    std::uint64_t bytes_heard() const;
    std::uint64_t bytes_lost() const;

private:
    static void SDLCALL callback(void* self, Uint8* stream, int len);
    void take(const std::uint8_t* in, std::size_t len);
    // Reports the buffer at the head done with `recorded` bytes; under mutex_.
    void pop_head(std::size_t recorded);

    Listener& listener_;
    // Written only by the owner's thread, while SDL's thread for the device
    // does not run (before open returns, after close has joined it).
    SDL_AudioDeviceID device_ = 0;

    // The callback's short lock: the queue of buffers and the write position
    // in the one at its head. Reports of full buffers are made under it, so
    // that they arrive in order.
    mutable std::mutex mutex_;
    BufferRing<std::uint8_t, kMaxBuffers> ring_;
    std::uint64_t heard_ = 0;
    std::uint64_t lost_ = 0;
};

} // namespace audio

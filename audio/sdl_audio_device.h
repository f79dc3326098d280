#pragma once

#include <SDL.h>

#include <array>
#include <cstddef>

// What the SDL capture and playback devices share: the SDL_AudioSpec they
// open with, and the ring of caller-owned buffers lent to them.
// Threads: sdl_audio_spec on the device owner's thread; a BufferRing only
// under its device's lock (owner's thread and SDL's callback thread). Sizes
// are in bytes.
namespace audio {

// Fills `want` for `channels` of `bits`-bit linear samples (8, 16, and 32
// when `max_bits` allows it) at `rate` Hz, with `callback` getting `self`.
// False when the format is refused or SDL's audio is not started.
bool sdl_audio_spec(int channels, int bits, int rate, int max_bits, SDL_AudioCallback callback, void* self,
                    SDL_AudioSpec& want);

// Up to N buffers in the order they were lent, and how far the device has got
// into the one at the head. `Byte` is const for buffers the device reads.
template <class Byte, int N>
class BufferRing {
public:
    // False when N buffers are lent already.
    bool push(int buffer, Byte* bytes, std::size_t length)
    {
        if (count_ == N)
            return false;
        ring_[static_cast<std::size_t>((head_ + count_) % N)] = Entry{buffer, bytes, length};
        ++count_;
        return true;
    }
    int count() const { return count_; }
    // The head buffer's bytes from where the device got to, and how many.
    Byte* head_bytes() const { return head().bytes + offset_; }
    std::size_t head_left() const { return head().length - offset_; }
    std::size_t head_offset() const { return offset_; }
    // Bytes lent and not yet taken by the device.
    std::size_t bytes_left() const
    {
        std::size_t sum = 0;
        for (int i = 0; i < count_; ++i)
            sum += ring_[static_cast<std::size_t>((head_ + i) % N)].length;
        return sum - (count_ > 0 ? offset_ : 0);
    }
    // Moves `n` bytes on in the head buffer; true once it is used up.
    bool advance(std::size_t n)
    {
        offset_ += n;
        return offset_ == head().length;
    }
    // Takes the head buffer off the ring; its index as lent.
    int pop()
    {
        const int buffer = head().buffer;
        head_ = (head_ + 1) % N;
        --count_;
        offset_ = 0;
        return buffer;
    }
    void clear()
    {
        head_ = 0;
        count_ = 0;
        offset_ = 0;
    }

private:
    struct Entry {
        int buffer = -1;
        Byte* bytes = nullptr;
        std::size_t length = 0;
    };
    const Entry& head() const { return ring_[static_cast<std::size_t>(head_)]; }

    std::array<Entry, N> ring_{};
    int head_ = 0;
    int count_ = 0;
    std::size_t offset_ = 0;
};

} // namespace audio

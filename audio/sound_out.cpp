#include "audio/sound_out.h"

#include <algorithm>
#include <cstring>

namespace audio {

SoundOut::~SoundOut()
{
    if (device_ != 0)
        SDL_CloseAudioDevice(device_);
}

bool SoundOut::open(int channels, int bits, int rate, bool paused)
{
    SDL_AudioSpec want;
    if (device_ != 0 || !sdl_audio_spec(channels, bits, rate, 32, &SoundOut::callback, this, want))
        return false;
    {
        std::lock_guard<std::mutex> g(mutex_);
        ring_.clear();
    }
    bits_ = bits;
    silence_ = bits == 8 ? 0x80 : 0;
    // No changes allowed: SDL converts to what the hardware takes, so the
    // callback always sees the stream's own format.
    SDL_AudioDeviceID id = SDL_OpenAudioDevice(nullptr, 0, &want, nullptr, 0);
    if (id == 0)
        return false;
    device_ = id;
    SDL_PauseAudioDevice(device_, paused ? 1 : 0);
    listener_.on_device_message(kOpen, -1);
    return true;
}

bool SoundOut::write(int buffer, const std::uint8_t* bytes, std::size_t length)
{
    if (device_ == 0)
        return false;
    std::lock_guard<std::mutex> g(mutex_);
    return ring_.push(buffer, bytes, length);
}

bool SoundOut::reset()
{
    if (device_ == 0)
        return false;
    std::lock_guard<std::mutex> g(mutex_);
    while (ring_.count() > 0)
        listener_.on_device_message(kDone, ring_.pop());
    return true;
}

bool SoundOut::pause()
{
    if (device_ == 0)
        return false;
    SDL_PauseAudioDevice(device_, 1);
    return true;
}

bool SoundOut::restart()
{
    if (device_ == 0)
        return false;
    SDL_PauseAudioDevice(device_, 0);
    return true;
}

bool SoundOut::close()
{
    if (device_ == 0)
        return false;
    // Joins SDL's thread; its callback may be waiting for mutex_, so that is
    // not held here.
    SDL_CloseAudioDevice(device_);
    device_ = 0;
    {
        std::lock_guard<std::mutex> g(mutex_);
        ring_.clear();
    }
    listener_.on_device_message(kClose, -1);
    return true;
}

std::size_t SoundOut::queued_bytes()
{
    std::lock_guard<std::mutex> g(mutex_);
    return ring_.bytes_left();
}

void SDLCALL SoundOut::callback(void* self, Uint8* stream, int len)
{
    static_cast<SoundOut*>(self)->fill(stream, len > 0 ? static_cast<std::size_t>(len) : 0);
}

void SoundOut::fill(std::uint8_t* out, std::size_t len)
{
    callbacks_.fetch_add(1, std::memory_order_relaxed);
    std::size_t done = 0;
    {
        std::lock_guard<std::mutex> g(mutex_);
        while (ring_.count() > 0) {
            const std::size_t n = std::min(ring_.head_left(), len - done);
            std::memcpy(out + done, ring_.head_bytes(), n);
            done += n;
            if (!ring_.advance(n))
                break; // the callback's block is full
            listener_.on_device_message(kDone, ring_.pop());
            if (done == len)
                break;
        }
    }
    // Starved: the device plays silence until the next buffer comes.
    std::memset(out + done, silence_, len - done);
    std::uint32_t level = level_.load(std::memory_order_relaxed);
    if (level < kFullLevel)
        scale(out, done, bits_, level);
}

void SoundOut::scale(std::uint8_t* out, std::size_t len, int bits, std::uint32_t level)
{
    const std::int64_t l = level;
    if (bits == 8) {
        for (std::size_t i = 0; i < len; ++i)
            out[i] = static_cast<std::uint8_t>(128 + (static_cast<std::int64_t>(out[i]) - 128) * l / kFullLevel);
    } else if (bits == 16) {
        for (std::size_t i = 0; i + 2 <= len; i += 2) {
            std::int16_t s;
            std::memcpy(&s, out + i, 2);
            s = static_cast<std::int16_t>(s * l / kFullLevel);
            std::memcpy(out + i, &s, 2);
        }
    } else if (bits == 32) {
        for (std::size_t i = 0; i + 4 <= len; i += 4) {
            std::int32_t s;
            std::memcpy(&s, out + i, 4);
            s = static_cast<std::int32_t>(s * l / kFullLevel);
            std::memcpy(out + i, &s, 4);
        }
    }
}

} // namespace audio

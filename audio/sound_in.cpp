#include "audio/sound_in.h"

#include <algorithm>
#include <cstring>

namespace audio {

SoundIn::~SoundIn()
{
    if (device_ != 0)
        SDL_CloseAudioDevice(device_);
}

bool SoundIn::open(int channels, int bits, int rate)
{
    SDL_AudioSpec want;
    if (device_ != 0 || !sdl_audio_spec(channels, bits, rate, 16, &SoundIn::callback, this, want))
        return false;
    {
        std::lock_guard<std::mutex> g(mutex_);
        ring_.clear();
    }
    // No changes allowed: SDL converts from what the hardware gives, so the
    // callback always sees the recording's own format. A device opens paused.
    SDL_AudioDeviceID id = SDL_OpenAudioDevice(nullptr, 1, &want, nullptr, 0);
    if (id == 0)
        return false;
    device_ = id;
    listener_.on_device_message(kOpen, -1, 0);
    return true;
}

bool SoundIn::add_buffer(int buffer, std::uint8_t* bytes, std::size_t length)
{
    if (device_ == 0 || length == 0)
        return false;
    std::lock_guard<std::mutex> g(mutex_);
    return ring_.push(buffer, bytes, length);
}

bool SoundIn::start()
{
    if (device_ == 0)
        return false;
    SDL_PauseAudioDevice(device_, 0);
    return true;
}

bool SoundIn::stop()
{
    if (device_ == 0)
        return false;
    // Pausing waits for a callback under way, which may wait for mutex_: so
    // that is taken only afterwards.
    SDL_PauseAudioDevice(device_, 1);
    std::lock_guard<std::mutex> g(mutex_);
    if (ring_.count() > 0 && ring_.head_offset() > 0)
        pop_head(ring_.head_offset());
    return true;
}

bool SoundIn::reset()
{
    if (device_ == 0)
        return false;
    SDL_PauseAudioDevice(device_, 1);
    std::lock_guard<std::mutex> g(mutex_);
    while (ring_.count() > 0)
        pop_head(ring_.head_offset());
    return true;
}

bool SoundIn::close()
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
    listener_.on_device_message(kClose, -1, 0);
    return true;
}

int SoundIn::queued() const
{
    std::lock_guard<std::mutex> g(mutex_);
    return ring_.count();
}

std::uint64_t SoundIn::bytes_heard() const
{
    std::lock_guard<std::mutex> g(mutex_);
    return heard_;
}

std::uint64_t SoundIn::bytes_lost() const
{
    std::lock_guard<std::mutex> g(mutex_);
    return lost_;
}

void SoundIn::pop_head(std::size_t recorded)
{
    listener_.on_device_message(kData, ring_.pop(), recorded);
}

void SDLCALL SoundIn::callback(void* self, Uint8* stream, int len)
{
    static_cast<SoundIn*>(self)->take(stream, len > 0 ? static_cast<std::size_t>(len) : 0);
}

void SoundIn::take(const std::uint8_t* in, std::size_t len)
{
    std::lock_guard<std::mutex> g(mutex_);
    heard_ += len;
    std::size_t done = 0;
    while (ring_.count() > 0 && done < len) {
        const std::size_t n = std::min(ring_.head_left(), len - done);
        std::memcpy(ring_.head_bytes(), in + done, n);
        done += n;
        if (ring_.advance(n))
            pop_head(ring_.head_offset());
    }
    // Overrun: no buffer is left to take the rest.
    lost_ += len - done;
}

} // namespace audio

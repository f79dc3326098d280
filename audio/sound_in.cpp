#include "audio/sound_in.h"

#include <algorithm>
#include <cstring>

namespace audio {

namespace {

// Frames per SDL callback: about 23 ms at 22050 Hz, small beside a buffer of
// 5000 frames, so a buffer comes back soon after it is full.
constexpr Uint16 kCallbackFrames = 512;

} // namespace

SoundIn::~SoundIn()
{
    if (device_ != 0)
        SDL_CloseAudioDevice(device_);
}

bool SoundIn::open(int channels, int bits, int rate)
{
    if (device_ != 0 || channels < 1 || channels > 8 || rate <= 0)
        return false;
    SDL_AudioSpec want{};
    switch (bits) {
    case 8: want.format = AUDIO_U8; break;
    case 16: want.format = AUDIO_S16LSB; break;
    default: return false;
    }
    if (SDL_WasInit(SDL_INIT_AUDIO) == 0)
        return false;
    want.freq = rate;
    want.channels = static_cast<Uint8>(channels);
    want.samples = kCallbackFrames;
    want.callback = &SoundIn::callback;
    want.userdata = this;
    {
        std::lock_guard<std::mutex> g(mutex_);
        head_ = 0;
        count_ = 0;
        head_offset_ = 0;
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
    if (count_ == kMaxBuffers)
        return false;
    queue_[static_cast<std::size_t>((head_ + count_) % kMaxBuffers)] = Queued{buffer, bytes, length};
    ++count_;
    return true;
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
    if (count_ > 0 && head_offset_ > 0)
        pop_head(head_offset_);
    return true;
}

bool SoundIn::reset()
{
    if (device_ == 0)
        return false;
    SDL_PauseAudioDevice(device_, 1);
    std::lock_guard<std::mutex> g(mutex_);
    while (count_ > 0)
        pop_head(head_offset_);
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
        head_ = 0;
        count_ = 0;
        head_offset_ = 0;
    }
    listener_.on_device_message(kClose, -1, 0);
    return true;
}

int SoundIn::queued() const
{
    std::lock_guard<std::mutex> g(mutex_);
    return count_;
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
    int buffer = queue_[static_cast<std::size_t>(head_)].buffer;
    head_ = (head_ + 1) % kMaxBuffers;
    --count_;
    head_offset_ = 0;
    listener_.on_device_message(kData, buffer, recorded);
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
    while (count_ > 0 && done < len) {
        Queued& q = queue_[static_cast<std::size_t>(head_)];
        std::size_t n = std::min(q.length - head_offset_, len - done);
        std::memcpy(q.bytes + head_offset_, in + done, n);
        done += n;
        head_offset_ += n;
        if (head_offset_ == q.length)
            pop_head(q.length);
    }
    // Overrun: no buffer is left to take the rest.
    lost_ += len - done;
}

} // namespace audio

#include "audio/sound_out.h"

#include <algorithm>
#include <cstring>

namespace audio {

namespace {

// Frames per SDL callback: about 12 ms at 44100 Hz, short enough that a
// returned buffer is noticed soon and a pause takes hold at once.
constexpr Uint16 kCallbackFrames = 512;

} // namespace

SoundOut::~SoundOut()
{
    if (device_ != 0)
        SDL_CloseAudioDevice(device_);
}

bool SoundOut::open(int channels, int bits, int rate, bool paused)
{
    if (device_ != 0 || channels < 1 || channels > 8 || rate <= 0)
        return false;
    SDL_AudioSpec want{};
    switch (bits) {
    case 8: want.format = AUDIO_U8; break;
    case 16: want.format = AUDIO_S16LSB; break;
    case 32: want.format = AUDIO_S32LSB; break;
    default: return false;
    }
    if (SDL_WasInit(SDL_INIT_AUDIO) == 0)
        return false;
    want.freq = rate;
    want.channels = static_cast<Uint8>(channels);
    want.samples = kCallbackFrames;
    want.callback = &SoundOut::callback;
    want.userdata = this;
    {
        std::lock_guard<std::mutex> g(mutex_);
        head_ = 0;
        count_ = 0;
        head_offset_ = 0;
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
    if (count_ == kMaxBuffers)
        return false;
    queue_[static_cast<std::size_t>((head_ + count_) % kMaxBuffers)] = Queued{buffer, bytes, length};
    ++count_;
    return true;
}

bool SoundOut::reset()
{
    if (device_ == 0)
        return false;
    std::lock_guard<std::mutex> g(mutex_);
    while (count_ > 0) {
        int buffer = queue_[static_cast<std::size_t>(head_)].buffer;
        head_ = (head_ + 1) % kMaxBuffers;
        --count_;
        listener_.on_device_message(kDone, buffer);
    }
    head_offset_ = 0;
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
        head_ = 0;
        count_ = 0;
        head_offset_ = 0;
    }
    listener_.on_device_message(kClose, -1);
    return true;
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
        while (count_ > 0) {
            Queued& q = queue_[static_cast<std::size_t>(head_)];
            std::size_t n = std::min(q.length - head_offset_, len - done);
            std::memcpy(out + done, q.bytes + head_offset_, n);
            done += n;
            head_offset_ += n;
            if (head_offset_ < q.length)
                break; // the callback's block is full
            int buffer = q.buffer;
            head_ = (head_ + 1) % kMaxBuffers;
            --count_;
            head_offset_ = 0;
            listener_.on_device_message(kDone, buffer);
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

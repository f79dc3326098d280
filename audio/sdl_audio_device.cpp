#include "audio/sdl_audio_device.h"

namespace audio {

namespace {

// Frames per SDL callback: about 12 ms at 44100 Hz and 23 ms at 22050 Hz,
// small beside a buffer, so a buffer comes back soon after it is done and a
// pause takes hold at once.
constexpr Uint16 kCallbackFrames = 512;

} // namespace

bool sdl_audio_spec(int channels, int bits, int rate, int max_bits, SDL_AudioCallback callback, void* self,
                    SDL_AudioSpec& want)
{
    if (channels < 1 || channels > 8 || rate <= 0 || bits > max_bits)
        return false;
    want = SDL_AudioSpec{};
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
    want.callback = callback;
    want.userdata = self;
    return true;
}

} // namespace audio

#include "audio/system_sound.h"

#include "os/log.h"
#include "os/path.h"

#include <SDL.h>

namespace audio {

namespace {

// The wait for the device to play out what was queued: polled in steps of
// this length, and given up after kMaxWaitMs (a stuck device never hangs
// the program).
constexpr Uint32 kPollMs = 10;
constexpr Uint32 kMaxWaitMs = 5000;

bool play_buffer(const SDL_AudioSpec& spec, const Uint8* bytes, Uint32 length)
{
    SDL_AudioSpec want = spec;
    want.callback = nullptr; // queued, not pulled
    want.samples = 512;
    SDL_AudioDeviceID device = SDL_OpenAudioDevice(nullptr, 0, &want, nullptr, 0);
    if (device == 0)
        return false;
    bool ok = SDL_QueueAudio(device, bytes, length) == 0;
    SDL_PauseAudioDevice(device, 0);
    const Uint32 start = SDL_GetTicks();
    while (ok && SDL_GetQueuedAudioSize(device) > 0 && SDL_GetTicks() - start < kMaxWaitMs)
        SDL_Delay(kPollMs);
    // What SDL took last is still in the device's own buffer: let it out.
    SDL_Delay(static_cast<Uint32>(1000 * want.samples / (want.freq > 0 ? want.freq : 8000)) + kPollMs);
    SDL_CloseAudioDevice(device);
    return ok;
}

} // namespace

bool play_system_sound(const std::wstring& name)
{
    const std::string path = os::native_path(os::join_path(L"%app_path%/sounds", name));
    if (SDL_InitSubSystem(SDL_INIT_AUDIO) != 0) {
        os::log() << "system sound: no sound system for " << name << "\n";
        return false;
    }
    SDL_AudioSpec spec{};
    Uint8* bytes = nullptr;
    Uint32 length = 0;
    bool ok = false;
    if (SDL_LoadWAV(path.c_str(), &spec, &bytes, &length) == nullptr) {
        os::log() << "system sound: can't read " << name << ": " << SDL_GetError() << "\n";
    } else {
        ok = play_buffer(spec, bytes, length);
        if (!ok)
            os::log() << "system sound: no output device for " << name << "\n";
        SDL_FreeWAV(bytes);
    }
    SDL_QuitSubSystem(SDL_INIT_AUDIO);
    return ok;
}

} // namespace audio

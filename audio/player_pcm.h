#pragma once

#include "audio/pipeline.h"
#include "audio/records.h"
#include "liba/nocopy.h"

#include <cstdint>
#include <memory>

// The sound output stage and the active object of the play path: a thread of
// its own pulls PCMData from the stage linked before it and feeds the sound
// device through six buffers of 200 ms. Nothing pushes into it; a push ends
// the process. Owned by Document; lives as long as the program.
// Threads: every operation belongs to the main thread. The requests only set
// flags and wake the player's thread, which does all device work under this
// stage's `lock` (the lock that connect() takes), so relinking the provider
// waits for the fill under way.
namespace audio {

class PlayerPCMImpl;

class PlayerPCM : public PullOnlyConsumer<PCMData>, liba::Nocopy {
public:
    // The player's states.
    static constexpr int kIdle = 0;     // device closed
    static constexpr int kPlaying = 1;  // device open or opening, buffers refilled
    static constexpr int kDraining = 2; // nothing more is fed; closes when all are back

    // Starts the player's thread and the sound system.
    PlayerPCM();
    // Stops the thread, closing the device, and shuts the sound system.
    ~PlayerPCM() override;

    // Each returns whether the wake could be posted.
    // Wants sound: starts a stream from idle, and resumes from a pause.
    bool play();
    // Wants no sound: a playing stream is cut, its pulled audio dropped.
    bool stop();
    bool pause();
    bool is_paused() const;

    // 0.0 to 1.0, limited to that range; 1.0 leaves samples as they are.
    void set_volume(double volume);
    double get_volume() const;

    // What the player is doing, read under the lock: for tests and
    // diagnostics. Rate in samples per second, sizes in bytes, peaks 0..1.
    struct Status {
        int state = kIdle;
        bool device_open = false;
        bool paused = false;
        bool finished = true;
        int channels = 0;
        int bits = 0;
        int rate = 0;
        int buffer_size = 0;
        int buffers_in_device = 0;
        int opens = 0;
        double peak[2] = {0.0, 0.0};
    };
    Status status() const;
    // Seconds of sound pulled and not yet handed to SDL: what the device
    // will still play before anything pulled later. Takes no lock.
    double queued_seconds() const;
    // SDL callbacks made so far on the player's devices; takes no lock.
    std::uint64_t device_callbacks() const;

private:
    std::unique_ptr<PlayerPCMImpl> impl;
};

} // namespace audio

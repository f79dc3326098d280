#pragma once

#include "app/settings.h"
#include "audio/equalizer_pcm.h"
#include "audio/fast_play.h"
#include "audio/level_filter.h"
#include "audio/pipeline.h"
#include "audio/stretch_filter.h"
#include "liba/nocopy.h"

#include <array>

// The stages between a play chain and the sound output, linked in the order
// of the data: the fixed head that a chain links to, the active equalisers
// (bands 1, 2, 3), fast play, the stretch filter, the level filter, and the
// sink (the player in the program, a file in quillctl decode). A stage is
// linked only while the settings call for it; the speed stages and the level
// filter, once called for, stay linked (at rest they pass records on), so
// what they hold is never lost.
// Threads: main thread only. Every change holds the sink's lock, which the
// sink holds through each pull, so a pull never meets a half-made path.
// Units: speeds in input frames per output frame; level indexes 0..3.
class PlayPath : liba::Nocopy {
public:
    // What a speed setting does to the stages.
    struct SpeedPlan {
        double stored = 1.0;  // the speed the settings keep
        double step = 1.0;    // fast play's step
        int factor = 1;       // the stretch filter's factor
        double stretch = 1.0; // the any-speed stretch, 1.0 for none
    };
    static constexpr double kMinSpeed = 0.5;
    static constexpr double kMaxSpeed = 2.0;
    // With the pitch held only normal and half speed exist, unless
    // `any_speed`: then the stretch takes the speed as given. Speeds are
    // first limited to kMinSpeed..kMaxSpeed.
    static SpeedPlan plan_speed(double speed, bool pitch_lock, bool any_speed);

    PlayPath() = default;
    // Cuts every link of the path.
    ~PlayPath();

    // Where a play chain's provider links.
    audio::Consumer<audio::PCMData>& head() { return head_; }
    // Links the path's end to `sink`; null cuts it.
    void attach(audio::Consumer<audio::PCMData>* sink);

    // Sets up and links the active bands, each with its gain, centre and
    // width in that order.
    void set_equalizers(const EqualizerSettings& band1, const EqualizerSettings& band2,
                        const EqualizerSettings& band3);
    // Applies the plan of the speed; returns it.
    SpeedPlan set_speed(double speed, bool pitch_lock, bool any_speed);
    // Forgets the level filter's stream and gives it the curve of the three
    // indexes (Off, Low, Medium, High).
    void set_levels(int booster, int noise, int limiter);

    const audio::FastPlay& fast_play() const { return fast_play_; }
    const audio::StretchFilter& stretch_filter() const { return stretch_filter_; }
    const audio::LevelFilter& level_filter() const { return level_filter_; }

private:
    void relink();
    void cut_all();

    audio::NullProcessor<audio::PCMData> head_;
    std::array<audio::EqualizerPCM, 3> equalizers_;
    std::array<bool, 3> equalizer_active_{};
    audio::FastPlay fast_play_;
    audio::StretchFilter stretch_filter_;
    audio::LevelFilter level_filter_;
    bool speed_linked_ = false;
    bool levels_linked_ = false;
    audio::Consumer<audio::PCMData>* sink_ = nullptr;
};

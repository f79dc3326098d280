#include "app/play_path.h"

#include "liba/critical_section.h"

#include <algorithm>
#include <cmath>
#include <optional>

PlayPath::SpeedPlan PlayPath::plan_speed(double speed, bool pitch_lock, bool any_speed)
{
    SpeedPlan plan;
    // A settings file may hold anything; outside the bar's range nothing
    // would play (step 0) or the stretch could not follow.
    speed = std::isfinite(speed) ? std::clamp(speed, kMinSpeed, kMaxSpeed) : 1.0;
    if (!pitch_lock) {
        plan.stored = plan.step = speed;
    } else if (any_speed) {
        plan.stored = plan.stretch = speed;
    } else if (speed > 0.75) {
        plan.stored = 1.0;
    } else if (speed < 0.75) {
        plan.stored = 0.5;
        plan.factor = 2;
    } else {
        plan.stored = speed;
    }
    return plan;
}

PlayPath::~PlayPath()
{
    cut_all();
}

void PlayPath::attach(audio::Consumer<audio::PCMData>* sink)
{
    if (sink_ != nullptr) {
        liba::Lock held(sink_->lock);
        cut_all();
    }
    sink_ = sink;
    relink();
}

void PlayPath::set_equalizers(const EqualizerSettings& band1, const EqualizerSettings& band2,
                              const EqualizerSettings& band3)
{
    const EqualizerSettings* bands[3] = {&band1, &band2, &band3};
    // The bands take no lock: no pull may run through them meanwhile.
    std::optional<liba::Lock> held;
    if (sink_ != nullptr)
        held.emplace(sink_->lock);
    for (std::size_t i = 0; i < equalizers_.size(); ++i) {
        equalizer_active_[i] = bands[i]->active;
        if (!bands[i]->active)
            continue;
        equalizers_[i].set_amplitude(bands[i]->amplitude);
        equalizers_[i].set_frequency(bands[i]->frequency);
        equalizers_[i].set_width(bands[i]->width);
    }
    relink();
}

PlayPath::SpeedPlan PlayPath::set_speed(double speed, bool pitch_lock, bool any_speed)
{
    const SpeedPlan plan = plan_speed(speed, pitch_lock, any_speed);
    stretch_filter_.set_factor(plan.factor);
    stretch_filter_.set_stretch(plan.stretch);
    fast_play_.set_step(plan.step);
    if (!speed_linked_ && (plan.step != 1.0 || plan.factor != 1 || plan.stretch != 1.0)) {
        speed_linked_ = true;
        relink();
    }
    return plan;
}

void PlayPath::set_levels(int booster, int noise, int limiter)
{
    level_filter_.reset();
    level_filter_.set_curve(audio::LevelFilter::step_value(booster), audio::LevelFilter::step_value(noise),
                            audio::LevelFilter::step_value(limiter));
    if (!levels_linked_ && !level_filter_.is_identity()) {
        levels_linked_ = true;
        relink();
    }
}

void PlayPath::cut_all()
{
    audio::connect(head_, nullptr);
    for (audio::EqualizerPCM& e : equalizers_)
        audio::connect(e, nullptr);
    audio::connect(fast_play_, nullptr);
    audio::connect(stretch_filter_, nullptr);
    audio::connect(level_filter_, nullptr);
}

void PlayPath::relink()
{
    if (sink_ == nullptr)
        return;
    // Held across every cut and link: a pull waits for the whole change.
    liba::Lock held(sink_->lock);
    cut_all();
    audio::Provider<audio::PCMData>* last = &head_;
    auto link = [&last](auto& stage) {
        audio::connect(*last, &stage);
        last = &stage;
    };
    for (std::size_t i = 0; i < equalizers_.size(); ++i)
        if (equalizer_active_[i])
            link(equalizers_[i]);
    if (speed_linked_) {
        link(fast_play_);
        link(stretch_filter_);
    }
    if (levels_linked_)
        link(level_filter_);
    audio::connect(*last, sink_);
}

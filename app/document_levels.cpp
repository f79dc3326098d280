// The levels of the Document: input gain, monitor, the meters the views
// show, and voice activation, which pauses a recording in silence and
// resumes it when the sound returns.
#include "app/document.h"

#include "os/log.h"

void Document::apply_level_settings()
{
    level_meter_record_.set_threshold(settings_.vas);
    muter_.set_muted(!settings_.monitor);
    record_level_control_.set_level(settings_.input);
}

void Document::set_input(double level)
{
    pending_changes_.state = true;
    settings_.input = level;
    record_level_control_.set_level(level);
    os::log() << "Document::set_input" << level << "\n";
}

void Document::set_vas_level(double threshold)
{
    pending_changes_.state = true;
    settings_.vas = threshold;
    level_meter_record_.set_threshold(threshold);
}

void Document::set_vas_on(bool on)
{
    pending_changes_.state = true;
    settings_.vas_on = on;
}

void Document::set_monitor(bool on)
{
    pending_changes_.state = true;
    settings_.monitor = on;
    muter_.set_muted(!on);
}

double Document::input_level() const
{
    return is_recording() && settings_.monitor ? level_meter_record_.get_level() : 0.0;
}

double Document::vas_level() const
{
    return settings_.vas_on ? input_level() : 0.0;
}

double Document::output_level()
{
    return is_playing() ? level_meter_.get_level() : 0.0;
}

double Document::record_time() const
{
    return time_meter_.get_time();
}

void Document::voice_activation()
{
    if (!settings_.vas_on)
        return;
    const bool silent = level_meter_record_.is_silent();
    const bool paused = is_record_paused();
    if (silent == paused)
        return;
    if (silent) {
        set_record_paused(true);
        add_bookmark();
    } else {
        // The input held while paused goes first: it holds the onset that
        // ended the silence.
        pending_changes_.state = true;
        level_meter_record_.relink(&time_meter_, true);
    }
    ChangeFlags changes;
    changes.position = changes.state = true;
    notify_views(changes);
}

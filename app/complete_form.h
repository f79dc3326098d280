#pragma once

#include "audio/active_buffer.h"
#include "skinner/control_progress.h"
#include "skinner/form.h"

// The progress of the drain at the stop of a recording: the skin's form
// "SaveActiveBuffer" over its owner, its bar "pbProgress" filled by the
// records written since it opened, ten times a second, until the active
// buffer is empty. Threads: the main thread; it only reads the buffer's
// count, which the buffer's thread lowers.
class CompleteForm : public skinner::Form {
public:
    // Takes the number of records queued now as the whole.
    CompleteForm(skinner::Form* owner, audio::ActiveBuffer& buffer);
    ~CompleteForm() override;

    // Runs modally until the buffer is empty; at once when it already is.
    void run();
    // The bar's fill, 0..1.
    double progress() const { return progress_.value(); }

    void on_timer(int id, int user_data) override;

private:
    static constexpr double kTickSeconds = 0.1;

    audio::ActiveBuffer& buffer_;
    skinner::ControlProgress progress_;
    int total_;
    int timer_ = 0;
};

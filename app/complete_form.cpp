#include "app/complete_form.h"

CompleteForm::CompleteForm(skinner::Form* owner, audio::ActiveBuffer& buffer)
    : Form(owner, owner->properties(), L"SaveActiveBuffer"), buffer_(buffer), progress_(this, L"pbProgress"),
      total_(buffer.queued_records())
{
    progress_.set_position(0.0);
}

CompleteForm::~CompleteForm()
{
    if (timer_ != 0)
        kill_timer(timer_);
}

void CompleteForm::run()
{
    if (buffer_.queued_records() == 0)
        return;
    timer_ = set_timer(kTickSeconds);
    do_modal();
}

void CompleteForm::on_timer(int id, int user_data)
{
    if (id != timer_) {
        Form::on_timer(id, user_data);
        return;
    }
    const int left = buffer_.queued_records();
    progress_.set_range(0.0, static_cast<double>(total_), static_cast<double>(total_ - left));
    if (left == 0) {
        kill_timer(timer_);
        timer_ = 0;
        close();
    }
}

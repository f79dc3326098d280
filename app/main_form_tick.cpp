#include "app/main_form.h"

#include "app/error_form.h"
#include "os/log.h"
#include "os/path.h"

#include <cwctype>

namespace {

std::wstring lowered(std::wstring text)
{
    for (wchar_t& c : text)
        c = static_cast<wchar_t>(std::towlower(c));
    return text;
}

} // namespace

void MainForm::on_timer(int id, int user_data)
{
    if (id == timer_id_ && id != 0) {
        // While a dialog of this tick runs its own loop, ticks that arrive
        // meanwhile don't match the id and can't come back in here.
        timer_id_ = 0;
        ++ticks_;
        on_tick();
        timer_id_ = id;
    } else if (id != 0 && timer_id_ == 0) {
        ++ticks_held_;
    }
    Form::on_timer(id, user_data);
}

void MainForm::on_tick()
{
    const bool recording = document_.is_recording();
    // Playing or recording holds the screen saver off and arms the
    // display's turn-off with that activity's timeout.
    power_.on_tick(document_.is_playing(), recording, document_.settings());
    if (recording) {
        check_recording();
    } else if (!document_.is_healthy() && lowered(os::extension_of(document_.current_path())) == L"wma") {
        // The only failed open worth a word: the system lacks the decoder.
        ErrorForm(this, properties(), properties().translate(L"NO_WMA_CAPTION"), properties().translate(L"NO_WMA"))
            .run();
    }
    // The clock and the bar move while recording too, when the Document
    // tells no view that the position moved.
    show_position();
    play_lamp_.update();
    record_lamp_.update();
    // The Document ends an item that failed or ran out, and moves on by the mode.
    document_.on_timer();
}

void MainForm::check_recording()
{
    if (document_.is_healthy() && document_.record_writer_good())
        return;
    os::log() << "main: the recording failed\n";
    document_.pause();
    document_.notify_views();
    ErrorForm(this, properties(), properties().translate(L"on_recording_error_caption"),
              properties().translate(L"on_recording_error"))
        .run();
    document_.stop(this);
    document_.notify_views();
}

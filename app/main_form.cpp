#include "app/main_form.h"

#include "audio/file_reader.h"
#include "os/log.h"

#include <cstdio>

namespace {

constexpr const wchar_t* kMainForm = L"Main";

std::wstring joined(std::initializer_list<std::wstring> parts)
{
    std::wstring out;
    for (const std::wstring& p : parts) {
        if (p.empty())
            continue;
        if (!out.empty())
            out += L' ';
        out += p;
    }
    return out;
}

} // namespace

MainForm::MainForm(skinner::Properties& skin, Document& document)
    : Form(nullptr, skin, kMainForm, &screen_listener_), document_(document),
      publication_(
          document, [this] { bring_up(); }, [this](const std::wstring& path) { return play_selected(path); },
          [this](const std::wstring& name) { return on_command(name); }),
      new_mark_(this, L"btnNewMark"),
      previous_(this, L"btnRewind"), next_(this, L"btnForward"), play_(this, L"btnPlay", 2),
      record_(this, L"btnRecord", 2), stop_(this, L"btnStop"), volume_(this, L"pbOutput"),
      position_(this, L"pbPosition"), mode_(this, L"btnMode", 4), record_lamp_(this, L"checkRec"),
      play_lamp_(this, L"checkPlay"), stereo_(this, L"checkStereo"), speed_(this, L"frmSpeed"),
      vas_(this, L"checkVAS"), info_(this, L"frmInfo"), title_(this, L"frmTitle"), clock_(this, L"Clock"),
      clock_mode_(this, L"btnClockMode"), explorer_(this, document), levels_(this, document),
      equalizer_(this, document), more_(this, document), main_menu_(this, L"MainMenu"), file_menu_(this, L"File"),
      mode_menu_(this, L"Mode")
{
    show(false);
    // Display only: they show the Document's state and take no clicks.
    vas_.set_enabled(false);
    stereo_.set_enabled(false);
    timer_id_ = set_timer(kTickSeconds);
    // Remote control by other programs; the program runs on without it.
    if (!publication_.publish())
        os::log() << "main: the status publication is not available\n";
    show_panel();
    show_state();
    show_position();
    volume_.set_position(document_.volume());
    make_menu_bar();
    assign_hardware_keys();
    show_mode();
    update_position();
    invalidate_all();
}

MainForm::~MainForm()
{
    if (timer_id_ != 0)
        kill_timer(timer_id_);
}

void MainForm::on_document_changed(const ChangeFlags& changes)
{
    if (changes.state)
        show_state();
    if (changes.position || changes.state)
        show_position();
    if (changes.volume)
        volume_.set_position(document_.volume());
}

void MainForm::show_state()
{
    const bool playing = document_.is_playing();
    const bool recording = document_.is_recording();
    const bool paused = document_.is_paused();
    title_.set_text(playing || recording ? document_.title() : std::wstring());
    vas_.set_checked(document_.settings().vas_on);
    play_lamp_.set_flashing(playing);
    record_lamp_.set_flashing(recording);
    audio::FileReader* reader = document_.reader();
    stereo_.set_checked(reader && reader->get_channels() == 2);
    speed_.set_speed(document_.speed());
    stop_.set_enabled(playing || recording);
    new_mark_.set_enabled(playing || recording);
    previous_.set_enabled(playing && document_.play_order().position > 0);
    next_.set_enabled(document_.play_order().has_next());
    play_.set_enabled(playing || explorer_.can_play() || document_.item_count() > 0);
    play_.set_state(playing && !paused ? 1 : 0);
    record_.set_enabled(recording || explorer_.can_record());
    record_.set_state(recording && !paused ? 1 : 0);
}

std::wstring MainForm::bits_text() const
{
    int bits = 0;
    if (document_.is_recording())
        bits = document_.record_status().bits;
    else if (audio::FileReader* r = document_.reader())
        bits = r->get_bits();
    return bits > 0 ? std::to_wstring(bits) + L" bit" : std::wstring();
}

void MainForm::show_position()
{
    info_.set_text(joined({document_.rate_text(), bits_text(), document_.bitrate_text()}));
    // What is heard, which the reader is ahead of by what the player holds.
    const double elapsed = document_.heard_time();
    const double left = document_.remaining_time() + (document_.time_position() - elapsed);
    const double length = elapsed + left;
    position_.set_position(length > 0.0 ? elapsed / length : 0.0);
    clock_.set_times(document_.is_recording() ? document_.record_time() : elapsed, left);
}

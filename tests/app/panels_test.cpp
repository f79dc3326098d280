// The main window's panels on the Default skin, headless, driven by real
// SDL clicks and drags: each control changes the Document, the meters read
// what sox made, and the equaliser's band sounds as sox's own equaliser.
#include "tests/app/main_form_fixture.h"

#include "skinner/png_writer.h"

#include <cmath>

namespace {

using namespace main_form_test;

// A press at `from`, a move to `to` with the button held, a release there.
void push_drag(Point from, Point to)
{
    SDL_Event e{};
    e.type = SDL_MOUSEBUTTONDOWN;
    e.button.button = SDL_BUTTON_LEFT;
    e.button.clicks = 1;
    e.button.x = from.x;
    e.button.y = from.y;
    SDL_PushEvent(&e);
    SDL_Event m{};
    m.type = SDL_MOUSEMOTION;
    m.motion.state = SDL_BUTTON_LMASK;
    m.motion.x = to.x;
    m.motion.y = to.y;
    SDL_PushEvent(&m);
    e.type = SDL_MOUSEBUTTONUP;
    e.button.x = to.x;
    e.button.y = to.y;
    SDL_PushEvent(&e);
}

// The root mean square of 16-bit mono samples from `first` for `count`.
double rms(const std::string& raw, size_t first, size_t count)
{
    if (raw.size() < 2 * (first + count))
        return 0.0;
    const std::vector<std::int16_t> s = test::samples_of(raw);
    double sum = 0;
    for (size_t i = first; i < first + count && i < s.size(); ++i)
        sum += double(s[i]) * s[i];
    return std::sqrt(sum / double(count));
}

// 16-bit samples less the runs of silence a disk device writes while it
// waits for the player, and the band's first 100 ms; a tone without an
// offset still keeps its single zero samples.
std::string without_gaps(const std::string& raw)
{
    std::string out;
    size_t zeros = 0;
    for (size_t at = 0; at + 2 <= raw.size(); at += 2) {
        const bool zero = raw[at] == 0 && raw[at + 1] == 0;
        zeros = zero ? zeros + 1 : 0;
        if (!zero) {
            out.append(raw, at, 2);
        } else if (zeros == 1 && at + 4 <= raw.size() && (raw[at + 2] != 0 || raw[at + 3] != 0)) {
            out.append(raw, at, 2);
        }
    }
    return out;
}

class PanelsTest : public MainFormTest {
protected:
    void to_panel(int index)
    {
        while (form->panel_button().state() != index)
            click(form->panel_button());
    }
    // The screen point of a horizontal bar's value `k` pixels from its start.
    Point bar_point(const skinner::ControlProgressBase& bar, int k) const
    {
        return bar.form()->screen_position() + bar.position() +
               Point{bar.track_size() / 2 + k, bar.size().y / 2};
    }
    // Pixels from the bar's start to its end.
    static int bar_span(const skinner::ControlProgressBase& bar) { return bar.size().x - bar.track_size(); }
    void click_bar(const skinner::ControlProgressBase& bar, int k) { deliver_click(bar_point(bar, k)); }
    void deliver_click(Point at)
    {
        push_click(at);
        pump();
    }
    void drag(Point from, Point to)
    {
        push_drag(from, to);
        pump();
    }
    void pump()
    {
        SDL_Event e;
        while (SDL_PollEvent(&e))
            screen->handle_event(e);
    }
    skinner::Color pixel(Point form_point) const
    {
        SDL_Surface* s = screen->surface();
        const Point p = form->screen_position() + form_point;
        const auto* row = static_cast<const uint32_t*>(s->pixels) + p.y * (s->pitch / 4);
        return skinner::Color::from_pixel(row[p.x]);
    }
    const Settings& settings() const { return document->settings(); }
};

TEST_F(PanelsTest, ModeButtonShowsOnePanelAtATimeInTurn)
{
    open(false);
    fs::create_directories(QUILL_TEST_OUTPUT_DIR);
    for (int click_count = 0; click_count <= MainForm::kPanels; ++click_count) {
        if (click_count > 0)
            click(form->panel_button());
        const int shown = click_count % MainForm::kPanels;
        EXPECT_EQ(form->panel_button().state(), shown);
        for (int i = 0; i < MainForm::kPanels; ++i)
            EXPECT_EQ(form->panel(i).is_visible(), i == shown) << "panel " << i << " after " << click_count;
        // A hidden panel's meters must not ask for repaints of the screen.
        EXPECT_EQ(form->levels_panel().vas_bar().is_visible(), shown == 1) << "after " << click_count;
        // By name the command shows the panel the button stands on.
        EXPECT_EQ(form->on_command(L"Panel"), 1);
        EXPECT_TRUE(form->panel(shown).is_visible());
        screen->paint_now();
        const std::string png = std::string(QUILL_TEST_OUTPUT_DIR) + "/panel_" + std::to_string(shown) + ".png";
        EXPECT_TRUE(skinner::write_png(png, screen->surface()));
    }
}

TEST_F(PanelsTest, LevelsBarsAndSwitchesSetTheDocumentACheckedSwitchMeaningOff)
{
    open(false);
    to_panel(1);
    PanelLevels& p = form->levels_panel();
    // At rest: voice activation off (its box checked), input on.
    EXPECT_TRUE(p.vas_check().is_checked());
    EXPECT_FALSE(p.input_check().is_checked());
    EXPECT_FALSE(p.vas_bar().is_enabled());
    EXPECT_FALSE(p.output_check().is_checked());
    EXPECT_FALSE(p.output_check().is_enabled());
    EXPECT_FALSE(p.vas_lamp().is_enabled());

    click(p.vas_check());
    EXPECT_TRUE(settings().vas_on);
    EXPECT_TRUE(p.vas_bar().is_enabled());
    EXPECT_TRUE(p.vas_lamp().is_checked());
    click(p.input_check());
    EXPECT_FALSE(settings().monitor);
    EXPECT_FALSE(p.input_lamp().is_checked());
    click(p.input_check());
    EXPECT_TRUE(settings().monitor);

    // The input gain: strictly between 0.45 and 0.55 it is exactly 0.5.
    const int span = bar_span(p.input_bar());
    struct Case {
        int k;
        double stored;
    };
    for (const Case c : {Case{62, 0.5}, Case{60, 60.0 / span}, Case{67, 0.5}, Case{74, 74.0 / span}}) {
        click_bar(p.input_bar(), c.k);
        EXPECT_EQ(settings().input, c.stored) << c.k << " of " << span;
        EXPECT_EQ(p.input_bar().value(), c.stored);
    }
    const_cast<skinner::ControlProgress&>(p.input_bar()).on_position_dragged(0.45);
    EXPECT_EQ(settings().input, 0.45);
    const_cast<skinner::ControlProgress&>(p.input_bar()).on_position_dragged(0.46);
    EXPECT_EQ(settings().input, 0.5);

    // The threshold, with the VAS meters' mark; the volume, with the main bar.
    click_bar(p.vas_bar(), 20);
    EXPECT_DOUBLE_EQ(settings().vas, 20.0 / span);
    EXPECT_DOUBLE_EQ(p.vas_meter(0).mark(), settings().vas);
    EXPECT_DOUBLE_EQ(p.vas_meter(1).mark(), settings().vas);
    click_bar(p.output_bar(), 100);
    EXPECT_DOUBLE_EQ(document->volume(), 100.0 / span);
    EXPECT_DOUBLE_EQ(form->volume_bar().value(), document->volume());
    EXPECT_EQ(form->on_command(L"VolumeUp"), 1);
    EXPECT_DOUBLE_EQ(p.output_bar().value(), document->volume());
}

TEST_F(PanelsTest, MetersReadTheToneHeardAndTheInputAndTheExplorerTakesTheRecording)
{
    // -6 dBFS: a peak of 0.501 of full scale.
    const fs::path wav = dir.path() / "tone.wav";
    ASSERT_EQ(test::run("sox -n -r 22050 -b 16 -c 1 '" + wav.string() + "' synth 4 sine 440 gain -6"), 0);
    ASSERT_EQ(test::run("sox -n -r 22050 -b 16 -c 1 -e signed-integer -t raw '" + in + "' synth 8 sine 300 gain -6"), 0);
    open(true);
    to_panel(1);
    PanelLevels& p = form->levels_panel();
    fs::create_directory(dir.path() / "take");
    form->explorer().select(w(wav));
    EXPECT_EQ(form->explorer().current(), w(wav));
    EXPECT_EQ(form->explorer().folder(), w(dir.path()));

    click(form->play_button());
    ASSERT_EQ(document->current_path(), w(wav)) << "Play plays the explorer's file";
    TickCounter ticks;
    const auto started = std::chrono::steady_clock::now();
    auto seconds = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count(); };
    run_until([&] { return seconds() > 1.0 && ticks.taken(); });
    for (int channel : {0, 1}) {
        EXPECT_NEAR(p.output_meter(channel).value(), 0.501, 0.02) << channel;
        EXPECT_EQ(p.input_meter(channel).value(), 0.0);
        EXPECT_EQ(p.vas_meter(channel).value(), 0.0);
    }
    click(form->stop_button());
    EXPECT_EQ(p.output_meter(0).value(), 0.0);
    EXPECT_EQ(p.output_meter(1).value(), 0.0);

    // Recording with voice activation on and a low threshold.
    click(p.vas_check());
    click_bar(p.vas_bar(), 10);
    form->explorer().select(w(dir.path() / "take"));
    EXPECT_TRUE(form->explorer().current().empty());
    click(form->record_button());
    ASSERT_TRUE(document->is_recording());
    EXPECT_FALSE(form->more_panel().speed_bar().is_enabled()) << "no speed change while recording";
    const auto recording = std::chrono::steady_clock::now();
    run_until([&] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - recording).count() > 1.0 &&
               ticks.taken();
    });
    for (int channel : {0, 1}) {
        EXPECT_NEAR(p.input_meter(channel).value(), 0.501, 0.02) << channel;
        EXPECT_NEAR(p.vas_meter(channel).value(), 0.501, 0.02) << channel;
        EXPECT_EQ(p.output_meter(channel).value(), 0.0);
    }
    // The threshold's mark on each VAS meter.
    screen->paint_now();
    const skinner::Color kMark{0xe4, 0x57, 0x2e, 0xff};
    for (int channel : {0, 1}) {
        const skinner::ControlProgress2Scale& m = p.vas_meter(channel);
        const Point mark{m.position().x + int(m.size().x * m.mark()), m.position().y + m.size().y / 2};
        // A line, not a fill: the meter's own colour just before it.
        for (int dx : {0, -2}) {
            const skinner::Color c = pixel(mark + Point{dx, 0});
            EXPECT_EQ((skinner::Color{c.red, c.green, c.blue, 0xff}) == kMark, dx == 0) << channel << " " << dx;
        }
    }
    const std::wstring file = document->record_file_path();
    EXPECT_EQ(form->on_command(L"RecordStop"), 1);
    EXPECT_FALSE(document->is_recording());
    EXPECT_TRUE(form->more_panel().speed_bar().is_enabled());
    EXPECT_EQ(p.input_meter(0).value(), 0.0);
    EXPECT_EQ(form->explorer().folder(), w(dir.path() / "take"));
    EXPECT_EQ(form->explorer().current(), file) << "the new file is selected";
    click(form->play_button());
    EXPECT_EQ(document->current_path(), file);
}

TEST_F(PanelsTest, EqualizerHandleSetsTheBandWhoseLineMeetsItAndWhichSoundsAsSoxsEqualizer)
{
    open(false);
    to_panel(2);
    PanelEqualizer& p = form->equalizer_panel();
    const skinner::ControlEqualizer& eq = p.equalizer();
    click(p.band_check(0));
    ASSERT_TRUE(eq.has_band(0));
    EXPECT_TRUE(settings().equalizer1.active);
    EXPECT_EQ(settings().equalizer1.frequency, 200.0);
    EXPECT_EQ(settings().equalizer1.width, PanelEqualizer::kDefaultWidth) << "a band stored without width";

    // The handle dragged to about 1 kHz and +6 dB.
    const Point target{eq.x_of(1000.0), eq.y_of(6.0)};
    const Point at = form->screen_position();
    drag(at + eq.handle_point(0), at + target);
    const double f = eq.frequency_at(target.x);
    const double gain = eq.gain_at(target.y);
    EXPECT_DOUBLE_EQ(settings().equalizer1.frequency, f);
    EXPECT_DOUBLE_EQ(settings().equalizer1.amplitude, gain);
    EXPECT_NEAR(gain, 6.0, 0.5);
    EXPECT_EQ(settings().equalizer1.width, 1.0);
    // A peaking band's response at its centre is its gain.
    EXPECT_NEAR(eq.response_at(f), gain, 0.05);

    // The drawn line: past the width bar, where the band still lifts.
    screen->paint_now();
    fs::create_directories(QUILL_TEST_OUTPUT_DIR);
    EXPECT_TRUE(skinner::write_png(std::string(QUILL_TEST_OUTPUT_DIR) + "/panel_2_band.png", screen->surface()));
    const skinner::Color line = eq.get_color(L"Line", {});
    for (double octaves : {1.0, -1.0, 3.0}) {
        const int x = eq.x_of(f * std::exp2(octaves));
        const double db = eq.response_at(eq.frequency_at(x));
        EXPECT_GT(db, octaves == 3.0 ? 0.0 : 0.5);
        int found = -1;
        for (int y = eq.position().y; y < eq.position().y + eq.size().y && found < 0; ++y) {
            if (pixel({x, y}) == line)
                found = y;
        }
        EXPECT_NEAR(found, eq.y_of(db), 1) << octaves << " octaves off the centre";
    }

    // The end of the width bar dragged one octave from the centre: two wide.
    drag(at + eq.width_point(0), at + Point{eq.x_of(f * 2.0), target.y});
    EXPECT_NEAR(settings().equalizer1.width, 2.0, 0.1);
    EXPECT_DOUBLE_EQ(settings().equalizer1.frequency, f);

    // What plays: a tone at the centre, lifted as sox's equaliser lifts it.
    const fs::path wav = dir.path() / "centre.wav";
    ASSERT_EQ(test::run("sox -n -r 44100 -b 16 -c 1 '" + wav.string() + "' synth 1 sine " + std::to_string(f) +
                        " vol 0.25"),
              0);
    const std::string sox_eq = test::run_out("sox '" + wav.string() + "' -t raw - equalizer " + std::to_string(f) +
                                             " " + std::to_string(settings().equalizer1.width) + "o " +
                                             std::to_string(gain));
    form->explorer().select(w(wav));
    click(form->play_button());
    run_until([&] { return !document->is_playing(); });
    const std::string played = without_gaps(test::read_file(out));
    const std::string original = test::sox16(wav);
    // A steady stretch, past the start of the filter.
    const double ours = 20 * std::log10(rms(played, 22050, 13230) / rms(original, 22050, 13230));
    const double sox = 20 * std::log10(rms(sox_eq, 22050, 13230) / rms(original, 22050, 13230));
    EXPECT_NEAR(ours, sox, 1.0);
    EXPECT_NEAR(ours, gain, 1.0);

    click(p.band_check(0));
    EXPECT_FALSE(eq.has_band(0));
    EXPECT_FALSE(settings().equalizer1.active);
    EXPECT_DOUBLE_EQ(eq.response_at(f), 0.0);
}

TEST_F(PanelsTest, SpeedBarSnapsNearNormalAndTheSpeedLineLightsUpOffIt)
{
    open(false);
    to_panel(3);
    PanelMoreControls& p = form->more_panel();
    const int span = bar_span(p.speed_bar());
    struct Case {
        int k;
        double speed;
        const wchar_t* shown;
    };
    for (const Case c : {Case{0, 0.5, L"x0.5"}, Case{25, 1.0, L"x1.0"}, Case{span, 2.0, L"x2.0"},
                         Case{33, 33.0 / span * 1.5 + 0.5, L"x1.2"}, Case{26, 26.0 / span * 1.5 + 0.5, L"x1.1"},
                         Case{23, 1.0, L"x1.0"}}) {
        click_bar(p.speed_bar(), c.k);
        EXPECT_DOUBLE_EQ(document->speed(), c.speed) << c.k;
        EXPECT_DOUBLE_EQ(p.speed_bar().value(), (c.speed - 0.5) * 2 / 3) << c.k;
        EXPECT_EQ(form->speed_line().text(), c.shown) << c.k;
        EXPECT_EQ(form->speed_line().highlighted(), c.speed != 1.0) << c.k;
    }
    click(p.pitch_check());
    EXPECT_TRUE(document->pitch_lock());
    EXPECT_TRUE(p.pitch_check().is_checked());
    click(p.pitch_check());
    EXPECT_FALSE(document->pitch_lock());
}

} // namespace

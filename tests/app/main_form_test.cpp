// The main window on the Default skin, headless: SDL's offscreen video and
// disk audio, driven by real SDL clicks on its buttons and by its own
// 0.2-second timer. What the disk device was handed is read back from the
// driver's file, its silence taken out; sox makes the tones with a DC
// offset, so none of their frames is that silence.
#include "app/main_form.h"

#include "app/settings.h"

#include "liba/active.h"
#include "liba/text.h"
#include "liba/timer.h"
#include "os/event_loop.h"
#include "os/path.h"
#include "skinner/form_message.h"
#include "skinner/properties.h"
#include "skinner/screen.h"
#include "tests/support/test_support.h"

#include <SDL.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <csignal>
#include <memory>
#include <sys/resource.h>

namespace fs = std::filesystem;
using skinner::Point;

namespace {

// The 16-bit mono frames of `bytes` that are not zero.
std::string without_silence(const std::string& bytes)
{
    std::string out;
    for (size_t at = 0; at + 2 <= bytes.size(); at += 2) {
        if (bytes[at] != 0 || bytes[at + 1] != 0)
            out.append(bytes, at, 2);
    }
    return out;
}

std::wstring w(const fs::path& p) { return liba::from_utf8(p.string()); }

// Whether the Document told its views anything since last asked: while
// playing it does so at the end of every tick.
class TickCounter : public Document::View {
public:
    void on_document_changed(const ChangeFlags&) override { ++count_; }
    bool taken()
    {
        const bool any = count_ != seen_;
        seen_ = count_;
        return any;
    }

private:
    int count_ = 0;
    int seen_ = 0;
};

void push_click(Point at)
{
    for (Uint32 type : {SDL_MOUSEBUTTONDOWN, SDL_MOUSEBUTTONUP}) {
        SDL_Event e{};
        e.type = type;
        e.button.button = SDL_BUTTON_LEFT;
        e.button.clicks = 1;
        e.button.x = at.x;
        e.button.y = at.y;
        SDL_PushEvent(&e);
    }
}

Point middle_of(const skinner::Control& c)
{
    return c.form()->screen_position() + c.position() + Point{c.size().x / 2, c.size().y / 2};
}

// Answers each message form that comes up while a loop runs as a user
// would, by a click on its "btnOk", noting what it said.
class MessageAnswerer : liba::Timer::Listener {
public:
    MessageAnswerer() { timer_.start(0.1); }
    ~MessageAnswerer() override = default;
    std::vector<std::wstring> forms;
    std::vector<std::wstring> captions;
    std::vector<std::wstring> texts;
    std::vector<bool> paused; // the Document while each was up

private:
    void on_timer(liba::Timer&) override
    {
        auto* m = dynamic_cast<skinner::FormMessage*>(skinner::Form::current_modal());
        if (m && m != answered_) {
            answered_ = m;
            forms.push_back(m->name());
            captions.push_back(m->caption());
            texts.push_back(m->text());
            paused.push_back(Document::instance()->is_paused());
            for (skinner::Control* c : m->children()) {
                if (c->id() == L"btnOk")
                    push_click(middle_of(*c));
            }
        }
        timer_.start(0.1);
    }
    skinner::FormMessage* answered_ = nullptr;
    liba::Timer timer_{*this};
};

class MainFormTest : public ::testing::Test {
protected:
    // `realtime`: the disk device takes a buffer as long as it sounds.
    void open(bool realtime)
    {
        os::init_path_macros();
        setenv("SDL_VIDEODRIVER", "offscreen", 1);
        setenv("SDL_AUDIODRIVER", "disk", 1);
        setenv("SDL_DISKAUDIOFILE", out.c_str(), 1);
        setenv("SDL_DISKAUDIOFILEIN", in.c_str(), 1);
        if (realtime)
            unsetenv("SDL_DISKAUDIODELAY");
        else
            setenv("SDL_DISKAUDIODELAY", "0", 1);
        document = std::make_unique<Document>(w(dir.path() / "settings.xml"));
        loop = std::make_unique<os::EventLoop>(scheduler);
        skin = std::make_unique<skinner::Properties>(
            w(test::program_dir() / "skins" / "Default" / "Default.skin"), Point{240, 320});
        EXPECT_TRUE(skin->load_language(w(test::program_dir() / "English.lng")));
        screen = std::make_unique<skinner::Screen>(*loop, Point{240, 320});
        form = std::make_unique<MainForm>(*skin, *document);
        form->show(true);
        form->set_active(true);
        screen->paint_now();
    }
    void TearDown() override
    {
        form.reset();
        screen.reset();
        skin.reset();
        loop.reset();
        document.reset();
    }
    // A mono 16-bit tone with no silent frame; its raw samples in `raw`.
    fs::path tone(const std::string& name, double seconds, std::string* raw = nullptr)
    {
        fs::path p = dir.path() / name;
        EXPECT_EQ(test::run("sox -n -r 22050 -b 16 -c 1 '" + p.string() + "' synth " + std::to_string(seconds) +
                            " sine 440 vol 0.4 dcshift 0.5"),
                  0);
        if (raw) {
            *raw = test::run_out("sox '" + p.string() + "' -t raw -");
        }
        return p;
    }
    void queue(const fs::path& file)
    {
        playlist::PlaylistEntry e;
        e.path = w(file);
        document->set_playlist(L"test", {e}, 0, false);
        document->notify_views();
    }
    // A real pointer click in the middle of `button`.
    void click(const skinner::Control& button)
    {
        push_click(middle_of(button));
        SDL_Event e;
        while (SDL_PollEvent(&e))
            screen->handle_event(e);
    }
    // Runs the loop, whose passes end on the form's ticks, until `done`.
    void run_until(const std::function<bool()>& done) { loop->run(done); }

    test::PrivateHome home;
    test::TempDir dir;
    std::string out = (dir.path() / "out.raw").string();
    std::string in = (dir.path() / "in.raw").string();
    CActiveScheduler scheduler;
    std::unique_ptr<Document> document;
    std::unique_ptr<os::EventLoop> loop;
    std::unique_ptr<skinner::Properties> skin;
    std::unique_ptr<skinner::Screen> screen;
    std::unique_ptr<MainForm> form;
};

TEST_F(MainFormTest, PlayButtonPlaysTheFileToItsEndAndButtonsFollowTheState)
{
    std::string raw;
    fs::path wav = tone("tone.wav", 1.3, &raw);
    open(false);
    EXPECT_FALSE(form->stop_button().is_enabled()) << "nothing to stop yet";
    EXPECT_FALSE(form->play_button().is_enabled()) << "nothing to play yet";
    queue(wav);
    ASSERT_TRUE(form->play_button().is_enabled());

    click(form->play_button());
    ASSERT_TRUE(document->is_playing());
    EXPECT_EQ(form->play_button().state(), 1) << "while playing the button would pause";
    EXPECT_TRUE(form->stop_button().is_enabled());
    EXPECT_TRUE(form->play_lamp().flashing());
    EXPECT_FALSE(form->record_lamp().flashing());
    EXPECT_EQ(form->title_line().text(), L"tone.wav");
    EXPECT_EQ(form->info_line().text(), L"22 kHz 16 bit 352kbps");

    // A second click pauses, a third resumes.
    click(form->play_button());
    EXPECT_TRUE(document->is_paused());
    EXPECT_EQ(form->play_button().state(), 0);
    click(form->play_button());
    EXPECT_FALSE(document->is_paused());

    // The form's own tick notices the end of the file.
    run_until([&] { return !document->is_playing(); });
    EXPECT_EQ(without_silence(test::read_file(out)), raw);
    EXPECT_EQ(form->play_button().state(), 0);
    EXPECT_FALSE(form->stop_button().is_enabled());
    EXPECT_FALSE(form->play_lamp().flashing());
    EXPECT_EQ(form->title_line().text(), L"");
    EXPECT_EQ(form->info_line().text(), L"");

    // The volume steps stop at both ends of the bar.
    struct Step {
        const wchar_t* command;
        int times;
        double volume;
    };
    for (const Step& s : {Step{L"VolumeUp", 12, 1.0}, Step{L"VolumeDown", 3, 0.7}, Step{L"VolumeDown", 12, 0.0}}) {
        for (int i = 0; i < s.times; ++i)
            EXPECT_EQ(form->on_command(s.command), 1);
        EXPECT_NEAR(document->volume(), s.volume, 1e-9) << s.command;
        EXPECT_NEAR(form->volume_bar().value(), s.volume, 1e-9) << s.command;
    }
}

TEST_F(MainFormTest, ClockShowsTheTimePlayedOrLeftInRealTimeAndStopStops)
{
    fs::path wav = tone("long.wav", 8.0);
    open(true);
    TickCounter ticks;
    queue(wav);
    click(form->play_button());
    ASSERT_TRUE(document->is_playing());
    const auto started = std::chrono::steady_clock::now();
    auto seconds = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count(); };
    // The clock shows the Document's time at each tick, and once the
    // player's queue is full that time moves as fast as the device takes
    // the sound, within the reader's step: it reads 16384 frames at a time.
    const double kReadBlock = 16384.0 / 22050.0;
    double tick_time[2];
    double shown[2];
    for (int i = 0; i < 2; ++i) {
        // Ended by a tick: its notification is the pass's last word.
        run_until([&] { return seconds() >= 2.0 + 3.0 * i && ticks.taken(); });
        tick_time[i] = seconds();
        shown[i] = document->time_position();
        // The player's thread may have pulled once more since the tick.
        const std::wstring text = form->clock().text();
        EXPECT_TRUE(text == ControlClock::format(shown[i]) || text == ControlClock::format(shown[i] - kReadBlock))
            << liba::to_utf8(text);
    }
    EXPECT_NEAR(shown[1] - shown[0], tick_time[1] - tick_time[0], kReadBlock + 0.1);
    EXPECT_GT(form->position_bar().value(), 0.25);
    // The other mode counts down what is left.
    click(form->clock_mode_button());
    EXPECT_TRUE(form->clock().shows_remaining());
    const std::wstring left = form->clock().text();
    EXPECT_TRUE(left == ControlClock::format(document->remaining_time()) ||
                left == ControlClock::format(document->remaining_time() + kReadBlock))
        << liba::to_utf8(left);
    EXPECT_NE(left, ControlClock::format(document->time_position()));
    click(form->clock_mode_button());

    click(form->stop_button());
    EXPECT_FALSE(document->is_playing());
    EXPECT_FALSE(form->stop_button().is_enabled());
    EXPECT_EQ(form->clock().text(), L"00:00:00");
    EXPECT_EQ(form->position_bar().value(), 0.0);
}

TEST_F(MainFormTest, RecordButtonRecordsIntoTheExplorersFolderPausesAndStops)
{
    ASSERT_EQ(test::run("sox -n -r 22050 -b 16 -c 1 -e signed-integer -t raw '" + in + "' synth 5 sine 300 vol 0.5"), 0);
    open(true);
    Settings s = document->settings();
    s.explorer_folder = w(dir.path() / "take");
    fs::create_directory(dir.path() / "take");
    document->apply_settings(s);
    document->notify_views();

    click(form->record_button());
    ASSERT_TRUE(document->is_recording());
    EXPECT_EQ(form->record_button().state(), 1);
    EXPECT_TRUE(form->record_lamp().flashing());
    EXPECT_FALSE(form->play_lamp().flashing());
    EXPECT_TRUE(form->stop_button().is_enabled());
    const auto started = std::chrono::steady_clock::now();
    // The clock turns to one second on the tick after the first second recorded.
    auto seconds = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count(); };
    loop->run([&] { return form->clock().text() != L"00:00:00" || seconds() > 3.0; });
    EXPECT_EQ(form->clock().text(), L"00:00:01");
    // Wall-clock bounds loose enough for a loaded machine.
    EXPECT_GT(seconds(), 0.8);
    EXPECT_LT(seconds(), 2.5);

    click(form->record_button());
    EXPECT_TRUE(document->is_paused());
    EXPECT_EQ(form->record_button().state(), 0);
    const fs::path file = document->record_file_path();
    click(form->stop_button());
    EXPECT_FALSE(document->is_recording());
    EXPECT_FALSE(form->record_lamp().flashing());
    EXPECT_EQ(file.parent_path(), dir.path() / "take");
    std::string length;
    ASSERT_EQ(test::run("soxi -D '" + file.string() + "'", &length), 0);
    EXPECT_GT(std::stod(length), 0.8);
    EXPECT_LT(std::stod(length), 2.5);
}

} // namespace

TEST_F(MainFormTest, TransportCommandsByNameMoveThroughTheListAndTheItem)
{
    const fs::path first = tone("first.wav", 12.0);
    const fs::path second = tone("second.wav", 12.0);
    open(true);
    std::vector<playlist::PlaylistEntry> items(2);
    items[0].path = w(first);
    items[1].path = w(second);
    document->set_playlist(L"two", items, 0, false);
    document->notify_views();
    ASSERT_EQ(form->on_command(L"Play"), 1);
    ASSERT_EQ(document->current_path(), w(first));
    EXPECT_TRUE(form->next_button().is_enabled());

    // The player's thread pulls on meanwhile, moving the reader by whole
    // pulls of 16384 frames (0.74 s here): a jump is 5 s plus up to two.
    double before = document->time_position();
    form->on_command(L"Forward");
    double moved = document->time_position() - before;
    EXPECT_GE(moved, 5.0 - 0.05);
    EXPECT_LE(moved, 5.0 + 1.5);
    before = document->time_position();
    form->on_command(L"Rewind");
    moved = document->time_position() - before;
    EXPECT_GE(moved, -5.0 - 0.05);
    EXPECT_LE(moved, -5.0 + 1.5);
    form->on_command(L"Next");
    EXPECT_EQ(document->current_path(), w(second));
    EXPECT_TRUE(form->previous_button().is_enabled());
    form->on_command(L"Prev");
    EXPECT_EQ(document->current_path(), w(first));
    form->on_command(L"PlayStop");
    EXPECT_FALSE(document->is_playing());

    // The modes go round, 4 back to 0.
    const int mode = document->play_mode();
    for (int i = 1; i <= 5; ++i) {
        form->on_command(L"Mode");
        EXPECT_EQ(document->play_mode(), (mode + i) % 5);
    }
    EXPECT_EQ(form->on_command(L"NoSuchCommand"), 0);
}

namespace {

// A write past the file size limit fails short instead of raising SIGXFSZ:
// a full disk as the writer sees it.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        getrlimit(RLIMIT_FSIZE, &old_);
        handler_ = std::signal(SIGXFSZ, SIG_IGN);
        rlimit small = old_;
        small.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &small);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &old_);
        std::signal(SIGXFSZ, handler_);
    }

private:
    rlimit old_{};
    void (*handler_)(int) = nullptr;
};

TEST_F(MainFormTest, AFailedRecordingPausesShowsTheErrorFormThenStopsLeavingAValidFile)
{
    ASSERT_EQ(test::run("sox -n -r 22050 -b 16 -c 1 -e signed-integer -t raw '" + in + "' synth 8 sine 300 vol 0.5"), 0);
    open(false);
    setenv("SDL_DISKAUDIODELAY", "1", 1);
    Settings s = document->settings();
    s.explorer_folder = w(dir.path());
    document->apply_settings(s);
    MessageAnswerer answerer;
    fs::path file;
    {
        FileSizeLimit limit(100000);
        click(form->record_button());
        ASSERT_TRUE(document->is_recording());
        file = document->record_file_path();
        loop->run([&] { return !document->is_recording(); });
    }
    ASSERT_EQ(answerer.forms.size(), 1u) << "one message for one failure";
    EXPECT_EQ(answerer.forms[0], L"Error");
    EXPECT_EQ(answerer.captions[0], L"Recording error");
    EXPECT_NE(answerer.texts[0].find(L"Recording stopped"), std::wstring::npos);
    EXPECT_TRUE(answerer.paused[0]) << "paused while the message is up";
    EXPECT_FALSE(form->record_lamp().flashing());
    EXPECT_FALSE(form->stop_button().is_enabled());
    EXPECT_LE(fs::file_size(file), 100000u);
    std::string length;
    ASSERT_EQ(test::run("soxi -D '" + file.string() + "'", &length), 0);
    EXPECT_GT(std::stod(length), 1.0);
}

} // namespace

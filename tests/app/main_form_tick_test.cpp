// The main window's tick: the clock and meters of what is heard, the screen
// saver and the display's turn-off, items that fail to open, and the error
// form of a failed recording.
#include "tests/app/main_form_fixture.h"

#include <dirent.h>
#include <sched.h>
#include <set>
#include <sys/resource.h>
#include <thread>

using namespace main_form_test;

namespace {

// The item paths the Document went through, as its views heard them.
class ItemTrail : public Document::View {
public:
    explicit ItemTrail(Document& document) : document_(document) {}
    void on_document_changed(const ChangeFlags&) override
    {
        const std::wstring& path = document_.current_path();
        if (!path.empty() && (paths.empty() || paths.back() != path))
            paths.push_back(path);
    }
    std::vector<std::wstring> paths;

private:
    Document& document_;
};

TEST_F(MainFormTest, ClockAndBarShowTheTimeHeardMetersTheLevelAndPlayingHoldsOffTheScreenSaver)
{
    // A sine of -6 dBFS: its peak is half of full scale.
    const fs::path wav = dir.path() / "half.wav";
    constexpr double kLength = 8.0;
    ASSERT_EQ(test::run("sox -n -r 22050 -b 16 -c 1 '" + wav.string() + "' synth 8 sine 440 vol 0.5"), 0);
    open(true);
    Settings s = document->settings();
    s.turn_off_play = 30;
    s.turn_off_record = 60;
    document->apply_settings(s);
    TickCounter ticks;
    run_until([&] { return ticks.taken() || form->ticks() > 0; });
    EXPECT_TRUE(SDL_IsScreenSaverEnabled()) << "idle";
    ASSERT_NE(form->power().power_manager(), nullptr);
    EXPECT_EQ(form->power().power_manager()->interval(), 0.0) << "idle: never off";

    queue(wav);
    click(form->play_button());
    ASSERT_TRUE(document->is_playing());
    const auto started = std::chrono::steady_clock::now();
    auto seconds = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count(); };
    run_until([&] { return seconds() >= 1.0 && ticks.taken(); });
    const double wall_then = seconds();
    const double shown_then = form->position_bar().value() * kLength;
    EXPECT_FALSE(SDL_IsScreenSaverEnabled()) << "playing";
    EXPECT_TRUE(form->power().play_armed());
    EXPECT_EQ(form->power().power_manager()->interval(), 30.0);
    EXPECT_NEAR(document->output_level(), 0.5, 0.02);
    EXPECT_NEAR(document->player_status().peak[0], 0.5, 0.02);

    // Four seconds on the clock moved as far as the wall clock, and it
    // shows what the disk device took (one 16-bit frame per 1/22050 s),
    // not what the reader read ahead.
    run_until([&] { return seconds() >= 5.0 && ticks.taken(); });
    const double wall = seconds();
    const double device = static_cast<double>(fs::file_size(out)) / (2 * 22050);
    const double shown = form->position_bar().value() * kLength;
    // The disk device paces itself by sleeping, and falls behind the wall
    // clock on a loaded machine: what it took is the measure of what was
    // heard, the wall clock only a rough one.
    EXPECT_NEAR(shown - shown_then, wall - wall_then, 0.5);
    EXPECT_NEAR(shown, device, 0.2) << "the reader is " << document->time_position() << " s in";
    EXPECT_GT(document->time_position() - shown, 0.5) << "the reader runs ahead";
    EXPECT_EQ(form->clock().text(), ControlClock::format(shown));
    click(form->clock_mode_button());
    EXPECT_TRUE(form->clock().shows_remaining());
    EXPECT_EQ(form->clock().text(), ControlClock::format(kLength - shown));
    click(form->clock_mode_button());

    click(form->stop_button());
    EXPECT_FALSE(document->is_playing());
    EXPECT_EQ(form->clock().text(), L"00:00:00");
    EXPECT_EQ(form->position_bar().value(), 0.0);
    run_until([&] { return !form->power().play_armed(); });
    EXPECT_TRUE(SDL_IsScreenSaverEnabled()) << "idle again";
    EXPECT_EQ(form->power().power_manager()->interval(), 0.0);
    EXPECT_EQ(document->output_level(), 0.0);
}

TEST_F(MainFormTest, AnItemThatFailsIsSkippedOrStopsByTheModeAndOnlyAWmaSaysSoWhileTicksWait)
{
    const fs::path first = tone("first.wav", 0.4);
    const fs::path last = tone("last.wav", 0.4);
    open(false);
    struct Case {
        int mode;
        int start;
        const char* missing;
        std::vector<int> trail; // items by index, in the order they came
    };
    const Case cases[] = {
        {0, 1, "gone.wav", {1}},          // single: it stops
        {1, 1, "gone.wav", {1}},          // single repeat: a pass of one failed
        {2, 0, "gone.wav", {0, 1, 2}},    // the list once: skipped
        {3, 0, "gone.wav", {0, 1, 2, 0}}, // the list again and again
        {4, 0, "gone.wav", {}},           // shuffled: all three, in some order
        {2, 0, "gone.wma", {0, 1, 2}},    // skipped too, with a word
    };
    for (const Case& c : cases) {
        SCOPED_TRACE("mode " + std::to_string(c.mode) + " " + c.missing);
        const fs::path missing = dir.path() / c.missing;
        std::vector<playlist::PlaylistEntry> items(3);
        items[0].path = w(first);
        items[1].path = w(missing);
        items[2].path = w(last);
        const std::wstring paths[] = {items[0].path, items[1].path, items[2].path};
        // The tick's own dialog stays up for half a second: ticks meanwhile
        // wait, and none comes back into the tick.
        MessageAnswerer answerer(5);
        int ticks_seen = -1;
        int held_seen = -1;
        answerer.when_seen = [&] {
            ticks_seen = form->ticks();
            held_seen = form->ticks_held();
        };
        answerer.when_answered = [&] {
            EXPECT_EQ(form->ticks(), ticks_seen) << "a tick came back in";
            EXPECT_GE(form->ticks_held() - held_seen, 2);
        };
        document->set_play_mode(c.mode);
        document->set_playlist(L"three", items, c.start, false);
        ItemTrail trail(*document);
        document->play_item(c.start, 0);
        document->notify_views();
        auto seen_all = [&] {
            for (const std::wstring& p : paths) {
                if (std::find(trail.paths.begin(), trail.paths.end(), p) == trail.paths.end())
                    return false;
            }
            return true;
        };
        // Read from the Document itself: a stop that no view hears of still ends the wait.
        auto stopped = [&] { return !document->is_playing() && document->current_path().empty(); };
        run_until([&] { return stopped() || (c.mode >= 3 && trail.paths.size() >= 4) || (c.mode == 4 && seen_all()); });
        if (c.mode >= 3) {
            EXPECT_FALSE(stopped()) << "a failed item never stops a repeating list";
            form->on_command(L"Stop");
        }
        if (c.trail.empty()) {
            EXPECT_TRUE(seen_all());
        } else {
            std::vector<std::wstring> expected;
            for (int i : c.trail)
                expected.push_back(paths[i]);
            trail.paths.resize(std::min(trail.paths.size(), expected.size()));
            EXPECT_EQ(trail.paths, expected);
        }
        const bool wma = std::string(c.missing).ends_with(".wma");
        ASSERT_EQ(answerer.forms.size(), wma ? 1u : 0u);
        if (wma) {
            EXPECT_EQ(answerer.forms[0], L"Error");
            EXPECT_EQ(answerer.captions[0], skin->translate(L"NO_WMA_CAPTION"));
            EXPECT_EQ(answerer.texts[0], skin->translate(L"NO_WMA"));
            EXPECT_GE(ticks_seen, 0);
        }
        EXPECT_FALSE(document->is_playing());
    }
}

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
        run_until([&] { return !document->is_recording(); });
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

// A writer that gets the processor only when nothing else wants it: every
// thread of the process on one processor, and the threads the Document
// starts (the player's and the active buffer's, which writes the file)
// idle-scheduled. Capture at full speed then leaves the recording behind.
class StarvedWriter {
public:
    // Before the Document is made.
    StarvedWriter()
    {
        sched_getaffinity(0, sizeof(old_), &old_);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(sched_getcpu(), &one);
        sched_setaffinity(0, sizeof(one), &one);
        before_ = threads();
    }
    // After it is made.
    void starve()
    {
        const sched_param none{};
        for (pid_t t : threads()) {
            if (!before_.count(t))
                sched_setscheduler(t, SCHED_IDLE, &none);
        }
    }
    ~StarvedWriter() { sched_setaffinity(0, sizeof(old_), &old_); }

private:
    static std::set<pid_t> threads()
    {
        std::set<pid_t> out;
        if (DIR* d = opendir("/proc/self/task")) {
            while (dirent* e = readdir(d)) {
                if (e->d_name[0] != '.')
                    out.insert(static_cast<pid_t>(std::stol(e->d_name)));
            }
            closedir(d);
        }
        return out;
    }
    cpu_set_t old_{};
    std::set<pid_t> before_;
};

TEST_F(MainFormTest, StopDrainsABacklogUnderTheProgressFormRecordStopInPlaceAndAFullBufferFails)
{
    // Stereo at 44.1 kHz, captured as fast as the disk driver reads.
    ASSERT_EQ(test::run("sox -n -r 44100 -b 16 -c 2 -e signed-integer -t raw '" + in + "' synth 20 sine 300 vol 0.5"), 0);
    StarvedWriter writer;
    open(false);
    writer.starve();
    Settings s = document->settings();
    s.explorer_folder = w(dir.path());
    s.channels = 2;
    s.samples = 44100;
    s.bitrate = 128000;
    document->apply_settings(s);
    auto backlog_past = [&](std::int32_t bytes) {
        const auto started = std::chrono::steady_clock::now();
        while (document->record_backlog() <= bytes && std::chrono::steady_clock::now() - started < std::chrono::seconds(20))
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return document->record_backlog() > bytes;
    };
    auto valid_length = [](const fs::path& file) {
        std::string length;
        EXPECT_EQ(test::run("soxi -D '" + file.string() + "'", &length), 0);
        return length.empty() ? 0.0 : std::stod(length);
    };

    // Stopped by name: "Stop" drains under the progress form, "RecordStop"
    // in place. No tick comes meanwhile: the loop doesn't run.
    for (const wchar_t* command : {L"RecordStop", L"Stop"}) {
        SCOPED_TRACE(liba::to_utf8(command));
        MessageAnswerer answerer(0, 0.02);
        ASSERT_EQ(form->on_command(L"Record"), 1);
        const fs::path file = document->record_file_path();
        ASSERT_TRUE(backlog_past(10 * Document::kDrainQuietBytes)) << "the writer kept up";
        ASSERT_EQ(form->on_command(command), 1);
        EXPECT_FALSE(document->is_recording());
        const std::vector<std::wstring> progress = {L"SaveActiveBuffer"};
        EXPECT_EQ(answerer.modals, std::wstring(command) == L"Stop" ? progress : std::vector<std::wstring>{});
        EXPECT_GT(valid_length(file), 1.0);
    }

    // Left running, the buffer fills up and the recording fails: the error,
    // paused, then the drain under the progress form; the disk is full
    // meanwhile, and what fitted stays a valid file.
    MessageAnswerer answerer(0, 0.02);
    fs::path file;
    {
        FileSizeLimit limit(200000);
        ASSERT_EQ(form->on_command(L"Record"), 1);
        file = document->record_file_path();
        run_until([&] { return !document->is_recording(); });
    }
    const std::vector<std::wstring> modals = {L"Error", L"SaveActiveBuffer"};
    EXPECT_EQ(answerer.modals, modals);
    ASSERT_EQ(answerer.paused.size(), 1u);
    EXPECT_TRUE(answerer.paused[0]);
    EXPECT_LE(fs::file_size(file), 200000u);
    EXPECT_GT(valid_length(file), 5.0);
}

} // namespace

// The main window's keys, hardware keys, joystick and menus on the Default
// skin, headless (offscreen video, disk audio), driven by real SDL key
// events. sox makes the tones that play.
#include "tests/app/main_form_fixture.h"

#include "dialogs/form_about.h"
#include "skinner/form_impl.h"
#include "skinner/menu_drop_down.h"
#include "skinner/png_writer.h"

#include <cmath>
#include <fstream>
#include <thread>
#include <utility>

using namespace main_form_test;

namespace {

// Runs one step on each tick of 0.1 s; past the last, `overdue` once.
class Script : liba::Timer::Listener {
public:
    Script(std::vector<std::function<void()>> steps, std::function<void()> overdue)
        : steps_(std::move(steps)), overdue_(std::move(overdue))
    {
        timer_.start(0.1);
    }
    ~Script() override = default;
    bool done() const { return next_ >= steps_.size(); }

private:
    void on_timer(liba::Timer&) override
    {
        if (next_ < steps_.size()) {
            steps_[next_++]();
        } else if (overdue_) {
            std::exchange(overdue_, nullptr)();
            return;
        }
        timer_.start(0.1);
    }
    std::vector<std::function<void()>> steps_;
    std::function<void()> overdue_;
    size_t next_ = 0;
    liba::Timer timer_{*this};
};

// Keys pressed and let go, for the event loop to deliver.
void push_keys(std::initializer_list<SDL_Keycode> keys)
{
    for (SDL_Keycode key : keys)
        for (Uint32 type : {SDL_KEYDOWN, SDL_KEYUP}) {
            SDL_Event e{};
            e.type = type;
            e.key.keysym.sym = key;
            SDL_PushEvent(&e);
        }
}

class MainFormKeysTest : public MainFormTest {
protected:
    void SetUp() override
    {
        open(true);
        form->set_program_folder(w(test::program_dir()));
    }
    // A key pressed and let go, as SDL reports it, with its modifiers.
    void key(SDL_Keycode sym, Uint16 mod = KMOD_NONE)
    {
        for (Uint32 type : {SDL_KEYDOWN, SDL_KEYUP}) {
            SDL_Event e{};
            e.type = type;
            e.key.keysym.sym = sym;
            e.key.keysym.mod = mod;
            SDL_PushEvent(&e);
        }
        SDL_Event e;
        while (SDL_PollEvent(&e))
            screen->handle_event(e);
    }
    void change_settings(const std::function<void(Settings&)>& change)
    {
        Settings s = document->settings();
        change(s);
        document->apply_settings(s);
    }
};

// What a key may change, read before and after it.
struct Seen {
    bool playing, paused, recording;
    std::wstring path;
    double time, volume;
    int mode, marks, panel, zoom;
    bool remaining;
    std::wstring mode_label;
};

} // namespace

TEST_F(MainFormKeysTest, EveryCommandHasAKeyAndTheMediaKeysTheirOwn)
{
    const fs::path first = tone("first.wav", 12.0);
    const fs::path second = tone("second.wav", 12.0);
    // The disk device's input, recorded into the explorer's folder.
    ASSERT_EQ(test::run("sox -n -r 22050 -b 16 -c 1 -e signed-integer -t raw '" + in +
                        "' synth 5 sine 300 vol 0.5"),
              0);
    fs::create_directories(liba::to_utf8(document->settings().explorer_folder));
    std::vector<playlist::PlaylistEntry> items(2);
    items[0].path = w(first);
    items[1].path = w(second);
    document->set_playlist(L"two", items, 0, false);
    document->set_volume(0.5);
    document->notify_views();

    auto seen = [&] {
        return Seen{document->is_playing(), document->is_paused(), document->is_recording(),
                    document->current_path(), document->time_position(), document->volume(),
                    document->play_mode(), document->bookmarks().count(), form->panel_button().state(),
                    screen->zoom(), form->clock().shows_remaining(), form->mode_menu().text()};
    };
    // The player pulls on meanwhile: a 5-second jump lands within a pull or two.
    auto jumped = [](double by) {
        return [by](const Seen& a, const Seen& b) { return std::abs(b.time - a.time - by) < 1.6; };
    };
    auto volume_by = [](double by) {
        return [by](const Seen& a, const Seen& b) { return std::abs(b.volume - a.volume - by) < 1e-9; };
    };
    const Uint16 shift = KMOD_LSHIFT, ctrl = KMOD_LCTRL;
    struct Case {
        SDL_Keycode key;
        Uint16 mod;
        std::function<bool(const Seen&, const Seen&)> done;
    };
    const Case cases[] = {
        {SDLK_SPACE, 0, [&](const Seen&, const Seen& b) { return b.playing && !b.paused && b.path == w(first); }},
        {SDLK_SPACE, 0, [](const Seen&, const Seen& b) { return b.playing && b.paused; }},
        {SDLK_AUDIOPLAY, 0, [](const Seen&, const Seen& b) { return b.playing && !b.paused; }},
        {SDLK_RIGHTBRACKET, 0, jumped(5.0)},
        {SDLK_LEFTBRACKET, 0, jumped(-5.0)},
        {SDLK_AUDIOFASTFORWARD, 0, jumped(5.0)},
        {SDLK_n, 0, [&](const Seen&, const Seen& b) { return b.path == w(second); }},
        {SDLK_p, 0, [&](const Seen&, const Seen& b) { return b.path == w(first); }},
        {SDLK_AUDIONEXT, 0, [&](const Seen&, const Seen& b) { return b.path == w(second); }},
        {SDLK_b, 0, [](const Seen& a, const Seen& b) { return b.marks == a.marks + 1; }},
        {SDLK_m, 0,
         [](const Seen& a, const Seen& b) {
             return b.mode == (a.mode + 1) % 5 && b.mode_label != a.mode_label && !b.mode_label.empty();
         }},
        {SDLK_c, 0, [](const Seen& a, const Seen& b) { return b.remaining != a.remaining; }},
        {SDLK_EQUALS, 0, volume_by(0.1)},
        {SDLK_EQUALS, shift, volume_by(0.1)},
        {SDLK_KP_PLUS, 0, volume_by(0.1)},
        {SDLK_MINUS, 0, volume_by(-0.1)},
        {SDLK_KP_MINUS, 0, volume_by(-0.1)},
        {SDLK_VOLUMEDOWN, 0, volume_by(-0.1)},
        // With Control, plus and minus zoom the screen and leave the volume.
        {SDLK_EQUALS, ctrl, [](const Seen& a, const Seen& b) { return b.zoom == 2 && b.volume == a.volume; }},
        {SDLK_MINUS, ctrl, [](const Seen& a, const Seen& b) { return b.zoom == 1 && b.volume == a.volume; }},
        {SDLK_F2, 0, [](const Seen& a, const Seen& b) { return b.panel == (a.panel + 1) % 4; }},
        {SDLK_SPACE, shift, [](const Seen&, const Seen& b) { return !b.playing; }},
        {SDLK_SPACE, 0, [](const Seen&, const Seen& b) { return b.playing; }},
        {SDLK_s, 0, [](const Seen&, const Seen& b) { return !b.playing; }},
        {SDLK_r, 0, [](const Seen&, const Seen& b) { return b.recording && !b.paused; }},
        {SDLK_r, 0, [](const Seen&, const Seen& b) { return b.recording && b.paused; }},
        {SDLK_r, shift, [](const Seen&, const Seen& b) { return !b.recording; }},
        // A letter with Alt is the desktop's.
        {SDLK_s, KMOD_LALT, [](const Seen& a, const Seen& b) { return a.mode == b.mode && !b.playing; }},
    };
    for (const Case& c : cases) {
        const Seen before = seen();
        key(c.key, c.mod);
        EXPECT_TRUE(c.done(before, seen())) << SDL_GetKeyName(c.key) << " with modifiers " << c.mod;
    }
    key(SDLK_q, ctrl);
    EXPECT_FALSE(form->is_visible()) << "Ctrl+Q closes the window";
}

TEST_F(MainFormKeysTest, HardwareKeysAndTheJoystickFollowTheSettings)
{
    // The settings as the menu's "Settings" applies them: the keys follow.
    change_settings([](Settings& s) {
        s.buttons[0] = L"Mode";    // the media Play key
        s.buttons[1] = L"";        // Stop: no command, left to the forms
        s.buttons[8] = L"ClockMode"; // F5
        s.joy_left_action = L"";
        s.joy_right_action = L"VolumeUp";
    });
    EXPECT_EQ(form->hardware_keys()->command(0), L"Play") << "assigned only when the settings go through the form";
    {
        MessageAnswerer answer;
        form->on_command(L"Settings");
        ASSERT_EQ(answer.texts.size(), 1u) << "a message says the settings pages are still to come";
        EXPECT_EQ(answer.captions[0], L"Settings");
        EXPECT_NE(answer.texts[0], L"SettingsFormMissing") << "translated";
    }
    const int mode = document->play_mode();
    key(SDLK_AUDIOPLAY);
    EXPECT_EQ(document->play_mode(), (mode + 1) % 5);
    EXPECT_FALSE(form->hardware_keys()->is_assigned(1));
    const bool remaining = form->clock().shows_remaining();
    key(SDLK_F5);
    EXPECT_NE(form->clock().shows_remaining(), remaining);

    // Up, down and the action key belong to the file list while it shows;
    // left and right run the right action when the left one is empty.
    document->set_volume(0.2);
    struct Case {
        SDL_Keycode key;
        double volume_after;
    };
    const auto run = [&](std::initializer_list<Case> cases, const char* what) {
        for (const Case& c : cases) {
            key(c.key);
            EXPECT_NEAR(document->volume(), c.volume_after, 1e-9) << what << ", key " << SDL_GetKeyName(c.key);
        }
    };
    ASSERT_EQ(form->panel_button().state(), 0);
    run({{SDLK_UP, 0.2}, {SDLK_DOWN, 0.2}, {SDLK_RIGHT, 0.3}, {SDLK_LEFT, 0.4}}, "explorer shown, left empty");
    key(SDLK_F2);
    run({{SDLK_UP, 0.5}, {SDLK_RETURN, 0.6}, {SDLK_LEFT, 0.7}}, "explorer hidden, left empty");
    change_settings([](Settings& s) { s.joy_left_action = L"VolumeDown"; });
    run({{SDLK_LEFT, 0.6}, {SDLK_DOWN, 0.5}, {SDLK_RIGHT, 0.6}}, "explorer hidden, both set");
}

TEST_F(MainFormKeysTest, FileMenuEntriesOpenHelpAboutAndExitWhileTheWindowRunsModally)
{
    // A stand-in for the desktop's opener notes what it was asked to open.
    const fs::path bin = dir.path() / "bin";
    const fs::path args = dir.path() / "args";
    fs::create_directories(bin);
    std::ofstream(bin / "xdg-open") << "#!/bin/sh\nprintf '%s\\n' \"$@\" > '" << args.string() << ".tmp'\nmv '"
                                    << args.string() << ".tmp' '" << args.string() << "'\n";
    fs::permissions(bin / "xdg-open", fs::perms::owner_all);
    const std::string old_path = getenv("PATH");
    setenv("PATH", (bin.string() + ":" + old_path).c_str(), 1);
    const std::string help = (test::program_dir() / "help" / "index.html").string() + "\n";
    auto opened = [&] {
        for (int i = 0; i < 100 && !fs::exists(args); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        std::string got = test::read_file(args);
        fs::remove(args);
        return got;
    };
    const fs::path png = fs::path(QUILL_TEST_OUTPUT_DIR) / "about_box.png";
    fs::create_directories(png.parent_path());
    int mode = 0;
    const int entry_height = form->menu_bar()->strip_height();
    auto drop = [&] {
        skinner::MenuDropDown* d = form->menu_bar()->drop_down();
        return d && d->is_visible() ? d : nullptr;
    };

    // The window runs as the program runs it, modally; the user's keys come
    // one step a tenth of a second, each step checking what the last did.
    std::vector<std::function<void()>> steps = {
        [&] { push_keys({SDLK_F10}); },
        [&] {
            ASSERT_NE(drop(), nullptr) << "F10 drops the file menu down";
            std::vector<std::wstring> labels;
            for (const skinner::MenuRecord& r : drop()->menu().sub_items)
                labels.push_back(r.text);
            EXPECT_EQ(labels, (std::vector<std::wstring>{L"Settings", L"Help", L"About", L"Exit"}));
            push_keys({SDLK_DOWN, SDLK_RETURN});
        },
        [&] {
            EXPECT_EQ(opened(), help) << "Help from the menu";
            push_keys({SDLK_F1});
        },
        [&] {
            EXPECT_EQ(opened(), help) << "Help by F1";
            push_keys({SDLK_F10, SDLK_DOWN, SDLK_DOWN, SDLK_RETURN});
        },
        [&] {
            // The settings skin's about box, over the window.
            auto* about = dynamic_cast<dialogs::FormAbout*>(skinner::Form::current_modal());
            ASSERT_NE(about, nullptr);
            EXPECT_EQ(about->caption(), L"About");
            EXPECT_EQ(about->title_text(), L"Kelb Quillaphonics v1.8");
            about->paint_dirty();
            EXPECT_TRUE(skinner::write_png(png.string(), about->impl().back_buffer()));
            push_keys({SDLK_F10});
        },
        [&] {
            EXPECT_EQ(drop(), nullptr) << "the menu bar waits while the about box is up";
            push_keys({SDLK_RETURN});
        },
        [&] {
            EXPECT_EQ(skinner::Form::current_modal(), form.get()) << "Enter closed the about box";
            // A tap on the bar's mode entry: the next mode, named on the entry.
            mode = document->play_mode();
            const auto& entry = form->menu_bar()->entries().at(1);
            push_click({entry.x + entry.width / 2, 320 + entry_height / 2});
        },
        [&] {
            EXPECT_EQ(document->play_mode(), (mode + 1) % 5);
            const wchar_t* names[] = {L"Single file", L"Repeat single file", L"All files in order",
                                      L"Repeat all files", L"Shuffle"};
            EXPECT_EQ(form->mode_menu().text(), names[(mode + 1) % 5]) << "in the English of the language file";
            push_keys({SDLK_F10, SDLK_UP, SDLK_SPACE});
        },
    };
    Script script(std::move(steps), [&] { ADD_FAILURE() << "Exit did not end the window's loop"; form->close(); });
    form->do_modal();
    setenv("PATH", old_path.c_str(), 1);
    EXPECT_TRUE(script.done());
    EXPECT_FALSE(form->is_visible());
}

#pragma once

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
#include <functional>
#include <csignal>
#include <memory>
#include <sys/resource.h>

namespace fs = std::filesystem;
using skinner::Point;

namespace main_form_test {

// The 16-bit mono frames of `bytes` that are not zero.
inline std::string without_silence(const std::string& bytes)
{
    std::string out;
    for (size_t at = 0; at + 2 <= bytes.size(); at += 2) {
        if (bytes[at] != 0 || bytes[at + 1] != 0)
            out.append(bytes, at, 2);
    }
    return out;
}

inline std::wstring w(const fs::path& p) { return liba::from_utf8(p.string()); }

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

inline void push_click(Point at)
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

inline Point middle_of(const skinner::Control& c)
{
    return c.form()->screen_position() + c.position() + Point{c.size().x / 2, c.size().y / 2};
}

// Answers each message form that comes up while a loop runs as a user
// would, by a click on its "btnOk", noting what it said.
class MessageAnswerer : liba::Timer::Listener {
public:
    // Each message form is answered after `wait_polls` polls of `period`.
    explicit MessageAnswerer(int wait_polls = 0, double period = 0.1) : wait_polls_(wait_polls), period_(period)
    {
        timer_.start(period_);
    }
    ~MessageAnswerer() override = default;
    std::vector<std::wstring> modals; // every modal form seen, message or not
    std::vector<std::wstring> forms;
    std::vector<std::wstring> captions;
    std::vector<std::wstring> texts;
    std::vector<bool> paused; // the Document while each was up
    std::function<void()> when_seen;
    std::function<void()> when_answered;

private:
    void on_timer(liba::Timer&) override
    {
        skinner::Form* top = skinner::Form::current_modal();
        if (top != seen_) {
            seen_ = top;
            answered_ = false;
            polls_ = 0;
            if (top)
                modals.push_back(top->name());
        }
        auto* m = dynamic_cast<skinner::FormMessage*>(top);
        if (m && !answered_ && polls_++ == 0) {
            forms.push_back(m->name());
            captions.push_back(m->caption());
            texts.push_back(m->text());
            paused.push_back(Document::instance()->is_paused());
            if (when_seen)
                when_seen();
        }
        if (m && !answered_ && polls_ > wait_polls_) {
            answered_ = true;
            if (when_answered)
                when_answered();
            for (skinner::Control* c : m->children()) {
                if (c->id() == L"btnOk")
                    push_click(middle_of(*c));
            }
        }
        timer_.start(period_);
    }
    int wait_polls_;
    double period_;
    int polls_ = 0;
    skinner::Form* seen_ = nullptr;
    bool answered_ = false;
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

} // namespace main_form_test

// The display's turn-off: on a fake display with SDL's offscreen video, and
// on a real X server (Xvfb), whose DPMS support `xset q` reports.
#include "skinner/power_manager.h"

#include "liba/active.h"
#include "os/event_loop.h"
#include "skinner/screen.h"
#include "tests/support/test_support.h"

#include <SDL.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>

// SDL's X11 video opens the session bus through libdbus, which keeps an
// allocation past SDL_Quit.
extern "C" const char* __lsan_default_suppressions() { return "leak:libdbus-1.so\n"; }

namespace {

using Clock = std::chrono::steady_clock;

struct FakeDisplay : skinner::PowerManagerImpl::Display {
    bool on = true;
    bool focus = true;
    int switches = 0;
    bool set_power(bool power) override
    {
        ++switches;
        on = power;
        return true;
    }
    bool is_power_on() const override { return on; }
    bool has_focus() const override { return focus; }
};

// A real display's monitor with the focus taken as given: a window on a
// server without a window manager may never get it.
struct FocusedDisplay : skinner::PowerManagerImpl::Display {
    std::unique_ptr<skinner::PowerManagerImpl::Display> real;
    bool set_power(bool power) override { return real->set_power(power); }
    bool is_power_on() const override { return real->is_power_on(); }
    bool has_focus() const override { return true; }
};

void press_key(skinner::Screen& screen)
{
    SDL_Event e{};
    e.type = SDL_KEYDOWN;
    e.key.keysym.sym = SDLK_a;
    screen.handle_event(e);
}

class PowerManagerTest : public ::testing::Test {
protected:
    void open(const char* driver)
    {
        setenv("SDL_VIDEODRIVER", driver, 1);
        loop = std::make_unique<os::EventLoop>(scheduler);
        screen = std::make_unique<skinner::Screen>(*loop, skinner::Point{240, 320});
        screen->set_key_filter([this](SDL_Keycode) {
            ++keys_passed_on;
            return false;
        });
    }
    void TearDown() override
    {
        power.reset();
        screen.reset();
        loop.reset();
    }
    // Runs the loop, whose passes end on the power manager's checks, for
    // `seconds` or until `done`; the seconds it ran.
    double run_for(double seconds, const std::function<bool()>& done = {})
    {
        const auto start = Clock::now();
        auto elapsed = [&] { return std::chrono::duration<double>(Clock::now() - start).count(); };
        loop->run([&] { return elapsed() >= seconds || (done && done()); });
        return elapsed();
    }

    test::PrivateHome home;
    std::unique_ptr<test::XServer> server; // outlives the window on it
    CActiveScheduler scheduler;
    std::unique_ptr<os::EventLoop> loop;
    std::unique_ptr<skinner::Screen> screen;
    std::unique_ptr<skinner::PowerManagerImpl> power;
    int keys_passed_on = 0;
};

TEST_F(PowerManagerTest, AFakeDisplayGoesOffAfterTheIntervalWithFocusOnlyAndOnAtAPress)
{
    open("offscreen");
    auto owned = std::make_unique<FakeDisplay>();
    FakeDisplay& display = *owned;
    power = std::make_unique<skinner::PowerManagerImpl>(*screen, std::move(owned), 0.05);

    // Interval 0: never off.
    run_for(0.5);
    EXPECT_TRUE(display.on);
    EXPECT_EQ(display.switches, 0);

    // Without the focus the idle time starts afresh at every check.
    power->set_interval(0.3);
    display.focus = false;
    run_for(0.6);
    EXPECT_TRUE(display.on);

    // With it, off once the interval has passed since the last check
    // without focus, and only then.
    display.focus = true;
    const double off_after = run_for(3.0, [&] { return !display.on; });
    EXPECT_FALSE(display.on);
    EXPECT_FALSE(power->is_display_on());
    EXPECT_GE(off_after, 0.3 - 0.05) << "counted from the last check without focus";
    EXPECT_LT(off_after, 1.5);
    // Off stays off and starts no new count.
    const int switches = display.switches;
    run_for(0.5);
    EXPECT_EQ(display.switches, switches);

    // A key wakes it and still goes on to the forms; a press while on
    // switches nothing but restarts the idle time.
    press_key(*screen);
    EXPECT_TRUE(display.on);
    EXPECT_EQ(keys_passed_on, 1);
    for (int i = 0; i < 4; ++i) {
        run_for(0.2);
        press_key(*screen);
    }
    EXPECT_TRUE(display.on) << "pressed within the interval all along";
    EXPECT_EQ(display.switches, switches + 1);
    EXPECT_EQ(keys_passed_on, 5);

    // A mouse button wakes it too.
    run_for(3.0, [&] { return !display.on; });
    ASSERT_FALSE(display.on);
    SDL_Event e{};
    e.type = SDL_MOUSEBUTTONDOWN;
    e.button.button = SDL_BUTTON_LEFT;
    screen->handle_event(e);
    EXPECT_TRUE(display.on);
}

TEST_F(PowerManagerTest, AnXServerMonitorFollowsDpmsWhereTheServerHasIt)
{
    server = std::make_unique<test::XServer>();
    ASSERT_FALSE(server->display().empty()) << "Xvfb did not start";
    setenv("DISPLAY", server->display().c_str(), 1);
    open("x11");
    ASSERT_STREQ(SDL_GetCurrentVideoDriver(), "x11");
    const std::string xset = "xset -display " + server->display() + " q";
    std::string query;
    ASSERT_EQ(test::run(xset, &query), 0);
    const bool dpms = query.find("Server does not have the DPMS Extension") == std::string::npos;

    auto display = std::make_unique<FocusedDisplay>();
    display->real = skinner::PowerManagerImpl::make_display(screen->window());
    power = std::make_unique<skinner::PowerManagerImpl>(*screen, std::move(display), 0.05);
    power->set_interval(0.2);
    // Past the interval several times over; with DPMS it goes off at once.
    run_for(dpms ? 3.0 : 0.6, [&] { return !power->is_display_on(); });
    ASSERT_EQ(test::run(xset, &query), 0);
    if (dpms) {
        EXPECT_FALSE(power->is_display_on());
        EXPECT_NE(query.find("Monitor is Off"), std::string::npos) << query;
        press_key(*screen);
        ASSERT_EQ(test::run(xset, &query), 0);
        EXPECT_NE(query.find("Monitor is On"), std::string::npos) << query;
    } else {
        // Nothing to switch: the display counts as on and nothing fails.
        EXPECT_TRUE(power->is_display_on());
        press_key(*screen);
    }
    EXPECT_TRUE(power->is_display_on());
    EXPECT_EQ(keys_passed_on, 1);
}

} // namespace

#include "form_test_support.h"

#include "skinner/control_button.h"
#include "skinner/control_frame.h"
#include "skinner/control_picture.h"
#include "skinner/form_impl.h"
#include "skinner/hardware_keys.h"
#include "liba/timer.h"

#include "skin_test_support.h"
#include "tests/support/test_support.h"

#include <algorithm>

#include <gtest/gtest.h>

using form_test::RecordingForm;
using form_test::TestScreen;
using skinner::Point;

namespace {

// The "Buttons" form of the test skin with the controls the code makes.
class ButtonsForm : public RecordingForm {
public:
    explicit ButtonsForm(skinner::Properties& p) : RecordingForm(p, L"Buttons")
    {
        show(true);
        set_active(true);
    }
    skinner::ControlButton ok{this, L"btnOk"};
    skinner::ControlButton cancel{this, L"btnCancel"};
    skinner::ControlButton disabled{this, L"btnDisabled"};
    skinner::ControlButton hidden{this, L"btnHidden"};
    skinner::ControlCheckBox loop{this, L"chkLoop"};
    skinner::ControlPicture masked{this, L"picMasked"};
};

// Counts the text and keys that reach it.
class KeyCounter : public skinner::Control {
public:
    explicit KeyCounter(skinner::Container* c) : Control(c, L"", skinner::kNoSkin) {}
    bool on_text(const std::wstring& t) override
    {
        texts += t;
        return true;
    }
    bool on_keydown(int key) override
    {
        keys.push_back(key);
        return false;
    }
    std::wstring texts;
    std::vector<int> keys;
};

} // namespace

TEST(Form, ButtonClicksOnReleaseInsideOnlyAndNeverThroughADisabledOne)
{
    TestScreen screen(2);
    ButtonsForm form(screen.properties());
    screen.settle();
    EXPECT_EQ(form.ok.size(), (Point{192, 64}));

    screen.press_at(form.center_of(L"btnOk"));
    EXPECT_TRUE(form.ok.is_active());
    EXPECT_EQ(form.capture(), &form.ok);
    EXPECT_EQ(form.clicks_of(L"btnOk"), 0) << "no click at press";
    screen.release();
    EXPECT_EQ(form.clicks_of(L"btnOk"), 1);
    EXPECT_EQ(form.capture(), nullptr);

    // Dragged off under capture: back to normal at release, no click.
    screen.press_at(form.center_of(L"btnOk"));
    screen.move_to({2, 300});
    EXPECT_EQ(form.capture(), &form.ok) << "capture holds while the pointer is elsewhere";
    screen.release();
    EXPECT_EQ(form.clicks_of(L"btnOk"), 1);
    EXPECT_FALSE(form.ok.is_active());

    // A check box flips at its click.
    EXPECT_TRUE(form.loop.is_checked());
    EXPECT_EQ(form.loop.get_text(), L"Loop on");
    screen.press_at(form.center_of(L"chkLoop"));
    screen.release();
    EXPECT_FALSE(form.loop.is_checked());
    EXPECT_EQ(form.loop.get_text(), L"Loop");

    // A disabled control on top blocks the one beneath; a hidden one takes
    // nothing, and the one beneath is hit.
    form.clicks.clear();
    form.disabled.set_rect(form.ok.position(), form.ok.size());
    screen.press_at(form.center_of(L"btnOk"));
    EXPECT_EQ(form.capture(), nullptr);
    screen.release();
    EXPECT_TRUE(form.clicks.empty());
    form.hidden.set_rect(form.cancel.position(), form.cancel.size());
    screen.press_at(form.center_of(L"btnCancel"));
    screen.release();
    EXPECT_EQ(form.clicks_of(L"btnCancel"), 1);
}

TEST(Form, TabWrapsEscapeAndEnterClickAtKeyUpAndLettersReachOnTextOnly)
{
    TestScreen screen(1);
    ButtonsForm form(screen.properties());
    // Focus went to the first control that can take it when the form became active.
    EXPECT_EQ(form.focused(), &form.ok);
    screen.key(SDLK_TAB);
    EXPECT_EQ(form.focused(), &form.cancel);
    screen.key(SDLK_TAB);
    EXPECT_EQ(form.focused(), &form.loop) << "disabled and hidden controls are passed over";
    screen.key(SDLK_TAB);
    EXPECT_EQ(form.focused(), &form.masked);
    screen.key(SDLK_TAB);
    EXPECT_EQ(form.focused(), &form.ok) << "wrapped";
    SDL_SetModState(KMOD_LSHIFT);
    screen.key(SDLK_TAB);
    SDL_SetModState(KMOD_NONE);
    EXPECT_EQ(form.focused(), &form.masked) << "Shift+Tab wrapped back";
    // Hiding the focused control moves the focus on.
    form.masked.set_visible(false);
    EXPECT_EQ(form.focused(), &form.ok);

    form.set_focus(nullptr, skinner::kFocusByProgram);
    EXPECT_EQ(form.default_button(), &form.ok) << "BUTTON_OK is the form's Enter";
    form.set_cancel_button(&form.cancel);

    screen.key_down(SDLK_ESCAPE);
    EXPECT_TRUE(form.cancel.is_active());
    EXPECT_TRUE(form.clicks.empty()) << "never at key down";
    screen.key_up(SDLK_ESCAPE);
    EXPECT_EQ(form.clicks_of(L"btnCancel"), 1);

    screen.key_down(SDLK_RETURN, "\r");
    EXPECT_EQ(form.clicks_of(L"btnOk"), 0);
    screen.key_up(SDLK_RETURN);
    EXPECT_EQ(form.clicks_of(L"btnOk"), 1);

    // Letters reach the focused control as text, keys without one as keys.
    KeyCounter counter(&form);
    counter.set_focus();
    ASSERT_EQ(form.focused(), &counter);
    screen.key(SDLK_a, "a");
    EXPECT_EQ(counter.texts, L"a");
    EXPECT_TRUE(counter.keys.empty());
    // Enter types a control code: it arrives as the key.
    screen.key(SDLK_RETURN, "\r");
    EXPECT_EQ(counter.keys, std::vector<int>{skinner::kKeyEnter});
    // A key with no character is a key.
    screen.key(SDLK_LEFT);
    EXPECT_EQ(counter.keys.back(), skinner::kKeyLeft);
    screen.text("\xc3\xa9");
    EXPECT_EQ(counter.texts, L"a\u00e9");
}

TEST(Form, HardwareKeySendsItsCommandBeforeTheFocusedControl)
{
    TestScreen screen(1);
    ButtonsForm form(screen.properties());
    KeyCounter counter(&form);
    counter.set_focus();
    struct Commands : skinner::Listener {
        explicit Commands(const KeyCounter& c) : counter(c) {}
        int on_command(const std::wstring& name) override
        {
            sent.push_back(name + L"@" + std::to_wstring(counter.keys.size()));
            return 1;
        }
        const KeyCounter& counter;
        std::vector<std::wstring> sent;
    } commands(counter);
    {
        skinner::HardwareKeysImpl keys(screen.screen());
        keys.set_listener(&commands);
        ASSERT_EQ(keys.key_count(), 12);
        EXPECT_EQ(keys.key_name(11), L"Button11");
        const SDL_Keycode media[] = {SDLK_AUDIOPLAY, SDLK_AUDIOSTOP,    SDLK_AUDIOPREV, SDLK_AUDIONEXT,
                                     SDLK_AUDIOREWIND, SDLK_AUDIOFASTFORWARD, SDLK_VOLUMEUP, SDLK_VOLUMEDOWN};
        for (SDL_Keycode key : media)
            screen.key(key);
        EXPECT_EQ(commands.sent, (std::vector<std::wstring>{L"Play@0", L"Stop@0", L"Prev@0", L"Next@0", L"Rewind@0",
                                                             L"Forward@0", L"VolumeUp@0", L"VolumeDown@0"}));
        EXPECT_TRUE(counter.keys.empty()) << "an assigned key never reaches the focused control";

        // F5 carries nothing until given a command; an unassigned key goes on.
        screen.key(SDLK_F5);
        EXPECT_EQ(counter.keys.size(), 1u);
        keys.set_command(8, L"Record");
        keys.assign(8, true);
        keys.assign(0, false);
        screen.key(SDLK_F5);
        screen.key(SDLK_AUDIOPLAY);
        EXPECT_EQ(commands.sent.back(), L"Record@1");
        EXPECT_EQ(counter.keys.size(), 2u) << "the unassigned Play key reached the control";
    }
    // Gone with its manager: F5 is a key again.
    screen.key(SDLK_F5);
    EXPECT_EQ(counter.keys.size(), 3u);
    EXPECT_EQ(commands.sent.size(), 9u);
}

TEST(Form, AnchorsFollowTheFormSize)
{
    TestScreen screen(1);
    ButtonsForm form(screen.properties());
    EXPECT_EQ(form.cancel.position(), (Point{124, 20}));
    form.set_rect({0, 0}, {260, 320});
    EXPECT_EQ(form.cancel.position(), (Point{144, 20})) << "MAX_SIDE moves with the right edge";
    EXPECT_EQ(form.ok.position(), (Point{20, 20})) << "MIN_SIDE stays";
}

namespace {

// Opens an inner modal form from its own timer's first tick.
class OuterForm : public RecordingForm {
public:
    explicit OuterForm(skinner::Properties& p) : RecordingForm(p, L"Buttons") {}
    void on_timer(int id, int user_data) override
    {
        RecordingForm::on_timer(id, user_data);
        if (id != timer)
            return;
        ++ticks;
        log.push_back(L"outer");
        if (ticks == 1) {
            RecordingForm inner(properties(), L"Message", this);
            inner_form = &inner;
            inner_timer = inner.set_timer(0.01);
            inner.do_modal();
            inner.kill_timer(inner_timer);
            inner_form = nullptr;
            log.push_back(L"inner ended");
        } else if (ticks == outer_ticks_at_inner_end + 2) {
            kill_timer(timer);
            close();
        }
    }
    int timer = 0;
    int ticks = 0;
    int outer_ticks_at_inner_end = 1000;
    RecordingForm* inner_form = nullptr;
    int inner_timer = 0;
    std::vector<std::wstring> log;
};

} // namespace

TEST(Form, ModalFromATimerNestsAndEndsInnermost)
{
    TestScreen screen(1);
    OuterForm outer(screen.properties());
    outer.timer = outer.set_timer(0.01);
    // The inner form's ticks arrive at its container; count them by a second
    // outer tick hook: the inner closes itself after three of its own.
    struct Watch : liba::Timer::Listener {
        OuterForm* outer;
        int inner_ticks_seen = 0;
        liba::Timer timer{*this};
        void on_timer(liba::Timer&) override
        {
            if (outer->inner_form) {
                if (++inner_ticks_seen == 3) {
                    outer->outer_ticks_at_inner_end = outer->ticks;
                    outer->inner_form->close();
                }
            }
            timer.start(0.02);
        }
    } watch;
    watch.outer = &outer;
    watch.timer.start(0.02);
    outer.do_modal();
    EXPECT_EQ(watch.inner_ticks_seen, 3);
    EXPECT_EQ(outer.log.front(), L"outer");
    ASSERT_GE(outer.log.size(), 3u);
    // Outer ticks went on while the inner form ran; its end ended only the inner loop.
    auto ended = std::find(outer.log.begin(), outer.log.end(), L"inner ended");
    ASSERT_NE(ended, outer.log.end());
    EXPECT_GT(std::count(ended, outer.log.end(), L"outer"), 0) << "the outer loop went on after the inner";
    EXPECT_GE(outer.ticks, 3);
    EXPECT_EQ(skinner::Form::current_modal(), nullptr);
}

TEST(FormDeathTest, SkinLackingAControlIsFatalWithItsReport)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            TestScreen screen(1);
            RecordingForm form(screen.properties(), L"Buttons");
            skinner::ControlButton missing(&form, L"btnNope");
        },
        testing::ExitedWithCode(0), "report_no_control: Skin file \\{.*Test.skin\\} form \\{Buttons\\} has no control \\{btnNope\\}");
    EXPECT_EXIT(
        {
            TestScreen screen(1);
            RecordingForm form(screen.properties(), L"NoSuchForm");
        },
        testing::ExitedWithCode(0), "report_no_form: Skin file \\{.*\\} has no form \\{NoSuchForm\\}");
}

// Forms drawn at every scale, sized exactly N times their skin size, are
// compared with independent drawings in form_svg_test.cpp.
TEST(SkinRender, RefusesAFormTheSkinLacks)
{
    test::TempDir dir;
    auto none = dir.path() / "none.png";
    std::string out;
    EXPECT_EQ(test::run(skin_test::quillctl().string() + " skin render " + skin_test::test_skin().string() +
                            " NoSuchForm " + none.string() + " 2>&1", &out), 1);
    EXPECT_NE(out.find("has no form \"NoSuchForm\""), std::string::npos) << out;
    EXPECT_FALSE(std::filesystem::exists(none));
}

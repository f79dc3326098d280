#include "form_test_support.h"

#include "liba/timer.h"
#include "skinner/confirm_form.h"
#include "skinner/form_combo.h"
#include "skinner/form_message.h"

#include <functional>

#include <gtest/gtest.h>

using form_test::RecordingForm;
using form_test::TestScreen;
using skinner::Point;

namespace {

// Does `act` once from inside the loop, `seconds` from now.
class Later : public liba::Timer::Listener {
public:
    Later(double seconds, std::function<void()> act) : act_(std::move(act)) { timer_.start(seconds); }
    void on_timer(liba::Timer&) override { act_(); }

private:
    std::function<void()> act_;
    liba::Timer timer_{*this};
};

// The switch is process-wide: each test leaves it off.
struct HeadlessGuard {
    explicit HeadlessGuard(bool on) { skinner::set_message_forms_headless(on); }
    ~HeadlessGuard() { skinner::set_message_forms_headless(false); }
};

skinner::Control* find(skinner::Form& form, const wchar_t* id)
{
    skinner::Control* c = form.find_control(id);
    if (!c)
        ADD_FAILURE() << "no control";
    return c;
}

} // namespace

TEST(FormMessage, ShowsCaptionAndTextAndAnswersWithTheTappedButton)
{
    TestScreen screen(1);
    skinner::FormMessage form(nullptr, screen.properties(), L"Message", L"Low memory", L"Close something first");
    auto* caption = dynamic_cast<skinner::ControlFrame*>(find(form, L"frmCaption"));
    auto* text = dynamic_cast<skinner::ControlFrame*>(find(form, L"frmMessage"));
    ASSERT_TRUE(caption && text);
    EXPECT_EQ(caption->text(), L"Low memory");
    EXPECT_EQ(text->text(), L"Close something first");
    EXPECT_EQ(form.title(), L"Low memory");
    EXPECT_EQ(form.result(), L"btnOk") << "the default answer before any tap";
    ASSERT_NE(form.default_button(), nullptr);

    skinner::Control* ok = find(form, L"btnOk");
    Later tap(0.02, [&] {
        screen.press_at(form.screen_position() + ok->center());
        screen.release();
    });
    EXPECT_EQ(form.run(), L"btnOk");
    EXPECT_FALSE(form.is_visible());

    // Enter presses the default button; the click comes at key up and closes.
    skinner::FormMessage again(nullptr, screen.properties(), L"Message", L"c", L"t");
    Later enter(0.02, [&] { screen.key(SDLK_RETURN); });
    EXPECT_EQ(again.run(), L"btnOk");
}

TEST(FormMessage, HeadlessFormsLogAndTakeTheirDefaultAtOnce)
{
    TestScreen screen(1);
    HeadlessGuard headless(true);
    skinner::FormMessage message(nullptr, screen.properties(), L"Message", L"Caption", L"Text");
    // No loop runs: a loop would wait for ever, as nothing taps.
    EXPECT_EQ(message.run(), L"btnOk");
    EXPECT_FALSE(message.is_visible());
    skinner::ConfirmForm confirm(nullptr, screen.properties(), L"ConfirmYesNo", L"Delete", L"Delete it?");
    EXPECT_EQ(confirm.run(), skinner::ConfirmForm::kNo);
}

TEST(ConfirmForm, AnswersByTheButtonAndNoWhenCancelled)
{
    TestScreen screen(1);
    {
        skinner::ConfirmForm form(nullptr, screen.properties(), L"ConfirmYesNo", L"Overwrite", L"file.wav exists");
        EXPECT_EQ(form.result(), skinner::ConfirmForm::kNo);
        skinner::Control* yes = find(form, L"btnYes");
        Later tap(0.02, [&] {
            screen.press_at(form.screen_position() + yes->center());
            screen.release();
        });
        EXPECT_EQ(form.run(), skinner::ConfirmForm::kYes);
    }
    {
        // The automatic "btnNo" answers too; a tap beside the buttons does nothing.
        skinner::ConfirmForm form(nullptr, screen.properties(), L"ConfirmYesNo", L"Overwrite", L"again");
        skinner::Control* no = find(form, L"btnNo");
        skinner::Control* text = find(form, L"frmMessage");
        Later tap(0.02, [&] {
            screen.press_at(form.screen_position() + text->center());
            screen.release();
            screen.press_at(form.screen_position() + no->center());
            screen.release();
        });
        EXPECT_EQ(form.run(), skinner::ConfirmForm::kNo);
    }
    {
        // Escape goes to the cancel button, which is "btnNo" here.
        skinner::ConfirmForm form(nullptr, screen.properties(), L"ConfirmYesNo", L"Overwrite", L"once more");
        Later escape(0.02, [&] { screen.key(SDLK_ESCAPE); });
        EXPECT_EQ(form.run(), skinner::ConfirmForm::kNo);
        EXPECT_EQ(form.cancel_button(), form.find_control(L"btnNo"));
    }
}

TEST(FormCombo, TapOutsideClosesWithoutReachingTheFormBeneath)
{
    TestScreen screen(1);
    RecordingForm owner(screen.properties(), L"Buttons");
    owner.show(true);
    skinner::ControlButton ok(&owner, L"btnOk");
    screen.settle();
    skinner::FormCombo combo(&owner, screen.properties(), L"Tools", {20, 60}, {100, 40});
    EXPECT_TRUE(combo.is_combo());
    EXPECT_EQ(combo.screen_position(), (owner.screen_position() + Point{20, 60}));
    EXPECT_EQ(combo.size(), (Point{100, 40}));
    EXPECT_TRUE(combo.is_visible());
    Later tap(0.02, [&] {
        // On the owner's "btnOk", which lies outside the drop-down.
        screen.press_at(owner.center_of(L"btnOk"));
        screen.release();
    });
    combo.do_modal();
    EXPECT_FALSE(combo.is_visible());
    EXPECT_EQ(owner.clicks_of(L"btnOk"), 0) << "the closing tap goes no further";
}

#include "form_test_support.h"

#include "skinner/control_button.h"
#include "skinner/control_lcd.h"
#include "skinner/control_panel_auto_scroll.h"
#include "skinner/control_progress.h"
#include "skinner/control_scroll_bar.h"
#include "skinner/form_impl.h"
#include "skinner/form_render.h"
#include "liba/timer.h"

#include "drawing_test_support.h"

#include <chrono>

#include <gtest/gtest.h>

using form_test::TestScreen;
using skinner::Point;

namespace {

// The "Controls" form built by class, counting what its controls report.
class ControlsForm : public skinner::ClassFactoryForm {
public:
    explicit ControlsForm(skinner::Properties& p) : ClassFactoryForm(p, L"Controls")
    {
        show(true);
        set_active(true);
    }
    template <class T>
    T& get(const wchar_t* id)
    {
        auto* c = dynamic_cast<T*>(find_control(id));
        if (!c)
            ADD_FAILURE() << "no control of that class";
        return *c;
    }
    int on_scroll(skinner::Control* c) override
    {
        scrolls.push_back(c);
        return 1;
    }
    int on_range_changed(skinner::Control*, double value) override
    {
        dragged.push_back(value);
        return 1;
    }
    int on_value_changed(skinner::Control*) override
    {
        ++value_changes;
        return 1;
    }
    uint32_t pixel(Point p) const { return drawing_test::pixel_at(impl().back_buffer(), p.x, p.y) & 0xFFFFFFu; }
    std::vector<skinner::Control*> scrolls;
    std::vector<double> dragged;
    int value_changes = 0;
};

constexpr uint32_t kButtonBlue = 0x3060c0;
constexpr uint32_t kFrameGrey = 0xe0e0e0;
constexpr uint32_t kDigitRed = 0xc00000;

// Runs the loop for `ms` milliseconds of wall time; a timer of its own
// wakes the loop at the end when nothing else would.
void run_for(TestScreen& screen, int ms)
{
    // The loop ends when this timer has fired: a deadline of the wall clock
    // could fall just after the timer's own tick, and with no timer left the
    // loop would then sleep for good.
    struct Wake : liba::Timer::Listener {
        bool fired = false;
        void on_timer(liba::Timer&) override { fired = true; }
    } wake;
    liba::Timer timer(wake);
    timer.start(ms / 1000.0);
    screen.loop().run([&] { return wake.fired; });
}

} // namespace

TEST(BasicControls, ProgressFillsDragsAndNeverDividesByZero)
{
    TestScreen screen(2);
    ControlsForm form(screen.properties());
    auto& left = form.get<skinner::ControlProgress>(L"pbLeft");
    auto& bottom = form.get<skinner::ControlProgress>(L"pbBottom");
    EXPECT_EQ(left.track_size(), 16) << "the track size is scaled";
    EXPECT_EQ(bottom.orientation(), skinner::ControlProgressBase::kFromBottom);

    left.set_position(1.5);
    EXPECT_EQ(left.value(), 1.0) << "clamped";
    EXPECT_EQ(form.value_changes, 1);
    left.set_position(1.0);
    EXPECT_EQ(form.value_changes, 1) << "an equal value tells nothing";
    left.set_range(10, 20, 15);
    EXPECT_DOUBLE_EQ(left.value(), 0.5);
    left.set_range(20, 20, 15);
    EXPECT_EQ(left.value(), 0.0) << "an empty range is 0";

    // Fill rectangles: 200x24 from the left, 32x200 from the bottom, track 16 and 20.
    Point at, fill;
    left.fill_rect(0.5, at, fill);
    EXPECT_EQ(at, left.position());
    EXPECT_EQ(fill, (Point{92, 24}));
    bottom.fill_rect(0.25, at, fill);
    EXPECT_EQ(at, (Point{bottom.position().x, bottom.position().y + 135}));
    EXPECT_EQ(fill, (Point{32, 45}));

    // Painting from the left at 0.5: the filled part is the button's blue,
    // then the handle, then the frame's grey.
    left.set_position(0.5);
    form.paint_dirty();
    const Point lp = left.position();
    EXPECT_EQ(form.pixel({lp.x + 46, lp.y + 12}), kButtonBlue);
    EXPECT_EQ(form.pixel({lp.x + 92 + 8, lp.y + 12}), 0x60c060u) << "handle after the fill";
    EXPECT_EQ(form.pixel({lp.x + 150, lp.y + 12}), kFrameGrey);
    // From the bottom at 0.25: grey above, blue in the lowest quarter.
    bottom.set_position(0.25);
    form.paint_dirty();
    const Point bp = bottom.position();
    EXPECT_EQ(form.pixel({bp.x + 16, bp.y + 60}), kFrameGrey);
    EXPECT_EQ(form.pixel({bp.x + 16, bp.y + 190}), kButtonBlue);
    EXPECT_EQ(form.pixel({bp.x + 16, bp.y + 135 + 10}), 0x60c060u) << "handle at the fill's moving end";

    // Dragging reports values by the pointer without setting them.
    screen.press_at(form.screen_position() + Point{lp.x + 8 + 46, lp.y + 4});
    screen.move_to(form.screen_position() + Point{lp.x + 500, lp.y + 4});
    screen.release();
    ASSERT_EQ(form.dragged.size(), 2u);
    EXPECT_DOUBLE_EQ(form.dragged[0], 0.25);
    EXPECT_DOUBLE_EQ(form.dragged[1], 1.0);
    EXPECT_DOUBLE_EQ(left.value(), 0.5);

    // A track as long as the bar: never a division by zero.
    skinner::ControlProgress plain(&form, L"", skinner::kNoSkin);
    plain.set_rect({0, 0}, {0, 10});
    EXPECT_EQ(plain.position_at({5, 5}), 0.0);
}

TEST(BasicControls, LcdDrawsGlyphsWithoutGapsForUnknownCharacters)
{
    TestScreen screen(1);
    ControlsForm form(screen.properties());
    auto& lcd = form.get<skinner::ControlLCD>(L"lcdTime");
    EXPECT_EQ(lcd.text(), L"12:30");
    EXPECT_EQ(lcd.line_size(L"12:30"), (Point{40, 12}));
    EXPECT_EQ(lcd.line_size(L"1x2"), lcd.line_size(L"12")) << "an unknown character takes no width";
    lcd.set_text(L"1x9\n0");
    EXPECT_EQ(lcd.text_size(), (Point{16, 24}));
    form.paint_dirty();
    // Line one, centred in 96: starts at 40; glyph 1 has a 2-pixel bar, 9 a
    // 10-pixel bar right after it.
    const Point p = lcd.position();
    const int x0 = p.x + (96 - 16) / 2;
    EXPECT_EQ(form.pixel({x0 + 3, p.y + 11}), kDigitRed);
    EXPECT_EQ(form.pixel({x0 + 3, p.y + 9}), 0xffffffu);
    EXPECT_EQ(form.pixel({x0 + 8 + 3, p.y + 2}), kDigitRed) << "the 9 follows the 1 with no gap";
    // Line two, one glyph centred, 12 pixels lower.
    EXPECT_EQ(form.pixel({p.x + 44 + 3, p.y + 12 + 11}), kDigitRed);
    EXPECT_EQ(form.pixel({p.x + 44 + 3, p.y + 12 + 10}), 0xffffffu);
}

TEST(BasicControls, ScrollBarClampsStepsDragsAndRepeats)
{
    TestScreen screen(1);
    ControlsForm form(screen.properties());
    auto& h = form.get<skinner::ControlScrollBar>(L"sbHorizontal");
    EXPECT_EQ(h.page(), 50) << "a page beyond the range is cut";
    EXPECT_EQ(h.position_value(), 0);
    h.set_position(10);
    EXPECT_EQ(h.position_value(), 0) << "nothing to scroll: stays at min";

    auto& v = form.get<skinner::ControlScrollBar>(L"sbVertical");
    ASSERT_TRUE(v.vertical());
    int start = 0, length = 0;
    v.track_area(start, length);
    EXPECT_EQ(start, v.position().y + 16);
    EXPECT_EQ(length, 128);
    EXPECT_EQ(v.button(skinner::ControlScrollBar::kTrack).size().y, 128 * 20 / 100);

    v.set_position(500);
    EXPECT_EQ(v.position_value(), 80) << "max less page";
    v.set_position(-3);
    EXPECT_EQ(v.position_value(), 0);
    form.scrolls.clear();

    // The lower page area pages down at press.
    auto& space = v.button(skinner::ControlScrollBar::kMaxSpace);
    screen.press_at(form.screen_position() + space.center());
    EXPECT_EQ(v.position_value(), 20);
    screen.release();
    EXPECT_EQ(form.scrolls.size(), 1u);
    // The handle follows a drag: grabbed at its top, dropped at the middle.
    auto& track = v.button(skinner::ControlScrollBar::kTrack);
    Point grab = track.position();
    screen.press_at(form.screen_position() + grab);
    screen.move_to(form.screen_position() + Point{grab.x, start + length / 2});
    EXPECT_EQ(v.position_value(), 50);
    screen.release();

    // The lower arrow repeats every 20 ms, but only after six ticks.
    v.set_position(0);
    auto& down = v.button(skinner::ControlScrollBar::kMaxArrow);
    EXPECT_EQ(down.repeat_ms(), 20);
    screen.press_at(form.screen_position() + down.center());
    EXPECT_EQ(v.position_value(), 1);
    run_for(screen, 80);
    EXPECT_EQ(v.position_value(), 1) << "no repeat before the sixth tick";
    run_for(screen, 400);
    EXPECT_GT(v.position_value(), 3);
    screen.release();
    int held = v.position_value();
    run_for(screen, 100);
    EXPECT_EQ(v.position_value(), held) << "released: no more repeats";

    // With the focus, the arrows of its axis step a line, the page keys a
    // page, Home and End go to the ends; the handle moves with the value.
    v.set_position(0);
    v.set_focus(skinner::kFocusByKey);
    const int handle = track.size().y;
    const std::pair<SDL_Keycode, int> keys[] = {{SDLK_DOWN, 1},  {SDLK_PAGEDOWN, 21}, {SDLK_UP, 20},
                                                {SDLK_RIGHT, 20}, {SDLK_END, 80},      {SDLK_PAGEUP, 60},
                                                {SDLK_HOME, 0}};
    for (auto [key, value] : keys) {
        screen.key(key);
        EXPECT_EQ(v.position_value(), value) << SDL_GetKeyName(key);
        EXPECT_EQ(track.position().y, start + (length - handle) * value / 80) << SDL_GetKeyName(key);
    }
}

TEST(BasicControls, AutoScrollPanelShowsTheBarsItsContentNeeds)
{
    TestScreen screen(1);
    ControlsForm form(screen.properties());
    auto& panel = form.get<skinner::ControlPanelAutoScroll>(L"pnlScroll");
    EXPECT_EQ(panel.content_size(), (Point{100, 300}));
    // 120x100 less borders of 2: 116x96; tall content takes a bar of 16.
    EXPECT_TRUE(panel.vertical_bar().own_visible());
    EXPECT_FALSE(panel.horizontal_bar().own_visible());
    EXPECT_EQ(panel.view_size(), (Point{100, 96}));
    EXPECT_EQ(panel.vertical_bar().position(), (Point{8 + 2 + 100, 202}));

    // Wider content: now both bars, the horizontal one taking height.
    panel.set_content_size({150, 300});
    EXPECT_TRUE(panel.horizontal_bar().own_visible());
    EXPECT_EQ(panel.view_size(), (Point{100, 80}));
    // Content that fits: no bars, the whole inner rectangle.
    panel.set_content_size({50, 50});
    EXPECT_FALSE(panel.vertical_bar().own_visible());
    EXPECT_EQ(panel.view_size(), (Point{116, 96}));
    // Width that only overflows once the horizontal bar took its height.
    panel.set_content_size({117, 90});
    EXPECT_TRUE(panel.vertical_bar().own_visible());
    EXPECT_TRUE(panel.horizontal_bar().own_visible());

    panel.set_content_size({100, 300});
    skinner::Control* bottom = panel.inner().find_control(L"btnBottom");
    ASSERT_NE(bottom, nullptr);
    EXPECT_EQ(bottom->position().y, 202 + 260);
    panel.vertical_bar().set_position(1000);
    EXPECT_EQ(panel.vertical_bar().position_value(), 300 - 96);
    EXPECT_EQ(bottom->position().y, 202 + 260 - 204) << "the content moved up";
    form.paint_dirty();
    // The button's pressed picture is dark blue inside; the clip keeps the
    // content off the border.
    EXPECT_NE(form.pixel({8 + 10, bottom->position().y + 12}), form.pixel({8 + 1, bottom->position().y + 12}));
}

// The caption's ink inside the control: its box and its darkest pixel.
struct Ink {
    Point min{1 << 20, 1 << 20}, max{-1, -1};
    uint32_t darkest = 0xffffff;
    bool operator==(const Ink&) const = default;
};

Ink caption_ink(ControlsForm& form, const skinner::Control& c)
{
    form.paint_dirty();
    Ink ink;
    for (int y = c.position().y; y < c.position().y + c.size().y; ++y)
        for (int x = c.position().x; x < c.position().x + c.size().x; ++x) {
            const uint32_t p = form.pixel({x, y});
            if ((p >> 16) >= 0xa0)
                continue;
            ink.min = {std::min(ink.min.x, x), std::min(ink.min.y, y)};
            ink.max = {std::max(ink.max.x, x), std::max(ink.max.y, y)};
            ink.darkest = std::min(ink.darkest, p);
        }
    return ink;
}

TEST(BasicControls, CheckedCaptionKeepsTheBoxFontAndGreysOut)
{
    TestScreen screen(2);
    ControlsForm form(screen.properties());
    auto& box = form.get<skinner::ControlCheckBox>(L"chkSmall");
    // A box that names only its unchecked looks: checking it must not change
    // how its caption is written, enabled or not.
    for (bool enabled : {true, false}) {
        box.set_enabled(enabled);
        box.set_checked(false);
        const Ink unchecked = caption_ink(form, box);
        ASSERT_LT(unchecked.max.x, box.position().x + box.size().x / 2) << "a small caption";
        EXPECT_EQ(unchecked.darkest, enabled ? 0u : 0x808080u);
        box.set_checked(true);
        const Ink checked = caption_ink(form, box);
        EXPECT_EQ(checked.min, unchecked.min) << enabled;
        EXPECT_EQ(checked.max, unchecked.max) << enabled;
        EXPECT_EQ(checked.darkest, unchecked.darkest) << enabled;
    }
}

TEST(BasicControls, FormsBuiltByClassFillTheirPanelsToo)
{
    TestScreen screen(2);
    skinner::ClassFactoryForm form(screen.properties(), L"Main");
    auto* panel = dynamic_cast<skinner::ControlPanel*>(form.find_control(L"pnlTools"));
    ASSERT_NE(panel, nullptr);
    auto* a = dynamic_cast<skinner::ControlButton*>(panel->inner().find_control(L"btnA"));
    ASSERT_NE(a, nullptr) << "the template's own controls, not only its automatic ones";
    EXPECT_EQ(a->position(), panel->position()) << "placed within the panel";
    EXPECT_EQ(a->size(), (Point{96, 48}));
    form.show(true);
    form.paint_dirty();
    const uint32_t inside = drawing_test::pixel_at(form.impl().back_buffer(), a->center().x, a->center().y);
    EXPECT_EQ(inside & 0xFFFFFFu, kButtonBlue);
}

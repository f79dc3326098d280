// skinner::Properties over the engine's test skin and small skins compiled
// in the test: scale, variants, kinds, items, translation and refresh.
#include "liba/text.h"
#include "skinner/properties.h"
#include "tests/skinner/skin_test_support.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <SDL.h>

namespace fs = std::filesystem;
using skin_test::wide;
using skinner::Point;
using skinner::Properties;

namespace {

std::wstring test_skin() { return wide(skin_test::test_skin()); }

// A form that counts how often the skin asked it to read everything again.
class CountingForm : public skinner::LiveForm {
public:
    explicit CountingForm(Properties* skin, std::function<void()> also = {}) : skin_(skin), also_(std::move(also))
    {
        skinner::add_live_form(this);
    }
    ~CountingForm() { skinner::remove_live_form(this); }
    const Properties* skin_properties() const override { return skin_; }
    void on_skin_changed() override
    {
        ++refreshes;
        if (also_)
            also_();
    }
    int refreshes = 0;

private:
    Properties* skin_;
    std::function<void()> also_;
};

} // namespace

TEST(Properties, ScaleFollowsTheScreen)
{
    const std::pair<Point, int> cases[] = {
        {{240, 320}, 1}, {{320, 240}, 1}, {{480, 640}, 2}, {{640, 480}, 2}, {{960, 1280}, 4},
        // No native size times a scale matches: the closest fit from below.
        {{320, 320}, 1}, {{1000, 700}, 2}, {{100, 100}, 1},
        // No screen known.
        {{0, 0}, 1}};
    for (const auto& [screen, scale] : cases) {
        Properties skin(test_skin(), screen);
        EXPECT_EQ(skin.scale(), scale) << screen.x << "x" << screen.y;
    }
    EXPECT_FALSE(Properties(test_skin(), {320, 320}).check_version(L"", {320, 320}));
    EXPECT_TRUE(Properties(test_skin(), {320, 320}).check_version(L"", {240, 320}));
}

TEST(Properties, PresentValuesAreScaledAndDefaultsReturnedAsGiven)
{
    Properties skin(test_skin(), {480, 640});
    ASSERT_EQ(skin.scale(), 2);
    EXPECT_EQ(skin.get_point(L"Main", L"btnRecord", L"Position", {}), (Point{16, 560}));
    EXPECT_EQ(skin.get_point(L"Main", L"btnRecord", L"Missing", {3, 4}), (Point{3, 4}));
    EXPECT_EQ(skin.get_integer(L"Main", L"btnRecord", L"TabOrder", 0), 1);
    EXPECT_EQ(skin.get_scaled_integer(L"Main", L"btnRecord", L"TabOrder", 0), 2);
    EXPECT_EQ(skin.get_scaled_integer(L"Main", L"btnRecord", L"Missing", 7), 7);
    EXPECT_EQ(skin.get_integer(L"Main", L"frmBox", L"ZOrder", 0), -1);
    EXPECT_EQ(skin.get_scaled_integer(L"Main", L"frmBox", L"ZOrder", 0), -2);
    EXPECT_EQ(skin.get_form_point(L"Main", L"Size", {}), (Point{480, 640}));
    EXPECT_EQ(skin.get_string(L"Main", L"btnStop", L"Text", L""), L"Stop");
    EXPECT_EQ(skin.get_cursor(L"Main", L"btnStop", L"Cursor", -1), SDL_SYSTEM_CURSOR_HAND);
    EXPECT_EQ(skin.get_cursor(L"Main", L"btnStop", L"Text", -1), -1) << "not a cursor name";
    EXPECT_EQ(skin.get_color(L"Main", L"btnRecord", L"Normal", {}), (skinner::Color{255, 255, 255, 255}));
    EXPECT_EQ(skin.get_color(L"Main", L"btnRecord", L"Pressed", {1, 2, 3, 4}), (skinner::Color{1, 2, 3, 4}));

    // A picture takes its four points from the record, blown up by the
    // scale, and its bitmap at that scale.
    skinner::Picture p = skin.get_picture(L"Main", L"btnRecord", L"Normal", {});
    ASSERT_TRUE(p.is_valid());
    EXPECT_EQ(p.first_corner(), (Point{0, 0}));
    EXPECT_EQ(p.band_start(), (Point{12, 12}));
    EXPECT_EQ(p.band_end(), (Point{84, 36}));
    EXPECT_EQ(p.last_corner(), (Point{96, 48}));
    EXPECT_TRUE(p.stretch());
    EXPECT_EQ(p.scale(), 2);
    EXPECT_EQ(p.bitmap_size(), (Point{96, 48}));
    skinner::Picture tiled = skin.get_form_picture(L"Main", L"Background", {});
    EXPECT_FALSE(tiled.stretch());
    EXPECT_EQ(tiled.last_corner(), (Point{32, 32}));
    EXPECT_TRUE(skin.get_picture(L"Main", L"btnRecord", L"Missing", {}).is_empty());

    skinner::Font f = skin.get_font(L"Main", L"frmTitle", L"Normal", skinner::Font());
    EXPECT_FALSE(f.is_empty());
    EXPECT_EQ(f.scale(), 2);
    EXPECT_TRUE(f.bold());
}

TEST(Properties, TheWidestFittingVariantOfAFormWins)
{
    const std::pair<Point, const wchar_t*> cases[] = {
        {{240, 320}, L"tall"}, {{320, 240}, L"wide"}, {{480, 640}, L"tall"}, {{640, 480}, L"wide"},
        {{0, 0}, L"wide"}, // with no screen known every variant fits
    };
    for (const auto& [screen, variant] : cases) {
        Properties skin(test_skin(), screen);
        EXPECT_EQ(skin.get_form_string(L"Settings", L"Variant", L""), variant) << screen.x << "x" << screen.y;
        // Controls are found in the chosen variant.
        EXPECT_EQ(skin.get_point(L"Settings", L"btnOk", L"Position", {}).x,
                  (variant == std::wstring(L"wide") ? 248 : 8) * skin.scale());
    }
    // The Smartphone variant fits, but this is a Pocket PC; the report says so.
    Properties skin(test_skin(), {240, 320});
    skin.get_form_string(L"Settings", L"Variant", L"");
    const std::wstring& report = skin.impl().form_search_report();
    EXPECT_NE(report.find(L"+SettingsPhone Size=176,200 Devices=S\n"), std::wstring::npos) << liba::to_utf8(report);
    EXPECT_NE(report.find(L"+Settings Size=240,320 Devices= good_for_device\n"), std::wstring::npos);
    EXPECT_NE(report.find(L"+SettingsWide Size=320,240 Devices= good_for_device\n"), std::wstring::npos);
    EXPECT_NE(report.find(L"-Main\n"), std::wstring::npos);
    EXPECT_EQ(std::count(report.begin(), report.end(), L'\n'), 10);
    // A longer name never matches a shorter node.
    EXPECT_EQ(skin.impl().choose_form(L"SettingsWide"), 0u);
    EXPECT_EQ(skin.impl().choose_form(L"SettingsWideX"), 0u);
    EXPECT_EQ(skin.impl().choose_form(L""), 0u);
}

TEST(Properties, EqualVariantsGoToTheLastVisitedAndSizeLessOnesFitEverywhere)
{
    test::TempDir dir;
    ASSERT_EQ(skin_test::compile(dir.path(), skin_test::skin_xml(R"(
<form name="Dlg"><point name="Size" value="100 100"/><int name="V" value="1"/></form>
<form name="DlgA"><point name="Size" value="100 100"/><int name="V" value="2"/></form>
<form name="DlgB"><point name="Size" value="100 100"/><int name="V" value="3"/></form>
<form name="Box"><int name="V" value="4"/></form>
<form name="BoxBig"><point name="Size" value="100 100"/><int name="V" value="5"/></form>
<form name="Full"><point name="Size" value="200 300"/><int name="Fullscreen" value="1"/><int name="V" value="6"/></form>)")),
              "");
    // The balanced tree is DlgA over Dlg and DlgB: DlgB is visited last.
    Properties skin(wide(dir / "T.skin"), {240, 320});
    EXPECT_EQ(skin.get_form_integer(L"Dlg", L"V", 0), 3);
    EXPECT_EQ(skin.get_form_integer(L"Box", L"V", 0), 5);
    EXPECT_EQ(skin.get_form_integer(L"Full", L"V", 0), 6);
    Properties small(wide(dir / "T.skin"), {50, 50});
    EXPECT_EQ(small.get_form_integer(L"Box", L"V", 0), 4);
}

TEST(Properties, KindsItemsAndEmptyNames)
{
    Properties skin(test_skin(), {240, 320});
    EXPECT_EQ(skin.get_integer(L"", L"ScrollBar.Track", L"Repeat", 0), 250);
    EXPECT_EQ(skin.get_color(L"", L"ScrollBar.Track", L"Normal", {}), (skinner::Color{0x80, 0x80, 0x80, 0x80}));
    EXPECT_EQ(skin.get_point(L"", L"ScrollBar.Up", L"Size", {}), (Point{16, 16}));
    EXPECT_EQ(skin.get_integer(L"", L"ScrollBar.Up", L"Repeat", 9), 9);
    // No kind named: the default, and no report.
    EXPECT_EQ(skin.get_integer(L"", L"", L"Repeat", 11), 11);

    const std::pair<std::wstring, std::wstring> main_items[] = {
        {L"picLogo", L"Auto.Picture"}, {L"frmTitle", L"Auto.Frame"}, {L"btnRecord", L"Button"},
        {L"btnStop", L"Button"},       {L"btnAuto", L"Auto.Button"}, {L"pnlTools", L"Auto.Panel"},
        {L"frmBox", L"Auto.Frame"}};
    ASSERT_EQ(skin.item_count(L"Main"), static_cast<int>(std::size(main_items)));
    for (int i = 0; i < skin.item_count(L"Main"); ++i)
        EXPECT_EQ(skin.item(L"Main", i), main_items[i]) << i;
    EXPECT_EQ(skin.item(L"Main", 7), (std::pair<std::wstring, std::wstring>{}));
    EXPECT_EQ(skin.item(L"Main", -1), (std::pair<std::wstring, std::wstring>{}));
    EXPECT_EQ(skin.item_count(L"Message"), 3);
    EXPECT_EQ(skin.item(L"Message", 1).first, L"frmMessage");

    // Names beyond the basic plane are looked up as the UTF-16 units they
    // are stored as.
    EXPECT_EQ(skin.get_string(L"Buttons", L"txtName", L"Label\U0001F600", L""), L"beyond the basic plane");
    EXPECT_EQ(skin.get_string(L"Buttons", L"txtName", L"Label\xFF01", L""), L"fullwidth");
    EXPECT_EQ(skin.get_string(L"Buttons", L"txtName", L"Label", L""), L"plain");

    // Questions are counted, and the properties found; the form's variant
    // is known from the first question on.
    skin.get_integer(L"Main", L"btnRecord", L"TabOrder", 0);
    skin.impl().property_counter = skin.impl().found_property_counter = skin.impl().compare_counter = 0;
    skin.get_integer(L"Main", L"btnRecord", L"TabOrder", 0);
    skin.get_integer(L"Main", L"btnRecord", L"Nothing", 0);
    EXPECT_EQ(skin.impl().property_counter, 2u);
    EXPECT_EQ(skin.impl().found_property_counter, 1u);
    EXPECT_GT(skin.impl().compare_counter, 1u);
}

TEST(Properties, StringsPassThroughTheCurrentLanguage)
{
    test::TempDir dir;
    test::write_file(dir / "Deutsch.lng", "form.Main.Title Quillaphonics\nRecord Aufnahme\n// Stop Halt\n");
    test::write_file(dir / "Empty.lng", "");
    Properties skin(test_skin(), {240, 320});
    EXPECT_EQ(skin.get_string(L"Main", L"frmTitle", L"Text", L""), L"form.Main.Title");
    ASSERT_TRUE(skin.load_language(wide(dir / "Deutsch.lng")));
    EXPECT_EQ(skin.get_string(L"Main", L"frmTitle", L"Text", L""), L"Quillaphonics");
    EXPECT_EQ(skin.get_string(L"Main", L"btnRecord", L"Text", L""), L"Aufnahme");
    EXPECT_EQ(skin.get_string(L"Main", L"btnStop", L"Text", L""), L"Stop");
    EXPECT_EQ(skin.get_form_string(L"Main", L"Caption", L""), L"form.Main.Caption");
    // Defaults are not translated; code keys are.
    EXPECT_EQ(skin.get_string(L"Main", L"btnStop", L"Missing", L"Record"), L"Record");
    EXPECT_EQ(skin.translate(L"Record"), L"Aufnahme");

    // A language that can't be loaded changes nothing.
    EXPECT_FALSE(skin.load_language(wide(dir / "Missing.lng")));
    EXPECT_FALSE(skin.load_language(wide(dir / "Empty.lng")));
    EXPECT_EQ(skin.translate(L"Record"), L"Aufnahme");

    // A new skin keeps the translator; a new skin and language replaces both.
    skin.change_skin(test_skin(), {480, 640});
    EXPECT_EQ(skin.scale(), 2);
    EXPECT_EQ(skin.translate(L"Record"), L"Aufnahme");
    test::write_file(dir / "English.lng", "Record Record!\n");
    skin.change_skin_and_language(test_skin(), wide(dir / "English.lng"), {240, 320});
    EXPECT_EQ(skin.scale(), 1);
    EXPECT_EQ(skin.get_string(L"Main", L"btnRecord", L"Text", L""), L"Record!");
    EXPECT_EQ(skin.get_string(L"Main", L"frmTitle", L"Text", L""), L"form.Main.Title");
}

TEST(Properties, EveryChangeRefreshesEachLiveFormOfItsSkinOnce)
{
    test::TempDir dir;
    test::write_file(dir / "A.lng", "Record A\n");
    Properties skin(test_skin(), {240, 320});
    Properties other(test_skin(), {240, 320});
    CountingForm first(&skin);
    CountingForm elsewhere(&other);
    auto second = std::make_unique<CountingForm>(&skin);
    // A form that closes another while it refreshes: the closed one is skipped.
    std::unique_ptr<CountingForm> doomed;
    CountingForm closer(&skin, [&] { doomed.reset(); });
    doomed = std::make_unique<CountingForm>(&skin);

    ASSERT_TRUE(skin.load_language(wide(dir / "A.lng")));
    EXPECT_EQ(first.refreshes, 1);
    EXPECT_EQ(second->refreshes, 1);
    EXPECT_EQ(closer.refreshes, 1);
    EXPECT_EQ(elsewhere.refreshes, 0);
    EXPECT_EQ(doomed, nullptr);

    second.reset();
    skin.change_skin(test_skin(), {480, 640});
    EXPECT_EQ(first.refreshes, 2);
    EXPECT_EQ(elsewhere.refreshes, 0);
    other.refresh_skin();
    EXPECT_EQ(elsewhere.refreshes, 1);
    EXPECT_EQ(first.refreshes, 2);

    // The counters start again at each refresh.
    skin.get_integer(L"Main", L"btnRecord", L"TabOrder", 0);
    skin.refresh_skin();
    EXPECT_EQ(skin.impl().property_counter, 0u);
    EXPECT_EQ(skinner::live_forms().size(), 3u);
}

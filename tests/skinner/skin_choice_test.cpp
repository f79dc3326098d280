// The skin a start chooses, and the skins the settings offer.
#include "liba/text.h"
#include "os/path.h"
#include "skinner/skin_choice.h"
#include "skinner/skin_finder.h"
#include "tests/skinner/skin_test_support.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace fs = std::filesystem;
using skin_test::wide;
using skinner::Point;

namespace {

// Compiles a one-form skin into DIR/NAME.skin with the test skin's pictures.
fs::path make_skin(const fs::path& dir, const std::string& name, const std::string& version = "Quillaphonics_500",
                   const std::string& devices = "", const std::string& natives = "<native width=\"240\" height=\"320\"/>")
{
    fs::create_directories(dir);
    skin_test::copy_test_pictures(dir);
    std::string error = skin_test::compile(
        dir,
        skin_test::skin_xml("<form name=\"Main\"><string name=\"Name\" value=\"" + name +
                                "\"/><picture name=\"Logo\" file=\"logo\"/></form>",
                            version, devices, natives),
        name);
    EXPECT_EQ(error, "");
    return dir / (name + ".skin");
}

} // namespace

TEST(SkinChoice, TheSettingsSkinWhenItFitsAtTheZoomAsked)
{
    test::TempDir dir;
    fs::path mine = make_skin(dir / "mine", "Mine", "Quillaphonics_500", "", "<native width=\"320\" height=\"240\"/>");
    fs::path fallback = make_skin(dir / "default", "Default");
    test::write_file(dir / "English.lng", "Mine My own skin\n");

    const struct {
        int zoom;
        Point desktop;
        int chosen_zoom;
    } cases[] = {{1, {}, 1}, {3, {}, 3}, {0, {1300, 1000}, 4}, {0, {1000, 1000}, 3}, {0, {500, 400}, 1}, {0, {}, 1}};
    for (const auto& c : cases) {
        skinner::SkinChoice choice;
        auto skin = skinner::choose_skin(wide(mine), c.zoom, c.desktop, wide(dir / "English.lng"), &choice,
                                         wide(fallback));
        ASSERT_NE(skin, nullptr);
        EXPECT_FALSE(choice.fell_back);
        EXPECT_EQ(choice.path, wide(mine));
        EXPECT_EQ(choice.zoom, c.chosen_zoom) << c.zoom << " " << c.desktop.x;
        EXPECT_EQ(choice.screen_size, (Point{320 * c.chosen_zoom, 240 * c.chosen_zoom}));
        EXPECT_EQ(skin->scale(), c.chosen_zoom);
        EXPECT_EQ(skin->get_form_string(L"Main", L"Name", L""), L"My own skin");
    }
}

TEST(SkinChoice, FallsBackToTheDefaultSkinAtItsOwnSize)
{
    test::TempDir dir;
    fs::path fallback = make_skin(dir / "default", "Default", "Quillaphonics_500", "",
                                  "<native width=\"176\" height=\"220\"/>");
    fs::path good = make_skin(dir / "good", "Good");
    const std::string archive = test::read_file(good);

    // Each of these fails the test for the application's mark at its size.
    fs::create_directories(dir / "bad");
    test::write_file(dir / "bad" / "Cut.skin",
                     archive.substr(0, skin_test::description_offset(good) + 600));
    test::write_file(dir / "bad" / "Tiny.skin", archive.substr(0, 100));
    fs::path today = make_skin(dir / "bad", "Today", "QuillaphonicsToday_500");
    fs::path phone = make_skin(dir / "bad", "Phone", "Quillaphonics_500", "S");
    fs::path no_logo = make_skin(dir / "nologo", "NoLogo");
    fs::remove(dir / "nologo" / "logo.png");
    for (const fs::path& settings : {dir / "bad" / "Cut.skin", dir / "bad" / "Tiny.skin", today, phone, no_logo,
                                     dir / "bad" / "Missing.skin"}) {
        skinner::SkinChoice choice;
        auto skin = skinner::choose_skin(wide(settings), 2, {}, L"", &choice, wide(fallback));
        ASSERT_NE(skin, nullptr) << settings;
        EXPECT_TRUE(choice.fell_back);
        EXPECT_EQ(choice.path, wide(fallback));
        EXPECT_EQ(choice.screen_size, (Point{352, 440})) << settings;
        EXPECT_EQ(skin->get_form_string(L"Main", L"Name", L""), L"Default");
        EXPECT_EQ(skin->scale(), 2);
    }

    // Neither fits: the warning, and no skin.
    testing::internal::CaptureStderr();
    auto none = skinner::choose_skin(wide(dir / "bad" / "Cut.skin"), 1, {}, L"", nullptr, wide(today));
    std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(said, "Warning: Skin not found or it is incompatible with this version of Quillaphonics\n");

    // A skin that names no native size is shown on a 240x320 screen.
    fs::path sizeless = make_skin(dir / "sizeless", "Sizeless", "Quillaphonics_500", "", "");
    skinner::SkinChoice choice;
    ASSERT_NE(skinner::choose_skin(wide(sizeless), 2, {}, L"", &choice, wide(fallback)), nullptr);
    EXPECT_FALSE(choice.fell_back);
    EXPECT_EQ(choice.screen_size, (Point{480, 640}));
}

TEST(SkinChoice, TheBuildPlacesAUsableDefaultSkin)
{
    fs::path installed = test::program_dir() / "skins" / "Default" / "Default.skin";
    skinner::SkinChoice choice;
    auto skin = skinner::choose_skin(wide(installed), 1, {}, L"", &choice, wide(installed));
    ASSERT_NE(skin, nullptr);
    EXPECT_FALSE(choice.fell_back);
    EXPECT_EQ(skin->item(L"Message", 0).first, L"frmCaption");
}

TEST(MySkinFinder, SortsSkinsByMarkAndKeepsOneEntryPerFileName)
{
    {
    test::PrivateHome home;
    os::init_path_macros();
    fs::path skins = home.app_data() / "skins";
    fs::path first = make_skin(skins / "a", "App");
    fs::path second = make_skin(skins / "b" / "deeper", "App");
    fs::path other = make_skin(skins, "Other");
    fs::path today = make_skin(skins / "t", "Today", "QuillaphonicsToday_500");
    make_skin(skins / "w", "Wide", "Quillaphonics_500", "", "<native width=\"320\" height=\"240\"/>");
    test::write_file(skins / "Broken.skin", "not a skin at all");
    test::write_file(skins / "notes.txt", "not a skin either");
    fs::copy_file(skins / "a" / "logo.png", skins / "a" / "App_preview.png");

    skinner::MySkinFinder finder({240, 320});
    finder.run();
    std::vector<std::wstring> names;
    for (const std::wstring& p : finder.skins())
        names.push_back(os::file_name_of(p));
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::wstring>{L"App.skin", L"Other.skin"}));
    for (const std::wstring& p : finder.skins())
        if (os::file_name_of(p) == L"App.skin") {
            EXPECT_TRUE(p == wide(first) || p == wide(second)) << liba::to_utf8(p);
        }
    ASSERT_EQ(finder.today_skins().size(), 1u);
    EXPECT_EQ(finder.today_skins()[0], wide(today));

    EXPECT_TRUE(skinner::MySkinFinder::preview(wide(first)).is_valid());
    EXPECT_EQ(skinner::MySkinFinder::preview(wide(first)).natural_size(), (Point{32, 32}));
    EXPECT_TRUE(skinner::MySkinFinder::preview(wide(other)).is_empty());

    // On a wide screen only the wide skin fits.
    skinner::MySkinFinder wide_finder({320, 240});
    wide_finder.run();
    ASSERT_EQ(wide_finder.skins().size(), 1u);
    EXPECT_EQ(os::file_name_of(wide_finder.skins()[0]), L"Wide.skin");
    }
    // The macros follow the restored environment again.
    os::init_path_macros();
}

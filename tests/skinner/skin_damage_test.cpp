// Skins the program can't use: damaged, compressed, cut or incomplete
// archives stay invalid; questions the skin can't answer end the process
// with the skin's own report.
#include "liba/text.h"
#include "skinner/properties.h"
#include "tests/skinner/skin_test_support.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <random>

namespace fs = std::filesystem;
using skin_test::wide;
using skinner::Point;
using skinner::Properties;

namespace {

// A copy of the test skin with its pictures in a folder of its own.
fs::path copy_test_skin(const fs::path& dir, const std::string& name = "Test.skin")
{
    skin_test::copy_test_pictures(dir);
    fs::copy_file(skin_test::test_skin(), dir / name, fs::copy_options::overwrite_existing);
    return dir / name;
}

bool usable(const fs::path& skin)
{
    Properties p(wide(skin), {240, 320});
    return p.check_version(skinner::kAppVersionMark, {240, 320});
}

bool header_fits(const fs::path& skin)
{
    return Properties::check_version(wide(skin), skinner::kAppVersionMark, {240, 320});
}

std::string zip(const fs::path& dir, const std::string& arguments)
{
    std::string out;
    EXPECT_EQ(test::run("cd '" + dir.string() + "' && zip -q " + arguments + " 2>&1", &out), 0) << out;
    return out;
}

} // namespace

TEST(SkinDamage, ArchivesTheChainCantReadAreInvalid)
{
    test::TempDir dir;
    fs::path good = copy_test_skin(dir.path());
    ASSERT_TRUE(usable(good));
    ASSERT_TRUE(header_fits(good));

    // The description unpacked by unzip works as a bare description.
    std::string out;
    ASSERT_EQ(test::run("cd '" + dir.path().string() + "' && unzip -p Test.skin Test.skin > Bare.skin", &out), 0);
    EXPECT_TRUE(usable(dir / "Bare.skin"));
    EXPECT_TRUE(header_fits(dir / "Bare.skin"));

    // Deflated by zip: the chain ends at once, the file is read as a bare
    // description and fails the magic.
    fs::copy_file(dir / "Bare.skin", dir / "inner.skin");
    zip(dir.path(), "-9 Deflated.skin inner.skin");
    EXPECT_FALSE(usable(dir / "Deflated.skin"));
    EXPECT_FALSE(header_fits(dir / "Deflated.skin"));
    Properties deflated(wide(dir / "Deflated.skin"), {240, 320});
    EXPECT_FALSE(deflated.impl().is_valid());
    EXPECT_FALSE(deflated.impl().load_error().empty());

    // Stored, but under a name without the extension "skin".
    fs::copy_file(dir / "Bare.skin", dir / "description.bin");
    zip(dir.path(), "-0 Renamed.skin description.bin");
    EXPECT_FALSE(usable(dir / "Renamed.skin"));
    // Stored under an upper-case extension: found.
    fs::copy_file(dir / "Bare.skin", dir / "UPPER.SKIN");
    zip(dir.path(), "-0 Upper.skin UPPER.SKIN");
    EXPECT_TRUE(usable(dir / "Upper.skin"));

    // Random bytes and a missing file.
    std::mt19937 rng(7);
    std::string noise(5000, '\0');
    for (char& c : noise)
        c = static_cast<char>(rng());
    test::write_file(dir / "Noise.skin", noise);
    EXPECT_FALSE(usable(dir / "Noise.skin"));
    EXPECT_FALSE(usable(dir / "Missing.skin"));
    EXPECT_FALSE(header_fits(dir / "Missing.skin"));
}

TEST(SkinDamage, ShortSkinsAndCutArchivesAreInvalid)
{
    test::TempDir dir;
    copy_test_skin(dir.path());
    const std::string bare = skin_test::description_of(skin_test::test_skin());

    // 539 bytes are no skin; a 540-byte header with no trees is one.
    test::write_file(dir / "Short.skin", bare.substr(0, 539));
    EXPECT_FALSE(usable(dir / "Short.skin"));
    std::string header = skin_test::compile_description(skin_test::skin_xml(""));
    ASSERT_EQ(header.size(), 540u);
    test::write_file(dir / "Header.skin", header);
    EXPECT_TRUE(usable(dir / "Header.skin"));
    Properties empty(wide(dir / "Header.skin"), {240, 320});
    EXPECT_TRUE(empty.impl().pictures().empty());

    // An archive cut inside its description entry is invalid, wherever the
    // cut falls; the header alone may still pass the quick test, which reads
    // nothing but the header.
    const std::string archive = test::read_file(skin_test::test_skin());
    const size_t start = skin_test::description_offset(skin_test::test_skin());
    ASSERT_GT(start, 0u);
    for (size_t cut : {start - 1, start + 100, start + 539, start + 540, start + 541, start + bare.size() / 2,
                       start + bare.size() - 1}) {
        test::write_file(dir / "Cut.skin", archive.substr(0, cut));
        EXPECT_FALSE(usable(dir / "Cut.skin")) << cut - start;
        EXPECT_EQ(header_fits(dir / "Cut.skin"), cut >= start + 540) << cut - start;
    }
    // Cut behind the entry (in the central directory): whole.
    test::write_file(dir / "Cut.skin", archive.substr(0, start + bare.size()));
    EXPECT_TRUE(usable(dir / "Cut.skin"));
}

TEST(SkinDamage, OnePictureMissingOrCutInvalidatesTheSkin)
{
    test::TempDir dir;
    fs::path skin = copy_test_skin(dir.path());
    const std::string logo = test::read_file(dir / "logo.png");

    test::write_file(dir / "logo.png", logo.substr(0, logo.size() / 2));
    Properties cut(wide(skin), {240, 320});
    EXPECT_FALSE(cut.check_version(L"", {240, 320}));
    EXPECT_NE(cut.impl().load_error().find(L"logo"), std::wstring::npos) << liba::to_utf8(cut.impl().load_error());
    // The header test doesn't look at pictures.
    EXPECT_TRUE(header_fits(skin));

    fs::remove(dir / "logo.png");
    EXPECT_FALSE(usable(skin));
    test::write_file(dir / "logo.png", logo);
    EXPECT_TRUE(usable(skin));
}

TEST(SkinDamage, QuestionsTheSkinCantAnswerEndTheProcessWithItsReport)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::wstring path = wide(skin_test::test_skin());
    const std::string shown = skin_test::test_skin().string();
    Properties skin(path, {240, 320});
    ASSERT_TRUE(skin.check_version(L"", {240, 320}));

    EXPECT_EXIT(skin.get_integer(L"Main", L"btnNothing", L"X", 0), testing::ExitedWithCode(0),
                "report_no_control: Skin file \\{" + shown + "\\} form \\{Main\\} has no control \\{btnNothing\\}");
    EXPECT_EXIT(skin.get_integer(L"Nothing", L"btnOk", L"X", 0), testing::ExitedWithCode(0),
                "report_no_control: .* form \\{Nothing\\} has no control \\{btnOk\\}");
    // A form that exists, but in no variant that fits this screen.
    EXPECT_EXIT(skin.get_form_integer(L"SettingsPhone", L"X", 0), testing::ExitedWithCode(0),
                "report_no_form: Skin file \\{" + shown +
                    "\\} has no form \\{SettingsPhone\\} for workarea_size=240,320. list of all forms:\n"
                    "(.|\n)*\\+SettingsPhone Size=176,200 Devices=S\n(.|\n)*-Tools\n");
    EXPECT_EXIT(skin.item_count(L"Nothing"), testing::ExitedWithCode(0), "has no form \\{Nothing\\}");
    EXPECT_EXIT(skin.get_integer(L"", L"NoKind", L"X", 0), testing::ExitedWithCode(0),
                "report_no_form: Skin file \\{" + shown + "\\} has no kind \\{NoKind\\}");

    Properties invalid(L"/nonexistent/None.skin", {240, 320});
    EXPECT_EXIT(invalid.get_integer(L"Main", L"btnOk", L"X", 0), testing::ExitedWithCode(0),
                "report_no_skin: Skin file \\{/nonexistent/None.skin\\} was invalid, but no check_version performed");
    Properties nothing;
    EXPECT_EXIT(nothing.get_form_integer(L"Main", L"X", 0), testing::ExitedWithCode(0), "report_no_skin");
}

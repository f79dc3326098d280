// quillctl skin info, run as a user runs it.
#include "tests/skinner/skin_test_support.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace {

int info(const std::string& arguments, std::string* out)
{
    return test::run(skin_test::quillctl().string() + " skin info " + arguments, out);
}

} // namespace

TEST(QuillctlSkinInfo, PrintsVersionSizesScaleAndForms)
{
    const std::string skin = "'" + skin_test::test_skin().string() + "'";
    std::string out;
    ASSERT_EQ(info(skin, &out), 0) << out;
    EXPECT_EQ(out,
              "version: Quillaphonics_500\n"
              "devices: \n"
              "native: 240x320\n"
              "native: 320x240\n"
              "scale: 1\n"
              "form: Buttons\n"
              "form: ConfirmYesNo\n"
              "form: Controls\n"
              "form: Main\n"
              "form: Message\n"
              "form: Settings\n"
              "form: SettingsPhone\n"
              "form: SettingsWide\n"
              "form: Tall\n"
              "form: Tools\n");
    ASSERT_EQ(info(skin + " --size 640x480", &out), 0);
    EXPECT_NE(out.find("\nscale: 2\n"), std::string::npos) << out;
    ASSERT_EQ(info("--size 1000x700 " + skin, &out), 0);
    EXPECT_NE(out.find("\nscale: 2\n"), std::string::npos) << out;

    EXPECT_EQ(info("", &out), 2);
    EXPECT_EQ(info(skin + " --size 640", &out), 2);
    EXPECT_EQ(info(skin + " extra", &out), 2);
}

TEST(QuillctlSkinInfo, ASkinCutInsideItsDescriptionFailsWithOneLine)
{
    test::TempDir dir;
    std::string archive = test::read_file(skin_test::test_skin());
    test::write_file(dir / "Cut.skin", archive.substr(0, skin_test::description_offset(skin_test::test_skin()) + 1000));
    std::string out;
    EXPECT_EQ(info("'" + (dir / "Cut.skin").string() + "' 2>&1", &out), 1);
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1) << out;
    EXPECT_EQ(out.rfind("quillctl: " + (dir / "Cut.skin").string() + ": not a usable skin: ", 0), 0u) << out;
    EXPECT_NE(out.find("ends inside its description"), std::string::npos) << out;
    // Nothing written beside it.
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), 1);

    EXPECT_EQ(info("'" + (dir / "None.skin").string() + "' 2>&1", &out), 1);
    EXPECT_NE(out.find("can't open it"), std::string::npos) << out;
}

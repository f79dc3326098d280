// The skin compiler: what it writes, checked by unzip and by the engine's
// reader, and what it refuses, with the file and line it names.
#include "liba/text.h"
#include "skinner/properties.h"
#include "skinner/skin_description.h"
#include "tests/skinner/skin_test_support.h"
#include "tests/support/test_support.h"
#include "tools/skinc/picture_files.h"
#include "tools/skinc/skin_source.h"

#include <gtest/gtest.h>

namespace fs = std::filesystem;
using skin_test::wide;
using skinner::Table;

namespace {

std::string utf8(const std::wstring& s) { return liba::to_utf8(s); }

// Compares one property of the source with the record the reader finds.
void expect_record(const skinner::SkinDescription& d, uint32_t node, const skinc::Property& p,
                   const skinc::SkinSource& source, const std::string& where)
{
    SCOPED_TRACE(where + " key " + utf8(p.key) + " line " + std::to_string(p.line));
    uint32_t r = d.find_record(node, p.type, p.key);
    ASSERT_NE(r, 0u);
    const uint8_t* b = d.data() + r;
    switch (p.type) {
    case Table::kIntegers: EXPECT_EQ(skinner::read_i32(b + skinner::kIntegerValueAt), p.integer); break;
    case Table::kPoints:
        EXPECT_EQ(skinner::read_i16(b + skinner::kPointXAt), p.x);
        EXPECT_EQ(skinner::read_i16(b + skinner::kPointXAt + 2), p.y);
        break;
    case Table::kStrings: EXPECT_EQ(d.text_at(skinner::read_u16(b + skinner::kStringValueAt)), p.text); break;
    case Table::kColors:
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(b[skinner::kColorBytesAt + i], p.color[i]);
        break;
    case Table::kPictures: {
        for (int i = 0; i < 8; ++i)
            EXPECT_EQ(skinner::read_u16(b + skinner::kPicturePointsAt + 2 * i), p.points[i]);
        EXPECT_EQ(b[skinner::kPictureStretchAt], p.stretch);
        auto pool = d.pool_strings();
        ASSERT_LT(b[skinner::kPictureIndexAt], pool.size());
        EXPECT_EQ(pool[b[skinner::kPictureIndexAt]], source.pictures[p.picture]);
        break;
    }
    case Table::kFonts: {
        auto pool = d.pool_strings();
        uint32_t at = d.header().picture_count() + skinner::read_u32(b + skinner::kFontIndexAt);
        ASSERT_LT(at, pool.size());
        EXPECT_EQ(pool[at], source.fonts[p.font]);
        break;
    }
    }
}

skinc::SkinSource parse_test_skin_source()
{
    skinc::SkinSource source;
    std::wstring error;
    std::string xml = test::read_file(skin_test::test_skin_source() / "skin.xml");
    skinc::PictureFolder built(wide(skin_test::test_skin_dir()));
    EXPECT_TRUE(skinc::parse_skin_source(xml, L"skin.xml", built.lookup(), source, error)) << utf8(error);
    return source;
}

} // namespace

TEST(Skinc, TheBuiltTestSkinIsAStoredArchiveWithLoosePictures)
{
    std::string out;
    ASSERT_EQ(test::run("unzip -tq '" + skin_test::test_skin().string() + "' 2>&1", &out), 0) << out;
    ASSERT_EQ(test::run("unzip -Z1 '" + skin_test::test_skin().string() + "' 2>&1", &out), 0) << out;
    EXPECT_EQ(out, "Test.skin\n");
    ASSERT_EQ(test::run("unzip -Zv '" + skin_test::test_skin().string() + "' | grep -c 'compression method:.*none'",
                        &out),
              0);
    EXPECT_EQ(out, "1\n");
    for (const char* picture : {"button", "button_down", "frame", "logo", "logo_1", "background"})
        EXPECT_TRUE(fs::exists(skin_test::test_skin_dir() / (std::string(picture) + ".png"))) << picture;
}

TEST(Skinc, EveryPropertyOfTheSourceIsFoundInTheCompiledSkin)
{
    skinc::SkinSource source = parse_test_skin_source();
    skinner::SkinDescription d(skin_test::description_of(skin_test::test_skin()));
    ASSERT_TRUE(d.validate());
    skinner::SkinHeaderView h = d.header();
    EXPECT_EQ(h.version(), source.version);
    EXPECT_EQ(h.devices(), source.devices);
    for (size_t i = 0; i < source.sizes.size(); ++i) {
        EXPECT_EQ(h.native_size(static_cast<int>(i)).width, source.sizes[i].width);
        EXPECT_EQ(h.native_size(static_cast<int>(i)).height, source.sizes[i].height);
    }
    EXPECT_EQ(h.native_size(static_cast<int>(source.sizes.size())).width, 0);
    EXPECT_EQ(d.inorder(h.form_tree()).size(), source.forms.size());
    EXPECT_EQ(d.inorder(h.kind_tree()).size(), source.kinds.size());

    size_t properties = 0;
    for (const skinc::Node& form : source.forms) {
        uint32_t node = d.find_node(h.form_tree(), form.name);
        ASSERT_NE(node, 0u) << utf8(form.name);
        for (const skinc::Property& p : form.properties)
            expect_record(d, node, p, source, "form " + utf8(form.name)), ++properties;
        ASSERT_EQ(d.item_count(node), form.controls.size());
        for (size_t i = 0; i < form.controls.size(); ++i) {
            const skinc::Node& c = form.controls[i];
            auto [id, kind] = d.item(node, static_cast<uint32_t>(i));
            EXPECT_EQ(d.text_at(id), c.name);
            EXPECT_EQ(d.text_at(kind), c.kind);
            uint32_t control = d.find_node(d.controls(node), c.name);
            ASSERT_NE(control, 0u) << utf8(c.name);
            for (const skinc::Property& p : c.properties)
                expect_record(d, control, p, source, utf8(form.name) + "/" + utf8(c.name)), ++properties;
        }
    }
    for (const skinc::Node& kind : source.kinds) {
        uint32_t node = d.find_node(h.kind_tree(), kind.name);
        ASSERT_NE(node, 0u) << utf8(kind.name);
        for (const skinc::Property& p : kind.properties)
            expect_record(d, node, p, source, "kind " + utf8(kind.name)), ++properties;
    }
    EXPECT_GT(properties, 100u);

    // The same through the engine's getters, for the forms whose name no
    // other form extends (so the variant is the form itself), at scale 1.
    skinner::Properties skin(wide(skin_test::test_skin()), {240, 320});
    ASSERT_TRUE(skin.check_version(skinner::kAppVersionMark, {240, 320}));
    for (const skinc::Node& form : source.forms) {
        if (form.name.starts_with(L"Settings"))
            continue;
        for (const skinc::Node& c : form.controls)
            for (const skinc::Property& p : c.properties) {
                SCOPED_TRACE(utf8(form.name + L"/" + c.name + L"/" + p.key));
                switch (p.type) {
                case Table::kIntegers: EXPECT_EQ(skin.get_integer(form.name, c.name, p.key, -7), p.integer); break;
                case Table::kPoints:
                    EXPECT_EQ(skin.get_point(form.name, c.name, p.key, {-7, -7}), (skinner::Point{p.x, p.y}));
                    break;
                case Table::kStrings: EXPECT_EQ(skin.get_string(form.name, c.name, p.key, L"-"), p.text); break;
                case Table::kColors: {
                    skinner::Color col = skin.get_color(form.name, c.name, p.key, {});
                    EXPECT_EQ(col, (skinner::Color{p.color[0], p.color[1], p.color[2], p.color[3]}));
                    break;
                }
                case Table::kPictures: {
                    skinner::Picture pic = skin.get_picture(form.name, c.name, p.key, {});
                    EXPECT_TRUE(pic.is_valid());
                    EXPECT_EQ(pic.first_corner(), (skinner::Point{p.points[0], p.points[1]}));
                    EXPECT_EQ(pic.last_corner(), (skinner::Point{p.points[6], p.points[7]}));
                    break;
                }
                case Table::kFonts: EXPECT_FALSE(skin.get_font(form.name, c.name, p.key, skinner::Font()).is_empty()); break;
                }
            }
    }
}

TEST(Skinc, RefusesBadSourcesNamingFileAndLine)
{
    test::TempDir dir;
    skin_test::copy_test_pictures(dir.path());
    struct Case {
        std::string body;
        int line; // of the body's first line: the skin element and one native line come first
        const char* says;
    };
    const Case cases[] = {
        {"<form name=\"A\">\n<int name=\"X\" value=\"twelve\"/>\n</form>", 4, "not a 32-bit integer"},
        {"<form name=\"A\">\n<point name=\"P\" value=\"1 40000\"/>\n</form>", 4, "not a point"},
        {"<form name=\"A\">\n<color name=\"C\" value=\"red\"/>\n</form>", 4, "not a colour"},
        {"<form name=\"A\">\n<font name=\"F\" value=\"10 1 0\"/>\n</form>", 4, "not a font"},
        {"<form name=\"A\">\n<picture name=\"P\" file=\"missing\"/>\n</form>", 4, "no picture file 'missing'"},
        {"<form name=\"A\">\n<picture name=\"P\" file=\"logo\" area=\"0 0 33 32\"/>\n</form>", 4, "beyond the picture"},
        {"<form name=\"A\">\n<picture name=\"P\" file=\"logo\" band=\"0 0 40 40\"/>\n</form>", 4, "band must lie"},
        {"<form name=\"A\">\n<string name=\"S\" value=\"x\"/>\n<string name=\"S\" value=\"y\"/>\n</form>", 5,
         "a second <string>"},
        {"<form name=\"A\"/>\n<form name=\"A\"/>", 4, "a second form"},
        {"<form name=\"A\">\n<control id=\"b\" class=\"Button\"/>\n<control id=\"b\" class=\"Button\"/>\n</form>", 5,
         "a second control"},
        {"<form name=\"A\">\n<control id=\"b\"/>\n</form>", 4, "needs the attribute 'class'"},
        // A control outside its form: past the form's own size, past the
        // screen of a form without one, left of or above it, or so in one
        // variant only ("AWide" is a variant of "A").
        {"<form name=\"A\">\n<point name=\"Size\" value=\"100 50\"/>\n<control id=\"b\" class=\"Button\">\n"
         "<point name=\"Position\" value=\"90 10\"/>\n<point name=\"Size\" value=\"11 10\"/>\n</control>\n</form>",
         6, "the control 'b' (90 10, 11x10) lies outside its form 'A' (100x50)"},
        {"<form name=\"A\">\n<control id=\"b\" class=\"Frame\">\n<point name=\"Size\" value=\"10 321\"/>\n"
         "</control>\n</form>",
         5, "outside its form 'A' (240x320)"},
        {"<form name=\"A\">\n<control id=\"b\" class=\"Frame\">\n<point name=\"Position\" value=\"0 -1\"/>\n"
         "</control>\n</form>",
         5, "the control 'b' (0 -1, 0x0) lies outside"},
        {"<form name=\"A\">\n<control id=\"b\" class=\"Frame\">\n<point name=\"Position\" value=\"200 0\"/>\n"
         "<point name=\"Size\" value=\"40 320\"/>\n</control>\n</form>\n<form name=\"AWide\">\n"
         "<point name=\"Size\" value=\"320 200\"/>\n<control id=\"b\" class=\"Frame\">\n"
         "<point name=\"Position\" value=\"200 0\"/>\n<point name=\"Size\" value=\"40 320\"/>\n</control>\n</form>",
         12, "outside its form 'AWide' (320x200)"},
        {"<form name=\"A\">\n<integer name=\"X\" value=\"1\"/>\n</form>", 4, "unknown element <integer>"},
        {"<form name=\"A\" size=\"1\"/>", 3, "unknown attribute 'size'"},
        {"<panel/>", 3, "unknown element <panel>"},
        {"<form name=\"A\">\n\n<int name=\"X\" value=\"1\">\n</form>", 6, "not well-formed"},
    };
    for (const Case& c : cases) {
        std::string error = skin_test::compile(dir.path(), skin_test::skin_xml(c.body));
        EXPECT_EQ(error.rfind("skin.xml:" + std::to_string(c.line) + ": ", 0), 0u) << c.body << "\n" << error;
        EXPECT_NE(error.find(c.says), std::string::npos) << c.body << "\n" << error;
    }
    // A control filling its form to the last pixel is within it.
    EXPECT_EQ(skin_test::compile(dir.path(), skin_test::skin_xml("<form name=\"A\"><control id=\"b\" class=\"Frame\">"
                                                                 "<point name=\"Size\" value=\"240 320\"/>"
                                                                 "</control></form>")),
              "");
    EXPECT_NE(skin_test::compile(dir.path(), skin_test::skin_xml("", "Quillaphonics_500_and_then_far_too_long")).find(
                  "longer than 31"),
              std::string::npos);

    // The program itself: one line naming the file, exit 1, nothing written.
    fs::create_directory(dir / "src");
    test::write_file(dir / "src" / "skin.xml", skin_test::skin_xml("<form name=\"A\">\n<bogus/>\n</form>"));
    std::string out;
    std::string command = skin_test::skinc().string() + " '" + (dir / "src").string() + "' '" +
                          (dir / "out").string() + "' 2>&1";
    EXPECT_EQ(test::run(command, &out), 1);
    EXPECT_EQ(out, "skinc: " + (dir / "src" / "skin.xml").string() + ":4: unknown element <bogus>\n");
    EXPECT_FALSE(fs::exists(dir / "out"));
    EXPECT_EQ(test::run(skin_test::skinc().string() + " only-one 2>&1", &out), 2);
}

TEST(Skinc, TheFormatsLimitsAreCompileErrors)
{
    test::TempDir dir;
    skin_test::copy_test_pictures(dir.path());
    // 256 pictures fit, as the record holds the index in one byte; the
    // 257th is refused on its own line.
    std::string pictures;
    for (int i = 0; i < 257; ++i) {
        fs::copy_file(dir / "frame.png", dir / ("p" + std::to_string(i) + ".png"));
        pictures += "<picture name=\"K" + std::to_string(i) + "\" file=\"p" + std::to_string(i) + "\"/>\n";
    }
    std::string all = skin_test::skin_xml("<form name=\"A\">\n" + pictures + "</form>");
    std::string error = skin_test::compile(dir.path(), all);
    EXPECT_EQ(error.rfind("skin.xml:260: ", 0), 0u) << error;
    EXPECT_NE(error.find("at most 256 pictures"), std::string::npos) << error;

    size_t cut = all.find("<picture name=\"K256\"");
    std::string fits = all.substr(0, cut) + all.substr(all.find('\n', cut) + 1);
    ASSERT_EQ(skin_test::compile(dir.path(), fits), "");
    skinner::Properties skin(wide(dir / "T.skin"), {240, 320});
    ASSERT_TRUE(skin.check_version(L"", {240, 320})) << utf8(skin.impl().load_error());
    EXPECT_EQ(skin.impl().pictures().size(), 256u);
    EXPECT_TRUE(skin.get_form_picture(L"A", L"K255", {}).is_valid());

    // Names and string values must end within 64 KiB: 40 strings of 1000
    // characters take 80,000 bytes, so one of them in the middle is the first
    // to cross.
    std::string strings;
    for (int i = 0; i < 40; ++i)
        strings += "<string name=\"S" + std::to_string(i) + "\" value=\"" + std::to_string(100 + i) +
                   std::string(997, 'a') + "\"/>\n";
    error = skin_test::compile(dir.path(), skin_test::skin_xml("<form name=\"A\">\n" + strings + "</form>"));
    // Header 540, then per string its key (8 bytes) and its value (2002):
    // the 33rd value (S32, on line 4 + 32) is the first to end past 65,536.
    EXPECT_EQ(error.rfind("skin.xml:36: ", 0), 0u) << error.substr(0, 200);
    EXPECT_NE(error.find("64 KiB"), std::string::npos);
}

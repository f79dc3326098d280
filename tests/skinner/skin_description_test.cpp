// The compiled description as the engine reads it: what makes a block a
// skin, which damage is caught at load, and the order of names.
#include "skinner/skin_description.h"
#include "tests/skinner/skin_test_support.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <functional>

using skinner::SkinDescription;
using skinner::Table;

namespace {

void put32(std::string& b, size_t at, uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        b[at + i] = static_cast<char>(v >> (8 * i));
}
void put16(std::string& b, size_t at, uint16_t v)
{
    b[at] = static_cast<char>(v);
    b[at + 1] = static_cast<char>(v >> 8);
}

bool valid(const std::string& bytes) { return SkinDescription(bytes).validate(); }

const std::string kSmallSkin = skin_test::skin_xml(R"(
<form name="Main">
  <point name="Size" value="240 320"/>
  <string name="Caption" value="Main"/>
  <control id="btnOk" class="Button">
    <int name="ZOrder" value="2"/>
    <string name="Text" value="OK"/>
    <color name="Normal" value="#102030"/>
    <font name="Normal" value="10 0 0 0 DejaVu Sans"/>
  </control>
  <control id="btnCancel" class="Button"><int name="ZOrder" value="1"/></control>
</form>
<form name="Other"><int name="Fullscreen" value="1"/></form>
<kind name="Row"><int name="Height" value="20"/></kind>)");

} // namespace

TEST(SkinDescription, HeaderDecidesWhatIsASkin)
{
    std::string empty = skin_test::compile_description(skin_test::skin_xml("", "Quillaphonics_500", "P", ""));
    // A skin of no forms, pictures or fonts is its header alone.
    ASSERT_EQ(empty.size(), skinner::kSkinHeaderSize);
    EXPECT_TRUE(valid(empty));
    EXPECT_FALSE(valid(empty.substr(0, 539)));
    SkinDescription d(empty);
    EXPECT_EQ(d.header().version(), L"Quillaphonics_500");
    EXPECT_EQ(d.header().devices(), L"P");

    auto damaged = [&](size_t at, uint16_t unit) {
        std::string b = empty;
        put16(b, at, unit);
        return b;
    };
    EXPECT_FALSE(valid(damaged(0, 0x0422))) << "magic";
    EXPECT_FALSE(valid(damaged(6, 0))) << "magic";
    // A unit behind the NUL of a string field, or no NUL in its 32 units.
    EXPECT_FALSE(valid(damaged(skinner::kHeaderVersionAt + 2 * 20, L'x')));
    EXPECT_FALSE(valid(damaged(skinner::kHeaderDevicesAt + 2 * 31, L'S')));
    std::string full = empty;
    for (size_t i = 0; i < skinner::kHeaderStringUnits; ++i)
        put16(full, skinner::kHeaderVersionAt + 2 * i, L'Q');
    EXPECT_FALSE(valid(full));
    // The last unit may hold the NUL.
    std::string thirty_one = full;
    put16(thirty_one, skinner::kHeaderVersionAt + 2 * 31, 0);
    EXPECT_TRUE(valid(thirty_one));
}

TEST(SkinDescription, ReferencesOutsideTheBlockAreCaughtAtLoad)
{
    const std::string good = skin_test::compile_description(kSmallSkin);
    ASSERT_TRUE(valid(good));
    SkinDescription d(good);
    const uint32_t main = d.find_node(d.header().form_tree(), L"Main");
    const uint32_t ok = d.find_node(d.controls(main), L"btnOk");
    const uint32_t row = d.find_node(d.header().kind_tree(), L"Row");
    ASSERT_TRUE(main && ok && row);
    const uint32_t size = static_cast<uint32_t>(good.size());
    auto [ints_begin, ints_end] = d.table(ok, Table::kIntegers);
    auto [strings_begin, strings_end] = d.table(ok, Table::kStrings);
    auto [fonts_begin, fonts_end] = d.table(ok, Table::kFonts);
    ASSERT_EQ(ints_end - ints_begin, 8u);

    const std::vector<std::pair<const char*, std::function<void(std::string&)>>> damage = {
        {"form tree beyond the end", [&](std::string& b) { put32(b, skinner::kHeaderFormTreeAt, size); }},
        {"kind tree overlapping the end", [&](std::string& b) { put32(b, skinner::kHeaderKindTreeAt, size - 8); }},
        {"left child beyond the end", [&](std::string& b) { put32(b, main, size + 100); }},
        {"a node its own child", [&](std::string& b) { put32(b, ok + 4, ok); }},
        {"a cycle through the kind tree",
         [&](std::string& b) { put32(b, row, d.header().kind_tree() == row ? row : d.header().kind_tree()); }},
        {"node name beyond the end", [&](std::string& b) { put32(b, main + 8, size); }},
        {"node name without NUL", [&](std::string& b) { put32(b, main + 8, size - 2), put16(b, size - 2, 'x'); }},
        {"table end beyond the end", [&](std::string& b) { put32(b, ok + 4 * 4, size + 8); }},
        {"table end before its begin", [&](std::string& b) { put32(b, ok + 4 * 4, ints_begin - 8); }},
        {"table of part of a record", [&](std::string& b) { put32(b, ok + 4 * 4, ints_end - 3); }},
        {"record name beyond 64 KiB reach", [&](std::string& b) { put16(b, ints_begin, uint16_t(size)); }},
        {"string value without NUL",
         [&](std::string& b) { put16(b, strings_begin + 2, uint16_t(size - 2)), put16(b, size - 2, 'x'); }},
        {"font index past the fonts", [&](std::string& b) { put32(b, fonts_begin + 4, 1); }},
        {"item count past the end", [&](std::string& b) { put32(b, main + 4 * 16, 0x10000000); }},
        {"item name beyond the end", [&](std::string& b) { put16(b, main + 4 * 17, uint16_t(size - 1)); }},
        {"pool larger than the block", [&](std::string& b) { put32(b, skinner::kHeaderFontCountAt, 100000); }},
        {"pool beyond the end", [&](std::string& b) { put32(b, skinner::kHeaderStringPoolAt, size); }},
        {"controls beyond the end", [&](std::string& b) { put32(b, main + 4 * 15, size - 4); }},
    };
    for (const auto& [what, change] : damage) {
        std::string b = good;
        change(b);
        std::wstring why;
        EXPECT_FALSE(SkinDescription(b).validate(&why)) << what;
        EXPECT_FALSE(why.empty()) << what;
    }
    (void)strings_end;
    (void)fonts_end;

    // The compiler writes nothing that nothing reaches, so a description cut
    // anywhere behind its header lacks something it refers to.
    for (size_t cut = skinner::kSkinHeaderSize; cut < good.size(); ++cut)
        ASSERT_FALSE(valid(good.substr(0, cut))) << cut;
}

TEST(SkinDescription, NamesOrderAsUtf16UnitsWithPrefixesFirst)
{
    // As UTF-16, U+1F600 is D83D DE00 and sorts before U+FF01; as 32-bit
    // characters it would sort after. A prefix sorts before its extensions.
    std::string bytes = skin_test::compile_description(skin_test::skin_xml(R"(
<form name="F">
  <string name="Label&#xFF01;" value="fullwidth"/>
  <string name="Label&#x1F600;" value="astral"/>
  <string name="Label" value="plain"/>
  <string name="Labe" value="short"/>
  <string name="Label&#x7F;" value="ascii"/>
</form>
<form name="&#x1F600;"/><form name="&#xFF01;"/><form name="A"/><form name="AB"/><form name="B"/>)"));
    SkinDescription d(bytes);
    ASSERT_TRUE(d.validate());
    uint32_t f = d.find_node(d.header().form_tree(), L"F");
    ASSERT_NE(f, 0u);
    const std::pair<std::wstring, std::wstring> expected[] = {
        {L"Labe", L"short"}, {L"Label", L"plain"}, {L"Label\x7F", L"ascii"},
        {L"Label\U0001F600", L"astral"}, {L"Label\xFF01", L"fullwidth"}};
    auto [begin, end] = d.table(f, Table::kStrings);
    ASSERT_EQ((end - begin) / skinner::kStringNodeSize, std::size(expected));
    for (size_t i = 0; i < std::size(expected); ++i) {
        const uint8_t* r = d.data() + begin + i * skinner::kStringNodeSize;
        EXPECT_EQ(d.text_at(skinner::read_u16(r)), expected[i].first) << i;
        uint32_t found = d.find_record(f, Table::kStrings, expected[i].first);
        ASSERT_NE(found, 0u) << i;
        EXPECT_EQ(d.text_at(skinner::read_u16(d.data() + found + 2)), expected[i].second);
    }
    EXPECT_EQ(d.find_record(f, Table::kStrings, L"Lab"), 0u);
    EXPECT_EQ(d.find_record(f, Table::kStrings, L"Labels"), 0u);
    EXPECT_EQ(d.find_record(f, Table::kIntegers, L"Label"), 0u);

    std::vector<std::wstring> names;
    for (uint32_t n : d.inorder(d.header().form_tree()))
        names.push_back(d.text_at(d.name(n)));
    EXPECT_EQ(names, (std::vector<std::wstring>{L"A", L"AB", L"B", L"F", L"\U0001F600", L"\xFF01"}));
    for (const std::wstring& n : names)
        EXPECT_NE(d.find_node(d.header().form_tree(), n), 0u);
    EXPECT_EQ(d.find_node(d.header().form_tree(), L"C"), 0u);
    EXPECT_EQ(d.find_node(d.header().form_tree(), L""), 0u);
    // Every node of the tree once, node before its subtrees.
    EXPECT_EQ(d.preorder(d.header().form_tree()).size(), names.size());
    EXPECT_EQ(d.preorder(d.header().form_tree()).front(), d.header().form_tree());
}

TEST(SkinDescription, CompatibilityTestFollowsDevicesMarkAndSizes)
{
    auto fit = [](const std::string& devices, const std::string& natives, const std::wstring& mark, int w, int h) {
        std::string b = skin_test::compile_description(skin_test::skin_xml("", "Quillaphonics_500", devices, natives));
        return skinner::check_header_version(SkinDescription(b).header(), mark, w, h);
    };
    const std::string sizes = R"(<native width="240" height="320"/><native width="320" height="240"/>)";
    EXPECT_TRUE(fit("", sizes, L"Quillaphonics_500", 240, 320).ok);
    EXPECT_EQ(fit("", sizes, L"Quillaphonics_500", 240, 320).scale, 1);
    auto wide2 = fit("", sizes, L"", 640, 480);
    EXPECT_TRUE(wide2.ok);
    EXPECT_EQ(wide2.scale, 2);
    EXPECT_EQ(wide2.native.width, 320);
    EXPECT_EQ(fit("", sizes, L"", 960, 1280).scale, 4);
    EXPECT_FALSE(fit("", sizes, L"", 320, 320).ok);
    EXPECT_FALSE(fit("", sizes, L"", 1200, 1600).ok) << "scale 5";
    EXPECT_FALSE(fit("", sizes, L"QuillaphonicsToday_500", 240, 320).ok);
    EXPECT_TRUE(fit("", sizes, L"", 0, 0).ok);
    // Devices: this is the Pocket PC kind of the program.
    EXPECT_TRUE(fit("P", sizes, L"", 240, 320).ok);
    EXPECT_TRUE(fit("SP", sizes, L"", 240, 320).ok);
    EXPECT_FALSE(fit("S", sizes, L"", 240, 320).ok);
    EXPECT_FALSE(fit("S", sizes, L"", 0, 0).ok);
    // A skin without native sizes fits every screen.
    EXPECT_TRUE(fit("", "", L"", 333, 777).ok);
}

#include "liba/text.h"
#include "os/path.h"
#include "os/xml_document.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

namespace {

std::wstring liba_path(const std::filesystem::path& p) { return liba::from_utf8(p.string()); }

TEST(XmlDocument, RoundTripsElementsAndTypedAttributesThroughAFile)
{
    test::TempDir dir;
    std::wstring path = liba_path(dir / "s.xml");
    os::XmlDocument doc;
    doc.create();
    auto root = doc.root().add_child(L"Settings");
    auto rec = root.add_child(L"Record");
    rec.set_attribute(L"Samples", 22050);
    rec.set_attribute(L"Gain", 0.5);
    rec.set_attribute(L"VASOn", true);
    rec.set_attribute(L"Folder", std::wstring(L"%my_documents%/\u00e9t\u00e9 \U0001F3B5 <&\">"));
    root.add_child(L"Task").set_attribute(L"Begin", L"2026 01 02 03 04 05");
    root.add_child(L"Task");
    ASSERT_TRUE(doc.save(path));

    os::XmlDocument back;
    ASSERT_TRUE(back.load(path));
    auto s = back.root().child(L"Settings");
    ASSERT_FALSE(s.is_null());
    EXPECT_EQ(s.child_count(), 3);
    EXPECT_EQ(s.child_at(2).name(), L"Task");
    EXPECT_TRUE(s.child_at(3).is_null());
    // Positions hold whichever way the children are walked.
    EXPECT_EQ(s.child_at(0).name(), L"Record");
    EXPECT_EQ(s.child_at(1).name(), L"Task");
    EXPECT_EQ(s.child_at(1).child_count(), 0);
    int samples = 0;
    double gain = 0;
    bool vas = false;
    std::wstring folder;
    auto r = s.child(L"Record");
    EXPECT_TRUE(r.attribute(L"Samples", samples) && samples == 22050);
    EXPECT_TRUE(r.attribute(L"Gain", gain) && gain == 0.5);
    EXPECT_TRUE(r.attribute(L"VASOn", vas) && vas);
    EXPECT_TRUE(r.attribute(L"Folder", folder));
    EXPECT_EQ(folder, L"%my_documents%/\u00e9t\u00e9 \U0001F3B5 <&\">");
    std::string raw = test::read_file(dir / "s.xml");
    EXPECT_NE(raw.find("Gain=\"0.500000\""), std::string::npos) << raw;
    EXPECT_NE(raw.find("VASOn=\"true\""), std::string::npos);
}

TEST(XmlDocument, BadValuesLeaveTargetsAloneAndNullNodesDoNothing)
{
    os::XmlDocument doc;
    ASSERT_TRUE(doc.load_bytes(R"(<S a="12x" b="TRUE" c="" d="-7" e="1e3" f="99999999999"/>)"));
    auto s = doc.root().child(L"S");
    int i = 5;
    bool b = false;
    double d = 1.5;
    EXPECT_FALSE(s.attribute(L"a", i));
    EXPECT_FALSE(s.attribute(L"c", i));
    EXPECT_FALSE(s.attribute(L"f", i)) << "too large for the field";
    EXPECT_FALSE(s.attribute(L"missing", i));
    EXPECT_EQ(i, 5);
    EXPECT_TRUE(s.attribute(L"d", i) && i == -7);
    EXPECT_TRUE(s.attribute(L"b", b) && b);
    EXPECT_TRUE(s.attribute(L"e", d) && d == 1000.0);
    EXPECT_FALSE(s.attribute(L"a", b));

    os::XmlNode null = s.child(L"nothing");
    EXPECT_TRUE(null.is_null());
    EXPECT_TRUE(null.add_child(L"x").is_null());
    null.set_attribute(L"k", 1);
    EXPECT_EQ(null.child_count(), 0);
    std::wstring text = L"kept";
    EXPECT_FALSE(null.attribute(L"k", text));
    EXPECT_EQ(text, L"kept");
}

TEST(XmlDocument, SaysWhereABrokenFileGaveUp)
{
    os::XmlDocument doc;
    std::wstring error;
    EXPECT_FALSE(doc.load_bytes("<Settings><Record a=\"1\"></Settings>", &error));
    EXPECT_NE(error.find(L"at byte"), std::wstring::npos);
    EXPECT_TRUE(doc.root().child(L"Settings").is_null()) << "a failed load leaves the document empty";
    EXPECT_FALSE(doc.load(L"/nonexistent/file.xml", &error));
}

} // namespace

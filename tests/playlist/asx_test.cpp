#include "playlist/list_asx.h"

#include "os/xml_document.h"
#include "tests/playlist/playlist_test_util.h"

#include <gtest/gtest.h>

namespace {

using playlist::ListASX;
using test_playlist::summary;
using test_playlist::write_list;

// As Windows Media Player and web radios write it: lower-case names, an
// unescaped "&" in a URL, Windows-1252 text, and the elements that carry no
// playable entry of their own.
const char kMediaPlayerAsx[] =
    "<asx version=\"3.0\">\r\n"
    "  <title>Evening \x96 Mix</title>\r\n"
    "  <entry>\r\n"
    "    <title>Caf\xE9 Tacvba</title>\r\n"
    "    <ref href=\"Music\\caf\xE9.wma\" />\r\n"
    "    <ref href=\"second-ref-is-a-fallback.wma\" />\r\n"
    "    <param name=\"artist\" value=\"Caf\xE9 Tacvba\" />\r\n"
    "    <param name=\"ignored\" value=\"only the first PARAM counts\" />\r\n"
    "  </entry>\r\n"
    "  <Entry><Ref HREF=\"http://radio.example/listen?id=7&format=wma\"/></Entry>\r\n"
    "  <ENTRYREF href=\"http://radio.example/more.asx\" />\r\n"
    "  <entry><title>no ref</title></entry>\r\n"
    "  <entry><ref /><title>ref without href</title></entry>\r\n"
    "  <entry><ref href=\"\" /></entry>\r\n"
    "  <repeat count=\"2\"><entry><ref href=\"inside-repeat.wma\"/></entry></repeat>\r\n"
    "  <!-- a comment -->\r\n"
    "  <entry><ref href=\"/abs/last.mp3\"/><param name=\"no value\"/></entry>\r\n"
    "</asx>\r\n";

TEST(ListASX, ReadsWhatMediaPlayersWriteAndSkipsWhatHasNoReference)
{
    test::TempDir dir;
    ListASX list(write_list(dir, "mix.asx", kMediaPlayerAsx));
    ASSERT_TRUE(list.is_valid()) << liba::to_utf8(list.error);
    EXPECT_EQ(summary(list), L"Music\\caf\u00e9.wma|Caf\u00e9 Tacvba|-1\n"
                             L"http://radio.example/listen?id=7&format=wma||-1\n"
                             L"/abs/last.mp3||-1\n");
    EXPECT_EQ(list.entries[0].attribute(L"artist"), L"Caf\u00e9 Tacvba");
    EXPECT_EQ(list.entries[0].attributes.size(), 2u);
    EXPECT_TRUE(list.entries[1].attributes.empty());
    EXPECT_TRUE(list.entries[2].attributes.empty());

    ListASX other_root(write_list(dir, "log.xml", "<Log><LogEvent/></Log>"));
    EXPECT_FALSE(other_root.is_valid());
    EXPECT_EQ(other_root.error, L"no \"ASX\" element");
    // Old tools leave REF open, as in SGML; that is no XML and no list.
    ListASX unclosed(write_list(dir, "open.asx", "<ASX><ENTRY><REF HREF=\"a.mp3\"></ENTRY></ASX>"));
    EXPECT_FALSE(unclosed.is_valid());
    EXPECT_NE(unclosed.error.find(L"at byte"), std::wstring::npos) << liba::to_utf8(unclosed.error);
}

TEST(ListASX, RoundTripKeepsPathAndTitleAndNamesTheArtistOnly)
{
    test::TempDir dir;
    ListASX read(write_list(dir, "mix.asx", kMediaPlayerAsx));
    ASSERT_TRUE(read.is_valid());
    std::wstring out = test_playlist::wide(dir / "again.asx");
    ASSERT_TRUE(read.save(out));

    os::XmlDocument written;
    ASSERT_TRUE(written.load(out));
    os::XmlNode root = written.root().child(L"ASX");
    std::wstring version;
    EXPECT_TRUE(root.attribute(L"version", version) && version == L"3.0");
    os::XmlNode param = root.child(L"ENTRY").child(L"PARAM");
    std::wstring name, value;
    EXPECT_TRUE(param.attribute(L"name", name) && name == L"Caf\u00e9 Tacvba");
    EXPECT_FALSE(param.attribute(L"value", value));

    ListASX back(out);
    ASSERT_TRUE(back.is_valid());
    EXPECT_EQ(summary(back), summary(read));
    EXPECT_TRUE(back.entries[0].attribute(L"artist").empty());
    // An entry without a path can't be written as a reference.
    back.entries.push_back({});
    ASSERT_TRUE(back.save(out));
    EXPECT_EQ(ListASX(out).entries.size(), 3u);
}

} // namespace

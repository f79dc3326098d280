#include "playlist/list.h"

#include "liba/text.h"
#include "os/log.h"
#include "os/path.h"
#include "playlist/list_m3u.h"
#include "playlist/list_multi_tracker.h"
#include "tests/playlist/playlist_test_util.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>

namespace {

using test_playlist::summary;
using test_playlist::write_list;

TEST(LoadPlaylist, FindsTheFormatByContentInItsOrder)
{
    test::TempDir dir;
    struct Case {
        const char* name; // extensions deliberately mislead
        std::string bytes;
        const wchar_t* format;
        const wchar_t* entries;
    } cases[] = {
        {"a.xml", "#EXTM3U\n#EXTINF:3,x\nx.mp3\n", playlist::kFormatM3U, L"x.mp3|x|3\n"},
        {"b.m3u", "<ASX version=\"3.0\"><ENTRY><REF HREF=\"y.mp3\"/></ENTRY></ASX>", playlist::kFormatASX,
         L"y.mp3||-1\n"},
        {"c.asx", "<Log version=\"multitracker\"><LogEvent><MediaLocation>z.mp3</MediaLocation></LogEvent></Log>",
         playlist::kFormatMultiTracker, L"z.mp3||-1\n"},
        {"d.m3u", "<Log version=\"7\"><LogEvent><FileName>w.mp3</FileName></LogEvent></Log>",
         playlist::kFormatOfflineRadio, L"w.mp3||-1\n"},
        // Not extended M3U (no comma in an info line), not XML: the plain reading takes it.
        {"e.m3u", "#EXTM3U\n#EXTINF:5\nv.mp3\n", playlist::kFormatM3U, L"v.mp3||5\n"},
        {"f.txt", "/music/one.mp3\r\n/music/two.mp3\r\n", playlist::kFormatM3U,
         L"/music/one.mp3||-1\n/music/two.mp3||-1\n"},
    };
    for (const Case& c : cases) {
        auto list = playlist::load_playlist(write_list(dir, c.name, c.bytes));
        ASSERT_TRUE(list) << c.name;
        EXPECT_TRUE(list->is_valid());
        EXPECT_EQ(list->format, c.format) << c.name;
        EXPECT_EQ(summary(*list), c.entries) << c.name;
        EXPECT_EQ(list->source, test_playlist::wide(dir / c.name));
    }
}

TEST(LoadPlaylist, RefusesWhatNoFormatReads)
{
    test::TempDir dir;
    std::vector<std::wstring> refused = {
        write_list(dir, "empty.m3u", ""),
        write_list(dir, "blank.m3u", "\n  \r\n"),
        write_list(dir, "other.xml", "<?xml version=\"1.0\"?><Settings><Record/></Settings>"),
        write_list(dir, "cut.asx", "<ASX version=\"3.0\"><ENTRY><REF HREF=\"a.mp3\"/></ENTRY>"),
        write_list(dir, "nul.m3u", std::string("a.mp3\n\0b.mp3\n", 13)),
        test_playlist::wide(dir / "missing.m3u"),
        test_playlist::wide(dir.path()),
    };
    for (const auto& media : test::media("*.wav"))
        refused.push_back(test_playlist::wide(media));
    for (const auto& media : test::media("*.mp3"))
        refused.push_back(test_playlist::wide(media));
    for (const std::wstring& path : refused)
        EXPECT_FALSE(playlist::load_playlist(path)) << liba::to_utf8(path);
}

// The log, decoded from its UTF-16.
std::string log_text(const test::PrivateHome& home)
{
    std::string bytes = test::read_file(home.app_data() / "Quillaphonics.txt");
    auto text = liba::from_utf16le_bytes(bytes.size() >= 2 ? bytes.substr(2) : "");
    return text ? liba::to_utf8(*text) : "";
}

TEST(LoadPlaylist, LogsTheFileAndWhereEachReaderGaveUp)
{
    test::PrivateHome home;
    os::init_path_macros();
    ASSERT_TRUE(os::set_log_switch(true));
    test::TempDir dir;
    std::wstring cut = write_list(dir, "cut.asx", "<ASX version=\"3.0\">\n<ENTRY><REF HREF=\"a.mp3\"/></ENTRY>\n");
    EXPECT_FALSE(playlist::load_playlist(cut));
    std::wstring damaged = write_list(dir, "damaged.m3u", "#EXTM3U\n#EXTINF:1,a\na.mp3\n#EXTINF:2 b\nb.mp3\n");
    auto plain = playlist::load_playlist(damaged);
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->entries.size(), 2u);
    os::log().flush();
    std::string log = log_text(home);
    os::set_log_switch(false);
    os::log();

    std::string cut_line = log.substr(log.find(liba::to_utf8(cut)));
    cut_line = cut_line.substr(0, cut_line.find('\n'));
    EXPECT_NE(cut_line.find("not a list"), std::string::npos) << cut_line;
    EXPECT_NE(cut_line.find("M3U: line 1 is not"), std::string::npos) << cut_line;
    EXPECT_NE(cut_line.find("ASX, MultiTracker, OfflineRadio: "), std::string::npos) << cut_line;
    EXPECT_NE(cut_line.find(" at byte "), std::string::npos) << cut_line;
    EXPECT_NE(cut_line.find("plain M3U: begins with \"<\""), std::string::npos) << cut_line;
    std::string damaged_line = log.substr(log.find(liba::to_utf8(damaged)));
    EXPECT_NE(damaged_line.find("read as a plain list"), std::string::npos) << log;
    EXPECT_NE(damaged_line.find("line 4"), std::string::npos) << log;
}

// A German locale, built from the system's locale sources into a private folder.
class GermanNumbers : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(test::run("localedef -i de_DE -f UTF-8 '" + (dir_ / "de_DE.UTF-8").string() + "' 2>/dev/null"), 0);
        ::setenv("LOCPATH", dir_.path().c_str(), 1);
        ASSERT_TRUE(std::setlocale(LC_ALL, "de_DE.UTF-8"));
        char buf[16];
        std::snprintf(buf, sizeof buf, "%.1f", 2.5);
        ASSERT_STREQ(buf, "2,5"); // the locale is in force
    }
    void TearDown() override
    {
        std::setlocale(LC_ALL, "C");
        ::unsetenv("LOCPATH");
    }
    test::TempDir dir_;
};

TEST_F(GermanNumbers, ListsReadAndWriteCLocaleNumbers)
{
    playlist::ListM3U m3u;
    ASSERT_TRUE(m3u.read("#EXTM3U\n#EXTINF:12.5,a\na.mp3\n#EXTINF:12,5,b\nb.mp3\n", playlist::ListM3U::kExtended));
    EXPECT_DOUBLE_EQ(m3u.entries[0].duration, 12.5);
    EXPECT_DOUBLE_EQ(m3u.entries[1].duration, 12.0);
    EXPECT_EQ(m3u.entries[1].attribute(L"title"), L"5,b");

    test::TempDir dir;
    playlist::ListMultiTracker log(write_list(
        dir, "log.xml",
        "<Log version=\"multitracker\"><LogEvent><MediaLocation>a</MediaLocation><MediaLength>1500.5.</MediaLength>"
        "<ClipBeg>250,5</ClipBeg></LogEvent></Log>"));
    ASSERT_TRUE(log.is_valid());
    EXPECT_DOUBLE_EQ(log.entries[0].duration, 1.5005);
    EXPECT_DOUBLE_EQ(log.entries[0].clip_begin, 0.0); // "250,5" is no number
    log.entries[0].fade_in = 0.25;
    std::wstring out = test_playlist::wide(dir / "out.xml");
    ASSERT_TRUE(log.save(out));
    std::string written = test::read_file(dir / "out.xml");
    EXPECT_NE(written.find("<MediaLength>1500.5.</MediaLength>"), std::string::npos) << written;
    EXPECT_NE(written.find("<FadeIn>250</FadeIn>"), std::string::npos) << written;
    EXPECT_EQ(written.find(','), std::string::npos) << written;
}

} // namespace

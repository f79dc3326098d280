#include "playlist/list_m3u.h"

#include "liba/text.h"
#include "os/path.h"
#include "tests/playlist/playlist_test_util.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <memory>

namespace {

using playlist::ListM3U;
using test_playlist::summary;
using test_playlist::wide;
using test_playlist::write_list;

std::unique_ptr<ListM3U> extended(std::string_view bytes)
{
    auto list = std::make_unique<ListM3U>();
    list->read(bytes, ListM3U::kExtended);
    return list;
}

TEST(ListM3U, ReadsTheExtendedFormAndRefusesAnythingElse)
{
    auto only_header = extended("#EXTM3U\n");
    EXPECT_TRUE(only_header->is_valid());
    EXPECT_TRUE(only_header->entries.empty());

    // Windows line ends, a UTF-8 byte-order mark, a duration that is no
    // number, and a last info line without its path line.
    auto list = extended("\xEF\xBB\xBF#EXTM3U\r\n#EXTINF:221,Queen - Bohemian Rhapsody\r\nsongs\\bo.mp3\r\n"
                            "#EXTINF:abc,\r\nb.mp3\r\n#EXTINF:12.5,Last, with a comma\r\n");
    ASSERT_TRUE(list->is_valid()) << liba::to_utf8(list->error);
    EXPECT_EQ(summary(*list), L"songs\\bo.mp3|Queen - Bohemian Rhapsody|221\n"
                             L"b.mp3||-1\n"
                             L"|Last, with a comma|12\n");
    EXPECT_DOUBLE_EQ(list->entries[2].duration, 12.5);
    EXPECT_EQ(list->entries[1].attributes.count(L"title"), 0u);

    struct Refused {
        const char* text;
        const wchar_t* error;
    } refused[] = {
        {"#EXTINF:1,a\na.mp3\n", L"line 1 is not \"#EXTM3U\""},
        {"a.mp3\n", L"line 1 is not \"#EXTM3U\""},
        {"", L"line 1 is not \"#EXTM3U\""},
        {"#EXTM3U\n#EXTINF:1,a\na.mp3\n#EXTINF:5 b.mp3\nb.mp3\n", L"line 4 has no \",\" behind \":\""},
        {"#EXTM3U\na.mp3\nb.mp3\n", L"line 2 has no \":\""},
        {"#EXTM3U\n#EXTVLCOPT:a=1,2\na.mp3\n", L"line 2 is not an \"#EXTINF\" line"},
        {"#EXTM3U\n#EXTINF:1,a\na.mp3\n\n", L"line 4 has no \":\""},
    };
    for (const auto& r : refused) {
        auto bad = extended(r.text);
        EXPECT_FALSE(bad->is_valid()) << r.text;
        EXPECT_TRUE(bad->entries.empty()) << r.text;
        EXPECT_EQ(bad->error, r.error) << r.text;
    }
}

TEST(ListM3U, ReadsThePlainListsOfOtherProgramsAsTheyStand)
{
    // A Winamp list saved on Windows: Windows-1252 names, "\" separators.
    ListM3U winamp;
    ASSERT_TRUE(winamp.read("#EXTM3U\r\n#EXTINF:187,Bj\xF6rk - J\xF3ga\r\nD:\\Musik\\Bj\xF6rk\\J\xF3ga.mp3\r\n"
                            "#EXTINF:-1,Caf\xE9 del Mar\r\n..\\Chill\\caf\xE9.mp3\r\n",
                            ListM3U::kPlain));
    EXPECT_EQ(summary(winamp), L"D:\\Musik\\Bj\u00f6rk\\J\u00f3ga.mp3|Bj\u00f6rk - J\u00f3ga|187\n"
                               L"..\\Chill\\caf\u00e9.mp3|Caf\u00e9 del Mar|-1\n");

    // VLC: options between the info line and its path, file URLs.
    ListM3U vlc;
    ASSERT_TRUE(vlc.read("#EXTM3U\n#EXTINF:123,Ann - \xC3\xA9t\xC3\xA9\n#EXTVLCOPT:start-time=10\n"
                         "file:///home/ann/Music/%C3%A9t%C3%A9%20one.ogg\n#EXTINF:5\nhttp://radio.example/live\n",
                         ListM3U::kPlain));
    EXPECT_EQ(summary(vlc), L"file:///home/ann/Music/%C3%A9t%C3%A9%20one.ogg|Ann - \u00e9t\u00e9|123\n"
                            L"http://radio.example/live||5\n");

    // Paths only, with comments, blank lines and an info line left over.
    ListM3U paths;
    ASSERT_TRUE(paths.read("# made by hand\n\n  /music/a.mp3  \nrel/b.wav\n#EXTINF:7,orphan\n#EXTINF:8,last\n",
                           ListM3U::kPlain));
    EXPECT_EQ(summary(paths), L"/music/a.mp3||-1\nrel/b.wav||-1\n|orphan|7\n|last|8\n");

    ListM3U refused;
    EXPECT_FALSE(refused.read(std::string("RIFF\x10\0\0\0WAVE", 12), ListM3U::kPlain));
    EXPECT_FALSE(refused.read("  \n<?xml version=\"1.0\"?><Log/>", ListM3U::kPlain));
    EXPECT_FALSE(refused.read(" \r\n\t\n", ListM3U::kPlain));
    EXPECT_FALSE(refused.is_valid());
}

TEST(ListM3U, ReadsUtf16TextThatIconvMade)
{
    test::TempDir dir;
    std::string text = "#EXTM3U\n#EXTINF:60,\xC3\xA9t\xC3\xA9 \xF0\x9F\x8E\xB5\nmusic/\xC3\xA9t\xC3\xA9.mp3\n";
    test::write_file(dir / "utf8.m3u", text);
    for (const char* encoding : {"UTF-16", "UTF-16BE"}) {
        std::string bom = std::string(encoding) == "UTF-16BE" ? "printf '\\376\\377'; " : "";
        ASSERT_EQ(test::run("(" + bom + "iconv -f UTF-8 -t " + encoding + " '" + (dir / "utf8.m3u").string() +
                            "') > '" + (dir / "utf16.m3u").string() + "'"),
                  0);
        ListM3U list(wide(dir / "utf16.m3u"));
        ASSERT_TRUE(list.is_valid()) << encoding << ": " << liba::to_utf8(list.error);
        EXPECT_EQ(summary(list), L"music/\u00e9t\u00e9.mp3|\u00e9t\u00e9 \U0001F3B5|60\n") << encoding;
    }
}

TEST(ListM3U, ReadsTheSegmentListsThatFfmpegWrites)
{
    test::TempDir dir;
    std::string cmd = "cd '" + dir.path().string() +
                      "' && ffmpeg -v error -f lavfi -i sine=frequency=440:duration=5 -c:a pcm_s16le -f segment "
                      "-segment_time 2 -segment_list_type %s -segment_list %s seg%%03d.wav";
    char buf[1024];
    std::snprintf(buf, sizeof buf, cmd.c_str(), "m3u8", "segments.m3u8");
    ASSERT_EQ(test::run(buf), 0);
    std::snprintf(buf, sizeof buf, cmd.c_str(), "flat", "segments.txt");
    ASSERT_EQ(test::run(buf), 0);

    // The HLS list carries directives among its pairs, so it reads as a
    // plain list; the flat one is paths only.
    for (const char* name : {"segments.m3u8", "segments.txt"}) {
        auto list = playlist::load_playlist(wide(dir / name));
        ASSERT_TRUE(list) << name;
        EXPECT_EQ(list->format, playlist::kFormatM3U);
        ASSERT_EQ(list->entries.size(), 3u) << name;
        double total = 0;
        for (const auto& e : list->entries) {
            EXPECT_TRUE(std::filesystem::exists(liba::to_utf8(list->location_of(e)))) << liba::to_utf8(e.path);
            total += e.duration;
        }
        if (std::string(name) == "segments.m3u8") {
            EXPECT_NEAR(total, 5.0, 0.01);
        }
    }
}

TEST(ListM3U, WritesWholeSecondsAndTitlesThatReadBack)
{
    ListM3U list;
    auto add = [&](std::wstring path, double duration, std::wstring title) {
        playlist::PlaylistEntry e;
        e.path = std::move(path);
        e.duration = duration;
        if (!title.empty())
            e.attributes[L"title"] = std::move(title);
        list.entries.push_back(std::move(e));
    };
    add(L"Music\\caf\u00e9.mp3", 12.7, L"Caf\u00e9, live");
    add(L"/abs/b.wav", -1.0, L"");
    add(L"", 3.0, L"no path");
    add(L"c.ogg", 1e300, L"two\nlines");
    EXPECT_EQ(list.to_bytes(), "#EXTM3U\n#EXTINF:12,Caf\xC3\xA9, live\nMusic\\caf\xC3\xA9.mp3\n"
                               "#EXTINF:-1,\n/abs/b.wav\n#EXTINF:3,no path\n\n#EXTINF:-1,two lines\nc.ogg\n");

    test::TempDir dir;
    std::wstring path = wide(dir / "out.m3u");
    ASSERT_TRUE(list.save(path));
    ListM3U back(path);
    ASSERT_TRUE(back.is_valid()) << liba::to_utf8(back.error);
    EXPECT_EQ(summary(back), L"Music\\caf\u00e9.mp3|Caf\u00e9, live|12\n/abs/b.wav||-1\n|no path|3\nc.ogg|two lines|-1\n");
    // A second round changes nothing more.
    ASSERT_TRUE(back.save(path));
    EXPECT_EQ(test::read_file(dir / "out.m3u"), back.to_bytes());
    EXPECT_EQ(summary(ListM3U(path)), summary(back));
}

} // namespace

#include "os/finder.h"

#include "liba/text.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace {

using test::wide;

std::set<std::wstring> names(const fs::path& folder, const std::wstring& pattern)
{
    std::set<std::wstring> found;
    os::Finder f(wide(folder), pattern);
    while (f.next())
        EXPECT_TRUE(found.insert(f.name()).second) << "listed twice: " << liba::to_utf8(f.name());
    return found;
}

} // namespace

TEST(Finder, MatchesWildcardsWithoutRegardToCase)
{
    test::TempDir dir;
    for (const char* n : {"Song.MP3", "song.mp3", "a.wav", "B.WAV", "ab.wav", "noext", ".hidden",
                          "Ärger.ogg", "list.m3u.bak"})
        test::write_file(dir / n, n);
    fs::create_directory(dir / "Sub.d");

    using S = std::set<std::wstring>;
    EXPECT_EQ(names(dir.path(), L"*.mp3"), (S{L"Song.MP3", L"song.mp3"}));
    EXPECT_EQ(names(dir.path(), L"*.WAV"), (S{L"a.wav", L"B.WAV", L"ab.wav"}));
    EXPECT_EQ(names(dir.path(), L"?.wav"), (S{L"a.wav", L"B.WAV"}));
    EXPECT_EQ(names(dir.path(), L"S*"), (S{L"Song.MP3", L"song.mp3", L"Sub.d"}));
    EXPECT_EQ(names(dir.path(), L"ä*.OGG"), (S{L"Ärger.ogg"}));
    EXPECT_EQ(names(dir.path(), L"*.m3u"), S{});
    EXPECT_EQ(names(dir.path(), L"*.m3u*"), (S{L"list.m3u.bak"}));
    EXPECT_EQ(names(dir.path(), L"noext"), (S{L"noext"}));
    EXPECT_EQ(names(dir.path(), L"nothing*"), S{});
    // "*.*" is every name, dotted or not; "." and ".." never appear.
    S all{L"Song.MP3", L"song.mp3", L"a.wav", L"B.WAV", L"ab.wav", L"noext", L".hidden",
          L"Ärger.ogg", L"list.m3u.bak", L"Sub.d"};
    EXPECT_EQ(names(dir.path(), L"*.*"), all);
    EXPECT_EQ(names(dir.path(), L"*"), all);
    // The folder may be given with "\" and a trailing separator.
    EXPECT_EQ(names(wide(dir.path()) + L"\\", L"*.mp3").size(), 2u);

    os::Finder missing(wide(dir / "missing"), L"*");
    EXPECT_FALSE(missing.is_open());
    EXPECT_FALSE(missing.next());
}

TEST(Finder, PatternMatchingEdges)
{
    struct Case {
        const wchar_t* pattern;
        const wchar_t* name;
        bool match;
    } cases[] = {
        {L"a*b*c", L"aXbYc", true},   {L"a*b*c", L"abc", true},    {L"a*b*c", L"acb", false},
        {L"*a", L"banana", true},     {L"*an", L"banana", false},  {L"*?", L"", false},
        {L"*?", L"x", true},          {L"?", L"", false},          {L"", L"", true},
        {L"", L"x", false},           {L"**", L"", true},          {L"a?c", L"ABC", true},
        {L"*.WaV", L"x.wav", true},   {L"*.wav", L"x.wave", false}, {L"Ω*", L"ωμέγα", true},
        {L"*.mp3", L".mp3", true},    {L"x*y*z*", L"xyz", true},   {L"*aaa*b", L"aaaaaaaaaaaaaaaa", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(os::Finder::matches(c.pattern, c.name), c.match)
            << liba::to_utf8(c.pattern) << " on " << liba::to_utf8(c.name);
}

TEST(Finder, ReportsSizeTimesFolderAndReadOnly)
{
    test::TempDir dir;
    test::write_file(dir / "one.wav", std::string(4321, 'x'));
    ASSERT_EQ(test::run("touch -m -d '2019-12-31 23:59:58' '" + (dir / "one.wav").string() + "'"), 0);
    test::write_file(dir / "locked.mp3", "12");
    ::chmod((dir / "locked.mp3").c_str(), 0444);
    fs::create_directory(dir / "folder");

    struct Seen {
        bool is_folder;
        int64_t size;
        bool read_only;
        std::wstring modified;
        bool created;
    };
    std::map<std::wstring, Seen> seen;
    os::Finder f(wide(dir.path()));
    while (f.next()) {
        seen[f.name()] = {f.is_folder(), f.size(), f.read_only(), f.modified().to_text(),
                          !f.created().is_null()};
        EXPECT_EQ(f.full_path(), wide(dir / liba::to_utf8(f.name())));
    }
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_FALSE(seen[L"one.wav"].is_folder);
    EXPECT_EQ(seen[L"one.wav"].size, 4321);
    EXPECT_EQ(seen[L"one.wav"].modified, L"2019 12 31 23 59 58");
    EXPECT_TRUE(seen[L"one.wav"].created);
    EXPECT_FALSE(seen[L"one.wav"].read_only);
    EXPECT_TRUE(seen[L"locked.mp3"].read_only);
    EXPECT_EQ(seen[L"locked.mp3"].size, 2);
    EXPECT_TRUE(seen[L"folder"].is_folder);
}

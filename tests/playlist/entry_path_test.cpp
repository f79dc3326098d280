#include "playlist/entry_path.h"

#include "liba/text.h"
#include "os/path.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

namespace {

using playlist::rebase_entry_path;
using playlist::resolve_entry_path;

TEST(EntryPath, ResolvesAgainstTheListsFolderOnly)
{
    const std::wstring list = L"/home/ann/lists/mix.m3u";
    struct Case {
        const wchar_t* entry;
        const wchar_t* opened;
    } cases[] = {
        {L"a.mp3", L"/home/ann/lists/a.mp3"},
        {L"sub/b.mp3", L"/home/ann/lists/sub/b.mp3"},
        {L"..\\Music\\c.mp3", L"/home/ann/Music/c.mp3"},
        {L"./d.mp3", L"/home/ann/lists/d.mp3"},
        {L"/srv/music//e.mp3", L"/srv/music/e.mp3"},
        {L"file:///home/ann/M%C3%BAsica/f%20g.ogg", L"/home/ann/M\u00fasica/f g.ogg"},
        {L"FILE://localhost/srv/h.mp3", L"/srv/h.mp3"},
        {L"file:///C:/Music/i.mp3", L"C:/Music/i.mp3"},
        {L"C:\\Music\\j.mp3", L"C:/Music/j.mp3"},
        {L"http://radio.example/live?x=1", L"http://radio.example/live?x=1"},
        {L"mms://media.example/k", L"mms://media.example/k"},
        {L"", L""},
    };
    for (const Case& c : cases)
        EXPECT_EQ(resolve_entry_path(list, c.entry), c.opened) << liba::to_utf8(c.entry);

    // The working folder plays no part, wherever the process stands.
    test::TempDir elsewhere;
    std::string old = std::filesystem::current_path().string();
    std::filesystem::current_path(elsewhere.path());
    EXPECT_EQ(resolve_entry_path(list, L"a.mp3"), L"/home/ann/lists/a.mp3");
    std::filesystem::current_path(old);
}

TEST(EntryPath, RebasesRelativePathsToNameTheSameFiles)
{
    const std::wstring from = L"/home/ann/lists/mix.m3u";
    EXPECT_EQ(rebase_entry_path(L"a.mp3", from, L"/home/ann/lists/copy.asx"), L"a.mp3");
    EXPECT_EQ(rebase_entry_path(L"sub\\b.mp3", from, L"/home/ann/lists/copy.asx"), L"sub\\b.mp3");
    EXPECT_EQ(rebase_entry_path(L"a.mp3", from, L"/home/ann/out/copy.asx"), L"../lists/a.mp3");
    EXPECT_EQ(rebase_entry_path(L"sub\\b.mp3", from, L"/home/ann/lists/sub/copy.asx"), L"b.mp3");
    EXPECT_EQ(rebase_entry_path(L"../Music/c.mp3", from, L"/tmp/x/copy.xml"), L"../../home/ann/Music/c.mp3");
    EXPECT_EQ(rebase_entry_path(L"/abs/d.mp3", from, L"/tmp/copy.xml"), L"/abs/d.mp3");
    EXPECT_EQ(rebase_entry_path(L"http://r.example/s", from, L"/tmp/copy.xml"), L"http://r.example/s");
    EXPECT_EQ(rebase_entry_path(L"C:\\e.mp3", from, L"/tmp/copy.xml"), L"C:\\e.mp3");
    // What is rebased still resolves to the file it named.
    for (const wchar_t* entry : {L"a.mp3", L"../Music/c.mp3", L"x/../y/./z.ogg"})
        for (const wchar_t* to : {L"/home/ann/out/deep/er/n.m3u", L"/n.m3u", L"/home/ann/lists/sub/n.m3u"})
            EXPECT_EQ(resolve_entry_path(to, rebase_entry_path(entry, from, to)), resolve_entry_path(from, entry))
                << liba::to_utf8(entry) << " to " << liba::to_utf8(to);
}

} // namespace

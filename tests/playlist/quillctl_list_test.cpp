#include "tests/playlist/playlist_test_util.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;

using Outcome = test::QuillctlRun;

Outcome quillctl(std::vector<std::string> args, const test::TempDir& scratch)
{
    args.insert(args.begin(), "list");
    return test::run_quillctl(args, scratch.path());
}

TEST(QuillctlList, PrintsTheSameEntriesFromEveryFormatItSaves)
{
    test::TempDir dir;
    fs::create_directories(dir / "lists");
    fs::create_directories(dir / "elsewhere");
    std::string root = dir.path().string();
    // As a Windows player wrote it, with a Windows-1252 title.
    test::write_file(dir / "lists" / "mix.m3u",
                     "#EXTM3U\r\n#EXTINF:61,Caf\xE9 - One\r\nsongs\\one.mp3\r\n#EXTINF:-1,\r\n../two.ogg\r\n"
                     "#EXTINF:30,Three\r\n" +
                         root + "/abs/three.wav\r\n");
    std::string expected = root + "/lists/songs/one.mp3\tCaf\xC3\xA9 - One\n" + root + "/two.ogg\n" + root +
                           "/abs/three.wav\tThree\n";

    Outcome m3u = quillctl({"lists/mix.m3u"}, dir);
    ASSERT_EQ(m3u.status, 0) << m3u.err;
    EXPECT_EQ(m3u.out, expected);
    EXPECT_EQ(m3u.err, "");

    // Saved beside it, and saved into another folder: the same files either way.
    for (const char* out : {"lists/mix.asx", "elsewhere/mix.asx", "elsewhere/mix.xml", "elsewhere/again.m3u"}) {
        Outcome save = quillctl({"lists/mix.m3u", "--save", out}, dir);
        ASSERT_EQ(save.status, 0) << out << ": " << save.err;
        EXPECT_EQ(save.out, expected) << out;
        Outcome back = quillctl({out}, dir);
        ASSERT_EQ(back.status, 0) << out << ": " << back.err;
        EXPECT_EQ(back.out, expected) << out;
    }
    EXPECT_NE(test::read_file(dir / "lists" / "mix.asx").find("HREF=\"songs\\one.mp3\""), std::string::npos);
    EXPECT_NE(test::read_file(dir / "elsewhere" / "mix.asx").find("HREF=\"../lists/songs/one.mp3\""),
              std::string::npos);
    EXPECT_NE(test::read_file(dir / "elsewhere" / "mix.xml").find("version=\"multitracker\""), std::string::npos);

    // An XML log saved as .xml stays in its own format.
    test::write_file(dir / "log.xml", "<Log StartTime=\"6\"><LogEvent><FileName>a.mp3</FileName></LogEvent></Log>");
    ASSERT_EQ(quillctl({"log.xml", "--save", "copy.xml"}, dir).status, 0);
    std::string copy = test::read_file(dir / "copy.xml");
    EXPECT_NE(copy.find("<FileName>a.mp3</FileName>"), std::string::npos) << copy;
    EXPECT_EQ(copy.find("multitracker"), std::string::npos) << copy;
}

TEST(QuillctlList, FailsWithOneLineOnStandardError)
{
    test::TempDir dir;
    auto wav = test::media("pcm_s16_mono_8000.wav");
    ASSERT_EQ(wav.size(), 1u);
    Outcome audio = quillctl({wav[0].string()}, dir);
    EXPECT_EQ(audio.status, 1);
    EXPECT_EQ(audio.out, "");
    test::expect_one_line_naming(audio, wav[0].string());

    Outcome missing = quillctl({"nothing.m3u"}, dir);
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err, "quillctl: nothing.m3u: no such file\n");

    test::write_file(dir / "a.m3u", "a.mp3\n");
    EXPECT_EQ(quillctl({}, dir).status, 2);
    EXPECT_EQ(quillctl({"a.m3u", "b.m3u"}, dir).status, 2);
    EXPECT_EQ(quillctl({"a.m3u", "--save"}, dir).status, 2);
    Outcome unknown = quillctl({"a.m3u", "--save", "out.pls"}, dir);
    EXPECT_EQ(unknown.status, 2);
    EXPECT_FALSE(fs::exists(dir / "out.pls"));

    Outcome unwritable = quillctl({"a.m3u", "--save", "no/such/folder/out.m3u"}, dir);
    EXPECT_EQ(unwritable.status, 1);
    EXPECT_EQ(unwritable.err, "quillctl: no/such/folder/out.m3u: can't write the list\n");
    EXPECT_FALSE(fs::exists(dir / "no"));
}

} // namespace

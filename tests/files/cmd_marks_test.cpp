// quillctl marks, run as a user runs it, on copies of sound files made by sox.
#include "files/range_marks.h"

#include "liba/text.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

using Result = test::QuillctlRun;

class QuillctlMarks : public testing::Test {
protected:
    void SetUp() override
    {
        auto media = test::media("pcm_s16_speech_16000.wav");
        ASSERT_EQ(media.size(), 1u);
        fs::copy_file(media[0], sound_);
        bytes_per_second_ =
            test::soxi_int(sound_, "-r") * test::soxi_int(sound_, "-c") * test::soxi_int(sound_, "-b") / 8;
    }

    Result quillctl(std::vector<std::string> args)
    {
        args.insert(args.begin(), "marks");
        return test::run_quillctl(args, dir_.path());
    }

    // PCM WAV positions are bytes of the data: seconds by the rate sox reads.
    std::string seconds(int position) const
    {
        char buf[64];
        std::snprintf(buf, sizeof buf, "%.3f", static_cast<double>(position) / bytes_per_second_);
        return buf;
    }

    // The line quillctl prints for a mark.
    std::string line(const std::string& name, int position, int route) const
    {
        return name + "\t" + std::to_string(position) + "\t" + seconds(position) + "\t" + std::to_string(route) + "\n";
    }

    test::TempDir dir_;
    fs::path sound_ = dir_ / "talk.wav";
    fs::path side_ = dir_ / "talk.wav.bm";
    int bytes_per_second_ = 0;
};

} // namespace

TEST_F(QuillctlMarks, AddsRoutesAndRemovesMarksInTheSideFile)
{
    // A file without a side file has no marks, and looking makes none.
    Result r = quillctl({sound_.string()});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out + r.err, "");
    EXPECT_FALSE(fs::exists(side_));

    r = quillctl({sound_.string(), "--add", "Intro", "0", "--add", "Middle", "32000", "--add", "End", "96000"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, line("Intro", 0, -1) + line("Middle", 32000, -1) + line("End", 96000, -1));

    r = quillctl({sound_.string(), "--route", "End", "Intro"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, line("Intro", 0, 1) + line("Middle", 32000, -1) + line("End", 96000, 0));

    // Inside an unrouted range the route stays; inside a routed one the new
    // mark joins it right behind that range. An occupied position keeps its mark.
    r = quillctl({sound_.string(), "--add", "Aside", "40000", "--add", "Encore", "100000", "--add", "Again", "0"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, line("Intro", 0, 2) + line("Middle", 32000, -1) +
                         line("Aside", 40000, -1) + line("End", 96000, 0) +
                         line("Encore", 100000, 1));

    // What quillctl wrote is what the program loads.
    RangeMarks marks;
    ASSERT_TRUE(marks.load(liba::from_utf8(side_.string())));
    ASSERT_EQ(marks.count(), 5);
    ASSERT_EQ(marks.route_count(), 3);
    EXPECT_EQ(marks.route_mark(0).name, L"End");
    EXPECT_EQ(marks.route_mark(1).name, L"Encore");
    EXPECT_EQ(marks.route_mark(2).name, L"Intro");

    // Every mark of a name goes; --route with no names empties the route.
    r = quillctl({sound_.string(), "--add", "Aside", "50000", "--remove", "Aside", "--route"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, line("Intro", 0, -1) + line("Middle", 32000, -1) + line("End", 96000, -1) +
                         line("Encore", 100000, -1));
    // A name several marks carry routes them all, by position.
    r = quillctl({sound_.string(), "--add", "Encore", "1000", "--route", "Encore", "Middle"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, line("Intro", 0, -1) + line("Encore", 1000, 0) + line("Middle", 32000, 2) +
                         line("End", 96000, -1) + line("Encore", 100000, 1));
    // Names with tabs stay on one line of four columns.
    r = quillctl({sound_.string(), "--remove", "Encore", "--remove", "Middle", "--remove", "End", "--add",
                  "a\tb\nc", "7"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, line("Intro", 0, -1) + line("a b c", 7, -1));
}

TEST_F(QuillctlMarks, FailuresLeaveTheSideFileAsItWas)
{
    ASSERT_EQ(quillctl({sound_.string(), "--add", "One", "100", "--route", "One"}).status, 0);
    const std::string before = test::read_file(side_);

    for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
             {"--add", "Two", "200", "--remove", "Nobody"},
             {"--add", "Two", "200", "--route", "One", "Nobody"},
         }) {
        std::vector<std::string> all{sound_.string()};
        all.insert(all.end(), args.begin(), args.end());
        Result r = quillctl(all);
        EXPECT_EQ(r.status, 1) << args.back();
        EXPECT_EQ(r.out, "");
        EXPECT_NE(r.err.find("Nobody"), std::string::npos) << r.err;
        EXPECT_EQ(test::read_file(side_), before);
    }

    // A side file that does not parse: exit 1, one line naming it and where
    // it gave up, and no change made over it.
    const std::string broken = before.substr(0, before.size() - 10);
    test::write_file(side_, broken);
    for (const std::vector<std::string>& args :
         std::vector<std::vector<std::string>>{{sound_.string()}, {sound_.string(), "--add", "Three", "300"}}) {
        Result r = quillctl(args);
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_NE(r.err.find(side_.string()), std::string::npos) << r.err;
        EXPECT_NE(r.err.find("at byte"), std::string::npos) << r.err;
        EXPECT_EQ(test::read_file(side_), broken);
    }

    // No such sound file, or a folder.
    Result r = quillctl({(dir_ / "missing.wav").string(), "--add", "x", "1"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("missing.wav"), std::string::npos) << r.err;
    EXPECT_FALSE(fs::exists(dir_ / "missing.wav.bm"));
    EXPECT_EQ(quillctl({dir_.path().string()}).status, 1);
}

TEST_F(QuillctlMarks, WrongCommandLinesAreUsageErrors)
{
    for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
             {},
             {"--add", "x", "1"},
             {sound_.string(), "--add", "x"},
             {sound_.string(), "--add", "x", "-1"},
             {sound_.string(), "--add", "x", "2147483648"},
             {sound_.string(), "--add", "x", "12ab"},
             {sound_.string(), "--remove"},
             {sound_.string(), "--export"},
             {sound_.string(), "--export", "a.txt", "--export", "b.txt"},
             {sound_.string(), "--rename", "x"},
             {sound_.string(), "extra"},
         }) {
        Result r = quillctl(args);
        EXPECT_EQ(r.status, 2) << testing::PrintToString(args);
        EXPECT_NE(r.err.find("usage: quillctl marks"), std::string::npos) << r.err;
    }
    EXPECT_FALSE(fs::exists(side_));
    Result help = quillctl({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("--export"), std::string::npos);
}

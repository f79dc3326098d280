// The conversion to MP3, through quillctl convert as a user runs it and
// through the Conversion class as the form drives it, on files made by sox
// and espeak-ng, checked with ffprobe and the program's own MP3 reader.
#include "app/conversion.h"
#include "audio/file_reader_mp3.h"
#include "audio/play_chain.h"
#include "files/range_marks.h"
#include "liba/text.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

using Result = test::QuillctlRun;
using test::quote;
using test::run_out;

using test::wide;

double ffprobe_number(const fs::path& f, const std::string& entry)
{
    const std::string out = run_out("ffprobe -v error -select_streams a:0 -show_entries stream=" + entry +
                                    " -of default=nw=1:nk=1 " + quote(f.string()));
    return out.empty() ? -1 : std::stod(out);
}

// Names of the files in `dir`, sorted.
std::vector<std::string> listing(const fs::path& dir)
{
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(dir))
        names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

class Convert : public testing::Test {
protected:
    Result convert(const fs::path& in, const fs::path& out)
    {
        return test::run_quillctl({"convert", in.string(), out.string()}, err_dir_.path());
    }

    fs::path copy(const fs::path& from, const std::string& name)
    {
        fs::copy_file(from, dir_ / name, fs::copy_options::overwrite_existing);
        return dir_ / name;
    }

    // Marks at a quarter, half and three quarters of the file, the route
    // running through the last and then the first.
    static RangeMarks mark_thirds(const fs::path& f)
    {
        auto chain = audio::create_play_chain(wide(f), nullptr);
        EXPECT_TRUE(chain && chain->get_reader()) << f;
        RangeMarks marks;
        if (!chain || !chain->get_reader())
            return marks;
        const std::int32_t length = chain->get_reader()->get_length();
        marks.add_mark_raw(length / 4 * 3, L"late", true);
        marks.add_mark_raw(length / 4, L"early", true);
        marks.add_mark_raw(length / 2, L"middle", false);
        EXPECT_TRUE(marks.save(side_file_of(wide(f))));
        return marks;
    }

    static void expect_one_line_naming(const Result& r, const std::string& what)
    {
        EXPECT_EQ(r.status, 1) << r.err;
        test::expect_one_line_naming(r, what);
    }

    test::TempDir dir_;
    test::TempDir err_dir_;
};

// A converted source: 64 kbit/s at the source's rate, a few frames short of
// the source and never longer, its marks at the same times in the same
// route order.
TEST_F(Convert, MakesA64kMp3WithTheMarksAtTheirTimes)
{
    for (const char* name : {"pcm_s16_speech_16000.wav", "pcm_s16_speech_stereo_44100.wav", "pcm_u8_mono_22050.wav",
                             "adpcm_mono_8000.wav", "gsm_mono_8000.wav"}) {
        SCOPED_TRACE(name);
        const fs::path in = copy(test::one_media(name), name);
        const RangeMarks old = mark_thirds(in);
        const fs::path out = dir_ / (std::string(name) + ".mp3");
        const Result r = convert(in, out);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_TRUE(r.err.empty()) << r.err;

        const double rate = ffprobe_number(in, "sample_rate");
        EXPECT_EQ(ffprobe_number(out, "bit_rate"), 64000);
        EXPECT_EQ(ffprobe_number(out, "sample_rate"), rate);
        // MPEG-1 frames hold 1152 samples, those of the lower rates 576.
        const double frame = (rate >= 32000 ? 1152 : 576) / rate;
        auto source = audio::create_play_chain(wide(in), nullptr);
        ASSERT_TRUE(source && source->get_reader());
        audio::FileReader& from = *source->get_reader();
        const double source_seconds = from.get_duration();
        const double seconds = ffprobe_number(out, "duration");
        EXPECT_LE(seconds, source_seconds + 1e-6);
        EXPECT_GE(seconds, source_seconds - 4 * frame);

        RangeMarks moved;
        ASSERT_TRUE(moved.load(side_file_of(wide(out))));
        ASSERT_EQ(moved.count(), old.count());
        ASSERT_EQ(moved.route_count(), old.route_count());
        audio::FileReaderMP3 to(wide(out));
        ASSERT_TRUE(to.is_open());
        for (int i = 0; i < old.count(); ++i) {
            EXPECT_EQ(moved.mark(i).name, old.mark(i).name);
            EXPECT_EQ(moved.mark(i).kind, old.mark(i).kind);
            EXPECT_NE(moved.mark(i).position, old.mark(i).position);
            EXPECT_NEAR(to.position_to_seconds(moved.mark(i).position), from.position_to_seconds(old.mark(i).position),
                        frame);
        }
        for (int i = 0; i < old.route_count(); ++i)
            EXPECT_EQ(moved.route_mark(i).name, old.route_mark(i).name);
    }
}

// An existing target gives way only to a finished conversion, and its stale
// side file goes when the source has no marks; a failed one leaves it and
// leaves nothing beside it.
TEST_F(Convert, ReplacesAnExistingTargetOnlyOnSuccess)
{
    const fs::path in = copy(test::one_media("pcm_s16_speech_16000.wav"), "speech.wav");
    const fs::path out = dir_ / "out.mp3";
    test::write_file(out, "old contents");
    test::write_file(dir_ / "out.mp3.bm", "stale marks");

    test::write_file(dir_ / "text.wav", "not a sound file at all\n");
    expect_one_line_naming(convert(dir_ / "text.wav", out), "text.wav");
    EXPECT_EQ(test::read_file(out), "old contents");
    EXPECT_EQ(test::read_file(dir_ / "out.mp3.bm"), "stale marks");
    EXPECT_EQ(listing(dir_.path()), (std::vector<std::string>{"out.mp3", "out.mp3.bm", "speech.wav", "text.wav"}));

    const Result r = convert(in, out);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(ffprobe_number(out, "bit_rate"), 64000);
    EXPECT_EQ(listing(dir_.path()), (std::vector<std::string>{"out.mp3", "speech.wav", "text.wav"}));
}

// Targets that can't be written and sources that can't be encoded: one line,
// exit 1, and no file left behind.
TEST_F(Convert, RefusesWhatItCannotFinish)
{
    const fs::path in = copy(test::one_media("pcm_s16_speech_16000.wav"), "speech.wav");

    expect_one_line_naming(convert(in, dir_ / "missing" / "out.mp3"), "missing/out.mp3");

    fs::create_directory(dir_ / "folder.mp3");
    expect_one_line_naming(convert(in, dir_ / "folder.mp3"), "folder.mp3");
    EXPECT_TRUE(fs::is_empty(dir_ / "folder.mp3"));

    // A folder where no file can be made, even by root.
    expect_one_line_naming(convert(in, "/proc/quillctl-convert-test.mp3"), "/proc/quillctl-convert-test.mp3");
    if (::geteuid() != 0) {
        fs::create_directory(dir_ / "locked");
        fs::permissions(dir_ / "locked", fs::perms::owner_read | fs::perms::owner_exec);
        expect_one_line_naming(convert(in, dir_ / "locked" / "out.mp3"), "locked/out.mp3");
        fs::permissions(dir_ / "locked", fs::perms::owner_all);
        EXPECT_TRUE(fs::is_empty(dir_ / "locked"));
    }

    // 17000 Hz is no MPEG rate; LAME would give nothing but an empty file.
    ASSERT_EQ(test::run("sox -n -r 17000 -c 1 -b 16 " + quote((dir_ / "odd.wav").string()) + " synth 0.5 sine 300"),
              0);
    expect_one_line_naming(convert(dir_ / "odd.wav", dir_ / "odd.mp3"), "17000");

    // A WAV cut short in its data: the reader gives up before its end.
    const std::string whole = test::read_file(in);
    test::write_file(dir_ / "cut.wav", whole.substr(0, whole.size() / 2));
    expect_one_line_naming(convert(dir_ / "cut.wav", dir_ / "cut.mp3"), "cut.wav");

    test::write_file(dir_ / "text.wav", "not a sound file at all\n");
    expect_one_line_naming(convert(dir_ / "text.wav", dir_ / "text.mp3"), "text.wav");

    std::vector<std::string> expected{"cut.wav", "folder.mp3", "odd.wav", "speech.wav", "text.wav"};
    if (::geteuid() != 0)
        expected.insert(expected.begin() + 2, "locked");
    EXPECT_EQ(listing(dir_.path()), expected);
}

// The class as the form drives it: its own thread below normal urgency, the
// side file saved for the target, and a stop half way leaving neither
// target nor side file.
TEST_F(Convert, ConversionRunsOnItsThreadAndCleansUpWhenStopped)
{
    const fs::path in = copy(test::one_media("pcm_s16_speech_16000.wav"), "speech.wav");
    mark_thirds(in);
    {
        Conversion c(wide(in), wide(dir_ / "done.mp3"));
        ASSERT_TRUE(c.is_open());
        EXPECT_TRUE(c.is_good());
        EXPECT_TRUE(c.can_encode());
        EXPECT_TRUE(c.has_room());
        ASSERT_TRUE(c.begin());
        EXPECT_TRUE(c.finish());
        EXPECT_TRUE(c.is_eof());
        EXPECT_EQ(c.get_position(), c.get_length());
    }
    EXPECT_GT(fs::file_size(dir_ / "done.mp3"), 0u);
    RangeMarks moved;
    ASSERT_TRUE(moved.load(side_file_of(wide(dir_ / "done.mp3"))));
    EXPECT_EQ(moved.count(), 3);

    // Minutes of noise, so the stop comes long before the end.
    const fs::path lng = dir_ / "long.wav";
    ASSERT_EQ(test::run("sox -n -r 44100 -c 2 -b 16 " + quote(lng.string()) + " synth 300 whitenoise"), 0);
    mark_thirds(lng);
    {
        Conversion c(wide(lng), wide(dir_ / "stopped.mp3"));
        ASSERT_TRUE(c.begin());
        while (c.get_position() == 0)
            usleep(1000);
        EXPECT_TRUE(fs::exists(dir_ / "stopped.mp3"));
        c.request_stop();
        EXPECT_FALSE(c.finish());
        EXPECT_FALSE(c.is_eof());
    }
    EXPECT_FALSE(fs::exists(dir_ / "stopped.mp3"));
    EXPECT_FALSE(fs::exists(dir_ / "stopped.mp3.bm"));

    // No room where nothing can be written.
    Conversion none(wide(in), L"/proc/quillctl-convert-test.mp3");
    EXPECT_FALSE(none.is_good());
    EXPECT_FALSE(none.has_room());
}

} // namespace

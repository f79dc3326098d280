// quillctl info, decode, tag and marks --export, run as a user runs them, on
// files made by sox, lame and ffmpeg, checked against sox, ffprobe and a
// plain libmad decode.
#include "tests/support/mad_reference.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

using Result = test::QuillctlRun;
using test::one_media;
using test::expect_one_line_naming;
using test::quote;
using test::run_out;
using test::samples_of;
using test::sox16;
using test::soxi_int;

// `key: value` lines of one block of output.
std::map<std::string, std::string> facts(const std::string& block)
{
    std::map<std::string, std::string> m;
    std::istringstream in(block);
    std::string line;
    while (std::getline(in, line)) {
        auto colon = line.find(": ");
        if (colon != std::string::npos)
            m[line.substr(0, colon)] = line.substr(colon + 2);
    }
    return m;
}

std::string three_decimals(double seconds)
{
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.3f", seconds);
    return buf;
}

// The fields of a WAV header as the file holds them.
struct Header {
    std::uint32_t tag, channels, rate, bytes_per_second, block_align, bits;
    std::uint32_t spb = 0;  // samples per block of ADPCM and GSM
    std::uint32_t fact = 0; // samples of the fact chunk
};

Header header_of(const fs::path& f)
{
    const std::string b = test::read_file(f);
    Header h{test::le(b, 20, 2), test::le(b, 22, 2), test::le(b, 24), test::le(b, 28), test::le(b, 32, 2), test::le(b, 34, 2)};
    if (h.tag != 1) {
        h.spb = test::le(b, 38, 2);
        auto fact = b.find("fact");
        EXPECT_NE(fact, std::string::npos) << f;
        h.fact = test::le(b, fact + 8);
    }
    return h;
}

// Lines of tab-separated cells `columns` wide; another line fails the test
// and is left out.
std::vector<std::vector<std::string>> tab_table(const std::string& text, std::size_t columns)
{
    std::vector<std::vector<std::string>> rows;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::vector<std::string> cells;
        std::istringstream cols(line);
        for (std::string cell; std::getline(cols, cell, '\t');)
            cells.push_back(cell);
        EXPECT_EQ(cells.size(), columns) << line;
        if (cells.size() == columns)
            rows.push_back(cells);
    }
    return rows;
}

class Quillctl : public testing::Test {
protected:
    Result quillctl(const std::string& command, std::vector<std::string> args)
    {
        args.insert(args.begin(), command);
        return test::run_quillctl(args, dir_.path());
    }

    fs::path copy(const fs::path& from, const std::string& name)
    {
        fs::copy_file(from, dir_ / name, fs::copy_options::overwrite_existing);
        return dir_ / name;
    }

    test::TempDir dir_;
};

std::vector<fs::path> wav_family()
{
    std::vector<fs::path> files;
    for (const char* pattern : {"pcm_*.wav", "list_*.wav", "bext_*.wav", "adpcm_*.wav", "gsm_*.wav", "empty_*.wav"})
        for (const auto& f : test::media(pattern))
            files.push_back(f);
    return files;
}

// The MP3 files that decode in full, as libmad decodes them.
std::vector<fs::path> playable_mp3()
{
    std::vector<fs::path> files;
    for (const char* pattern : {"lame_*.mp3", "mp3_*.mp3", "tag_*.mp3", "long_*.mp3"})
        for (const auto& f : test::media(pattern))
            files.push_back(f);
    return files;
}

} // namespace

TEST_F(Quillctl, InfoReportsWhatTheReadersReport)
{
    auto wavs = wav_family();
    ASSERT_GE(wavs.size(), 28u);
    for (const auto& f : wavs) {
        SCOPED_TRACE(f.filename().string());
        Result r = quillctl("info", {f.string()});
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_TRUE(r.err.empty());
        auto m = facts(r.out);
        const Header h = header_of(f);
        EXPECT_EQ(m["file"], f.string());
        EXPECT_EQ(m["format"], h.tag == 1 ? "wav-pcm" : h.tag == 2 ? "wav-adpcm" : "wav-gsm");
        EXPECT_EQ(m["channels"], std::to_string(h.channels));
        EXPECT_EQ(m["rate"], std::to_string(h.rate));
        EXPECT_EQ(m["bits"], std::to_string(h.tag == 1 ? h.bits : 16));
        EXPECT_EQ(m["bitrate"], std::to_string(h.bytes_per_second * 8 / 1000));
        // PCM lasts its samples; ADPCM and GSM the whole blocks of the fact chunk.
        const double samples = h.tag == 1 ? soxi_int(f, "-s") : double(h.fact / h.spb * h.spb);
        EXPECT_EQ(m["duration"], three_decimals(samples / h.rate));
        EXPECT_EQ(m.count("marks"), 0u);
        EXPECT_EQ(m.count("title"), 0u);
    }

    auto mp3s = playable_mp3();
    ASSERT_GE(mp3s.size(), 20u);
    for (const auto& f : mp3s) {
        SCOPED_TRACE(f.filename().string());
        Result r = quillctl("info", {f.string()});
        ASSERT_EQ(r.status, 0) << r.err;
        auto m = facts(r.out);
        // ffprobe's lines are key=value.
        std::map<std::string, int> p;
        std::istringstream in(run_out("ffprobe -v error -select_streams a:0 -show_entries "
                                      "stream=channels,sample_rate,bit_rate -of default=nw=1 " +
                                      quote(f.string())));
        for (std::string line; std::getline(in, line);)
            p[line.substr(0, line.find('='))] = std::atoi(line.c_str() + line.find('=') + 1);
        EXPECT_EQ(m["format"], "mp3");
        EXPECT_EQ(m["channels"], std::to_string(p["channels"]));
        EXPECT_EQ(m["rate"], std::to_string(p["sample_rate"]));
        EXPECT_EQ(m["bits"], "16");
        // The first frame's bit rate: a Xing or Info frame may differ from
        // the rest of the stream.
        const int kbps = test::first_frame_kbps(test::read_file(f));
        ASSERT_GT(kbps, 0);
        EXPECT_EQ(m["bitrate"], std::to_string(kbps));
        // The size over the first frame's bit rate, tags included, in whole
        // milliseconds.
        const auto size = static_cast<std::int64_t>(fs::file_size(f));
        EXPECT_EQ(m["duration"], three_decimals(static_cast<double>(size * 8 / kbps) / 1000));
    }
}

TEST_F(Quillctl, InfoGivesTagFieldsAndMarksAndNamesWhatItCannotOpen)
{
    Result r = quillctl("info", {one_media("tag_lame_v1.mp3").string()});
    ASSERT_EQ(r.status, 0) << r.err;
    auto m = facts(r.out);
    // ffprobe's lines are TAG:key=value.
    std::map<std::string, std::string> probe;
    std::istringstream in(run_out("ffprobe -v error -show_entries format_tags -of default=nw=1 " +
                                  quote(one_media("tag_lame_v1.mp3").string())));
    for (std::string line; std::getline(in, line);)
        probe[line.substr(line.find(':') + 1, line.find('=') - line.find(':') - 1)] = line.substr(line.find('=') + 1);
    // The tag holds Windows-1252, which ffprobe does not turn into UTF-8.
    EXPECT_EQ(m["title"], "Caf\xc3\xa9 Title");
    EXPECT_EQ(m["artist"], probe["artist"]);
    EXPECT_EQ(m["album"], probe["album"]);
    EXPECT_EQ(m["year"], probe["date"]);
    EXPECT_EQ(m["comment"], probe["comment"]);
    EXPECT_EQ(m["track"], probe["track"]);
    EXPECT_EQ(m["genre"], "17");

    // A side file gives the count of its marks.
    const fs::path wav = copy(one_media("pcm_s16_mono_8000.wav"), "marked.wav");
    ASSERT_EQ(quillctl("marks", {wav.string(), "--add", "one", "0", "--add", "two", "1000"}).status, 0);
    EXPECT_EQ(facts(quillctl("info", {wav.string()}).out)["marks"], "2");

    // Files no reader opens: each gets one line naming it, the others print,
    // a blank line between two files, and the exit status is 1.
    std::string text;
    for (int i = 0; i < 300; ++i)
        text += "not audio, line " + std::to_string(i) + "\n";
    test::write_file(dir_ / "text.wav", text);
    fs::create_directory(dir_ / "folder.wav");
    std::vector<fs::path> refused = test::media("refused_*.wav");
    ASSERT_GE(refused.size(), 3u);
    refused.push_back(one_media("freeformat_44100.mp3"));
    refused.push_back(dir_ / "text.wav");
    refused.push_back(dir_ / "folder.wav");
    refused.push_back(dir_ / "missing.mp3");
    for (const auto& f : refused) {
        SCOPED_TRACE(f.filename().string());
        r = quillctl("info", {f.string()});
        // The media service is tried after every reader and may play what
        // they refuse; then it is what reports the file.
        if (r.status == 0 && r.out.find("format: wma\n") != std::string::npos)
            continue;
        EXPECT_EQ(r.status, 1);
        EXPECT_TRUE(r.out.empty()) << r.out;
        expect_one_line_naming(r, f.string());
    }
    r = quillctl("info", {wav.string(), (dir_ / "text.wav").string(), one_media("gsm_mono_8000.wav").string()});
    EXPECT_EQ(r.status, 1);
    expect_one_line_naming(r, "text.wav");
    auto blank = r.out.find("\n\n");
    ASSERT_NE(blank, std::string::npos);
    EXPECT_EQ(facts(r.out.substr(0, blank))["file"], wav.string());
    EXPECT_EQ(facts(r.out.substr(blank + 2))["format"], "wav-gsm");
    EXPECT_EQ(r.out.find("\n\n", blank + 1), std::string::npos);
    EXPECT_EQ(quillctl("info", {}).status, 2);
}

TEST_F(Quillctl, DecodeMatchesSoxForTheWavFamily)
{
    for (const auto& f : wav_family()) {
        SCOPED_TRACE(f.filename().string());
        Result r = quillctl("decode", {f.string(), "-"});
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_TRUE(r.err.empty()) << r.err;
        const std::string ref = sox16(f);
        const Header h = header_of(f);
        if (h.tag == 1) {
            EXPECT_TRUE(r.out == ref) << r.out.size() << " bytes against " << ref.size();
        } else {
            // The whole blocks of the fact chunk, as sox decodes them.
            const std::size_t bytes = h.fact / h.spb * h.spb * h.channels * 2;
            EXPECT_EQ(r.out.size(), bytes);
            EXPECT_TRUE(r.out == ref.substr(0, bytes));
        }
    }
    // A WAV out holds the same samples, 16-bit, in the stream's format.
    for (const char* name : {"pcm_u8_stereo_11025.wav", "adpcm_stereo_22050.wav", "gsm_mono_8000.wav"}) {
        SCOPED_TRACE(name);
        const fs::path f = one_media(name);
        const fs::path out = dir_ / "out.wav";
        Result r = quillctl("decode", {f.string(), out.string()});
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_TRUE(r.out.empty());
        EXPECT_EQ(soxi_int(out, "-b"), 16);
        EXPECT_EQ(soxi_int(out, "-c"), soxi_int(f, "-c"));
        EXPECT_EQ(soxi_int(out, "-r"), soxi_int(f, "-r"));
        EXPECT_TRUE(sox16(out) == quillctl("decode", {f.string(), "-"}).out);
        EXPECT_EQ(header_of(out).tag, 1u);
    }
    // Nothing but the finished file is left in the folder.
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(dir_.path()))
        names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"out.wav", "quillctl.stderr"}));
}

TEST_F(Quillctl, DecodeKeepsTheTopSixteenBitsOfWiderSamplesAndEveryChannel)
{
    struct Made {
        const char* name;
        const char* sox;
    };
    std::vector<fs::path> files = {one_media("pcm_s16_3ch_8000.wav")};
    for (Made m : {Made{"s24_mono.wav", "-r 11025 -b 24 -c 1"}, Made{"s32_stereo.wav", "-r 22050 -b 32 -c 2"},
                   Made{"s24_4ch.wav", "-r 8000 -b 24 -c 4"}}) {
        const fs::path f = dir_ / m.name;
        ASSERT_EQ(test::run("sox -n -t wavpcm " + std::string(m.sox) + " " + quote(f.string()) +
                            " synth 0.4 sine 300 pinknoise sine 500 sine 700 gain -3"),
                  0);
        ASSERT_EQ(header_of(f).tag, 1u) << "format tag 1, which the reader takes";
        files.push_back(f);
    }
    for (const auto& f : files) {
        SCOPED_TRACE(f.filename().string());
        const Header h = header_of(f);
        Result info = quillctl("info", {f.string()});
        ASSERT_EQ(info.status, 0) << info.err;
        EXPECT_EQ(facts(info.out)["bits"], std::to_string(h.bits));
        EXPECT_EQ(facts(info.out)["channels"], std::to_string(h.channels));
        // sox's exact 32-bit samples, cut to their top 16 bits.
        const std::string wide = run_out("sox " + quote(f.string()) + " -t raw -e signed-integer -b 32 -L -");
        std::string top;
        for (std::size_t i = 0; i + 4 <= wide.size(); i += 4)
            top += wide.substr(i + 2, 2);
        Result r = quillctl("decode", {f.string(), "-"});
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_TRUE(r.out == top) << r.out.size() << " bytes against " << top.size();
        const fs::path out = dir_ / "out.wav";
        ASSERT_EQ(quillctl("decode", {f.string(), out.string()}).status, 0);
        EXPECT_EQ(soxi_int(out, "-c"), static_cast<int>(h.channels));
        EXPECT_EQ(soxi_int(out, "-b"), 16);
        EXPECT_TRUE(sox16(out) == top);
    }
}

TEST_F(Quillctl, DecodeMatchesPlainLibmadForMP3)
{
    for (const auto& f : playable_mp3()) {
        SCOPED_TRACE(f.filename().string());
        Result r = quillctl("decode", {f.string(), "-"});
        ASSERT_EQ(r.status, 0) << r.err;
        test::MadDecode ref = test::mad_decode(test::read_file(f));
        auto got = samples_of(r.out);
        ASSERT_EQ(got.size(), ref.samples.size());
        int most = 0;
        for (std::size_t i = 0; i < got.size(); ++i)
            most = std::max(most, std::abs(int(got[i]) - int(ref.samples[i])));
        EXPECT_LE(most, 1);
    }
    // Frames at 12000 Hz pass the reader and decode to nothing.
    Result r = quillctl("decode", {one_media("rate12000_mono.mp3").string(), "-"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(r.out.empty());
}

// Where `got` lines up with `ref` (both of `channels`): the shift d in
// sample frames, lo <= d <= hi, that makes got[i] closest to ref[i + d] over
// a probe.
long alignment(const std::vector<std::int16_t>& got, const std::vector<std::int16_t>& ref, long lo, long hi,
               long channels = 2)
{
    constexpr long kProbeAt = 10000, kProbe = 2000;
    long best = lo;
    double least = -1;
    for (long d = lo; d <= hi; ++d) {
        if ((kProbeAt + d) < 0 || std::size_t(channels * (kProbeAt + d + kProbe)) > ref.size() ||
            std::size_t(channels * (kProbeAt + kProbe)) > got.size())
            continue;
        double e = 0;
        for (long i = channels * kProbeAt; i < channels * (kProbeAt + kProbe); ++i)
            e += std::abs(int(got[std::size_t(i)]) - int(ref[std::size_t(i + channels * d)]));
        if (least < 0 || e < least) {
            least = e;
            best = d;
        }
    }
    return best;
}

// Windows Media comes from the media service's own sample output; FFmpeg's
// decoder serves both it and ffmpeg, so the samples nearly agree once lined
// up: the service keeps the decoder's leading frames, which ffmpeg drops.
// Version 1 and 2 streams, stereo and mono.
TEST_F(Quillctl, DecodeTakesWindowsMediaFromTheMediaService)
{
    constexpr long kDecoderFrame = 2048; // sample frames of one WMA frame at 44100 Hz
    static constexpr double kLeastSnr = 40;
    auto compare = [](const std::vector<std::int16_t>& got, const std::vector<std::int16_t>& to, long shift,
                      long channels) {
        double signal = 0, noise = 0;
        int most = 0;
        std::size_t n = 0;
        for (std::size_t i = 0; i < got.size(); ++i) {
            const long j = long(i) + channels * shift;
            if (j < 0 || std::size_t(j) >= to.size())
                continue;
            const int d = int(got[i]) - int(to[std::size_t(j)]);
            most = std::max(most, std::abs(d));
            signal += double(to[std::size_t(j)]) * to[std::size_t(j)];
            noise += double(d) * d;
            ++n;
        }
        const double snr = noise > 0 ? 10 * std::log10(signal / noise) : 999;
        std::printf("wma: %zu samples, %zu compared, shift %ld frames, most apart %d, SNR %.1f dB\n", got.size(), n,
                    shift, most, snr);
        EXPECT_GT(n, got.size() / 2);
        EXPECT_LE(most, 2);
        EXPECT_GT(snr, kLeastSnr);
    };
    struct Case {
        const char* name;
        long channels;
        unsigned rate;
    };
    for (const Case& c : {Case{"wma1_stereo_44100.wma", 2, 44100}, Case{"wma_stereo_44100.wma", 2, 44100},
                          Case{"wma2_mono_22050.wma", 1, 22050}}) {
        SCOPED_TRACE(c.name);
        const fs::path f = one_media(c.name);
        const auto ref = samples_of(run_out("ffmpeg -v error -i " + quote(f.string()) + " -f s16le -"));
        ASSERT_GT(ref.size(), std::size_t(c.rate * c.channels));
        Result r = quillctl("decode", {f.string(), "-"});
        ASSERT_EQ(r.status, 0) << r.err;
        const auto all = samples_of(r.out);
        // Rate and channels as ffmpeg's, the length within one decoder frame.
        EXPECT_LE(std::max(all.size(), ref.size()) - std::min(all.size(), ref.size()),
                  std::size_t(c.channels * kDecoderFrame));
        compare(all, ref, alignment(all, ref, -3 * kDecoderFrame, 3 * kDecoderFrame, c.channels), c.channels);
        const fs::path out = dir_ / "wma.wav";
        r = quillctl("decode", {f.string(), out.string()});
        ASSERT_EQ(r.status, 0) << r.err;
        const Header h = header_of(out);
        EXPECT_EQ(h.tag, 1u);
        EXPECT_EQ(h.channels, unsigned(c.channels));
        EXPECT_EQ(h.rate, c.rate);
        EXPECT_EQ(h.bits, 16u);
        EXPECT_TRUE(test::read_file(out).substr(44) ==
                    std::string(reinterpret_cast<const char*>(all.data()), all.size() * 2));
    }
    // A cut seeks the service to its start (within a millisecond) and
    // counts sample frames to its end.
    const fs::path f = one_media("wma_stereo_44100.wma");
    const auto all = samples_of(quillctl("decode", {f.string(), "-"}).out);
    Result r = quillctl("decode", {f.string(), "-", "--start", "1", "--end", "2"});
    ASSERT_EQ(r.status, 0) << r.err;
    auto cut = samples_of(r.out);
    EXPECT_EQ(cut.size(), 44100u * 2);
    const long at = alignment(cut, all, 44100 - 44, 44100 + 44);
    EXPECT_GT(at, 44100 - 44);
    EXPECT_LT(at, 44100 + 44);
    compare(cut, all, at, 2);
    r = quillctl("decode", {f.string(), "-", "--end", "0.5"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(r.out == std::string(reinterpret_cast<const char*>(all.data()), 22050 * 4));
    r = quillctl("decode", {f.string(), (dir_ / "wma.wav").string(), "--start", "1000"});
    EXPECT_EQ(r.status, 1);
    expect_one_line_naming(r, "--start");
}

TEST_F(Quillctl, DecodeStartsAndEndsWhereAsked)
{
    auto cut = [](const std::string& all, std::int64_t from, std::int64_t to, int channels) {
        return all.substr(static_cast<std::size_t>(from * channels * 2),
                          static_cast<std::size_t>((to - from) * channels * 2));
    };
    // PCM: from the frame that trunc(rate x start) names to the one before
    // trunc(rate x end).
    const fs::path speech = one_media("pcm_s16_speech_16000.wav");
    const std::string speech_ref = sox16(speech);
    Result r = quillctl("decode", {speech.string(), "-", "--start", "0.5", "--end", "1.25"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(r.out == cut(speech_ref, 8000, 20000, 1));
    EXPECT_TRUE(quillctl("decode", {speech.string(), "-", "--end", "1.25"}).out == speech_ref.substr(0, 40000));
    EXPECT_TRUE(quillctl("decode", {speech.string(), "-", "--start", "5.5"}).out == speech_ref.substr(176000));
    EXPECT_TRUE(quillctl("decode", {speech.string(), "-", "--end", "100"}).out == speech_ref);
    const fs::path u8 = one_media("pcm_u8_stereo_11025.wav");
    EXPECT_TRUE(quillctl("decode", {u8.string(), "-", "--start", "0.1", "--end", "0.3"}).out ==
                cut(sox16(u8), 1102, 3307, 2));

    // ADPCM starts on the block that holds the start; blocks decode alone.
    const fs::path adpcm = one_media("adpcm_stereo_22050.wav");
    const Header h = header_of(adpcm);
    const std::int64_t first = static_cast<std::int64_t>(22050 * 1.5 / h.spb) * h.spb;
    r = quillctl("decode", {adpcm.string(), "-", "--start", "1.5", "--end", "2.5"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(r.out == cut(sox16(adpcm), first, 55125, 2)) << r.out.size();

    // GSM's filter starts afresh at the seek; the length is exact.
    r = quillctl("decode", {one_media("gsm_mono_8000.wav").string(), "-", "--start", "1", "--end", "2"});
    EXPECT_EQ(r.out.size(), 8000u * 2);

    // MP3: the end cuts a plain decode; a start lands by the bit rate.
    const fs::path mp3 = one_media("mp3_cbr128_stereo_44100.mp3");
    const std::string mp3_all = quillctl("decode", {mp3.string(), "-"}).out;
    EXPECT_TRUE(quillctl("decode", {mp3.string(), "-", "--end", "1"}).out == mp3_all.substr(0, 44100 * 4));
    r = quillctl("decode", {mp3.string(), "-", "--start", "1", "--end", "2"});
    EXPECT_EQ(r.out.size(), 44100u * 4);

    // What can't be done leaves OUT as it was.
    const fs::path out = dir_ / "keep.wav";
    test::write_file(out, "old");
    r = quillctl("decode", {speech.string(), out.string(), "--start", "100"});
    EXPECT_EQ(r.status, 1);
    expect_one_line_naming(r, speech.string());
    for (const std::vector<std::string>& wrong :
         std::vector<std::vector<std::string>>{{speech.string(), out.string(), "--speed", "0.49"},
                                               {speech.string(), out.string(), "--speed", "2.01"},
                                               {speech.string(), out.string(), "--pitch", "hold"},
                                               {speech.string(), out.string(), "--eq", "1000,1"},
                                               {speech.string(), out.string(), "--eq", "1000,0,3"},
                                               {speech.string(), out.string(), "--eq", "1000,1,x"},
                                               {speech.string(), out.string(), "--eq", "1,1,1", "--eq", "2,1,1",
                                                "--eq", "3,1,1", "--eq", "4,1,1"},
                                               {speech.string(), out.string(), "--booster", "4"},
                                               {speech.string(), out.string(), "--noise", "1.5"},
                                               {speech.string(), out.string(), "--volume", "101"},
                                               {speech.string(), out.string(), "--start", "2", "--end", "1"},
                                               {speech.string(), out.string(), "--start", "x"},
                                               {speech.string(), out.string(), "--end", "-1"},
                                               {speech.string(), out.string(), "--route", "--start", "1"},
                                               {speech.string(), (dir_ / "out.raw").string()},
                                               {speech.string()}}) {
        EXPECT_EQ(quillctl("decode", wrong).status, 2) << wrong.back();
    }
    EXPECT_EQ(test::read_file(out), "old");
    r = quillctl("decode", {(dir_ / "text.mp3").string(), out.string()});
    EXPECT_EQ(r.status, 1);
    r = quillctl("decode", {speech.string(), (dir_ / "no" / "such" / "folder.wav").string()});
    EXPECT_EQ(r.status, 1);
    expect_one_line_naming(r, "folder.wav");
    EXPECT_EQ(test::read_file(out), "old");
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_.path()), fs::directory_iterator()), 2) << "keep.wav, stderr";
}

TEST_F(Quillctl, DecodePlaysTheRouteThroughTheMarks)
{
    const fs::path f = copy(one_media("pcm_s16_speech_16000.wav"), "speech.wav");
    const std::string ref = sox16(f);
    Result r = quillctl("decode", {f.string(), "-", "--route"});
    EXPECT_EQ(r.status, 1);
    expect_one_line_naming(r, "speech.wav");
    ASSERT_EQ(quillctl("marks", {f.string(), "--add", "a", "8000", "--add", "b", "20000", "--add", "c", "30000",
                                 "--add", "d", "60000"})
                  .status,
              0);
    r = quillctl("decode", {f.string(), "-", "--route"});
    EXPECT_EQ(r.status, 1) << "marks, but none in the route";
    ASSERT_EQ(quillctl("marks", {f.string(), "--route", "c", "a"}).status, 0);
    r = quillctl("decode", {f.string(), "-", "--route"});
    ASSERT_EQ(r.status, 0) << r.err;
    // The ranges play in the order of the file.
    EXPECT_TRUE(r.out == ref.substr(8000, 12000) + ref.substr(30000, 30000)) << r.out.size();

    // The last range runs to the end; an MP3 routes by its bytes.
    const fs::path mp3 = copy(one_media("mp3_cbr128_stereo_44100.mp3"), "speech.mp3");
    const auto size = static_cast<std::int64_t>(fs::file_size(mp3));
    ASSERT_EQ(quillctl("marks", {mp3.string(), "--add", "skip", "0", "--add", "tail", std::to_string(size / 2),
                                 "--route", "tail"})
                  .status,
              0);
    r = quillctl("decode", {mp3.string(), "-", "--route"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string all = quillctl("decode", {mp3.string(), "-"}).out;
    // About half the frames, and the very end of the plain decode.
    EXPECT_NEAR(static_cast<double>(r.out.size()), all.size() / 2.0, 3 * 1152 * 4);
    ASSERT_GT(r.out.size(), 10000u);
    EXPECT_TRUE(r.out.substr(r.out.size() - 10000) == all.substr(all.size() - 10000));
}

TEST_F(Quillctl, TagPrintsWritesAndRemovesOnlyOnMP3)
{
    const fs::path f = copy(one_media("lame_44100_128_stereo.mp3"), "song.mp3");
    const std::string original = test::read_file(f);
    Result r = quillctl("tag", {f.string()});
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(r.out.empty()) << "no tag: " << r.out;

    r = quillctl("tag", {f.string(), "--title", "Cafe Song", "--artist", "Somebody", "--album", "Album",
                         "--year", "2024", "--comment", "A comment of exactly thirty b", "--track", "7", "--genre",
                         "12"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(fs::file_size(f), original.size() + 128);
    auto m = facts(quillctl("tag", {f.string()}).out);
    EXPECT_EQ(m["title"], "Cafe Song");
    EXPECT_EQ(m["comment"], "A comment of exactly thirty");
    EXPECT_EQ(m["track"], "7");
    EXPECT_EQ(m["genre"], "12");
    // ffprobe reads what was written.
    std::string probe = run_out("ffprobe -v error -show_entries format_tags -of default=nw=1 " + quote(f.string()));
    for (const char* want : {"=Cafe Song\n", "=Somebody\n", "=Album\n", "=2024\n", "=7\n"})
        EXPECT_NE(probe.find(want), std::string::npos) << want << " in\n" << probe;

    // Fields not given stay; texts go into the file as Windows-1252.
    ASSERT_EQ(quillctl("tag", {f.string(), "--title", "Caf\xc3\xa9"}).status, 0);
    m = facts(quillctl("tag", {f.string()}).out);
    EXPECT_EQ(m["title"], "Caf\xc3\xa9");
    EXPECT_EQ(test::read_file(f).substr(original.size(), 8), std::string("TAGCaf\xe9\0", 8));
    EXPECT_EQ(m["artist"], "Somebody");
    EXPECT_EQ(fs::file_size(f), original.size() + 128);

    // --remove takes away the tag that ends the file, and only that.
    ASSERT_EQ(quillctl("tag", {f.string(), "--remove"}).status, 0);
    EXPECT_TRUE(test::read_file(f) == original);
    ASSERT_EQ(quillctl("tag", {f.string(), "--remove"}).status, 0);
    EXPECT_TRUE(test::read_file(f) == original);
    ASSERT_EQ(quillctl("tag", {f.string(), "--title", "Followed"}).status, 0);
    test::write_file(f, test::read_file(f) + "trailing data");
    const std::string followed = test::read_file(f);
    r = quillctl("tag", {f.string(), "--remove"});
    EXPECT_EQ(r.status, 1);
    expect_one_line_naming(r, "song.mp3");
    EXPECT_TRUE(test::read_file(f) == followed);

    // Files that are not MP3 stay untouched.
    std::string text;
    for (int i = 0; i < 100; ++i)
        text += "plain text " + std::to_string(i) + "\n";
    test::write_file(dir_ / "notes.mp3", text);
    test::write_file(dir_ / "empty.mp3", "");
    const fs::path wav = copy(one_media("pcm_s16_mono_8000.wav"), "clip.wav");
    for (const fs::path& p : {dir_ / "notes.mp3", dir_ / "empty.mp3", wav}) {
        SCOPED_TRACE(p.filename().string());
        const std::string before = test::read_file(p);
        for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
                 {p.string()}, {p.string(), "--title", "X"}, {p.string(), "--remove"}}) {
            r = quillctl("tag", args);
            EXPECT_EQ(r.status, 1);
            expect_one_line_naming(r, p.filename().string());
        }
        EXPECT_TRUE(test::read_file(p) == before);
    }
    r = quillctl("tag", {(dir_ / "missing.mp3").string(), "--title", "X"});
    EXPECT_EQ(r.status, 1);
    EXPECT_FALSE(fs::exists(dir_ / "missing.mp3"));
    for (const std::vector<std::string>& wrong : std::vector<std::vector<std::string>>{
             {f.string(), "--track", "300"}, {f.string(), "--genre", "x"}, {f.string(), "--title"},
             {f.string(), "--remove", "--title", "X"}, {f.string(), "--colour", "red"}, {}}) {
        EXPECT_EQ(quillctl("tag", wrong).status, 2);
    }
    EXPECT_TRUE(test::read_file(f) == followed);
}

TEST_F(Quillctl, MarksPrintSecondsAndExportALabelTrackThatAgrees)
{
    struct Case {
        const char* media;
        std::vector<int> positions;
    };
    for (const Case& c : {Case{"pcm_s16_speech_16000.wav", {64000, 0, 32000, 1000}},
                          Case{"gsm_mono_8000.wav", {25, 0, 100}}, Case{"adpcm_stereo_22050.wav", {3, 60}},
                          Case{"mp3_cbr128_stereo_44100.mp3", {16000, 0, 48000}}}) {
        SCOPED_TRACE(c.media);
        const fs::path f = copy(one_media(c.media), std::string("marked") + fs::path(c.media).extension().string());
        std::vector<std::string> args = {f.string()};
        for (std::size_t i = 0; i < c.positions.size(); ++i) {
            args.push_back("--add");
            args.push_back("m" + std::to_string(i));
            args.push_back(std::to_string(c.positions[i]));
        }
        const fs::path labels = dir_ / "labels.txt";
        args.push_back("--export");
        args.push_back(labels.string());
        Result r = quillctl("marks", args);
        ASSERT_EQ(r.status, 0) << r.err;
        const std::string duration = facts(quillctl("info", {f.string()}).out)["duration"];

        // Printed lines: name, position, seconds, route, in position order.
        const auto printed = tab_table(quillctl("marks", {f.string()}).out, 4);
        const auto exported = tab_table(test::read_file(labels), 3);
        ASSERT_EQ(printed.size(), c.positions.size());
        ASSERT_EQ(exported.size(), printed.size());
        for (std::size_t i = 0; i < printed.size(); ++i) {
            EXPECT_EQ(exported[i][2], printed[i][0]);
            EXPECT_EQ(three_decimals(std::stod(exported[i][0])), printed[i][2]);
            EXPECT_EQ(exported[i][0].size() - exported[i][0].find('.'), 7u) << "six decimals";
            // A mark's label ends where the next begins, the last at the end.
            if (i + 1 < printed.size()) {
                EXPECT_EQ(exported[i][1], exported[i + 1][0]);
            } else {
                EXPECT_EQ(three_decimals(std::stod(exported[i][1])), duration);
            }
            if (i > 0) {
                EXPECT_LT(std::stoi(printed[i - 1][1]), std::stoi(printed[i][1]));
            }
        }
        if (std::string(c.media).rfind("pcm", 0) == 0) {
            // 16000 frames of two bytes a second.
            EXPECT_EQ(exported[1][0], "0.031250");
            EXPECT_EQ(exported[2][0], "1.000000");
            EXPECT_EQ(printed[3][2], "2.000");
        }
        fs::remove(f.string() + ".bm");
    }
    // No reader, no times: --export fails and writes nothing, not even the
    // marks added with it.
    test::write_file(dir_ / "notes.wav", std::string(4000, 'n'));
    ASSERT_EQ(quillctl("marks", {(dir_ / "notes.wav").string(), "--add", "a", "10"}).status, 0);
    const std::string marks_before = test::read_file(dir_ / "notes.wav.bm");
    Result r = quillctl("marks", {(dir_ / "notes.wav").string(), "--add", "b", "20", "--export",
                                  (dir_ / "none.txt").string()});
    EXPECT_EQ(r.status, 1);
    expect_one_line_naming(r, "notes.wav");
    EXPECT_FALSE(fs::exists(dir_ / "none.txt"));
    EXPECT_EQ(test::read_file(dir_ / "notes.wav.bm"), marks_before);
}

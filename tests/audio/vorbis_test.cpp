#include "audio/decoder_vorbis.h"
#include "audio/play_chain.h"
#include "liba/text.h"

#include "audio_test_util.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using audio::DecoderVorbis;
using audio::PCMData;
using audio_test::bytes_of;
using audio_test::Sink;

namespace {

// Tremor decodes in fixed point, oggdec (libvorbis) in floats: their 16-bit
// samples may differ by a few steps.
constexpr int kTolerance = 4;

std::wstring wide(const std::filesystem::path& p) { return liba::from_utf8(p.string()); }

std::filesystem::path ogg_file()
{
    auto files = test::media("vorbis_q3_stereo_44100.ogg");
    EXPECT_EQ(files.size(), 1u);
    return files.empty() ? std::filesystem::path() : files[0];
}

std::vector<std::int16_t> samples_of(const std::string& bytes)
{
    std::vector<std::int16_t> s(bytes.size() / 2);
    std::memcpy(s.data(), bytes.data(), s.size() * 2);
    return s;
}

// What oggdec makes of the file: raw 16-bit little-endian signed samples.
std::vector<std::int16_t> oggdec(const std::filesystem::path& f)
{
    std::string raw;
    EXPECT_EQ(test::run("oggdec -Q -R -b 16 -e 0 -s 1 -o - '" + f.string() + "'", &raw), 0);
    return samples_of(raw);
}

std::string ffprobe(const std::filesystem::path& f, const std::string& entries)
{
    std::string out;
    EXPECT_EQ(test::run("ffprobe -v error -show_entries " + entries + " -of default=nw=1:nk=1 '" + f.string() + "'",
                        &out),
              0);
    return out;
}

// Largest difference between `ours` and `ref` from `ref_at` on, over the
// length of `ours`; INT32_MAX if `ref` is too short.
int max_difference(const std::vector<std::int16_t>& ours, const std::vector<std::int16_t>& ref, std::size_t ref_at)
{
    if (ref_at + ours.size() > ref.size())
        return INT32_MAX;
    int worst = 0;
    for (std::size_t i = 0; i < ours.size(); ++i)
        worst = std::max(worst, std::abs(int(ours[i]) - int(ref[ref_at + i])));
    return worst;
}

// Pulls `frames` sample frames or up to the end; every record in the file's
// format.
std::string pull(DecoderVorbis& d, std::size_t frames, int request = 4096)
{
    std::string out;
    while (out.size() < frames * 4) {
        PCMData r;
        d.get_data(r, request);
        if (r.empty())
            break;
        EXPECT_EQ(r.channels, 2);
        EXPECT_EQ(r.bits, 16);
        EXPECT_EQ(r.rate, 44100);
        out += bytes_of(r.bytes);
    }
    return out.substr(0, std::min(out.size(), frames * 4));
}

TEST(DecoderVorbis, DecodesAsOggdecDoesWithLengthAndRateOfFfprobe)
{
    const auto f = ogg_file();
    const auto ref = oggdec(f);
    DecoderVorbis d(wide(f));
    ASSERT_TRUE(d.is_open());
    EXPECT_EQ(d.get_channels(), 2);
    EXPECT_EQ(d.get_rate(), 44100);
    EXPECT_EQ(d.get_bits(), 16);
    EXPECT_EQ(d.get_length(), std::stoi(ffprobe(f, "stream=duration_ts")));
    EXPECT_NEAR(d.get_duration(), std::stod(ffprobe(f, "stream=duration")), 1e-5);
    // The average over the audio packets; ffprobe's counts the whole file,
    // the headers (a few kilobytes) too.
    const double probed = std::stod(ffprobe(f, "format=bit_rate"));
    EXPECT_LT(d.get_bitrate(), probed);
    EXPECT_GT(d.get_bitrate(), 0.85 * probed);
    EXPECT_EQ(d.get_position(), 0);
    EXPECT_FALSE(d.is_eof());

    // The player's request is 16384 frames; one ov_read takes at most 8192.
    std::string all;
    std::size_t largest = 0;
    for (;;) {
        PCMData r;
        d.get_data(r, 16384);
        if (r.empty())
            break;
        largest = std::max(largest, r.sample_count());
        all += bytes_of(r.bytes);
    }
    EXPECT_LE(largest, std::size_t(DecoderVorbis::kMaxFrames));
    const auto ours = samples_of(all);
    ASSERT_EQ(ours.size(), ref.size());
    const int diff = max_difference(ours, ref, 0);
    std::printf("Tremor against oggdec: %zu samples, largest difference %d\n", ours.size(), diff);
    RecordProperty("max_difference", diff);
    EXPECT_LE(diff, kTolerance);
    EXPECT_EQ(d.get_position(), d.get_length());
    EXPECT_TRUE(d.is_eof());
}

TEST(DecoderVorbis, SeeksToTheSampleAndTestsTheEndByEquality)
{
    const auto f = ogg_file();
    const auto ref = oggdec(f);
    DecoderVorbis d(wide(f));
    ASSERT_TRUE(d.is_open());
    const std::int32_t length = d.get_length();
    for (std::int32_t p : {44100 * 3, 1, 12345, 200000, 0, length - 1000}) {
        d.set_position(p);
        EXPECT_EQ(d.get_position(), p);
        const auto ours = samples_of(pull(d, 3000));
        ASSERT_EQ(ours.size(), std::size_t(std::min(3000, length - p)) * 2) << p;
        EXPECT_LE(max_difference(ours, ref, std::size_t(p) * 2), kTolerance) << "after a seek to " << p;
    }
    d.set_time(2.5);
    EXPECT_EQ(d.get_position(), 110250);
    EXPECT_DOUBLE_EQ(d.get_time(), 2.5);
    d.set_position(length);
    EXPECT_TRUE(d.is_eof());
    PCMData r;
    d.get_data(r, 100);
    EXPECT_TRUE(r.empty());
    // Tremor refuses a seek past the end and the cursor stays; the end is
    // the cursor equal to the length, nothing else.
    d.set_position(1000);
    d.set_position(length + 100);
    EXPECT_NE(d.get_position(), length);
    EXPECT_FALSE(d.is_eof());
}

TEST(DecoderVorbis, TransfersExactlyTheAmountAndFailsPastTheEnd)
{
    const auto f = ogg_file();
    const auto ref = oggdec(f);
    DecoderVorbis d(wide(f));
    Sink<PCMData> sink;
    audio::connect(d, &sink);
    ASSERT_TRUE(d.transfer_position(20000));
    EXPECT_EQ(sink.all_bytes().size(), 20000u * 4);
    EXPECT_EQ(d.get_position(), 20000);
    ASSERT_TRUE(d.transfer_seconds(0.5));
    EXPECT_EQ(sink.all_bytes().size(), (20000u + 22050u) * 4);
    EXPECT_LE(max_difference(samples_of(sink.all_bytes()), ref, 0), kTolerance);
    d.set_position(d.get_length() - 100);
    EXPECT_FALSE(d.transfer_position(1000));
    audio::connect(d, nullptr);
}

TEST(DecoderVorbis, OtherFilesStayClosed)
{
    for (const char* pattern : {"pcm_s16_stereo_44100.wav", "mp3_cbr128_stereo_44100.mp3", "musepack_stereo_44100.mpc"}) {
        auto files = test::media(pattern);
        ASSERT_EQ(files.size(), 1u);
        DecoderVorbis d(wide(files[0]));
        EXPECT_FALSE(d.is_open()) << pattern;
        EXPECT_TRUE(d.is_eof());
        EXPECT_EQ(d.get_channels(), 0);
        EXPECT_DOUBLE_EQ(d.position_to_seconds(1000), 0.0);
        PCMData r;
        d.get_data(r, 1000);
        EXPECT_TRUE(r.empty());
        EXPECT_FALSE(d.transfer_position(10));
    }
    DecoderVorbis missing(L"/no/such/file.ogg");
    EXPECT_FALSE(missing.is_open());
}

TEST(DecoderVorbis, AHoleEndsTheStreamAndASeekGoesOn)
{
    // A page in the middle with a damaged body fails its checksum: Tremor
    // reports a hole there.
    std::string bytes = test::read_file(ogg_file());
    std::vector<std::size_t> pages;
    for (std::size_t at = bytes.find("OggS"); at != std::string::npos; at = bytes.find("OggS", at + 4))
        pages.push_back(at);
    ASSERT_GT(pages.size(), 10u);
    const std::size_t damaged = pages[pages.size() / 2];
    bytes[damaged + 40] = static_cast<char>(bytes[damaged + 40] ^ 0x5A);
    test::TempDir dir;
    test::write_file(dir / "hole.ogg", bytes);

    DecoderVorbis d(wide(dir / "hole.ogg"));
    ASSERT_TRUE(d.is_open());
    const std::int32_t length = d.get_length();
    const std::string before = pull(d, std::size_t(length));
    EXPECT_GT(before.size(), 0u);
    EXPECT_LT(before.size(), std::size_t(length) * 4);
    EXPECT_FALSE(d.is_eof());
    d.set_position(length - 5000);
    EXPECT_EQ(pull(d, std::size_t(length)).size(), 5000u * 4);
    EXPECT_TRUE(d.is_eof());
}

TEST(DecoderVorbis, PlaysAsVorbisAndThroughARoute)
{
    const auto f = ogg_file();
    auto chain = audio::create_play_chain(wide(f), nullptr);
    ASSERT_TRUE(chain);
    EXPECT_EQ(chain->get_format(), audio::kFormatVorbis);
    EXPECT_EQ(chain->get_title(), L"vorbis_q3_stereo_44100.ogg");
    EXPECT_TRUE(chain->uses_player());
    EXPECT_EQ(static_cast<void*>(chain->get_provider()), dynamic_cast<void*>(chain->get_reader()));

    // Two ranges of 10000 and 5000 frames with one skipped between them.
    const auto ref = oggdec(f);
    audio::RouteMarks marks{{10000, true}, {20000, false}, {50000, true}, {55000, false}};
    auto routed = audio::create_play_chain(wide(f), &marks);
    ASSERT_TRUE(routed);
    EXPECT_EQ(routed->get_format(), audio::kFormatVorbis);
    std::string out;
    for (;;) {
        PCMData r;
        routed->get_provider()->get_data(r, 16384);
        if (r.empty())
            break;
        out += bytes_of(r.bytes);
    }
    EXPECT_TRUE(routed->get_reader()->is_eof());
    const auto ours = samples_of(out);
    ASSERT_EQ(ours.size(), (10000u + 5000u) * 2);
    EXPECT_LE(max_difference({ours.begin(), ours.begin() + 20000}, ref, 10000 * 2), kTolerance);
    EXPECT_LE(max_difference({ours.begin() + 20000, ours.end()}, ref, 50000 * 2), kTolerance);
}

TEST(DecoderVorbis, NoVorbisNameIsExportedFromTheProgram)
{
    // Tremor's names are libvorbis's too, which GStreamer loads into the
    // same process: none of them may be visible to it.
    std::string out;
    ASSERT_EQ(test::run("nm -D --defined-only /proc/" + std::to_string(::getpid()) + "/exe", &out), 0);
    for (const char* name : {" ov_", " vorbis_", " _vorbis", " mdct_", " floor1_", " mapping0_"})
        EXPECT_EQ(out.find(name), std::string::npos) << name;
}

} // namespace

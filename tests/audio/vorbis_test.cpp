#include "audio/decoder_vorbis.h"
#include "audio/play_chain.h"

#include "audio_test_util.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

using audio::DecoderVorbis;
using audio::PCMData;
using namespace audio_test;

namespace {

// Tremor decodes in fixed point, oggdec (libvorbis) in floats: their 16-bit
// samples may differ by a few steps.
constexpr int kTolerance = 4;
constexpr double kLeastSnr = 60;

std::filesystem::path ogg_file() { return one("vorbis_q3_stereo_44100.ogg"); }

// What oggdec makes of the file: raw 16-bit little-endian signed samples.
std::vector<std::int16_t> oggdec(const std::filesystem::path& f)
{
    return reference_samples("oggdec -Q -R -b 16 -e 0 -s 1 -o - '" + f.string() + "'");
}

std::string ffprobe(const std::filesystem::path& f, const std::string& entries)
{
    std::string out;
    EXPECT_EQ(test::run("ffprobe -v error -show_entries " + entries + " -of default=nw=1:nk=1 '" + f.string() + "'",
                        &out),
              0);
    return out;
}

// Every record of the stream in the player's requests of 16384 frames.
std::vector<PCMData> records_of(DecoderVorbis& d)
{
    std::vector<PCMData> all;
    for (PCMData r; d.get_data(r, 16384), !r.empty();)
        all.push_back(r);
    return all;
}

TEST(DecoderVorbis, DecodesAsOggdecAcrossQualitiesChannelsAndChainedLinks)
{
    auto files = test::media("vorbis_matrix_q*.ogg");
    ASSERT_EQ(files.size(), 18u);
    files.push_back(ogg_file());
    files.push_back(one("vorbis_chained_stereo_44100.ogg"));
    for (const auto& f : files) {
        SCOPED_TRACE(f.filename().string());
        const bool stereo = f.filename().string().find("stereo") != std::string::npos;
        const auto ref = oggdec(f);
        DecoderVorbis d(wide(f));
        ASSERT_TRUE(d.is_open());
        EXPECT_EQ(d.get_channels(), stereo ? 2 : 1);
        EXPECT_EQ(d.get_rate(), 44100);
        EXPECT_EQ(d.get_bits(), 16);
        EXPECT_EQ(d.get_position(), 0);
        EXPECT_FALSE(d.is_eof());
        // One ov_read gives at most kMaxFrames whatever the request.
        std::string all;
        for (const auto& r : records_of(d)) {
            EXPECT_LE(r.sample_count(), std::size_t(DecoderVorbis::kMaxFrames));
            EXPECT_EQ(r.channels, d.get_channels());
            EXPECT_EQ(r.rate, 44100);
            all += bytes_of(r.bytes);
        }
        const auto ours = samples_of(all);
        ASSERT_EQ(ours.size(), ref.size());
        EXPECT_EQ(std::size_t(d.get_length()) * std::size_t(d.get_channels()), ref.size());
        const int diff = max_difference(ours, ref);
        const double snr = snr_db(ours, ref);
        std::printf("Tremor against oggdec, %s: %zu samples, largest difference %d, SNR %.1f dB\n",
                    f.filename().c_str(), ours.size(), diff, snr);
        EXPECT_LE(diff, kTolerance);
        EXPECT_GE(snr, kLeastSnr);
        EXPECT_EQ(d.get_position(), d.get_length());
        EXPECT_TRUE(d.is_eof());
    }
    // Length and duration as ffprobe has them; the bit rate is the average
    // over the audio packets, while ffprobe's counts the whole file, the
    // headers (a few kilobytes) too.
    DecoderVorbis d(wide(ogg_file()));
    EXPECT_EQ(d.get_length(), std::stoi(ffprobe(ogg_file(), "stream=duration_ts")));
    EXPECT_NEAR(d.get_duration(), std::stod(ffprobe(ogg_file(), "stream=duration")), 1e-5);
    const double probed = std::stod(ffprobe(ogg_file(), "format=bit_rate"));
    EXPECT_LT(d.get_bitrate(), probed);
    EXPECT_GT(d.get_bitrate(), 0.85 * probed);
}

TEST(DecoderVorbis, AChainedStreamGivesEachLinkInItsOwnFormat)
{
    // A mono 22050 Hz link, then a stereo 44100 Hz one: the source reports
    // the first; each record carries the format of the link it came from.
    const auto f = one("vorbis_chained_changing.ogg");
    const auto first = oggdec(one("vorbis_link_mono_22050.ogg"));
    const auto second = oggdec(one("vorbis_matrix_q4_stereo_44100.ogg"));
    DecoderVorbis d(wide(f));
    ASSERT_TRUE(d.is_open());
    EXPECT_EQ(d.get_channels(), 1);
    EXPECT_EQ(d.get_rate(), 22050);
    EXPECT_EQ(std::size_t(d.get_length()), first.size() + second.size() / 2);
    std::string mono, stereo;
    for (const auto& r : records_of(d)) {
        EXPECT_LE(r.sample_count(), std::size_t(DecoderVorbis::kMaxFrames));
        if (r.channels == 1 && r.rate == 22050) {
            EXPECT_TRUE(stereo.empty()) << "the mono link after the stereo one";
            mono += bytes_of(r.bytes);
        } else {
            EXPECT_EQ(r.channels, 2);
            EXPECT_EQ(r.rate, 44100);
            stereo += bytes_of(r.bytes);
        }
    }
    ASSERT_EQ(mono.size() / 2, first.size());
    ASSERT_EQ(stereo.size() / 2, second.size());
    EXPECT_LE(max_difference(samples_of(mono), first), kTolerance);
    EXPECT_LE(max_difference(samples_of(stereo), second), kTolerance);
    EXPECT_TRUE(d.is_eof());

    // Requests of one frame go on across the change, a frame at a time.
    const auto boundary = std::int32_t(first.size());
    d.set_position(boundary - 5);
    std::string across;
    for (int i = 0; i < 10; ++i) {
        PCMData r;
        d.get_data(r, 1);
        ASSERT_EQ(r.sample_count(), 1u) << i;
        EXPECT_EQ(r.channels, i < 5 ? 1 : 2) << i;
        across += bytes_of(r.bytes);
    }
    EXPECT_LE(max_difference(samples_of(across.substr(0, 10)), first, first.size() - 5), kTolerance);
    EXPECT_LE(max_difference(samples_of(across.substr(10)), second), kTolerance);
}

TEST(DecoderVorbis, SeeksTransfersAndTestsTheEndByEquality)
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

    // A transfer passes exactly the amount downstream.
    Sink<PCMData> sink;
    audio::connect(d, &sink);
    d.set_position(20000);
    ASSERT_TRUE(d.transfer_seconds(0.5));
    EXPECT_EQ(sink.all_bytes().size(), 22050u * 4);
    EXPECT_LE(max_difference(samples_of(sink.all_bytes()), ref, 20000 * 2), kTolerance);
    audio::connect(d, nullptr);

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

TEST(DecoderVorbis, OtherFilesStayClosed)
{
    test::TempDir dir;
    test::write_file(dir / "cut.ogg", test::read_file(ogg_file()).substr(0, 3000));
    std::vector<std::filesystem::path> others{one("pcm_s16_stereo_44100.wav"), one("mp3_cbr128_stereo_44100.mp3"),
                                              one("musepack_stereo_44100.mpc"), dir / "cut.ogg",
                                              "/no/such/file.ogg"};
    for (const auto& f : others) {
        DecoderVorbis d(wide(f));
        EXPECT_FALSE(d.is_open()) << f;
        EXPECT_TRUE(d.is_eof());
        EXPECT_EQ(d.get_channels(), 0);
        EXPECT_DOUBLE_EQ(d.position_to_seconds(1000), 0.0);
        PCMData r;
        d.get_data(r, 1000);
        EXPECT_TRUE(r.empty());
        EXPECT_FALSE(d.transfer_position(10));
    }
}

TEST(DecoderVorbis, DamageEndsTheStreamEarlyAndASeekGoesOn)
{
    // A page in the middle with a damaged body fails its checksum: Tremor
    // reports a hole there.
    const std::string whole = test::read_file(ogg_file());
    std::string bytes = whole;
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

    // Cut in the middle of a page: what is there plays, then the stream ends.
    const auto ref = oggdec(ogg_file());
    test::write_file(dir / "cut.ogg", whole.substr(0, pages[pages.size() / 2] + 100));
    DecoderVorbis cut(wide(dir / "cut.ogg"));
    ASSERT_TRUE(cut.is_open());
    const auto ours = samples_of(pull(cut, ref.size()));
    EXPECT_GT(ours.size(), ref.size() / 3);
    EXPECT_LT(ours.size(), ref.size());
    EXPECT_LE(max_difference(ours, ref), kTolerance);
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
    for (PCMData r; routed->get_provider()->get_data(r, 16384), !r.empty();)
        out += bytes_of(r.bytes);
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

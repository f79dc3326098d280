#include "audio/decoder_mpc.h"
#include "audio/play_chain.h"

#include "audio_test_util.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

using audio::DecoderMPC;
using audio::PCMData;
using namespace audio_test;

namespace {

// mpcdec rounds the same float samples to 16 bits on its own.
constexpr int kTolerance = 1;

std::filesystem::path mpc_file() { return one("musepack_stereo_44100.mpc"); }

// What mpcdec makes of the file, as raw 16-bit samples.
std::vector<std::int16_t> mpcdec(const std::filesystem::path& f)
{
    test::TempDir dir;
    const std::string wav = (dir / "ref.wav").string();
    EXPECT_EQ(test::run("mpcdec '" + f.string() + "' '" + wav + "' 2>/dev/null"), 0);
    return samples_of(test::sox16(wav));
}

TEST(DecoderMPC, DecodesAsMpcdecDoesWithTheSourcesLengthAFrameAtATime)
{
    const auto f = mpc_file();
    const auto ref = mpcdec(f);
    DecoderMPC d(wide(f));
    ASSERT_TRUE(d.is_open());
    EXPECT_EQ(d.get_channels(), 2);
    EXPECT_EQ(d.get_rate(), 44100);
    EXPECT_EQ(d.get_bits(), 16);
    // The encoder's source and mpcdec's output agree on the length.
    const int source_samples = test::soxi_int(test::one_media("pcm_s16_speech_stereo_44100.wav"), "-s");
    EXPECT_EQ(d.get_length(), source_samples);
    EXPECT_EQ(std::size_t(d.get_length()) * 2, ref.size());
    EXPECT_NEAR(d.get_duration(), source_samples / 44100.0, 1e-9);
    // ffprobe takes the duration of a Musepack file from whole blocks, too
    // coarse here: the bit rate is the file's size over the true duration.
    const double size_rate = double(std::filesystem::file_size(f)) * 8 / d.get_duration();
    EXPECT_NEAR(d.get_bitrate(), size_rate, 0.02 * size_rate);

    const auto ours = samples_of(pull(d, std::size_t(d.get_length()) + 10000, 16384));
    ASSERT_EQ(ours.size(), ref.size());
    const int diff = max_difference(ours, ref);
    std::printf("libmpcdec against mpcdec: %zu samples, largest difference %d\n", ours.size(), diff);
    RecordProperty("max_difference", diff);
    EXPECT_LE(diff, kTolerance);
    EXPECT_GE(d.get_position(), d.get_length());
    EXPECT_TRUE(d.is_eof());
    PCMData r;
    d.get_data(r, 100);
    EXPECT_TRUE(r.empty());

    // Parts of a frame are handed out and the rest kept for the next pull.
    DecoderMPC fresh(wide(f));
    PCMData first;
    fresh.get_data(first, 100);
    EXPECT_EQ(first.sample_count(), 100u);
    // A whole Musepack frame was decoded, the first one short by the
    // decoder's delay: the position counts all of it.
    const std::int32_t decoded = fresh.get_position();
    EXPECT_EQ(decoded, 1152 - 481);
    PCMData rest;
    fresh.get_data(rest, 5000);
    EXPECT_EQ(rest.sample_count(), std::size_t(decoded) - 100);
    EXPECT_EQ(fresh.get_position(), decoded);
    PCMData next;
    fresh.get_data(next, 5000);
    EXPECT_EQ(next.sample_count(), 1152u);
    const auto parts = samples_of(bytes_of(first.bytes) + bytes_of(rest.bytes) + bytes_of(next.bytes));
    EXPECT_LE(max_difference(parts, ref, 0), kTolerance);
}

TEST(DecoderMPC, SeeksToTheSampleBeforeAndAfterReadsAndTransfers)
{
    const auto f = mpc_file();
    const auto ref = mpcdec(f);
    DecoderMPC d(wide(f));
    ASSERT_TRUE(d.is_open());
    const std::int32_t length = d.get_length();
    // Each position once on a fresh source, before its first read (as
    // decode --start does), and once on a source that has read already.
    for (std::int32_t p : {44100 * 3, 1, 12345, 200000, 0, length - 1000}) {
        DecoderMPC fresh(wide(f));
        for (DecoderMPC* s : {&fresh, &d}) {
            s->set_position(p);
            EXPECT_EQ(s->get_position(), p);
            const auto ours = samples_of(pull(*s, 3000));
            ASSERT_EQ(ours.size(), std::size_t(std::min(3000, length - p)) * 2) << p;
            EXPECT_LE(max_difference(ours, ref, std::size_t(p) * 2), kTolerance)
                << "after a seek to " << p << (s == &fresh ? " before the first read" : "");
        }
    }
    d.set_time(2.5);
    EXPECT_EQ(d.get_position(), 110250);
    EXPECT_FALSE(d.is_eof());
    d.set_position(length + 10);
    EXPECT_TRUE(d.is_eof());

    // A transfer passes exactly the amount downstream, parts of frames too.
    Sink<PCMData> sink;
    audio::connect(d, &sink);
    d.set_position(5000);
    ASSERT_TRUE(d.transfer_position(7000));
    ASSERT_TRUE(d.transfer_seconds(0.1));
    EXPECT_EQ(sink.all_bytes().size(), (7000u + 4410u) * 4);
    EXPECT_LE(max_difference(samples_of(sink.all_bytes()), ref, 5000 * 2), kTolerance);
    d.set_position(length - 100);
    EXPECT_FALSE(d.transfer_seconds(1.0));
    audio::connect(d, nullptr);
}

TEST(DecoderMPC, OtherAndDamagedFilesStayClosed)
{
    for (const char* pattern : {"pcm_s16_stereo_44100.wav", "mp3_cbr128_stereo_44100.mp3", "vorbis_q3_stereo_44100.ogg"}) {
        auto files = test::media(pattern);
        ASSERT_EQ(files.size(), 1u);
        DecoderMPC d(wide(files[0]));
        EXPECT_FALSE(d.is_open()) << pattern;
        EXPECT_TRUE(d.is_eof());
        PCMData r;
        d.get_data(r, 1000);
        EXPECT_TRUE(r.empty());
        EXPECT_FALSE(d.transfer_position(10));
    }
    // The stream's mark with its header cut short, or its header's bytes
    // scrambled after the mark.
    test::TempDir dir;
    const std::string whole = test::read_file(mpc_file());
    test::write_file(dir / "cut.mpc", whole.substr(0, 12));
    std::string scrambled = whole;
    for (std::size_t i = 4; i < 64; ++i)
        scrambled[i] = static_cast<char>(scrambled[i] ^ 0xA5);
    test::write_file(dir / "scrambled.mpc", scrambled);
    for (const char* name : {"cut.mpc", "scrambled.mpc"})
        EXPECT_FALSE(DecoderMPC(wide(dir / name)).is_open()) << name;
    EXPECT_FALSE(DecoderMPC(L"/no/such/file.mpc").is_open());

    // Cut in mid-stream: what is there plays, then the stream ends early.
    const auto ref = mpcdec(mpc_file());
    test::write_file(dir / "half.mpc", whole.substr(0, whole.size() / 2));
    DecoderMPC half(wide(dir / "half.mpc"));
    ASSERT_TRUE(half.is_open());
    const auto ours = samples_of(pull(half, ref.size()));
    EXPECT_GT(ours.size(), ref.size() / 4);
    EXPECT_LT(ours.size(), ref.size());
    EXPECT_LE(max_difference(std::vector<std::int16_t>(ours.begin(), ours.begin() + ours.size() / 2), ref),
              kTolerance);
}

TEST(DecoderMPC, PlaysAsMPCAndHasNoRoute)
{
    auto chain = audio::create_play_chain(wide(mpc_file()), nullptr);
    ASSERT_TRUE(chain);
    EXPECT_EQ(chain->get_format(), audio::kFormatMPC);
    EXPECT_EQ(chain->get_title(), L"musepack_stereo_44100.mpc");
    EXPECT_EQ(static_cast<void*>(chain->get_provider()), dynamic_cast<void*>(chain->get_reader()));
    audio::RouteMarks marks{{0, true}};
    EXPECT_FALSE(audio::create_play_chain(wide(mpc_file()), &marks));
}

} // namespace

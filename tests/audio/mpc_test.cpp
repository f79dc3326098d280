#include "audio/decoder_mpc.h"
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

using audio::DecoderMPC;
using audio::PCMData;
using audio_test::bytes_of;
using audio_test::Sink;

namespace {

// mpcdec rounds the same float samples to 16 bits on its own.
constexpr int kTolerance = 1;

std::wstring wide(const std::filesystem::path& p) { return liba::from_utf8(p.string()); }

std::filesystem::path mpc_file()
{
    auto files = test::media("musepack_stereo_44100.mpc");
    EXPECT_EQ(files.size(), 1u);
    return files.empty() ? std::filesystem::path() : files[0];
}

std::vector<std::int16_t> samples_of(const std::string& bytes)
{
    std::vector<std::int16_t> s(bytes.size() / 2);
    std::memcpy(s.data(), bytes.data(), s.size() * 2);
    return s;
}

// What mpcdec makes of the file, as raw 16-bit samples.
std::vector<std::int16_t> mpcdec(const std::filesystem::path& f)
{
    test::TempDir dir;
    const std::string wav = (dir / "ref.wav").string();
    EXPECT_EQ(test::run("mpcdec '" + f.string() + "' '" + wav + "' 2>/dev/null"), 0);
    std::string raw;
    EXPECT_EQ(test::run("sox '" + wav + "' -t raw -L -e signed-integer -b 16 -", &raw), 0);
    return samples_of(raw);
}

int max_difference(const std::vector<std::int16_t>& ours, const std::vector<std::int16_t>& ref, std::size_t ref_at)
{
    if (ref_at + ours.size() > ref.size())
        return INT32_MAX;
    int worst = 0;
    for (std::size_t i = 0; i < ours.size(); ++i)
        worst = std::max(worst, std::abs(int(ours[i]) - int(ref[ref_at + i])));
    return worst;
}

std::string pull(DecoderMPC& d, std::size_t frames, int request = 4096)
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
        EXPECT_LE(r.sample_count(), std::size_t(request));
        out += bytes_of(r.bytes);
    }
    return out.substr(0, std::min(out.size(), frames * 4));
}

TEST(DecoderMPC, DecodesAsMpcdecDoesWithTheSourcesLength)
{
    const auto f = mpc_file();
    const auto ref = mpcdec(f);
    DecoderMPC d(wide(f));
    ASSERT_TRUE(d.is_open());
    EXPECT_EQ(d.get_channels(), 2);
    EXPECT_EQ(d.get_rate(), 44100);
    EXPECT_EQ(d.get_bits(), 16);
    // The encoder's source and mpcdec's output agree on the length.
    std::string source_samples;
    ASSERT_EQ(test::run("soxi -s '" + test::media("pcm_s16_speech_stereo_44100.wav")[0].string() + "'",
                        &source_samples),
              0);
    EXPECT_EQ(d.get_length(), std::stoi(source_samples));
    EXPECT_EQ(std::size_t(d.get_length()) * 2, ref.size());
    EXPECT_NEAR(d.get_duration(), std::stod(source_samples) / 44100, 1e-9);
    // ffprobe takes the duration of a Musepack file from whole blocks, too
    // coarse here: the bit rate is the file's size over the true duration.
    const double size_rate = double(std::filesystem::file_size(f)) * 8 / d.get_duration();
    EXPECT_NEAR(d.get_bitrate(), size_rate, 0.02 * size_rate);

    const auto ours = samples_of(pull(d, std::size_t(d.get_length()) + 10000, 16384));
    ASSERT_EQ(ours.size(), ref.size());
    const int diff = max_difference(ours, ref, 0);
    std::printf("libmpcdec against mpcdec: %zu samples, largest difference %d\n", ours.size(), diff);
    RecordProperty("max_difference", diff);
    EXPECT_LE(diff, kTolerance);
    EXPECT_GE(d.get_position(), d.get_length());
    EXPECT_TRUE(d.is_eof());
    PCMData r;
    d.get_data(r, 100);
    EXPECT_TRUE(r.empty());
}

TEST(DecoderMPC, HandsOutPartsOfAFrameAndKeepsTheRest)
{
    const auto f = mpc_file();
    const auto ref = mpcdec(f);
    DecoderMPC d(wide(f));
    ASSERT_TRUE(d.is_open());
    PCMData first;
    d.get_data(first, 100);
    EXPECT_EQ(first.sample_count(), 100u);
    // A whole Musepack frame was decoded, the first one short by the
    // decoder's delay: the position counts all of it.
    const std::int32_t decoded = d.get_position();
    EXPECT_EQ(decoded, 1152 - 481);
    PCMData rest;
    d.get_data(rest, 5000);
    EXPECT_EQ(rest.sample_count(), std::size_t(decoded) - 100);
    EXPECT_EQ(d.get_position(), decoded);
    PCMData next;
    d.get_data(next, 5000);
    EXPECT_EQ(next.sample_count(), 1152u);
    const auto ours = samples_of(bytes_of(first.bytes) + bytes_of(rest.bytes) + bytes_of(next.bytes));
    EXPECT_LE(max_difference(ours, ref, 0), kTolerance);
}

TEST(DecoderMPC, SeeksToTheSample)
{
    const auto f = mpc_file();
    const auto ref = mpcdec(f);
    DecoderMPC d(wide(f));
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
    EXPECT_FALSE(d.is_eof());
    d.set_position(length + 10);
    EXPECT_TRUE(d.is_eof());

    Sink<PCMData> sink;
    audio::connect(d, &sink);
    d.set_position(5000);
    ASSERT_TRUE(d.transfer_position(7000));
    EXPECT_EQ(sink.all_bytes().size(), 7000u * 4);
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
    // The stream's mark with its header cut short.
    test::TempDir dir;
    test::write_file(dir / "cut.mpc", test::read_file(mpc_file()).substr(0, 12));
    DecoderMPC cut(wide(dir / "cut.mpc"));
    EXPECT_FALSE(cut.is_open());
    DecoderMPC missing(L"/no/such/file.mpc");
    EXPECT_FALSE(missing.is_open());
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

#include "audio/decoder_mp3.h"
#include "audio/file_reader_mp3.h"
#include "audio/mp3_header.h"
#include "liba/text.h"

#include "audio_test_util.h"
#include "tests/support/mad_reference.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <thread>
#include <vector>

using audio::DecoderMP3;
using audio::FileReaderMP3;
using audio::MP3Data;
using audio::PCMData;
using audio_test::bytes_of;
using audio_test::Sink;
using audio_test::max_difference;
using test::MadDecode;
using test::mad_decode;
using test::samples_of;
using test::wide;

namespace {

// Everything the decoder delivers, pulled as the player does: requests of
// 16384 frames until an empty record. Stops early past `limit` pulls, which
// only a hang would need.
struct Decoded {
    std::string pcm;
    int channels = 0;
    int rate = 0;
    int pulls = 0;
    bool formats_agree = true;
};

Decoded pull_all(DecoderMP3& decoder, int limit = 1000000)
{
    Decoded d;
    for (; d.pulls < limit; ++d.pulls) {
        PCMData out;
        decoder.get_data(out, 16384);
        if (out.empty())
            break;
        if (d.pcm.empty()) {
            d.channels = out.channels;
            d.rate = out.rate;
        }
        d.formats_agree &= out.channels == d.channels && out.rate == d.rate && out.bits == 16;
        d.pcm += bytes_of(out.bytes);
    }
    return d;
}

Decoded decode_file(const std::filesystem::path& p)
{
    FileReaderMP3 reader(wide(p));
    DecoderMP3 decoder;
    audio::connect(reader, &decoder);
    return pull_all(decoder);
}

int peak(const std::vector<std::int16_t>& s)
{
    int most = 0;
    for (auto v : s)
        most = std::max(most, std::abs(int(v)));
    return most;
}

// The bit rate that the media script gave lame, from "lame_RATE_KBPS_...".
int kbps_in_name(const std::filesystem::path& p)
{
    std::string name = p.filename().string();
    auto first = name.find('_', name.find('_') + 1);
    return std::atoi(name.c_str() + first + 1);
}

// Frames `from` to `to` (exclusive) of a file as libmad found them; `to`
// past the decoded frames takes the rest of the file.
std::string slice(const std::string& bytes, const MadDecode& m, std::size_t from, std::size_t to)
{
    std::size_t begin = m.offsets[from];
    std::size_t end = to < m.frames() ? m.offsets[to] : bytes.size();
    return bytes.substr(begin, end - begin);
}

} // namespace

TEST(MP3Reader, DecodesLikePlainLibmadAtEveryRate)
{
    auto files = test::media("lame_*.mp3");
    files.push_back(test::media_dir() / "layer2_44100_stereo.mp2");
    ASSERT_GE(files.size(), 20u);
    std::set<int> rates;
    std::set<int> channel_counts;
    for (const auto& f : files) {
        SCOPED_TRACE(f.filename().string());
        MadDecode ref = mad_decode(test::read_file(f));
        ASSERT_GT(ref.frames(), 5u);
        FileReaderMP3 reader(wide(f));
        ASSERT_TRUE(reader.is_open());
        EXPECT_EQ(reader.get_rate(), ref.rate);
        EXPECT_EQ(reader.get_channels(), ref.channels);
        EXPECT_EQ(reader.get_bits(), 16);
        if (f.filename().string().rfind("lame_", 0) == 0) {
            EXPECT_EQ(reader.get_bitrate(), kbps_in_name(f) * 1000);
        }
        DecoderMP3 decoder;
        audio::connect(reader, &decoder);
        Decoded ours = pull_all(decoder);
        EXPECT_TRUE(ours.formats_agree);
        EXPECT_EQ(ours.rate, ref.rate);
        EXPECT_EQ(ours.channels, ref.channels);
        // Same frame count: the frames' samples add up to the same total.
        auto got = samples_of(ours.pcm);
        ASSERT_EQ(got.size(), ref.samples.size());
        EXPECT_LE(max_difference(got, ref.samples), 1);
        EXPECT_GT(peak(got), 4000);
        EXPECT_TRUE(reader.is_eof());
        rates.insert(ref.rate);
        channel_counts.insert(ref.channels);
    }
    EXPECT_EQ(rates, (std::set<int>{8000, 11025, 16000, 22050, 24000, 32000, 44100, 48000}));
    EXPECT_EQ(channel_counts, (std::set<int>{1, 2}));
}

TEST(MP3Reader, CarriesClippedExcessIntoTheNextSamples)
{
    // Sawtooth waves near full scale overshoot past it when decoded.
    auto path = test::media_dir() / "loud_44100_128_stereo.mp3";
    MadDecode ref = mad_decode(test::read_file(path));
    auto got = samples_of(decode_file(path).pcm);
    ASSERT_EQ(got.size(), ref.samples.size());
    // Per frame and channel, error feedback keeps the sum: the outputs add up
    // to the inputs less the last error term, which lies in [0, 1) output
    // steps when the last sample is within range. Clipping that dropped the
    // excess would fall short by it.
    constexpr double kStep = 1 << (MAD_F_FRACBITS - 15);
    std::size_t per_frame = std::size_t(ref.samples_per_frame) * ref.channels;
    int clipped_frames = 0;
    for (std::size_t f = 0; f < ref.frames(); ++f) {
        for (int ch = 0; ch < ref.channels; ++ch) {
            double in = 0.0;
            double out = 0.0;
            bool clipped = false;
            std::size_t last = 0;
            for (std::size_t i = f * per_frame + ch; i < (f + 1) * per_frame; i += ref.channels) {
                in += ref.raw[i] / kStep;
                out += got[i];
                clipped |= ref.raw[i] >= MAD_F_ONE || ref.raw[i] < -MAD_F_ONE;
                last = i;
            }
            if (!clipped || std::abs(ref.raw[last]) > MAD_F_ONE / 2)
                continue;
            ++clipped_frames;
            EXPECT_LE(out, in + 1e-6) << "frame " << f;
            EXPECT_GT(out, in - 1.0) << "frame " << f;
        }
    }
    EXPECT_GT(clipped_frames, 5);
}

TEST(MP3Reader, FramesItCannotPlayDecodeToNothing)
{
    // 12 kHz: the reader takes the frames, the decoder refuses the rate.
    auto twelve = test::media_dir() / "rate12000_mono.mp3";
    EXPECT_GT(mad_decode(test::read_file(twelve)).frames(), 5u);
    {
        FileReaderMP3 reader(wide(twelve));
        EXPECT_TRUE(reader.is_open());
        EXPECT_EQ(reader.get_rate(), 12000);
        DecoderMP3 decoder;
        audio::connect(reader, &decoder);
        Decoded d = pull_all(decoder);
        EXPECT_TRUE(d.pcm.empty());
        EXPECT_EQ(d.pulls, 0);
        EXPECT_TRUE(reader.is_eof());
    }
    // Layer II at a low rate is sized as layer III and fails the decoder.
    auto lsf = test::media_dir() / "layer2_22050_stereo.mp2";
    EXPECT_GT(mad_decode(test::read_file(lsf)).frames(), 5u);
    EXPECT_TRUE(decode_file(lsf).pcm.empty());
    // Free format has no bit rate in its headers and does not open.
    auto free_format = test::media_dir() / "freeformat_44100.mp3";
    EXPECT_GT(mad_decode(test::read_file(free_format)).frames(), 5u);
    EXPECT_FALSE(FileReaderMP3(wide(free_format)).is_open());
}

TEST(MP3Reader, OpensOnlyWhereAFrameFollowsAFrame)
{
    test::TempDir dir;
    auto source = test::media_dir() / "lame_44100_64_stereo_noinfo.mp3";
    std::string bytes = test::read_file(source);
    MadDecode ref = mad_decode(bytes);
    ASSERT_GT(ref.frames(), 10u);

    // No file, an empty file.
    EXPECT_FALSE(FileReaderMP3(wide(dir / "missing.mp3")).is_open());
    test::write_file(dir / "empty.mp3", "");
    {
        FileReaderMP3 empty(wide(dir / "empty.mp3"));
        EXPECT_TRUE(empty.is_open());
        EXPECT_TRUE(empty.is_eof());
        EXPECT_EQ(empty.get_duration(), 0.0);
        EXPECT_EQ(empty.get_length(), 0);
        MP3Data frame;
        empty.get_data(frame, 1);
        EXPECT_TRUE(frame.empty());
        EXPECT_FALSE(empty.transfer_seconds(1.0));
        DecoderMP3 decoder;
        audio::connect(empty, &decoder);
        EXPECT_TRUE(pull_all(decoder).pcm.empty());
    }
    // One frame alone is not confirmed; two are, and the second, which ends
    // at the last byte, is not delivered, as libmad without guard bytes
    // does not decode it either.
    test::write_file(dir / "one.mp3", slice(bytes, ref, 4, 5));
    EXPECT_FALSE(FileReaderMP3(wide(dir / "one.mp3")).is_open());
    std::string two = slice(bytes, ref, 0, 2);
    test::write_file(dir / "two.mp3", two);
    Decoded d = decode_file(dir / "two.mp3");
    EXPECT_EQ(samples_of(d.pcm).size(), mad_decode(two).samples.size());
    EXPECT_EQ(samples_of(d.pcm).size(), std::size_t(ref.samples_per_frame * ref.channels));
    // Text and silence around the frames are searched through; with bytes
    // behind it, the last frame is played as well.
    std::string framed = std::string(5000, 'x') + bytes + std::string(3000, '\0');
    test::write_file(dir / "framed.mp3", framed);
    std::string plain = decode_file(source).pcm;
    std::string around = decode_file(dir / "framed.mp3").pcm;
    EXPECT_EQ(around.size(), plain.size() + std::size_t(ref.samples_per_frame * ref.channels * 2));
    EXPECT_TRUE(around.substr(0, plain.size()) == plain);
    test::write_file(dir / "text.mp3", std::string(30000, 'x'));
    EXPECT_FALSE(FileReaderMP3(wide(dir / "text.mp3")).is_open());
}

TEST(MP3Reader, PassesOverStrayFramesAndDamagedHeaders)
{
    test::TempDir dir;
    auto stereo_path = test::media_dir() / "lame_44100_128_stereo.mp3";
    std::string stereo = test::read_file(stereo_path);
    std::string mono = test::read_file(test::media_dir() / "lame_44100_64_mono.mp3");
    MadDecode s = mad_decode(stereo);
    MadDecode m = mad_decode(mono);
    ASSERT_GT(s.frames(), 12u);
    Decoded whole = decode_file(stereo_path);
    ASSERT_FALSE(whole.pcm.empty());

    std::size_t frame_bytes = std::size_t(s.samples_per_frame) * s.channels * 2;

    // A mono frame between two stereo frames is skipped. The stereo frame
    // before it took its neighbour's main data pointer from the mono frame,
    // which spoils the bit reservoir for the next two frames (they may not
    // decode at all), and the third overlaps the second; the frames before
    // and after are as before.
    std::size_t k = 6;
    std::string spliced = slice(stereo, s, 0, k) + slice(mono, m, 6, 7) + slice(stereo, s, k, s.frames());
    test::write_file(dir / "spliced.mp3", spliced);
    Decoded around = decode_file(dir / "spliced.mp3");
    EXPECT_LE(around.pcm.size(), whole.pcm.size());
    EXPECT_GE(around.pcm.size(), whole.pcm.size() - 2 * frame_bytes);
    EXPECT_TRUE(around.pcm.substr(0, k * frame_bytes) == whole.pcm.substr(0, k * frame_bytes));
    std::size_t tail = (s.frames() - (k + 3)) * frame_bytes;
    ASSERT_GE(around.pcm.size(), tail);
    EXPECT_TRUE(around.pcm.substr(around.pcm.size() - tail) == whole.pcm.substr(whole.pcm.size() - tail));

    // A header with bit rate index 15 is no header: its frame is skipped.
    // The next two frames may reach back into its main data, and the third
    // overlaps the second: from the fourth on the stream is as before.
    std::string damaged = stereo;
    k = 8;
    damaged[s.offsets[k] + 2] = static_cast<char>(damaged[s.offsets[k] + 2] | 0xF0);
    test::write_file(dir / "damaged.mp3", damaged);
    Decoded d = decode_file(dir / "damaged.mp3");
    std::size_t frames = d.pcm.size() / frame_bytes;
    EXPECT_LE(frames, s.frames() - 1);
    EXPECT_GE(frames, s.frames() - 3);
    tail = (s.frames() - (k + 4)) * frame_bytes;
    ASSERT_GE(d.pcm.size(), tail);
    EXPECT_TRUE(d.pcm.substr(d.pcm.size() - tail) == whole.pcm.substr(whole.pcm.size() - tail));
}

TEST(MP3Reader, SeeksInBytesAndResumesFromTheThirdFrame)
{
    auto path = test::media_dir() / "long_44100_160_stereo.mp3";
    std::string bytes = test::read_file(path);
    MadDecode ref = mad_decode(bytes);
    Decoded whole = decode_file(path);
    ASSERT_EQ(samples_of(whole.pcm).size(), ref.samples.size());
    std::size_t frame_bytes = std::size_t(ref.samples_per_frame) * ref.channels * 2;

    FileReaderMP3 reader(wide(path));
    DecoderMP3 decoder;
    audio::connect(reader, &decoder);
    ASSERT_EQ(reader.get_length(), std::int32_t(bytes.size()));
    const std::int32_t size = reader.get_length();
    for (std::int32_t p : {size / 7, std::int32_t(ref.offsets[40]), 3 * size / 7, 5 * size / 7, 1}) {
        SCOPED_TRACE(p);
        reader.set_position(p);
        EXPECT_EQ(reader.get_position(), p);
        EXPECT_FALSE(reader.is_eof());
        std::size_t landing = 0;
        while (ref.offsets[landing] < std::size_t(p))
            ++landing;
        Decoded after = pull_all(decoder);
        EXPECT_LE(after.pcm.size(), (ref.frames() - landing) * frame_bytes);
        std::size_t tail = (ref.frames() - landing - 3) * frame_bytes;
        ASSERT_GE(after.pcm.size(), tail);
        EXPECT_TRUE(after.pcm.substr(after.pcm.size() - tail) == whole.pcm.substr(whole.pcm.size() - tail));
    }

    // Seconds and bytes: 160 kbit/s is 20000 bytes a second.
    reader.set_time(1.5);
    EXPECT_EQ(reader.get_position(), 30000);
    EXPECT_DOUBLE_EQ(reader.get_time(), 1.5);
    EXPECT_NEAR(reader.get_duration(), double(ref.frames() * ref.samples_per_frame) / ref.rate, 0.06);

    // Past the end the cursor rests at the end; before the start, at 0.
    reader.set_position(size + 5000);
    EXPECT_EQ(reader.get_position(), size);
    EXPECT_TRUE(reader.is_eof());
    EXPECT_TRUE(pull_all(decoder).pcm.empty());
    reader.set_position(-100);
    EXPECT_EQ(reader.get_position(), 0);
    EXPECT_EQ(pull_all(decoder).pcm.size(), whole.pcm.size());
}

TEST(MP3Reader, TimeComesFromTheFirstBitRateAndTheFileSize)
{
    for (const auto& f : test::media("lame_*_mono.mp3")) {
        SCOPED_TRACE(f.filename().string());
        MadDecode ref = mad_decode(test::read_file(f));
        FileReaderMP3 reader(wide(f));
        // The Info frame counts as audio and the last frame is not played:
        // the estimate lies within a frame or two of what decodes.
        double frame = double(ref.samples_per_frame) / ref.rate;
        EXPECT_NEAR(reader.get_duration(), ref.frames() * frame, 2 * frame + 0.002);
        EXPECT_EQ(reader.get_time(), 0.0);
    }
    // A file with an ID3 version 2 tag counts the tag as playing time.
    auto plain = test::media_dir() / "lame_44100_128_stereo.mp3";
    auto tagged = test::media_dir() / "lame_44100_128_stereo_id3v2.mp3";
    FileReaderMP3 a(wide(plain));
    FileReaderMP3 b(wide(tagged));
    double tag_bytes = double(b.get_length() - a.get_length());
    EXPECT_NEAR(b.get_duration() - a.get_duration(), tag_bytes * 8 / 128000, 0.002);
    // Positions past 2^28 bytes wrap in the 32-bit product of bits, as they
    // always have; nothing past that misbehaves.
    EXPECT_LT(a.position_to_seconds((1 << 28) + 1000), 0.0);
    EXPECT_GT(a.position_to_seconds(1 << 27), 0.0);
    EXPECT_TRUE(std::isfinite(a.position_to_seconds(INT32_MAX)));
    EXPECT_TRUE(std::isfinite(a.position_to_seconds(INT32_MIN)));
    EXPECT_EQ(a.seconds_to_position(1e12), INT32_MAX);
    EXPECT_EQ(a.seconds_to_position(-1e12), INT32_MIN);
    EXPECT_EQ(a.seconds_to_position(std::nan("")), 0);
}

TEST(MP3Reader, TransfersPushFramesThatDecodeAsPulledOnes)
{
    auto path = test::media_dir() / "lame_44100_128_stereo_id3v1.mp3";
    Decoded pulled = decode_file(path);
    FileReaderMP3 reader(wide(path));
    DecoderMP3 decoder;
    Sink<PCMData> sink;
    audio::connect(reader, &decoder);
    audio::connect(decoder, &sink);
    ASSERT_TRUE(reader.transfer_seconds(0.2));
    // 0.2 s at 128 kbit/s is 3200 bytes: eight frames of 417 or 418.
    EXPECT_EQ(sink.records.size(), 8u);
    EXPECT_GE(reader.get_time(), 0.2);
    ASSERT_TRUE(reader.transfer_position(1000));
    EXPECT_EQ(sink.records.size(), 11u);
    EXPECT_FALSE(reader.transfer_seconds(100.0));
    EXPECT_TRUE(sink.all_bytes() == pulled.pcm);
}

TEST(MP3Reader, QueriesAndSeeksFromAnotherThreadWhilePulling)
{
    auto path = test::media_dir() / "long_44100_160_stereo.mp3";
    FileReaderMP3 reader(wide(path));
    DecoderMP3 decoder;
    audio::connect(reader, &decoder);
    std::atomic<bool> done{false};
    std::thread player([&] {
        pull_all(decoder);
        done = true;
    });
    int seeks = 0;
    while (!done) {
        std::int32_t p = reader.get_position();
        EXPECT_GE(p, 0);
        EXPECT_LE(p, reader.get_length());
        EXPECT_GE(reader.get_time(), 0.0);
        if (seeks < 20 && p > reader.get_length() / 2)
            reader.set_time(0.1 * ++seeks);
        std::this_thread::yield();
    }
    player.join();
    EXPECT_TRUE(reader.is_eof());
}

TEST(MP3DecoderFront, ConvertsToEightBitsAsToSixteen)
{
    std::string bytes = test::read_file(test::media_dir() / "lame_22050_96_stereo.mp3");
    MadDecode ref = mad_decode(bytes);
    audio::MP3DecoderFront narrow;
    audio::MP3DecoderFront wide16;
    std::vector<std::uint8_t> out8(4608);
    std::vector<std::uint8_t> out16(4608);
    std::size_t compared = 0;
    for (std::size_t i = 0; i < ref.frames(); ++i) {
        std::string frame = bytes.substr(ref.offsets[i], 2000);
        frame.resize(2000);
        auto* data = reinterpret_cast<const std::uint8_t*>(frame.data());
        std::size_t consumed8, produced8, consumed16, produced16;
        int r8 = narrow.decode(data, frame.size(), out8.data(), out8.size(), consumed8, produced8, 8, false);
        int r16 = wide16.decode(data, frame.size(), out16.data(), out16.size(), consumed16, produced16, 16, false);
        ASSERT_EQ(r8, r16);
        if (r16 != audio::MP3DecoderFront::kDone)
            continue;
        EXPECT_EQ(consumed8, ref.sizes[i]);
        EXPECT_EQ(produced16, 2 * produced8);
        for (std::size_t k = 0; k < produced8; ++k) {
            int s16 = std::int16_t(out16[2 * k] | (out16[2 * k + 1] << 8));
            EXPECT_LE(std::abs((s16 >> 8) - (int(out8[k]) - 128)), 1);
        }
        compared += produced8;
    }
    EXPECT_GT(compared, 10000u);
    // Too little room for the samples of a frame (the first, which needs
    // no main data from before it).
    std::size_t consumed, produced;
    audio::MP3DecoderFront small;
    std::string frame = bytes.substr(ref.offsets[0], 2000);
    EXPECT_EQ(small.decode(reinterpret_cast<const std::uint8_t*>(frame.data()), frame.size(), out16.data(),
                           100, consumed, produced, 16, false),
              audio::MP3DecoderFront::kOutTooSmall);
    EXPECT_EQ(produced, 0u);
}

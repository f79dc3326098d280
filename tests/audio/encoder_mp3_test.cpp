// The MP3 encoder on LAME: constant bit rate at the input's own rate with no
// Info frame, the very frames the lame program makes (short of its flush),
// lengths as ffmpeg decodes them, the rectified 8-bit input, the order in
// which the residue is kept, and a rate change in mid-stream.
#include "audio/encoder_mp3.h"
#include "audio/file_writer_mp3.h"
#include "audio/mp3_header.h"
#include "liba/text.h"

#include "audio_test_util.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using audio::EncoderMP3;
using audio::MP3Data;
using audio::PCMData;
using audio_test::Reference;

namespace {

std::string q(const fs::path& p) { return "'" + p.string() + "'"; }

// Speech from the build's media, resampled by sox to `rate` and `channels`.
Reference speech(const test::TempDir& dir, int rate, int channels)
{
    const fs::path src = test::one_media(channels == 1 ? "pcm_s16_speech_16000.wav" : "pcm_s16_speech_stereo_44100.wav");
    const fs::path wav = dir / ("speech_" + std::to_string(rate) + "_" + std::to_string(channels) + ".wav");
    test::run_out("sox " + q(src) + " -r " + std::to_string(rate) + " " + q(wav));
    Reference ref;
    ref.channels = channels;
    ref.bits = 16;
    ref.rate = rate;
    ref.bytes = test::sox16(wav);
    return ref;
}

std::string encode(const Reference& ref, int bit_rate, std::size_t frames_per_record)
{
    EncoderMP3 e(bit_rate);
    audio_test::Sink<MP3Data> sink;
    audio::connect(e, &sink);
    const std::size_t step = frames_per_record * static_cast<std::size_t>(ref.channels * ((ref.bits + 7) / 8));
    for (std::size_t at = 0; at < ref.bytes.size(); at += step)
        e.on_data(audio_test::pcm_of(ref, at, step));
    audio::connect(e, nullptr);
    return sink.all_bytes();
}

// The frame headers of a stream of bare frames, which must follow each other
// without a gap. The last frame may be cut short: LAME was never flushed.
std::vector<audio::MP3Header> frames_of(const std::string& mp3)
{
    std::vector<audio::MP3Header> frames;
    std::size_t at = 0;
    while (at + 4 <= mp3.size()) {
        audio::MP3Header h;
        if (!audio::parse_mp3_header(reinterpret_cast<const std::uint8_t*>(mp3.data()) + at, h)) {
            ADD_FAILURE() << "no frame at byte " << at;
            break;
        }
        frames.push_back(h);
        at += static_cast<std::size_t>(h.frame_size);
    }
    EXPECT_GE(at, mp3.size());
    EXPECT_LT(at - mp3.size(), frames.empty() ? 1u : static_cast<std::size_t>(frames.back().frame_size));
    return frames;
}

} // namespace

TEST(EncoderMP3, WritesConstantBitRateAtTheInputRateWithoutInfoFrame)
{
    test::TempDir dir;
    struct Row {
        int rate, channels, bit_rate;
    };
    // 44100 Hz at 32 kbit/s is one where LAME left alone would halve the rate.
    for (Row row : {Row{8000, 1, 16000}, Row{11025, 1, 32000}, Row{22050, 1, 32000}, Row{44100, 1, 64000},
                    Row{44100, 1, 32000}, Row{44100, 2, 128000}}) {
        SCOPED_TRACE(std::to_string(row.rate) + " Hz, " + std::to_string(row.channels) + " ch, " +
                     std::to_string(row.bit_rate));
        const Reference ref = speech(dir, row.rate, row.channels);
        const fs::path out = dir / "out.mp3";
        {
            EncoderMP3 e(row.bit_rate);
            audio::FileWriterMP3 w(liba::from_utf8(out.string()), false);
            audio::connect(e, &w);
            EXPECT_EQ(e.get_bitrate(), row.bit_rate);
            const std::size_t step = 5000 * static_cast<std::size_t>(2 * row.channels);
            for (std::size_t at = 0; at < ref.bytes.size(); at += step)
                e.on_data(audio_test::pcm_of(ref, at, step));
            EXPECT_TRUE(w.is_good());
            audio::connect(e, nullptr);
        }
        const std::string mp3 = test::read_file(out);
        const auto frames = frames_of(mp3);
        ASSERT_FALSE(frames.empty());
        for (const auto& f : frames) {
            EXPECT_EQ(f.rate, row.rate);
            EXPECT_EQ(f.bitrate, row.bit_rate / 1000);
            EXPECT_EQ(f.channels, row.channels);
        }
        std::string probe;
        EXPECT_EQ(test::run("ffprobe -v error -show_entries stream=codec_name,sample_rate,channels -of "
                            "default=nw=1 " + q(out), &probe), 0);
        EXPECT_EQ(probe, "codec_name=mp3\nsample_rate=" + std::to_string(row.rate) +
                             "\nchannels=" + std::to_string(row.channels) + "\n");
        // Decoded, it is never longer than what went in, and short by no
        // more than the kept residue and the frames LAME was not asked to
        // flush (its delay and look-ahead of a few frames).
        std::string pcm;
        EXPECT_EQ(test::run("ffmpeg -v error -i " + q(out) + " -f s16le -", &pcm), 0);
        const std::size_t in_frames = ref.bytes.size() / static_cast<std::size_t>(2 * row.channels);
        const std::size_t out_frames = pcm.size() / static_cast<std::size_t>(2 * row.channels);
        const std::size_t frame = static_cast<std::size_t>(frames[0].samples);
        EXPECT_LE(out_frames, frames.size() * frame);
        EXPECT_GE(out_frames, (frames.size() - 1) * frame);
        EXPECT_LE(out_frames, in_frames);
        EXPECT_GE(out_frames + 4 * frame, in_frames);
        // lame itself, told to write no Info frame, makes the same frames
        // (a frame kept free for the tag would shift them all), and more of
        // them: it flushes.
        const fs::path wav = dir / ("speech_" + std::to_string(row.rate) + "_" + std::to_string(row.channels) + ".wav");
        const fs::path by_lame = dir / "lame.mp3";
        EXPECT_EQ(test::run("lame --quiet -t -b " + std::to_string(row.bit_rate / 1000) + " --resample " +
                            std::to_string(row.rate / 1000.0) + " " + q(wav) + " " + q(by_lame)),
                  0);
        const std::string lame_bytes = test::read_file(by_lame);
        EXPECT_GT(lame_bytes.size(), mp3.size());
        EXPECT_TRUE(lame_bytes.compare(0, mp3.size(), mp3) == 0);
    }
}

TEST(EncoderMP3, KeepsItsInputRulesAndDropsTheFlush)
{
    test::TempDir dir;
    const Reference ref = speech(dir, 22050, 1);

    // The size of the records changes nothing of what comes out.
    const std::string whole = encode(ref, 32000, 5000);
    EXPECT_EQ(encode(ref, 32000, 1777), whole);

    // Nothing more comes out when the encoder goes: the flush is dropped.
    {
        audio_test::Sink<MP3Data> sink;
        std::size_t before = 0;
        {
            EncoderMP3 e(32000);
            audio::connect(e, &sink);
            e.on_data(audio_test::pcm_of(ref, 0, ref.bytes.size()));
            before = sink.records.size();
            EXPECT_GT(before, 0u);
            MP3Data pulled;
            e.get_data(pulled, 1);
            EXPECT_TRUE(pulled.empty());
        }
        EXPECT_EQ(sink.records.size(), before);
        EXPECT_EQ(sink.all_bytes(), whole);
    }

    // A record that doesn't complete the residue replaces it: of two short
    // records only the second is kept.
    {
        // A frame of 576 samples is 1152 bytes here.
        const std::size_t first = 2 * 150, second = 2 * 200;
        Reference tail = ref;
        tail.bytes = ref.bytes.substr(first);
        EncoderMP3 e(32000);
        audio_test::Sink<MP3Data> sink;
        audio::connect(e, &sink);
        e.on_data(audio_test::pcm_of(ref, 0, first));
        e.on_data(audio_test::pcm_of(ref, first, second));
        EXPECT_TRUE(sink.records.empty());
        e.on_data(audio_test::pcm_of(ref, first + second, ref.bytes.size()));
        audio::connect(e, nullptr);
        EXPECT_EQ(sink.all_bytes(), encode(tail, 32000, 5000));
    }

    // 8-bit samples are rectified: |x - 127| x 256, as 16-bit sound would be.
    {
        Reference u8 = ref;
        u8.bits = 8;
        u8.bytes.clear();
        Reference rectified = ref;
        rectified.bytes.clear();
        for (std::size_t i = 0; i + 1 < ref.bytes.size(); i += 2) {
            const int s = static_cast<std::int16_t>(static_cast<std::uint8_t>(ref.bytes[i]) |
                                                    static_cast<std::uint8_t>(ref.bytes[i + 1]) << 8);
            const std::uint8_t x = static_cast<std::uint8_t>((s >> 8) + 128);
            u8.bytes += static_cast<char>(x);
            const auto r = static_cast<std::uint16_t>(std::abs(x - 127) * 256);
            rectified.bytes += static_cast<char>(r & 0xff);
            rectified.bytes += static_cast<char>(r >> 8);
        }
        const std::string from_u8 = encode(u8, 32000, 5000);
        EXPECT_FALSE(from_u8.empty());
        EXPECT_EQ(from_u8, encode(rectified, 32000, 5000));
    }

    // Records it can't take bring nothing out.
    {
        EncoderMP3 e(32000);
        audio_test::Sink<MP3Data> sink;
        audio::connect(e, &sink);
        PCMData three = audio_test::pcm_of(ref, 0, ref.bytes.size());
        three.channels = 3;
        e.on_data(three);
        PCMData no_rate = audio_test::pcm_of(ref, 0, ref.bytes.size());
        no_rate.rate = 0;
        e.on_data(no_rate);
        audio::connect(e, nullptr);
        EXPECT_TRUE(sink.records.empty());
    }
}

TEST(EncoderMP3, RateChangeStartsLameAnewWithoutGap)
{
    test::TempDir dir;
    const Reference a = speech(dir, 22050, 1);
    const Reference b = speech(dir, 11025, 1);
    const std::string both = encode(a, 32000, 5000);
    EncoderMP3 e(32000);
    audio_test::Sink<MP3Data> sink;
    audio::connect(e, &sink);
    for (const Reference* r : {&a, &b})
        for (std::size_t at = 0; at < r->bytes.size(); at += 10000)
            e.on_data(audio_test::pcm_of(*r, at, 10000));
    audio::connect(e, nullptr);
    // The 22050 Hz stream as it is made alone, and right behind it the
    // 11025 Hz stream of a fresh start of LAME.
    EXPECT_EQ(sink.all_bytes(), both + encode(b, 32000, 5000));
    const auto second = frames_of(encode(b, 32000, 5000));
    ASSERT_FALSE(second.empty());
    EXPECT_EQ(second[0].rate, 11025);
}

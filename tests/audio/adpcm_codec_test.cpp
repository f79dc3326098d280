// Microsoft ADPCM: the reader and decoder against sox on files made by sox
// (every block size it makes) and ffmpeg, damaged blocks, seeking, and the
// encoder's files as sox decodes them.
#include "audio/adpcm_codec.h"
#include "audio/file_reader_wav.h"
#include "audio/file_writer_wav.h"
#include "audio/wav_info.h"

#include "audio_test_util.h"
#include "liba/text.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <set>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using audio::ADPCMData;
using audio::DecoderADPCM;
using audio::EncoderADPCM;
using audio::FileReaderWAVADPCM;
using audio::PCMData;
using audio_test::bytes_of;
using audio_test::Sink;
using test::le;
using test::one_media;
using test::sox16;
using test::wide;

namespace {

std::int16_t sample_at(const std::string& pcm, std::size_t index)
{
    return static_cast<std::int16_t>(le(pcm, 2 * index, 2));
}

// The header fields a test needs, read by hand from sox's layout.
struct Layout {
    int channels = 0;
    int block_align = 0;
    int spb = 0;
    std::uint32_t fact = 0;
    std::size_t data_offset = 0;
};

Layout layout_of(const std::string& file)
{
    Layout l;
    l.channels = static_cast<int>(le(file, 22, 2));
    l.block_align = static_cast<int>(le(file, 32, 2));
    l.spb = static_cast<int>(le(file, 38, 2));
    std::size_t fact = file.find("fact");
    l.fact = le(file, fact + 8, 4);
    l.data_offset = file.find("data", fact) + 8;
    return l;
}

// Everything the decoder pulls through the reader, `n` frames a request.
std::string decode_file(FileReaderWAVADPCM& r, int n)
{
    DecoderADPCM d;
    audio::connect(r, &d);
    std::string all = audio_test::drain_pcm(d, n, r.get_channels(), r.get_rate());
    audio::connect(r, nullptr);
    return all;
}

std::string decode_file(const fs::path& f, int n = 16384)
{
    FileReaderWAVADPCM r(wide(f));
    EXPECT_TRUE(r.is_open()) << f;
    return decode_file(r, n);
}

std::string decode_pushed(const std::vector<ADPCMData>& blocks)
{
    DecoderADPCM d;
    return audio_test::all_bytes(audio_test::push_through<PCMData>(d, blocks));
}

// Writes encoded blocks as the recorder's writer does.
void write_wav(const fs::path& f, const std::vector<ADPCMData>& blocks)
{
    audio::FileWriterWAVADPCM w(wide(f), false);
    for (const ADPCMData& b : blocks)
        w.on_data(b);
    EXPECT_TRUE(w.is_good());
}

std::vector<ADPCMData> encode(const audio_test::Reference& ref, std::size_t frames_per_record)
{
    EncoderADPCM e;
    return audio_test::push_through<ADPCMData>(e, audio_test::cut_records(ref, frames_per_record));
}

} // namespace

TEST(DecoderADPCM, DecodesLikeSoxAtEveryBlockSize)
{
    std::set<std::pair<int, int>> sizes; // channels, block_align
    auto files = test::media("adpcm_*.wav");
    ASSERT_GE(files.size(), 10u);
    for (const auto& f : files) {
        SCOPED_TRACE(f.filename().string());
        const Layout l = layout_of(test::read_file(f));
        sizes.insert({l.channels, l.block_align});
        const std::size_t blocks = l.fact / static_cast<std::uint32_t>(l.spb);
        const std::size_t frames = blocks * static_cast<std::size_t>(l.spb);
        ASSERT_GT(blocks, 0u);
        const std::string ref = sox16(f, frames);
        ASSERT_EQ(ref.size(), frames * static_cast<std::size_t>(l.channels) * 2);

        FileReaderWAVADPCM r(wide(f));
        ASSERT_TRUE(r.is_open());
        EXPECT_EQ(r.get_length(), static_cast<std::int32_t>(blocks));
        EXPECT_EQ(r.get_bits(), 16);
        EXPECT_DOUBLE_EQ(r.get_duration(), static_cast<double>(frames) / r.get_rate());
        EXPECT_TRUE(decode_file(r, 16384) == ref);
        EXPECT_TRUE(r.is_eof());
        // Small requests cut blocks into pieces; the samples are the same.
        EXPECT_TRUE(decode_file(f, 333) == ref);
    }
    // sox's sizes: 256 bytes a channel up to 2048; ffmpeg's 1024 for mono 8000.
    for (auto s : {std::pair{1, 256}, {1, 512}, {1, 1024}, {1, 2048}, {2, 512}, {2, 1024}, {2, 2048}, {2, 4096}})
        EXPECT_TRUE(sizes.count(s)) << s.first << " channels, " << s.second << " bytes";
}

TEST(DecoderADPCM, SeeksToAnyBlockAndTransfers)
{
    const fs::path f = one_media("adpcm_stereo_22050.wav");
    const std::string all = decode_file(f);
    const Layout l = layout_of(test::read_file(f));
    const std::size_t block_pcm = static_cast<std::size_t>(l.spb * l.channels * 2);
    FileReaderWAVADPCM r(wide(f));
    ASSERT_TRUE(r.is_open());
    const int length = r.get_length();
    for (int at : {length - 1, 0, 7, 1, length / 2}) {
        r.set_position(at);
        EXPECT_EQ(r.get_position(), at);
        EXPECT_TRUE(decode_file(r, 4000) == all.substr(static_cast<std::size_t>(at) * block_pcm)) << at;
    }
    r.set_time(1.0);
    EXPECT_EQ(r.get_position(), static_cast<int>(22050 * 1.0 / l.spb));
    // Past the end: at the end at once.
    r.set_position(length + 10);
    EXPECT_TRUE(r.is_eof());
    ADPCMData none;
    r.get_data(none, 3);
    EXPECT_TRUE(none.empty());

    // Transfers push at most 5 blocks a record.
    r.set_position(2);
    Sink<ADPCMData> sink;
    audio::connect(r, &sink);
    ASSERT_TRUE(r.transfer_position(12));
    ASSERT_EQ(sink.records.size(), 3u);
    for (const ADPCMData& rec : sink.records) {
        EXPECT_LE(rec.bytes.size(), 5u * static_cast<std::size_t>(l.block_align));
        EXPECT_EQ(rec.block_size, l.block_align);
        EXPECT_EQ(rec.channels, 2);
        EXPECT_EQ(rec.rate, 22050);
        EXPECT_EQ(rec.bits, 4);
    }
    EXPECT_TRUE(decode_pushed(sink.records) == all.substr(2 * block_pcm, 12 * block_pcm));
    sink.records.clear();
    ASSERT_TRUE(r.transfer_seconds(0.5));
    const int half_second = static_cast<int>(22050 * 0.5 / l.spb);
    EXPECT_EQ(r.get_position(), 14 + half_second);
    EXPECT_TRUE(decode_pushed(sink.records) == all.substr(14 * block_pcm, half_second * block_pcm));
    EXPECT_FALSE(r.transfer_position(length));
    EXPECT_TRUE(r.is_eof());
    audio::connect(r, nullptr);
}

TEST(DecoderADPCM, UsesItsOwnCoefficientsAndSilencesBadBlocks)
{
    test::TempDir dir;
    for (const char* name : {"adpcm_mono_8000.wav", "adpcm_stereo_8000.wav"}) {
        SCOPED_TRACE(name);
        const fs::path f = one_media(name);
        const std::string original = test::read_file(f);
        const Layout l = layout_of(original);
        const std::string good = decode_file(f);
        const std::size_t block_pcm = static_cast<std::size_t>(l.spb * l.channels * 2);

        // Another table in the header: sox follows it, the decoder does not.
        std::string other = original;
        for (std::size_t at = 42; at < 42 + 7 * 4; at += 2)
            other[at] = 50;
        test::write_file(dir / "table.wav", other);
        EXPECT_TRUE(decode_file(dir / "table.wav") == good);
        EXPECT_FALSE(sox16(dir / "table.wav") == sox16(f));

        // A bad predictor in the last channel of block 3 silences that block
        // in every channel; the blocks around it are untouched.
        std::string damaged = original;
        damaged[l.data_offset + 3 * static_cast<std::size_t>(l.block_align) + static_cast<std::size_t>(l.channels) - 1] = 7;
        test::write_file(dir / "damaged.wav", damaged);
        const std::string got = decode_file(dir / "damaged.wav");
        ASSERT_EQ(got.size(), good.size());
        EXPECT_TRUE(got.substr(0, 3 * block_pcm) == good.substr(0, 3 * block_pcm));
        EXPECT_TRUE(got.substr(3 * block_pcm, block_pcm) == std::string(block_pcm, '\0'));
        EXPECT_TRUE(got.substr(4 * block_pcm) == good.substr(4 * block_pcm));
    }
}

TEST(DecoderADPCM, DecodesNothingFromBlocksWithoutRoomForTheHeader)
{
    const std::string file = test::read_file(one_media("adpcm_stereo_8000.wav"));
    const Layout l = layout_of(file);
    auto record = [&](int channels, int bits, int block_size) {
        ADPCMData r;
        r.bytes = liba::ByteBlock(file.data() + l.data_offset, 4 * static_cast<std::size_t>(l.block_align));
        r.channels = channels;
        r.bits = bits;
        r.rate = 8000;
        r.block_size = block_size;
        return r;
    };
    EXPECT_TRUE(decode_pushed({record(2, 4, 13)}).empty());   // 13 bytes cannot hold two headers
    EXPECT_TRUE(decode_pushed({record(1, 4, 6)}).empty());
    EXPECT_TRUE(decode_pushed({record(0, 4, 512)}).empty());
    EXPECT_TRUE(decode_pushed({record(2, 0, 512)}).empty());
    EXPECT_TRUE(decode_pushed({record(2, 4, 0)}).empty());
    // Three channels have no layout: silence of the length the formula gives.
    const std::string three = decode_pushed({record(3, 4, 512)});
    EXPECT_EQ(three.size(), 4u * 3 * audio::adpcm_samples_per_block(512, 3, 4) * 2);
    EXPECT_EQ(three.find_first_not_of('\0'), std::string::npos);
    // A bit count other than 4 promises more samples than the block holds;
    // what lies past the block stays silent.
    const std::string two_bits = decode_pushed({record(2, 2, 512)});
    EXPECT_EQ(two_bits.size(), 4u * 2 * audio::adpcm_samples_per_block(512, 2, 2) * 2);
}

TEST(EncoderADPCM, WritesFilesSoxDecodesAsWeDo)
{
    test::TempDir dir;
    struct Case {
        const char* source;
        const char* sox_coded; // sox's own coding of the same samples, or null
        int block_size;
    };
    for (const Case& c : {Case{"pcm_s16_speech_16000.wav", "adpcm_sox_of_speech_16000.wav", 256},
                          Case{"pcm_s16_speech_stereo_44100.wav", "adpcm_sox_of_speech_stereo_44100.wav", 2048},
                          Case{"pcm_s16_mono_22050.wav", nullptr, 512},
                          Case{"pcm_s16_mono_48000.wav", nullptr, 1024},
                          Case{"pcm_s16_stereo_44100.wav", nullptr, 2048}}) {
        SCOPED_TRACE(c.source);
        const audio_test::Reference ref = audio_test::sox_reference(c.source);
        const std::vector<ADPCMData> blocks = encode(ref, 5000);
        const int spb = audio::adpcm_samples_per_block(c.block_size, ref.channels, 4);
        const std::size_t frames = ref.bytes.size() / (2 * static_cast<std::size_t>(ref.channels));
        ASSERT_EQ(blocks.size(), frames / static_cast<std::size_t>(spb));
        for (const ADPCMData& b : blocks) {
            ASSERT_EQ(b.block_size, c.block_size);
            ASSERT_EQ(b.bytes.size(), static_cast<std::size_t>(c.block_size));
        }
        const fs::path f = dir / "ours.wav";
        write_wav(f, blocks);
        const std::string ours = decode_file(f);
        ASSERT_EQ(ours.size(), blocks.size() * static_cast<std::size_t>(spb * ref.channels * 2));
        EXPECT_TRUE(sox16(f) == ours);
        EXPECT_TRUE(decode_pushed(blocks) == ours);

        const double our_snr = audio_test::snr_db(ref.bytes, ours);
        std::string report = std::string(c.source) + ": ours " + std::to_string(our_snr) + " dB";
        EXPECT_GT(our_snr, 10.0);
        if (c.sox_coded) {
            const fs::path theirs = one_media(c.sox_coded);
            const double sox_snr = audio_test::snr_db(ref.bytes, sox16(theirs, ours.size() / (2 * ref.channels)));
            report += ", sox " + std::to_string(sox_snr) + " dB";
        }
        std::cout << "[ SNR      ] " << report << "\n";
        RecordProperty(std::string("snr_") + c.source, report);
    }
}

TEST(EncoderADPCM, HeadersHoldTheFirstFramesAndTheBestCommonPredictor)
{
    int ties = 0;
    for (const char* source : {"pcm_s16_speech_16000.wav", "pcm_s16_speech_stereo_44100.wav"}) {
        SCOPED_TRACE(source);
        const audio_test::Reference ref = audio_test::sox_reference(source);
        const std::vector<ADPCMData> blocks = encode(ref, 4999);
        ASSERT_FALSE(blocks.empty());
        const std::string decoded = decode_pushed(blocks);
        const std::size_t ch = static_cast<std::size_t>(ref.channels);
        const int block_size = blocks[0].block_size;
        const int spb = audio::adpcm_samples_per_block(block_size, ref.channels, 4);
        const std::size_t per_block = static_cast<std::size_t>(spb) * ch;
        std::vector<std::uint8_t> scratch(static_cast<std::size_t>(block_size));
        for (std::size_t k = 0; k < blocks.size(); ++k) {
            const std::string b = bytes_of(blocks[k].bytes);
            std::vector<std::int16_t> frames(per_block);
            std::int32_t decoded_peak = 0;
            for (std::size_t i = 0; i < per_block; ++i) {
                frames[i] = sample_at(ref.bytes, k * per_block + i);
                decoded_peak = std::max(decoded_peak, std::abs(sample_at(decoded, k * per_block + i) - frames[i]));
            }
            for (std::size_t c = 0; c < ch; ++c) {
                ASSERT_EQ(b[c], b[0]) << "block " << k; // one predictor for all channels
                EXPECT_EQ(le(b, ch + 2 * c, 2), 16u);
                EXPECT_EQ(static_cast<std::int16_t>(le(b, 3 * ch + 2 * c, 2)), frames[ch + c]);
                EXPECT_EQ(static_cast<std::int16_t>(le(b, 5 * ch + 2 * c, 2)), frames[c]);
            }
            // The kept predictor gives the lowest peak error, as the decoder
            // sees it, and is the first that does.
            std::int32_t lowest = INT32_MAX;
            int first = -1, tied = 0;
            for (int p = 0; p < audio::kADPCMPredictorCount; ++p) {
                std::int32_t peak = audio::adpcm_encode_block(frames.data(), ref.channels, spb, block_size, p,
                                                              scratch.data());
                if (peak < lowest) {
                    lowest = peak;
                    first = p;
                    tied = 0;
                } else if (peak == lowest) {
                    ++tied;
                }
            }
            EXPECT_EQ(b[0], first) << "block " << k;
            EXPECT_EQ(decoded_peak, lowest) << "block " << k;
            ties += tied > 0 ? 1 : 0;
        }
    }
    EXPECT_GT(ties, 0); // the silence around the speech ties every predictor
}

// Gathering records into blocks, dropping records of another format and
// losing the short tail are BlockEncoder's, tested in block_codec_test.
TEST(EncoderADPCM, RefusesWhatItCannotCodeAndCountsItsBitRate)
{
    auto whole = [](const char* name) { return audio_test::cut_records(audio_test::sox_reference(name), 1u << 30); };
    for (const char* refused : {"pcm_u8_mono_22050.wav", "pcm_s16_3ch_8000.wav"}) {
        EncoderADPCM e;
        EXPECT_TRUE(audio_test::push_through<ADPCMData>(e, whole(refused)).empty()) << refused;
        EXPECT_EQ(e.get_bitrate(), 0) << refused;
    }
    EncoderADPCM e;
    audio_test::push_through<ADPCMData>(e, whole("pcm_s16_speech_16000.wav"));
    EXPECT_EQ(e.get_bitrate(), 16000 * 256 * 8 / 500);
}

// GSM 06.10 in WAV files: the reader and decoder against sox on files made by
// sox and ffmpeg, the encoder block for block against sox's, seeking with the
// decoder's state carried over, and the formats the encoder refuses.
#include "audio/file_reader_wav.h"
#include "audio/file_writer_wav.h"
#include "audio/gsm_codec.h"
#include "audio/wav_info.h"

#include "audio_test_util.h"
#include "liba/text.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using audio::DecoderGSM;
using audio::EncoderGSM;
using audio::FileReaderWAVGSM;
using audio::GSMData;
using audio::PCMData;
using audio_test::bytes_of;
using audio_test::Sink;
using test::le;
using test::one_media;
using test::sox16;
using test::wide;

namespace {

constexpr std::size_t kBlock = 65;
constexpr std::size_t kBlockPCM = 640; // 320 samples of 16 bits

// The blocks of the data chunk and the sample count of the fact chunk.
struct Coded {
    std::string data;
    std::uint32_t fact = 0;
};

Coded coded_of(const fs::path& f)
{
    const std::string file = test::read_file(f);
    Coded c;
    std::size_t fact = file.find("fact");
    c.fact = le(file, fact + 8);
    std::size_t data = file.find("data", fact);
    c.data = file.substr(data + 8, le(file, data + 4));
    return c;
}

// What the decoder pulls through the reader, `n` frames a request.
std::string pull_all(DecoderGSM& d, int n) { return audio_test::drain_pcm(d, n, 1, 8000); }

std::string decode_file(const fs::path& f, int n)
{
    FileReaderWAVGSM r(wide(f));
    EXPECT_TRUE(r.is_open()) << f;
    DecoderGSM d;
    audio::connect(r, &d);
    std::string all = pull_all(d, n);
    EXPECT_TRUE(r.is_eof());
    audio::connect(r, nullptr);
    return all;
}

std::vector<GSMData> encode(const audio_test::Reference& ref, std::size_t frames_per_record)
{
    EncoderGSM e;
    return audio_test::push_through<GSMData>(e, audio_test::cut_records(ref, frames_per_record));
}

// Hands out the blocks of a file and counts what it is asked for.
class BlockSource : public audio::Provider<GSMData> {
public:
    explicit BlockSource(std::string data) : data_(std::move(data)) {}
    void get_data(GSMData& out, int n) override
    {
        asked.push_back(n);
        std::size_t take = std::min(data_.size() - at_, static_cast<std::size_t>(n) * kBlock);
        out.bytes = liba::ByteBlock(data_.data() + at_, take);
        at_ += take;
    }
    std::vector<int> asked;

private:
    std::string data_;
    std::size_t at_ = 0;
};

} // namespace

TEST(DecoderGSM, DecodesLikeSoxOverTheWholeBlocks)
{
    auto files = test::media("gsm_*.wav");
    ASSERT_GE(files.size(), 3u);
    for (const auto& f : files) {
        SCOPED_TRACE(f.filename().string());
        const Coded c = coded_of(f);
        const std::size_t blocks = c.fact / 320;
        ASSERT_GT(blocks, 10u);
        const std::string ref = sox16(f, blocks * 320);
        ASSERT_EQ(ref.size(), blocks * kBlockPCM);
        {
            FileReaderWAVGSM r(wide(f));
            ASSERT_TRUE(r.is_open());
            EXPECT_EQ(r.get_length(), static_cast<std::int32_t>(blocks));
            EXPECT_EQ(r.get_channels(), 1);
            EXPECT_EQ(r.get_bits(), 16);
            EXPECT_EQ(r.get_rate(), 8000);
            EXPECT_EQ(r.get_bitrate(), 13000);
            EXPECT_DOUBLE_EQ(r.get_duration(), blocks * 320 / 8000.0);
        }
        EXPECT_TRUE(decode_file(f, 16384) == ref);
        EXPECT_TRUE(decode_file(f, 100) == ref);
    }
}

TEST(DecoderGSM, KeepsTheSurplusOfAPullForTheNext)
{
    BlockSource source(coded_of(one_media("gsm_sox_of_speech_8000.wav")).data);
    DecoderGSM d;
    audio::connect(source, &d);
    PCMData rec;
    d.get_data(rec, 320);
    EXPECT_EQ(rec.sample_count(), 320u);
    ASSERT_EQ(source.asked, std::vector<int>{2}); // twice what 320 samples need
    d.get_data(rec, 320);
    EXPECT_EQ(rec.sample_count(), 320u);
    EXPECT_EQ(source.asked.size(), 1u);
    d.get_data(rec, 1);
    EXPECT_EQ(rec.sample_count(), 1u);
    EXPECT_EQ(source.asked, (std::vector<int>{2, 1}));
    audio::connect(source, nullptr);
}

TEST(EncoderGSM, CodesBlocksAsSoxDoes)
{
    const audio_test::Reference ref = audio_test::sox_reference("pcm_s16_speech_8000.wav");
    ASSERT_EQ(ref.rate, 8000);
    const Coded theirs = coded_of(one_media("gsm_sox_of_speech_8000.wav"));
    const std::size_t whole = ref.bytes.size() / kBlockPCM;
    ASSERT_GT(whole, 10u);
    for (std::size_t per_record : {5000u, 123u, 320u}) {
        SCOPED_TRACE(per_record);
        const std::vector<GSMData> blocks = encode(ref, per_record);
        ASSERT_EQ(blocks.size(), whole);
        std::string ours;
        for (const GSMData& b : blocks) {
            ASSERT_EQ(b.bytes.size(), kBlock);
            ours += bytes_of(b.bytes);
        }
        EXPECT_TRUE(ours == theirs.data.substr(0, ours.size()));
    }

    // Our blocks in the recorder's file: sox decodes them as we do.
    test::TempDir dir;
    const std::vector<GSMData> blocks = encode(ref, 5000);
    {
        audio::FileWriterWAVGSM w(wide(dir / "ours.wav"), false);
        for (const GSMData& b : blocks)
            w.on_data(b);
        EXPECT_TRUE(w.is_good());
    }
    const std::string ours = decode_file(dir / "ours.wav", 16384);
    ASSERT_EQ(ours.size(), blocks.size() * kBlockPCM);
    EXPECT_TRUE(sox16(dir / "ours.wav", blocks.size() * 320) == ours);
    const double snr = audio_test::snr_db(ref.bytes, ours);
    std::cout << "[ SNR      ] GSM of pcm_s16_speech_8000.wav: " << snr << " dB\n";
    EXPECT_GT(snr, 5.0);
}

// Short tails are BlockEncoder's, tested in block_codec_test.
TEST(EncoderGSM, DropsOtherFormats)
{
    EXPECT_EQ(EncoderGSM().get_bitrate(), 13000);
    for (const char* other : {"pcm_s16_stereo_44100.wav", "pcm_u8_mono_22050.wav", "pcm_s16_mono_11025.wav"})
        EXPECT_TRUE(encode(audio_test::sox_reference(other), 1u << 30).empty()) << other;
}

TEST(FileReaderWAVGSM, SeeksWithTheDecoderStateCarriedOver)
{
    const fs::path f = one_media("gsm_sox_of_speech_8000.wav");
    const std::string all = decode_file(f, 16384);
    FileReaderWAVGSM r(wide(f));
    ASSERT_TRUE(r.is_open());
    const int length = r.get_length();
    for (int at : {20, 5, length / 2}) {
        SCOPED_TRACE(at);
        DecoderGSM d;
        audio::connect(r, &d);
        r.set_position(0);
        // Three blocks through the decoder: 160 samples a pull is half a block.
        PCMData rec;
        for (int i = 0; i < 6; ++i)
            d.get_data(rec, 160);
        EXPECT_EQ(r.get_position(), 3);
        r.set_position(at);
        EXPECT_EQ(r.get_position(), at);
        EXPECT_DOUBLE_EQ(r.get_time(), at * 320 / 8000.0);
        const std::string after = pull_all(d, 160);
        const std::string expected = all.substr(static_cast<std::size_t>(at) * kBlockPCM);
        ASSERT_EQ(after.size(), expected.size());
        // The first block after the seek still rings with what came before;
        // from the second on the decoder has settled.
        const double snr = audio_test::snr_db(expected.substr(kBlockPCM), after.substr(kBlockPCM));
        std::cout << "[ SNR      ] GSM after a seek from block 3 to " << at << ": " << snr << " dB\n";
        EXPECT_GT(snr, 30.0);
        audio::connect(r, nullptr);
    }
    // Transfers push at most 10 blocks a record.
    r.set_position(0);
    Sink<GSMData> sink;
    audio::connect(r, &sink);
    ASSERT_TRUE(r.transfer_position(25));
    ASSERT_EQ(sink.records.size(), 3u);
    EXPECT_EQ(sink.records[0].bytes.size(), 10 * kBlock);
    EXPECT_EQ(sink.records[2].bytes.size(), 5 * kBlock);
    EXPECT_TRUE(sink.all_bytes() == coded_of(f).data.substr(0, 25 * kBlock));
    EXPECT_FALSE(r.transfer_seconds(1000.0));
    EXPECT_TRUE(r.is_eof());
    audio::connect(r, nullptr);
}

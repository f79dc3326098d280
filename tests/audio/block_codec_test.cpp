#include "audio/block_codec.h"

#include "audio_test_util.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using audio::ADPCMData;
using audio::PCMData;
using audio_test::bytes_of;
using audio_test::Reference;
using audio_test::Sink;

namespace {

// A test block format standing in for a real codec: each block is the magic
// "QB" and then `frames` 16-bit frames carried verbatim. A block with another
// magic is damaged and decodes to nothing.
constexpr char kMagic[] = "QB";
constexpr std::size_t kHeader = 2;

class VerbatimDecoder : public audio::BlockDecoderPCM<ADPCMData> {
public:
    explicit VerbatimDecoder(int frames) : frames_(frames) {}
    std::vector<int> asked;     // `n` of each blocks_for_samples call

protected:
    void decode_blocks(PCMData& out, const ADPCMData& in) override
    {
        std::string pcm;
        std::size_t size = static_cast<std::size_t>(in.block_size);
        for (std::size_t at = 0; at + size <= in.bytes.size(); at += size) {
            std::string block(reinterpret_cast<const char*>(in.bytes.data()) + at, size);
            if (block.compare(0, kHeader, kMagic) == 0)
                pcm += block.substr(kHeader);
        }
        out.bytes = liba::ByteBlock(pcm.data(), pcm.size());
        out.channels = in.channels;
        out.bits = 16;
        out.rate = in.rate;
    }
    int blocks_for_samples(int n) override
    {
        asked.push_back(n);
        return (n + frames_ - 1) / frames_;
    }

private:
    int frames_;
};

// Serves blocks cut from sox's samples, as many as asked for in one record.
class BlockSource : public audio::Provider<ADPCMData> {
public:
    BlockSource(const Reference& ref, int frames) : ref_(ref)
    {
        std::size_t payload = static_cast<std::size_t>(frames * ref.channels * 2);
        for (std::size_t at = 0; at + payload <= ref.bytes.size(); at += payload)
            blocks.push_back(kMagic + ref.bytes.substr(at, payload));
        block_size = static_cast<int>(payload + kHeader);
    }
    void get_data(ADPCMData& out, int n) override
    {
        ++requests;
        std::string bytes;
        for (int i = 0; i < n && next < blocks.size(); ++i)
            bytes += blocks[next++];
        out.bytes = liba::ByteBlock(bytes.data(), bytes.size());
        out.channels = ref_.channels;
        out.bits = 4;
        out.rate = ref_.rate;
        out.block_size = block_size;
    }
    // The samples that the blocks from `first` to `last` (exclusive) carry.
    std::string payload(std::size_t first, std::size_t last) const
    {
        std::string s;
        for (std::size_t i = first; i < last; ++i)
            s += blocks[i].substr(kHeader);
        return s;
    }

    std::vector<std::string> blocks;
    int block_size = 0;
    std::size_t next = 0;
    int requests = 0;

private:
    const Reference& ref_;
};

// Gathers 16-bit mono or stereo into blocks of `kFrames` frames and "encodes"
// a block by handing on a view of its very bytes, so a gatherer that wrote
// into a block already handed on would change what was pushed.
constexpr int kFrames = 100;

class VerbatimEncoder : public audio::BlockEncoderPCM<ADPCMData> {
public:
    int made = 0;

protected:
    void encode_block(ADPCMData& out, const PCMData& b) override
    {
        out.bytes = b.bytes;
        out.channels = b.channels;
        out.bits = b.bits;
        out.rate = b.rate;
        out.block_size = static_cast<int>(b.bytes.size());
    }
    void make_block(PCMData& out, const PCMData& sample) override
    {
        ++made;
        if (sample.bits != 16 || sample.channels < 1 || sample.channels > 2) {
            out = PCMData();
            return;
        }
        out.bytes = liba::ByteBlock(static_cast<std::size_t>(kFrames * sample.bytes_per_frame()));
        out.channels = sample.channels;
        out.bits = sample.bits;
        out.rate = sample.rate;
    }
};

// Hands out the reference over and over, at most `limit` frames a call.
class EndlessSource : public audio::Provider<PCMData> {
public:
    EndlessSource(const Reference& ref, int limit) : ref_(ref), limit_(limit) {}
    void get_data(PCMData& out, int n) override
    {
        asked.push_back(n);
        std::size_t frame = static_cast<std::size_t>(ref_.channels * 2);
        std::size_t want = frame * static_cast<std::size_t>(std::min(n, limit_));
        if (pos_ == ref_.bytes.size())
            pos_ = 0;
        out = audio_test::pcm_of(ref_, pos_, want);
        pos_ += out.bytes.size();
    }
    std::vector<int> asked;

private:
    const Reference& ref_;
    int limit_;
    std::size_t pos_ = 0;
};

} // namespace

TEST(BlockDecoder, HandsOutResidueAsViewsBeforePullingAgain)
{
    Reference ref = audio_test::sox_reference("pcm_s16_mono_8000.wav");
    BlockSource source(ref, kFrames);
    VerbatimDecoder decoder(kFrames);
    Sink<PCMData> player;
    audio::connect(source, &decoder);
    audio::connect(decoder, &player);

    PCMData first;
    player.pull_data(first, 30);
    EXPECT_EQ(source.requests, 1);
    EXPECT_EQ(decoder.asked, std::vector<int>{30});
    EXPECT_EQ(first.sample_count(), 30u);
    EXPECT_EQ(first.rate, 8000);
    EXPECT_EQ(first.channels, 1);
    EXPECT_EQ(first.bits, 16);

    PCMData second, third, rest;
    player.pull_data(second, 30);
    player.pull_data(third, 30);
    player.pull_data(rest, 30);     // only 10 frames are left of the block
    EXPECT_EQ(source.requests, 1);
    EXPECT_EQ(rest.sample_count(), 10u);
    // Views of the one decoded block, one after the other: nothing copied.
    EXPECT_EQ(second.bytes.data(), first.bytes.data() + 60);
    EXPECT_EQ(rest.bytes.data(), third.bytes.data() + 60);
    std::string got = bytes_of(first.bytes) + bytes_of(second.bytes) + bytes_of(third.bytes) + bytes_of(rest.bytes);
    EXPECT_EQ(got, source.payload(0, 1));

    // A request past one block pulls as many blocks as it needs, once.
    PCMData big;
    player.pull_data(big, 250);
    EXPECT_EQ(source.requests, 2);
    EXPECT_EQ(decoder.asked.back(), 250);
    EXPECT_EQ(big.sample_count(), 250u);
    got += bytes_of(big.bytes);

    // To the end in odd amounts: exactly the samples of every block.
    for (;;) {
        PCMData r;
        player.pull_data(r, 77);
        if (r.empty())
            break;
        EXPECT_LE(r.sample_count(), 77u);
        got += bytes_of(r.bytes);
    }
    EXPECT_EQ(got, source.payload(0, source.blocks.size()));

    // At the end: empty each time, and each time upstream is asked again.
    int asked_before = source.requests;
    for (int i = 1; i <= 3; ++i) {
        PCMData r;
        player.pull_data(r, 77);
        EXPECT_TRUE(r.empty());
        EXPECT_EQ(source.requests, asked_before + i);
    }
}

TEST(BlockDecoder, DecodesPastDamagedBlocks)
{
    Reference ref = audio_test::sox_reference("pcm_s16_stereo_44100.wav");
    BlockSource source(ref, kFrames);
    ASSERT_GE(source.blocks.size(), 8u);
    source.blocks.resize(8);
    source.blocks[2][0] = 'X';
    source.blocks[3][1] = 'X';
    source.blocks[7][0] = 'X';
    VerbatimDecoder decoder(kFrames);
    Sink<PCMData> player;
    audio::connect(source, &decoder);
    audio::connect(decoder, &player);

    std::string got;
    int records = 0;
    for (;;) {
        PCMData r;
        player.pull_data(r, kFrames);
        if (r.empty())
            break;
        ++records;
        EXPECT_EQ(r.channels, 2);
        EXPECT_EQ(r.rate, 44100);
        got += bytes_of(r.bytes);
    }
    // No empty record in place of a damaged block: the stream only ended
    // when the source had nothing left.
    EXPECT_EQ(records, 5);
    EXPECT_EQ(got, source.payload(0, 2) + source.payload(4, 7));
    EXPECT_EQ(source.requests, 9);
}

TEST(BlockDecoder, PushDecodesAndForwards)
{
    Reference ref = audio_test::sox_reference("pcm_s16_mono_11025.wav");
    BlockSource source(ref, kFrames);
    VerbatimDecoder decoder(kFrames);
    Sink<PCMData> sink;
    audio::connect(decoder, &sink);

    ADPCMData three;
    source.get_data(three, 3);
    decoder.on_data(three);
    ASSERT_EQ(sink.records.size(), 1u);
    EXPECT_EQ(bytes_of(sink.records[0].bytes), source.payload(0, 3));
    EXPECT_EQ(sink.records[0].rate, 11025);
    EXPECT_EQ(sink.records[0].sample_count(), 3u * kFrames);
}

TEST(BlockEncoder, GathersAcrossRecordsDropsOtherFormatsAndLosesTail)
{
    Reference ref = audio_test::sox_reference("pcm_s16_speech_stereo_44100.wav");
    const std::size_t block_bytes = kFrames * 4;
    VerbatimEncoder encoder;
    Sink<ADPCMData> file;
    audio::connect(encoder, &file);

    // Whole frames in uneven pieces that straddle block ends, with records
    // of other formats in between.
    Reference other = audio_test::sox_reference("pcm_s16_mono_8000.wav");
    std::size_t pos = 0;
    int piece_frames = 1;
    for (int i = 0; pos < ref.bytes.size(); ++i) {
        std::size_t piece = static_cast<std::size_t>(piece_frames) * 4;
        encoder.on_data(audio_test::pcm_of(ref, pos, piece));
        pos += piece;
        piece_frames = piece_frames * 7 % 263 + 1;
        if (i % 5 == 0)
            encoder.on_data(audio_test::pcm_of(other, 0, 400));
    }
    EXPECT_EQ(encoder.made, 1);

    const std::size_t whole = ref.bytes.size() / block_bytes;
    ASSERT_EQ(file.records.size(), whole);
    ASSERT_NE(ref.bytes.size() % block_bytes, 0u);  // there is a tail to lose
    for (const auto& r : file.records) {
        EXPECT_EQ(r.bytes.size(), block_bytes);
        EXPECT_EQ(r.rate, 44100);
        EXPECT_EQ(r.channels, 2);
    }
    // Every block pushed still holds its own samples: gathering the next
    // block never wrote into one that was handed on.
    EXPECT_EQ(file.all_bytes(), ref.bytes.substr(0, whole * block_bytes));
}

TEST(BlockEncoder, PullFormFillsWholeBlocksFromItsSource)
{
    Reference ref = audio_test::sox_reference("pcm_s16_mono_22050.wav");
    // The source gives at most 37 frames a call, so a block takes many pulls.
    EndlessSource source(ref, 37);
    VerbatimEncoder encoder;
    Sink<ADPCMData> writer;
    audio::connect(source, &encoder);
    audio::connect(encoder, &writer);

    std::string got;
    for (int i = 0; i < 4; ++i) {
        ADPCMData block;
        writer.pull_data(block, 12345);     // the count is ignored
        EXPECT_EQ(block.bytes.size(), kFrames * 2u);
        EXPECT_EQ(block.rate, 22050);
        got += bytes_of(block.bytes);
    }
    EXPECT_EQ(got, ref.bytes.substr(0, 4 * kFrames * 2));
    // The first pull is for one frame, to learn the format.
    ASSERT_FALSE(source.asked.empty());
    EXPECT_EQ(source.asked[0], 1);
    EXPECT_EQ(source.asked[1], kFrames - 1);
    EXPECT_EQ(encoder.made, 1);
}

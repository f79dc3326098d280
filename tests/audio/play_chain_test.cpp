// Play chains found by content, their decoded output against sox, their
// titles, and routes through marked ranges of PCM, GSM, ADPCM and MP3 files.
#include "audio/file_reader_wma.h"
#include "audio/play_chain.h"

#include "audio_test_util.h"
#include "liba/text.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using audio::PCMData;
using audio::RouteMarks;
using audio_test::bytes_of;
using test::one_media;
using test::soxi_int;
using test::wide;

namespace {

// What the player would get: requests of `n` frames through the fixed head
// of the play path until an empty record.
struct Pulled {
    std::string bytes;
    int channels = 0;
    int bits = 0;
    int rate = 0;
    bool formats_agree = true;
    bool ended = false;
};

Pulled pull_all(audio::PlayChain& chain, int n = 16384)
{
    Pulled p;
    audio::NullProcessor<PCMData> head;
    audio::connect(*chain.get_provider(), &head);
    for (int guard = 0; guard < 100000; ++guard) {
        PCMData rec;
        head.get_data(rec, n);
        if (rec.empty()) {
            p.ended = true;
            break;
        }
        EXPECT_LE(rec.sample_count(), static_cast<std::size_t>(n));
        if (p.bytes.empty()) {
            p.channels = rec.channels;
            p.bits = rec.bits;
            p.rate = rec.rate;
        }
        p.formats_agree &= rec.channels == p.channels && rec.bits == p.bits && rec.rate == p.rate;
        p.bytes += bytes_of(rec.bytes);
    }
    audio::connect(*chain.get_provider(), nullptr);
    EXPECT_TRUE(p.ended) << "the chain never ended";
    return p;
}

std::unique_ptr<audio::PlayChain> open(const fs::path& f, const RouteMarks* marks = nullptr)
{
    return audio::create_play_chain(wide(f), marks);
}

std::wstring format_of(const fs::path& f)
{
    auto chain = open(f);
    return chain ? chain->get_format() : L"(none)";
}

} // namespace

TEST(PlayChain, FindsTheFormatByContentNotByName)
{
    // Files that reach the media service must not open a sound device.
    audio::FileReaderWMA::set_audio_sink("fakesink sync=true");
    struct Group {
        const char* pattern;
        const wchar_t* format;
        std::size_t at_least;
    };
    for (const Group& g : {Group{"pcm_*.wav", audio::kFormatPCM, 12}, Group{"list_pcm_*.wav", audio::kFormatPCM, 1},
                           Group{"adpcm_*.wav", audio::kFormatADPCM, 10}, Group{"gsm_*.wav", audio::kFormatGSM, 3},
                           Group{"lame_*.mp3", audio::kFormatMP3, 16}, Group{"mp3_*.mp3", audio::kFormatMP3, 2},
                           Group{"tag_*.mp3", audio::kFormatMP3, 2}, Group{"layer2_44100*.mp2", audio::kFormatMP3, 1}}) {
        auto files = test::media(g.pattern);
        ASSERT_GE(files.size(), g.at_least) << g.pattern;
        for (const auto& f : files) {
            SCOPED_TRACE(f.filename().string());
            auto chain = open(f);
            ASSERT_TRUE(chain);
            EXPECT_EQ(chain->get_format(), g.format);
            ASSERT_NE(chain->get_reader(), nullptr);
            ASSERT_NE(chain->get_provider(), nullptr);
            EXPECT_TRUE(chain->get_reader()->is_open());
            EXPECT_TRUE(chain->uses_player());
            EXPECT_FALSE(chain->set_paused(true));
            EXPECT_FALSE(chain->is_paused());
            if (f.extension() == ".wav") {
                EXPECT_EQ(chain->get_reader()->get_channels(), soxi_int(f, "-c"));
                EXPECT_EQ(chain->get_reader()->get_rate(), soxi_int(f, "-r"));
            }
        }
    }

    // The WAVs the readers refuse get no WAV chain and no frame scan takes
    // them; the media service, tried last, may still play them.
    for (const auto& f : test::media("refused_*.wav")) {
        std::wstring format = format_of(f);
        EXPECT_TRUE(format == L"(none)" || format == audio::kFormatWMA) << f.filename();
    }

    test::TempDir dir;
    fs::copy_file(one_media("mp3_cbr64_16000.mp3"), dir / "a.wav");
    EXPECT_EQ(format_of(dir / "a.wav"), audio::kFormatMP3);
    fs::copy_file(one_media("gsm_mono_8000.wav"), dir / "speech.mp3");
    EXPECT_EQ(format_of(dir / "speech.mp3"), audio::kFormatGSM);
    std::string text;
    for (int i = 0; i < 400; ++i)
        text += "line " + std::to_string(i) + " of a text file that only looks like sound by its name\n";
    test::write_file(dir / "text.wav", text);
    EXPECT_EQ(format_of(dir / "text.wav"), L"(none)");
    EXPECT_EQ(format_of(dir / "missing.wav"), L"(none)");

    // Zero bytes: the MP3 reader keeps such a file open with nothing in it.
    test::write_file(dir / "zero.wav", "");
    auto zero = open(dir / "zero.wav");
    ASSERT_TRUE(zero);
    EXPECT_EQ(zero->get_format(), audio::kFormatMP3);
    EXPECT_EQ(zero->get_reader()->get_duration(), 0.0);
    EXPECT_TRUE(zero->get_reader()->is_eof());
    EXPECT_TRUE(pull_all(*zero).bytes.empty());
}

TEST(PlayChain, TitleIsTheFileNameOrTheTagsTitle)
{
    EXPECT_EQ(audio::title_of_path(L"C:\\x/y\\z.wav"), L"z.wav");
    EXPECT_EQ(audio::title_of_path(L"name"), L"name");
    EXPECT_EQ(audio::title_of_path(L"/music/a b.mp3"), L"a b.mp3");

    test::TempDir dir;
    fs::create_directories(dir / "x" / "y");
    fs::copy_file(one_media("pcm_s16_mono_8000.wav"), dir / "x" / "y" / "z.wav");
    fs::copy_file(one_media("tag_lame_v1.mp3"), dir / "x" / "song.mp3");
    // Paths take either separator.
    std::vector<std::wstring> asked;
    std::wstring answer = L"Tagged Title";
    audio::TagTitleReader tag_title = [&](const std::wstring& path) {
        asked.push_back(path);
        return answer;
    };
    const std::wstring wav_path = wide(dir.path()) + L"/x\\y/z.wav";
    auto wav = audio::create_play_chain(wav_path, nullptr, tag_title);
    ASSERT_TRUE(wav);
    EXPECT_EQ(wav->get_title(), L"z.wav");
    EXPECT_TRUE(asked.empty()) << "only MP3 files have a tag title";

    const std::wstring mp3_path = wide(dir.path()) + L"\\x/song.mp3";
    auto mp3 = audio::create_play_chain(mp3_path, nullptr, tag_title);
    ASSERT_TRUE(mp3);
    EXPECT_EQ(mp3->get_title(), L"Tagged Title");
    EXPECT_EQ(asked, std::vector<std::wstring>{mp3_path});
    answer.clear();
    EXPECT_EQ(audio::create_play_chain(mp3_path, nullptr, tag_title)->get_title(), L"song.mp3");
    EXPECT_EQ(audio::create_play_chain(mp3_path, nullptr)->get_title(), L"song.mp3");
}

TEST(PlayChainRouter, PlaysTheRoutedRangesOfAPCMFileInPositionOrder)
{
    const fs::path f = one_media("pcm_s16_speech_16000.wav");
    const audio_test::Reference ref = audio_test::sox_reference(f.filename().string());
    const auto bytes = static_cast<std::int32_t>(ref.bytes.size());
    ASSERT_GT(bytes, 150000);
    // Adjacent routed ranges run on; an unrouted range between two routed
    // ones is jumped over; the last range runs to the end of the audio.
    RouteMarks marks = {{0, false},     {8000, true},    {20000, false}, {30000, true},
                        {40000, true},  {60000, false},  {100000, true}};
    auto chain = open(f, &marks);
    ASSERT_TRUE(chain);
    EXPECT_EQ(chain->get_format(), audio::kFormatPCM);
    EXPECT_EQ(chain->get_reader()->get_position(), 8000) << "the router starts at its first range";
    EXPECT_FALSE(chain->get_reader()->is_eof());
    const std::string want = ref.bytes.substr(8000, 12000) + ref.bytes.substr(30000, 30000) + ref.bytes.substr(100000);
    for (int n : {16384, 1000, 3}) {
        auto again = open(f, &marks);
        Pulled p = pull_all(*again, n);
        EXPECT_TRUE(p.bytes == want) << n << ": " << p.bytes.size() << " bytes against " << want.size();
        EXPECT_TRUE(again->get_reader()->is_eof());
        EXPECT_EQ(again->get_reader()->get_position(), bytes);
    }

    // A mark inside a sample frame starts its range at that frame; the range
    // before it ends there as well, and a range ends at the last whole frame
    // before its end.
    RouteMarks odd = {{1001, true}, {3001, true}, {5003, false}};
    Pulled p = pull_all(*open(f, &odd));
    EXPECT_TRUE(p.bytes == ref.bytes.substr(1000, 4002)) << p.bytes.size();
}

TEST(PlayChainRouter, ListsWithNothingToPlayEndAtOnce)
{
    for (const char* name : {"pcm_s16_mono_8000.wav", "gsm_mono_8000.wav", "mp3_cbr64_16000.mp3"}) {
        SCOPED_TRACE(name);
        for (const RouteMarks& marks : {RouteMarks{}, RouteMarks{{0, false}, {100, false}}}) {
            auto chain = open(one_media(name), &marks);
            ASSERT_TRUE(chain);
            EXPECT_TRUE(chain->get_reader()->is_eof());
            EXPECT_TRUE(pull_all(*chain).bytes.empty());
            EXPECT_TRUE(chain->get_reader()->is_eof());
        }
    }
    // A file that no reader takes has no routed form either.
    test::TempDir dir;
    test::write_file(dir / "notes.wav", std::string(3000, 'x'));
    RouteMarks marks = {{0, true}};
    EXPECT_FALSE(open(dir / "notes.wav", &marks));
}

TEST(PlayChainRouter, BlockFilesReadRangesInBlockAlignSteps)
{
    // GSM positions are blocks, yet a read takes (range end - cursor) /
    // block_align of them: one block at a time while 65 to 129 blocks are
    // left, none below 65. So a range of 70 blocks plays its first 6, and a
    // range of fewer than 65 blocks plays nothing and ends the route.
    const fs::path gsm = one_media("gsm_mono_8000.wav");
    auto plain = open(gsm);
    ASSERT_TRUE(plain);
    const std::int32_t blocks = plain->get_reader()->get_length();
    ASSERT_GE(blocks, 130);
    const std::string all = pull_all(*plain).bytes;
    ASSERT_EQ(all.size(), static_cast<std::size_t>(blocks) * 640);

    RouteMarks marks = {{0, true}, {70, false}, {100, true}};
    auto routed = open(gsm, &marks);
    ASSERT_TRUE(routed);
    EXPECT_EQ(routed->get_format(), audio::kFormatGSM);
    Pulled p = pull_all(*routed);
    EXPECT_TRUE(p.bytes == all.substr(0, 6 * 640)) << p.bytes.size() / 640 << " blocks";
    EXPECT_EQ(routed->get_reader()->get_position(), blocks);

    // A longer range, to the end of the file: all but its last 64 blocks,
    // decoded as a plain chain decodes them from the same block on.
    RouteMarks long_range = {{10, false}, {20, true}};
    p = pull_all(*open(gsm, &long_range));
    auto from_20 = open(gsm);
    from_20->get_reader()->set_position(20);
    const std::string tail = pull_all(*from_20).bytes;
    EXPECT_TRUE(p.bytes == tail.substr(0, static_cast<std::size_t>(blocks - 20 - 64) * 640))
        << p.bytes.size() / 640 << " blocks";

    // ADPCM blocks of 256 bytes: no range of the file is long enough to read.
    const fs::path adpcm = one_media("adpcm_mono_8000.wav");
    RouteMarks whole = {{0, true}};
    auto adpcm_routed = open(adpcm, &whole);
    ASSERT_TRUE(adpcm_routed);
    EXPECT_EQ(adpcm_routed->get_format(), audio::kFormatADPCM);
    EXPECT_TRUE(pull_all(*adpcm_routed).bytes.empty());
    EXPECT_EQ(adpcm_routed->get_reader()->get_position(), adpcm_routed->get_reader()->get_length());
}

TEST(PlayChainRouter, MP3RangesHoldTheFramesThatStartInThem)
{
    const fs::path f = one_media("mp3_cbr128_stereo_44100.mp3");
    // Where each frame starts, as the reader counts positions.
    std::vector<std::int32_t> starts;
    {
        audio::FileReaderMP3 r(wide(f));
        ASSERT_TRUE(r.is_open());
        for (;;) {
            std::int32_t at = r.get_position();
            audio::MP3Data frame;
            r.get_data(frame, 1);
            if (frame.empty())
                break;
            starts.push_back(at);
        }
    }
    ASSERT_GT(starts.size(), 100u);
    auto plain = open(f);
    const std::string all = pull_all(*plain).bytes;
    const std::size_t frame_bytes = 1152 * 4;

    // The first range: the frames that start before its end, decoded as a
    // plain play decodes them.
    const std::int32_t end1 = starts[40] - 1;
    const std::int32_t start2 = starts[70] + 5;
    const std::int32_t end2 = starts[90] + 5;
    RouteMarks marks = {{0, true}, {end1, false}, {start2, true}, {end2, false}};
    auto routed = open(f, &marks);
    ASSERT_TRUE(routed);
    EXPECT_EQ(routed->get_format(), audio::kFormatMP3);
    Pulled p = pull_all(*routed);
    ASSERT_GE(p.bytes.size(), 40 * frame_bytes);
    EXPECT_TRUE(p.bytes.substr(0, 40 * frame_bytes) == all.substr(0, 40 * frame_bytes));
    // The second range starts at the first frame behind its mark (71 to 90)
    // and loses up to two frames to the bit reservoir after the jump.
    const std::size_t second = p.bytes.size() / frame_bytes - 40;
    EXPECT_EQ(p.bytes.size() % frame_bytes, 0u);
    EXPECT_LE(second, 20u);
    EXPECT_GE(second, 18u);
    EXPECT_TRUE(routed->get_reader()->is_eof());
}

#include "audio/decoder_vorbis.h"
#include "audio/file_reader_wma.h"
#include "audio/play_chain.h"
#include "audio/play_chain_wma.h"
#include "liba/text.h"

#include "audio_test_util.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using audio::FileReaderWMA;
using audio::PCMData;
using namespace std::chrono_literals;

namespace {

std::wstring wide(const std::filesystem::path& p) { return liba::from_utf8(p.string()); }

std::filesystem::path one(const char* name)
{
    auto files = test::media(name);
    EXPECT_EQ(files.size(), 1u) << name;
    return files.empty() ? std::filesystem::path() : files[0];
}

// The media service plays in real time into nothing.
class WMA : public ::testing::Test {
protected:
    void SetUp() override { FileReaderWMA::set_audio_sink("fakesink sync=true"); }
    void TearDown() override { FileReaderWMA::set_audio_sink(""); }
};

// Polls as the document does, every 0.2 s, until the end or `limit`.
bool poll_until_end(FileReaderWMA& r, std::chrono::milliseconds limit)
{
    const auto until = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < until) {
        if (r.is_eof())
            return true;
        std::this_thread::sleep_for(200ms);
    }
    return false;
}

TEST_F(WMA, ReportsTheFixedFormatAndLoadsPaused)
{
    const auto f = one("wma_stereo_44100.wma");
    FileReaderWMA r(wide(f));
    ASSERT_TRUE(r.is_open());
    EXPECT_FALSE(r.has_error());
    EXPECT_EQ(r.get_channels(), 1);
    EXPECT_EQ(r.get_bits(), 16);
    EXPECT_EQ(r.get_rate(), 44100);
    std::string probed;
    ASSERT_EQ(test::run("ffprobe -v error -show_entries format=duration -of default=nw=1:nk=1 '" + f.string() + "'",
                        &probed),
              0);
    EXPECT_NEAR(r.get_length(), std::stod(probed) * 1000, 50);
    EXPECT_NEAR(r.get_duration(), std::stod(probed), 0.05);
    EXPECT_EQ(r.seconds_to_position(1.2345), 1234);
    EXPECT_DOUBLE_EQ(r.position_to_seconds(1500), 1.5);
    // ffmpeg made it at 64 kbit/s.
    EXPECT_EQ(r.get_bitrate(), 64000);
    // No start of its own.
    EXPECT_EQ(r.get_play_state(), 1);
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(r.get_position(), 0);
    EXPECT_FALSE(r.is_eof());
    // It delivers nothing and passes nothing on.
    PCMData out;
    r.get_data(out, 1000);
    EXPECT_TRUE(out.empty());
    EXPECT_FALSE(r.transfer_position(100));
    EXPECT_FALSE(r.transfer_seconds(0.1));
}

TEST_F(WMA, PlaysInMillisecondsAndTheEndIsSeenByPolling)
{
    FileReaderWMA r(wide(one("wma_stereo_44100.wma")));
    ASSERT_TRUE(r.is_open());
    const std::int32_t length = r.get_length();
    r.set_paused(false);
    std::this_thread::sleep_for(600ms);
    EXPECT_EQ(r.get_play_state(), 2);
    const std::int32_t first = r.get_position();
    EXPECT_GT(first, 300);
    EXPECT_LT(first, 1500);
    std::this_thread::sleep_for(400ms);
    const std::int32_t second = r.get_position();
    EXPECT_GT(second, first + 200);
    EXPECT_LT(second, first + 1200);
    r.set_paused(true);
    EXPECT_EQ(r.get_play_state(), 1);
    std::this_thread::sleep_for(300ms);
    const std::int32_t paused_at = r.get_position();
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(r.get_position(), paused_at);

    // Near the end, played through while polled.
    r.set_position(length - 800);
    r.set_paused(false);
    ASSERT_TRUE(poll_until_end(r, 5000ms));
    EXPECT_EQ(r.get_position(), length);
    EXPECT_EQ(r.get_play_state(), 0);
    std::this_thread::sleep_for(300ms);
    EXPECT_TRUE(r.is_eof());
    // A seek clears the end.
    r.set_position(1000);
    EXPECT_FALSE(r.is_eof());
    EXPECT_NEAR(r.get_position(), 1000, 300);
}

TEST_F(WMA, ASecondSourceStaysClosedWhileTheFirstLives)
{
    const auto f = one("wma_stereo_44100.wma");
    {
        FileReaderWMA first(wide(f));
        ASSERT_TRUE(first.is_open());
        FileReaderWMA second(wide(f));
        EXPECT_FALSE(second.is_open());
        EXPECT_EQ(second.get_length(), 0);
        EXPECT_TRUE(second.is_eof());
        EXPECT_EQ(second.get_play_state(), 0);
    }
    FileReaderWMA again(wide(f));
    EXPECT_TRUE(again.is_open());
}

TEST_F(WMA, ChainPlaysByItselfAndTheServiceRefusesWhatItCantRead)
{
    const auto f = one("wma_stereo_44100.wma");
    auto chain = std::make_unique<PlayChainWMA>(std::make_unique<FileReaderWMA>(wide(f)), wide(f), audio::kFormatWMA);
    ASSERT_TRUE(chain->get_reader()->is_open());
    EXPECT_EQ(chain->get_format(), audio::kFormatWMA);
    EXPECT_EQ(chain->get_title(), L"wma_stereo_44100.wma");
    EXPECT_FALSE(chain->uses_player());
    EXPECT_FALSE(chain->is_paused());
    EXPECT_TRUE(chain->set_paused(true));
    EXPECT_TRUE(chain->is_paused());
    PCMData out;
    chain->get_provider()->get_data(out, 16384);
    EXPECT_TRUE(out.empty());
    chain.reset();

    test::TempDir dir;
    std::string text;
    for (int i = 0; i < 200; ++i)
        text += "line " + std::to_string(i) + " of a text file named like sound\n";
    test::write_file(dir / "notes.wma", text);
    EXPECT_FALSE(FileReaderWMA(wide(dir / "notes.wma")).is_open());
    EXPECT_FALSE(FileReaderWMA(wide(dir / "missing.wma")).is_open());
}

TEST_F(WMA, GStreamersVorbisAndTremorLiveSideBySide)
{
    // The service decodes Ogg Vorbis with libvorbis while Tremor decodes the
    // same file in the same process.
    const auto f = one("vorbis_q3_stereo_44100.ogg");
    std::string alone;
    {
        audio::DecoderVorbis d(wide(f));
        for (PCMData r; d.get_data(r, 4096), !r.empty();)
            alone += audio_test::bytes_of(r.bytes);
    }
    FileReaderWMA service(wide(f));
    ASSERT_TRUE(service.is_open());
    EXPECT_FALSE(service.has_error());
    service.set_paused(false);
    std::string beside;
    audio::DecoderVorbis d(wide(f));
    for (PCMData r; d.get_data(r, 4096), !r.empty();)
        beside += audio_test::bytes_of(r.bytes);
    std::this_thread::sleep_for(300ms);
    EXPECT_GT(service.get_position(), 100);
    EXPECT_FALSE(service.has_error());
    EXPECT_EQ(beside, alone);
}

TEST_F(WMA, ALoadWithoutAnAnswerGivesUpAndCloses)
{
    // A pipe that gives a few bytes and then nothing: the service waits for
    // more and never answers.
    test::TempDir dir;
    const std::string fifo = (dir / "stuck.wma").string();
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const int fd = ::open(fifo.c_str(), O_RDWR);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::write(fd, "0&\xB2u", 4), 4);
    // Once the reader has given up, the pipe ends, so the service can stop.
    std::thread closer([fd] {
        std::this_thread::sleep_for(std::chrono::milliseconds(FileReaderWMA::kLoadTimeoutMs + 500));
        ::close(fd);
    });
    const auto start = std::chrono::steady_clock::now();
    FileReaderWMA r(liba::from_utf8(fifo));
    const auto waited = std::chrono::steady_clock::now() - start;
    closer.join();
    EXPECT_FALSE(r.is_open());
    EXPECT_GE(waited, std::chrono::milliseconds(FileReaderWMA::kLoadTimeoutMs));
    EXPECT_EQ(r.get_position(), 0);
    FileReaderWMA next(wide(one("wma_stereo_44100.wma")));
    EXPECT_FALSE(next.is_open()) << "the stuck reader still lives";
}

} // namespace

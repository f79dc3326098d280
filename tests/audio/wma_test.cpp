#include "audio/decoder_vorbis.h"
#include "audio/file_reader_wma.h"
#include "audio/media_service_samples.h"
#include "audio/play_chain.h"
#include "audio/play_chain_wma.h"
#include "liba/text.h"

#include "audio_test_util.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using audio::FileReaderWMA;
using audio::PCMData;
using namespace std::chrono_literals;

namespace {

using audio_test::one;
using audio_test::wide;

// The media service plays in real time into nothing.
class WMA : public ::testing::Test {
protected:
    void SetUp() override { FileReaderWMA::set_audio_sink("fakesink sync=true"); }
    void TearDown() override
    {
        FileReaderWMA::set_audio_sink("");
        FileReaderWMA::set_load_timeout_ms(FileReaderWMA::kLoadTimeoutMs);
        audio::MediaServiceSamples::set_patience_ms(audio::MediaServiceSamples::kPatienceMs);
    }
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

TEST_F(WMA, ReportsTheFixedFormatLoadsPausedAndPlaysInMillisecondsToAPolledEnd)
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

    // Started, it plays in milliseconds.
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

// A pipe that gives `bytes` (64 KiB at most: what it holds) and then
// nothing while it stays open, as a file on a stalled share would. The
// service's reading thread is stuck in it until it ends, and the service
// can't stop before that: it ends after `open_ms`.
class StalledPipe {
public:
    StalledPipe(const test::TempDir& dir, const std::string& bytes, int open_ms)
        : path((dir / "stalled.wma").string())
    {
        std::filesystem::remove(path);
        EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
        const int fd = ::open(path.c_str(), O_RDWR);
        EXPECT_GE(fd, 0);
        EXPECT_EQ(::write(fd, bytes.data(), bytes.size()), ssize_t(bytes.size()));
        closer = std::thread([fd, open_ms] {
            std::this_thread::sleep_for(std::chrono::milliseconds(open_ms));
            ::close(fd);
        });
    }
    ~StalledPipe() { closer.join(); }
    std::string path;

private:
    std::thread closer;
};

TEST_F(WMA, ALoadOrAReadWithoutAnAnswerGivesUp)
{
    // Shortened from ten seconds, so that the test waits a little only.
    constexpr int kPatienceMs = 1500;
    FileReaderWMA::set_load_timeout_ms(kPatienceMs);
    audio::MediaServiceSamples::set_patience_ms(kPatienceMs);
    test::TempDir dir;
    for (int i = 0; i < 2; ++i) {
        // The first bytes of a header, then nothing: no load is answered.
        StalledPipe pipe(dir, std::string("0&\xB2u", 4), kPatienceMs + 500);
        const auto start = std::chrono::steady_clock::now();
        bool open = true;
        if (i == 0) {
            FileReaderWMA r(liba::from_utf8(pipe.path));
            open = r.is_open();
            EXPECT_EQ(r.get_position(), 0);
            // Closed, it still counts as the one that lives.
            EXPECT_FALSE(FileReaderWMA(wide(one("wma_stereo_44100.wma"))).is_open());
        } else {
            audio::MediaServiceSamples samples(liba::from_utf8(pipe.path));
            open = samples.is_open();
            EXPECT_NE(samples.error().find("no answer"), std::string::npos) << samples.error();
        }
        EXPECT_FALSE(open) << i;
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(kPatienceMs));
    }
    // Two thirds of the file, then nothing: the load is answered, the reads
    // give what came and then give up.
    const std::string whole = test::read_file(one("wma_stereo_44100.wma"));
    StalledPipe pipe(dir, whole.substr(0, whole.size() * 2 / 3), 3 * kPatienceMs);
    audio::MediaServiceSamples samples(liba::from_utf8(pipe.path));
    ASSERT_TRUE(samples.is_open()) << samples.error();
    std::string got;
    for (double at = 0; samples.read(got, &at);) {
    }
    EXPECT_GT(got.size(), 44100u * 4);
    EXPECT_EQ(samples.error(), "the media service stopped giving samples");
}

TEST_F(WMA, AFileThatBreaksInMidStreamEndsCleanly)
{
    // Cut short with head, and with a stretch cut out of its middle by dd.
    const auto f = one("wma_stereo_44100.wma");
    const auto size = std::filesystem::file_size(f);
    test::TempDir dir;
    const std::string q = "'" + f.string() + "' ";
    ASSERT_EQ(test::run("head -c " + std::to_string(size * 2 / 3) + " " + q + "> '" + (dir / "short.wma").string() + "'"),
              0);
    ASSERT_EQ(test::run("{ dd if=" + q + "bs=1000 count=20 && dd if=" + q + "bs=1000 skip=27; } 2>/dev/null > '" +
                        (dir / "holed.wma").string() + "'"),
              0);
    const auto whole = [&] {
        audio::MediaServiceSamples s(wide(f));
        std::string all;
        for (double at = 0; s.read(all, &at);) {
        }
        return all.size();
    }();
    for (const char* name : {"short.wma", "holed.wma"}) {
        SCOPED_TRACE(name);
        audio::MediaServiceSamples samples(wide(dir / name));
        ASSERT_TRUE(samples.is_open()) << samples.error();
        std::string got;
        for (double at = 0; samples.read(got, &at);) {
        }
        std::printf("%s: %zu of %zu bytes of samples, error \"%s\"\n", name, got.size(), whole,
                    samples.error().c_str());
        EXPECT_GT(got.size(), whole / 3);
        EXPECT_LT(got.size(), whole);

        // Played from a second before the damage, the service stops and the
        // poll sees the end.
        FileReaderWMA r(wide(dir / name));
        ASSERT_TRUE(r.is_open());
        const double damage = std::string(name) == "short.wma" ? 2.0 / 3 : 20000.0 / double(size);
        r.set_position(std::max(std::int32_t(r.get_length() * damage) - 1000, 0));
        r.set_paused(false);
        EXPECT_TRUE(poll_until_end(r, 6000ms) || r.has_error());
        EXPECT_EQ(r.get_play_state(), 0);
    }
}

} // namespace

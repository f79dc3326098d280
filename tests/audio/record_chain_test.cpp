// Every row of the recording formats, recorded from SDL's disk capture driver
// through the active buffer into its chain, and read back by sox and ffprobe.
#include "audio/active_buffer.h"
#include "audio/adpcm_codec.h"
#include "audio/play_chain.h"
#include "audio/record_chain.h"
#include "audio/recorder_pcm.h"
#include "tests/audio/audio_test_util.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <map>
#include <sstream>
#include <thread>

using audio::PCMData;

namespace {

struct Row {
    const wchar_t* codec;
    int bits;
    int rate;
    int bit_rate;
    const char* ffprobe_codec;
};

// The rows users choose from, all mono.
const Row kRows[] = {
    {L"GSM", 16, 8000, 13000, "gsm_ms"},       {L"mp3", 16, 8000, 16000, "mp3"},
    {L"mp3", 16, 11025, 16000, "mp3"},         {L"mp3", 16, 11025, 32000, "mp3"},
    {L"mp3", 16, 22050, 32000, "mp3"},         {L"mp3", 16, 44100, 64000, "mp3"},
    {L"mp3", 16, 44100, 96000, "mp3"},         {L"ADPCM", 16, 11025, 44000, "adpcm_ms"},
    {L"ADPCM", 16, 22050, 88000, "adpcm_ms"},  {L"ADPCM", 16, 44100, 176000, "adpcm_ms"},
    {L"PCM", 8, 11025, 88000, "pcm_u8"},       {L"PCM", 16, 11025, 176000, "pcm_s16le"},
    {L"PCM", 8, 22050, 176000, "pcm_u8"},      {L"PCM", 16, 22050, 344000, "pcm_s16le"},
    {L"PCM", 16, 44100, 688000, "pcm_s16le"},
};

// Passes records on and keeps a copy of all that went through.
class Tap : public audio::Processor<PCMData> {
public:
    std::string bytes;
    std::atomic<std::size_t> size{0};

protected:
    void process(PCMData& out, const PCMData& in) override
    {
        bytes += audio_test::bytes_of(in.bytes);
        size = bytes.size();
        out = in;
    }
};

// The audio stream's fields as ffprobe reads them, "key=value" a line.
std::map<std::string, std::string> probe(const std::filesystem::path& file)
{
    std::string out;
    test::run("ffprobe -v error -select_streams a:0 -show_entries stream=codec_name,sample_rate,channels,bit_rate"
              " -of default=noprint_wrappers=1 '" + file.string() + "'",
              &out);
    std::map<std::string, std::string> fields;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
        if (auto eq = line.find('='); eq != std::string::npos)
            fields[line.substr(0, eq)] = line.substr(eq + 1);
    }
    return fields;
}

// Records the speech clip, taken from the disk device in the row's format,
// into `file`; returns the bytes that reached the active buffer.
std::string record(const Row& row, const std::filesystem::path& file, const test::TempDir& dir)
{
    const std::size_t input = audio_test::speech_raw(dir / "in.raw", row.rate, row.bits, 1, "trim 0 2.5").size();
    audio_test::use_disk_audio(dir / "played.raw", 1, dir / "in.raw");

    Tap tap;
    audio::ActiveBuffer buffer;
    auto chain = audio::create_record_chain(audio_test::wide(file), row.codec, 1, row.bits, row.rate,
                                            row.bit_rate, false);
    EXPECT_TRUE(chain);
    if (!chain)
        return {};
    EXPECT_EQ(chain->get_format(), row.codec);
    auto rec = std::make_unique<audio::RecorderPCM>(1, row.rate, row.bits);
    audio::connect(*rec, &tap);
    audio::connect(tap, &buffer);
    audio::connect(buffer, chain->get_consumer());
    EXPECT_TRUE(rec->start());
    EXPECT_TRUE(audio_test::wait_until([&] { return tap.size >= input; }));
    // The stop of a recording, in its order.
    audio::connect(*rec, nullptr);
    rec.reset();
    EXPECT_TRUE(audio_test::wait_until([&] { return buffer.queued_records() == 0; }));
    EXPECT_TRUE(chain->get_writer()->is_good());
    audio::connect(buffer, nullptr);
    if (row.codec == std::wstring(L"PCM")) {
        EXPECT_EQ(chain->get_encoder()->get_bitrate(), row.rate * row.bits);
    } else if (row.codec == std::wstring(L"mp3")) {
        EXPECT_EQ(chain->get_encoder()->get_bitrate(), row.bit_rate);
    }
    chain.reset();
    return tap.bytes;
}

} // namespace

TEST(RecordChain, EveryFormatRowRecordsWhatWasCapturedAsSoxAndFfprobeReadIt)
{
    for (const Row& row : kRows) {
        const std::string name = liba::to_utf8(row.codec) + "_" + std::to_string(row.rate) + "_" +
                                 std::to_string(row.bits) + "_" + std::to_string(row.bit_rate);
        SCOPED_TRACE(name);
        test::TempDir dir;
        const bool mp3 = row.codec == std::wstring(L"mp3");
        const std::filesystem::path file = dir / (name + (mp3 ? ".mp3" : ".wav"));
        const std::string captured = record(row, file, dir);
        ASSERT_FALSE(captured.empty());
        std::map<std::string, std::string> stream = probe(file);
        EXPECT_EQ(stream["codec_name"], row.ffprobe_codec);
        EXPECT_EQ(stream["sample_rate"], std::to_string(row.rate));
        EXPECT_EQ(stream["channels"], "1");
        const std::string f = "'" + file.string() + "'";
        if (row.codec == std::wstring(L"PCM")) {
            // Linear PCM holds exactly what was captured.
            std::string samples;
            const std::string enc = row.bits == 8 ? "unsigned-integer" : "signed-integer";
            EXPECT_EQ(test::run("sox " + f + " -t raw -e " + enc + " -", &samples), 0);
            EXPECT_TRUE(samples == captured) << samples.size() << " bytes, captured " << captured.size();
            continue;
        }
        const std::vector<std::int16_t> ours = audio_test::samples_of(captured);
        const std::vector<std::int16_t> decoded =
            audio_test::reference_samples("ffmpeg -v error -i " + f + " -f s16le -ac 1 -");
        const long short_by = static_cast<long>(ours.size()) - static_cast<long>(decoded.size());
        if (mp3) {
            EXPECT_EQ(stream["bit_rate"], std::to_string(row.bit_rate));
            // The encoder's tail is dropped: up to about three frames, and
            // LAME's start delay (576 + 529 samples) of what it holds.
            const long frame = row.rate >= 32000 ? 1152 : 576;
            EXPECT_LE(short_by, 3 * frame + 1105);
            EXPECT_GE(short_by, 0);
        } else {
            // Block codecs drop the last, unfinished block only.
            const long block = row.codec == std::wstring(L"GSM")
                                   ? 320
                                   : audio::adpcm_samples_per_block(audio::adpcm_block_size(1, row.rate), 1, 4);
            EXPECT_GE(short_by, 0);
            EXPECT_LT(short_by, block);
            EXPECT_GT(audio_test::snr_db(decoded, ours), row.codec == std::wstring(L"GSM") ? 3.0 : 10.0);
        }
    }
}

TEST(RecordChain, IsMadeLikeAModelOnlyInTheFormatsThatCanBeWritten)
{
    test::TempDir dir;
    const std::filesystem::path target = dir / "target.wav";
    std::int32_t length = -1;
    for (const char* model : {"vorbis_q3_stereo_44100.ogg", "musepack_stereo_44100.mpc"}) {
        EXPECT_FALSE(audio::create_record_chain_like(audio_test::wide(audio_test::one(model)),
                                                     audio_test::wide(target), false, &length))
            << model;
        EXPECT_FALSE(std::filesystem::exists(target)) << model;
    }
    EXPECT_FALSE(audio::create_record_chain(audio_test::wide(target), L"Vorbis", 1, 16, 22050, 0, false));
    const struct {
        const char* model;
        const wchar_t* format;
    } cases[] = {{"pcm_u8_mono_22050.wav", L"PCM"},
                 {"adpcm_mono_8000.wav", L"ADPCM"},
                 {"gsm_mono_8000.wav", L"GSM"},
                 {"mp3_cbr64_16000.mp3", L"mp3"}};
    for (const auto& c : cases) {
        const std::wstring model = audio_test::wide(audio_test::one(c.model));
        auto chain = audio::create_record_chain_like(model, audio_test::wide(target), false, &length);
        ASSERT_TRUE(chain) << c.model;
        EXPECT_EQ(chain->get_format(), c.format);
        auto play = audio::create_play_chain(model, nullptr);
        EXPECT_EQ(length, play->get_reader()->get_length()) << c.model;
    }
}

// The file writers: what they write is read back by sox and ffprobe (format,
// rate, channels, length), PCM bit for bit; ADPCM and GSM files of ours
// decode in sox; appending keeps the old audio; a full file system (a file
// size limit) leaves a valid file cut at a unit boundary; the MP3 writer's
// cache and append.
#include "audio/adpcm_codec.h"
#include "audio/file_reader_mp3.h"
#include "audio/file_reader_wav.h"
#include "audio/file_writer_mp3.h"
#include "audio/file_writer_wav.h"
#include "audio/gsm_codec.h"
#include "liba/text.h"

#include "audio_test_util.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;
using audio::ADPCMData;
using audio::GSMData;
using audio::PCMData;
using audio_test::Reference;
using test::le;
using test::sox16;
using test::wide;

namespace {

std::string q(const fs::path& p) { return "'" + p.string() + "'"; }

std::string trimmed(std::string s)
{
    while (!s.empty() && (s.back() == '\n' || s.back() == ' '))
        s.pop_back();
    return s;
}

std::string soxi(const fs::path& f, const std::string& flag)
{
    std::string out;
    EXPECT_EQ(test::run("soxi " + flag + " " + q(f), &out), 0) << f;
    return trimmed(out);
}

// codec_name, sample_rate and channels of the first stream, one a line.
std::string ffprobe(const fs::path& f)
{
    std::string out;
    EXPECT_EQ(test::run("ffprobe -v error -show_entries stream=codec_name,sample_rate,channels -of "
                        "default=nw=1 " + q(f),
                        &out),
              0)
        << f;
    return trimmed(out);
}

std::string probe_line(const std::string& codec, int rate, int channels)
{
    return "codec_name=" + codec + "\nsample_rate=" + std::to_string(rate) + "\nchannels=" +
           std::to_string(channels);
}

// The samples as sox reads them, in the width the file stores them.
std::string sox_raw(const fs::path& f) { return audio_test::sox_file(f).bytes; }

// Pushes `ref` in records of `frames` frames, the first one `first` frames.
void push_pcm(audio::Consumer<PCMData>& to, const Reference& ref, std::size_t first, std::size_t frames)
{
    const std::size_t frame = static_cast<std::size_t>(ref.channels * ((ref.bits + 7) / 8));
    std::size_t at = 0, n = first;
    while (at < ref.bytes.size()) {
        to.on_data(audio_test::pcm_of(ref, at, n * frame));
        at += n * frame;
        n = frames;
    }
}

// The blocks an encoder makes of `ref`, 5000 frames a record.
template <class Encoder, class Data>
std::vector<Data> encode(const Reference& ref)
{
    Encoder e;
    return audio_test::push_through<Data>(e, audio_test::cut_records(ref, 5000));
}

// Runs `work` in a child whose files may not grow past `limit` bytes; a write
// across the limit fails with EFBIG instead of a signal. The child's exit
// status is what `work` returns.
int with_file_size_limit(std::int64_t limit, const std::function<int()>& work)
{
    pid_t pid = ::fork();
    if (pid == 0) {
        ::signal(SIGXFSZ, SIG_IGN);
        rlimit rl{static_cast<rlim_t>(limit), static_cast<rlim_t>(limit)};
        if (::setrlimit(RLIMIT_FSIZE, &rl) != 0)
            ::_exit(100);
        ::_exit(work());
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 200;
}

} // namespace

TEST(FileWriterWAVPCM, WritesWhatSoxReadsBackBitForBit)
{
    test::TempDir dir;
    for (const char* name : {"pcm_u8_mono_22050.wav", "pcm_u8_stereo_11025.wav", "pcm_s16_stereo_44100.wav",
                             "pcm_s16_speech_16000.wav", "pcm_s16_3ch_8000.wav"}) {
        SCOPED_TRACE(name);
        const Reference ref = audio_test::sox_reference(name);
        const fs::path out = dir / (std::string("out_") + name);
        const std::size_t frame = static_cast<std::size_t>(ref.channels * ((ref.bits + 7) / 8));
        audio_test::Sink<PCMData> behind;
        {
            audio::FileWriterWAVPCM w(wide(out), false);
            audio::connect(w, &behind);
            EXPECT_TRUE(w.is_good());
            EXPECT_FALSE(fs::exists(out)) << "made before the first record";
            push_pcm(w, ref, 1234, 5000);
            EXPECT_TRUE(w.is_good());
            EXPECT_EQ(w.get_position(), static_cast<std::int32_t>(ref.bytes.size()));
            EXPECT_EQ(w.get_bitrate(), ref.rate * static_cast<int>(frame) * 8);
            audio::connect(w, nullptr);
        }
        // The writer hands every record on unchanged.
        EXPECT_EQ(behind.all_bytes(), ref.bytes);
        EXPECT_EQ(sox_raw(out), ref.bytes);
        EXPECT_EQ(soxi(out, "-r"), std::to_string(ref.rate));
        EXPECT_EQ(soxi(out, "-c"), std::to_string(ref.channels));
        EXPECT_EQ(soxi(out, "-b"), std::to_string(ref.bits));
        EXPECT_EQ(soxi(out, "-s"), std::to_string(ref.bytes.size() / frame));
        EXPECT_EQ(ffprobe(out), probe_line(ref.bits == 8 ? "pcm_u8" : "pcm_s16le", ref.rate, ref.channels));
        EXPECT_EQ(fs::file_size(out), 44 + ref.bytes.size());
        audio::FileReaderWAVPCM r(wide(out));
        ASSERT_TRUE(r.is_open());
        EXPECT_EQ(r.get_length(), static_cast<std::int32_t>(ref.bytes.size()));
    }
}

TEST(FileWriterWAVPCM, MakesNoFileWithoutRecordsAndKeepsItsFirstFormat)
{
    test::TempDir dir;
    const Reference s16 = audio_test::sox_reference("pcm_s16_mono_8000.wav");
    const Reference u8 = audio_test::sox_reference("pcm_u8_mono_22050.wav");
    {
        audio::FileWriterWAVPCM w(wide(dir / "none.wav"), false);
        w.on_data(PCMData()); // an empty record is no record
    }
    EXPECT_FALSE(fs::exists(dir / "none.wav"));

    const fs::path out = dir / "mixed.wav";
    {
        audio::FileWriterWAVPCM w(wide(out), false);
        w.on_data(audio_test::pcm_of(s16, 0, 2000));
        w.on_data(audio_test::pcm_of(u8, 0, 3000)); // another format: dropped
        w.on_data(audio_test::pcm_of(s16, 2000, 4000));
        EXPECT_TRUE(w.is_good());
        EXPECT_EQ(w.get_position(), 6000);
    }
    EXPECT_EQ(sox_raw(out), s16.bytes.substr(0, 6000));
    EXPECT_EQ(soxi(out, "-r"), "8000");

    // A folder that isn't there: the writer fails at its first record.
    audio::FileWriterWAVPCM bad(wide(dir / "no" / "such.wav"), false);
    EXPECT_TRUE(bad.is_good());
    bad.on_data(audio_test::pcm_of(s16, 0, 2000));
    EXPECT_FALSE(bad.is_good());
}

// Writes the blocks the encoder makes of `source` and checks the file as
// ffprobe and sox see it. That sox decodes the blocks as our decoder does is
// checked with the codecs.
template <class Writer, class Encoder, class Data>
void expect_block_file(const char* source, std::size_t block_bytes, std::size_t spb, const char* codec,
                       const char* encoding)
{
    SCOPED_TRACE(source);
    test::TempDir dir;
    const Reference ref = audio_test::sox_reference(source);
    const auto blocks = encode<Encoder, Data>(ref);
    const fs::path out = dir / "out.wav";
    std::size_t count = 0;
    {
        Writer w(wide(out), false);
        for (const auto& b : blocks) {
            w.on_data(b);
            count += b.bytes.size() / block_bytes;
        }
        EXPECT_TRUE(w.is_good());
        EXPECT_EQ(w.get_position(), static_cast<std::int32_t>(count));
    }
    const auto channels = static_cast<std::size_t>(ref.channels);
    EXPECT_EQ(count, ref.bytes.size() / (2 * channels) / spb);
    EXPECT_EQ(ffprobe(out), probe_line(codec, ref.rate, ref.channels));
    EXPECT_EQ(soxi(out, "-e"), encoding);
    EXPECT_EQ(soxi(out, "-s"), std::to_string(count * spb));
    EXPECT_EQ(sox16(out).size(), count * spb * channels * 2);
}

TEST(FileWriterWAV, BlockFilesHoldWholeBlocksThatSoxAndFfprobeRead)
{
    expect_block_file<audio::FileWriterWAVADPCM, audio::EncoderADPCM, ADPCMData>("pcm_s16_speech_16000.wav", 256, 500,
                                                                                 "adpcm_ms", "MS ADPCM");
    expect_block_file<audio::FileWriterWAVADPCM, audio::EncoderADPCM, ADPCMData>(
        "pcm_s16_speech_stereo_44100.wav", 2048, 2036, "adpcm_ms", "MS ADPCM");
    expect_block_file<audio::FileWriterWAVGSM, audio::EncoderGSM, GSMData>("pcm_s16_speech_8000.wav", 65, 320,
                                                                           "gsm_ms", "GSM");
}

TEST(FileWriterWAV, AppendContinuesTheFileWithTheOldAudioUntouched)
{
    test::TempDir dir;
    // PCM of our own, in two sittings.
    const Reference ref = audio_test::sox_reference("pcm_s16_speech_16000.wav");
    const std::size_t half = ref.bytes.size() / 2 & ~std::size_t(1);
    const fs::path pcm = dir / "pcm.wav";
    {
        audio::FileWriterWAVPCM w(wide(pcm), false);
        w.on_data(audio_test::pcm_of(ref, 0, half));
    }
    const std::string before = test::read_file(pcm);
    {
        audio::FileWriterWAVPCM w(wide(pcm), true);
        EXPECT_TRUE(w.is_good());
        EXPECT_EQ(w.get_position(), static_cast<std::int32_t>(half));
        w.on_data(audio_test::pcm_of(ref, half, ref.bytes.size() - half));
        EXPECT_EQ(w.get_position(), static_cast<std::int32_t>(ref.bytes.size()));
    }
    const std::string after = test::read_file(pcm);
    EXPECT_EQ(after.substr(44, half), before.substr(44));
    EXPECT_EQ(sox_raw(pcm), ref.bytes);

    // ffmpeg's file with a LIST chunk before "data" keeps it in its place.
    const Reference tone = audio_test::sox_reference("pcm_s16_mono_22050.wav");
    const fs::path listed = dir / "listed.wav";
    fs::copy_file(test::media("list_pcm_s16_mono_22050.wav").at(0), listed);
    const std::string old = test::read_file(listed);
    const std::size_t data_at = old.find("data") + 8;
    {
        audio::FileWriterWAVPCM w(wide(listed), true);
        EXPECT_TRUE(w.is_good());
        push_pcm(w, tone, 5000, 5000);
    }
    const std::string grown = test::read_file(listed);
    EXPECT_EQ(grown.substr(8, data_at - 12), old.substr(8, data_at - 12));
    EXPECT_EQ(grown.substr(data_at, old.size() - data_at), old.substr(data_at));
    EXPECT_EQ(sox_raw(listed), sox_raw(test::media("list_pcm_s16_mono_22050.wav").at(0)) + tone.bytes);

    // sox pads odd 8-bit data with a byte behind the chunk; appending cuts it.
    const Reference u8 = audio_test::sox_reference("pcm_u8_mono_22050.wav");
    ASSERT_EQ(u8.bytes.size() % 2, 1u);
    const fs::path padded = dir / "padded.wav";
    fs::copy_file(test::media("pcm_u8_mono_22050.wav").at(0), padded);
    ASSERT_EQ(fs::file_size(padded), 44 + u8.bytes.size() + 1);
    {
        audio::FileWriterWAVPCM w(wide(padded), true);
        push_pcm(w, u8, 5000, 5000);
    }
    EXPECT_EQ(sox_raw(padded), u8.bytes + u8.bytes);
    EXPECT_EQ(fs::file_size(padded), 44 + 2 * u8.bytes.size());

    // A header that claims more than the file holds: the file is extended.
    const fs::path cut = dir / "cut.wav";
    fs::copy_file(pcm, cut);
    fs::resize_file(cut, 44 + 1000);
    {
        audio::FileWriterWAVPCM w(wide(cut), true);
        w.on_data(audio_test::pcm_of(ref, 0, 100));
    }
    EXPECT_EQ(fs::file_size(cut), 44 + ref.bytes.size() + 100);

    // ADPCM and GSM continue their block count and their "fact" chunk.
    const Reference speech8 = audio_test::sox_reference("pcm_s16_speech_8000.wav");
    const auto ablocks = encode<audio::EncoderADPCM, ADPCMData>(speech8);
    const fs::path adpcm = dir / "adpcm.wav";
    {
        audio::FileWriterWAVADPCM w(wide(adpcm), false);
        w.on_data(ablocks[0]);
    }
    const std::string adpcm_before = test::read_file(adpcm);
    const std::string decoded_before = sox16(adpcm);
    {
        audio::FileWriterWAVADPCM w(wide(adpcm), true);
        EXPECT_TRUE(w.is_good());
        EXPECT_EQ(w.get_position(), static_cast<std::int32_t>(ablocks[0].bytes.size() / 256));
        for (std::size_t i = 1; i < ablocks.size(); ++i)
            w.on_data(ablocks[i]);
    }
    const std::string adpcm_after = test::read_file(adpcm);
    EXPECT_EQ(adpcm_after.substr(90, adpcm_before.size() - 90), adpcm_before.substr(90));
    const std::size_t ablock_count = (adpcm_after.size() - 90) / 256;
    EXPECT_EQ(le(adpcm_after, 78), ablock_count * 500); // fact
    EXPECT_EQ(sox16(adpcm).substr(0, decoded_before.size()), decoded_before);
    EXPECT_EQ(soxi(adpcm, "-s"), std::to_string(ablock_count * 500));

    const auto gblocks = encode<audio::EncoderGSM, GSMData>(speech8);
    const fs::path gsm = dir / "gsm.wav";
    {
        audio::FileWriterWAVGSM w(wide(gsm), false);
        w.on_data(gblocks[0]);
    }
    const std::string gsm_before = test::read_file(gsm);
    {
        audio::FileWriterWAVGSM w(wide(gsm), true);
        EXPECT_EQ(w.get_position(), static_cast<std::int32_t>(gblocks[0].bytes.size() / 65));
        for (std::size_t i = 1; i < gblocks.size(); ++i)
            w.on_data(gblocks[i]);
    }
    const std::string gsm_after = test::read_file(gsm);
    EXPECT_EQ(gsm_after.substr(0, 4), "RIFF");
    EXPECT_EQ(gsm_after.substr(60, gsm_before.size() - 60), gsm_before.substr(60));
    EXPECT_EQ(soxi(gsm, "-s"), std::to_string((gsm_after.size() - 60) / 65 * 320));

    // A file that isn't of the writer's kind is refused and left as it was.
    const fs::path mp3 = dir / "not.wav";
    fs::copy_file(test::media("mp3_cbr64_16000.mp3").at(0), mp3);
    const std::string mp3_bytes = test::read_file(mp3);
    {
        audio::FileWriterWAVPCM w(wide(mp3), true);
        EXPECT_FALSE(w.is_good());
        w.on_data(audio_test::pcm_of(ref, 0, 100));
    }
    EXPECT_EQ(test::read_file(mp3), mp3_bytes);
    {
        audio::FileWriterWAVGSM w(wide(pcm), true); // PCM is no GSM
        EXPECT_FALSE(w.is_good());
    }
    EXPECT_EQ(sox_raw(pcm), ref.bytes);
}

TEST(FileWriterWAV, FullFileSystemLeavesAValidFileCutAtAUnitBoundary)
{
    test::TempDir dir;
    // PCM: 16-bit stereo, the limit 3 bytes into a frame.
    const Reference ref = audio_test::sox_reference("pcm_s16_speech_stereo_44100.wav");
    const fs::path pcm = dir / "pcm.wav";
    int rc = with_file_size_limit(44 + 4 * 30000 + 3, [&] {
        audio::FileWriterWAVPCM w(wide(pcm), false);
        push_pcm(w, ref, 5000, 5000);
        if (w.is_good())
            return 1;
        if (w.get_position() != 4 * 30000)
            return 2;
        return 0;
    });
    EXPECT_EQ(rc, 0);
    std::string file = test::read_file(pcm);
    EXPECT_EQ(file.size(), 44u + 4 * 30000);
    EXPECT_EQ(le(file, 40), 4u * 30000);
    EXPECT_EQ(le(file, 4), file.size() - 8);
    EXPECT_EQ(sox_raw(pcm), ref.bytes.substr(0, 4 * 30000));

    // ADPCM: the limit in the middle of a block.
    const Reference speech = audio_test::sox_reference("pcm_s16_speech_16000.wav");
    const auto ablocks = encode<audio::EncoderADPCM, ADPCMData>(speech);
    const int bs = ablocks[0].block_size;
    const fs::path adpcm = dir / "adpcm.wav";
    rc = with_file_size_limit(90 + 7 * bs + bs / 2, [&] {
        audio::FileWriterWAVADPCM w(wide(adpcm), false);
        for (const auto& b : ablocks)
            w.on_data(b);
        return w.is_good() ? 1 : w.get_position() == 7 ? 0 : 2;
    });
    EXPECT_EQ(rc, 0);
    file = test::read_file(adpcm);
    EXPECT_EQ(file.size(), 90u + 7 * static_cast<std::size_t>(bs));
    const int spb = audio::adpcm_samples_per_block(bs, 1, 4);
    EXPECT_EQ(soxi(adpcm, "-s"), std::to_string(7 * spb));
    EXPECT_EQ(sox16(adpcm).size(), 7u * static_cast<std::size_t>(spb) * 2);

    // GSM likewise.
    const Reference speech8 = audio_test::sox_reference("pcm_s16_speech_8000.wav");
    const auto gblocks = encode<audio::EncoderGSM, GSMData>(speech8);
    const fs::path gsm = dir / "gsm.wav";
    rc = with_file_size_limit(60 + 65 * 20 + 30, [&] {
        audio::FileWriterWAVGSM w(wide(gsm), false);
        for (const auto& b : gblocks)
            w.on_data(b);
        return w.is_good() ? 1 : w.get_position() == 20 ? 0 : 2;
    });
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(fs::file_size(gsm), 60u + 65 * 20);
    EXPECT_EQ(soxi(gsm, "-s"), std::to_string(20 * 320));
    EXPECT_EQ(ffprobe(gsm), probe_line("gsm_ms", 8000, 1));
}

TEST(FileWriterMP3, CopiesFramesThroughItsCacheAndAppends)
{
    test::TempDir dir;
    const fs::path src = test::media("long_44100_160_stereo.mp3").at(0);
    const std::string src_bytes = test::read_file(src);
    const fs::path out = dir / "copy.mp3";
    std::string frames;
    {
        audio::FileWriterMP3 w(wide(out), false);
        EXPECT_TRUE(fs::exists(out)) << "an MP3 file is made at once";
        EXPECT_TRUE(w.is_good());
        // Every frame of the source, through the reader, twice over, so the
        // cache fills and goes to the file.
        for (int pass = 0; pass < 2; ++pass) {
            audio::FileReaderMP3 r(wide(src));
            ASSERT_TRUE(r.is_open());
            audio_test::Sink<audio::MP3Data> tap;
            audio::connect(r, &tap);
            // The whole file: the transfer ends at the last frame, short of
            // the length, which counts the bytes of the file.
            r.transfer_position(r.get_length());
            audio::connect(r, nullptr);
            for (const auto& f : tap.records) {
                frames += audio_test::bytes_of(f.bytes).substr(0, static_cast<std::size_t>(f.frame_size));
                w.on_data(f);
                const std::size_t on_disk = fs::file_size(out);
                // Nothing reaches the card until the cache would overflow.
                EXPECT_LE(frames.size() - on_disk, static_cast<std::size_t>(audio::FileWriterMP3::kCacheSize));
                if (frames.size() <= static_cast<std::size_t>(audio::FileWriterMP3::kCacheSize)) {
                    EXPECT_EQ(on_disk, 0u);
                }
            }
        }
        EXPECT_GT(frames.size(), static_cast<std::size_t>(audio::FileWriterMP3::kCacheSize));
        EXPECT_GT(fs::file_size(out), 0u);
        EXPECT_EQ(w.get_position(), static_cast<std::int32_t>(frames.size()));
    }
    EXPECT_EQ(test::read_file(out), frames);
    // The frames are the source's, all of them but its tags.
    EXPECT_NE(src_bytes.find(frames.substr(0, frames.size() / 2)), std::string::npos);

    // Appending goes on at the end of the file.
    {
        audio::FileWriterMP3 w(wide(out), true);
        EXPECT_EQ(w.get_position(), static_cast<std::int32_t>(frames.size()));
        audio::FileReaderMP3 r(wide(src));
        audio::connect(r, &w);
        r.transfer_position(r.get_length());
        audio::connect(r, nullptr);
    }
    EXPECT_EQ(test::read_file(out), frames + frames.substr(0, frames.size() / 2));
    std::string decoded;
    EXPECT_EQ(test::run("ffprobe -v error -show_entries stream=codec_name,sample_rate,channels -of "
                        "default=nw=1 " + q(out), &decoded), 0);
    EXPECT_EQ(trimmed(decoded), probe_line("mp3", 44100, 2));

    // A frame larger than the cache goes straight to the file, once what was
    // cached has gone before it; a cache filled exactly waits for the next.
    const fs::path big = dir / "big.mp3";
    const std::string huge_bytes(audio::FileWriterMP3::kCacheSize + 1, 'x');
    const std::string fill(audio::FileWriterMP3::kCacheSize - 3, 'y');
    {
        audio::FileWriterMP3 w(wide(big), false);
        audio::MP3Data small{liba::ByteBlock("abc", 3), 3};
        audio::MP3Data huge{liba::ByteBlock(huge_bytes.data(), huge_bytes.size()),
                            static_cast<std::int32_t>(huge_bytes.size())};
        // A record's bytes may run past its frame: only the frame is taken.
        audio::MP3Data rest{liba::ByteBlock((fill + "zz").data(), fill.size() + 2),
                            static_cast<std::int32_t>(fill.size())};
        w.on_data(small);
        w.on_data(huge);
        EXPECT_EQ(fs::file_size(big), 3u + huge_bytes.size());
        w.on_data(small);
        w.on_data(rest);
        EXPECT_EQ(fs::file_size(big), 3u + huge_bytes.size());
        w.on_data(small);
        EXPECT_EQ(fs::file_size(big), 3u + huge_bytes.size() + audio::FileWriterMP3::kCacheSize);
        EXPECT_EQ(w.get_position(), static_cast<std::int32_t>(9 + huge_bytes.size() + fill.size()));
    }
    EXPECT_EQ(test::read_file(big), "abc" + huge_bytes + "abc" + fill + "abc");

    audio::FileWriterMP3 nowhere(wide(dir / "no" / "such.mp3"), false);
    EXPECT_FALSE(nowhere.is_good());
}

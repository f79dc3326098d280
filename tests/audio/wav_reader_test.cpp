// The WAV header and the PCM reader against sox, the chunk shapes the readers
// take and refuse, and what damaged and degenerate files do to all three
// readers. The block readers' decoding is in adpcm_codec_test and
// gsm_codec_test.
#include "audio/file_reader_wav.h"
#include "audio/wav_info.h"

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
using audio::FileReaderWAVADPCM;
using audio::FileReaderWAVGSM;
using audio::FileReaderWAVPCM;
using audio::PCMData;
using audio_test::bytes_of;
using audio_test::Sink;
using test::le;
using test::one_media;
using test::wide;

namespace {

// The samples as sox reads them, in the width the file stores them.
std::string sox_samples(const fs::path& f) { return audio_test::sox_file(f).bytes; }

void put_u16(std::string& s, std::size_t at, std::uint32_t v)
{
    s[at] = static_cast<char>(v & 0xff);
    s[at + 1] = static_cast<char>((v >> 8) & 0xff);
}

std::string le32(std::uint32_t v)
{
    std::string s(4, '\0');
    put_u16(s, 0, v & 0xffff);
    put_u16(s, 2, v >> 16);
    return s;
}

// The chunks of a RIFF file as the RIFF rules have them (odd chunks padded),
// to move real chunks of real files around.
struct Chunk {
    std::string tag;
    std::string body;
};

std::vector<Chunk> chunks_of(const std::string& file)
{
    std::vector<Chunk> out;
    for (std::size_t at = 12; at + 8 <= file.size();) {
        std::uint32_t size = le(file, at + 4);
        out.push_back({file.substr(at, 4), file.substr(at + 8, size)});
        at += 8 + size + (size & 1);
    }
    return out;
}

std::string riff_of(const std::vector<Chunk>& chunks)
{
    std::string body = "WAVE";
    for (const Chunk& c : chunks) {
        body += c.tag + le32(static_cast<std::uint32_t>(c.body.size())) + c.body;
        if (c.body.size() % 2 != 0)
            body += '\0';
    }
    return "RIFF" + le32(static_cast<std::uint32_t>(body.size())) + body;
}

std::size_t index_of(const std::vector<Chunk>& chunks, const std::string& tag)
{
    for (std::size_t i = 0; i < chunks.size(); ++i)
        if (chunks[i].tag == tag)
            return i;
    ADD_FAILURE() << "no chunk " << tag;
    return 0;
}

// Everything a closed reader answers.
template <class Reader>
void expect_closed(Reader& r, const std::string& what)
{
    SCOPED_TRACE(what);
    EXPECT_FALSE(r.is_open());
    EXPECT_TRUE(r.is_eof());
    EXPECT_EQ(r.get_channels(), 0);
    EXPECT_EQ(r.get_rate(), 0);
    EXPECT_EQ(r.get_bits(), 0);
    EXPECT_EQ(r.get_length(), 0);
    EXPECT_EQ(r.get_duration(), 0.0);
    r.set_position(3);
    EXPECT_EQ(r.get_position(), 0);
    EXPECT_FALSE(r.transfer_position(10));
    EXPECT_FALSE(r.transfer_seconds(1.0));
}

void expect_no_reader_opens(const fs::path& f, const std::string& what)
{
    FileReaderWAVPCM pcm(wide(f));
    FileReaderWAVADPCM adpcm(wide(f));
    FileReaderWAVGSM gsm(wide(f));
    expect_closed(pcm, what + " as PCM");
    expect_closed(adpcm, what + " as ADPCM");
    expect_closed(gsm, what + " as GSM");
    PCMData rec;
    pcm.get_data(rec, 100);
    EXPECT_TRUE(rec.empty()) << what;
    audio::ADPCMData blocks;
    adpcm.get_data(blocks, 100);
    EXPECT_TRUE(blocks.empty()) << what;
}

} // namespace

TEST(WavReaderPCM, ReadsEverySoxFileAsSoxDoes)
{
    auto files = test::media("pcm_*.wav");
    ASSERT_GE(files.size(), 10u);
    for (const auto& f : files) {
        SCOPED_TRACE(f.filename().string());
        const audio_test::Reference sox = audio_test::sox_file(f);
        const std::string& ref = sox.bytes;
        FileReaderWAVPCM r(wide(f));
        ASSERT_TRUE(r.is_open());
        EXPECT_EQ(r.get_channels(), sox.channels);
        EXPECT_EQ(r.get_bits(), sox.bits);
        EXPECT_EQ(r.get_rate(), sox.rate);
        EXPECT_EQ(r.get_bitrate(), sox.channels * sox.bits * sox.rate);
        EXPECT_EQ(r.get_length(), static_cast<std::int32_t>(ref.size()));
        EXPECT_DOUBLE_EQ(r.get_duration(), test::soxi_int(f, "-s") / double(sox.rate));
        EXPECT_FALSE(r.is_eof());
        // Requests of several sizes, one of them a single frame.
        std::string got = audio_test::drain(r, 16384);
        EXPECT_EQ(got, ref);
        EXPECT_TRUE(r.is_eof());
        r.set_position(0);
        EXPECT_EQ(r.get_time(), 0.0);
        std::string single;
        for (int i = 0; i < 1000; ++i) {
            PCMData rec;
            r.get_data(rec, 1);
            single += bytes_of(rec.bytes);
        }
        EXPECT_EQ(single, ref.substr(0, single.size()));
        EXPECT_EQ(single.size(), 1000u * r.get_wav_info().block_align);
        r.set_position(0);
        EXPECT_EQ(audio_test::drain(r, 777), ref);
    }
}

TEST(WavReaderPCM, SeeksToFrameBoundariesWithinTheFile)
{
    for (const char* name : {"pcm_s16_speech_16000.wav", "pcm_s16_stereo_44100.wav", "pcm_u8_stereo_11025.wav",
                             "pcm_u8_mono_22050.wav", "pcm_s16_3ch_8000.wav"}) {
        SCOPED_TRACE(name);
        const fs::path f = one_media(name);
        const std::string ref = sox_samples(f);
        FileReaderWAVPCM r(wide(f));
        ASSERT_TRUE(r.is_open());
        const int frame = r.get_wav_info().block_align;
        const int rate = r.get_rate();
        for (int at : {0, 1, 3, frame * 100 + 1, frame * 1001 - 1, static_cast<int>(ref.size()) / 2 + 1}) {
            r.set_position(at);
            const int landed = at - at % frame;
            EXPECT_EQ(r.get_position(), landed) << at;
            PCMData rec;
            r.get_data(rec, 1000);
            EXPECT_EQ(bytes_of(rec.bytes), ref.substr(landed, 1000 * frame)) << at;
        }
        r.set_time(0.25);
        EXPECT_EQ(r.get_position(), static_cast<int>(rate * 0.25) * frame);
        EXPECT_DOUBLE_EQ(r.get_time(), static_cast<int>(rate * 0.25) / static_cast<double>(rate));
        r.set_position(-frame * 3 - 1);
        EXPECT_EQ(r.get_position(), 0);
        // Past the data the position is limited by the size of the file,
        // not by the data chunk, and nothing more is read.
        const auto file_size = static_cast<std::int32_t>(fs::file_size(f));
        r.set_position(file_size * 2);
        EXPECT_EQ(r.get_position(), file_size);
        EXPECT_TRUE(r.is_eof());
        PCMData rec;
        r.get_data(rec, 10);
        EXPECT_TRUE(rec.empty());
    }
}

TEST(WavReaderPCM, TransfersBytesAndSecondsDownstream)
{
    const fs::path f = one_media("pcm_s16_speech_stereo_44100.wav");
    const std::string ref = sox_samples(f);
    FileReaderWAVPCM r(wide(f));
    ASSERT_TRUE(r.is_open());
    Sink<PCMData> sink;
    audio::connect(r, &sink);
    const int frame = 4;
    // An amount that is no whole number of frames is cut to whole frames.
    ASSERT_TRUE(r.transfer_position(12001 * frame + 3));
    ASSERT_EQ(sink.records.size(), 3u);
    for (const PCMData& rec : sink.records) {
        EXPECT_LE(rec.sample_count(), 5000u);
        EXPECT_EQ(rec.channels, 2);
        EXPECT_EQ(rec.bits, 16);
        EXPECT_EQ(rec.rate, 44100);
    }
    EXPECT_EQ(sink.all_bytes(), ref.substr(0, 12001 * frame));
    sink.records.clear();
    ASSERT_TRUE(r.transfer_seconds(0.5));
    EXPECT_EQ(sink.all_bytes(), ref.substr(12001 * frame, 22050 * frame));
    EXPECT_TRUE(r.transfer_position(0));
    // More than is left: what there is goes through, and the answer is no.
    sink.records.clear();
    const std::size_t done = (12001 + 22050) * frame;
    EXPECT_FALSE(r.transfer_seconds(1000.0));
    EXPECT_EQ(sink.all_bytes(), ref.substr(done));
    audio::connect(r, nullptr);
}

TEST(WavInfo, WritesBackTheHeadersSoxWrites)
{
    test::TempDir dir;
    // Files without a pad byte behind their data, one of each format tag.
    for (const char* name : {"pcm_s16_stereo_44100.wav", "adpcm_stereo_22050.wav", "adpcm_mono_8000.wav",
                             "gsm_sox_of_speech_8000.wav"}) {
        SCOPED_TRACE(name);
        const fs::path f = one_media(name);
        const std::string original = test::read_file(f);
        std::unique_ptr<audio::WAVInfo> info;
        const std::uint16_t tag = static_cast<std::uint8_t>(original[20]);
        if (tag == audio::kFormatTagPCM)
            info = std::make_unique<audio::WAVInfoPCM>();
        else if (tag == audio::kFormatTagADPCM)
            info = std::make_unique<audio::WAVInfoADPCM>();
        else
            info = std::make_unique<audio::WAVInfoGSM>();
        {
            os::File in(wide(f), os::File::kRead);
            ASSERT_TRUE(info->read(in));
        }
        const std::uint32_t data_offset = info->data_offset;
        ASSERT_EQ(data_offset + info->data_size, original.size());
        const fs::path copy = dir / name;
        {
            os::File out(wide(copy), os::File::kWrite);
            info->data_offset = 0;
            ASSERT_TRUE(info->write(out));
            EXPECT_EQ(info->data_offset, data_offset);
            const std::string data = original.substr(data_offset);
            ASSERT_EQ(out.write(data.data(), data.size()), data.size());
        }
        EXPECT_TRUE(test::read_file(copy) == original);
    }
    // A file that cannot take the header fails the write.
    os::File closed(wide(dir / "missing" / "x.wav"), os::File::kWrite);
    audio::WAVInfoGSM gsm;
    EXPECT_FALSE(gsm.write(closed));
}

TEST(WavReader, SkipsEvenChunksBetweenFmtAndData)
{
    const fs::path plain = one_media("pcm_s16_mono_22050.wav");
    const std::string ref = sox_samples(plain);
    // ffmpeg's LIST, and a bext and a LIST; then a LIST of our own in a sox
    // file, even-sized as RIFF wants.
    test::TempDir dir;
    std::vector<Chunk> chunks = chunks_of(test::read_file(plain));
    chunks.insert(chunks.begin() + 1, Chunk{"LIST", std::string("INFOISFT\x06\0\0\0Quill\0", 18)});
    test::write_file(dir / "listed.wav", riff_of(chunks));
    for (const fs::path& f : {one_media("list_pcm_s16_mono_22050.wav"), one_media("bext_pcm_s16_mono_22050.wav"),
                              dir / "listed.wav"}) {
        SCOPED_TRACE(f.filename().string());
        FileReaderWAVPCM r(wide(f));
        ASSERT_TRUE(r.is_open());
        EXPECT_EQ(r.get_length(), static_cast<std::int32_t>(ref.size()));
        EXPECT_EQ(audio_test::drain(r, 4096), ref);
        EXPECT_EQ(sox_samples(f), ref);
    }
}

TEST(WavReader, RefusesFilesOutsideTheNarrowShape)
{
    test::PrivateHome home;
    test::TempDir dir;
    std::vector<std::pair<fs::path, std::string>> refused;
    for (const char* name : {"refused_junk_before_fmt.wav", "refused_extensible_3ch.wav", "refused_extensible_24bit.wav"})
        refused.emplace_back(one_media(name), name);

    // Shapes that tools make rarely, made here from real files: the samples
    // stay sox's and sox itself reads every one of them.
    const std::string pcm = test::read_file(one_media("pcm_s16_mono_8000.wav"));
    auto derive = [&](const std::string& name, std::vector<Chunk> chunks) {
        test::write_file(dir / name, riff_of(chunks));
        refused.emplace_back(dir / name, name);
        EXPECT_EQ(test::run("soxi '" + (dir / name).string() + "' >/dev/null 2>&1"), 0) << name;
    };
    {
        auto c = chunks_of(pcm);
        c[index_of(c, "fmt ")].body += std::string(2, '\0'); // cbSize 0: 18 bytes
        derive("long_fmt.wav", c);
    }
    {
        auto c = chunks_of(pcm);
        c.insert(c.begin() + 1, Chunk{"LIST", "INFOx"}); // 5 bytes and a pad byte
        derive("odd_list.wav", c);
    }
    {
        auto c = chunks_of(pcm);
        c.insert(c.begin(), Chunk{"JUNK", std::string(28, '\0')});
        derive("junk_first.wav", c);
    }
    for (const char* name : {"adpcm_mono_8000.wav", "gsm_sox_of_speech_8000.wav"}) {
        auto c = chunks_of(test::read_file(one_media(name)));
        Chunk fact = c[index_of(c, "fact")];
        c.erase(c.begin() + static_cast<std::ptrdiff_t>(index_of(c, "fact")));
        c.push_back(fact);
        derive(std::string("fact_behind_data_") + name, c);
    }
    for (const auto& [f, name] : refused)
        expect_no_reader_opens(f, name);
}

TEST(WavReader, EachReaderTakesOnlyItsOwnFormat)
{
    test::PrivateHome home;
    test::TempDir dir;
    const fs::path pcm = one_media("pcm_s16_mono_8000.wav");
    const fs::path adpcm = one_media("adpcm_mono_8000.wav");
    const fs::path gsm = one_media("gsm_sox_of_speech_8000.wav");
    for (const fs::path& f : {pcm, adpcm, gsm}) {
        const std::string name = f.filename().string();
        FileReaderWAVPCM p(wide(f));
        FileReaderWAVADPCM a(wide(f));
        FileReaderWAVGSM g(wide(f));
        EXPECT_EQ(p.is_open(), f == pcm) << name;
        EXPECT_EQ(a.is_open(), f == adpcm) << name;
        EXPECT_EQ(g.is_open(), f == gsm) << name;
        if (f != pcm)
            expect_closed(p, name + " as PCM");
        if (f != adpcm)
            expect_closed(a, name + " as ADPCM");
        if (f != gsm)
            expect_closed(g, name + " as GSM");
    }
    expect_no_reader_opens(dir / "not_there.wav", "a missing file");
    expect_no_reader_opens(one_media("mp3_cbr64_16000.mp3"), "an MP3 file");

    // One field at a time changed in real headers: each reader says no.
    struct Patch {
        fs::path file;
        std::size_t at;
        std::string bytes;
        std::string what;
    };
    const std::vector<Patch> patches = {
        {pcm, 0, "RIFX", "big-endian RIFF"},
        {pcm, 8, "AVI ", "another form"},
        {pcm, 12, "fmt_", "a misspelt fmt"},
        {pcm, 20, std::string("\x03\0", 2), "floating point"},
        {adpcm, 22, std::string("\x03\0", 2), "ADPCM with three channels"},
        {adpcm, 34, std::string("\x03\0", 2), "ADPCM of three bits"},
        {adpcm, 40, std::string("\x06\0", 2), "ADPCM with six coefficient pairs"},
        {gsm, 22, std::string("\x02\0", 2), "stereo GSM"},
        {gsm, 24, std::string("\x80\x3e\0\0", 4), "GSM at 16000 Hz"},
        {gsm, 32, std::string("\x40\0", 2), "GSM blocks of 64 bytes"},
        {gsm, 38, std::string("\xa0\0", 2), "GSM blocks of 160 samples"},
    };
    for (const Patch& p : patches) {
        std::string bytes = test::read_file(p.file);
        bytes.replace(p.at, p.bytes.size(), p.bytes);
        const fs::path f = dir / "patched.wav";
        test::write_file(f, bytes);
        expect_no_reader_opens(f, p.what);
    }

    // Headers cut short anywhere before the data chunk's size word is whole.
    for (const fs::path& f : {pcm, adpcm, gsm}) {
        const std::string bytes = test::read_file(f);
        const std::size_t data_offset = bytes.find("data") + 8;
        for (std::size_t cut = 0; cut < data_offset; ++cut) {
            test::write_file(dir / "cut.wav", bytes.substr(0, cut));
            expect_no_reader_opens(dir / "cut.wav", f.filename().string() + " cut at " + std::to_string(cut));
        }
    }
}

TEST(WavReader, EmptyAndDegenerateHeadersOpen)
{
    test::TempDir dir;
    {
        const fs::path f = one_media("empty_pcm_s16_8000.wav");
        ASSERT_EQ(fs::file_size(f), 44u);
        FileReaderWAVPCM r(wide(f));
        ASSERT_TRUE(r.is_open());
        EXPECT_EQ(r.get_duration(), 0.0);
        EXPECT_TRUE(r.is_eof());
        PCMData rec;
        r.get_data(rec, 100);
        EXPECT_TRUE(rec.empty());
        EXPECT_FALSE(r.transfer_seconds(0.1));
    }
    {
        // block_align 0 in a real PCM header.
        std::string bytes = test::read_file(one_media("pcm_s16_mono_8000.wav"));
        put_u16(bytes, 32, 0);
        test::write_file(dir / "align0.wav", bytes);
        FileReaderWAVPCM r(wide(dir / "align0.wav"));
        ASSERT_TRUE(r.is_open());
        EXPECT_EQ(r.get_duration(), 0.0);
        EXPECT_EQ(r.position_to_seconds(1000), 0.0);
        EXPECT_EQ(r.seconds_to_position(1.0), 0);
        PCMData rec;
        r.get_data(rec, 100);
        EXPECT_TRUE(rec.empty());
        r.set_position(100);
        EXPECT_EQ(r.get_position(), 0);
        EXPECT_FALSE(r.transfer_position(100));
        EXPECT_FALSE(r.transfer_seconds(0.1));
    }
    {
        // block_align 0 and samples_per_block 0 in block formats.
        std::string adpcm = test::read_file(one_media("adpcm_mono_8000.wav"));
        put_u16(adpcm, 32, 0);
        put_u16(adpcm, 38, 0);
        test::write_file(dir / "adpcm0.wav", adpcm);
        FileReaderWAVADPCM a(wide(dir / "adpcm0.wav"));
        ASSERT_TRUE(a.is_open());
        EXPECT_EQ(a.get_length(), 0);
        EXPECT_EQ(a.get_duration(), 0.0);
        EXPECT_EQ(a.seconds_to_position(3.0), 0);
        EXPECT_TRUE(a.is_eof());
        EXPECT_FALSE(a.transfer_seconds(1.0));
        a.set_position(5);
        audio::ADPCMData blocks;
        a.get_data(blocks, 5);
        EXPECT_TRUE(blocks.empty());
        EXPECT_FALSE(a.transfer_position(3));
    }
}

TEST(WavReader, ShortFilesPlayToTheLastWholeRequestOrBlock)
{
    test::TempDir dir;
    // PCM: a request the file cannot fill is lost whole.
    const fs::path f = one_media("pcm_s16_speech_16000.wav");
    const std::string ref = sox_samples(f);
    const std::string bytes = test::read_file(f);
    const std::size_t data_offset = bytes.find("data") + 8;
    const std::size_t kept = 10 * 2000 + 1234;
    test::write_file(dir / "cut.wav", bytes.substr(0, data_offset + kept));
    FileReaderWAVPCM r(wide(dir / "cut.wav"));
    ASSERT_TRUE(r.is_open());
    EXPECT_EQ(r.get_length(), static_cast<std::int32_t>(ref.size()));
    EXPECT_EQ(audio_test::drain(r, 1000), ref.substr(0, 10 * 2000));
    PCMData rec;
    r.get_data(rec, 1);
    EXPECT_TRUE(rec.empty());
    // Block readers: only whole blocks, and the cursor stays on a boundary.
    for (const char* name : {"adpcm_stereo_22050.wav", "gsm_sox_of_speech_8000.wav"}) {
        SCOPED_TRACE(name);
        const std::string coded = test::read_file(one_media(name));
        const std::size_t offset = coded.find("data") + 8;
        const std::size_t align = static_cast<std::uint8_t>(coded[32]) | static_cast<std::uint8_t>(coded[33]) << 8;
        test::write_file(dir / name, coded.substr(0, offset + 7 * align + align / 2));
        std::string got;
        if (std::string(name).starts_with("gsm")) {
            FileReaderWAVGSM g(wide(dir / name));
            ASSERT_TRUE(g.is_open());
            got = audio_test::drain<audio::GSMData>(g, 3);
            EXPECT_EQ(g.get_position(), 7);
        } else {
            FileReaderWAVADPCM a(wide(dir / name));
            ASSERT_TRUE(a.is_open());
            got = audio_test::drain<audio::ADPCMData>(a, 3);
            EXPECT_EQ(a.get_position(), 7);
        }
        EXPECT_TRUE(got == coded.substr(offset, 7 * align));
    }
}

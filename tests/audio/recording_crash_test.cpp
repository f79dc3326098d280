// A recording survives a crash: children record PCM, ADPCM and MP3 in real
// time and are killed with SIGKILL at a random moment; sox reads each file
// with all but the last second of what was pushed, the WAVs before the
// repair (the periodic patch) and whole after it; the start-up repair takes
// the files out of the journal, leaves the chunks other programs put behind
// the audio alone, and an append continues a crashed file with its old audio
// untouched, and a writer that closes takes its file out of the journal.
#include "audio/adpcm_codec.h"
#include "audio/encoder_mp3.h"
#include "audio/file_writer_mp3.h"
#include "audio/file_writer_wav.h"
#include "audio/wav_repair.h"
#include "liba/little_endian.h"
#include "os/recording_journal.h"

#include "audio_test_util.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;
using audio::PCMData;
using audio_test::Reference;
using audio_test::wide;

namespace {

constexpr int kRate = 16000;
constexpr std::size_t kSecond = 2 * kRate; // bytes of 16-bit mono
constexpr std::size_t kRecord = kSecond / 10;

std::string q(const fs::path& p) { return "'" + p.string() + "'"; }

// sox's samples of `f` as 16-bit little-endian bytes.
std::string sox_s16(const fs::path& f)
{
    std::string out;
    EXPECT_EQ(test::run("sox " + q(f) + " -t raw -e signed-integer -b 16 -L -", &out), 0) << f;
    return out;
}

// The speech, over and over: what the recordings push.
std::string stream_of(const Reference& speech, std::size_t size)
{
    std::string s;
    while (s.size() < size)
        s += speech.bytes;
    return s.substr(0, size);
}

PCMData record_of(const std::string& stream, std::size_t at)
{
    PCMData r;
    r.bytes = liba::ByteBlock(stream.data() + at, kRecord);
    r.channels = 1;
    r.bits = 16;
    r.rate = kRate;
    return r;
}

// A child that makes a recording with `open` (which returns the stage to
// push into and keeps the chain alive) and pushes `stream` a record each
// tenth of a second, telling the parent after each push how many bytes
// went in; killed with SIGKILL `after` from its start.
struct Recording {
    pid_t pid = -1;
    int progress = -1;
    std::size_t pushed = 0;
};

using Opener = std::function<audio::Consumer<PCMData>&()>;

Recording start(const Opener& open, const std::string& stream)
{
    int fds[2];
    EXPECT_EQ(::pipe(fds), 0);
    Recording r;
    r.pid = ::fork();
    if (r.pid == 0) {
        ::close(fds[0]);
        audio::Consumer<PCMData>& in = open();
        auto next = std::chrono::steady_clock::now();
        for (std::size_t at = 0; at + kRecord <= stream.size(); at += kRecord) {
            std::this_thread::sleep_until(next += std::chrono::milliseconds(100));
            in.on_data(record_of(stream, at));
            const std::uint64_t done = at + kRecord;
            if (::write(fds[1], &done, sizeof done) != sizeof done)
                ::_exit(3);
        }
        ::_exit(2); // the stream ran out before the kill
    }
    ::close(fds[1]);
    r.progress = fds[0];
    return r;
}

void kill_and_reap(Recording& r)
{
    ::kill(r.pid, SIGKILL);
    int status = 0;
    ::waitpid(r.pid, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "the child ended on its own";
    std::uint64_t done = 0;
    while (::read(r.progress, &done, sizeof done) == sizeof done)
        r.pushed = done;
    ::close(r.progress);
}

// Frames sox decodes from `f`.
std::size_t frames_of(const fs::path& f) { return sox_s16(f).size() / 2; }

} // namespace

TEST(RecordingCrash, AKilledRecordingLosesAtMostItsLastSecond)
{
    test::TempDir dir;
    const os::RecordingJournal journal(wide(dir / "recordings.journal"));
    const Reference speech = audio_test::sox_reference("pcm_s16_speech_16000.wav");
    ASSERT_EQ(speech.rate, kRate);
    const std::string stream = stream_of(speech, 60 * kSecond);
    const fs::path pcm = dir / "pcm.wav", adpcm = dir / "adpcm.wav", mp3 = dir / "mp3.mp3";

    // The chains live in the children only: each is killed with them.
    Recording kids[] = {
        start([&]() -> audio::Consumer<PCMData>& {
            return *new audio::FileWriterWAVPCM(wide(pcm), false, &journal);
        }, stream),
        start([&]() -> audio::Consumer<PCMData>& {
            auto* e = new audio::EncoderADPCM;
            audio::connect(*e, new audio::FileWriterWAVADPCM(wide(adpcm), false, &journal));
            return *e;
        }, stream),
        start([&]() -> audio::Consumer<PCMData>& {
            auto* e = new audio::EncoderMP3(64000);
            audio::connect(*e, new audio::FileWriterMP3(wide(mp3), false, &journal));
            return *e;
        }, stream),
    };
    std::random_device seed;
    std::mt19937 pick(seed());
    std::uniform_int_distribution<int> moment(1300, 3500);
    int waited = 0;
    for (auto& kid : kids) {
        const int at = moment(pick);
        SCOPED_TRACE("killed after " + std::to_string(at) + " ms");
        std::this_thread::sleep_for(std::chrono::milliseconds(std::max(at - waited, 0)));
        waited = std::max(waited, at);
        kill_and_reap(kid);
        ASSERT_GT(kid.pushed, kSecond);
    }
    EXPECT_EQ(journal.entries().size(), 3u) << "the dead writers are still listed";

    // Before the repair: the header patched within the last second.
    const std::string pcm_before = sox_s16(pcm);
    EXPECT_GE(pcm_before.size() + kSecond, kids[0].pushed);
    EXPECT_EQ(pcm_before, stream.substr(0, pcm_before.size()));
    const int spb = audio::adpcm_samples_per_block(256, 1, 4);
    const std::size_t adpcm_before = frames_of(adpcm);
    EXPECT_GE(adpcm_before + kSecond / 2 + spb, kids[1].pushed / 2);
    const std::string mp3_bytes = test::read_file(mp3);

    EXPECT_EQ(audio::repair_orphaned_recordings(journal), 3);
    EXPECT_TRUE(journal.entries().empty());

    // After it: every whole unit that was written, exactly the pushed
    // prefix for PCM, give or take the record under way at the kill.
    const std::string pcm_after = sox_s16(pcm);
    EXPECT_GE(pcm_after.size(), kids[0].pushed);
    EXPECT_LE(pcm_after.size(), kids[0].pushed + kRecord);
    EXPECT_EQ(pcm_after, stream.substr(0, pcm_after.size()));
    const std::size_t adpcm_after = frames_of(adpcm);
    EXPECT_EQ(adpcm_after % static_cast<std::size_t>(spb), 0u);
    EXPECT_GE(adpcm_after + spb, kids[1].pushed / 2);
    EXPECT_LE(adpcm_after, (kids[1].pushed + kRecord) / 2);
    std::string probe;
    EXPECT_EQ(test::run("ffprobe -v error -show_entries stream=codec_name,sample_rate,channels -of "
                        "default=nw=1 " + q(adpcm), &probe), 0);
    EXPECT_EQ(probe, "codec_name=adpcm_ms\nsample_rate=16000\nchannels=1\n");

    // MP3 needs no repair; LAME holds a few frames of its own.
    EXPECT_EQ(test::read_file(mp3), mp3_bytes);
    const std::size_t mp3_frames = frames_of(mp3);
    constexpr std::size_t kLameHeld = 3 * 576 + 1105;
    EXPECT_GE(mp3_frames + kSecond / 2 + kLameHeld, kids[2].pushed / 2);
    EXPECT_LE(mp3_frames, (kids[2].pushed + kRecord) / 2 + kLameHeld);
}

TEST(RecordingCrash, AppendContinuesACrashedFileAndRepairSparesOtherChunks)
{
    test::TempDir dir;
    const Reference speech = audio_test::sox_reference("pcm_s16_speech_16000.wav");
    const std::string stream = stream_of(speech, 20 * kSecond);

    // A crash, made the quick way: the child writes 6 s (the header patched
    // at least once in real time) and is killed before it closes.
    const fs::path pcm = dir / "crashed.wav";
    Recording kid = start([&]() -> audio::Consumer<PCMData>& {
        return *new audio::FileWriterWAVPCM(wide(pcm), false, nullptr);
    }, stream);
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    kill_and_reap(kid);
    const std::string old = test::read_file(pcm);
    ASSERT_GT(old.size(), 44 + kid.pushed / 2);
    EXPECT_LT(sox_s16(pcm).size(), kid.pushed) << "without a journal nothing patches the header";
    const os::RecordingJournal journal(wide(dir / "recordings.journal"));
    {
        audio::FileWriterWAVPCM w(wide(pcm), true, &journal);
        EXPECT_TRUE(w.is_good());
        EXPECT_EQ(w.get_position(), static_cast<std::int32_t>(old.size() - 44));
        w.on_data(record_of(stream, 0));
        ASSERT_EQ(journal.entries().size(), 1u);
        EXPECT_EQ(journal.entries()[0].file, wide(pcm));
    }
    EXPECT_TRUE(journal.entries().empty()) << "a writer that closes takes its entry out";
    const std::string grown = test::read_file(pcm);
    EXPECT_EQ(grown.substr(44, old.size() - 44), old.substr(44));
    EXPECT_EQ(sox_s16(pcm), old.substr(44) + stream.substr(0, kRecord));

    // ADPCM cut in the middle of a block: the half block goes.
    const fs::path adpcm = dir / "crashed_adpcm.wav";
    kid = start([&]() -> audio::Consumer<PCMData>& {
        auto* e = new audio::EncoderADPCM;
        audio::connect(*e, new audio::FileWriterWAVADPCM(wide(adpcm), false, nullptr));
        return *e;
    }, stream);
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    kill_and_reap(kid);
    fs::resize_file(adpcm, fs::file_size(adpcm) - 100);
    const std::string old_adpcm = test::read_file(adpcm);
    const std::size_t old_blocks = (old_adpcm.size() - 90) / 256;
    const std::string decoded_whole = [&] {
        const fs::path whole = dir / "whole.wav";
        test::write_file(whole, old_adpcm);
        EXPECT_EQ(audio::check_and_repair_wav(wide(whole)), audio::WAVCheck::kRepaired);
        EXPECT_EQ(fs::file_size(whole), 90 + old_blocks * 256);
        return sox_s16(whole);
    }();
    {
        audio::EncoderADPCM e;
        audio::FileWriterWAVADPCM w(wide(adpcm), true);
        EXPECT_EQ(w.get_position(), static_cast<std::int32_t>(old_blocks));
        audio::connect(e, &w);
        for (std::size_t at = 0; at < 10 * kRecord; at += kRecord)
            e.on_data(record_of(stream, at));
        audio::connect(e, nullptr);
    }
    const std::string adpcm_after = test::read_file(adpcm);
    EXPECT_EQ(adpcm_after.substr(90, old_blocks * 256), old_adpcm.substr(90, old_blocks * 256));
    EXPECT_EQ(sox_s16(adpcm).substr(0, decoded_whole.size()), decoded_whole);
    EXPECT_EQ((adpcm_after.size() - 90) % 256, 0u);

    // Chunks other programs put behind the audio: mutagen's "id3 " behind
    // odd 8-bit data and its pad byte, ffmpeg's "levl", and ffmpeg's LIST
    // moved behind the data, as some editors place it.
    const fs::path u8 = dir / "id3.wav", peak = dir / "levl.wav", moved = dir / "list.wav";
    ASSERT_EQ(test::run("sox -n -r 8000 -b 8 -c 1 " + q(u8) + " synth 0.3331 sine 440"), 0);
    ASSERT_EQ(test::run("/usr/bin/python3 -c \"import sys, mutagen.wave, mutagen.id3; f = mutagen.wave.WAVE(sys.argv[1]); "
                        "f.add_tags(); f.tags.add(mutagen.id3.TIT2(encoding=3, text='Hello')); f.save()\" " + q(u8)),
              0);
    ASSERT_EQ(test::run("ffmpeg -v error -y -i " + q(test::media("pcm_s16_speech_16000.wav").at(0)) +
                        " -metadata title=Hello -write_peak on " + q(peak)),
              0);
    const std::string with_list = test::read_file(test::media("list_pcm_s16_mono_22050.wav").at(0));
    const std::size_t list_at = with_list.find("LIST"), data_at = with_list.find("data");
    ASSERT_LT(list_at, data_at);
    std::string relaid = with_list.substr(0, list_at) + with_list.substr(data_at) +
                         with_list.substr(list_at, data_at - list_at);
    liba::put_le32(relaid.data() + 4, static_cast<std::uint32_t>(relaid.size() - 8));
    test::write_file(moved, relaid);
    for (const fs::path& f : {u8, peak, moved}) {
        SCOPED_TRACE(f.filename().string());
        const std::string bytes = test::read_file(f);
        EXPECT_NE(bytes.find(f == u8 ? "id3 " : f == peak ? "levl" : "LIST", bytes.find("data")), std::string::npos);
        EXPECT_EQ(audio::check_and_repair_wav(wide(f)), audio::WAVCheck::kSound);
        EXPECT_EQ(test::read_file(f), bytes);
    }
    EXPECT_EQ(audio::check_and_repair_wav(wide(test::media("mp3_cbr64_16000.mp3").at(0))), audio::WAVCheck::kNotWAV);
}

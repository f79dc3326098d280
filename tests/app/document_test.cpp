// The Document against SDL's disk audio driver with no delay, where the
// device drains an item before the next 0.2-second tick: what it was handed
// is read back from the file the driver writes, the driver's silence taken
// out. Test signals are made by sox with a DC offset, so none of their frames
// is that silence.
#include "app/document.h"

#include "liba/text.h"
#include "os/file.h"
#include "os/path.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <thread>

namespace fs = std::filesystem;

namespace {

std::string read_bytes(const fs::path& p)
{
    std::ifstream in(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// The 16-bit frames of `bytes` that are not all zero.
std::string without_silence(const std::string& bytes, int channels)
{
    const size_t frame = static_cast<size_t>(channels) * 2;
    std::string out;
    for (size_t at = 0; at + frame <= bytes.size(); at += frame) {
        if (bytes.find_first_not_of('\0', at) < at + frame)
            out.append(bytes, at, frame);
    }
    return out;
}

void tick()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
}

// Records what each notification said, and each start of an item.
class Recorder : public Document::View {
public:
    void on_document_changed(const ChangeFlags& c) override
    {
        changes.push_back(c);
        Document* d = Document::instance();
        if (c.state && d->is_playing())
            played.push_back(d->current_path());
    }
    std::vector<ChangeFlags> changes;
    std::vector<std::wstring> played;
};

class DocumentTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        os::init_path_macros();
        setenv("SDL_AUDIODRIVER", "disk", 1);
        setenv("SDL_DISKAUDIOFILE", out.c_str(), 1);
        setenv("SDL_DISKAUDIODELAY", "0", 1);
    }
    // A mono 16-bit tone of `seconds` with no silent frame; its raw samples
    // in `raw`.
    fs::path tone(const std::string& name, double seconds, int freq, std::string* raw = nullptr)
    {
        fs::path p = dir / name;
        std::string cmd = "sox -n -r 22050 -b 16 -c 1 '" + p.string() + "' synth " + std::to_string(seconds) +
                          " sine " + std::to_string(freq) + " vol 0.4 dcshift 0.5";
        EXPECT_EQ(test::run(cmd), 0) << cmd;
        if (raw) {
            fs::path r = dir / (name + ".raw");
            EXPECT_EQ(test::run("sox '" + p.string() + "' -t raw '" + r.string() + "'"), 0);
            *raw = read_bytes(r);
        }
        return p;
    }
    // Ticks until the Document stops, at most `ticks` times.
    int run_to_stop(Document& d, int ticks = 100)
    {
        int n = 0;
        while (d.is_playing() && n < ticks) {
            tick();
            d.on_timer();
            ++n;
        }
        return n;
    }
    static std::wstring w(const fs::path& p) { return liba::from_utf8(p.string()); }

    test::PrivateHome home;
    test::TempDir dir;
    std::string out = (dir.path() / "out.raw").string();
};

TEST_F(DocumentTest, WavArrivesWholeFromItsStartPositionAndMp3GivesTheDecodersSamples)
{
    std::string raw;
    fs::path wav = tone("tone.wav", 1.3, 440, &raw);
    {
        Document d(w(dir / "settings.xml"));
        ASSERT_TRUE(d.play_file(w(wav)));
        EXPECT_TRUE(d.is_playing());
        EXPECT_EQ(d.current_path(), w(wav));
        EXPECT_EQ(d.title(), L"tone.wav");
        run_to_stop(d);
        EXPECT_FALSE(d.is_playing()) << "a single file once stops at its end";
        EXPECT_TRUE(d.is_healthy());
    }
    EXPECT_EQ(without_silence(read_bytes(out), 1), raw);

    // PCM positions are bytes of the data: 7000 frames in.
    fs::remove(out);
    {
        Document d(w(dir / "settings.xml"));
        playlist::PlaylistEntry e;
        e.path = w(wav);
        d.set_playlist(L"one", {e}, 0, false);
        ASSERT_TRUE(d.play_item(0, 14000));
        run_to_stop(d);
    }
    EXPECT_EQ(without_silence(read_bytes(out), 1), raw.substr(14000));

    // An MP3: what the device got is what the chain's decoder gives.
    fs::path mp3 = dir / "tone.mp3";
    ASSERT_EQ(test::run("lame --quiet -b 64 '" + wav.string() + "' '" + mp3.string() + "'"), 0);
    std::string decoded;
    {
        std::unique_ptr<audio::PlayChain> chain = audio::create_play_chain(w(mp3), nullptr);
        ASSERT_TRUE(chain);
        ASSERT_EQ(chain->get_format(), audio::kFormatMP3);
        for (;;) {
            audio::PCMData block;
            chain->get_provider()->get_data(block, 4096);
            if (block.empty())
                break;
            decoded.append(reinterpret_cast<const char*>(block.bytes.data()), block.bytes.size());
        }
    }
    ASSERT_GT(decoded.size(), 40000u);
    fs::remove(out);
    {
        Document d(w(dir / "settings.xml"));
        ASSERT_TRUE(d.play_file(w(mp3)));
        run_to_stop(d);
    }
    EXPECT_EQ(without_silence(read_bytes(out), 1), without_silence(decoded, 1));
}

TEST_F(DocumentTest, MarksComeWithTheItemTheirRoutePlaysAndNewOnesAreSaved)
{
    std::string raw;
    fs::path wav = tone("marked.wav", 1.0, 300, &raw);
    // Ranges a [0, 8820) and c [22050, 30870) are routed: bytes of the data.
    const std::string quillctl = test::quote((test::program_dir() / "quillctl").string());
    ASSERT_EQ(test::run(quillctl + " marks " + test::quote(wav.string()) +
                        " --add a 0 --add b 8820 --add c 22050 --add d 30870 --route a c"),
              0);
    playlist::PlaylistEntry e;
    e.path = w(wav);
    {
        Document d(w(dir / "settings.xml"));
        EXPECT_FALSE(d.add_bookmark()) << "nothing plays: nothing to mark";
        d.set_playlist(L"route", {e}, 0, true);
        ASSERT_TRUE(d.play_item(0, 0));
        ASSERT_EQ(d.bookmarks().count(), 4);
        EXPECT_EQ(d.bookmarks().route_count(), 2);
        EXPECT_EQ(d.bookmarks().route_mark(1).name, L"c");
        run_to_stop(d);
        EXPECT_FALSE(d.is_playing()) << "the end of the last range ends the item";
    }
    EXPECT_EQ(without_silence(read_bytes(out), 1), raw.substr(0, 8820) + raw.substr(22050, 8820));

    // Plain playing: a bookmark lands on the reader's position and is in the
    // side file at once, beside the marks that were there.
    Document d(w(dir / "settings.xml"));
    d.set_playlist(L"plain", {e}, 0, false);
    ASSERT_TRUE(d.play_item(0, 12000));
    ASSERT_TRUE(d.add_bookmark());
    const int32_t now = d.reader()->get_position();
    RangeMarks saved;
    ASSERT_TRUE(saved.load(side_file_of(w(wav))));
    EXPECT_EQ(saved, d.bookmarks());
    ASSERT_EQ(saved.count(), 5);
    int32_t at = -1;
    for (int i = 0; i < saved.count(); ++i)
        if (saved.mark(i).name == L"Bookmark")
            at = saved.mark(i).position;
    EXPECT_TRUE(at >= 12000 && at <= now) << at << " is not where the reader stood";
    std::string listed;
    ASSERT_EQ(test::run(quillctl + " marks " + test::quote(wav.string()), &listed), 0);
    EXPECT_NE(listed.find("Bookmark\t" + std::to_string(at) + "\t"), std::string::npos) << listed;
}

// Paced in real time, so that the seek comes while the player still holds
// what it read before: the device gets the file's start up to a seam, then
// the file from the new position on.
TEST_F(DocumentTest, SeekWhilePlayingContinuesFromTheNewSampleAfterWhatWasQueued)
{
    unsetenv("SDL_DISKAUDIODELAY");
    fs::path wav = dir / "sweep.wav";
    ASSERT_EQ(test::run("sox -n -r 22050 -b 16 -c 1 '" + wav.string() + "' synth 10 sine 100-3000 vol 0.4 dcshift 0.5"),
              0);
    const std::string raw = test::run_out("sox '" + wav.string() + "' -t raw -");
    const size_t seek_to = 5 * 22050 * 2; // half of the data, in bytes
    {
        Document d(w(dir / "settings.xml"));
        ASSERT_TRUE(d.play_file(w(wav)));
        tick();
        d.on_timer();
        d.seek_fraction(0.5);
        for (int i = 0; i < 10; ++i) {
            tick();
            d.on_timer();
        }
    }
    const std::string played = without_silence(read_bytes(out), 1);
    // The seam: where the first 0.2 s from the target show up.
    const size_t seam = played.find(raw.substr(seek_to, 8820));
    ASSERT_NE(seam, std::string::npos) << "the audio after the seek never reached the device";
    EXPECT_TRUE(played.compare(0, seam, raw, 0, seam) == 0) << "before the seam: the file's start, unbroken";
    EXPECT_LT(seam, seek_to);
    const size_t after = played.size() - seam;
    EXPECT_GT(after, 22050u) << "at least half a second after the seam";
    EXPECT_TRUE(played.compare(seam, after, raw, seek_to, after) == 0) << "after the seam: the file from the target";
}

// Items of 0.1 s end one per tick. The order itself (shuffle's passes and
// their edge cases) is PlayOrder's test; here the Document follows it.
TEST_F(DocumentTest, ListsPlayInTheOrderOfEachMode)
{
    fs::path a = tone("a.wav", 0.1, 200), b = tone("b.wav", 0.1, 300), c = tone("c.wav", 0.1, 400);
    fs::path list = dir / "list.m3u";
    std::ofstream(list) << "a.wav\nb.wav\nc.wav\n";
    const std::vector<std::wstring> abc{w(a), w(b), w(c)};

    struct Case {
        int mode;
        std::vector<std::wstring> expected; // the items started, in order; empty: by the shuffled order
        bool stops;
    };
    const Case cases[] = {
        {PlayOrder::kModeSingleOnce, {w(a)}, true},
        {PlayOrder::kModeSingleRepeat, {w(a), w(a), w(a), w(a)}, false},
        {PlayOrder::kModePlaylistOnce, abc, true},
        {PlayOrder::kModePlaylistRepeat, {w(a), w(b), w(c), w(a), w(b)}, false},
        {PlayOrder::kModeShuffle, {}, false},
    };
    for (const Case& k : cases) {
        Document d(w(dir / "settings.xml"));
        d.set_play_mode(k.mode);
        Recorder r;
        ASSERT_TRUE(d.play_file(w(list)));
        d.notify_views();
        std::vector<std::wstring> expected = k.expected;
        if (expected.empty()) {
            for (size_t i = 0; i < 7; ++i)
                expected.push_back(abc[static_cast<size_t>(d.play_order().order[i])]);
            EXPECT_EQ(expected[0], w(a)) << "the item that was current comes first";
        }
        int ticks = run_to_stop(d, static_cast<int>(expected.size()) + 2);
        EXPECT_EQ(!d.is_playing(), k.stops) << k.mode << " after " << ticks;
        r.played.resize(std::min(r.played.size(), expected.size()));
        EXPECT_EQ(r.played, expected) << "mode " << k.mode;
    }
}

TEST_F(DocumentTest, StateChangesReachTheViewsAsFlags)
{
    fs::path wav = tone("long.wav", 3.0, 440);
    setenv("SDL_DISKAUDIODELAY", "20", 1);
    Document d(w(dir / "settings.xml"));
    Recorder r;
    d.notify_views();
    ASSERT_EQ(r.changes.size(), 1u);
    EXPECT_TRUE(r.changes[0].general && r.changes[0].position && r.changes[0].state && r.changes[0].volume)
        << "the first round says everything changed";
    d.notify_views();
    EXPECT_FALSE(r.changes[1].general || r.changes[1].state) << "pending flags are reset after each round";

    ASSERT_TRUE(d.play_file(w(wav)));
    d.notify_views();
    EXPECT_TRUE(r.changes.back().state);
    d.on_timer();
    EXPECT_TRUE(r.changes.back().position);
    EXPECT_FALSE(r.changes.back().state) << "a tick while playing only moves the position";

    ASSERT_TRUE(d.pause());
    d.notify_views();
    EXPECT_TRUE(r.changes.back().state);
    EXPECT_TRUE(d.is_paused());
    ASSERT_TRUE(d.resume());
    EXPECT_FALSE(d.is_paused());
    ASSERT_TRUE(d.stop());
    d.notify_views();
    EXPECT_TRUE(r.changes.back().state);
    EXPECT_FALSE(d.is_playing());
    EXPECT_FALSE(d.stop()) << "nothing left to stop";
    EXPECT_EQ(d.current_path(), L"");

    // Next at the end of a list played once stops.
    d.set_play_mode(PlayOrder::kModePlaylistOnce);
    playlist::PlaylistEntry e;
    e.path = w(wav);
    d.set_playlist(L"two", {e, e}, 1, false);
    ASSERT_TRUE(d.play_item(1, 0));
    EXPECT_FALSE(d.play_order().has_next());
    d.seek_fraction(1.0);
    size_t before = r.changes.size();
    // The item ends once the device has sounded what it still held.
    for (int i = 0; i < 20 && d.is_playing(); ++i) {
        d.on_timer();
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    EXPECT_FALSE(d.is_playing());
    ASSERT_GT(r.changes.size(), before);
    EXPECT_TRUE(r.changes.back().state && r.changes.back().position);

    // An empty list: nothing to play, stopped, no title.
    d.set_playlist(L"none", {}, 0, false);
    EXPECT_FALSE(d.play_item(0, 0));
    EXPECT_FALSE(d.is_playing());
    EXPECT_EQ(d.title(), L"");
    EXPECT_FALSE(d.play_current());
}

TEST_F(DocumentTest, BadFilesAreSkippedOnePerTickAndAPassOfThemStops)
{
    fs::path good = tone("good.wav", 0.1, 440);
    fs::path bad = dir / "bad.wav";
    std::ofstream(bad) << "not a sound file";
    Document d(w(dir / "settings.xml"));
    d.set_play_mode(PlayOrder::kModePlaylistRepeat);
    playlist::PlaylistEntry b, g;
    b.path = w(bad);
    g.path = w(good);
    d.set_playlist(L"bad", {b, b, b}, 0, false);
    EXPECT_FALSE(d.play_item(0, 0));
    EXPECT_FALSE(d.is_healthy()) << "a failed open is told by the health";
    int moves = 0;
    for (int i = 0; i < 10; ++i) {
        int pos = d.play_order().position;
        d.on_timer();
        int moved = d.play_order().position - pos;
        EXPECT_LE(moved, 1) << "at most one open attempt per tick";
        moves += moved;
    }
    EXPECT_EQ(moves, 2) << "a whole pass of three failed items, then it stops";
    EXPECT_TRUE(d.is_healthy());
    EXPECT_FALSE(d.is_playing());

    // A bad item among good ones is skipped and the list plays on.
    d.set_play_mode(PlayOrder::kModePlaylistOnce);
    d.set_playlist(L"mixed", {g, b, g}, 0, false);
    ASSERT_TRUE(d.play_item(0, 0));
    std::vector<std::wstring> seen;
    for (int i = 0; i < 20 && (d.is_playing() || !d.is_healthy()); ++i) {
        tick();
        d.on_timer();
        seen.push_back(d.current_path());
    }
    EXPECT_EQ(d.play_order().position, 2) << "the list reached its last item";
}

TEST_F(DocumentTest, RemovedFilePlaysOnAndATruncatedOneEndsAtTheCut)
{
    std::string raw;
    fs::path wav = tone("gone.wav", 1.0, 440, &raw);
    {
        Document d(w(dir / "settings.xml"));
        ASSERT_TRUE(d.play_file(w(wav)));
        fs::remove(wav);
        run_to_stop(d);
    }
    EXPECT_EQ(without_silence(read_bytes(out), 1), raw);

    // Paced: the player reads ahead about 1.2 s, so a cut at 2 s of a 4 s
    // file comes before the reader gets there.
    fs::remove(out);
    setenv("SDL_DISKAUDIODELAY", "50", 1);
    fs::path cut = tone("cut.wav", 4.0, 440, &raw);
    {
        Document d(w(dir / "settings.xml"));
        ASSERT_TRUE(d.play_file(w(cut)));
        tick();
        fs::resize_file(cut, 44 + 2 * 22050 * 2);
        run_to_stop(d, 60);
        EXPECT_FALSE(d.is_playing());
    }
    std::string played = without_silence(read_bytes(out), 1);
    // The item ends only once the device has sounded what it still held:
    // ending it when the reader stops cut off about 1.4 s of the 2 s here.
    // The disk device itself still loses up to half a second at its close.
    EXPECT_GE(played.size(), size_t(2 * 22050 * 2 * 2 / 3)) << played.size() << " bytes played";
    EXPECT_EQ(played, raw.substr(0, played.size())) << "what played is the file's start, unbroken";
}

} // namespace

TEST_F(DocumentTest, AWindowsMediaFileHandedOverAgainWhilePlayingStartsAgain)
{
    // The media service opens one file at a time; the Document must let the
    // playing one go before it looks at the next.
    const std::wstring wma = w(test::one_media("wma2_mono_22050.wma"));
    Document d(w(dir / "settings.xml"));
    ASSERT_TRUE(d.play_file(wma));
    ASSERT_TRUE(d.pause());
    ASSERT_TRUE(d.play_file(wma)) << "the same file again";
    EXPECT_TRUE(d.is_playing());
    EXPECT_FALSE(d.is_paused());
    const std::wstring other = w(test::one_media("wma_stereo_44100.wma"));
    ASSERT_TRUE(d.play_file(other)) << "another of its kind";
    EXPECT_EQ(d.current_path(), other);
}

// Recording through the Document: the names of new files, and the remote
// record and stop into the real program, with SDL's disk driver reading the
// speech clip as its capture input.
#include "app/complete_form.h"
#include "app/document.h"
#include "app/status_publication_wire.h"

#include "liba/active.h"
#include "liba/text.h"
#include "os/date_time.h"
#include "os/event_loop.h"
#include "os/path.h"
#include "os/unix_socket_server.h"
#include "skinner/properties.h"
#include "skinner/screen.h"
#include "tests/app/program_runner.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <regex>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

std::wstring wide(const fs::path& p)
{
    return liba::from_utf8(p.string());
}

// The speech clip as the raw capture input of the default record format
// (22050 Hz 16-bit mono), in `dir`; SDL's disk driver reads it.
std::string use_speech_input(const test::TempDir& dir, bool real_time)
{
    const fs::path in = dir / "in.raw";
    EXPECT_EQ(test::run("sox '" + test::media("speech_src.wav").at(0).string() +
                        "' -r 22050 -b 16 -c 1 -e signed-integer -t raw '" + in.string() + "'"),
              0);
    setenv("SDL_AUDIODRIVER", "disk", 1);
    setenv("SDL_DISKAUDIOFILEIN", in.c_str(), 1);
    setenv("SDL_DISKAUDIOFILE", (dir / "played.raw").c_str(), 1);
    if (real_time)
        unsetenv("SDL_DISKAUDIODELAY");
    else
        setenv("SDL_DISKAUDIODELAY", "0", 1);
    return test::read_file(in);
}

// Ends the program that quillctl started; its status socket names it.
void end_server()
{
    int fd = os::connect_unix_socket(status::socket_path());
    ucred peer{};
    socklen_t len = sizeof peer;
    int pid = fd >= 0 && ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &len) == 0 ? peer.pid : -1;
    if (fd >= 0)
        ::close(fd);
    if (pid > 0) {
        ::kill(pid, SIGTERM);
        test::wait_for([&] { return ::kill(pid, 0) != 0; }, 5000);
    }
}

} // namespace

TEST(DocumentRecord, NamesNewFilesByNumberOrDateInTheFolderTheSettingsSay)
{
    test::PrivateHome home;
    test::TempDir dir;
    use_speech_input(dir, false);
    Document doc(wide(home.app_data() / "Quillaphonics.xml"));
    Settings s = doc.settings();

    // Numbered: the first free number, no padding; a taken one is skipped.
    test::write_file(dir / "2.mp3", "");
    for (const char* expected : {"1.mp3", "3.mp3"}) {
        ASSERT_TRUE(doc.record(wide(dir.path())));
        EXPECT_TRUE(doc.is_recording());
        EXPECT_EQ(doc.record_file_path(), wide(dir / expected));
        EXPECT_TRUE(doc.stop());
        EXPECT_FALSE(doc.is_recording());
        EXPECT_TRUE(fs::exists(dir / expected));
    }

    // Dated, with a prefix, in a day's folder inside "Folder"; a WAV for PCM.
    s.codec = L"PCM";
    s.prefix = L"memo";
    s.include_date = true;
    s.default_folder = true;
    s.date_folder = true;
    s.folder = wide(dir / "records");
    doc.apply_settings(s);
    const os::DateTime t = os::DateTime::now();
    ASSERT_TRUE(doc.record(L"/ignored"));
    const fs::path made = liba::to_utf8(doc.record_file_path());
    EXPECT_TRUE(doc.stop());
    char day[32];
    std::snprintf(day, sizeof day, "%04d-%02d-%02d", t.year, t.month, t.day);
    EXPECT_EQ(made.parent_path(), dir / "records" / day);
    EXPECT_TRUE(std::regex_match(made.filename().string(),
                                 std::regex(R"(memo \d\d (jan|feb|mar|apr|may|jun|jul|aug|sep|oct|nov|dec) \d\d )"
                                            R"(\d\d-\d\d-\d\d\.wav)")))
        << made;
    EXPECT_TRUE(fs::exists(made));

    // A folder that can't be written: the documents folder, with a dated name.
    s.prefix.clear();
    s.include_date = false;
    s.default_folder = false;
    doc.apply_settings(s);
    ASSERT_TRUE(doc.record(L"/proc/no-such-folder"));
    const std::wstring rescued = doc.record_file_path();
    EXPECT_TRUE(doc.stop());
    EXPECT_EQ(os::folder_of(rescued), os::expand_path(L"%my_documents%/"));
    EXPECT_TRUE(std::regex_match(liba::to_utf8(os::file_name_of(rescued)), std::regex(R"(\d\d [a-z]{3} .*\.wav)")));
}

TEST(DocumentRecord, QuillctlRecordAndStopIntoARunningProgramKeepTheInput)
{
    test::PrivateHome home;
    test::TempDir dir;
    std::string out;
    ASSERT_EQ(test::quillctl("log on", &out), 0) << out;

    // No capture device at all: the command fails and the log says why.
    setenv("SDL_AUDIODRIVER", "none-such", 1);
    EXPECT_EQ(test::quillctl("record " + (dir / "none.wav").string() + " 7", &out), 1);
    EXPECT_EQ(out, "failed\n");
    EXPECT_NE(test::read_log(home.app_data()).find(L"record: no capture device takes 22050 Hz"), std::wstring::npos);
    end_server();

    const std::string input = use_speech_input(dir, true);
    const fs::path file = dir / "out.wav";
    ASSERT_EQ(test::quillctl("record " + file.string() + " 7", &out), 0);
    EXPECT_EQ(out, "ok\n");
    // The device delivers in real time: let it play the whole clip in.
    const auto clip = std::chrono::milliseconds(input.size() * 1000 / (22050 * 2));
    std::this_thread::sleep_for(clip + std::chrono::milliseconds(800));
    // The status counts the time recorded so far, in milliseconds.
    ASSERT_EQ(test::quillctl("status", &out), 0);
    EXPECT_NE(out.find("state: recording\n"), std::string::npos) << out;
    const auto at = out.find("time_ms: ");
    ASSERT_NE(at, std::string::npos) << out;
    EXPECT_GE(std::stol(out.substr(at + 9)), long(clip.count())) << out;
    ASSERT_EQ(test::quillctl("stop", &out), 0);
    EXPECT_EQ(out, "ok\n");
    end_server();

    std::string samples;
    ASSERT_EQ(test::run("sox '" + file.string() + "' -t raw -e signed-integer -b 16 -", &samples), 0);
    ASSERT_GE(samples.size(), input.size());
    EXPECT_TRUE(samples.substr(0, input.size()) == input);
    EXPECT_EQ(samples.substr(input.size()).find_first_not_of('\0'), std::string::npos);
}

TEST(DocumentRecord, OverwriteAppendAndInsertKeepTheOldAudioAndMarkWhereTheNewBegins)
{
    test::PrivateHome home;
    test::TempDir dir;
    const std::string input = use_speech_input(dir, false);
    setenv("SDL_DISKAUDIODELAY", "1", 1);
    Document doc(wide(home.app_data() / "Quillaphonics.xml"));
    const fs::path base = dir / "base.wav";
    ASSERT_EQ(test::run("sox -n -r 8000 -b 16 -c 1 '" + base.string() + "' synth 1 sine 300 gain -3"), 0);
    ASSERT_EQ(test::run("sox '" + base.string() + "' -e ms-adpcm '" + (dir / "base_adpcm.wav").string() + "'"), 0);
    ASSERT_EQ(test::run("oggenc -Q -o '" + (dir / "base.ogg").string() + "' '" + base.string() + "'"), 0);
    auto samples = [](const fs::path& f) {
        std::string s;
        EXPECT_EQ(test::run("sox '" + f.string() + "' -t raw -e signed-integer -b 16 -", &s), 0);
        return s;
    };
    auto marks = [](const fs::path& f) {
        std::string out;
        test::quillctl("marks '" + f.string() + "'", &out);
        return out;
    };
    auto record = [&](const std::function<bool()>& start) {
        if (!start())
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        return doc.stop();
    };
    const std::string old = samples(base);

    // Vorbis can't be written: both modes fail and leave the file as it was.
    const std::string ogg = test::read_file(dir / "base.ogg");
    EXPECT_FALSE(doc.record_overwrite(wide(dir / "base.ogg")));
    EXPECT_FALSE(doc.record_append(wide(dir / "base.ogg")));
    EXPECT_FALSE(doc.is_recording());
    EXPECT_TRUE(test::read_file(dir / "base.ogg") == ogg);

    // Append to a WAV of 8000 Hz while the settings say 22050: the file's
    // format goes on, the old samples first, a mark at the old end (bytes).
    fs::copy_file(base, dir / "appended.wav");
    ASSERT_TRUE(record([&] { return doc.record_append(wide(dir / "appended.wav")); }));
    std::string got = samples(dir / "appended.wav");
    std::string info;
    test::run("soxi -r '" + (dir / "appended.wav").string() + "'", &info);
    EXPECT_EQ(info, "8000\n");
    ASSERT_GT(got.size(), old.size() + 10000);
    EXPECT_TRUE(got.substr(0, old.size()) == old);
    EXPECT_TRUE(got.substr(old.size(), 10000) == input.substr(0, 10000));
    EXPECT_EQ(marks(dir / "appended.wav"), "Bookmark\t16000\t1.000\t-1\n");

    // Overwrite: the old format, only the new audio; once sound is written
    // the view's texts tell the file's format, and the time left on the
    // volume at its bit rate.
    fs::copy_file(base, dir / "overwritten.wav");
    ASSERT_TRUE(doc.record_overwrite(wide(dir / "overwritten.wav")));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(doc.rate_text(), L"8 kHz");
    EXPECT_EQ(doc.bitrate_text(), L"128kbps");
    const double space = static_cast<double>(fs::space(dir.path()).available);
    EXPECT_NEAR(doc.remaining_time(), space / 16000, space / 16000 / 100);
    ASSERT_TRUE(doc.stop());
    got = samples(dir / "overwritten.wav");
    EXPECT_TRUE(got.substr(0, 10000) == input.substr(0, 10000));

    // Insert into PCM at byte 6000 and into ADPCM at block 3: head, the new
    // audio, tail; a mark at each end of the new part; no temporary left.
    // A mark set while recording lands inside the inserted part.
    fs::copy_file(base, dir / "inserted.wav");
    ASSERT_TRUE(doc.record_insert(wide(dir / "inserted.wav"), 6000));
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    ASSERT_TRUE(doc.add_bookmark());
    const int32_t marked = doc.bookmarks().mark(0).position;
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    ASSERT_TRUE(doc.stop());
    got = samples(dir / "inserted.wav");
    const std::size_t added = got.size() - old.size();
    EXPECT_TRUE(got.substr(0, 6000) == old.substr(0, 6000));
    EXPECT_TRUE(got.substr(6000, 10000) == input.substr(0, 10000));
    EXPECT_TRUE(got.substr(6000 + added) == old.substr(6000));
    auto time_of = [](std::size_t bytes) {
        return std::to_string(bytes / 16000) + "." + std::to_string(bytes % 16000 * 1000 / 16000 + 1000).substr(1);
    };
    EXPECT_GT(marked, 0);
    EXPECT_LT(static_cast<std::size_t>(marked), added);
    EXPECT_EQ(marks(dir / "inserted.wav"),
              "Bookmark\t6000\t0.375\t-1\nBookmark\t" + std::to_string(6000 + marked) + "\t" +
                  time_of(6000 + static_cast<std::size_t>(marked)) + "\t-1\nBookmark\t" +
                  std::to_string(6000 + added) + "\t" + time_of(6000 + added) + "\t-1\n");

    const fs::path adpcm = dir / "base_adpcm.wav";
    const std::string old_adpcm = samples(adpcm);
    // Samples per block, from the "fmt " chunk sox writes first: its
    // wSamplesPerBlock sits at byte 38 of the file.
    const std::string header = test::read_file(adpcm).substr(0, 40);
    const std::size_t block_bytes = 2 * (static_cast<unsigned char>(header[38]) |
                                         static_cast<unsigned char>(header[39]) << 8);
    ASSERT_TRUE(record([&] { return doc.record_insert(wide(adpcm), 3); }));
    got = samples(adpcm);
    const std::size_t head = 3 * block_bytes;
    ASSERT_GT(got.size(), old_adpcm.size());
    EXPECT_TRUE(got.substr(0, head) == old_adpcm.substr(0, head));
    EXPECT_TRUE(got.substr(got.size() - (old_adpcm.size() - head)) == old_adpcm.substr(head));
    for (const auto& entry : fs::directory_iterator(dir.path()))
        EXPECT_NE(entry.path().extension(), ".tmp") << entry.path();
}

TEST(DocumentRecord, TheDrainFormFillsItsBarAsTheBufferEmptiesAndClosesAtTheEnd)
{
    setenv("SDL_VIDEODRIVER", "offscreen", 1);
    CActiveScheduler scheduler;
    os::EventLoop loop(scheduler);
    const skinner::Point size{240, 320};
    skinner::Properties properties(wide(test::program_dir() / "skins" / "Default" / "Default.skin"), size);
    skinner::Screen screen(loop, size);
    skinner::Form owner(nullptr, properties, L"Main");

    // A writer that takes 20 ms a record, and 30 records queued for it.
    class SlowWriter : public audio::Consumer<audio::PCMData> {
    public:
        void on_data(const audio::PCMData&) override { std::this_thread::sleep_for(std::chrono::milliseconds(20)); }
    } writer;
    audio::ActiveBuffer buffer;
    audio::connect(buffer, &writer);
    audio::PCMData record;
    record.bytes = liba::ByteBlock(std::string(10000, '\1').data(), 10000);
    record.channels = 1;
    record.bits = 16;
    record.rate = 22050;
    for (int i = 0; i < 30; ++i)
        buffer.on_data(record);

    // The bar seen at each tick: it only grows, and is full when the form ends.
    class WatchedForm : public CompleteForm {
    public:
        using CompleteForm::CompleteForm;
        void on_timer(int id, int user_data) override
        {
            CompleteForm::on_timer(id, user_data);
            seen.push_back(progress());
        }
        std::vector<double> seen;
    } form(&owner, buffer);
    form.run();
    EXPECT_EQ(buffer.queued_records(), 0);
    ASSERT_GE(form.seen.size(), 3u) << "30 records of 20 ms take several ticks of 0.1 s";
    EXPECT_TRUE(std::is_sorted(form.seen.begin(), form.seen.end()));
    EXPECT_LT(form.seen.front(), 1.0);
    EXPECT_DOUBLE_EQ(form.seen.back(), 1.0);
    EXPECT_FALSE(form.is_visible());
    audio::connect(buffer, nullptr);
}

TEST(DocumentRecord, AFullTargetStopsTheRecordingAtTheNextTickAndLeavesAValidFile)
{
    test::PrivateHome home;
    test::TempDir dir;
    const std::string input = use_speech_input(dir, false);
    setenv("SDL_DISKAUDIODELAY", "1", 1);
    Document doc(wide(home.app_data() / "Quillaphonics.xml"));
    const fs::path file = dir / "full.wav";
    // Files of this process may grow to 100,000 bytes; a write past that
    // fails short instead of raising SIGXFSZ.
    constexpr rlim_t kLimit = 100000;
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    auto old_handler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit small = old;
    small.rlim_cur = kLimit;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    ASSERT_TRUE(doc.record_to(wide(file), 7));
    // The 0.2-second tick of the program, until the Document stops by itself.
    for (int tick = 0; tick < 100 && doc.is_recording(); ++tick) {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        doc.on_timer();
    }
    const bool stopped = !doc.is_recording();
    setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, old_handler);
    ASSERT_TRUE(stopped);
    EXPECT_LE(fs::file_size(file), kLimit);
    std::string samples;
    ASSERT_EQ(test::run("sox '" + file.string() + "' -t raw -e signed-integer -b 16 -", &samples), 0);
    EXPECT_GT(samples.size(), 50000u);
    EXPECT_TRUE(samples == input.substr(0, samples.size()));
}

// Recording through the Document: the names of new files, and the remote
// record and stop into the real program, with SDL's disk driver reading the
// speech clip as its capture input.
#include "app/document.h"
#include "app/status_publication_wire.h"

#include "liba/text.h"
#include "os/date_time.h"
#include "os/path.h"
#include "os/unix_socket_server.h"
#include "tests/app/program_runner.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <regex>
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
    ASSERT_EQ(test::quillctl("stop", &out), 0);
    EXPECT_EQ(out, "ok\n");
    end_server();

    std::string samples;
    ASSERT_EQ(test::run("sox '" + file.string() + "' -t raw -e signed-integer -b 16 -", &samples), 0);
    ASSERT_GE(samples.size(), input.size());
    EXPECT_TRUE(samples.substr(0, input.size()) == input);
    EXPECT_EQ(samples.substr(input.size()).find_first_not_of('\0'), std::string::npos);
}

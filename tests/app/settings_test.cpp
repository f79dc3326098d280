// The settings record and its file: round trips, hand-written and damaged
// files, the real program keeping its settings across restarts, and saves
// cut short by kill -9.
#include "app/settings.h"

#include "liba/text.h"
#include "os/log.h"
#include "os/path.h"
#include "os/xml_document.h"
#include "tests/app/program_runner.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <regex>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

os::DateTime at(int year, int month, int day, int hour, int minute, int second)
{
    os::DateTime d;
    d.year = static_cast<uint16_t>(year);
    d.month = static_cast<uint16_t>(month);
    d.day = static_cast<uint16_t>(day);
    d.hour = static_cast<uint16_t>(hour);
    d.minute = static_cast<uint16_t>(minute);
    d.second = static_cast<uint16_t>(second);
    return d;
}

// A record in which every field the file keeps differs from its default.
Settings every_value_changed()
{
    Settings s;
    s.channels = 2;
    s.bits = 8;
    s.samples = 44100;
    s.bitrate = 128000;
    s.codec = L"ADPCM";
    s.default_folder = true;
    s.folder = L"%my_documents%/Aufnahmen";
    s.date_folder = true;
    s.prefix = L"Take <&\"'> \u00dc\u4e2d";
    s.include_date = true;
    s.turn_off_record = 30;
    s.volume = 0.75;
    s.mode = 4;
    s.turn_off_play = 60;
    s.associate_mp3_cmd = L"mp3.desktop";
    s.associate_wav_cmd = L"wav.desktop";
    s.associate_m3u_cmd = L"m3u.desktop";
    s.associate_ogg_cmd = L"ogg.desktop";
    s.associate_wma_cmd = L"wma.desktop";
    s.associate_mp3_icon = L"mp3-icon";
    s.associate_wav_icon = L"wav-icon";
    s.associate_m3u_icon = L"m3u-icon";
    s.associate_ogg_icon = L"ogg-icon";
    s.associate_wma_icon = L"wma-icon";
    s.vas_on = true;
    s.monitor = false;
    s.vas = 0.125;
    s.input = 0.875;
    s.buttons = {L"Play",   L"Stop",   L"Previous", L"Next",  L"Rewind", L"Forward",
                 L"VolUp",  L"VolDn",  L"Record",   L"Pause", L"Mark",   L"Bookmarks"};
    s.unmap_when_inactive = false;
    s.joy_left_action = L"Previous";
    s.joy_right_action = L"Next";
    s.equalizer1 = {250.5, -6.25, 1.5, true};
    s.equalizer2 = {1000.0, 3.0, 0.5, false};
    s.equalizer3 = {4000.0, 0.0, 2.0, true};
    s.show_folders = false;
    s.explorer_folder = L"%my_documents%/Musik";
    s.sort = 6;
    s.speed = 0.5;
    s.pitch_lock = true;
    s.stretch_any_speed = true;
    s.schedule = {{at(2024, 3, 7, 9, 5, 0), at(2024, 3, 7, 10, 30, 0)},
                  {at(2025, 12, 31, 23, 0, 0), at(2026, 1, 1, 1, 0, 0)}};
    s.booster = 3;
    s.noise = 2;
    s.limiter = 1;
    s.language = L"Deutsch";
    s.skin = L"%app_data%/skins/Dark/Dark.skin";
    return s;
}

std::string bytes_of(const Settings& s)
{
    os::XmlDocument doc;
    s.save_to(doc);
    return doc.save_bytes();
}

std::wstring wide(const fs::path& p) { return liba::from_utf8(p.string()); }

class SettingsTest : public testing::Test {
protected:
    void SetUp() override
    {
        os::init_path_macros();
        ASSERT_TRUE(os::ensure_app_data());
        os::set_log_switch(true);
        ASSERT_TRUE(os::log().is_on());
        file = home.app_data() / "Quillaphonics.xml";
    }
    void TearDown() override
    {
        test::kill_started();
        os::set_log_switch(false);
        os::log();
    }
    std::wstring log() const { return test::read_log(home.app_data()); }
    // Switching the log off and on again empties it.
    void restart_log()
    {
        os::set_log_switch(false);
        os::log();
        os::set_log_switch(true);
        os::log();
    }

    test::PrivateHome home;
    fs::path file;
};

TEST_F(SettingsTest, SaveAndLoadKeepEveryValueButTheMonitorFlag)
{
    Settings original = every_value_changed();
    ASSERT_TRUE(original.save(wide(file)));

    // Loading overlays every field, whatever the record held before.
    Settings back = every_value_changed();
    back.bits = 24;
    back.schedule.clear();
    back.buttons[5] = L"Other";
    ASSERT_TRUE(back.load(wide(file)));
    Settings expected = original;
    expected.monitor = false; // untouched by loading
    EXPECT_EQ(back, expected);

    Settings fresh;
    ASSERT_TRUE(fresh.load(wide(file)));
    EXPECT_TRUE(fresh.monitor) << "the monitor flag is not kept in the file";
    fresh.monitor = false;
    EXPECT_EQ(fresh, original);
    EXPECT_EQ(bytes_of(fresh), test::read_file(file)) << "a second save writes the same file";

    // Doubles keep six decimals; control characters in texts survive.
    Settings fine;
    fine.volume = 0.1234567;
    fine.speed = 1.9999999;
    fine.prefix = L"tab\there\nnew line\r";
    ASSERT_TRUE(fine.save(wide(file)));
    Settings fine_back;
    ASSERT_TRUE(fine_back.load(wide(file)));
    EXPECT_DOUBLE_EQ(fine_back.volume, 0.123457);
    EXPECT_DOUBLE_EQ(fine_back.speed, 2.0);
    EXPECT_EQ(fine_back.prefix, fine.prefix);

    // Defaults round-trip too, with the documents folder expanded.
    Settings defaults;
    EXPECT_EQ(defaults.folder, os::expand_path(L"%my_documents%"));
    EXPECT_FALSE(defaults.folder.empty());
    ASSERT_TRUE(defaults.save(wide(file)));
    Settings defaults_back = every_value_changed();
    ASSERT_TRUE(defaults_back.load(wide(file)));
    defaults_back.monitor = true;
    EXPECT_EQ(defaults_back, defaults);
}

// The file as Python's XML parser sees it: elements in document order, each
// with its attributes in file order.
std::string listing_by_python(const fs::path& file)
{
    const std::string script = "import sys, xml.etree.ElementTree as E\n"
                               "for e in E.parse(sys.argv[1]).getroot().iter():\n"
                               "    print(' '.join([e.tag] + ['%s=%s' % kv for kv in e.attrib.items()]))\n";
    test::write_file(file.parent_path() / "list.py", script);
    std::string out;
    EXPECT_EQ(test::run("PYTHONIOENCODING=utf-8 python3 '" + (file.parent_path() / "list.py").string() + "' '" +
                            file.string() + "'",
                        &out),
              0);
    return out;
}

TEST_F(SettingsTest, WritesSectionsAndKeysInTheirOrderAndEncodings)
{
    ASSERT_TRUE(every_value_changed().save(wide(file)));
    EXPECT_EQ(listing_by_python(file),
              "Settings\n"
              "Record Codec=ADPCM Channels=2 Bits=8 Samples=44100 Bitrate=128000 DefaultFolder=true "
              "Folder=%my_documents%/Aufnahmen DateFolder=true Prefix=Take <&\"'> \u00dc\u4e2d IncludeDate=true "
              "TurnOff=30 VASOn=true Vas=0.125000 Input=0.875000\n"
              "Play Volume=0.750000 Mode=PlaylistShuffle TurnOff=60 AssociateMP3Cmd=mp3.desktop "
              "AssociateWAVCmd=wav.desktop AssociateM3UCmd=m3u.desktop AssociateOGGCmd=ogg.desktop "
              "AssociateWMACmd=wma.desktop AssociateMP3Icon=mp3-icon AssociateWAVIcon=wav-icon "
              "AssociateM3UIcon=m3u-icon AssociateOGGIcon=ogg-icon AssociateWMAIcon=wma-icon Booster=3 Noise=2 "
              "Limiter=1 Speed=0.500000 PitchLock=true StretchAnySpeed=true\n"
              "Language Language=Deutsch\n"
              "Buttons Button0=Play Button1=Stop Button2=Previous Button3=Next Button4=Rewind Button5=Forward "
              "Button6=VolUp Button7=VolDn Button8=Record Button9=Pause Button10=Mark Button11=Bookmarks "
              "UnmapWhenInactive=false JoyLeftAction=Previous JoyRightAction=Next\n"
              "FileExplorer ShowFolders=false Folder=%my_documents%/Musik Sort=SIZE_DESC\n"
              "Skin Skin=%app_data%/skins/Dark/Dark.skin\n"
              "Equalizer1 Frequency=250.500000 Amplitude=-6.250000 Width=1.500000 Active=true\n"
              "Equalizer2 Frequency=1000.000000 Amplitude=3.000000 Width=0.500000 Active=false\n"
              "Equalizer3 Frequency=4000.000000 Amplitude=0.000000 Width=2.000000 Active=true\n"
              "Schedule\n"
              "Task Begin=2024 03 07 09 05 00 End=2024 03 07 10 30 00\n"
              "Task Begin=2025 12 31 23 00 00 End=2026 01 01 01 00 00\n");
}

TEST_F(SettingsTest, KeywordsOfModeAndSort)
{
    // The sort values have a gap at 4: no keyword, so it is not written and
    // the next load keeps the default.
    const std::pair<int, const wchar_t*> sorts[] = {{0, L"NONE"}, {1, L"NAME"},      {2, L"DATE"},
                                                    {3, L"SIZE"}, {5, L"DATE_DESC"}, {6, L"SIZE_DESC"}};
    for (auto [value, keyword] : sorts) {
        Settings s;
        s.sort = value;
        ASSERT_TRUE(s.save(wide(file)));
        EXPECT_NE(test::read_file(file).find("Sort=\"" + liba::to_utf8(keyword) + "\""), std::string::npos);
        Settings back;
        back.sort = -1;
        back.load(wide(file));
        EXPECT_EQ(back.sort, value) << liba::to_utf8(keyword);
    }
    const wchar_t* modes[] = {L"SingleOnce", L"SingleRepeat", L"PlaylistOnce", L"PlaylistRepeat", L"PlaylistShuffle"};
    for (int value = 0; value < 5; ++value) {
        Settings s;
        s.mode = value;
        ASSERT_TRUE(s.save(wide(file)));
        EXPECT_NE(test::read_file(file).find("Mode=\"" + liba::to_utf8(modes[value]) + "\""), std::string::npos);
        Settings back;
        back.mode = -1;
        back.load(wide(file));
        EXPECT_EQ(back.mode, value);
    }
    Settings gap;
    gap.sort = 4;
    gap.mode = 5;
    ASSERT_TRUE(gap.save(wide(file)));
    std::string text = test::read_file(file);
    EXPECT_EQ(text.find("Sort="), std::string::npos) << text;
    EXPECT_EQ(text.find("Mode="), std::string::npos) << text;
    Settings back;
    ASSERT_TRUE(back.load(wide(file)));
    EXPECT_EQ(back.sort, 1);
    EXPECT_EQ(back.mode, 0);
}

TEST_F(SettingsTest, HandWrittenFileWithMissingUnknownAndWrongValues)
{
    test::write_file(file, R"(<?xml version="1.0" encoding="UTF-8"?>
<!-- edited by hand -->
<Settings Version="7">
  <Record Codec="GSM" Bits="abc" Channels="2" Bitrate="99999999999" DefaultFolder="TRUE" DateFolder="True"
          IncludeDate="1" VASOn="yes" Vas="nan" Input="0.25" Folder="%my_documents%/Takes"
          Prefix="a&amp;b &lt;c&gt;" TurnOff="-5" Unknown="1"/>
  <Play Volume="0x1p-1" Mode="Shuffle" Speed="1.5e0" PitchLock="FALSE" Booster="3" Noise="2.5" Limiter=""
        AssociateMP3Cmd="vlc.desktop" TurnOff="inf"/>
  <Play Volume="0.1"/>
  <Language/>
  <Buttons Button0="Record" Button11="Stop" Button12="Play" JoyLeftAction="" UnmapWhenInactive="0"/>
  <FileExplorer Sort="name" ShowFolders="false"/>
  <Equalizer2 Frequency="1000" Active="TRUE" Width="x" Amplitude="-1e400"/>
  <Extra Foo="bar"><Record Codec="PCM"/></Extra>
  <Schedule>
    <Task Begin="2024 3 7 9 5 0" End="2024 03 07 10 00 00"/>
    <Note Begin="2000 01 01 00 00 00"/>
    <Task Begin="2023 12 31 23 00 00"/>
    <Task Begin="2023 02 29 00 00 00" End="2024 02 29 00 00 00"/>
    <Task Begin="2024 1 1 24 0 0" End="-2024 01 01 00 00 00"/>
  </Schedule>
</Settings>
)");
    Settings s;
    s.language = L"Deutsch";
    s.skin = L"%app_path%/skins/Other/Other.skin";
    s.sort = 5;
    ASSERT_TRUE(s.load(wide(file)));

    Settings expected;
    expected.language = L"Deutsch";                        // an element without the key
    expected.skin = L"%app_path%/skins/Other/Other.skin"; // a missing element
    expected.sort = 5;                                     // "name" is no keyword
    expected.codec = L"GSM";
    expected.channels = 2;
    expected.default_folder = true;
    expected.date_folder = true;
    expected.include_date = true;
    expected.input = 0.25;
    expected.folder = L"%my_documents%/Takes";
    expected.prefix = L"a&b <c>";
    expected.turn_off_record = -5;
    expected.speed = 1.5;
    expected.booster = 3;
    expected.associate_mp3_cmd = L"vlc.desktop";
    expected.buttons[0] = L"Record";
    expected.buttons[11] = L"Stop";
    expected.joy_left_action = L"";
    expected.unmap_when_inactive = false;
    expected.show_folders = false;
    expected.equalizer2.frequency = 1000.0;
    expected.equalizer2.active = true;
    // In file order, not sorted again; a bad or missing date is null.
    expected.schedule = {{at(2024, 3, 7, 9, 5, 0), at(2024, 3, 7, 10, 0, 0)},
                         {at(2023, 12, 31, 23, 0, 0), os::DateTime()},
                         {os::DateTime(), at(2024, 2, 29, 0, 0, 0)},
                         {os::DateTime(), os::DateTime()}};
    EXPECT_EQ(s, expected);
    EXPECT_EQ(s.bits, 16);
    EXPECT_EQ(s.mode, 0);
    EXPECT_DOUBLE_EQ(s.volume, 1.0);
    EXPECT_DOUBLE_EQ(s.vas, 0.5);

    // What is written back: canonical spellings, only the known keys, only
    // this device's buttons.
    ASSERT_TRUE(s.save(wide(file)));
    std::string text = test::read_file(file);
    EXPECT_NE(text.find("DefaultFolder=\"true\""), std::string::npos);
    EXPECT_NE(text.find("Begin=\"2024 03 07 09 05 00\""), std::string::npos);
    for (const char* gone : {"TRUE", "Unknown", "Version", "Extra", "Button12", "Note", "Codec=\"PCM\""})
        EXPECT_EQ(text.find(gone), std::string::npos) << gone;
    Settings again = s;
    ASSERT_TRUE(again.load(wide(file)));
    EXPECT_EQ(again, s);
}

TEST_F(SettingsTest, SectionsPresentReplaceWhatTheyHoldAndAbsentOnesKeepIt)
{
    Settings base = every_value_changed();
    // An empty schedule empties the list; a document without the root element
    // changes nothing.
    test::write_file(file, "<Settings><Schedule/></Settings>");
    Settings s = base;
    ASSERT_TRUE(s.load(wide(file)));
    EXPECT_TRUE(s.schedule.empty());
    s.schedule = base.schedule;
    EXPECT_EQ(s, base);

    test::write_file(file, "<Other><Record Bits=\"24\"/></Other>");
    s = base;
    ASSERT_TRUE(s.load(wide(file)));
    EXPECT_EQ(s, base);

    // UTF-16 with a byte-order mark reads as well, made by iconv.
    test::write_file(home.root() / "u8.xml", "<Settings><Language Language=\"\u010ce\u0161tina\"/></Settings>");
    ASSERT_EQ(test::run("iconv -f UTF-8 -t UTF-16 '" + (home.root() / "u8.xml").string() + "' > '" + file.string() +
                        "'"),
              0);
    s = base;
    ASSERT_TRUE(s.load(wide(file)));
    EXPECT_EQ(s.language, L"\u010ce\u0161tina");
}

TEST_F(SettingsTest, FileThatDoesNotParseIsKeptAsideAndTheDefaultsStand)
{
    ASSERT_TRUE(every_value_changed().save(wide(file)));
    std::string good = test::read_file(file);
    std::string random;
    ASSERT_EQ(test::run("head -c 3000 /dev/urandom", &random), 0);
    std::string mismatched = good;
    mismatched.replace(mismatched.rfind("</Settings>"), 11, "</Setting>");
    const std::pair<const char*, std::string> cases[] = {
        {"cut in half", good.substr(0, good.size() / 2)},
        {"wrong end tag", mismatched},
        {"random bytes", "<" + random},
        {"empty", ""},
    };
    fs::path bad = file.string() + ".bad";
    for (const auto& [what, bytes] : cases) {
        SCOPED_TRACE(what);
        test::write_file(file, bytes);
        fs::remove(bad);
        restart_log();
        Settings s;
        EXPECT_FALSE(s.load(wide(file)));
        EXPECT_EQ(s, Settings());
        EXPECT_FALSE(fs::exists(file));
        ASSERT_TRUE(fs::exists(bad));
        EXPECT_EQ(test::read_file(bad), bytes);

        std::string line = liba::to_utf8(log());
        EXPECT_NE(line.find("settings: " + file.string() + " does not parse ("), std::string::npos) << line;
        EXPECT_NE(line.find("kept as " + bad.string()), std::string::npos) << line;
        std::smatch m;
        ASSERT_TRUE(std::regex_search(line, m, std::regex("at byte ([0-9]+)"))) << line;
        EXPECT_LE(std::stoul(m[1]), bytes.size()) << line;
    }

    // A file that isn't there is no error: nothing is logged or moved.
    fs::remove(bad);
    restart_log();
    Settings s;
    EXPECT_FALSE(s.load(wide(file)));
    EXPECT_EQ(s, Settings());
    EXPECT_FALSE(fs::exists(bad));
    EXPECT_EQ(log().find(L"settings:"), std::wstring::npos);
}

TEST_F(SettingsTest, LanguageFileBesideTheProgramFirstThenInAppData)
{
    Settings s;
    s.language = L"Lang" + std::to_wstring(::getpid());
    std::wstring out;
    s.language_file(out);
    EXPECT_EQ(out, L"%app_path%/" + s.language + L".lng");

    fs::path users = home.app_data() / (liba::to_utf8(s.language) + ".lng");
    test::write_file(users, "x");
    s.language_file(out);
    EXPECT_EQ(out, L"%app_data%/" + s.language + L".lng");

    fs::path beside = liba::to_utf8(os::expand_path(L"%app_path%/" + s.language + L".lng"));
    test::write_file(beside, "x");
    s.language_file(out);
    fs::remove(beside);
    EXPECT_EQ(out, L"%app_path%/" + s.language + L".lng");
}

// The real program reads the settings at start and writes them at its end;
// from a file that does not parse it starts with the defaults.
TEST_F(SettingsTest, ProgramKeepsEveryValueAcrossRestartsAndStartsAfreshFromABadFile)
{
    const fs::path socket = home.runtime() / "SkinnerClass_Quillaphonics";
    auto run_program = [&] {
        auto program = test::start_program("quillaphonics", {"-hide"});
        EXPECT_TRUE(test::wait_for([&] { return fs::exists(socket); }, 10000)) << "the program never listened";
        program.signal(SIGTERM);
        EXPECT_EQ(program.wait(10000), 0);
    };
    Settings expected = every_value_changed();
    expected.monitor = true;
    // The file as a person might have left it: other spellings of the flags,
    // a key the program does not know.
    std::string text = bytes_of(expected);
    for (size_t at = text.find("\"true\""); at != std::string::npos; at = text.find("\"true\"", at))
        text.replace(at, 6, "\"TRUE\"");
    for (size_t at = text.find("\"false\""); at != std::string::npos; at = text.find("\"false\"", at))
        text.replace(at, 7, "\"0\"");
    text.replace(text.find("<Record "), 8, "<Record Stale=\"1\" ");
    test::write_file(file, text);

    for (int run = 0; run < 2; ++run) {
        SCOPED_TRACE(run);
        run_program();
        std::string written = test::read_file(file);
        EXPECT_EQ(written.find("TRUE"), std::string::npos) << "the program wrote the file anew";
        EXPECT_EQ(written.find("Stale"), std::string::npos);
        Settings back;
        ASSERT_TRUE(back.load(wide(file)));
        EXPECT_EQ(back, expected);
        EXPECT_EQ(written, bytes_of(expected));
    }
    EXPECT_FALSE(fs::exists(file.string() + ".bad"));

    const std::string broken = "<Settings><Record Bits=\"8\"></Settings>";
    test::write_file(file, broken);
    run_program();
    EXPECT_EQ(test::read_file(file.string() + ".bad"), broken) << "the broken file is kept aside";
    Settings back;
    back.bits = 0;
    ASSERT_TRUE(back.load(wide(file)));
    EXPECT_EQ(back.bits, 16) << "the defaults were written";
}

// A child saves two different records in turn, as fast as it can, until it is
// killed; what is left must always load whole as one of them.
TEST_F(SettingsTest, KillDuringSaveLeavesALoadableFile)
{
    Settings small;
    Settings large = every_value_changed();
    large.monitor = true; // not in the file
    for (int i = 0; i < 400; ++i)
        large.schedule.append({at(2030, 1, 1 + i % 28, i % 24, 0, 0), at(2030, 1, 1 + i % 28, i % 24, 30, 0)});
    ASSERT_TRUE(small.save(wide(file)));

    constexpr int kRounds = 40;
    constexpr int kPerRound = 1000000;
    int rounds_with_a_new_file = 0;
    for (int round = 0; round < kRounds; ++round) {
        pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            for (int n = round * kPerRound;; ++n) {
                Settings& s = n % 2 ? large : small;
                s.samples = n;
                s.save(wide(file));
            }
        }
        std::this_thread::sleep_for(std::chrono::microseconds(2000 + (round * 7919) % 30000));
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);

        Settings back;
        ASSERT_TRUE(back.load(wide(file))) << "round " << round;
        ASSERT_FALSE(fs::exists(file.string() + ".bad"));
        int n = back.samples;
        Settings expected = n % 2 ? large : small;
        expected.samples = n;
        EXPECT_EQ(bytes_of(back), bytes_of(expected)) << "round " << round << " sample value " << n;
        EXPECT_EQ(back, expected);
        if (n >= round * kPerRound)
            ++rounds_with_a_new_file;
    }
    EXPECT_GE(rounds_with_a_new_file, kRounds / 2) << "the child hardly ever finished a save";
}

} // namespace

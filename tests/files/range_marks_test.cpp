#include "files/range_marks.h"

#include "liba/text.h"
#include "os/log.h"
#include "os/path.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <sstream>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

using test::wide;

// Names of the marks in the list's index order.
std::vector<std::wstring> names(const RangeMarks& m)
{
    std::vector<std::wstring> out;
    for (int i = 0; i < m.count(); ++i)
        out.push_back(m.mark(i).name);
    return out;
}

std::vector<std::wstring> route_names(const RangeMarks& m)
{
    std::vector<std::wstring> out;
    for (int i = 0; i < m.route_count(); ++i)
        out.push_back(m.route_mark(i).name);
    return out;
}

// The list's own promises: ascending positions, no two at one position, and
// each route place naming a mark whose kind is that place.
void expect_consistent(const RangeMarks& m)
{
    for (int i = 1; i < m.count(); ++i)
        EXPECT_LT(m.mark(i - 1).position, m.mark(i).position) << i;
    int routed = 0;
    for (int i = 0; i < m.count(); ++i)
        if (m.mark(i).kind != -1) {
            ++routed;
            ASSERT_LT(m.mark(i).kind, m.route_count());
            EXPECT_EQ(m.route_index(m.mark(i).kind), i);
        }
    EXPECT_EQ(routed, m.route_count());
}

// Attribute `attr` of every "Bookmark" in file order, as xmllint reads it.
std::string file_order_by_xmllint(const fs::path& file, const std::string& attr)
{
    std::string out;
    EXPECT_EQ(test::run("xmllint --xpath '/Bookmarks/Bookmark/@" + attr + "' '" + file.string() + "'", &out), 0);
    return out;
}

// A copy of a sound file made by sox, so side files sit next to real audio.
fs::path sound_file(const test::TempDir& dir)
{
    auto media = test::media("pcm_s16_speech_16000.wav");
    EXPECT_EQ(media.size(), 1u);
    fs::path target = dir / "speech rec.wav";
    fs::copy_file(media.at(0), target);
    return target;
}

// The marks of a recording: three routed out of position order, two not,
// names with what XML must escape and characters beyond the BMP.
RangeMarks sample_marks()
{
    RangeMarks m;
    m.add_mark_raw(48000, L"Chorus <&\"'>", true);
    m.add_mark_raw(0, L"Start", false);
    m.add_mark_raw(16000, L"Verse \u00e9t\u00e9 \U0001F3B5", true);
    m.add_mark_raw(96000, L"Outro", false);
    m.add_mark_raw(2, L"Tab\there", true);
    return m;
}

} // namespace

TEST(RangeMarks, RoundTripsThroughTheSideFileWithRouteFirstInTheFile)
{
    test::TempDir dir;
    const fs::path sound = sound_file(dir);
    const fs::path side = dir / "speech rec.wav.bm";
    RangeMarks m = sample_marks();
    expect_consistent(m);
    EXPECT_EQ(names(m), (std::vector<std::wstring>{L"Start", L"Tab\there", L"Verse \u00e9t\u00e9 \U0001F3B5",
                                                   L"Chorus <&\"'>", L"Outro"}));
    EXPECT_EQ(route_names(m),
              (std::vector<std::wstring>{L"Chorus <&\"'>", L"Verse \u00e9t\u00e9 \U0001F3B5", L"Tab\there"}));

    // The side file is the sound's whole name with ".bm" behind it.
    ASSERT_TRUE(m.save(side_file_of(wide(sound))));
    ASSERT_TRUE(fs::exists(side));
    // The file order, read by another XML reader: the route in route order,
    // then the other marks by position.
    EXPECT_EQ(file_order_by_xmllint(side, "Position"),
              " Position=\"48000\"\n Position=\"16000\"\n Position=\"2\"\n Position=\"0\"\n Position=\"96000\"\n");
    EXPECT_EQ(file_order_by_xmllint(side, "Play"),
              " Play=\"true\"\n Play=\"true\"\n Play=\"true\"\n Play=\"false\"\n Play=\"false\"\n");

    RangeMarks back;
    ASSERT_TRUE(back.load(wide(side)));
    expect_consistent(back);
    EXPECT_EQ(back, m);
    // A second save writes the same bytes: load and save are each other's inverse.
    std::string first = test::read_file(side);
    ASSERT_TRUE(back.save(wide(side)));
    EXPECT_EQ(test::read_file(side), first);
    EXPECT_EQ(back.save_bytes(), m.save_bytes());

    // Saving replaces the file; an empty list saves and loads as empty.
    RangeMarks empty;
    ASSERT_TRUE(empty.save(wide(side)));
    ASSERT_TRUE(back.load(wide(side)));
    EXPECT_EQ(back.count(), 0);
    EXPECT_EQ(back.route_count(), 0);

    // No side file at all is an empty list, and not a failure.
    ASSERT_TRUE(m.load(wide(dir / "no such.wav.bm")));
    EXPECT_EQ(m.count(), 0);
}

TEST(RangeMarks, LoadNumbersTheRouteInFileOrderAndSortsMarksByPosition)
{
    // As another writer may lay it out: attributes in any order, flags in
    // other spellings, a mark without a name, comments and unknown elements.
    const std::string text = "<?xml version=\"1.0\"?>\r\n<!-- marks -->\r\n<Bookmarks>\r\n"
                             "  <Bookmark Position=\"300\" Play=\"True\" Name=\"C\"/>\r\n"
                             "  <Note text=\"not a mark\"/>\r\n"
                             "  <Bookmark Name=\"B\" Position=\"200\"/>\r\n"
                             "  <Bookmark Play=\"1\" Position=\"100\" Name=\"A\"/>\r\n"
                             "  <Bookmark Position=\"400\" Play=\"FALSE\"/>\r\n"
                             "</Bookmarks>\r\n";
    RangeMarks m;
    ASSERT_TRUE(m.load_bytes(text, L"memory"));
    expect_consistent(m);
    EXPECT_EQ(names(m), (std::vector<std::wstring>{L"A", L"B", L"C", L"Bookmark"}));
    EXPECT_EQ(route_names(m), (std::vector<std::wstring>{L"C", L"A"}));
    EXPECT_EQ(m.mark(2).kind, 0);
    EXPECT_EQ(m.mark(0).kind, 1);
    EXPECT_EQ(m.mark(1).kind, -1);
    EXPECT_EQ(m.mark(3).position, 400);
}

TEST(RangeMarks, MarksThatCollideAtOnePositionStayOne)
{
    RangeMarks m;
    EXPECT_EQ(m.add_mark(500, L"first"), 0);
    EXPECT_EQ(m.add_mark(100, L"before"), 0);
    // A second add at an occupied position returns the mark there, old name kept.
    EXPECT_EQ(m.add_mark(500, L"second"), 1);
    EXPECT_EQ(m.add_mark_raw(500, L"third", false), 1);
    EXPECT_EQ(names(m), (std::vector<std::wstring>{L"before", L"first"}));
    EXPECT_EQ(m.route_count(), 0);
    // Asked to be in the route, the mark that is there joins it, once.
    EXPECT_EQ(m.add_mark_raw(500, L"fourth", true), 1);
    EXPECT_EQ(m.add_mark_raw(500, L"fifth", true), 1);
    EXPECT_EQ(route_names(m), std::vector<std::wstring>{L"first"});
    expect_consistent(m);

    // In a file, the first mark at a position wins; a routed one it absorbs
    // keeps its range in the route at that place.
    const std::string text = "<Bookmarks>"
                             "<Bookmark Name=\"R1\" Position=\"70\" Play=\"true\"/>"
                             "<Bookmark Name=\"R2\" Position=\"10\" Play=\"true\"/>"
                             "<Bookmark Name=\"R3\" Position=\"90\" Play=\"true\"/>"
                             "<Bookmark Name=\"Plain\" Position=\"10\" Play=\"false\"/>"
                             "<Bookmark Name=\"Early\" Position=\"70\" Play=\"false\"/>"
                             "<Bookmark Name=\"Again\" Position=\"90\" Play=\"false\"/>"
                             "</Bookmarks>";
    RangeMarks f;
    ASSERT_TRUE(f.load_bytes(text, L"memory"));
    expect_consistent(f);
    EXPECT_EQ(names(f), (std::vector<std::wstring>{L"R2", L"R1", L"R3"}));
    EXPECT_EQ(route_names(f), (std::vector<std::wstring>{L"R1", L"R2", L"R3"}));
    const std::string unrouted_first = "<Bookmarks>"
                                       "<Bookmark Name=\"Routed\" Position=\"10\" Play=\"true\"/>"
                                       "<Bookmark Name=\"Plain\" Position=\"5\" Play=\"false\"/>"
                                       "<Bookmark Name=\"Lent\" Position=\"5\" Play=\"true\"/>"
                                       "</Bookmarks>";
    ASSERT_TRUE(f.load_bytes(unrouted_first, L"memory"));
    expect_consistent(f);
    EXPECT_EQ(names(f), (std::vector<std::wstring>{L"Plain", L"Routed"}))
        << "the first mark at a position in file order keeps its name";
    EXPECT_EQ(route_names(f), (std::vector<std::wstring>{L"Routed", L"Plain"}))
        << "and takes the route place of the routed one it absorbed";
}

TEST(RangeMarks, AddingInsideARoutedRangeKeepsBothHalvesInTheRoute)
{
    RangeMarks m;
    m.add_mark_raw(0, L"intro", false);
    m.add_mark_raw(1000, L"b", true);
    m.add_mark_raw(2000, L"c", false);
    m.add_mark_raw(3000, L"d", true);
    m.add_mark_raw(500, L"a", true); // route: b, d, a
    ASSERT_EQ(route_names(m), (std::vector<std::wstring>{L"b", L"d", L"a"}));

    // Inside b's range (1000..2000): right behind b in the route.
    int index = m.add_mark(1500, L"b2");
    EXPECT_EQ(m.mark(index).name, L"b2");
    EXPECT_EQ(route_names(m), (std::vector<std::wstring>{L"b", L"b2", L"d", L"a"}));
    // Inside c's range, which is not routed: the route stays as it was.
    m.add_mark(2500, L"c2");
    EXPECT_EQ(m.mark(5).name, L"c2");
    EXPECT_EQ(m.mark(5).kind, -1);
    EXPECT_EQ(route_names(m), (std::vector<std::wstring>{L"b", L"b2", L"d", L"a"}));
    // Inside intro's unrouted range, before every mark in the route: indices
    // of routed marks move, the route still names the same marks.
    m.add_mark(100, L"early");
    EXPECT_EQ(route_names(m), (std::vector<std::wstring>{L"b", L"b2", L"d", L"a"}));
    // The last routed range runs to the end of the audio.
    m.add_mark(9000, L"tail");
    EXPECT_EQ(route_names(m), (std::vector<std::wstring>{L"b", L"b2", L"d", L"tail", L"a"}));
    // Inside a's range (500..1000) which closes the route.
    m.add_mark(700, L"a2");
    EXPECT_EQ(route_names(m), (std::vector<std::wstring>{L"b", L"b2", L"d", L"tail", L"a", L"a2"}));
    // Before the first mark there is no range at all.
    RangeMarks n;
    n.add_mark_raw(100, L"x", true);
    n.add_mark(50, L"y");
    EXPECT_EQ(route_names(n), std::vector<std::wstring>{L"x"});
    expect_consistent(m);
    expect_consistent(n);

    // Removing a routed mark takes it out of the route; its neighbours keep
    // their places in order.
    m.remove(m.route_index(1)); // b2
    EXPECT_EQ(route_names(m), (std::vector<std::wstring>{L"b", L"d", L"tail", L"a", L"a2"}));
    m.remove(0); // intro, not routed
    EXPECT_EQ(route_names(m), (std::vector<std::wstring>{L"b", L"d", L"tail", L"a", L"a2"}));
    expect_consistent(m);
    m.clear();
    EXPECT_EQ(m.count(), 0);
    EXPECT_EQ(m.route_count(), 0);
}

TEST(RangeMarks, RangeLengthRunsToTheNextMarkOrTheEnd)
{
    RangeMarks m;
    m.add_mark_raw(0, L"a", true);
    m.add_mark_raw(4000, L"b", false);
    m.add_mark_raw(10000, L"c", true);
    EXPECT_EQ(m.range_length(0, 16000), 4000);
    EXPECT_EQ(m.range_length(1, 16000), 6000);
    EXPECT_EQ(m.range_length(2, 16000), 6000);
    EXPECT_EQ(m.range_length(2, 10000), 0);
    EXPECT_EQ(m.range_length(2, 9000), 0) << "a mark past the reported end has an empty range";
    EXPECT_EQ(m.range_length(2, INT32_MAX), INT32_MAX - 10000);
}

TEST(RangeMarksDeathTest, IndexOutsideTheListIsFatal)
{
    RangeMarks m;
    m.add_mark(5, L"only");
    EXPECT_EXIT(m.mark(1), testing::ExitedWithCode(liba::kFatalExitCode), "");
    EXPECT_EXIT(m.route_mark(0), testing::ExitedWithCode(liba::kFatalExitCode), "");
    EXPECT_EXIT(m.remove(-1), testing::ExitedWithCode(liba::kFatalExitCode), "");
}

TEST(RangeMarks, SpliceMovesTheTailByTheInsertAndPlacesTheNewMarksInside)
{
    RangeMarks target;
    target.add_mark_raw(0, L"Start", false);
    target.add_mark_raw(8000, L"At", true);
    target.add_mark_raw(12000, L"Tail", true);
    target.add_mark_raw(20000, L"End", false);
    RangeMarks recorded; // marks made while recording the inserted piece
    recorded.add_mark_raw(0, L"R0", true);
    recorded.add_mark_raw(1000, L"R1", false);
    recorded.add_mark_raw(3000, L"R3", true);

    target.splice(8000, 5000, recorded);
    expect_consistent(target);
    // Behind the insertion point the marks keep their place in the audio
    // (moved by the inserted length); at and before it they stay.
    std::vector<std::pair<std::wstring, int32_t>> got;
    for (int i = 0; i < target.count(); ++i)
        got.emplace_back(target.mark(i).name, target.mark(i).position);
    EXPECT_EQ(got, (std::vector<std::pair<std::wstring, int32_t>>{
                       {L"Start", 0}, {L"At", 8000}, {L"R1", 9000}, {L"R3", 11000}, {L"Tail", 17000}, {L"End", 25000}}));
    // R0 met "At" at the insertion point: the target's mark stays. The
    // recording's route follows the target's.
    EXPECT_EQ(route_names(target), (std::vector<std::wstring>{L"At", L"Tail", L"R3"}));

    // Positions that would pass the largest position stop there.
    RangeMarks big;
    big.add_mark(INT32_MAX - 10, L"near end");
    big.splice(0, 100, RangeMarks());
    EXPECT_EQ(big.mark(0).position, INT32_MAX);
}

TEST(RangeMarks, LabelTrackListsRangesInSecondsWithSixDecimals)
{
    RangeMarks m;
    m.add_mark_raw(16000, L"two\tparts", true);
    m.add_mark_raw(0, L"Start", false);
    m.add_mark_raw(40000, L"\u00e9t\u00e9\nline", false);
    auto seconds = [](int32_t position) { return position / 32000.0; }; // 16 kHz mono 16-bit
    EXPECT_EQ(label_track(m, seconds, 3.1),
              "0.000000\t0.500000\tStart\n"
              "0.500000\t1.250000\ttwo parts\n"
              "1.250000\t3.100000\t\xC3\xA9t\xC3\xA9 line\n");
    EXPECT_TRUE(label_track(m, seconds, 1.0).ends_with("\n1.250000\t1.250000\t\xC3\xA9t\xC3\xA9 line\n"))
        << "a mark past the end has an empty range";
    EXPECT_EQ(label_track(RangeMarks(), seconds, 2.0), "");
}

TEST(RangeMarks, SideFileThatDoesNotParseGivesNoMarksAndALogLine)
{
    auto home = std::make_unique<test::PrivateHome>();
    os::init_path_macros();
    ASSERT_TRUE(os::set_log_switch(true));
    test::TempDir dir;
    fs::path sound = sound_file(dir);
    fs::path side = dir / "speech rec.wav.bm";
    RangeMarks good = sample_marks();
    ASSERT_TRUE(good.save(wide(side)));
    const std::string saved = test::read_file(side);

    struct Case {
        std::string name;
        std::string bytes;
        std::string where; // what the log line says
    };
    const std::vector<Case> cases = {
        {"cut short", saved.substr(0, saved.size() / 2), "at byte"},
        {"empty", "", "at byte 0"},
        {"sound bytes", test::read_file(sound), "at byte"},
        {"other root", "<Settings><Bookmark Name=\"a\" Position=\"1\"/></Settings>", "no element \"Bookmarks\""},
        {"no position", "<Bookmarks><Bookmark Name=\"a\" Position=\"1\"/><Bookmark Name=\"b\"/></Bookmarks>",
         "element 2 of \"Bookmarks\" has no \"Position\""},
        {"text position", "<Bookmarks><Bookmark Name=\"a\" Position=\"12x\"/></Bookmarks>",
         "element 1 of \"Bookmarks\": \"Position\" \"12x\" is not a position"},
        {"negative", "<Bookmarks><Bookmark Name=\"a\" Position=\"-4\"/></Bookmarks>", "\"-4\" is not a position"},
        {"too large", "<Bookmarks><Bookmark Name=\"a\" Position=\"2147483648\"/></Bookmarks>", "not a position"},
        {"bad flag", "<Bookmarks><Bookmark Name=\"a\" Position=\"1\" Play=\"yes\"/></Bookmarks>",
         "\"Play\" \"yes\" is not a flag"},
    };
    for (const Case& c : cases) {
        test::write_file(side, c.bytes);
        RangeMarks m = sample_marks();
        std::wstring why;
        EXPECT_FALSE(m.load(wide(side), &why)) << c.name;
        EXPECT_EQ(m.count(), 0) << c.name;
        EXPECT_EQ(m.route_count(), 0) << c.name;
        EXPECT_NE(liba::to_utf8(why).find(c.where), std::string::npos) << c.name << ": " << liba::to_utf8(why);
    }
    // A side file that is a folder can't be read.
    fs::remove(side);
    fs::create_directory(side);
    RangeMarks m;
    EXPECT_FALSE(m.load(wide(side)));

    os::log().flush();
    std::string log;
    EXPECT_EQ(test::run("tail -c +3 '" + (home->app_data() / "Quillaphonics.txt").string() +
                            "' | iconv -f UTF-16LE -t UTF-8",
                        &log),
              0);
    EXPECT_TRUE(os::set_log_switch(false));
    home.reset();
    os::init_path_macros();
    // One line per failed load, naming the file and where it gave up.
    std::vector<std::string> lines;
    std::istringstream in(log);
    for (std::string l; std::getline(in, l);)
        if (l.starts_with("range marks: " + side.string() + ": "))
            lines.push_back(l);
    ASSERT_EQ(lines.size(), cases.size() + 1) << log;
    for (size_t i = 0; i < cases.size(); ++i)
        EXPECT_NE(lines[i].find(cases[i].where), std::string::npos) << cases[i].name << "\n" << lines[i];
    EXPECT_NE(lines.back().find("can't read the file"), std::string::npos) << lines.back();
}

namespace {

// A folder in memory where there is one: a save makes its file durable, and on
// a disk that others keep busy each of those waits takes seconds. What a kill
// leaves behind does not depend on the file system.
std::unique_ptr<test::TempDir> memory_folder()
{
    test::ScopedEnv tmp("TMPDIR", ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : std::getenv("TMPDIR"));
    return std::make_unique<test::TempDir>();
}

} // namespace

TEST(RangeMarks, KillDuringSaveLeavesALoadableFile)
{
    const auto folder = memory_folder();
    const test::TempDir& dir = *folder;
    const fs::path side = dir / "long recording.wav.bm";
    // Two lists large enough that writing one takes a while.
    RangeMarks a, b;
    for (int i = 0; i < 4000; ++i) {
        a.add_mark_raw(i * 7, L"a " + std::to_wstring(i), i % 3 == 0);
        b.add_mark_raw(i * 11 + 1, L"b " + std::to_wstring(i), i % 5 == 0);
    }
    ASSERT_TRUE(a.save(wide(side)));
    std::mt19937 rng(7);
    for (int round = 0; round < 20; ++round) {
        test::kill_writers_midway(1, 1000, 30000, rng, [&](int) {
            b.save(wide(side));
            a.save(wide(side));
        });
        RangeMarks back;
        ASSERT_TRUE(back.load(wide(side))) << "round " << round;
        EXPECT_TRUE(back == a || back == b) << "round " << round;
    }
}

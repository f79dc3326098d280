#include "playlist/list_multi_tracker.h"
#include "playlist/list_offline_radio.h"

#include "os/xml_document.h"
#include "tests/playlist/playlist_test_util.h"

#include <gtest/gtest.h>

namespace {

using playlist::ListMultiTracker;
using playlist::ListOfflineRadio;
using playlist::PlaylistEntry;
using test_playlist::write_list;

const char kMultiTracker[] = R"(<?xml version="1.0" encoding="utf-8"?>
<Log version="multitracker" HeaderID="H-17" Name="Morning Show" StartTime="2024-03-07T06:00:00">
  <LogEvent>
    <MediaLocation>\\studio\jingles\open.wav</MediaLocation>
    <MediaLength>5000s</MediaLength>
    <MediaTitle>Opener</MediaTitle>
    <MediaID>J001</MediaID>
    <Status>ready</Status>
    <Track>1</Track>
  </LogEvent>
  <LogEvent>
    <MediaLocation> songs/one.mp3 </MediaLocation>
    <MediaLength>180250.50</MediaLength>
    <ClipBeg>1500</ClipBeg><FadeIn>500</FadeIn><FadeOut>3000</FadeOut><ClipEnd>178000</ClipEnd>
    <StartTime>4000</StartTime>
    <MediaTitle>One</MediaTitle><MediaArtist>Band</MediaArtist>
    <MediaType>song</MediaType><DetailRefID>D9</DetailRefID><MediaComment>c</MediaComment>
    <Override>0</Override><RelaxEarly>1</RelaxEarly><RelaxLate>2</RelaxLate>
    <Track>two</Track>
  </LogEvent>
  <LogEvent><MediaTitle>no location: skipped</MediaTitle><MediaLength>9999990</MediaLength></LogEvent>
  <LogEvent><MediaLocation></MediaLocation></LogEvent>
  <Note>not an event</Note>
  <LogEvent>
    <MediaLocation>songs/two.mp3</MediaLocation>
    <MediaLength>60000x</MediaLength>
    <StartTime>-1</StartTime>
    <StartNext>2000</StartNext>
  </LogEvent>
  <LogEvent><MediaLocation>songs/three.mp3</MediaLocation></LogEvent>
</Log>
)";

TEST(ListMultiTracker, ReadsEventsIntoEntriesOnARunningClock)
{
    test::TempDir dir;
    ListMultiTracker list(write_list(dir, "show.xml", kMultiTracker));
    ASSERT_TRUE(list.is_valid()) << liba::to_utf8(list.error);
    EXPECT_EQ(list.header_id, L"H-17");
    EXPECT_EQ(list.name, L"Morning Show");
    EXPECT_EQ(list.start_time, L"2024-03-07T06:00:00");
    ASSERT_EQ(list.entries.size(), 4u);

    const PlaylistEntry& open = list.entries[0];
    EXPECT_EQ(open.path, L"\\\\studio\\jingles\\open.wav");
    EXPECT_DOUBLE_EQ(open.duration, 5.0);
    EXPECT_DOUBLE_EQ(open.next_offset, 0.0);
    EXPECT_EQ(open.track, 1);
    EXPECT_EQ(open.attribute(L"title"), L"Opener");
    EXPECT_EQ(open.attribute(L"MediaID"), L"J001");
    EXPECT_EQ(open.attribute(L"Status"), L"ready");

    const PlaylistEntry& one = list.entries[1];
    EXPECT_EQ(one.path, L"songs/one.mp3");
    EXPECT_DOUBLE_EQ(one.duration, 180.2505); // "180250.50" less its last character
    EXPECT_DOUBLE_EQ(one.clip_begin, 1.5);
    EXPECT_DOUBLE_EQ(one.fade_in, 0.5);
    EXPECT_DOUBLE_EQ(one.fade_out, 3.0);
    EXPECT_DOUBLE_EQ(one.clip_end, 178.0);
    EXPECT_DOUBLE_EQ(one.next_offset, -1.0); // starts at 4 s, the opener ends at 5 s
    EXPECT_EQ(one.track, -1);
    EXPECT_EQ(one.attributes.size(), 8u);
    EXPECT_EQ(one.attribute(L"artist"), L"Band");
    EXPECT_EQ(one.attribute(L"RelaxLate"), L"2");

    const PlaylistEntry& two = list.entries[2]; // negative StartTime: StartNext counts
    EXPECT_DOUBLE_EQ(two.duration, 60.0);
    EXPECT_DOUBLE_EQ(two.next_offset, -2.0);
    EXPECT_DOUBLE_EQ(list.entries[3].duration, -1.0);
    EXPECT_DOUBLE_EQ(list.entries[3].next_offset, 0.0);

    ListMultiTracker other(write_list(dir, "other.xml", "<Log version=\"2\"><LogEvent/></Log>"));
    EXPECT_FALSE(other.is_valid());
    EXPECT_FALSE(ListMultiTracker(write_list(dir, "asx.xml", "<ASX/>")).is_valid());
}

void expect_same_entries(const std::vector<PlaylistEntry>& a, const std::vector<PlaylistEntry>& b)
{
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i < a.size(); ++i) {
        EXPECT_EQ(a[i].path, b[i].path) << i;
        EXPECT_NEAR(a[i].duration, b[i].duration, 1e-6) << i;
        EXPECT_NEAR(a[i].next_offset, b[i].next_offset, 1e-6) << i;
        EXPECT_NEAR(a[i].clip_begin, b[i].clip_begin, 1e-6) << i;
        EXPECT_NEAR(a[i].fade_in, b[i].fade_in, 1e-6) << i;
        EXPECT_NEAR(a[i].clip_end, b[i].clip_end, 1e-6) << i;
        EXPECT_NEAR(a[i].fade_out, b[i].fade_out, 1e-6) << i;
        EXPECT_EQ(a[i].track, b[i].track) << i;
        EXPECT_EQ(a[i].attributes, b[i].attributes) << i;
    }
}

TEST(ListMultiTracker, RoundTripKeepsEveryFieldAndMarksLengths)
{
    test::TempDir dir;
    ListMultiTracker read(write_list(dir, "show.xml", kMultiTracker));
    ASSERT_TRUE(read.is_valid());
    // Overlaps deep enough to send the start time below zero.
    read.entries[3].next_offset = -300.0;
    read.entries[3].duration = 0.0015;
    std::wstring out = test_playlist::wide(dir / "again.xml");
    ASSERT_TRUE(read.save(out));

    os::XmlDocument written;
    ASSERT_TRUE(written.load(out));
    os::XmlNode event = written.root().child(L"Log").child_at(1);
    EXPECT_EQ(event.child(L"MediaLength").text(), L"180250.5.");
    EXPECT_EQ(event.child(L"ClipBeg").text(), L"1500");
    EXPECT_EQ(event.child_at(0).name(), L"MediaLocation");

    ListMultiTracker back(out);
    ASSERT_TRUE(back.is_valid());
    EXPECT_EQ(back.header_id, read.header_id);
    EXPECT_EQ(back.name, read.name);
    EXPECT_EQ(back.start_time, read.start_time);
    expect_same_entries(back.entries, read.entries);
}

const char kOfflineRadio[] = R"(<?xml version="1.0" encoding="ISO-8859-1"?>
<Log StartTime="06:00:00">
  <LogEvent>
    <FileName>C:\Audio\Songs\)" "\xE9t\xE9" R"(.mp3</FileName>
    <AudioLength>2105000 </AudioLength>
    <StartFadeUp>250</StartFadeUp>
    <StartFadeUpLength>1000</StartFadeUpLength>
    <EndFadeDown>200000</EndFadeDown>
    <EndFadeDownLength>4000</EndFadeDownLength>
    <CrossFade>2500</CrossFade>
    <EntryType>Song</EntryType>
    <AudioInfo><Title>)" "\xC9t\xE9" R"(</Title><Artist>A</Artist><Number>42</Number><Comment>ok</Comment></AudioInfo>
  </LogEvent>
  <LogEvent>
    <FileName>spot.wav</FileName>
    <AudioLength>-10</AudioLength>
    <StartFadeUp>-1</StartFadeUp>
    <EndFadeDown>9000</EndFadeDown>
    <CrossFade>-1</CrossFade>
  </LogEvent>
  <LogEvent><AudioLength>10000</AudioLength></LogEvent>
</Log>
)";

TEST(ListOfflineRadio, ReadsEventsTakingNegativeNumbersAsAbsent)
{
    test::TempDir dir;
    ListOfflineRadio list(write_list(dir, "log.xml", kOfflineRadio));
    ASSERT_TRUE(list.is_valid()) << liba::to_utf8(list.error);
    EXPECT_EQ(list.start_time, L"06:00:00");
    ASSERT_EQ(list.entries.size(), 2u);
    const PlaylistEntry& song = list.entries[0];
    EXPECT_EQ(song.path, L"C:\\Audio\\Songs\\\u00e9t\u00e9.mp3");
    EXPECT_DOUBLE_EQ(song.duration, 210.5);
    EXPECT_DOUBLE_EQ(song.clip_begin, 0.25);
    EXPECT_DOUBLE_EQ(song.fade_in, 1.0);
    EXPECT_DOUBLE_EQ(song.fade_out, 4.0);
    EXPECT_DOUBLE_EQ(song.clip_end, 204.0);
    EXPECT_DOUBLE_EQ(song.next_offset, -2.5);
    std::map<std::wstring, std::wstring> attributes = {{L"EntryType", L"Song"}, {L"title", L"\u00c9t\u00e9"},
                                                       {L"artist", L"A"},       {L"MediaID", L"42"},
                                                       {L"MediaComment", L"ok"}};
    EXPECT_EQ(song.attributes, attributes);

    const PlaylistEntry& spot = list.entries[1];
    EXPECT_DOUBLE_EQ(spot.duration, -1.0);
    EXPECT_DOUBLE_EQ(spot.clip_begin, 0.0);
    EXPECT_DOUBLE_EQ(spot.clip_end, 9.0);
    EXPECT_DOUBLE_EQ(spot.next_offset, 0.0);
}

TEST(ListOfflineRadio, RoundTripKeepsEveryField)
{
    test::TempDir dir;
    ListOfflineRadio read(write_list(dir, "log.xml", kOfflineRadio));
    ASSERT_TRUE(read.is_valid());
    std::wstring out = test_playlist::wide(dir / "again.xml");
    ASSERT_TRUE(read.save(out));

    os::XmlDocument written;
    ASSERT_TRUE(written.load(out));
    os::XmlNode log = written.root().child(L"Log");
    std::wstring start;
    EXPECT_TRUE(log.attribute(L"StartTime", start) && start == L"06:00:00");
    EXPECT_EQ(log.child(L"LogEvent").child(L"AudioLength").text(), L"210500.");
    EXPECT_EQ(log.child(L"LogEvent").child(L"EndFadeDown").text(), L"200000");
    EXPECT_TRUE(log.child_at(1).child(L"AudioLength").is_null()); // unknown length
    EXPECT_TRUE(log.child_at(1).child(L"AudioInfo").is_null());

    ListOfflineRadio back(out);
    ASSERT_TRUE(back.is_valid());
    expect_same_entries(back.entries, read.entries);
}

} // namespace

#include "files/id3_tag.h"

#include "liba/text.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace fs = std::filesystem;

namespace {

using test::wide;

fs::path media(const std::string& name) { return test::media_dir() / name; }

// A copy of a media file to change.
fs::path copy_of(const test::TempDir& dir, const std::string& name)
{
    fs::path to = dir / name;
    fs::copy_file(media(name), to);
    return to;
}

// One tag value as ffprobe reads it from the file's ID3 version 1 tag.
std::string ffprobe_tag(const fs::path& p, const std::string& key)
{
    std::string out;
    test::run("ffprobe -v error -show_entries format_tags=" + key + " -of default=nw=1:nk=1 '" +
                  p.string() + "'",
              &out);
    while (!out.empty() && (out.back() == '\n' || out.back() == '\r'))
        out.pop_back();
    return out;
}

// UTF-8 text as iconv writes it in Windows-1252.
std::string cp1252_by_iconv(const std::string& utf8)
{
    std::string out;
    EXPECT_EQ(test::run("printf '%s' '" + utf8 + "' | iconv -f UTF-8 -t WINDOWS-1252", &out), 0);
    return out;
}

// The 125 bytes behind "TAG" at 128 bytes from the end.
std::string tag_body(const fs::path& p)
{
    std::string bytes = test::read_file(p);
    EXPECT_GE(bytes.size(), 128u);
    EXPECT_EQ(bytes.substr(bytes.size() - 128, 3), "TAG");
    return bytes.substr(bytes.size() - 125);
}

} // namespace

TEST(Id3Tag, ReadsTagsOfLameAndFfmpeg)
{
    Id3Tag lame;
    lame.read(wide(media("tag_lame_v1.mp3")));
    EXPECT_TRUE(lame.present);
    EXPECT_EQ(lame.title, L"Caf\u00e9 Title");
    EXPECT_EQ(lame.artist, L"Lame Artist");
    EXPECT_EQ(lame.album, L"Lame Album");
    EXPECT_EQ(lame.year, L"1987");
    EXPECT_EQ(lame.comment, L"Lame comment");
    EXPECT_EQ(lame.track, 9);
    EXPECT_EQ(lame.genre, 17);

    Id3Tag ffmpeg;
    ffmpeg.read(wide(media("tag_ffmpeg_v1.mp3")));
    EXPECT_TRUE(ffmpeg.present);
    EXPECT_EQ(ffmpeg.title, L"Ffmpeg Title");
    EXPECT_EQ(ffmpeg.artist, L"Ffmpeg Artist");
    EXPECT_EQ(ffmpeg.album, L"Ffmpeg Album");
    EXPECT_EQ(ffmpeg.year, L"2004");
    EXPECT_EQ(ffmpeg.comment, L"Ffmpeg comment");
    EXPECT_EQ(ffmpeg.track, 12);

    // No tag, no file: an empty record, whatever it held before.
    Id3Tag none = lame;
    none.read(wide(media("lame_44100_64_mono.mp3")));
    EXPECT_FALSE(none.present);
    EXPECT_TRUE(none.title.empty());
    EXPECT_EQ(none.track, 0);
    EXPECT_EQ(none.genre, 0);
    none = lame;
    none.read(L"/no/such/file.mp3");
    EXPECT_FALSE(none.present);
    EXPECT_TRUE(none.artist.empty());
}

TEST(Id3Tag, WrittenTagsReadBackInFfprobe)
{
    test::TempDir dir;
    fs::path f = copy_of(dir, "lame_44100_64_mono.mp3");
    auto size = fs::file_size(f);
    Id3Tag tag;
    tag.title = L"Written Title";
    tag.artist = L"Written Artist";
    tag.album = L"Written Album";
    tag.year = L"2011";
    tag.comment = L"Written comment";
    tag.track = 5;
    tag.genre = 17;
    ASSERT_TRUE(tag.write(wide(f)));
    EXPECT_EQ(fs::file_size(f), size + 128);
    EXPECT_EQ(ffprobe_tag(f, "title"), "Written Title");
    EXPECT_EQ(ffprobe_tag(f, "artist"), "Written Artist");
    EXPECT_EQ(ffprobe_tag(f, "album"), "Written Album");
    EXPECT_EQ(ffprobe_tag(f, "date"), "2011");
    EXPECT_EQ(ffprobe_tag(f, "comment"), "Written comment");
    EXPECT_EQ(ffprobe_tag(f, "track"), "5");
    // Genre 17 by name, as ffprobe names lame's --tg 17.
    EXPECT_EQ(ffprobe_tag(f, "genre"), ffprobe_tag(media("tag_lame_v1.mp3"), "genre"));
    Id3Tag back;
    back.read(wide(f));
    EXPECT_TRUE(back.present);
    EXPECT_EQ(back.title, tag.title);
    EXPECT_EQ(back.comment, tag.comment);
    EXPECT_EQ(back.track, 5);
    EXPECT_EQ(back.genre, 17);

    // A second write replaces the tag in place. A new record has genre 0,
    // Blues, and no track.
    Id3Tag fresh;
    fresh.title = L"Second";
    ASSERT_TRUE(fresh.write(wide(f)));
    EXPECT_EQ(fs::file_size(f), size + 128);
    EXPECT_EQ(ffprobe_tag(f, "title"), "Second");
    EXPECT_EQ(ffprobe_tag(f, "artist"), "");
    EXPECT_EQ(ffprobe_tag(f, "genre"), "Blues");
    EXPECT_EQ(ffprobe_tag(f, "track"), "");
}

TEST(Id3Tag, TextIsWindows1252ByteForByte)
{
    test::TempDir dir;
    fs::path f = copy_of(dir, "lame_8000_8_mono.mp3");
    Id3Tag tag;
    tag.title = L"Cr\u00e8me br\u00fbl\u00e9e \u2013 \u201c\u20ac\u201d";
    tag.artist = L"\u0416\u0443\u043a \u00c5ngstr\u00f6m";  // Cyrillic is not in the code page
    tag.album = L"\u0152uvre \u2122";
    ASSERT_TRUE(tag.write(wide(f)));
    std::string body = tag_body(f);
    std::string title = cp1252_by_iconv("Cr\u00e8me br\u00fbl\u00e9e \u2013 \u201c\u20ac\u201d");
    EXPECT_EQ(body.substr(0, title.size()), title);
    EXPECT_EQ(body.substr(title.size(), 30 - title.size()), std::string(30 - title.size(), '\0'));
    std::string artist = cp1252_by_iconv("??? \u00c5ngstr\u00f6m");
    EXPECT_EQ(body.substr(30, artist.size()), artist);
    std::string album = cp1252_by_iconv("\u0152uvre \u2122");
    EXPECT_EQ(body.substr(60, album.size()), album);

    Id3Tag back;
    back.read(wide(f));
    EXPECT_EQ(back.title, tag.title);
    EXPECT_EQ(back.artist, L"??? \u00c5ngstr\u00f6m");
    EXPECT_EQ(back.album, tag.album);
}

TEST(Id3Tag, FieldsKeepTheirWidths)
{
    test::TempDir dir;
    // A comment of 30 bytes, as lame writes it without a track: byte 28 of
    // it is not 0, so there is no track.
    fs::path f = dir / "long_comment.mp3";
    std::string thirty = "abcdefghijklmnopqrstuvwxyz0123";
    ASSERT_EQ(test::run("lame --quiet -b 32 --tt 'Title of thirty-one characters' --tc " + thirty +
                        " --ty 19999 --id3v1-only '" + media("rate12000_mono.mp3").string() + "' '" +
                        f.string() + "' 2>/dev/null"),
              0);
    Id3Tag tag;
    tag.read(wide(f));
    ASSERT_TRUE(tag.present);
    EXPECT_EQ(tag.comment, liba::from_utf8(thirty));
    EXPECT_EQ(tag.track, 0);
    EXPECT_EQ(tag.year.size(), 4u);

    // Written back, the comment loses two bytes; a 31-character title keeps 30.
    tag.title = L"Title of thirty-one characters!";
    tag.year = L"20245";
    ASSERT_TRUE(tag.write(wide(f)));
    Id3Tag back;
    back.read(wide(f));
    EXPECT_EQ(back.comment, liba::from_utf8(thirty.substr(0, 28)));
    EXPECT_EQ(back.title, L"Title of thirty-one characters");
    EXPECT_EQ(back.year, L"2024");
    EXPECT_EQ(ffprobe_tag(f, "comment"), thirty.substr(0, 28));
    // Trailing blanks of a field are dropped on reading.
    back.artist = L"Spaced   ";
    ASSERT_TRUE(back.write(wide(f)));
    tag.read(wide(f));
    EXPECT_EQ(tag.artist, L"Spaced");
}

TEST(Id3Tag, FindsTheLastTagInTheFinalThousandBytes)
{
    test::TempDir dir;
    std::string lame_tag = test::read_file(media("tag_lame_v1.mp3"));
    std::string ffmpeg_tag = test::read_file(media("tag_ffmpeg_v1.mp3"));
    lame_tag = lame_tag.substr(lame_tag.size() - 128);
    ffmpeg_tag = ffmpeg_tag.substr(ffmpeg_tag.size() - 128);
    std::string audio = test::read_file(media("lame_44100_64_mono.mp3"));

    // A file shorter than the search window is searched whole.
    test::write_file(dir / "short.mp3", std::string(40, '\0') + lame_tag);
    Id3Tag tag;
    tag.read(wide(dir / "short.mp3"));
    EXPECT_TRUE(tag.present);
    EXPECT_EQ(tag.artist, L"Lame Artist");

    // Of two tags the later one counts, even with other bytes behind it.
    test::write_file(dir / "two.mp3", audio + lame_tag + ffmpeg_tag + std::string(200, '\0'));
    tag.read(wide(dir / "two.mp3"));
    EXPECT_TRUE(tag.present);
    EXPECT_EQ(tag.title, L"Ffmpeg Title");
    // Writing goes over that tag in place and leaves what follows.
    auto size = fs::file_size(dir / "two.mp3");
    tag.title = L"Replaced";
    ASSERT_TRUE(tag.write(wide(dir / "two.mp3")));
    EXPECT_EQ(fs::file_size(dir / "two.mp3"), size);
    std::string bytes = test::read_file(dir / "two.mp3");
    EXPECT_EQ(bytes.substr(bytes.size() - 200), std::string(200, '\0'));
    Id3Tag lame;
    lame.read(wide(dir / "two.mp3"));
    EXPECT_EQ(lame.title, L"Replaced");
    EXPECT_EQ(lame.artist, L"Ffmpeg Artist");

    // A tag more than 1000 bytes from the end is not seen, and writing adds
    // a new one at the end.
    test::write_file(dir / "far.mp3", audio + lame_tag + std::string(1000, '\0'));
    tag.read(wide(dir / "far.mp3"));
    EXPECT_FALSE(tag.present);
    Id3Tag fresh;
    fresh.title = L"New";
    ASSERT_TRUE(fresh.write(wide(dir / "far.mp3")));
    EXPECT_EQ(fs::file_size(dir / "far.mp3"), audio.size() + 128 + 1000 + 128);
    EXPECT_EQ(ffprobe_tag(dir / "far.mp3", "title"), "New");

    // A "TAG" with fewer than 125 bytes behind it reads as no tag.
    test::write_file(dir / "cut.mp3", audio + lame_tag.substr(0, 100));
    tag.read(wide(dir / "cut.mp3"));
    EXPECT_FALSE(tag.present);

    // Nothing to write to: a folder, a file in a missing folder.
    EXPECT_FALSE(fresh.write(wide(dir.path())));
    EXPECT_FALSE(fresh.write(wide(dir / "missing" / "x.mp3")));
}

#include "liba/string_translator.h"

#include "liba/text.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

using Entries = liba::StringTranslator::Entries;

using test::wide;

// Writes UTF-8 `text` to `name` in `dir` as it stands.
fs::path write_utf8(const test::TempDir& dir, const std::string& name, const std::string& text)
{
    fs::path p = dir / name;
    test::write_file(p, text);
    return p;
}

// Converts the UTF-8 file `utf8` to UTF-16LE with iconv and puts the mark
// FF FE before it, as an editor saving "Unicode" does.
fs::path make_utf16_with_mark(const fs::path& utf8, const fs::path& out)
{
    std::string cmd = "{ printf '\\377\\376'; iconv -f UTF-8 -t UTF-16LE '" + utf8.string() +
                      "'; } > '" + out.string() + "'";
    EXPECT_EQ(test::run(cmd), 0) << cmd;
    return out;
}

fs::path shipped_english() { return fs::path(QUILL_SOURCE_DIR) / "data" / "English.lng"; }

// Every quirk of the grammar, one statement a line (CR LF on one of them).
const std::string kGrammar =
    "spaced = text\n"
    "tight=text\n"
    "taken as value\n"
    "blank value\n"
    "blanks     value\n"
    "empty=\n"
    "kept=  two blanks  \n"
    "alone\n"
    "\n"
    "   \tnext line value\n"
    "// a comment line=with an equals sign\n"
    "//comment=also dropped\n"
    "/single slash\n"
    "a=b= rest\n"
    "a=b=\n"
    "= orphan value\n"
    "crlf windows\r\n"
    "tabbed\tvalue\twith\ttabs\n"
    "last";

} // namespace

TEST(StringTranslator, ParsesEveryQuirkOfTheGrammar)
{
    test::TempDir dir;
    liba::StringTranslator tr;
    ASSERT_TRUE(tr.load(wide(write_utf8(dir, "Grammar.lng", kGrammar))));
    const Entries expected = {
        {L"spaced", L"= text"},               // "key = text" keeps "= text"
        {L"tight=text", L"taken as value"},   // "=" inside a token is part of the key
        {L"blank", L"value"},
        {L"blanks", L"value"},                // any run of white space between
        {L"empty", L""},                      // "name=" at the line end
        {L"kept", L"  two blanks  "},         // blanks behind "=" and at the end stay
        {L"alone", L"next line value"},       // a key alone takes the next text line
        {L"/single", L"slash"},               // one slash is no comment
        {L"a=b", L""},                        // only a last "=" ends a key; the later wins
        {L"crlf", L"windows"},
        {L"tabbed", L"value\twith\ttabs"},
        {L"last", L""},                       // a key alone at the end of the text
    };
    EXPECT_EQ(tr.entries(), expected);
    // "= orphan value" has an empty key: nothing stored, and the rest of its
    // line is no statement of its own.
    EXPECT_EQ(tr.entries().count(L"orphan"), 0u);
    EXPECT_EQ(tr.entries().count(L""), 0u);

    // The statements in file order, repeats included.
    auto statements = liba::parse_language_text(liba::from_utf8(kGrammar));
    ASSERT_EQ(statements.size(), 13u);
    EXPECT_EQ(statements[8], (std::pair<std::wstring, std::wstring>(L"a=b", L" rest")));
    EXPECT_EQ(statements[9], (std::pair<std::wstring, std::wstring>(L"a=b", L"")));
    // Of a key given twice the last statement is kept: "a=b" maps to "" above.
}

TEST(StringTranslator, ReadsUtf16WithMarkAndNarrowFilesAlike)
{
    test::TempDir dir;
    // Letters of one, two, three and four UTF-8 bytes; the last needs a
    // surrogate pair in UTF-16.
    const std::string text = reinterpret_cast<const char*>(
        u8"greeting Grüße\r\n"
        u8"// Kommentar\n"
        u8"kanji 漢字\n"
        u8"note= 🎵 and € \n"
        u8"Grüße key with umlaut\n"
        u8"spaced = text\n"
        u8"last");
    const Entries expected = {
        {L"greeting", L"Gr\u00FC\u00DFe"},
        {L"kanji", L"\u6F22\u5B57"},
        {L"note", L" \U0001F3B5 and \u20AC "},
        {L"Gr\u00FC\u00DFe", L"key with umlaut"},
        {L"spaced", L"= text"},
        {L"last", L""},
    };
    fs::path narrow = write_utf8(dir, "Narrow.lng", text);
    fs::path utf16 = make_utf16_with_mark(narrow, dir / "Wide.lng");
    ASSERT_EQ(test::read_file(utf16).substr(0, 2), "\xFF\xFE");

    liba::StringTranslator from_narrow, from_wide;
    ASSERT_TRUE(from_narrow.load(wide(narrow)));
    ASSERT_TRUE(from_wide.load(wide(utf16)));
    EXPECT_EQ(from_narrow.entries(), expected);
    EXPECT_EQ(from_wide.entries(), expected);
    EXPECT_EQ(from_wide.path(), wide(utf16));

    // Narrow text that is no UTF-8 (Latin-1 from another system) reads as
    // Windows-1252.
    liba::StringTranslator latin;
    ASSERT_TRUE(latin.load(wide(write_utf8(dir, "Latin.lng", "caf\xE9 caf\xE9 \x80 5\n"))));
    EXPECT_EQ(latin.translate(L"caf\u00E9"), L"caf\u00E9 \u20AC 5");

    // A UTF-8 signature does not become part of the first key.
    liba::StringTranslator signed_utf8;
    ASSERT_TRUE(signed_utf8.load(wide(write_utf8(dir, "Signed.lng", "\xEF\xBB\xBF" + text))));
    EXPECT_EQ(signed_utf8.entries(), expected);

    // The mark alone is a file with content and no keys.
    liba::StringTranslator mark_only;
    EXPECT_TRUE(mark_only.load(wide(write_utf8(dir, "Mark.lng", "\xFF\xFE"))));
    EXPECT_TRUE(mark_only.entries().empty());
}

TEST(StringTranslator, Utf16FileOfOddSizeReadsAsNarrowText)
{
    test::TempDir dir;
    fs::path narrow = write_utf8(dir, "Narrow.lng", "key value\n");
    fs::path utf16 = make_utf16_with_mark(narrow, dir / "Wide.lng");
    std::string bytes = test::read_file(utf16);
    test::write_file(utf16, bytes + "x");

    liba::StringTranslator tr;
    ASSERT_TRUE(tr.load(wide(utf16)));
    EXPECT_EQ(tr.entries().count(L"key"), 0u);
    // Read byte by byte: FF FE are "ÿþ" in Windows-1252, the zero
    // bytes of the UTF-16 units stay inside tokens and values, the blank and
    // the line end still divide them.
    using namespace std::string_literals;
    EXPECT_EQ(tr.entries(), (Entries{{L"\u00FF\u00FEk\0e\0y\0"s, L"\0v\0a\0l\0u\0e\0"s},
                                     {L"\0x"s, L""}}));

    // The same bytes cut to an even size are UTF-16 again.
    test::write_file(utf16, bytes);
    ASSERT_TRUE(tr.load(wide(utf16)));
    EXPECT_EQ(tr.entries(), (Entries{{L"key", L"value"}}));
}

TEST(StringTranslator, UnpairedSurrogatesReadAsReplacementCharacters)
{
    // UTF-16 from a broken editor: a high surrogate ending the key, a low one
    // alone in the value, and a high one as the very last unit.
    std::string body = liba::to_utf16le_bytes(L"k");
    body += std::string("\x3D\xD8", 2);
    body += liba::to_utf16le_bytes(L" a");
    body += std::string("\x00\xDC", 2);
    body += liba::to_utf16le_bytes(L"b\nz ");
    body += std::string("\x3C\xD8", 2);
    liba::StringTranslator tr;
    ASSERT_TRUE(tr.load_bytes("\xFF\xFE" + body));
    EXPECT_EQ(tr.entries(), (Entries{{L"k\uFFFD", L"a\uFFFDb"}, {L"z", L"\uFFFD"}}));
}

TEST(StringTranslator, FallsBackToDefaultsAndKeepsOldTextsOnFailedLoads)
{
    test::TempDir dir;
    liba::StringTranslator none;
    EXPECT_TRUE(none.path().empty());
    const std::wstring key = L"on_overwrite", fallback = L"fallback";
    // An unknown key is answered with the very objects passed in.
    EXPECT_EQ(&none.translate(key), &key);
    EXPECT_EQ(&none.translate(key, fallback), &fallback);

    // An empty file has nothing to read: refused, no keys.
    fs::path empty = write_utf8(dir, "Empty.lng", "");
    EXPECT_FALSE(none.load(wide(empty)));
    EXPECT_TRUE(none.entries().empty());
    EXPECT_TRUE(none.path().empty());
    EXPECT_EQ(none.translate(key, fallback), fallback);

    // The constructor remembers the path even when the load fails.
    liba::StringTranslator missing(wide(dir / "Missing.lng"));
    EXPECT_EQ(missing.path(), wide(dir / "Missing.lng"));
    EXPECT_TRUE(missing.entries().empty());
    EXPECT_EQ(missing.translate(L"x"), L"x");

    fs::path first = write_utf8(dir, "First.lng", "on_overwrite Replace %dst%?\nonly_first 1\n");
    liba::StringTranslator tr(wide(first));
    EXPECT_EQ(tr.path(), wide(first));
    EXPECT_EQ(tr.translate(key, fallback), L"Replace %dst%?");
    EXPECT_EQ(&tr.translate(key), &tr.translate(key, fallback));
    EXPECT_EQ(tr.translate(L"unknown_key"), L"unknown_key");

    // Missing files, folders and empty files leave the loaded texts in force.
    EXPECT_FALSE(tr.load(wide(dir / "Missing.lng")));
    EXPECT_FALSE(tr.load(wide(dir.path())));
    EXPECT_FALSE(tr.load(wide(empty)));
    EXPECT_FALSE(tr.load(L""));
    EXPECT_EQ(tr.path(), wide(first));
    EXPECT_EQ(tr.translate(key), L"Replace %dst%?");

    // A file that can't be opened for reading.
    fs::path locked = write_utf8(dir, "Locked.lng", "on_overwrite locked\n");
    fs::permissions(locked, fs::perms::none);
    if (::geteuid() != 0) {
        EXPECT_FALSE(tr.load(wide(locked)));
        EXPECT_EQ(tr.translate(key), L"Replace %dst%?");
    }

    // A good load replaces the texts as a whole.
    fs::path second = write_utf8(dir, "Second.lng", "on_overwrite text\n");
    ASSERT_TRUE(tr.load(wide(second)));
    EXPECT_EQ(tr.path(), wide(second));
    EXPECT_EQ(tr.translate(key), L"text");
    EXPECT_EQ(tr.translate(L"only_first", L"gone"), L"gone");
}

TEST(StringTranslator, ReplacesSourceAndDestinationPlaceholders)
{
    EXPECT_EQ(liba::replace_src_dst(L"Copy %src% to %dst%? (%src%)", L"a.wav", L"b.wav"),
              L"Copy a.wav to b.wav? (a.wav)");
    EXPECT_EQ(liba::replace_src_dst(L"%src%%dst%%src%", L"1", L"2"), L"121");
    // Names that only look alike stay; text without placeholders is unchanged.
    EXPECT_EQ(liba::replace_src_dst(L"%sr% %SRC% %src %dst", L"x", L"y"), L"%sr% %SRC% %src %dst");
    EXPECT_EQ(liba::replace_src_dst(L"", L"x", L"y"), L"");
    // A file name that itself holds a placeholder is not expanded again.
    EXPECT_EQ(liba::replace_src_dst(L"%src% -> %dst%", L"%dst%.wav", L"%src%.mp3"),
              L"%dst%.wav -> %src%.mp3");
    // Where two names overlap, the first listed wins; empty names never match.
    EXPECT_EQ(liba::replace_placeholders(L"%a%b%", {{L"", L"!"}, {L"%a%", L"1"}, {L"%b%", L"2"}}),
              L"1b%");
}

TEST(StringTranslator, ShippedEnglishDefinesTheProgramsKeysOnce)
{
    const fs::path english = shipped_english();
    liba::StringTranslator tr;
    ASSERT_TRUE(tr.load(wide(english)));

    // Keys the program looks up, with the placeholders each message needs.
    const std::vector<std::pair<std::wstring, std::vector<std::wstring>>> keys = {
        {L"on_overwrite", {L"%dst%"}},
        {L"on_overwrite_read_only", {L"%dst%"}},
        {L"on_delete_read_only", {L"%src%"}},
        {L"on_move_read_only", {L"%src%"}},
        {L"on_recursive_operation_error", {L"%src%", L"%dst%"}},
        {L"on_self_operation_error", {L"%src%", L"%dst%"}},
        {L"on_delete_error", {L"%src%"}},
        {L"on_copy_error", {L"%src%"}},
        {L"on_move_error", {L"%src%"}},
        {L"on_create_folder_error", {L"%src%"}},
        {L"on_delete", {}},
        {L"on_progress_delete", {}},
        {L"on_progress_copy", {}},
        {L"on_progress_move", {}},
        {L"on_recording_error", {}},
        {L"on_failed_to_beam", {}},
    };
    for (const auto& [key, placeholders] : keys) {
        ASSERT_EQ(tr.entries().count(key), 1u) << liba::to_utf8(key);
        ASSERT_EQ(tr.entries().count(key + L"_caption"), 1u) << liba::to_utf8(key);
        const std::wstring& text = tr.translate(key);
        EXPECT_FALSE(text.empty()) << liba::to_utf8(key);
        for (const auto& name : placeholders)
            EXPECT_NE(text.find(name), std::wstring::npos) << liba::to_utf8(key);
    }
    for (const wchar_t* key :
         {L"on_not_enough_storage_memory", L"NO_WMA", L"NO_WMA_CAPTION", L"BEAM_NO_DEVICES",
          L"form.Main.Caption.Text", L"form.Convert.frmCaption.Text", L"SettingsScheduleBadStopStart",
          L"SettingsScheduleOverlaped", L"PlaybackModeSingleFile", L"PlaybackModeSingleFileRepeat",
          L"PlaybackModeAllFilesByOrder", L"PlaybackModeAllFilesRepeating", L"PlaybackModeShuffle",
          L"TurnOffTimeNever", L"TurnOffTime1min", L"SettingsButtonsNone",
          L"SettingsButtonsVolumeDown", L"DynamicProcessorHigh", L"MyDevice", L"#smartphone_menu#",
          L"Settings", L"Exit", L"WavToMp3"})
        EXPECT_FALSE(tr.translate(key, L"").empty()) << liba::to_utf8(key);
    // Texts the program also carries as defaults read the same.
    EXPECT_EQ(tr.translate(L"on_picture_failed_to_load"), L"Out of memory");
    EXPECT_EQ(tr.translate(L"MyDevice"), L"My Device");
    EXPECT_EQ(tr.translate(L"menuSelectAll"), L"Select All");

    // No key twice, counted by the parser and independently by the shell.
    auto statements = liba::parse_language_text(liba::from_utf8(test::read_file(english)));
    EXPECT_EQ(statements.size(), tr.entries().size());
    const std::string quoted = "'" + english.string() + "'";
    std::string out;
    EXPECT_EQ(test::run("grep -v '^//' " + quoted + " | grep -v '^$' | cut -d' ' -f1 | sort | uniq -d",
                        &out), 0);
    EXPECT_EQ(out, "");
    // Every line is a comment, empty, or a key without "=", one blank and a
    // text that starts with no blank: the one form that can't be misread.
    EXPECT_EQ(test::run("grep -n -v -E '^(//.*|[^[:space:]=]+ [^[:space:]].*|)$' " + quoted, &out), 1)
        << out;
    // Plain UTF-8 without a signature, as its header says.
    EXPECT_EQ(test::run("iconv -f UTF-8 -t UTF-8 " + quoted + " > /dev/null"), 0);
    EXPECT_NE(test::read_file(english).substr(0, 3), "\xEF\xBB\xBF");

    // Converted to UTF-16 by a translator's editor, it reads the same.
    test::TempDir dir;
    liba::StringTranslator from_utf16;
    ASSERT_TRUE(from_utf16.load(wide(make_utf16_with_mark(english, dir / "English.lng"))));
    EXPECT_EQ(from_utf16.entries(), tr.entries());
}

#include "liba/text.h"

#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// Converts `bytes` with iconv, the system's own converter, as the reference.
std::string iconv_convert(const std::string& bytes, const std::string& from, const std::string& to)
{
    test::TempDir dir;
    test::write_file(dir / "in", bytes);
    std::string out;
    std::string cmd = "iconv -f " + from + " -t " + to + " '" + (dir / "in").string() + "'";
    EXPECT_EQ(test::run(cmd, &out), 0) << cmd;
    return out;
}

// Text with one-, two-, three- and four-byte UTF-8 characters; the compiler
// encodes the narrow literal, independently of our code.
const std::wstring kWide = L"Gr\u00FC\u00DFe \u20AC \u6F22\u5B57 \U0001F3B5 end";
const std::string kUtf8 = reinterpret_cast<const char*>(u8"Grüße € 漢字 🎵 end");

} // namespace

TEST(Text, Utf8MatchesCompilerAndUtf16leMatchesIconv)
{
    EXPECT_EQ(liba::to_utf8(kWide), kUtf8);
    EXPECT_EQ(liba::from_utf8(kUtf8), kWide);

    std::string le = liba::to_utf16le_bytes(kWide);
    EXPECT_EQ(le, iconv_convert(kUtf8, "UTF-8", "UTF-16LE"));
    // U+1F3B5 lies past U+FFFF and must travel as a surrogate pair.
    EXPECT_NE(le.find(std::string("\x3C\xD8\xB5\xDF", 4)), std::string::npos);
    auto back = liba::from_utf16le_bytes(le);
    ASSERT_TRUE(back.has_value());
    EXPECT_EQ(*back, kWide);
    EXPECT_EQ(liba::from_utf16(liba::to_utf16(kWide)), kWide);
}

TEST(Text, Utf16RefusesUnpairedSurrogatesAndOddLength)
{
    // High surrogate at the end, high followed by a non-surrogate, lone low.
    EXPECT_FALSE(liba::from_utf16le_bytes(std::string("a\0\x3C\xD8", 4)).has_value());
    EXPECT_FALSE(liba::from_utf16le_bytes(std::string("\x3C\xD8" "a\0", 4)).has_value());
    EXPECT_FALSE(liba::from_utf16le_bytes(std::string("\xB5\xDF" "a\0", 4)).has_value());
    EXPECT_FALSE(liba::from_utf16(u"\xDFB5").has_value());
    EXPECT_FALSE(liba::from_utf16le_bytes(std::string("a\0b", 3)).has_value());
    auto empty = liba::from_utf16le_bytes("");
    ASSERT_TRUE(empty.has_value());
    EXPECT_TRUE(empty->empty());
    // A lone surrogate in wide text cannot be written as UTF-8.
    EXPECT_EQ(liba::to_utf8(std::wstring(1, static_cast<wchar_t>(0xD800))), "\xEF\xBF\xBD");
}

TEST(Text, InvalidUtf8ReadsAsWindows1252)
{
    // Latin-1 text from another system: the lone é byte is not UTF-8.
    EXPECT_EQ(liba::from_utf8("caf\xE9"), L"caf\u00E9");
    // A stray continuation byte is the euro sign of Windows-1252.
    EXPECT_EQ(liba::from_utf8("\x80" "5"), L"\u20AC" L"5");
    // Overlong forms of '/' are refused byte by byte.
    EXPECT_EQ(liba::from_utf8("\xC0\xAF"), L"\u00C0\u00AF");
    EXPECT_EQ(liba::from_utf8("\xE0\x80\xAF"), L"\u00E0\u20AC\u00AF");
    // An encoded surrogate (U+D800) is not UTF-8 either.
    EXPECT_EQ(liba::from_utf8("\xED\xA0\x80"), L"\u00ED\u00A0\u20AC");
    // A sequence cut short at the end of the text.
    EXPECT_EQ(liba::from_utf8("ab\xE2\x82"), L"ab\u00E2\u201A");
    // Past U+10FFFF.
    EXPECT_EQ(liba::from_utf8("\xF4\x90\x80\x80"), L"\u00F4\u0090\u20AC\u20AC");
    // Valid sequences around an invalid byte still decode.
    EXPECT_EQ(liba::from_utf8("\xC3\xA9\xFF\xC3\xA9"), L"\u00E9\u00FF\u00E9");
}

TEST(Text, Windows1252AgreesWithIconvBothWays)
{
    // Five bytes are unassigned in Windows-1252; iconv refuses them and we
    // keep them as the same code points.
    const std::string unassigned = "\x81\x8D\x8F\x90\x9D";
    std::string assigned;
    for (int b = 1; b < 256; ++b)
        if (unassigned.find(static_cast<char>(b)) == std::string::npos)
            assigned += static_cast<char>(b);

    std::wstring wide = liba::from_cp1252(assigned);
    EXPECT_EQ(liba::to_utf8(wide), iconv_convert(assigned, "CP1252", "UTF-8"));
    EXPECT_EQ(liba::to_cp1252(wide), assigned);
    EXPECT_EQ(liba::from_cp1252(unassigned), L"\u0081\u008D\u008F\u0090\u009D");

    // What the code page lacks is written as '?'.
    EXPECT_EQ(liba::to_cp1252(L"\u20AC \u6F22 \u0160 \U0001F3B5 \u0100"), "\x80 ? \x8A ? ?");
}

TEST(Text, NumbersAndFlags)
{
    EXPECT_EQ(liba::int_to_text(-42), L"-42");
    EXPECT_EQ(liba::int_to_text(2147483648LL), L"2147483648");
    EXPECT_EQ(liba::double_to_text(2.5), L"2.500000");
    EXPECT_EQ(liba::double_to_text(-0.125), L"-0.125000");
    EXPECT_EQ(liba::bool_to_text(true), L"true");
    EXPECT_EQ(liba::bool_to_text(false), L"false");

    EXPECT_EQ(liba::text_to_int(L"-17"), -17);
    EXPECT_EQ(liba::text_to_int(L"9223372036854775807"), 9223372036854775807LL);
    for (const wchar_t* bad : {L"", L"12x", L"x12", L"1.5", L"99999999999999999999", L"\u0661"})
        EXPECT_FALSE(liba::text_to_int(bad).has_value()) << liba::to_utf8(bad);

    EXPECT_EQ(liba::text_to_double(L"0.25"), 0.25);
    EXPECT_EQ(liba::text_to_double(L"-3"), -3.0);
    for (const wchar_t* bad : {L"", L"1.2.3", L"abc", L"2,5"})
        EXPECT_FALSE(liba::text_to_double(bad).has_value()) << liba::to_utf8(bad);
    // What we write reads back.
    EXPECT_EQ(liba::text_to_double(liba::double_to_text(1.75)), 1.75);
    EXPECT_EQ(liba::text_to_int(liba::int_to_text(-123456789)), -123456789);

    for (const wchar_t* t : {L"true", L"True", L"TRUE", L"1"})
        EXPECT_EQ(liba::text_to_bool(t), true) << liba::to_utf8(t);
    for (const wchar_t* f : {L"false", L"False", L"FALSE", L"0"})
        EXPECT_EQ(liba::text_to_bool(f), false) << liba::to_utf8(f);
    for (const wchar_t* bad : {L"", L"yes", L"tRUE", L"2", L" true"})
        EXPECT_FALSE(liba::text_to_bool(bad).has_value()) << liba::to_utf8(bad);
}

TEST(Text, CaseMappingCoversLatinGreekCyrillic)
{
    EXPECT_EQ(liba::to_lower(L"\u00C4\u00D6\u00DC ABC \u03A3\u0391 \u041F\u0420\u0418"),
              L"\u00E4\u00F6\u00FC abc \u03C3\u03B1 \u043F\u0440\u0438");
    EXPECT_EQ(liba::to_upper(L"\u00E9t\u00E9 \u03C9 \u0436"), L"\u00C9T\u00C9 \u03A9 \u0416");
}

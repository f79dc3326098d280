#include "liba/text.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cwctype>
#include <locale.h>
#include <wctype.h>

namespace liba {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

// Windows-1252 bytes 0x80..0x9F; the rest of the code page is Latin-1.
// Five bytes are undefined there and map to themselves.
constexpr char16_t kCp1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

wchar_t cp1252_char(unsigned char b)
{
    if (b >= 0x80 && b < 0xA0)
        return static_cast<wchar_t>(kCp1252High[b - 0x80]);
    return static_cast<wchar_t>(b);
}

bool is_surrogate(char32_t c) { return c >= 0xD800 && c <= 0xDFFF; }

void append_utf8(std::string& out, char32_t c)
{
    if (c > 0x10FFFF || is_surrogate(c))
        c = kReplacement;
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

// Decodes one UTF-8 sequence at `i`; returns its length, or 0 when the bytes
// there are not a valid, shortest-form sequence.
size_t decode_utf8_at(std::string_view s, size_t i, char32_t& c)
{
    unsigned char b0 = static_cast<unsigned char>(s[i]);
    size_t len;
    char32_t min;
    if (b0 < 0x80) {
        c = b0;
        return 1;
    } else if ((b0 & 0xE0) == 0xC0) {
        len = 2, c = b0 & 0x1F, min = 0x80;
    } else if ((b0 & 0xF0) == 0xE0) {
        len = 3, c = b0 & 0x0F, min = 0x800;
    } else if ((b0 & 0xF8) == 0xF0) {
        len = 4, c = b0 & 0x07, min = 0x10000;
    } else {
        return 0;
    }
    if (i + len > s.size())
        return 0;
    for (size_t k = 1; k < len; ++k) {
        unsigned char b = static_cast<unsigned char>(s[i + k]);
        if ((b & 0xC0) != 0x80)
            return 0;
        c = (c << 6) | (b & 0x3F);
    }
    if (c < min || c > 0x10FFFF || is_surrogate(c))
        return 0;
    return len;
}

} // namespace

std::string to_utf8(std::wstring_view text)
{
    std::string out;
    out.reserve(text.size());
    for (wchar_t w : text)
        append_utf8(out, static_cast<char32_t>(w));
    return out;
}

std::wstring from_utf8(std::string_view bytes)
{
    std::wstring out;
    out.reserve(bytes.size());
    for (size_t i = 0; i < bytes.size();) {
        char32_t c;
        size_t len = decode_utf8_at(bytes, i, c);
        if (len == 0) {
            out += cp1252_char(static_cast<unsigned char>(bytes[i]));
            ++i;
        } else {
            out += static_cast<wchar_t>(c);
            i += len;
        }
    }
    return out;
}

std::wstring from_cp1252(std::string_view bytes)
{
    std::wstring out;
    out.reserve(bytes.size());
    for (char b : bytes)
        out += cp1252_char(static_cast<unsigned char>(b));
    return out;
}

std::string to_cp1252(std::wstring_view text)
{
    std::string out;
    out.reserve(text.size());
    for (wchar_t w : text) {
        char32_t c = static_cast<char32_t>(w);
        char byte = '?';
        if (c < 0x80 || (c >= 0xA0 && c <= 0xFF)) {
            byte = static_cast<char>(c);
        } else {
            for (int k = 0; k < 32; ++k)
                if (kCp1252High[k] == c)
                    byte = static_cast<char>(0x80 + k);
        }
        out += byte;
    }
    return out;
}

std::u16string to_utf16(std::wstring_view text)
{
    std::u16string out;
    out.reserve(text.size());
    for (wchar_t w : text) {
        char32_t c = static_cast<char32_t>(w);
        if (c > 0x10FFFF)
            c = kReplacement;
        if (c >= 0x10000) {
            c -= 0x10000;
            out += static_cast<char16_t>(0xD800 + (c >> 10));
            out += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
        } else {
            out += static_cast<char16_t>(c);
        }
    }
    return out;
}

std::optional<std::wstring> from_utf16(std::u16string_view units)
{
    std::wstring out;
    out.reserve(units.size());
    for (size_t i = 0; i < units.size(); ++i) {
        char32_t c = units[i];
        if (c >= 0xD800 && c <= 0xDBFF) {
            if (i + 1 >= units.size() || units[i + 1] < 0xDC00 || units[i + 1] > 0xDFFF)
                return std::nullopt;
            c = 0x10000 + ((c - 0xD800) << 10) + (units[i + 1] - 0xDC00);
            ++i;
        } else if (c >= 0xDC00 && c <= 0xDFFF) {
            return std::nullopt;
        }
        out += static_cast<wchar_t>(c);
    }
    return out;
}

std::string to_utf16le_bytes(std::wstring_view text)
{
    std::u16string units = to_utf16(text);
    std::string out;
    out.reserve(units.size() * 2);
    for (char16_t u : units) {
        out += static_cast<char>(u & 0xFF);
        out += static_cast<char>(u >> 8);
    }
    return out;
}

std::optional<std::wstring> from_utf16le_bytes(std::string_view bytes)
{
    if (bytes.size() % 2 != 0)
        return std::nullopt;
    std::u16string units;
    units.reserve(bytes.size() / 2);
    for (size_t i = 0; i < bytes.size(); i += 2)
        units += static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                       (static_cast<unsigned char>(bytes[i + 1]) << 8));
    return from_utf16(units);
}

std::wstring int_to_text(long long value)
{
    char buf[32];
    std::snprintf(buf, sizeof buf, "%lld", value);
    return from_utf8(buf);
}

std::wstring double_to_text(double value)
{
    char buf[512];
    std::snprintf(buf, sizeof buf, "%f", value);
    return from_utf8(buf);
}

std::wstring bool_to_text(bool value) { return value ? L"true" : L"false"; }

std::optional<long long> text_to_int(std::wstring_view text)
{
    std::string s = to_utf8(text);
    if (s.empty())
        return std::nullopt;
    char* end = nullptr;
    errno = 0;
    long long v = std::strtoll(s.c_str(), &end, 10);
    if (errno != 0 || end == s.c_str() || *end != '\0')
        return std::nullopt;
    return v;
}

std::optional<double> text_to_double(std::wstring_view text)
{
    std::string s = to_utf8(text);
    if (s.empty())
        return std::nullopt;
    char* end = nullptr;
    double v = std::strtod(s.c_str(), &end);
    if (end == s.c_str() || *end != '\0')
        return std::nullopt;
    return v;
}

std::optional<bool> text_to_bool(std::wstring_view text)
{
    static constexpr std::wstring_view kTrue[] = {L"true", L"True", L"TRUE", L"1"};
    static constexpr std::wstring_view kFalse[] = {L"false", L"False", L"FALSE", L"0"};
    for (auto t : kTrue)
        if (text == t)
            return true;
    for (auto f : kFalse)
        if (text == f)
            return false;
    return std::nullopt;
}

namespace {
// Case mapping must not depend on the process locale, which is "C" unless
// somebody sets it; C.UTF-8 is always present with glibc.
locale_t unicode_locale()
{
    static locale_t loc = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return loc;
}
} // namespace

std::wstring to_lower(std::wstring_view text)
{
    std::wstring out(text);
    locale_t loc = unicode_locale();
    for (auto& c : out)
        c = static_cast<wchar_t>(loc ? towlower_l(static_cast<wint_t>(c), loc)
                                     : std::towlower(static_cast<wint_t>(c)));
    return out;
}

std::wstring to_upper(std::wstring_view text)
{
    std::wstring out(text);
    locale_t loc = unicode_locale();
    for (auto& c : out)
        c = static_cast<wchar_t>(loc ? towupper_l(static_cast<wint_t>(c), loc)
                                     : std::towupper(static_cast<wint_t>(c)));
    return out;
}

} // namespace liba

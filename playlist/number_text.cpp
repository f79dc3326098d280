#include "playlist/number_text.h"

#include <charconv>
#include <cmath>

namespace playlist {

namespace {

bool is_blank(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n'; }

// The text as ASCII bytes; false when it holds anything else, which no
// number does.
bool to_ascii(std::wstring_view text, std::string& out)
{
    out.clear();
    for (wchar_t c : text) {
        if (c <= 0 || c > 0x7E)
            return false;
        out.push_back(static_cast<char>(c));
    }
    return true;
}

std::string_view without_plus(std::string_view s)
{
    if (s.size() > 1 && s[0] == '+' && s[1] != '-')
        s.remove_prefix(1);
    return s;
}

} // namespace

std::wstring_view trim_blanks(std::wstring_view text)
{
    while (!text.empty() && is_blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back()))
        text.remove_suffix(1);
    return text;
}

std::optional<double> parse_number(std::wstring_view text)
{
    std::string ascii;
    if (!to_ascii(trim_blanks(text), ascii))
        return std::nullopt;
    std::string_view s = without_plus(ascii);
    if (s.empty())
        return std::nullopt;
    double value = 0;
    auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value, std::chars_format::general);
    if (ec != std::errc() || end != s.data() + s.size() || !std::isfinite(value))
        return std::nullopt;
    return value;
}

std::optional<int32_t> parse_int32(std::wstring_view text)
{
    std::string ascii;
    if (!to_ascii(trim_blanks(text), ascii))
        return std::nullopt;
    std::string_view s = without_plus(ascii);
    if (s.empty())
        return std::nullopt;
    int32_t value = 0;
    auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
    if (ec != std::errc() || end != s.data() + s.size())
        return std::nullopt;
    return value;
}

std::wstring number_text(double value)
{
    if (!std::isfinite(value))
        return L"0";
    char buf[400]; // DBL_MAX in fixed notation has 309 digits
    auto [end, ec] = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::fixed, 3);
    if (ec != std::errc())
        return L"0";
    std::string s(buf, end);
    while (s.back() == '0')
        s.pop_back();
    if (s.back() == '.')
        s.pop_back();
    if (s == "-0")
        s = "0";
    return std::wstring(s.begin(), s.end());
}

std::wstring integer_text(long long value)
{
    char buf[32];
    auto [end, ec] = std::to_chars(buf, buf + sizeof buf, value);
    (void)ec; // 32 characters hold every long long
    return std::wstring(buf, end);
}

} // namespace playlist

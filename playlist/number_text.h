#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Numbers as the list formats write them: C-locale decimals whatever the
// user's locale ("12.5", never "12,5"). Threads: any (no state).
namespace playlist {

// Blanks (space, tab, line ends) off both ends.
std::wstring_view trim_blanks(std::wstring_view text);

// A whole decimal number after trimming blanks, "+" allowed; nullopt for
// anything else, including infinities, NaN and values out of range.
std::optional<double> parse_number(std::wstring_view text);
// A whole decimal integer after trimming blanks that fits in 32 bits.
std::optional<int32_t> parse_int32(std::wstring_view text);

// A value with at most three decimals and no trailing zeros: "180000",
// "1234.5", "-0.25". Non-finite values give "0".
std::wstring number_text(double value);
std::wstring integer_text(long long value);

} // namespace playlist

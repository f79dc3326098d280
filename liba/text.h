#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Conversions at the edges of the program: wide text inside, UTF-8 at the
// operating system, UTF-16 where a format is UTF-16 by definition.
// Threads: any (no state).
namespace liba {

// UTF-8 out. Characters that cannot be encoded (lone surrogates, values past
// U+10FFFF) become U+FFFD.
std::string to_utf8(std::wstring_view text);

// UTF-8 in. Bytes that do not form valid UTF-8 are taken one by one as
// Windows-1252, so text from other systems still reads.
std::wstring from_utf8(std::string_view bytes);

// Windows-1252 in both directions; characters it lacks are written as '?'.
std::wstring from_cp1252(std::string_view bytes);
std::string to_cp1252(std::wstring_view text);

// UTF-16 code units; characters past U+FFFF become surrogate pairs.
std::u16string to_utf16(std::wstring_view text);
// Back from UTF-16; nullopt when a surrogate is unpaired.
std::optional<std::wstring> from_utf16(std::u16string_view units);

// Little-endian byte forms of the above, for files and sockets.
std::string to_utf16le_bytes(std::wstring_view text);
// Nullopt for an odd byte count or an unpaired surrogate.
std::optional<std::wstring> from_utf16le_bytes(std::string_view bytes);

// Numbers and flags as the settings and the registry write them:
// integers as "%d", doubles as "%f", flags as "true"/"false".
std::wstring int_to_text(long long value);
std::wstring double_to_text(double value);
std::wstring bool_to_text(bool value);
// Whole-text parses; nullopt when the text is not a number or flag.
// Flags accept true/false/True/False/TRUE/FALSE/1/0.
std::optional<long long> text_to_int(std::wstring_view text);
std::optional<double> text_to_double(std::wstring_view text);
std::optional<bool> text_to_bool(std::wstring_view text);

// Case mapping of Latin, Greek and Cyrillic letters, for names compared
// without regard to case.
std::wstring to_lower(std::wstring_view text);
std::wstring to_upper(std::wstring_view text);

} // namespace liba

// Arbitrary bytes into the text conversions at the edges of the program:
// nothing may crash, and the round trips that the conversions promise must
// hold for whatever they produce.
#include "liba/text.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

void check(bool ok)
{
    if (!ok)
        std::abort();
}

// True when every character is a Unicode scalar value, so that UTF-8 and
// UTF-16 can carry it unchanged.
bool all_scalar(std::wstring_view w)
{
    for (wchar_t c : w) {
        auto u = static_cast<std::uint32_t>(c);
        if (u > 0x10FFFF || (u >= 0xD800 && u <= 0xDFFF))
            return false;
    }
    return true;
}

// A strict UTF-8 check of its own: shortest forms only, no surrogates,
// nothing past U+10FFFF.
bool valid_utf8(std::string_view s)
{
    for (std::size_t i = 0; i < s.size();) {
        auto b = static_cast<unsigned char>(s[i]);
        if (b < 0x80) {
            ++i;
            continue;
        }
        std::size_t len;
        std::uint32_t cp, min;
        if (b >= 0xC2 && b <= 0xDF)
            len = 2, cp = b & 0x1F, min = 0x80;
        else if (b >= 0xE0 && b <= 0xEF)
            len = 3, cp = b & 0x0F, min = 0x800;
        else if (b >= 0xF0 && b <= 0xF4)
            len = 4, cp = b & 0x07, min = 0x10000;
        else
            return false;
        if (s.size() - i < len)
            return false;
        for (std::size_t k = 1; k < len; ++k) {
            auto c = static_cast<unsigned char>(s[i + k]);
            if ((c & 0xC0) != 0x80)
                return false;
            cp = (cp << 6) | (c & 0x3F);
        }
        if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
            return false;
        i += len;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string_view bytes(reinterpret_cast<const char*>(data), size);

    // UTF-8 in: never fails, one character per valid sequence or stray byte.
    std::wstring from8 = liba::from_utf8(bytes);
    check(from8.size() <= bytes.size());
    check(all_scalar(from8));
    // Valid UTF-8 goes back out as the very same bytes; anything else comes
    // out as valid UTF-8, which therefore differs from the input.
    std::string to8 = liba::to_utf8(from8);
    check((to8 == bytes) == valid_utf8(bytes));
    check(liba::from_utf8(to8) == from8);

    // Windows-1252 in: one character per byte, and back to the same bytes.
    std::wstring from1252 = liba::from_cp1252(bytes);
    check(from1252.size() == bytes.size());
    check(liba::to_cp1252(from1252) == bytes);

    // UTF-16LE in: odd lengths and unpaired surrogates are refused; what is
    // accepted goes back to the same bytes.
    auto from16 = liba::from_utf16le_bytes(bytes);
    if (size % 2 != 0)
        check(!from16.has_value());
    if (from16) {
        check(all_scalar(*from16));
        check(liba::to_utf16le_bytes(*from16) == bytes);
        check(liba::from_utf8(liba::to_utf8(*from16)) == *from16);
    }

    // Any wide text of scalar values survives UTF-16LE and UTF-8.
    for (const std::wstring* w : {&from8, &from1252}) {
        auto back = liba::from_utf16le_bytes(liba::to_utf16le_bytes(*w));
        check(back.has_value() && *back == *w);
        check(liba::from_utf8(liba::to_utf8(*w)) == *w);
    }
    return 0;
}

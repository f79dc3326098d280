// Arbitrary bytes as a language file: nothing may crash, every stored
// statement must be one the grammar can produce, and writing the texts back
// out as a narrow file must read in again to the very same texts.
#include "liba/string_translator.h"
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

bool is_space(wchar_t c)
{
    return c == L' ' || c == L'\t' || c == L'\n' || c == L'\r' || c == L'\v' || c == L'\f';
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string_view bytes(reinterpret_cast<const char*>(data), size);

    std::wstring text = liba::decode_language_file(bytes);
    for (wchar_t c : text) {
        auto u = static_cast<std::uint32_t>(c);
        check(u <= 0x10FFFF && !(u >= 0xD800 && u <= 0xDFFF));
    }

    auto statements = liba::parse_language_text(text);
    for (const auto& [key, value] : statements) {
        check(!key.empty());
        check(!(key.size() >= 2 && key[0] == L'/' && key[1] == L'/'));
        for (wchar_t c : key)
            check(!is_space(c));
        for (wchar_t c : value)
            check(c != L'\r' && c != L'\n');
        // A value that the "key text" form gave never starts with white
        // space, and its key never ends with "=".
        if (!value.empty() && !is_space(value[0]))
            check(key.back() != L'=');
    }

    liba::StringTranslator tr;
    check(tr.load_bytes(bytes) == !bytes.empty());
    check(tr.entries().size() <= statements.size());
    for (const auto& [key, value] : tr.entries())
        check(&tr.translate(key) == &value);
    // The last statement of a key is the one kept.
    if (!statements.empty())
        check(tr.translate(statements.back().first) == statements.back().second);

    // Written back: "key=value" where the value is empty or starts with a
    // blank (as "=" left it), else "key value". The leading line end keeps a
    // first key that starts with U+FEFF from becoming a UTF-8 signature.
    std::wstring out = L"\n";
    for (const auto& [key, value] : tr.entries()) {
        out += key;
        out += (value.empty() || is_space(value[0])) ? L"=" : L" ";
        out += value;
        out += L"\n";
    }
    liba::StringTranslator again;
    check(again.load_bytes(liba::to_utf8(out)));
    check(again.entries() == tr.entries());

    // Placeholders replaced by themselves: one pass over the text leaves it
    // as it was; replaced by nothing, the text only shrinks.
    check(liba::replace_src_dst(text, L"%src%", L"%dst%") == text);
    check(liba::replace_src_dst(text, L"", L"").size() <= text.size());
    return 0;
}

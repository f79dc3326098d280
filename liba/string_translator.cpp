#include "liba/string_translator.h"

#include "liba/text.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace liba {

namespace {

// The byte-order mark that makes a language file UTF-16 little-endian.
constexpr unsigned char kUtf16leMark[] = {0xFF, 0xFE};
// The signature some editors put before UTF-8 text.
constexpr unsigned char kUtf8Signature[] = {0xEF, 0xBB, 0xBF};
constexpr wchar_t kReplacement = 0xFFFD;

bool is_space(wchar_t c)
{
    return c == L' ' || c == L'\t' || c == L'\n' || c == L'\r' || c == L'\v' || c == L'\f';
}

bool is_line_end(wchar_t c) { return c == L'\r' || c == L'\n'; }

bool begins_with(std::string_view bytes, const unsigned char* mark, std::size_t size)
{
    if (bytes.size() < size)
        return false;
    for (std::size_t i = 0; i < size; ++i)
        if (static_cast<unsigned char>(bytes[i]) != mark[i])
            return false;
    return true;
}

// UTF-16LE code units to wide text; an unpaired surrogate becomes U+FFFD, so
// that any sequence of units reads.
std::wstring decode_utf16le(std::string_view bytes)
{
    std::wstring out;
    out.reserve(bytes.size() / 2);
    auto unit = [&](std::size_t k) {
        return static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[2 * k])) |
               static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[2 * k + 1])) << 8;
    };
    const std::size_t count = bytes.size() / 2;
    for (std::size_t k = 0; k < count; ++k) {
        std::uint32_t u = unit(k);
        if (u >= 0xD800 && u <= 0xDBFF && k + 1 < count) {
            std::uint32_t low = unit(k + 1);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                out.push_back(static_cast<wchar_t>(0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00)));
                ++k;
                continue;
            }
        }
        if (u >= 0xD800 && u <= 0xDFFF)
            out.push_back(kReplacement);
        else
            out.push_back(static_cast<wchar_t>(u));
    }
    return out;
}

// The whole of a regular file, at most kMaxLanguageFileSize bytes; false when
// it can't be opened or read, is no regular file, or is larger.
bool read_file_bytes(const std::wstring& path, std::string& bytes)
{
    int fd = ::open(to_utf8(path).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat st {};
    bool ok = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size >= 0 &&
              static_cast<std::uint64_t>(st.st_size) <= kMaxLanguageFileSize;
    if (ok) {
        bytes.assign(static_cast<std::size_t>(st.st_size), '\0');
        std::size_t got = 0;
        while (got < bytes.size()) {
            ssize_t r = ::read(fd, bytes.data() + got, bytes.size() - got);
            if (r < 0 && errno == EINTR)
                continue;
            if (r <= 0)
                break;
            got += static_cast<std::size_t>(r);
        }
        // A file that shrank while being read keeps what arrived.
        bytes.resize(got);
    }
    ::close(fd);
    return ok;
}

} // namespace

StringTranslator::StringTranslator(const std::wstring& path)
{
    load(path);
    path_ = path;
}

bool StringTranslator::load(const std::wstring& path)
{
    std::string bytes;
    if (!read_file_bytes(path, bytes))
        return false;
    return load_bytes(bytes, path);
}

bool StringTranslator::load_bytes(std::string_view bytes, const std::wstring& path)
{
    if (bytes.empty())
        return false;
    Entries entries;
    for (auto& [key, value] : parse_language_text(decode_language_file(bytes)))
        entries.insert_or_assign(std::move(key), std::move(value));
    entries_ = std::move(entries);
    path_ = path;
    return true;
}

const std::wstring& StringTranslator::translate(const std::wstring& key,
                                                const std::wstring& default_text) const
{
    auto it = entries_.find(key);
    return it == entries_.end() ? default_text : it->second;
}

std::wstring decode_language_file(std::string_view bytes)
{
    if (bytes.size() % 2 == 0 && begins_with(bytes, kUtf16leMark, sizeof kUtf16leMark))
        return decode_utf16le(bytes.substr(sizeof kUtf16leMark));
    if (begins_with(bytes, kUtf8Signature, sizeof kUtf8Signature))
        bytes.remove_prefix(sizeof kUtf8Signature);
    return from_utf8(bytes);
}

std::vector<std::pair<std::wstring, std::wstring>> parse_language_text(std::wstring_view text)
{
    std::vector<std::pair<std::wstring, std::wstring>> out;
    const std::size_t n = text.size();
    std::size_t i = 0;
    for (;;) {
        while (i < n && is_space(text[i]))
            ++i;
        if (i >= n)
            break;
        const std::size_t token_begin = i;
        while (i < n && !is_space(text[i]))
            ++i;
        std::wstring_view key = text.substr(token_begin, i - token_begin);

        if (key.size() >= 2 && key[0] == L'/' && key[1] == L'/') {
            while (i < n && !is_line_end(text[i]))
                ++i;
            continue;
        }
        if (key.back() == L'=') {
            // "key=value": the value starts right behind the "=", blanks kept.
            key.remove_suffix(1);
        } else {
            // "key value", or a key alone on its line taking the next one.
            while (i < n && is_space(text[i]))
                ++i;
        }
        const std::size_t value_begin = i;
        while (i < n && !is_line_end(text[i]))
            ++i;
        if (!key.empty())
            out.emplace_back(std::wstring(key), std::wstring(text.substr(value_begin, i - value_begin)));
    }
    return out;
}

std::wstring replace_placeholders(
    std::wstring_view text,
    const std::vector<std::pair<std::wstring_view, std::wstring_view>>& values)
{
    std::wstring out;
    out.reserve(text.size());
    std::size_t i = 0;
    while (i < text.size()) {
        bool replaced = false;
        for (const auto& [name, value] : values) {
            if (!name.empty() && text.substr(i, name.size()) == name) {
                out.append(value);
                i += name.size();
                replaced = true;
                break;
            }
        }
        if (!replaced)
            out.push_back(text[i++]);
    }
    return out;
}

std::wstring replace_src_dst(std::wstring_view text, std::wstring_view src, std::wstring_view dst)
{
    return replace_placeholders(text, {{L"%src%", src}, {L"%dst%", dst}});
}

} // namespace liba

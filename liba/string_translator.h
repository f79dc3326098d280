#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace liba {

// The texts of one language file, by key. A key that the file does not define
// is answered with a default, or with the key itself, so a missing
// translation shows as its key and never fails.
// Threads: loaded on one thread (the main thread); afterwards read-only, so
// lookups from any thread are safe while nobody loads. References returned
// by `translate` live as long as the translator or the argument they name.
class StringTranslator {
public:
    using Entries = std::map<std::wstring, std::wstring>;

    StringTranslator() = default;
    // Stores the path and loads it; a failed load leaves no entries.
    explicit StringTranslator(const std::wstring& path);
    virtual ~StringTranslator() = default;

    // Reads the file at `path` (already expanded, "/" separators) and
    // replaces the entries with its keys. False when the file can't be read
    // or is empty; the entries and the path then stay as they were.
    bool load(const std::wstring& path);
    // The same from the bytes of a file; `path` is only remembered.
    bool load_bytes(std::string_view bytes, const std::wstring& path = {});

    // The stored text of `key`, else `default_text`.
    const std::wstring& translate(const std::wstring& key, const std::wstring& default_text) const;
    // The stored text of `key`, else the key itself.
    const std::wstring& translate(const std::wstring& key) const { return translate(key, key); }

    // The file that filled the entries; empty if none did.
    const std::wstring& path() const { return path_; }
    const Entries& entries() const { return entries_; }

private:
    Entries entries_;
    std::wstring path_;
};

// Language files larger than this are refused unread (bytes); real ones are
// a few kilobytes.
inline constexpr std::size_t kMaxLanguageFileSize = 16u << 20;

// The text of a language file: UTF-16 little-endian behind the mark FF FE if
// the size is even, otherwise UTF-8 with stray bytes read as Windows-1252
// (a UTF-8 signature EF BB BF is skipped). Never fails: an unpaired
// surrogate becomes U+FFFD.
std::wstring decode_language_file(std::string_view bytes);

// Every statement of a decoded language text, as (key, value) in file order,
// repeats included. A statement is a key token, then either "=" closing the
// token with the value straight behind it, or white space (line ends too)
// and the value from the next character; the value runs to CR, LF or the
// end. A token beginning with "//" comments out the rest of its line.
// White space is blank, tab, CR, LF, vertical tab and form feed.
std::vector<std::pair<std::wstring, std::wstring>> parse_language_text(std::wstring_view text);

// `text` with every occurrence of each placeholder name (such as "%src%")
// replaced by its value, in one pass: text that a value brings in is not
// searched again. Where two names match at one place, the first listed wins.
std::wstring replace_placeholders(
    std::wstring_view text,
    const std::vector<std::pair<std::wstring_view, std::wstring_view>>& values);

// The two placeholders of file messages: "%src%" and "%dst%", each replaced
// by a file's display name.
std::wstring replace_src_dst(std::wstring_view text, std::wstring_view src, std::wstring_view dst);

} // namespace liba

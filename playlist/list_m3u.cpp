#include "playlist/list_m3u.h"

#include "liba/text.h"
#include "os/file.h"
#include "playlist/number_text.h"

#include <cmath>
#include <vector>

namespace playlist {

namespace {

constexpr std::wstring_view kHeader = L"#EXTM3U";
constexpr std::wstring_view kInfoTag = L"#EXTINF";
// The header must stand within this many characters.
constexpr size_t kHeaderReach = 100;
// Durations beyond this are no durations; they are written as unknown.
constexpr double kLongestDuration = 1e15;

// The text of the file: UTF-16 after its byte-order mark, otherwise UTF-8
// with stray bytes as Windows-1252. A UTF-8 byte-order mark is dropped.
bool decode_text(std::string_view bytes, std::wstring& text, std::wstring& why)
{
    if (bytes.size() >= 2 && (bytes.substr(0, 2) == "\xFF\xFE" || bytes.substr(0, 2) == "\xFE\xFF")) {
        std::string le(bytes.substr(2));
        if (le.size() % 2 != 0)
            le.pop_back(); // a file cut within its last character
        if (bytes[0] == '\xFE')
            for (size_t i = 0; i + 1 < le.size(); i += 2)
                std::swap(le[i], le[i + 1]);
        auto decoded = liba::from_utf16le_bytes(le);
        if (!decoded) {
            why = L"UTF-16 text with an unpaired surrogate";
            return false;
        }
        text = *decoded;
    } else {
        text = liba::from_utf8(bytes);
    }
    if (!text.empty() && text[0] == 0xFEFF)
        text.erase(0, 1);
    return true;
}

// Lines ended by "\n", "\r\n" or "\r"; a line end at the very end of the
// text starts no further line.
std::vector<std::wstring_view> split_lines(std::wstring_view text)
{
    std::vector<std::wstring_view> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find_first_of(L"\r\n", start);
        if (end == std::wstring_view::npos) {
            lines.push_back(text.substr(start));
            break;
        }
        lines.push_back(text.substr(start, end - start));
        start = end + (text[end] == L'\r' && end + 1 < text.size() && text[end + 1] == L'\n' ? 2 : 1);
    }
    return lines;
}

std::wstring line_number(size_t index) { return L"line " + integer_text(static_cast<long long>(index) + 1); }

bool starts_with_ignoring_case(std::wstring_view text, std::wstring_view prefix)
{
    return text.size() >= prefix.size() && liba::to_upper(text.substr(0, prefix.size())) == prefix;
}

// Duration and title of "#EXTINF:123,Title" into the entry; the title is
// kept as the attribute "title" when there is one.
void take_info(std::wstring_view duration, std::wstring_view title, PlaylistEntry& entry)
{
    if (auto seconds = parse_number(duration))
        entry.duration = *seconds;
    title = trim_blanks(title);
    if (!title.empty())
        entry.attributes[L"title"] = std::wstring(title);
}

// One line of text: line breaks inside a value would start new lines.
std::string one_line(const std::wstring& value)
{
    std::string bytes = liba::to_utf8(value);
    for (char& c : bytes)
        if (c == '\r' || c == '\n')
            c = ' ';
    return bytes;
}

std::string duration_text(double seconds)
{
    if (!std::isfinite(seconds) || std::fabs(seconds) >= kLongestDuration)
        return "-1";
    return liba::to_utf8(integer_text(static_cast<long long>(std::trunc(seconds))));
}

} // namespace

ListM3U::ListM3U() : List(kFormatM3U) {}

ListM3U::ListM3U(const std::wstring& path, Reading reading) : List(kFormatM3U)
{
    source = path;
    std::string bytes;
    if (!os::read_whole_file(path, bytes)) {
        give_up(L"can't read the file");
        return;
    }
    read(bytes, reading);
}

bool ListM3U::give_up(const std::wstring& why)
{
    entries.clear();
    valid = false;
    error = why;
    return false;
}

bool ListM3U::read(std::string_view bytes, Reading reading)
{
    entries.clear();
    error.clear();
    valid = false;
    std::wstring text;
    std::wstring why;
    if (!decode_text(bytes, text, why))
        return give_up(why);
    return reading == kExtended ? read_extended(text) : read_plain(text);
}

bool ListM3U::read_extended(const std::wstring& text)
{
    std::wstring_view first = std::wstring_view(text).substr(0, kHeaderReach);
    first = first.substr(0, first.find_first_of(L"\r\n"));
    if (trim_blanks(first) != kHeader)
        return give_up(L"line 1 is not \"#EXTM3U\"");

    std::vector<std::wstring_view> lines = split_lines(text);
    for (size_t i = 1; i < lines.size(); i += 2) {
        std::wstring_view info = trim_blanks(lines[i]);
        size_t colon = info.find(L':');
        if (colon == std::wstring_view::npos)
            return give_up(line_number(i) + L" has no \":\"");
        size_t comma = info.find(L',', colon + 1);
        if (comma == std::wstring_view::npos)
            return give_up(line_number(i) + L" has no \",\" behind \":\"");
        if (info.substr(0, colon) != kInfoTag)
            return give_up(line_number(i) + L" is not an \"#EXTINF\" line");
        PlaylistEntry entry;
        take_info(info.substr(colon + 1, comma - colon - 1), info.substr(comma + 1), entry);
        if (i + 1 < lines.size())
            entry.path = trim_blanks(lines[i + 1]);
        entries.push_back(std::move(entry));
    }
    valid = true;
    return true;
}

bool ListM3U::read_plain(const std::wstring& text)
{
    if (text.find(L'\0') != std::wstring::npos)
        return give_up(L"holds NUL characters, so it is no text");
    std::wstring_view body = trim_blanks(text);
    if (body.empty())
        return give_up(L"holds nothing");
    if (body[0] == L'<')
        return give_up(L"begins with \"<\", so it is markup");

    bool pending = false; // an "#EXTINF" line waits for its path
    PlaylistEntry entry;
    for (std::wstring_view line : split_lines(text)) {
        line = trim_blanks(line);
        if (line.empty())
            continue;
        if (starts_with_ignoring_case(line, kInfoTag) && line.size() > kInfoTag.size() &&
            line[kInfoTag.size()] == L':') {
            if (pending)
                entries.push_back(std::move(entry));
            entry = PlaylistEntry();
            std::wstring_view info = line.substr(kInfoTag.size() + 1);
            size_t comma = info.find(L',');
            if (comma == std::wstring_view::npos)
                take_info(info, {}, entry);
            else
                take_info(info.substr(0, comma), info.substr(comma + 1), entry);
            pending = true;
        } else if (line[0] != L'#') {
            entry.path = line;
            entries.push_back(std::move(entry));
            entry = PlaylistEntry();
            pending = false;
        }
    }
    if (pending)
        entries.push_back(std::move(entry));
    valid = true;
    return true;
}

std::string ListM3U::to_bytes() const
{
    std::string out = "#EXTM3U\n";
    for (const PlaylistEntry& entry : entries) {
        out += "#EXTINF:" + duration_text(entry.duration) + "," + one_line(entry.attribute(L"title")) + "\n";
        out += one_line(entry.path) + "\n";
    }
    return out;
}

bool ListM3U::save(const std::wstring& path) const { return os::write_file_atomically(path, to_bytes()); }

} // namespace playlist
